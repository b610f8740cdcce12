// ArchSpec: the one process-wide description of the chosen chip generation.
//
//   zu::spec::ArchSpec::set_arch(zu::spec::ArchVersion::parse("mk43"));
//   const zu::spec::ArchConstants* constants = zu::spec::arch_constants();
//
// The generation is set once, at start-up, on one thread; ArchSpec::reset() is the only way to
// change it.
#pragma once

#include <memory>

#include "compiler/arch_spec/ArchVersion.h"

namespace zu::spec {

class ArchConstants;
class ArchFeatures;
class ArchConstraints;

class ArchSpec {
 public:
  // The version is ignored: the description's version is the static version_.
  ArchSpec(ArchVersion version, std::unique_ptr<ArchConstants> constants,
           std::unique_ptr<ArchFeatures> features, std::unique_ptr<ArchConstraints> constraints);
  ~ArchSpec();
  ArchSpec(const ArchSpec&) = delete;
  ArchSpec& operator=(const ArchSpec&) = delete;

  // Chooses the generation. Any version is taken the first time; the same version again is
  // harmless; a different one is a fatal check failure.
  static void set_arch(ArchVersion version);
  // The description, built on first use. With no version set it ends the process (exit status 1).
  static ArchSpec* get();
  // Forgets the generation and the description.
  static void reset();
  static bool is_arch_set() { return version_.major != 0; }
  static const ArchVersion& arch() { return version_; }

  const ArchConstants* constants() const { return constants_.get(); }
  const ArchFeatures* features() const { return features_.get(); }
  const ArchConstraints* constraints() const { return constraints_.get(); }

 private:
  std::unique_ptr<ArchConstants> constants_;
  std::unique_ptr<ArchFeatures> features_;
  std::unique_ptr<ArchConstraints> constraints_;

  static ArchVersion version_;
  static std::unique_ptr<ArchSpec> arch_spec_;
};

// Each of these builds the description first if needed (and so may end the process).
const ArchVersion& arch_version();
const ArchConstants* arch_constants();
const ArchFeatures* arch_features();
const ArchConstraints* arch_constraints();

}  // namespace zu::spec
