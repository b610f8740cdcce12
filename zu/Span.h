// zu::span: a pointer and a length, with a checked index.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <type_traits>
#include <vector>

#include "zu/SourceLocation.h"

namespace zu {

namespace span_internal {
// Ends the process: `index` is outside [0, size). `element_size` is the element's size in bytes.
[[noreturn]] void bounds_check_fail(size_t index, size_t size, size_t element_size,
                                    SourceLocation location);
}  // namespace span_internal

template <class T>
class span {
 public:
  constexpr span() = default;
  constexpr span(T* data, size_t size) : data_(data), size_(size) {}
  template <size_t N>
  constexpr span(T (&array)[N]) : data_(array), size_(N) {}  // NOLINT: implicit by design
  template <class U, class = std::enable_if_t<std::is_const_v<T> && std::is_same_v<const U, T>>>
  span(const std::vector<U>& v) : data_(v.data()), size_(v.size()) {}  // NOLINT
  template <class U, class = std::enable_if_t<std::is_same_v<U, T>>>
  span(std::vector<U>& v) : data_(v.data()), size_(v.size()) {}  // NOLINT

  constexpr T* data() const { return data_; }
  constexpr size_t size() const { return size_; }
  constexpr bool empty() const { return size_ == 0; }
  constexpr T* begin() const { return data_; }
  constexpr T* end() const { return data_ + size_; }

  T& operator[](size_t index) const { return at(index); }
  T& at(size_t index, SourceLocation location = SourceLocation::current()) const {
    if (index >= size_) span_internal::bounds_check_fail(index, size_, sizeof(T), location);
    return data_[index];
  }

 private:
  T* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace zu
