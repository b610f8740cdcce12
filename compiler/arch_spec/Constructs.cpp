#include "compiler/arch_spec/Constructs.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace zu::spec {

namespace {

constexpr uint16_t max_offset = 65535;

constexpr char kHexDigits[] = "0123456789abcdef";

// One printed line of a leaf, put together without touching the heap: an array element's
// indentation and index (up to 64 characters) and the longest leaf text,
// "[0xffff:4294967295-4294967295]/64 0xffffffffffffffff\n".
struct LineBuffer {
  char text[128];
  size_t size = 0;

  void Put(std::string_view piece) {
    std::memcpy(text + size, piece.data(), piece.size());
    size += piece.size();
  }
  void PutDecimal(uint64_t value) { PutDigits<10>(value, 1); }
  void PutBlanks(size_t count) {
    std::memset(text + size, ' ', count);
    size += count;
  }
  void PutHex(uint64_t value, int min_digits) { PutDigits<16>(value, min_digits); }
  // `value` in `Base` (10 or 16, lower-case), most significant digit first, padded with '0' to
  // `min_digits`.
  template <unsigned Base>
  void PutDigits(uint64_t value, int min_digits) {
    char digits[20];
    int n = 0;
    do {
      digits[n++] = kHexDigits[value % Base];
      value /= Base;
    } while (value != 0);
    while (n < min_digits) digits[n++] = '0';
    while (n > 0) text[size++] = digits[--n];
  }
};

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

// What the running metadata pass keeps (and, like the table, it belongs to one thread at a time):
// by id, a small cache of the text that stands before a child's own name ("pmu.PMU_shared." for
// the fields of PMU_shared).
struct PassState {
  struct Slot {
    bool valid = false;
    UniqueId id = 0;
    std::string prefix;
  };
  int depth = 0;
  Slot slots[64];
};
PassState pass;

// The entry of `id`, made empty if there is none: what every reading of a name does.
ExternalStorage& NamedEntry(UniqueId id) { return BaseConstruct::external_storage_[id]; }

// The names from the root down to `id`, each non-empty one followed by ".".
const std::string& PathPrefix(UniqueId id) {
  PassState::Slot& slot = pass.slots[static_cast<uint16_t>(id) % std::size(pass.slots)];
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

// The path of `entry`'s construct, as Name() gives it.
std::string PathOf(const ExternalStorage& entry) {
  if (!entry.parent.has_value()) return entry.name;
  if (pass.depth > 0) return PathPrefix(*entry.parent) + entry.name;
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

}  // namespace

namespace constructs_internal {

void AppendDecimal(std::string* out, uint64_t value) {
  LineBuffer digits;
  digits.PutDecimal(value);
  out->append(digits.text, digits.size);
}

MetadataPass::MetadataPass() : outermost_(pass.depth++ == 0) {}

MetadataPass::~MetadataPass() {
  if (--pass.depth != 0) return;
  for (PassState::Slot& slot : pass.slots) slot.valid = false;
}

}  // namespace constructs_internal

ExternalStorage* BaseConstruct::FindEntry(UniqueId id) {
  const auto found = external_storage_.find(id);
  return found == external_storage_.end() ? nullptr : &found->second;
}

BaseConstruct::~BaseConstruct() = default;

uint16_t BaseConstruct::Offset() const { return OffsetImpl(); }

void BaseConstruct::SetUniqueId(UniqueId& next) { unique_id_ = next; }

UniqueId BaseConstruct::GetUniqueId() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  return *unique_id_;
}

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

uint16_t BaseConstruct::OffsetImpl() const { return StoredEntry().offset; }

void BaseConstruct::CheckOffset(size_t offset, zu::SourceLocation location) {
  check(offset <= max_offset, {"Offset out of bounds ({} > {})", location}, offset, max_offset);
}

UniqueId BaseConstruct::ParentId(const BaseConstruct& parent) { return parent.GetUniqueId(); }

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

std::string BaseConstruct::Name() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  return PathOf(NamedEntry(*unique_id_));
}

namespace {

// The text of a leaf: its place and registers if it has an entry, and its value.
void PutLeafText(LineBuffer& line, const zu::optional<UniqueId>& id, size_t width, uint64_t value) {
  const ExternalStorage* entry = nullptr;
  if (id.has_value()) {
    entry = BaseConstruct::FindEntry(*id);
    // A leaf that was never registered leaves an empty entry behind and prints the short form;
    // printed again, it finds that entry.
    if (entry == nullptr) NamedEntry(*id);
  }
  if (entry == nullptr) {
    line.Put("[0x0000]/0 0x");
  } else {
    line.Put("[0x");
    line.PutHex(entry->offset, 4);
    line.Put(":");
    line.PutDecimal(entry->reg_lo);
    if (width > 32 && entry->reg_hi.has_value()) {
      line.Put("-");
      line.PutDecimal(*entry->reg_hi);
    }
    line.Put("]/");
    line.PutDecimal(width);
    line.Put(" 0x");
  }
  line.PutHex(value, 1);
  line.Put("\n");
}

}  // namespace

