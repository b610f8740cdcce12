"""Tile.port and diff across generations from Python: the tile and the report as named tuples,
the same report as the tool's, the way back, mk41 and mk42 bit for bit, and refusals that raise."""

import json
import os
import pathlib
import random
import subprocess

import pytest

import archspec

TOOL = os.environ.get("ARCHSPEC_TOOL")
ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLE = ROOT / "examples" / "pcu_program.sparse"


def example():
    return archspec.read(EXAMPLE.read_text(), "mk43", "pcu")


class TestPort:
    def test_the_example_to_mk44_loses_its_vecdestpmu_and_keeps_its_program(self):
        source = example()
        ported, report = source.port("mk44")
        assert ported.generation.product == "mk44" and ported.tile == "pcu"
        assert report.lost == [archspec.PortEntry("output_structIn[0].vecdestPMU", "no-field", 1,
                                                  "the field does not exist on mk44")]
        assert ported.check() == []
        assert ported.nonzero(names=True)["simd_structIn[0][1].stage_opcode"] == \
            "stage_opcode_alu_op_max"
        assert {r.path for r in report.review} >= {"ControlBox_structIn[0].reshape0_fifo_src"}
        # Back: everything moves, and only the lost leaf differs from the source.
        back, back_report = ported.port(archspec.generation("mk43"))
        assert back_report == archspec.PortReport([], [], [])
        assert source.diff(back) == [("output_structIn[0].vecdestPMU", 1, 0)]

    def test_diff_across_generations_by_meaning(self):
        source = example()
        ported, _ = source.port("mk44")
        assert source.diff(ported) == [("output_structIn[0].vecdestPMU", 1, None)]
        ported["simd_structIn[0][1].stage_opcode"] = "stage_opcode_alu_op_min"
        changed = dict((p, (a, b)) for p, a, b in source.diff(ported))
        assert changed["simd_structIn[0][1].stage_opcode"][1] == \
            archspec.generation("mk44").constants["stage_opcode_alu_op_min"]
        with pytest.raises(ValueError, match="cannot compare"):
            source.diff(archspec.generation("mk44").tile("pmu"))

    def test_mk41_and_mk42_keep_every_bit(self):
        rng = random.Random(42)
        tile = archspec.generation("mk41").tile("agcu")
        for leaf in tile.layout():
            tile[leaf.path] = rng.getrandbits(leaf.width)
        ported, _ = tile.port("mk42")
        assert ported.to_bits() == tile.to_bits()
        assert ported.generation.product == "mk42"

    def test_an_inferred_code_moves_with_a_note(self):
        tile = archspec.generation("mk43").tile("pcu")
        tile["common_structIn.incrementXbar_sel[0]"] = "pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1"
        ported, report = tile.port("mk44")
        assert report.lost == []
        assert [(n.path, n.reason) for n in report.notes] == \
            [("common_structIn.incrementXbar_sel[0]", "inferred")]
        assert ported["common_structIn.incrementXbar_sel[0]"] == \
            archspec.generation("mk44").constants["pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1"]

    def test_refusals_raise(self):
        tile = example()
        with pytest.raises(ValueError):
            tile.port("mk99")
        with pytest.raises(TypeError):
            tile.port(44)

    def test_the_same_report_as_the_tool(self, tmp_path):
        if TOOL is None:
            pytest.skip("ARCHSPEC_TOOL is not set")
        run = subprocess.run([TOOL, "port", "--to", "mk44", "--arch", "mk43", "pcu", str(EXAMPLE),
                              "--json", "--partial"], capture_output=True, text=True)
        assert run.returncode == 3
        tool = json.loads(run.stderr)
        ported, report = example().port("mk44")
        assert [(e["path"], e["reason"], int(e["value"], 16), e["text"]) for e in tool["lost"]] \
            == [tuple(e) for e in report.lost]
        assert [e["path"] for e in tool["review"]] == [r.path for r in report.review]
        assert archspec.read(run.stdout) == ported
