// A tile's values through its listings, and check.
//
// The first byte picks one of the twelve tile records (of the first generation with those
// records); the other bytes become its leaf values, cut to each leaf's width. The listing written
// with names must read back to the same values: every value a name stands for to its code, the
// others as written; so must the listing with codes, and the listing of a change, applied to
// another configuration, must give this one. check must report exactly the typed leaves whose
// values are not zero and no code of their type.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Delta.h"
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
  const archspec::SparseResult listing = archspec::ReadSparse(
      archspec::WriteSparse(layout, values, {tile.ListingHeaderLine()}), layout, nullptr);
  if (!listing.ok() || listing.values != values) std::abort();

  // Another configuration, every sixteenth leaf from one the input picks holding the complement
  // of its value: the listing of the change from it, zeros included, patches it into this one.
  std::vector<uint64_t> other = values;
  for (size_t i = data[0] % 16; i < other.size(); i += 16) {
    other[i] = ~values[i] & archspec::MaxValue(layout.leaves()[i].width);
  }
  const archspec::SparseResult change = archspec::ReadSparse(
      archspec::WriteDelta(layout, archspec::CompareConfigurations(other, values)), layout,
      nullptr);
  if (!change.ok() || archspec::ApplyDelta(other, change) != values) std::abort();
  size_t unnamed = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    unnamed += names.TypeOf(i) != nullptr && values[i] != 0 && names.NamesOf(i, values[i]).empty();
  }
  if (names.Check(values).size() != unnamed) std::abort();
  return 0;
}
