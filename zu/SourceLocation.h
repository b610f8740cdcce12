// Source locations: where a log record or a failure comes from.
#pragma once

#include <cstdint>
#include <source_location>

namespace zu {

// The constant record behind a location: one per call site.
struct SourceLocationBase {
  const char* file;
  const char* function;
  uint32_t line;
  uint32_t column;

  // Stands in for a missing location (a record whose line is 0).
  static const SourceLocationBase kUnknownSourceLocation;
};

// A small value naming a call site. A location whose line is 0 is "unknown" and reads as
// SourceLocationBase::kUnknownSourceLocation.
class SourceLocation {
 public:
  constexpr SourceLocation() = default;
  constexpr SourceLocation(const SourceLocationBase& base)  // NOLINT: implicit by design
      : file_(base.file), function_(base.function), line_(base.line), column_(base.column) {}
  constexpr SourceLocation(const std::source_location& loc)  // NOLINT: implicit by design
      : file_(loc.file_name()),
        function_(loc.function_name()),
        line_(loc.line()),
        column_(loc.column()) {}

  // The caller's location, when used as a default argument.
  static constexpr SourceLocation current(
      std::source_location loc = std::source_location::current()) {
    return SourceLocation(loc);
  }

  bool known() const { return line_ != 0 && file_ != nullptr; }
  const char* file() const {
    return known() ? file_ : SourceLocationBase::kUnknownSourceLocation.file;
  }
  const char* function() const {
    return known() ? function_ : SourceLocationBase::kUnknownSourceLocation.function;
  }
  uint32_t line() const {
    return known() ? line_ : SourceLocationBase::kUnknownSourceLocation.line;
  }
  uint32_t column() const {
    return known() ? column_ : SourceLocationBase::kUnknownSourceLocation.column;
  }

 private:
  const char* file_ = nullptr;
  const char* function_ = nullptr;
  uint32_t line_ = 0;
  uint32_t column_ = 0;
};

}  // namespace zu
