// The values of accessors as JSON values, for the faces built with the project (the tool's JSON,
// the Python package's objects). Not installed: the installed headers need no JSON library, and
// a program outside the project reads values through ValueText and ValueJson (Accessors.h).
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "Accessors.h"

namespace archspec {

// The value of an answered accessor for the generation set with ArchSpec::set_arch.
nlohmann::json ReadAccessor(const Accessor& accessor);
// The value of an accessor that `answers`' generation answers.
nlohmann::json ReadAccessor(const Accessor& accessor, const Answers& answers);
// The value as ValueText (Accessors.h) writes it.
std::string ValueText(const nlohmann::json& value);

// An accessor's entry for `version`, whose objects are `answers`: {"name", "kind", "type",
// "answered", "value"} (null where unanswered) and, for an enumerant, "inferred" (IsInferred):
// what the faces show of one accessor, written once.
nlohmann::json AccessorEntry(const Accessor& accessor, const zu::spec::ArchVersion& version,
                             const Answers& answers);

}  // namespace archspec
