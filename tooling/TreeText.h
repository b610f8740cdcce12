// The printed tree of a tile's configuration, written from its layout and values: the library's
// printed form of the record (ToString) byte for byte, with names beside codes, and cut down to
// what is set where asked. The faces print trees through this alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Layout.h"

namespace archspec {

class Naming;

// The printed form of the record of `layout` holding `values` (one per leaf, each cut to its
// leaf's width; a missing one is 0), as the library prints the registered record: a leaf's line
// reads `name = [0xOFFSET:REGISTERS]/WIDTH 0xVALUE`. With `names` (of the same layout), a typed
// leaf's line is followed by the name of its value in parentheses, or, for a non-zero value that
// no name of its type has, by "(not a code of TYPE)". With `nonzero_only`, only the leaves that
// hold a non-zero value are written, with the lines that open and end the records and arrays
// around them, and the tile record's braces always.
std::string WriteTree(const Layout& layout, const std::vector<uint64_t>& values,
                      const Naming* names, bool nonzero_only);

}  // namespace archspec
