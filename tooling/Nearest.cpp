#include "Nearest.h"

#include <algorithm>
#include <vector>

namespace archspec {

size_t EditDistance(std::string_view a, std::string_view b, size_t limit) {
  // What both names share at their start and their end costs no edit: paths of one record share
  // most of their length ("simd_structIn[0][4].stage_op..."), so this leaves little to compare.
  while (!a.empty() && !b.empty() && a.front() == b.front()) {
    a.remove_prefix(1);
    b.remove_prefix(1);
  }
  while (!a.empty() && !b.empty() && a.back() == b.back()) {
    a.remove_suffix(1);
    b.remove_suffix(1);
  }
  const size_t m = a.size();
  const size_t n = b.size();
  // No distance exceeds the longer length; past the limit every value is the same to a caller.
  limit = std::min(limit, std::max(m, n));
  const size_t over = limit + 1;
  if ((m > n ? m - n : n - m) > limit) return over;

  // Cell (i, j) is the distance between the first i characters of `a` and the first j of `b`.
  // Only cells with |i - j| <= limit can be within the limit, so each row computes that band;
  // the cells around it count as over the limit. One row, kept between calls: a suggestion
  // compares one name with thousands.
  thread_local std::vector<size_t> row;
  row.assign(n + 1, over);
  for (size_t j = 0; j <= std::min(n, limit); ++j) row[j] = j;
  for (size_t i = 1; i <= m; ++i) {
    const size_t lo = i > limit ? i - limit : 1;
    const size_t hi = std::min(n, i + limit);
    size_t diagonal = row[lo - 1];
    row[lo - 1] = lo == 1 && i <= limit ? i : over;
    size_t smallest = row[lo - 1];
    for (size_t j = lo; j <= hi; ++j) {
      const size_t above = row[j];
      size_t cell = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      cell = std::min(cell, above + 1);
      cell = std::min(cell, row[j - 1] + 1);
      row[j] = std::min(cell, over);
      diagonal = above;
      smallest = std::min(smallest, row[j]);
    }
    // No cell of a later row is below the smallest of this one.
    if (smallest > limit) return over;
  }
  return row[n];
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
