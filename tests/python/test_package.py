"""The Python package archspec: answers, tiles, round trips against the archspec tool, refusals
that raise and leave the interpreter running, and the examples."""

import copy
import os
import pathlib
import random
import subprocess
import sys

import pytest

import archspec

TOOL = os.environ.get("ARCHSPEC_TOOL")
ROOT = pathlib.Path(__file__).resolve().parents[2]
SELECTABLE = [g.product for g in archspec.generations() if g.selectable]


def tool(*args, stdin=None):
    """Runs the archspec tool; its standard output."""
    if TOOL is None:
        pytest.skip("ARCHSPEC_TOOL is not set: the round trips need the archspec tool")
    return subprocess.run([TOOL, *args], input=stdin, capture_output=True, check=True).stdout


def random_tile(g, name, seed):
    """A tile whose every leaf holds a random value that fits it."""
    tile = g.tile(name)
    rng = random.Random(seed)
    for leaf in tile.layout():
        tile[leaf.path] = rng.getrandbits(leaf.width)
    return tile


class TestGenerations:
    def test_the_table_of_generations(self):
        rows = archspec.generations()
        assert [r.code_name for r in rows][:4] == ["ko", "uko", "ry", "rye"]
        vi = next(r for r in rows if r.code_name == "vi")
        assert (vi.product, vi.records, vi.selectable) == (None, None, False)

    def test_product_names_in_any_case_name_one_generation(self):
        g = archspec.generation("MK43")
        assert g is archspec.generation("mk43")
        assert (g.product, g.code_name, g.records, g.version) == ("mk43", "ry", "ry", "3")

    @pytest.mark.parametrize("name, words", [
        ("ry", "no generation is named 'ry'; the generations are mk41, mk42, mk43 and mk44"),
        ("native", "the generation is not found out from the machine: name one of mk41"),
        ("", "the name of a generation is empty; the generations are mk41"),
    ])
    def test_unknown_generation_is_refused_in_the_tooling_words(self, name, words):
        with pytest.raises(ValueError, match=words):
            archspec.generation(name)


class TestAnswers:
    def test_attribute_and_item_access_agree_with_the_tool(self):
        g = archspec.generation("mk43")
        assert g.constants.ag_chip_id_width == g.constants["ag_chip_id_width"] == 12
        expected = tool("get", "--arch", "mk43", "stage_opcode_alu_op_max").decode()
        assert f"stage_opcode_alu_op_max = {g.constants.stage_opcode_alu_op_max}\n" == expected
        assert isinstance(g.constants.agcu_rows, list)
        assert isinstance(g.features.fp8_support, bool)
        assert g.constraints["pcu_requires_context_done"] in (True, False)

    def test_answered_ones_are_counted_and_iterated(self):
        g = archspec.generation("mk41")
        pairs = list(g.constants)
        assert len(pairs) == len(g.constants) == len(g.constants.names())
        assert ("ag_addr_width", 52) in pairs
        assert "ag_addr_width" in g.constants and "ag_chip_id_width" not in g.constants
        assert "stage_opcode_alu_op_add" in dir(g.constants)

    def test_generations_answer_side_by_side(self):
        ko, uko, rye = (archspec.generation(n) for n in ("mk41", "mk42", "mk44"))
        assert (ko.constants.num_chips_per_host, uko.constants.num_chips_per_host) == (8, 16)
        assert ko.constants.ag_addr_width == uko.constants.ag_addr_width
        assert rye.features.fp8_support and not ko.features.fp8_support

    def test_unknown_and_unanswered_accessors(self):
        g = archspec.generation("mk41")
        with pytest.raises(AttributeError, match="did you mean ag_addr_width"):
            g.constants.ag_adr_width
        with pytest.raises(KeyError, match="did you mean ag_addr_width"):
            g.constants["ag_adr_width"]
        with pytest.raises(archspec.NotAnswered, match="ag_chip_id_width is not answered by mk41"):
            g.constants.ag_chip_id_width
        assert issubclass(archspec.NotAnswered, LookupError)
        with pytest.raises(TypeError):
            g.constants[3]


class TestTiles:
    def test_navigation_by_attribute_index_and_path(self):
        g = archspec.generation("mk43")
        t = g.tile("pcu")
        t.simd_structIn[0][4].stage_opcode = g.constants.stage_opcode_alu_op_max
        assert t["simd_structIn[0][4].stage_opcode"] == g.constants.stage_opcode_alu_op_max
        t["simd_structIn[0][3].stage_opcode"] = "stage_opcode_alu_op_max"
        assert t.simd_structIn[0][3].stage_opcode == g.constants.stage_opcode_alu_op_max
        assert len(t.simd_structIn) == 4 and t.simd_structIn[-1][0].stage_opcode == 0
        # In the record's order: element 3 before element 4.
        assert list(t.nonzero()) == ["simd_structIn[0][3].stage_opcode",
                                     "simd_structIn[0][4].stage_opcode"]

    def test_every_tile_of_every_generation_lives_in_one_process(self):
        # Far more ids than the table of field locations holds at once: layouts are data.
        tiles = [random_tile(archspec.generation(p), t, seed)
                 for seed, (p, t) in enumerate((p, t) for p in SELECTABLE
                                               for t in archspec.tiles())]
        for tile in tiles:
            g = tile.generation
            assert g.tile_from_bits(tile.tile, tile.to_bits()) == tile
            assert g.tile_from_bytes(tile.tile, tile.to_bytes()) == tile
            assert g.tile_from_sparse(tile.tile, tile.to_sparse()) == tile
            assert len(tile.to_bits()) == tile.bits == tile.layout()[-1].offset + \
                tile.layout()[-1].width

    @pytest.mark.parametrize("product, tile", [("mk41", "switch"), ("mk43", "pcu"),
                                               ("mk44", "agcu")])
    def test_the_same_configuration_through_python_and_the_tool(self, product, tile, tmp_path):
        t = random_tile(archspec.generation(product), tile, 7)
        listing = tmp_path / "config.sparse"
        listing.write_text(t.to_sparse())
        assert tool("encode", "--arch", product, tile, str(listing)).decode().strip() == \
            t.to_bits()
        bits = tmp_path / "config.bits"
        bits.write_text(t.to_bits())
        decoded = tool("decode", "--arch", product, tile, str(bits), "--format", "sparse")
        assert [line for line in decoded.decode().splitlines() if not line.startswith("#")] == \
            [line for line in t.to_sparse().splitlines() if not line.startswith("#")]
        assert tool("decode", "--arch", product, tile, str(bits)).decode() == t.to_tree()

    def test_where_layout_diff_copy_and_equality(self):
        g = archspec.generation("mk43")
        t = g.tile("pcu")
        where = t.where(3620)
        leaf = next(leaf for leaf in t.layout() if leaf.path == where.path)
        assert leaf.offset <= 3620 < leaf.offset + leaf.width
        assert where.value_bit == leaf.width - 1 - (3620 - leaf.offset)
        other = copy.copy(t)
        assert other == t and other is not t
        other[where.path] = 1 << where.value_bit
        assert t != other and t.diff(other) == [(where.path, 0, 1 << where.value_bit)]
        assert other.nonzero() == {where.path: 1 << where.value_bit}
        assert len(t.to_dict()) == len(t.layout())
        assert t.to_tree().startswith("{\n")


