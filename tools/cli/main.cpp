// archspec: inspects what the architecture library knows about a chip generation, and reads,
// writes, patches, explains and compares tile configurations.
//
// Exit status: 0 on success, 1 for bad data (an input file, an unanswered or unknown accessor, a
// failed read or write), 2 for bad usage (options, an unknown generation or tile), and for
// `diff --exit-code` 3 when the configurations differ.
//
// What a command prints on standard output is gathered and written at its end in one checked
// write, so that a write error is reported, and a command that fails prints no half of a result.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "AccessorsJson.h"
#include "Completion.h"
#include "Configuration.h"
#include "ConfigurationJson.h"
#include "Datasheet.h"
#include "DatasheetJson.h"
#include "Delta.h"
#include "Diagnostic.h"
#include "Files.h"
#include "Layout.h"
#include "Names.h"
#include "Nearest.h"
#include "PathForm.h"
#include "Port.h"
#include "PortJson.h"
#include "RuntimeRegisters.h"
#include "Sparse.h"
#include "Tile.h"
#include "ToolWords.h"
#include "Writes.h"
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

void Complain(const std::string& message) { std::cerr << "archspec: error: " << message << "\n"; }

[[noreturn]] void Fail(int status, const std::string& message) {
  Complain(message);
  throw Exit{status};
}

// Appends printf-formatted text to the output of the command.
[[gnu::format(printf, 2, 3)]] void Printf(std::string& out, const char* format, ...) {
  char buffer[512];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof buffer) {
    out.append(buffer, static_cast<size_t>(n));
    return;
  }
  std::string long_line(static_cast<size_t>(n) + 1, '\0');
  va_start(args, format);
  std::vsnprintf(long_line.data(), long_line.size(), format, args);
  va_end(args);
  out.append(long_line.data(), static_cast<size_t>(n));
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
  bool force = false;
  std::string format;
  std::string output;
  bool exit_code = false;
  bool codes = false;
  bool nonzero = false;
  bool bit_order = false;
  bool strict = false;
  std::string to;                // port: the target generation
  bool partial = false;          // port: write what did move even when something did not
  uint32_t id = 0;               // writes: the id of every write
  std::optional<uint32_t> base;  // writes, apply: added to a low word's register
  bool binary = false;           // apply: WRITES is the binary form
};

// The generation named by --arch, chosen for the whole process. The refusal is the library's own,
// with the name as complaints echo input.
ArchVersion SelectArch(const std::string& name) {
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(name, error);
  if (version.major == 0) {
    const size_t at = name.empty() ? std::string::npos : error.find(name);
    if (at != std::string::npos) error.replace(at, name.size(), EchoText(name));
    Fail(kBadUsage, error);
  }
  zu::spec::ArchSpec::set_arch(version);
  return version;
}

const TileType& SelectTile(const std::string& name) {
  const TileType* tile = FindTileType(name);
  if (tile == nullptr) {
    Fail(kBadUsage, "unknown tile '" + EchoText(name) + "'; the tiles are " + TileNames());
  }
  return *tile;
}

// A file's whole content, read once: the operands of a command may name one file twice, and
// standard input can only be read once. A configuration of any form fits the largest limit.
const std::string& ReadFile(const std::string& path,
                            const InputLimit& limit = kConfigurationLimit) {
  static std::map<std::string, std::string> read;
  if (const auto found = read.find(path); found != read.end()) return found->second;
  InputResult input = ReadInput(path, limit);
  if (!input.ok()) Fail(kBadData, input.error);
  return read.emplace(path, std::move(input.data)).first->second;
}

// The tile of --arch and TILE, for the commands that read no configuration.
Configuration OpenTile(const Options& options) {
  const ArchVersion version = SelectArch(options.arch);
  std::optional<Configuration> configuration =
      Configuration::Zero(version, SelectTile(options.tile));
  if (!configuration.has_value()) {
    Fail(kBadUsage, GenerationLabel(version) + " has no tile records");
  }
  return std::move(*configuration);
}

// TILE may be left out before the files of a command where a listing's header names it: when
// the last file is missing and the first operand names no tile, the operands move up to the
// files, and those still missing are a usage error.
void PlaceOperands(Options& options, const std::vector<const char*>& files) {
  std::vector<std::string*> slots{&options.tile, &options.file, &options.file_b};
  slots.resize(files.size() + 1);
  if (slots.back()->empty() && FindTileType(options.tile) == nullptr) {
    for (size_t i = slots.size() - 1; i > 0; --i) *slots[i] = std::move(*slots[i - 1]);
    slots[0]->clear();
  }
  for (size_t i = 0; i < files.size(); ++i) {
    if (slots[i + 1]->empty()) Fail(kBadUsage, std::string(files[i]) + " is required");
  }
}

[[noreturn]] void ReportAndExit(const std::string& file, const std::vector<Diagnostic>& errors) {
  for (Diagnostic error : errors) {
    error.message = InToolWords(error);  // the tool's words where the complaint leaves room
    std::cerr << FormatDiagnostic(file, error) << "\n";
  }
  throw Exit{kBadData};
}

// The form that --bytes and --sparse force on a command's input files; else each file's own.
std::optional<Form> FormOf(const Options& options) {
  if (options.bytes) return Form::kBytes;
  if (options.sparse) return Form::kListing;
  return std::nullopt;
}

// A configuration from a file of any form, of the generation of --arch and the TILE given, or
// where either is left out, of what the input names (a listing's header, a JSON's "arch" and
// "tile"), or of `like`'s, a configuration the command read before. An input that names another
// generation or tile is refused unless --force.
Configuration Load(const Options& options, const std::string& path, std::optional<Form> form,
                   const Configuration* like = nullptr, Form* form_read = nullptr) {
  ReadRequest request;
  request.form = form;
  request.force = options.force;
  request.generation = options.arch;
  request.tile = options.tile;
  // The library's words for a generation given on the command line, and the tool's for a tile.
  if (!options.arch.empty()) SelectArch(options.arch);
  if (!options.tile.empty()) SelectTile(options.tile);
  if (like != nullptr) {
    if (request.generation.empty()) request.generation = like->version().to_product_name_string();
    if (request.tile.empty()) request.tile = like->tile().name;
  }
  ReadResult read = Configuration::Read(ReadFile(path), request);
  if (!read.ok()) {
    const Diagnostic& first = read.errors.front();
    if (read.fault == Fault::kData) ReportAndExit(InputName(path), read.errors);
    if (first.hint == Hint::kNoGeneration) SelectArch(options.arch);  // the library's complaint
    if (first.hint == Hint::kNoTile) {
      Fail(kBadUsage,
           "TILE is required: " + TileNames("or") + ", unless the input's header or JSON names it");
    }
    Fail(kBadUsage, first.message);
  }
  Configuration& configuration = *read.configuration;
  if (!zu::spec::ArchSpec::is_arch_set()) {
    zu::spec::ArchSpec::set_arch(configuration.version());
  }
  if (form_read != nullptr) *form_read = read.kind.form;
  return std::move(configuration);
}

