// A tile's configuration record of the selected generation, and its flat Layout.
//
// The record is made on the heap, numbered from id 0 and registered with an empty root name, so
// that every leaf path begins with the first field's name ("simd_structIn[0][4].stage_opcode").
// The library keeps names and offsets in one process-wide table keyed by those ids, so a process
// holds one TileRecord at a time; tests that need several give each its own range of ids.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Layout.h"
#include "compiler/arch_spec/ArchVersion.h"
#include "compiler/arch_spec/Constructs.h"

namespace archspec {

enum class TileKind { kPcu, kPmu, kSwitch, kAgcu };

// "pcu", "pmu", "switch", "agcu" (any case).
std::optional<TileKind> ParseTileKind(std::string_view name);
const char* TileName(TileKind tile);
// The name of the tile's top-level record: "pcu_config_struct", ..., "AGCU_Config_struct".
const char* RecordName(TileKind tile);
// The namespace of the generation's records: "ko" for mk41 and mk42, "ry" for mk43, "rye" for mk44;
// empty for a generation without records.
std::string RecordNamespace(const zu::spec::ArchVersion& version);
// "mk43 (ry)": how messages name a generation.
std::string GenerationLabel(const zu::spec::ArchVersion& version);

class TileRecord {
 public:
  // The record of `tile` for `version`, numbered from `first_id` and registered. Null for a
  // generation without records.
  static std::unique_ptr<TileRecord> Create(const zu::spec::ArchVersion& version, TileKind tile,
                                            zu::spec::UniqueId first_id = 0);

  TileKind tile() const { return tile_; }
  const Layout& layout() const { return layout_; }
  // "pcu_config_struct of mk43 (ry)".
  std::string Describe() const;

  // The leaf values of a configuration read from its text form (exactly layout().bits() '0'/'1').
  std::vector<uint64_t> ReadBits(const std::string& bits);
  // The text form of a configuration given by its leaf values.
  std::string WriteBits(const std::vector<uint64_t>& values);
  // The packed form: bytes of eight positions, the last one padded with zeros.
  std::vector<uint8_t> WriteBytes(const std::vector<uint64_t>& values);
  // The library's printed form of the record holding `values`.
  std::string WriteTree(const std::vector<uint64_t>& values);

 private:
  TileRecord(TileKind tile, std::string label, std::unique_ptr<zu::spec::BaseConstruct> root,
             zu::spec::UniqueId first_id);
  // Stores `values` (one per leaf, each fitting its width) into the record.
  void Load(const std::vector<uint64_t>& values);

  TileKind tile_;
  std::string label_;
  std::unique_ptr<zu::spec::BaseConstruct> root_;
  Layout layout_;
};

}  // namespace archspec
