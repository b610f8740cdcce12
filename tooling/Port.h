// Moving a configuration of a tile to another generation by meaning, and comparing configurations
// of two generations.
//
// A port carries each leaf to the leaf of the same path on the target generation:
//   - a leaf that holds a code of its enumeration type moves by the name the listing shows for it
//     (Naming::ShownName): the target's code of that name, which must be of the type that the
//     table of field types gives the field on the target, where its type is named otherwise;
//   - a typed leaf at 0 moves by its name too where its record is in use (NamedZeros, the rule of
//     the listing): a stage at opcode 0 runs the operation that 0 names, which another generation
//     may number otherwise; a record wholly at 0 stays wholly at 0, and a zero of a field that the
//     target lacks is no loss;
//   - any other value moves by number where the target has the leaf and the value fits its width.
// What did not move exactly is reported leaf by leaf with its reason; a code that either
// generation infers rather than states moves, with a note. The target's new typed leaves whose 0
// names a code, in records the program uses, are named for the reader to look at.
//
// mk41 and mk42 share records and codes, so a port between them keeps every bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Configuration.h"
#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {

// Why a leaf of the source did not move exactly, or what a reader should know of one that did.
enum class PortReason {
  kNoField,      // the field does not exist on the target
  kBeyondArray,  // the target has the field, but its array ends before this index
  kShape,        // the target has the field as an array of another shape
  kTooWide,      // the value does not fit the target leaf's width
  kUnanswered,   // the value's name is not answered by the target for the leaf's type
  kUnnamed,      // a code that no name of its type has, moved as a number
  kInferred,     // a code inferred rather than stated on one side: moved (a note, not a loss)
};
// "no-field", "beyond-array", "shape", "too-wide", "unanswered", "unnamed", "inferred".
const char* PortReasonName(PortReason reason);

// One leaf of the source that did not move exactly, or that moved with a note.
struct PortEntry {
  std::string path;  // the source leaf's path
  PortReason reason;
  uint64_t value = 0;  // the source leaf's value
  std::string text;    // the reason in words, naming the generations, without the path
};

// A typed leaf of the target that the source has no leaf for, at 0, where 0 names a code of its
// type and its record is in use: the ported program runs the operation of that name there.
struct PortReview {
  size_t leaf = 0;        // index in the target's layout
  std::string_view name;  // the name of 0
};

struct PortReport {
  std::vector<PortEntry> lost;     // did not move exactly, in the source's record order
  std::vector<PortEntry> notes;    // moved, with a note (kInferred)
  std::vector<PortReview> review;  // in the target's record order
  bool exact() const { return lost.empty(); }
};

struct PortResult {
  Configuration configuration;  // what did move; every other leaf of the target at 0
  PortReport report;
};

// `source` moved to the generation `target`. Empty only where the target has no records of the
// source's tile (a generation without records).
std::optional<PortResult> Port(const Configuration& source, const zu::spec::ArchVersion& target);

// "what.path: the field does not exist on mk44": a line of a report.
std::string PortEntryText(const PortEntry& entry);
// The report as text, a line per entry, then "# ..." lines that count them; `to` is the ported
// configuration.
std::string PortReportText(const Configuration& from, const Configuration& to,
                           const PortReport& report);

// One path at which two configurations of different generations differ in meaning. A leaf is
// compared by name where the first side's value names a code that the second answers for its
// type (and for a typed 0 where its record is in use), else by number. A path of one side only is
// reported where its value is not 0: a field that a generation lacks reads as 0 there.
struct CrossChange {
  std::optional<size_t> a;  // the leaf in the first configuration's layout, if it has the path
  std::optional<size_t> b;  // the leaf in the second's
  uint64_t a_value = 0;
  uint64_t b_value = 0;
};
// The paths that differ between `a` and `b` (of one tile, any generations), in `b`'s record order
// and then the paths of `a` alone in `a`'s record order; for two configurations of one generation
// these are the leaves of Configuration::Compare.
std::vector<CrossChange> CompareAcross(const Configuration& a, const Configuration& b);

}  // namespace archspec
