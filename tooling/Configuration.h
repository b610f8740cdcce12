// A configuration of a tile: one generation's record of that tile with a value for each of its
// leaves, and everything that is done with one: reading it from any form the tooling writes
// (the text of '0' and '1', packed bytes, a sparse listing, JSON), telling the form of an input
// that does not say it, refusing an input that names another generation or tile, writing every
// form, setting a leaf from text, placing a bit, comparing with another configuration, and
// finding the values that are no code of their type.
//
// The tool, the Python package and the reference site's decoder are faces of this type: they read
// their arguments, make a call or two here, and render. Complaints made here name no option of a
// face; a Diagnostic's `hint` tells a face where it may add its own words ("--force reads it
// anyway", "force=True reads it anyway").
//
// A configuration is a plain value (copyable, comparable); its record, layout and naming are
// those of its tile class, made once per process and shared by every configuration of the class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Delta.h"
#include "Diagnostic.h"
#include "Layout.h"
#include "Names.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {

// The forms of a configuration.
enum class Form {
  kBits,     // the text of '0' and '1', most significant bit first; blanks and line ends between
  kBytes,    // eight positions a byte, position 8i at bit 0x80 of byte i, the last byte padded
  kListing,  // a sparse listing, "path = value" a line, perhaps under a "# archspec GEN TILE"
  kJson,     // the JSON of a configuration, {"arch", "tile", "record", "bits", "leaves": [...]}
};
// "bits", "bytes", "listing", "json".
const char* FormName(Form form);

// What an input says of itself, before any tile is chosen.
struct InputKind {
  Form form = Form::kBits;
  // The generation and tile that a listing's header or the JSON's "arch" and "tile" name, as
  // written; empty when the input names none.
  std::optional<ListingHeader> names;
};

// The form of `data`, unless `forced`: a listing header means a listing; a first character `{`
// means JSON; a text with no '=' that is mostly '0' and '1' means bits (so that one stray
// character is reported at its position); any other text is a listing without a header; what is
// not text is bytes. Where the tile's length is known (`tile_bits`, 0 if not), a text of only
// '0' and '1' whose length is the tile's packed length and not its length in bits is bytes.
InputKind InspectInput(std::string_view data, std::optional<Form> forced = std::nullopt,
                       uint32_t tile_bits = 0);

// What a reader is told besides the input.
struct ReadRequest {
  std::optional<Form>
      form;  // the form, where the caller forces one; else it is told from the input
  // The generation (a product name, any case) and the tile that the caller chose; where one is
  // empty, the input's header or JSON names it. The caller's choice of generation is checked by
  // the caller (the library's own words belong to each face); an input's is checked here.
  std::string generation;
  std::string tile;
  bool force = false;  // read an input whose header or JSON names another generation or tile
  ReportLimits limits;
};

// Where a complaint lies: the input (a fault of the data), or the caller's choice of generation or
// tile (a fault of the usage, shown without a place).
enum class Fault { kData, kUsage };

class Configuration;

struct ReadResult;

class Configuration {
 public:
  // All leaves 0, of `tile` on the generation `version`; empty for a generation without records.
  static std::optional<Configuration> Zero(const zu::spec::ArchVersion& version,
                                           const TileType& tile);
  // Reads `data` as the request says. The complaints carry lines and columns; the face names
  // the input when it shows them (FormatDiagnostic).
  static ReadResult Read(std::string_view data, const ReadRequest& request);

  const zu::spec::ArchVersion& version() const { return record_->version(); }
  const TileType& tile() const { return record_->tile(); }
  const TileRecord& record() const { return *record_; }
  const Layout& layout() const { return record_->layout(); }
  const Naming& naming() const { return *naming_; }
  // "pcu_config_struct of mk43 (ry)".
  std::string Describe() const { return record_->Describe(); }
  // "archspec mk43 pcu".
  std::string HeaderLine() const { return record_->ListingHeaderLine(); }

  // One value per leaf of the layout, in bit order.
  const std::vector<uint64_t>& values() const { return values_; }
  uint64_t value(size_t leaf) const { return values_[leaf]; }
  // Sets leaf `leaf`; false, with nothing changed, if the value does not fit its width.
  bool SetValue(size_t leaf, uint64_t value);

