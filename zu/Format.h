// Text formatting with `{}` placeholders, expanded in order.
//
//   zu::format("value {} of {}", 3, name)
//
// An argument is written by the overload of zu::format_value that fits its type: integers, floating
// point, bool, characters, strings and QuoteFormat adapters come with the library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "zu/FnRef.h"
#include "zu/SourceLocation.h"
#include "zu/Span.h"

namespace zu {

namespace format_internal {

// The output of formatting: text with an indentation level for multi-line output.
class Buffer {
 public:
  void write(std::string_view text) { text_.append(text); }
  void write(char c) { text_.push_back(c); }
  void write_indent() { text_.append(2 * static_cast<size_t>(indent_), ' '); }
  void indent(int delta) { indent_ += delta; }
  const std::string& to_string() const& { return text_; }
  std::string to_string() && { return std::move(text_); }

 private:
  std::string text_;
  int indent_ = 0;
};

struct NumberFormat {
  int base = 10;       // 10 or 16
  bool upper = false;  // upper-case hexadecimal digits
  int min_digits = 1;  // padded with '0' up to this many digits
};

// Writes `value` into `out` and returns the text, which lies inside `out`. `out` needs 66
// characters.
std::string_view num2str(uint64_t value, NumberFormat format, span<char> out);
std::string_view num2str(int64_t value, NumberFormat format, span<char> out);

// Expands each `{}` of `format` by calling the next callback, which writes its own argument into
// `buffer`.
// "{{" and "}}" stand for single braces. A placeholder without a callback is written as "{?}", so
// that a wrong message still shows what it holds.
void interpolate(Buffer& buffer, std::string_view format, span<const FnRef<void()>> args,
                 SourceLocation location);

}  // namespace format_internal

// Formatters of the library's own argument types.
void format_value(format_internal::Buffer& out, std::string_view value);
void format_value(format_internal::Buffer& out, const char* value);
void format_value(format_internal::Buffer& out, const std::string& value);
void format_value(format_internal::Buffer& out, char value);
void format_value(format_internal::Buffer& out, bool value);
void format_value(format_internal::Buffer& out, double value);
template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                        !std::is_same_v<T, char>,
                                    int> = 0>
void format_value(format_internal::Buffer& out, T value) {
  char digits[66];
  if constexpr (std::is_signed_v<T>) {
    out.write(format_internal::num2str(static_cast<int64_t>(value), {}, digits));
  } else {
    out.write(format_internal::num2str(static_cast<uint64_t>(value), {}, digits));
  }
}

// Formats a string between double quotes, with \0 \t \n \" \\ as two-character escapes, any other
// byte below 32 as \x and two lower-case hexadecimal digits, and every other byte as it stands.
struct QuoteFormat {
  template <class T>
  struct Adapter {
    const T& value;
  };
};
void format_value(format_internal::Buffer& out, QuoteFormat::Adapter<std::string> quoted);
inline QuoteFormat::Adapter<std::string> quoted(const std::string& text) { return {text}; }

// Appends the expansion of `format` with `args` to `buffer`.
template <class... Args>
void format_to(format_internal::Buffer& buffer, std::string_view format, const Args&... args,
               SourceLocation location = SourceLocation::current()) {
  if constexpr (sizeof...(Args) == 0) {
    format_internal::interpolate(buffer, format, {}, location);
  } else {
    auto writers = std::make_tuple([&buffer, &args] { format_value(buffer, args); }...);
    std::apply(
        [&](auto&... writer) {
          const FnRef<void()> refs[] = {writer...};
          format_internal::interpolate(buffer, format, refs, location);
        },
        writers);
  }
}

template <class... Args>
std::string format(std::string_view format, const Args&... args) {
  format_internal::Buffer buffer;
  format_to<Args...>(buffer, format, args...);
  return std::move(buffer).to_string();
}

}  // namespace zu
