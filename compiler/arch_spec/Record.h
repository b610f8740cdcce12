// A configuration record: a class that is its fields, in table order, and a `Fields` function that
// names them. Every operation of a construct comes from Record<Self, Generation>, as one pass over
// those fields:
//
//   class ContextConfiguration final : public Record<ContextConfiguration, RyGeneration> {
//    public:
//     static constexpr size_t kSizeInBits = 8;   // the table's declared totals
//     static constexpr size_t kFieldCount = 6;
//     static constexpr int kUniqueIds = 7;
//     BitsInteger<1> counter_ctxt;
//     ...
//     template <class Self, class Visit>
//     static void Fields(Self& self, Visit&& visit) {
//       visit("counter_ctxt", self.counter_ctxt);
//       ...
//     }
//   };
//
// Parse and Build read and write the fields' bits directly, through the field types known at
// compile time. The other operations see the fields as constructs (RecordField) and are written
// once, in RecordBase, for all records. The generated sources instantiate each record's
// operations once; everyone else only declares them.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "compiler/arch_spec/Constructs.h"

namespace zu::spec {

// One field of a record as the generic operations see it: its name in the table, the field, and
// its width if it is a leaf (0 otherwise), so that a leaf field is printed and collected without
// the virtual calls of the general operations. The reading operations only read through it.
struct RecordField {
  std::string_view name;  // of a literal: its length is known where the list is made
  BaseConstruct* construct;
  int leaf_width = 0;
};

// The rules by which every record runs through its fields, whatever they are.
class RecordBase : public BaseConstruct {
 protected:
  using FieldList = std::span<const RecordField>;

  // "{", one line per field "<name> = <field's text>" two blanks deeper, "}" at the record's depth.
  static void ToStringOf(FieldList fields, int unique_ids, size_t indent, std::string* out);
  static void WalkOf(FieldList fields, const std::function<void(BitsIntegerBase&)>& visit);
  static void WalkOf(FieldList fields, const std::function<void(const BitsIntegerBase&)>& visit);
  // `unique_ids`: the ids that the whole record takes; the outermost record of a pass makes room
  // for that many results.
  static void CollectPatchesOf(FieldList fields, int unique_ids,
                               std::vector<PatchMetadata>& patches, uint32_t id,
                               zu::optional<uint32_t> base, zu::optional<uint32_t> value);
  static void CollectFieldsOf(FieldList fields, int unique_ids, std::vector<FieldMetadata>& out,
                              bool flag, int32_t base);
  // The record takes `next_id`; each field takes the next one up and numbers its own sub-tree.
  void SetUniqueIdOf(FieldList fields, UniqueId& next_id);
  // A record registers once: if its entry is there already, nothing of it or below it changes.
  // Otherwise each field registers under its table name, at the running offset.
  void SetExternalStorageOf(FieldList fields, int unique_ids, const std::string& name,
                            BaseConstruct* parent, size_t offset, uint32_t& register_index);
  // Whether `major`.`minor` is a chip version that the namespace's records describe.
  static bool IsSupportedVersionOf(int records_major, const std::vector<int>& arch_minors,
                                   int major, int minor);
};

// The operations of the record `Self`, whose namespace serves the chip versions of `Generation`
// (kMajor, kMinors).
template <class Self, class Generation>
class Record : public RecordBase {
 public:
  void Parse(const std::string& bits, size_t* position) final;
  void Build(ConfigBuilder& builder) const final;
  size_t SizeInBits() const final;
  void ToString(size_t indent, std::string* out) const final;
  void Walk(const std::function<void(BitsIntegerBase&)>& visit) final;
  void Walk(const std::function<void(const BitsIntegerBase&)>& visit) const final;
  void CollectPatches(std::vector<PatchMetadata>& patches, uint32_t id, zu::optional<uint32_t> base,
                      zu::optional<uint32_t> value) const final;
  void CollectFields(std::vector<FieldMetadata>& fields, bool flag, int32_t base) const final;
  void SetUniqueId(UniqueId& next_id) final;
  void SetExternalStorage(const std::string& name, BaseConstruct* parent, size_t offset,
                          uint32_t& register_index) final;
  virtual bool IsSupportedVersion(int major, int minor) const;

