// archspec: inspects what the architecture library knows about a chip generation, and reads,
// writes, explains and compares tile configurations.
//
// Exit status: 0 on success, 1 for bad data (an input file, an unanswered or unknown accessor),
// 2 for bad usage (options, an unknown generation or tile), and for `diff --exit-code` 3 when the
// configurations differ.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Accessors.h"
#include "BitText.h"
#include "Diagnostic.h"
#include "Layout.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {
namespace {

using nlohmann::json;
using zu::spec::ArchVersion;

constexpr int kBadData = 1;
constexpr int kBadUsage = 2;
constexpr int kDifferent = 3;

// Ends the command with an exit status; what went wrong has been printed already.
struct Exit {
  int status;
};

[[noreturn]] void Fail(int status, const std::string& message) {
  std::cerr << "archspec: error: " << message << "\n";
  throw Exit{status};
}

// ---------------------------------------------------------------------------------------------
// Options shared by the subcommands.

struct Options {
  std::string arch;
  std::string tile;
  std::vector<std::string> names;
  std::string match;
  bool json = false;
  bool csv = false;
  bool answered_only = false;
  std::string bit;
  std::string file;
  std::string file_b;
  bool bytes = false;
  bool sparse = false;
  bool all = false;
  std::string format = "tree";
  std::string output;
  bool exit_code = false;
};

// The generation named by --arch, chosen for the whole process. The refusal is the library's own.
ArchVersion SelectArch(const std::string& name) {
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(name, error);
  if (version.major == 0) Fail(kBadUsage, error);
  zu::spec::ArchSpec::set_arch(version);
  return version;
}

const TileType& SelectTile(const std::string& name) {
  const TileType* tile = FindTileType(name);
  if (tile == nullptr) Fail(kBadUsage, "unknown tile '" + name + "'; the tiles are " + TileNames());
  return *tile;
}

std::unique_ptr<TileRecord> OpenTile(const Options& options) {
  const ArchVersion version = SelectArch(options.arch);
  const TileType& tile = SelectTile(options.tile);
  std::unique_ptr<TileRecord> record = TileRecord::Create(version, tile);
  if (record == nullptr) Fail(kBadUsage, GenerationLabel(version) + " has no tile records");
  return record;
}

// The whole of a file, or of standard input for "-".
std::string ReadFile(const std::string& path) {
  if (path == "-") {
    std::ostringstream out;
    out << std::cin.rdbuf();
    return out.str();
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) Fail(kBadData, "cannot read " + path + ": " + std::strerror(errno));
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteOutput(const std::string& path, const std::string& data) {
  if (path.empty() || path == "-") {
    std::cout.write(data.data(), static_cast<std::streamsize>(data.size()));
    std::cout.flush();
    return;
  }
  std::ofstream out(path, std::ios::binary);
  if (out) out.write(data.data(), static_cast<std::streamsize>(data.size()));
  if (!out) Fail(kBadData, "cannot write " + path + ": " + std::strerror(errno));
}

[[noreturn]] void ReportAndExit(const std::string& file, const std::vector<Diagnostic>& errors) {
  for (const Diagnostic& error : errors) std::cerr << FormatDiagnostic(file, error) << "\n";
  throw Exit{kBadData};
}

std::string DisplayName(const std::string& path) { return path == "-" ? "<stdin>" : path; }

// A configuration from a file: the text form, the packed bytes, or a sparse listing.
enum class InputForm { kBits, kBytes, kSparse };

std::vector<uint64_t> LoadConfiguration(TileRecord& record, const std::string& path,
                                        InputForm form) {
  const std::string data = ReadFile(path);
  const std::string name = DisplayName(path);
  if (form == InputForm::kSparse) {
    SparseResult result = ReadSparse(data, record.layout(), ResolveEnumerant);
    if (!result.ok()) ReportAndExit(name, result.errors);
    return std::move(result.values);
  }
  const BitsResult bits = form == InputForm::kBytes
                              ? ReadBitBytes(data, record.layout().bits(), record.Describe())
                              : ReadBitText(data, record.layout().bits(), record.Describe());
  if (!bits.ok()) ReportAndExit(name, bits.errors);
  return record.ReadBits(bits.bits);
}

bool Matches(std::string_view name, const std::string& pattern) {
  if (pattern.empty()) return true;
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  return std::search(name.begin(), name.end(), pattern.begin(), pattern.end(),
                     [&](char a, char b) { return lower(a) == lower(b); }) != name.end();
}

json AccessorJson(const Accessor& accessor, const ArchVersion& version) {
  json out{{"name", accessor.name}, {"kind", KindName(accessor.kind)}, {"type", accessor.type}};
  const bool answered = IsAnswered(accessor, version);
  out["answered"] = answered;
  if (answered) out["value"] = ReadAccessor(accessor);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Subcommands.

void RunArchs(const Options& options) {
  json rows = json::array();
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    rows.push_back({{"version", row.version.to_string()},
                    {"product", row.product_name},
                    {"code_name", row.code_name},
                    {"records", row.records},
                    {"selectable", row.selectable}});
  }
  if (options.json) {
    std::cout << rows.dump(2) << "\n";
    return;
  }
  std::printf("%-8s %-8s %-5s %-8s %s\n", "version", "product", "code", "records", "selectable");
  for (const json& row : rows) {
    const auto text = [](const json& value) {
      const std::string s = value.get<std::string>();
      return s.empty() ? std::string("-") : s;
    };
    std::printf("%-8s %-8s %-5s %-8s %s\n", text(row["version"]).c_str(),
                text(row["product"]).c_str(), text(row["code_name"]).c_str(),
                text(row["records"]).c_str(), row["selectable"].get<bool>() ? "yes" : "no");
  }
}

void RunGet(const Options& options) {
  const ArchVersion version = SelectArch(options.arch);
  bool failed = false;
  json rows = json::array();
  for (const std::string& name : options.names) {
    const Accessor* accessor = FindAccessor(name);
    if (accessor == nullptr) {
      std::string message = "no accessor named " + name;
      const std::string nearest = NearestAccessor(name);
      if (!nearest.empty()) message += "; did you mean " + nearest + "?";
      std::cerr << "archspec: error: " << message << "\n";
      failed = true;
      continue;
    }
    if (!IsAnswered(*accessor, version)) {
      std::cerr << "archspec: error: " << name << " is not answered by " << GenerationLabel(version)
                << "\n";
      failed = true;
      if (options.json) rows.push_back(AccessorJson(*accessor, version));
      continue;
    }
    if (options.json) {
      rows.push_back(AccessorJson(*accessor, version));
    } else {
      std::cout << name << " = " << ValueText(ReadAccessor(*accessor)) << "\n";
    }
  }
  if (options.json) std::cout << rows.dump(2) << "\n";
  if (failed) throw Exit{kBadData};
}

// constants, features, constraints: every accessor of those kinds, with its answer.
void RunList(const Options& options, std::vector<AccessorKind> kinds) {
  const ArchVersion version = SelectArch(options.arch);
  json rows = json::array();
  for (const Accessor& accessor : AllAccessors()) {
    if (std::find(kinds.begin(), kinds.end(), accessor.kind) == kinds.end()) continue;
    if (!Matches(accessor.name, options.match)) continue;
    const bool answered = IsAnswered(accessor, version);
    if (options.answered_only && !answered) continue;
    if (options.json) {
      rows.push_back(AccessorJson(accessor, version));
    } else if (answered) {
      std::cout << accessor.name << " = " << ValueText(ReadAccessor(accessor)) << "\n";
    } else {
      std::cout << accessor.name << ": not answered by " << GenerationLabel(version) << "\n";
    }
  }
  if (options.json) std::cout << rows.dump(2) << "\n";
}

void RunLayout(const Options& options) {
  const std::unique_ptr<TileRecord> record = OpenTile(options);
  const Layout& layout = record->layout();
  if (options.json) {
    json leaves = json::array();
    for (const Leaf& leaf : layout.leaves()) {
      json row{{"path", leaf.path},
               {"offset", leaf.offset},
               {"width", leaf.width},
               {"reg_lo", leaf.reg_lo}};
      if (leaf.reg_hi.has_value()) row["reg_hi"] = *leaf.reg_hi;
      leaves.push_back(std::move(row));
    }
    const json out{{"arch", zu::spec::ArchSpec::arch().to_product_name_string()},
                   {"record", layout.record()},
                   {"bits", layout.bits()},
                   {"leaves", std::move(leaves)}};
    std::cout << out.dump(2) << "\n";
    return;
  }
  if (options.csv) {
    std::cout << "path,offset,width,reg_lo,reg_hi\n";
    for (const Leaf& leaf : layout.leaves()) {
      std::cout << leaf.path << "," << leaf.offset << "," << leaf.width << "," << leaf.reg_lo << ","
                << (leaf.reg_hi.has_value() ? std::to_string(*leaf.reg_hi) : "") << "\n";
    }
    return;
  }
  std::printf("# %s: %u bits, %zu leaves\n", record->Describe().c_str(), layout.bits(),
              layout.leaves().size());
  std::printf("%6s %5s %9s  %s\n", "offset", "width", "registers", "path");
  for (const Leaf& leaf : layout.leaves()) {
    std::printf("%6u %5u %9s  %s\n", leaf.offset, leaf.width, Registers(leaf).c_str(),
                leaf.path.c_str());
  }
}

// A bit position given as decimal or 0x hexadecimal.
uint32_t ParseBit(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const unsigned long long value = std::strtoull(begin, &end, hex ? 16 : 10);
  if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])) || *end != '\0' ||
      errno != 0 || value > 0xffffffffULL) {
    Fail(kBadUsage, "BIT must be a bit position (decimal or 0x hexadecimal), found '" + text + "'");
  }
  return static_cast<uint32_t>(value);
}

