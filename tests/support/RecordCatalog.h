// Every generated record class of every generation, as one list that the tests, benchmarks and fuzz
// targets iterate: its namespace, name, declared size and id count, and a way to make one.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "compiler/arch_spec/gen/KoConfig.h"
#include "compiler/arch_spec/gen/RyConfig.h"
#include "compiler/arch_spec/gen/RyeConfig.h"

namespace zu::spec::catalog {

struct RecordClass {
  std::string ns;    // "ko", "ry" or "rye"
  std::string name;  // "AGCU_Config_struct"
  size_t bits;
  int ids;  // unique ids that SetUniqueId hands out for the whole record
  bool top_level;
  std::function<std::unique_ptr<BaseConstruct>()> make;

  std::string label() const { return ns + "/" + name; }
};

inline const std::vector<RecordClass>& AllRecordClasses() {
  static const std::vector<RecordClass> classes = [] {
    std::vector<RecordClass> all;
#define ZU_SPEC_RECORD_ENTRY(Class, Bits, Fields, Ids, Top) \
  all.push_back({kNs, #Class, Bits, Ids, Top != 0, [] { return std::make_unique<Ns::Class>(); }});
    {
      namespace Ns = ko;
      constexpr const char* kNs = "ko";
#include "compiler/arch_spec/gen/KoRecords.inc"
    }
    {
      namespace Ns = ry;
      constexpr const char* kNs = "ry";
#include "compiler/arch_spec/gen/RyRecords.inc"
    }
    {
      namespace Ns = rye;
      constexpr const char* kNs = "rye";
#include "compiler/arch_spec/gen/RyeRecords.inc"
    }
#undef ZU_SPEC_RECORD_ENTRY
    return all;
  }();
  return classes;
}

// The twelve records that a caller constructs, one per tile and generation.
inline std::vector<RecordClass> TopLevelRecordClasses() {
  std::vector<RecordClass> tiles;
  for (const RecordClass& c : AllRecordClasses()) {
    if (c.top_level) tiles.push_back(c);
  }
  return tiles;
}

}  // namespace zu::spec::catalog
