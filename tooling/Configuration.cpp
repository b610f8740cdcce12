#include "Configuration.h"

#include <algorithm>
#include <map>
#include <memory>
#include <span>
#include <tuple>
#include <utility>

#include "BitText.h"
#include "ConfigurationJson.h"
#include "RecordOrder.h"
#include "TreeText.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {

using zu::spec::ArchVersion;
using zu::spec::GenerationRow;

const char* FormName(Form form) {
  switch (form) {
    case Form::kBits:
      return "bits";
    case Form::kBytes:
      return "bytes";
    case Form::kListing:
      return "listing";
    case Form::kJson:
      return "json";
  }
  return "";
}

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

InputKind InspectInput(std::string_view data, std::optional<Form> forced, uint32_t tile_bits) {
  InputKind kind;
  if (forced.has_value()) {
    kind.form = *forced;
    if (kind.form == Form::kListing) kind.names = ReadListingHeader(data);
    return kind;
  }
  const std::string_view text = SkipByteOrderMark(data);
  if (std::optional<ListingHeader> header = ReadListingHeader(text)) {
    kind.form = Form::kListing;
    kind.names = std::move(header);
    return kind;
  }
  // JSON's reader refuses a byte that no text holds wherever it stands.
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string_view::npos && text[first] == '{') {
    kind.form = Form::kJson;
    return kind;
  }
  const size_t unprintable = UnprintableBytes(data);
  size_t bits = 0;
  size_t others = 0;
  for (char c : text) {
    if (c == '0' || c == '1') {
      ++bits;
    } else if (!IsBlank(c)) {
      ++others;
    }
  }
  const size_t packed = tile_bits == 0 ? 0 : (tile_bits + 7) / 8;
  if (others == 0 && bits > 0) {
    // Bytes that happen to be '0' and '1': the tile's length tells.
    kind.form = bits != tile_bits && data.size() == packed ? Form::kBytes : Form::kBits;
  } else if ((data.size() == packed && unprintable > 0) || unprintable * 16 > data.size()) {
    // The tile's packed length with a byte no text holds, or mostly such bytes: a text with a
    // stray control byte is still read as text, and the byte reported where it stands.
    kind.form = Form::kBytes;
  } else if (text.find('=') == std::string_view::npos && bits > others) {
    // Mostly bits, with a stray character: read as bits, so that it is reported where it is.
    kind.form = Form::kBits;
  } else {
    kind.form = Form::kListing;
  }
  return kind;
}

TileRecord* SharedTileRecord(const ArchVersion& version, const TileType& tile) {
  using Key = std::tuple<int32_t, int64_t, int64_t, const TileType*>;
  static std::map<Key, std::unique_ptr<TileRecord>> records;
  const Key key{version.major, version.minor, version.patch, &tile};
  if (const auto found = records.find(key); found != records.end()) return found->second.get();
  std::unique_ptr<TileRecord> record = TileRecord::Create(version, tile);
  if (record == nullptr) return nullptr;
  return records.emplace(key, std::move(record)).first->second.get();
}

std::optional<ArchVersion> FindGeneration(std::string_view name) {
  std::string error;
  const ArchVersion version = ArchVersion::expect_parse(std::string(name), error);
  if (version.major == 0) return std::nullopt;
  return version;
}

std::string UnknownGeneration(std::string_view name) {
  if (name.empty())
    return "the name of a generation is empty; the generations are " + ProductNames("and");
  if (name == "native") {
    return "the generation is not found out from the machine: name one of " + ProductNames("or");
  }
  return "no generation is named '" + EchoText(name) + "'; the generations are " +
         ProductNames("and");
}

std::string UnknownTile(std::string_view name) {
  return "no tile is named '" + EchoText(name) + "'; the tiles are " + TileNames();
}

