// The sparse listing of a tile configuration: one `path = value` line per non-zero leaf.
//
//   # stage 0 of context 0 multiplies and adds
//   simd_structIn[0][0].stage_opcode = stage_opcode_alu_op_madd
//   common_structIn.udc_init_value[0] = 4
//
// A value is decimal, `0x` hexadecimal, or the name of an enumerant accessor of the generation in
// force. Lines may come in any order; `#` starts a comment; blank lines are allowed; a leaf that is
// not named is 0. So a line deleted or moved still leaves a valid configuration.
//
// The written form is canonical: the non-zero leaves in bit order, each value in lower-case `0x`
// hexadecimal, so that two configurations are equal exactly when their listings are identical.
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
};
using NameResolver = std::function<NamedValue(std::string_view name)>;

struct SparseResult {
  std::vector<uint64_t> values;    // one per leaf of the layout, in its order; all 0 on failure
  std::vector<Diagnostic> errors;  // in line order; empty if the listing is valid
  bool ok() const { return errors.empty(); }
};

// Reads a listing against `layout`. Names in value position go to `names` (which may be empty:
// then every name is refused). Stops collecting after `max_errors` faults.
SparseResult ReadSparse(std::string_view text, const Layout& layout, const NameResolver& names,
                        size_t max_errors = 20) noexcept;

// The canonical listing of `values` (one per leaf of `layout`), after the comment lines of
// `header` (each written as "# line"). With `all`, zero leaves are written too.
std::string WriteSparse(const Layout& layout, const std::vector<uint64_t>& values,
                        const std::vector<std::string>& header = {}, bool all = false);

// "0x1f": the one value format of the written listing.
std::string Hex(uint64_t value);

}  // namespace archspec
