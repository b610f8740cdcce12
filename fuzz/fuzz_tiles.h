// What the fuzz targets of tiles share: the twelve tile records, each made once for the first
// selectable generation with its records, and leaf values made from the input's bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "RecordCatalog.h"
#include "Tile.h"

namespace archspec::fuzzing {

// Aborts where a complaint shows a raw control byte: complaints echo input escaped.
inline void RequireClean(const std::string& message) {
  for (char c : message) {
    if (static_cast<unsigned char>(c) < 0x20) std::abort();
  }
}

inline const std::vector<RecordClass>& Tiles() {
  static const std::vector<RecordClass> tiles = TileRecordClasses();
  return tiles;
}

// The tile record of a record class, for the first selectable generation with its records; made
// once per class, as its layout is.
inline TileRecord& TileOf(size_t index) {
  static std::vector<std::unique_ptr<TileRecord>> tiles(Tiles().size());
  std::unique_ptr<TileRecord>& tile = tiles[index];
  if (tile != nullptr) return *tile;
  const RecordClass& record_class = Tiles()[index];
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    if (!row.selectable || std::string_view(row.records) != record_class.ns) continue;
    for (const TileType& type : TileTypes()) {
      if (std::string_view(type.record) == record_class.name) {
        tile = TileRecord::Create(row.version, type);
        return *tile;
      }
    }
  }
  std::abort();
}

// Leaf values from the bytes, eight a leaf, repeated to fill the tile and cut to each width.
inline std::vector<uint64_t> ValuesOf(const Layout& layout, const uint8_t* data, size_t size) {
  std::vector<uint64_t> values;
  values.reserve(layout.leaves().size());
  size_t at = 0;
  for (const Leaf& leaf : layout.leaves()) {
    uint64_t value = 0;
    for (int k = 0; k < 8 && size > 0; ++k, ++at) value = value << 8 | data[at % size];
    values.push_back(value & MaxValue(leaf.width));
  }
  return values;
}

}  // namespace archspec::fuzzing
