#include "Diagnostic.h"

namespace archspec {

std::string FormatDiagnostic(std::string_view file, const Diagnostic& diagnostic) {
  std::string out(file);
  if (diagnostic.line > 0) {
    out.append(":").append(std::to_string(diagnostic.line));
    if (diagnostic.column > 0) out.append(":").append(std::to_string(diagnostic.column));
  }
  out += ": error: ";
  out += diagnostic.message;
  return out;
}

}  // namespace archspec
