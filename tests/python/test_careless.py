"""The package in careless and hostile hands: every refusal raises a Python exception that says
what is wrong in Python's terms, the interpreter goes on, and tiles, generations and records
behave as the mappings and values they are (copies, pickles, iteration, membership)."""

import copy
import pickle
import subprocess
import sys

import pytest

import archspec
from archspec import _core


@pytest.fixture
def t():
    return archspec.generation("mk43").tile("pcu")


def run_python(code):
    """Runs `code` in a new interpreter: its status and what it printed."""
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    return done.returncode, done.stdout + done.stderr


class TestNothingEndsTheInterpreter:
    @pytest.mark.parametrize("call", [
        "archspec.Generation(None).tile('pcu')",
        "archspec.Generation('mk43')",
        "archspec.Tile(None, None).to_bits()",
        "archspec.Node(None, '')",
        "_core.Tile(None, 'pcu')",
        "_core.Tile.from_bits(None, 'pcu', '0')",
        "_core.Tile.from_bytes(None, 'pcu', b'0')",
        "_core.Tile.from_sparse(None, 'pcu', '')",
    ])
    def test_public_constructors_check_what_they_are_given(self, call):
        status, output = run_python(
            f"import archspec\nfrom archspec import _core\ntry:\n    {call}\n"
            f"except TypeError as e:\n    print('TypeError:', e)\n")
        assert status == 0 and output.startswith("TypeError: "), output

    def test_a_tile_is_made_of_its_own_generation(self, t):
        with pytest.raises(ValueError, match=r"a pcu of mk43 \(ry\) is not a tile of <archspec "
                                             r"generation mk44"):
            archspec.Tile(archspec.generation("mk44"), t._core)

    def test_a_tile_without_its_internals_says_so(self, t):
        with pytest.raises(AttributeError):
            del t._core
        bare = archspec.Tile.__new__(archspec.Tile)
        for touch in (lambda: bare.simd_structIn, lambda: repr(bare), lambda: bare.to_bits()):
            with pytest.raises(AttributeError, match="_core"):
                touch()


class TestErrorsSayTheRightThing:
    def test_copying_a_record_gives_a_view_of_the_same_tile(self, t):
        record = copy.copy(t.simd_structIn[0][2])
        record.stage_opcode = 3
        assert t.simd_structIn[0][2].stage_opcode == 3
        deep = copy.deepcopy(t.simd_structIn[0][2])
        deep.stage_opcode = 4
        assert (t.simd_structIn[0][2].stage_opcode, deep.stage_opcode) == (3, 4)

    def test_bits_outside_the_tile_are_index_errors(self, t, mk43_pcu):
        for bit in (-1, mk43_pcu["bits"], 10 ** 10000, -(10 ** 10000)):
            with pytest.raises(IndexError, match="lies outside pcu_config_struct of mk43"):
                t.where(bit)
        with pytest.raises(TypeError, match="a bit position is an int, not str"):
            t.where("3")

    def test_text_that_is_not_unicode_is_refused_briefly(self, t):
        g = t.generation
        refusals = [lambda: t["\udc80" * 10000], lambda: g.tile_from_bits("pcu", "\udc80" * 10000),
                    lambda: g.tile("p\udc80"), lambda: archspec.generation("mk\udc80"),
                    lambda: t.__setitem__("simd_structIn[0][0].stage_opcode", "\udc80")]
        for refuse in refusals:
            with pytest.raises(ValueError, match="is not valid Unicode") as raised:
                refuse()
            assert len(str(raised.value)) < 400 and "Invoked with" not in str(raised.value)
        assert "\udc80" not in g.constants and not g.constants.__contains__(3)

    def test_generations_and_their_answers_are_read_only(self):
        g = archspec.generation("mk43")
        for target, name in ((g, "constants"), (g, "product"), (g.constants, "pcu_num_stages")):
            with pytest.raises(AttributeError, match="read only"):
                setattr(target, name, None)
        assert archspec.generation("mk43").constants.pcu_num_stages == 6

    def test_attributes_of_a_tile_are_not_fields(self, t, mk43_pcu):
        with pytest.raises(AttributeError, match="bits of tile pcu_config_struct is read only"):
            t.bits = 5
        with pytest.raises(AttributeError, match="unknown path no_such_field"):
            t.no_such_field = 1
        assert t.bits == mk43_pcu["bits"]

    def test_a_negative_index_is_reported_as_given(self, t):
        with pytest.raises(IndexError, match="index -5 out of range for simd_structIn, which "
                                             "has 4 elements"):
            t.simd_structIn[-5]
        assert t.simd_structIn[-1].path == "simd_structIn[3]"

    @pytest.mark.parametrize("name, shown", [
        ("mk4\x003", r"no generation is named 'mk4\x003'"), ("ry", "no generation is named 'ry'"),
        ("", "the name of a generation is empty"), ("native", "name one of mk41"),
    ])
    def test_generation_names_are_refused_in_python_terms(self, name, shown):
        with pytest.raises(ValueError) as raised:
            archspec.generation(name)
        assert shown in str(raised.value) and "--arch" not in str(raised.value)

    def test_bit_text_that_looks_packed_points_to_tile_from_bytes(self, mk43_pcu):
        with pytest.raises(ValueError, match=r"\(packed bytes are read by tile_from_bytes\)$"):
            archspec.generation("mk43").tile_from_bits("pcu", "\x01" * mk43_pcu["bits"])


