// Where every leaf of a tile's configuration lies: the flat view of a record that the sparse
// listing, `layout`, `where` and `diff` work on. A Layout is plain data, made once from a
// registered record (Tile.h) or by hand (tests, fuzzing), and holds no reference to the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace archspec {

struct RuntimeRegisterRow;

// One leaf: a field of 1 to 64 bits, packed array elements included.
struct Leaf {
  std::string path;     // dotted path from the tile record, e.g. "simd_structIn[0][4].stage_opcode"
  uint32_t offset = 0;  // first (most significant) bit in the tile's bit string
  uint32_t width = 0;   // bits
  uint32_t reg_lo = 0;  // configuration register of the low 32 bits
  std::optional<uint32_t> reg_hi;  // of the bits from 32 up, for leaves above 32 bits
  // The run-time registers that write it while its unit runs, where the table of run-time
  // registers links them (RuntimeRegisters.h): of its low word, or of all of a leaf of up to 32
  // bits, and of its high word; null where none is linked.
  const RuntimeRegisterRow* runtime_lo = nullptr;
  const RuntimeRegisterRow* runtime_hi = nullptr;

  bool runtime() const { return runtime_lo != nullptr || runtime_hi != nullptr; }
};

// A record or an array above leaves: what a path that is not a leaf's names.
struct Branch {
  bool array = false;                // an array: its members are "[0]" to "[elements - 1]"
  uint32_t elements = 0;             // an array's number of elements
  std::vector<std::string> members;  // a record's member names, in bit order
  size_t first_leaf = 0;             // the first leaf below it, in bit order
  size_t last_leaf = 0;              // the last leaf below it: its leaves are first to last
  uint32_t reg_lo = 0;               // the lowest register of its leaves
  uint32_t reg_hi = 0;               // the highest
};

// One line of a record's printed form, the library's ToString: "{" opens a record and "}" ends
// it, "[" opens an array and "]/<bits>" ends it, and a leaf's line holds its place and value.
// Every line but the tile record's own stands two blanks per level of nesting in, after its label:
// "<name> = " in a record, "<index>: " in an array.
struct TreeLine {
  enum class Kind : uint8_t { kRecord, kArray, kLeaf, kRecordEnd, kArrayEnd };
  Kind kind = Kind::kLeaf;
  bool element = false;    // labelled by its index in an array, not by its name in a record
  uint32_t depth = 0;      // levels of nesting: 0 for the tile's record and its end
  std::string_view label;  // "stage_opcode", or "4" for element [4]; empty for the tile's
                           // record and for ends
  size_t leaf = 0;         // kLeaf: index in leaves()
  uint32_t bits = 0;       // a leaf's width; the bits of the leaves below a record or an array
};

// A bit of a record as the leaf and the register word that carry it.
struct BitPlace {
  size_t leaf = 0;            // index in the layout
  uint32_t value_bit = 0;     // bit of the leaf's value: its first bit is value bit width - 1
  uint32_t reg = 0;           // register word: the low word up to value bit 31, then the high
  uint32_t register_bit = 0;  // bit of that word
};

class Layout {
 public:
  Layout() = default;
  // `leaves` in bit order, covering the `bits` of `record` without gaps.
  Layout(std::string record, uint32_t bits, std::vector<Leaf> leaves);
  // Links the leaves that `registers` write (rows of one tile and generation; unlinked rows are
  // passed over) to those registers. False, with the layout as it was, where a row's path names
  // no leaf or a word the leaf lacks.
  bool LinkRuntimeRegisters(std::span<const RuntimeRegisterRow* const> registers);
  // The leaf and run-time register of register `number`, if one of the layout's leaves is linked
  // to it.
  std::optional<std::pair<size_t, const RuntimeRegisterRow*>> FindRuntimeRegister(
      uint32_t number) const;
  // The index refers into the leaves: a move keeps it valid, a copy would not.
  Layout(Layout&&) = default;
  Layout& operator=(Layout&&) = default;
  Layout(const Layout&) = delete;
  Layout& operator=(const Layout&) = delete;

  const std::string& record() const { return record_; }
  uint32_t bits() const { return bits_; }
  const std::vector<Leaf>& leaves() const { return leaves_; }

  // The index of the leaf with this exact path.
  std::optional<size_t> Find(std::string_view path) const;
  // The index of the leaf that holds `bit`, if the bit lies inside the record.
  std::optional<size_t> LeafAtBit(uint32_t bit) const;
  // Where `bit` of the record lies: its leaf, which bit of the leaf's value, and which bit of
  // which register word; empty outside the record.
  std::optional<struct BitPlace> PlaceOfBit(uint32_t bit) const;
  // The path most like `path`, for "did you mean" hints; empty if the layout has no leaves.
  std::string Nearest(std::string_view path) const;
  // The record or array that `path` names ("" is the tile's record), or null: a leaf's path, or a
  // path of nothing, names no branch.
  const Branch* FindBranch(std::string_view path) const;
  // Why `path` names no leaf, as a complaint says it: it is a record or an array above leaves
  // (and one of its leaves), or it names nothing (with the nearest path, if `hint`). The path is
  // echoed escaped and cut.
  std::string NotALeaf(std::string_view path, bool hint) const;
  // Every branch by path, "" for the tile's record.
  const std::unordered_map<std::string, Branch>& branches() const { return branches_; }
  // The lines of the printed form in the order the library prints them: the tile's record opens,
  // each record's members follow in the record's order (which is bit order, a record's fields
  // standing one after another from its first), each array's elements from index 0 up (the
  // reverse of bit order: element 0 lies at the little end of the array's bits), and every record
  // and array ends after its last member. Empty for a layout without leaves.
  const std::vector<TreeLine>& tree() const { return tree_; }

 private:
  std::string record_;
  uint32_t bits_ = 0;
  std::vector<Leaf> leaves_;
  std::unordered_map<std::string_view, size_t> index_;  // views into leaves_[i].path
  std::unordered_map<std::string, Branch> branches_;
  std::vector<TreeLine> tree_;
  // Linked run-time register numbers: the leaf, and whether the high word.
  std::unordered_map<uint32_t, std::pair<size_t, bool>> runtime_;
};

// The largest value a leaf of `width` bits holds.
constexpr uint64_t MaxValue(uint32_t width) {
  return width >= 64 ? ~uint64_t{0} : (uint64_t{1} << width) - 1;
}

// "7", or "7-9" for the registers 7 to 9: how registers are shown everywhere.
std::string RegisterSpan(uint32_t lo, uint32_t hi);
// "7" or "7-8": the registers of a leaf, low word first.
std::string Registers(const Leaf& leaf);
enum class RegisterWord : uint8_t;
// The first and last bit, in the tile's bit string, of the word of `leaf` that a register writes:
// all of a leaf of up to 32 bits; of a wider leaf, whose first bit is its most significant, the
// last 32 bits for its low word and the bits before them for its high word.
std::pair<uint32_t, uint32_t> WordBits(const Leaf& leaf, RegisterWord word);
// "24", "0+64" for a wide leaf's low and high words, "0+-" or "-+64" where one word is linked, "-"
// where none is, each number followed by "?" where the constants tables infer it: the run-time
// registers of a leaf, as `layout` shows them.
std::string RuntimeRegisterNumbers(const Leaf& leaf);

}  // namespace archspec
