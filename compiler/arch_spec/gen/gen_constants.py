#!/usr/bin/env python3
"""Generates the constants, features and constraints classes of every generation from
tables/constants: params.tbl (params.py), containers.tbl (containers.py), features.tbl and
constraints.tbl (flags.py), and the enumerant tables enums_*.tbl (enumerants.py).

It assembles the whole constants interface in virtual-table order, checks it against the totals
that params.tbl declares, and writes (emit_constants.py) ArchConstants.h (the three interfaces,
the enumeration types and the aggregates), ArchGenerations.h (the classes of each generation),
ArchConstants.cpp (the failing defaults, and the features and constraints answers), one
<Code>Constants.cpp per generation with a column of its own (with the classes that answer as it),
and ArchConstantsIndex.inc (every accessor, for the tools). It prints one line: how many
enumerant codes are inferred.
"""

import dataclasses
import os
import sys
import types

import emit_constants
import enumerants
import genlib
from constant_cells import check_total, fail
from containers import load_containers
from flags import load_flags
from params import load_params


@dataclasses.dataclass
class Accessor:
    kind: str  # SCALAR, ENUM or CONTAINER
    name: str
    type: str  # declared return type
    values: dict  # class prefix (Ko, Uko, Ry, Rye) -> C++ answer; inheriting classes: own rows only
    source: str  # "table:line" of the row
    inferred: dict = dataclasses.field(default_factory=dict)  # prefix -> True where inferred
    pattern: str = ""  # an enumerant's row: its pattern
    rank: int = 0  # its place in its table: the line, or for enumerants the expansion order
    origins: dict = dataclasses.field(default_factory=dict)  # prefix -> row, where not `source`


def scalar_accessors(params, generations):
    out = []
    for s in sorted(params.scalars.values(), key=lambda s: s.name):
        values, origins = {}, {}
        for g in generations.with_answers:
            if g.answers == "own" and s.values[g.code] is not None:
                derived = s.rule is not None and g.code in s.rule[0]
                values[g.prefix] = s.rule[1] if derived else s.values[g.code]
            elif s.name in params.differences.get(g.code, {}):
                values[g.prefix], line = params.differences[g.code][s.name]
                origins[g.prefix] = f"{os.path.basename(params.path)}:{line}"
        out.append(Accessor("SCALAR", s.name, s.type, values,
                            f"{os.path.basename(params.path)}:{s.line}", rank=s.line,
                            origins=origins))
    return out


def enum_accessors(enum_items, generations, tables, errors):
    out = []
    own = [g for g in generations.with_answers if g.answers == "own"]
    rank = {e.accessor: i for i, e in enumerate(enum_items)}
    for e in sorted(enum_items, key=lambda e: e.accessor):
        with errors.collect():
            for g in own:
                code = e.codes.get(g.code)
                if code is not None and not 0 <= code < 2**64:
                    path, _, line = e.source.rpartition(":")
                    fail(os.path.join(tables, path), line, e.accessor, g.code, f"code {code}",
                         "expected a 64-bit unsigned code")
            values = {g.prefix: f"code({e.codes[g.code]})" for g in own
                      if e.codes.get(g.code) is not None}
            inferred = {g.prefix: e.inferred[g.code] for g in own}
            out.append(Accessor("ENUM", e.accessor, e.type, values, e.source, inferred, e.pattern,
                                rank[e.accessor]))
    return out


def container_accessors(containers, generations):
    out = []
    for c in sorted(containers.values(), key=lambda c: c.name):
        values = {g.prefix: c.values[g.code] for g in generations.with_answers
                  if g.answers == "own" and c.values[g.code] is not None}
        out.append(Accessor("CONTAINER", c.name, f"const {c.type}&", values,
                            f"containers.tbl:{c.line}", rank=c.line))
    return out


