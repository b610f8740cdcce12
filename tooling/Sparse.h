// The sparse listing of a tile configuration: one `path = value` line per non-zero leaf.
//
//   # archspec mk43 pcu
//   # stage 0 of context 0 multiplies and adds
//   simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_madd
//   common_structIn.udc_init_value[0] = 4
//
// A value is decimal, `0x` hexadecimal, or the name of an enumerant accessor of the generation in
// force. Lines may come in any order; `#` starts a comment; blank lines are allowed; a leaf that is
// not named is 0. So a line deleted or moved still leaves a valid configuration. A UTF-8
// byte-order mark before the first line is skipped.
//
// A first line `# archspec GENERATION TILE` is the listing's header: it says what the listing was
// written for, so that a reader can refuse a listing of another generation or tile. A listing
// without it is read all the same.
//
// The written form is canonical: the header, then the non-zero leaves in the record's order (that
// of the printed tree, stage 0 before stage 1), each value in lower-case `0x` hexadecimal or by
// name, and beside them the typed leaves at 0 whose 0 has a name where their record has another
// leaf set (NamedZeros), so that two configurations are equal exactly when their listings are
// identical, and the first operation of a program is seen.
//
// Read as a change (a delta), a listing sets the leaves it names and leaves the others alone.
//
// Reading neither exits nor throws: every fault comes back as a Diagnostic naming its line.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Diagnostic.h"
#include "Layout.h"

namespace archspec {

// What a value written as a name stands for: a code, or why there is none.
struct NamedValue {
  std::optional<uint64_t> value;
  std::string error;  // set when `value` is empty, e.g. "no enumerant named ..."
  // For a name that is unknown, the search for the known name most like it, empty if there is
  // none. The search compares the name with every known name, so the reader runs it only for the
  // first few unknown names (ReportLimits::max_hints) and adds "; did you mean X?" to `error`.
  std::function<std::string()> nearest = nullptr;
};
// Resolves a name written as the value of the leaf with index `leaf` in the layout, so that a
// resolver that knows the leaves' types can refuse a name of another type.
using NameResolver = std::function<NamedValue(std::string_view name, size_t leaf)>;

class Naming;

// What a listing's header says it was written for.
struct ListingHeader {
  std::string generation;  // as written: "mk43"
  std::string tile;        // as written: "pcu"
};

struct SparseResult {
  std::vector<uint64_t> values;  // one per leaf of the layout, in its order; all 0 on failure
  std::vector<bool> assigned;    // one per leaf: whether a line names it; all false on failure
  std::optional<ListingHeader> header;  // the header, when the first line is one
  std::vector<Diagnostic> errors;       // in line order; empty if the listing is valid
  bool ok() const { return errors.empty(); }
};

// Reads a listing against `layout`. Names in value position go to `names` (which may be empty:
// then every name is refused). Stops after `limits.max_errors` faults, and looks for "did you
// mean" hints for the first `limits.max_hints` unknown paths and names only.
SparseResult ReadSparse(std::string_view text, const Layout& layout, const NameResolver& names,
                        const ReportLimits& limits) noexcept;
// As above, with hints for the first few unknown names.
SparseResult ReadSparse(std::string_view text, const Layout& layout, const NameResolver& names,
                        size_t max_errors = ReportLimits{}.max_errors) noexcept;

// A value written for leaf `leaf` of `layout` as a listing writes it (non-empty, with no blank):
// a number, decimal or 0x hexadecimal, or an enumerant's name, which `names` resolves (and may
// refuse, as of another type than the leaf's); it must fit the leaf's width. The value, or the
// complaint, which names the leaf. `take_hint`, where given, says whether an unknown name may
// have its "did you mean" search.
struct LeafValue {
  std::optional<uint64_t> value;
  std::string error;  // set when `value` is empty
};
LeafValue ReadLeafValue(std::string_view text, const Layout& layout, size_t leaf,
                        const NameResolver& names,
                        const std::function<bool()>& take_hint = nullptr);

// The order of a listing's lines: the record's (that of the printed tree: members as the record
// has them, arrays from index 0 up; RecordOrder.h), or the bits' (the layout's, arrays from the
// highest index down).
enum class ListingOrder { kRecord, kBit };

// The canonical listing of `values` (one per leaf of `layout`), after the comment lines of
// `header` (each written as "# line"), in `order`. With `all`, zero leaves are written too. With
// `names` (the Naming of the same layout), a typed leaf's value is written by name where it has
// one, as Naming::AppendValue says, and a typed leaf at 0 whose 0 has a name is written where
// NamedZeros says; without, every value is written in hexadecimal and only non-zero leaves.
std::string WriteSparse(const Layout& layout, const std::vector<uint64_t>& values,
                        const std::vector<std::string>& header = {}, bool all = false,
                        const Naming* names = nullptr, ListingOrder order = ListingOrder::kRecord);

// The typed leaves at 0 whose 0 has a name and whose nearest record (the record that names the
// leaf as a member, whose leaves include a packed array's other elements and those of records
// below it) has another leaf that is not 0: a stage that runs the operation of code 0 shows it,
// while a record left all 0 stays out of a listing. One flag per leaf, in the layout's order.
std::vector<bool> NamedZeros(const Layout& layout, const std::vector<uint64_t>& values,
                             const Naming& names);

// One line of a listing, "path = value\n", the value written as WriteSparse writes it.
void AppendListingLine(std::string& out, const Layout& layout, size_t leaf, uint64_t value,
                       const Naming* names);

// The complaints about a value written for a leaf, the same from every face; `shown` is the value
// as written ("300", or "alu_op_max = 12" for a name): "value 300 does not fit in 8 bits of
// PATH", and "value -1 of PATH is negative; fields hold unsigned numbers".
std::string ValueTooWide(std::string_view shown, const Leaf& leaf);
std::string ValueNegative(std::string_view shown, const Leaf& leaf);

// `text` without the blanks around it (spaces, tabs, carriage returns, vertical tabs and form
// feeds), as a listing's line is read.
std::string_view TrimBlanks(std::string_view text);

// A decimal or 0x-hexadecimal number, as listings write values. Empty if the text is no number
// or exceeds 64 bits; `overflow` tells the two apart.
std::optional<uint64_t> ParseNumber(std::string_view text, bool& overflow);

// "0x1f": the one value format of the written listing, and of values in JSON.
std::string Hex(uint64_t value);

// "archspec mk43 pcu": the header line, without its "# ", for a listing of `tile` of the
// generation with product name `generation`.
std::string ListingHeaderText(std::string_view generation, std::string_view tile);

// The header in the first line of `text` (after a byte-order mark), if that line is one:
// "#", "archspec", a generation and a tile, separated by blanks, and nothing else.
std::optional<ListingHeader> ReadListingHeader(std::string_view text);

// Whether a listing with `header` may be read for `tile` of the generation `generation` (product
// names and tile names in any case). Empty if so, or if there is no header; else the complaint,
// on line 1: "the listing is for mk44 pcu (its header says so), not for mk43 pcu".
std::optional<Diagnostic> CheckListingHeader(const std::optional<ListingHeader>& header,
                                             std::string_view generation, std::string_view tile);

}  // namespace archspec
