#!/usr/bin/env bash
# The configuration workflow: the sparse diff of two configurations patches the first into the
# second, in the text and the packed form and in place; a patch changes only the leaves it names;
# a refused patch leaves its output as it was, with nothing beside it.
#   patch.sh ARCHSPEC DATA WORKDIR
set -euo pipefail
archspec=$1
data=$2
work=$3
rm -rf "$work"
mkdir -p "$work"
tool() { "$archspec" "$1" --arch mk43 pcu "${@:2}"; }

# diff --format sparse, then patch: B again, bit for bit.
tool diff "$data/before.bits" "$data/after.bits" --format sparse > "$work/delta.sparse"
head -1 "$work/delta.sparse" | grep -qx '# archspec mk43 pcu'
tool patch "$data/before.bits" "$work/delta.sparse" -o "$work/patched.bits"
cmp "$data/after.bits" "$work/patched.bits"

# The other way round, a leaf going back to 0 included; and from listings.
tool diff "$data/after.bits" "$data/before.bits" --format sparse > "$work/undo.sparse"
grep -q ' = 0x' "$work/undo.sparse"
tool patch "$work/patched.bits" "$work/undo.sparse" -o "$work/patched.bits"
cmp "$data/before.bits" "$work/patched.bits"
tool diff --sparse "$data/before.sparse" "$data/after.sparse" --format sparse | cmp - "$work/delta.sparse"

# The packed form in, the packed form out.
tool encode "$data/after.sparse" --bytes -o "$work/after.bin"
tool patch --bytes "$data/before.bin" "$work/delta.sparse" > "$work/patched.bin"
cmp "$work/after.bin" "$work/patched.bin"

# Only the named leaves change; standard input may be the configuration or the change.
tool patch - "$data/fix.sparse" < "$data/before.bits" > "$work/fixed.bits"
tool diff "$data/before.bits" "$work/fixed.bits" > "$work/fixed.diff"
grep -q '^common_structIn.udc_init_value\[0\]: 0x4 -> 0x0  # register [0-9]*, no run-time register$' "$work/fixed.diff"
grep -q '^# 2 of [0-9]* leaves differ' "$work/fixed.diff"
tool patch "$data/before.bits" - < "$data/fix.sparse" | cmp - "$work/fixed.bits"

# A refused patch writes nothing: the output keeps its content, and no file is left beside it.
cp "$data/after.bits" "$work/kept.bits"
before=$(find "$work" -mindepth 1 -maxdepth 1 | wc -l)
if tool patch "$data/before.bits" "$data/bad.sparse" -o "$work/kept.bits" 2> "$work/errors"; then
  echo "a bad change was applied"
  exit 1
fi
grep -q 'bad.sparse:5: error: unknown path' "$work/errors"
cmp "$data/after.bits" "$work/kept.bits"
[ "$(find "$work" -mindepth 1 -maxdepth 1 | wc -l)" = "$((before + 1))" ]
echo "patch workflow: ok"
