// The printed form of constructs: a record is "{", a line per field and "}"; an array is "[", a
// line per element and "]/<bits>"; a leaf is its place and value on the line of its field or
// element. Every line is written here, by AppendLine, with 2 blanks per level of nesting.
#include <charconv>
#include <cstring>
#include <string_view>

#include "compiler/arch_spec/Constructs.h"

namespace zu::spec::constructs_internal {

namespace {

// A short text put together on the stack, bounded: std::to_chars is handed the buffer's end, and a
// piece that would not fit is a failure of the sizes below rather than a write past the end.
template <size_t kRoom>
class ShortText {
 public:
  void Put(std::string_view piece) {
    check(piece.size() <= kRoom - size_, "printed text longer than its buffer");
    std::memcpy(text_ + size_, piece.data(), piece.size());
    size_ += piece.size();
  }
  // `value` in decimal, or in lower-case hexadecimal without leading zeros with `base` 16.
  void PutNumber(uint64_t value, int base = 10) {
    const auto [end, error] = std::to_chars(text_ + size_, text_ + kRoom, value, base);
    check(error == std::errc(), "printed text longer than its buffer");
    size_ = static_cast<size_t>(end - text_);
  }
  // `value` as exactly four hexadecimal digits.
  void PutHex4(uint16_t value) {
    check(kRoom - size_ >= 4, "printed text longer than its buffer");
    for (int i = 3; i >= 0; --i, value = static_cast<uint16_t>(value >> 4)) {
      text_[size_ + static_cast<size_t>(i)] = "0123456789abcdef"[value & 15];
    }
    size_ += 4;
  }
  std::string_view view() const { return {text_, size_}; }

 private:
  char text_[kRoom];
  size_t size_ = 0;
};

// The longest leaf text: "[0x" ffff ":" 4294967295 "-" 4294967295 "]/" 18446744073709551615 " 0x"
// ffffffffffffffff "\n".
constexpr size_t kLeafTextRoom = 3 + 4 + 1 + 10 + 1 + 10 + 2 + 20 + 3 + 16 + 1;

// "]/<bits>": the end of a leaf's place, and of an array.
template <size_t kRoom>
void PutSize(ShortText<kRoom>& text, size_t bits) {
  text.Put("]/");
  text.PutNumber(bits);
}

// The text of a leaf of `width` bits holding `value` whose entry is `entry`, and its newline:
// "[0x012c:7-8]/40 0x1234\n", the high register only above 32 bits; "[0x0000]/0 0x1234\n" without
// an entry.
ShortText<kLeafTextRoom> LeafText(const ExternalStorage* entry, size_t width, uint64_t value) {
  ShortText<kLeafTextRoom> text;
  if (entry == nullptr) {
    text.Put("[0x0000]/0");
  } else {
    text.Put("[0x");
    text.PutHex4(entry->offset);
    text.Put(":");
    text.PutNumber(entry->reg_lo);
    if (width > 32 && entry->reg_hi.has_value()) {
      text.Put("-");
      text.PutNumber(*entry->reg_hi);
    }
    PutSize(text, width);
  }
  text.Put(" 0x");
  text.PutNumber(value, 16);
  text.Put("\n");
  return text;
}

// The entry that a leaf with `id` prints: none without an id. A leaf that was never registered
// leaves an empty entry behind, as every reading of the table does, and prints the short form;
// printed again, it finds that entry.
const ExternalStorage* PrintedEntry(const zu::optional<UniqueId>& id) {
  if (!id.has_value()) return nullptr;
  if (const ExternalStorage* entry = BaseConstruct::FindEntry(*id)) return entry;
  BaseConstruct::external_storage_[*id];
  return nullptr;
}

}  // namespace

void AppendLine(std::string* out, size_t blanks, std::string_view head, std::string_view separator,
                std::string_view tail) {
  const size_t at = out->size();
  out->resize(at + blanks + head.size() + separator.size() + tail.size());
  char* cursor = out->data() + at;
  std::memset(cursor, ' ', blanks);
  cursor += blanks;
  for (const std::string_view piece : {head, separator, tail}) {
    std::memcpy(cursor, piece.data(), piece.size());
    cursor += piece.size();
  }
}

void AppendLeafLine(std::string* out, size_t blanks, std::string_view head,
                    std::string_view separator, const zu::optional<UniqueId>& id, size_t width,
                    uint64_t value) {
  AppendLine(out, blanks, head, separator, LeafText(PrintedEntry(id), width, value).view());
}

void AppendElementLine(std::string* out, size_t blanks, size_t index,
                       const zu::optional<UniqueId>& id, size_t width, uint64_t value) {
  AppendLeafLine(out, blanks, IndexText(index), ": ", id, width, value);
}

IndexText::IndexText(size_t index) {
  size_ = static_cast<size_t>(std::to_chars(text_, text_ + sizeof text_, index).ptr - text_);
}

void AppendArrayEnd(std::string* out, size_t depth, size_t bits) {
  ShortText<2 + 20 + 1> end;
  PutSize(end, bits);
  end.Put("\n");
  AppendLine(out, Indentation(depth), end.view(), {}, {});
}

}  // namespace zu::spec::constructs_internal
