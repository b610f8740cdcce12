#!/usr/bin/env bash
# archspec at work on a small PCU program for mk43: encode it, decode it back, find a bit, and ask
# the constants interface.
#   examples/demo.sh BUILD_DIR
set -euo pipefail
if [ $# -ne 1 ]; then
  echo "usage: $0 BUILD_DIR" >&2
  exit 2
fi
archspec="$1/tools/cli/archspec"
here=$(cd "$(dirname "$0")" && pwd)
program="$here/pcu_program.sparse"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

step() { printf '\n== %s\n' "$1"; }

step "The program: a sparse listing, opcodes and crossbar selections by enumerant name"
grep -E '^(simd|interface)' "$program" | head -6
echo "... ($(grep -cE '^[a-zA-Z]' "$program") assignments in $(basename "$program"))"

step "Encode it into the $("$archspec" layout --arch mk43 pcu | head -1 | sed 's/^# //')"
"$archspec" encode --arch mk43 pcu "$program" -o "$work/prog.bits"
echo "prog.bits: $(tr -d '\n' < "$work/prog.bits" | wc -c) bits, $(tr -cd 1 < "$work/prog.bits" | wc -c) of them set"

step "Decode the bits back to the canonical listing (the record's order, codes by name)"
echo "(a leaf at 0 is listed where 0 has a name and its record holds another leaf set, as the madd"
echo " opcode of stage 0 is; the other zeros are the default and are not listed)"
"$archspec" decode --arch mk43 pcu "$work/prog.bits" --format sparse

step "A name of the wrong kind is refused: a number format is no opcode"
echo 'simd_structIn[0][1].stage_opcode = alu_format_enum_fp32' > "$work/wrong.sparse"
"$archspec" patch --arch mk43 pcu "$work/prog.bits" "$work/wrong.sparse" 2>&1 | sed "s|$work/||" || true

step "A raw code is taken, and check reports the one that no opcode has"
echo 'simd_structIn[0][2].stage_opcode = 11' > "$work/raw.sparse"
"$archspec" patch --arch mk43 pcu "$work/prog.bits" "$work/raw.sparse" -o "$work/raw.bits"
"$archspec" check --arch mk43 pcu "$work/raw.bits" | sed "s|$work/||" || true

step "Which leaf holds a bit of the opcode of stage 1?"
offset=$("$archspec" layout --arch mk43 pcu --csv | grep '^simd_structIn\[0\]\[1\]\.stage_opcode,' | cut -d, -f2)
"$archspec" where --arch mk43 pcu $((offset + 1))

step "Ask the constants interface of mk43"
"$archspec" get --arch mk43 stage_opcode_alu_op_max pcu_num_stages pcu_ctrchain_ctr_width
