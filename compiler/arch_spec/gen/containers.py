"""Reads containers.tbl: the accessors that return a list, one block each.

    agcu_rows          std::vector<uint8_t>
      ko   [2]  7, 23
      ry   [4]  3, 9, 17, 23
      rye  -

A block names the accessor and the type of its list, then holds one line per column of
generations.tbl, in order: `-`, or the element count in brackets and the elements.
"""

import dataclasses
import re

from constant_cells import ELEMENT_TYPES, check_total, check_value, declared, fail, split_top
from genlib import table_lines


@dataclasses.dataclass
class Container:
    name: str
    type: str  # C++ type of the list, e.g. std::vector<std::vector<uint8_t>>
    values: dict  # column -> C++ initializer list ("" when empty), None where not answered
    line: int


def container_values(path, line, name, column, cpp_type, cell):
    match = re.fullmatch(r"\[([0-9]+)\]\s*(.*)", cell)
    if not match:
        fail(path, line, name, column, f"cell '{cell}'", "expected '-' or [count] and the elements")
    count, elements = int(match.group(1)), split_top(match.group(2))
    if len(elements) != count:
        fail(path, line, name, column, f"{len(elements)} elements", f"expected {count} as declared")
    nested = re.fullmatch(r"std::vector<std::vector<(.+)>>", cpp_type)
    element = nested.group(1) if nested else re.fullmatch(r"std::vector<(.+)>", cpp_type).group(1)
    written = []
    for item in elements:
        if nested:
            if not (item.startswith("{") and item.endswith("}")):
                fail(path, line, name, column, f"element '{item}'", "expected a row {...}")
            row = [check_value(path, line, name, column, element, x)
                   for x in split_top(item[1:-1])]
            written.append("{" + ", ".join(row) + "}")
        else:
            written.append(check_value(path, line, name, column, element, item))
    if nested and written == ["{}"]:
        # One empty row, spelled so that it cannot read as no rows.
        return f"std::vector<{element}>{{}}"
    return ", ".join(written)


def _block_heading(path, line, containers):
    cells = line.text.split(None, 1)
    if len(cells) != 2:
        fail(path, line.number, cells[0], "all", f"line '{line.text}'",
             "expected accessor and list type")
    name, cpp_type = cells[0], cells[1].strip()
    element = re.fullmatch(r"std::vector<(?:std::vector<)?(.+?)>>?", cpp_type)
    if not element or element.group(1) not in ELEMENT_TYPES or \
            cpp_type.count("<") != cpp_type.count(">"):
        fail(path, line.number, name, "all", f"type '{cpp_type}'",
             "expected std::vector of (a std::vector of) one of " + ", ".join(ELEMENT_TYPES))
    if name in containers:
        fail(path, line.number, name, "all", "a second block", "expected one block per accessor")
    return Container(name, cpp_type, {}, line.number)


def _column_line(path, line, current, columns):
    cells = line.text.split(None, 1)
    column = cells[0]
    if column in current.values:
        fail(path, line.number, current.name, column, "a second line",
             "expected one line per generation")
    if columns[len(current.values)] != column:
        fail(path, line.number, current.name, column, "generation out of order",
             f"expected {', '.join(columns)}")
    cell = cells[1].strip() if len(cells) > 1 else ""
    current.values[column] = None  # taken, whatever the cell holds, so that the order goes on
    if cell != "-":
        current.values[column] = container_values(path, line.number, current.name, column,
                                                  current.type, cell)


def load_containers(path, generations, errors):
    """Reads and checks containers.tbl; the faults go to `errors`."""
    columns = generations.columns
    containers, heading, current = {}, None, None
    mark = len(errors)
    for line in table_lines(path):
        with errors.collect():
            word = line.text.split()[0]
            if word == "containers":
                heading = declared(path, line.number, word, line.text.split(), ("rows", "none"))
            elif word in columns:
                if current is not None:  # lines under a block that failed are skipped with it
                    _column_line(path, line, current, columns)
            else:
                current = None
                current = _block_heading(path, line, containers)
                containers[current.name] = current
    if errors.since(mark):
        return containers
    with errors.collect():
        if heading is None:
            fail(path, 0, "containers", "all", "no heading",
                 "expected a 'containers' line with its totals")
        for c in containers.values():
            if len(c.values) != len(columns):
                missing = [g for g in columns if g not in c.values][0]
                fail(path, c.line, c.name, missing, "no line", "expected one line per generation")
    if heading is not None and not errors.since(mark):
        check_total(errors, heading, "rows", len(containers), "blocks")
        none = sum(1 for c in containers.values() if all(v is None for v in c.values.values()))
        check_total(errors, heading, "none", none, "blocks answered by no generation")
    return containers
