// The printed form of constructs: a record is "{", a line per field and "}"; an array is "[", a
// line per element and "]/<bits>"; a leaf is its place and value on the line of its field or
// element. Every line is written here, by Lines, with 2 blanks per level of nesting.
#include <charconv>
#include <cstring>

#include "compiler/arch_spec/Constructs.h"
#include "compiler/arch_spec/Record.h"

namespace zu::spec {
namespace constructs_internal {

namespace {

// The longest leaf text: "[0x" ffff ":" 4294967295 "-" 4294967295 "]/" 18446744073709551615
// " 0x" ffffffffffffffff "\n".
constexpr size_t kLeafTextRoom = 3 + 4 + 1 + 10 + 1 + 10 + 2 + 20 + 3 + 16 + 1;
// The longest index and its ": ".
constexpr size_t kIndexRoom = 20 + 2;

constexpr char kHexDigits[] = "0123456789abcdef";

// The entries of `count` (at most kRun) leaves, `id_of(k)` giving the k-th one's id (a
// zu::optional<UniqueId>), in a loop of their own, ahead of the writing of their lines: the
// lookups do not wait for each other or for the lines, so the processor runs them side by side.
// An id without an entry, or no id, gives null; nothing is inserted.
template <class IdOf>
void LookUp(const ExternalStorage** entries, size_t count, IdOf id_of) {
  for (size_t k = 0; k < count; ++k) {
    const zu::optional<UniqueId> id = id_of(k);
    entries[k] = id.has_value() ? BaseConstruct::FindEntry(*id) : nullptr;
  }
}

// The entry that a leaf with `id` prints, `found` by LookUp: none without an id. A leaf that was
// never registered leaves an empty entry behind, as every reading of the table does, and prints
// the short form; printed again, it finds that entry.
const ExternalStorage* PrintedEntry(const zu::optional<UniqueId>& id,
                                    const ExternalStorage* found) {
  if (id.has_value() && found == nullptr) BaseConstruct::external_storage_[*id];
  return found;
}

}  // namespace

// Where a line is being written: characters go in at `at`, never past `end`. Whoever starts a line
// makes sure of the room for all of it first (Lines::Head, with the sizes above), so the pieces
// behind it go in without a check each; std::to_chars is handed the end all the same.
struct Cursor {
  char* at;
  char* end;

  void Put(std::string_view piece) {
    if (piece.empty()) return;  // an empty view may hold no address, which memcpy may not take
    std::memcpy(at, piece.data(), piece.size());
    at += piece.size();
  }
  void Blanks(size_t count) {
    static constexpr char kBlanks[] = "                ";
    if (count < sizeof kBlanks && end - at >= static_cast<ptrdiff_t>(sizeof kBlanks)) {
      // The usual indentation: a block of known size, which the compiler writes inline; what
      // stands behind the cursor is written over by the rest of the line.
      std::memcpy(at, kBlanks, sizeof kBlanks);
    } else {
      std::memset(at, ' ', count);
    }
    at += count;
  }
  // Indexes, widths and registers are mostly below 100: those digits are written directly.
  void Decimal(uint64_t value) {
    if (value < 10) {
      *at++ = static_cast<char>('0' + value);
    } else if (value < 100) {
      at[0] = static_cast<char>('0' + value / 10);
      at[1] = static_cast<char>('0' + value % 10);
      at += 2;
    } else {
      Number(std::to_chars(at, end, value));
    }
  }
  void Hex(uint64_t value) {
    if (value < 16) {  // the values of narrow leaves
      *at++ = kHexDigits[value];
      return;
    }
    Number(std::to_chars(at, end, value, 16));
  }
  // Four hexadecimal digits, leading zeros included.
  void Hex4(uint16_t value) {
    at[0] = kHexDigits[value >> 12];
    at[1] = kHexDigits[(value >> 8) & 15];
    at[2] = kHexDigits[(value >> 4) & 15];
    at[3] = kHexDigits[value & 15];
    at += 4;
  }
  void Number(std::to_chars_result written) {
    check(written.ec == std::errc(), "printed line longer than its buffer");
    at = written.ptr;
  }

