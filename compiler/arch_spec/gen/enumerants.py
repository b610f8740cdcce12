#!/usr/bin/env python3
"""Load the enumerant tables (tables/constants/enums_*.tbl) and expand them into single enumerants.

Each enumeration type of the constants interface is one block of a table:

    enum pcu_ctloutxbar_enum_t 95 crossbar
      pcu_ctloutxbar_ctxt{0-3}_logical_false_token{0,1} | 24 step 4/2 | 24 step 4/2 | 24 step 4/2
      pcu_ctloutxbar_ne_scl_crdrtn_{0-3}  | 10 to 10 (1 of 4) | ... | 10 to 79  # inferred

The heading names the type, its declared number of enumerants and optionally its kind (crossbar,
mux, udc-select, ormask, signals). The number is the one the hardware description states for the
type, kept as a cross-check of the rows; a wrong one is a TotalError, which --fix rewrites. A row holds an enumerant or a pattern and one cell per column of
generations.tbl (ko | ry | rye); a generation that answers as another has no column.

Expansion of a pattern
  A brace stands for its indices: {0-7} is 0..7, {0,1,3} those listed, ascending. Every combination
  is one enumerant; the first brace is the outermost loop and the last the innermost, so
  ctxt{0,1}_token{0,1} gives ctxt0_token0, ctxt0_token1, ctxt1_token0, ctxt1_token1.

Cells
  N                the code of every name of the row.
  V step A/B/C     the first combination has code V; for each brace, a name's code adds that brace's
                   step times the name's index less the brace's first index. The unit is the index
                   value, not the position in the list: ctr{2,4}_max_dim{0-2} 150 step 4/1 puts ctr4
                   at 158..160, two units of 4 past ctr2. Only that reading keeps those registers
                   clear of the ctr{2,4} stride registers at 153 step 4/1 and leaves room for the
                   ctr{0,1,3} registers in 146..157. There is one step per brace.
  A to B           (inferred) the codes lie in A..B and follow no single step.
  A to B (M of N)  (inferred) only M of the row's N names answer.
  -                the generation does not answer (code None).

Inference, for the rows marked "# inferred" (a row with a span cell must be marked, and only such):
  see enum_inference.py. Every code of a cell written as a span counts as inferred, its two ends
  included.

Checks (each a TableError naming the table file, line, type, row and generation)
  unknown or malformed cells and braces, steps that do not match the braces, a span without the
  inferred mark or a mark without a span, a name repeated within a type, an accessor name repeated
  across types, an expanded count that differs from the heading, a span end that is already the
  code of another name, a span that cannot hold its names.
  Stated codes that repeat within a type are not refused: stated_collisions() lists them, and the
  command line prints those of the selection kinds for review against the hardware description.
"""

import dataclasses
import glob
import itertools
import os
import re
import sys

import genlib
from enum_inference import brace_follows, infer
from genlib import TableError, TotalError, table_lines


KINDS = ("crossbar", "mux", "udc-select", "ormask", "signals")
# Kinds whose codes each name one choice or bit: two enumerants of one generation never share one.
SELECTION_KINDS = ("crossbar", "mux", "udc-select", "ormask")


def enum_error(path, line, what, type_name=None, row=None, generation=None):
    """A fault of an enumerant table: "<table>:<line>: error: <type> <row>, generation <g>: <what>";
    the parts that do not apply (row, generation) are left out."""
    where = " ".join(x for x in (type_name, row) if x)
    if generation:
        where += ", generation " + generation
    return TableError(path, line, (where + ": " if where else "") + what)


@dataclasses.dataclass(frozen=True)
class Enumerant:
    type: str  # "agcu_opcode_t"
    name: str  # "agcu_alu_add"
    accessor: str  # "agcu_opcode_agcu_alu_add" (type less "_t", "_", enumerant)
    codes: dict  # {"ko": int or None, "ry": ..., "rye": ...}; None = not answered
    inferred: dict  # {"ko": bool, "ry": bool, "rye": bool}: True where that code was inferred
    source: str  # "enums_pcu.tbl:123" of the row
    pattern: str  # the row's enumerant or pattern, e.g. "agcu_rcf_reg_agu{0,1}_vag{0-7}_max"


@dataclasses.dataclass
class EnumType:
    name: str
    count: int  # declared number of enumerants
    kind: str  # one of KINDS, or "" for plain value codes
    path: str
    line: int
    instances: dict  # brace label -> {generation: number of instances}
    rows: list
    columns: tuple  # the generations of the table's cells, from generations.tbl
    broken: bool = False  # a line of the type is faulty


