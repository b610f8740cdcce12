// Changes between configurations of one tile, as leaf values (one per leaf of its Layout):
// applying a listing read as a change, and finding what differs between two configurations,
// written as the listing that turns the first into the second.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Layout.h"
#include "Sparse.h"

namespace archspec {

// `config` with each leaf that `delta` assigns set to the delta's value, every other leaf as it
// was. `delta` is a listing read successfully against the same layout.
std::vector<uint64_t> ApplyDelta(std::vector<uint64_t> config, const SparseResult& delta);

// One leaf whose value differs between two configurations.
struct LeafChange {
  size_t leaf;  // index in the layout
  uint64_t from;
  uint64_t to;
};

// The leaves whose values differ between `a` and `b`, in bit order. Where one is shorter, its
// missing values are 0, as the leaves that a listing does not name.
std::vector<LeafChange> CompareConfigurations(const std::vector<uint64_t>& a,
                                              const std::vector<uint64_t>& b);

// The listing that, applied as a change to the first configuration, gives the second: each
// changed leaf with its new value (zero included), in bit order, after the comment lines of
// `header`; values by name with `names`, as WriteSparse writes them.
std::string WriteDelta(const Layout& layout, const std::vector<LeafChange>& changes,
                       const std::vector<std::string>& header = {}, const Naming* names = nullptr);

}  // namespace archspec
