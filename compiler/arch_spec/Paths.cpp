#include "compiler/arch_spec/Paths.h"

#include <charconv>

namespace zu::spec {

void AppendIndex(std::string& path, size_t index) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, index).ptr;
  path.push_back('[');
  path.append(digits, end);
  path.push_back(']');
}

std::string ElementName(std::string_view array, size_t index) {
  std::string name(array);
  AppendIndex(name, index);
  return name;
}

std::string ElementName(std::string_view array, size_t row, size_t column) {
  std::string name(array);
  AppendIndex(name, row);
  AppendIndex(name, column);
  return name;
}

void AppendStep(std::string& path, std::string_view name) {
  if (name.empty()) return;
  if (!path.empty()) path.push_back('.');
  path.append(name);
}

}  // namespace zu::spec
