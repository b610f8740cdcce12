#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds and runs the consumer example against it, so that
# the installed package never silently breaks.
set -euo pipefail
build_dir=$1
source_dir=$2
cxx_flags=${3:-}          # the flags of the build under test, so that a sanitized library gets a
linker_flags=${4:-}       # sanitized consumer
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build_dir" --prefix "$scratch/prefix" > /dev/null
cmake -S "$source_dir/examples/consumer" -B "$scratch/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$scratch/prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="$cxx_flags" -DCMAKE_EXE_LINKER_FLAGS="$linker_flags" > /dev/null
cmake --build "$scratch/consumer" > /dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/consumer/consumer" mk43
