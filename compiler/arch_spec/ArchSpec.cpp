#include "compiler/arch_spec/ArchSpec.h"

#include <cstdlib>
#include <tuple>

#include "compiler/arch_spec/Logging.h"
#include "compiler/arch_spec/gen/ArchConstants.h"

namespace zu::spec {

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
  std::unique_ptr<ArchConstants> constants;
  std::unique_ptr<ArchFeatures> features;
  std::unique_ptr<ArchConstraints> constraints;
  if (version_.major == 4) {
    constants = std::make_unique<RyeConstants>();
    features = std::make_unique<RyeFeatures>();
    constraints = std::make_unique<RyeConstraints>();
  } else if (version_.major == 3) {
    constants = std::make_unique<RyConstants>();
    features = std::make_unique<RyFeatures>();
    constraints = std::make_unique<RyConstraints>();
  } else if (version_.major == 2) {
    if (version_.minor == 0) {
      constants = std::make_unique<KoConstants>();
      features = std::make_unique<KoFeatures>();
      constraints = std::make_unique<KoConstraints>();
    } else if (version_.minor == 1) {
      constants = std::make_unique<UkoConstants>();
      features = std::make_unique<UkoFeatures>();
      constraints = std::make_unique<UkoConstraints>();
    } else {
      return nullptr;  // no such sub-generation: nothing is built, nothing is said
    }
  } else {
    const std::string version = version_.to_string();
    (*zu::log)(zu::Logger::Level::fatal)
        .message("BUG: Invalid architecture version in {}", zu::quoted(version));
    return nullptr;
  }
  arch_spec_ = std::make_unique<ArchSpec>(version_, std::move(constants), std::move(features),
                                          std::move(constraints));
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
