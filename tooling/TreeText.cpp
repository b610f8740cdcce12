#include "TreeText.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

#include "Names.h"

namespace archspec {
namespace {

// The longest place and value of a leaf: "[0x" ffffffff ":" 4294967295 "-" 4294967295 "]/"
// 4294967295 " 0x" ffffffffffffffff "\n".
constexpr size_t kLeafTextRoom = 3 + 8 + 1 + 10 + 1 + 10 + 2 + 10 + 3 + 16 + 1;
// What stands around a label and after an opening or ending line's mark: " = " or ": ", and
// "]/" 4294967295 "\n".
constexpr size_t kMarkRoom = 3 + 2 + 10 + 1;

constexpr char kHexDigits[] = "0123456789abcdef";

// The text being written, in a string grown ahead of it: whoever writes a line makes sure of the
// room for all of it first (Room), so that its pieces go in without a check each.
class Text {
 public:
  explicit Text(size_t estimate) : out_(estimate, '\0'), at_(out_.data()) {}

  void Room(size_t count) {
    if (static_cast<size_t>(out_.data() + out_.size() - at_) >= count) return;
    const size_t used = Used();
    out_.resize(std::max(2 * out_.size(), used + count));
    at_ = out_.data() + used;
  }
  void Put(std::string_view piece) {
    if (piece.empty()) return;  // an empty view may hold no address, which memcpy may not take
    std::memcpy(at_, piece.data(), piece.size());
    at_ += piece.size();
  }
  void Blanks(size_t count) {
    std::memset(at_, ' ', count);
    at_ += count;
  }
  void Decimal(uint64_t value) { at_ = std::to_chars(at_, End(), value).ptr; }
  void Hex(uint64_t value) {
    if (value < 16) {  // the values of narrow leaves
      *at_++ = kHexDigits[value];
      return;
    }
    at_ = std::to_chars(at_, End(), value, 16).ptr;
  }
  // At least four hexadecimal digits, leading zeros included.
  void Hex4(uint32_t value) {
    if (value > 0xffff) return Hex(value);
    at_[0] = kHexDigits[value >> 12];
    at_[1] = kHexDigits[(value >> 8) & 15];
    at_[2] = kHexDigits[(value >> 4) & 15];
    at_[3] = kHexDigits[value & 15];
    at_ += 4;
  }
  std::string Done() && {
    out_.resize(Used());
    return std::move(out_);
  }

 private:
  size_t Used() const { return static_cast<size_t>(at_ - out_.data()); }
  char* End() { return out_.data() + out_.size(); }

  std::string out_;
  char* at_;
};

// The blanks of `line` and its label: "<name> = " in a record, "<index>: " in an array.
void Head(Text& text, const TreeLine& line) {
  text.Blanks(2 * static_cast<size_t>(line.depth));
  if (line.label.empty()) return;
  text.Put(line.label);
  text.Put(line.element ? ": " : " = ");
}

// A line that opens or ends a record or an array.
void Mark(Text& text, const TreeLine& line) {
  text.Room(2 * static_cast<size_t>(line.depth) + line.label.size() + kMarkRoom);
  Head(text, line);
  switch (line.kind) {
    case TreeLine::Kind::kRecord:
      text.Put("{\n");
      break;
    case TreeLine::Kind::kArray:
      text.Put("[\n");
      break;
    case TreeLine::Kind::kRecordEnd:
      text.Put("}\n");
      break;
    case TreeLine::Kind::kArrayEnd:
      text.Put("]/");
      text.Decimal(line.bits);
      text.Put("\n");
      break;
    case TreeLine::Kind::kLeaf:
      break;
  }
}

// A leaf's line: its place (the offset in four hexadecimal digits, the low register, the high one
// only above 32 bits, the width), its value, and with `names` the value's name.
void LeafLine(Text& text, const TreeLine& line, const Leaf& leaf, uint64_t value,
              const Naming* names) {
  // " (name)", or " (not a code of TYPE)": the two pieces between the parentheses.
  std::string_view said, name;
  if (names != nullptr) {
    if (const Enumeration* type = names->TypeOf(line.leaf)) {
      name = names->ShownName(line.leaf, value);
      if (name.empty() && value != 0) {
        said = "not a code of ";
        name = type->name();
      }
    }
  }
  text.Room(2 * static_cast<size_t>(line.depth) + line.label.size() + kMarkRoom + kLeafTextRoom +
            said.size() + name.size() + 3);
  Head(text, line);
  text.Put("[0x");
  text.Hex4(leaf.offset);
  text.Put(":");
  text.Decimal(leaf.reg_lo);
  if (leaf.width > 32 && leaf.reg_hi.has_value()) {
    text.Put("-");
    text.Decimal(*leaf.reg_hi);
  }
  text.Put("]/");
  text.Decimal(leaf.width);
  text.Put(" 0x");
  text.Hex(value);
  if (!name.empty()) {
    text.Put(" (");
    text.Put(said);
    text.Put(name);
    text.Put(")");
  }
  text.Put("\n");
}

}  // namespace

std::string WriteTree(const Layout& layout, const std::vector<uint64_t>& values,
                      const Naming* names, bool nonzero_only) {
  const std::vector<TreeLine>& lines = layout.tree();
  const std::vector<Leaf>& leaves = layout.leaves();
  // Some 40 characters a line, as the library's print reckons.
  Text text(48 * lines.size());
  // With `nonzero_only`, the opening lines of the records and arrays around the current line,
  // outermost first; the first `written` of them are written. One is written once a non-zero
  // leaf below it is, and the tile's record at once.
  std::vector<const TreeLine*> open;
  size_t written = 0;
  for (const TreeLine& line : lines) {
    switch (line.kind) {
      case TreeLine::Kind::kRecord:
      case TreeLine::Kind::kArray:
        if (nonzero_only) {
          open.push_back(&line);
          if (open.size() > 1) continue;
          written = 1;
        }
        Mark(text, line);
        break;
      case TreeLine::Kind::kRecordEnd:
      case TreeLine::Kind::kArrayEnd:
        if (nonzero_only) {
          const bool shown = open.size() <= written;
          open.pop_back();
          written = std::min(written, open.size());
          if (!shown) continue;
        }
        Mark(text, line);
        break;
      case TreeLine::Kind::kLeaf: {
        const Leaf& leaf = leaves[line.leaf];
        const uint64_t value =
            line.leaf < values.size() ? values[line.leaf] & MaxValue(leaf.width) : 0;
        if (nonzero_only) {
          if (value == 0) continue;
          for (; written < open.size(); ++written) Mark(text, *open[written]);
        }
        LeafLine(text, line, leaf, value, names);
        break;
      }
    }
  }
  return std::move(text).Done();
}

}  // namespace archspec