  // Sets the leaf at `path` from text as a listing writes a value: a number (decimal or 0x
  // hexadecimal) or the name of an enumerant, which must be of the leaf's type where it has one.
  // Empty on success; else the complaint, nothing changed.
  std::optional<std::string> Set(std::string_view path, std::string_view text);
  // Sets every leaf that a listing read as a change assigns (the listing read against this
  // configuration's layout).
  void Apply(const SparseResult& delta);
  // Reads `listing` as a change and applies it: only the leaves it names change. The complaints,
  // each with its line, where it is refused; nothing changes then. A header that names another
  // generation or tile is refused unless `force`.
  std::vector<Diagnostic> Patch(std::string_view listing, bool force = false,
                                const ReportLimits& limits = {});

  // The leaf index at `path`, or empty; `Layout::NotALeaf` says why.
  std::optional<size_t> Find(std::string_view path) const { return layout().Find(path); }
  // Where bit `bit` lies; empty outside the tile.
  std::optional<BitPlace> Place(uint64_t bit) const;
  // "bit 9800 lies outside pcu_config_struct of mk43 (ry), which has bits 0 to 9792".
  std::string Outside(std::string_view bit) const;

  // The leaves whose values differ from `other`'s, in bit order; `other` must be a configuration
  // of the same tile and generation (CanCompare).
  std::vector<LeafChange> Compare(const Configuration& other) const;
  // Empty if the two are configurations of one tile class; else why they cannot be compared.
  std::optional<std::string> CanCompare(const Configuration& other) const;
  // Every typed leaf whose value is no code of its type.
  std::vector<Finding> Check() const { return naming_->Check(values_); }
  // Every typed leaf whose value is not 0 and a code that the tables infer on the generation
  // rather than state: a program that relies on it relies on an inference.
  std::vector<size_t> InferredCodes() const;
  // "simd_structIn[0][1].stage_opcode (bits 3620..3624) = 0x40
  // (pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1): the code is inferred on mk44 (rye), not stated".
  std::string InferredText(size_t leaf) const;

  // The forms. A listing and JSON write codes by name unless `codes`; `all` lists zero leaves
  // too; the tree with `nonzero` holds only the leaves that are set and what holds them.
  std::string ToBits() const;  // without a line end
  std::vector<uint8_t> ToBytes() const;
  // A listing runs in the record's order, or with `order` kBit in bit order (Sparse.h).
  std::string ToListing(bool all = false, bool codes = false,
                        ListingOrder order = ListingOrder::kRecord) const;
  std::string ToTree(bool codes = false, bool nonzero = false) const;
  std::string ToJson(bool all = false, bool codes = false) const;

  bool operator==(const Configuration& other) const {
    return record_ == other.record_ && values_ == other.values_;
  }

 private:
  Configuration(TileRecord& record, const Naming& naming);

  TileRecord* record_;  // shared by every configuration of the tile class, kept for the process
  const Naming* naming_;
  std::vector<uint64_t> values_;

  friend struct ConfigurationReader;
};

struct ReadResult {
  std::optional<Configuration> configuration;  // set when the input was read
  InputKind kind;                              // what the input was taken for
  std::vector<Diagnostic> errors;              // in the input's order
  Fault fault = Fault::kData;                  // what the errors are about
  bool ok() const { return errors.empty(); }
};

// The shared record of `tile` on the generation `version`, made once per process; null for a
// generation without records.
TileRecord* SharedTileRecord(const zu::spec::ArchVersion& version, const TileType& tile);

// The generation that a product name or version in an input or argument names, or empty:
// as the library parses it, without its complaint.
std::optional<zu::spec::ArchVersion> FindGeneration(std::string_view name);
// "'mk99' names no generation; the generations are mk41, mk42, mk43 and mk44": the tooling's
// words for an unknown generation, where the library's (which speak of the command line's
// option) do not fit.
std::string UnknownGeneration(std::string_view name);
// "'foo' names no tile; the tiles are pcu, pmu, switch and agcu".
std::string UnknownTile(std::string_view name);

// " (8866 bits are the length of pcu_config_struct of mk44 (rye))": where `count` bits (or bytes,
// with `bytes`) are the length of exactly one tile record, which tile and generations it is;
// empty otherwise.
std::string LengthOwner(size_t count, bool bytes);

// The leaves of each tile that take the enumeration type `type` on the generation `version`, by
// path, tile by tile in the tiles' order; empty where the generation answers no such type.
std::vector<std::pair<const TileType*, std::vector<std::string>>> FieldsOfType(
    const zu::spec::ArchVersion& version, std::string_view type);

// The records and arrays of a layout, each before what it holds, in bit order: a branch's path,
// its first bit and its size in bits.
struct BranchRow {
  const std::string* path;
  const Branch* branch;
  uint32_t offset;
  uint32_t bits;
};
std::vector<BranchRow> OrderedBranches(const Layout& layout);

}  // namespace archspec
