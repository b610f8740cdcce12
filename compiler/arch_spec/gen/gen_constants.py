#!/usr/bin/env python3
"""Generates the constants, features and constraints classes of every generation.

Reads the tables of compiler/arch_spec/gen/tables/constants: params.tbl (scalar parameters,
derived parameters, uko's differences and the declared totals of the whole constants class),
containers.tbl, features.tbl, constraints.tbl, and the enumeration tables through the enumerants
module. Writes, under OUTDIR/compiler/arch_spec/gen/, ArchConstants.h, ArchConstants.cpp (the
failing defaults of ArchConstants, and the features and constraints classes), KoConstants.cpp
(KoConstants and UkoConstants), RyConstants.cpp, RyeConstants.cpp and ArchConstantsIndex.inc. A file
is rewritten only when its content changes, so that a rerun rebuilds nothing.

Every table is checked against the totals it declares. On a table error the generator prints
"<table>:<line>: error: <accessor>, generation <g>: <found>, <expected>" and exits 1. On success it
prints the number of inferred enumerant codes per type and generation, and nothing else.
"""
import argparse
import collections
import dataclasses
import pathlib
import re
import sys

import enumerants

GEN_DIR = "compiler/arch_spec/gen"
TABLES_DIR = "compiler/arch_spec/gen/tables/constants"
GENERATIONS = ("ko", "ry", "rye")
CLASS_PREFIX = {"ko": "Ko", "uko": "Uko", "ry": "Ry", "rye": "Rye"}

SCALAR_TYPES = ("arch_const_t", "size_t", "uint8_t", "double", "uint64_t", "int", "bool")
ELEMENT_TYPES = ("uint8_t", "int8_t", "int", "double", "bool", "std::string")
INTEGER_RANGES = {
    "arch_const_t": (0, 2**64 - 1),
    "size_t": (0, 2**64 - 1),
    "uint64_t": (0, 2**64 - 1),
    "uint8_t": (0, 255),
    "int8_t": (-128, 127),
    "int": (-(2**31), 2**31 - 1),
    "int32_t": (-(2**31), 2**31 - 1),
}
INTEGER_RE = re.compile(r"-?[0-9]+$")
# A double keeps the digits it is written with, and must read as a double literal in C++.
DOUBLE_RE = re.compile(r"-?[0-9]+(\.[0-9]+)?([eE][-+]?[0-9]+)?$")


class TableError(Exception):
    """A table that disagrees with itself or holds an unknown cell."""


def fail(path, line, accessor, generation, found, expected):
    where = f"{path}:{line}: error: {accessor}, generation {generation}"
    raise TableError(f"{where}: {found}, {expected}")


# --------------------------------------------------------------------------------------------------
# Reading


def table_lines(path):
    """(line number, text) of each line that holds more than a comment.

    A `#` outside double quotes starts a comment."""
    for number, raw in enumerate(path.read_text().splitlines(), start=1):
        quoted = False
        for i, char in enumerate(raw):
            if char == '"':
                quoted = not quoted
            elif char == "#" and not quoted:
                raw = raw[:i]
                break
        if raw.strip():
            yield number, raw.rstrip()


def declared(path, line, what, tokens):
    """The `key=number` cells of a heading line, as a dict."""
    totals = {}
    for token in tokens:
        key, sep, value = token.partition("=")
        if not sep or not value.isdigit():
            fail(path, line, what, "all", f"cell '{token}'", "expected key=number")
        totals[key] = int(value)
    return totals


def check_total(path, line, what, generation, counted, totals, key, unit):
    if key not in totals:
        fail(path, line, what, generation, f"no declared {key}", f"expected {key}={counted}")
    if totals[key] != counted:
        fail(path, line, what, generation, f"{counted} {unit}",
             f"expected {totals[key]} as declared")


def check_value(path, line, accessor, generation, cpp_type, cell):
    """Refuses a cell that is no value of `cpp_type`; returns the cell as it goes into C++."""
    if cpp_type == "bool":
        if cell not in ("true", "false"):
            fail(path, line, accessor, generation, f"cell '{cell}'", "expected true or false")
        return cell
    if cpp_type == "double":
        if not DOUBLE_RE.match(cell) or not re.search(r"[.eE]", cell):
            fail(path, line, accessor, generation, f"cell '{cell}'",
                 "expected a double with a point or an exponent")
        return cell
    if cpp_type == "std::string":
        if not re.fullmatch(r'"[^"\\]*"', cell):
            fail(path, line, accessor, generation, f"cell '{cell}'", "expected a quoted string")
        return cell
    low, high = INTEGER_RANGES[cpp_type]
    if not INTEGER_RE.match(cell) or not low <= int(cell) <= high:
        fail(path, line, accessor, generation, f"cell '{cell}'",
             f"expected a {cpp_type} from {low} to {high}")
    return cell + ("u" if int(cell) > 2**63 - 1 else "")


# --------------------------------------------------------------------------------------------------
# params.tbl: scalar parameters, derived parameters, uko's differences and the interface totals