std::string LengthOwner(size_t count, bool bytes) {
  // The tile records of that length, each with the generations that use it.
  std::vector<std::pair<const RecordClass*, std::vector<std::string>>> owners;
  for (const GenerationRow& row : zu::spec::GenerationTable()) {
    if (*row.records == '\0' || !row.selectable) continue;
    for (const TileType& tile : TileTypes()) {
      const RecordClass* record = FindTileRecord(row.records, tile);
      if (record == nullptr) continue;
      const size_t length = bytes ? (record->bits + 7) / 8 : record->bits;
      if (length != count) continue;
      const auto same = [&](const auto& owner) { return owner.first == record; };
      auto owner = std::find_if(owners.begin(), owners.end(), same);
      if (owner == owners.end()) owner = owners.insert(owners.end(), {record, {}});
      owner->second.push_back(GenerationLabel(row.version));
    }
  }
  if (owners.size() != 1) return "";
  const std::vector<std::string>& generations = owners.front().second;
  std::string names;
  for (size_t i = 0; i < generations.size(); ++i) {
    if (i > 0) names += i + 1 == generations.size() ? " and " : ", ";
    names += generations[i];
  }
  return " (" + std::to_string(count) + (bytes ? " bytes" : " bits") + " are the length of " +
         owners.front().first->name + " of " + names + ")";
}

std::vector<std::pair<const TileType*, std::vector<std::string>>> FieldsOfType(
    const ArchVersion& version, std::string_view type) {
  std::vector<std::pair<const TileType*, std::vector<std::string>>> out;
  for (const TileType& tile : TileTypes()) {
    const std::optional<Configuration> zero = Configuration::Zero(version, tile);
    if (!zero.has_value()) return {};
    if (zero->naming().enumerations().Find(type) == nullptr) return {};
    std::vector<std::string> paths;
    for (size_t i = 0; i < zero->layout().leaves().size(); ++i) {
      const Enumeration* of = zero->naming().TypeOf(i);
      if (of != nullptr && of->name() == type) paths.push_back(zero->layout().leaves()[i].path);
    }
    out.emplace_back(&tile, std::move(paths));
  }
  return out;
}

std::vector<BranchRow> OrderedBranches(const Layout& layout) {
  std::vector<BranchRow> rows;
  rows.reserve(layout.branches().size());
  for (const auto& [path, branch] : layout.branches()) {
    const Leaf& first = layout.leaves()[branch.first_leaf];
    const Leaf& last = layout.leaves()[branch.last_leaf];
    rows.push_back({&path, &branch, first.offset, last.offset + last.width - first.offset});
  }
  // A branch comes before what it holds: by first bit, then the shorter path first.
  std::sort(rows.begin(), rows.end(), [](const BranchRow& a, const BranchRow& b) {
    return std::make_pair(a.branch->first_leaf, a.path->size()) <
           std::make_pair(b.branch->first_leaf, b.path->size());
  });
  return rows;
}

Configuration::Configuration(TileRecord& record, const Naming& naming)
    : record_(&record), naming_(&naming), values_(record.layout().leaves().size(), 0) {}

std::optional<Configuration> Configuration::Zero(const ArchVersion& version, const TileType& tile) {
  TileRecord* record = SharedTileRecord(version, tile);
  if (record == nullptr) return std::nullopt;
  const Naming* naming = Naming::Of(*record);
  if (naming == nullptr) return std::nullopt;
  return Configuration(*record, *naming);
}

bool Configuration::SetValue(size_t leaf, uint64_t value) {
  if (leaf >= values_.size() || value > MaxValue(layout().leaves()[leaf].width)) return false;
  values_[leaf] = value;
  return true;
}

namespace {

// The characters of a value as a listing writes it: digits, letters and '_' (and a sign, which
// the listing's reader refuses with its own words).
bool IsValueText(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           c == '-' || c == '+';
  });
}

}  // namespace

std::optional<std::string> Configuration::Set(std::string_view path, std::string_view text) {
  const std::optional<size_t> leaf = Find(path);
  if (!leaf.has_value()) return layout().NotALeaf(path, true);
  if (!IsValueText(text)) {
    return "value '" + EchoText(text) + "' of " + std::string(path) +
           " is neither a number (decimal or 0x hexadecimal) nor an enumerant name";
  }
  // The listing's own rule of a value: its numbers, names, widths and complaints.
  const LeafValue read =
      ReadLeafValue(text, layout(), *leaf, naming_->Resolver(), [] { return true; });
  if (!read.value.has_value()) return read.error;
  values_[*leaf] = *read.value;
  return std::nullopt;
}

