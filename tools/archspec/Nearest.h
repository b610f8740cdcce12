// "Did you mean" hints: the candidate closest to a misspelt name.
#pragma once

#include <string>
#include <string_view>

namespace archspec {

// The number of single-character insertions, deletions and substitutions that turn `a` into `b`.
size_t EditDistance(std::string_view a, std::string_view b);

// Keeps the closest of the candidates offered to it; ties go to the first offered.
class NearestName {
 public:
  explicit NearestName(std::string_view target) : target_(target) {}
  void Offer(std::string_view candidate);
  // The closest candidate, or empty if none was offered or none is plausibly a misspelling.
  std::string Best() const;

 private:
  static constexpr size_t kLongestTarget = 256;

  std::string_view target_;
  std::string best_;
  size_t best_distance_ = 0;
  bool any_ = false;
};

}  // namespace archspec