@dataclasses.dataclass
class Scalar:
    name: str
    type: str
    values: dict  # generation -> C++ literal, or None where the generation does not answer
    line: int
    rule: object = None  # (generations, C++ expression) of a derived accessor


@dataclasses.dataclass
class Params:
    path: pathlib.Path
    scalars: dict  # name -> Scalar, in table order
    uko: dict  # name -> C++ literal
    interface: dict  # declared totals of the whole class
    interface_line: int
    classes: dict  # class name -> (declared totals, line)
    unanswered: tuple  # (declared totals, line)


def derive(path, line, row, scalars, generation, rule):
    """The value of a derived accessor in one generation, and the C++ expression computing it."""
    match = re.fullmatch(r"(ones64|ones32)\((\w+)\)|(\w+) \+ ([0-9]+)", rule)
    if not match:
        fail(path, line, row, generation, f"rule '{rule}'",
             "expected ones64(x), ones32(x) or x + n")
    source = match.group(2) or match.group(3)
    if source not in scalars or scalars[source].values[generation] is None:
        fail(path, line, row, generation, f"source '{source}'",
             "expected a scalar answered by the generation")
    width = int(scalars[source].values[generation].rstrip("u"))
    if match.group(1) == "ones64":
        return (1 << (width % 64)) - 1, f"ones64({source}())"
    if match.group(1) == "ones32":
        return ((1 << (width % 32)) - 1) % 2**32, f"ones32({source}())"
    return width + int(match.group(4)), f"{source}() + {match.group(4)}"


def load_params(path):
    scalars, uko, classes = {}, {}, {}
    interface, interface_line, unanswered = {}, 0, ({}, 0)
    heads = {}  # heading word -> (declared totals, line)
    section, group = None, None
    groups = []  # (declared totals, line, rows)
    derived_rows, uko_rows = [], []
    for line, text in table_lines(path):
        cells = text.split()
        word = cells[0]
        if word == "interface":
            interface, interface_line = declared(path, line, word, cells[1:]), line
        elif word == "class":
            if len(cells) < 2 or cells[1] not in (p + "Constants" for p in CLASS_PREFIX.values()):
                fail(path, line, "class", "all", f"'{text}'", "expected a constants class name")
            classes[cells[1]] = (declared(path, line, cells[1], cells[2:]), line)
        elif word == "unanswered":
            unanswered = (declared(path, line, word, cells[1:]), line)
        elif word in ("scalars", "answers"):
            heads[word] = (declared(path, line, word, cells[1:]), line)
        elif word == "group":
            totals = declared(path, line, "group", [c for c in cells[1:] if "=" in c])
            section, group = "group", (totals, line, [])
            groups.append(group)
        elif word in ("derived", "uko"):
            section = word
            heads[word] = (declared(path, line, word, cells[1:]), line)
        elif section == "group":
            if len(cells) != 2 + len(GENERATIONS):
                fail(path, line, word, "all", f"{len(cells)} cells",
                     "expected accessor, type and one cell per generation (ko ry rye)")
            name, cpp_type = cells[0], cells[1]
            if cpp_type not in SCALAR_TYPES:
                fail(path, line, name, "all", f"type '{cpp_type}'",
                     f"expected one of {', '.join(SCALAR_TYPES)}")
            if name in scalars:
                fail(path, line, name, "all", "a second row",
                     f"expected one (first at line {scalars[name].line})")
            values = {g: None if c == "-" else check_value(path, line, name, g, cpp_type, c)
                      for g, c in zip(GENERATIONS, cells[2:])}
            scalars[name] = Scalar(name, cpp_type, values, line)
            group[2].append(scalars[name])
        elif section == "derived":
            gens = [c for c in cells[1:] if c in GENERATIONS]
            derived_rows.append((line, word, gens, " ".join(cells[1 + len(gens):])))
        elif section == "uko":
            if len(cells) != 2:
                fail(path, line, word, "uko", f"{len(cells)} cells", "expected accessor and value")
            uko_rows.append((line, word, cells[1]))
        else:
            fail(path, line, word, "all", f"line '{text}'", "expected a heading before the rows")

    for word in ("scalars", "answers", "derived", "uko"):
        if word not in heads:
            fail(path, 0, word, "all", "no heading", f"expected a '{word}' line with its totals")
    for totals, line, rows in groups:
        check_total(path, line, "group", "all", len(rows), totals, "rows", "rows")
        answered = sum(1 for s in rows if any(s.values.values()))
        check_total(path, line, "group", "all", answered, totals, "answered", "answered rows")
    totals, line = heads["scalars"]
    check_total(path, line, "scalars", "all", len(scalars), totals, "rows", "rows")
    per_type = collections.Counter(s.type for s in scalars.values())
    for cpp_type in SCALAR_TYPES:
        check_total(path, line, "scalars", "all", per_type[cpp_type], totals, cpp_type,
                    f"{cpp_type} rows")
    totals, line = heads["answers"]
    for g in GENERATIONS:
        answered = sum(1 for s in scalars.values() if s.values[g] is not None)
        check_total(path, line, "answers", g, answered, totals, g, "answered rows")
    none = sum(1 for s in scalars.values() if not any(s.values.values()))
    check_total(path, line, "answers", "all", none, totals, "none",
                "rows answered by no generation")

    totals, line = heads["derived"]
    check_total(path, line, "derived", "all", len(derived_rows), totals, "rows", "rows")
    for line, name, gens, rule in derived_rows:
        if name not in scalars:
            fail(path, line, name, "all", "a derived accessor without a row",
                 "expected a scalar row")
        row = scalars[name]
        if not gens:
            fail(path, line, name, "all", "no generation",
                 "expected the generations the rule serves")
        expression = None
        for g in gens:
            if row.values[g] is None:
                fail(path, line, name, g, "a rule for an unanswered cell",
                     "expected an answered generation")
            value, expression = derive(path, line, name, scalars, g, rule)
            if value != int(row.values[g].rstrip("u")):
                fail(path, line, name, g, f"rule gives {value}",
                     f"expected {row.values[g]} as in the row")
        row.rule = (tuple(gens), expression)

    totals, line = heads["uko"]
    check_total(path, line, "uko", "uko", len(uko_rows), totals, "rows", "rows")
    for line, name, cell in uko_rows:
        if name not in scalars or scalars[name].values["ko"] is None:
            fail(path, line, name, "uko", "no ko answer to differ from",
                 "expected a scalar that ko answers")
        value = check_value(path, line, name, "uko", scalars[name].type, cell)
        if value == scalars[name].values["ko"]:
            fail(path, line, name, "uko", f"value {cell}",
                 "expected a value that differs from ko's")
        uko[name] = value
    return Params(path, scalars, uko, interface, interface_line, classes, unanswered)


