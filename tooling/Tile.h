// A tile's configuration record of one generation, and its flat Layout.
//
// The record itself stays unregistered: its values are read and written through Parse, Build and
// Walk, which need no entry in the table of field locations. Names, offsets and registers are
// taken once per record class into a Layout, plain data shared by every TileRecord of that class:
// the record is numbered from a first id, registered with an empty root name (so that every path
// begins with the first field's name, "simd_structIn[0][4].stage_opcode"), walked, and its
// entries are removed again. The printed form registers the record in the same way for the time of
// printing. So any number of tiles of any generations live side by side in one process, as long as
// nothing else uses the table's ids from the first id on at the same time.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Layout.h"
#include "RecordCatalog.h"
#include "compiler/arch_spec/ArchVersion.h"
#include "compiler/arch_spec/ConfigBuilder.h"
#include "compiler/arch_spec/Constructs.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {

// The tile type of that name ("pcu", "pmu", "switch", "agcu", any case), or null.
const TileType* FindTileType(std::string_view name);
// "pcu, pmu, switch and agcu": the tile names for messages, the last after `conjunction`.
std::string TileNames(const char* conjunction = "and");
// "mk41, mk42, mk43 or mk44": the product names of the selectable generations, as above.
std::string ProductNames(const char* conjunction = "or");
// The namespace of the generation's records ("ko" for mk41 and mk42); empty if it has none.
std::string RecordNamespace(const zu::spec::ArchVersion& version);
// "mk43 (ry)": how messages name a generation.
std::string GenerationLabel(const zu::spec::ArchVersion& version);
// The record class of a tile in a records namespace, or null.
const RecordClass* FindTileRecord(std::string_view ns, const TileType& tile);

class TileRecord {
 public:
  // The record of `tile` for `version`; null for a generation without records. Registration, for
  // the layout and the printed form, numbers from `first_id`.
  static std::unique_ptr<TileRecord> Create(const zu::spec::ArchVersion& version,
                                            const TileType& tile, zu::spec::UniqueId first_id = 0);

  const TileType& tile() const { return tile_; }
  const zu::spec::ArchVersion& version() const { return version_; }
  const RecordClass& record_class() const { return class_; }
  const Layout& layout() const { return *layout_; }
  // "pcu_config_struct of mk43 (ry)".
  std::string Describe() const;
  // "archspec mk43 pcu": the header line of listings of this tile and generation.
  std::string ListingHeaderLine() const;

  // The leaf values of a configuration read from its text form (exactly layout().bits() '0'/'1').
  std::vector<uint64_t> ReadBits(const std::string& bits);
  // The text form of a configuration given by its leaf values.
  std::string WriteBits(const std::vector<uint64_t>& values);
  // The packed form: bytes of eight positions, the last one padded with zeros.
  std::vector<uint8_t> WriteBytes(const std::vector<uint64_t>& values);
  // The library's printed form of the record holding `values`, registered as the layout is.
  std::string WriteTree(const std::vector<uint64_t>& values);
  // Runs `use` on the record holding `values`, registered as the layout is, and with the run-time
  // registers of its linked leaves given through the library's SetRegisterLo and SetRegisterHi
  // (number, writable): the record's CollectFields shows them (`reg`, with `reg_flag` set) and
  // its CollectPatches writes them. Unlinked leaves keep their configuration registers and an
  // unset flag, so a whole record's patches mix the two numberings: take those of `reg_flag`.
  // (The library keeps one flag per leaf: a leaf with one word linked has it set for both.)
  void UseRegistered(const std::vector<uint64_t>& values,
                     const std::function<void(const zu::spec::BaseConstruct&)>& use);

 private:
  TileRecord(const zu::spec::ArchVersion& version, const TileType& tile,
             const RecordClass& record_class, zu::spec::UniqueId first_id);
  // Stores `values` (one per leaf, each fitting its width) into the record, for printing.
  void Load(const std::vector<uint64_t>& values);
  // A builder that holds the configuration of `values`, its cursor after the last bit.
  std::unique_ptr<zu::spec::ConfigBuilder> Built(const std::vector<uint64_t>& values);

  zu::spec::ArchVersion version_;
  const TileType& tile_;
  const RecordClass& class_;
  std::string label_;
  zu::spec::UniqueId first_id_;
  std::unique_ptr<zu::spec::BaseConstruct> root_;
  std::shared_ptr<const Layout> layout_;
};

}  // namespace archspec
