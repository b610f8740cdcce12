#!/usr/bin/env bash
# encode then decode gives the canonical listing, whatever the spelling of the input; the text and
# byte forms carry the same configuration; a canonical listing encodes to the same bits again.
#   roundtrip.sh ARCHSPEC LISTING WORKDIR
set -euo pipefail
archspec=$1
listing=$2
work=$3
mkdir -p "$work"
"$archspec" encode --arch mk43 pcu "$listing" -o "$work/a.bits"
"$archspec" encode --arch mk43 pcu "$listing" --bytes -o "$work/a.bin"
"$archspec" decode --arch mk43 pcu "$work/a.bits" --format sparse > "$work/a.sparse"
"$archspec" decode --arch mk43 pcu "$work/a.bin" --bytes --format sparse > "$work/b.sparse"
cmp "$work/a.sparse" "$work/b.sparse"

# The canonical listing is a fixed point.
"$archspec" encode --arch mk43 pcu "$work/a.sparse" -o "$work/c.bits"
cmp "$work/a.bits" "$work/c.bits"

# Names as the canonical listing writes them, and numbers alone with --codes.
grep -q '^simd_structIn\[0\]\[1\]\.stage_opcode = stage_opcode_alu_op_max$' "$work/a.sparse"
"$archspec" decode --arch mk43 pcu "$work/a.bits" --format sparse --codes > "$work/codes.sparse"
grep -q '^simd_structIn\[0\]\[1\]\.stage_opcode = 0x1a$' "$work/codes.sparse"

# Reordered, re-spelt in decimal, with comments and blank lines: the same canonical listing.
grep -v '^#' "$work/codes.sparse" | sort -r | while read -r path _ value; do
  printf '\n# moved\n  %s=%d\n' "$path" "$value"
done > "$work/shuffled.sparse"
"$archspec" encode --arch mk43 pcu "$work/shuffled.sparse" | \
  "$archspec" decode --arch mk43 pcu - --format sparse > "$work/d.sparse"
cmp "$work/a.sparse" "$work/d.sparse"

# The tree is the library's printed form of the registered record: place, registers, width, value.
"$archspec" decode --arch mk43 pcu "$work/a.bits" > "$work/a.tree"
grep -Eq '^        stage_opcode = \[0x[0-9a-f]{4}:[0-9]+\]/5 0x1a \(stage_opcode_alu_op_max\)$' "$work/a.tree"

# Every line of the canonical listing is a value that was set.
[ "$(grep -vc '^#' "$work/a.sparse")" -gt 10 ]
if grep -q ' = 0x0$' "$work/a.sparse"; then
  echo "the canonical listing holds a zero value"
  exit 1
fi
echo "round trip of $(grep -vc '^#' "$work/a.sparse") leaves: ok"