  // The bits of the record at the reader's or writer's position: how enclosing records and arrays
  // parse and build it, with no call per field.
  void ReadBits(BitReader& in);
  void WriteBits(BitWriter& out) const;

 private:
  Self& self() { return static_cast<Self&>(*this); }
  const Self& self() const { return static_cast<const Self&>(*this); }
};

// The fields of `record` as constructs, in table order. One list serves the reading operations as
// well (they only read through it), so that each record instantiates its field list once, and once
// only: it is not copied into each operation.
template <class R>
[[gnu::noinline]] std::array<RecordField, R::kFieldCount> FieldsOf(R& record) {
  std::array<RecordField, R::kFieldCount> fields;
  size_t i = 0;
  R::Fields(record, [&](std::string_view name, auto& field) {
    fields[i++] = {name, &field, constructs_internal::kLeafWidth<std::decay_t<decltype(field)>>};
  });
  return fields;
}
template <class R>
std::array<RecordField, R::kFieldCount> FieldsOf(const R& record) {
  return FieldsOf(const_cast<R&>(record));  // only read through, as const
}

template <class Self, class Generation>
void Record<Self, Generation>::Parse(const std::string& bits, size_t* position) {
  BitReader in(bits, *position, Self::kSizeInBits);
  ReadBits(in);
  *position += Self::kSizeInBits;
}

template <class Self, class Generation>
void Record<Self, Generation>::Build(ConfigBuilder& builder) const {
  builder.ensure_room(Self::kSizeInBits);
  BitWriter out(builder);
  WriteBits(out);
}

template <class Self, class Generation>
size_t Record<Self, Generation>::SizeInBits() const {
  return Self::kSizeInBits;
}

template <class Self, class Generation>
void Record<Self, Generation>::ReadBits(BitReader& in) {
  Self::Fields(self(), [&in](const char*, auto& field) { field.ReadBits(in); });
}

template <class Self, class Generation>
void Record<Self, Generation>::WriteBits(BitWriter& out) const {
  Self::Fields(self(), [&out](const char*, const auto& field) { field.WriteBits(out); });
}

template <class Self, class Generation>
void Record<Self, Generation>::ToString(size_t indent, std::string* out) const {
  ToStringOf(FieldsOf(self()), Self::kUniqueIds, indent, out);
}

template <class Self, class Generation>
void Record<Self, Generation>::Walk(const std::function<void(BitsIntegerBase&)>& visit) {
  WalkOf(FieldsOf(self()), visit);
}

template <class Self, class Generation>
void Record<Self, Generation>::Walk(
    const std::function<void(const BitsIntegerBase&)>& visit) const {
  WalkOf(FieldsOf(self()), visit);
}

template <class Self, class Generation>
void Record<Self, Generation>::CollectPatches(std::vector<PatchMetadata>& patches, uint32_t id,
                                              zu::optional<uint32_t> base,
                                              zu::optional<uint32_t> value) const {
  CollectPatchesOf(FieldsOf(self()), Self::kUniqueIds, patches, id, base, value);
}

template <class Self, class Generation>
void Record<Self, Generation>::CollectFields(std::vector<FieldMetadata>& fields, bool flag,
                                             int32_t base) const {
  CollectFieldsOf(FieldsOf(self()), Self::kUniqueIds, fields, flag, base);
}

template <class Self, class Generation>
void Record<Self, Generation>::SetUniqueId(UniqueId& next_id) {
  SetUniqueIdOf(FieldsOf(self()), next_id);
}

template <class Self, class Generation>
void Record<Self, Generation>::SetExternalStorage(const std::string& name, BaseConstruct* parent,
                                                  size_t offset, uint32_t& register_index) {
  SetExternalStorageOf(FieldsOf(self()), Self::kUniqueIds, name, parent, offset, register_index);
}

template <class Self, class Generation>
bool Record<Self, Generation>::IsSupportedVersion(int major, int minor) const {
  static const std::vector<int> arch_minors(std::begin(Generation::kMinors),
                                            std::end(Generation::kMinors));
  return IsSupportedVersionOf(Generation::kMajor, arch_minors, major, minor);
}

}  // namespace zu::spec
