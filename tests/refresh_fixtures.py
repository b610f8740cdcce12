#!/usr/bin/env python3
"""Rewrites what the tests and the documents hold that follows from the tables, so that a change
of the tables is one build of the target refresh_fixtures and a review of the diff:

  tests/cli/data/*.bits, *.bin  the configurations of the tool's tests, encoded by the tool from
                                the listings they are made of (FIXTURES); the files that are
                                broken on purpose (short.bits, badchar.bits, short.bin) do not
                                follow from the tables and stay as they are
  tests/facts.json              the sizes and leaf positions that the tool's and the Python
                                package's tests expect, from the tool's `layout --json`
  docs/field-types.md           its coverage section (compiler/arch_spec/gen/field_types.py)
  docs/runtime-registers.md     its coverage section (compiler/arch_spec/gen/runtime_registers.py)
  README.md, docs/*.md          what the console sessions print (tests/docs/check_docs.py
                                --refresh), and the `prints` sentence after each C++ and Python
                                example

    refresh_fixtures.py SOURCE_DIR BUILD_DIR [CXX]

BUILD_DIR holds the built tool, library and Python package; CXX compiles the C++ examples (c++ by
default). Only files whose content changes are written, and each is named. Exits 1, naming the
file, where something cannot be refreshed: a leaf of facts.json that the tile no longer has, an
example that fails, an example whose output no longer has as many lines as its sentence quotes.
"""

import json
import pathlib
import re
import subprocess
import sys

# Each configuration of the tool's tests, and what it is made of: (file, listing, generation,
# tile, form).
FIXTURES = [
    ("before.bits", "before.sparse", "mk43", "pcu", "bits"),
    ("after.bits", "after.sparse", "mk43", "pcu", "bits"),
    ("before.bin", "before.sparse", "mk43", "pcu", "bytes"),
]
FACTS = "tests/facts.json"
QUOTED = re.compile(r"`([^`]*)`")


class Unrefreshable(Exception):
    """Something that the refresh cannot write by itself: a person must look."""


class Refresh:
    def __init__(self, source, build, cxx):
        self.source, self.build, self.cxx = source, build, cxx
        self.tool = build / "tools" / "cli" / "archspec"

    def archspec(self, *args):
        ran = subprocess.run([str(self.tool), *args], capture_output=True)
        if ran.returncode != 0:
            raise Unrefreshable(f"archspec {' '.join(args)}: {ran.stderr.decode(errors='replace')}")
        return ran.stdout

    def write(self, relative, content):
        """Writes the file if its content changes, and says so."""
        path = self.source / relative
        data = content.encode() if isinstance(content, str) else content
        if path.exists() and path.read_bytes() == data:
            return
        path.write_bytes(data)
        print(f"{relative}: refreshed")

    def fixtures(self):
        data = "tests/cli/data"
        for name, listing, generation, tile, form in FIXTURES:
            options = ["--bytes"] if form == "bytes" else []
            self.write(f"{data}/{name}", self.archspec("encode", "--arch", generation, tile,
                                                       str(self.source / data / listing),
                                                       *options))

    def facts(self):
        """Each tile of facts.json ("mk43 pcu") with its size and the place of each leaf it
        names: the leaves followed are those the file lists."""
        old = json.loads((self.source / FACTS).read_text())
        new = {}
        for key, was in old.items():
            generation, tile = key.split()
            layout = json.loads(self.archspec("layout", "--arch", generation, tile, "--json"))
            leaves = {leaf["path"]: leaf for leaf in layout["leaves"]}
            missing = [path for path in was["leaves"] if path not in leaves]
            if missing:
                raise Unrefreshable(f"{FACTS}: {key} has no leaf {missing[0]}; name one it has")
            new[key] = {"bits": layout["bits"], "bytes": (layout["bits"] + 7) // 8,
                        "leaf_count": len(layout["leaves"]),
                        "leaves": {path: {"offset": leaves[path]["offset"],
                                          "width": leaves[path]["width"]}
                                   for path in was["leaves"]}}
        self.write(FACTS, json.dumps(new, indent=2) + "\n")

    def field_type_coverage(self):
        self.coverage("field-types.md", "field_types.py")
        self.coverage("runtime-registers.md", "runtime_registers.py")

    def coverage(self, name, script):
        doc = self.source / "docs" / name
        before = doc.read_text()
        gen = self.source / "compiler" / "arch_spec" / "gen"
        ran = subprocess.run([sys.executable, str(gen / script), str(gen / "tables"),
                              "--write", str(doc)], capture_output=True, text=True)
        if ran.returncode != 0:
            raise Unrefreshable(ran.stderr)
        if doc.read_text() != before:
            print(f"docs/{name}: refreshed")

    def sessions(self):
        ran = subprocess.run([sys.executable, str(self.source / "tests" / "docs" / "check_docs.py"),
                              "--refresh", str(self.source), str(self.build)],
                             capture_output=True, text=True)
        sys.stdout.write(ran.stdout)
        if ran.returncode != 0:
            raise Unrefreshable(ran.stderr)

    def example_outputs(self):
        """The sentence after a C++ or Python example, "prints `a` and then `b`", gets what the
        example prints now, each line in the place of one quoted piece, the words kept."""
        sys.path.insert(0, str(self.source / "tests" / "docs"))
        import check_docs

        class Recorder(check_docs.Checker):
            """Runs the examples as the documents' test does, and keeps what each printed."""

            def printed(self, block, output):
                self.output = output
                return None

        recorder = Recorder(self.source, self.build, self.cxx, [])
        for path in [self.source / "README.md"] + sorted((self.source / "docs").glob("*.md")):
            text = path.read_text()
            parts, at = [], 0
            for match in check_docs.FENCE.finditer(text):
                block = check_docs.Block(path.relative_to(self.source), text, match)
                if block.language not in ("cpp", "python") or block.not_run or block.prints is None:
                    continue
                recorder.output = None
                problem = recorder.check(block)
                if problem is not None:
                    raise Unrefreshable(f"{block.where()}: the example {problem}")
                if recorder.output is None:  # a fragment: compiled, not run
                    continue
                lines = recorder.output.rstrip("\n").split("\n")
                sentence = check_docs.PRINTS.match(text[match.end():])
                start = match.end() + sentence.start(1)
                quoted = list(QUOTED.finditer(sentence.group(1)))
                if len(quoted) != len(lines):
                    raise Unrefreshable(f"{block.where()}: the example prints {len(lines)} lines, "
                                        f"the sentence after it quotes {len(quoted)}: rewrite it "
                                        "by hand")
                for piece, line in zip(quoted, lines):
                    parts += [text[at:start + piece.start(1)], line]
                    at = start + piece.end(1)
            self.write(path.relative_to(self.source), "".join(parts) + text[at:])


def main(argv):
    if len(argv) not in (3, 4):
        usage = next(line for line in __doc__.splitlines() if "SOURCE_DIR BUILD_DIR" in line)
        print(f"usage: {usage.strip()}", file=sys.stderr)
        return 2
    source, build = pathlib.Path(argv[1]).resolve(), pathlib.Path(argv[2]).resolve()
    refresh = Refresh(source, build, argv[3] if len(argv) == 4 else "c++")
    try:
        refresh.fixtures()
        refresh.facts()
        refresh.field_type_coverage()
        refresh.sessions()
        refresh.example_outputs()
    except Unrefreshable as e:
        print(f"refresh_fixtures: {str(e).strip()}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
