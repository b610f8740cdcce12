#include "compiler/arch_spec/ConfigBuilder.h"

#include <algorithm>
#include <cstdint>

#include "compiler/arch_spec/Logging.h"

namespace zu::spec {

void ConfigBuilder::set(uint64_t value, int64_t nbits) {
  if (nbits < 1) {
    cursor_ += nbits;
    return;
  }
  ensure_room(nbits);
  // Positions above the value's 64 bits are cleared, 64 at a time.
  for (int64_t zeros = nbits - 64; zeros > 0; zeros -= 64) put(0, zeros > 64 ? 64 : zeros);
  put(value, nbits > 64 ? 64 : static_cast<int>(nbits));
}

namespace {

// cursor + nbits, held at the largest value where the sum would not fit: a position that far is
// illegal all the same, and the failure can say so without overflowing.
int64_t PositionAfter(int64_t cursor, int64_t nbits) {
  int64_t position;
  if (__builtin_add_overflow(cursor, nbits, &position)) {
    return nbits > 0 ? INT64_MAX : INT64_MIN;
  }
  return position;
}

}  // namespace

void ConfigBuilder::advance(int64_t nbits) {
  const int64_t position = PositionAfter(cursor_, nbits);
  check(static_cast<uint64_t>(position) < static_cast<uint64_t>(kCapacityBits),
        "Can't advance offset to illegal position {}", position);
  cursor_ = position;
}

void ConfigBuilder::ensure_room(int64_t nbits) const {
  const int64_t end = PositionAfter(cursor_, nbits);
  check(cursor_ >= 0 && end <= kCapacityBits, "Can't advance offset to illegal position {}", end);
}

std::vector<uint8_t> ConfigBuilder::to_bytes() const {
  // A cursor moved below 0 (set with a negative width) is no size either.
  check(cursor_ >= 0 && cursor_ % 8 == 0, "Size must be a multiple of 8, got {}", cursor_);
  std::vector<uint8_t> bytes(static_cast<size_t>(cursor_ / 8));
  // Turned around, a word holds its first position at bit 63: its bytes, from the top down, are the
  // next eight bytes of the stream.
  for (size_t word = 0; 8 * word < bytes.size(); ++word) {
    const uint64_t turned = reverse_bits(bits_[word]);
    const size_t count = std::min<size_t>(8, bytes.size() - 8 * word);
    for (size_t j = 0; j < count; ++j) {
      bytes[8 * word + j] = static_cast<uint8_t>(turned >> (56 - 8 * j));
    }
  }
  return bytes;
}

std::string ConfigBuilder::to_string() const {
  std::string text(static_cast<size_t>(cursor_ > 0 ? cursor_ : 0), '0');
  for (size_t p = 0; p < text.size(); ++p) {
    if (bit(static_cast<int64_t>(p))) text[p] = '1';
  }
  return text;
}

}  // namespace zu::spec
