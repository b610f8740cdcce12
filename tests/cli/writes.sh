#!/usr/bin/env bash
# What a change costs a running unit: `writes` gives the register writes between two
# configurations in text, JSON and 12-byte records, with exit status 3 where a change needs a
# load; `apply` turns the first configuration into the second with any of them; refused writes
# leave the output as it was.
#   writes.sh ARCHSPEC WORKDIR
set -euo pipefail
archspec=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

cat > old.sparse <<'LISTING'
# archspec mk44 pcu
CounterChain_structIn[0].counter_max_value[0] = 16
simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_macc
LISTING
cat > new.sparse <<'LISTING'
# archspec mk44 pcu
CounterChain_structIn[0].counter_max_value[0] = 32
CounterChain_structIn[1].counter_stride_value[3] = 5
simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_macc
LISTING

# Every change reachable: exit 0; the writes in bit order, a line each with name and leaf.
"$archspec" writes old.sparse new.sparse > writes.txt
diff - writes.txt <<'TEXT'
# archspec mk44 pcu
pcu_rcf_enum_pcu_rcf_reg_ctrchain3_stride_ctxt1 = 0x5  # register 51: CounterChain_structIn[1].counter_stride_value[3]
pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0 = 0x20  # register 24: CounterChain_structIn[0].counter_max_value[0]
TEXT

# The binary form, byte by byte: id, register (with the base), value, 32 bits little-endian each.
"$archspec" writes old.sparse new.sparse --format binary --id 7 --base 0x100 -o writes.bin
od -An -tx1 -v writes.bin | tr -s ' \n' ' ' > bytes.txt
[[ "$(cat bytes.txt)" == " 07 00 00 00 33 01 00 00 05 00 00 00 07 00 00 00 18 01 00 00 20 00 00 00 " ]]

# JSON a parser reads, with the base and the id.
"$archspec" writes old.sparse new.sparse --format json --base 256 > writes.json
/usr/bin/python3 - <<'PY'
import json
doc = json.load(open("writes.json"))
assert doc["reachable"] and doc["load"] == [] and doc["base"] == 256, doc
assert [(w["register"], w["value"], w["word"]) for w in doc["writes"]] == [(307, 5, "whole"),
                                                                         (280, 32, "whole")]
PY

# apply(OLD, writes(OLD, NEW)) is NEW, from each form; the output takes CONFIG's form.
"$archspec" apply old.sparse writes.txt | "$archspec" diff --exit-code - new.sparse > /dev/null
"$archspec" apply old.sparse writes.bin --binary --base 0x100 -o applied.sparse
"$archspec" diff --exit-code applied.sparse new.sparse > /dev/null
"$archspec" apply old.sparse writes.json --base 256 --format bits > applied.bits
"$archspec" encode new.sparse | cmp - applied.bits

# A change no run-time register writes: exit 3, the reachable writes given, the leaf listed.
sed 's/alu_op_macc/alu_op_add/' new.sparse > load.sparse
status=0
"$archspec" writes old.sparse load.sparse > partial.txt || status=$?
[[ $status == 3 ]]
grep -qx '#   simd_structIn\[0\]\[0\]\.stage_opcode' partial.txt
[[ $(grep -c '^pcu_rcf' partial.txt) == 2 ]]
status=0
"$archspec" writes old.sparse load.sparse --format binary -o partial.bin 2> partial.err ||
  status=$?
[[ $status == 3 && $(stat -c %s partial.bin) == 24 ]]
grep -q 'simd_structIn\[0\]\[0\]\.stage_opcode' partial.err

# Refusals: with file and line, exit 1, and the output file kept as it was.
cp new.sparse kept.sparse
printf '# archspec mk44 pcu\n24 = 0x10\n24 = 0x11\n60 = 1\n' > bad.txt
status=0
"$archspec" apply old.sparse bad.txt -o kept.sparse 2> bad.err || status=$?
[[ $status == 1 ]]
grep -q '^bad.txt:3: error: register 24 (pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0) is written 0x11 here and 0x10 at line 2$' bad.err
grep -q '^bad.txt:4: error: register 60 .* writes no field that the tooling knows' bad.err
cmp kept.sparse new.sparse
# Writes of another generation are refused unless --force, and so is a NEW of another tile.
printf '# archspec mk43 pcu\n24 = 1\n' > foreign.txt
status=0
"$archspec" apply old.sparse foreign.txt 2> foreign.err || status=$?
[[ $status == 1 ]] && grep -q 'not for mk44 pcu' foreign.err
"$archspec" apply old.sparse foreign.txt --force > /dev/null
status=0
"$archspec" writes old.sparse <(printf '# archspec mk44 pmu\n') 2> pair.err || status=$?
[[ $status == 1 ]] && grep -q 'not for mk44 pcu' pair.err
echo "writes: ok"
