// The twelve tile records as test parameters: every tile of the first selectable generation of
// each records namespace.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "RecordCatalog.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {

struct TileCase {
  const char* arch;
  const TileType* tile;
};

inline std::string CaseName(const testing::TestParamInfo<TileCase>& info) {
  return std::string(info.param.arch) + "_" + info.param.tile->name;
}

inline std::vector<TileCase> AllTileCases() {
  std::vector<TileCase> cases;
  std::set<std::string> namespaces;
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    if (!row.selectable || !namespaces.insert(row.records).second) continue;
    for (const TileType& tile : TileTypes()) cases.push_back({row.product_name, &tile});
  }
  return cases;
}

}  // namespace archspec
