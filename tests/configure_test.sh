#!/usr/bin/env bash
# Configures the project as if the optional packages were missing (CMAKE_DISABLE_FIND_PACKAGE_*):
# the library alone configures; the default configure stops with one line that names the Debian
# package to install.
set -euo pipefail
source_dir=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
hide=()
for package in CLI11 nlohmann_json GTest benchmark pybind11 Python3Dev; do
  hide+=("-DCMAKE_DISABLE_FIND_PACKAGE_${package}=ON")
done

cmake -S "$source_dir" -B "$scratch/library" -G Ninja -DARCHSPEC_LIBRARY_ONLY=ON "${hide[@]}" \
  > "$scratch/library.log" 2>&1 || { cat "$scratch/library.log"; echo "library only: FAILED"; exit 1; }
echo "library only: configures without the other packages"

if cmake -S "$source_dir" -B "$scratch/default" -G Ninja "${hide[@]}" > "$scratch/default.log" 2>&1
then
  echo "default: configured although packages are missing"
  exit 1
fi
message=$(grep -A1 "CMake Error" "$scratch/default.log" | grep -o "apt-get install [^ ]*" | head -1)
[ -n "$message" ] || { cat "$scratch/default.log"; exit 1; }
echo "default: stops and says: $message"
