"""Tests of the constants generator: it accepts a small consistent table set and refuses bad ones."""

import contextlib
import io
import os
import pathlib
import shutil
import sys
import tempfile
import textwrap
import unittest

HERE = pathlib.Path(__file__).resolve().parent
TABLES_ROOT = HERE.parent / "tables"
sys.path.insert(0, str(HERE.parent))

import gen_constants  # noqa: E402
import genlib  # noqa: E402

# A table set small enough to read at a glance: three scalars (one derived, one that uko changes), two
# enumerants (one answered by no generation), one container, three features and one constraint.
TABLES = {
    "params.tbl": """
        interface   accessors=6  scalars=3  enumerants=2  containers=1  types=1
        class       KoConstants   overrides=5  parameters=4  enumerants=1
        class       UkoConstants  overrides=1  parameters=1  enumerants=0
        class       RyConstants   overrides=2  parameters=2  enumerants=0
        class       RyeConstants  overrides=1  parameters=1  enumerants=0
        unanswered  total=1  parameters=0  enumerants=1
        scalars  rows=3  arch_const_t=1  size_t=1  uint8_t=0  double=1  uint64_t=0  int=0  bool=0

        group  answered=3  Test group
        # accessor     type           ko           ry           rye
        a_max          size_t         4294967295   4294967295   -
        a_width        arch_const_t   32           32           -
        b_bandwidth    double         1.5          -            2.0

        derived
        a_max          ko ry          ones64(a_width)

        uko
        b_bandwidth    1.25
        """,
    "containers.tbl": """
        containers  rows=1  none=0

        c_rows         std::vector<uint8_t>
          ko   [2]  1, 2
          ry   -
          rye  -
        """,
    "features.tbl": """
        features  rows=3  bool=1  int=1  optional=1  pure=1

        group  Test group
        f_count        int                    none     1        2        3
        f_flag         bool                   false    false    true     false!
        f_info         optional<Info>         empty    empty    set      empty

        struct  Info
        count          uint8_t                -    4            -
        rates          std::vector<double>    -    {1.0,2.5}    -
        """,
    "constraints.tbl": """
        constraints  rows=1  bool=1  int=0  optional=0  pure=0

        group  Test group
        g_bug          bool                   false    true     false    false
        """,
    "enums_test.tbl": """
        enum x_t 2
          x_one | 0 | - | -
          x_two | - | - | -
        """,
}


class GeneratorCase(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.tables = pathlib.Path(self.dir.name) / "tables"
        self.out = pathlib.Path(self.dir.name) / "out"
        (self.tables / "constants").mkdir(parents=True)
        # The generations are the project's own: the tables below have their columns.
        shutil.copy(TABLES_ROOT / genlib.GENERATIONS_TABLE, self.tables)
        for name, text in TABLES.items():
            (self.tables / "constants" / name).write_text(textwrap.dedent(text).lstrip("\n"))

    def edit(self, table, old, new):
        path = self.tables / "constants" / table
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1))

    def run_main(self):
        """(exit status, standard output, standard error) of one run of the generator."""
        printed, complained = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(complained):
            status = gen_constants.main(["--tables", str(self.tables), "--out", str(self.out)])
        return status, printed.getvalue(), complained.getvalue()

    def generated(self, name):
        self.assertEqual(self.run_main()[0], 0)
        return (self.out / genlib.OUT_SUBDIR / name).read_text()

    def assertRefused(self, table, *fragments):
        """The generator refuses and writes nothing; one of its faults names the table and line,
        then each fragment (accessor, generation, what it found and expected)."""
        status, _, complained = self.run_main()
        self.assertEqual(status, 1)
        self.assertFalse(self.out.exists())
        prefix = f"{self.tables / 'constants' / table}:"
        faults = [line for line in complained.splitlines()
                  if line.startswith(prefix) and all(f in line for f in fragments)]
        self.assertTrue(faults, complained)
        self.assertRegex(faults[0], r"^[^:]+:[0-9]+: error: ")