void Configuration::Apply(const SparseResult& delta) {
  values_ = ApplyDelta(std::move(values_), delta);
}

namespace {

// A listing's or JSON's generation and tile against those of the configuration it is read for:
// the complaint, on `line`, where they differ.
std::optional<Diagnostic> ForeignNames(const std::optional<ListingHeader>& names, Form form,
                                       size_t line, const Configuration& configuration) {
  const std::string generation = configuration.version().to_product_name_string();
  const std::string tile = configuration.tile().name;
  std::optional<Diagnostic> wrong = CheckListingHeader(names, generation, tile);
  if (!wrong.has_value()) return wrong;
  if (form == Form::kJson) {
    wrong->message = "the configuration is for " + EchoText(names->generation) + " " +
                     EchoText(names->tile) + " (its \"arch\" and \"tile\" say so), not for " +
                     generation + " " + tile;
  }
  wrong->line = line;
  wrong->hint = Hint::kForce;
  return wrong;
}

}  // namespace

std::vector<Diagnostic> Configuration::Patch(std::string_view listing, bool force,
                                             const ReportLimits& limits) {
  const SparseResult delta = ReadSparse(listing, layout(), naming_->Resolver(), limits);
  if (!force) {
    if (std::optional<Diagnostic> wrong = ForeignNames(delta.header, Form::kListing, 1, *this)) {
      return {*wrong};
    }
  }
  if (!delta.ok()) return delta.errors;
  Apply(delta);
  return {};
}

std::optional<BitPlace> Configuration::Place(uint64_t bit) const {
  if (bit >= layout().bits()) return std::nullopt;
  return layout().PlaceOfBit(static_cast<uint32_t>(bit));
}

std::string Configuration::Outside(std::string_view bit) const {
  return "bit " + EchoText(bit) + " lies outside " + Describe() + ", which has bits 0 to " +
         std::to_string(layout().bits() - 1);
}

std::optional<std::string> Configuration::CanCompare(const Configuration& other) const {
  if (record_ == other.record_) return std::nullopt;
  return "cannot compare " + Describe() + " with " + other.Describe();
}

std::vector<LeafChange> Configuration::Compare(const Configuration& other) const {
  // In the record's order, as a person reads the configurations.
  std::vector<LeafChange> changes = CompareConfigurations(values_, other.values_);
  const std::vector<size_t> ranks = RecordRanks(layout());
  std::sort(changes.begin(), changes.end(), [&](const LeafChange& a, const LeafChange& b) {
    return ranks[a.leaf] < ranks[b.leaf];
  });
  return changes;
}

std::vector<size_t> Configuration::InferredCodes() const {
  std::vector<size_t> out;
  for (size_t i : RecordOrder(layout())) {
    if (values_[i] == 0) continue;
    // The name shown first is a stated one wherever the code has one.
    const std::span<const EnumName> names = naming_->NamesOf(i, values_[i]);
    if (!names.empty() && names.front().inferred) out.push_back(i);
  }
  return out;
}

std::string Configuration::InferredText(size_t leaf) const {
  const Leaf& where = layout().leaves()[leaf];
  return where.path + " (bits " + std::to_string(where.offset) + ".." +
         std::to_string(where.offset + where.width - 1) + ") = " + Hex(values_[leaf]) + " (" +
         std::string(naming_->ShownName(leaf, values_[leaf])) + "): the code is inferred on " +
         GenerationLabel(version()) + ", not stated";
}

std::string Configuration::ToBits() const { return record_->WriteBits(values_); }

std::vector<uint8_t> Configuration::ToBytes() const { return record_->WriteBytes(values_); }

std::string Configuration::ToListing(bool all, bool codes, ListingOrder order) const {
  return WriteSparse(layout(), values_, {HeaderLine()}, all, codes ? nullptr : naming_, order);
}

std::string Configuration::ToTree(bool codes, bool nonzero) const {
  return WriteTree(layout(), values_, codes ? nullptr : naming_, nonzero);
}

