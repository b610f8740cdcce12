#include "Port.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "PathForm.h"
#include "RecordOrder.h"
#include "Sparse.h"

namespace archspec {
namespace {

// How the named codes of one enumeration type of the source read on the target, by name.
struct CodeMove {
  std::string_view name;       // the name the source's listing shows for the code
  std::optional<uint64_t> to;  // the target's code of the name; empty where it answers none
  std::string_view to_name;    // the same name, as the target's enumeration holds it
  bool inferred = false;       // either side infers the code rather than states it
};

struct CodeMap {
  const Enumeration* from = nullptr;
  const Enumeration* to = nullptr;
  std::unordered_map<uint64_t, CodeMove> codes;  // every code of `from` that has a name
};

// Where one leaf of the source goes on the target, and if nowhere why not.
struct LeafMove {
  std::optional<size_t> to;
  PortReason reason = PortReason::kNoField;  // where `to` is empty
  std::string text;                          // where `to` is empty
  const CodeMap* codes = nullptr;            // for a leaf typed on the source
};

// The arrays of one field, "simd_structIn[][].stage_opcode": how many elements each index runs
// over, and the width of a leaf.
struct FieldShape {
  std::vector<size_t> extents;
  uint32_t width = 0;
};

// The field without its indices, "simd_structIn.stage_opcode", which names the same field of two
// generations whose arrays have different shapes.
std::string Unindexed(std::string_view path_template) {
  std::string out;
  for (size_t i = 0; i < path_template.size(); ++i) {
    if (path_template[i] == '[' && i + 1 < path_template.size() && path_template[i + 1] == ']') {
      ++i;
      continue;
    }
    out += path_template[i];
  }
  return out;
}

std::map<std::string, FieldShape> Shapes(const Layout& layout) {
  std::map<std::string, FieldShape> out;
  for (const Leaf& leaf : layout.leaves()) {
    FieldShape& shape = out[PathTemplate(leaf.path)];
    shape.width = leaf.width;
    size_t k = 0;
    for (std::string_view step : PathSteps(leaf.path)) {
      if (step.empty() || step.front() != '[') continue;
      const size_t index = std::stoul(std::string(step.substr(1, step.size() - 2)));
      if (shape.extents.size() <= k) shape.extents.resize(k + 1, 0);
      shape.extents[k] = std::max(shape.extents[k], index + 1);
      ++k;
    }
  }
  return out;
}

// "2 × 4 leaves of 7 bits", "a leaf of 8 bits".
std::string ShapeText(const FieldShape& shape) {
  size_t count = 1;
  std::string out;
  for (size_t k = 0; k < shape.extents.size(); ++k) {
    if (k > 0) out += " × ";
    out += std::to_string(shape.extents[k]);
    count *= shape.extents[k];
  }
  const std::string bits = std::to_string(shape.width) + (shape.width == 1 ? " bit" : " bits");
  if (shape.extents.empty()) return "a leaf of " + bits;
  return out + (count == 1 ? " leaf" : " leaves") + " of " + bits;
}

// Everything a port from one tile record to another needs that does not depend on the values:
// made once per pair of records and kept for the process, so that a port is one pass over the
// leaves.
class PortPlan {
 public:
  PortPlan(const Configuration& from, const Configuration& to) {
    const Layout& source = from.layout();
    const Layout& target = to.layout();
    const std::string generation = to.version().to_product_name_string();
    const std::string source_generation = from.version().to_product_name_string();
    const std::map<std::string, FieldShape> source_shapes = Shapes(source);
    const std::map<std::string, FieldShape> target_shapes = Shapes(target);
    std::map<std::string, std::string> target_fields;  // unindexed field to its template
    for (const auto& [path_template, shape] : target_shapes) {
      target_fields.emplace(Unindexed(path_template), path_template);
    }
    leaves_.resize(source.leaves().size());
    reached_.assign(target.leaves().size(), false);
    for (size_t i = 0; i < source.leaves().size(); ++i) {
      LeafMove& move = leaves_[i];
      const std::string& path = source.leaves()[i].path;
      move.to = target.Find(path);
      if (move.to.has_value()) {
        reached_[*move.to] = true;
        move.codes = Codes(from.naming().TypeOf(i), to.naming().TypeOf(*move.to), to);
        continue;
      }
      const std::string path_template = PathTemplate(path);
      if (const auto same = target_shapes.find(path_template); same != target_shapes.end()) {
        move.reason = PortReason::kBeyondArray;
        move.text = "the index lies beyond the array on " + generation + ", which has " +
                    ShapeText(same->second);
      } else if (const auto field = target_fields.find(Unindexed(path_template));
                 field != target_fields.end()) {
        move.reason = PortReason::kShape;
        move.text = "the array's shape differs: " + ShapeText(source_shapes.at(path_template)) +
                    " on " + source_generation + ", " + ShapeText(target_shapes.at(field->second)) +
                    " on " + generation;
      } else {
        move.reason = PortReason::kNoField;
        move.text = "the field does not exist on " + generation;
      }
    }
  }