class Accepts(GeneratorCase):
    def test_generates_every_file(self):
        self.assertEqual(self.run_main()[0], 0)
        for name in ("ArchConstants.h", "ArchGenerations.h", "ArchConstants.cpp",
                     "KoConstants.cpp", "RyConstants.cpp", "RyeConstants.cpp",
                     "ArchConstantsIndex.inc"):
            self.assertTrue((self.out / genlib.OUT_SUBDIR / name).exists(), name)

    def test_interface_header_declares_no_generation(self):
        header = self.generated("ArchConstants.h")
        self.assertIn("class ArchConstants {", header)
        self.assertNotIn("KoConstants", header)
        self.assertIn("class KoConstants : public ArchConstants {",
                      self.generated("ArchGenerations.h"))
        self.assertIn("class UkoConstants : public KoConstants {",
                      self.generated("ArchGenerations.h"))

    def test_default_bodies_name_their_signature(self):
        lines = self.generated("ArchConstants.cpp").splitlines()
        bodies = [text for text in lines if "Unanswered(\"" in text]
        self.assertEqual(len(bodies), 6)
        self.assertEqual(bodies[-1], '  Unanswered("const std::vector<uint8_t> &");')

    def test_every_answer_names_its_row(self):
        ko = self.generated("KoConstants.cpp")
        self.assertIn("arch_const_t KoConstants::a_width() const { return 32; }  // params.tbl:12", ko)
        self.assertIn("x_t KoConstants::x_x_one() const { return code(0); }  // enums_test.tbl:2",
                      ko)

    def test_inferred_codes_are_marked(self):
        self.edit("enums_test.tbl", "x_one | 0 | - | -", "x_one | 0 to 0 | - | -  # inferred")
        self.edit("params.tbl", "unanswered  total=1", "unanswered  total=1")
        status, printed, _ = self.run_main()
        self.assertEqual(status, 0)
        self.assertIn("return code(0); }  // enums_test.tbl:2 (inferred)",
                      (self.out / genlib.OUT_SUBDIR / "KoConstants.cpp").read_text())
        self.assertTrue(printed.startswith("1 enumerant codes inferred, in 1 types"), printed)

    def test_uko_overrides_only_its_own_rows_and_derived_rows_compute(self):
        ko = self.generated("KoConstants.cpp")
        uko = [line for line in ko.splitlines() if "UkoConstants::" in line]
        self.assertEqual(uko, ["UkoConstants::~UkoConstants() = default;",
                               "double UkoConstants::b_bandwidth() const { return 1.25; }  "
                               "// params.tbl:19"])
        self.assertIn("size_t KoConstants::a_max() const { return ones64(a_width()); }", ko)

    def test_explicit_and_differing_answers_are_the_only_overrides(self):
        cpp = self.generated("ArchConstants.cpp")
        self.assertNotIn("KoFeatures::f_flag", cpp)
        self.assertIn("bool RyeFeatures::f_flag() const { return false; }", cpp)
        self.assertIn("zu::optional<Info> RyFeatures::f_info() const {\n"
                      "  return Info{.count = 4, .rates = {1.0, 2.5}};  // features.tbl:6", cpp)

    def test_index_lists_the_answering_generations(self):
        index = self.generated("ArchConstantsIndex.inc")
        self.assertIn('ZU_SPEC_CONSTANT(SCALAR, double, b_bandwidth, "1101")', index)
        self.assertIn('ZU_SPEC_CONSTANT(ENUM, x_t, x_x_two, "0000")', index)


class RefusesScalars(GeneratorCase):
    def test_unknown_cell(self):
        self.edit("params.tbl", "a_width        arch_const_t   32", "a_width        arch_const_t   3x2")
        self.assertRefused("params.tbl", "a_width, generation ko: cell '3x2', expected a arch_const_t")

    def test_double_without_point(self):
        self.edit("params.tbl", "2.0", "2")
        self.assertRefused("params.tbl", "b_bandwidth, generation rye: cell '2'")

    def test_declared_total_per_type(self):
        self.edit("params.tbl", "size_t=1", "size_t=2")
        self.assertRefused("params.tbl", "scalars, generation all: found 1 size_t rows, expected 2")

    def test_derived_rule_disagrees_with_the_row(self):
        self.edit("params.tbl", "a_max          size_t         4294967295", "a_max          size_t         65535")
        self.assertRefused("params.tbl", "a_max, generation ko: rule gives 4294967295, expected 65535")

    def test_uko_row_equal_to_ko(self):
        self.edit("params.tbl", "b_bandwidth    1.25", "b_bandwidth    1.5")
        self.assertRefused("params.tbl", "b_bandwidth, generation uko:", "differs from ko")

    def test_class_override_count(self):
        self.edit("params.tbl", "KoConstants   overrides=5", "KoConstants   overrides=6")
        self.assertRefused("params.tbl", "KoConstants, generation ko: found 5 overrides, expected 6")

    def test_unanswered_count(self):
        self.edit("enums_test.tbl", "x_two | - | - | -", "x_two | - | 1 | -")
        self.assertRefused("params.tbl", "RyConstants, generation ry: found 3 overrides, expected 2")


class RefusesContainers(GeneratorCase):
    def test_element_count(self):
        self.edit("containers.tbl", "[2]  1, 2", "[3]  1, 2")
        self.assertRefused("containers.tbl", "c_rows, generation ko: 2 elements, expected 3")

    def test_element_out_of_range(self):
        self.edit("containers.tbl", "[2]  1, 2", "[2]  1, 256")
        self.assertRefused("containers.tbl", "c_rows, generation ko: cell '256'")

    def test_missing_generation(self):
        self.edit("containers.tbl", "  rye  -\n", "")
        self.assertRefused("containers.tbl", "c_rows, generation rye: no line")

    def test_name_taken_by_a_scalar(self):
        self.edit("containers.tbl", "c_rows ", "a_width")
        self.assertRefused("containers.tbl", "a_width, generation all: a second accessor of this name")