// A configuration in the form asked for: the text form and a line end, or the packed bytes.
std::string ConfigurationFile(const Configuration& configuration, bool bytes) {
  if (!bytes) return configuration.ToBits() + "\n";
  const std::vector<uint8_t> packed = configuration.ToBytes();
  return std::string(packed.begin(), packed.end());
}

// To the file of -o, whole or not at all, or to the command's output.
void Emit(const std::string& path, const std::string& data, std::string& out) {
  if (path.empty() || path == "-") {
    out += data;
    return;
  }
  if (const std::optional<std::string> error = WriteFileWhole(path, data)) Fail(kBadData, *error);
}

// Standard input can feed one file of a command, not two.
void OneStandardInput(const std::string& a, const std::string& b, const char* names) {
  if (a == "-" && b == "-") {
    Fail(kBadUsage, std::string(names) + " cannot both be standard input ('-')");
  }
}

json AccessorJson(const Accessor& accessor, const ArchVersion& version) {
  return AccessorEntry(accessor, version, Enumerations::Of(version)->answers());
}

// "name = value", and for a code that the tables infer rather than state, a comment that says so:
// a change of it is no known change of the hardware.
std::string AnswerLine(const Accessor& accessor, const ArchVersion& version) {
  std::string line = std::string(accessor.name) + " = " + ValueText(ReadAccessor(accessor));
  if (IsInferred(accessor, version)) line += "  # inferred";
  const std::string note = AnswerNote(accessor, Enumerations::Of(version)->answers());
  if (!note.empty()) line += "  # " + note;
  return line + "\n";
}

// ---------------------------------------------------------------------------------------------
// Subcommands.

// The code of the generation whose answers `row` gives: its own, or the one its classes derive
// from ("ko" for mk42); null for a generation without answers.
json AnswersAs(const zu::spec::GenerationRow& row) {
  if (!row.has_answers()) return nullptr;
  return *row.answers_as != '\0' ? row.answers_as : row.code_name;
}

void RunArchs(const Options& options, std::string& out) {
  json rows = json::array();
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    rows.push_back({{"version", row.version.to_string()},
                    {"product", row.product_name},
                    {"code_name", row.code_name},
                    {"records", row.records},
                    {"answers_as", AnswersAs(row)},
                    {"selectable", row.selectable}});
  }
  if (options.json) {
    out += rows.dump(2) + "\n";
    return;
  }
  Printf(out, "%-8s %-8s %-5s %-8s %s\n", "version", "product", "code", "records", "selectable");
  for (const json& row : rows) {
    const auto text = [](const json& value) {
      const std::string s = value.get<std::string>();
      return s.empty() ? std::string("-") : s;
    };
    Printf(out, "%-8s %-8s %-5s %-8s %s\n", text(row["version"]).c_str(),
           text(row["product"]).c_str(), text(row["code_name"]).c_str(),
           text(row["records"]).c_str(), row["selectable"].get<bool>() ? "yes" : "no");
  }
}

void RunGet(const Options& options, std::string& out) {
  const ArchVersion version = SelectArch(options.arch);
  // Thousands of wrong names are refused in as many microseconds: hints for the first few only,
  // and the first complaints shown with a count of the rest.
  const ReportLimits limits;
  size_t errors = 0;
  size_t hints = 0;
  const auto complain = [&](const std::string& message) {
    if (++errors <= limits.max_errors) Complain(message);
  };
  json rows = json::array();
  for (const std::string& name : options.names) {
    const Accessor* accessor = FindAccessor(name);
    if (accessor == nullptr) {
      // An enumeration type is answered with its names and codes and the fields that take it.
      if (const std::optional<EnumerationAnswer> type = AnswerEnumeration(version, name)) {
        if (options.json) {
          rows.push_back(EnumerationJson(version, *type));
        } else {
          out += EnumerationText(version, *type);
        }
        continue;
      }
      std::string message = "no accessor named " +
                            (name.empty() ? std::string("'' (an empty name)") : EchoText(name));
      // What else the name is, and the nearest accessor, are searches through every field and
      // accessor: made for the first few unknown names only.
      if (hints < limits.max_hints) {
        ++hints;
        if (std::string what = WhatNameIs(version, name); !what.empty()) {
          if (what.find(" names a tile") != std::string::npos) {
            what += " (its fields: archspec layout --arch " + options.arch + " " + name + ")";
          }
          complain(what);
          continue;
        }
        const std::string nearest = NearestAccessor(name);
        if (!nearest.empty()) message += "; did you mean " + nearest + "?";
      }
      complain(message);
      continue;
    }
    if (!IsAnswered(*accessor, version)) {
      complain(name + " is not answered by " + GenerationLabel(version));
      if (options.json) rows.push_back(AccessorJson(*accessor, version));
      continue;
    }
    if (options.json) {
      rows.push_back(AccessorJson(*accessor, version));
    } else {
      out += AnswerLine(*accessor, version);
    }
  }
  if (options.json) out += rows.dump(2) + "\n";
  if (errors > limits.max_errors) {
    Complain(std::to_string(errors) + " names refused in all; the first " +
             std::to_string(limits.max_errors) + " are shown");
  }
  if (errors > 0) throw Exit{kBadData};
}

