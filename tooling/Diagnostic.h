// One complaint about an input file, with the place it refers to.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace archspec {

struct Diagnostic {
  size_t line = 0;    // 1-based; 0 when the complaint is about the file as a whole
  size_t column = 0;  // 1-based; 0 when the line is enough
  std::string message;
};

// "prog.sparse:7: error: ...", "prog.bits:1:17: error: ..." or "prog.bits: error: ...".
std::string FormatDiagnostic(std::string_view file, const Diagnostic& diagnostic);

}  // namespace archspec