@dataclasses.dataclass
class _Cell:
    form: str  # "none", "plain", "step" or "span"
    value: int = 0  # plain code, first code of a step, or span start
    steps: tuple = ()
    last: int = 0  # span end
    answered: int = 0  # span: how many names answer


@dataclasses.dataclass
class _Row:
    pattern: str
    cells: dict  # generation -> _Cell
    line: int
    literals: list  # the text around the braces; one more than there are braces
    braces: list  # per brace, its ascending index values
    names: list  # expansion: (name, tuple of index values)


_ENUM_RE = re.compile(r"enum\s+(\w+)\s+(\d+)(?:\s+(\S+))?$")
_INSTANCES_RE = re.compile(r"instances\s+(\w+)((?:\s+\w+=\d+)+)$")
_PLAIN_RE = re.compile(r"(\d+)$")
_STEP_RE = re.compile(r"(\d+) step (\d+(?:/\d+)*)$")
_SPAN_RE = re.compile(r"(\d+) to (\d+)(?: \((\d+) of (\d+)\))?$")
_NAME_RE = re.compile(r"[A-Za-z0-9_{},-]+$")


def _parse_braces(pattern, fail):
    """Split a pattern into its literal pieces and the index values of its braces."""
    if not _NAME_RE.match(pattern):
        fail("malformed enumerant name")
    pieces = re.split(r"(\{[^{}]*\})", pattern)
    literals, braces = [], []
    for i, piece in enumerate(pieces):
        if i % 2 == 0:
            if "{" in piece or "}" in piece:
                fail("unbalanced brace")
            literals.append(piece)
            continue
        values = []
        for item in piece[1:-1].split(","):
            m = re.fullmatch(r"(\d+)(?:-(\d+))?", item)
            if not m:
                fail("malformed brace %s" % piece)
            lo = int(m.group(1))
            hi = int(m.group(2)) if m.group(2) is not None else lo
            if hi < lo:
                fail("brace %s counts down" % piece)
            values.extend(range(lo, hi + 1))
        if any(b <= a for a, b in zip(values, values[1:])):
            fail("brace %s is not in ascending order" % piece)
        braces.append(values)
    return literals, braces


def _expand(literals, braces):
    names = []
    for combo in itertools.product(*braces):
        text = literals[0]
        for value, literal in zip(combo, literals[1:]):
            text += str(value) + literal
        names.append((text, combo))
    return names


def _parse_cell(text, n_names, n_braces, fail):
    if text == "-":
        return _Cell("none")
    m = _PLAIN_RE.match(text)
    if m:
        return _Cell("plain", value=int(m.group(1)))
    m = _STEP_RE.match(text)
    if m:
        steps = tuple(int(s) for s in m.group(2).split("/"))
        if len(steps) != n_braces:
            fail("'%s' has %d steps for %d braces" % (text, len(steps), n_braces))
        return _Cell("step", value=int(m.group(1)), steps=steps)
    m = _SPAN_RE.match(text)
    if m:
        first, last = int(m.group(1)), int(m.group(2))
        of = int(m.group(4)) if m.group(4) else n_names
        answered = int(m.group(3)) if m.group(3) else of
        if of != n_names:
            fail("'%s' counts %d names, the row has %d" % (text, of, n_names))
        if not 1 <= answered <= of:
            fail("'%s' answers %d of %d names" % (text, answered, of))
        if answered == 1 and first != last:
            fail("'%s' has one name but two ends" % text)
        if answered > 1 and last - first + 1 < answered:
            fail("'%s' cannot hold %d distinct codes" % (text, answered))
        return _Cell("span", value=first, last=last, answered=answered)
    fail("unknown cell '%s'" % text)


def _parse_instances(match, fail, columns):
    counts = {}
    for item in match.group(2).split():
        generation, value = item.split("=")
        if generation not in columns or generation in counts:
            fail("instances %s: bad or repeated generation '%s'" % (match.group(1), generation))
        counts[generation] = int(value)
    if set(counts) != set(columns):
        fail("instances %s: needs a count for each of %s" % (match.group(1), " ".join(columns)))
    return counts