def check_interface(params, accessors, enum_types, generations, tables, errors):
    """The totals that params.tbl declares for the whole class, its classes and what no class
    answers, each counted from the accessors that the tables' rows make."""
    path, line = params.path, params.interface.line
    seen = {}
    for a in accessors:
        with errors.collect():
            if a.name in seen:
                file, _, row = a.source.rpartition(":")
                fail(os.path.join(tables, file), row, a.name, "all", "a second accessor of this name",
                     f"expected unique names (first at {seen[a.name]})")
            seen[a.name] = a.source
    counted = {"accessors": len(accessors), "types": len(enum_types)}
    for kind, key in (("SCALAR", "scalars"), ("ENUM", "enumerants"), ("CONTAINER", "containers")):
        counted[key] = sum(1 for a in accessors if a.kind == kind)
    for key, value in counted.items():
        check_total(errors, params.interface, key, value, key)
    classes = {f"{g.prefix}Constants": g for g in generations.with_answers}
    for name, totals in params.classes.items():
        if name not in classes:
            errors.add(genlib.TableError(path, totals.line, f"class {name}: found a class of no "
                                         "generation, expected one of " + ", ".join(classes)))
    for name, g in classes.items():
        if name not in params.classes:
            with errors.collect():
                fail(path, line, name, g.code, "no class line", "expected its declared overrides")
            continue
        totals = params.classes[name]
        own = [a for a in accessors if g.prefix in a.values]
        enums = sum(1 for a in own if a.kind == "ENUM")
        for key, number, unit in (("overrides", len(own), "overrides"),
                                  ("parameters", len(own) - enums, "parameter overrides"),
                                  ("enumerants", enums, "enumerant overrides")):
            check_total(errors, totals, key, number, unit, generation=g.code)
    none = [a for a in accessors if not a.values]
    for key, number, unit in (
            ("total", len(none), "unanswered accessors"),
            ("parameters", sum(1 for a in none if a.kind != "ENUM"), "unanswered parameters"),
            ("enumerants", sum(1 for a in none if a.kind == "ENUM"), "unanswered enumerants")):
        check_total(errors, params.unanswered, key, number, unit)


def load_constant_tables(tables, errors):
    """Every table of the constants directory, read once, for this generator and the others that
    show the answers (the Python package's stubs): a namespace of the generations, the
    enumeration types and items, parameters, containers, features, their structs and
    constraints; None if the generations cannot be read."""
    generations = genlib.load_generations(tables, errors)
    if errors:
        return None
    constants = os.path.join(tables, "constants")
    enum_types, enum_items = enumerants.load_types(constants, generations.columns, errors)
    features, structs = load_flags(os.path.join(constants, "features.tbl"), "features",
                                   generations, errors)
    constraints, _ = load_flags(os.path.join(constants, "constraints.tbl"), "constraints",
                                generations, errors)
    return types.SimpleNamespace(
        generations=generations, constants=constants, enum_types=enum_types,
        enum_items=enum_items,
        params=load_params(os.path.join(constants, "params.tbl"), generations, errors),
        containers=load_containers(os.path.join(constants, "containers.tbl"), generations,
                                   errors),
        features=features, structs=structs, constraints=constraints)


def all_accessors(t, errors):
    """The accessors of the constants classes: scalars, enumerants and containers."""
    return (scalar_accessors(t.params, t.generations)
            + enum_accessors(t.enum_items, t.generations, t.constants, errors)
            + container_accessors(t.containers, t.generations))


def generate(tables, errors):
    t = load_constant_tables(tables, errors)
    if t is None:
        return {}, None
    generations, constants, enum_types = t.generations, t.constants, t.enum_types
    params, features, structs, constraints = t.params, t.features, t.structs, t.constraints
    if errors.faults():  # wrong totals only: the interface's totals are checked all the same
        return {}, None
    accessors = all_accessors(t, errors)
    check_interface(params, accessors, enum_types, generations, constants, errors)
    if errors:
        return {}, None
    files = emit_constants.files(generations, accessors, enum_types, features, structs,
                                 constraints)
    summary = enumerants.inferred_summary(t.enum_items, generations.columns)
    inferred = sum(n for _, _, n in summary)
    line = (f"{inferred} enumerant codes inferred, in {len({t for t, _, _ in summary})} types "
            "(the rows marked '# inferred' in tables/constants/enums_*.tbl)")
    return files, line if inferred else None


def main(argv=None):
    return genlib.main(__doc__, generate, argv)


if __name__ == "__main__":
    sys.exit(main())
