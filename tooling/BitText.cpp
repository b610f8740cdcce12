#include "BitText.h"

#include <cstdio>

#include "compiler/arch_spec/ConfigBuilder.h"

namespace archspec {
namespace {

bool IsLayout(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// A character as a reader sees it: itself if printable, else its code.
std::string Shown(char c) {
  if (c >= 0x21 && c <= 0x7e) return std::string("character '") + c + "'";
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "0x%02x", static_cast<unsigned char>(c));
  return std::string("byte ") + buffer;
}

}  // namespace

BitsResult ReadBitText(std::string_view text, size_t expected_bits, std::string_view what) {
  BitsResult result;
  result.bits.reserve(expected_bits);
  text = SkipByteOrderMark(text);
  size_t line = 1;
  size_t column = 0;
  for (char c : text) {
    ++column;
    if (c == '\n') {
      ++line;
      column = 0;
      continue;
    }
    if (IsLayout(c)) continue;
    if (c != '0' && c != '1') {
      std::string message =
          Shown(c) + " at bit " + std::to_string(result.bits.size()) + " is not '0' or '1'";
      // Unprintable bytes suggest the packed form given where text was expected.
      const Hint hint = c < 0x20 || c > 0x7e ? Hint::kPackedBytes : Hint::kNone;
      result.errors.push_back({line, column, std::move(message), hint});
      return result;
    }
    result.bits += c;
  }
  if (result.bits.size() != expected_bits) {
    result.errors.push_back({0, 0,
                             std::to_string(result.bits.size()) + " bits, but " +
                                 std::string(what) + " has " + std::to_string(expected_bits)});
  }
  return result;
}

BitsResult ReadBitBytes(std::string_view bytes, size_t expected_bits, std::string_view what) {
  BitsResult result;
  const size_t expected_bytes = (expected_bits + 7) / 8;
  if (bytes.size() != expected_bytes) {
    result.errors.push_back(
        {0, 0,
         std::to_string(bytes.size()) + " bytes, but " + std::string(what) + " takes " +
             std::to_string(expected_bytes) + " (" + std::to_string(expected_bits) + " bits" +
             (expected_bits % 8 != 0 ? ", the last byte padded with " +
                                           std::to_string(8 - expected_bits % 8) + " zero bits)"
                                     : ")")});
    return result;
  }
  zu::spec::bytes2bits(std::vector<uint8_t>(bytes.begin(), bytes.end()), &result.bits);
  for (size_t p = expected_bits; p < result.bits.size(); ++p) {
    if (result.bits[p] != '0') {
      result.errors.push_back({0, 0,
                               "padding bit " + std::to_string(p) + " in the last byte (byte " +
                                   std::to_string(p / 8) + ") is 1; " + std::string(what) +
                                   " ends at bit " + std::to_string(expected_bits - 1) +
                                   " and padding must be 0"});
      return result;
    }
  }
  result.bits.resize(expected_bits);
  return result;
}

}  // namespace archspec