def _parse_row(text, comment, fail, columns):
    parts = [p.strip() for p in text.split("|")]
    pattern = parts[0]

    def row_fail(what, generation=None):
        fail(what, pattern, generation)

    if len(parts) != 1 + len(columns):
        row_fail("expected %d cells (%s), found %d"
                 % (len(columns), " | ".join(columns), len(parts) - 1))
    literals, braces = _parse_braces(pattern, row_fail)
    names = _expand(literals, braces)
    cells = {}
    for generation, cell_text in zip(columns, parts[1:]):
        cells[generation] = _parse_cell(cell_text, len(names), len(braces),
                                        lambda what, g=generation: row_fail(what, g))
    marked = comment.startswith("inferred")
    has_span = any(c.form == "span" for c in cells.values())
    if has_span and not marked:
        row_fail("a span cell needs the mark '# inferred'")
    if marked and not has_span:
        row_fail("marked inferred, but every code is exact")
    return pattern, cells, literals, braces, names


def _parse_file(path, columns, errors):
    """Reads one table file into a list of EnumType. A type with a faulty line is marked broken:
    its count would only repeat the fault."""
    types, current = [], None
    for line in table_lines(path):
        def fail(what, row=None, generation=None, number=line.number, current=current):
            raise enum_error(path, number, what, current.name if current else None, row,
                             generation)

        with errors.collect():
            if not line.text[0].isspace():
                current = None
                m = _ENUM_RE.match(line.text.strip())
                if not m:
                    fail("expected 'enum <type> <count> [<kind>]'")
                name, count, kind = m.group(1), int(m.group(2)), m.group(3) or ""
                if not name.endswith("_t"):
                    raise enum_error(path, line.number, "type name does not end in _t", name)
                if kind and kind not in KINDS:
                    raise enum_error(path, line.number, "unknown kind '%s'" % kind, name)
                current = EnumType(name, count, kind, path, line.number, {}, [], columns)
                types.append(current)
                continue
            if current is None:
                if not types:
                    fail("row outside an enum block")
                continue  # a row of a type whose heading failed
            try:
                m = _INSTANCES_RE.match(line.text.strip())
                if m:
                    current.instances[m.group(1)] = _parse_instances(m, fail, columns)
                    continue
                pattern, cells, literals, braces, names = _parse_row(line.text.strip(),
                                                                     line.comment, fail, columns)
                current.rows.append(_Row(pattern, cells, line.number, literals, braces, names))
            except TableError:
                current.broken = True
                raise
    for enum_type in types:
        for label in enum_type.instances:
            if not any(brace_follows(literal, label)
                       for row in enum_type.rows for literal in row.literals[:-1]):
                enum_type.broken = True
                errors.add(enum_error(path, enum_type.line, "instances %s: no brace follows '%s'"
                                      % (label, label), enum_type.name))
    return types


def _expand_type(enum_type, source_name, errors):
    columns = enum_type.columns
    per_generation = {}
    for generation in columns:
        codes_of_rows = {}
        for r, row in enumerate(enum_type.rows):
            cell = row.cells[generation]
            if cell.form == "none":
                codes_of_rows[r] = [None] * len(row.names)
            elif cell.form == "plain":
                codes_of_rows[r] = [cell.value] * len(row.names)
            elif cell.form == "step":
                codes_of_rows[r] = [
                    cell.value + sum(s * (v - b[0])
                                     for s, v, b in zip(cell.steps, combo, row.braces))
                    for _, combo in row.names]
        infer(enum_type, generation, codes_of_rows)
        per_generation[generation] = codes_of_rows
    stem = enum_type.name[:-2]
    result, seen = [], {}
    for r, row in enumerate(enum_type.rows):
        for k, (name, _) in enumerate(row.names):
            if name in seen:
                raise enum_error(enum_type.path, row.line,
                                 "%s repeats the name of line %d" % (name, seen[name]),
                                 enum_type.name, row.pattern)
            seen[name] = row.line
            codes = {g: per_generation[g][r][k] for g in columns}
            inferred = {g: row.cells[g].form == "span" and codes[g] is not None for g in columns}
            result.append(Enumerant(enum_type.name, name, stem + "_" + name, codes, inferred,
                                    "%s:%d" % (source_name, row.line), row.pattern))
    _check_inferred_codes(enum_type, result)
    if len(result) != enum_type.count:
        e = enum_error(enum_type.path, enum_type.line, "found %d enumerants in the rows, expected "
                       "%d as declared" % (len(result), enum_type.count), enum_type.name)
        errors.add(TotalError(e.path, e.line, e.message, 2, 0, len(result)))
    return result


