#!/usr/bin/env python3
"""Load the enumerant tables (tables/constants/enums_*.tbl) and expand them into single enumerants.

Each enumeration type of the constants interface is one block of a table:

    enum pcu_ctloutxbar_enum_t 95 crossbar
      pcu_ctloutxbar_ctxt{0-3}_logical_false_token{0,1} | 24 step 4/2 | 24 step 4/2 | 24 step 4/2
      pcu_ctloutxbar_ne_scl_crdrtn_{0-3}  | 10 to 10 (1 of 4) | ... | 10 to 79  # inferred

The heading names the type, its declared number of enumerants and optionally its kind (crossbar,
mux, udc-select, ormask, signals). A row holds an enumerant or a pattern and one cell per generation
in the order ko | ry | rye; uko answers as ko and has no column.

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

Inference, for the rows marked "# inferred" (a row with a span cell must be marked, and only such)
  Which names answer: a directive "instances <label> ko=N ry=N rye=N" in the block gives how many
  instances exist of the block whose brace follows the text <label> (for example "ctrchain" for
  ..._ctrchain{0-7}); the first N indices of that brace answer. Without such a directive the first M
  names in expansion order answer. Either way exactly M names must come out.
  Which codes: the first answered name takes A and the last takes B. The names between are placed
  so that no two enumerants of the type and generation share a code:
    1. If the answered names fit one linear layout inside the span, it is used. The candidates nest
       the braces in every order, the table's order first; the innermost brace steps by 1, each
       further one by the extent of those inside it, and the outermost by whatever step lands the
       last name on B. A candidate is taken only if its codes are free and the other inferred rows
       of the type can still be placed. Like the stated "step 1/3" layouts, a nesting other than
       the table's gives codes that do not rise in expansion order.
    2. Otherwise the names take free codes of the span, rising in expansion order. Free codes are
       handed out from the lowest up; each goes to the row with the nearest span end among those
       that still need codes and whose span holds it. That places every row whenever any placement
       exists.
  Every code of a cell written as a span counts as inferred, its two ends included.

Checks (each raises TableError naming the table file, line, type, row and generation)
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

GENERATIONS = ("ko", "ry", "rye")

KINDS = ("crossbar", "mux", "udc-select", "ormask", "signals")
# Kinds whose codes each name one choice or bit: two enumerants of one generation never share one.
SELECTION_KINDS = ("crossbar", "mux", "udc-select", "ormask")


class TableError(Exception):
    """A table that cannot be used.

    str(e) is "<table path>:<line>: error: <type> <row>, generation <g>: <what>"; the parts that do
    not apply (row, generation) are left out.
    """

    def __init__(self, path, line, what, type_name=None, row=None, generation=None):
        where = " ".join(x for x in (type_name, row) if x)
        if generation:
            where += ", generation " + generation
        super().__init__("%s:%d: error: %s%s" % (path, line, where + ": " if where else "", what))


@dataclasses.dataclass(frozen=True)
class Enumerant:
    type: str  # "agcu_opcode_t"
    name: str  # "agcu_alu_add"
    accessor: str  # "agcu_opcode_agcu_alu_add" (type less "_t", "_", enumerant)
    codes: dict  # {"ko": int or None, "ry": ..., "rye": ...}; None = not answered
    inferred: dict  # {"ko": bool, "ry": bool, "rye": bool}: True where that code was inferred
    source: str  # "enums_pcu.tbl:123" of the row


@dataclasses.dataclass
class EnumType:
    name: str
    count: int  # declared number of enumerants
    kind: str  # one of KINDS, or "" for plain value codes
    path: str
    line: int
    instances: dict  # brace label -> {generation: number of instances}
    rows: list


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


@dataclasses.dataclass
class _Span:
    row: int  # index into EnumType.rows
    chosen: list  # positions in row.names of the names that answer
    first: int
    last: int
    fail: object  # raises TableError for this row and generation

    @property
    def middles(self):
        return max(len(self.chosen) - 2, 0)


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


def _parse_instances(match, fail):
    counts = {}
    for item in match.group(2).split():
        generation, value = item.split("=")
        if generation not in GENERATIONS or generation in counts:
            fail("instances %s: bad or repeated generation '%s'" % (match.group(1), generation))
        counts[generation] = int(value)
    if set(counts) != set(GENERATIONS):
        fail("instances %s: needs a count for each of %s"
             % (match.group(1), " ".join(GENERATIONS)))
    return counts


def _parse_row(text, comment, fail):
    parts = [p.strip() for p in text.split("|")]
    pattern = parts[0]

    def row_fail(what, generation=None):
        fail(what, pattern, generation)

    if len(parts) != 1 + len(GENERATIONS):
        row_fail("expected %d cells (%s), found %d"
                 % (len(GENERATIONS), " | ".join(GENERATIONS), len(parts) - 1))
    literals, braces = _parse_braces(pattern, row_fail)
    names = _expand(literals, braces)
    cells = {}
    for generation, cell_text in zip(GENERATIONS, parts[1:]):
        cells[generation] = _parse_cell(cell_text, len(names), len(braces),
                                        lambda what, g=generation: row_fail(what, g))
    marked = comment.startswith("inferred")
    has_span = any(c.form == "span" for c in cells.values())
    if has_span and not marked:
        row_fail("a span cell needs the mark '# inferred'")
    if marked and not has_span:
        row_fail("marked inferred, but every code is exact")
    return pattern, cells, literals, braces, names


def _parse_file(path):
    """Read one table file into a list of EnumType."""
    types = []
    with open(path, encoding="utf-8") as f:
        lines = f.read().split("\n")
    for number, raw in enumerate(lines, start=1):
        text, _, comment = raw.partition("#")
        if not text.strip():
            continue
        current = types[-1] if types else None

        def fail(what, row=None, generation=None, number=number, current=current):
            raise TableError(path, number, what, current.name if current else None, row,
                             generation)

        if not text[0].isspace():
            m = _ENUM_RE.match(text.strip())
            if not m:
                fail("expected 'enum <type> <count> [<kind>]'")
            name, count, kind = m.group(1), int(m.group(2)), m.group(3) or ""
            if not name.endswith("_t"):
                raise TableError(path, number, "type name does not end in _t", name)
            if kind and kind not in KINDS:
                raise TableError(path, number, "unknown kind '%s'" % kind, name)
            types.append(EnumType(name, count, kind, path, number, {}, []))
            continue
        if current is None:
            fail("row outside an enum block")
        m = _INSTANCES_RE.match(text.strip())
        if m:
            current.instances[m.group(1)] = _parse_instances(m, fail)
            continue
        pattern, cells, literals, braces, names = _parse_row(text.strip(), comment.strip(), fail)
        current.rows.append(_Row(pattern, cells, number, literals, braces, names))
    for enum_type in types:
        for label in enum_type.instances:
            if not any(_brace_follows(literal, label)
                       for row in enum_type.rows for literal in row.literals[:-1]):
                raise TableError(path, enum_type.line,
                                 "instances %s: no brace follows '%s'" % (label, label),
                                 enum_type.name)
    return types


def _brace_follows(literal, label):
    """True if the brace after this literal text is the block that an instances directive names."""
    return literal == label or literal.endswith("_" + label)


def _answered_names(enum_type, row, generation, cell, fail):
    """Positions in row.names of the names that answer a span cell, in expansion order."""
    if cell.answered == len(row.names):
        return list(range(len(row.names)))
    allowed = {}
    for label, counts in enum_type.instances.items():
        for i, literal in enumerate(row.literals[:-1]):
            if _brace_follows(literal, label):
                if counts[generation] > len(row.braces[i]):
                    fail("instances %s: %d is more than the brace holds"
                         % (label, counts[generation]))
                allowed[i] = set(row.braces[i][:counts[generation]])
    if not allowed:
        return list(range(cell.answered))
    chosen = [k for k, (_, combo) in enumerate(row.names)
              if all(combo[i] in values for i, values in allowed.items())]
    if len(chosen) != cell.answered:
        fail("the instance counts give %d names, the cell says %d" % (len(chosen), cell.answered))
    return chosen


def _linear_candidates(row, span):
    """Linear layouts of a span's names from its first to its last code, each a list of codes in
    expansion order."""
    combos = [row.names[k][1] for k in span.chosen]
    used = [sorted({c[i] for c in combos}) for i in range(len(row.braces))]
    grid = 1
    for values in used:
        grid *= len(values)
    if len(combos) != grid:
        return []  # not a full grid of indices: no single step describes it
    axes = [i for i, values in enumerate(used) if len(values) > 1]
    extent = {i: used[i][-1] - used[i][0] for i in axes}
    table_order = axes[::-1]  # innermost first
    orders = [table_order] + [list(p) for p in itertools.permutations(table_order)
                              if list(p) != table_order]
    candidates = []
    for order in orders if axes else []:
        steps, step = {}, 1
        for i in order[:-1]:
            steps[i] = step
            step *= extent[i] + 1
        outer = order[-1]
        rest = span.last - span.first - sum(steps[i] * extent[i] for i in order[:-1])
        if rest <= 0 or rest % extent[outer]:
            continue
        steps[outer] = rest // extent[outer]
        codes = [span.first + sum(steps[i] * (c[i] - used[i][0]) for i in axes) for c in combos]
        if len(set(codes)) == len(codes) and codes not in candidates:
            candidates.append(codes)
    return candidates


def _fill(spans, taken):
    """Hand out free codes to the middle names of the spans: lowest code first, each to the span
    with the nearest end. Returns one list of codes per span, or None if some span stays short."""
    need = [s.middles for s in spans]
    placed = [[] for _ in spans]
    if not any(need):
        return placed
    lo = min(s.first for s in spans if s.middles)
    hi = max(s.last for s in spans if s.middles)
    for code in range(lo + 1, hi):
        if code in taken:
            continue
        best = None
        for k, s in enumerate(spans):
            if need[k] and s.first < code < s.last:
                if best is None or (s.last, -need[k]) < (spans[best].last, -need[best]):
                    best = k
        if best is not None:
            placed[best].append(code)
            need[best] -= 1
    return None if any(need) else placed


def _infer(enum_type, generation, codes_of_rows):
    """Fill in the codes of the span rows of one type and generation.

    codes_of_rows maps a row index to its codes (None = not answered); the exact rows are there on
    entry, and the span rows are added.
    """
    owner = {}  # code -> name, of the stated codes and the span ends
    for r, codes in codes_of_rows.items():
        for (name, _), code in zip(enum_type.rows[r].names, codes):
            if code is not None:
                owner.setdefault(code, name)
    spans = []
    for r, row in enumerate(enum_type.rows):
        cell = row.cells[generation]
        if cell.form != "span":
            continue

        def fail(what, row=row):
            raise TableError(enum_type.path, row.line, what, enum_type.name, row.pattern,
                             generation)

        chosen = _answered_names(enum_type, row, generation, cell, fail)
        spans.append(_Span(r, chosen, cell.value, cell.last, fail))
        for end in sorted({cell.value, cell.last}):
            if end in owner:
                fail("span end %d is already the code of %s" % (end, owner[end]))
            owner[end] = row.pattern
    taken = set(owner)

    def store(span, codes):
        full = [None] * len(enum_type.rows[span.row].names)
        for k, code in zip(span.chosen, codes):
            full[k] = code
        codes_of_rows[span.row] = full

    # Linear layouts first, in table order, as long as the other spans can still be filled.
    unplaced = []
    for idx, span in enumerate(spans):
        for codes in _linear_candidates(enum_type.rows[span.row], span):
            inner = set(codes[1:-1])
            if inner & taken or _fill(spans[idx + 1:] + unplaced, taken | inner) is None:
                continue
            taken |= inner
            store(span, codes)
            break
        else:
            unplaced.append(span)
    placed = _fill(unplaced, taken)
    if placed is None:
        for span in unplaced:
            if _fill([span], taken) is None:
                span.fail("span %d..%d has no room for %d more distinct codes"
                          % (span.first, span.last, span.middles))
        unplaced[0].fail("the spans of this type cannot hold all their names without a clash")
    for span, inner in zip(unplaced, placed):
        store(span, [span.first] + inner + ([span.last] if len(span.chosen) > 1 else []))


def _expand_type(enum_type, source_name):
    per_generation = {}
    for generation in GENERATIONS:
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
        _infer(enum_type, generation, codes_of_rows)
        per_generation[generation] = codes_of_rows
    stem = enum_type.name[:-2]
    result, seen = [], {}
    for r, row in enumerate(enum_type.rows):
        for k, (name, _) in enumerate(row.names):
            if name in seen:
                raise TableError(enum_type.path, row.line,
                                 "%s repeats the name of line %d" % (name, seen[name]),
                                 enum_type.name, row.pattern)
            seen[name] = row.line
            codes = {g: per_generation[g][r][k] for g in GENERATIONS}
            inferred = {g: row.cells[g].form == "span" and codes[g] is not None
                        for g in GENERATIONS}
            result.append(Enumerant(enum_type.name, name, stem + "_" + name, codes, inferred,
                                    "%s:%d" % (source_name, row.line)))
    if len(result) != enum_type.count:
        raise TableError(enum_type.path, enum_type.line,
                         "%d enumerants in the rows, %d declared" % (len(result), enum_type.count),
                         enum_type.name)
    _check_inferred_codes(enum_type, result)
    return result


def _check_inferred_codes(enum_type, found):
    """No inferred code repeats a code of its type and generation; _infer makes sure of it."""
    for generation in GENERATIONS:
        owner = {}
        for e in found:
            code = e.codes[generation]
            if code is None:
                continue
            other = owner.setdefault(code, e)
            if other is not e and (e.inferred[generation] or other.inferred[generation]):
                raise TableError(enum_type.path, int(e.source.rsplit(":", 1)[1]),
                                 "inferred code %d repeats that of %s" % (code, other.name),
                                 enum_type.name, e.name, generation)


def table_files(tables_dir):
    """The enumerant tables of a directory, in the order they are read."""
    return sorted(glob.glob(os.path.join(tables_dir, "enums_*.tbl")))


def load_types(tables_dir):
    """Like load(), but with the EnumType blocks (name, count, kind, place) instead of pairs."""
    files = table_files(tables_dir)
    if not files:
        raise TableError(os.path.join(tables_dir, "enums_*.tbl"), 0, "no enumerant tables")
    types, found = [], []
    type_seen, accessor_seen = {}, {}
    for path in files:
        for enum_type in _parse_file(path):
            if enum_type.name in type_seen:
                raise TableError(path, enum_type.line,
                                 "type already declared at %s" % type_seen[enum_type.name],
                                 enum_type.name)
            type_seen[enum_type.name] = "%s:%d" % (path, enum_type.line)
            for e in _expand_type(enum_type, os.path.basename(path)):
                if e.accessor in accessor_seen:
                    raise TableError(path, int(e.source.rsplit(":", 1)[1]),
                                     "accessor %s already made by %s"
                                     % (e.accessor, accessor_seen[e.accessor]), e.type, e.name)
                accessor_seen[e.accessor] = e.source
                found.append(e)
            types.append(enum_type)
    return types, found


def load(tables_dir):
    """All enumeration types in table order with their declared counts, and all enumerants,
    expanded, in table order. Checks every type's expanded count against its declared count and
    raises TableError on any problem."""
    types, found = load_types(tables_dir)
    return [(t.name, t.count) for t in types], found


def inferred_summary(enumerants):
    """(type, generation, number of inferred codes), for the rows that have any."""
    counts = {}
    for e in enumerants:
        for generation in GENERATIONS:
            key = (e.type, generation)
            counts[key] = counts.get(key, 0) + e.inferred[generation]
    return [(t, g, n) for (t, g), n in counts.items() if n]


def stated_collisions(types, enumerants):
    """(type, kind, generation, code, names) for every code that names of one type share."""
    kinds = {t.name: t.kind for t in types}
    owners = {}
    for generation in GENERATIONS:
        for e in enumerants:
            if e.codes[generation] is not None:
                owners.setdefault((e.type, generation, e.codes[generation]), []).append(e.name)
    shared = [(t, kinds[t], g, code, names)
              for (t, g, code), names in owners.items() if len(names) > 1]
    return sorted(shared, key=lambda c: (c[0], GENERATIONS.index(c[2]), c[3]))


def main(argv):
    if len(argv) != 2:
        sys.stderr.write("usage: enumerants.py TABLES_DIR\n")
        return 2
    try:
        types, found = load_types(argv[1])
    except TableError as e:
        sys.stderr.write("%s\n" % e)
        return 1
    print("%d types, %d enumerants" % (len(types), len(found)))
    for generation in GENERATIONS:
        answered = sum(e.codes[generation] is not None for e in found)
        print("  answered by %-4s %5d" % (generation, answered))
    print("  answered by none %5d" % sum(all(c is None for c in e.codes.values()) for e in found))
    summary = inferred_summary(found)
    print("inferred codes: %d" % sum(n for _, _, n in summary))
    for type_name, generation, n in summary:
        print("  %-40s %-3s %4d" % (type_name, generation, n))
    shared = stated_collisions(types, found)
    for title, selection in (("selection types", True), ("other types", False)):
        listed = [c for c in shared if (c[1] in SELECTION_KINDS) == selection]
        print("codes shared by several names, %s: %d" % (title, len(listed)))
        for type_name, kind, generation, code, names in listed:
            print("  %s %s code %d: %s" % (type_name, generation, code, ", ".join(names)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
