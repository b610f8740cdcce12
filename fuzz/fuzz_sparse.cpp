// Arbitrary text read as a sparse listing of a PCU of mk43: every input ends in a configuration or
// in errors that say what is wrong and where, never in a crash; and a configuration that was read
// writes a canonical listing that reads back to the same values and bits.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "Accessors.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchSpec.h"

namespace {

archspec::TileRecord& Pcu() {
  static const std::unique_ptr<archspec::TileRecord> tile = [] {
    zu::spec::ArchSpec::set_arch(zu::spec::ArchVersion::v3_0_0);
    return archspec::TileRecord::Create(zu::spec::ArchVersion::v3_0_0,
                                        *archspec::FindTileType("pcu"));
  }();
  return *tile;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  archspec::TileRecord& tile = Pcu();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const archspec::SparseResult read =
      archspec::ReadSparse(text, tile.layout(), archspec::ResolveEnumerant);
  if (!read.ok()) {
    for (const archspec::Diagnostic& error : read.errors) {
      if (error.message.empty()) std::abort();
    }
    return 0;
  }
  const std::string canonical = archspec::WriteSparse(tile.layout(), read.values);
  const archspec::SparseResult again =
      archspec::ReadSparse(canonical, tile.layout(), archspec::ResolveEnumerant);
  if (!again.ok() || again.values != read.values) std::abort();
  if (tile.ReadBits(tile.WriteBits(read.values)) != read.values) std::abort();
  return 0;
}
