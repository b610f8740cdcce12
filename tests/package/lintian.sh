#!/usr/bin/env bash
# The Debian packages of a build under lintian --pedantic: any error or warning fails; pedantic,
# experimental and informational notes, and the overrides used, are shown. The one override,
# exit-in-shared-library, is in the library's package (packaging/lintian-overrides.in): the library
# ends the process by contract.
#   lintian.sh BUILD_DIR
set -euo pipefail
build_dir=$(cd "$1" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

(cd "$scratch" && cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$scratch/deb") \
  > "$scratch/cpack.log" 2>&1 || { cat "$scratch/cpack.log"; exit 1; }
for package in "$scratch"/deb/*.deb; do
  echo "package: $(basename "$package")"
  dpkg-deb -x "$package" "$scratch/root"
done
# No package overrides anything but the library's contract.
if [ -d "$scratch/root/usr/share/lintian/overrides" ] &&
  other=$(grep -rhvE '^(#|$|[^ ]+: exit-in-shared-library( |$))' \
    "$scratch/root/usr/share/lintian/overrides"); then
  echo "a package overrides more than exit-in-shared-library:"
  echo "$other"
  exit 1
fi
lintian --pedantic --display-info --display-experimental --show-overrides \
  --fail-on error,warning "$scratch"/deb/*.deb
echo "lintian: no error or warning"
