#include "Layout.h"

#include <algorithm>

#include "Nearest.h"

namespace archspec {

Layout::Layout(std::string record, uint32_t bits, std::vector<Leaf> leaves)
    : record_(std::move(record)), bits_(bits), leaves_(std::move(leaves)) {
  index_.reserve(leaves_.size());
  for (size_t i = 0; i < leaves_.size(); ++i) index_.emplace(leaves_[i].path, i);
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

std::string Layout::Nearest(std::string_view path) const {
  NearestName nearest(path);
  for (const Leaf& leaf : leaves_) nearest.Offer(leaf.path);
  return nearest.Best();
}

std::string Registers(const Leaf& leaf) {
  std::string out = std::to_string(leaf.reg_lo);
  if (leaf.reg_hi.has_value()) out.append("-").append(std::to_string(*leaf.reg_hi));
  return out;
}

}  // namespace archspec