// constants, features, constraints: every accessor of those kinds, with its answer.
void RunList(const Options& options, std::vector<AccessorKind> kinds, std::string& out) {
  const ArchVersion version = SelectArch(options.arch);
  json rows = json::array();
  for (const Accessor& accessor : AllAccessors()) {
    if (std::find(kinds.begin(), kinds.end(), accessor.kind) == kinds.end()) continue;
    if (!NameMatches(accessor.name, options.match)) continue;
    const bool answered = IsAnswered(accessor, version);
    if (options.answered_only && !answered) continue;
    if (options.json) {
      rows.push_back(AccessorJson(accessor, version));
    } else if (answered) {
      out += AnswerLine(accessor, version);
    } else {
      out += std::string(accessor.name) + ": not answered by " + GenerationLabel(version) + "\n";
    }
  }
  if (options.json) out += rows.dump(2) + "\n";
}

void RunLayout(const Options& options, std::string& out) {
  const Configuration tile = OpenTile(options);
  const Layout& layout = tile.layout();
  if (options.json) {
    json result = LayoutToJson(tile);
    result.erase("tile");
    out += result.dump(2) + "\n";
    return;
  }
  if (options.csv) {
    out +=
        "path,offset,width,reg_lo,reg_hi,runtime_lo,runtime_hi,runtime_lo_name,runtime_hi_name\n";
    const auto number = [](const RuntimeRegisterRow* row) {
      return row == nullptr ? std::string() : std::to_string(row->number);
    };
    for (const Leaf& leaf : layout.leaves()) {
      out += leaf.path + "," + std::to_string(leaf.offset) + "," + std::to_string(leaf.width) +
             "," + std::to_string(leaf.reg_lo) + "," +
             (leaf.reg_hi.has_value() ? std::to_string(*leaf.reg_hi) : "") + "," +
             number(leaf.runtime_lo) + "," + number(leaf.runtime_hi) + "," +
             (leaf.runtime_lo != nullptr ? leaf.runtime_lo->name : "") + "," +
             (leaf.runtime_hi != nullptr ? leaf.runtime_hi->name : "") + "\n";
    }
    return;
  }
  Printf(out, "# %s: %u bits, %zu leaves\n", tile.Describe().c_str(), layout.bits(),
         layout.leaves().size());
  Printf(out, "%6s %5s %9s %9s  %s\n", "offset", "width", "registers", "run-time", "path");
  for (const Leaf& leaf : layout.leaves()) {
    Printf(out, "%6u %5u %9s %9s  %s\n", leaf.offset, leaf.width, Registers(leaf).c_str(),
           RuntimeRegisterNumbers(leaf).c_str(), leaf.path.c_str());
  }
}

// A bit position given as decimal or 0x hexadecimal.
uint32_t ParseBit(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const unsigned long long value = std::strtoull(begin, &end, hex ? 16 : 10);
  if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0])) ||
      end != begin + text.size() || errno != 0 || value > 0xffffffffULL) {
    Fail(kBadUsage,
         "BIT must be a bit position (decimal or 0x hexadecimal), found '" + EchoText(text) + "'");
  }
  return static_cast<uint32_t>(value);
}

void RunWhere(const Options& options, std::string& out) {
  const Configuration tile = OpenTile(options);
  const uint32_t bit = ParseBit(options.bit);
  const std::optional<BitPlace> place = tile.Place(bit);
  if (!place.has_value()) Fail(kBadUsage, tile.Outside(std::to_string(bit)));
  const Leaf& leaf = tile.layout().leaves()[place->leaf];
  Printf(out, "bit %u of %s:\n", bit, tile.Describe().c_str());
  Printf(out, "  leaf      %s\n", leaf.path.c_str());
  Printf(out, "  leaf bits %u..%u (%u bits, most significant first)\n", leaf.offset,
         leaf.offset + leaf.width - 1, leaf.width);
  Printf(out, "  value bit %u (weight %s)\n", place->value_bit,
         Hex(uint64_t{1} << place->value_bit).c_str());
  Printf(out, "  register  %u, bit %u\n", place->reg, place->register_bit);
  // The run-time register of the word that holds the bit.
  const bool high_word = leaf.width > 32 && place->value_bit >= 32;
  if (const RuntimeRegisterRow* reg = high_word ? leaf.runtime_hi : leaf.runtime_lo) {
    Printf(out, "  run-time  %u %s%s\n", reg->number, reg->name,
           reg->inferred ? " (its number is inferred, not stated)" : "");
  } else {
    Printf(out, "  run-time  none: a change of it needs the configuration loaded\n");
  }
  if (const Enumeration* type = tile.naming().TypeOf(place->leaf)) {
    Printf(out, "  type      %.*s\n", static_cast<int>(type->name().size()), type->name().data());
  }
}

// "0x1a (stage_opcode_alu_op_max)": a value in hexadecimal with its name beside it, where it has
// one.
std::string ShownValue(const Naming* names, size_t leaf, uint64_t value) {
  std::string out = Hex(value);
  if (names == nullptr) return out;
  const std::string_view name = names->ShownName(leaf, value);
  if (!name.empty()) out += " (" + std::string(name) + ")";
  return out;
}

void RunDecode(const Options& options, std::string& out) {
  if (options.all && options.format == "tree") {
    Fail(kBadUsage,
         "--all lists zero leaves with --format sparse or json; the tree shows every leaf already");
  }
  if (options.nonzero && options.format != "tree") {
    Fail(kBadUsage,
         "--nonzero leaves zero leaves out of the tree; --format sparse and json list "
         "the non-zero leaves only already");
  }
  const Configuration configuration = Load(options, options.file, FormOf(options));
  // Codes by name unless --codes asks for the numbers alone.
  if (options.format == "tree") {
    out += configuration.ToTree(options.codes, options.nonzero);
  } else if (options.format == "sparse") {
    out += configuration.ToListing(options.all, options.codes,
                                   options.bit_order ? ListingOrder::kBit : ListingOrder::kRecord);
  } else {
    out += configuration.ToJson(options.all, options.codes);
  }
}

void RunEncode(const Options& options, std::string& out) {
  const Configuration configuration = Load(options, options.file, std::nullopt);
  Emit(options.output, ConfigurationFile(configuration, options.bytes), out);
}

