#include "compiler/arch_spec/Constructs.h"

#include <array>
#include <string_view>
#include <tuple>

namespace zu::spec {

namespace {

constexpr uint16_t max_offset = 65535;

constexpr char kHexDigits[] = "0123456789abcdef";

void AppendHex(std::string* out, uint64_t value, int min_digits) {
  char text[16];
  int n = 0;
  do {
    text[n++] = kHexDigits[value & 15];
    value >>= 4;
  } while (value != 0);
  while (n < min_digits) text[n++] = '0';
  while (n > 0) out->push_back(text[--n]);
}

// Entry b is the eight-character text of byte b, most significant bit first.
constexpr std::array<std::array<char, 8>, 256> MakeByteTexts() {
  std::array<std::array<char, 8>, 256> texts{};
  for (int b = 0; b < 256; ++b) {
    for (int k = 0; k < 8; ++k) texts[b][k] = ((b >> (7 - k)) & 1) ? '1' : '0';
  }
  return texts;
}
constexpr std::array<std::array<char, 8>, 256> kByteTexts = MakeByteTexts();

constexpr std::array<std::string_view, 256> MakeByteTextViews() {
  std::array<std::string_view, 256> views{};
  for (int b = 0; b < 256; ++b) views[b] = std::string_view(kByteTexts[b].data(), 8);
  return views;
}
constexpr std::array<std::string_view, 256> BYTES2BITS_CACHE = MakeByteTextViews();

// Eight characters, first at the lowest address, to one byte with the first character at bit 7.
// Only the low bit of each character counts.
inline uint64_t PackEight(const char* text) {
  uint64_t chunk;
  std::memcpy(&chunk, text, 8);
  return ((chunk & 0x0101010101010101ULL) * 0x8040201008040201ULL) >> 56;
}

}  // namespace

void bytes2bits(const std::vector<uint8_t>& bytes, std::string* out) {
  out->reserve(out->size() + 8 * bytes.size());
  for (const uint8_t b : bytes) out->append(BYTES2BITS_CACHE[b]);
}

BitReader::BitReader(const std::string& bits, size_t position, size_t count) {
  const size_t words = (count + 63) / 64;
  const size_t available = position < bits.size() ? bits.size() - position : 0;
  const char* text = bits.data() + (position < bits.size() ? position : 0);
  for (size_t w = 0; w < words; ++w) {
    uint64_t word = 0;
    const size_t first = 64 * w;
    if (first + 64 <= available) {
      for (int k = 0; k < 8; ++k) word = (word << 8) | PackEight(text + first + 8 * k);
    } else {
      // The last word of the text: characters past its end read as '0'.
      char chunk[64];
      std::memset(chunk, '0', sizeof chunk);
      if (first < available) std::memcpy(chunk, text + first, available - first);
      for (int k = 0; k < 8; ++k) word = (word << 8) | PackEight(chunk + 8 * k);
    }
    words_[w] = word;
  }
  // Zero words behind the stretch keep the two-word window of take() inside initialised data.
  words_[words] = 0;
  if (words + 1 < kWords) words_[words + 1] = 0;
}

std::unordered_map<UniqueId, ExternalStorage> BaseConstruct::external_storage_;

BaseConstruct::~BaseConstruct() = default;

uint16_t BaseConstruct::Offset() const { return OffsetImpl(); }

void BaseConstruct::SetUniqueId(UniqueId& next) { unique_id_ = next; }

UniqueId BaseConstruct::GetUniqueId() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  return *unique_id_;
}

ExternalStorage& BaseConstruct::StoredEntry(zu::SourceLocation location) const {
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  auto [entry, inserted] = external_storage_.try_emplace(*unique_id_);
  check(!inserted, "External storage not initialized", location);
  return entry->second;
}

ExternalStorage& BaseConstruct::EntryFor(zu::SourceLocation location) const {
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  return external_storage_[*unique_id_];
}

uint16_t BaseConstruct::OffsetImpl() const { return StoredEntry().offset; }

void BaseConstruct::CheckOffset(size_t offset, zu::SourceLocation location) {
  if (offset > max_offset) {
    zu::log->check_fail("check-fail", std::tuple<>(), "Offset out of bounds ({} > {})",
                        std::make_tuple(offset, max_offset), location);
  }
}

UniqueId BaseConstruct::ParentId(const BaseConstruct& parent) { return parent.GetUniqueId(); }

bool BaseConstruct::RegisterRecord(const std::string& name, BaseConstruct* parent, size_t offset,
                                   zu::SourceLocation location) {
  CheckOffset(offset, location);
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  auto [found, inserted] = external_storage_.try_emplace(*unique_id_);
  if (!inserted) return false;  // registered before: the sub-tree is registered too
  ExternalStorage& entry = found->second;
  entry.name = name;
  if (parent != nullptr) entry.parent = ParentId(*parent);
  entry.offset = static_cast<uint16_t>(offset);
  return true;
}

