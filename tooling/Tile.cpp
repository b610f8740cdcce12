#include "Tile.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <stdexcept>

#include "RuntimeRegisters.h"
#include "Sparse.h"
#include "compiler/arch_spec/ConfigBuilder.h"

namespace archspec {

using zu::spec::ArchVersion;
using zu::spec::BaseConstruct;
using zu::spec::BitsIntegerBase;
using zu::spec::GenerationRow;

namespace {

bool SameIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

// The record registered in the table of field locations, from `first_id` on, for as long as this
// lives; its entries are removed again afterwards, and any that stood in the way before.
class Registration {
 public:
  Registration(BaseConstruct& root, const RecordClass& record_class, zu::spec::UniqueId first_id)
      : first_id_(first_id), count_(record_class.unique_ids) {
    Clear();
    zu::spec::UniqueId next = first_id;
    root.SetUniqueId(next);
    uint32_t reg = 0;
    root.SetExternalStorage("", nullptr, 0, reg);
  }
  ~Registration() { Clear(); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

 private:
  void Clear() {
    for (int i = 0; i < count_; ++i) {
      BaseConstruct::external_storage_.erase(static_cast<zu::spec::UniqueId>(first_id_ + i));
    }
  }

  zu::spec::UniqueId first_id_;
  int count_;
};

// The Layout of a record class, made once per process.
std::shared_ptr<const Layout> LayoutOf(const RecordClass& record_class, BaseConstruct& root,
                                       zu::spec::UniqueId first_id, const ArchVersion& version,
                                       const TileType& tile) {
  static std::map<const RecordClass*, std::shared_ptr<const Layout>> layouts;
  std::shared_ptr<const Layout>& layout = layouts[&record_class];
  if (layout != nullptr) return layout;
  const Registration registration(root, record_class, first_id);
  std::vector<Leaf> leaves;
  leaves.reserve(static_cast<size_t>(record_class.unique_ids));
  const BaseConstruct& view = root;
  view.Walk([&leaves](const BitsIntegerBase& leaf) {
    Leaf out;
    out.path = leaf.Name();
    out.offset = leaf.Offset();
    out.width = static_cast<uint32_t>(leaf.SizeInBits());
    out.reg_lo = leaf.RegisterLoImpl();
    if (out.width > 32) out.reg_hi = leaf.RegisterHiImpl();
    leaves.push_back(std::move(out));
  });
  auto made = std::make_shared<Layout>(record_class.name, static_cast<uint32_t>(record_class.bits),
                                       std::move(leaves));
  // The generator checked every linked path against the records; a layout that disagrees would be
  // a fault of the build, not of any input.
  if (!made->LinkRuntimeRegisters(RuntimeRegistersOf(version, tile)))
    throw std::logic_error("the run-time registers of " + std::string(record_class.name) +
                           " name leaves it does not have");
  layout = std::move(made);
  return layout;
}

}  // namespace

const TileType* FindTileType(std::string_view name) {
  for (const TileType& tile : TileTypes()) {
    if (SameIgnoringCase(name, tile.name)) return &tile;
  }
  return nullptr;
}

namespace {

// "a, b and c".
std::string JoinNames(const std::vector<std::string_view>& names, const char* conjunction) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) out += i + 1 == names.size() ? std::string(" ") + conjunction + " " : ", ";
    out += names[i];
  }
  return out;
}

}  // namespace

std::string TileNames(const char* conjunction) {
  std::vector<std::string_view> names;
  for (const TileType& tile : TileTypes()) names.push_back(tile.name);
  return JoinNames(names, conjunction);
}

std::string ProductNames(const char* conjunction) {
  std::vector<std::string_view> names;
  for (const GenerationRow& row : zu::spec::GenerationTable()) {
    if (row.selectable) names.push_back(row.product_name);
  }
  return JoinNames(names, conjunction);
}

std::string RecordNamespace(const ArchVersion& version) {
  const GenerationRow* row = zu::spec::ServingGeneration(version);
  return row == nullptr ? "" : row->records;
}

std::string GenerationLabel(const ArchVersion& version) {
  const std::string product = version.to_product_name_string();
  const std::string code = version.to_code_name_string();
  if (product.empty()) return code.empty() ? version.to_string() : code;
  return code.empty() ? product : product + " (" + code + ")";
}