# --------------------------------------------------------------------------------------------------
# containers.tbl


@dataclasses.dataclass
class Container:
    name: str
    type: str  # C++ type of the list, e.g. std::vector<std::vector<uint8_t>>
    values: dict  # generation -> C++ initializer list ("" when empty), None where not answered
    line: int


def split_top(text):
    """Splits at the commas that stand outside braces and quotes."""
    parts, depth, quoted, start = [], 0, False, 0
    for i, char in enumerate(text):
        if char == '"':
            quoted = not quoted
        elif not quoted and char in "{}":
            depth += 1 if char == "{" else -1
        elif not quoted and depth == 0 and char == ",":
            parts.append(text[start:i].strip())
            start = i + 1
    tail = text[start:].strip()
    return parts + [tail] if tail or parts else parts


def container_values(path, line, name, generation, cpp_type, cell):
    match = re.fullmatch(r"\[([0-9]+)\]\s*(.*)", cell)
    if not match:
        fail(path, line, name, generation, f"cell '{cell}'",
             "expected '-' or [count] and the elements")
    count, elements = int(match.group(1)), split_top(match.group(2))
    if len(elements) != count:
        fail(path, line, name, generation, f"{len(elements)} elements",
             f"expected {count} as declared")
    nested = re.fullmatch(r"std::vector<std::vector<(.+)>>", cpp_type)
    element = nested.group(1) if nested else re.fullmatch(r"std::vector<(.+)>", cpp_type).group(1)
    written = []
    for item in elements:
        if nested:
            if not (item.startswith("{") and item.endswith("}")):
                fail(path, line, name, generation, f"element '{item}'", "expected a row {...}")
            row = [check_value(path, line, name, generation, element, x)
                   for x in split_top(item[1:-1])]
            written.append("{" + ", ".join(row) + "}")
        else:
            written.append(check_value(path, line, name, generation, element, item))
    if nested and written == ["{}"]:
        # One empty row, spelled so that it cannot read as no rows.
        return f"std::vector<{element}>{{}}"
    return ", ".join(written)


