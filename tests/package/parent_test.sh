#!/usr/bin/env bash
# Builds a compiler's project that takes libArchSpecCore in with add_subdirectory (tests/package/
# parent), with the subproject's default options, and runs its program. Fails if the parent's `all`
# holds anything of the subproject but its two libraries (the parent's CMakeLists.txt checks that),
# or if the subproject adds tests to the parent.
#   parent_test.sh SOURCE_DIR [BUILD_DIR]
# BUILD_DIR (a scratch directory by default) is kept, so that a second run builds nothing.
set -euo pipefail
source_dir=$(cd "$1" && pwd)
build_dir=${2:-}
if [ -z "$build_dir" ]; then
  build_dir=$(mktemp -d)
  trap 'rm -rf "$build_dir"' EXIT
fi

# No build type, as a parent may leave it: the subproject must not choose one for the parent, and
# the unoptimised build checks the same wiring in a third of the time.
cmake -S "$source_dir/tests/package/parent" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE= \
  -DARCHSPEC_SOURCE_DIR="$source_dir" | grep "the subproject builds"
if grep -q '^CMAKE_BUILD_TYPE:.*=.' "$build_dir/CMakeCache.txt"; then
  echo "the subproject set the parent's build type: $(grep '^CMAKE_BUILD_TYPE:' "$build_dir/CMakeCache.txt")"
  exit 1
fi

if [ "$(cd "$build_dir" && ctest -N | sed -n 's/^Total Tests: //p')" != 0 ]; then
  echo "the subproject adds tests to the parent"
  exit 1
fi

ninja -C "$build_dir" -j2 > /dev/null
"$build_dir/parent_compiler"
