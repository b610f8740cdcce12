#include "compiler/arch_spec/ArchSpec.h"

#include <cstdlib>
#include <tuple>

#include "compiler/arch_spec/Logging.h"
#include "compiler/arch_spec/gen/ArchConstants.h"

namespace zu::spec {

namespace {

// The description of one generation: its constants, features and constraints objects.
template <class Constants, class Features, class Constraints>
std::unique_ptr<ArchSpec> Describe(const ArchVersion& version) {
  return std::make_unique<ArchSpec>(version, std::make_unique<Constants>(),
                                    std::make_unique<Features>(), std::make_unique<Constraints>());
}

}  // namespace

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
  if (version == version_) return;
  zu::log->check_fail(
      "check-fail", std::tuple<>(),
      "Can't set architecture version to {} because it is already initialized to {}",
      std::make_tuple(zu::quoted(requested), zu::quoted(current)));
}

ArchSpec* ArchSpec::get() {
  if (arch_spec_ != nullptr) return arch_spec_.get();
  if (version_.major == 0) {
    // Nothing was chosen: the autodetection path refuses, logs and exits with status 1.
    version_ = ArchVersion::parse("native");
  }
  if (version_.major == 4) {
    arch_spec_ = Describe<RyeConstants, RyeFeatures, RyeConstraints>(version_);
  } else if (version_.major == 3) {
    arch_spec_ = Describe<RyConstants, RyFeatures, RyConstraints>(version_);
  } else if (version_.major == 2 && version_.minor == 0) {
    arch_spec_ = Describe<KoConstants, KoFeatures, KoConstraints>(version_);
  } else if (version_.major == 2 && version_.minor == 1) {
    arch_spec_ = Describe<UkoConstants, UkoFeatures, UkoConstraints>(version_);
  } else if (version_.major == 2) {
    return nullptr;  // no such sub-generation: nothing is built, nothing is said
  } else {
    const std::string version = version_.to_string();
    (*zu::log)(zu::Logger::Level::fatal)
        .message("BUG: Invalid architecture version in {}", zu::quoted(version));
    return nullptr;
  }
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
