#!/usr/bin/env python3
"""Decodes a configuration and prints what is set: every field that is not 0, where it lies, and
the enumerant names its code stands for, where the field is an opcode.

    decode_config.py GENERATION TILE FILE      FILE: packed bytes, as program_pcu.py writes them
"""
import sys

import archspec

if len(sys.argv) != 4:
    sys.exit(__doc__.strip().splitlines()[-1].strip())
name, tile_name, path = sys.argv[1:]
g = archspec.generation(name)
with open(path, "rb") as f:
    tile = g.tile_from_bytes(tile_name, f.read())

# The stage opcodes of this generation, by code, to name them.
opcodes = {code: n for n, code in g.constants if n.startswith("stage_opcode_")}
leaves = {leaf.path: leaf for leaf in tile.layout()}
print(f"{tile.record} of {g.product}: {tile.bits} bits")
for field, value in tile.nonzero().items():
    leaf = leaves[field]
    named = f"  ({opcodes[value]})" if field.endswith(".stage_opcode") and value in opcodes else ""
    print(f"  bits {leaf.offset:5}..{leaf.offset + leaf.width - 1:<5} {field} = {value}{named}")
