#include "compiler/arch_spec/ArchSpec.h"

#include <cstdlib>

#include "compiler/arch_spec/Logging.h"
#include "compiler/arch_spec/gen/ArchConstants.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace zu::spec {

const GenerationRow* ServingGeneration(const ArchVersion& version) {
  const GenerationRow* only = nullptr;
  int rows_of_major = 0;
  for (const GenerationRow& row : GenerationTable()) {
    if (!row.has_answers() || row.version.major != version.major) continue;
    ++rows_of_major;
    if (row.version.minor == version.minor) return &row;
    only = &row;
  }
  return rows_of_major == 1 ? only : nullptr;
}

ArchVersion ArchSpec::version_;
std::unique_ptr<ArchSpec> ArchSpec::arch_spec_;

ArchSpec::ArchSpec(ArchVersion /*version*/, std::unique_ptr<ArchConstants> constants,
                   std::unique_ptr<ArchFeatures> features,
                   std::unique_ptr<ArchConstraints> constraints)
    : constants_(std::move(constants)),
      features_(std::move(features)),
      constraints_(std::move(constraints)) {}

// Members go in reverse order: constraints, features, constants.
ArchSpec::~ArchSpec() = default;

void ArchSpec::set_arch(ArchVersion version) {
  if (version_.major == 0) {
    version_ = version;
    return;
  }
  const std::string requested = version.to_string();
  const std::string current = version_.to_string();
  check(version == version_,
        "Can't set architecture version to {} because it is already initialized to {}",
        zu::quoted(requested), zu::quoted(current));
}

ArchSpec* ArchSpec::get() {
  if (arch_spec_ != nullptr) return arch_spec_.get();
  if (version_.major == 0) {
    // Nothing was chosen: the autodetection path refuses, logs and exits with status 1.
    version_ = ArchVersion::parse("native");
  }
  const GenerationRow* row = ServingGeneration(version_);
  const auto major_known = [] {
    for (const GenerationRow& known : GenerationTable()) {
      if (known.has_answers() && known.version.major == version_.major) return true;
    }
    return false;
  };
  if (row != nullptr) {
    arch_spec_ = std::make_unique<ArchSpec>(version_, row->make_constants(), row->make_features(),
                                            row->make_constraints());
  } else if (!major_known()) {
    const std::string version = version_.to_string();
    fatal("BUG: Invalid architecture version in {}", zu::quoted(version));
  }
  // A minor that no row of a known major serves: nothing is built, nothing is said.
  return arch_spec_.get();
}

void ArchSpec::reset() {
  version_ = ArchVersion::vUndefined;
  if (arch_spec_ != nullptr) {
    arch_spec_->constants_.reset();
    arch_spec_->features_.reset();
    arch_spec_->constraints_.reset();
    arch_spec_.reset();
  }
}

const ArchVersion& arch_version() {
  ArchSpec::get();
  return ArchSpec::arch();
}

const ArchConstants* arch_constants() { return ArchSpec::get()->constants(); }
const ArchFeatures* arch_features() { return ArchSpec::get()->features(); }
const ArchConstraints* arch_constraints() { return ArchSpec::get()->constraints(); }

}  // namespace zu::spec