class TestListingHeaders:
    def test_a_listing_for_another_generation_or_tile_is_refused(self):
        mk44 = archspec.generation("mk44")
        for header in ("# archspec mk41 agcu", "# archspec mk44 pcu"):
            listing = f"{header}\nAGCU_AGU_config[0].AGU_ECF_config.AGU_ECF_SLB_RETAIN_config[0]" \
                      f".AGU_ECF_SLB_vsid = 1\n"
            with pytest.raises(ValueError, match="^listing:1: error: the listing is for .*, not "
                                                 "for mk44 agcu; force=True reads it anyway$"):
                mk44.tile_from_sparse("agcu", listing)
            assert len(mk44.tile_from_sparse("agcu", listing, force=True).nonzero()) == 1
        assert mk44.tile_from_sparse("agcu", "# archspec MK44 AGCU\n").nonzero() == {}


class TestRecordsAreMappings:
    def test_members_by_name_in_bit_order(self, t):
        stage = t.simd_structIn[0][2]
        stage.stage_opcode = 5
        assert list(stage)[:2] == stage.keys()[:2] == ["stage_immediate", "stage_opA_src"]
        assert dict(stage.items())["stage_opcode"] == 5 == stage["stage_opcode"]
        assert "stage_opcode" in stage and "no_such" not in stage and 3 not in stage
        assert list(t)[0] == "ecf_seq_counter_in" and "simd_structIn" in t and "x" not in t
        assert "simd_structIn[0][2].stage_opcode" in t
        assert stage.to_dict()["simd_structIn[0][2].stage_opcode"] == 5
        assert all(path.startswith("simd_structIn[0][2].") for path in stage.to_dict())
        assert isinstance(dict(t.items())["simd_structIn"], archspec.Node)
        assert len(t.simd_structIn) == 4 and t.simd_structIn.keys() == [0, 1, 2, 3]

    def test_every_node_says_where_it_lies(self, t, mk43_pcu):
        stage = t["simd_structIn[0][2]"]
        leaves = [leaf for leaf in t.layout() if leaf.path.startswith("simd_structIn[0][2].")]
        assert stage.path == "simd_structIn[0][2]"
        assert stage.offset == leaves[0].offset
        assert stage.width == sum(leaf.width for leaf in leaves)
        assert (t.path, t.offset, t.width) == ("", 0, mk43_pcu["bits"])


def test_the_tree_of_what_is_set_is_the_tools(t):
    t.simd_structIn[0][2].stage_opcode = 3
    tree = t.to_tree(nonzero=True, codes=True).splitlines()
    assert tree[0] == "{" and tree[-1] == "}" and len(tree) == 9
    assert tree[4].strip().startswith("stage_opcode = ") and tree[4].endswith(" 0x3")
    assert archspec.generation("mk43").tile("pcu").to_tree(nonzero=True) == "{\n}\n"


class TestPicklesAndCopies:
    def test_tiles_generations_and_answers_pickle(self, t):
        t.simd_structIn[0][4].stage_opcode = "stage_opcode_alu_op_max"
        for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
            again = pickle.loads(pickle.dumps(t, protocol))
            assert again == t and again.generation is t.generation
        g = t.generation
        assert pickle.loads(pickle.dumps(g)) is g
        assert pickle.loads(pickle.dumps(g.features)).fp8_support is False
        node = pickle.loads(pickle.dumps(t.simd_structIn[0][4]))
        assert node.stage_opcode == t.simd_structIn[0][4].stage_opcode

    def test_deep_copies_share_the_generation_and_not_the_values(self, t):
        holder = {"tile": t, "generation": t.generation}
        deep = copy.deepcopy(holder)
        assert deep["generation"] is t.generation and deep["tile"] == t
        deep["tile"].ecf_seq_counter_in = 1
        assert t.ecf_seq_counter_in == 0


def test_the_version_is_the_projects():
    assert archspec.__version__ == _core.version
    assert archspec.__version__.count(".") == 2
