// The one way the base library ends the process on a broken invariant.
#pragma once

#include <string_view>

#include "zu/SourceLocation.h"

namespace zu::zubase_internal {

// Writes `message` and the location to standard error and aborts. Never returns.
[[noreturn]] void crash(std::string_view message,
                        SourceLocation location = SourceLocation::current());

}  // namespace zu::zubase_internal
