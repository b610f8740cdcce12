"""The cells of the constants, features and constraints tables: values of a C++ type, declared
totals, and the one form of their faults:

    <table>:<line>: error: <accessor>, generation <g>: <found>, <expected>
"""

import re

from genlib import TableError

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
