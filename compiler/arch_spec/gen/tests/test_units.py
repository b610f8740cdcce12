"""The rule that gives every hardware parameter its quantity and unit: checked against every row
of the table of parameters, and at the places where an ending alone would mislead."""

import os
import re
import sys
import unittest

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, GEN)

import gen_units  # noqa: E402
import genlib  # noqa: E402
import units  # noqa: E402


class EveryParameter(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sheet = units.sheet()

    def test_each_has_a_quantity_from_its_ending_or_is_listed_as_having_none(self):
        listed = set(units.undescribed())
        for name, (group, cpp_type, meaning, _) in self.sheet.items():
            with self.subTest(name=name):
                self.assertTrue(group, "every row stands under a group heading")
                if meaning is None:
                    self.assertIn(name, listed)
                    self.assertNotRegex(name, r"_(width|depth|fifo_size|latency|ctrs|counters|"
                                              r"chains|stages|clog2|pr|reg|bandwidth|"
                                              r"throughput)$")
                    self.assertNotRegex(name, r"(^|_)(num_|log2)")
                    continue
                self.assertNotIn(name, listed)
                quantity, unit, _ = meaning
                expected = {"_width": "bits", "_depth": "entries", "_fifo_size": "entries"}
                for ending, wanted in expected.items():
                    if name.endswith(ending) and not units.LOG2.search(name):
                        self.assertEqual(unit, wanted)
                if name.endswith("_latency") and cpp_type != "double":
                    self.assertEqual((quantity, unit), ("latency", "cycles"))

    def test_every_double_has_its_stated_meaning(self):
        doubles = {n for n, (_, t, _, _) in self.sheet.items() if t == "double"}
        self.assertEqual(len(doubles), 13)
        self.assertLessEqual(doubles, set(units.MEANINGS))
        meaning = {n: self.sheet[n][2] for n in doubles}
        self.assertEqual(meaning["cycle_time"], ("clock period", "seconds", "clock"))
        self.assertEqual(meaning["bitfile_load_latency"][1], "seconds")  # not cycles
        self.assertEqual(meaning["pln_on_die_switch_bandwidth"][0], "ratio")  # no bytes/s
        self.assertEqual(meaning["tln_to_core_bandwidth_ratio"][0], "ratio")
        self.assertEqual(meaning["pcu_double_width_result_throughput"][1], "results per cycle")
        for name in ("agcu_load_bandwidth", "agcu_store_bandwidth", "pmu_bandwidth",
                     "ddr_bandwidth", "pcie_bandwidth", "p2p_per_link_bandwidth"):
            self.assertEqual(meaning[name], ("bandwidth", "bytes per second", ""))
        # The link latencies share a unit that nothing states: none is made up.
        self.assertEqual(meaning["p2p_local_link_latency"][1], "")
        self.assertEqual(meaning["p2p_switch_link_latency"][1], "")

    def test_where_an_ending_alone_would_mislead(self):
        cases = {
            "pcu_tail_log2_latency": ("latency", "cycles"),  # the log2 unit's latency
            "pcu_log2_num_stages": ("base-2 logarithm", ""),
            "log2lanes": ("base-2 logarithm", ""),
            "pcu_rob_window_size_clog2": ("base-2 logarithm, rounded up", ""),
            "pcu_num_stages": ("count", ""),
            "pcu_accum_drain_on_done_delay_int_macc": ("delay", "cycles"),  # its group says so
            "gemm_bias_pr": ("register number", ""),
            "vec_vif_h": ("header field's high bit", ""),
        }
        for name, wanted in cases.items():
            with self.subTest(name=name):
                self.assertEqual(self.sheet[name][2][:2], wanted)
        for name in ("scalarwidth", "ddr_latency_in_cycles", "p2p_framing_overhead",
                     "pcu_ctrchains", "bitfile_blocks_column_major_layout"):
            self.assertIsNone(self.sheet[name][2], name)

    def test_a_rate_or_double_without_a_stated_meaning_is_refused(self):
        with self.assertRaisesRegex(units.UnitError, "new_bandwidth.*no stated meaning"):
            units.describe("new_bandwidth", "size_t")
        with self.assertRaisesRegex(units.UnitError, "pcu_new_ratio \\(double\\)"):
            units.describe("pcu_new_ratio", "double")

    def test_the_generated_table_has_one_row_per_parameter(self):
        errors = genlib.Errors()
        files, _ = gen_units.generate(units.TABLES, errors)
        self.assertFalse(errors)
        text = files["ParameterUnits.cpp"]
        self.assertEqual(text.count("// params.tbl:"), len(self.sheet))
        self.assertIn('{"cycle_time", "Clock, bandwidth and latency of the chip",', text)


class TheDocuments(unittest.TestCase):
    def test_list_the_parameters_without_a_quantity(self):
        path = os.path.join(GEN, "..", "..", "..", "docs", "command-line.md")
        with open(path, encoding="utf-8") as f:
            text = f.read()
        start = text.index("<!-- the parameters without a quantity")
        listed = re.findall(r"`(\w+)`", text[text.index("\n", start):text.index("\n\n", start)])
        self.assertEqual(listed, units.undescribed())


if __name__ == "__main__":
    unittest.main()
