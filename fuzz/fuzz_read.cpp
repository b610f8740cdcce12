// Arbitrary bytes read as a configuration of any form, the form told from what they hold, as the
// tool, the Python package and the decoder page read a file: told as bits, packed bytes, a
// listing or JSON, the read ends in a configuration or in complaints, each with a message that
// echoes input without a raw control byte; a configuration read writes its JSON and its listing,
// which read back to the same values. The first byte chooses whether the caller names the tile
// (mk44's PCU) or leaves it to the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Configuration.h"
#include "fuzz_tiles.h"

using namespace archspec;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  ReadRequest request;
  request.limits.max_hints = 0;  // a hint searches thousands of names: fuzzed elsewhere
  if (data[0] % 2 == 0) {
    request.generation = "mk44";
    request.tile = "pcu";
  }
  const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  const ReadResult read = Configuration::Read(input, request);
  for (const Diagnostic& error : read.errors) {
    fuzzing::RequireClean(error.message);
  }
  if (!read.ok()) return 0;
  const Configuration& configuration = *read.configuration;
  for (const std::string& written : {configuration.ToJson(), configuration.ToListing()}) {
    ReadRequest again;
    again.limits.max_hints = 0;
    const ReadResult back = Configuration::Read(written, again);
    if (!back.ok() || !(*back.configuration == configuration)) std::abort();
  }
  return 0;
}
