#include "Nearest.h"

#include <algorithm>
#include <vector>

namespace archspec {

size_t EditDistance(std::string_view a, std::string_view b) {
  // One row, kept between calls: a suggestion compares one name with thousands.
  thread_local std::vector<size_t> row;
  row.assign(b.size() + 1, 0);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

void NearestName::Offer(std::string_view candidate) {
  // Nobody mistypes a name this long: such a line is not a near miss, and comparing it is costly.
  if (target_.size() > kLongestTarget) return;
  const size_t length_gap = candidate.size() > target_.size() ? candidate.size() - target_.size()
                                                              : target_.size() - candidate.size();
  // The distance is at least the difference in length: skip what cannot beat the best so far.
  if (any_ && length_gap >= best_distance_) return;
  const size_t distance = EditDistance(target_, candidate);
  if (!any_ || distance < best_distance_) {
    best_ = std::string(candidate);
    best_distance_ = distance;
    any_ = true;
  }
}

std::string NearestName::Best() const {
  // A hint that shares less than about two thirds of the name is noise, not help.
  const size_t limit = std::max<size_t>(3, target_.size() / 3);
  if (!any_ || best_distance_ > limit) return {};
  return best_;
}

}  // namespace archspec
