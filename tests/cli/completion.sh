#!/usr/bin/env bash
# The bash completion that `archspec --bash-completion` writes, driven as bash drives it: COMP_WORDS
# split where bash splits them (at '=' too), the function called, COMPREPLY read back whole.
#   completion.sh ARCHSPEC WORK
set -euo pipefail
archspec=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"
script=$("$archspec" --bash-completion)
eval "$script"

failures=0
# expect "REPLIES" WORD...: completing the last WORD gives the replies, one a line, sorted, and
# nothing on standard error.
expect() {
  local want=$1 got
  shift
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  _archspec 2> errors || true
  got=$(printf '%s\n' "${COMPREPLY[@]}" | sort)
  if [ "$got" != "$(printf '%s\n' "$want" | sort)" ] || [ -s errors ]; then
    echo "completing '$*': got"
    printf '  [%s]\n' "${COMPREPLY[@]}"
    cat errors
    echo "expected"
    printf '  [%s]\n' "$want"
    failures=$((failures + 1))
  fi
}
# Both replies in one argument, a line each.
lines() { printf '%s\n' "$@"; }

# File names with spaces are one reply each.
touch "my program.sparse" "my program.bits" other.bits "pmu notes.txt"
expect "$(lines "my program.bits" "my program.sparse")" archspec decode --arch mk43 pcu "my p"
expect "my program.sparse" archspec encode --arch mk43 pcu -o "my program.s"
expect "" archspec check --arch mk43 pcu "$work/none"

# The typed word is a word: no sed error and no pattern, whatever it holds.
for typed in "a/" "a\\" "\\(" "[" ".*" "'" '"' "\$(touch x)"; do
  expect "" "$archspec" get --arch mk43 "$typed"
done
expect "" "$archspec" get --arch mk43 pcu_num_stage.
[ ! -e x ] || { echo "a typed word was run"; failures=$((failures + 1)); }
expect "pcu_num_stages_fp32" "$archspec" get --arch mk43 pcu_num_stages_f

# --arch=VALUE: bash splits it at '=' into three words; where '=' is no word break, one word.
expect "$(lines mk41 mk42 mk43 mk44)" archspec layout --arch =
expect mk43 archspec layout --arch = mk43
expect "$(lines --arch=mk41 --arch=mk42 --arch=mk43 --arch=mk44)" archspec layout --arch=mk4
expect "$(lines pcu pmu)" archspec layout --arch = mk43 p
# The generation that get's accessor names are asked for, in each spelling.
cat > tool <<'END'
#!/usr/bin/env bash
echo "$*" >> asked
echo "name_of_$1 = 1"
END
chmod +x tool
for spelling in "--arch mk41" "--arch = mk41" "--arch=mk41"; do
  rm -f asked
  read -ra arch <<< "$spelling"
  expect "name_of_features" ./tool get "${arch[@]}" name_of_f
  if [ "$(sort -u asked)" != "$(lines "constants --arch mk41 --match name_of_f*" \
    "constraints --arch mk41 --match name_of_f*" "features --arch mk41 --match name_of_f*")" ]; then
    echo "get $spelling asked: $(cat asked)"
    failures=$((failures + 1))
  fi
done

# where takes a tile, then a bit number: never a file.
expect "$(lines pcu pmu)" archspec where --arch mk43 p
expect "" archspec where --arch mk43 pcu ""
expect "" archspec where --arch mk43 pcu 1
expect "$(lines pcu pmu)" archspec layout p
expect "" archspec layout --arch mk43 pcu ""
# Subcommands without operands offer no files; those with a tile and files offer both.
expect "" archspec archs ""
expect "$(lines pmu "pmu notes.txt")" archspec decode --arch mk43 pm

if [ "$failures" != 0 ]; then
  echo "$failures completions differ"
  exit 1
fi
echo "completion: ok"