const RecordClass* FindTileRecord(std::string_view ns, const TileType& tile) {
  for (const RecordClass& c : RecordClasses()) {
    if (c.top_level && ns == c.ns && std::string_view(tile.record) == c.name) return &c;
  }
  return nullptr;
}

std::unique_ptr<TileRecord> TileRecord::Create(const ArchVersion& version, const TileType& tile,
                                               zu::spec::UniqueId first_id) {
  const RecordClass* record_class = FindTileRecord(RecordNamespace(version), tile);
  if (record_class == nullptr) return nullptr;
  return std::unique_ptr<TileRecord>(new TileRecord(version, tile, *record_class, first_id));
}

TileRecord::TileRecord(const ArchVersion& version, const TileType& tile,
                       const RecordClass& record_class, zu::spec::UniqueId first_id)
    : version_(version),
      tile_(tile),
      class_(record_class),
      label_(GenerationLabel(version)),
      first_id_(first_id),
      root_(record_class.make()),
      layout_(LayoutOf(record_class, *root_, first_id, version, tile)) {}

std::string TileRecord::Describe() const { return std::string(class_.name) + " of " + label_; }

std::string TileRecord::ListingHeaderLine() const {
  return ListingHeaderText(version_.to_product_name_string(), tile_.name);
}

// A tile's leaves stand one after the other in bit order, each most significant bit first (its
// layout, made from the record, says so; the tests check it against the record's own Parse and
// Build). So a configuration's values are its bits taken width after width, through the
// library's reader and writer of the bit string, without a call per leaf into the record.
std::vector<uint64_t> TileRecord::ReadBits(const std::string& bits) {
  const std::vector<Leaf>& leaves = layout_->leaves();
  std::vector<uint64_t> values(leaves.size());
  const auto in = std::make_unique<zu::spec::BitReader>(bits, 0, layout_->bits());
  for (size_t i = 0; i < leaves.size(); ++i)
    values[i] = in->take(static_cast<int>(leaves[i].width));
  return values;
}

std::unique_ptr<zu::spec::ConfigBuilder> TileRecord::Built(const std::vector<uint64_t>& values) {
  auto builder = std::make_unique<zu::spec::ConfigBuilder>();
  zu::spec::BitWriter out(*builder);
  const std::vector<Leaf>& leaves = layout_->leaves();
  for (size_t i = 0; i < leaves.size(); ++i) {
    // Values come from a checked listing or a parsed configuration, so each fits its leaf; a
    // missing one is 0.
    const uint64_t value = i < values.size() ? values[i] : 0;
    out.put(value & MaxValue(leaves[i].width), static_cast<int>(leaves[i].width));
  }
  out.flush();
  return builder;
}

void TileRecord::Load(const std::vector<uint64_t>& values) {
  size_t i = 0;
  root_->Walk([&values, &i](BitsIntegerBase& leaf) {
    const uint64_t value = i < values.size() ? values[i] : 0;
    ++i;
    if (value <= MaxValue(static_cast<uint32_t>(leaf.SizeInBits()))) leaf = value;
  });
}

void TileRecord::UseRegistered(const std::vector<uint64_t>& values,
                               const std::function<void(const BaseConstruct&)>& use) {
  Load(values);
  const Registration registration(*root_, class_, first_id_);
  const std::vector<Leaf>& leaves = layout_->leaves();
  size_t i = 0;
  root_->Walk([&leaves, &i](BitsIntegerBase& leaf) {
    const Leaf& place = leaves[i++];
    if (place.runtime_lo != nullptr) leaf.SetRegisterLo(place.runtime_lo->number, true);
    if (place.runtime_hi != nullptr) leaf.SetRegisterHi(place.runtime_hi->number, true);
  });
  use(*root_);
}

std::string TileRecord::WriteBits(const std::vector<uint64_t>& values) {
  return Built(values)->to_string();
}

std::vector<uint8_t> TileRecord::WriteBytes(const std::vector<uint64_t>& values) {
  const std::unique_ptr<zu::spec::ConfigBuilder> builder = Built(values);
  // Bytes need whole bytes: pad the last one with zero bits.
  const int64_t padding = (8 - builder->cursor() % 8) % 8;
  builder->set(0, padding);
  return builder->to_bytes();
}

std::string TileRecord::WriteTree(const std::vector<uint64_t>& values) {
  Load(values);
  const Registration registration(*root_, class_, first_id_);
  std::string out;
  root_->ToString(0, &out);
  return out;
}

}  // namespace archspec
