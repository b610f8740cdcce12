// The run-time registers of a unit: the registers that can be written while it runs, one code per
// register of the run-time register enumerations (pcu_rcf_enum_t, pmu_rcf_enum_t, agcu_rcf_enum_t,
// pl_switch_rcf_enum_t), each linked, where the table of run-time registers says so
// (tables/records/runtime_registers.tbl), to the leaf of the tile's record that it writes, or to
// the low or high word of a leaf above 32 bits. The rows are generated from that table, checked
// against the record and enumerant tables.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "compiler/arch_spec/ArchVersion.h"

namespace archspec {

struct TileType;

// Which bits of a leaf a register writes: all of a leaf of up to 32 bits, or one word of a wider
// leaf as the library splits it (the low 32 bits, and the bits from 32 up).
enum class RegisterWord : uint8_t { kWhole, kLow, kHigh };

// One run-time register that a generation answers.
struct RuntimeRegisterRow {
  const char* generation;  // the generation whose answers give it, "ry" (uko answers as ko)
  const char* tile;        // "pcu"
  const char* name;        // its accessor, "pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0"
  uint32_t number;         // its code: the register's number inside the unit
  bool inferred;           // the code is inferred in the constants tables, not stated
  const char* path;        // the leaf it writes; empty where it is not linked
  RegisterWord word;
  bool stated;         // the link is stated by the description of the registers, else inferred
  const char* source;  // its row of the table, "runtime_registers.tbl:30"

  bool linked() const { return *path != '\0'; }
};

// What a row of the table rests on, or why it links nothing: the row's comment.
struct RuntimeRegisterNote {
  const char* source;
  const char* text;
};

std::span<const RuntimeRegisterRow> RuntimeRegisterRows();
std::span<const RuntimeRegisterNote> RuntimeRegisterNotes();

// Every run-time register of `tile` on `version`, linked or not, in the order of the table;
// empty for a generation without answers.
std::vector<const RuntimeRegisterRow*> RuntimeRegistersOf(const zu::spec::ArchVersion& version,
                                                          const TileType& tile);
// The comment of the register's row: why the link holds, or why there is none.
std::string_view RuntimeRegisterNoteOf(const RuntimeRegisterRow& row);
// "low word", "high word", or "" for a whole leaf.
const char* WordName(RegisterWord word);
// "low", "high" or "whole": the word in JSON and Python.
const char* WordKey(RegisterWord word);

}  // namespace archspec
