// "Did you mean" hints: the candidate closest to a misspelt name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace archspec {

// The number of single-character insertions, deletions and substitutions that turn `a` into `b`, or
// `limit` + 1 as soon as it is sure to exceed `limit`.
size_t EditDistance(std::string_view a, std::string_view b, size_t limit = SIZE_MAX);

// Keeps the closest of the candidates offered to it; ties go to the first offered.
class NearestName {
 public:
  explicit NearestName(std::string_view target) : target_(target) {}
  void Offer(std::string_view candidate);
  // The closest candidate, or empty if none was offered or none is plausibly a misspelling.
  std::string Best() const;

 private:
  // The largest distance that is still offered as a misspelling.
  size_t Limit() const;

  std::string_view target_;
  std::string best_;
  size_t best_distance_ = 0;
  bool any_ = false;
};

}  // namespace archspec