void RunWhere(const Options& options) {
  const std::unique_ptr<TileRecord> record = OpenTile(options);
  const Layout& layout = record->layout();
  const uint32_t bit = ParseBit(options.bit);
  const std::optional<size_t> index = layout.LeafAtBit(bit);
  if (!index.has_value()) {
    Fail(kBadUsage, "bit " + std::to_string(bit) + " lies outside " + record->Describe() +
                        ", which has bits 0 to " + std::to_string(layout.bits() - 1));
  }
  const Leaf& leaf = layout.leaves()[*index];
  // The leaf's bits stand most significant first: its first bit is value bit width - 1.
  const uint32_t value_bit = leaf.width - 1 - (bit - leaf.offset);
  const bool high_word = value_bit >= 32;
  const uint32_t reg = high_word ? leaf.reg_hi.value_or(0) : leaf.reg_lo;
  std::printf("bit %u of %s:\n", bit, record->Describe().c_str());
  std::printf("  leaf      %s\n", leaf.path.c_str());
  std::printf("  leaf bits %u..%u (%u bits, most significant first)\n", leaf.offset,
              leaf.offset + leaf.width - 1, leaf.width);
  std::printf("  value bit %u (weight %s)\n", value_bit,
              Hex(value_bit >= 64 ? 0 : uint64_t{1} << value_bit).c_str());
  std::printf("  register  %u, bit %u\n", reg, high_word ? value_bit - 32 : value_bit);
}

