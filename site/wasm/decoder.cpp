// The reference site's decoder page runs this: the tooling layer's own readers and writers of a
// tile configuration, compiled to WebAssembly, behind a few functions the page's script calls.
// The page holds no rule of its own: every check, message and written form is the one the
// archspec tool gives for the same input.
//
// One configuration is open at a time: a tile of a generation (Open), its leaf values (Decode,
// Patch), what is written of them (Listing, Bits, Bytes) and what `check` finds in them (Check).
// Complaints come back as text, in the tool's words, with the input named as the page names it.
#include <emscripten/bind.h>
#include <emscripten/val.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "BitText.h"
#include "Delta.h"
#include "Diagnostic.h"
#include "Layout.h"
#include "Names.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

struct Session {
  std::unique_ptr<TileRecord> record;
  const Naming* names = nullptr;  // the tile's leaves seen through their field types
  std::vector<uint64_t> values;   // one per leaf
  std::vector<uint8_t> bytes;     // the last packed form asked for, which the page copies
};

Session& Current() {
  static Session session;
  return session;
}

// "archspec: error: ..." for complaints about the choice of generation and tile, as the tool
// prints them; "NAME:LINE: error: ..." for those about the input.
std::string ToolError(const std::string& message) { return "archspec: error: " + message; }

std::string Report(const std::string& name, const std::vector<Diagnostic>& errors) {
  std::string out;
  for (const Diagnostic& error : errors) out += FormatDiagnostic(name, error) + "\n";
  return out;
}

// Chooses the generation (product name, any case) and tile for what follows; the configuration
// is all zeros. Empty on success, else the tool's complaint.
std::string Open(const std::string& arch, const std::string& tile_name) {
  Session& session = Current();
  session.record.reset();
  session.names = nullptr;
  session.values.clear();
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(arch, error);
  if (version.major == 0) return ToolError(error);
  const TileType* tile = FindTileType(tile_name);
  if (tile == nullptr) {
    return ToolError("unknown tile '" + EchoText(tile_name) + "'; the tiles are " + TileNames());
  }
  zu::spec::ArchSpec::reset();
  zu::spec::ArchSpec::set_arch(version);
  session.record = TileRecord::Create(version, *tile);
  if (session.record == nullptr)
    return ToolError(GenerationLabel(version) + " has no tile records");
  session.names = Naming::Of(*session.record);
  session.values.assign(session.record->layout().leaves().size(), 0);
  return "";
}

// Reads `data` as the open tile's configuration: `form` is "bits" (the text form), "bytes" (the
// packed form) or "sparse" (a listing, refused if its header names another generation or tile).
// `name` names the input in complaints. Empty on success, else the complaints, one a line; the
// configuration is then left as it was.
std::string Decode(const std::string& form, const std::string& data, const std::string& name) {
  Session& session = Current();
  if (!session.record) return ToolError("no tile is open");
  TileRecord& record = *session.record;
  if (form == "sparse") {
    // A name of another type than its leaf's is refused with the leaf's type and its names.
    SparseResult result =
        ReadSparse(data, record.layout(), session.names->Resolver(), ReportLimits{});
    if (std::optional<Diagnostic> wrong = CheckListingHeader(
            result.header, record.version().to_product_name_string(), record.tile().name)) {
      return Report(name, {*wrong});
    }
    if (!result.ok()) return Report(name, result.errors);
    session.values = std::move(result.values);
    return "";
  }
  const bool bytes = form == "bytes";
  const BitsResult bits = bytes ? ReadBitBytes(data, record.layout().bits(), record.Describe())
                                : ReadBitText(data, record.layout().bits(), record.Describe());
  if (!bits.ok()) return Report(name, bits.errors);
  session.values = record.ReadBits(bits.bits);
  return "";
}

// Sets the leaves that `change` (lines of a sparse listing, "path = value" with the value a
// number or an enumerant's name) names, as `archspec patch` applies a listing of changes. Empty
// on success, else the complaints, the input named `name`; nothing is changed then.
std::string Patch(const std::string& change, const std::string& name) {
  Session& session = Current();
  if (!session.record) return ToolError("no tile is open");
  TileRecord& record = *session.record;
  const SparseResult delta =
      ReadSparse(change, record.layout(), session.names->Resolver(), ReportLimits{});
  if (std::optional<Diagnostic> wrong = CheckListingHeader(
          delta.header, record.version().to_product_name_string(), record.tile().name)) {
    return Report(name, {*wrong});
  }
  if (!delta.ok()) return Report(name, delta.errors);
  session.values = ApplyDelta(std::move(session.values), delta);
  return "";
}

