// The printed tree of a tile's configuration, written from its layout and values: the library's
// printed form of the record (ToString) byte for byte, with names beside codes, and cut down to
// what is set where asked. The faces print trees through this alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
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

// The lines of `tree` that hold a non-zero leaf, with the lines that open and close the records
// and arrays around them, in their order and indentation; the outermost record's braces always.
// A leaf's line reads `name = [0xOFFSET:REGISTERS]/WIDTH 0xVALUE`, perhaps followed by a name in
// parentheses; a line that ends in `{` or `[` opens a record or an array, one that starts with `}`
// or `]` closes it.
std::string NonzeroTree(std::string_view tree);

}  // namespace archspec
