// A tile's values through the listing with names, and check.
//
// The first byte picks one of the twelve tile records (of the first generation with those
// records); the other bytes become its leaf values, cut to each leaf's width. The listing written
// with names must read back to the same values: every value a name stands for to its code, the
// others as written. check must report exactly the typed leaves whose values are not zero and no
// code of their type.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Names.h"
#include "Sparse.h"
#include "Tile.h"
#include "fuzz_tiles.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  archspec::TileRecord& tile =
      archspec::fuzzing::TileOf(data[0] % archspec::fuzzing::Tiles().size());
  const archspec::Layout& layout = tile.layout();
  const std::vector<uint64_t> values = archspec::fuzzing::ValuesOf(layout, data + 1, size - 1);

  const archspec::Naming& names = *archspec::Naming::Of(tile);
  const archspec::SparseResult named = archspec::ReadSparse(
      archspec::WriteSparse(layout, values, {tile.ListingHeaderLine()}, false, &names), layout,
      names.Resolver());
  if (!named.ok() || named.values != values) std::abort();
  size_t unnamed = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    unnamed += names.TypeOf(i) != nullptr && values[i] != 0 && names.NamesOf(i, values[i]).empty();
  }
  if (names.Check(values).size() != unnamed) std::abort();
  return 0;
}
