// Programs a PCU of a generation by names (an opcode by its enumerant, a number by its path),
// writes its sparse listing to a file and reads it back, through the installed tooling layer only:
//   tooling_consumer GENERATION LISTING
#include <cstdio>
#include <optional>
#include <string>

#include "tooling/Configuration.h"
#include "tooling/Diagnostic.h"
#include "tooling/Files.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: tooling_consumer GENERATION LISTING\n");
    return 2;
  }
  const std::optional<zu::spec::ArchVersion> version = archspec::FindGeneration(argv[1]);
  if (!version.has_value()) {
    std::fprintf(stderr, "%s\n", archspec::UnknownGeneration(argv[1]).c_str());
    return 2;
  }
  std::optional<archspec::Configuration> pcu =
      archspec::Configuration::Zero(*version, *archspec::FindTileType("pcu"));
  if (!pcu.has_value()) {
    std::fprintf(stderr, "%s has no tile records\n", archspec::GenerationLabel(*version).c_str());
    return 1;
  }
  // An opcode by its name and a count by number; a number format's name is no opcode.
  const auto set = [&](const char* path, const char* text) {
    const std::optional<std::string> refused = pcu->Set(path, text);
    if (refused.has_value()) std::printf("%s = %s refused\n", path, text);
    return !refused.has_value();
  };
  if (!set("simd_structIn[0][0].stage_opcode", "stage_opcode_alu_op_max")) return 1;
  if (set("simd_structIn[0][1].stage_opcode", "alu_format_enum_fp32")) return 1;
  if (!set("common_structIn.udc_init_value[0]", "100")) return 1;

  const std::string listing = pcu->ToListing();
  if (const std::optional<std::string> failed = archspec::WriteFileWhole(argv[2], listing)) {
    std::fprintf(stderr, "%s\n", failed->c_str());
    return 1;
  }
  std::printf("%s", listing.c_str());

  // Read back as any configuration is read: the form told from the file, the tile named by the
  // listing's header and checked against the generation asked for.
  const archspec::InputResult input = archspec::ReadInput(argv[2], archspec::kConfigurationLimit);
  if (!input.ok()) {
    std::fprintf(stderr, "%s\n", input.error.c_str());
    return 1;
  }
  archspec::ReadRequest request;
  request.generation = argv[1];
  const archspec::ReadResult read = archspec::Configuration::Read(input.data, request);
  for (const archspec::Diagnostic& diagnostic : read.errors) {
    std::fprintf(stderr, "%s\n", archspec::FormatDiagnostic(argv[2], diagnostic).c_str());
  }
  if (!read.ok()) return 1;
  const bool same = *read.configuration == *pcu;
  std::printf("read back: %s\n", same ? "the same configuration" : "another one");
  return same ? 0 : 1;
}