  // "[0x012c:7-8]/40 0x1234\n": the place (the offset in four hexadecimal digits, the low
  // register, the high one only above 32 bits, the width), then the value; "[0x0000]/0 0x1234\n"
  // without an entry.
  [[gnu::always_inline]] void LeafText(const ExternalStorage* entry, size_t width, uint64_t value) {
    if (entry == nullptr) {
      Put("[0x0000]/0 0x");
    } else {
      Put("[0x");
      Hex4(entry->offset);
      Put(":");
      Decimal(entry->reg_lo);
      if (width > 32 && entry->reg_hi.has_value()) {
        Put("-");
        Decimal(*entry->reg_hi);
      }
      Put("]/");
      Decimal(width);
      Put(" 0x");
    }
    Hex(value);
    Put("\n");
  }
};

void Lines::Flush() {
  out_->append(text_, size_);
  size_ = 0;
}

Cursor Lines::Resume() { return {text_ + size_, text_ + kRoom}; }

void Lines::Pause(const Cursor& line) { size_ = static_cast<size_t>(line.at - text_); }

// "<blanks><head><separator>" at `line`, with room behind it for `after` more characters: the
// buffer goes to the string first if they would not fit, and a head longer than the buffer goes
// to the string directly.
[[gnu::always_inline]] inline void Lines::Head(Cursor& line, size_t blanks, std::string_view head,
                                               std::string_view separator, size_t after) {
  const size_t need = blanks + head.size() + separator.size();
  if (static_cast<size_t>(line.end - line.at) < need + after) [[unlikely]] {
    check(after <= kRoom, "printed line longer than its buffer");
    out_->append(text_, static_cast<size_t>(line.at - text_));
    line.at = text_;
    if (need + after > kRoom) {
      out_->append(blanks, ' ').append(head).append(separator);
      return;
    }
  }
  line.Blanks(blanks);
  line.Put(head);
  line.Put(separator);
}

void Lines::Text(size_t blanks, std::string_view head, std::string_view separator) {
  Cursor line = Resume();
  Head(line, blanks, head, separator, 0);
  Pause(line);
}

// Flattened: the table lookups and the writing of a line are inlined into the loops over a run.
[[gnu::flatten]] void Lines::Leaves(size_t blanks, const LeafLine* leaves, size_t count) {
  check(count <= kRun, "a run of leaves longer than kRun");
  const ExternalStorage* entries[kRun];
  LookUp(entries, count, [&](size_t k) { return *leaves[k].id; });
  // The cursor is a local copy, so that it stays in a register rather than being reloaded after
  // every character stored.
  Cursor line = Resume();
  for (size_t k = 0; k < count; ++k) {
    const LeafLine& leaf = leaves[k];
    if (leaf.name == nullptr) {
      Head(line, blanks, {}, {}, kLeafTextRoom);
    } else {
      Head(line, blanks, {leaf.name, leaf.name_size}, " = ", kLeafTextRoom);
    }
    line.LeafText(PrintedEntry(*leaf.id, entries[k]), leaf.width, leaf.value);
  }
  Pause(line);
}

[[gnu::flatten]] void Lines::Elements(size_t blanks, size_t first_index, const uint64_t* values,
                                      size_t count, const zu::optional<UniqueId>& first_id,
                                      size_t width) {
  check(count <= kRun, "a run of elements longer than kRun");
  const auto id_of = [&](size_t k) {
    return first_id.has_value()
               ? zu::optional<UniqueId>(static_cast<UniqueId>(*first_id - static_cast<UniqueId>(k)))
               : zu::optional<UniqueId>();
  };
  const ExternalStorage* entries[kRun];
  LookUp(entries, count, id_of);
  Cursor line = Resume();
  for (size_t k = 0; k < count; ++k) {
    Head(line, blanks, {}, {}, kIndexRoom + kLeafTextRoom);
    line.Decimal(first_index + k);
    line.Put(": ");
    line.LeafText(PrintedEntry(id_of(k), entries[k]), width, values[k]);
  }
  Pause(line);
}

void Lines::Index(size_t blanks, size_t index, std::string_view tail) {
  Cursor line = Resume();
  Head(line, blanks, {}, {}, kIndexRoom + tail.size());
  line.Decimal(index);
  line.Put(": ");
  line.Put(tail);
  Pause(line);
}

void Lines::ArrayEnd(size_t depth, size_t bits) {
  Cursor line = Resume();
  Head(line, Indentation(depth), {}, {}, 2 + 20 + 1);
  line.Put("]/");
  line.Decimal(bits);
  line.Put("\n");
  Pause(line);
}

}  // namespace constructs_internal

void BitsIntegerBase::ToStringImpl(std::string* out) const {
  const constructs_internal::LeafLine leaf{nullptr, 0, &unique_id_, SizeInBits(), ToNumber()};
  constructs_internal::Lines(out).Leaves(0, &leaf, 1);
}

void RecordBase::ToStringOf(FieldList fields, int unique_ids, size_t indent, std::string* out) {
  using constructs_internal::kRun;
  // A printed leaf takes a line of some 40 characters: the top-level call (indent 0) makes room
  // for them all, once.
  if (indent == 0) constructs_internal::ReserveMore(*out, 40 * static_cast<size_t>(unique_ids));
  constructs_internal::Lines lines(out);
  lines.Text(0, "{\n");
  const size_t blanks = constructs_internal::Indentation(indent + 1);
  for (size_t i = 0; i < fields.size();) {
    if (fields[i].leaf_width == 0) {
      lines.Text(blanks, fields[i].name, " = ");
      lines.Flush();
      fields[i].construct->ToString(indent + 1, out);
      ++i;
      continue;
    }
    // Leaf fields one after another go as one run.
    constructs_internal::LeafLine leaves[kRun];
    size_t count = 0;
    for (; i < fields.size() && fields[i].leaf_width != 0 && count < kRun; ++i) {
      const auto* leaf = static_cast<const BitsIntegerBase*>(fields[i].construct);
      leaves[count++] = {fields[i].name.data(), fields[i].name.size(), &leaf->unique_id_,
                         static_cast<size_t>(fields[i].leaf_width), leaf->ToNumber()};
    }
    lines.Leaves(blanks, leaves, count);
  }
  lines.Text(constructs_internal::Indentation(indent), "}\n");
}

}  // namespace zu::spec
