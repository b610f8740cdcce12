// A small hand-made layout and enumerant names, shared by the tests of listings and changes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Layout.h"
#include "Sparse.h"

namespace archspec {

// A record of 5 + 6 + 3x1 + 64 + 2 = 80 bits, laid out as the library lays out arrays: the
// highest element first.
inline Layout SmallLayout() {
  std::vector<Leaf> leaves = {
      {"stage_opcode", 0, 5, 0, std::nullopt}, {"lanes[0][1].sel", 5, 6, 1, std::nullopt},
      {"mask[2]", 11, 1, 2, std::nullopt},     {"mask[1]", 12, 1, 3, std::nullopt},
      {"mask[0]", 13, 1, 4, std::nullopt},     {"base", 14, 64, 5, 6},
      {"tail", 78, 2, 7, std::nullopt},
  };
  return Layout("small_struct", 80, std::move(leaves));
}

// A resolver of two names for any leaf, as ReadSparse takes one.
inline NamedValue Names(std::string_view name, size_t /*leaf*/ = 0) {
  if (name == "op_add") return {3, ""};
  if (name == "op_wide") return {64, ""};
  return {std::nullopt, "no enumerant named " + std::string(name)};
}

// Every diagnostic of a result, one a line, for failure messages.
inline std::string Errors(const SparseResult& result) {
  std::string out;
  for (const Diagnostic& d : result.errors) out += FormatDiagnostic("t.sparse", d) + "\n";
  return out;
}

}  // namespace archspec
