#!/usr/bin/env python3
"""Generates FieldTypes.cpp, the link between a tile's leaves and the enumerations, for the tooling
layer: the enumeration types, the enumerant codes that were inferred rather than
stated, and for every tile of every records namespace the leaves that hold a code of a type, as
path templates ("simd_structIn[][].stage_opcode"). It reads tables/records/field_types.tbl, which
field_types.py reads and checks against the record and enumerant tables.
"""

import os
import sys

import field_types
import genlib

GENERATOR = "gen_field_types.py"
SOURCES = "compiler/arch_spec/gen/tables/records/field_types.tbl"


def wrap(line, indent="     "):
    """A row of a table that does not fit the line width continues on the next line."""
    if len(line) <= genlib.LINE_WIDTH:
        return [line]
    head, _, tail = line.rpartition(", ")
    return [head + ",", indent + tail]


def emit(generations, tiles, types, enums, rows, per_ns):
    with_answers = generations.with_answers
    columns = [g.code if g.answers == "own" else g.answers for g in with_answers]
    out = genlib.banner(GENERATOR, SOURCES)
    out += ['#include "FieldTypes.h"', "", "namespace archspec {", "namespace {", "",
            "// type, table row",
            "const EnumTypeRow kEnumTypes[] = {"]
    out += [f'    {{"{t.name}", "{os.path.basename(t.path)}:{t.line}"}},' for t in types]
    codes = " ".join(g.code for g in with_answers)
    out += ["};", "",
            f"// enumerant accessor, one character per generation with answers ({codes}):",
            "// 'i' where its code is inferred, '-' otherwise",
            "const InferredCodeRow kInferredCodes[] = {"]
    for e in enums:
        marks = "".join("i" if e.inferred.get(c) else "-" for c in columns)
        if "i" in marks:
            out += wrap(f'    {{"{e.accessor}", "{marks}"}},')
    out += ["};", "", "// records namespace, tile, leaf path template, type, stated, table row",
            "const FieldTypeRow kFieldTypes[] = {"]
    for (ns, tile), found in field_types.typed_templates(per_ns, tiles, rows).items():
        for template, type_name, row in found:
            stated = "true" if row.basis == "stated" else "false"
            out += [f'    {{"{ns}", "{tile}", "{template}",',
                    f'     "{type_name}", {stated}, "{row.source}"}},']
    out += ["};", "", "}  // namespace", "",
            "std::span<const EnumTypeRow> EnumTypeRows() { return kEnumTypes; }",
            "std::span<const InferredCodeRow> InferredCodeRows() { return kInferredCodes; }",
            "std::span<const FieldTypeRow> FieldTypeRows() { return kFieldTypes; }", "",
            "}  // namespace archspec"]
    return "\n".join(out) + "\n"


def generate(tables, errors):
    generations, per_ns, tiles, types, enums, rows = field_types.load(tables, errors)
    if errors:
        return {}, None
    typed = sum(1 for r in rows if r.types)
    summary = (f"{typed} fields typed, {len(rows) - typed} listed as untyped "
               f"({field_types.TABLE})")
    return {"FieldTypes.cpp": emit(generations, tiles, types, enums, rows, per_ns)}, summary


def main(argv=None):
    return genlib.main(__doc__, generate, argv)


if __name__ == "__main__":
    sys.exit(main())
