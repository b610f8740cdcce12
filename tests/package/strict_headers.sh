#!/usr/bin/env bash
# A compiler team's strict build of the installed library: one program that includes every header
# installed under PREFIX/include (generated, library, base and tooling layer alike), and the
# README's C++ example, compiled through pkg-config, which gives -I rather than -isystem, so that
# the headers' own warnings are the program's, with
#   -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror
# by every compiler given (g++ and clang++ by default; one that is not installed is said and
# skipped). Compiled only: the package tests link and run both kinds of program already, with the
# build's own flags. Fails at the first compiler that warns.
#   strict_headers.sh PREFIX SOURCE_DIR [COMPILER...]
set -euo pipefail
prefix=$1 source_dir=$2
shift 2
compilers=("$@")
[ ${#compilers[@]} -gt 0 ] || compilers=(g++ clang++)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

flags=(-std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror)
pc_dir=$(dirname "$(find "$prefix" -name archspectooling.pc | head -1)")
read -r -a pc_cflags <<< "$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags archspectooling)"

# Every installed header, by the path a user writes; the .inc files are parts of them.
(cd "$prefix/include" && find . -name '*.h' | sed 's|^\./||' | LC_ALL=C sort) > "$scratch/headers"
count=$(wc -l < "$scratch/headers")
if [ "$count" -lt 20 ]; then
  echo "only $count headers are installed under $prefix/include"
  exit 1
fi
{
  sed 's/.*/#include "&"/' "$scratch/headers"
  echo 'int main() { return 0; }'
} > "$scratch/every_header.cpp"
# The README's first C++ block, as a reader copies it.
awk '/^```cpp$/ { inside = 1; next } inside && /^```$/ { exit } inside' "$source_dir/README.md" \
  > "$scratch/readme.cpp"
grep -q '^int main' "$scratch/readme.cpp" || { echo "README.md has no C++ program"; exit 1; }

for compiler in "${compilers[@]}"; do
  if ! command -v "$compiler" > /dev/null; then
    echo "strict headers: $compiler is not installed, skipped"
    continue
  fi
  "$compiler" "${flags[@]}" "${pc_cflags[@]}" -c "$scratch/every_header.cpp" -o "$scratch/every.o"
  "$compiler" "${flags[@]}" "${pc_cflags[@]}" -c "$scratch/readme.cpp" -o "$scratch/readme.o"
  echo "strict headers: $count installed headers and the README's example, clean with $compiler"
done
