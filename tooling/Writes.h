// What a change of a configuration costs a running unit: the writes of run-time registers that
// turn one configuration into another while the unit runs, and the changed leaves that no
// run-time register reaches (those need the configuration loaded whole). Writes are the library's
// patches (PatchMetadata: id, register, value), made as CollectPatches makes them for the linked
// leaves of a record registered with its run-time registers (TileRecord::UseRegistered), without
// registering one: a low word (or a leaf of up to 32 bits) is written with `base` added to its
// register, a high word with its register as it is.
//
// The forms of a list of writes: text (a write a line, "NAME = VALUE  # register N: PATH"), JSON,
// and binary (12-byte little-endian records of id, register and value, in that order, no header).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Configuration.h"
#include "Diagnostic.h"
#include "RuntimeRegisters.h"
#include "compiler/arch_spec/Constructs.h"

namespace archspec {

struct WriteOptions {
  uint32_t id = 0;               // the caller's id, passed through to every patch
  std::optional<uint32_t> base;  // added to the register of a low word, as the library does
};

// One register write and what it writes.
struct RegisterWrite {
  zu::spec::PatchMetadata patch;
  size_t leaf = 0;                          // the leaf, in the layout
  const RuntimeRegisterRow* reg = nullptr;  // its register
};

struct RegisterWrites {
  // The writes of the changed words of linked leaves, in bit order of their leaves, a wide
  // leaf's low word before its high word, as CollectPatches gives them.
  std::vector<RegisterWrite> writes;
  // The changed leaves with a changed word that no run-time register writes, in bit order.
  std::vector<size_t> load;
  // Every change reaches the unit through the writes.
  bool reachable() const { return load.empty(); }
};

// The writes that turn `from` into `to`, configurations of one tile class (CanCompare).
RegisterWrites WritesBetween(const Configuration& from, const Configuration& to,
                             const WriteOptions& options = {});
// The same for the values of two configurations of `layout`, one per leaf.
RegisterWrites WritesBetween(const Layout& layout, std::span<const uint64_t> from,
                             std::span<const uint64_t> to, const WriteOptions& options = {});

// The text form: a header line as a listing's ("# archspec mk44 pcu"), then a write a line,
// "pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0 = 0x10  # register 24:
// CounterChain_structIn[0].counter_max_value[0]", then, as comments, the leaves that need a load.
std::string WritesText(const Configuration& from, const RegisterWrites& writes,
                       const WriteOptions& options = {});
// The comment lines of the text form that list the leaves that need a load; empty if none does.
std::string WritesLoadText(const Configuration& from, const RegisterWrites& writes);
// The binary form: 12 bytes a write, id, register and value, each 32 bits little-endian.
std::string WritesBinary(const RegisterWrites& writes);

// The forms of a list of writes.
enum class WritesForm { kText, kJson, kBinary };

// One write read from a list, with its place: a line of the text, or an element of the JSON's
// "writes" ("writes[2]"), or a record of the binary form ("write 3 (bytes 24 to 35)").
struct ReadWrite {
  zu::spec::PatchMetadata patch;
  size_t line = 0;       // the text's line; 0 in the other forms
  std::string place;     // the place in the other forms; empty in the text
  std::string name;      // the register's name where the text or JSON gives one
  bool by_name = false;  // `patch.reg` is the named register's own number, which takes no base
};

struct WritesInput {
  WritesForm form = WritesForm::kText;
  std::vector<ReadWrite> writes;
  std::vector<Diagnostic> errors;
};

// Reads a list of writes in any form WritesText, WritesBinary or the JSON of writes give (JSON
// where it starts with '{', binary where it is not text or `binary` says so), for the tile and
// generation of `target`: a header or JSON that names another generation or tile is refused
// unless `force`. Register names are looked up among `target`'s run-time registers.
WritesInput ReadWrites(std::string_view data, const Configuration& target, bool binary = false,
                       bool force = false);

// Applies `writes` to `configuration`: the complaints, each at its write, where a register is no
// linked run-time register of the tile on that generation, a value is wider than the bits its
// register writes, or two writes to one register disagree; nothing changes then. With `base`, a
// register number is that of a low word plus `base`, as WritesBetween gives it.
std::vector<Diagnostic> ApplyWrites(Configuration& configuration,
                                    const std::vector<ReadWrite>& writes,
                                    std::optional<uint32_t> base = std::nullopt);

}  // namespace archspec
