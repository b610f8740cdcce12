// Every record class of every records namespace, and the tile types: the generated list (from the
// record tables) that the tooling, the tests, the benchmarks and the fuzz targets take records
// from.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "compiler/arch_spec/Constructs.h"

namespace archspec {

struct RecordClass {
  const char* ns;    // records namespace: "ko", "ry", "rye"
  const char* name;  // "AGCU_Config_struct"
  size_t bits;
  size_t fields;       // direct fields
  int unique_ids;      // ids that SetUniqueId hands out for the whole record
  bool top_level;      // a tile's record: a member of no other record
  const char* source;  // the table row of its heading, "agcu_top.rec:120"
  std::unique_ptr<zu::spec::BaseConstruct> (*make)();  // a new record, all fields 0

  std::string label() const { return std::string(ns) + "/" + name; }
};

// A tile type and the record that programs it, the same name in every records namespace.
struct TileType {
  const char* name;         // "pcu"
  const char* record;       // "pcu_config_struct"
  const char* description;  // "compute tile"
  const char* source;
};

// Every record class, namespace by namespace in generations.tbl order, nested records first.
std::span<const RecordClass> RecordClasses();
// The tile types in table order.
std::span<const TileType> TileTypes();

// The records that program the tiles: one per tile type and records namespace.
inline std::vector<RecordClass> TileRecordClasses() {
  std::vector<RecordClass> tiles;
  for (const RecordClass& c : RecordClasses()) {
    if (c.top_level) tiles.push_back(c);
  }
  return tiles;
}

}  // namespace archspec
