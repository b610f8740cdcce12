#!/usr/bin/env bash
# Moving a configuration to another generation, as a user does it: the demonstration's program
# ported to mk44 (its vecdestPMU has no place there), then encoded, decoded and checked clean; the
# way back; the exit statuses and the report's JSON; mk41 and mk42 bit for bit; and the
# comparison across generations in its three forms.
#   port.sh ARCHSPEC EXAMPLE WORKDIR
set -euo pipefail
archspec=$1
example=$2
work=$3
rm -rf "$work"
mkdir -p "$work"
cd "$work"
fail() {
  echo "FAIL: $*" >&2
  exit 1
}
status() {
  local got=0
  "$archspec" "$@" > out 2> err || got=$?
  echo "$got"
}

# Something did not move: status 3, the report names it, and nothing is written without --partial.
[ "$(status port --to mk44 --arch mk43 pcu "$example")" = 3 ] || fail "port of the example: status"
[ ! -s out ] || fail "a port that lost a leaf wrote a configuration without --partial"
grep -qx 'output_structIn\[0\]\.vecdestPMU = 0x1: the field does not exist on mk44' err ||
  fail "the report does not name vecdestPMU: $(cat err)"
if grep -q 'did you mean' err; then fail "the report suggests another field"; fi
grep -q '^# 1 leaf of mk43 pcu did not move exactly to mk44$' err || fail "the report's count"

# --partial writes what did move, with the target's header; it encodes, decodes and checks clean.
[ "$(status port --to mk44 --arch mk43 pcu "$example" --partial -o p44.sparse)" = 3 ] ||
  fail "--partial: status"
head -1 p44.sparse | grep -qx '# archspec mk44 pcu' || fail "the port's header"
grep -q '^simd_structIn\[0\]\[0\]\.stage_opcode = stage_opcode_alu_op_madd$' p44.sparse ||
  fail "the opcode did not move by name"
"$archspec" encode p44.sparse -o p44.bits
"$archspec" decode --arch mk44 pcu p44.bits --format sparse | cmp - p44.sparse ||
  fail "the port does not read back as written"
"$archspec" check --arch mk44 pcu p44.bits > check.txt || fail "check of the port: $(cat check.txt)"
grep -q '^# 0 leaves of' check.txt || fail "check found something in the port"

# Back to mk43: everything moves, and only the lost leaf differs from the original.
[ "$(status port --to mk43 p44.sparse -o p43.sparse)" = 0 ] || fail "the way back: $(cat err)"
"$archspec" diff --arch mk43 pcu --sparse "$example" p43.sparse > back.diff || true
grep -q '^output_structIn\[0\]\.vecdestPMU: 0x1 -> 0x0\( \|$\)' back.diff || fail "the way back: $(cat back.diff)"
grep -q '^# 1 of [0-9]* leaves differ' back.diff || fail "the way back changed more than one leaf"

# The report's JSON, read by a JSON parser; and the other forms of the port.
status port --to mk44 --arch mk43 pcu "$example" --json > /dev/null
python3 -c '
import json, sys
report = json.load(open("err"))
assert report["from"] == "mk43" and report["to"] == "mk44" and not report["exact"], report
lost = [(e["path"], e["reason"], e["value"]) for e in report["lost"]]
assert lost == [("output_structIn[0].vecdestPMU", "no-field", "0x1")], lost
assert all("name" in leaf for leaf in report["review"]), report["review"]
' || fail "the report's JSON"
[ "$(status port --to mk43 p44.sparse --format bytes -o p43.bin)" = 0 ] || fail "--format bytes"
"$archspec" decode --arch mk43 pcu p43.bin --format sparse | cmp - p43.sparse || fail "bytes"

# Bad usage and bad data.
[ "$(status port --to mk99 p44.sparse)" = 2 ] || fail "unknown --to: status"
grep -q "no generation is named 'mk99'" err || fail "unknown --to: $(cat err)"
printf 'no_such_leaf = 1\n' > bad.sparse
[ "$(status port --to mk44 --arch mk43 pcu bad.sparse)" = 1 ] || fail "bad data: status"

# mk41 and mk42 share records and codes: a port between them keeps every bit.
"$archspec" port --to mk41 --arch mk43 pcu p43.sparse --partial -o ko.sparse 2> /dev/null || true
"$archspec" encode ko.sparse -o ko.bits
[ "$(status port --to mk42 --arch mk41 pcu ko.bits --format bits -o uko.bits)" = 0 ] ||
  fail "mk41 to mk42: $(cat err)"
cmp ko.bits uko.bits || fail "mk41 to mk42 changed bits"

# diff across generations (each file's header names its own): by meaning, so a port differs from
# its source only where it lost.
"$archspec" decode --arch mk43 pcu "$example" --sparse --format sparse > orig.sparse
"$archspec" diff orig.sparse p44.sparse > across.txt || true
grep -q '^output_structIn\[0\]\.vecdestPMU: 0x1 -> (no such leaf on mk44)\( \|$\)' across.txt ||
  fail "diff across: $(cat across.txt)"
if grep -q 'stage_opcode' across.txt; then fail "diff across compares codes by number"; fi
grep -q '^# [0-9]* paths\? differs\? in meaning between .* (mk43) and .* (mk44)$' across.txt ||
  fail "diff across: the count line"
"$archspec" diff orig.sparse p44.sparse --format sparse > across.sparse || true
head -1 across.sparse | grep -qx '# archspec mk44 pcu' || fail "diff across, sparse: header"
grep -qx '# only on mk43: output_structIn\[0\]\.vecdestPMU = 0x1' across.sparse ||
  fail "diff across, sparse"
"$archspec" diff orig.sparse p44.sparse --format json |
  python3 -c '
import json, sys
d = json.load(sys.stdin)
assert (d["a_arch"], d["b_arch"]) == ("mk43", "mk44"), d
only_a = [x["path"] for x in d["differences"] if "b" not in x]
assert only_a == ["output_structIn[0].vecdestPMU"], only_a
' || fail "diff across, json"
[ "$(status diff orig.sparse p44.sparse --exit-code)" = 3 ] || fail "diff across --exit-code"
echo "port: passed"
