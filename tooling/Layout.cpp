#include "Layout.h"

#include <algorithm>

#include "Diagnostic.h"
#include "Nearest.h"
#include "PathForm.h"
#include "RuntimeRegisters.h"

namespace archspec {
namespace {

// The records and arrays of a layout as a tree, grown leaf by leaf in bit order and then read in
// print order. The leaves below one record or array follow one another in bit order, so each
// leaf's path shares its first steps with the branches still open (those of the leaf before it)
// and opens new ones below them. Children are linked in a list, a record's in bit order, an
// array's in reverse (each new one put first), which is the order of printing in both.
class PrintTree {
 public:
  // For the leaves of a layout of `leaves`, a node each and some above them.
  explicit PrintTree(size_t leaves) {
    nodes_.reserve(leaves + leaves / 2 + 1);
    nodes_.push_back({});
  }

  // Adds leaf `leaf` of `width` bits, whose path has these steps.
  void Add(const std::vector<std::string_view>& steps, size_t leaf, uint32_t width) {
    if (steps.empty()) return;
    // The open branches that the leaf's path passes through stay open; the others are done.
    size_t same = 0;
    while (same < open_.size() && same + 1 < steps.size() &&
           nodes_[open_[same]].step == steps[same])
      ++same;
    open_.resize(same);
    nodes_[0].bits += width;
    for (const uint32_t branch : open_) nodes_[branch].bits += width;
    for (size_t s = same; s < steps.size(); ++s) {
      const uint32_t parent = open_.empty() ? 0 : open_.back();
      const auto node = static_cast<uint32_t>(nodes_.size());
      nodes_.push_back({steps[s], s + 1 == steps.size() ? leaf : kBranch, width});
      Link(parent, node);
      if (s + 1 < steps.size()) open_.push_back(node);
    }
  }

  // The lines of the tree in print order.
  std::vector<TreeLine> Lines() const {
    std::vector<TreeLine> lines;
    if (nodes_[0].first == kNone) return lines;
    lines.reserve(nodes_.size() * 2);
    Emit(0, 0, false, lines);
    return lines;
  }

 private:
  static constexpr uint32_t kNone = ~uint32_t{0};
  static constexpr size_t kBranch = ~size_t{0};

  struct Node {
    std::string_view step;   // "stage_opcode" or "[4]"; empty for the tile's record
    size_t leaf = kBranch;   // a leaf's index in the layout
    uint32_t bits = 0;       // of the leaves below it, or of the leaf
    bool array = false;      // its children are elements
    uint32_t first = kNone;  // its first child in print order
    uint32_t last = kNone;   // its last child in print order
    uint32_t next = kNone;   // the sibling printed after it
  };

  void Link(uint32_t parent, uint32_t child) {
    Node& above = nodes_[parent];
    if (above.first == kNone) {
      above.array = nodes_[child].step.front() == '[';
      above.first = above.last = child;
    } else if (above.array) {
      nodes_[child].next = above.first;
      above.first = child;
    } else {
      nodes_[above.last].next = child;
      above.last = child;
    }
  }

  void Emit(uint32_t index, uint32_t depth, bool element, std::vector<TreeLine>& lines) const {
    const Node& node = nodes_[index];
    TreeLine line;
    line.element = element;
    line.depth = depth;
    line.bits = node.bits;
    line.label = element ? node.step.substr(1, node.step.size() - 2) : node.step;
    if (node.leaf != kBranch) {
      line.kind = TreeLine::Kind::kLeaf;
      line.leaf = node.leaf;
      lines.push_back(line);
      return;
    }
    line.kind = node.array ? TreeLine::Kind::kArray : TreeLine::Kind::kRecord;
    lines.push_back(line);
    for (uint32_t child = node.first; child != kNone; child = nodes_[child].next)
      Emit(child, depth + 1, node.array, lines);
    line.kind = node.array ? TreeLine::Kind::kArrayEnd : TreeLine::Kind::kRecordEnd;
    line.element = false;
    line.label = {};
    lines.push_back(line);
  }

