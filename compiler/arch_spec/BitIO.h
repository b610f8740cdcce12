// Reading and writing configuration bits: the text form of a configuration ("0110...", one
// character per bit, the first most significant) read 64 characters at a time, and bits written
// into a ConfigBuilder a whole 64-bit word at a time. The records' Parse and Build run on these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "compiler/arch_spec/ConfigBuilder.h"

namespace zu::spec {

// The one rule by which the text form of a configuration is read: up to 64 characters from
// `position` on, the first one most significant, each counting by its low bit ('0' and '1' read as
// themselves); positions past the end of the text read as '0'.
uint64_t ReadCharacters(const std::string& bits, size_t position, size_t count);

// Reads a stretch of the text form of a configuration as bits. The stretch is packed once, 64
// characters to a word by ReadCharacters, so that each leaf of a record costs a shift and a mask.
class BitReader {
 public:
  BitReader(const std::string& bits, size_t position, size_t count);

  // The next `nbits` (1 to 64) bits, the first one most significant.
  uint64_t take(int nbits) {
    const size_t word = cursor_ >> 6;
    const int shift = static_cast<int>(cursor_ & 63);
    const uint64_t window = (words_[word] << shift) | ((words_[word + 1] >> 1) >> (63 - shift));
    cursor_ += static_cast<size_t>(nbits);
    return window >> (64 - nbits);
  }

 private:
  static constexpr size_t kWords = ConfigBuilder::kWords + 2;
  uint64_t words_[kWords];
  size_t cursor_ = 0;
};

// Writes bits at a builder's cursor, most significant first, gathering them into whole 64-bit words
// so that the builder turns its word order once per word rather than once per leaf. Whatever is
// left is written when the writer is flushed or destroyed.
class BitWriter {
 public:
  explicit BitWriter(ConfigBuilder& builder) : builder_(builder) {}
  BitWriter(const BitWriter&) = delete;
  BitWriter& operator=(const BitWriter&) = delete;
  ~BitWriter() { flush(); }

  // Appends the `nbits` (1 to 64) bits of `value`, which must be below 2 to the power of `nbits`.
  void put(uint64_t value, int nbits) {
    if (count_ + nbits < 64) {
      pending_ = (pending_ << nbits) | value;
      count_ += nbits;
      return;
    }
    // The value completes a word: its high part goes out with the pending bits, its low part stays.
    const int fill = 64 - count_;
    const int rest = nbits - fill;
    const uint64_t high = value >> rest;
    builder_.put(fill == 64 ? high : (pending_ << fill) | high, 64);
    pending_ = rest == 0 ? 0 : value & ((uint64_t{1} << rest) - 1);
    count_ = rest;
  }
  void flush() {
    if (count_ != 0) builder_.put(pending_, count_);
    pending_ = 0;
    count_ = 0;
  }

 private:
  ConfigBuilder& builder_;
  uint64_t pending_ = 0;
  int count_ = 0;
};

}  // namespace zu::spec