class RefusesFlags(GeneratorCase):
    def test_explicit_mark_on_a_differing_answer(self):
        self.edit("features.tbl", "true     false!", "true!    false")
        self.assertRefused("features.tbl", "f_flag, generation ry: cell 'true!'")

    def test_set_without_struct_values(self):
        self.edit("features.tbl", "set      empty", "set      set")
        self.assertRefused("features.tbl", "f_info, generation rye: set without values")

    def test_pure_count(self):
        self.edit("constraints.tbl", "pure=0", "pure=1")
        self.assertRefused("constraints.tbl", "constraints, generation all: found 0 pure virtual rows, expected 1")


class CommandLine(GeneratorCase):
    def test_success_prints_nothing_without_inferred_codes(self):
        self.assertEqual(self.run_main(), (0, "", ""))

    def test_every_fault_of_every_table_is_reported_together(self):
        self.edit("enums_test.tbl", "enum x_t 2", "enum x_t 3")
        self.edit("containers.tbl", "[2]  1, 2", "[3]  1, 2")
        self.edit("features.tbl", "true     false!", "true!    false")
        status, printed, complained = self.run_main()
        self.assertEqual((status, printed), (1, ""))
        tables = [line.split(":")[0].rsplit("/", 1)[-1] for line in complained.splitlines()]
        self.assertEqual(sorted(tables), ["containers.tbl", "enums_test.tbl", "features.tbl"])
        self.assertFalse(self.out.exists())

    def test_a_new_enumerant_names_every_total_that_follows_in_one_run(self):
        self.edit("enums_test.tbl", "  x_two | - | - | -",
                  "  x_two | - | - | -\n  x_new | - | 5 | -")
        status, _, complained = self.run_main()
        self.assertEqual(status, 1)
        faults = [line.split(": error: ")[1] for line in complained.splitlines()]
        self.assertEqual(faults, [
            "x_t: found 3 enumerants in the rows, expected 2 as declared",
            "interface, generation all: found 7 accessors, expected 6 as declared",
            "interface, generation all: found 3 enumerants, expected 2 as declared",
            "RyConstants, generation ry: found 3 overrides, expected 2 as declared",
            "RyConstants, generation ry: found 1 enumerant overrides, expected 0 as declared"])
        # --fix writes them, and the tables are accepted as they are now.
        with contextlib.redirect_stdout(io.StringIO()) as printed:
            status = gen_constants.main(["--tables", str(self.tables), "--fix"])
        self.assertEqual(status, 0)
        self.assertEqual(printed.getvalue().count("\n  -> "), 3)  # three lines changed
        self.assertFalse(self.out.exists())
        self.assertEqual(self.run_main(), (0, "", ""))
        self.assertIn("class       RyConstants   overrides=3  parameters=2  enumerants=1\n",
                      (self.tables / "constants" / "params.tbl").read_text())

    def test_fix_leaves_other_faults_and_says_them(self):
        self.edit("enums_test.tbl", "enum x_t 2", "enum x_t 3")
        self.edit("features.tbl", "true     false!", "true!    false")
        with contextlib.redirect_stdout(io.StringIO()), \
                contextlib.redirect_stderr(io.StringIO()) as complained:
            status = gen_constants.main(["--tables", str(self.tables), "--fix"])
        self.assertEqual(status, 1)
        self.assertIn("features.tbl:5: error: f_flag, generation ry: cell 'true!'",
                      complained.getvalue())
        self.assertNotIn("enumerants in the rows", complained.getvalue())
        self.assertIn("enum x_t 2\n", (self.tables / "constants" / "enums_test.tbl").read_text())

    def test_a_total_the_rows_state_is_refused(self):
        for table, old, new, fragment in (
                ("params.tbl", "group  answered=3", "group  rows=3  answered=3",
                 "total 'rows=3', expected one of answered (the rows count themselves"),
                ("features.tbl", "struct  Info", "struct  fields=2  Info",
                 "total 'fields=2', expected none (the rows count themselves"),
                ("params.tbl", "\nuko\n", "\nuko  rows=1\n", "total 'rows=1', expected none")):
            with self.subTest(new=new):
                self.setUp()
                self.edit(table, old, new)
                self.assertRefused(table, fragment)

    def test_unchanged_output_is_not_rewritten(self):
        self.assertEqual(self.run_main()[0], 0)
        path = self.out / genlib.OUT_SUBDIR / "ArchConstants.h"
        os.utime(path, (1, 1))
        self.assertEqual(self.run_main()[0], 0)
        self.assertEqual(path.stat().st_mtime, 1)


if __name__ == "__main__":
    unittest.main()
