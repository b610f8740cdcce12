// The printed tree of a record (the library's ToString, one leaf a line) cut down to what is set.
#pragma once

#include <string>
#include <string_view>

namespace archspec {

// The lines of `tree` that hold a non-zero leaf, with the lines that open and close the records
// and arrays around them, in their order and indentation; the outermost record's braces always.
// A leaf's line reads `name = [0xOFFSET:REGISTERS]/WIDTH 0xVALUE`, perhaps followed by a name in
// parentheses; a line that ends in `{` or `[` opens a record or an array, one that starts with `}`
// or `]` closes it.
std::string NonzeroTree(std::string_view tree);

}  // namespace archspec