// The canonical listing of the open configuration, codes by name, as `archspec decode --format
// sparse` writes it.
std::string Listing() {
  Session& session = Current();
  if (!session.record) return "";
  return WriteSparse(session.record->layout(), session.values,
                     {session.record->ListingHeaderLine()}, false, session.names);
}

// What `archspec check` finds: every typed leaf whose value is no code of its type, one line
// each, as a JSON array of strings.
std::string Check() {
  Session& session = Current();
  nlohmann::json out = nlohmann::json::array();
  if (!session.record) return out.dump();
  for (const Finding& finding : session.names->Check(session.values)) {
    out.push_back(session.names->FindingText(finding));
  }
  return out.dump();
}

// The text form and a line end, as `archspec encode` and `patch` write it.
std::string Bits() {
  Session& session = Current();
  if (!session.record) return "";
  return session.record->WriteBits(session.values) + "\n";
}

// The packed form, as a view the page copies at once.
emscripten::val Bytes() {
  Session& session = Current();
  session.bytes.clear();
  if (session.record) session.bytes = session.record->WriteBytes(session.values);
  return emscripten::val(emscripten::typed_memory_view(session.bytes.size(), session.bytes.data()));
}

// The value of leaf `leaf` as the listing writes it alone: its name where it has one, else its
// code in hexadecimal.
std::string ValueOf(int leaf) {
  Session& session = Current();
  if (!session.record || leaf < 0 || static_cast<size_t>(leaf) >= session.values.size()) return "";
  const uint64_t value = session.values[leaf];
  const std::string_view name = session.names->ShownName(static_cast<size_t>(leaf), value);
  return name.empty() ? Hex(value) : std::string(name);
}

// The indices of the leaves that are not zero, in bit order, for lighting the bit map.
std::vector<int> NonZero() {
  std::vector<int> out;
  const std::vector<uint64_t>& values = Current().values;
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i] != 0) out.push_back(static_cast<int>(i));
  }
  return out;
}

// The open tile's layout, as `archspec layout --json` gives it, with the listing's header line:
// {arch, record, bits, header, leaves: [{path, offset, width, reg_lo, reg_hi?, type?}]}.
std::string LayoutJson() {
  Session& session = Current();
  if (!session.record) return "null";
  const Layout& layout = session.record->layout();
  nlohmann::json leaves = nlohmann::json::array();
  for (const Leaf& leaf : layout.leaves()) {
    nlohmann::json entry{{"path", leaf.path},
                         {"offset", leaf.offset},
                         {"width", leaf.width},
                         {"reg_lo", leaf.reg_lo}};
    if (leaf.reg_hi) entry["reg_hi"] = *leaf.reg_hi;
    if (const Enumeration* type = session.names->TypeOf(leaves.size())) {
      entry["type"] = type->name();
    }
    leaves.push_back(std::move(entry));
  }
  return nlohmann::json{{"arch", session.record->version().to_product_name_string()},
                        {"record", layout.record()},
                        {"bits", layout.bits()},
                        {"header", session.record->ListingHeaderLine()},
                        {"leaves", std::move(leaves)}}
      .dump();
}

// What the header of the listing `text` names, as {generation, tile}, or null where its first
// line is no header: the page chooses that generation and tile before reading the listing.
std::string HeaderOf(const std::string& text) {
  const std::optional<ListingHeader> header = ReadListingHeader(text);
  if (!header) return "null";
  return nlohmann::json{{"generation", header->generation}, {"tile", header->tile}}.dump();
}

}  // namespace
}  // namespace archspec

EMSCRIPTEN_BINDINGS(archspec_decoder) {
  emscripten::register_vector<int>("IndexList");
  emscripten::function("open", &archspec::Open);
  emscripten::function("decode", &archspec::Decode);
  emscripten::function("patch", &archspec::Patch);
  emscripten::function("listing", &archspec::Listing);
  emscripten::function("check", &archspec::Check);
  emscripten::function("bits", &archspec::Bits);
  emscripten::function("bytes", &archspec::Bytes);
  emscripten::function("nonZero", &archspec::NonZero);
  emscripten::function("valueOf", &archspec::ValueOf);
  emscripten::function("layout", &archspec::LayoutJson);
  emscripten::function("headerOf", &archspec::HeaderOf);
}
