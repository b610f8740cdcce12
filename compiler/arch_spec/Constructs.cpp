#include "compiler/arch_spec/Constructs.h"

#include <algorithm>
#include <array>
#include <string_view>

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

uint64_t ReadCharacters(const std::string& bits, size_t position, size_t count) {
  const size_t available = position < bits.size() ? bits.size() - position : 0;
  const char* text = bits.data() + (position < bits.size() ? position : 0);
  uint64_t word = 0;
  if (count == 64 && available >= 64) {
    for (int k = 0; k < 8; ++k) word = (word << 8) | PackEight(text + 8 * k);
    return word;
  }
  // A short stretch, or the end of the text: pad with '0' to whole groups of eight.
  char chunk[64];
  std::memset(chunk, '0', sizeof chunk);
  std::memcpy(chunk, text, std::min(available, count));
  for (size_t k = 0; 8 * k < count; ++k) word = (word << 8) | PackEight(chunk + 8 * k);
  const size_t spare = (8 - count % 8) % 8;  // the padding of the last group
  return word >> spare;
}

BitReader::BitReader(const std::string& bits, size_t position, size_t count) {
  const size_t words = (count + 63) / 64;
  for (size_t w = 0; w < words; ++w) {
    const size_t first = 64 * w;
    const size_t n = std::min<size_t>(64, count - first);
    // The last word holds its characters at its most significant end, as a whole word would.
    words_[w] = ReadCharacters(bits, position + first, n) << (64 - n);
  }
  // Zero words behind the stretch keep the two-word window of take() inside initialised data.
  words_[words] = 0;
  if (words + 1 < kWords) words_[words + 1] = 0;
}

std::unordered_map<UniqueId, ExternalStorage> BaseConstruct::external_storage_;

