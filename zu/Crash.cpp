#include "zu/Crash.h"

#include <cstdio>
#include <cstdlib>

#include "zu/Span.h"

namespace zu {

namespace zubase_internal {

void crash(std::string_view message, SourceLocation location) {
  std::fprintf(stderr, "%s:%u: %.*s\n", location.file(), location.line(),
               static_cast<int>(message.size()), message.data());
  std::fflush(stderr);
  std::abort();
}

}  // namespace zubase_internal

namespace span_internal {

void bounds_check_fail(size_t index, size_t size, size_t /*element_size*/,
                       SourceLocation location) {
  char text[96];
  std::snprintf(text, sizeof text, "span index %zu out of bounds for size %zu", index, size);
  zubase_internal::crash(text, location);
}

}  // namespace span_internal
}  // namespace zu
