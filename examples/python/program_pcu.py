#!/usr/bin/env python3
"""Programs a compute tile of mk43 by names, and writes its configuration as bytes.

A two-stage SIMD pipeline in context 0: stage 0 multiplies and adds, stage 1 keeps the larger of
the result and zero (a ReLU), both in fp32; counter chain 0 counts 1024 vectors.

    program_pcu.py [OUT]        OUT: where the bytes go (default: pcu.bin in the current directory)
"""
import sys

import archspec

g = archspec.generation("mk43")
c = g.constants
pcu = g.tile("pcu")

# Stage 0 of context 0: a * b + c, every operand from the stage's own inputs.
stage = pcu.simd_structIn[0][0]
stage.stage_opcode = c.stage_opcode_alu_op_madd
stage.stage_opA_src = c.stage_opa_src_opa_this
stage.stage_opB_src = c.stage_opb_src_opb_this
stage.stage_opC_src = c.stage_opc_src_opc_this
stage.data_format = c.alu_format_enum_fp32
stage.stage_result[0] = 1

# Stage 1: max(previous result, 0), names given as text this time.
pcu["simd_structIn[0][1].stage_opcode"] = "stage_opcode_alu_op_max"
pcu["simd_structIn[0][1].stage_opB_src"] = "stage_opb_src_opb_zero"
pcu["simd_structIn[0][1].data_format"] = "alu_format_enum_fp32"

# Counter chain 0 counts 1024 vectors, one at a time.
pcu.CounterChain_structIn[0].counter_max_value[0] = 1023
pcu.CounterChain_structIn[0].counter_stride_value[0] = 1

out = sys.argv[1] if len(sys.argv) > 1 else "pcu.bin"
data = pcu.to_bytes()
with open(out, "wb") as f:
    f.write(data)
print(f"{pcu.record} of {g.product}: {len(pcu.nonzero())} fields set, {len(data)} bytes in {out}")
