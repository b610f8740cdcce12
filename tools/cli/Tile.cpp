#include "Tile.h"

#include <algorithm>
#include <cctype>

#include "compiler/arch_spec/ConfigBuilder.h"
#include "compiler/arch_spec/gen/KoConfig.h"
#include "compiler/arch_spec/gen/RyConfig.h"
#include "compiler/arch_spec/gen/RyeConfig.h"

namespace archspec {

using zu::spec::ArchVersion;
using zu::spec::BaseConstruct;
using zu::spec::BitsIntegerBase;

namespace {

struct TileNames {
  TileKind tile;
  const char* name;
  const char* record;
};

constexpr TileNames kTiles[] = {
    {TileKind::kPcu, "pcu", "pcu_config_struct"},
    {TileKind::kPmu, "pmu", "pmu_config_struct"},
    {TileKind::kSwitch, "switch", "switch_config_struct"},
    {TileKind::kAgcu, "agcu", "AGCU_Config_struct"},
};

// The root record of `tile`, given the four root classes of one records namespace.
template <class Pcu, class Pmu, class Switch, class Agcu>
std::unique_ptr<BaseConstruct> MakeRoot(TileKind tile) {
  switch (tile) {
    case TileKind::kPcu:
      return std::make_unique<Pcu>();
    case TileKind::kPmu:
      return std::make_unique<Pmu>();
    case TileKind::kSwitch:
      return std::make_unique<Switch>();
    case TileKind::kAgcu:
      return std::make_unique<Agcu>();
  }
  return nullptr;
}

// The four root classes of records namespace `ns`.
#define ARCHSPEC_ROOT_CLASSES(ns)                                   \
  zu::spec::ns::pcu_config_struct, zu::spec::ns::pmu_config_struct, \
      zu::spec::ns::switch_config_struct, zu::spec::ns::AGCU_Config_struct

}  // namespace

std::optional<TileKind> ParseTileKind(std::string_view name) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const TileNames& t : kTiles) {
    if (lower == t.name) return t.tile;
  }
  return std::nullopt;
}

const char* TileName(TileKind tile) { return kTiles[static_cast<int>(tile)].name; }
const char* RecordName(TileKind tile) { return kTiles[static_cast<int>(tile)].record; }

std::string RecordNamespace(const ArchVersion& version) {
  switch (version.major) {
    case 2:
      return version.minor == 0 || version.minor == 1 ? "ko" : "";
    case 3:
      return "ry";
    case 4:
      return "rye";
    default:
      return "";
  }
}

std::string GenerationLabel(const ArchVersion& version) {
  const std::string product = version.to_product_name_string();
  const std::string code = version.to_code_name_string();
  if (product.empty()) return code.empty() ? version.to_string() : code;
  return code.empty() ? product : product + " (" + code + ")";
}

std::unique_ptr<TileRecord> TileRecord::Create(const ArchVersion& version, TileKind tile,
                                               zu::spec::UniqueId first_id) {
  const std::string ns = RecordNamespace(version);
  std::unique_ptr<BaseConstruct> root;
  if (ns == "ko") {
    root = MakeRoot<ARCHSPEC_ROOT_CLASSES(ko)>(tile);
  } else if (ns == "ry") {
    root = MakeRoot<ARCHSPEC_ROOT_CLASSES(ry)>(tile);
  } else if (ns == "rye") {
    root = MakeRoot<ARCHSPEC_ROOT_CLASSES(rye)>(tile);
  }
  if (root == nullptr) return nullptr;
  return std::unique_ptr<TileRecord>(
      new TileRecord(tile, GenerationLabel(version), std::move(root), first_id));
}

TileRecord::TileRecord(TileKind tile, std::string label, std::unique_ptr<BaseConstruct> root,
                       zu::spec::UniqueId first_id)
    : tile_(tile), label_(std::move(label)), root_(std::move(root)) {
  // Number and register the record as the library's callers do: ids from `first_id`, an empty
  // root name so that paths start at the first field, offsets from bit 0, registers from 0.
  zu::spec::UniqueId next = first_id;
  root_->SetUniqueId(next);
  uint32_t reg = 0;
  root_->SetExternalStorage("", nullptr, 0, reg);

  std::vector<Leaf> leaves;
  const BaseConstruct& root_view = *root_;
  root_view.Walk([&leaves](const BitsIntegerBase& leaf) {
    Leaf out;
    out.path = leaf.Name();
    out.offset = leaf.Offset();
    out.width = static_cast<uint32_t>(leaf.SizeInBits());
    out.reg_lo = leaf.RegisterLoImpl();
    if (out.width > 32) out.reg_hi = leaf.RegisterHiImpl();
    leaves.push_back(std::move(out));
  });
  layout_ = Layout(RecordName(tile), static_cast<uint32_t>(root_->SizeInBits()), std::move(leaves));
}

std::string TileRecord::Describe() const {
  return std::string(RecordName(tile_)) + " of " + label_;
}

std::vector<uint64_t> TileRecord::ReadBits(const std::string& bits) {
  size_t position = 0;
  root_->Parse(bits, &position);
  std::vector<uint64_t> values;
  values.reserve(layout_.leaves().size());
  const BaseConstruct& root_view = *root_;
  root_view.Walk([&values](const BitsIntegerBase& leaf) { values.push_back(leaf.ToNumber()); });
  return values;
}

void TileRecord::Load(const std::vector<uint64_t>& values) {
  size_t i = 0;
  root_->Walk([&values, &i](BitsIntegerBase& leaf) {
    // Values come from a checked listing or from a parsed record, so each fits its leaf; a
    // missing one is 0.
    const uint64_t value = i < values.size() ? values[i] : 0;
    ++i;
    if (value <= MaxValue(static_cast<uint32_t>(leaf.SizeInBits()))) leaf = value;
  });
}

std::string TileRecord::WriteBits(const std::vector<uint64_t>& values) {
  Load(values);
  auto builder = std::make_unique<zu::spec::ConfigBuilder>();
  root_->Build(*builder);
  return builder->to_string();
}

std::vector<uint8_t> TileRecord::WriteBytes(const std::vector<uint64_t>& values) {
  Load(values);
  auto builder = std::make_unique<zu::spec::ConfigBuilder>();
  root_->Build(*builder);
  // Bytes need whole bytes: pad the last one with zero bits.
  const int64_t padding = (8 - builder->cursor() % 8) % 8;
  builder->set(0, padding);
  return builder->to_bytes();
}

std::string TileRecord::WriteTree(const std::vector<uint64_t>& values) {
  Load(values);
  std::string out;
  root_->ToString(0, &out);
  return out;
}

}  // namespace archspec
