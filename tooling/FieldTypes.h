// The generated link between tiles' leaves and the enumerations (from the table of field types,
// tables/records/field_types.tbl): the enumeration types, the enumerant codes that
// are inferred rather than stated, and the leaves of each tile that hold a code of a type.
#pragma once

#include <span>

namespace archspec {

// One enumeration type of the constants interface.
struct EnumTypeRow {
  const char* name;    // "stage_opcode_t"
  const char* source;  // its table row, "enums_opcodes.tbl:212"
};

// An enumerant whose code is inferred on some generation.
struct InferredCodeRow {
  const char* accessor;  // "pcu_ctloutxbar_enum_pcu_ctloutxbar_ne_scl_crdrtn_0"
  // One character per generation with answers, in the order of the table of generations: 'i'
  // where that generation's code is inferred, '-' where it is stated or not answered.
  const char* marks;
};

// The leaves of one tile, in one records namespace, that hold a code of an enumeration type.
struct FieldTypeRow {
  const char* ns;      // records namespace, "ry"
  const char* tile;    // "pcu"
  const char* path;    // leaf path with every index written as [], "simd_structIn[][].stage_opcode"
  const char* type;    // "stage_opcode_t"
  bool stated;         // the tile's description says so; else inferred from name and role
  const char* source;  // its row of the table of field types, "field_types.tbl:20"
};

std::span<const EnumTypeRow> EnumTypeRows();
std::span<const InferredCodeRow> InferredCodeRows();
std::span<const FieldTypeRow> FieldTypeRows();

}  // namespace archspec
