// Arbitrary bytes read as a list of run-time register writes, as `archspec apply` and Python's
// apply() read one: told as text, JSON or 12-byte records (the first byte chooses the tile of mk44
// and whether the bytes are forced to be records, and with or without a base), then applied to a
// configuration of the tile. A refused list changes nothing, and its complaints echo input
// without a raw control byte; an applied one changes only leaves that run-time registers write,
// and the writes from the configuration before to the one after, applied again, give it back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "Configuration.h"
#include "RecordCatalog.h"
#include "Writes.h"
#include "fuzz_tiles.h"

using namespace archspec;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const zu::spec::ArchVersion mk44 = *FindGeneration("mk44");
  const TileType& tile = TileTypes()[data[0] % TileTypes().size()];
  const bool binary = (data[0] >> 2) & 1;
  const std::optional<uint32_t> base =
      (data[0] >> 3) & 1 ? std::optional<uint32_t>(0x400) : std::nullopt;
  const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  const Configuration before = *Configuration::Zero(mk44, tile);
  Configuration after = before;
  const WritesInput read = ReadWrites(input, before, binary);
  std::vector<Diagnostic> errors = read.errors;
  if (errors.empty()) errors = ApplyWrites(after, read.writes, base);
  for (const Diagnostic& error : errors) {
    fuzzing::RequireClean(error.message);
  }
  if (!errors.empty()) {
    if (!(after == before)) std::abort();
    return 0;
  }
  for (const LeafChange& change : before.Compare(after)) {
    if (!before.layout().leaves()[change.leaf].runtime()) std::abort();
  }
  const RegisterWrites writes = WritesBetween(before, after, {0, base});
  if (!writes.reachable()) std::abort();
  Configuration again = before;
  const WritesInput back = ReadWrites(WritesText(before, writes, {0, base}), before);
  if (!back.errors.empty() || !ApplyWrites(again, back.writes, base).empty() || !(again == after))
    std::abort();
  return 0;
}