  std::vector<Node> nodes_;     // the tile's record first
  std::vector<uint32_t> open_;  // the open branches below the tile's record, outermost first
};

}  // namespace

Layout::Layout(std::string record, uint32_t bits, std::vector<Leaf> leaves)
    : record_(std::move(record)), bits_(bits), leaves_(std::move(leaves)) {
  index_.reserve(leaves_.size());
  for (size_t i = 0; i < leaves_.size(); ++i) index_.emplace(leaves_[i].path, i);
  // Each step of a leaf's path is a member of the branch that the path before it names: a record
  // before a member's name, an array before an index; the tile's record is the branch "".
  PrintTree print(leaves_.size());
  for (size_t i = 0; i < leaves_.size(); ++i) {
    const Leaf& leaf = leaves_[i];
    const std::vector<std::string_view> steps = PathSteps(leaf.path);
    print.Add(steps, i, leaf.width);
    // The branch that holds a step is the path up to the end of the step before it.
    size_t above = 0;
    for (const std::string_view step : steps) {
      auto [found, inserted] = branches_.try_emplace(leaf.path.substr(0, above));
      Branch& branch = found->second;
      if (inserted) {
        branch.first_leaf = i;
        branch.reg_lo = leaf.reg_lo;
      }
      branch.last_leaf = i;
      branch.reg_lo = std::min(branch.reg_lo, leaf.reg_lo);
      branch.reg_hi = std::max(branch.reg_hi, leaf.reg_hi.value_or(leaf.reg_lo));
      if (step.front() == '[') {
        branch.array = true;
        const auto index = static_cast<uint32_t>(std::stoul(std::string(step.substr(1))));
        branch.elements = std::max(branch.elements, index + 1);
      } else if (branch.members.empty() || branch.members.back() != step) {
        // Fields follow one another in bit order, so a member repeats only right after itself.
        branch.members.emplace_back(step);
      }
      above = static_cast<size_t>(step.end() - leaf.path.data());
    }
  }
  tree_ = print.Lines();
}

bool Layout::LinkRuntimeRegisters(std::span<const RuntimeRegisterRow* const> registers) {
  std::vector<std::pair<size_t, const RuntimeRegisterRow*>> links;
  for (const RuntimeRegisterRow* row : registers) {
    if (!row->linked()) continue;
    const std::optional<size_t> leaf = Find(row->path);
    if (!leaf) return false;
    if ((row->word == RegisterWord::kWhole) != (leaves_[*leaf].width <= 32)) return false;
    links.emplace_back(*leaf, row);
  }
  for (const auto& [leaf, row] : links) {
    const bool high = row->word == RegisterWord::kHigh;
    (high ? leaves_[leaf].runtime_hi : leaves_[leaf].runtime_lo) = row;
    runtime_[row->number] = {leaf, high};
  }
  return true;
}

std::optional<std::pair<size_t, const RuntimeRegisterRow*>> Layout::FindRuntimeRegister(
    uint32_t number) const {
  const auto found = runtime_.find(number);
  if (found == runtime_.end()) return std::nullopt;
  const Leaf& leaf = leaves_[found->second.first];
  return std::pair{found->second.first, found->second.second ? leaf.runtime_hi : leaf.runtime_lo};
}

std::optional<size_t> Layout::Find(std::string_view path) const {
  const auto it = index_.find(path);
  if (it == index_.end()) return std::nullopt;
  return it->second;
}

std::optional<size_t> Layout::LeafAtBit(uint32_t bit) const {
  // The last leaf that starts at or before the bit; leaves follow one another without gaps.
  const auto it = std::upper_bound(leaves_.begin(), leaves_.end(), bit,
                                   [](uint32_t b, const Leaf& leaf) { return b < leaf.offset; });
  if (it == leaves_.begin()) return std::nullopt;
  const Leaf& leaf = *(it - 1);
  if (bit >= leaf.offset + leaf.width) return std::nullopt;
  return static_cast<size_t>(it - 1 - leaves_.begin());
}

const Branch* Layout::FindBranch(std::string_view path) const {
  const auto it = branches_.find(std::string(path));
  return it == branches_.end() ? nullptr : &it->second;
}

std::string Layout::NotALeaf(std::string_view path, bool hint) const {
  const std::string shown = EchoText(path);
  if (const Branch* branch = FindBranch(path)) {
    const std::string what = branch->array ? "an array of " + std::to_string(branch->elements) +
                                                 (branch->elements == 1 ? " element" : " elements")
                                           : std::string("a record");
    return shown + " is " + what + " in " + record_ + ", not a leaf: assign its leaves, such as " +
           leaves_[branch->first_leaf].path;
  }
  std::string message = "unknown path " + shown + " in " + record_;
  if (hint) {
    const std::string nearest = Nearest(path);
    if (!nearest.empty()) message += "; did you mean " + nearest + "?";
  }
  return message;
}

std::string Layout::Nearest(std::string_view path) const {
  NearestName nearest(path);
  for (const Leaf& leaf : leaves_) nearest.Offer(leaf.path);
  return nearest.Best();
}

std::string RegisterSpan(uint32_t lo, uint32_t hi) {
  return lo == hi ? std::to_string(lo) : std::to_string(lo) + "-" + std::to_string(hi);
}

std::string Registers(const Leaf& leaf) {
  return RegisterSpan(leaf.reg_lo, leaf.reg_hi.value_or(leaf.reg_lo));
}

std::pair<uint32_t, uint32_t> WordBits(const Leaf& leaf, RegisterWord word) {
  const uint32_t last = leaf.offset + leaf.width - 1;
  switch (word) {
    case RegisterWord::kLow:
      return {last - 31, last};
    case RegisterWord::kHigh:
      return {leaf.offset, last - 32};
    case RegisterWord::kWhole:
      break;
  }
  return {leaf.offset, last};
}

std::string RuntimeRegisterNumbers(const Leaf& leaf) {
  // A number that the constants tables infer rather than state is marked, as everywhere.
  const auto number = [](const RuntimeRegisterRow* row) {
    if (row == nullptr) return std::string("-");
    return std::to_string(row->number) + (row->inferred ? "?" : "");
  };
  if (leaf.width <= 32 || !leaf.runtime()) return number(leaf.runtime_lo);
  return number(leaf.runtime_lo) + "+" + number(leaf.runtime_hi);
}

std::optional<BitPlace> Layout::PlaceOfBit(uint32_t bit) const {
  const std::optional<size_t> index = LeafAtBit(bit);
  if (!index.has_value()) return std::nullopt;
  const Leaf& leaf = leaves_[*index];
  BitPlace place;
  place.leaf = *index;
  // The leaf's bits stand most significant first: its first bit is value bit width - 1.
  place.value_bit = leaf.width - 1 - (bit - leaf.offset);
  const bool high_word = place.value_bit >= 32;
  place.reg = high_word ? leaf.reg_hi.value_or(0) : leaf.reg_lo;
  place.register_bit = high_word ? place.value_bit - 32 : place.value_bit;
  return place;
}

}  // namespace archspec
