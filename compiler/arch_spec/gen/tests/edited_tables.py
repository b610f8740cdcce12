"""What the tests of a generator's checks share: the generator run on a copy of the project's own
tables with one table edited, and what it says and writes."""

import contextlib
import dataclasses
import io
import os
import shutil
import tempfile

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TABLES = os.path.join(GEN, "tables")


@dataclasses.dataclass
class Run:
    code: int  # the generator's exit code
    errors: list  # its complaints, each naming the table by its file name
    output: object  # the text of the file it wrote, or None
    table: str  # the edited table's text


def run_on_edited(main, table, edit, output):
    """Runs a generator's `main` on a copy of the tables whose file `table` (a path below the
    tables) is passed through `edit` (text to text); `output` is the file it writes."""
    import genlib  # found through the generators' directory, which the tests put on the path

    with tempfile.TemporaryDirectory() as tmp:
        tables = os.path.join(tmp, "tables")
        shutil.copytree(TABLES, tables)
        path = os.path.join(tables, table)
        with open(path) as f:
            text = edit(f.read())
        with open(path, "w") as f:
            f.write(text)
        err = io.StringIO()
        with contextlib.redirect_stderr(err), contextlib.redirect_stdout(io.StringIO()):
            code = main(["--tables", tables, "--out", os.path.join(tmp, "o")])
        written = os.path.join(tmp, "o", genlib.OUT_SUBDIR, output)
        result = None
        if os.path.exists(written):
            with open(written) as f:
                result = f.read()
        errors = [line.replace(os.path.dirname(path) + os.sep, "")
                  for line in err.getvalue().splitlines()]
        return Run(code, errors, result, text)