def load_containers(path):
    containers, heading, current = {}, None, None
    for line, text in table_lines(path):
        cells = text.split(None, 1)
        if cells[0] == "containers":
            heading = (declared(path, line, "containers", text.split()[1:]), line)
        elif cells[0] in GENERATIONS and current is not None:
            generation = cells[0]
            if generation in current.values:
                fail(path, line, current.name, generation, "a second line",
                     "expected one line per generation")
            if list(current.values) != list(GENERATIONS[: len(current.values)]) or \
                    GENERATIONS[len(current.values)] != generation:
                fail(path, line, current.name, generation, "generation out of order",
                     "expected ko, ry, rye")
            cell = cells[1].strip() if len(cells) > 1 else ""
            current.values[generation] = None if cell == "-" else \
                container_values(path, line, current.name, generation, current.type, cell)
        else:
            if len(cells) != 2:
                fail(path, line, cells[0], "all", f"line '{text}'",
                     "expected accessor and list type")
            name, cpp_type = cells[0], cells[1].strip()
            element = re.fullmatch(r"std::vector<(?:std::vector<)?(.+?)>>?", cpp_type)
            if not element or element.group(1) not in ELEMENT_TYPES or \
                    cpp_type.count("<") != cpp_type.count(">"):
                fail(path, line, name, "all", f"type '{cpp_type}'",
                     "expected std::vector of (a std::vector of) one of "
                     + ", ".join(ELEMENT_TYPES))
            if name in containers:
                fail(path, line, name, "all", "a second block", "expected one block per accessor")
            current = containers[name] = Container(name, cpp_type, {}, line)
    if heading is None:
        fail(path, 0, "containers", "all", "no heading",
             "expected a 'containers' line with its totals")
    for c in containers.values():
        if len(c.values) != len(GENERATIONS):
            missing = [g for g in GENERATIONS if g not in c.values][0]
            fail(path, c.line, c.name, missing, "no line", "expected one line per generation")
    totals, line = heading
    check_total(path, line, "containers", "all", len(containers), totals, "rows", "blocks")
    for g in GENERATIONS:
        answered = sum(1 for c in containers.values() if c.values[g] is not None)
        check_total(path, line, "containers", g, answered, totals, g, "answered blocks")
    none = sum(1 for c in containers.values() if all(v is None for v in c.values.values()))
    check_total(path, line, "containers", "all", none, totals, "none",
                "blocks answered by no generation")
    return containers


# --------------------------------------------------------------------------------------------------
# features.tbl and constraints.tbl


@dataclasses.dataclass
class Flag:
    name: str
    type: str  # bool, int, optional<int>, optional<Int64Pair> or optional<Struct>
    default: str  # C++ expression of the base class's answer, None for pure virtual
    values: dict  # generation -> C++ expression of the override, or None where the class inherits
    line: int


@dataclasses.dataclass
class Struct:
    name: str
    fields: list  # (name, C++ type)
    values: dict  # generation -> list of C++ literals, or None
    line: int
    declared: dict  # declared totals of the heading


def cpp_flag_type(cpp_type):
    inner = re.fullmatch(r"optional<(.+)>", cpp_type)
    return f"zu::optional<{inner.group(1)}>" if inner else cpp_type


def flag_value(path, line, flag, generation, cpp_type, cell, structs):
    """The C++ expression of one answer of a feature or constraint."""
    if cpp_type in ("bool", "int"):
        return check_value(path, line, flag, generation, cpp_type, cell)
    inner = re.fullmatch(r"optional<(.+)>", cpp_type).group(1)
    if cell == "empty":
        return "{}"
    if inner == "int":
        return check_value(path, line, flag, generation, "int", cell)
    if inner == "Int64Pair":
        pair = re.fullmatch(r"\{(-?[0-9]+),(-?[0-9]+)\}", cell)
        if not pair:
            fail(path, line, flag, generation, f"cell '{cell}'", "expected empty or {a,b}")
        return f"Int64Pair{{{pair.group(1)}, {pair.group(2)}}}"
    struct = structs[inner]
    if cell != "set":
        fail(path, line, flag, generation, f"cell '{cell}'", "expected empty or set")
    if generation == "default" or struct.values[generation] is None:
        fail(path, line, flag, generation, "set without values",
             f"expected the {generation} column of struct {inner} (line {struct.line})")
    fields = ", ".join(f".{n} = {v}" for (n, _), v in zip(struct.fields, struct.values[generation]))
    return f"{inner}{{{fields}}}"


def load_structs(path, lines):
    structs, current = {}, None
    for line, text in lines:
        cells = text.split()
        if cells[0] == "struct":
            totals = declared(path, line, "struct", [c for c in cells[1:] if "=" in c])
            name = [c for c in cells[1:] if "=" not in c]
            if len(name) != 1:
                fail(path, line, "struct", "all", f"line '{text}'", "expected struct fields=N Name")
            current = Struct(name[0], [], {g: [] for g in GENERATIONS}, line, totals)
            structs[current.name] = current
            continue
        if len(cells) != 2 + len(GENERATIONS):
            fail(path, line, cells[0], "all", f"{len(cells)} cells",
                 "expected field, type, ko, ry, rye")
        field, cpp_type = cells[0], cells[1]
        where = f"{current.name}.{field}"
        current.fields.append((field, cpp_type))
        vector = re.fullmatch(r"std::vector<(.+)>", cpp_type)
        for g, cell in zip(GENERATIONS, cells[2:]):
            if cell == "-":
                current.values[g].append(None)
            elif vector:
                if not (cell.startswith("{") and cell.endswith("}")):
                    fail(path, line, where, g, f"cell '{cell}'", "expected {a,b,...}")
                items = [check_value(path, line, where, g, vector.group(1), x)
                         for x in split_top(cell[1:-1])]
                current.values[g].append("{" + ", ".join(items) + "}")
            elif cpp_type in INTEGER_RANGES or cpp_type in ("double", "bool"):
                current.values[g].append(check_value(path, line, where, g, cpp_type, cell))
            else:
                fail(path, line, where, g, f"type '{cpp_type}'",
                     "expected an integer type, double, bool or std::vector of one")
    for s in structs.values():
        check_total(path, s.line, s.name, "all", len(s.fields), s.declared, "fields", "fields")
        for g in GENERATIONS:
            filled = [v is not None for v in s.values[g]]
            if any(filled) and not all(filled):
                fail(path, s.line, s.name, g, "a column with gaps", "expected every field or none")
            s.values[g] = s.values[g] if all(filled) and filled else None
    return structs