namespace {

// Where the last lookup of this thread found its bucket. The table puts a key in bucket
// hash % bucket_count (both standard libraries do, and the first lookup of every run checks it),
// and the hash of a 16-bit id is the id itself; so the bucket of an id a little above the last one
// follows from the last bucket by an addition, without a division. Walks in bit order look ids up
// in rising order, nearly always one or two apart.
struct BucketCursor {
  size_t hash = 0;
  size_t bucket = 0;
  size_t buckets = 0;   // the bucket count that `bucket` was found with; 0 before any lookup
  bool modular = true;  // whether the table's buckets are hash % bucket_count
};
thread_local BucketCursor bucket_cursor;

// The paths kept by the metadata pass of this thread: a small cache by id of the text that stands
// before a child's own name ("pmu.PMU_shared." for the fields of PMU_shared).
struct PathCache {
  struct Slot {
    bool valid = false;
    UniqueId id = 0;
    std::string prefix;
  };
  int depth = 0;
  Slot slots[64];
};
thread_local PathCache path_cache;

// The entry of `id`, made empty if there is none: what every reading of a name does.
ExternalStorage& NamedEntry(UniqueId id) {
  ExternalStorage* entry = BaseConstruct::FindEntry(id);
  return entry != nullptr ? *entry : BaseConstruct::external_storage_[id];
}

// The names from the root down to `id`, each non-empty one followed by ".".
const std::string& PathPrefix(UniqueId id) {
  PathCache::Slot& slot = path_cache.slots[static_cast<uint16_t>(id) % std::size(path_cache.slots)];
  if (slot.valid && slot.id == id) return slot.prefix;
  const ExternalStorage& entry = NamedEntry(id);
  std::string prefix;
  if (entry.parent.has_value()) prefix = PathPrefix(*entry.parent);
  if (!entry.name.empty()) prefix.append(entry.name).push_back('.');
  slot.valid = true;
  slot.id = id;
  slot.prefix = std::move(prefix);
  return slot.prefix;
}

void AppendDecimal(std::string* out, uint64_t value) {
  char text[20];
  int n = 0;
  do {
    text[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (n > 0) out->push_back(text[--n]);
}

}  // namespace

namespace constructs_internal {

MetadataPass::MetadataPass() : outermost_(path_cache.depth++ == 0) {}

MetadataPass::~MetadataPass() {
  if (--path_cache.depth != 0) return;
  for (PathCache::Slot& slot : path_cache.slots) slot.valid = false;
}

}  // namespace constructs_internal

ExternalStorage* BaseConstruct::FindEntry(UniqueId id) {
  BucketCursor& cursor = bucket_cursor;
  const size_t hash = std::hash<UniqueId>{}(id);
  const size_t buckets = external_storage_.bucket_count();
  size_t bucket;
  if (cursor.modular && buckets == cursor.buckets && hash >= cursor.hash &&
      hash - cursor.hash < buckets) {
    bucket = cursor.bucket + (hash - cursor.hash);
    if (bucket >= buckets) bucket -= buckets;
  } else {
    bucket = external_storage_.bucket(id);
    if (bucket != hash % buckets) cursor.modular = false;
  }
  cursor.hash = hash;
  cursor.bucket = bucket;
  cursor.buckets = buckets;
  for (auto it = external_storage_.begin(bucket); it != external_storage_.end(bucket); ++it) {
    if (it->first == id) return &it->second;
  }
  return nullptr;
}

BaseConstruct::~BaseConstruct() = default;

uint16_t BaseConstruct::Offset() const { return OffsetImpl(); }

void BaseConstruct::SetUniqueId(UniqueId& next) { unique_id_ = next; }

UniqueId BaseConstruct::GetUniqueId() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  return *unique_id_;
}

ExternalStorage& BaseConstruct::StoredEntry(zu::SourceLocation location) const {
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  if (ExternalStorage* entry = FindEntry(*unique_id_)) return *entry;
  // No entry: the lookup leaves an empty one behind, as a lookup of the table does, and fails.
  ExternalStorage& made = external_storage_[*unique_id_];
  check(false, "External storage not initialized", location);
  return made;
}

ExternalStorage& BaseConstruct::EntryFor(zu::SourceLocation location) const {
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  return NamedEntry(*unique_id_);
}

uint16_t BaseConstruct::OffsetImpl() const { return StoredEntry().offset; }

void BaseConstruct::CheckOffset(size_t offset, zu::SourceLocation location) {
  check(offset <= max_offset, {"Offset out of bounds ({} > {})", location}, offset, max_offset);
}

UniqueId BaseConstruct::ParentId(const BaseConstruct& parent) { return parent.GetUniqueId(); }

bool BaseConstruct::RegisterRecord(const std::string& name, BaseConstruct* parent, size_t offset,
                                   zu::SourceLocation location) {
  CheckOffset(offset, location);
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  if (FindEntry(*unique_id_) != nullptr) return false;  // registered before, sub-tree included
  ExternalStorage& entry = external_storage_[*unique_id_];
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

std::string BaseConstruct::Name() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  const ExternalStorage& entry = NamedEntry(*unique_id_);
  if (!entry.parent.has_value()) return entry.name;
  if (path_cache.depth > 0) return PathPrefix(*entry.parent) + entry.name;
  // Outside a metadata pass the table may have changed since the last call: walk the parents.
  std::vector<const std::string*> names{&entry.name};
  for (const ExternalStorage* up = &entry; up->parent.has_value();) {
    up = &NamedEntry(*up->parent);
    names.push_back(&up->name);
  }
  std::string path;
  for (size_t i = names.size(); i-- > 1;) {
    if (!names[i]->empty()) path.append(*names[i]).push_back('.');
  }
  return path.append(entry.name);
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
  const uint64_t value = ReadCharacters(bits, *pos, width);
  *pos += width;
  return value;
}

void BitsIntegerBase::ToStringImpl(std::string* out) const {
  const ExternalStorage* entry = nullptr;
  if (unique_id_.has_value()) {
    entry = FindEntry(*unique_id_);
    // A leaf that was never registered leaves an empty entry behind and prints the short form;
    // printed again, it finds that entry.
    if (entry == nullptr) external_storage_.try_emplace(*unique_id_);
  }
  if (entry == nullptr) {
    out->append("[0x0000]/0 0x");
  } else {
    out->append("[0x");
    AppendHex(out, entry->offset, 4);
    out->push_back(':');
    AppendDecimal(out, entry->reg_lo);
    if (SizeInBits() > 32 && entry->reg_hi.has_value()) {
      out->push_back('-');
      AppendDecimal(out, *entry->reg_hi);
    }
    out->append("]/");
    AppendDecimal(out, SizeInBits());
    out->append(" 0x");
  }
  AppendHex(out, ToNumber(), 1);
  out->push_back('\n');
}

void BitsIntegerBase::range_check(size_t offset, size_t size) const {
  check(offset < size, "BitsIntegers of size {} cannot be accessed at offset {}", size, offset);
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