  const LeafMove& leaf(size_t i) const { return leaves_[i]; }
  // Whether some leaf of the source has the path of target leaf `i`.
  bool reached(size_t i) const { return reached_[i]; }

 private:
  // The moves of the codes of `from` to the type a target leaf takes (`to`, or where the target
  // leaf has no type, the same type as the target answers it): each code by the name shown for
  // it, which must be a name of the target's type (so a field whose type the table of field
  // types names otherwise on the target keeps the codes of the names the two types share); null
  // for an untyped source leaf.
  const CodeMap* Codes(const Enumeration* from, const Enumeration* to,
                       const Configuration& target) {
    if (from == nullptr) return nullptr;
    if (to == nullptr) to = target.naming().enumerations().Find(from->name());
    auto [it, made] = maps_.try_emplace({from, to});
    CodeMap& map = it->second;
    if (!made) return &map;
    map.from = from;
    map.to = to;
    std::unordered_map<std::string_view, const EnumName*> by_name;
    if (to != nullptr) {
      for (const EnumName& name : to->names()) by_name.emplace(name.name, &name);
    }
    for (const EnumName& name : from->names()) {
      // The first name of each code is the one shown.
      if (map.codes.count(name.code) != 0) continue;
      CodeMove move{name.name, std::nullopt, {}, name.inferred};
      if (const auto found = by_name.find(name.name); found != by_name.end()) {
        move.to = found->second->code;
        move.to_name = found->second->name;
        move.inferred = move.inferred || found->second->inferred;
      }
      map.codes.emplace(name.code, move);
    }
    return &map;
  }