def load_flags(path, kind):
    """The rows of features.tbl or constraints.tbl, sorted by accessor name, and their structs."""
    lines = list(table_lines(path))
    first_struct = next((i for i, (_, text) in enumerate(lines) if text.split()[0] == "struct"),
                        len(lines))
    structs = load_structs(path, lines[first_struct:])
    flags, heading, groups = {}, None, []
    for line, text in lines[:first_struct]:
        cells = text.split()
        if cells[0] == kind:
            heading = (declared(path, line, kind, cells[1:]), line)
        elif cells[0] == "group":
            totals = declared(path, line, "group", [c for c in cells[1:] if "=" in c])
            groups.append((totals, line, []))
        elif not groups:
            fail(path, line, cells[0], "all", f"line '{text}'",
                 "expected a group heading before the rows")
        else:
            if len(cells) != 3 + len(GENERATIONS):
                fail(path, line, cells[0], "all", f"{len(cells)} cells",
                     "expected accessor, type, default and one cell per generation (ko ry rye)")
            name, cpp_type, default = cells[0], cells[1], cells[2]
            inner = re.fullmatch(r"optional<(.+)>", cpp_type)
            known = ("int", "Int64Pair", *structs)
            if cpp_type not in ("bool", "int") and not (inner and inner.group(1) in known):
                fail(path, line, name, "all", f"type '{cpp_type}'",
                     "expected bool, int, optional<int>, optional<Int64Pair> or optional<Struct>")
            if name in flags:
                fail(path, line, name, "all", "a second row",
                     f"expected one (first at line {flags[name].line})")
            base = None if default == "none" else \
                flag_value(path, line, name, "default", cpp_type, default, structs)
            values = {}
            for g, cell in zip(GENERATIONS, cells[3:]):
                explicit = cell.endswith("!")
                value = flag_value(path, line, name, g, cpp_type, cell.rstrip("!"), structs)
                if explicit and (base is None or value != base):
                    fail(path, line, name, g, f"cell '{cell}'",
                         "expected '!' only on an answer equal to the default")
                values[g] = value if base is None or value != base or explicit else None
            flags[name] = Flag(name, cpp_type, base, values, line)
            groups[-1][2].append(name)
    if heading is None:
        fail(path, 0, kind, "all", "no heading", f"expected a '{kind}' line with its totals")
    for totals, line, rows in groups:
        check_total(path, line, "group", "all", len(rows), totals, "rows", "rows")
    totals, line = heading
    check_total(path, line, kind, "all", len(flags), totals, "rows", "rows")
    kinds = collections.Counter(f.type.split("<")[0] for f in flags.values())
    for key in ("bool", "int", "optional"):
        check_total(path, line, kind, "all", kinds[key], totals, key, f"{key} rows")
    pure = sum(1 for f in flags.values() if f.default is None)
    check_total(path, line, kind, "all", pure, totals, "pure", "pure virtual rows")
    return dict(sorted(flags.items())), structs


# --------------------------------------------------------------------------------------------------
# The whole constants class


@dataclasses.dataclass
class Accessor:
    kind: str  # SCALAR, ENUM or CONTAINER
    name: str
    type: str  # declared return type
    values: dict  # class prefix (Ko, Uko, Ry, Rye) -> C++ answer; Uko only where it overrides
    source: str  # "table:line"


