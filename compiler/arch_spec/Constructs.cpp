// The operations that every construct shares and those of a leaf that are not inline. The table of
// field locations is FieldTable.cpp, the printed form (of records too) LeafText.cpp, where leaves
// lie LeafMetadata.cpp, and the reading and writing of bits BitIO.cpp.
#include "compiler/arch_spec/Constructs.h"

namespace zu::spec {

BaseConstruct::~BaseConstruct() = default;

uint16_t BaseConstruct::Offset() const { return OffsetImpl(); }

void BaseConstruct::SetUniqueId(UniqueId& next) { unique_id_ = next; }

UniqueId BaseConstruct::GetUniqueId() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  return *unique_id_;
}

uint16_t BaseConstruct::OffsetImpl() const { return StoredEntry().offset; }

void BitsIntegerBase::ToString(size_t /*indent*/, std::string* out) const { ToStringImpl(out); }

void BitsIntegerBase::Walk(const std::function<void(BitsIntegerBase&)>& fn) { fn(*this); }

void BitsIntegerBase::Walk(const std::function<void(const BitsIntegerBase&)>& fn) const {
  fn(*this);
}

void BitsIntegerBase::CollectPatches(std::vector<PatchMetadata>& out, uint32_t id,
                                     zu::optional<uint32_t> base,
                                     zu::optional<uint32_t> value) const {
  CollectPatchesImpl(out, id, base, value);
}

void BitsIntegerBase::CollectFields(std::vector<FieldMetadata>& out, bool flag,
                                    int32_t base) const {
  CollectFieldsImpl(out, flag, base);
}

void BitsIntegerBase::SetExternalStorage(const std::string& name, BaseConstruct* parent,
                                         size_t offset, uint32_t& reg) {
  SetExternalStorageImpl(name, parent, offset, reg);
}

uint64_t BitsIntegerBase::ParseImpl(const std::string& bits, size_t* pos) const {
  const size_t width = SizeInBits();
  const uint64_t value = ReadCharacters(bits, *pos, width);
  *pos += width;
  return value;
}

void BitsIntegerBase::range_check(size_t offset, size_t size) const {
  check(offset < size, "BitsIntegers of size {} cannot be accessed at offset {}", size, offset);
}

void BitsIntegerBase::CollectFieldsImpl(std::vector<FieldMetadata>& out, bool flag,
                                        int32_t base) const {
  AppendFieldsOf(SizeInBits(), out, flag, base);
}

void BitsIntegerBase::CollectPatchesImpl(std::vector<PatchMetadata>& out, uint32_t id,
                                         zu::optional<uint32_t> base,
                                         zu::optional<uint32_t> value) const {
  AppendPatchesOf(SizeInBits(), out, id, base, value);
}

void BitsIntegerBase::SetExternalStorageImpl(const std::string& name, BaseConstruct* parent,
                                             size_t offset, uint32_t& reg) {
  const zu::SourceLocation location = zu::SourceLocation::current();
  CheckOffset(offset, location);
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  RegisterLeaf(*unique_id_, name, parent, offset, SizeInBits(), reg);
}

uint32_t BitsIntegerBase::RegisterLoImpl() const { return StoredEntry().reg_lo; }

uint32_t BitsIntegerBase::RegisterHiImpl() const {
  const ExternalStorage& entry = StoredEntry();
  check(entry.reg_hi.has_value(), "High register is uninitialized");
  return *entry.reg_hi;
}

void BitsIntegerBase::SetRegisterLo(uint32_t reg, bool writable) {
  ExternalStorage& entry = StoredEntry();
  entry.reg_lo = reg;
  entry.writable = writable;
}

void BitsIntegerBase::SetRegisterHi(uint32_t reg, bool writable) {
  ExternalStorage& entry = StoredEntry();
  entry.reg_hi = reg;
  entry.writable = writable;
}

}  // namespace zu::spec
