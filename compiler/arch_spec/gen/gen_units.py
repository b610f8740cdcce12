#!/usr/bin/env python3
"""Generates ParameterUnits.cpp for the tooling layer: every hardware parameter (a scalar row of
tables/constants/params.tbl) with its group heading and the quantity, unit and derived figure
that the rule of units.py gives it, in table order.
"""

import sys

import genlib
import units

GENERATOR = "gen_units.py"
SOURCES = "compiler/arch_spec/gen/tables/constants/params.tbl and units.py"


def emit(sheet):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ['#include "Units.h"', "", "namespace archspec {", "namespace {", "",
            "// accessor, group heading, quantity, unit, derived figure; no quantity where the",
            "// rule gives none",
            "const ParameterRow kParameters[] = {"]
    for name, (group, _, meaning, line) in sheet.items():
        quantity, unit, derived = meaning or ("", "", "")
        out += [f'    {{"{name}", "{group}",  // params.tbl:{line}',
                f'     "{quantity}", "{unit}", "{derived}"}},']
    out += ["};", "", "}  // namespace", "",
            "std::span<const ParameterRow> ParameterRows() { return kParameters; }", "",
            "}  // namespace archspec"]
    return "\n".join(out) + "\n"


def generate(tables, errors):
    try:
        sheet = units.sheet(tables)
    except units.UnitError as e:
        errors.add(genlib.TableError(f"{tables}/constants/params.tbl", 0, str(e)))
        return {}, None
    described = sum(1 for _, _, meaning, _ in sheet.values() if meaning)
    summary = (f"{described} parameters with a quantity, {len(sheet) - described} without "
               f"(units.py)")
    return {"ParameterUnits.cpp": emit(sheet)}, summary


def main(argv=None):
    return genlib.main(__doc__, generate, argv)


if __name__ == "__main__":
    sys.exit(main())
