// Arbitrary input read by the top-level records.
//
// The first byte picks one of the twelve tile records and a mode:
// - well formed: the other bytes, bit by bit, become a text of '0' and '1' of exactly the
//   record's size (repeated or cut to fit); Parse then Build must give the same text back, and so
//   must the bytes.
// - raw: the other bytes are the text as they stand, of any length and any characters; Parse and
//   Build must neither crash nor touch memory outside the text (a wrong value is allowed here).
// - tile: the other bytes become leaf values of the tile of the first generation with those
//   records, cut to each leaf's width; the values must come back through the text form, the
//   packed form, the canonical listing, and the listing of a change applied to another
//   configuration.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "BitText.h"
#include "Delta.h"
#include "Names.h"
#include "RecordCatalog.h"
#include "Sparse.h"
#include "Tile.h"

namespace {

using namespace zu::spec;

const std::vector<archspec::RecordClass>& Tiles() {
  static const std::vector<archspec::RecordClass> tiles = archspec::TileRecordClasses();
  return tiles;
}

// The tile record of a record class, for the first selectable generation with its records; made
// once per class, as its layout is.
archspec::TileRecord& TileOf(size_t index) {
  static std::vector<std::unique_ptr<archspec::TileRecord>> tiles(Tiles().size());
  std::unique_ptr<archspec::TileRecord>& tile = tiles[index];
  if (tile != nullptr) return *tile;
  const archspec::RecordClass& record_class = Tiles()[index];
  for (const GenerationRow& row : GenerationTable()) {
    if (!row.selectable || std::string_view(row.records) != record_class.ns) continue;
    for (const archspec::TileType& type : archspec::TileTypes()) {
      if (std::string_view(type.record) == record_class.name) {
        tile = archspec::TileRecord::Create(row.version, type);
        return *tile;
      }
    }
  }
  std::abort();
}

// Leaf values from the bytes, eight a leaf, repeated to fill the tile and cut to each width.
std::vector<uint64_t> ValuesOf(const archspec::Layout& layout, const uint8_t* data, size_t size) {
  std::vector<uint64_t> values;
  values.reserve(layout.leaves().size());
  size_t at = 0;
  for (const archspec::Leaf& leaf : layout.leaves()) {
    uint64_t value = 0;
    for (int k = 0; k < 8 && size > 0; ++k, ++at) value = value << 8 | data[at % size];
    values.push_back(value & archspec::MaxValue(leaf.width));
  }
  return values;
}

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

  const archspec::SparseResult listing = archspec::ReadSparse(
      archspec::WriteSparse(layout, values, {tile.ListingHeaderLine()}), layout, nullptr);
  if (!listing.ok() || listing.values != values) std::abort();

  // With names: every value a name stands for reads back to its code, the others as written; and
  // check reports exactly the typed leaves whose values are not zero and no code.
  const archspec::Naming& names = *archspec::Naming::Of(tile);
  const archspec::SparseResult named = archspec::ReadSparse(
      archspec::WriteSparse(layout, values, {tile.ListingHeaderLine()}, false, &names), layout,
      names.Resolver());
  if (!named.ok() || named.values != values) std::abort();
  size_t unnamed = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    unnamed += names.TypeOf(i) != nullptr && values[i] != 0 && names.NamesOf(i, values[i]).empty();
  }
  if (names.Check(values).size() != unnamed) std::abort();

  // Another configuration, every sixteenth leaf from one the input picks holding the complement
  // of its value: the listing of the change from it, zeros included, patches it into this one.
  std::vector<uint64_t> other = values;
  for (size_t i = size > 0 ? data[0] % 16 : 0; i < other.size(); i += 16) {
    other[i] = ~values[i] & archspec::MaxValue(layout.leaves()[i].width);
  }
  const archspec::SparseResult change = archspec::ReadSparse(
      archspec::WriteDelta(layout, archspec::CompareConfigurations(other, values)), layout,
      nullptr);
  if (!change.ok()) std::abort();
  if (tile.WriteBits(archspec::ApplyDelta(other, change)) != bits) std::abort();
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
