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

}  // namespace archspec
