#include "compiler/arch_spec/Record.h"

namespace zu::spec {

void RecordBase::WalkOf(FieldList fields, const std::function<void(BitsIntegerBase&)>& visit) {
  for (const RecordField& field : fields) field.construct->Walk(visit);
}

void RecordBase::WalkOf(FieldList fields,
                        const std::function<void(const BitsIntegerBase&)>& visit) {
  for (const RecordField& field : fields) {
    static_cast<const BaseConstruct*>(field.construct)->Walk(visit);
  }
}

void RecordBase::CollectPatchesOf(FieldList fields, int unique_ids,
                                  std::vector<PatchMetadata>& patches, uint32_t id,
                                  zu::optional<uint32_t> base, zu::optional<uint32_t> value) {
  const constructs_internal::MetadataPass pass;
  // Every leaf takes an id and gives one or two patches: the ids are a good first guess.
  if (pass.outermost()) constructs_internal::ReserveMore(patches, static_cast<size_t>(unique_ids));
  for (const RecordField& field : fields) {
    if (field.leaf_width != 0) {
      static_cast<const BitsIntegerBase*>(field.construct)
          ->AppendPatchesOf(static_cast<size_t>(field.leaf_width), patches, id, base, value);
    } else {
      field.construct->CollectPatches(patches, id, base, value);
    }
  }
}

void RecordBase::CollectFieldsOf(FieldList fields, int unique_ids, std::vector<FieldMetadata>& out,
                                 bool flag, int32_t base) {
  const constructs_internal::MetadataPass pass;
  if (pass.outermost()) constructs_internal::ReserveMore(out, static_cast<size_t>(unique_ids));
  for (const RecordField& field : fields) {
    if (field.leaf_width != 0) {
      static_cast<const BitsIntegerBase*>(field.construct)
          ->AppendFieldsOf(static_cast<size_t>(field.leaf_width), out, flag, base);
    } else {
      field.construct->CollectFields(out, flag, base);
    }
  }
}

void RecordBase::SetUniqueIdOf(FieldList fields, UniqueId& next_id) {
  unique_id_ = next_id;
  for (const RecordField& field : fields) {
    next_id = static_cast<UniqueId>(next_id + 1);
    field.construct->SetUniqueId(next_id);
  }
}

void RecordBase::SetExternalStorageOf(FieldList fields, int unique_ids, const std::string& name,
                                      BaseConstruct* parent, size_t offset,
                                      uint32_t& register_index) {
  if (!RegisterRecord(name, parent, offset)) return;
  // A whole tile registers its entries at once: make room for them first, growing the table
  // geometrically, so that the tiles of a chip registered one after another do not rehash it
  // every time.
  if (parent == nullptr) {
    const size_t size = external_storage_.size();
    const size_t wanted = size + static_cast<size_t>(unique_ids);
    const auto room = static_cast<size_t>(static_cast<float>(external_storage_.bucket_count()) *
                                          external_storage_.max_load_factor());
    if (wanted > room) external_storage_.reserve(wanted > 2 * size ? wanted : 2 * size);
  }
  std::string field_name;
  for (const RecordField& field : fields) {
    field_name.assign(field.name);
    field.construct->SetExternalStorage(field_name, this, offset, register_index);
    offset += field.construct->SizeInBits();
  }
}

bool RecordBase::IsSupportedVersionOf(int records_major, const std::vector<int>& arch_minors,
                                      int major, int minor) {
  return major == records_major &&
         std::find(arch_minors.begin(), arch_minors.end(), minor) != arch_minors.end();
}

}  // namespace zu::spec
