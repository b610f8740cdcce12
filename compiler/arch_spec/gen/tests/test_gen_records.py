"""The record generator refuses tables that disagree with themselves, and says where."""

import contextlib
import io
import os
import shutil
import sys
import tempfile
import unittest

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, GEN)
import gen_records  # noqa: E402
import genlib  # noqa: E402

GENERATIONS = os.path.join(GEN, "tables", genlib.GENERATIONS_TABLE)
TILE = "tile t top a tile\n"
GOOD = """\
record inner  ko=6/2  ry=7/2
  a           2       3
  b           4x1
record top    ko=15/3/19  ry=18/3/20
  x           2
  y           [2]inner
  z           -           [1]2x1
  w           1x1         -
"""


class GeneratorTest(unittest.TestCase):
    def run_tables(self, text, tiles=TILE):
        """Returns (exit code, stderr lines, generated files) for one table file and the tiles."""
        with tempfile.TemporaryDirectory() as tmp:
            tables = os.path.join(tmp, "tables")
            os.makedirs(os.path.join(tables, "records"))
            shutil.copy(GENERATIONS, tables)  # the project's own generations
            with open(os.path.join(tables, "records", "t.rec"), "w") as f:
                f.write(text)
            with open(os.path.join(tables, "records", "tiles.rec"), "w") as f:
                f.write(tiles)
            out = os.path.join(tmp, "out")
            err = io.StringIO()
            with contextlib.redirect_stderr(err):
                code = gen_records.main(["--tables", tables, "--out", out])
            gen_dir = os.path.join(out, genlib.OUT_SUBDIR)
            files = {}
            if os.path.isdir(gen_dir):
                for name in sorted(os.listdir(gen_dir)):
                    with open(os.path.join(gen_dir, name)) as f:
                        files[name] = f.read()
            prefix = os.path.join(tables, "records") + os.sep
            lines = [line.replace(prefix, "") for line in err.getvalue().splitlines()]
            return code, lines, files

    def assert_refused(self, text, *expected, tiles=TILE):
        code, lines, files = self.run_tables(text, tiles)
        self.assertEqual(code, 1)
        self.assertEqual(files, {})
        self.assertEqual(lines, list(expected))

    def test_consistent_table_generates_nested_records_first(self):
        code, lines, files = self.run_tables(GOOD)
        self.assertEqual((code, lines), (0, []))
        self.assertEqual(
            sorted(files),
            sorted([f"{p}Config.{s}" for p in ("Ko", "Ry", "Rye") for s in ("h", "cpp")]
                   + ["RecordCatalog.cpp"]))
        catalog = files["RecordCatalog.cpp"]
        self.assertIn('{"ry", "inner", 7, 2, 7, false, "t.rec:1",', catalog)
        self.assertIn('{"ry", "top", 18, 3, 20, true, "t.rec:4",', catalog)
        self.assertIn('{"t", "top", "a tile", "tiles.rec:1"},', catalog)
        header = files["KoConfig.h"]
        self.assertLess(header.index("class inner"), header.index("class top"))
        self.assertIn("class top final : public Record<top, KoGeneration> {", header)
        # Each member cites its row.
        self.assertIn("  ArrayLE<2, inner> y;  // t.rec:6\n  PackedArray<1, 1> w;  // t.rec:8\n",
                      header)
        self.assertIn('    visit("y", self.y);\n', header)
        self.assertIn("extern template class Record<ko::top, KoGeneration>;", header)
        self.assertIn("static constexpr int kMinors[] = {0, 1};", header)
        self.assertIn("static constexpr int kMinors[] = {0};", files["RyConfig.h"])
        self.assertIn("template class Record<ry::top, RyGeneration>;  // t.rec:4",
                      files["RyConfig.cpp"])

    def test_unchanged_output_is_not_rewritten(self):
        with tempfile.TemporaryDirectory() as tmp:
            tables = os.path.join(tmp, "tables")
            os.makedirs(os.path.join(tables, "records"))
            shutil.copy(GENERATIONS, tables)
            with open(os.path.join(tables, "records", "t.rec"), "w") as f:
                f.write(GOOD)
            with open(os.path.join(tables, "records", "tiles.rec"), "w") as f:
                f.write(TILE)
            out = os.path.join(tmp, "out")
            self.assertEqual(gen_records.main(["--tables", tables, "--out", out]), 0)
            header = os.path.join(out, genlib.OUT_SUBDIR, "KoConfig.h")
            os.utime(header, (1, 1))
            self.assertEqual(gen_records.main(["--tables", tables, "--out", out]), 0)
            self.assertEqual(os.stat(header).st_mtime, 1)

    def test_declared_totals_must_match_the_rows(self):
        self.assert_refused(
            GOOD.replace("ko=6/2", "ko=5/1"),
            "t.rec:1: error: record inner, generation ko: found 6 bits in the fields, "
            "expected 5 as declared",
            "t.rec:1: error: record inner, generation ko: found 2 fields, expected 1 as declared",
        )
        self.assert_refused(
            GOOD.replace("ry=18/3/20", "ry=18/3/21"),
            "t.rec:4: error: record top, generation ry: found 20 unique ids, "
            "expected 21 as declared",
        )

    def test_top_level_record_must_declare_its_ids(self):
        self.assert_refused(
            GOOD.replace("ko=15/3/19", "ko=15/3"),
            "t.rec:4: error: record top, generation ko: found a top-level record without a "
            "declared id count, expected ko=BITS/FIELDS/19 in its heading",
        )

    def test_unknown_cell(self):
        self.assert_refused(
            GOOD.replace("[1]2x1", "[1]2y1"),
            "t.rec:7: error: record top, generation ry: field z: found unknown cell '[1]2y1', "
            "expected N, NxB, [K]X, a record name or -",
        )
        self.assert_refused(
            GOOD.replace("  x           2", "  x           65"),
            "t.rec:5: error: record top, generation ko: field x: found leaf of 65 bits, "
            "expected 1 to 64 bits",
        )

    def test_a_namespace_the_generations_do_not_name(self):
        # A namespace with a digit reads as a namespace, and is refused as one no generation has.
        code, lines, files = self.run_tables(
            GOOD.replace("record inner  ko=6/2  ry=7/2", "record inner  ko=6/2  ry2=7/2"))
        self.assertEqual((code, files), (1, {}))
        self.assertEqual(lines[0], "t.rec:1: error: record inner, generation ry2: found unknown "
                                   "generation 'ry2', expected one of ko, ry, rye")

    def test_reference_to_a_record_of_another_generation(self):
        self.assert_refused(
            "record inner  ko=1/1\n  a  1\nrecord top  ko=2/1/6  ry=2/1/6\n  y  [2]inner\n",
            "t.rec:4: error: record top, generation ry: field y refers to record inner, which "
            "generation ry does not declare, expected a record of the same namespace",
        )

    def test_duplicates(self):
        self.assert_refused(
            GOOD + "record inner  ry=1/1\n  c  1\n",
            "t.rec:9: error: record inner, generation ry: found a second declaration of the "
            "record, expected one per generation (first at t.rec:1)",
        )
        self.assert_refused(
            GOOD.replace("  b           4x1", "  a           4x1"),
            "t.rec:3: error: record inner, generation ko: found field a twice, "
            "expected unique field names (first at line 2)",
            "t.rec:3: error: record inner, generation ry: found field a twice, "
            "expected unique field names (first at line 2)",
        )

    def test_declared_generation_without_rows(self):
        self.assert_refused(
            GOOD + "record lonely  rye=1/1/2\n",
            "t.rec:9: error: record lonely, generation rye: found no rows, "
            "expected one row per field",
        )
        self.assert_refused(
            GOOD.replace("  w           1x1         -", "  w           1x1"),
            "t.rec:4: error: record top, generation ry: found 19 bits in the fields, "
            "expected 18 as declared",
            "t.rec:4: error: record top, generation ry: found 4 fields, expected 3 as declared",
            "t.rec:4: error: record top, generation ry: found 22 unique ids, "
            "expected 20 as declared",
        )
        self.assert_refused(
            GOOD.replace("  z           -           [1]2x1", "  z           -  [1]2x1  1"),
            "t.rec:7: error: record top, generation ko: found 3 cells for field z, "
            "expected 1 or 2",
        )

    def test_records_that_nest_in_themselves(self):
        self.assert_refused(
            "record a  ko=1/1/3\n  b  b\nrecord b  ko=1/1\n  a  a\n",
            "t.rec:4: error: record b, generation ko: found record a nested in itself through "
            "field a, expected records to nest without cycles",
            tiles="tile t a a tile\n",
        )

    def test_top_level_records_are_the_tiles_records(self):
        self.assert_refused(
            GOOD + "record spare  ko=1/1/2  ry=1/1/2\n  s  1\n",
            "t.rec:9: error: record spare, generation ko: found a top-level record that is no "
            "tile's, expected a 'tile' line naming it, or a record that uses it",
            "t.rec:9: error: record spare, generation ry: found a top-level record that is no "
            "tile's, expected a 'tile' line naming it, or a record that uses it",
        )


if __name__ == "__main__":
    unittest.main()
