// The text form of a configuration read as bits, and bytes turned into that text form.
#include "compiler/arch_spec/BitIO.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

namespace zu::spec {

namespace {

// Entry b is the eight-character text of byte b, most significant bit first.
constexpr std::array<std::array<char, 8>, 256> MakeByteTexts() {
  std::array<std::array<char, 8>, 256> texts{};
  for (int b = 0; b < 256; ++b) {
    for (int k = 0; k < 8; ++k) texts[b][k] = ((b >> (7 - k)) & 1) ? '1' : '0';
  }
  return texts;
}
constexpr std::array<std::array<char, 8>, 256> kByteTexts = MakeByteTexts();

constexpr std::array<std::string_view, 256> MakeByteTextViews() {
  std::array<std::string_view, 256> views{};
  for (int b = 0; b < 256; ++b) views[b] = std::string_view(kByteTexts[b].data(), 8);
  return views;
}
constexpr std::array<std::string_view, 256> BYTES2BITS_CACHE = MakeByteTextViews();

// Eight characters, first at the lowest address, to one byte with the first character at bit 7.
// Only the low bit of each character counts.
inline uint64_t PackEight(const char* text) {
  uint64_t chunk;
  std::memcpy(&chunk, text, 8);
  return ((chunk & 0x0101010101010101ULL) * 0x8040201008040201ULL) >> 56;
}

}  // namespace

void bytes2bits(const std::vector<uint8_t>& bytes, std::string* out) {
  out->reserve(out->size() + 8 * bytes.size());
  for (const uint8_t b : bytes) out->append(BYTES2BITS_CACHE[b]);
}

uint64_t ReadCharacters(const std::string& bits, size_t position, size_t count) {
  const size_t available = position < bits.size() ? bits.size() - position : 0;
  const char* text = bits.data() + (position < bits.size() ? position : 0);
  uint64_t word = 0;
  if (count == 64 && available >= 64) {
    for (int k = 0; k < 8; ++k) word = (word << 8) | PackEight(text + 8 * k);
    return word;
  }
  // A short stretch, or the end of the text: pad with '0' to whole groups of eight.
  char chunk[64];
  std::memset(chunk, '0', sizeof chunk);
  std::memcpy(chunk, text, std::min(available, count));
  for (size_t k = 0; 8 * k < count; ++k) word = (word << 8) | PackEight(chunk + 8 * k);
  const size_t spare = (8 - count % 8) % 8;  // the padding of the last group
  return word >> spare;
}

BitReader::BitReader(const std::string& bits, size_t position, size_t count) {
  const size_t words = (count + 63) / 64;
  for (size_t w = 0; w < words; ++w) {
    const size_t first = 64 * w;
    const size_t n = std::min<size_t>(64, count - first);
    // The last word holds its characters at its most significant end, as a whole word would.
    words_[w] = ReadCharacters(bits, position + first, n) << (64 - n);
  }
  // Zero words behind the stretch keep the two-word window of take() inside initialised data.
  words_[words] = 0;
  if (words + 1 < kWords) words_[words + 1] = 0;
}

}  // namespace zu::spec
