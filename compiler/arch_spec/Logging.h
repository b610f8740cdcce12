// The three failure functions of the library. Every failure a caller can cause goes through them.
#pragma once

#include <string_view>

#include "zu/Logger.h"
#include "zu/SourceLocation.h"

namespace zu::spec {

// Nothing happens if `condition` holds; otherwise a check failure "check-fail: <message>" at the
// fatal level, which ends the process. `message` is plain text.
void check(bool condition, std::string_view message,
           zu::SourceLocation location = zu::SourceLocation::current());

// Writes `message` at the error level, at `location`, and returns. Callers that want to stop then
// exit(1).
void error(std::string_view message, zu::SourceLocation location = zu::SourceLocation::current());

// Writes `message` at the fatal level, at `location`, then traps. Never returns, even if the
// logger's fatal record does.
[[noreturn]] void unreachable(std::string_view message,
                              zu::SourceLocation location = zu::SourceLocation::current());

}  // namespace zu::spec

// A check whose message has `{}` placeholders. The arguments are formatted only when the check
// fails.
#define ZU_SPEC_CHECK(condition, format, ...)                                               \
  do {                                                                                      \
    if (!(condition)) {                                                                     \
      ::zu::log->check_fail("check-fail", std::tuple<>(), ::zu::FmtString(format),          \
                            std::make_tuple(__VA_ARGS__), ::zu::SourceLocation::current()); \
    }                                                                                       \
  } while (false)
