"""archspec.read(): a configuration of any form the tool writes, its generation and tile named by
the caller or by the input; and the complaints that the faces share with the tool."""

import json
import random

import pytest

import archspec


def _set_some(t, seed):
    rng = random.Random(seed)
    for leaf in rng.sample(t.layout(), 40):
        t[leaf.path] = rng.getrandbits(leaf.width)
    return t


class TestRead:
    def test_every_form_reads_back_to_the_same_tile(self):
        g = archspec.generation("mk44")
        for tile in archspec.tiles():
            t = _set_some(g.tile(tile), hash(tile) & 0xFFFF)
            for data in (t.to_bits(), t.to_bytes(), t.to_sparse(), t.to_sparse(codes=True),
                         t.to_json(), t.to_json(codes=True, all=True)):
                assert archspec.read(data, g, tile) == t
            # A listing and JSON name their generation and tile themselves.
            for data in (t.to_sparse(), t.to_json()):
                again = archspec.read(data)
                assert again == t and again.generation == g

    def test_json_is_the_tools_and_holds_exact_values(self):
        t = archspec.generation("mk43").tile("pcu")
        t["simd_structIn[0][4].stage_opcode"] = "stage_opcode_alu_op_max"
        document = json.loads(t.to_json())
        assert (document["arch"], document["tile"], document["record"]) == (
            "mk43", "pcu", "pcu_config_struct")
        leaf = next(leaf for leaf in t.layout() if leaf.path == "simd_structIn[0][4].stage_opcode")
        assert document["leaves"] == [{
            "path": leaf.path, "offset": leaf.offset, "width": 5, "value": "0x1a",
            "type": "stage_opcode_t", "name": "stage_opcode_alu_op_max"}]

    def test_an_input_of_another_generation_or_tile_is_refused_unless_forced(self):
        mk44 = archspec.generation("mk44").tile("pcu")
        for data, line in ((mk44.to_sparse(), 1), (mk44.to_json(), 2)):
            with pytest.raises(ValueError, match=rf"^input:{line}: error: .*, not for mk43 pcu; "
                                                 r"force=True reads it anyway$"):
                archspec.read(data, "mk43", "pcu")
        assert archspec.read(mk44.to_sparse(), "mk43", "pcu", force=True).generation.product == \
            "mk43"

    def test_what_the_input_names_and_what_is_missing_are_said(self):
        with pytest.raises(ValueError, match=r"^input:1: error: no generation is named 'mk99'"):
            archspec.read("# archspec mk99 pcu\n")
        with pytest.raises(ValueError, match="names no generation"):
            archspec.read("0101")
        with pytest.raises(ValueError, match="names no tile"):
            archspec.read("0101", "mk43")
        with pytest.raises(ValueError, match="unknown form 'xml'"):
            archspec.read("0101", "mk43", "pcu", form="xml")
        with pytest.raises(ValueError, match=r"\(8854 bits are the length of pcu_config_struct "
                                             r"of mk41 \(ko\) and mk42 \(uko\)\)"):
            archspec.read(archspec.generation("mk41").tile("pcu").to_bits(), "mk43", "pcu")

    def test_json_of_another_kind_is_refused_with_what_it_is(self):
        with pytest.raises(ValueError, match="the JSON of a comparison of two configurations"):
            archspec.read('{"arch": "mk43", "tile": "pcu", "differences": []}')


class TestComplaints:
    def test_huge_ints_are_shown_by_their_size(self):
        t = archspec.generation("mk43").tile("pcu")
        with pytest.raises(IndexError, match=r"^index 2\*\*16609\.\.\. out of range"):
            t.simd_structIn[10**5000]
        with pytest.raises(ValueError, match=r"value 2\*\*16609\.\.\. does not fit in 5 bits"):
            t["simd_structIn[0][4].stage_opcode"] = 10**5000
        with pytest.raises(IndexError, match=r"^bit 2\*\*16609\.\.\. lies outside "
                                             r"pcu_config_struct of mk43 \(ry\)"):
            t.where(10**5000)

    def test_names_records_and_methods_that_are_not_there(self):
        t = archspec.generation("mk43").tile("pcu")
        with pytest.raises(KeyError, match=r"no enumerant named '' \(an empty name\)"):
            t["simd_structIn[0][4].stage_opcode"] = ""
        with pytest.raises(KeyError, match="is a record, not a leaf: only a leaf holds a code"):
            t.type_of("simd_structIn[0][4]")
        with pytest.raises(AttributeError, match="^a Tile has no attribute 'update', and "
                                                 "pcu_config_struct no member named so"):
            t.update({})
