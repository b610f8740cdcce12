"""Tests of the enumerant loader: expansion, inference of spans, refusals, the shipped tables."""

import os
import sys
import tempfile
import textwrap
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))

import enumerants  # noqa: E402
import genlib  # noqa: E402

TABLES_ROOT = os.path.join(os.path.dirname(HERE), "tables")
TABLES = os.path.join(TABLES_ROOT, "constants")
# The columns of the tables are the project's generations with a column of their own.
COLUMNS = genlib.load_generations(TABLES_ROOT, genlib.Errors()).columns


class TableCase(unittest.TestCase):
    """Writes one small table into a temporary directory and loads it."""

    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)

    def load(self, text):
        path = os.path.join(self.dir.name, "enums_test.tbl")
        with open(path, "w", encoding="utf-8") as f:
            f.write(textwrap.dedent(text).lstrip("\n"))
        return enumerants.load(self.dir.name, COLUMNS)

    def codes(self, text, generation="ko"):
        _, found = self.load(text)
        return {e.name: e.codes[generation] for e in found}

    def assertRefused(self, text, *fragments):
        with self.assertRaises(enumerants.TableError) as caught:
            self.load(text)
        message = str(caught.exception)
        path = os.path.join(self.dir.name, "enums_test.tbl")
        self.assertTrue(message.startswith(path + ":"), message)
        for fragment in fragments:
            self.assertIn(fragment, message)
        return message


class Expansion(TableCase):
    def test_first_brace_is_outermost_and_each_step_follows_its_brace(self):
        _, found = self.load("""
            enum x_xbar_t 8 crossbar
              x_ctxt{0-3}_false{0,1} | 24 step 4/2 | - | 3
            """)
        self.assertEqual([e.name for e in found][:3],
                         ["x_ctxt0_false0", "x_ctxt0_false1", "x_ctxt1_false0"])
        self.assertEqual([e.codes["ko"] for e in found], [24, 26, 28, 30, 32, 34, 36, 38])
        self.assertEqual({e.codes["ry"] for e in found}, {None})
        # a plain number holds for every name of the row
        self.assertEqual({e.codes["rye"] for e in found}, {3})

    def test_step_counts_index_values_not_list_positions(self):
        codes = self.codes("""
            enum r_rcf_enum_t 6
              r_ctr{2,4}_max_dim{0-2} | 150 step 4/1 | - | -
            """)
        self.assertEqual(codes["r_ctr2_max_dim0"], 150)
        self.assertEqual(codes["r_ctr4_max_dim0"], 158)
        self.assertEqual(codes["r_ctr4_max_dim2"], 160)

    def test_accessor_keeps_a_doubled_stem_and_source_names_the_row(self):
        _, found = self.load("""
            enum pmu_rcf_enum_t 1
              # a comment line
              pmu_rcf_reg_sm_ctl | - | - | 323
            """)
        self.assertEqual(found[0].accessor, "pmu_rcf_enum_pmu_rcf_reg_sm_ctl")
        self.assertEqual(found[0].source, "enums_test.tbl:3")
        self.assertEqual(found[0].inferred, {"ko": False, "ry": False, "rye": False})


class Inference(TableCase):
    def test_span_fills_free_codes_rising_and_avoids_stated_codes(self):
        _, found = self.load("""
            enum s_xbar_t 7 crossbar
              s_a         | 1       | 1 | 1
              s_b{0-3}    | 0 to 6  | - | -  # inferred
              s_c{0,1}    | 3 step 1 | - | -
            """)
        row = [e for e in found if e.name.startswith("s_b")]
        self.assertEqual([e.codes["ko"] for e in row], [0, 2, 5, 6])
        self.assertTrue(all(e.inferred["ko"] for e in row))
        self.assertFalse(row[0].inferred["ry"])

    def test_spans_of_one_type_never_share_a_code(self):
        codes = self.codes("""
            enum t_rcf_enum_t 10
              t_max{0,1,3}     | 146 to 156 | - | -  # inferred
              t_stride{0,1,3}  | 147 to 157 | - | -  # inferred
              t_max2_dim{0-1}  | 150 step 1 | - | -
              t_max4_dim{0-1}  | 152 step 1 | - | -
            """)
        self.assertEqual(len(set(codes.values())), len(codes))
        self.assertEqual([codes["t_max0"], codes["t_max3"]], [146, 156])
        self.assertLess(codes["t_max1"], codes["t_max3"])
        self.assertLess(codes["t_stride0"], codes["t_stride1"])

    def test_linear_layout_is_dropped_when_it_would_starve_another_span(self):
        codes = self.codes("""
            enum l_xbar_t 7 crossbar
              l_a{0-3} | 0 to 6 | - | -  # inferred
              l_b{0-2} | 1 to 3 | - | -  # inferred
            """)
        # 0 step 2 would take 2, the one code that l_b1 can have
        self.assertEqual([codes["l_a%d" % i] for i in range(4)], [0, 4, 5, 6])
        self.assertEqual([codes["l_b%d" % i] for i in range(3)], [1, 2, 3])

    def test_subset_follows_instance_counts_and_a_linear_layout(self):
        _, found = self.load("""
            enum a_rcf_enum_t 32
              instances chain ko=2 ry=2 rye=4
              a_agu{0,1}_vag{0-3}_chain{0-3} | 8 to 23 (16 of 32) | - | 0 step 16/4/1  # inferred
            """)
        ko = {e.name: e.codes["ko"] for e in found if e.codes["ko"] is not None}
        self.assertEqual(len(ko), 16)
        self.assertNotIn("a_agu0_vag0_chain2", ko)
        # chain 0-1 answer, laid out as 8 step 8/2/1
        self.assertEqual(ko["a_agu0_vag1_chain0"], 10)
        self.assertEqual(ko["a_agu1_vag0_chain1"], 17)
        self.assertEqual(ko["a_agu1_vag3_chain1"], 23)
        self.assertFalse(any(e.inferred["rye"] for e in found))

    def test_subset_without_instance_counts_takes_the_first_names(self):
        codes = self.codes("""
            enum c_xbar_t 4 crossbar
              c_crdrtn_{0-3} | 10 to 10 (1 of 4) | - | -  # inferred
            """)
        self.assertEqual(codes, {"c_crdrtn_0": 10, "c_crdrtn_1": None, "c_crdrtn_2": None,
                                 "c_crdrtn_3": None})

    def test_summary_counts_inferred_codes_per_type_and_generation(self):
        _, found = self.load("""
            enum c_xbar_t 4 crossbar
              c_crdrtn_{0-3} | 10 to 10 (1 of 4) | 10 to 13 | 0 step 1  # inferred
            """)
        self.assertEqual(enumerants.inferred_summary(found, COLUMNS),
                         [("c_xbar_t", "ko", 1), ("c_xbar_t", "ry", 4)])


