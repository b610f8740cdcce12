#include "Accessors.h"

#include <type_traits>
#include <unordered_map>
#include <utility>

#include "AccessorsJson.h"
#include "Diagnostic.h"
#include "FieldTypes.h"
#include "Nearest.h"
#include "Tile.h"
#include "Units.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/gen/ArchConstants.h"
#include "compiler/arch_spec/gen/GenerationTable.h"

namespace archspec {
namespace {

using nlohmann::json;

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<zu::optional<T>> : std::true_type {};
template <class T>
struct IsPair : std::false_type {};
template <class A, class B>
struct IsPair<std::pair<A, B>> : std::true_type {};

// The JSON form of whatever an accessor returns.
template <class T>
json ToJson(const T& value) {
  if constexpr (std::is_base_of_v<zu::spec::BitsIntegerBase, T>) {
    return value.ToNumber();  // an enumerant: its code
  } else if constexpr (std::is_same_v<T, bool>) {
    return value;
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
    return static_cast<uint64_t>(value);  // uint8_t is a number here, not a character
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<int64_t>(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<double>(value);
  } else if constexpr (std::is_same_v<T, std::string>) {
    return value;
  } else if constexpr (std::is_same_v<T, std::vector<bool>>) {
    json out = json::array();
    for (bool element : value) out.push_back(element);
    return out;
  } else if constexpr (IsVector<T>::value) {
    json out = json::array();
    for (const auto& element : value) out.push_back(ToJson(element));
    return out;
  } else if constexpr (IsOptional<T>::value) {
    return value.has_value() ? ToJson(*value) : json(nullptr);
  } else if constexpr (IsPair<T>::value) {
    return json::array({ToJson(value.first), ToJson(value.second)});
  } else if constexpr (std::is_same_v<T, zu::spec::VagThrottlingInfo>) {
    return json{{"word0", value.word0}, {"word1", value.word1}, {"word2", value.word2}};
  } else if constexpr (std::is_same_v<T, zu::spec::HbmSupportInfo>) {
    return json{{"rates", ToJson(value.rates)},
                {"count", ToJson(value.count)},
                {"cycles", value.cycles},
                {"rate", value.rate},
                {"first_code", value.first_code},
                {"second_code", value.second_code},
                {"third_code", ToJson(value.third_code)},
                {"fourth_code", ToJson(value.fourth_code)}};
  } else {
    static_assert(sizeof(T) == 0, "an accessor returns a type that archspec cannot show");
  }
}

template <class T>
json Answer(const T& value) {
  return ToJson(value);
}

#define ARCHSPEC_KIND_SCALAR AccessorKind::kScalar
#define ARCHSPEC_KIND_ENUM AccessorKind::kEnum
#define ARCHSPEC_KIND_CONTAINER AccessorKind::kContainer

// An accessor and the call of it on a generation's object, which returns its value as JSON; the
// call stays here, so that the public Accessor holds no JSON.
using Reader = json (*)(const Answers&);
struct Row {
  Accessor accessor;
  Reader read;
};

// One row per accessor of the generated index; the reader is only ever called where answered.
const std::vector<Row> kRows = {
#define ZU_SPEC_CONSTANT(kind, type, accessor, answered) \
  {{#accessor, #type, ARCHSPEC_KIND_##kind, answered},   \
   [](const Answers& a) { return Answer(a.constants->accessor()); }},
#define ZU_SPEC_FEATURE(type, accessor)                 \
  {{#accessor, #type, AccessorKind::kFeature, nullptr}, \
   [](const Answers& a) { return Answer(a.features->accessor()); }},
#define ZU_SPEC_CONSTRAINT(type, accessor)                 \
  {{#accessor, #type, AccessorKind::kConstraint, nullptr}, \
   [](const Answers& a) { return Answer(a.constraints->accessor()); }},
#include "compiler/arch_spec/gen/ArchConstantsIndex.inc"
#undef ZU_SPEC_CONSTANT
#undef ZU_SPEC_FEATURE
#undef ZU_SPEC_CONSTRAINT
};

// The accessors of kRows, in its order: accessor i is read by kRows[i].read.
const std::vector<Accessor> kAccessors = [] {
  std::vector<Accessor> out;
  out.reserve(kRows.size());
  for (const Row& row : kRows) out.push_back(row.accessor);
  return out;
}();

Reader ReaderOf(const Accessor& accessor) {
  return kRows[static_cast<size_t>(&accessor - kAccessors.data())].read;
}

const std::unordered_map<std::string_view, size_t>& Index() {
  static const std::unordered_map<std::string_view, size_t> index = [] {
    std::unordered_map<std::string_view, size_t> out;
    out.reserve(kAccessors.size());
    for (size_t i = 0; i < kAccessors.size(); ++i) out.emplace(kAccessors[i].name, i);
    return out;
  }();
  return index;
}

}  // namespace

int AnswerColumn(const zu::spec::ArchVersion& version) {
  const zu::spec::GenerationRow* generation = zu::spec::ServingGeneration(version);
  int column = 0;
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    if (!row.has_answers()) continue;
    if (&row == generation) return column;
    ++column;
  }
  return -1;
}

const char* KindName(AccessorKind kind) {
  switch (kind) {
    case AccessorKind::kScalar:
      return "parameter";
    case AccessorKind::kEnum:
      return "enumerant";
    case AccessorKind::kContainer:
      return "container";
    case AccessorKind::kFeature:
      return "feature";
    case AccessorKind::kConstraint:
      return "constraint";
  }
  return "";
}

const std::vector<Accessor>& AllAccessors() { return kAccessors; }

const Accessor* FindAccessor(std::string_view name) {
  const auto it = Index().find(name);
  return it == Index().end() ? nullptr : &kAccessors[it->second];
}

std::string NearestAccessor(std::string_view name, const AccessorKind* kind_only) {
  NearestName nearest(name);
  for (const Accessor& accessor : kAccessors) {
    if (kind_only == nullptr || accessor.kind == *kind_only) nearest.Offer(accessor.name);
  }
  return nearest.Best();
}

bool IsAnswered(const Accessor& accessor, const zu::spec::ArchVersion& version) {
  if (accessor.kind == AccessorKind::kFeature || accessor.kind == AccessorKind::kConstraint) {
    return true;
  }
  const int column = AnswerColumn(version);
  return column >= 0 && accessor.answered[column] == '1';
}

bool IsInferred(const Accessor& accessor, const zu::spec::ArchVersion& version) {
  static const std::unordered_map<std::string_view, const char*> marks = [] {
    std::unordered_map<std::string_view, const char*> out;
    for (const InferredCodeRow& row : InferredCodeRows()) out.emplace(row.accessor, row.marks);
    return out;
  }();
  if (accessor.kind != AccessorKind::kEnum || !IsAnswered(accessor, version)) return false;
  const auto found = marks.find(accessor.name);
  return found != marks.end() && found->second[AnswerColumn(version)] == 'i';
}

Answers ChosenAnswers() {
  return {zu::spec::arch_constants(), zu::spec::arch_features(), zu::spec::arch_constraints()};
}

OwnedAnswers::OwnedAnswers(const zu::spec::GenerationRow& generation)
    : generation_(generation),
      constants_(generation.make_constants()),
      features_(generation.make_features()),
      constraints_(generation.make_constraints()) {}

json ReadAccessor(const Accessor& accessor) { return ReaderOf(accessor)(ChosenAnswers()); }

json ReadAccessor(const Accessor& accessor, const Answers& answers) {
  return ReaderOf(accessor)(answers);
}

json AccessorEntry(const Accessor& accessor, const zu::spec::ArchVersion& version,
                   const Answers& answers) {
  json out{{"name", accessor.name}, {"kind", KindName(accessor.kind)}, {"type", accessor.type}};
  const bool answered = IsAnswered(accessor, version);
  out["answered"] = answered;
  out["value"] = answered ? ReadAccessor(accessor, answers) : json(nullptr);
  if (accessor.kind == AccessorKind::kEnum) out["inferred"] = IsInferred(accessor, version);
  // A parameter's group heading, and its quantity and unit by the rule of Units.h (null where the
  // rule gives none), with a figure derived from its value where there is one.
  if (const ParameterRow* row =
          accessor.kind == AccessorKind::kScalar ? FindParameter(accessor.name) : nullptr) {
    const auto text = [](const char* s) { return *s != '\0' ? json(s) : json(nullptr); };
    out["group"] = row->group;
    out["quantity"] = text(row->quantity);
    out["unit"] = text(row->unit);
    if (out["value"].is_number()) {
      if (const std::optional<DerivedFigure> figure =
              DeriveFigure(*row, out["value"].get<double>())) {
        out["derived"] = {{"name", figure->name}, {"value", figure->value}, {"unit", figure->unit}};
      }
    }
  }
  return out;
}

std::string ValueText(const json& value) {
  if (value.is_null()) return "none";
  return value.dump();
}

std::string ValueText(const Accessor& accessor) { return ValueText(ReadAccessor(accessor)); }

std::string ValueText(const Accessor& accessor, const Answers& answers) {
  return ValueText(ReadAccessor(accessor, answers));
}

std::string ValueJson(const Accessor& accessor) { return ReadAccessor(accessor).dump(); }

std::string ValueJson(const Accessor& accessor, const Answers& answers) {
  return ReadAccessor(accessor, answers).dump();
}

namespace {

// The code of the enumerant `name` for `version`, or why there is none. For an unknown name, the
// search for the nearest enumerant is left in `nearest`.
NamedValue LookUpEnumerant(std::string_view name, const zu::spec::ArchVersion& version,
                           const Answers& answers) {
  NamedValue out;
  const std::string shown = EchoText(name);
  const Accessor* accessor = FindAccessor(name);
  if (accessor == nullptr) {
    out.error = "no enumerant named " + shown;
    out.nearest = [key = std::string(name)] {
      const AccessorKind enumerants = AccessorKind::kEnum;
      return NearestAccessor(key, &enumerants);
    };
    return out;
  }
  if (accessor->kind != AccessorKind::kEnum) {
    out.error = shown + " is a " + KindName(accessor->kind) +
                ", not an enumerant: write its value as a number";
    return out;
  }
  if (!IsAnswered(*accessor, version)) {
    out.error = "enumerant " + shown + " is not answered by " + GenerationLabel(version);
    return out;
  }
  out.value = ReadAccessor(*accessor, answers).get<uint64_t>();
  return out;
}

}  // namespace

NamedValue ResolveEnumerant(std::string_view name) {
  return ResolveEnumerantOf(name, zu::spec::ArchSpec::arch(), ChosenAnswers());
}

NamedValue ResolveEnumerantOf(std::string_view name, const zu::spec::ArchVersion& version,
                              const Answers& answers) {
  NamedValue out = LookUpEnumerant(name, version, answers);
  if (out.nearest) {
    const std::string nearest = out.nearest();
    if (!nearest.empty()) out.error += "; did you mean " + nearest + "?";
    out.nearest = nullptr;
  }
  return out;
}

NameResolver EnumerantResolver(const zu::spec::ArchVersion& version, const Answers& answers) {
  return [version, answers](std::string_view name, size_t) {
    return LookUpEnumerant(name, version, answers);
  };
}

NameResolver EnumerantResolver() {
  return EnumerantResolver(zu::spec::ArchSpec::arch(), ChosenAnswers());
}

}  // namespace archspec
