#include "Delta.h"

#include <algorithm>

namespace archspec {

std::vector<uint64_t> ApplyDelta(std::vector<uint64_t> config, const SparseResult& delta) {
  const size_t leaves = std::min({config.size(), delta.values.size(), delta.assigned.size()});
  for (size_t i = 0; i < leaves; ++i) {
    if (delta.assigned[i]) config[i] = delta.values[i];
  }
  return config;
}

std::vector<LeafChange> CompareConfigurations(const std::vector<uint64_t>& a,
                                              const std::vector<uint64_t>& b) {
  std::vector<LeafChange> changes;
  // A missing value is 0, as a leaf that a listing does not name.
  const size_t leaves = std::max(a.size(), b.size());
  for (size_t i = 0; i < leaves; ++i) {
    const uint64_t from = i < a.size() ? a[i] : 0;
    const uint64_t to = i < b.size() ? b[i] : 0;
    if (from != to) changes.push_back({i, from, to});
  }
  return changes;
}

std::string WriteDelta(const Layout& layout, const std::vector<LeafChange>& changes,
                       const std::vector<std::string>& header, const Naming* names) {
  std::string out;
  for (const std::string& line : header) out += "# " + line + "\n";
  for (const LeafChange& change : changes) {
    if (change.leaf < layout.leaves().size()) {
      AppendListingLine(out, layout, change.leaf, change.to, names);
    }
  }
  return out;
}

}  // namespace archspec
