"""Reads features.tbl and constraints.tbl: one row per accessor of the features or constraints
classes, and the structs that optional answers are built from.

A row gives the accessor, its type (bool, int, optional<int>, optional<Int64Pair> or
optional<Struct>), the answer of the base class (`none` for pure virtual) and one cell per column
of generations.tbl. A generation's class overrides the accessor where its cell differs from the
default; a cell marked `!` keeps an answer equal to the default as an explicit override.

The heading line (`features` or `constraints`) declares the rows in all, per kind (bool, int,
optional) and the pure virtual ones: the counts that the hardware description states. Groups and
structs declare no count: their rows state it.
"""

import collections
import dataclasses
import re

from constant_cells import INTEGER_RANGES, check_total, check_value, declared, fail, split_top
from genlib import table_lines


HEADING_TOTALS = ("rows", "bool", "int", "optional", "pure")


@dataclasses.dataclass
class Flag:
    name: str
    type: str  # bool, int, optional<int>, optional<Int64Pair> or optional<Struct>
    default: str  # C++ expression of the base class's answer, None for pure virtual
    values: dict  # column -> C++ expression of the override, or None where the class inherits
    line: int


@dataclasses.dataclass
class Struct:
    name: str
    fields: list  # (name, C++ type)
    values: dict  # column -> list of C++ literals, or None
    line: int


def cpp_flag_type(cpp_type):
    inner = re.fullmatch(r"optional<(.+)>", cpp_type)
    return f"zu::optional<{inner.group(1)}>" if inner else cpp_type


def flag_value(path, line, flag, column, cpp_type, cell, structs):
    """The C++ expression of one answer of a feature or constraint."""
    if cpp_type in ("bool", "int"):
        return check_value(path, line, flag, column, cpp_type, cell)
    inner = re.fullmatch(r"optional<(.+)>", cpp_type).group(1)
    if cell == "empty":
        return "{}"
    if inner == "int":
        return check_value(path, line, flag, column, "int", cell)
    if inner == "Int64Pair":
        pair = re.fullmatch(r"\{(-?[0-9]+),(-?[0-9]+)\}", cell)
        if not pair:
            fail(path, line, flag, column, f"cell '{cell}'", "expected empty or {a,b}")
        return f"Int64Pair{{{pair.group(1)}, {pair.group(2)}}}"
    struct = structs[inner]
    if cell != "set":
        fail(path, line, flag, column, f"cell '{cell}'", "expected empty or set")
    if column == "default" or struct.values[column] is None:
        fail(path, line, flag, column, "set without values",
             f"expected the {column} column of struct {inner} (line {struct.line})")
    fields = ", ".join(f".{n} = {v}" for (n, _), v in zip(struct.fields, struct.values[column]))
    return f"{inner}{{{fields}}}"


def _struct_row(path, line, current, columns):
    cells = line.text.split()
    if len(cells) != 2 + len(columns):
        fail(path, line.number, cells[0], "all", f"{len(cells)} cells",
             f"expected field, type, {', '.join(columns)}")
    field, cpp_type = cells[0], cells[1]
    where = f"{current.name}.{field}"
    current.fields.append((field, cpp_type))
    vector = re.fullmatch(r"std::vector<(.+)>", cpp_type)
    for g, cell in zip(columns, cells[2:]):
        if cell == "-":
            current.values[g].append(None)
        elif vector:
            if not (cell.startswith("{") and cell.endswith("}")):
                fail(path, line.number, where, g, f"cell '{cell}'", "expected {a,b,...}")
            items = [check_value(path, line.number, where, g, vector.group(1), x)
                     for x in split_top(cell[1:-1])]
            current.values[g].append("{" + ", ".join(items) + "}")
        elif cpp_type in INTEGER_RANGES or cpp_type in ("double", "bool"):
            current.values[g].append(check_value(path, line.number, where, g, cpp_type, cell))
        else:
            fail(path, line.number, where, g, f"type '{cpp_type}'",
                 "expected an integer type, double, bool or std::vector of one")


