// Source locations: where a log record or a failure comes from.
#pragma once

#include <cstdint>

// The column of a call site, where the compiler tells it.
#if defined(__has_builtin)
#if __has_builtin(__builtin_COLUMN)
#define ZU_BUILTIN_COLUMN() __builtin_COLUMN()
#endif
#endif
#ifndef ZU_BUILTIN_COLUMN
#define ZU_BUILTIN_COLUMN() 0
#endif

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
  constexpr SourceLocation(const char* file, const char* function, uint32_t line, uint32_t column)
      : file_(file), function_(function), line_(line), column_(column) {}

  // The caller's location, when used as a default argument.
  static constexpr SourceLocation current(const char* file = __builtin_FILE(),
                                          const char* function = __builtin_FUNCTION(),
                                          uint32_t line = __builtin_LINE(),
                                          uint32_t column = ZU_BUILTIN_COLUMN()) {
    return SourceLocation(file, function, line, column);
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