def _check_inferred_codes(enum_type, found):
    """No inferred code repeats a code of its type and generation; infer() makes sure of it."""
    for generation in enum_type.columns:
        owner = {}
        for e in found:
            code = e.codes[generation]
            if code is None:
                continue
            other = owner.setdefault(code, e)
            if other is not e and (e.inferred[generation] or other.inferred[generation]):
                raise enum_error(enum_type.path, int(e.source.rsplit(":", 1)[1]),
                                 "inferred code %d repeats that of %s" % (code, other.name),
                                 enum_type.name, e.name, generation)


def table_files(tables_dir):
    """The enumerant tables of a directory, in the order they are read."""
    return sorted(glob.glob(os.path.join(tables_dir, "enums_*.tbl")))


def load_types(tables_dir, columns, errors):
    """The enumeration types (name, count, kind, place) in table order, and all their enumerants,
    expanded, in table order. Every fault goes to `errors`."""
    files = table_files(tables_dir)
    if not files:
        errors.add(enum_error(os.path.join(tables_dir, "enums_*.tbl"), 0, "no enumerant tables"))
    types, found = [], []
    type_seen, accessor_seen = {}, {}
    for path in files:
        for enum_type in _parse_file(path, columns, errors):
            with errors.collect():
                if enum_type.name in type_seen:
                    raise enum_error(path, enum_type.line,
                                     "type already declared at %s" % type_seen[enum_type.name],
                                     enum_type.name)
                type_seen[enum_type.name] = "%s:%d" % (path, enum_type.line)
                types.append(enum_type)
                if enum_type.broken:
                    continue
                for e in _expand_type(enum_type, os.path.basename(path), errors):
                    with errors.collect():
                        if e.accessor in accessor_seen:
                            raise enum_error(path, int(e.source.rsplit(":", 1)[1]),
                                             "accessor %s already made by %s"
                                             % (e.accessor, accessor_seen[e.accessor]),
                                             e.type, e.name)
                        accessor_seen[e.accessor] = e.source
                        found.append(e)
    return types, found


def load(tables_dir, columns):
    """The types (name, declared count) and the enumerants of the tables; raises the first
    TableError if any table is faulty."""
    errors = genlib.Errors()
    types, found = load_types(tables_dir, columns, errors)
    for e in errors:
        raise e
    return [(t.name, t.count) for t in types], found


def inferred_summary(enumerants, columns):
    """(type, generation, number of inferred codes), for the types and generations that have any."""
    counts = {}
    for e in enumerants:
        for generation in columns:
            key = (e.type, generation)
            counts[key] = counts.get(key, 0) + e.inferred[generation]
    return [(t, g, n) for (t, g), n in counts.items() if n]


def stated_collisions(types, enumerants, columns):
    """(type, kind, generation, code, names) for every code that names of one type share."""
    kinds = {t.name: t.kind for t in types}
    owners = {}
    for generation in columns:
        for e in enumerants:
            if e.codes[generation] is not None:
                owners.setdefault((e.type, generation, e.codes[generation]), []).append(e.name)
    shared = [(t, kinds[t], g, code, names)
              for (t, g, code), names in owners.items() if len(names) > 1]
    return sorted(shared, key=lambda c: (c[0], columns.index(c[2]), c[3]))


def main(argv):
    """Prints what the enumerant tables hold: counts, inferred codes, and codes shared by names."""
    if len(argv) != 2:
        sys.stderr.write("usage: enumerants.py TABLES_DIR (the tables root)\n")
        return 2
    errors = genlib.Errors()
    columns = genlib.load_generations(argv[1], errors).columns
    types, found = load_types(os.path.join(argv[1], "constants"), columns, errors)
    if errors:
        for e in errors:
            sys.stderr.write("%s\n" % e)
        return 1
    print("%d types, %d enumerants" % (len(types), len(found)))
    for generation in columns:
        answered = sum(e.codes[generation] is not None for e in found)
        print("  answered by %-4s %5d" % (generation, answered))
    print("  answered by none %5d" % sum(all(c is None for c in e.codes.values()) for e in found))
    summary = inferred_summary(found, columns)
    print("inferred codes: %d" % sum(n for _, _, n in summary))
    for type_name, generation, n in summary:
        print("  %-40s %-3s %4d" % (type_name, generation, n))
    shared = stated_collisions(types, found, columns)
    for title, selection in (("selection types", True), ("other types", False)):
        listed = [c for c in shared if (c[1] in SELECTION_KINDS) == selection]
        print("codes shared by several names, %s: %d" % (title, len(listed)))
        for type_name, kind, generation, code, names in listed:
            print("  %s %s code %d: %s" % (type_name, generation, code, ", ".join(names)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
