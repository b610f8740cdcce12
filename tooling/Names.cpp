#include "Names.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <tuple>

#include "AccessorsJson.h"
#include "FieldTypes.h"
#include "Nearest.h"
#include "PathForm.h"
#include "RecordOrder.h"
#include "Tile.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {
namespace {

bool EndsWith(std::string_view s, std::string_view end) {
  return s.size() >= end.size() && s.substr(s.size() - end.size()) == end;
}

// A type whose codes all lie below this is found by an indexed load; a larger code (none of the
// tables' has one) by a binary search.
constexpr uint64_t kMaxSlots = 1 << 16;

// Markers name the ends of a range of signals ("udc_gtz_base", "udc_gtz_end") and share their
// codes with the signals at those ends: a signal's own name reads better.
bool IsMarker(std::string_view name) { return EndsWith(name, "_base") || EndsWith(name, "_end"); }

// "a stage_opcode_t", "an alu_format_enum_t".
std::string WithArticle(std::string_view type) {
  const bool vowel = !type.empty() && std::string_view("aeiou").find(type[0]) != std::string::npos;
  return (vowel ? "an " : "a ") + std::string(type);
}

// "fp32" of "alu_format_enum_fp32", an enumerant of "alu_format_enum_t": the name without its
// type's stem (the type less "_t", and "_").
std::string_view Stemless(std::string_view name, std::string_view type) {
  const std::string_view stem = type.substr(0, type.size() - 1);
  if (type.size() > 2 && name.substr(0, stem.size()) == stem) name.remove_prefix(stem.size());
  return name;
}

std::string JoinNames(const std::vector<std::string_view>& names) {
  std::string out;
  for (std::string_view name : names) {
    if (!out.empty()) out += ", ";
    out += name;
  }
  return out;
}

// The accessors whose codes are inferred, with their marks per generation.
const std::unordered_map<std::string_view, const char*>& InferredMarks() {
  static const std::unordered_map<std::string_view, const char*> marks = [] {
    std::unordered_map<std::string_view, const char*> out;
    for (const InferredCodeRow& row : InferredCodeRows()) out.emplace(row.accessor, row.marks);
    return out;
  }();
  return marks;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Enumeration

Enumeration::Enumeration(std::string_view name, std::vector<EnumName> names)
    : name_(name), names_(std::move(names)) {
  // Stable: names of one code keep the interface's order after the rule's first two keys.
  std::stable_sort(names_.begin(), names_.end(), [](const EnumName& a, const EnumName& b) {
    return std::make_tuple(a.code, IsMarker(a.name), a.inferred) <
           std::make_tuple(b.code, IsMarker(b.name), b.inferred);
  });
  for (size_t i = 0; i < names_.size(); ++i) {
    if (i == 0 || names_[i].code != names_[i - 1].code) {
      codes_.push_back(names_[i].code);
      firsts_.push_back(i);
    }
  }
  firsts_.push_back(names_.size());
  if (!codes_.empty() && codes_.back() < kMaxSlots) {
    slot_.assign(static_cast<size_t>(codes_.back()) + 1, -1);
    for (size_t k = 0; k < codes_.size(); ++k) slot_[codes_[k]] = static_cast<int32_t>(k);
  }
}

std::span<const EnumName> Enumeration::NamesOf(uint64_t code) const {
  size_t k;
  if (!slot_.empty() || codes_.empty()) {
    if (code >= slot_.size() || slot_[code] < 0) return {};
    k = static_cast<size_t>(slot_[code]);
  } else {
    const auto at = std::lower_bound(codes_.begin(), codes_.end(), code);
    if (at == codes_.end() || *at != code) return {};
    k = static_cast<size_t>(at - codes_.begin());
  }
  return std::span<const EnumName>(names_).subspan(firsts_[k], firsts_[k + 1] - firsts_[k]);
}

std::vector<EnumName> Enumeration::NearestByCode(uint64_t code, size_t count) const {
  // Outward from where `code` would stand among the codes, the nearer side first (the lower on
  // a tie); the name shown for each code.
  std::vector<EnumName> out;
  size_t above =
      static_cast<size_t>(std::lower_bound(codes_.begin(), codes_.end(), code) - codes_.begin());
  size_t below = above;  // codes_[below - 1] is the next one down
  while (out.size() < count && (below > 0 || above < codes_.size())) {
    const bool take_below =
        below > 0 && (above == codes_.size() || code - codes_[below - 1] <= codes_[above] - code);
    const size_t k = take_below ? --below : above++;
    out.push_back(names_[firsts_[k]]);
  }
  return out;
}

std::vector<std::string_view> Enumeration::NearestByName(std::string_view name,
                                                         size_t count) const {
  // Names are compared by what follows their type's stem ("alu_op_max" of
  // "stage_opcode_alu_op_max"), which is what tells the names of one type apart.
  const std::string_view stem = name_.substr(0, name_.size() - 1);  // "stage_opcode_"
  std::vector<std::pair<size_t, std::string_view>> scored;
  scored.reserve(names_.size());
  for (const EnumName& candidate : names_) {
    std::string_view own = candidate.name;
    if (own.substr(0, stem.size()) == stem) own.remove_prefix(stem.size());
    scored.emplace_back(EditDistance(name, own), candidate.name);
  }
  std::stable_sort(scored.begin(), scored.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string_view> out;
  for (size_t i = 0; i < scored.size() && i < count; ++i) out.push_back(scored[i].second);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Enumerations

Enumerations::Enumerations(const zu::spec::GenerationRow& row)
    : version_(row.version), owned_(row) {
  const int column = AnswerColumn(version_);
  const Answers answers = owned_.answers();
  std::unordered_map<std::string_view, std::vector<EnumName>> found;
  for (const Accessor& accessor : AllAccessors()) {
    if (accessor.kind != AccessorKind::kEnum || !IsAnswered(accessor, version_)) continue;
    EnumName name;
    name.name = accessor.name;
    name.code = ReadAccessor(accessor, answers).get<uint64_t>();
    const auto marks = InferredMarks().find(accessor.name);
    name.inferred = marks != InferredMarks().end() && column >= 0 && marks->second[column] == 'i';
    found[accessor.type].push_back(name);
  }
  for (const EnumTypeRow& type : EnumTypeRows()) {
    auto names = found.find(type.name);
    if (names == found.end()) continue;
    index_.emplace(type.name, types_.size());
    types_.emplace_back(type.name, std::move(names->second));
  }
}

const Enumerations* Enumerations::Of(const zu::spec::ArchVersion& version) {
  static std::mutex mutex;
  static std::map<const zu::spec::GenerationRow*, std::unique_ptr<Enumerations>> made;
  const zu::spec::GenerationRow* row = zu::spec::ServingGeneration(version);
  if (row == nullptr || !row->has_answers()) return nullptr;
  const std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<Enumerations>& entry = made[row];
  if (entry == nullptr) entry = std::make_unique<Enumerations>(*row);
  return entry.get();
}

const Enumeration* Enumerations::Find(std::string_view type) const {
  const auto it = index_.find(type);
  return it == index_.end() ? nullptr : &types_[it->second];
}

// ---------------------------------------------------------------------------------------------
// Naming

Naming::Naming(const TileRecord& record, const Enumerations& enumerations)
    : layout_(&record.layout()),
      enumerations_(&enumerations),
      generation_(record.version().to_product_name_string()) {
  std::unordered_map<std::string_view, const Enumeration*> by_template;
  const std::string_view ns = record.record_class().ns;
  const std::string_view tile = record.tile().name;
  for (const FieldTypeRow& row : FieldTypeRows()) {
    if (row.ns == ns && row.tile == tile)
      by_template.emplace(row.path, enumerations.Find(row.type));
  }
  const std::vector<Leaf>& leaves = layout_->leaves();
  types_.assign(leaves.size(), nullptr);
  if (by_template.empty()) return;
  for (size_t i = 0; i < leaves.size(); ++i) {
    const auto it = by_template.find(PathTemplate(leaves[i].path));
    if (it != by_template.end()) types_[i] = it->second;
  }
}

const Naming* Naming::Of(const TileRecord& record) {
  static std::mutex mutex;
  static std::map<std::pair<const zu::spec::GenerationRow*, const RecordClass*>,
                  std::unique_ptr<Naming>>
      made;
  const Enumerations* enumerations = Enumerations::Of(record.version());
  if (enumerations == nullptr) return nullptr;
  const std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<Naming>& entry =
      made[{zu::spec::ServingGeneration(record.version()), &record.record_class()}];
  if (entry == nullptr) entry = std::make_unique<Naming>(record, *enumerations);
  return entry.get();
}

std::span<const EnumName> Naming::NamesOf(size_t leaf, uint64_t value) const {
  const Enumeration* type = types_[leaf];
  return type == nullptr ? std::span<const EnumName>() : type->NamesOf(value);
}

void Naming::AppendValue(std::string& out, size_t leaf, uint64_t value) const {
  const Enumeration* type = types_[leaf];
  if (type == nullptr) {
    out += Hex(value);
    return;
  }
  const std::span<const EnumName> names = type->NamesOf(value);
  if (names.empty()) {
    out += Hex(value);
    if (value != 0) {
      out += "  # not a code of ";
      out += type->name();
      out += " on " + generation_;
    }
    return;
  }
  out += names[0].name;
  const char* separator = "  # ";
  if (names[0].inferred) {
    out += separator;
    out += "inferred code " + Hex(value);
    separator = "; ";
  }
  if (names.size() > 1) {
    out += separator;
    out += "also ";
    for (size_t i = 1; i < names.size(); ++i) {
      if (i > 1) out += ", ";
      out += names[i].name;
    }
  }
}

std::string_view Naming::ShownName(size_t leaf, uint64_t value) const {
  const std::span<const EnumName> names = NamesOf(leaf, value);
  return names.empty() ? std::string_view() : names[0].name;
}

NamedValue Naming::Resolve(size_t leaf, std::string_view name) const {
  NamedValue out =
      EnumerantResolver(enumerations_->version(), enumerations_->answers())(name, leaf);
  const Enumeration* type = types_[leaf];
  if (!out.value.has_value() || type == nullptr) return out;
  const Accessor* accessor = FindAccessor(name);
  if (accessor != nullptr && type->name() == accessor->type) return out;
  out.value.reset();
  out.error =
      std::string(FieldName(layout_->leaves()[leaf].path)) + " takes " + std::string(type->name()) +
      "; " + EchoText(name) + " is " + WithArticle(accessor == nullptr ? "" : accessor->type) +
      "; names of " + std::string(type->name()) + " like it: " +
      JoinNames(type->NearestByName(accessor == nullptr ? name : Stemless(name, accessor->type)));
  return out;
}

NameResolver Naming::Resolver() const {
  return [this](std::string_view name, size_t leaf) { return Resolve(leaf, name); };
}

std::vector<Finding> Naming::Check(const std::vector<uint64_t>& values) const {
  std::vector<Finding> out;
  for (size_t i : RecordOrder(*layout_)) {
    if (i >= values.size() || types_[i] == nullptr || values[i] == 0 ||
        !types_[i]->NamesOf(values[i]).empty()) {
      continue;
    }
    out.push_back({i, values[i], types_[i], types_[i]->NearestByCode(values[i])});
  }
  return out;
}

std::string Naming::FindingText(const Finding& finding) const {
  const Leaf& leaf = layout_->leaves()[finding.leaf];
  std::string out = leaf.path + " (bits " + std::to_string(leaf.offset) + ".." +
                    std::to_string(leaf.offset + leaf.width - 1) + ") = " + Hex(finding.value) +
                    ": not a code of " + std::string(finding.type->name()) + " on " + generation_;
  if (!finding.nearest.empty()) {
    out += "; nearest: ";
    for (size_t i = 0; i < finding.nearest.size(); ++i) {
      if (i > 0) out += ", ";
      out += finding.nearest[i].name;
      out += " (" + Hex(finding.nearest[i].code) + ")";
    }
  }
  return out;
}

}  // namespace archspec
