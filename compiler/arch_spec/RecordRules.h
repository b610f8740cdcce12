// The rules by which every generated record runs through its fields. A record lists its fields
// once, in its `Fields` function, in table order; each operation below is one pass over that list.
// Included only by the generated record sources.
#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "compiler/arch_spec/Constructs.h"

namespace zu::spec::record_rules {

template <class R>
void Parse(R& record, const std::string& bits, size_t* position) {
  BitReader in(bits, *position, R::kSizeInBits);
  record.ReadBits(in);
  *position += R::kSizeInBits;
}

template <class R>
void ReadBits(R& record, BitReader& in) {
  R::Fields(record, [&in](const char*, auto& field) { field.ReadBits(in); });
}

template <class R>
void WriteBits(const R& record, BitWriter& out) {
  R::Fields(record, [&out](const char*, const auto& field) { field.WriteBits(out); });
}

template <class R>
void Build(const R& record, ConfigBuilder& builder) {
  builder.ensure_room(R::kSizeInBits);
  BitWriter out(builder);
  record.WriteBits(out);
}

// "{", one line per field "<name> = <field's text>" two blanks deeper, then "}" at the record's
// depth.
template <class R>
void ToString(const R& record, size_t indent, std::string* out) {
  out->append("{\n");
  R::Fields(record, [indent, out](const char* name, const auto& field) {
    out->append(2 * indent + 2, ' ').append(name).append(" = ");
    field.ToString(indent + 1, out);
  });
  out->append(2 * indent, ' ').append("}\n");
}

template <class R, class Fn>
void Walk(R& record, const Fn& visit) {
  R::Fields(record, [&visit](const char*, auto& field) { field.Walk(visit); });
}

template <class R>
void CollectPatches(const R& record, std::vector<PatchMetadata>& patches, uint32_t id,
                    zu::optional<uint32_t> base, zu::optional<uint32_t> value) {
  R::Fields(record, [&](const char*, const auto& field) {
    field.CollectPatches(patches, id, base, value);
  });
}

template <class R>
void CollectFields(const R& record, std::vector<FieldMetadata>& fields, bool flag, int32_t base) {
  R::Fields(record,
            [&](const char*, const auto& field) { field.CollectFields(fields, flag, base); });
}

// The record takes `next_id`; each field takes the next one up and numbers its own sub-tree.
template <class R>
void SetUniqueId(R& record, UniqueId& next_id) {
  record.BaseConstruct::SetUniqueId(next_id);
  R::Fields(record, [&next_id](const char*, auto& field) {
    ++next_id;
    field.SetUniqueId(next_id);
  });
}

// Whether the namespace's generation (major, and one of `arch_minors`) is the chip version asked
// for.
template <class Generation>
bool IsSupportedVersion(const std::vector<int>& arch_minors, int major, int minor) {
  return major == Generation::kMajor &&
         std::find(arch_minors.begin(), arch_minors.end(), minor) != arch_minors.end();
}

}  // namespace zu::spec::record_rules

// Defines the operations that ZU_SPEC_RECORD declared, after the record's `Fields` function.
#define ZU_SPEC_RECORD_IMPL(Class)                                                                \
  /* Out of line, so that every member's class is completed here, virtual operations included. */ \
  Class::Class() = default;                                                                       \
  Class::~Class() = default;                                                                      \
  void Class::Parse(const std::string& bits, size_t* position) {                                  \
    ::zu::spec::record_rules::Parse(*this, bits, position);                                       \
  }                                                                                               \
  void Class::ReadBits(::zu::spec::BitReader& in) {                                               \
    ::zu::spec::record_rules::ReadBits(*this, in);                                                \
  }                                                                                               \
  void Class::WriteBits(::zu::spec::BitWriter& out) const {                                       \
    ::zu::spec::record_rules::WriteBits(*this, out);                                              \
  }                                                                                               \
  void Class::Build(::zu::spec::ConfigBuilder& builder) const {                                   \
    ::zu::spec::record_rules::Build(*this, builder);                                              \
  }                                                                                               \
  void Class::ToString(size_t indent, std::string* out) const {                                   \
    ::zu::spec::record_rules::ToString(*this, indent, out);                                       \
  }                                                                                               \
  void Class::Walk(const std::function<void(::zu::spec::BitsIntegerBase&)>& visit) {              \
    ::zu::spec::record_rules::Walk(*this, visit);                                                 \
  }                                                                                               \
  void Class::Walk(const std::function<void(const ::zu::spec::BitsIntegerBase&)>& visit) const {  \
    ::zu::spec::record_rules::Walk(*this, visit);                                                 \
  }                                                                                               \
  void Class::CollectPatches(std::vector<::zu::spec::PatchMetadata>& patches, uint32_t id,        \
                             ::zu::optional<uint32_t> base, ::zu::optional<uint32_t> value)       \
      const {                                                                                     \
    ::zu::spec::record_rules::CollectPatches(*this, patches, id, base, value);                    \
  }                                                                                               \
  void Class::CollectFields(std::vector<::zu::spec::FieldMetadata>& fields, bool flag,            \
                            int32_t base) const {                                                 \
    ::zu::spec::record_rules::CollectFields(*this, fields, flag, base);                           \
  }                                                                                               \
  void Class::SetUniqueId(::zu::spec::UniqueId& next_id) {                                        \
    ::zu::spec::record_rules::SetUniqueId(*this, next_id);                                        \
  }                                                                                               \
  void Class::SetExternalStorage(const std::string& name, ::zu::spec::BaseConstruct* parent,      \
                                 size_t offset, uint32_t& register_index) {                       \
    if (!RegisterRecord(name, parent, offset)) return;                                            \
    Fields(*this, [&](const char* field_name, auto& field) {                                      \
      field.SetExternalStorage(field_name, this, offset, register_index);                         \
      offset += field.SizeInBits();                                                               \
    });                                                                                           \
  }                                                                                               \
  bool Class::IsSupportedVersion(int major, int minor) const {                                    \
    static const std::vector<int> arch_minors(std::begin(RecordGeneration::kMinors),              \
                                              std::end(RecordGeneration::kMinors));               \
    return ::zu::spec::record_rules::IsSupportedVersion<RecordGeneration>(arch_minors, major,     \
                                                                          minor);                 \
  }
