#include "compiler/arch_spec/Paths.h"

#include <charconv>

namespace zu::spec {

namespace {

// An index in brackets, "[12]", on the stack.
struct IndexText {
  explicit IndexText(size_t index) {
    text[0] = '[';
    char* end = std::to_chars(text + 1, text + sizeof text - 1, index).ptr;
    *end++ = ']';
    size = static_cast<size_t>(end - text);
  }
  std::string_view view() const { return {text, size}; }
  char text[24];
  size_t size;
};

}  // namespace

void AppendIndex(std::string& path, size_t index) { path.append(IndexText(index).view()); }

std::string ElementName(std::string_view array, size_t index) {
  const IndexText text(index);
  std::string name;
  name.reserve(array.size() + text.size);
  name.append(array).append(text.view());
  return name;
}

std::string ElementName(std::string_view array, size_t row, size_t column) {
  const IndexText first(row), second(column);
  std::string name;
  name.reserve(array.size() + first.size + second.size);
  name.append(array).append(first.view()).append(second.view());
  return name;
}

void AppendStep(std::string& path, std::string_view name) {
  if (name.empty()) return;
  if (!path.empty()) path.push_back('.');
  path.append(name);
}

}  // namespace zu::spec
