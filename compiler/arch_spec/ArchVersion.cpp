#include "compiler/arch_spec/ArchVersion.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>

#include "compiler/arch_spec/Logging.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace zu::spec {

constinit const ArchVersion ArchVersion::vUndefined = {0, 0, 0};

namespace {

// One of the four name tables, from the rows of the table of generations that have the name.
template <class Key, class Value>
std::map<Key, Value> NameTable(Key (*key)(const GenerationRow&),
                               Value (*value)(const GenerationRow&),
                               const char* GenerationRow::*name) {
  std::map<Key, Value> table;
  for (const GenerationRow& row : GenerationTable()) {
    if (*(row.*name) != '\0') table.emplace(key(row), value(row));
  }
  return table;
}

std::string Product(const GenerationRow& row) { return row.product_name; }
std::string Code(const GenerationRow& row) { return row.code_name; }
ArchVersion Version(const GenerationRow& row) { return row.version; }

}  // namespace

// Built in this order at load, destroyed in reverse order at exit.
const std::map<std::string, ArchVersion> ArchVersion::product_name_to_version_ =
    NameTable(&Product, &Version, &GenerationRow::product_name);
const std::map<std::string, ArchVersion> ArchVersion::code_name_to_version_ =
    NameTable(&Code, &Version, &GenerationRow::code_name);
const std::map<ArchVersion, std::string> ArchVersion::version_to_product_name_ =
    NameTable(&Version, &Product, &GenerationRow::product_name);
const std::map<ArchVersion, std::string> ArchVersion::version_to_code_name_ =
    NameTable(&Version, &Code, &GenerationRow::code_name);

ArchVersion ArchVersion::expect_parse(const std::string& name, std::string& error) {
  std::string lower;
  lower.reserve(name.size());
  for (const char c : name)
    lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));

  if (name.empty()) {
    error = "Can't determine target architecture version. Did you forget to specify --arch?";
    return vUndefined;
  }
  // Compared as received: only the lower-case spelling asks for autodetection.
  if (name == "native") {
    error =
        "Architecture autodetection is not supported. Please specify --arch explicitly (e.g., "
        "--arch mk42, --arch mk43, etc.)";
    return vUndefined;
  }
  if (const auto found = product_name_to_version_.find(lower);
      found != product_name_to_version_.end()) {
    return found->second;
  }
  error = "Invalid architecture version in --arch: \"" + name + "\"";
  return vUndefined;
}

ArchVersion ArchVersion::parse(const std::string& name) {
  std::string error_text;
  const ArchVersion version = expect_parse(name, error_text);
  if (version.major == 0) {
    error(error_text);
    std::exit(1);
  }
  return version;
}

std::set<ArchVersion> ArchVersion::supported_archs() {
  std::set<ArchVersion> supported;
  for (const GenerationRow& row : GenerationTable()) {
    if (row.selectable) supported.insert(row.version);
  }
  return supported;
}

bool ArchVersion::validate() const {
  static const std::set<ArchVersion> supported = supported_archs();
  return supported.count(*this) != 0;
}

int64_t ArchVersion::operator()() const {
  const uint32_t hash = (static_cast<uint32_t>(major) * 31u + static_cast<uint32_t>(minor)) * 31u +
                        static_cast<uint32_t>(patch);
  return static_cast<int32_t>(hash);
}

std::string ArchVersion::to_string() const {
  std::string text = std::to_string(major);
  if (patch >= 1) {
    text.append(".").append(std::to_string(minor)).append(".").append(std::to_string(patch));
  } else if (minor >= 1) {
    text.append(".").append(std::to_string(minor));
  }
  return text;
}

std::string ArchVersion::to_product_name_string() const {
  const auto found = version_to_product_name_.find(*this);
  return found == version_to_product_name_.end() ? std::string() : found->second;
}

std::string ArchVersion::to_code_name_string() const {
  const auto found = version_to_code_name_.find(*this);
  return found == version_to_code_name_.end() ? std::string() : found->second;
}

}  // namespace zu::spec