def load_structs(path, lines, columns, errors):
    structs, current = {}, None
    for line in lines:
        with errors.collect():
            cells = line.text.split()
            if cells[0] == "struct":
                declared(path, line.number, "struct", cells, (), title=True)
                if len(cells) != 2:
                    fail(path, line.number, "struct", "all", f"line '{line.text}'",
                         "expected struct Name")
                current = Struct(cells[1], [], {g: [] for g in columns}, line.number)
                structs[current.name] = current
            elif current is not None:
                _struct_row(path, line, current, columns)
    for s in structs.values():
        with errors.collect():
            for g in columns:
                filled = [v is not None for v in s.values[g]]
                if any(filled) and not all(filled):
                    fail(path, s.line, s.name, g, "a column with gaps",
                         "expected every field or none")
                s.values[g] = s.values[g] if all(filled) and filled else None
    return structs


def _flag_row(path, line, columns, structs, flags):
    cells = line.text.split()
    if len(cells) != 3 + len(columns):
        fail(path, line.number, cells[0], "all", f"{len(cells)} cells",
             f"expected accessor, type, default and one cell per generation "
             f"({' '.join(columns)})")
    name, cpp_type, default = cells[0], cells[1], cells[2]
    inner = re.fullmatch(r"optional<(.+)>", cpp_type)
    known = ("int", "Int64Pair", *structs)
    if cpp_type not in ("bool", "int") and not (inner and inner.group(1) in known):
        fail(path, line.number, name, "all", f"type '{cpp_type}'",
             "expected bool, int, optional<int>, optional<Int64Pair> or optional<Struct>")
    if name in flags:
        fail(path, line.number, name, "all", "a second row",
             f"expected one (first at line {flags[name].line})")
    base = None if default == "none" else \
        flag_value(path, line.number, name, "default", cpp_type, default, structs)
    values = {}
    for g, cell in zip(columns, cells[3:]):
        explicit = cell.endswith("!")
        value = flag_value(path, line.number, name, g, cpp_type, cell.rstrip("!"), structs)
        if explicit and (base is None or value != base):
            fail(path, line.number, name, g, f"cell '{cell}'",
                 "expected '!' only on an answer equal to the default")
        values[g] = value if base is None or value != base or explicit else None
    return Flag(name, cpp_type, base, values, line.number)


def load_flags(path, kind, generations, errors):
    """The rows of features.tbl or constraints.tbl, sorted by accessor name, and their structs."""
    columns = generations.columns
    lines = list(table_lines(path))
    first_struct = next((i for i, line in enumerate(lines) if line.text.split()[0] == "struct"),
                        len(lines))
    structs = load_structs(path, lines[first_struct:], columns, errors)
    flags, heading, groups = {}, None, []
    mark = len(errors)
    for line in lines[:first_struct]:
        with errors.collect():
            cells = line.text.split()
            if cells[0] == kind:
                heading = declared(path, line.number, kind, cells, HEADING_TOTALS)
            elif cells[0] == "group":
                declared(path, line.number, "group", cells, (), title=True)
                groups.append([])
            elif not groups:
                fail(path, line.number, cells[0], "all", f"line '{line.text}'",
                     "expected a group heading before the rows")
            else:
                flag = _flag_row(path, line, columns, structs, flags)
                flags[flag.name] = flag
                groups[-1].append(flag.name)
    if errors.since(mark):
        return dict(sorted(flags.items())), structs
    if heading is None:
        with errors.collect():
            fail(path, 0, kind, "all", "no heading", f"expected a '{kind}' line with its totals")
        return dict(sorted(flags.items())), structs
    check_total(errors, heading, "rows", len(flags), "rows")
    kinds = collections.Counter(f.type.split("<")[0] for f in flags.values())
    for key in ("bool", "int", "optional"):
        check_total(errors, heading, key, kinds[key], f"{key} rows")
    pure = sum(1 for f in flags.values() if f.default is None)
    check_total(errors, heading, "pure", pure, "pure virtual rows")
    return dict(sorted(flags.items())), structs
