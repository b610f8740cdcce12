#!/usr/bin/env bash
# The maintainers' recipe "Add a field to a record", end to end on a scratch copy of the project:
# a field of 9 bits in the middle of mk43's PCU record (records namespace ry), before every leaf
# but three, so that the tile's size, its byte count and the place of nearly every leaf change;
# the declared totals corrected to what the generator names in one run (a maintainer's
# `gen_records.py --fix` does the same; no script here runs it); the library, the tool, the site
# and the Python package built with CMake's default generator; the target refresh_fixtures built;
# and the tests that the refreshed files feed (the tool's, the Python package's, the documents' and
# the generators') run. They must pass with no other edit. .ci/run runs it; the default test run
# does not (it builds a tree of its own). Prints what the refresh changed and how long each step
# took. With KEEP_DIR, the copy is made in KEEP_DIR/src and kept: there `git show` is the table
# edit, `git diff HEAD` what the refresh wrote.
#   tests/recipes/add_field.sh [SOURCE_DIR [KEEP_DIR]]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "${1:-$here/../..}" && pwd)
if [ $# -ge 2 ]; then
  mkdir "$2"  # a new directory: nothing of the user's is overwritten
  scratch=$(cd "$2" && pwd)
else
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
fi
copy=$scratch/src
log=$scratch/log
start=$(date +%s)
step() { echo "-- $1 ($(($(date +%s) - start)) s)"; }
# Runs a command with its output in the log, shown only if it fails.
quietly() { "$@" > "$log" 2>&1 || { tail -60 "$log"; echo "failed: $*"; exit 1; }; }

step "copy the tracked sources"
mkdir "$copy"
git -C "$source" ls-files -z --cached --others --exclude-standard |
  while IFS= read -r -d '' file; do [ -e "$source/$file" ] && printf '%s\0' "$file"; done |
  (cd "$source" && xargs -0 cp -P --parents -t "$copy")
cd "$copy"
# A repository of its own, so that what the refresh rewrites shows as a diff.
git init -q && git add -A && git -c user.name=recipe -c user.email=recipe@localhost commit -qm copy

step "add the field and correct the totals the generator names in one run"
python3 "$here/edit_records.py" compiler/arch_spec/gen/tables pcu_config_struct \
  ecf_size_counter_in "  drain_hold_cycles           -                         9                       -"
git add -A && git -c user.name=recipe -c user.email=recipe@localhost commit -qm "the field"

# CMake's default generator, with no preset, as a newcomer configures: the one build in CI that is
# not Ninja's, and so the one that finds a dependency that only Ninja infers from a file.
build=$copy/build
step "configure with the default generator; build the library, the tool, the Python package and the site"
quietly cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DPython3_EXECUTABLE=/usr/bin/python3
quietly cmake --build "$build" --parallel 2 --target archspec archspec_python reference

step "build refresh_fixtures"
cmake --build "$build" --target refresh_fixtures | grep ': refreshed$' || true
git diff --stat | tail -20
for file in tests/facts.json tests/cli/data/before.bits tests/cli/data/before.bin README.md \
    docs/command-line.md docs/field-types.md; do
  if git diff --quiet -- "$file"; then
    echo "refresh_fixtures left $file as it was; it follows from the tables"
    exit 1
  fi
done
git add -A
quietly cmake --build "$build" --target refresh_fixtures
if ! git diff --quiet; then
  git diff --stat
  echo "a second refresh_fixtures rewrote files: the refresh does not settle"
  exit 1
fi

step "run the tests that the refreshed files feed"
# The build reconfigures first: the tests take their numbers from tests/facts.json.
quietly cmake --build "$build" --parallel 2 --target archspec
ctest --test-dir "$build" --output-on-failure -j2 -R '^(archspec\.|python$|docs$|generators$)' > "$log" 2>&1 || {
  grep -v -e ' Passed ' -e '^ *Start ' "$log" | tail -150; exit 1; }
tail -3 "$log" | grep .
step "done"
