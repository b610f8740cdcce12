#include "PortJson.h"

#include <utility>

#include "ConfigurationJson.h"

namespace archspec {

using nlohmann::json;

namespace {

json Entries(const std::vector<PortEntry>& entries) {
  json out = json::array();
  for (const PortEntry& entry : entries) {
    out.push_back({{"path", entry.path},
                   {"reason", PortReasonName(entry.reason)},
                   {"value", Hex(entry.value)},
                   {"text", entry.text}});
  }
  return out;
}

}  // namespace

json PortReportToJson(const Configuration& from, const Configuration& to,
                      const PortReport& report) {
  json review = json::array();
  for (const PortReview& row : report.review) review.push_back(LeafToJson(to, row.leaf, false));
  return json{{"from", from.version().to_product_name_string()},
              {"to", to.version().to_product_name_string()},
              {"tile", to.tile().name},
              {"exact", report.exact()},
              {"lost", Entries(report.lost)},
              {"notes", Entries(report.notes)},
              {"review", std::move(review)}};
}

json CrossComparisonToJson(const Configuration& a, const Configuration& b,
                           const std::vector<CrossChange>& changes, std::string_view a_name,
                           std::string_view b_name, bool codes) {
  json differences = json::array();
  for (const CrossChange& change : changes) {
    json row{{"path", change.b ? b.layout().leaves()[*change.b].path
                               : a.layout().leaves()[*change.a].path}};
    if (change.a) row["a"] = LeafToJson(a, *change.a, codes);
    if (change.b) row["b"] = LeafToJson(b, *change.b, codes);
    differences.push_back(std::move(row));
  }
  return json{{"a_arch", a.version().to_product_name_string()},
              {"b_arch", b.version().to_product_name_string()},
              {"tile", b.tile().name},
              {"a", a_name},
              {"b", b_name},
              {"differing", changes.size()},
              {"differences", std::move(differences)}};
}

}  // namespace archspec
