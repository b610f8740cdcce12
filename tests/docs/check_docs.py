#!/usr/bin/env python3
"""Checks every example of the documents against the program: what a reader copies works.

Reads README.md and docs/*.md, and for each fenced block:
  cpp       compiled against the library (those of docs/library.md against the tooling library
            too, as a program outside the project links ArchSpecCore::Tooling); a complete program
            (with main) is run too, and where the text right after the block says it "prints
            `...`", its output must be exactly that. A fragment is compiled as the body of a
            function, its #include lines above it.
  python    run with the package archspec of the build; "prints `...`" is checked the same way.
  console   sessions of the tool: each `$ command` runs from the repository root (`archspec` being
            the tool of the build) and must print the lines that follow it, stdout and stderr
            together; a line `...` stands for any number of lines.
  other     must be marked as not run: the line before the block is `<!-- not run -->` or an
            italic note `*Not run: ...*`. The README's quick-start commands are the exception:
            they must be, word for word, commands that .ci/run runs.
A block marked as not run is skipped whatever its language.

    check_docs.py SOURCE_DIR BUILD_DIR [CXX [CXXFLAGS...]]
    check_docs.py --refresh SOURCE_DIR BUILD_DIR

Prints one line per block and exits 1 if any fails. With --refresh it checks nothing: it writes
what each console session prints now into the documents, for the sessions that show no `...`
line, so that a change of the tables or of a message is one build and a review of the diff.
"""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

FENCE = re.compile(r"^```(\w*)[^\n]*\n(.*?)^```[ \t]*$", re.M | re.S)
NOT_RUN = re.compile(r"(<!--\s*not run\b.*-->|^\*Not run\b.*\*)\s*$", re.I)
PRINTS = re.compile(r"\A\s*prints (`.*?)(?:\n\s*\n|\Z)", re.S)
# The documents whose C++ uses the tooling layer (tooling/*.h) as well as the library.
TOOLING_DOCUMENTS = {"docs/library.md"}


class Block:
    def __init__(self, path, text, match):
        self.path = path
        self.language = match.group(1)
        self.code = match.group(2)
        self.line = text.count("\n", 0, match.start()) + 1
        before = text[:match.start()].rstrip("\n").rsplit("\n", 1)[-1]
        self.not_run = bool(NOT_RUN.search(before))
        # "prints `first line` and then `second line`.": the lines the block prints.
        after = PRINTS.match(text[match.end():])
        self.prints = "\n".join(re.findall(r"`([^`]*)`", after.group(1))) if after else None

    def where(self):
        return f"{self.path}:{self.line}"


def blocks(source):
    paths = [source / "README.md"] + sorted((source / "docs").glob("*.md"))
    for path in paths:
        text = path.read_text()
        for match in FENCE.finditer(text):
            yield Block(path.relative_to(source), text, match)


