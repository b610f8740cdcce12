// Reading and growing the paths of leaves and branches, "simd_structIn[0][4].stage_opcode": the
// library writes them (compiler/arch_spec/Paths.h); everything above it that takes a path apart or
// adds a step to one goes through these, the tool, the Python package and the site (through the
// tool's layout) included.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace archspec {

// The steps of `path`, each a member's name or an index with its brackets:
// "simd_structIn", "[0]", "[4]", "stage_opcode".
std::vector<std::string_view> PathSteps(std::string_view path);

// The path of the member or element `step` ("stage_opcode", or "[4]") of the branch at `path`
// ("" for the tile's record).
std::string JoinPath(std::string_view path, std::string_view step);
// The path of element `index` of the array at `path`.
std::string JoinPath(std::string_view path, size_t index);

// The path of the branch that holds what `path` names, and the last step: {"simd_structIn[0][4]",
// "stage_opcode"}, {"simd_structIn[0]", "[4]"}; {"", path} for a member of the tile's record.
std::pair<std::string_view, std::string_view> SplitLast(std::string_view path);

// The name of the field that a leaf is, without its indices: "stage_opcode" for
// "simd_structIn[0][4].stage_opcode", "orMask0" for "PMU_shared.orMask0[3]".
std::string_view FieldName(std::string_view path);
// The path with its indices left empty, "simd_structIn[][].stage_opcode": what the elements of
// one field of an array have in common.
std::string PathTemplate(std::string_view path);

}  // namespace archspec
