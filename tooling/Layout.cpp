#include "Layout.h"

#include <algorithm>

#include "Diagnostic.h"
#include "Nearest.h"
#include "PathForm.h"

namespace archspec {

Layout::Layout(std::string record, uint32_t bits, std::vector<Leaf> leaves)
    : record_(std::move(record)), bits_(bits), leaves_(std::move(leaves)) {
  index_.reserve(leaves_.size());
  for (size_t i = 0; i < leaves_.size(); ++i) index_.emplace(leaves_[i].path, i);
  // Each step of a leaf's path is a member of the branch that the path before it names: a record
  // before a member's name, an array before an index; the tile's record is the branch "".
  for (size_t i = 0; i < leaves_.size(); ++i) {
    const Leaf& leaf = leaves_[i];
    // The branch that holds a step is the path up to the end of the step before it.
    size_t above = 0;
    for (const std::string_view step : PathSteps(leaf.path)) {
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
