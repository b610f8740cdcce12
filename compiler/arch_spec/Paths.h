// The paths of constructs, as Name() gives them: "pmu.PMU_shared.orMask0[3]". A record's field is
// its name after a '.', an element of an array its index in brackets right behind the array's
// name ("[row][column]" for an array of rows). An array has no name of its own in the table of
// field locations: its elements carry it. These routines are the one place that writes the form;
// everything that builds a path, here and above, goes through them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zu::spec {

// Appends "[index]".
void AppendIndex(std::string& path, size_t index);

// `array` followed by "[index]".
std::string ElementName(std::string_view array, size_t index);
// `array` followed by "[row][column]".
std::string ElementName(std::string_view array, size_t row, size_t column);

// Appends the construct named `name` in the table to the path of its parent: after a '.' if the
// path has something before it. An empty name (an array's own) adds nothing.
void AppendStep(std::string& path, std::string_view name);

}  // namespace zu::spec