void RunPatch(const Options& options, std::string& out) {
  OneStandardInput(options.file, options.file_b, "CONFIG and DELTA");
  const std::optional<Form> form = options.bytes ? std::optional(Form::kBytes) : std::nullopt;
  // Where neither the options nor CONFIG name the tile, the header of DELTA does.
  std::optional<Configuration> named;
  if (options.arch.empty() || options.tile.empty()) {
    const InputKind kind = InspectInput(ReadFile(options.file), form);
    if (!kind.names.has_value()) named = Load(options, options.file_b, Form::kListing);
  }
  Form was = Form::kBits;
  Configuration configuration = Load(options, options.file, form, named ? &*named : nullptr, &was);
  const std::vector<Diagnostic> errors =
      configuration.Patch(ReadFile(options.file_b), options.force);
  if (!errors.empty()) ReportAndExit(InputName(options.file_b), errors);
  // Packed bytes stay packed bytes.
  Emit(options.output, ConfigurationFile(configuration, options.bytes || was == Form::kBytes), out);
}

// `diff` of configurations of two generations: by path and meaning (Port.h), the paths that lie on
// one side only included.
void DiffAcross(const Options& options, const Configuration& a, const Configuration& b,
                std::string& out) {
  const std::vector<CrossChange> changes = CompareAcross(a, b);
  const std::string a_generation = a.naming().generation();
  const std::string b_generation = b.naming().generation();
  const Naming* a_names = options.codes ? nullptr : &a.naming();
  const Naming* b_names = options.codes ? nullptr : &b.naming();
  if (options.format == "sparse") {
    // The listing that turns A's port into B: B's value of every path that differs, and as
    // comments the values of A that have no place on B.
    out += "# " + b.HeaderLine() + "\n";
    for (const CrossChange& change : changes) {
      if (change.b.has_value()) {
        AppendListingLine(out, b.layout(), *change.b, change.b_value, b_names);
      } else {
        out += "# only on " + a_generation + ": ";
        AppendListingLine(out, a.layout(), *change.a, change.a_value, a_names);
      }
    }
  } else if (options.format == "json") {
    out += CrossComparisonToJson(a, b, changes, InputName(options.file), InputName(options.file_b),
                                 options.codes)
               .dump(2) +
           "\n";
  } else {
    for (const CrossChange& change : changes) {
      out +=
          (change.b ? b.layout().leaves()[*change.b].path : a.layout().leaves()[*change.a].path) +
          ": " +
          (change.a ? ShownValue(a_names, *change.a, change.a_value)
                    : "(no such leaf on " + a_generation + ")") +
          " -> " +
          (change.b ? ShownValue(b_names, *change.b, change.b_value)
                    : "(no such leaf on " + b_generation + ")") +
          "\n";
    }
    out += "# " + std::to_string(changes.size()) +
           (changes.size() == 1 ? " path differs" : " paths differ") + " in meaning between " +
           InputName(options.file) + " (" + a_generation + ") and " + InputName(options.file_b) +
           " (" + b_generation + ")\n";
  }
  if (options.exit_code && !changes.empty()) throw Exit{kDifferent};
}

void RunDiff(const Options& options, std::string& out) {
  OneStandardInput(options.file, options.file_b, "A and B");
  const std::optional<Form> form = FormOf(options);
  // Both files are read and checked before either's faults end the command: each is reported.
  std::optional<Configuration> a;
  std::optional<Exit> a_failed;
  try {
    a = Load(options, options.file, form);
  } catch (const Exit& exit) {
    a_failed = exit;
  }
  // Without --arch, which names one generation for both, B whose header or JSON names a
  // generation is read for it, for A's tile, and compared by meaning where it is not A's.
  const InputKind b_kind = InspectInput(ReadFile(options.file_b), form);
  const bool b_names_generation =
      options.arch.empty() && b_kind.names.has_value() && !b_kind.names->generation.empty();
  Options b_options = options;
  if (a.has_value() && b_options.tile.empty()) b_options.tile = a->tile().name;
  const Configuration b =
      Load(b_options, options.file_b, form, a && !b_names_generation ? &*a : nullptr);
  if (a_failed.has_value()) throw *a_failed;
  if (a->tile().name != b.tile().name) Fail(kBadUsage, *a->CanCompare(b));
  if (a->CanCompare(b).has_value()) {
    DiffAcross(options, *a, b, out);
    return;
  }
  const std::vector<LeafChange> changes = a->Compare(b);
  const std::vector<Leaf>& leaves = b.layout().leaves();
  const Naming* names = options.codes ? nullptr : &b.naming();
  if (options.format == "sparse") {
    out += WriteDelta(b.layout(), changes, {b.HeaderLine()}, names);
  } else if (options.format == "json") {
    out += ComparisonToJson(*a, b, changes, InputName(options.file), InputName(options.file_b),
                            options.codes)
               .dump(2) +
           "\n";
  } else {
    for (const LeafChange& change : changes) {
      const Leaf& leaf = leaves[change.leaf];
      const std::string runtime = RuntimeRegisterNumbers(leaf);
      out += leaf.path + ": " + ShownValue(names, change.leaf, change.from) + " -> " +
             ShownValue(names, change.leaf, change.to) + "  # register " + Registers(leaf) +
             (leaf.runtime() ? ", run-time " + runtime : ", no run-time register") + "\n";
    }
    out += "# " + std::to_string(changes.size()) + " of " + std::to_string(leaves.size()) +
           " leaves differ between " + InputName(options.file) + " and " +
           InputName(options.file_b) + "\n";
  }
  if (options.exit_code && !changes.empty()) throw Exit{kDifferent};
}

// A configuration moved to the generation of --to by meaning: the configuration on standard output
// (or -o), the report on standard error; exit status 3, and no configuration unless --partial,
// when a leaf did not move exactly.
// The configuration in the form asked for by --format: a listing, JSON, bits or bytes.
std::string FormattedConfiguration(const Configuration& configuration, const std::string& format,
                                   bool codes) {
  if (format == "json") return configuration.ToJson(false, codes);
  if (format == "bits" || format == "bytes")
    return ConfigurationFile(configuration, format == "bytes");
  return configuration.ToListing(false, codes);
}