std::string Configuration::ToJson(bool all, bool codes) const {
  return ConfigurationToJson(*this, all, codes).dump(2) + "\n";
}

// ---------------------------------------------------------------------------------------------
// Reading.

struct ConfigurationReader {
  std::string_view data;
  const ReadRequest& request;
  ReadResult result;

  ReadResult Usage(std::string message, Hint hint = Hint::kNone) {
    result.fault = Fault::kUsage;
    result.errors.push_back({0, 0, std::move(message), hint});
    return std::move(result);
  }
  ReadResult Data(std::vector<Diagnostic> errors) {
    result.fault = Fault::kData;
    result.errors = std::move(errors);
    return std::move(result);
  }

  ReadResult Read() {
    // The caller's choice, checked first: the input's length may tell bits from bytes.
    std::optional<ArchVersion> version;
    const TileType* tile = nullptr;
    if (!request.generation.empty()) {
      version = FindGeneration(request.generation);
      if (!version.has_value()) return Usage(UnknownGeneration(request.generation));
    }
    if (!request.tile.empty()) {
      tile = FindTileType(request.tile);
      if (tile == nullptr) return Usage(UnknownTile(request.tile));
    }
    uint32_t tile_bits = 0;
    if (version.has_value() && tile != nullptr) {
      if (const TileRecord* record = SharedTileRecord(*version, *tile)) {
        tile_bits = record->layout().bits();
      }
    }
    result.kind = InspectInput(data, request.form, tile_bits);

    JsonConfiguration json;
    if (result.kind.form == Form::kJson) {
      json = ReadJsonConfiguration(data);
      if (!json.errors.empty()) return Data(std::move(json.errors));
      result.kind.names = json.names;
    }
    const std::optional<ListingHeader>& names = result.kind.names;
    const size_t names_line = result.kind.form == Form::kJson ? json.names_line : 1;

    // What the input names, where the caller chose nothing.
    if (!version.has_value()) {
      if (!names.has_value()) {
        return Usage("the generation is named neither by the caller nor by the input",
                     Hint::kNoGeneration);
      }
      version = FindGeneration(names->generation);
      if (!version.has_value()) {
        return Data({{names_line, 0, UnknownGeneration(names->generation)}});
      }
    }
    if (tile == nullptr) {
      if (!names.has_value()) {
        return Usage("the tile is named neither by the caller nor by the input", Hint::kNoTile);
      }
      tile = FindTileType(names->tile);
      if (tile == nullptr) return Data({{names_line, 0, UnknownTile(names->tile)}});
    }
    std::optional<Configuration> configuration = Configuration::Zero(*version, *tile);
    if (!configuration.has_value()) {
      const std::string message = GenerationLabel(*version) + " has no tile records";
      if (request.generation.empty()) return Data({{names_line, 0, message}});
      return Usage(message);
    }
    if (!request.force) {
      if (std::optional<Diagnostic> wrong =
              ForeignNames(names, result.kind.form, names_line, *configuration)) {
        return Data({*wrong});
      }
    }

    std::vector<Diagnostic> errors;
    switch (result.kind.form) {
      case Form::kBits:
      case Form::kBytes:
        errors = ReadBitString(*configuration);
        break;
      case Form::kListing: {
        SparseResult read = ReadSparse(data, configuration->layout(),
                                       configuration->naming().Resolver(), request.limits);
        errors = std::move(read.errors);
        if (errors.empty()) configuration->values_ = std::move(read.values);
        break;
      }
      case Form::kJson:
        errors = ReadJsonValues(json, *configuration);
        break;
    }
    if (!errors.empty()) return Data(std::move(errors));
    result.configuration = std::move(configuration);
    return std::move(result);
  }

