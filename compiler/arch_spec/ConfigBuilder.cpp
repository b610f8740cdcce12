#include "compiler/arch_spec/ConfigBuilder.h"

#include <tuple>

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

void ConfigBuilder::advance(int64_t nbits) {
  const int64_t position = cursor_ + nbits;
  ZU_SPEC_CHECK(static_cast<uint64_t>(position) < static_cast<uint64_t>(kCapacityBits),
                "Can't advance offset to illegal position {}", position);
  cursor_ = position;
}

void ConfigBuilder::ensure_room(int64_t nbits) const {
  const int64_t end = cursor_ + nbits;
  ZU_SPEC_CHECK(cursor_ >= 0 && end <= kCapacityBits, "Can't advance offset to illegal position {}",
                end);
}

std::vector<uint8_t> ConfigBuilder::to_bytes() const {
  ZU_SPEC_CHECK(cursor_ % 8 == 0, "Size must be a multiple of 8, got {}", cursor_);
  std::vector<uint8_t> bytes(static_cast<size_t>(cursor_ / 8));
  for (size_t i = 0; i < bytes.size(); ++i) {
    // Byte i of the little-endian words holds positions 8i..8i+7 with 8i at its low bit.
    const auto raw = static_cast<uint8_t>(bits_[i >> 3] >> (8 * (i & 7)));
    bytes[i] = static_cast<uint8_t>(reverse_bits(raw) >> 56);
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
