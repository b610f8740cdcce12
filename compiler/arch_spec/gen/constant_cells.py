"""The cells of the constants, features and constraints tables: values of a C++ type, declared
totals, and the one form of their faults:

    <table>:<line>: error: <accessor>, generation <g>: <found>, <expected>

A heading declares only the totals that the hardware description states (how many accessors, of
which kind, answered by whom), as cross-checks of the rows; a count of the table's own rows is not
declared, as the rows state it already. A wrong total is a TotalError, which --fix rewrites.
"""

import dataclasses
import re

from genlib import TableError, TotalError

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


def fail(path, line, accessor, generation, found, expected):
    raise TableError(path, line, f"{accessor}, generation {generation}: {found}, {expected}")


@dataclasses.dataclass
class Totals:
    """The totals that one heading line declares."""

    path: str
    line: int  # 0 where the heading is missing
    what: str  # the heading's name in messages
    numbers: dict  # key -> declared number
    words: dict  # key -> the place of its word among the line's words


def declared(path, line, what, words, keys, start=1, title=False):
    """The `key=number` words of a heading line, from word `start` on. `keys` are the totals the
    heading may declare: any other is refused, so that a total nobody checks cannot stand in a
    table. With `title`, the words without '=' are the heading's title."""
    numbers, places = {}, {}
    for index, word in enumerate(words[start:], start=start):
        key, sep, value = word.partition("=")
        if not sep and title:
            continue
        if not sep or not value.isdigit():
            fail(path, line, what, "all", f"cell '{word}'", "expected key=number")
        if key not in keys:
            fail(path, line, what, "all", f"total '{word}'",
                 f"expected {'one of ' + ', '.join(keys) if keys else 'none'} (the rows count "
                 "themselves: a heading declares only totals that the hardware description "
                 "states)")
        numbers[key], places[key] = int(value), index
    return Totals(path, line, what, numbers, places)


def check_total(errors, totals, key, counted, unit, what=None, generation="all"):
    """Adds to `errors` the disagreement of a declared total with the number `counted`."""
    where = f"{what or totals.what}, generation {generation}"
    if key not in totals.numbers:
        errors.add(TableError(totals.path, totals.line, f"{where}: found no declared {key}, "
                              f"expected {key}={counted}"))
    elif totals.numbers[key] != counted:
        errors.add(TotalError(totals.path, totals.line, f"{where}: found {counted} {unit}, "
                              f"expected {totals.numbers[key]} as declared", totals.words[key], 0,
                              counted))


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
