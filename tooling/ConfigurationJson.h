// The JSON of configurations, layouts, comparisons and findings: written in one place for the
// tool and the decoder page (and taken apart into the Python package's dicts), and the reading of
// a configuration's JSON back. Not installed: the installed headers need no JSON library, and a
// program outside the project writes and reads JSON through Configuration (ToJson, Read).
//
// Values are strings of 0x hexadecimal: a JSON number loses precision above 2^53 in most readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "Configuration.h"
#include "Writes.h"

namespace archspec {

// {"arch", "tile", "record", "bits"}: the head of every JSON document about a configuration.
nlohmann::json ConfigurationHead(const Configuration& configuration);
// {"path", "offset", "width", "value", "type"?, "name"?} of leaf `leaf`; the name where the
// value has one and `codes` is false.
nlohmann::json LeafToJson(const Configuration& configuration, size_t leaf, bool codes);
// The head and "leaves": the non-zero leaves, or with `all` every leaf, in bit order.
nlohmann::json ConfigurationToJson(const Configuration& configuration, bool all, bool codes);
// [{register, name, word ("whole", "low", "high"), bits ([first, last] of the word in the tile's
// bit string), link ("stated", "inferred"), inferred_number?}]: the run-time registers that write
// a leaf, its low word first.
nlohmann::json RuntimeToJson(const Leaf& leaf);
// {"arch", "tile", "record", "bits", "leaves": [{path, name, parent, offset, width, reg_lo,
// reg_hi?, registers, runtime?, type?}], "branches": [{path, name, parent?, offset, bits,
// registers, elements?}]}: the layout of a configuration's tile, branches before what they hold.
nlohmann::json LayoutToJson(const Configuration& configuration);
// The head, the inputs' names, "leaf_count", "differing" and "differences": [{path, offset,
// width, registers, runtime (null where no run-time register writes the leaf), a, b, type?,
// a_name?, b_name?}].
nlohmann::json ComparisonToJson(const Configuration& a, const Configuration& b,
                                const std::vector<LeafChange>& changes, std::string_view a_name,
                                std::string_view b_name, bool codes);
// The head, the input's name as "file", "findings": [{path, offset, width, value, type, nearest:
// [{name, code}]}], and "inferred": [{path, offset, width, value, type, name}] of the leaves that
// hold a code the tables infer (Configuration::InferredCodes).
nlohmann::json FindingsToJson(const Configuration& configuration,
                              const std::vector<Finding>& findings,
                              const std::vector<size_t>& inferred, std::string_view file);

// The head, "id", "base" (or null), "reachable", "writes": [{id, register, name, value, path,
// word, inferred_number?}] and "load": [{path, a, b}] of the register writes between two
// configurations (Writes.h).
nlohmann::json WritesToJson(const Configuration& from, const Configuration& to,
                            const RegisterWrites& writes, const WriteOptions& options);

// One leaf of a configuration's JSON as read: the value as a listing writes it.
struct JsonLeaf {
  std::string path;
  std::string value;  // "0x1a", or a JSON number written in decimal
  std::optional<std::string> name;
  std::optional<uint64_t> offset;
  std::optional<uint64_t> width;
  size_t line = 0;  // where its "path" stands
};

// A configuration's JSON as read, before it meets a tile.
struct JsonConfiguration {
  std::optional<ListingHeader> names;  // "arch" and "tile"
  size_t names_line = 1;               // where "arch" stands
  std::optional<std::string> record;
  std::optional<uint64_t> bits;
  std::vector<JsonLeaf> leaves;
  std::vector<Diagnostic> errors;  // a fault of syntax or shape; the rest is not read then
};

// Reads the JSON that ConfigurationToJson writes, in one pass over the text. JSON of a comparison,
// a layout or findings is refused with what it is.
JsonConfiguration ReadJsonConfiguration(std::string_view text);

}  // namespace archspec