std::vector<std::string> ListingHeader(const TileRecord& record) { return {record.Describe()}; }

void RunDecode(const Options& options) {
  const std::unique_ptr<TileRecord> record = OpenTile(options);
  const std::vector<uint64_t> values = LoadConfiguration(
      *record, options.file, options.bytes ? InputForm::kBytes : InputForm::kBits);
  if (options.format == "tree") {
    std::cout << record->WriteTree(values);
  } else if (options.format == "sparse") {
    std::cout << WriteSparse(record->layout(), values, ListingHeader(*record), options.all);
  } else {
    json leaves = json::array();
    const std::vector<Leaf>& all = record->layout().leaves();
    for (size_t i = 0; i < all.size(); ++i) {
      if (values[i] == 0 && !options.all) continue;
      leaves.push_back({{"path", all[i].path},
                        {"offset", all[i].offset},
                        {"width", all[i].width},
                        {"value", values[i]}});
    }
    const json out{{"arch", zu::spec::ArchSpec::arch().to_product_name_string()},
                   {"tile", record->tile().name},
                   {"record", record->layout().record()},
                   {"bits", record->layout().bits()},
                   {"leaves", std::move(leaves)}};
    std::cout << out.dump(2) << "\n";
  }
}

void RunEncode(const Options& options) {
  const std::unique_ptr<TileRecord> record = OpenTile(options);
  const std::vector<uint64_t> values = LoadConfiguration(*record, options.file, InputForm::kSparse);
  if (options.bytes) {
    const std::vector<uint8_t> bytes = record->WriteBytes(values);
    WriteOutput(options.output, std::string(bytes.begin(), bytes.end()));
  } else {
    WriteOutput(options.output, record->WriteBits(values) + "\n");
  }
}