// The register writes that turn A into B while the unit runs, and the changed leaves that no
// run-time register reaches: exit status 3 when there are such leaves.
void RunWrites(const Options& options, std::string& out) {
  OneStandardInput(options.file, options.file_b, "OLD and NEW");
  const std::optional<Form> form = FormOf(options);
  const Configuration a = Load(options, options.file, form);
  const Configuration b = Load(options, options.file_b, form, &a);
  if (const std::optional<std::string> why = a.CanCompare(b)) Fail(kBadUsage, *why);
  WriteOptions write_options;
  write_options.id = options.id;
  write_options.base = options.base;
  const RegisterWrites writes = WritesBetween(a, b, write_options);
  std::string data;
  if (options.format == "json") {
    data = WritesToJson(a, b, writes, write_options).dump(2) + "\n";
  } else if (options.format == "binary") {
    data = WritesBinary(writes);
    // The binary form holds writes only: the leaves that need a load are told on standard error.
    std::cerr << WritesLoadText(a, writes);
  } else {
    data = WritesText(a, writes, write_options);
  }
  Emit(options.output, data, out);
  if (!writes.reachable()) throw Exit{kDifferent};
}

// CONFIG after a list of register writes, in the form of CONFIG unless --format says another.
void RunApply(const Options& options, std::string& out) {
  OneStandardInput(options.file, options.file_b, "CONFIG and WRITES");
  const std::optional<Form> form = FormOf(options);
  Form was = Form::kBits;
  Configuration configuration = Load(options, options.file, form, nullptr, &was);
  const WritesInput writes =
      ReadWrites(ReadFile(options.file_b), configuration, options.binary, options.force);
  if (!writes.errors.empty()) ReportAndExit(InputName(options.file_b), writes.errors);
  const std::vector<Diagnostic> errors = ApplyWrites(configuration, writes.writes, options.base);
  if (!errors.empty()) ReportAndExit(InputName(options.file_b), errors);
  std::string format = options.format;
  if (format.empty()) format = was == Form::kListing ? "sparse" : FormName(was);
  Emit(options.output, FormattedConfiguration(configuration, format, options.codes), out);
}

void RunPort(const Options& options, std::string& out) {
  const std::optional<ArchVersion> target = FindGeneration(options.to);
  if (!target.has_value()) Fail(kBadUsage, "--to: " + UnknownGeneration(options.to));
  const Configuration source = Load(options, options.file, FormOf(options));
  std::optional<PortResult> port = Port(source, *target);
  if (!port.has_value()) Fail(kBadUsage, GenerationLabel(*target) + " has no tile records");
  const Configuration& ported = port->configuration;
  const PortReport& report = port->report;
  if (options.json) {
    std::cerr << PortReportToJson(source, ported, report).dump(2) << "\n";
  } else if (!report.exact() || !report.notes.empty() || !report.review.empty()) {
    std::cerr << PortReportText(source, ported, report);
  }
  if (report.exact() || options.partial) {
    Emit(options.output, FormattedConfiguration(ported, options.format, options.codes), out);
  }
  if (!report.exact()) throw Exit{kDifferent};
}

// Every typed leaf whose value is no code of its type, and as notes those that hold a code the
// tables infer: exit status 1 if there is a finding, or with --strict a note.
void RunCheck(const Options& options, std::string& out) {
  const Configuration configuration = Load(options, options.file, FormOf(options));
  const std::vector<Finding> findings = configuration.Check();
  const std::vector<size_t> inferred = configuration.InferredCodes();
  if (options.format == "json") {
    out +=
        FindingsToJson(configuration, findings, inferred, InputName(options.file)).dump(2) + "\n";
  } else {
    for (const Finding& finding : findings) {
      out += configuration.naming().FindingText(finding) + "\n";
    }
    for (size_t leaf : inferred) out += "note: " + configuration.InferredText(leaf) + "\n";
    const auto leaves = [](size_t n) { return std::to_string(n) + (n == 1 ? " leaf" : " leaves"); };
    out += "# " + leaves(findings.size()) + " of " + InputName(options.file) +
           " with a value that is no code of its type\n";
    if (!inferred.empty()) {
      out += "# " + leaves(inferred.size()) + " with a code that is inferred, not stated" +
             (options.strict ? " (faults with --strict)" : "") + "\n";
    }
  }
  if (!findings.empty() || (options.strict && !inferred.empty())) throw Exit{kBadData};
}

// ---------------------------------------------------------------------------------------------
// The command line.

CLI::App* AddArch(CLI::App* command, Options& options) {
  command->add_option("--arch", options.arch,
                      "Chip generation by product name: " + ProductNames() + " (any case)");
  return command;
}

void AddTile(CLI::App* command, Options& options) {
  command->add_option("TILE", options.tile, "Tile: " + TileNames("or"))->required();
}

// TILE and --arch for a command that reads a listing, whose header may name them instead.
void AddTileOrHeader(CLI::App* command, Options& options) {
  command->add_option(
      "TILE", options.tile,
      "Tile: " + TileNames("or") +
          "; may be left out (and so may --arch) where a listing's header names it");
}

void AddForce(CLI::App* command, Options& options) {
  command->add_flag("--force", options.force,
                    "Read a listing whose header names another generation or tile");
}

void AddCodes(CLI::App* command, Options& options) {
  command->add_flag("--codes", options.codes,
                    "Show codes as numbers only, without the names of enumeration types");
}

// "archs, get, ... and diff".
std::string SubcommandNames(const CLI::App& app) {
  std::string out;
  const std::vector<const CLI::App*> commands = app.get_subcommands({});
  for (size_t i = 0; i < commands.size(); ++i) {
    if (i > 0) out += i + 1 == commands.size() ? " and " : ", ";
    out += commands[i]->get_name();
  }
  return out;
}

// The first argument, when it is meant as a subcommand and names none: refused with the names
// there are, as CLI11 would only say that a subcommand is required.
void CheckSubcommand(const CLI::App& app, int argc, char** argv) {
  const std::string names = SubcommandNames(app);
  if (argc < 2) Fail(kBadUsage, "a subcommand is required: " + names);
  const std::string first = argv[1];
  if (!first.empty() && first[0] == '-') return;
  // Subcommand names are short: a hint is one slip in three letters at most ("dcode").
  const size_t limit = std::max<size_t>(1, first.size() / 3);
  std::string hint;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (command->get_name() == first) return;
    if (hint.empty() && EditDistance(first, command->get_name(), limit) <= limit) {
      hint = command->get_name();
    }
  }
  std::string message = "unknown subcommand '" + EchoText(first) + "'";
  if (!hint.empty()) message += " (did you mean " + hint + "?)";
  Fail(kBadUsage, message + "; the subcommands are " + names);
}

