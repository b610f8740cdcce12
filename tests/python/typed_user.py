"""A user's strictly typed script: archspec used as the README uses it, which mypy --strict accepts
with the types asserted at each step. Run, it checks what it reads back."""

import copy
import pickle
import sys
from typing import Optional, assert_type

import archspec

# Programmed by attribute and index: every step is typed, down to the leaf.
g = archspec.generation("mk43")
t = g.tile("pcu")
t.simd_structIn[0][4].stage_opcode = g.constants.stage_opcode_alu_op_max
assert_type(t.simd_structIn[0][4].stage_opcode, int)
t.simd_structIn[0][3].stage_opcode = "stage_opcode_alu_op_max"  # a leaf takes a name too
t.simd_structIn[0][1].stage_result[0] = 1  # an element of a packed array
assert_type(t.simd_structIn[0][1].stage_result[0], int)
t["simd_structIn[0][2].stage_opcode"] = "stage_opcode_alu_op_max"  # by path, by name
again = g.tile_from_bytes("pcu", t.to_bytes())
assert again == t and copy.copy(t) == t and pickle.loads(pickle.dumps(t)) == t
assert t.simd_structIn[0][4].stage_opcode == t.simd_structIn[0][3].stage_opcode != 0

# Answers by name, each of its own type.
assert_type(g.constants.pcu_num_stages, int)
assert_type(g.constants.cycle_time, float)
assert_type(g.constants.agcu_rows, list[int])
assert_type(g.features.fp8_support, bool)
assert_type(g.features.pcu_output_throttle, Optional[int])
hbm = archspec.generation("MK44").features.hbm_support
assert hbm is not None and all(isinstance(rate, float) for rate in hbm["rates"])
assert_type(hbm["count"], int)
opcodes = {code: name for name, code in g.constants if name.startswith("stage_opcode_")}

# Records and arrays iterate as their members' names and their elements.
stages = t.simd_structIn[0]
assert_type(len(stages), int)
assert [stage.stage_opcode for stage in stages][1:5] == [0, 26, 26, 26]
members: list[str] = list(t.simd_structIn[0][0])
assert members[:2] == ["stage_immediate", "stage_opA_src"]
mk44_stage = archspec.generation("mk44").tile("pcu").simd_structIn[0][0]
mk44_stage.rounding_enable = 1  # a member of mk44's records only

# A path, or a generation named at run time, reaches a leaf or a record: isinstance says which.
stage = t["simd_structIn[0][2]"]
assert isinstance(stage, archspec.Node)
assert (stage.path, stage.width, stage["stage_opcode"]) == ("simd_structIn[0][2]", 82, 26)
named = archspec.generation(sys.argv[1] if len(sys.argv) > 1 else "mk42").tile("pcu")
leaf = named["simd_structIn[0][2].stage_opcode"]
assert isinstance(leaf, int) and leaf == 0
read = named.simd_structIn
assert isinstance(read, archspec.Node) and len(read) > 0
listing = t.to_sparse()
assert archspec.read(listing) == t and opcodes[26] == "stage_opcode_alu_op_max"

# What a change costs the running unit: the register writes, and what needs a load.
running = archspec.generation("mk44").tile("pcu")
next_one = running.__copy__()
next_one.CounterChain_structIn[0].counter_max_value[0] = 32
update = running.writes_to(next_one, base=0x100)
assert_type(update, archspec.Writes)
assert [(w.register, w.value) for w in update.writes] == [(0x100 + 24, 32)] and update.load == []
running.apply(update, base=0x100)
assert running == next_one
assert_type(running.runtime_register("CounterChain_structIn[0].counter_max_value[0]")[0].register,
            int)
print(listing.splitlines()[0], len(t.nonzero()), "leaves not 0")
