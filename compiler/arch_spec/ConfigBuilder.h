// ConfigBuilder: the bit buffer that Build writes a whole record into.
//
// Position p of the buffer is character p of the text form of a configuration: the first field's
// most significant bit is at position 0. The buffer is fixed at 50000 bits, above the largest
// record, and lives wherever its owner puts it (no heap).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zu::spec {

class ConfigBuilder {
 public:
  static constexpr int64_t kCapacityBits = 50000;
  static constexpr size_t kWords = (kCapacityBits + 63) / 64;  // 782

  // An empty buffer: every bit clear, the cursor at 0.
  ConfigBuilder() = default;

  // Writes the low `nbits` bits of `value` at the cursor, most significant first, and moves the
  // cursor on; positions beyond bit 63 of the value are written as 0. `nbits` below 1 only moves
  // the cursor by it.
  void set(uint64_t value, int64_t nbits);
  // Moves the cursor by `nbits` without writing. The new position must lie in [0, 50000).
  void advance(int64_t nbits);
  // Positions 0 to cursor - 1 packed eight to a byte, position 8i at bit 0x80 of byte i. The cursor
  // must be a multiple of 8.
  std::vector<uint8_t> to_bytes() const;

  // Where the next write goes; after a Build from 0, the size of what was built.
  int64_t cursor() const { return cursor_; }
  // The bit at `position` (0 <= position < 50000).
  bool bit(int64_t position) const { return (bits_[position >> 6] >> (position & 63)) & 1; }
  // Positions 0 to cursor - 1 as text of '0' and '1'.
  std::string to_string() const;

  // Fails with the advance message unless `nbits` more bits fit after the cursor. Records call it
  // once per Build, so that a Build that would run off the buffer stops before it writes.
  void ensure_room(int64_t nbits) const;

  // Writes the low `nbits` (1 to 64) bits of `value` at the cursor, most significant first, and
  // moves the cursor on. The caller has made sure that they fit. This is the write of every leaf.
  void put(uint64_t value, int nbits) {
    const uint64_t mask = nbits == 64 ? ~uint64_t{0} : (uint64_t{1} << nbits) - 1;
    // Position cursor + nbits - 1 - k takes bit k of the value: reversed into the word's bit order.
    const uint64_t reversed = reverse_bits(value & mask) >> (64 - nbits);
    const size_t word = static_cast<size_t>(cursor_) >> 6;
    const int shift = static_cast<int>(cursor_ & 63);
    bits_[word] = (bits_[word] & ~(mask << shift)) | (reversed << shift);
    if (shift + nbits > 64) {
      bits_[word + 1] = (bits_[word + 1] & ~(mask >> (64 - shift))) | (reversed >> (64 - shift));
    }
    cursor_ += nbits;
  }

  static uint64_t reverse_bits(uint64_t x) {
    x = __builtin_bswap64(x);
    x = ((x >> 4) & 0x0f0f0f0f0f0f0f0fULL) | ((x & 0x0f0f0f0f0f0f0f0fULL) << 4);
    x = ((x >> 2) & 0x3333333333333333ULL) | ((x & 0x3333333333333333ULL) << 2);
    x = ((x >> 1) & 0x5555555555555555ULL) | ((x & 0x5555555555555555ULL) << 1);
    return x;
  }

 private:
  uint64_t bits_[kWords + 1] =
      {};  // one spare word keeps a write that ends at the capacity in bounds
  int64_t cursor_ = 0;
};

// Appends the text form of `bytes` to `out`, eight characters a byte, most significant bit first.
void bytes2bits(const std::vector<uint8_t>& bytes, std::string* out);

}  // namespace zu::spec
