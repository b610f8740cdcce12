// Answers that read like a datasheet: which names a pattern selects, an enumeration type as one
// generation answers it (its names and codes, and the fields that take it), and what a name that
// is no accessor names instead, for the tool and the Python package to show alike.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Names.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {

// Whether `pattern` selects `name`, in any case. A pattern holding '*', '?' or '[' is a glob
// matched against the whole name ('*' any text, '?' one character, "[a-z]" and "[!0-9]" one of
// or none of a set); any other pattern is a run of '_'-separated words that the name holds as
// whole consecutive words ("num_pcu" selects "pcu_num_pcus_x" only if it has the words "num" and
// "pcu" side by side, never "pcu_enum_pcu"). An empty pattern selects every name.
bool NameMatches(std::string_view name, std::string_view pattern);

// The leaves of one tile that take a type, as path templates: "simd_structIn[][].stage_opcode"
// with the number of leaves it stands for.
struct FieldTemplate {
  std::string path;
  size_t leaves = 0;
};
struct TileFields {
  const TileType* tile = nullptr;
  std::vector<FieldTemplate> fields;  // in bit order of their first leaf
};

// One enumeration type as one generation answers it.
struct EnumerationAnswer {
  const Enumeration* type = nullptr;  // its names, by code, with inferred codes marked
  std::vector<TileFields> takers;     // every tile, in the tiles' order; fields may be empty
};
// The answer for `type` on `version`; empty for a generation that answers no name of it.
std::optional<EnumerationAnswer> AnswerEnumeration(const zu::spec::ArchVersion& version,
                                                   std::string_view type);
// The answer as `get` writes it:
//   stage_opcode_t: enumeration type, 27 names on mk44 (rye)
//     stage_opcode_alu_op_madd = 0
//     ...
//     pcu_udcxbar_enum_x = 64  # inferred
//   taken by pcu: simd_structIn[][].stage_opcode (80 leaves)
std::string EnumerationText(const zu::spec::ArchVersion& version, const EnumerationAnswer& answer);

// What `name`, which is no accessor, names on `version`, as a complaint says it: "pcu names a
// tile, not an accessor", "stage_opcode names a field of pcu (simd_structIn[][].stage_opcode), not
// an accessor", an enumeration type the generation answers no name of; empty where it names none
// of these.
std::string WhatNameIs(const zu::spec::ArchVersion& version, std::string_view name);

// What a listing writes after an answered accessor's value (Units.h): "bits", "seconds; clock
// frequency 1.8 GHz"; empty for an accessor that is no parameter or one without a quantity.
std::string AnswerNote(const Accessor& accessor, const Answers& answers);

}  // namespace archspec
