#!/usr/bin/env python3
"""What a source pays to include the constants interface.

Compiles a one-line source without any header, with compiler/arch_spec/gen/ArchConstants.h and,
for comparison, with ArchGenerations.h (the classes of every generation), with the build's
compiler and flags, and prints the best of three wall times of each.

    include_cost.py CXX BUILD_DIR SOURCE_DIR [FLAGS...]
"""
import os
import subprocess
import sys
import tempfile
import time


def best_of_three(cxx, flags, includes, header, scratch):
    source = os.path.join(scratch, "source.cpp")
    with open(source, "w") as f:
        if header:
            f.write(f'#include "{header}"\n')
        f.write("int main() { return 0; }\n")
    best = None
    for _ in range(3):
        start = time.perf_counter()
        subprocess.run([cxx, "-std=c++20", *flags, *includes, "-c", source, "-o",
                        os.path.join(scratch, "source.o")], check=True)
        took = time.perf_counter() - start
        best = took if best is None else min(best, took)
    return best


def main(argv):
    if len(argv) < 4:
        print(__doc__.strip().splitlines()[-1].strip(), file=sys.stderr)
        return 2
    cxx, build_dir, source_dir, flags = argv[1], argv[2], argv[3], argv[4:]
    includes = [f"-I{source_dir}", f"-I{os.path.join(build_dir, 'generated')}"]
    with tempfile.TemporaryDirectory() as scratch:
        empty = best_of_three(cxx, flags, includes, None, scratch)
        rows = [("empty source", empty)]
        for header in ("compiler/arch_spec/gen/ArchConstants.h",
                       "compiler/arch_spec/gen/ArchGenerations.h"):
            rows.append((f"with {header}", best_of_three(cxx, flags, includes, header, scratch)))
    print(f"include cost (best of 3, {cxx} {' '.join(flags)}):")
    for what, took in rows:
        extra = f"  (+{took - empty:.2f} s)" if what != "empty source" else ""
        print(f"  {what:<50} {took:.2f} s{extra}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
