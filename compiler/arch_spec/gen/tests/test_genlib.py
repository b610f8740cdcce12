"""The shared part of the generators: the list of generations, and the maintainer's recipes run on
a copy of the project's tables."""

import contextlib
import io
import os
import shutil
import sys
import tempfile
import unittest

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, GEN)

import gen_constants  # noqa: E402
import gen_generations  # noqa: E402
import gen_records  # noqa: E402
import genlib  # noqa: E402

TABLES = os.path.join(GEN, "tables")
HEADER = "# version  product  code  records  answers  selectable\n"


class Generations(unittest.TestCase):
    def load(self, rows):
        with tempfile.TemporaryDirectory() as tmp:
            with open(os.path.join(tmp, genlib.GENERATIONS_TABLE), "w") as f:
                f.write(HEADER + rows)
            errors = genlib.Errors()
            generations = genlib.load_generations(tmp, errors)
            return generations, [str(e).split(": error: ")[1] for e in errors]

    def test_what_serves_each_generation_follows_from_the_rows(self):
        generations, errors = self.load("2.0.0 a1 ko ko own yes\n2.1.0 a2 uko ko ko yes\n"
                                        "3.0.0 - vi - - no\n")
        self.assertEqual(errors, [])
        self.assertEqual(generations.columns, ("ko",))
        self.assertEqual([g.prefix for g in generations.with_answers], ["Ko", "Uko"])
        self.assertEqual(generations.namespaces, {"ko": (2, [0, 1])})
        self.assertEqual(generations.by_code("uko").version_name, "v2_1_0")

    def test_refusals(self):
        for rows, fault in (
                ("2.0.0 a1 ko ko own yes\n2.0.0 a2 ry ry own yes\n", "expected rising versions"),
                ("2.0.0 a1 ko ko own yes\n3.0.0 a1 ry ry own yes\n", "product name a1 twice"),
                ("2.0.0 - ko ko own yes\n", "selectable, expected a product name"),
                ("2.0.0 a1 ko ko ry yes\n", "expected a generation with its own column"),
                ("2.0.0 a1 ko ko own yes\n3.0.0 a3 ry ko own yes\n", "one major per records"),
                ("2.0.0 a1 ko ko own\n", "found 5 cells"),
                ("2.x.0 a1 ko ko own yes\n", "expected major.minor.patch")):
            with self.subTest(rows=rows):
                _, errors = self.load(rows)
                self.assertEqual(len(errors), 1, errors)
                self.assertIn(fault, errors[0])


class Recipes(unittest.TestCase):
    """The recipes of docs/maintainers.md, on a copy of the tables."""

    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.tables = os.path.join(self.dir.name, "tables")
        shutil.copytree(TABLES, self.tables)
        self.out = os.path.join(self.dir.name, "out")

    def edit(self, table, old, new):
        path = os.path.join(self.tables, table)
        with open(path) as f:
            text = f.read()
        self.assertIn(old, text)
        with open(path, "w") as f:
            f.write(text.replace(old, new, 1))

    def run_generator(self, module):
        printed, complained = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(complained):
            status = module.main(["--tables", self.tables, "--out", self.out])
        return status, complained.getvalue()

    def generated(self, name):
        with open(os.path.join(self.out, genlib.OUT_SUBDIR, name)) as f:
            return f.read()

    def test_add_a_field(self):
        row = "  tail_mode                   -         -         3\n"
        path = os.path.join(self.tables, "records/pcu_datapath.rec")
        with open(path) as f:
            lines = f.read().splitlines(keepends=True)
        heading = next(i for i, line in enumerate(lines) if line.startswith("record PCU_tail_struct"))
        lines.insert(heading + 1, row)
        with open(path, "w") as f:
            f.writelines(lines)
        # The generator names the declared totals that must follow: the record's own first.
        status, complained = self.run_generator(gen_records)
        self.assertEqual(status, 1)
        self.assertIn("pcu_datapath.rec:90: error: record PCU_tail_struct, generation rye: found "
                      "43 bits in the fields, expected 40 as declared", complained)
        self.edit("records/pcu_datapath.rec", "rye=40/16", "rye=43/17")
        status, complained = self.run_generator(gen_records)
        self.assertEqual(status, 1)
        self.assertNotIn("PCU_tail_struct,", complained)  # then the records that hold it
        self.assertIn("record pcu_config_struct, generation rye: found 8878 bits", complained)
        self.assertIn("found 2962 unique ids, expected 2958 as declared", complained)

    def test_add_a_generation_that_answers_as_another(self):
        self.edit(genlib.GENERATIONS_TABLE, "2.1.0      mk42     uko   ko       ko       yes\n",
                  "2.1.0      mk42     uko   ko       ko       yes\n"
                  "2.2.0      mk45     uko2  ko       ko       yes\n")
        self.edit("constants/params.tbl", "\nuko  rows=3", "\nuko2  rows=0\n\nuko  rows=3")
        self.edit("constants/params.tbl", "class       UkoConstants",
                  "class       Uko2Constants  overrides=0  parameters=0  enumerants=0\n"
                  "class       UkoConstants")
        for module in (gen_generations, gen_records, gen_constants):
            self.assertEqual(self.run_generator(module), (0, ""), module.__name__)
        self.assertIn("class Uko2Constants : public KoConstants {",
                      self.generated("ArchGenerations.h"))
        self.assertIn('{2, 2, 0}, "mk45", "uko2", "ko", "ko", true,',
                      self.generated("GenerationTable.cpp"))
        self.assertIn("static constexpr int kMinors[] = {0, 1, 2};", self.generated("KoConfig.h"))
        self.assertIn("static const ArchVersion v2_2_0;", self.generated("ArchVersionNames.inc"))


if __name__ == "__main__":
    unittest.main()