def constants_interface(tables, params, containers, enum_types, enum_items):
    """All accessors in virtual-table order.

    Scalars, enumerants, containers, each block by accessor name in byte order. Checks the totals
    that params.tbl declares for the whole class."""
    scalars = []
    for s in sorted(params.scalars.values(), key=lambda s: s.name):
        values = {}
        for g in GENERATIONS:
            if s.values[g] is not None:
                derived = s.rule is not None and g in s.rule[0]
                values[CLASS_PREFIX[g]] = s.rule[1] if derived else s.values[g]
        if s.name in params.uko:
            values["Uko"] = params.uko[s.name]
        scalars.append(Accessor("SCALAR", s.name, s.type, values, f"{params.path.name}:{s.line}"))
    enums = []
    for e in sorted(enum_items, key=lambda e: e.accessor):
        values = {CLASS_PREFIX[g]: f"code({e.codes[g]})"
                  for g in GENERATIONS if e.codes.get(g) is not None}
        for g, code in e.codes.items():
            if code is not None and not 0 <= code < 2**64:
                path, _, line = e.source.rpartition(":")
                fail(tables / path, line, e.accessor, g, f"code {code}",
                     "expected a 64-bit unsigned code")
        enums.append(Accessor("ENUM", e.accessor, e.type, values, e.source))
    lists = []
    for c in sorted(containers.values(), key=lambda c: c.name):
        values = {CLASS_PREFIX[g]: c.values[g] for g in GENERATIONS if c.values[g] is not None}
        lists.append(Accessor("CONTAINER", c.name, f"const {c.type}&", values,
                              f"containers.tbl:{c.line}"))
    accessors = scalars + enums + lists

    seen = {}
    for a in accessors:
        if a.name in seen:
            path, _, line = a.source.rpartition(":")
            fail(tables / path, line, a.name, "all", "a second accessor of this name",
                 f"expected unique names (first at {seen[a.name]})")
        seen[a.name] = a.source

    path, line = params.path, params.interface_line
    counted = {"accessors": len(accessors), "scalars": len(scalars), "enumerants": len(enums),
               "containers": len(lists), "types": len(enum_types)}
    for key, value in counted.items():
        check_total(path, line, "interface", "all", value, params.interface, key, key)
    for prefix in CLASS_PREFIX.values():
        name = f"{prefix}Constants"
        if name not in params.classes:
            fail(path, line, name, prefix.lower(), "no class line",
                 "expected its declared overrides")
        totals, class_line = params.classes[name]
        own = [a for a in accessors if prefix in a.values]
        enumerants_answered = sum(1 for a in own if a.kind == "ENUM")
        check_total(path, class_line, name, prefix.lower(), len(own), totals, "overrides",
                    "overrides")
        check_total(path, class_line, name, prefix.lower(), len(own) - enumerants_answered, totals,
                    "parameters", "parameter overrides")
        check_total(path, class_line, name, prefix.lower(), enumerants_answered, totals,
                    "enumerants",
                    "enumerant overrides")
    totals, line = params.unanswered
    none = [a for a in accessors if not a.values]
    check_total(path, line, "unanswered", "all", len(none), totals, "total", "unanswered accessors")
    check_total(path, line, "unanswered", "all", sum(1 for a in none if a.kind != "ENUM"), totals,
                "parameters", "unanswered parameters")
    check_total(path, line, "unanswered", "all", sum(1 for a in none if a.kind == "ENUM"), totals,
                "enumerants", "unanswered enumerants")
    return accessors


# --------------------------------------------------------------------------------------------------
# Emitting: one function per generated file or kind of class, one line per accessor

GENERATED = f"// Generated by gen_constants.py from {TABLES_DIR}/*.tbl. Do not edit."
FAMILY_CLASSES = (("Ko", "Arch"), ("Uko", "Ko"), ("Ry", "Arch"), ("Rye", "Arch"))  # class, base

HEADER_TOP = f"""\
{GENERATED}
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "compiler/arch_spec/Constructs.h"
#include "zu/Optional.h"

namespace zu::spec {{

// The general integer of the constants classes; no value is negative.
using arch_const_t = uint64_t;

// Enumeration types (enums_*.tbl): each names a 64-bit leaf that holds one code. An accessor
// returns a fresh leaf, its unique id unassigned.
"""

CONSTANTS_CPP_TOP = f"""\
{GENERATED}
// The failing defaults of ArchConstants, and the features and constraints classes.
#include "compiler/arch_spec/gen/ArchConstants.h"

#include <string>
#include <string_view>

#include "compiler/arch_spec/Logging.h"
#include "zu/SourceLocation.h"

namespace zu::spec {{
namespace {{

constexpr char kFile[] = "{GEN_DIR}/ArchConstants.cpp";

// Ends the process: the generation in force does not answer `name`. `where` is the accessor's own
// default body, so that the failure names the accessor twice.
[[noreturn]] void accessor_not_implemented(std::string_view name,
                                           const zu::SourceLocationBase& where) {{
  unreachable("Enum " + std::string(name) + " not implemented for target architecture!", where);
}}

}}  // namespace

ArchConstants::~ArchConstants() = default;
"""

CODE_HELPER = """\
// A fresh enumeration leaf holding `value`; its unique id stays unassigned.
BitsInteger<64> code(uint64_t value) {
  BitsInteger<64> leaf;
  leaf = value;
  return leaf;
}
"""

ONES_HELPERS = {
    "ones64": """\
// All ones in `bits` bits, in 64-bit arithmetic; the shift count is taken modulo 64.
uint64_t ones64(uint64_t bits) { return (uint64_t{1} << (bits % 64)) - 1; }
""",
    "ones32": """\
// All ones in `bits` bits, in 32-bit arithmetic; the shift count is taken modulo 32.
uint32_t ones32(uint64_t bits) { return (uint32_t{1} << (bits % 32)) - 1; }
""",
}