int Main(int argc, char** argv, std::string& out) {
  Options options;
  CLI::App app{
      "archspec: what the architecture library knows about a chip generation, and a reader,\n"
      "writer, patcher and explainer of tile configurations."};
  app.name("archspec");
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("archspec ") + ARCHSPEC_VERSION,
                       "Print the version of archspec and exit");
  app.footer(
      "Exit status: 0 success, 1 bad data, 2 bad usage (3: diff --exit-code found differences,\n"
      "port left something that did not move exactly).\n"
      "Run 'archspec SUBCOMMAND --help' for the options and examples of each subcommand.");
  // CLI11's complaints echo arguments: shown as every complaint shows input.
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return "archspec: error: " + EchoText(e.what(), 4 * kEchoBytes) +
           "\nRun 'archspec --help' or 'archspec SUBCOMMAND --help' for the options.\n";
  });

  CLI::App* archs = app.add_subcommand("archs", "List the chip generations");
  archs->add_flag("--json", options.json, "Print JSON");
  archs->footer("Example:\n  archspec archs");

  CLI::App* get = AddArch(app.add_subcommand("get", "Answer accessors by name"), options);
  get->add_option("NAME", options.names,
                  "Accessor names (constants, features, constraints) or enumeration types")
      ->required();
  get->add_flag("--json", options.json, "Print JSON");
  get->footer(
      "An accessor the generation does not answer is reported, and the exit status is 1.\n"
      "Examples:\n"
      "  archspec get --arch mk43 ag_addr_width pcu_ctrchain_ctr_width\n"
      "  archspec get --arch mk43 stage_opcode_alu_op_madd fp8_support\n"
      "  archspec get --arch mk44 stage_opcode_t cycle_time");

  const auto add_list = [&](const char* name, const char* what, const char* example) {
    CLI::App* command = AddArch(app.add_subcommand(name, what), options);
    command->add_option("--match", options.match,
                        "Only names with these whole _-separated words, or matching a glob "
                        "(*, ?, [...]); any case");
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
      "Leaves are listed in bit order; a leaf's offset is its most significant bit. The run-time\n"
      "column gives the registers that write a leaf while its unit runs (a wide leaf's low word,\n"
      "then '+' and its high word; '-' for none, '?' after a number the tables infer).\n"
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
  AddTileOrHeader(decode, options);
  decode->add_option("FILE", options.file,
                     "Text of '0'/'1' (or bytes with --bytes, a listing with --sparse); - for "
                     "stdin");
  CLI::Option* decode_bytes =
      decode->add_flag("--bytes", options.bytes, "FILE holds the packed bytes");
  decode->add_flag("--sparse", options.sparse, "FILE is a sparse listing")->excludes(decode_bytes);
  decode->add_flag("--nonzero", options.nonzero,
                   "tree: only the non-zero leaves and the records and arrays that hold them");
  AddForce(decode, options);
  decode->add_option("--format", options.format, "tree (default), sparse or json")
      ->check(CLI::IsMember({"tree", "sparse", "json"}));
  decode->add_flag("--all", options.all, "sparse and json: list zero leaves too");
  decode->add_flag("--bit-order", options.bit_order,
                   "sparse: the leaves in bit order (arrays from the highest index down), not the "
                   "record's");
  AddCodes(decode, options);
  decode->footer(
      "A leaf that holds a code of an enumeration type shows the code's name: the sparse listing\n"
      "writes the name (which encode reads back), the tree and JSON add it beside the code.\n"
      "JSON values are strings of 0x hexadecimal, exact at any width.\n"
      "Examples:\n"
      "  archspec decode --arch mk43 pcu prog.bits --format sparse\n"
      "  archspec decode --arch mk43 pcu prog.bin --bytes --format tree");

  CLI::App* encode =
      AddArch(app.add_subcommand("encode", "Write the bits of a sparse listing"), options);
  AddTileOrHeader(encode, options);
  encode->add_option("FILE", options.file, "Sparse listing; - for stdin");
  encode->add_flag("--bytes", options.bytes, "Write packed bytes instead of '0'/'1' text");
  CLI::Option* encode_output =
      encode->add_option("-o,--output", options.output, "Output file (default: standard output)");
  AddForce(encode, options);
  encode->footer(
      "Examples:\n"
      "  archspec encode --arch mk43 pcu examples/pcu_program.sparse -o prog.bits\n"
      "  archspec encode --arch mk43 pcu examples/pcu_program.sparse --bytes -o prog.bin\n"
      "  archspec encode fix.sparse -o fix.bits     # the generation and tile of its header");

  CLI::App* patch = AddArch(
      app.add_subcommand("patch", "Apply a sparse listing of changes to a configuration"), options);
  AddTileOrHeader(patch, options);
  patch->add_option("CONFIG", options.file, "Text of '0'/'1' (or bytes with --bytes); - for stdin");
  patch->add_option("DELTA", options.file_b, "Sparse listing of the leaves to change; - for stdin");
  patch->add_flag("--bytes", options.bytes, "CONFIG holds packed bytes, and so will the output");
  CLI::Option* patch_output =
      patch->add_option("-o,--output", options.output,
                        "Output file, replaced only once complete; may be CONFIG itself");
  AddForce(patch, options);
  patch->footer(
      "Leaves that DELTA does not name keep their values in CONFIG.\n"
      "Examples:\n"
      "  archspec patch --arch mk43 pcu prog.bits fix.sparse -o prog.bits\n"
      "  archspec diff --arch mk43 pcu old.bits new.bits --format sparse > fix.sparse");

  CLI::App* diff = AddArch(
      app.add_subcommand("diff", "The leaves whose values differ between two configs"), options);
  AddTileOrHeader(diff, options);
  diff->add_option("A", options.file, "First configuration");
  diff->add_option("B", options.file_b, "Second configuration");
  CLI::Option* diff_bytes = diff->add_flag("--bytes", options.bytes, "Both files hold bytes");
  diff->add_flag("--sparse", options.sparse, "Both files are sparse listings")
      ->excludes(diff_bytes);
  diff->add_option("--format", options.format,
                   "text (default); sparse: the listing that patches A into B; json")
      ->check(CLI::IsMember({"text", "sparse", "json"}));
  diff->add_flag("--exit-code", options.exit_code, "Exit with status 3 if they differ");
  AddForce(diff, options);
  diff->footer(
      "Each differing leaf prints as 'path: A-value -> B-value', in bit order.\n"
      "Examples:\n"
      "  archspec diff --arch mk43 pcu before.bits after.bits\n"
      "  archspec diff --arch mk43 pcu --sparse old.sparse new.sparse --exit-code");
  AddCodes(diff, options);

  CLI::App* check = AddArch(
      app.add_subcommand("check", "The leaves whose values are no code of their types"), options);
  AddTileOrHeader(check, options);
  check->add_option("FILE", options.file, "Configuration: '0'/'1' text, bytes or a listing");
  CLI::Option* check_bytes =
      check->add_flag("--bytes", options.bytes, "FILE holds the packed bytes");
  check->add_flag("--sparse", options.sparse, "FILE is a sparse listing")->excludes(check_bytes);
  check->add_flag("--strict", options.strict,
                  "Count a leaf that holds an inferred code as a fault too");
  check->add_option("--format", options.format, "text (default) or json")
      ->check(CLI::IsMember({"text", "json"}));
  AddForce(check, options);
  check->footer(
      "Every leaf that holds a code of an enumeration type, and whose value is not zero and no\n"
      "code of that type on the generation, with its bits, its value, its type and the names\n"
      "whose codes lie nearest. Exit status 0 when there is none, 1 when there are.\n"
      "Examples:\n"
      "  archspec check --arch mk43 pcu prog.bits\n"
      "  archspec check --arch mk44 agcu --sparse agcu.sparse --format json");

  CLI::App* port = AddArch(
      app.add_subcommand("port", "Move a configuration to another generation by meaning"), options);
  port->add_option("--to", options.to, "Target generation: " + ProductNames() + " (any case)")
      ->required();
  AddTileOrHeader(port, options);
  port->add_option("FILE", options.file, "Configuration: '0'/'1' text, bytes or a listing");
  CLI::Option* port_bytes = port->add_flag("--bytes", options.bytes, "FILE holds the packed bytes");
  port->add_flag("--sparse", options.sparse, "FILE is a sparse listing")->excludes(port_bytes);
  port->add_option("--format", options.format,
                   "sparse (default: a listing with the target's header), json, bits or bytes")
      ->check(CLI::IsMember({"sparse", "json", "bits", "bytes"}));
  port->add_option("-o,--output", options.output, "Output file (default: standard output)");
  port->add_flag("--partial", options.partial,
                 "Write what did move even when some leaf did not (exit status 3 all the same)");
  port->add_flag("--json", options.json, "Write the report as JSON");
  AddForce(port, options);
  AddCodes(port, options);
  port->footer(
      "Codes move by name (the target's code of the same name), a typed 0 by its name where its\n"
      "record is in use, other values by number; paths by field name and index. The report, on\n"
      "standard error, gives every leaf that did not move exactly with its reason, notes the\n"
      "codes that either generation infers, and names the target's new typed leaves whose 0 names\n"
      "a code in a record the program uses. Exit status 0 when everything moved exactly, 3 when\n"
      "something did not (then nothing is written unless --partial), 1 bad data, 2 bad usage.\n"
      "Examples:\n"
      "  archspec port --to mk44 prog.sparse -o prog44.sparse\n"
      "  archspec port --to mk44 --arch mk43 pcu prog.bits --partial --format bits -o prog44.bits");

  CLI::App* writes = AddArch(
      app.add_subcommand("writes", "The register writes that turn one configuration into another"),
      options);
  AddTileOrHeader(writes, options);
  writes->add_option("OLD", options.file, "The configuration the unit runs");
  writes->add_option("NEW", options.file_b, "The configuration it is to run");
  CLI::Option* writes_bytes = writes->add_flag("--bytes", options.bytes, "Both files hold bytes");
  writes->add_flag("--sparse", options.sparse, "Both files are sparse listings")
      ->excludes(writes_bytes);
  writes
      ->add_option("--format", options.format,
                   "text (default: a write a line), json, or binary (12-byte records)")
      ->check(CLI::IsMember({"text", "json", "binary"}));
  writes->add_option("--id", options.id, "The id of every write (default 0)");
  writes->add_option("--base", options.base, "Added to the register of every low word");
  CLI::Option* writes_output =
      writes->add_option("-o,--output", options.output, "Output file (default: standard output)");
  AddForce(writes, options);
  writes->footer(
      "Each changed word of a leaf that a run-time register writes is one write: the register,\n"
      "its new 32-bit value (a wide leaf's low word, then its high word), and the leaf. --base\n"
      "is added to a low word's register only, as the library's patches do. The binary form is\n"
      "12 bytes a write: id, register, value, each 32 bits little-endian. The changed leaves that\n"
      "no run-time register writes need the configuration loaded whole: they are listed (in the\n"
      "text and JSON, or on standard error beside the binary form), and the exit status is 3.\n"
      "Examples:\n"
      "  archspec writes --arch mk44 pcu old.sparse new.sparse\n"
      "  archspec writes old.sparse new.sparse --format binary --base 0x400 -o update.bin");

  CLI::App* apply = AddArch(
      app.add_subcommand("apply", "A configuration after a list of register writes"), options);
  AddTileOrHeader(apply, options);
  apply->add_option("CONFIG", options.file, "The configuration the writes change");
  apply->add_option("WRITES", options.file_b, "The writes, in any form 'writes' gives");
  CLI::Option* apply_bytes = apply->add_flag("--bytes", options.bytes, "CONFIG holds bytes");
  apply->add_flag("--sparse", options.sparse, "CONFIG is a sparse listing")->excludes(apply_bytes);
  apply->add_flag("--binary", options.binary, "WRITES is the binary form");
  apply->add_option("--base", options.base, "The base the writes were made with");
  apply
      ->add_option("--format", options.format,
                   "sparse, json, bits or bytes (default: the form of CONFIG)")
      ->check(CLI::IsMember({"sparse", "json", "bits", "bytes"}));
  CLI::Option* apply_output =
      apply->add_option("-o,--output", options.output, "Output file (default: standard output)");
  AddForce(apply, options);
  AddCodes(apply, options);
  apply->footer(
      "A write to a register that the tile does not have on the generation, or whose field is not\n"
      "known, a value wider than the bits its register writes, and two writes to one register\n"
      "that disagree are refused with their place; nothing is written then. With --base, a\n"
      "number that is a low word's with the base and also a high word's is read only where the\n"
      "write names its register (the text and the JSON do; the binary form cannot).\n"
      "Examples:\n"
      "  archspec apply --arch mk44 pcu old.sparse update.writes -o new.sparse\n"
      "  archspec apply old.sparse update.bin --binary --base 0x400");

  // The bash completion, made from the options above when the tool is built and installed with
  // it; not an option a user needs, so not in the help.
  if (argc == 2 && std::string_view(argv[1]) == "--bash-completion") {
    std::vector<std::string> arches;
    for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
      if (row.selectable) arches.emplace_back(row.product_name);
    }
    std::vector<std::string> tiles;
    for (const TileType& tile : TileTypes()) tiles.emplace_back(tile.name);
    out += BashCompletion(app, arches, tiles);
    return 0;
  }
  try {
    CheckSubcommand(app, argc, argv);
  } catch (const Exit& exit) {
    return exit.status;
  }

  std::ostringstream help;
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    const int status = app.exit(e, help, std::cerr);
    out += help.str();
    return status;
  } catch (const CLI::CallForAllHelp& e) {
    const int status = app.exit(e, help, std::cerr);
    out += help.str();
    return status;
  } catch (const CLI::CallForVersion& e) {
    const int status = app.exit(e, help, std::cerr);
    out += help.str();
    return status;
  } catch (const CLI::ParseError& e) {
    app.exit(e, help, std::cerr);
    return kBadUsage;
  }

  try {
    if (encode_output->count() + patch_output->count() + writes_output->count() +
                apply_output->count() >
            0 &&
        options.output.empty()) {
      Fail(kBadUsage, "-o needs a file name, or - for standard output");
    }
    if (archs->parsed()) RunArchs(options, out);
    if (get->parsed()) RunGet(options, out);
    if (constants->parsed()) {
      RunList(options, {AccessorKind::kScalar, AccessorKind::kEnum, AccessorKind::kContainer}, out);
    }
    if (features->parsed()) RunList(options, {AccessorKind::kFeature}, out);
    if (constraints->parsed()) RunList(options, {AccessorKind::kConstraint}, out);
    if (layout->parsed()) RunLayout(options, out);
    if (where->parsed()) RunWhere(options, out);
    if (decode->parsed() || encode->parsed() || check->parsed() || port->parsed()) {
      PlaceOperands(options, {"FILE"});
    }
    if (patch->parsed()) PlaceOperands(options, {"CONFIG", "DELTA"});
    if (apply->parsed()) PlaceOperands(options, {"CONFIG", "WRITES"});
    if (diff->parsed()) PlaceOperands(options, {"A", "B"});
    if (writes->parsed()) PlaceOperands(options, {"OLD", "NEW"});
    if (decode->parsed()) {
      if (options.format.empty()) options.format = "tree";
      RunDecode(options, out);
    }
    if (encode->parsed()) RunEncode(options, out);
    if (patch->parsed()) RunPatch(options, out);
    if (diff->parsed()) RunDiff(options, out);
    if (check->parsed()) RunCheck(options, out);
    if (port->parsed()) RunPort(options, out);
    if (writes->parsed()) RunWrites(options, out);
    if (apply->parsed()) RunApply(options, out);
  } catch (const Exit& exit) {
    return exit.status;
  }
  return 0;
}

}  // namespace
}  // namespace archspec

