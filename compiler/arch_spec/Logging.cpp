#include "compiler/arch_spec/Logging.h"

#include <string>
#include <tuple>

namespace zu::spec {

void CheckFailed(std::string_view message, const zu::SourceLocation& location) {
  // An empty message leaves the label alone: "check-fail".
  zu::log->check_fail("check-fail", std::tuple<>(), zu::FmtString(message.empty() ? "" : "{}"),
                      std::make_tuple(message), location);
}

void error(std::string_view message, zu::SourceLocation location) {
  (*zu::log)(zu::Logger::Level::error, location).add_message(std::string(message));
}

void unreachable(std::string_view message, zu::SourceLocation location) {
  (*zu::log)(zu::Logger::Level::fatal, location).add_message(std::string(message));
  __builtin_trap();
}

}  // namespace zu::spec
