"""What a change costs a running unit, from Python: the register writes between two tiles, applied
back in every form the tool gives, the leaves that need a load, and the run-time register of a
path."""

import os
import random
import subprocess

import pytest

import archspec


def _linked(t):
    return [leaf for leaf in t.layout()
            if leaf.runtime_lo is not None or leaf.runtime_hi is not None]


class TestWrites:
    def test_random_changes_of_linked_leaves_are_reached_by_their_writes(self):
        for product in ("mk41", "mk43", "mk44"):
            g = archspec.generation(product)
            for tile in archspec.tiles():
                rng = random.Random(f"{product} {tile}")
                old = g.tile(tile)
                new = old.__copy__()
                for leaf in rng.sample(_linked(old), 10):
                    new[leaf.path] = rng.getrandbits(leaf.width)
                writes = old.writes_to(new, base=0x200)
                assert writes.load == []
                assert all(isinstance(w, archspec.Write) for w in writes.writes)
                again = old.__copy__()
                again.apply(writes, base=0x200)
                assert again == new
                # Pairs of (register, value) too, without a base.
                again = old.__copy__()
                again.apply([(w.register, w.value) for w in old.writes_to(new).writes])
                assert again == new

    def test_an_unlinked_change_needs_a_load(self):
        g = archspec.generation("mk44")
        old = g.tile("pcu")
        new = old.__copy__()
        new["CounterChain_structIn[0].counter_max_value[0]"] = 32
        new["simd_structIn[0][0].stage_opcode"] = "stage_opcode_alu_op_add"
        writes = old.writes_to(new, id=9)
        assert writes.writes == [archspec.Write("pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0", 24,
                                                32, "CounterChain_structIn[0].counter_max_value[0]",
                                                "whole")]
        assert writes.load == ["simd_structIn[0][0].stage_opcode"]

    def test_a_wide_leaf_is_written_a_word_at_a_time(self):
        g = archspec.generation("mk44")
        old = g.tile("agcu")
        new = old.__copy__()
        path = "AGCU_AGU_config[0].AGU_CSF_config.alu_imm_pool[1][2]"
        new[path] = (5 << 32) | 9
        words = [(w.register, w.value, w.word) for w in old.writes_to(new, base=1000).writes]
        assert words == [(1394, 9, "low"), (458, 5, "high")]  # the base on the low word only
        registers = old.runtime_register(path)
        assert [(r.register, r.word) for r in registers] == [(394, "low"), (458, "high")]
        assert old.runtime_register("AGCU_AGU_config[1].AGU_padded_flop") == []

    @pytest.mark.skipif(not os.environ.get("ARCHSPEC_TOOL"), reason="the tool is not built")
    def test_the_tools_forms_apply(self, tmp_path):
        g = archspec.generation("mk44")
        old = g.tile("pcu")
        new = old.__copy__()
        new["CounterChain_structIn[1].counter_stride_value[3]"] = 5
        (tmp_path / "old.sparse").write_text(old.to_sparse())
        (tmp_path / "new.sparse").write_text(new.to_sparse())
        for form, base in (("text", None), ("json", 16), ("binary", 16)):
            args = [os.environ["ARCHSPEC_TOOL"], "writes", "old.sparse", "new.sparse", "--format",
                    form] + (["--base", str(base)] if base else [])
            ran = subprocess.run(args, cwd=tmp_path, capture_output=True, check=True)
            data = ran.stdout if form == "binary" else ran.stdout.decode()
            again = old.__copy__()
            again.apply(data, base=base)
            assert again == new

    def test_refusals_change_nothing(self):
        g = archspec.generation("mk44")
        t = g.tile("pcu")
        before = t.__copy__()
        with pytest.raises(ValueError, match=r"writes\[0\]: register 999 is no run-time register "
                                             r"of the pcu on mk44 \(rye\)"):
            t.apply([(999, 1), (24, 3)])
        with pytest.raises(ValueError, match=r"writes\[1\]: register 24 .* is written 0x4 here "
                                             r"and 0x3 at writes\[0\]"):
            t.apply([(24, 3), (24, 4)])
        with pytest.raises(ValueError, match="writes no field that the tooling knows"):
            t.apply([(60, 1)])
        assert t == before
        with pytest.raises(TypeError):
            t.writes_to("pcu")
        with pytest.raises(ValueError, match="does not fit 32 bits"):
            t.writes_to(before, base=1 << 32)
        with pytest.raises(ValueError):
            t.writes_to(g.tile("pmu"))
        with pytest.raises(KeyError):
            t.runtime_register("simd_structIn[0][0]")