class Checker:
    def __init__(self, source, build, cxx, flags):
        self.source, self.build, self.cxx, self.flags = source, build, cxx, flags
        self.scratch = pathlib.Path(tempfile.mkdtemp())
        # `archspec` in the sessions is the tool of this build.
        self.bin = self.scratch / "bin"
        self.bin.mkdir()
        (self.bin / "archspec").symlink_to(build / "tools" / "cli" / "archspec")
        self.env = {**os.environ, "PATH": f"{self.bin}:{os.environ['PATH']}",
                    "PYTHONPATH": str(build / "python"), "LC_ALL": "C"}
        ci = (source / ".ci" / "run").read_text().splitlines()
        self.ci_commands = {line.strip() for line in ci}

    def run(self, command, **kwargs):
        return subprocess.run(command, capture_output=True, text=True, env=self.env, **kwargs)

    def check(self, block):
        """None if the block is right, else what is wrong."""
        if block.not_run:
            return None
        if block.language == "cpp":
            return self.cpp(block)
        if block.language == "python":
            return self.python(block)
        if block.language == "console":
            return self.console(block)
        if block.language == "sh" and str(block.path) == "README.md":
            missing = [line for line in block.code.splitlines() if line.strip() and
                       line.strip() not in self.ci_commands]
            return f".ci/run does not run: {missing[0]}" if missing else None
        return f"a ```{block.language or 'text'} block must be checked or marked <!-- not run -->"

    def cpp(self, block):
        program = self.scratch / "example.cpp"
        if re.search(r"\bint main\s*\(", block.code):
            program.write_text(block.code)
        else:
            includes = [line for line in block.code.splitlines() if line.startswith("#include")]
            body = [line for line in block.code.splitlines() if not line.startswith("#include")]
            program.write_text("\n".join(includes) + "\nvoid Fragment() {\n" + "\n".join(body) +
                               "\n}\n")
        binary = self.scratch / "example"
        # The tooling layer is a static library over the shared one: it comes first.
        tooling = ([str(self.build / "tooling" / "libArchSpecTooling.a")]
                   if str(block.path) in TOOLING_DOCUMENTS else [])
        library = self.build / "compiler" / "arch_spec"
        compiled = self.run([self.cxx, "-std=c++20", *self.flags, f"-I{self.source}",
                             f"-I{self.build / 'generated'}", str(program), "-o", str(binary),
                             *tooling, f"-L{library}", "-lArchSpecCore", f"-Wl,-rpath,{library}"])
        if compiled.returncode != 0:
            return "does not compile:\n" + compiled.stderr[:2000]
        if "main" not in program.read_text():
            return None
        ran = self.run([str(binary)])
        if ran.returncode != 0:
            return f"exits {ran.returncode}:\n{ran.stdout}{ran.stderr}"
        return self.printed(block, ran.stdout)

    def python(self, block):
        ran = self.run([sys.executable, "-c", block.code], cwd=self.scratch)
        if ran.returncode != 0:
            return f"exits {ran.returncode}:\n{ran.stderr[-2000:]}"
        return self.printed(block, ran.stdout)

    @staticmethod
    def printed(block, output):
        if block.prints is not None and output.rstrip("\n") != block.prints:
            return f"prints {output.rstrip()!r}, the text says {block.prints!r}"
        return None

    def console(self, block):
        """Runs each `$ command` and matches what it prints against the lines shown after it."""
        sessions, current = [], None
        for line in block.code.splitlines():
            if line.startswith("$ "):
                current = [line[2:], []]
                sessions.append(current)
            elif current is None:
                return "a session starts with a line `$ command`"
            else:
                current[1].append(line)
        for command, shown in sessions:
            ran = self.run(["bash", "-c", command], cwd=self.source,
                           stdin=subprocess.DEVNULL)
            output = (ran.stdout + ran.stderr).splitlines()
            if not matches(shown, output):
                return (f"`$ {command}` prints:\n" + "\n".join(output[:40]) +
                        "\nthe page shows:\n" + "\n".join(shown[:40]))
        return None


def matches(shown, output):
    """Whether the output lines are those shown, a `...` line standing for any number of lines."""
    if not shown:
        return not output
    if shown[0] == "...":
        return any(matches(shown[1:], output[k:]) for k in range(len(output) + 1))
    return bool(output) and output[0] == shown[0] and matches(shown[1:], output[1:])


def refresh(source, build):
    """Rewrites the shown output of every console session to what it prints now; a block that
    shows a `...` line is left as written."""
    checker = Checker(source, build, "c++", [])
    for path in [source / "README.md"] + sorted((source / "docs").glob("*.md")):
        text = path.read_text()
        parts, at = [], 0
        for match in FENCE.finditer(text):
            block = Block(path.relative_to(source), text, match)
            lines = block.code.splitlines()
            if block.language != "console" or block.not_run or "..." in lines:
                continue
            code = []
            for line in lines:
                if line.startswith("$ "):
                    ran = checker.run(["bash", "-c", line[2:]], cwd=source,
                                      stdin=subprocess.DEVNULL)
                    code += [line] + (ran.stdout + ran.stderr).splitlines()
            parts += [text[at:match.start(2)], "\n".join(code) + "\n"]
            at = match.end(2)
        new = "".join(parts) + text[at:]
        if new != text:
            path.write_text(new)
            print(f"{path.relative_to(source)}: refreshed")
    return 0


def main(argv):
    if len(argv) == 4 and argv[1] == "--refresh":
        return refresh(pathlib.Path(argv[2]).resolve(), pathlib.Path(argv[3]).resolve())
    if len(argv) < 3:
        print(__doc__.strip().splitlines()[-3].strip(), file=sys.stderr)
        return 2
    source, build = pathlib.Path(argv[1]).resolve(), pathlib.Path(argv[2]).resolve()
    cxx = argv[3] if len(argv) > 3 else "c++"
    checker = Checker(source, build, cxx, argv[4:])
    failures = 0
    for block in blocks(source):
        problem = checker.check(block)
        state = "not run" if block.not_run else ("ok" if problem is None else "FAILED")
        print(f"{block.where()}: {block.language or 'text'}: {state}")
        if problem is not None:
            failures += 1
            print("  " + problem.replace("\n", "\n  "))
    print(f"{failures} of the documents' blocks fail" if failures else "every block is right")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
