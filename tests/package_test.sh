#!/usr/bin/env bash
# Builds and runs the two consumer examples against the library as a user gets it, both through
# CMake's find_package and through pkg-config, so that neither form of the package silently breaks:
# examples/consumer on the library (ArchSpecCore::ArchSpecCore, archspeccore), and
# examples/tooling_consumer on the tooling layer (ArchSpecCore::Tooling, archspectooling), whose
# output is checked line by line. Fails at the first fault.
#   package_test.sh install BUILD_DIR SOURCE_DIR CXX_FLAGS LINKER_FLAGS
#       cmake --install into a scratch prefix
#   package_test.sh deb BUILD_DIR SOURCE_DIR CXX_FLAGS LINKER_FLAGS
#       cpack -G DEB, the packages (library, development files, tool, Python, site) unpacked with
#       dpkg -x into one scratch root; its archspec runs too, and the installed headers pass the
#       strict build of tests/package/strict_headers.sh
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
    for package in "$scratch"/deb/*.deb; do
      echo "package: $(basename "$package") ($(du -h "$package" | cut -f1))"
      dpkg -x "$package" "$scratch/root"
    done
    # The shared library's package says which soname it holds and has ldconfig run.
    library_package=$(ls "$scratch"/deb/libarchspeccore[0-9]*.deb)
    dpkg-deb -I "$library_package" shlibs | grep -q "^libArchSpecCore " ||
      { echo "the library's package has no shlibs entry"; exit 1; }
    dpkg-deb -I "$library_package" triggers | grep -q "ldconfig" ||
      { echo "the library's package does not trigger ldconfig"; exit 1; }
    if dpkg-deb -c "$library_package" | grep -E '\.h$|\.so$|bin/'; then
      echo "the library's package holds more than the library"
      exit 1
    fi
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
      PYTHONPATH="$prefix/lib/python3/dist-packages" LD_LIBRARY_PATH=/nonexistent /usr/bin/python3 -c \
        'import archspec; print("python:", archspec.generation("mk43").tile("pcu").bits, "bits")'
    fi
    ;;
  *)
    echo "usage: $0 install|deb BUILD_DIR SOURCE_DIR [CXX_FLAGS [LINKER_FLAGS]]" >&2
    exit 2
    ;;
esac

# The installed headers include no header of another package, and the CMake package asks for
# none: a user needs a C++20 compiler and this package only.
if foreign=$(grep -rnE '^#include <[^>]*[./][^>]*>' "$prefix/include"); then
  echo "an installed header includes a header of another package:"
  echo "$foreign"
  exit 1
fi
libdir=$(dirname "$(find "$prefix" -name 'libArchSpecCore.so' | head -1)")
if grep -rl nlohmann "$libdir/cmake/ArchSpecCore"; then
  echo "the installed CMake package refers to nlohmann-json"
  exit 1
fi

# The pkg-config files lie in the library's directory, where pkg-config and cross builds look.
pc_dir=$libdir/pkgconfig
[ -f "$pc_dir/archspeccore.pc" ] || { echo "no archspeccore.pc in $pc_dir"; exit 1; }
read -r -a extra_cxx <<< "$cxx_flags"
read -r -a extra_ld <<< "$linker_flags"

# build EXAMPLE PROGRAM PC_MODULE: the example built with CMake into $scratch/EXAMPLE/PROGRAM, and
# from the .pc file alone into $scratch/PROGRAM_pc.
build() {
  local example=$1 program=$2 module=$3 pc_flags
  cmake -S "$source_dir/examples/$example" -B "$scratch/$example" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_FLAGS="$cxx_flags" -DCMAKE_EXE_LINKER_FLAGS="$linker_flags" > /dev/null
  cmake --build "$scratch/$example" > /dev/null
  read -r -a pc_flags <<< "$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs "$module")"
  c++ -std=c++20 "${extra_cxx[@]}" "$source_dir/examples/$example/$program.cpp" "${pc_flags[@]}" \
    "${extra_ld[@]}" -o "$scratch/${program}_pc"
}

if [ "$mode" = deb ]; then
  "$source_dir/tests/package/strict_headers.sh" "$prefix" "$source_dir"
fi

build consumer consumer archspeccore
LD_LIBRARY_PATH="$libdir" "$scratch/consumer/consumer" mk43 | sed 's/^/find_package: /'
"$scratch/consumer_pc" mk43 | sed 's/^/pkg-config: /'

# A PCU programmed by names, its listing written and read back: exactly this, both ways.
build tooling_consumer tooling_consumer archspectooling
# What it writes is the canonical listing of what it set, as the packaged tool writes it too.
listing=$(printf '%s\n' 'simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_max' \
    'common_structIn.udc_init_value[0] = 100' |
  LD_LIBRARY_PATH="$libdir" "$prefix/bin/archspec" encode --arch mk43 pcu - |
  LD_LIBRARY_PATH="$libdir" "$prefix/bin/archspec" decode --arch mk43 pcu - --format sparse)
expected="simd_structIn[0][1].stage_opcode = alu_format_enum_fp32 refused
$listing
read back: the same configuration"
for form in find_package pkg-config; do
  if [ $form = find_package ]; then
    program=$scratch/tooling_consumer/tooling_consumer
  else
    program=$scratch/tooling_consumer_pc
  fi
  output=$(LD_LIBRARY_PATH="$libdir" "$program" mk43 "$scratch/pcu.sparse")
  if [ "$output" != "$expected" ]; then
    printf 'the tooling consumer (%s) printed:\n%s\ninstead of:\n%s\n' "$form" "$output" \
      "$expected"
    exit 1
  fi
  echo "tooling $form: $(tail -1 <<< "$output")"
done
