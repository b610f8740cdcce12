#include "zu/Format.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace zu {
namespace format_internal {

std::string_view num2str(uint64_t value, NumberFormat format, span<char> out) {
  const char* digits = format.upper ? "0123456789ABCDEF" : "0123456789abcdef";
  const uint64_t base = format.base == 16 ? 16 : 10;
  size_t pos = out.size();
  int written = 0;
  do {
    out[--pos] = digits[value % base];
    value /= base;
    ++written;
  } while (value != 0);
  while (written < format.min_digits && pos > 0) {
    out[--pos] = '0';
    ++written;
  }
  return {out.data() + pos, out.size() - pos};
}

std::string_view num2str(int64_t value, NumberFormat format, span<char> out) {
  if (value >= 0) return num2str(static_cast<uint64_t>(value), format, out);
  // Negate in unsigned arithmetic so that the smallest value prints too.
  std::string_view magnitude = num2str(~static_cast<uint64_t>(value) + 1, format,
                                       span<char>(out.data() + 1, out.size() - 1));
  char* sign = const_cast<char*>(magnitude.data()) - 1;
  *sign = '-';
  return {sign, magnitude.size() + 1};
}

void interpolate(Buffer& buffer, std::string_view format, span<const FnRef<void()>> args,
                 SourceLocation /*location*/) {
  size_t next = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    const char c = format[i];
    if (c == '{' && i + 1 < format.size() && format[i + 1] == '}') {
      if (next < args.size()) {
        args[next++]();
      } else {
        buffer.write("{?}");
      }
      ++i;
    } else if ((c == '{' || c == '}') && i + 1 < format.size() && format[i + 1] == c) {
      buffer.write(c);
      ++i;
    } else {
      buffer.write(c);
    }
  }
}

}  // namespace format_internal

void format_value(format_internal::Buffer& out, std::string_view value) { out.write(value); }
void format_value(format_internal::Buffer& out, const char* value) {
  out.write(value == nullptr ? std::string_view("(null)") : std::string_view(value));
}
void format_value(format_internal::Buffer& out, const std::string& value) { out.write(value); }
void format_value(format_internal::Buffer& out, char value) { out.write(value); }
void format_value(format_internal::Buffer& out, bool value) { out.write(value ? "true" : "false"); }

void format_value(format_internal::Buffer& out, double value) {
  char text[64];
#ifdef __EMSCRIPTEN__
  // The WebAssembly build's standard library has no floating-point to_chars: the shortest of
  // printf's forms that reads back as the same value, which is what to_chars writes.
  int length = 0;
  for (int digits = 1; digits <= 17; ++digits) {
    length = std::snprintf(text, sizeof text, "%.*g", digits, value);
    if (std::strtod(text, nullptr) == value) break;
  }
  out.write(std::string_view(text, static_cast<size_t>(length)));
#else
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.write(std::string_view(text, result.ptr - text));
#endif
}

void format_value(format_internal::Buffer& out, QuoteFormat::Adapter<std::string> quoted) {
  static constexpr char kHex[] = "0123456789abcdef";
  out.write('"');
  for (const char c : quoted.value) {
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
      case '\0':
        out.write("\\0");
        break;
      case '\t':
        out.write("\\t");
        break;
      case '\n':
        out.write("\\n");
        break;
      case '"':
        out.write("\\\"");
        break;
      case '\\':
        out.write("\\\\");
        break;
      default:
        if (byte < 32) {
          const char escape[] = {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
          out.write(std::string_view(escape, 4));
        } else {
          out.write(c);
        }
    }
  }
  out.write('"');
}

}  // namespace zu
