// The parent's program: a generation chosen through the library, and a PCU's layout found through
// the tooling layer, so that the link needs both.
#include <cstdio>
#include <memory>
#include <string>

#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/ArchVersion.h"
#include "compiler/arch_spec/gen/ArchConstants.h"
#include "tooling/Tile.h"

int main() {
  std::string error;
  const zu::spec::ArchVersion version = zu::spec::ArchVersion::expect_parse("mk43", error);
  if (version.major == 0) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  zu::spec::ArchSpec::set_arch(version);
  const std::unique_ptr<archspec::TileRecord> pcu =
      archspec::TileRecord::Create(version, *archspec::FindTileType("pcu"));
  if (pcu == nullptr) return 1;
  std::printf(
      "%s: a PCU of %zu leaves, stage opcode max %llu\n",
      archspec::GenerationLabel(version).c_str(), pcu->layout().leaves().size(),
      static_cast<unsigned long long>(zu::spec::arch_constants()->stage_opcode_alu_op_max()));
  return 0;
}
