"""Reads params.tbl: the scalar parameters of the constants classes, the parameters derived from
others, the rows in which an inheriting generation differs from its parent (a section named after
it, e.g. `uko`), and the declared totals of the whole constants class.

A row of a group gives the accessor, its return type and one cell per column of generations.tbl
(ko ry rye); `-` where the generation does not answer.
"""

import collections
import dataclasses
import re

from constant_cells import SCALAR_TYPES, check_total, check_value, declared, fail
from genlib import table_lines


@dataclasses.dataclass
class Scalar:
    name: str
    type: str
    values: dict  # column -> C++ literal, or None where the generation does not answer
    line: int
    rule: object = None  # (columns, C++ expression) of a derived accessor


@dataclasses.dataclass
class Params:
    path: str
    scalars: dict  # name -> Scalar, in table order
    differences: dict  # inheriting generation -> {name: (C++ literal, line)}
    interface: dict  # declared totals of the whole class
    interface_line: int
    classes: dict  # class name -> (declared totals, line)
    unanswered: tuple  # (declared totals, line)


def derive(path, line, row, scalars, column, rule):
    """The value of a derived accessor in one column, and the C++ expression that computes it."""
    match = re.fullmatch(r"(ones64|ones32)\((\w+)\)|(\w+) \+ ([0-9]+)", rule)
    if not match:
        fail(path, line, row, column, f"rule '{rule}'", "expected ones64(x), ones32(x) or x + n")
    source = match.group(2) or match.group(3)
    if source not in scalars or scalars[source].values[column] is None:
        fail(path, line, row, column, f"source '{source}'",
             "expected a scalar answered by the generation")
    width = int(scalars[source].values[column].rstrip("u"))
    if match.group(1) == "ones64":
        return (1 << (width % 64)) - 1, f"ones64({source}())"
    if match.group(1) == "ones32":
        return ((1 << (width % 32)) - 1) % 2**32, f"ones32({source}())"
    return width + int(match.group(4)), f"{source}() + {match.group(4)}"


class _Reader:
    """The state of one reading of params.tbl, line by line."""

    def __init__(self, path, generations):
        self.path, self.columns = path, generations.columns
        self.inheriting = [g.code for g in generations.inheriting]
        self.scalars, self.classes, self.heads, self.groups = {}, {}, {}, []
        self.interface, self.interface_line, self.unanswered = {}, 0, ({}, 0)
        self.section, self.derived_rows = None, []
        self.difference_rows = {code: [] for code in self.inheriting}

    def line(self, line):
        path, cells = self.path, line.text.split()
        word = cells[0]
        if word == "interface":
            self.interface, self.interface_line = declared(path, line.number, word, cells[1:]), \
                line.number
        elif word == "class":
            self.classes[cells[1] if len(cells) > 1 else ""] = (
                declared(path, line.number, "class", cells[2:]), line.number)
        elif word == "unanswered":
            self.unanswered = (declared(path, line.number, word, cells[1:]), line.number)
        elif word in ("scalars", "answers"):
            self.heads[word] = (declared(path, line.number, word, cells[1:]), line.number)
        elif word == "group":
            totals = declared(path, line.number, "group", [c for c in cells[1:] if "=" in c])
            self.section = "group"
            self.groups.append((totals, line.number, []))
        elif word == "derived" or word in self.inheriting:
            self.section = word
            self.heads[word] = (declared(path, line.number, word, cells[1:]), line.number)
        elif self.section == "group":
            self.scalar_row(line, cells)
        elif self.section == "derived":
            gens = [c for c in cells[1:] if c in self.columns]
            self.derived_rows.append((line.number, word, gens, " ".join(cells[1 + len(gens):])))
        elif self.section in self.inheriting:
            if len(cells) != 2:
                fail(path, line.number, word, self.section, f"{len(cells)} cells",
                     "expected accessor and value")
            self.difference_rows[self.section].append((line.number, word, cells[1]))
        else:
            fail(path, line.number, word, "all", f"line '{line.text}'",
                 "expected a heading before the rows")

    def scalar_row(self, line, cells):
        path = self.path
        if len(cells) != 2 + len(self.columns):
            fail(path, line.number, cells[0], "all", f"{len(cells)} cells",
                 f"expected accessor, type and one cell per generation ({' '.join(self.columns)})")
        name, cpp_type = cells[0], cells[1]
        if cpp_type not in SCALAR_TYPES:
            fail(path, line.number, name, "all", f"type '{cpp_type}'",
                 f"expected one of {', '.join(SCALAR_TYPES)}")
        if name in self.scalars:
            fail(path, line.number, name, "all", "a second row",
                 f"expected one (first at line {self.scalars[name].line})")
        values = {g: None if c == "-" else check_value(path, line.number, name, g, cpp_type, c)
                  for g, c in zip(self.columns, cells[2:])}
        self.scalars[name] = Scalar(name, cpp_type, values, line.number)
        self.groups[-1][2].append(self.scalars[name])