void RunDiff(const Options& options) {
  const std::unique_ptr<TileRecord> record = OpenTile(options);
  const InputForm form = options.bytes    ? InputForm::kBytes
                         : options.sparse ? InputForm::kSparse
                                          : InputForm::kBits;
  // One record serves both: each load reads the whole record anew.
  const std::vector<uint64_t> a = LoadConfiguration(*record, options.file, form);
  const std::vector<uint64_t> b = LoadConfiguration(*record, options.file_b, form);
  const std::vector<Leaf>& leaves = record->layout().leaves();
  size_t differ = 0;
  for (size_t i = 0; i < leaves.size(); ++i) {
    if (a[i] == b[i]) continue;
    ++differ;
    std::cout << leaves[i].path << ": " << Hex(a[i]) << " -> " << Hex(b[i]) << "\n";
  }
  std::cout << "# " << differ << " of " << leaves.size() << " leaves differ between "
            << DisplayName(options.file) << " and " << DisplayName(options.file_b) << "\n";
  if (options.exit_code && differ > 0) throw Exit{kDifferent};
}

// ---------------------------------------------------------------------------------------------
// The command line.

CLI::App* AddArch(CLI::App* command, Options& options) {
  command->add_option("--arch", options.arch,
                      "Chip generation by product name: mk41, mk42, mk43 or mk44 (any case)");
  return command;
}

void AddTile(CLI::App* command, Options& options) {
  command->add_option("TILE", options.tile, "Tile: pcu, pmu, switch or agcu")->required();
}