class TestRefusals:
    """Every bad input raises, says what and where, and the interpreter goes on."""

    def test_paths_and_indexes(self):
        t = archspec.generation("mk43").tile("pcu")
        with pytest.raises(KeyError, match="did you mean simd_structIn"):
            t["simd_structIn[0][4].stage_opcod"]
        with pytest.raises(KeyError, match=r"unknown path simd_structIn\[0\]\[9\] in pcu_config_struct"):
            t["simd_structIn[0][9]"]
        with pytest.raises(IndexError, match="index 9 out of range for simd_structIn, which has 4"):
            t.simd_structIn[9]
        with pytest.raises(AttributeError, match="array of 4 elements"):
            t.simd_structIn.stage_opcode
        with pytest.raises(AttributeError, match="^a Tile has no attribute 'no_such_field', and "
                                                 "pcu_config_struct no member named so"):
            t.no_such_field
        with pytest.raises(TypeError, match="not a leaf"):
            t.simd_structIn[0][4] = 3

    def test_values(self):
        g = archspec.generation("mk43")
        t = g.tile("pcu")
        path = "simd_structIn[0][4].stage_opcode"
        with pytest.raises(ValueError, match=r"value 32 does not fit in 5 bits of simd_structIn"):
            t[path] = 32
        with pytest.raises(ValueError, match="negative"):
            t[path] = -1
        with pytest.raises(ValueError, match="does not fit"):
            t[path] = 1 << 200
        with pytest.raises(TypeError, match="must be an int or an enumerant name, not float"):
            t[path] = 1.5
        with pytest.raises(KeyError, match="did you mean stage_opcode_alu_op_add"):
            t[path] = "stage_opcode_alu_op_addd"
        with pytest.raises(archspec.NotAnswered, match="not answered by mk43"):
            t["simd_structIn[0][4].data_format"] = "alu_format_enum_fp8_143a"
        assert t[path] == 0  # nothing was stored

    def test_texts_bytes_and_listings(self, mk43_pcu):
        g = archspec.generation("mk43")
        with pytest.raises(ValueError, match=r"bit text:1:5: error: character 'x' at bit 4"):
            g.tile_from_bits("pcu", "0000x")
        with pytest.raises(ValueError, match="4 bits, but pcu_config_struct of mk43"):
            g.tile_from_bits("pcu", "0000")
        with pytest.raises(ValueError, match="2 bytes, but pcu_config_struct of mk43"):
            g.tile_from_bytes("pcu", b"\0\0")
        bits = mk43_pcu["bits"]
        padded = bytearray(mk43_pcu["bytes"])  # the first padding bit set
        padded[bits // 8] = 0x80 >> bits % 8
        with pytest.raises(ValueError, match=f"padding bit {bits}"):
            g.tile_from_bytes("pcu", bytes(padded))
        with pytest.raises(ValueError, match="listing:2: error: unknown path no_such_leaf"):
            g.tile_from_sparse("pcu", "# header\nno_such_leaf = 1\n")
        with pytest.raises(ValueError, match="unknown tile 'agu'; the tiles are pcu, pmu"):
            g.tile("agu")
        with pytest.raises(IndexError, match="lies outside"):
            g.tile("pcu").where(bits)


def test_help_reads_well():
    text = subprocess.run([sys.executable, "-c", "import archspec; help(archspec)"],
                          capture_output=True, text=True, check=True,
                          env={**os.environ, "PAGER": "cat"}).stdout
    assert "tile_from_bytes" in text and "NotAnswered" in text


def test_the_examples_run(tmp_path):
    examples = ROOT / "examples" / "python"
    run = dict(capture_output=True, text=True, check=True, cwd=tmp_path)
    made = subprocess.run([sys.executable, examples / "program_pcu.py", "pcu.bin"], **run).stdout
    assert made.startswith("pcu_config_struct of mk43:") and (tmp_path / "pcu.bin").exists()
    shown = subprocess.run([sys.executable, examples / "decode_config.py", "mk43", "pcu",
                            "pcu.bin"], **run).stdout
    assert "simd_structIn[0][1].stage_opcode = 26  (stage_opcode_alu_op_max)" in shown
