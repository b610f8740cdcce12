#!/usr/bin/env bash
# Every subcommand that reads a configuration, and every operand of it, refuses a listing or JSON
# that names another generation or tile, with the file, its line and the way to read it anyway;
# and reads what decode writes as JSON back to the same bits.
#   foreign_input.sh ARCHSPEC
set -euo pipefail
archspec=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAIL: $*"; exit 1; }

printf 'simd_structIn[0][4].stage_opcode = stage_opcode_alu_op_max\n' |
  "$archspec" encode --arch mk43 pcu - > mine.bits
"$archspec" decode --arch mk43 pcu mine.bits --format json > mine.json
"$archspec" encode mine.json | cmp -s - mine.bits || fail "encode of decode's JSON differs"
printf '# archspec mk44 pcu\n' > other.sparse
printf '# archspec mk43 pmu\n' > other_tile.sparse
"$archspec" encode --arch mk44 pcu /dev/null | "$archspec" decode --arch mk44 pcu - --format json \
  > other.json

checked=0
for foreign in other.sparse other_tile.sparse other.json; do
  line=1
  [ "$foreign" = other.json ] && line=2
  for command in "decode --arch mk43 pcu $foreign" "encode --arch mk43 pcu $foreign" \
                 "check --arch mk43 pcu $foreign" "diff --arch mk43 pcu $foreign mine.bits" \
                 "diff --arch mk43 pcu mine.bits $foreign" "diff mine.json $foreign" \
                 "patch --arch mk43 pcu $foreign mine.bits" "patch --arch mk43 pcu mine.bits $foreign"; do
    # A change must be a listing: JSON given as DELTA is refused before its header is read.
    case "$command" in "patch --arch mk43 pcu mine.bits other.json") continue ;; esac
    # Without --arch, files that name two generations of one tile are compared across them.
    case "$command" in "diff mine.json other.sparse" | "diff mine.json other.json") continue ;; esac
    status=0
    read -ra words <<< "$command"
    "$archspec" "${words[@]}" > out 2> err || status=$?
    [ "$status" -eq 1 ] || fail "$command: exit status $status, expected 1"
    if [ -s out ]; then fail "$command: wrote output"; fi
    grep -q "^$foreign:$line: error: .*, not for mk43 pcu; --force reads it anyway$" err ||
      fail "$command: $(cat err)"
    checked=$((checked + 1))
  done
done
echo "$checked refusals checked"
