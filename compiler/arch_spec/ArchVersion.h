// ArchVersion: the name of one chip generation, and the parser of the names users give with --arch.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace zu::spec {

struct ArchVersion {
  int32_t major = 0;  // generation number; 0 means no version
  int64_t minor = 0;
  int64_t patch = 0;

  // No version: 0.0.0.
  static const ArchVersion vUndefined;
  // The named generations of generations.tbl, v<major>_<minor>_<patch>. Constant data, valid
  // before any static initialiser has run.
#include "compiler/arch_spec/gen/ArchVersionNames.inc"

  // Name tables, filled at library load from the table of generations.
  static const std::map<std::string, ArchVersion> product_name_to_version_;
  static const std::map<std::string, ArchVersion> code_name_to_version_;
  static const std::map<ArchVersion, std::string> version_to_product_name_;
  static const std::map<ArchVersion, std::string> version_to_code_name_;

  // Parses a product name (any case). On failure returns all zero and replaces `error` with the
  // reason; on success leaves `error` untouched. Never ends the process.
  static ArchVersion expect_parse(const std::string& name, std::string& error);
  // As expect_parse, but logs the reason at the error level and exits with status 1 on failure.
  static ArchVersion parse(const std::string& name);
  // The selectable generations: 2.0.0, 2.1.0, 3.0.0, 4.0.0.
  static std::set<ArchVersion> supported_archs();

  // True if this version is exactly one of supported_archs().
  bool validate() const;
  // (major * 31 + minor) * 31 + patch in 32-bit wrapping arithmetic, sign-extended.
  int64_t operator()() const;

  // "2", "2.1", "2.0.5": minor and patch are shown only where needed.
  std::string to_string() const;
  // "mk43", or empty for a version without a product name.
  std::string to_product_name_string() const;
  // "ry", or empty for a version without a code name.
  std::string to_code_name_string() const;

  friend bool operator==(const ArchVersion& a, const ArchVersion& b) {
    return a.major == b.major && a.minor == b.minor && a.patch == b.patch;
  }
  friend bool operator!=(const ArchVersion& a, const ArchVersion& b) { return !(a == b); }
  friend bool operator<(const ArchVersion& a, const ArchVersion& b) {
    if (a.major != b.major) return a.major < b.major;
    if (a.minor != b.minor) return a.minor < b.minor;
    return a.patch < b.patch;
  }
};

}  // namespace zu::spec
