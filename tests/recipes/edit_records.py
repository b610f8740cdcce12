#!/usr/bin/env python3
"""Adds a field to a record of the record tables and corrects the declared totals as the
generator names them, as the maintainers' recipe "Add a field to a record" does by hand:

    edit_records.py TABLES_DIR RECORD AFTER_FIELD ROW

puts ROW (a field and its cells, as the table writes them) after the row of AFTER_FIELD in the
block of RECORD, then runs gen_records.py on the tables once: it names every total that must
follow, the record's and those of every record that holds it (`record R, generation NS: found
191 bits in the fields, expected 182 as declared`). Each is set to the number found, what changed
is printed, and one more run must accept the tables. Any other complaint of the generator ends it
with status 1. (A maintainer runs `gen_records.py --tables DIR --fix` instead, which does the same
in place; this script applies the report itself, so that the recipe checks the report.)
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

TOTAL = re.compile(r"^(?P<path>.+):(?P<line>\d+): error: record (?P<record>\w+), generation "
                   r"(?P<ns>\w+): found (?P<found>\d+) (?P<what>bits in the fields|fields|unique "
                   r"ids), expected (?P<declared>\d+) as declared$")
# The place of each total in a heading's NS=BITS/FIELDS/IDS.
PART = {"bits in the fields": 0, "fields": 1, "unique ids": 2}


def add_row(tables, record, after, row):
    for path in sorted(tables.joinpath("records").glob("*.rec")):
        lines = path.read_text().splitlines(keepends=True)
        heading = [i for i, line in enumerate(lines) if line.split()[:2] == ["record", record]]
        if not heading:
            continue
        for i in range(heading[0] + 1, len(lines)):
            if not lines[i].startswith(" "):
                break
            if lines[i].split()[0] == after:
                lines.insert(i + 1, row.rstrip("\n") + "\n")
                path.write_text("".join(lines))
                print(f"{path.name}:{i + 2}: added {row.split()[0]} to {record}")
                return
        sys.exit(f"edit_records.py: {record} has no field {after}")
    sys.exit(f"edit_records.py: no record {record} in {tables}/records")


def correct_totals(tables, complaints):
    """Sets each total that a complaint names to the number found; False if a complaint is of
    another kind."""
    found = {}  # (table, line, record, namespace) -> {place in NS=BITS/FIELDS/IDS: number}
    for complaint in complaints:
        m = TOTAL.match(complaint)
        if m is None:
            return False
        key = (m["path"], int(m["line"]), m["record"], m["ns"])
        found.setdefault(key, {})[PART[m["what"]]] = m["found"]
    for (path, line, record, ns), numbers in found.items():
        lines = pathlib.Path(path).read_text().splitlines(keepends=True)
        old = next(w for w in lines[line - 1].split() if w.startswith(ns + "="))
        parts = old.split("=")[1].split("/")
        for place, number in numbers.items():
            parts[place] = number
        new = f"{ns}={'/'.join(parts)}"
        lines[line - 1] = re.sub(rf"(?<!\S){re.escape(old)}(?!\S)", new, lines[line - 1])
        pathlib.Path(path).write_text("".join(lines))
        print(f"{os.path.basename(path)}:{line}: {record} {old} -> {new}")
    return True


def main(argv):
    if len(argv) != 5:
        print("usage: edit_records.py TABLES_DIR RECORD AFTER_FIELD ROW", file=sys.stderr)
        return 2
    tables = pathlib.Path(argv[1]).resolve()
    add_row(tables, argv[2], argv[3], argv[4])
    generator = tables.parent / "gen_records.py"  # the generator beside the tables
    with tempfile.TemporaryDirectory() as out:
        def run():
            return subprocess.run([sys.executable, str(generator), "--tables", str(tables),
                                   "--out", out], capture_output=True, text=True)

        ran = run()
        if ran.returncode != 0 and correct_totals(tables, ran.stderr.splitlines()):
            ran = run()
    if ran.returncode != 0:
        print(ran.stderr, end="", file=sys.stderr)
        print("edit_records.py: the generator refuses the tables", file=sys.stderr)
    return ran.returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv))
