#!/usr/bin/env python3
"""Generates RuntimeRegisters.cpp for the tooling layer: every run-time register that a generation
answers, per tile, with the leaf word it writes where tables/records/runtime_registers.tbl links
one (runtime_registers.py reads and checks that table against the record and enumerant tables),
and why it is not linked where it does not.
"""

import sys

import genlib
import runtime_registers

GENERATOR = "gen_runtime_registers.py"
SOURCES = "compiler/arch_spec/gen/tables/records/runtime_registers.tbl"
HALF = ("RegisterWord::kWhole", "RegisterWord::kLow", "RegisterWord::kHigh")


def emit(found):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ['#include "RuntimeRegisters.h"', "", "namespace archspec {", "namespace {", "",
            "// generation, tile, register (accessor), number, code inferred, leaf path, word,",
            "// stated, table row",
            "const RuntimeRegisterRow kRegisters[] = {"]
    for r in found:
        inferred = "true" if r.inferred else "false"
        stated = "true" if r.row.basis == "stated" else "false"
        out += [f'    {{"{r.column}", "{r.tile}", "{r.accessor}", {r.code}, {inferred},',
                f'     "{r.path}", {HALF[r.half]}, {stated}, "{r.row.source}"}},']
    out += ["};", "", "// table row, what the row rests on or why it links nothing",
            "const RuntimeRegisterNote kNotes[] = {"]
    rows = {r.row.line: r.row for r in found}
    for line in sorted(rows):
        reason = rows[line].reason.replace("\\", "\\\\").replace('"', '\\"')
        out += [f'    {{"{rows[line].source}",', f'     "{reason}"}},']
    out += ["};", "", "}  // namespace", "",
            "std::span<const RuntimeRegisterRow> RuntimeRegisterRows() { return kRegisters; }",
            "std::span<const RuntimeRegisterNote> RuntimeRegisterNotes() { return kNotes; }", "",
            "}  // namespace archspec"]
    return "\n".join(out) + "\n"


def generate(tables, errors):
    _, rows, found = runtime_registers.registers(tables, errors)
    if errors:
        return {}, None
    linked = sum(1 for r in found if r.path)
    summary = (f"{linked} of {len(found)} run-time registers linked to their fields "
               f"({runtime_registers.TABLE})")
    return {"RuntimeRegisters.cpp": emit(found)}, summary


def main(argv=None):
    return genlib.main(__doc__, generate, argv)


if __name__ == "__main__":
    sys.exit(main())
