// The reference site's decoder page runs this: the tooling layer's own readers and writers of a
// tile configuration, compiled to WebAssembly, behind a few functions the page's script calls.
// The page holds no rule of its own: every check, message and written form is the one the
// archspec tool gives for the same input.
//
// One configuration is open at a time: a tile of a generation (Open), its leaf values (Decode,
// Patch, or a port of them to another generation: PortTo), what is written of them (Listing,
// Bits, Bytes), what `check` finds in them (Check) and what the last Patch costs a running unit
// (PatchWrites).
// Complaints come back as text, in the tool's words, with the input named as the page names it.
#include <emscripten/bind.h>
#include <emscripten/val.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Configuration.h"
#include "ConfigurationJson.h"
#include "Diagnostic.h"
#include "Files.h"
#include "Names.h"
#include "Port.h"
#include "Tile.h"
#include "ToolWords.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {
namespace {

using zu::spec::ArchVersion;

struct Session {
  std::optional<Configuration> configuration;
  std::vector<uint8_t> bytes;  // the last packed form asked for, which the page copies
  std::optional<Configuration> before_patch;  // the configuration before the last Patch
};

Session& Current() {
  static Session session;
  return session;
}

// "archspec: error: ..." for complaints about the choice of generation and tile, as the tool
// prints them; "NAME:LINE: error: ..." for those about the input, with the tool's words where the
// tooling leaves room for a face's.
std::string ToolError(const std::string& message) { return "archspec: error: " + message; }

std::string Report(const std::string& name, const std::vector<Diagnostic>& errors) {
  std::string out;
  for (Diagnostic error : errors) {
    error.message = InToolWords(error);
    out += FormatDiagnostic(name, error) + "\n";
  }
  return out;
}

// Chooses the generation (product name, any case) and tile for what follows; the configuration
// is all zeros. Empty on success, else the tool's complaint.
std::string Open(const std::string& arch, const std::string& tile_name) {
  Session& session = Current();
  session.configuration.reset();
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(arch, error);
  if (version.major == 0) return ToolError(error);
  const TileType* tile = FindTileType(tile_name);
  if (tile == nullptr) {
    return ToolError("unknown tile '" + EchoText(tile_name) + "'; the tiles are " + TileNames());
  }
  zu::spec::ArchSpec::reset();
  zu::spec::ArchSpec::set_arch(version);
  session.configuration = Configuration::Zero(version, *tile);
  if (!session.configuration) return ToolError(GenerationLabel(version) + " has no tile records");
  return "";
}

// Moves the open configuration to the generation `arch` (product name, any case) by meaning, as
// `archspec port --partial` moves it: what moved becomes the open configuration. {report, exact}
// as JSON, the report in the tool's words; {error} where the generation cannot be taken, the
// configuration then left as it was.
std::string PortTo(const std::string& arch) {
  Session& session = Current();
  const auto refused = [](const std::string& message) {
    return nlohmann::json{{"error", ToolError(message)}}.dump();
  };
  if (!session.configuration) return refused("no tile is open");
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(arch, error);
  if (version.major == 0) return refused(error);
  std::optional<PortResult> port = Port(*session.configuration, version);
  if (!port) return refused(GenerationLabel(version) + " has no tile records");
  const nlohmann::json out{
      {"report", PortReportText(*session.configuration, port->configuration, port->report)},
      {"exact", port->report.exact()}};
  zu::spec::ArchSpec::reset();
  zu::spec::ArchSpec::set_arch(version);
  session.configuration = std::move(port->configuration);
  return out.dump();
}

// The page's names of the forms: "sparse" is a listing.
std::optional<Form> FormNamed(const std::string& name) {
  if (name == "sparse" || name == "listing") return Form::kListing;
  if (name == "bits") return Form::kBits;
  if (name == "bytes") return Form::kBytes;
  if (name == "json") return Form::kJson;
  return std::nullopt;
}

// Reads `data` as the open tile's configuration, in the form `form` ("bits", "bytes", "sparse",
// "json", or "auto" to tell it from the data), refused if it names another generation or tile, as
// the tool reads it. `name` names the input in complaints. Empty on success, else the
// complaints, one a line; the configuration is then left as it was.
std::string Decode(const std::string& form, const std::string& data, const std::string& name) {
  Session& session = Current();
  if (!session.configuration) return ToolError("no tile is open");
  if (data.size() > kConfigurationLimit.bytes) {
    return ToolError("cannot read " + name + ": more than " +
                     std::to_string(kConfigurationLimit.bytes) + " bytes, the most " +
                     kConfigurationLimit.what + " may take; stopped reading there");
  }
  ReadRequest request;
  request.form = FormNamed(form);
  request.generation = session.configuration->version().to_product_name_string();
  request.tile = session.configuration->tile().name;
  ReadResult read = Configuration::Read(data, request);
  if (!read.ok()) {
    if (read.fault == Fault::kUsage) return ToolError(read.errors.front().message);
    return Report(name, read.errors);
  }
  session.configuration = std::move(read.configuration);
  return "";
}

// What `data` is taken for where the page is left to tell, and the generation and tile it names:
// {form, generation?, tile?}, the form as the page names it. The page chooses that generation and
// tile before decoding.
std::string Inspect(const std::string& data) {
  Session& session = Current();
  const uint32_t bits = session.configuration ? session.configuration->layout().bits() : 0;
  InputKind kind = InspectInput(data, std::nullopt, bits);
  if (kind.form == Form::kJson) kind.names = ReadJsonConfiguration(data).names;
  nlohmann::json out{{"form", kind.form == Form::kListing ? "sparse" : FormName(kind.form)}};
  if (kind.names) {
    out["generation"] = kind.names->generation;
    out["tile"] = kind.names->tile;
  }
  return out.dump();
}

// Sets the leaves that `change` (lines of a sparse listing, "path = value" with the value a
// number or an enumerant's name) names, as `archspec patch` applies a listing of changes. Empty
// on success, else the complaints, the input named `name`; nothing is changed then.
std::string Patch(const std::string& change, const std::string& name) {
  Session& session = Current();
  if (!session.configuration) return ToolError("no tile is open");
  session.before_patch = session.configuration;
  return Report(name, session.configuration->Patch(change));
}

// What the last Patch costs the running unit, as `archspec writes --format json` of the
// configuration before it and after it gives it: the run-time register writes that make the
// change, and the changed leaves that need the configuration loaded. "null" before any Patch.
std::string PatchWrites() {
  Session& session = Current();
  if (!session.configuration || !session.before_patch ||
      session.before_patch->CanCompare(*session.configuration)) {
    return "null";
  }
  const Configuration& from = *session.before_patch;
  const Configuration& to = *session.configuration;
  return WritesToJson(from, to, WritesBetween(from, to), {}).dump();
}

// The canonical listing of the open configuration, codes by name, as `archspec decode --format
// sparse` writes it.
std::string Listing() {
  Session& session = Current();
  return session.configuration ? session.configuration->ToListing() : "";
}

// The JSON of the open configuration, as `archspec decode --format json` writes it.
std::string Json() {
  Session& session = Current();
  return session.configuration ? session.configuration->ToJson() : "";
}

// What `archspec check` finds: every typed leaf whose value is no code of its type, and the notes
// of the leaves that hold a code the tables infer, one line each, as a JSON array of strings.
std::string Check() {
  Session& session = Current();
  nlohmann::json out = nlohmann::json::array();
  if (!session.configuration) return out.dump();
  const Configuration& configuration = *session.configuration;
  for (const Finding& finding : configuration.Check()) {
    out.push_back(configuration.naming().FindingText(finding));
  }
  for (size_t leaf : configuration.InferredCodes()) {
    out.push_back("note: " + configuration.InferredText(leaf));
  }
  return out.dump();
}

// The text form and a line end, as `archspec encode` and `patch` write it.
std::string Bits() {
  Session& session = Current();
  return session.configuration ? session.configuration->ToBits() + "\n" : "";
}

// The packed form, as a view the page copies at once.
emscripten::val Bytes() {
  Session& session = Current();
  session.bytes.clear();
  if (session.configuration) session.bytes = session.configuration->ToBytes();
  return emscripten::val(emscripten::typed_memory_view(session.bytes.size(), session.bytes.data()));
}

// The value of leaf `leaf` as the listing writes it alone: its name where it has one, else its
// code in hexadecimal.
std::string ValueOf(int leaf) {
  Session& session = Current();
  if (!session.configuration || leaf < 0) return "";
  const Configuration& configuration = *session.configuration;
  const auto index = static_cast<size_t>(leaf);
  if (index >= configuration.values().size()) return "";
  const uint64_t value = configuration.value(index);
  const std::string_view name = configuration.naming().ShownName(index, value);
  return name.empty() ? Hex(value) : std::string(name);
}

// The indices of the leaves that are not zero, in bit order, for lighting the bit map.
std::vector<int> NonZero() {
  std::vector<int> out;
  Session& session = Current();
  if (!session.configuration) return out;
  const std::vector<uint64_t>& values = session.configuration->values();
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i] != 0) out.push_back(static_cast<int>(i));
  }
  return out;
}

// The open tile's layout, as `archspec layout --json` gives it, with the listing's header line.
std::string LayoutJson() {
  Session& session = Current();
  if (!session.configuration) return "null";
  nlohmann::json out = LayoutToJson(*session.configuration);
  out["header"] = session.configuration->HeaderLine();
  return out.dump();
}

}  // namespace
}  // namespace archspec

EMSCRIPTEN_BINDINGS(archspec_decoder) {
  emscripten::register_vector<int>("IndexList");
  emscripten::function("open", &archspec::Open);
  emscripten::function("decode", &archspec::Decode);
  emscripten::function("patch", &archspec::Patch);
  emscripten::function("patchWrites", &archspec::PatchWrites);
  emscripten::function("listing", &archspec::Listing);
  emscripten::function("check", &archspec::Check);
  emscripten::function("bits", &archspec::Bits);
  emscripten::function("bytes", &archspec::Bytes);
  emscripten::function("nonZero", &archspec::NonZero);
  emscripten::function("valueOf", &archspec::ValueOf);
  emscripten::function("layout", &archspec::LayoutJson);
  emscripten::function("inspect", &archspec::Inspect);
  emscripten::function("json", &archspec::Json);
  emscripten::function("port", &archspec::PortTo);
}
