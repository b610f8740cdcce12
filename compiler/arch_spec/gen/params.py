"""Reads params.tbl: the scalar parameters of the constants classes, the parameters derived from
others, the rows in which an inheriting generation differs from its parent (a section named after
it, e.g. `uko`), and the declared totals of the whole constants class: those of the interface, of
each generation's class, of the accessors no class answers, of the scalar rows per return type,
and of the rows of each group that a generation answers.

A row of a group gives the accessor, its return type and one cell per column of generations.tbl
(ko ry rye); `-` where the generation does not answer.
"""

import collections
import dataclasses
import re

from constant_cells import SCALAR_TYPES, Totals, check_total, check_value, declared, fail
from genlib import table_lines


# The totals the headings declare: those the hardware description states.
INTERFACE_TOTALS = ("accessors", "scalars", "enumerants", "containers", "types")
CLASS_TOTALS = ("overrides", "parameters", "enumerants")
UNANSWERED_TOTALS = ("total", "parameters", "enumerants")


@dataclasses.dataclass
class Scalar:
    name: str
    type: str
    values: dict  # column -> C++ literal, or None where the generation does not answer
    line: int
    rule: object = None  # (columns, C++ expression) of a derived accessor
    group: str = ""  # the title of the group heading the row stands under


@dataclasses.dataclass
class Params:
    path: str
    scalars: dict  # name -> Scalar, in table order
    differences: dict  # inheriting generation -> {name: (C++ literal, line)}
    interface: Totals  # of the whole class
    classes: dict  # class name -> Totals
    unanswered: Totals  # of the accessors that no class answers


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
        self.interface = Totals(path, 0, "interface", {}, {})
        self.unanswered = Totals(path, 0, "unanswered", {}, {})
        self.section, self.derived_rows = None, []
        self.difference_rows = {code: [] for code in self.inheriting}

    def line(self, line):
        path, cells = self.path, line.text.split()
        word = cells[0]
        if word == "interface":
            self.interface = declared(path, line.number, word, cells, INTERFACE_TOTALS)
        elif word == "class":
            name = cells[1] if len(cells) > 1 else ""
            self.classes[name] = declared(path, line.number, name, cells, CLASS_TOTALS, start=2)
        elif word == "unanswered":
            self.unanswered = declared(path, line.number, word, cells, UNANSWERED_TOTALS)
        elif word == "scalars":
            self.heads[word] = declared(path, line.number, word, cells, ("rows", *SCALAR_TYPES))
        elif word == "group":
            totals = declared(path, line.number, "group", cells, ("answered",), title=True)
            self.section = "group"
            self.groups.append((totals, []))
            self.group_title = " ".join(word for word in cells[1:] if "=" not in word)
        elif word == "derived" or word in self.inheriting:
            self.section = word
            self.heads[word] = declared(path, line.number, word, cells, ())
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
        self.scalars[name] = Scalar(name, cpp_type, values, line.number, group=self.group_title)
        self.groups[-1][1].append(self.scalars[name])


def _check_totals(r, errors):
    for word in ("scalars", "derived", *r.inheriting):
        if word not in r.heads:
            with errors.collect():
                fail(r.path, 0, word, "all", "no heading", f"expected a '{word}' line")
    for totals, rows in r.groups:
        answered = sum(1 for s in rows if any(s.values.values()))
        check_total(errors, totals, "answered", answered, "answered rows")
    if "scalars" in r.heads:
        totals = r.heads["scalars"]
        per_type = collections.Counter(s.type for s in r.scalars.values())
        check_total(errors, totals, "rows", len(r.scalars), "rows")
        for cpp_type in SCALAR_TYPES:
            check_total(errors, totals, cpp_type, per_type[cpp_type], f"{cpp_type} rows")


def _apply_rules(r, errors):
    path = r.path
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
    return Params(path, r.scalars, differences, r.interface, r.classes, r.unanswered)