void BaseConstruct::AppendLeafText(std::string* out, const zu::optional<UniqueId>& id, size_t width,
                                   uint64_t value) {
  LineBuffer line;
  PutLeafText(line, id, width, value);
  out->append(line.text, line.size);
}

void BaseConstruct::AppendElementText(std::string* out, size_t blanks, size_t index,
                                      const zu::optional<UniqueId>& id, size_t width,
                                      uint64_t value) {
  // Deeper than a line holds is left to the string (no record nests that deep).
  if (blanks > 40) {
    out->append(blanks, ' ');
    blanks = 0;
  }
  LineBuffer line;
  line.PutBlanks(blanks);
  line.PutDecimal(index);
  line.Put(": ");
  PutLeafText(line, id, width, value);
  out->append(line.text, line.size);
}

void BaseConstruct::AppendLeafFields(std::vector<FieldMetadata>& out, UniqueId id, size_t width,
                                     bool flag, int32_t base, const zu::SourceLocation& location) {
  const ExternalStorage& entry = StoredEntryOf(id, location);
  FieldMetadata field;
  field.name = PathOf(entry);
  field.width = static_cast<uint16_t>(width < 32 ? width : 32);
  // The low 32 bits stand at the end of a wide leaf's stretch.
  uint32_t position = static_cast<uint32_t>(entry.offset) + static_cast<uint32_t>(base) +
                      static_cast<uint32_t>(width >= 32 ? width - 32 : 0);
  field.word = position / 512;
  field.bit = position % 512;
  field.flag = flag;
  field.reg = entry.reg_lo;
  field.reg_flag = entry.writable;
  if (width >= 33 && entry.reg_hi.has_value()) {
    out.push_back(field);
    field.width = static_cast<uint16_t>(width - 32);
    position = static_cast<uint32_t>(entry.offset) + static_cast<uint32_t>(base);
    field.word = position / 512;
    field.bit = position % 512;
    field.reg = *entry.reg_hi;
  }
  out.push_back(std::move(field));
}

void BaseConstruct::AppendLeafPatches(std::vector<PatchMetadata>& out, UniqueId id, size_t width,
                                      uint64_t v, uint32_t patch_id,
                                      const zu::optional<uint32_t>& base,
                                      const zu::optional<uint32_t>& value,
                                      const zu::SourceLocation& location) {
  const ExternalStorage& entry = StoredEntryOf(id, location);
  PatchMetadata low;
  low.id = patch_id;
  low.reg = entry.reg_lo + (base.has_value() ? *base : 0);
  low.value = value.has_value() ? *value : static_cast<uint32_t>(v);
  out.push_back(low);
  if (width >= 33) {
    // The high word takes no base: that asymmetry is part of the format of patches.
    PatchMetadata high;
    high.id = patch_id;
    high.reg = entry.reg_hi.has_value() ? *entry.reg_hi : 0;
    high.value = value.has_value() ? *value : static_cast<uint32_t>(v >> 32);
    out.push_back(high);
  }
}

void BaseConstruct::RegisterLeaf(UniqueId id, const std::string& name, BaseConstruct* parent,
                                 size_t offset, size_t width, uint32_t& reg) {
  ExternalStorage& entry = NamedEntry(id);
  entry.name = name;
  if (parent != nullptr) entry.parent = ParentId(*parent);
  entry.offset = static_cast<uint16_t>(offset);
  entry.reg_lo = reg++;
  if (width >= 33) entry.reg_hi = reg++;
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
  AppendLeafText(out, unique_id_, SizeInBits(), ToNumber());
}

void BitsIntegerBase::range_check(size_t offset, size_t size) const {
  check(offset < size, "BitsIntegers of size {} cannot be accessed at offset {}", size, offset);
}

void BitsIntegerBase::CollectFieldsImpl(std::vector<FieldMetadata>& out, bool flag,
                                        int32_t base) const {
  const zu::SourceLocation location = zu::SourceLocation::current();
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  AppendLeafFields(out, *unique_id_, SizeInBits(), flag, base, location);
}

void BitsIntegerBase::CollectPatchesImpl(std::vector<PatchMetadata>& out, uint32_t id,
                                         zu::optional<uint32_t> base,
                                         zu::optional<uint32_t> value) const {
  const zu::SourceLocation location = zu::SourceLocation::current();
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  AppendLeafPatches(out, *unique_id_, SizeInBits(), ToNumber(), id, base, value, location);
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
