// zu::optional: a value followed by a flag byte that is non-zero when empty.
#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "zu/Crash.h"

namespace zu {

template <class T>
class optional {
  static_assert(std::is_trivially_copyable_v<T> || std::is_copy_constructible_v<T>);

 public:
  constexpr optional() = default;
  constexpr optional(T value)
      : value_(std::move(value)), empty_(0) {}  // NOLINT: implicit by design

  constexpr bool has_value() const { return empty_ == 0; }
  constexpr explicit operator bool() const { return has_value(); }

  const T& value(SourceLocation loc = SourceLocation::current()) const {
    if (empty_ != 0) zubase_internal::crash("accessed empty zu::optional", loc);
    return value_;
  }
  T& value(SourceLocation loc = SourceLocation::current()) {
    if (empty_ != 0) zubase_internal::crash("accessed empty zu::optional", loc);
    return value_;
  }
  const T& operator*() const { return value(); }
  T& operator*() { return value(); }
  const T* operator->() const { return &value(); }
  T* operator->() { return &value(); }

  T value_or(T fallback) const { return has_value() ? value_ : fallback; }
  void reset() {
    value_ = T();
    empty_ = 1;
  }

  friend bool operator==(const optional& a, const optional& b) {
    if (a.has_value() != b.has_value()) return false;
    return !a.has_value() || a.value_ == b.value_;
  }

 private:
  T value_{};
  uint8_t empty_ = 1;
};

}  // namespace zu
