"""Codes by name in Python: the same names, refusals and findings as the tool."""

import os
import subprocess

import pytest

import archspec


@pytest.fixture
def g():
    return archspec.generation("mk43")


@pytest.fixture
def pcu(g):
    t = g.tile("pcu")
    t["simd_structIn[0][1].stage_opcode"] = "stage_opcode_alu_op_max"
    t["interface_struct.CtlOutXbar_sel[2]"] = 0x7F  # a code of no name of the crossbar
    t["common_structIn.udc_init_value[0]"] = 4
    return t


def test_values_by_name_where_the_code_has_one(pcu):
    assert pcu.nonzero(names=True) == {
        "interface_struct.CtlOutXbar_sel[2]": 0x7F,
        "simd_structIn[0][1].stage_opcode": "stage_opcode_alu_op_max",
        "common_structIn.udc_init_value[0]": 4,
    }
    assert pcu.nonzero()["simd_structIn[0][1].stage_opcode"] == 26
    named = pcu.to_dict(names=True)
    assert named["simd_structIn[0][0].stage_opcode"] == "stage_opcode_alu_op_madd"  # code 0
    assert named["simd_structIn[0][0].stage_immediate"] == 0


def test_type_of(pcu):
    assert pcu.type_of("simd_structIn[0][1].stage_opcode") == "stage_opcode_t"
    assert pcu.type_of("interface_struct.CtlOutXbar_sel[0]") == "pcu_ctloutxbar_enum_t"
    assert pcu.type_of("simd_structIn[0][1].stage_immediate") is None
    with pytest.raises(KeyError):
        pcu.type_of("simd_structIn[0][1]")


def test_a_name_of_another_type_is_refused(pcu):
    with pytest.raises(ValueError, match="stage_opcode takes stage_opcode_t; alu_format_enum_fp32 "
                                         "is an alu_format_enum_t; names of stage_opcode_t like it"):
        pcu["simd_structIn[0][1].stage_opcode"] = "alu_format_enum_fp32"
    with pytest.raises(ValueError, match="CtlOutXbar_sel takes pcu_ctloutxbar_enum_t"):
        pcu.interface_struct.CtlOutXbar_sel[1] = "agcu_opcode_agcu_alu_add3"
    assert pcu["simd_structIn[0][1].stage_opcode"] == 26  # left as it was
    pcu["simd_structIn[0][1].stage_opcode"] = 11  # a raw code is still taken
    assert pcu.check()[-1].value == 11


def test_listings_refuse_names_of_another_type(g):
    with pytest.raises(ValueError, match="listing:2: error: .*stage_opcode takes stage_opcode_t"):
        g.tile_from_sparse("pcu", "# a listing\nsimd_structIn[0][0].stage_opcode = "
                                  "alu_format_enum_fp32\n")


def test_check_finds_the_values_of_no_name(pcu, mk43_pcu):
    findings = pcu.check()
    assert [(f.path, f.value, f.type) for f in findings] == [
        ("interface_struct.CtlOutXbar_sel[2]", 0x7F, "pcu_ctloutxbar_enum_t")]
    finding = findings[0]
    place = mk43_pcu["leaves"]["interface_struct.CtlOutXbar_sel[2]"]
    assert (finding.offset, finding.width) == (place["offset"], place["width"])
    assert len(finding.nearest) == 3
    assert all(name.startswith("pcu_ctloutxbar_enum_") and code < 0x7F
               for name, code in finding.nearest)
    assert archspec.generation("mk44").tile("agcu").check() == []


def test_the_listing_names_codes_and_reads_back(pcu, g):
    listing = pcu.to_sparse()
    assert "simd_structIn[0][1].stage_opcode = stage_opcode_alu_op_max\n" in listing
    assert ("interface_struct.CtlOutXbar_sel[2] = 0x7f  # not a code of pcu_ctloutxbar_enum_t on "
            "mk43\n") in listing
    assert "= 0x1a" in pcu.to_sparse(codes=True)
    assert g.tile_from_sparse("pcu", listing) == pcu
    assert "(stage_opcode_alu_op_max)" in pcu.to_tree()
    assert "(stage_opcode_alu_op_max)" not in pcu.to_tree(codes=True)


@pytest.mark.skipif(not os.environ.get("ARCHSPEC_TOOL"), reason="the tool is not built")
def test_the_listing_is_the_tools(pcu):
    """One implementation: the package writes the listing the tool writes from the same bits."""
    tool = subprocess.run([os.environ["ARCHSPEC_TOOL"], "decode", "--arch", "mk43", "pcu", "-",
                           "--format", "sparse"], input=pcu.to_bits(), capture_output=True,
                          text=True, check=True)
    assert tool.stdout == pcu.to_sparse()


def test_enumerations_and_the_fields_that_take_them(g):
    enumerations = g.enumerations()
    assert enumerations["stage_opcode_t"]["stage_opcode_alu_op_max"] == 26
    assert "sm_opcode_t" not in enumerations  # answered by no generation
    fields = g.fields_of("stage_opcode_t")
    assert set(fields) == set(archspec.tiles())
    assert "simd_structIn[0][4].stage_opcode" in fields["pcu"]
    assert fields["pmu"] == []
    with pytest.raises(KeyError, match="no enumeration type named"):
        g.fields_of("stage_opcode")