  std::vector<LeafMove> leaves_;
  std::vector<bool> reached_;
  std::map<std::pair<const Enumeration*, const Enumeration*>, CodeMap> maps_;
};

const PortPlan& PlanOf(const Configuration& from, const Configuration& to) {
  static std::mutex mutex;
  static std::map<std::pair<const TileRecord*, const TileRecord*>, std::unique_ptr<PortPlan>> plans;
  const std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<PortPlan>& plan = plans[{&from.record(), &to.record()}];
  if (plan == nullptr) plan = std::make_unique<PortPlan>(from, to);
  return *plan;
}

// What the value of source leaf `i` means on the target: the target's value, or the entry that
// says why there is none; and a note, where the value moved by an inferred code.
struct LeafOutcome {
  std::optional<uint64_t> value;
  std::optional<PortEntry> entry;  // a loss where `value` is empty, else a note or an unnamed code
};

LeafOutcome Carry(const Configuration& from, const Configuration& to, const PortPlan& plan,
                  size_t i, bool named_zero) {
  const LeafMove& move = plan.leaf(i);
  const uint64_t value = from.value(i);
  const std::string& path = from.layout().leaves()[i].path;
  LeafOutcome out;
  if (!move.to.has_value()) {
    out.entry = PortEntry{path, move.reason, value, move.text};
    return out;
  }
  const Leaf& target = to.layout().leaves()[*move.to];
  const std::string generation = to.version().to_product_name_string();
  uint64_t moved = value;
  if (move.codes != nullptr && (value != 0 || named_zero)) {
    const auto code = move.codes->codes.find(value);
    if (code == move.codes->codes.end()) {
      out.entry =
          PortEntry{path, PortReason::kUnnamed, value,
                    Hex(value) + " is no code of " + std::string(move.codes->from->name()) +
                        " on " + from.naming().generation() +
                        "; moved as a number, its meaning on " + generation + " may differ"};
    } else if (!code->second.to.has_value()) {
      out.entry = PortEntry{
          path, PortReason::kUnanswered, value,
          std::string(code->second.name) + " is not answered by " + generation +
              (move.codes->to == nullptr ? std::string()
                                         : " for " + std::string(move.codes->to->name()))};
      return out;
    } else {
      moved = *code->second.to;
      if (code->second.inferred) {
        out.entry = PortEntry{path, PortReason::kInferred, value,
                              std::string(code->second.to_name) + " moved as " + Hex(moved) +
                                  "; its code is inferred, not stated, on " +
                                  from.naming().generation() + " or " + generation};
      }
    }
  }
  if (moved > MaxValue(target.width)) {
    out.entry = PortEntry{path, PortReason::kTooWide, value, ValueTooWide(Hex(moved), target)};
    out.entry->text += " on " + generation;
    return out;
  }
  out.value = moved;
  return out;
}

}  // namespace

const char* PortReasonName(PortReason reason) {
  switch (reason) {
    case PortReason::kNoField:
      return "no-field";
    case PortReason::kBeyondArray:
      return "beyond-array";
    case PortReason::kShape:
      return "shape";
    case PortReason::kTooWide:
      return "too-wide";
    case PortReason::kUnanswered:
      return "unanswered";
    case PortReason::kUnnamed:
      return "unnamed";
    case PortReason::kInferred:
      return "inferred";
  }
  return "";
}

std::optional<PortResult> Port(const Configuration& source, const zu::spec::ArchVersion& target) {
  std::optional<Configuration> zero = Configuration::Zero(target, source.tile());
  if (!zero.has_value()) return std::nullopt;
  PortResult result{std::move(*zero), {}};
  Configuration& to = result.configuration;
  const PortPlan& plan = PlanOf(source, to);
  const std::vector<bool> named_zeros =
      NamedZeros(source.layout(), source.values(), source.naming());
  for (size_t i : RecordOrder(source.layout())) {
    // A zero that has no leaf to go to carries nothing: a field that the target lacks reads as 0.
    const bool named_zero = named_zeros[i] && plan.leaf(i).to.has_value();
    if (source.value(i) == 0 && !named_zero) continue;
    LeafOutcome outcome = Carry(source, to, plan, i, named_zero);
    if (outcome.value.has_value()) to.SetValue(*plan.leaf(i).to, *outcome.value);
    if (!outcome.entry.has_value()) continue;
    if (outcome.entry->reason == PortReason::kInferred) {
      result.report.notes.push_back(std::move(*outcome.entry));
    } else {
      result.report.lost.push_back(std::move(*outcome.entry));
    }
  }
  const std::vector<bool> target_zeros = NamedZeros(to.layout(), to.values(), to.naming());
  for (size_t i : RecordOrder(to.layout())) {
    if (target_zeros[i] && !plan.reached(i)) {
      result.report.review.push_back({i, to.naming().ShownName(i, 0)});
    }
  }
  return result;
}

std::string PortEntryText(const PortEntry& entry) {
  return entry.path + " = " + Hex(entry.value) + ": " + entry.text;
}

std::string PortReportText(const Configuration& from, const Configuration& to,
                           const PortReport& report) {
  std::string out;
  for (const PortEntry& entry : report.lost) out += PortEntryText(entry) + "\n";
  for (const PortEntry& entry : report.notes) out += "note: " + PortEntryText(entry) + "\n";
  for (const PortReview& review : report.review) {
    out += "look at: " + to.layout().leaves()[review.leaf].path + " = " + std::string(review.name) +
           ": new on " + to.naming().generation() +
           ", its 0 names a code in a record the program uses\n";
  }
  const auto leaves = [](size_t n) { return std::to_string(n) + (n == 1 ? " leaf" : " leaves"); };
  out += "# " + leaves(report.lost.size()) + " of " + from.naming().generation() + " " +
         from.tile().name + " did not move exactly to " + to.naming().generation() + "\n";
  if (!report.notes.empty()) {
    out += "# " + leaves(report.notes.size()) + " moved by a code that is inferred, not stated\n";
  }
  if (!report.review.empty()) {
    out += "# " + leaves(report.review.size()) + " new on " + to.naming().generation() +
           " to look at\n";
  }
  return out;
}

std::vector<CrossChange> CompareAcross(const Configuration& a, const Configuration& b) {
  std::vector<CrossChange> out;
  const PortPlan& plan = PlanOf(a, b);
  const std::vector<bool> a_zeros = NamedZeros(a.layout(), a.values(), a.naming());
  // What each leaf of `a` means on `b`'s generation, where it has a place there.
  std::vector<std::optional<size_t>> a_of_b(b.layout().leaves().size());
  for (size_t i = 0; i < a.layout().leaves().size(); ++i) {
    if (const std::optional<size_t> to = plan.leaf(i).to) a_of_b[*to] = i;
  }
  for (size_t j : RecordOrder(b.layout())) {
    const uint64_t b_value = b.value(j);
    const std::optional<size_t> i = a_of_b[j];
    if (!i.has_value()) {
      if (b_value != 0) out.push_back({std::nullopt, j, 0, b_value});
      continue;
    }
    const uint64_t a_value = a.value(*i);
    // By meaning where the value has one on both sides, else by number.
    uint64_t expected = a_value;
    const LeafMove& move = plan.leaf(*i);
    if (move.codes != nullptr && (a_value != 0 || a_zeros[*i])) {
      const auto code = move.codes->codes.find(a_value);
      if (code != move.codes->codes.end() && code->second.to.has_value()) {
        expected = *code->second.to;
      }
    }
    if (expected != b_value) out.push_back({i, j, a_value, b_value});
  }
  for (size_t i : RecordOrder(a.layout())) {
    if (!plan.leaf(i).to.has_value() && a.value(i) != 0) {
      out.push_back({i, std::nullopt, a.value(i), 0});
    }
  }
  return out;
}

}  // namespace archspec
