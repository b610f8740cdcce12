// The failure functions of the library, `check`, `fatal`, `error` and `unreachable`. Every failure
// a caller can cause goes through them.
#pragma once

#include <string_view>
#include <tuple>

#include "zu/Logger.h"
#include "zu/SourceLocation.h"

namespace zu::spec {

// The failure of a plain check: "check-fail: <message>" at the fatal level.
void CheckFailed(std::string_view message, const zu::SourceLocation& location);

// Nothing happens if `condition` holds; otherwise a check failure "check-fail: <message>" at the
// fatal level, which ends the process. `message` is plain text.
inline void check(bool condition, std::string_view message,
                  zu::SourceLocation location = zu::SourceLocation::current()) {
  if (condition) [[likely]]
    return;
  CheckFailed(message, location);
}

// Writes `message` at the error level, at `location`, and returns. Callers that want to stop then
// exit(1).
void error(std::string_view message, zu::SourceLocation location = zu::SourceLocation::current());

// Writes `message` at the fatal level, at `location`, then traps. Never returns, even if the
// logger's fatal record does.
[[noreturn]] void unreachable(std::string_view message,
                              zu::SourceLocation location = zu::SourceLocation::current());

// The text of a failure and the place it is reported at: a format whose `{}` placeholders take the
// arguments in order, and, by default, the location of the call that fails.
struct Failure {
  Failure(const char* text, zu::SourceLocation where = zu::SourceLocation::current())
      : format(text), location(where) {}
  zu::FmtString format;
  zu::SourceLocation location;
};

// A check whose message has `{}` placeholders: "check-fail: <message>" at the fatal level, which
// ends the process. The arguments are formatted only when the check fails.
template <class... Args>
void check(bool condition, Failure failure, const Args&... args) {
  if (condition) [[likely]]
    return;
  zu::log->check_fail("check-fail", std::tuple<>(), failure.format,
                      std::tuple<const Args&...>(args...), failure.location);
}

// Writes the formatted message at the fatal level, with no label, which ends the process.
template <class... Args>
void fatal(Failure failure, const Args&... args) {
  (*zu::log)(zu::Logger::Level::fatal, failure.location).message(failure.format.text, args...);
}

}  // namespace zu::spec
