// Arbitrary text given as a generation's name: expect_parse never crashes, and always ends in one
// of its three refusals or a selectable generation, with the error text untouched on success.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "compiler/arch_spec/ArchVersion.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using zu::spec::ArchVersion;
  const std::string name(reinterpret_cast<const char*>(data), size);
  std::string error = "unchanged";
  const ArchVersion version = ArchVersion::expect_parse(name, error);
  if (version.major != 0) {
    if (!version.validate() || error != "unchanged") std::abort();
    return 0;
  }
  const bool refused =
      error == "Can't determine target architecture version. Did you forget to specify --arch?" ||
      error.rfind("Architecture autodetection is not supported.", 0) == 0 ||
      error == "Invalid architecture version in --arch: \"" + name + "\"";
  if (!refused) std::abort();
  return 0;
}
