#!/usr/bin/env python3
"""The package's types, checked as a user's type checker checks them:

- mypy --strict accepts examples/python/*.py and tests/python/typed_user.py;
- on tests/python/typed_misuse.py it reports, with its code, the error marked on each line that
  ends in `# error: CODE`, and nothing else;
- stubtest finds no difference between the stubs and the module;
- typed_user.py runs.

    typecheck.py SOURCE_DIR CACHE_DIR      PYTHONPATH names the folder of the built package
"""

import glob
import os
import re
import subprocess
import sys

MARK = re.compile(r"#\s*error:\s*([a-z-]+)\s*$")
REPORTED = re.compile(r"^(?P<file>[^:]+):(?P<line>\d+): error: .*\[(?P<code>[a-z-]+)\]$")


def run(*command):
    done = subprocess.run([sys.executable, *command], capture_output=True, text=True)
    return done.returncode, done.stdout + done.stderr


def marked(path):
    """{line: code} of the lines that mark the error mypy must report."""
    with open(path, encoding="utf-8") as f:
        return {number: m.group(1) for number, text in enumerate(f, start=1)
                if (m := MARK.search(text))}


def main(source, cache):
    here = os.path.join(source, "tests", "python")
    mypy = ["-m", "mypy", "--strict", "--cache-dir", cache, "--no-error-summary"]
    failures = []

    clean = sorted(glob.glob(os.path.join(source, "examples", "python", "*.py")))
    clean.append(os.path.join(here, "typed_user.py"))
    status, out = run(*mypy, *clean)
    if status != 0 or out.strip():
        failures.append(f"mypy --strict rejects what a user writes:\n{out}")

    misuse = os.path.join(here, "typed_misuse.py")
    _, out = run(*mypy, misuse)
    expected = marked(misuse)
    found = {}
    for line in out.splitlines():
        m = REPORTED.match(line)
        if m:
            found.setdefault(int(m.group("line")), set()).add(m.group("code"))
        elif ": note: " not in line and line.strip():
            failures.append(f"mypy: {line}")
    for number, code in sorted(expected.items()):
        if code not in found.get(number, set()):
            failures.append(f"typed_misuse.py:{number}: mypy reports {sorted(found.get(number, []))}"
                            f", expected [{code}]")
    for number in sorted(set(found) - set(expected)):
        failures.append(f"typed_misuse.py:{number}: mypy reports {sorted(found[number])}, "
                        "expected no error")

    status, out = run("-m", "mypy.stubtest", "archspec")
    if status != 0:
        failures.append(f"stubtest finds differences between the stubs and the module:\n{out}")

    status, out = run(os.path.join(here, "typed_user.py"))
    if status != 0:
        failures.append(f"typed_user.py fails:\n{out}")

    checks = len(clean) + len(expected) + 2
    for failure in failures:
        print(failure)
    print(f"types: {checks - len(failures)} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__.strip().splitlines()[-1].strip())
    sys.exit(main(*sys.argv[1:]))
