// The JSON of a port's report and of a comparison across generations, for the tool and the Python
// package. Not installed: JSON is the faces' business.
#pragma once

#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "Configuration.h"
#include "Port.h"

namespace archspec {

// {"from", "to", "tile", "exact", "lost": [{path, reason, value, text}], "notes": [the same],
// "review": [{path, offset, width, value, type, name}]}: `from` the source, `to` the port.
nlohmann::json PortReportToJson(const Configuration& from, const Configuration& to,
                                const PortReport& report);

// {"a_arch", "b_arch", "tile", "a", "b", "differing", "differences": [{path, a?, b?}]}, where
// `a` and `b` are the leaves as LeafToJson writes them, the side that lacks the path left out:
// the paths that differ in meaning between two configurations of one tile of any generations.
nlohmann::json CrossComparisonToJson(const Configuration& a, const Configuration& b,
                                     const std::vector<CrossChange>& changes,
                                     std::string_view a_name, std::string_view b_name, bool codes);

}  // namespace archspec
