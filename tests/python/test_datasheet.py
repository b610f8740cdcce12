"""What the package says of a parameter and of an enumeration type: the same as the tool."""

import json
import os
import subprocess

import pytest

import archspec


def tool(*args):
    done = subprocess.run([os.environ["ARCHSPEC_TOOL"], *args], capture_output=True, text=True,
                          check=True)
    return json.loads(done.stdout)


@pytest.mark.parametrize("product", ["mk41", "mk43", "mk44"])
def test_describe_is_the_tools_entry_for_every_parameter(product):
    if not os.environ.get("ARCHSPEC_TOOL"):
        pytest.skip("the tool is not built")
    g = archspec.generation(product)
    entries = tool("constants", "--arch", product, "--json")
    parameters = [e for e in entries if e["kind"] == "parameter"]
    assert len(parameters) == 594
    for entry in parameters:
        assert g.constants.describe(entry["name"]) == entry


def test_describe_gives_units_groups_and_the_clock():
    g = archspec.generation("mk44")
    cycle = g.constants.describe("cycle_time")
    assert (cycle["quantity"], cycle["unit"]) == ("clock period", "seconds")
    assert cycle["group"] == "Clock, bandwidth and latency of the chip"
    assert cycle["derived"]["name"] == "clock frequency"
    assert cycle["derived"]["value"] == pytest.approx(1.8e9, rel=1e-5)
    assert cycle["value"] == g.constants.cycle_time  # the digits as stored
    assert g.constants.describe("scalarwidth")["unit"] is None
    assert g.constants.describe("scalarwidth")["quantity"] is None
    unanswered = archspec.generation("mk41").constants.describe("ag_chip_id_width")
    assert (unanswered["answered"], unanswered["unit"]) == (False, "bits")
    enumerant = g.constants.describe("stage_opcode_alu_op_madd")
    assert "unit" not in enumerant and enumerant["value"] == 0
    with pytest.raises(KeyError, match="did you mean cycle_time"):
        g.constants.describe("cycle_tim")
    with pytest.raises(KeyError):
        g.features.describe("cycle_time")  # a constant, not a feature


def test_enumeration_lists_what_the_constants_answer():
    for product in ("mk41", "mk42", "mk43", "mk44"):
        g = archspec.generation(product)
        for type_name, names in g.enumerations().items():
            answer = g.enumeration(type_name)
            assert {n["name"]: n["code"] for n in answer["names"]} == names
            for n in answer["names"]:
                assert n["inferred"] == g.constants.is_inferred(n["name"])
            paths = {tile: sorted({p["path"] for p in found})
                     for tile, found in answer["fields"].items()}
            expected = {tile: sorted({archspec_template(p) for p in found})
                        for tile, found in g.fields_of(type_name).items()}
            assert paths == expected, (product, type_name)


def archspec_template(path):
    """"simd_structIn[0][4].stage_opcode" as "simd_structIn[][].stage_opcode"."""
    out, inside = [], False
    for c in path:
        inside = (inside or c == "[") and c != "]"
        if not inside or c == "[":
            out.append(c)
    return "".join(out)


def test_enumeration_of_another_kind_of_name_says_what_it_is():
    g = archspec.generation("mk44")
    with pytest.raises(KeyError, match="stage_opcode names a field of pcu"):
        g.enumeration("stage_opcode")
    with pytest.raises(KeyError, match="pcu names a tile"):
        g.enumeration("pcu")
    with pytest.raises(KeyError, match="answers no enumeration type named"):
        g.enumeration("no_such_t")
