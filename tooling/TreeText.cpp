#include "TreeText.h"

#include <vector>

namespace archspec {
namespace {

std::string_view Trimmed(std::string_view line) {
  const size_t begin = line.find_first_not_of(' ');
  return begin == std::string_view::npos ? std::string_view() : line.substr(begin);
}

// Whether a leaf's line holds 0: the value is the word after the width (`]/5 0x0`).
bool HoldsZero(std::string_view line) {
  const size_t width = line.rfind("]/");
  if (width == std::string_view::npos) return false;
  const size_t value = line.find(' ', width);
  if (value == std::string_view::npos) return false;
  std::string_view rest = line.substr(value + 1);
  rest = rest.substr(0, rest.find(' '));
  return rest == "0x0" || rest == "0";
}

}  // namespace

std::string NonzeroTree(std::string_view tree) {
  std::string out;
  // The opening lines of the records and arrays around the current line, and whether each has
  // been written: one is written once a non-zero leaf below it is.
  struct Open {
    std::string_view line;
    bool written;
  };
  std::vector<Open> open;
  while (!tree.empty()) {
    const size_t end = tree.find('\n');
    const std::string_view line = tree.substr(0, end);
    tree.remove_prefix(end == std::string_view::npos ? tree.size() : end + 1);
    const std::string_view text = Trimmed(line);
    if (text.empty()) continue;
    if (text.back() == '{' || text.back() == '[') {
      open.push_back({line, open.empty()});
      if (open.size() == 1) out.append(line).append("\n");
      continue;
    }
    if (text.front() == '}' || text.front() == ']') {
      if (!open.empty()) {
        if (open.back().written) out.append(line).append("\n");
        open.pop_back();
      }
      continue;
    }
    if (HoldsZero(text)) continue;
    for (Open& around : open) {
      if (!around.written) out.append(around.line).append("\n");
      around.written = true;
    }
    out.append(line).append("\n");
  }
  return out;
}

}  // namespace archspec