namespace {

// Memory kept aside and given back when memory runs out, so that unwinding (which frees, and may
// need a little memory to free a large JSON document) and the complaint have room.
char* memory_reserve = nullptr;

void OutOfMemory() {
  delete[] memory_reserve;
  memory_reserve = nullptr;
  std::set_new_handler(nullptr);
  throw std::bad_alloc();
}

}  // namespace

int main(int argc, char** argv) {
  memory_reserve = new (std::nothrow) char[4 << 20];
  std::set_new_handler(OutOfMemory);
  // A closed pipe is a write error like any other, not a signal that ends the process: the
  // writes that meet one say so (and standard output's ends the command quietly, below).
  std::signal(SIGPIPE, SIG_IGN);
  std::string out;
  int status;
  try {
    status = archspec::Main(argc, argv, out);
  } catch (const std::bad_alloc&) {
    // Memory ran out: nothing of the result is written, as for any other failure, and the
    // complaint needs no memory of its own.
    std::string().swap(out);
    static constexpr char kMessage[] = "archspec: error: out of memory\n";
    (void)!::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
    return archspec::kBadData;
  } catch (const std::exception& e) {
    // A failure the tool has no words of its own for (a fault of the tool itself): said, and no
    // half of a result written, rather than the process aborted without a word.
    std::string().swap(out);
    const std::string message =
        std::string("archspec: error: unexpected failure: ") + e.what() + "\n";
    (void)!::write(STDERR_FILENO, message.data(), message.size());
    return archspec::kBadData;
  } catch (...) {
    std::string().swap(out);
    static constexpr char kMessage[] = "archspec: error: unexpected failure\n";
    (void)!::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
    return archspec::kBadData;
  }
  if (const std::optional<std::string> error = archspec::WriteAll(STDOUT_FILENO, out)) {
    // A reader that closed its end (`archspec layout ... | head -1`) wanted no more: the
    // command ends with status 1 without a word, as other tools end there.
    if (*error != std::strerror(EPIPE)) {
      archspec::Complain("cannot write standard output: " + *error);
    }
    status = archspec::kBadData;
  }
  return status;
}