def _check_totals(r, errors):
    path = r.path
    for word in ("scalars", "answers", "derived", *r.inheriting):
        if word not in r.heads:
            with errors.collect():
                fail(path, 0, word, "all", "no heading", f"expected a '{word}' line with its totals")
    for totals, line, rows in r.groups:
        with errors.collect():
            check_total(path, line, "group", "all", len(rows), totals, "rows", "rows")
            answered = sum(1 for s in rows if any(s.values.values()))
            check_total(path, line, "group", "all", answered, totals, "answered", "answered rows")
    if "scalars" in r.heads:
        totals, line = r.heads["scalars"]
        per_type = collections.Counter(s.type for s in r.scalars.values())
        with errors.collect():
            check_total(path, line, "scalars", "all", len(r.scalars), totals, "rows", "rows")
            for cpp_type in SCALAR_TYPES:
                check_total(path, line, "scalars", "all", per_type[cpp_type], totals, cpp_type,
                            f"{cpp_type} rows")
    if "answers" in r.heads:
        totals, line = r.heads["answers"]
        with errors.collect():
            for g in r.columns:
                answered = sum(1 for s in r.scalars.values() if s.values[g] is not None)
                check_total(path, line, "answers", g, answered, totals, g, "answered rows")
            none = sum(1 for s in r.scalars.values() if not any(s.values.values()))
            check_total(path, line, "answers", "all", none, totals, "none",
                        "rows answered by no generation")


def _apply_rules(r, errors):
    path = r.path
    if "derived" in r.heads:
        with errors.collect():
            totals, line = r.heads["derived"]
            check_total(path, line, "derived", "all", len(r.derived_rows), totals, "rows", "rows")
    for line, name, gens, rule in r.derived_rows:
        with errors.collect():
            if name not in r.scalars:
                fail(path, line, name, "all", "a derived accessor without a row",
                     "expected a scalar row")
            row = r.scalars[name]
            if not gens:
                fail(path, line, name, "all", "no generation",
                     "expected the generations the rule serves")
            expression = None
            for g in gens:
                if row.values[g] is None:
                    fail(path, line, name, g, "a rule for an unanswered cell",
                         "expected an answered generation")
                value, expression = derive(path, line, name, r.scalars, g, rule)
                if value != int(row.values[g].rstrip("u")):
                    fail(path, line, name, g, f"rule gives {value}",
                         f"expected {row.values[g]} as in the row")
            row.rule = (tuple(gens), expression)


def _differences(r, generations, errors):
    path, found = r.path, {}
    for g in generations.inheriting:
        rows, found[g.code] = r.difference_rows[g.code], {}
        if g.code in r.heads:
            with errors.collect():
                totals, line = r.heads[g.code]
                check_total(path, line, g.code, g.code, len(rows), totals, "rows", "rows")
        for line, name, cell in rows:
            with errors.collect():
                parent = r.scalars.get(name)
                if parent is None or parent.values[g.answers] is None:
                    fail(path, line, name, g.code, f"no {g.answers} answer to differ from",
                         f"expected a scalar that {g.answers} answers")
                value = check_value(path, line, name, g.code, parent.type, cell)
                if value == parent.values[g.answers]:
                    fail(path, line, name, g.code, f"value {cell}",
                         f"expected a value that differs from {g.answers}'s")
                found[g.code][name] = (value, line)
    return found


def load_params(path, generations, errors):
    """Reads and checks params.tbl; the faults go to `errors`."""
    r = _Reader(path, generations)
    mark = len(errors)
    for line in table_lines(path):
        with errors.collect():
            r.line(line)
    if not errors.since(mark):
        _check_totals(r, errors)
    _apply_rules(r, errors)
    differences = _differences(r, generations, errors)
    return Params(path, r.scalars, differences, r.interface, r.interface_line, r.classes,
                  r.unanswered)