class Refusals(TableCase):
    def test_error_names_file_line_type_row_and_generation(self):
        message = self.assertRefused("""
            enum u_t 1
              u_a | 1 | 2 steps | 3
            """)
        path = os.path.join(self.dir.name, "enums_test.tbl")
        self.assertEqual(message,
                         path + ":2: error: u_t u_a, generation ry: unknown cell '2 steps'")

    def test_count_that_differs_from_the_heading(self):
        self.assertRefused("""
            enum u_t 3
              u_a{0,1} | 1 step 1 | - | -
            """, ":1: error: u_t: found 2 enumerants in the rows, expected 3 as declared")

    def test_steps_that_do_not_match_the_braces(self):
        self.assertRefused("""
            enum u_t 4
              u_a{0,1}_b{0,1} | 1 step 1 | - | -
            """, "generation ko", "1 steps for 2 braces")

    def test_span_without_mark_and_mark_without_span(self):
        self.assertRefused("""
            enum u_t 2
              u_a{0,1} | 1 to 5 | - | -
            """, "needs the mark")
        self.assertRefused("""
            enum u_t 2
              u_a{0,1} | 1 step 2 | - | -  # inferred
            """, "every code is exact")

    def test_span_too_small_for_its_names(self):
        self.assertRefused("""
            enum u_t 4
              u_x      | 2 | - | -
              u_a{0-2} | 1 to 3 | - | -  # inferred
            """, "u_a{0-2}, generation ko", "no room")

    def test_span_end_taken_by_a_stated_code(self):
        self.assertRefused("""
            enum u_t 3
              u_x      | 1 | - | -
              u_a{0,1} | 1 to 4 | - | -  # inferred
            """, "u_a{0,1}, generation ko: span end 1 is already the code of u_x")

    def test_repeated_names_and_accessors(self):
        self.assertRefused("""
            enum u_t 2
              u_a0     | 1 | - | -
              u_a{0}   | 2 | - | -
            """, "u_a0 repeats the name of line 2")
        self.assertRefused("""
            enum u_v_t 1
              w | 1 | - | -
            enum u_t 1
              v_w | 2 | - | -
            """, "accessor u_v_w already made by enums_test.tbl:2")

    def test_malformed_braces_and_missing_cells(self):
        self.assertRefused("""
            enum u_t 2
              u_a{1,0} | - | - | -
            """, "not in ascending order")
        self.assertRefused("""
            enum u_t 1
              u_a | 1 | 2
            """, "expected 3 cells")


class ShippedTables(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        errors = genlib.Errors()
        cls.types, cls.enumerants = enumerants.load_types(TABLES, COLUMNS, errors)
        assert not errors, list(errors)
        cls.by_accessor = {e.accessor: e for e in cls.enumerants}

    def test_selection_types_have_no_shared_codes(self):
        shared = [c for c in enumerants.stated_collisions(self.types, self.enumerants, COLUMNS)
                  if c[1] in enumerants.SELECTION_KINDS]
        self.assertEqual(shared, [])

    def test_split_counter_register(self):
        e = self.by_accessor["agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain0_max"]
        self.assertEqual(e.codes, {"ko": 0, "ry": None, "rye": None})
        self.assertNotIn("agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain5_max", self.by_accessor)
        low = self.by_accessor["agcu_rcf_enum_agcu_rcf_reg_agu0_vag0_ctrchain5_max_low"]
        self.assertEqual((low.codes["ko"], low.codes["ry"], low.codes["rye"]), (None, None, 5))
        stride = self.by_accessor["agcu_rcf_enum_agcu_rcf_reg_agu1_vag7_ctrchain4_stride"]
        self.assertEqual((stride.codes["ko"], stride.inferred["ko"]), (159, True))


if __name__ == "__main__":
    unittest.main()
