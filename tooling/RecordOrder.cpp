#include "RecordOrder.h"

namespace archspec {

std::vector<size_t> RecordOrder(const Layout& layout) {
  std::vector<size_t> order;
  order.reserve(layout.leaves().size());
  for (const TreeLine& line : layout.tree()) {
    if (line.kind == TreeLine::Kind::kLeaf) order.push_back(line.leaf);
  }
  return order;
}

std::vector<size_t> RecordRanks(const Layout& layout) {
  const std::vector<size_t> order = RecordOrder(layout);
  std::vector<size_t> ranks(layout.leaves().size());
  for (size_t k = 0; k < order.size(); ++k) ranks[order[k]] = k;
  return ranks;
}

}  // namespace archspec
