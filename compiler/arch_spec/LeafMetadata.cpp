// Where leaves lie, as the metadata operations give it: CollectFields (a FieldMetadata per part of
// at most 32 bits, with the leaf's path) and CollectPatches (a register write per part).
#include "compiler/arch_spec/Constructs.h"

namespace zu::spec {

namespace {

// The entry of `id`, which must exist: the table's own lookup, and its failure
// ("External storage not initialized") where there is none.
const ExternalStorage& EntryOf(UniqueId id, const zu::SourceLocation& location) {
  if (const ExternalStorage* entry = BaseConstruct::FindEntry(id)) [[likely]]
    return *entry;
  return BaseConstruct::StoredEntryOf(id, location);
}

// The one or two FieldMetadata of a leaf of `width` bits with entry `entry`: the low 32 bits, which
// stand at the end of a wide leaf's stretch, then the bits above them.
void AppendFields(std::vector<FieldMetadata>& out, const ExternalStorage& entry, size_t width,
                  bool flag, int32_t base) {
  FieldMetadata& field = out.emplace_back();
  constructs_internal::AssignPath(field.name, entry);
  field.width = static_cast<uint16_t>(width < 32 ? width : 32);
  const uint32_t start = static_cast<uint32_t>(entry.offset) + static_cast<uint32_t>(base);
  const uint32_t position = start + static_cast<uint32_t>(width >= 32 ? width - 32 : 0);
  field.word = position / 512;
  field.bit = position % 512;
  field.flag = flag;
  field.reg = entry.reg_lo;
  field.reg_flag = entry.writable;
  if (width >= 33 && entry.reg_hi.has_value()) {
    FieldMetadata high = field;
    high.width = static_cast<uint16_t>(width - 32);
    high.word = start / 512;
    high.bit = start % 512;
    high.reg = *entry.reg_hi;
    out.push_back(std::move(high));
  }
}

// How the patches of a call are made: the caller's id, the base added to low registers, and the
// value given for every patch, if any.
struct PatchRule {
  PatchRule(uint32_t patch_id, const zu::optional<uint32_t>& base,
            const zu::optional<uint32_t>& value)
      : patch_id(patch_id),
        added(base.value_or(0)),
        given(value.has_value()),
        given_value(value.value_or(0)) {}

  // The one or two patches of a leaf of `width` bits holding `v`, whose entry is `entry`, written
  // at `patch`: the low 32 bits, with the base added, then, above 32 bits, the bits from 32 up.
  // The high word takes no base: that asymmetry is part of the format of patches. Returns where
  // they end.
  PatchMetadata* Put(PatchMetadata* patch, const ExternalStorage& entry, size_t width,
                     uint64_t v) const {
    *patch++ = {patch_id, entry.reg_lo + added, given ? given_value : static_cast<uint32_t>(v)};
    if (width >= 33) {
      *patch++ = {patch_id, entry.reg_hi.value_or(0),
                  given ? given_value : static_cast<uint32_t>(v >> 32)};
    }
    return patch;
  }

  uint32_t patch_id;
  uint32_t added;
  bool given;
  uint32_t given_value;
};

}  // namespace

[[gnu::flatten]] void BaseConstruct::AppendLeavesFields(std::vector<FieldMetadata>& out,
                                                        UniqueId first_id, size_t count,
                                                        size_t width, bool flag, int32_t base,
                                                        const zu::SourceLocation& location) {
  constructs_internal::ReserveMore(out, count);
  for (size_t k = 0; k < count; ++k) {
    const auto id = static_cast<UniqueId>(first_id + static_cast<UniqueId>(k));
    AppendFields(out, EntryOf(id, location), width, flag, base);
  }
}

// Flattened, so that the table lookups are inlined into the loop.
[[gnu::flatten]] void BaseConstruct::AppendLeavesPatches(
    std::vector<PatchMetadata>& out, UniqueId first_id, size_t count, size_t width,
    const uint64_t* values, uint32_t patch_id, const zu::optional<uint32_t>& base,
    const zu::optional<uint32_t>& value, const zu::SourceLocation& location) {
  const PatchRule rule(patch_id, base, value);
  const size_t start = out.size();
  out.resize(start + (width >= 33 ? 2 : 1) * count);
  PatchMetadata* patch = out.data() + start;
  for (size_t k = 0; k < count; ++k) {
    const auto id = static_cast<UniqueId>(first_id + static_cast<UniqueId>(k));
    const ExternalStorage* entry = FindEntry(id);
    if (entry == nullptr) [[unlikely]] {
      // What came before the leaf without an entry stays; its failure ends the operation.
      out.resize(static_cast<size_t>(patch - out.data()));
      StoredEntryOf(id, location);
      return;
    }
    patch = rule.Put(patch, *entry, width, values[k]);
  }
}

void BitsIntegerBase::AppendFieldsOf(size_t width, std::vector<FieldMetadata>& out, bool flag,
                                     int32_t base) const {
  const zu::SourceLocation location = zu::SourceLocation::current();
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  AppendFields(out, EntryOf(*unique_id_, location), width, flag, base);
}

void BitsIntegerBase::AppendPatchesOf(size_t width, std::vector<PatchMetadata>& out, uint32_t id,
                                      const zu::optional<uint32_t>& base,
                                      const zu::optional<uint32_t>& value) const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  const ExternalStorage& entry = EntryOf(*unique_id_, zu::SourceLocation::current());
  const size_t start = out.size();
  out.resize(start + (width >= 33 ? 2 : 1));
  PatchRule(id, base, value).Put(out.data() + start, entry, width, ToNumber());
}

}  // namespace zu::spec
