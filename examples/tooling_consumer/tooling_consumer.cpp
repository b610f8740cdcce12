// Programs a PCU of a generation by names (an opcode by its enumerant, a number by its path),
// writes its sparse listing to a file and reads it back, through the installed tooling layer only:
//   tooling_consumer GENERATION LISTING
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "compiler/arch_spec/ArchVersion.h"
#include "tooling/Diagnostic.h"
#include "tooling/Files.h"
#include "tooling/Names.h"
#include "tooling/Sparse.h"
#include "tooling/Tile.h"

namespace {

// Stores `value` (a number, or an enumerant's name checked against the leaf's type) at `path`.
bool Set(const archspec::Naming& names, std::vector<uint64_t>& values, const std::string& path,
         const std::string& value) {
  const std::optional<size_t> leaf = names.layout().Find(path);
  if (!leaf.has_value()) {
    std::fprintf(stderr, "%s\n", names.layout().NotALeaf(path, true).c_str());
    return false;
  }
  uint64_t number = 0;
  const auto [end, failed] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (failed == std::errc() && end == value.data() + value.size()) {
    const uint32_t width = names.layout().leaves()[*leaf].width;
    if (number > archspec::MaxValue(width)) {
      std::fprintf(stderr, "%s does not fit in the %u bits of %s\n", value.c_str(), width,
                   path.c_str());
      return false;
    }
    values[*leaf] = number;
    return true;
  }
  const archspec::NamedValue code = names.Resolve(*leaf, value);
  if (!code.value.has_value()) {
    std::printf("%s = %s refused\n", path.c_str(), value.c_str());
    return false;
  }
  values[*leaf] = *code.value;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: tooling_consumer GENERATION LISTING\n");
    return 2;
  }
  std::string error;
  const zu::spec::ArchVersion version = zu::spec::ArchVersion::expect_parse(argv[1], error);
  if (version.major == 0) {
    std::fprintf(stderr, "%s; the generations are %s\n", error.c_str(),
                 archspec::ProductNames().c_str());
    return 2;
  }
  const std::unique_ptr<archspec::TileRecord> tile =
      archspec::TileRecord::Create(version, *archspec::FindTileType("pcu"));
  if (tile == nullptr) {
    std::fprintf(stderr, "%s has no tile records\n", archspec::GenerationLabel(version).c_str());
    return 1;
  }
  const archspec::Naming* naming = archspec::Naming::Of(*tile);
  if (naming == nullptr) {
    std::fprintf(stderr, "%s answers no names\n", archspec::GenerationLabel(version).c_str());
    return 1;
  }
  const archspec::Naming& names = *naming;
  std::vector<uint64_t> values(tile->layout().leaves().size());
  // An opcode by its name and a count by number; a number format's name is no opcode.
  if (!Set(names, values, "simd_structIn[0][0].stage_opcode", "stage_opcode_alu_op_max")) return 1;
  if (Set(names, values, "simd_structIn[0][1].stage_opcode", "alu_format_enum_fp32")) return 1;
  if (!Set(names, values, "common_structIn.udc_init_value[0]", "100")) return 1;

  const std::string listing =
      archspec::WriteSparse(tile->layout(), values, {tile->ListingHeaderLine()}, false, &names);
  if (const std::optional<std::string> failed = archspec::WriteFileWhole(argv[2], listing)) {
    std::fprintf(stderr, "%s\n", failed->c_str());
    return 1;
  }
  std::printf("%s", listing.c_str());

  const archspec::InputResult input = archspec::ReadInput(argv[2], archspec::kListingLimit);
  if (!input.ok()) {
    std::fprintf(stderr, "%s\n", input.error.c_str());
    return 1;
  }
  const archspec::SparseResult read =
      archspec::ReadSparse(input.data, tile->layout(), names.Resolver());
  for (const archspec::Diagnostic& diagnostic : read.errors) {
    std::fprintf(stderr, "%s\n", archspec::FormatDiagnostic(argv[2], diagnostic).c_str());
  }
  if (!read.ok() || archspec::CheckListingHeader(read.header, argv[1], "pcu").has_value()) return 1;
  std::printf("read back: %s\n", read.values == values ? "the same configuration" : "another one");
  return read.values == values ? 0 : 1;
}
