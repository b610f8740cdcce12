"""Mistakes that the stubs let mypy --strict find, one a line, each marked with the error code that
mypy must report on that line: the type checker's side of the package's refusals."""

import archspec

g = archspec.generation("mk43")
t = g.tile("pcu")
t.simd_structIn[0][4].stage_opcode = 2.5  # error: assignment
t.simd_structIn[0][4].stage_opcode = None  # error: assignment
name: str = t.simd_structIn[0][4].stage_opcode  # error: assignment
t.simd_structIn = t.simd_structIn  # error: misc
t.simd_structIn[0][4].stage_result = t.simd_structIn[0][3].stage_result  # error: misc
g.constants.pcu_num_stages = 7  # error: misc
flag: bool = g.constants.cycle_time  # error: assignment
count: int = g.features.pcu_output_throttle  # error: assignment
one_index: int = t.simd_structIn[0].stage_opcode  # error: assignment
only_mk44: int = t.simd_structIn[0][0].rounding_enable  # error: assignment
mk44_stage = archspec.generation("mk44").tile("pcu").simd_structIn[0][0]
only_mk43: int = mk44_stage.drain_compute_stage  # error: assignment
by_path: int = t["simd_structIn[0][4].stage_opcode"]  # error: assignment
g.tile_from_bytes("pcu", "0101")  # error: call-overload
t.where("3620")  # error: arg-type
archspec.read(t.to_sparse(), form="text")  # error: arg-type
