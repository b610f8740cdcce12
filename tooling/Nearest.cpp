#include "Nearest.h"

#include <algorithm>
#include <vector>

namespace archspec {

size_t EditDistance(std::string_view a, std::string_view b, size_t limit) {
  // One row, kept between calls: a suggestion compares one name with thousands.
  thread_local std::vector<size_t> row;
  row.assign(b.size() + 1, 0);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    size_t smallest = row[0];
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
      smallest = std::min(smallest, row[j]);
    }
    // No cell of a later row is below the smallest of this one.
    if (smallest > limit) return limit + 1;
  }
  return row[b.size()];
}

void NearestName::Offer(std::string_view candidate) {
  const size_t length_gap = candidate.size() > target_.size() ? candidate.size() - target_.size()
                                                              : target_.size() - candidate.size();
  // The distance is at least the difference in length: skip what could not be suggested anyway, or
  // could not beat the best so far.
  const size_t limit = Limit();
  if (length_gap > limit || (any_ && length_gap >= best_distance_)) return;
  // Only a candidate closer than the best so far is kept: the comparison may stop sooner.
  const size_t distance =
      EditDistance(target_, candidate, any_ ? std::min(limit, best_distance_ - 1) : limit);
  if (distance > limit) return;
  if (!any_ || distance < best_distance_) {
    best_ = std::string(candidate);
    best_distance_ = distance;
    any_ = true;
  }
}

std::string NearestName::Best() const { return any_ ? best_ : std::string(); }

size_t NearestName::Limit() const {
  // A hint that shares less than about two thirds of the name is noise, not help.
  return std::max<size_t>(3, target_.size() / 3);
}

}  // namespace archspec
