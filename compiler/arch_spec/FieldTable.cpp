// The table of field locations (BaseConstruct::external_storage_): what registration writes into
// it, how an entry is found, and the paths of constructs, which are read from it. Every reading of
// a name finds or makes the entry, as a lookup of the table by id does.
#include <vector>

#include "compiler/arch_spec/Constructs.h"
#include "compiler/arch_spec/Paths.h"

namespace zu::spec {

std::unordered_map<UniqueId, ExternalStorage> BaseConstruct::external_storage_;

namespace {

constexpr uint16_t max_offset = 65535;

// The entry of `id`, made empty if there is none: what every reading of a name does.
ExternalStorage& NamedEntry(UniqueId id) { return BaseConstruct::external_storage_[id]; }

// The path of the construct whose entry is `entry`, walking up its parents.
std::string PathOfEntry(const ExternalStorage& entry) {
  std::vector<const std::string*> names{&entry.name};
  for (const ExternalStorage* up = &entry; up->parent.has_value();) {
    up = &NamedEntry(*up->parent);
    names.push_back(&up->name);
  }
  std::string path;
  for (size_t i = names.size(); i-- > 0;) AppendStep(path, *names[i]);
  return path;
}

// The outermost metadata pass while one runs. Like the table, it belongs to one thread at a time.
constructs_internal::MetadataPass* running_pass = nullptr;

}  // namespace

namespace constructs_internal {

MetadataPass::MetadataPass() : outermost_(running_pass == nullptr) {
  if (outermost_) running_pass = this;
}

MetadataPass::~MetadataPass() {
  if (outermost_) running_pass = nullptr;
}

MetadataPass* MetadataPass::Running() { return running_pass; }

const std::string& MetadataPass::PathOf(UniqueId id) {
  if (last_path_ != nullptr && last_id_ == id) return *last_path_;
  const auto found = paths_.find(id);
  if (found != paths_.end()) {
    last_id_ = id;
    last_path_ = &found->second;
    return found->second;
  }
  const ExternalStorage& entry = NamedEntry(id);
  std::string path = entry.parent.has_value() ? PathOf(*entry.parent) : std::string();
  AppendStep(path, entry.name);
  // A reference into the map stays valid as it grows.
  std::string& kept = paths_.emplace(id, std::move(path)).first->second;
  last_id_ = id;
  last_path_ = &kept;
  return kept;
}

void AssignPath(std::string& path, const ExternalStorage& entry) {
  MetadataPass* pass = MetadataPass::Running();
  if (pass == nullptr || !entry.parent.has_value()) {
    path = PathOfEntry(entry);
  } else {
    const std::string& above = pass->PathOf(*entry.parent);
    path.reserve(above.size() + 1 + entry.name.size());
    path.assign(above);
    AppendStep(path, entry.name);
  }
  // Every named ancestor is followed by '.': a construct without a name of its own (an array)
  // under a record `r` is "r.", where its elements are "r.x[3]".
  if (entry.name.empty() && !path.empty()) path.push_back('.');
}

}  // namespace constructs_internal

ExternalStorage& BaseConstruct::StoredEntryOf(UniqueId id, const zu::SourceLocation& location) {
  if (ExternalStorage* entry = FindEntry(id)) return *entry;
  // No entry: the lookup leaves an empty one behind, as a lookup of the table does, and fails.
  ExternalStorage& made = NamedEntry(id);
  check(false, "External storage not initialized", location);
  return made;
}

ExternalStorage& BaseConstruct::StoredEntry(zu::SourceLocation location) const {
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  return StoredEntryOf(*unique_id_, location);
}

void BaseConstruct::CheckOffset(size_t offset, zu::SourceLocation location) {
  check(offset <= max_offset, {"Offset out of bounds ({} > {})", location}, offset, max_offset);
}

UniqueId BaseConstruct::ParentId(const BaseConstruct& parent) { return parent.GetUniqueId(); }

std::string BaseConstruct::Name() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  std::string path;
  constructs_internal::AssignPath(path, NamedEntry(*unique_id_));
  return path;
}

bool BaseConstruct::RegisterRecord(const std::string& name, BaseConstruct* parent, size_t offset,
                                   zu::SourceLocation location) {
  CheckOffset(offset, location);
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  auto [found, inserted] = external_storage_.try_emplace(*unique_id_);
  if (!inserted) return false;  // registered before, sub-tree included
  ExternalStorage& entry = found->second;
  entry.name = name;
  if (parent != nullptr) entry.parent = ParentId(*parent);
  entry.offset = static_cast<uint16_t>(offset);
  return true;
}

void BaseConstruct::RegisterArray(BaseConstruct* parent) {
  if (!unique_id_.has_value()) return;
  ExternalStorage& entry = NamedEntry(*unique_id_);
  if (parent != nullptr) entry.parent = ParentId(*parent);
}

namespace {

// A leaf's entry, its name aside: its parent if it has one, its offset, and its registers, one
// for each 32 bits, counted on from `reg`.
void PlaceLeaf(ExternalStorage& entry, const zu::optional<UniqueId>& parent, size_t offset,
               size_t width, uint32_t& reg) {
  if (parent.has_value()) entry.parent = parent;
  entry.offset = static_cast<uint16_t>(offset);
  entry.reg_lo = reg++;
  if (width >= 33) entry.reg_hi = reg++;
}

}  // namespace

void BaseConstruct::RegisterLeaf(UniqueId id, const std::string& name, BaseConstruct* parent,
                                 size_t offset, size_t width, uint32_t& reg) {
  ExternalStorage& entry = NamedEntry(id);
  entry.name = name;
  PlaceLeaf(
      entry,
      parent != nullptr ? zu::optional<UniqueId>(ParentId(*parent)) : zu::optional<UniqueId>(),
      offset, width, reg);
}

void BaseConstruct::RegisterElements(UniqueId first_id, size_t count, const std::string& name,
                                     size_t columns, BaseConstruct* parent, size_t offset,
                                     size_t width, uint32_t& reg,
                                     const zu::SourceLocation& location) {
  const zu::optional<UniqueId> parent_id =
      parent != nullptr ? zu::optional<UniqueId>(ParentId(*parent)) : zu::optional<UniqueId>();
  for (size_t k = 0; k < count; ++k) {
    const size_t i = count - 1 - k;
    CheckOffset(offset, location);
    ExternalStorage& entry = NamedEntry(static_cast<UniqueId>(first_id + static_cast<UniqueId>(k)));
    entry.name = columns == 0 ? ElementName(name, i) : ElementName(name, i / columns, i % columns);
    PlaceLeaf(entry, parent_id, offset, width, reg);
    offset += width;
  }
}

}  // namespace zu::spec
