#!/usr/bin/env bash
# Builds and runs the consumer example against the library as a user gets it, both through CMake's
# find_package and through pkg-config, so that neither form of the package silently breaks:
#   package_test.sh install BUILD_DIR SOURCE_DIR CXX_FLAGS LINKER_FLAGS
#       cmake --install into a scratch prefix
#   package_test.sh deb BUILD_DIR SOURCE_DIR CXX_FLAGS LINKER_FLAGS
#       cpack -G DEB, the package unpacked with dpkg -x into a scratch root; its archspec runs too
# The flags are those of the build under test, so that a sanitized library gets a sanitized consumer.
set -euo pipefail
mode=$1 build_dir=$2 source_dir=$3 cxx_flags=${4:-} linker_flags=${5:-}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

case "$mode" in
  install)
    prefix="$scratch/prefix"
    cmake --install "$build_dir" --prefix "$prefix" > /dev/null
    ;;
  deb)
    (cd "$scratch" && cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$scratch/deb" \
      > /dev/null)
    package=$(ls "$scratch"/deb/*.deb)
    echo "package: $(basename "$package") ($(du -h "$package" | cut -f1))"
    dpkg -x "$package" "$scratch/root"
    prefix="$scratch/root/usr"
    "$prefix/bin/archspec" archs | grep -q "mk43" || { echo "the packaged archspec failed"; exit 1; }
    echo "the packaged archspec lists the generations"
    # Its version is the project's, and its bash completion is where bash-completion looks.
    "$prefix/bin/archspec" --version | grep -qx "archspec $(sed -n 's/^Version: //p' \
      "$(find "$prefix" -name archspeccore.pc | head -1)")" ||
      { echo "the packaged archspec's version is not the package's"; exit 1; }
    grep -q "complete -o filenames -F _archspec archspec" \
      "$prefix/share/bash-completion/completions/archspec" ||
      { echo "the package has no bash completion of archspec"; exit 1; }
    # The packaged Python package, where Debian's Python looks, finds the packaged library.
    if [ -d "$prefix/lib/python3/dist-packages/archspec" ]; then
      PYTHONPATH="$prefix/lib/python3/dist-packages" /usr/bin/python3 -c \
        'import archspec; print("python:", archspec.generation("mk43").tile("pcu").bits, "bits")'
    fi
    ;;
  *)
    echo "usage: $0 install|deb BUILD_DIR SOURCE_DIR [CXX_FLAGS [LINKER_FLAGS]]" >&2
    exit 2
    ;;
esac

# With CMake.
cmake -S "$source_dir/examples/consumer" -B "$scratch/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS="$cxx_flags" -DCMAKE_EXE_LINKER_FLAGS="$linker_flags" > /dev/null
cmake --build "$scratch/consumer" > /dev/null
LD_LIBRARY_PATH="$prefix/lib" "$scratch/consumer/consumer" mk43 | sed 's/^/find_package: /'

# With pkg-config, from the .pc file alone.
pc_dir=$(dirname "$(find "$prefix" -name archspeccore.pc | head -1)")
read -r -a pc_flags <<< "$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs archspeccore)"
read -r -a extra_cxx <<< "$cxx_flags"
read -r -a extra_ld <<< "$linker_flags"
c++ -std=c++20 "${extra_cxx[@]}" "$source_dir/examples/consumer/consumer.cpp" "${pc_flags[@]}" \
  "${extra_ld[@]}" -o "$scratch/consumer_pc"
"$scratch/consumer_pc" mk43 | sed 's/^/pkg-config: /'
