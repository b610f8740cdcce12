"""The table of field types is checked against the record and enumerant tables: each refusal on a
broken copy of the project's own tables, and what the generator writes for a sound one."""

import os
import unittest

GEN = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
import sys  # noqa: E402

sys.path.insert(0, GEN)
import edited_tables  # noqa: E402
import field_types  # noqa: E402
import gen_field_types  # noqa: E402

TABLES = os.path.join(GEN, "tables")


class FieldTypesTest(unittest.TestCase):
    def run_with(self, rows, drop=()):
        """(exit code, error lines, FieldTypes.cpp or None, line of the first appended row) for
        the project's tables with `rows` appended to the table of field types, and its rows that
        start with an entry of `drop` left out."""
        def edit(text):
            lines = text.splitlines(keepends=True)
            kept = [line for line in lines if not any(line.startswith(d) for d in drop)]
            self.assertEqual(len(kept), len(lines) - len(drop))
            return "".join(kept) + rows

        run = edited_tables.run_on_edited(gen_field_types.main,
                                          os.path.join("records", field_types.TABLE), edit,
                                          "FieldTypes.cpp")
        return run.code, run.errors, run.output, run.table.count("\n") - rows.count("\n") + 1

    def assert_refused(self, row, message):
        code, found, text, line = self.run_with(row + "\n")
        self.assertEqual(code, 1)
        self.assertIsNone(text)
        self.assertEqual(found, [f"{field_types.TABLE}:{line}: error: {message}"])

    def test_unknown_type(self):
        self.assert_refused("PCU_SIMD_struct stage_immediate stage_op_t inferred",
                            "PCU_SIMD_struct.stage_immediate: found type stage_op_t, expected one "
                            "of the 148 enumeration types of the constants tables")

    def test_a_generation_that_answers_no_code_of_the_type(self):
        # sm_opcode_t is answered by no generation; the field exists in every namespace.
        self.assert_refused("PCU_SIMD_struct stage_immediate sm_opcode_t inferred",
                            "PCU_SIMD_struct.stage_immediate: mk41 answers no code of "
                            "sm_opcode_t, expected every generation with the field (ko records) "
                            "to answer its type")

    def test_a_code_that_does_not_fit_the_width(self):
        # A 3-bit selector cannot take the stage opcodes, whose codes reach 31.
        self.assert_refused("PCU_tail_struct regfileOutXbar_sel2 stage_opcode_t stated",
                            "PCU_tail_struct.regfileOutXbar_sel2: found no field "
                            "regfileOutXbar_sel2 in PCU_tail_struct, expected one of its fields")
        self.assert_refused("ContextConfiguration instr_ctxt stage_opcode_t stated",
                            "ContextConfiguration.instr_ctxt: code 31 of stage_opcode_alu_op_srl "
                            "on mk41 does not fit the field's 2 bits, expected codes below 4")

    def test_a_code_of_two_to_the_width(self):
        # The operand C sources reach code 4: a 2-bit field holds codes up to 3 (bitfile_type_t
        # reaches 3 on mk41 and is taken by 2-bit fields of the project's tables).
        self.assert_refused("ContextConfiguration instr_ctxt stage_opc_src_t inferred",
                            "ContextConfiguration.instr_ctxt: code 4 of stage_opc_src_opc_reduce "
                            "on mk41 does not fit the field's 2 bits, expected codes below 4")

    def test_a_field_named_after_a_type_has_a_row(self):
        switch_row, csf_row = "Switch_source_struct        bitfile_type", "CU_CSF_struct  "
        code, found, _, _ = self.run_with("", drop=(switch_row, csf_row + "          bitfile"))
        self.assertEqual(code, 1)
        self.assertEqual(found, [
            "switch.rec:106: error: Switch_source_struct.bitfile_type: found a field named after "
            "enumeration type bitfile_type_t (ko, ry, rye records) with no row in "
            "field_types.tbl, expected a row that types it or 'Switch_source_struct "
            "bitfile_type -  # why it takes no type'",
            "agcu_top.rec:155: error: CU_CSF_struct.bitfile_type: found a field named after "
            "enumeration type bitfile_type_t (ry, rye records) with no row in field_types.tbl, "
            "expected a row that types it or 'CU_CSF_struct bitfile_type -  # why it takes no "
            "type'"])
        # A row that excludes it with its reason, or types it in some namespaces and says why
        # not in the others, speaks for it.
        for row in ("Switch_source_struct bitfile_type -  # a reason\n",
                    "Switch_source_struct bitfile_type ko=bitfile_type_t inferred  # a reason\n"):
            code, found, _, _ = self.run_with(row, drop=(switch_row,))
            self.assertEqual((code, found), (0, []), row)
        code, found, _, _ = self.run_with(
            "Switch_source_struct bitfile_type ko=bitfile_type_t inferred\n", drop=(switch_row,))
        self.assertEqual(code, 1)
        self.assertIn("(ry, rye records)", found[0])

    def test_unknown_record_field_and_forms(self):
        self.assert_refused("PCU_NO_struct x stage_opcode_t stated",
                            "PCU_NO_struct.x: found unknown record PCU_NO_struct, expected a "
                            "record of the tables")
        self.assert_refused("pcu_config_struct interface_struct stage_opcode_t stated",
                            "pcu_config_struct.interface_struct: found a field of records, "
                            "expected a field of leaves")
        self.assert_refused("PCU_SIMD_struct stage_immediate stage_opcode_t guessed",
                            "PCU_SIMD_struct.stage_immediate: found 'stage_opcode_t guessed', "
                            "expected TYPE (or NS=TYPE cells) and a basis, stated or inferred")
        self.assert_refused("PCU_SIMD_struct stage_immediate -",
                            "PCU_SIMD_struct.stage_immediate: found '-' without a comment, "
                            "expected the reason the field takes no type")

    def test_namespace_cells(self):
        self.assert_refused("PCU_SIMD_struct rounding_enable ko=stage_opa_src_t inferred",
                            "PCU_SIMD_struct.rounding_enable: found a type for ko, whose "
                            "PCU_SIMD_struct has no field rounding_enable; expected types for rye "
                            "only")
        self.assert_refused("PCU_SIMD_struct stage_immediate zz=stage_opa_src_t inferred",
                            "PCU_SIMD_struct.stage_immediate: found cell 'zz=stage_opa_src_t', "
                            "expected NS=TYPE with NS one of ko, ry, rye")

    def test_a_second_row_for_a_field(self):
        code, found, _, line = self.run_with("PCU_SIMD_struct stage_opcode stage_opcode_t stated\n")
        self.assertEqual(code, 1)
        self.assertEqual(len(found), 1)
        self.assertIn(f"{field_types.TABLE}:{line}: error: PCU_SIMD_struct.stage_opcode: found a "
                      "second row, expected one (first at line", found[0])

    def test_every_fault_of_a_run_is_reported(self):
        code, found, _, line = self.run_with("PCU_NO_struct x stage_opcode_t stated\n"
                                             "PCU_SIMD_struct stage_immediate nope_t stated\n")
        self.assertEqual(code, 1)
        self.assertEqual([f.split(": error:")[0] for f in found],
                         [f"{field_types.TABLE}:{line}", f"{field_types.TABLE}:{line + 1}"])

    def test_the_project_tables_generate_templates_per_namespace(self):
        code, found, text, _ = self.run_with("")
        self.assertEqual((code, found), (0, []))
        # A field of a nested record, under arrays, in every namespace; per-namespace cells.
        for expected in ('{"ry", "pcu", "simd_structIn[][].stage_opcode",\n'
                         '     "stage_opcode_t", true, "field_types.tbl:',
                         '{"ko", "switch", "xbar_config.ctlMuxsel[][]",\n'
                         '     "switch_ctl_signal_t", false',
                         '{"ry", "switch", "xbar_config.UDCIncXbarMuxsel[]",'):
            self.assertTrue(expected in text, expected)
        self.assertFalse('{"ko", "switch", "xbar_config.UDCIncXbarMuxsel[]",' in text)
        # Inferred codes are marked per generation with answers (ko uko ry rye).
        self.assertRegex(text, r'\{"pcu_ctloutxbar_enum_\w+", "[-i]{4}"\},')

    def test_the_coverage_document_is_current(self):
        doc = os.path.join(GEN, "..", "..", "..", "docs", "field-types.md")
        self.assertEqual(field_types.main(["field_types.py", TABLES, doc]), 0,
                         "rewrite it with field_types.py TABLES --write docs/field-types.md")


if __name__ == "__main__":
    unittest.main()