INDEX_KINDS = "kind: SCALAR, ENUM, CONTAINER; 1 = answered"
INDEX_TOP = f"""\
{GENERATED}
// Every accessor of the constants, features and constraints classes, in interface order.
// ZU_SPEC_CONSTANT(kind, return type, accessor, ko, uko, ry, rye)   {INDEX_KINDS}
// ZU_SPEC_FEATURE(return type, accessor)   and   ZU_SPEC_CONSTRAINT(return type, accessor)
// A macro that the includer leaves undefined expands to nothing.
#ifndef ZU_SPEC_CONSTANT
#define ZU_SPEC_CONSTANT(kind, type, accessor, ko, uko, ry, rye)
#endif
#ifndef ZU_SPEC_FEATURE
#define ZU_SPEC_FEATURE(type, accessor)
#endif
#ifndef ZU_SPEC_CONSTRAINT
#define ZU_SPEC_CONSTRAINT(type, accessor)
#endif
"""

INDEX_BOTTOM = """
#undef ZU_SPEC_CONSTANT
#undef ZU_SPEC_FEATURE
#undef ZU_SPEC_CONSTRAINT
"""

BLOCKS = (("SCALAR", "Scalar parameters (params.tbl)."),
          ("ENUM", "Enumerants (enums_*.tbl)."),
          ("CONTAINER", "Container parameters (containers.tbl): the same object at every call."))


def signature_type(a):
    """The return type as the function signature of a failure names it."""
    return f"const {a.type[len('const '):-1]} &" if a.kind == "CONTAINER" else a.type


def emit_constants_classes(accessors):
    out = ["// What the compiler asks of a chip generation. Every accessor of this base class",
           '// fails with "Enum <name> not implemented for target architecture!".',
           "class ArchConstants {", " public:", "  virtual ~ArchConstants() = 0;"]
    for kind, title in BLOCKS:
        out += ["", f"  // {title}"]
        out += [f"  virtual {a.type} {a.name}() const;" for a in accessors if a.kind == kind]
    out += ["};", ""]
    for prefix, base in FAMILY_CLASSES:
        name = f"{prefix}Constants"
        out += [f"// Generation {prefix.lower()}.", f"class {name} : public {base}Constants {{",
                " public:", f"  ~{name}() override;"]
        out += [f"  {a.type} {a.name}() const override;" for a in accessors if prefix in a.values]
        out += ["};", ""]
    return out


def emit_structs(structs):
    out = ["// The two numbers answered by ArchFeatures::dotp_accumulation().",
           "using Int64Pair = std::pair<int64_t, int64_t>;", ""]
    for s in structs.values():
        out += [f"// Aggregate of an optional feature (features.tbl:{s.line}).",
                f"struct {s.name} {{"]
        out += [f"  {cpp_type} {field};" for field, cpp_type in s.fields]
        out += ["};", ""]
    return out


def emit_flag_classes(family, flags):
    out = [f"// {family} of a generation ({family.lower()}.tbl). An accessor that is not pure",
           "// answers false, 0 or empty unless the generation's class overrides it.",
           f"class Arch{family} {{", " public:", f"  virtual ~Arch{family}() = 0;", ""]
    for f in flags.values():
        pure = " = 0" if f.default is None else ""
        out.append(f"  virtual {cpp_flag_type(f.type)} {f.name}() const{pure};")
    out += ["};", ""]
    for prefix, base in FAMILY_CLASSES:
        name = f"{prefix}{family}"
        out += [f"class {name} : public {base}{family} {{", " public:", f"  ~{name}() override;"]
        if prefix != "Uko":  # uko answers as ko
            out += [f"  {cpp_flag_type(f.type)} {f.name}() const override;"
                    for f in flags.values() if f.values[prefix.lower()] is not None]
        out += ["};", ""]
    return out


def emit_header(accessors, enum_types, features, feature_structs, constraints):
    out = [HEADER_TOP.rstrip("\n")]
    out += [f"using {name} = BitsInteger<64>;" for name in sorted(name for name, _ in enum_types)]
    out += [""] + emit_constants_classes(accessors) + emit_structs(feature_structs)
    out += emit_flag_classes("Features", features) + emit_flag_classes("Constraints", constraints)
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


def emit_default_bodies(accessors, first_line):
    """The failing body of every accessor; each names its own signature and line in the file."""
    out = []
    for line, a in enumerate(accessors, start=first_line):
        signature = f"virtual {signature_type(a)} zu::spec::ArchConstants::{a.name}() const"
        at = f'static constexpr zu::SourceLocationBase kAt{{kFile, "{signature}", {line}, 1}};'
        out.append(f"{a.type} ArchConstants::{a.name}() const {{ {at} "
                   f'accessor_not_implemented("{a.name}", kAt); }}')
    return out