int Main(int argc, char** argv) {
  Options options;
  CLI::App app{
      "archspec: what the architecture library knows about a chip generation, and a reader,\n"
      "writer and explainer of tile configurations."};
  app.name("archspec");
  app.require_subcommand(1);
  app.footer(
      "Exit status: 0 success, 1 bad data, 2 bad usage (3: diff --exit-code found differences).\n"
      "Run 'archspec SUBCOMMAND --help' for the options and examples of each subcommand.");

  CLI::App* archs = app.add_subcommand("archs", "List the chip generations");
  archs->add_flag("--json", options.json, "Print JSON");
  archs->footer("Example:\n  archspec archs");

  CLI::App* get = AddArch(app.add_subcommand("get", "Answer accessors by name"), options);
  get->add_option("NAME", options.names, "Accessor names (constants, features, constraints)")
      ->required();
  get->add_flag("--json", options.json, "Print JSON");
  get->footer(
      "An accessor the generation does not answer is reported, and the exit status is 1.\n"
      "Examples:\n"
      "  archspec get --arch mk43 ag_addr_width pcu_ctrchain_ctr_width\n"
      "  archspec get --arch mk43 stage_opcode_alu_op_madd fp8_support");

  const auto add_list = [&](const char* name, const char* what, const char* example) {
    CLI::App* command = AddArch(app.add_subcommand(name, what), options);
    command->add_option("--match", options.match, "Only names containing TEXT (any case)");
    command->add_flag("--json", options.json, "Print JSON (name, kind, type, answered, value)");
    command->footer(example);
    return command;
  };
  CLI::App* constants =
      add_list("constants", "List the constants: parameters, enumerants and containers",
               "Examples:\n"
               "  archspec constants --arch mk43 --match pcu_ctrchain\n"
               "  archspec constants --arch mk41 --match stage_opcode --answered --json");
  constants->add_flag("--answered", options.answered_only,
                      "Leave out what the generation does not answer");
  CLI::App* features = add_list("features", "List the feature flags",
                                "Example:\n  archspec features --arch mk44 --match fp8");
  CLI::App* constraints = add_list("constraints", "List the constraints",
                                   "Example:\n  archspec constraints --arch mk43");

  CLI::App* layout = AddArch(
      app.add_subcommand("layout", "Every leaf of a tile with offset, width, registers"), options);
  AddTile(layout, options);
  CLI::Option* layout_json = layout->add_flag("--json", options.json, "Print JSON");
  layout->add_flag("--csv", options.csv, "Print CSV")->excludes(layout_json);
  layout->footer(
      "Leaves are listed in bit order; a leaf's offset is its most significant bit.\n"
      "Examples:\n"
      "  archspec layout --arch mk43 pcu\n"
      "  archspec layout --arch mk44 switch --csv > switch.csv");

  CLI::App* where = AddArch(
      app.add_subcommand("where", "The leaf that holds a bit, and which bit of it"), options);
  AddTile(where, options);
  where->add_option("BIT", options.bit, "Bit position in the tile (decimal or 0x hex)")->required();
  where->footer("Example:\n  archspec where --arch mk43 pcu 4321");

  CLI::App* decode = AddArch(
      app.add_subcommand("decode", "Print a configuration: tree, sparse listing or JSON"), options);
  AddTile(decode, options);
  decode->add_option("FILE", options.file, "Text of '0'/'1' (or bytes with --bytes); - for stdin")
      ->required();
  decode->add_flag("--bytes", options.bytes, "FILE holds the packed bytes");
  decode->add_option("--format", options.format, "tree (default), sparse or json")
      ->check(CLI::IsMember({"tree", "sparse", "json"}));
  decode->add_flag("--all", options.all, "sparse and json: list zero leaves too");
  decode->footer(
      "Examples:\n"
      "  archspec decode --arch mk43 pcu prog.bits --format sparse\n"
      "  archspec decode --arch mk43 pcu prog.bin --bytes --format tree");

  CLI::App* encode =
      AddArch(app.add_subcommand("encode", "Write the bits of a sparse listing"), options);
  AddTile(encode, options);
  encode->add_option("FILE", options.file, "Sparse listing; - for stdin")->required();
  encode->add_flag("--bytes", options.bytes, "Write packed bytes instead of '0'/'1' text");
  encode->add_option("-o,--output", options.output, "Output file (default: standard output)");
  encode->footer(
      "Examples:\n"
      "  archspec encode --arch mk43 pcu examples/pcu_program.sparse -o prog.bits\n"
      "  archspec encode --arch mk43 pcu examples/pcu_program.sparse --bytes -o prog.bin");

  CLI::App* diff = AddArch(
      app.add_subcommand("diff", "The leaves whose values differ between two configs"), options);
  AddTile(diff, options);
  diff->add_option("A", options.file, "First configuration")->required();
  diff->add_option("B", options.file_b, "Second configuration")->required();
  CLI::Option* diff_bytes = diff->add_flag("--bytes", options.bytes, "Both files hold bytes");
  diff->add_flag("--sparse", options.sparse, "Both files are sparse listings")
      ->excludes(diff_bytes);
  diff->add_flag("--exit-code", options.exit_code, "Exit with status 3 if they differ");
  diff->footer(
      "Each differing leaf prints as 'path: A-value -> B-value', in bit order.\n"
      "Examples:\n"
      "  archspec diff --arch mk43 pcu before.bits after.bits\n"
      "  archspec diff --arch mk43 pcu --sparse old.sparse new.sparse --exit-code");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kBadUsage;
  }

  try {
    if (archs->parsed()) RunArchs(options);
    if (get->parsed()) RunGet(options);
    if (constants->parsed()) {
      RunList(options, {AccessorKind::kScalar, AccessorKind::kEnum, AccessorKind::kContainer});
    }
    if (features->parsed()) RunList(options, {AccessorKind::kFeature});
    if (constraints->parsed()) RunList(options, {AccessorKind::kConstraint});
    if (layout->parsed()) RunLayout(options);
    if (where->parsed()) RunWhere(options);
    if (decode->parsed()) RunDecode(options);
    if (encode->parsed()) RunEncode(options);
    if (diff->parsed()) RunDiff(options);
  } catch (const Exit& exit) {
    std::cout.flush();
    return exit.status;
  }
  return 0;
}

}  // namespace
}  // namespace archspec

int main(int argc, char** argv) { return archspec::Main(argc, argv); }
