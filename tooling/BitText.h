// The two file forms of a configuration bit string, checked before anything reaches a record:
// text of '0' and '1' (most significant bit first, position p is character p), and bytes packed
// eight positions to a byte, position 8i at bit 0x80 of byte i, the last byte padded with zeros.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Diagnostic.h"

namespace archspec {

struct BitsResult {
  std::string bits;  // exactly the expected number of '0'/'1' characters when ok()
  std::vector<Diagnostic> errors;
  bool ok() const { return errors.empty(); }
};

// Reads the text form. A leading UTF-8 byte-order mark, blanks, tabs and line ends are layout and
// are skipped; any other character than '0' and '1' is an error that names its line, column and
// bit position. The number of bits must be `expected_bits`; `what` names the record in that
// message (e.g. "pcu_config_struct of mk43").
BitsResult ReadBitText(std::string_view text, size_t expected_bits, std::string_view what);

// Reads the packed form: exactly ceil(expected_bits / 8) bytes, padding bits 0.
BitsResult ReadBitBytes(std::string_view bytes, size_t expected_bits, std::string_view what);

}  // namespace archspec
