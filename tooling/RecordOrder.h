// The leaves of a layout in the record's order, the order of its printed tree (Layout::tree()):
// a record's members as the record has them, an array's elements from index 0 up. The layout
// itself runs in bit order, where an array's elements run from the highest index down (element 0
// lies at the little end of the array's bits); a reader reads a configuration top to bottom in the
// record's order, so the listings, comparisons and findings that a person reads run in it, while
// `layout` and `where`, which speak of bits, stay in bit order.
#pragma once

#include <cstddef>
#include <vector>

#include "Layout.h"

namespace archspec {

// Every leaf index of `layout` once, in the record's order.
std::vector<size_t> RecordOrder(const Layout& layout);
// The place of each leaf in the record's order: RecordRanks(layout)[RecordOrder(layout)[k]] == k.
std::vector<size_t> RecordRanks(const Layout& layout);

}  // namespace archspec
