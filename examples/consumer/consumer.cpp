// Chooses a generation by product name, asks the constants interface, and builds one record of that
// generation, through the installed package only.
#include <cstdio>
#include <string>

#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/gen/ArchGenerations.h"
#include "compiler/arch_spec/gen/RyConfig.h"

int main(int argc, char** argv) {
  using namespace zu::spec;
  const std::string name = argc > 1 ? argv[1] : "mk43";
  ArchSpec::set_arch(ArchVersion::parse(name));

  const ArchConstants* constants = arch_constants();
  const bool is_ry = dynamic_cast<const RyConstants*>(constants) != nullptr;
  std::printf("%s is generation %s (%s), served by %s\n", name.c_str(),
              arch_version().to_string().c_str(), arch_version().to_code_name_string().c_str(),
              is_ry ? "RyConstants" : "another class");

  ry::ContextConfiguration context;
  context.instr_ctxt = 2;
  ConfigBuilder builder;
  context.Build(builder);
  std::printf("ContextConfiguration with instr_ctxt = 2 builds to %s\n",
              builder.to_string().c_str());
  return is_ry ? 0 : 1;
}
