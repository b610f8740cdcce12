#include "Diagnostic.h"

#include <algorithm>

#include <cstdint>
#include <cstdio>

namespace archspec {
namespace {

// The length of the UTF-8 sequence that starts `text` and its code point, or 0 when the bytes
// are no well-formed sequence (overlong, a surrogate, beyond U+10FFFF, cut short).
size_t DecodeUtf8(std::string_view text, uint32_t& code) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t first = byte(0);
  size_t length;
  uint32_t min;
  if (first < 0x80) {
    code = first;
    return 1;
  } else if (first >= 0xc2 && first <= 0xdf) {
    length = 2, code = first & 0x1f, min = 0x80;
  } else if (first >= 0xe0 && first <= 0xef) {
    length = 3, code = first & 0x0f, min = 0x800;
  } else if (first >= 0xf0 && first <= 0xf4) {
    length = 4, code = first & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3f);
  }
  if (code < min || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return 0;
  return length;
}

// Characters that print as nothing, or that turn the text around them: shown as escapes.
bool IsInvisible(uint32_t code) {
  return (code >= 0x80 && code <= 0x9f) || code == 0xa0 || code == 0xad ||
         (code >= 0x200b && code <= 0x200f) || (code >= 0x2028 && code <= 0x202e) ||
         (code >= 0x2060 && code <= 0x2069) || code == 0xfeff;
}

void AppendEscape(std::string& out, uint8_t byte) {
  switch (byte) {
    case '\t':
      out += "\\t";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\x%02x", byte);
      out += buffer;
  }
}

}  // namespace

std::string FormatDiagnostic(std::string_view file, const Diagnostic& diagnostic) {
  std::string out(file);
  if (diagnostic.line > 0) {
    out.append(":").append(std::to_string(diagnostic.line));
    if (diagnostic.column > 0) out.append(":").append(std::to_string(diagnostic.column));
  }
  out += ": error: ";
  out += diagnostic.message;
  return out;
}

std::string EchoText(std::string_view text, size_t max_bytes) {
  std::string out;
  std::string piece;
  size_t i = 0;
  while (i < text.size()) {
    uint32_t code = 0;
    const size_t length = DecodeUtf8(text.substr(i), code);
    piece.clear();
    if (length == 0) {
      AppendEscape(piece, static_cast<uint8_t>(text[i]));
    } else if (code < 0x20 || code == 0x7f) {
      AppendEscape(piece, static_cast<uint8_t>(code));
    } else if (IsInvisible(code)) {
      char buffer[16];
      std::snprintf(buffer, sizeof buffer, "\\u{%04x}", static_cast<unsigned>(code));
      piece = buffer;
    } else {
      piece.assign(text.substr(i, length));
    }
    // A cut falls between characters (and escapes), never inside one.
    if (out.size() + piece.size() > max_bytes) {
      return out + "... (" + std::to_string(text.size()) + " bytes)";
    }
    out += piece;
    i += length == 0 ? 1 : length;
  }
  return out;
}

std::string_view SkipByteOrderMark(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  return text;
}

size_t UnprintableBytes(std::string_view data) {
  return static_cast<size_t>(std::count_if(data.begin(), data.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    const bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
    return (byte < 0x20 && !blank) || byte == 0x7f;
  }));
}

}  // namespace archspec
