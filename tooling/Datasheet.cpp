#include "Datasheet.h"

#include <cctype>
#include <cstdio>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "AccessorsJson.h"
#include "Configuration.h"
#include "DatasheetJson.h"
#include "FieldTypes.h"
#include "Units.h"

namespace archspec {

using zu::spec::ArchVersion;

namespace {

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// Whether the set at `pattern[at]` (just after '[') holds `c`; `at` moves past its ']'. A set
// without its ']' is taken as the character '[' itself.
bool InSet(std::string_view pattern, size_t& at, char c, bool& well_formed) {
  size_t i = at;
  const bool negated = i < pattern.size() && (pattern[i] == '!' || pattern[i] == '^');
  if (negated) ++i;
  bool found = false;
  bool first = true;
  for (; i < pattern.size() && (first || pattern[i] != ']'); first = false) {
    char low = Lower(pattern[i]);
    char high = low;
    if (i + 2 < pattern.size() && pattern[i + 1] == '-' && pattern[i + 2] != ']') {
      high = Lower(pattern[i + 2]);
      i += 3;
    } else {
      ++i;
    }
    if (low <= Lower(c) && Lower(c) <= high) found = true;
  }
  well_formed = i < pattern.size();
  if (!well_formed) return c == '[';
  at = i + 1;
  return found != negated;
}

bool Glob(std::string_view name, std::string_view pattern) {
  // The classic backtracking walk: on a mismatch, the last '*' takes one character more.
  size_t n = 0, p = 0, star = std::string_view::npos, resume = 0;
  while (n < name.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      resume = n;
      continue;
    }
    if (p < pattern.size()) {
      size_t next = p + 1;
      bool matched = false;
      if (pattern[p] == '?') {
        matched = true;
      } else if (pattern[p] == '[') {
        bool well_formed = true;
        size_t at = p + 1;
        matched = InSet(pattern, at, name[n], well_formed);
        if (well_formed) next = at;
      } else {
        matched = Lower(pattern[p]) == Lower(name[n]);
      }
      if (matched) {
        p = next;
        ++n;
        continue;
      }
    }
    if (star == std::string_view::npos) return false;
    p = star + 1;
    n = ++resume;
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

std::vector<std::string_view> Words(std::string_view text) {
  std::vector<std::string_view> words;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '_') {
      if (i > start) words.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  return words;
}

bool SameWord(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

// "simd_structIn[0][4].stage_opcode" as "simd_structIn[][].stage_opcode".
std::string Template(std::string_view path) {
  std::string out;
  bool in_index = false;
  for (char c : path) {
    if (c == '[') in_index = true;
    if (c == ']') in_index = false;
    if (!in_index || c == '[') out += c;
  }
  return out;
}

// The templates of `paths`, in the order of their first path, with their counts.
std::vector<FieldTemplate> Templates(const std::vector<std::string>& paths) {
  std::vector<FieldTemplate> out;
  std::unordered_map<std::string, size_t> index;
  for (const std::string& path : paths) {
    std::string key = Template(path);
    const auto [at, added] = index.emplace(key, out.size());
    if (added) out.push_back({std::move(key), 0});
    ++out[at->second].leaves;
  }
  return out;
}

std::string LeavesText(size_t n) { return std::to_string(n) + (n == 1 ? " leaf" : " leaves"); }

// The last member name of a path, without its indices: "stage_opcode".
std::string_view MemberName(std::string_view path) {
  const size_t dot = path.rfind('.');
  std::string_view last = dot == std::string_view::npos ? path : path.substr(dot + 1);
  return last.substr(0, last.find('['));
}

}  // namespace

bool NameMatches(std::string_view name, std::string_view pattern) {
  if (pattern.empty()) return true;
  if (pattern.find_first_of("*?[") != std::string_view::npos) return Glob(name, pattern);
  const std::vector<std::string_view> wanted = Words(pattern);
  const std::vector<std::string_view> words = Words(name);
  if (wanted.empty()) return true;  // a pattern of underscores only
  for (size_t start = 0; start + wanted.size() <= words.size(); ++start) {
    size_t k = 0;
    while (k < wanted.size() && SameWord(words[start + k], wanted[k])) ++k;
    if (k == wanted.size()) return true;
  }
  return false;
}

std::optional<EnumerationAnswer> AnswerEnumeration(const ArchVersion& version,
                                                   std::string_view type) {
  const Enumerations* enumerations = Enumerations::Of(version);
  const Enumeration* found = enumerations == nullptr ? nullptr : enumerations->Find(type);
  if (found == nullptr) return std::nullopt;
  EnumerationAnswer answer{found, {}};
  for (auto& [tile, paths] : FieldsOfType(version, type)) {
    answer.takers.push_back({tile, Templates(paths)});
  }
  return answer;
}

std::string EnumerationText(const ArchVersion& version, const EnumerationAnswer& answer) {
  const std::vector<EnumName>& names = answer.type->names();
  std::string out = std::string(answer.type->name()) + ": enumeration type, " +
                    std::to_string(names.size()) + (names.size() == 1 ? " name" : " names") +
                    " on " + GenerationLabel(version) + "\n";
  for (const EnumName& name : names) {
    out += "  " + std::string(name.name) + " = " + std::to_string(name.code);
    out += name.inferred ? "  # inferred\n" : "\n";
  }
  bool taken = false;
  for (const TileFields& tile : answer.takers) {
    if (tile.fields.empty()) continue;
    taken = true;
    out += std::string("taken by ") + tile.tile->name + ":";
    for (size_t i = 0; i < tile.fields.size(); ++i) {
      out += (i == 0 ? " " : ", ") + tile.fields[i].path + " (" +
             LeavesText(tile.fields[i].leaves) + ")";
    }
    out += "\n";
  }
  if (!taken) out += "taken by no field of a tile\n";
  return out;
}

std::string WhatNameIs(const ArchVersion& version, std::string_view name) {
  if (name.empty()) return "";
  const std::string label = GenerationLabel(version);
  if (const TileType* tile = FindTileType(name); tile != nullptr && name == tile->name) {
    return std::string(name) + " names a tile, not an accessor";
  }
  for (const EnumTypeRow& row : EnumTypeRows()) {
    if (name == row.name) {
      return std::string(name) + " is an enumeration type that " + label + " answers no name of";
    }
  }
  // A field: a leaf's or a branch's path, its template, or the member name it ends in.
  std::string found;
  size_t more = 0;
  for (const TileType& tile : TileTypes()) {
    const std::optional<Configuration> zero = Configuration::Zero(version, tile);
    if (!zero.has_value()) return "";
    std::vector<std::string> matches;
    const auto consider = [&](std::string_view path) {
      const std::string shape = Template(path);
      if (path != name && shape != name && MemberName(path) != name) return;
      for (const std::string& seen : matches) {
        if (seen == shape) return;
      }
      matches.push_back(shape);
    };
    for (const Leaf& leaf : zero->layout().leaves()) consider(leaf.path);
    for (const auto& [path, branch] : zero->layout().branches()) {
      if (!path.empty()) consider(path);
    }
    if (matches.empty()) continue;
    if (!found.empty()) {
      ++more;
      continue;
    }
    found =
        std::string(name) + " names a field of " + tile.name + " on " + label + " (" + matches[0];
    if (matches.size() > 1) found += " and " + std::to_string(matches.size() - 1) + " more";
    found += ")";
  }
  if (found.empty()) return "";
  if (more > 0)
    found += " and of " + std::to_string(more) + (more == 1 ? " other tile" : " other tiles");
  return found + ", not an accessor";
}

using nlohmann::json;

nlohmann::json EnumerationJson(const zu::spec::ArchVersion& version,
                               const EnumerationAnswer& answer) {
  json names = json::array();
  for (const EnumName& name : answer.type->names()) {
    names.push_back({{"name", name.name}, {"code", name.code}, {"inferred", name.inferred}});
  }
  json fields = json::object();
  for (const TileFields& tile : answer.takers) {
    json paths = json::array();
    for (const FieldTemplate& field : tile.fields) {
      paths.push_back({{"path", field.path}, {"leaves", field.leaves}});
    }
    fields[tile.tile->name] = std::move(paths);
  }
  return {{"name", answer.type->name()},
          {"kind", "enumeration type"},
          {"generation", GenerationLabel(version)},
          {"names", std::move(names)},
          {"fields", std::move(fields)}};
}

// Parameters and units -------------------------------------------------------------------------

const ParameterRow* FindParameter(std::string_view name) {
  static const std::unordered_map<std::string_view, const ParameterRow*> index = [] {
    std::unordered_map<std::string_view, const ParameterRow*> map;
    for (const ParameterRow& row : ParameterRows()) map.emplace(row.name, &row);
    return map;
  }();
  const auto found = index.find(name);
  return found == index.end() ? nullptr : found->second;
}

std::optional<DerivedFigure> DeriveFigure(const ParameterRow& row, double value) {
  if (std::string_view(row.derived) != "clock" || !(value > 0)) return std::nullopt;
  const double hertz = 1 / value;
  char text[64];
  if (hertz >= 1e9) {
    std::snprintf(text, sizeof text, "%.4g GHz", hertz / 1e9);
  } else {
    std::snprintf(text, sizeof text, "%.4g MHz", hertz / 1e6);
  }
  return DerivedFigure{"clock frequency", hertz, "hertz", text};
}

std::string UnitNote(const ParameterRow& row, std::optional<double> value) {
  std::string note = *row.unit != '\0' ? row.unit : row.quantity;
  if (value.has_value()) {
    if (const std::optional<DerivedFigure> figure = DeriveFigure(row, *value)) {
      note += "; " + figure->name + " " + figure->text;
    }
  }
  return note;
}

std::string AnswerNote(const Accessor& accessor, const Answers& answers) {
  const ParameterRow* row =
      accessor.kind == AccessorKind::kScalar ? FindParameter(accessor.name) : nullptr;
  if (row == nullptr || *row->quantity == '\0') return "";
  const nlohmann::json value = ReadAccessor(accessor, answers);
  return UnitNote(*row,
                  value.is_number() ? std::optional<double>(value.get<double>()) : std::nullopt);
}

}  // namespace archspec
