#include "PathForm.h"

#include "compiler/arch_spec/Paths.h"

namespace archspec {

std::vector<std::string_view> PathSteps(std::string_view path) {
  std::vector<std::string_view> steps;
  size_t begin = 0;
  while (begin < path.size()) {
    if (path[begin] == '.') ++begin;
    size_t end = begin + 1;
    if (path[begin] == '[') {
      while (end < path.size() && path[end - 1] != ']') ++end;
    } else {
      while (end < path.size() && path[end] != '.' && path[end] != '[') ++end;
    }
    steps.push_back(path.substr(begin, end - begin));
    begin = end;
  }
  return steps;
}

std::string JoinPath(std::string_view path, std::string_view step) {
  std::string joined(path);
  if (!step.empty() && step.front() == '[') {
    joined.append(step);
  } else {
    zu::spec::AppendStep(joined, step);
  }
  return joined;
}

std::string JoinPath(std::string_view path, size_t index) {
  std::string joined(path);
  zu::spec::AppendIndex(joined, index);
  return joined;
}

std::pair<std::string_view, std::string_view> SplitLast(std::string_view path) {
  const std::vector<std::string_view> steps = PathSteps(path);
  if (steps.empty()) return {path, {}};
  const std::string_view last = steps.back();
  std::string_view above = path.substr(0, static_cast<size_t>(last.data() - path.data()));
  if (!above.empty() && above.back() == '.') above.remove_suffix(1);
  return {above, last};
}

std::string_view FieldName(std::string_view path) {
  const std::vector<std::string_view> steps = PathSteps(path);
  for (size_t i = steps.size(); i-- > 0;) {
    if (steps[i].front() != '[') return steps[i];
  }
  return {};
}

std::string PathTemplate(std::string_view path) {
  std::string out;
  for (const std::string_view step : PathSteps(path)) {
    out = JoinPath(out, step.front() == '[' ? std::string_view("[]") : step);
  }
  return out;
}

}  // namespace archspec
