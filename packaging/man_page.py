#!/usr/bin/env python3
"""Writes the manual page archspec(1) from the tool's own help, so that the page says what the
tool says: `archspec --help` for the synopsis, description and options, `archspec SUBCOMMAND
--help` for a section per subcommand, `archspec --version` for the footer.

    man_page.py ARCHSPEC OUTPUT
"""

import re
import subprocess
import sys

# A line of an option list: the term after two spaces, its text after two or more.
ITEM = re.compile(r"^  (\S(?:.*?\S)?)(?:\s{2,}(\S.*))?$")
HEADINGS = ("Positionals:", "Options:", "Subcommands:")


def run(tool, *args):
    return subprocess.run([tool, *args], check=True, capture_output=True, text=True).stdout


def escape(text):
    """Text as troff prints it: backslashes and minus signs escaped, no line read as a request."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def render(lines):
    """The troff of a help text below its usage line: option lists as tagged paragraphs, examples
    as literal lines, the rest as paragraphs."""
    out = []
    listing = False  # inside Positionals/Options/Subcommands
    literal = False  # inside Examples
    new_paragraph = True
    for line in lines:
        if not line.strip():
            if literal:
                out += [".fi", ".RE"]
            listing = literal = False
            new_paragraph = True
            continue
        if line in HEADINGS:
            listing, literal = True, False
            out.append(f".SS {line[:-1]}")
            continue
        if re.fullmatch(r"Examples?:", line):
            out += [".PP", escape(line), ".RS", ".nf"]
            literal = True
            continue
        if literal:
            out.append(escape(line.strip()))
            continue
        item = ITEM.match(line) if listing else None
        if item:
            out += [".TP", f"\\fB{escape(item.group(1))}\\fR"]
            if item.group(2):
                out.append(escape(item.group(2)))
        elif listing and line.startswith("    "):
            out.append(escape(line.strip()))  # an item's text on the lines below its term
        else:
            if new_paragraph:
                out.append(".PP")
                new_paragraph = False
            out.append(escape(line.strip()))
    if literal:
        out += [".fi", ".RE"]
    return out


def split_help(text):
    """The help's text before its usage line, the usage line, and the lines after it."""
    lines = text.rstrip("\n").split("\n")
    usage = next(i for i, line in enumerate(lines) if line.startswith("Usage: "))
    return lines[:usage], lines[usage][len("Usage: "):], lines[usage + 1:]


def main():
    tool, output = sys.argv[1], sys.argv[2]
    version = run(tool, "--version").strip()
    about, usage, rest = split_help(run(tool, "--help"))
    summary = " ".join(about).split(": ", 1)[1].rstrip(".")
    subcommands = []
    in_subcommands = False
    for line in rest:
        if line == "Subcommands:":
            in_subcommands = True
        elif not line.strip():
            in_subcommands = False
        elif in_subcommands and ITEM.match(line):
            subcommands.append(ITEM.match(line).group(1))

    page = [
        f'.TH ARCHSPEC 1 "" "{escape(version)}" "User Commands"',
        ".SH NAME",
        f"archspec \\- {escape(summary)}",
        ".SH SYNOPSIS",
        f".B {escape(usage)}",
        ".SH DESCRIPTION",
        escape(summary[0].upper() + summary[1:] + "."),
    ]
    page += render(rest)
    page.append(".SH SUBCOMMANDS")
    for name in subcommands:
        about, usage, rest = split_help(run(tool, name, "--help"))
        page += [f".SS {escape(name)}", ".PP", f"\\fB{escape(usage)}\\fR", ".PP"]
        page += [escape(line) for line in about]
        # A subcommand's headings are one level below its own.
        page += [line.replace(".SS ", ".PP\n.I ", 1) if line.startswith(".SS ") else line
                 for line in render(rest)]
    with open(output, "w", encoding="utf-8") as out:
        out.write("\n".join(page) + "\n")


if __name__ == "__main__":
    main()