def emit_flag_bodies(family, flags):
    out = [f"// {family} ({family.lower()}.tbl).", f"Arch{family}::~Arch{family}() = default;"]
    out += [f"{cpp_flag_type(f.type)} Arch{family}::{f.name}() const {{ return {f.default}; }}"
            for f in flags.values() if f.default is not None]
    for prefix, _ in FAMILY_CLASSES:
        name = f"{prefix}{family}"
        out += ["", f"{name}::~{name}() = default;"]
        if prefix != "Uko":
            out += [f"{cpp_flag_type(f.type)} {name}::{f.name}() const {{ return {value}; }}"
                    for f in flags.values() if (value := f.values[prefix.lower()]) is not None]
    return out + [""]


def emit_arch_constants_cpp(accessors, features, constraints):
    out = CONSTANTS_CPP_TOP.splitlines() + [""]
    out += emit_default_bodies(accessors, first_line=len(out) + 1) + [""]
    out += emit_flag_bodies("Features", features) + emit_flag_bodies("Constraints", constraints)
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


def emit_body(prefix, a):
    answer = a.values[prefix]
    if a.kind == "CONTAINER":
        vector = a.type[len("const "):-1]
        init = f"{{{answer}}}" if answer else ""
        vals = f"static const {vector} vals{init};"
        return f"{a.type} {prefix}Constants::{a.name}() const {{ {vals} return vals; }}"
    return f"{a.type} {prefix}Constants::{a.name}() const {{ return {answer}; }}"


def emit_generation_cpp(prefixes, accessors):
    """The .cpp file of one generation's class (ko's holds uko's as well)."""
    answers = [(p, a) for p in prefixes for a in accessors if p in a.values]
    helpers = [CODE_HELPER] if any(a.kind == "ENUM" for _, a in answers) else []
    helpers += [text for name, text in ONES_HELPERS.items()
                if any(f"{name}(" in a.values[p] for p, a in answers)]
    names = " and ".join(p.lower() for p in prefixes)
    out = [GENERATED,
           f"// The answers of generation {names} (params.tbl, containers.tbl, enums_*.tbl).",
           '#include "compiler/arch_spec/gen/ArchConstants.h"', "", "namespace zu::spec {",
           "namespace {", ""]
    out += "\n".join(helpers).splitlines() + ["", "}  // namespace", ""]
    for prefix in prefixes:
        out += [f"{prefix}Constants::~{prefix}Constants() = default;", ""]
        for kind, title in BLOCKS:
            rows = [emit_body(prefix, a) for p, a in answers if p == prefix and a.kind == kind]
            if rows:
                out += [f"// {prefix}Constants: {title}"] + rows + [""]
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


def emit_index(accessors, features, constraints):
    out = INDEX_TOP.splitlines() + [""]
    for a in accessors:
        answered = ["1" if p in a.values or (p == "Uko" and "Ko" in a.values) else "0"
                    for p in CLASS_PREFIX.values()]
        out.append(f"ZU_SPEC_CONSTANT({a.kind}, {a.type}, {a.name}, {', '.join(answered)})")
    out.append("")
    out += [f"ZU_SPEC_FEATURE({cpp_flag_type(f.type)}, {f.name})" for f in features.values()]
    out.append("")
    out += [f"ZU_SPEC_CONSTRAINT({cpp_flag_type(f.type)}, {f.name})" for f in constraints.values()]
    return "\n".join(out) + "\n" + INDEX_BOTTOM


# --------------------------------------------------------------------------------------------------


def write_if_changed(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    if path.exists() and path.read_text() == text:
        return
    path.write_text(text)


def generate(tables, out):
    """Reads and checks every table, then writes the generated files.

    Returns the inference summary of the enumerants."""
    enum_types, enum_items = enumerants.load(tables)
    params = load_params(tables / "params.tbl")
    containers = load_containers(tables / "containers.tbl")
    features, feature_structs = load_flags(tables / "features.tbl", "features")
    constraints, _ = load_flags(tables / "constraints.tbl", "constraints")
    accessors = constants_interface(tables, params, containers, enum_types, enum_items)

    gen = out / GEN_DIR
    files = {
        "ArchConstants.h": emit_header(accessors, enum_types, features, feature_structs,
                                       constraints),
        "ArchConstants.cpp": emit_arch_constants_cpp(accessors, features, constraints),
        "KoConstants.cpp": emit_generation_cpp(("Ko", "Uko"), accessors),
        "RyConstants.cpp": emit_generation_cpp(("Ry",), accessors),
        "RyeConstants.cpp": emit_generation_cpp(("Rye",), accessors),
        "ArchConstantsIndex.inc": emit_index(accessors, features, constraints),
    }
    for name, text in files.items():
        write_if_changed(gen / name, text)
    return enumerants.inferred_summary(enum_items)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tables", required=True, type=pathlib.Path)
    parser.add_argument("--out", required=True, type=pathlib.Path)
    args = parser.parse_args()
    try:
        summary = generate(args.tables, args.out)
    except (TableError, enumerants.TableError) as e:
        print(str(e))
        return 1
    for type_name, generation, count in summary:
        print(f"{type_name}, generation {generation}: {count} codes inferred")
    return 0


if __name__ == "__main__":
    sys.exit(main())
