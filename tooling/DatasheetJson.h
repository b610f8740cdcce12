// The JSON of an enumeration type's answer (Datasheet.h), for the faces built with the project:
// not installed, as the installed headers need no JSON library.
#pragma once

#include <nlohmann/json.hpp>

#include "Datasheet.h"

namespace archspec {

// {"name", "kind": "enumeration type", "generation", "names": [{"name", "code", "inferred"}],
// "fields": {tile: [{"path", "leaves"}]}}: what `get --json` and Python give of a type.
nlohmann::json EnumerationJson(const zu::spec::ArchVersion& version,
                               const EnumerationAnswer& answer);

}  // namespace archspec