std::string BaseConstruct::Name() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  // Collect the names from this construct up to the root. A missing entry is made empty and ends
  // the walk.
  std::vector<const std::string*> names;
  const ExternalStorage* entry = &external_storage_[*unique_id_];
  names.push_back(&entry->name);
  while (entry->parent.has_value()) {
    entry = &external_storage_[*entry->parent];
    names.push_back(&entry->name);
  }
  std::string path;
  for (size_t i = names.size(); i-- > 0;) {
    if (names[i]->empty()) continue;
    path.append(*names[i]);
    if (i != 0) path.push_back('.');
  }
  return path;
}

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
  const size_t start = *pos;
  uint64_t value = 0;
  if (start <= bits.size() && bits.size() - start >= width) {
    const char* text = bits.data() + start;
    for (size_t k = 0; k < width; ++k) value = value * 2 + static_cast<uint64_t>(text[k] - '0');
  } else {
    for (size_t k = 0; k < width; ++k) {
      const size_t p = start + k;
      const char c = p < bits.size() ? bits[p] : '0';
      value = value * 2 + static_cast<uint64_t>(c - '0');
    }
  }
  *pos = start + width;
  return value;
}

void BitsIntegerBase::ToStringImpl(std::string* out) const {
  const ExternalStorage* entry = nullptr;
  if (unique_id_.has_value()) {
    auto [found, inserted] = external_storage_.try_emplace(*unique_id_);
    if (!inserted) entry = &found->second;
  }
  if (entry == nullptr) {
    out->append("[0x0000]/0 0x");
  } else {
    out->append("[0x");
    AppendHex(out, entry->offset, 4);
    out->push_back(':');
    out->append(std::to_string(entry->reg_lo));
    if (SizeInBits() > 32 && entry->reg_hi.has_value()) {
      out->push_back('-');
      out->append(std::to_string(*entry->reg_hi));
    }
    out->append("]/").append(std::to_string(SizeInBits())).append(" 0x");
  }
  AppendHex(out, ToNumber(), 1);
  out->push_back('\n');
}

void BitsIntegerBase::range_check(size_t offset, size_t size) const {
  ZU_SPEC_CHECK(offset < size, "BitsIntegers of size {} cannot be accessed at offset {}", size,
                offset);
}

void BitsIntegerBase::CollectFieldsImpl(std::vector<FieldMetadata>& out, bool flag,
                                        int32_t base) const {
  const ExternalStorage& entry = StoredEntry();
  const size_t n = SizeInBits();
  FieldMetadata field;
  field.name = Name();
  field.width = static_cast<uint16_t>(n < 32 ? n : 32);
  // The low 32 bits stand at the end of a wide leaf's stretch.
  uint32_t position = static_cast<uint32_t>(entry.offset) + static_cast<uint32_t>(base) +
                      static_cast<uint32_t>(n >= 32 ? n - 32 : 0);
  field.word = position / 512;
  field.bit = position % 512;
  field.flag = flag;
  field.reg = entry.reg_lo;
  field.reg_flag = entry.writable;
  out.push_back(field);
  if (n >= 33 && entry.reg_hi.has_value()) {
    field.width = static_cast<uint16_t>(n - 32);
    position = static_cast<uint32_t>(entry.offset) + static_cast<uint32_t>(base);
    field.word = position / 512;
    field.bit = position % 512;
    field.reg = *entry.reg_hi;
    out.push_back(field);
  }
}

void BitsIntegerBase::CollectPatchesImpl(std::vector<PatchMetadata>& out, uint32_t id,
                                         zu::optional<uint32_t> base,
                                         zu::optional<uint32_t> value) const {
  const ExternalStorage& entry = StoredEntry();
  const uint64_t v = ToNumber();
  PatchMetadata low;
  low.id = id;
  low.reg = entry.reg_lo + (base.has_value() ? *base : 0);
  low.value = value.has_value() ? *value : static_cast<uint32_t>(v);
  out.push_back(low);
  if (SizeInBits() >= 33) {
    // The high word takes no base: that asymmetry is part of the format of patches.
    PatchMetadata high;
    high.id = id;
    high.reg = entry.reg_hi.has_value() ? *entry.reg_hi : 0;
    high.value = value.has_value() ? *value : static_cast<uint32_t>(v >> 32);
    out.push_back(high);
  }
}

void BitsIntegerBase::SetExternalStorageImpl(const std::string& name, BaseConstruct* parent,
                                             size_t offset, uint32_t& reg) {
  CheckOffset(offset);
  ExternalStorage& entry = EntryFor();
  entry.name = name;
  if (parent != nullptr) entry.parent = ParentId(*parent);
  entry.offset = static_cast<uint16_t>(offset);
  entry.reg_lo = reg++;
  if (SizeInBits() >= 33) entry.reg_hi = reg++;
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
