// Codes by name: the enumerations a generation answers, the enumeration type each leaf of a tile
// takes (from the table of field types), and the one way every face shows a leaf's code by name,
// reads a name as a code with the leaf's type checked, and finds the values that are no code of
// their type.
//
// Where several names of a type share a code, the name shown is chosen by one rule: a name that
// is not a marker (ending in "_base" or "_end") before a marker, a stated code before an inferred
// one, then the first in the interface's order (alphabetical); the others are named beside it.
// A zero is every leaf's reset value, so a zero that no name has is not reported as a finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Accessors.h"
#include "Layout.h"
#include "Sparse.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {

class TileRecord;

// One name of an enumeration type on one generation.
struct EnumName {
  std::string_view name;  // the enumerant's accessor, "stage_opcode_alu_op_max"
  uint64_t code = 0;
  bool inferred = false;  // the code is inferred from a span of the tables, not stated
};

// One enumeration type as one generation answers it.
class Enumeration {
 public:
  Enumeration(std::string_view name, std::vector<EnumName> names);

  std::string_view name() const { return name_; }  // "stage_opcode_t"
  // Every name the generation answers, by code; names that share a code in the order of
  // preference, the one to show first.
  const std::vector<EnumName>& names() const { return names_; }
  // The names of `code`, the one to show first; empty if no name has it.
  std::span<const EnumName> NamesOf(uint64_t code) const;
  // Up to `count` names whose codes lie nearest `code`, nearest first.
  std::vector<EnumName> NearestByCode(uint64_t code, size_t count = 3) const;
  // Up to `count` names most like `name`, most alike first.
  std::vector<std::string_view> NearestByName(std::string_view name, size_t count = 3) const;

 private:
  std::string_view name_;
  std::vector<EnumName> names_;
  // The codes that have names, ascending, each with the index of its first name in names_; the
  // names of codes_[k] are names_[firsts_[k]] up to names_[firsts_[k + 1]].
  std::vector<uint64_t> codes_;
  std::vector<size_t> firsts_;
  // slot_[code]: the code's place in codes_, or -1; codes stay small (a few hundred), so a code
  // is found by one indexed load.
  std::vector<int32_t> slot_;
};

// Every enumeration that one generation answers, with the generation's answering objects.
class Enumerations {
 public:
  // Those of the generation that serves `version`, made once per process; null for a
  // generation without answers.
  static const Enumerations* Of(const zu::spec::ArchVersion& version);

  const zu::spec::ArchVersion& version() const { return version_; }
  Answers answers() const { return owned_.answers(); }
  // The types the generation answers at least one name of, in the tables' order.
  const std::vector<Enumeration>& all() const { return types_; }
  const Enumeration* Find(std::string_view type) const;

  explicit Enumerations(const zu::spec::GenerationRow& row);

 private:
  zu::spec::ArchVersion version_;
  OwnedAnswers owned_;
  std::vector<Enumeration> types_;
  std::unordered_map<std::string_view, size_t> index_;
};

// A typed leaf whose value is no code of its type on the generation.
struct Finding {
  size_t leaf = 0;  // index in the layout
  uint64_t value = 0;
  const Enumeration* type = nullptr;
  std::vector<EnumName> nearest;  // names whose codes lie nearest the value, nearest first
};

// A tile of one generation seen through its field types.
class Naming {
 public:
  // That of `record`'s generation and tile, made once per process for each; null for a
  // generation without answers.
  static const Naming* Of(const TileRecord& record);

  const Layout& layout() const { return *layout_; }
  const Enumerations& enumerations() const { return *enumerations_; }
  // "mk44": the generation as messages name it.
  const std::string& generation() const { return generation_; }

  // The enumeration type that leaf `leaf` takes; null for an untyped leaf.
  const Enumeration* TypeOf(size_t leaf) const { return types_[leaf]; }
  // The names of `value` in leaf `leaf`, the one to show first; empty for an untyped leaf or a
  // value that no name of its type has.
  std::span<const EnumName> NamesOf(size_t leaf, uint64_t value) const;
  // The value of a listing's line as the listing writes it: the name to show, or the code in
  // hexadecimal, followed by "  # ..." saying what else the reader should know (other names of
  // the code, an inferred code, a code of no name of the type).
  void AppendValue(std::string& out, size_t leaf, uint64_t value) const;
  // The name shown for `value` in leaf `leaf`, by the rule above; empty where it has none.
  std::string_view ShownName(size_t leaf, uint64_t value) const;

  // The code of `name` written for leaf `leaf`: an enumerant the generation answers and, for a
  // typed leaf, one of the leaf's type; else why not, with the nearest names of the type.
  NamedValue Resolve(size_t leaf, std::string_view name) const;
  // A resolver for ReadSparse through Resolve, with the "did you mean" search left to the reader.
  NameResolver Resolver() const;

  // Every typed leaf whose non-zero value no name of its type has, in the record's order.
  std::vector<Finding> Check(const std::vector<uint64_t>& values) const;
  // "simd_structIn[0][1].stage_opcode (bits 3620..3624) = 0x1f: not a code of stage_opcode_t on
  // mk44; nearest: stage_opcode_alu_op_max (0x1a), ..."
  std::string FindingText(const Finding& finding) const;

  Naming(const TileRecord& record, const Enumerations& enumerations);

 private:
  const Layout* layout_;  // kept for the process, as every tile's layout is
  const Enumerations* enumerations_;
  std::string generation_;
  std::vector<const Enumeration*> types_;  // per leaf
};

}  // namespace archspec
