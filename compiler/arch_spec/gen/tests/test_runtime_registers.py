"""The table of run-time registers is checked against the record and enumerant tables: each
refusal on a broken copy of the project's own tables, what the generator writes for a sound one,
and the coverage section of the docs."""

import os
import sys
import unittest

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, GEN)
import edited_tables  # noqa: E402
import gen_runtime_registers  # noqa: E402
import genlib  # noqa: E402
import runtime_registers  # noqa: E402

TABLES = os.path.join(GEN, "tables")
DOC = os.path.join(GEN, "..", "..", "..", "docs", "runtime-registers.md")


class RuntimeRegistersTest(unittest.TestCase):
    def run_with(self, edit):
        """(exit code, error lines, RuntimeRegisters.cpp or None, the table's text) for the
        project's tables with the table's text passed through `edit`."""
        def checked(text):
            changed = edit(text)
            self.assertNotEqual(changed, text, "the edit changed nothing")
            return changed

        run = edited_tables.run_on_edited(gen_runtime_registers.main,
                                          os.path.join("records", runtime_registers.TABLE),
                                          checked, "RuntimeRegisters.cpp")
        return run.code, run.errors, run.output, run.table

    def assert_refused(self, old, new, message):
        """The table with `old` replaced by `new` is refused with `message` on the line of
        `new`'s first line (or of the table, for a fault of no row)."""
        code, found, result, text = self.run_with(lambda t: t.replace(old, new, 1))
        self.assertEqual(code, 1)
        self.assertIsNone(result)
        line = text[:text.index(new)].count("\n") + 1 if new else 0
        self.assertIn(f"{runtime_registers.TABLE}:{line}: error: {message}", found)

    PCU_MAX = ("pcu_rcf_reg_ctrchain{c}_max_ctxt{x}          "
               "CounterChain_structIn[x].counter_max_value[c]")

    def test_a_field_the_records_lack(self):
        self.assert_refused(self.PCU_MAX, self.PCU_MAX.replace("counter_max_value", "counter_max"),
                            "pcu_rcf_reg_ctrchain0_max_ctxt0 on ko: CounterChain_structIn[0]."
                            "counter_max[0]: found no field counter_max in "
                            "PCU_CounterChain_struct, expected one of its fields")

    def test_an_index_beyond_the_array(self):
        self.assert_refused(self.PCU_MAX, self.PCU_MAX.replace("[x].", "[x+2]."),
                            "pcu_rcf_reg_ctrchain0_max_ctxt0 on ko: CounterChain_structIn[2]."
                            "counter_max_value[0]: found index 2 of pcu_config_struct."
                            "CounterChain_structIn, which has 2 elements, expected an index "
                            "below 2")

    def test_more_than_32_bits_in_a_register(self):
        row = "agcu_rcf_reg_agu{a}_vag{v}_ctrchain{c}_max_hi     "
        self.assert_refused(row + "AGCU_AGU_config[a].AGU_CSF_config.AGU_Vag_config[v]."
                            "agu_Counterchain_config.CounterChain_max_value[c]:hi",
                            row + "AGCU_AGU_config[a].AGU_CSF_config.AGU_Vag_config[v]."
                            "agu_Counterchain_config.CounterChain_max_value[c]",
                            "agcu_rcf_reg_agu0_vag0_ctrchain0_max_hi on ry: AGCU_AGU_config[0]."
                            "AGU_CSF_config.AGU_Vag_config[0].agu_Counterchain_config."
                            "CounterChain_max_value[0] has 44 bits, expected a register to hold "
                            "at most 32 bits: name the word it writes (:lo or :hi)")

    def test_a_word_of_a_narrow_leaf(self):
        self.assert_refused(self.PCU_MAX, self.PCU_MAX + ":lo",
                            "pcu_rcf_reg_ctrchain0_max_ctxt0 on ko: CounterChain_structIn[0]."
                            "counter_max_value[0] has 32 bits, one word: expected no :lo or :hi")

    def test_two_registers_write_the_same_bits(self):
        stride = ("pcu_rcf_reg_ctrchain{c}_stride_ctxt{x}       "
                  "CounterChain_structIn[x].counter_stride_value[c]")
        self.assert_refused(stride, stride.replace("stride_value", "max_value"),
                            "pcu_rcf_reg_ctrchain0_stride_ctxt0 on ko: CounterChain_structIn[0]."
                            "counter_max_value[0]: found its low word written by "
                            "pcu_rcf_reg_ctrchain0_max_ctxt0 too, expected one register per word")

    def test_a_generation_that_answers_none_of_the_family(self):
        row = ("pcu_rcf_reg_static_ramp_down_ctr_max         "
               "common_structIn.ldidt_struct.static_ramp_down_counter_max  ")
        self.assert_refused(row + "rye", row + "ry,rye",
                            "pcu_rcf_reg_static_ramp_down_ctr_max: ry answers no register of the "
                            "family, expected each generation named to answer some")

    def test_an_answered_family_without_a_row(self):
        row = ("pcu_rcf_reg_num_stages_ctxt{x}               -    # ControlBox_structIn and "
               "SeqID_structIn both hold a num_stages: either could be its field\n")
        code, found, result, _ = self.run_with(lambda t: t.replace(row, ""))
        self.assertEqual(code, 1)
        self.assertIn(f"{runtime_registers.TABLE}:0: error: pcu_rcf_reg_num_stages_ctxt0: ko "
                      "answers it (enums_registers.tbl:103) and no row of runtime_registers.tbl "
                      "speaks for it, expected a row that links it or '-  # why'", found)

    def test_rows_that_cannot_be_read(self):
        self.assert_refused("pcu_rcf_reg_num_stages_ctxt{x}               -    # ControlBox",
                            "pcu_rcf_reg_num_stages_ctxt{x}{x}            -    # ControlBox",
                            "pcu_rcf_reg_num_stages_ctxt{x}{x}: found index x twice, expected "
                            "each brace named once")
        self.assert_refused(self.PCU_MAX + "       ko,ry,rye  stated",
                            self.PCU_MAX + "       ko,ry,mk44  stated",
                            "pcu_rcf_reg_ctrchain{c}_max_ctxt{x}: found generation mk44, "
                            "expected some of ko, ry, rye")
        self.assert_refused(self.PCU_MAX + "       ko,ry,rye  stated",
                            self.PCU_MAX + "       ko,ry,rye  guessed",
                            "pcu_rcf_reg_ctrchain{c}_max_ctxt{x}: found "
                            "'CounterChain_structIn[x].counter_max_value[c] ko,ry,rye guessed', "
                            "expected PATH GENERATIONS BASIS (stated or inferred) or '-  # reason'")

    def test_the_generated_rows(self):
        _, rows, found = runtime_registers.registers(TABLES, genlib.Errors())
        by_name = {(r.column, r.name): r for r in found}
        stage5 = by_name[("rye", "pcu_rcf_reg_stage5_imm_ctxt3")]
        self.assertEqual((stage5.code, stage5.path, stage5.half),
                         (23, "simd_last_stage_structIn[3][0].stage_immediate", 0))
        imm = by_name[("ko", "pmu_rcf_reg_stage11_imm2")]
        self.assertEqual(imm.path, "PMU_shared.alu_imm_value[35]")
        hi = by_name[("ry", "agcu_rcf_reg_agu1_vag7_ctrchain4_max_hi")]
        self.assertEqual((hi.half, hi.width, hi.inferred), (2, 44, True))
        # uko answers as ko and has no rows of its own; every answered register is in the rows.
        self.assertEqual({r.column for r in found}, {"ko", "ry", "rye"})
        self.assertFalse(by_name[("ko", "pcu_rcf_reg_num_stages_ctxt0")].path)

    def test_the_docs_section_is_current(self):
        self.assertEqual(runtime_registers.main(["runtime_registers.py", TABLES, DOC]), 0,
                         "rewrite it with runtime_registers.py TABLES --write DOC")


if __name__ == "__main__":
    unittest.main()
