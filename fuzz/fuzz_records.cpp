// Arbitrary input read by the top-level records.
//
// The first byte picks one of the twelve tile records and a mode:
// - well formed: the other bytes, bit by bit, become a text of '0' and '1' of exactly the
//   record's size (repeated or cut to fit); Parse then Build must give the same text back, and so
//   must the bytes.
// - raw: the other bytes are the text as they stand, of any length and any characters; Parse and
//   Build must neither crash nor touch memory outside the text (a wrong value is allowed here).
// - tile: the other bytes become leaf values of the tile of the first generation with those
//   records, cut to each leaf's width; the values must come back through the text form and the
//   packed form. The listings (with codes, with names, and of a change) and check have a target
//   of their own (fuzz_named), which keeps this one fast.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "BitText.h"
#include "RecordCatalog.h"
#include "Tile.h"
#include "fuzz_tiles.h"

namespace {

using namespace zu::spec;
using archspec::fuzzing::TileOf;
using archspec::fuzzing::Tiles;
using archspec::fuzzing::ValuesOf;

void CheckTile(archspec::TileRecord& tile, const uint8_t* data, size_t size) {
  const archspec::Layout& layout = tile.layout();
  const std::vector<uint64_t> values = ValuesOf(layout, data, size);

  const std::string bits = tile.WriteBits(values);
  if (bits.size() != layout.bits() || tile.ReadBits(bits) != values) std::abort();
  const std::vector<uint8_t> bytes = tile.WriteBytes(values);
  const archspec::BitsResult unpacked = archspec::ReadBitBytes(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), layout.bits(),
      tile.Describe());
  if (!unpacked.ok() || unpacked.bits != bits) std::abort();
}

std::string Text(const BaseConstruct& record) {
  ConfigBuilder builder;
  record.Build(builder);
  return builder.to_string();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t index = data[0] % Tiles().size();
  const archspec::RecordClass& tile = Tiles()[index];
  const size_t mode = (data[0] / Tiles().size()) % 3;
  const bool well_formed = mode == 0;
  ++data;
  --size;
  if (mode == 2) {
    CheckTile(TileOf(index), data, size);
    return 0;
  }
  std::unique_ptr<BaseConstruct> record = tile.make();

  if (!well_formed) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    size_t position = 0;
    record->Parse(text, &position);
    if (position != tile.bits) std::abort();
    (void)Text(*record);
    return 0;
  }

  std::string bits(tile.bits, '0');
  if (size > 0) {
    for (size_t p = 0; p < tile.bits; ++p) {
      const uint8_t byte = data[(p / 8) % size];
      bits[p] = ((byte >> (7 - p % 8)) & 1) ? '1' : '0';
    }
  }
  size_t position = 0;
  record->Parse(bits, &position);
  if (position != tile.bits || Text(*record) != bits) std::abort();

  ConfigBuilder builder;
  record->Build(builder);
  builder.advance(static_cast<int64_t>((8 - tile.bits % 8) % 8));
  std::string from_bytes;
  bytes2bits(builder.to_bytes(), &from_bytes);
  if (from_bytes.compare(0, tile.bits, bits) != 0) std::abort();
  return 0;
}
