// Every accessor of the constants, features and constraints classes, by name, with whether the
// selected generation answers it. An unanswered constants accessor ends the process by design, so
// nothing here calls one: the answered flags come from the same table that produced the classes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Sparse.h"
#include "compiler/arch_spec/ArchVersion.h"
#include "compiler/arch_spec/gen/ArchConstants.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {

enum class AccessorKind { kScalar, kEnum, kContainer, kFeature, kConstraint };

// The three answering objects of one generation.
struct Answers {
  const zu::spec::ArchConstants* constants = nullptr;
  const zu::spec::ArchFeatures* features = nullptr;
  const zu::spec::ArchConstraints* constraints = nullptr;
};
// Those of the generation set with ArchSpec::set_arch (which this builds, if need be).
Answers ChosenAnswers();

// A generation's own answering objects, made from its row of the table of generations: so that
// several generations are read side by side in one process, apart from ArchSpec's one choice.
class OwnedAnswers {
 public:
  explicit OwnedAnswers(const zu::spec::GenerationRow& generation);
  const zu::spec::GenerationRow& generation() const { return generation_; }
  Answers answers() const { return {constants_.get(), features_.get(), constraints_.get()}; }

 private:
  const zu::spec::GenerationRow& generation_;
  std::unique_ptr<zu::spec::ArchConstants> constants_;
  std::unique_ptr<zu::spec::ArchFeatures> features_;
  std::unique_ptr<zu::spec::ArchConstraints> constraints_;
};

// "parameter", "enumerant", "container", "feature", "constraint".
const char* KindName(AccessorKind kind);

struct Accessor {
  const char* name;
  const char* type;  // the accessor's return type, as declared
  AccessorKind kind;
  // Constants only: one character per generation with answers, in the order of the table of
  // generations, '1' where it answers.
  const char* answered;
};

// All accessors in interface order: constants (parameters, enumerants, containers), then
// features, then constraints. The functions below take an accessor of this list only.
const std::vector<Accessor>& AllAccessors();
const Accessor* FindAccessor(std::string_view name);
// The accessor most like `name`, among those of `kind` only if `kind_only` is set.
std::string NearestAccessor(std::string_view name, const AccessorKind* kind_only = nullptr);

// The place of the generation that serves `version` among the generations with answers, which is
// its character in `Accessor::answered`; -1 for a generation without answers.
int AnswerColumn(const zu::spec::ArchVersion& version);

// Whether `version` answers `accessor`. Features and constraints always answer: they have defaults.
bool IsAnswered(const Accessor& accessor, const zu::spec::ArchVersion& version);
// Whether the code that `version` answers for the enumerant `accessor` is inferred (a row the
// tables mark "# inferred": a code placed within a span, not stated by the tile's description),
// so that a face shows it as such and a change of it is no known change of the hardware. False for
// a stated code, an unanswered one and any accessor other than an enumerant.
bool IsInferred(const Accessor& accessor, const zu::spec::ArchVersion& version);

// The value of an answered accessor (see IsAnswered: asking an unanswered constants accessor ends
// the process) as one line of text: numbers and booleans as such, "none" for an absent optional,
// containers and aggregates in JSON form ("[4,8]", "{"count":2,...}"). For the generation set with
// ArchSpec::set_arch, or for that whose objects are `answers`.
std::string ValueText(const Accessor& accessor);
std::string ValueText(const Accessor& accessor, const Answers& answers);
// The same value as JSON text: as ValueText, with "null" for an absent optional.
std::string ValueJson(const Accessor& accessor);
std::string ValueJson(const Accessor& accessor, const Answers& answers);

// Resolves enumerant names in sparse listings for the generation set with ArchSpec::set_arch.
NamedValue ResolveEnumerant(std::string_view name);
// The same for the generation `version` whose objects are `answers`.
NamedValue ResolveEnumerantOf(std::string_view name, const zu::spec::ArchVersion& version,
                              const Answers& answers);
// A resolver of the enumerant names of `version` (whose objects are `answers`) for ReadSparse
// that leaves the "did you mean" search to the reader, which runs it for the first few unknown
// names only: a listing with thousands of misspelt names is refused in milliseconds.
NameResolver EnumerantResolver(const zu::spec::ArchVersion& version, const Answers& answers);
// The same for the generation set with ArchSpec::set_arch.
NameResolver EnumerantResolver();

}  // namespace archspec
