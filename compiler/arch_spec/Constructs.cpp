#include "compiler/arch_spec/Constructs.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace zu::spec {

namespace {

constexpr uint16_t max_offset = 65535;

constexpr char kHexDigits[] = "0123456789abcdef";

// "00" to "99", two characters each.
constexpr std::array<char, 200> MakeDigitPairs() {
  std::array<char, 200> pairs{};
  for (int i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kDigitPairs = MakeDigitPairs();

// "00" to "ff", two characters each: byte b in lower-case hexadecimal.
constexpr std::array<char, 512> MakeHexPairs() {
  std::array<char, 512> pairs{};
  for (int b = 0; b < 256; ++b) {
    pairs[2 * b] = "0123456789abcdef"[b >> 4];
    pairs[2 * b + 1] = "0123456789abcdef"[b & 15];
  }
  return pairs;
}
constexpr std::array<char, 512> kHexPairs = MakeHexPairs();

// Printed text put together in a caller's buffer, without touching the heap. A piece of known
// greatest length may be copied whole into the spare room behind the text (kSlack characters) and
// the cursor then moved by its length, so the buffer must reach kSlack characters past the end of
// the text. The longest line of a leaf (kLine) is an array element's indentation (up to
// kMostBlanks), its index and ": " (up to 22 characters) and the longest leaf text,
// "[0xffff:4294967295-4294967295]/64 0xffffffffffffffff\n".
struct TextWriter {
  static constexpr size_t kLine = 128;
  static constexpr size_t kSlack = 64;
  static constexpr size_t kMostBlanks = 48;
  char* at;

  void Put(std::string_view piece) {
    std::memcpy(at, piece.data(), piece.size());
    at += piece.size();
  }
  // Up to kMostBlanks blanks.
  void PutBlanks(size_t count) {
    static constexpr char kBlanks[kMostBlanks + 1] =
        "                                                ";
    std::memcpy(at, kBlanks, kMostBlanks);
    at += count;
  }
  void PutPair(uint64_t two_digits) {
    std::memcpy(at, &kDigitPairs[2 * two_digits], 2);
    at += 2;
  }
  // `value` in decimal: below 10,000 (registers, indexes, widths) by cases, two digits at a time
  // above.
  void PutDecimal(uint64_t value) {
    if (value < 10) {
      *at++ = static_cast<char>('0' + value);
    } else if (value < 100) {
      PutPair(value);
    } else if (value < 1000) {
      *at++ = static_cast<char>('0' + value / 100);
      PutPair(value % 100);
    } else if (value < 10000) {
      PutPair(value / 100);
      PutPair(value % 100);
    } else {
      int n = 5;
      for (uint64_t bound = 100000; n < 20 && value >= bound; bound *= 10) ++n;
      char* digit = at + n;
      while (value >= 100) {
        digit -= 2;
        std::memcpy(digit, &kDigitPairs[2 * (value % 100)], 2);
        value /= 100;
      }
      if (value >= 10) {
        std::memcpy(digit - 2, &kDigitPairs[2 * value], 2);
      } else {
        digit[-1] = static_cast<char>('0' + value);
      }
      at += n;
    }
  }
  // A place's offset: four hexadecimal digits, a byte at a time.
  void PutHex4(uint16_t value) {
    std::memcpy(at, &kHexPairs[2 * (value >> 8)], 2);
    std::memcpy(at + 2, &kHexPairs[2 * (value & 255)], 2);
    at += 4;
  }
  // `value` in lower-case hexadecimal, without leading zeros.
  void PutHex(uint64_t value) {
    if (value < 16) {  // the values of narrow leaves
      *at++ = kHexDigits[value];
      return;
    }
    const int n = (64 - __builtin_clzll(value) + 3) / 4;
    for (int i = n - 1; i >= 0; --i) {
      at[i] = kHexDigits[value & 15];
      value >>= 4;
    }
    at += n;
  }
};

// A buffer for one line.
struct LineBuffer {
  char text[TextWriter::kLine + TextWriter::kSlack];
  TextWriter writer{text};
  size_t size() const { return static_cast<size_t>(writer.at - text); }
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

// The entry of `id`, or null.
inline ExternalStorage* Lookup(UniqueId id) {
  const auto found = BaseConstruct::external_storage_.find(id);
  return found == BaseConstruct::external_storage_.end() ? nullptr : &found->second;
}

// Looks entries up in many ids in a row without the table's division per lookup. The table puts
// an id in bucket id % bucket_count (an id hashes to itself); the finder takes that remainder by
// two multiplications with a reciprocal made once (exact for numbers below 2^32), then takes the
// bucket's first entry if it holds the id. Ids that share a bucket, ids without an entry and
// negative ids go through the table's own lookup, so the answer is always the table's.
class EntryFinder {
 public:
  // A finder made not `needed` reads nothing of the table and must not be asked.
  explicit EntryFinder(bool needed = true)
      : count_(needed ? BaseConstruct::external_storage_.bucket_count() : 1),
        reciprocal_(~uint64_t{0} / count_ + 1) {}

  ExternalStorage* operator()(UniqueId id) const {
    auto& table = BaseConstruct::external_storage_;
    if (id >= 0 && count_ <= UINT32_MAX) [[likely]] {
      const uint64_t low = reciprocal_ * static_cast<uint64_t>(id);
      const auto bucket = static_cast<size_t>((static_cast<unsigned __int128>(low) * count_) >> 64);
      const auto first = table.begin(bucket);
      if (first != table.end(bucket) && first->first == id) [[likely]]
        return &first->second;
    }
    return Lookup(id);
  }

 private:
  size_t count_;
  uint64_t reciprocal_;
};

// The entries of the `count` (at most kRun) ids from `first` on, each `step` (1 or -1) from the
// last, in one tight loop: the lookups are independent, so the processor runs them side by side.
// An id without an entry gives null.
[[gnu::flatten]] void LookUpRun(UniqueId first, int step, size_t count,
                                const ExternalStorage** entries) {
  const EntryFinder find;
  for (size_t k = 0; k < count; ++k) {
    entries[k] = find(static_cast<UniqueId>(first + step * static_cast<int>(k)));
  }
}

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

// Sets `text` to `head` followed by `tail`, allocating once.
void AssignJoined(std::string& text, std::string_view head, std::string_view tail) {
  text.reserve(head.size() + tail.size());
  text.assign(head).append(tail);
}

// Sets `path` to the path of `entry`'s construct, as Name() gives it.
void AssignPath(std::string& path, const ExternalStorage& entry) {
  if (!entry.parent.has_value()) {
    path = entry.name;
    return;
  }
  if (pass.depth > 0) {
    AssignJoined(path, PathPrefix(*entry.parent), entry.name);
    return;
  }
  // Outside a metadata pass the table may have changed since the last call: walk the parents.
  std::vector<const std::string*> names{&entry.name};
  for (const ExternalStorage* up = &entry; up->parent.has_value();) {
    up = &NamedEntry(*up->parent);
    names.push_back(&up->name);
  }
  path.clear();
  for (size_t i = names.size(); i-- > 1;) {
    if (!names[i]->empty()) path.append(*names[i]).push_back('.');
  }
  path.append(entry.name);
}

}  // namespace

namespace constructs_internal {

void AppendDecimal(std::string* out, uint64_t value) {
  LineBuffer digits;
  digits.writer.PutDecimal(value);
  out->append(digits.text, digits.size());
}

MetadataPass::MetadataPass() : outermost_(pass.depth++ == 0) {}

MetadataPass::~MetadataPass() {
  if (--pass.depth != 0) return;
  for (PassState::Slot& slot : pass.slots) slot.valid = false;
}

}  // namespace constructs_internal

ExternalStorage* BaseConstruct::FindEntry(UniqueId id) { return Lookup(id); }

BaseConstruct::~BaseConstruct() = default;

uint16_t BaseConstruct::Offset() const { return OffsetImpl(); }

void BaseConstruct::SetUniqueId(UniqueId& next) { unique_id_ = next; }

UniqueId BaseConstruct::GetUniqueId() const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  return *unique_id_;
}

ExternalStorage& BaseConstruct::StoredEntryOf(UniqueId id, const zu::SourceLocation& location) {
  if (ExternalStorage* entry = Lookup(id)) return *entry;
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
  std::string path;
  AssignPath(path, NamedEntry(*unique_id_));
  return path;
}

namespace {

// The end of a registered leaf's place for leaves of `width` bits, "]/<width> 0x", made once for
// all the leaves of an array.
struct PlaceEnd {
  explicit PlaceEnd(size_t width) {
    TextWriter writer{text};
    writer.Put("]/");
    writer.PutDecimal(width);
    writer.Put(" 0x");
    size = static_cast<size_t>(writer.at - text);
  }
  char text[8 + TextWriter::kSlack];
  size_t size;
};

// The text of a leaf whose entry is `entry`, or the short form without one, and its value:
// "[0x012c:7-8]/40 0x1234\n" or "[0x0000]/0 0x1234\n".
// Returns where the text ends. (The writer is a local copy, so that its cursor stays in a register
// rather than being reloaded after every character stored.)
char* PutLeaf(char* at, const ExternalStorage* entry, size_t width, const PlaceEnd& end,
              uint64_t value) {
  TextWriter line{at};
  if (entry == nullptr) {
    line.Put("[0x0000]/0 0x");
  } else {
    line.Put("[0x");
    line.PutHex4(entry->offset);
    line.Put(":");
    line.PutDecimal(entry->reg_lo);
    if (width > 32 && entry->reg_hi.has_value()) {
      line.Put("-");
      line.PutDecimal(*entry->reg_hi);
    }
    std::memcpy(line.at, end.text, 8);  // whole, then the cursor moves by its length
    line.at += end.size;
  }
  line.PutHex(value);
  line.Put("\n");
  return line.at;
}

// The entry that a leaf with `id` prints: none without an id. A leaf that was never registered
// leaves an empty entry behind and prints the short form; printed again, it finds that entry.
const ExternalStorage* PrintedEntry(const zu::optional<UniqueId>& id,
                                    const ExternalStorage* found) {
  if (id.has_value() && found == nullptr) NamedEntry(*id);
  return found;
}

// The one or two FieldMetadata of a leaf of `width` bits with entry `entry`: the low 32 bits, which
// stand at the end of a wide leaf's stretch, then the bits above them.
// `prefix`, if given, is the path before the leaf's own name, already known to the caller.
void AppendFields(std::vector<FieldMetadata>& out, const ExternalStorage& entry, size_t width,
                  bool flag, int32_t base, const std::string* prefix = nullptr) {
  FieldMetadata& field = out.emplace_back();
  if (prefix != nullptr) {
    AssignJoined(field.name, *prefix, entry.name);
  } else {
    AssignPath(field.name, entry);
  }
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

}  // namespace

[[gnu::flatten]] void BaseConstruct::AppendLeavesText(std::string* out, const LeafLine* leaves,
                                                      size_t count, size_t blanks) {
  // Leaves without ids never read the table: records printed unregistered share nothing.
  const EntryFinder find(std::any_of(leaves, leaves + count,
                                     [](const LeafLine& leaf) { return leaf.id->has_value(); }));
  char text[constructs_internal::kRun * TextWriter::kLine + TextWriter::kSlack];
  TextWriter line{text};
  for (size_t k = 0; k < count; ++k) {
    const LeafLine& leaf = leaves[k];
    if (leaf.name != nullptr) {
      const std::string_view name(leaf.name);
      // A longest leaf text (54 characters) must still fit behind the head.
      if (blanks > TextWriter::kMostBlanks || blanks + name.size() + 3 + 54 > TextWriter::kLine) {
        out->append(text, static_cast<size_t>(line.at - text));
        line.at = text;
        out->append(blanks, ' ').append(name).append(" = ");
      } else {
        line.PutBlanks(blanks);
        line.Put(name);
        line.Put(" = ");
      }
    }
    const zu::optional<UniqueId>& id = *leaf.id;
    line.at = PutLeaf(line.at, PrintedEntry(id, id.has_value() ? find(*id) : nullptr), leaf.width,
                      PlaceEnd(leaf.width), leaf.value);
  }
  out->append(text, static_cast<size_t>(line.at - text));
}

void BaseConstruct::AppendElementsText(std::string* out, size_t blanks, size_t first_index,
                                       size_t count, const zu::optional<UniqueId>& first_id,
                                       size_t width, const uint64_t* values) {
  // Deeper than a line holds is left to the string, line by line (no record nests that deep).
  const size_t extra = blanks > TextWriter::kMostBlanks ? blanks : 0;
  blanks -= extra;
  const ExternalStorage* entries[constructs_internal::kRun];
  if (first_id.has_value()) {
    LookUpRun(*first_id, -1, count, entries);
  } else {
    std::fill_n(entries, count, nullptr);
  }
  const PlaceEnd end(width);
  // The run's lines go out in one append.
  char text[constructs_internal::kRun * TextWriter::kLine + TextWriter::kSlack];
  TextWriter line{text};
  for (size_t k = 0; k < count; ++k) {
    if (extra != 0) {
      out->append(text, static_cast<size_t>(line.at - text)).append(extra, ' ');
      line.at = text;
    }
    line.PutBlanks(blanks);
    line.PutDecimal(first_index + k);
    line.Put(": ");
    const ExternalStorage* entry = entries[k];
    if (first_id.has_value() && entry == nullptr) {
      entry = PrintedEntry(static_cast<UniqueId>(*first_id - static_cast<UniqueId>(k)), nullptr);
    }
    line.at = PutLeaf(line.at, entry, width, end, values[k]);
  }
  out->append(text, static_cast<size_t>(line.at - text));
}

void BaseConstruct::AppendLeavesFields(std::vector<FieldMetadata>& out, UniqueId first_id,
                                       size_t count, size_t width, bool flag, int32_t base,
                                       const zu::SourceLocation& location) {
  constructs_internal::ReserveMore(out, count);
  const ExternalStorage* entries[constructs_internal::kRun];
  // The elements of an array share their parent, and so the path before their names: it is asked
  // of the pass once, and again only when the parent changes.
  const std::string* prefix = nullptr;
  UniqueId prefix_of = 0;
  for (size_t done = 0; done < count;) {
    const size_t run = constructs_internal::RunAt(done, count);
    const UniqueId first = static_cast<UniqueId>(first_id + static_cast<UniqueId>(done));
    LookUpRun(first, 1, run, entries);
    for (size_t k = 0; k < run; ++k) {
      const ExternalStorage* entry = entries[k];
      if (entry == nullptr) entry = &StoredEntryOf(static_cast<UniqueId>(first + k), location);
      if (pass.depth == 0 || !entry->parent.has_value()) {
        AppendFields(out, *entry, width, flag, base);
        continue;
      }
      if (prefix == nullptr || *entry->parent != prefix_of) {
        prefix = &PathPrefix(*entry->parent);
        prefix_of = *entry->parent;
      }
      AppendFields(out, *entry, width, flag, base, prefix);
    }
    done += run;
  }
}

namespace {

// How the patches of a call are made: the caller's id, the base added to low registers, and the
// value given for every patch, if any.
struct PatchRule {
  PatchRule(uint32_t patch_id, const zu::optional<uint32_t>& base,
            const zu::optional<uint32_t>& value)
      : patch_id(patch_id),
        added(base.value_or(0)),
        given(value.has_value()),
        given_value(value.value_or(0)) {}

  // The patch of the low 32 bits of a leaf holding `v`, whose entry is `entry`.
  PatchMetadata Low(const ExternalStorage& entry, uint64_t v) const {
    return {patch_id, entry.reg_lo + added, given ? given_value : static_cast<uint32_t>(v)};
  }
  // The patch of the bits from 32 up, for leaves above 32 bits. The high word takes no base: that
  // asymmetry is part of the format of patches.
  PatchMetadata High(const ExternalStorage& entry, uint64_t v) const {
    return {patch_id, entry.reg_hi.value_or(0),
            given ? given_value : static_cast<uint32_t>(v >> 32)};
  }
  // Writes the one or two patches of a leaf of `width` bits at `patch`; returns where they end.
  PatchMetadata* Put(PatchMetadata* patch, const ExternalStorage& entry, size_t width,
                     uint64_t v) const {
    *patch++ = Low(entry, v);
    if (width >= 33) *patch++ = High(entry, v);
    return patch;
  }

  uint32_t patch_id;
  uint32_t added;
  bool given;
  uint32_t given_value;
};

}  // namespace

// One loop looks up each leaf's entry and writes its patches in place: the loop is short, so the
// processor runs the lookups of several leaves side by side.
[[gnu::flatten]] void BaseConstruct::AppendLeavesPatches(
    std::vector<PatchMetadata>& out, UniqueId first_id, size_t count, size_t width,
    const uint64_t* values, uint32_t patch_id, const zu::optional<uint32_t>& base,
    const zu::optional<uint32_t>& value, const zu::SourceLocation& location) {
  const PatchRule rule(patch_id, base, value);
  const size_t per_leaf = width >= 33 ? 2 : 1;
  const size_t start = out.size();
  out.resize(start + per_leaf * count);
  PatchMetadata* patch = out.data() + start;
  const EntryFinder find;
  for (size_t k = 0; k < count; ++k) {
    const UniqueId id = static_cast<UniqueId>(first_id + static_cast<UniqueId>(k));
    const ExternalStorage* entry = find(id);
    if (entry == nullptr) [[unlikely]] {
      // What came before the leaf without an entry stays; its failure ends the operation.
      const size_t at = static_cast<size_t>(patch - out.data());
      out.resize(at);
      entry = &StoredEntryOf(id, location);
      out.resize(at + per_leaf * (count - k));
      patch = out.data() + at;
    }
    patch = rule.Put(patch, *entry, width, values[k]);
  }
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
    // "[i]" or "[row][column]", behind the array's name.
    LineBuffer index;
    index.writer.Put("[");
    index.writer.PutDecimal(columns == 0 ? i : i / columns);
    if (columns != 0) {
      index.writer.Put("][");
      index.writer.PutDecimal(i % columns);
    }
    index.writer.Put("]");
    CheckOffset(offset, location);
    ExternalStorage& entry = NamedEntry(static_cast<UniqueId>(first_id + static_cast<UniqueId>(k)));
    AssignJoined(entry.name, name, std::string_view(index.text, index.size()));
    PlaceLeaf(entry, parent_id, offset, width, reg);
    offset += width;
  }
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
  const LeafLine line = LineOf(SizeInBits());
  AppendLeavesText(out, &line, 1, 0);
}

void BitsIntegerBase::range_check(size_t offset, size_t size) const {
  check(offset < size, "BitsIntegers of size {} cannot be accessed at offset {}", size, offset);
}

void BitsIntegerBase::CollectFieldsImpl(std::vector<FieldMetadata>& out, bool flag,
                                        int32_t base) const {
  AppendFieldsOf(SizeInBits(), out, flag, base);
}

void BitsIntegerBase::AppendFieldsOf(size_t width, std::vector<FieldMetadata>& out, bool flag,
                                     int32_t base) const {
  const zu::SourceLocation location = zu::SourceLocation::current();
  check(unique_id_.has_value(), "Unique ID not initialized", location);
  const ExternalStorage* entry = Lookup(*unique_id_);
  AppendFields(out, entry != nullptr ? *entry : StoredEntryOf(*unique_id_, location), width, flag,
               base);
}

void BitsIntegerBase::CollectPatchesImpl(std::vector<PatchMetadata>& out, uint32_t id,
                                         zu::optional<uint32_t> base,
                                         zu::optional<uint32_t> value) const {
  AppendPatchesOf(SizeInBits(), out, id, base, value);
}

[[gnu::flatten]] void BitsIntegerBase::AppendPatchesOf(size_t width,
                                                       std::vector<PatchMetadata>& out, uint32_t id,
                                                       const zu::optional<uint32_t>& base,
                                                       const zu::optional<uint32_t>& value) const {
  check(unique_id_.has_value(), "Unique ID not initialized");
  const ExternalStorage* entry = Lookup(*unique_id_);
  if (entry == nullptr) [[unlikely]]
    entry = &StoredEntryOf(*unique_id_, zu::SourceLocation::current());
  const PatchRule rule(id, base, value);
  const uint64_t v = ToNumber();
  out.push_back(rule.Low(*entry, v));
  if (width >= 33) out.push_back(rule.High(*entry, v));
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