  std::vector<Diagnostic> ReadBitString(Configuration& configuration) {
    const TileRecord& record = configuration.record();
    const bool bytes = result.kind.form == Form::kBytes;
    const size_t expected = record.layout().bits();
    BitsResult bits = bytes ? ReadBitBytes(data, expected, record.Describe())
                            : ReadBitText(data, expected, record.Describe());
    if (!bits.ok()) {
      // A length of another tile's: say whose.
      Diagnostic& first = bits.errors.front();
      if (first.line == 0) {
        const size_t count = bytes ? data.size() : bits.bits.size();
        if (bytes ? count != (expected + 7) / 8 : count != expected) {
          first.message += LengthOwner(count, bytes);
        }
      }
      return std::move(bits.errors);
    }
    configuration.values_ = configuration.record_->ReadBits(bits.bits);
    return {};
  }

  // The values of a configuration's JSON, each read by the listing's own rule of a value (its
  // numbers, names, widths and complaints) on the JSON's line; every name beside a value is
  // checked against it: the value wins, and a name that is not the value's is refused.
  std::vector<Diagnostic> ReadJsonValues(const JsonConfiguration& json,
                                         Configuration& configuration) {
    std::vector<Diagnostic> errors;
    const Layout& layout = configuration.layout();
    if (json.record.has_value() && *json.record != layout.record()) {
      errors.push_back({json.names_line, 0,
                        "\"record\" is " + EchoText(*json.record) + ", but the tile's record is " +
                            layout.record()});
    }
    if (json.bits.has_value() && *json.bits != layout.bits()) {
      errors.push_back({json.names_line, 0,
                        "\"bits\" is " + std::to_string(*json.bits) + ", but " +
                            configuration.Describe() + " has " + std::to_string(layout.bits())});
    }
    if (!errors.empty()) return errors;
    const Naming& naming = configuration.naming();
    const NameResolver resolver = naming.Resolver();
    size_t hints = 0;
    const auto take_hint = [&] { return hints < request.limits.max_hints && ++hints > 0; };
    std::vector<uint64_t> values(layout.leaves().size(), 0);
    std::vector<size_t> first_line(layout.leaves().size(), 0);
    for (const JsonLeaf& leaf : json.leaves) {
      if (errors.size() >= request.limits.max_errors) {
        errors.push_back({leaf.line, 0, "too many errors; stopping here"});
        break;
      }
      const auto fail = [&](std::string message) {
        errors.push_back({leaf.line, 0, std::move(message)});
      };
      const std::optional<size_t> index = layout.Find(leaf.path);
      if (!index.has_value()) {
        fail(layout.NotALeaf(leaf.path, take_hint()));
        continue;
      }
      const Leaf& known = layout.leaves()[*index];
      if ((leaf.offset.has_value() && *leaf.offset != known.offset) ||
          (leaf.width.has_value() && *leaf.width != known.width)) {
        fail(leaf.path + " lies at bits " + std::to_string(known.offset) + ".." +
             std::to_string(known.offset + known.width - 1) +
             " of the tile, not where the JSON says");
        continue;
      }
      if (!IsValueText(leaf.value)) {
        fail("value '" + EchoText(leaf.value) + "' of " + leaf.path +
             " is neither a number (decimal or 0x hexadecimal) nor an enumerant name");
        continue;
      }
      const LeafValue read = ReadLeafValue(leaf.value, layout, *index, resolver, take_hint);
      if (!read.value.has_value()) {
        fail(read.error);
        continue;
      }
      if (first_line[*index] != 0) {
        fail("duplicate leaf " + leaf.path + " (first on line " +
             std::to_string(first_line[*index]) + ")");
        continue;
      }
      first_line[*index] = leaf.line;
      values[*index] = *read.value;
      if (!leaf.name.has_value()) continue;
      const NamedValue named = naming.Resolve(*index, *leaf.name);
      if (!named.value.has_value()) {
        fail("the name of " + leaf.path + ": " + named.error);
      } else if (*named.value != *read.value) {
        fail("the name of " + leaf.path + ", " + EchoText(*leaf.name) + ", is " +
             Hex(*named.value) + ", but its value is " + Hex(*read.value));
      }
    }
    if (!errors.empty()) return errors;
    configuration.values_ = std::move(values);
    return {};
  }
};

ReadResult Configuration::Read(std::string_view data, const ReadRequest& request) {
  ConfigurationReader reader{data, request, {}};
  return reader.Read();
}

}  // namespace archspec
