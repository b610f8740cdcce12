#!/usr/bin/env python3
"""Loads the enumerant tables (tables/constants/enums_*.tbl) and expands them into single enumerants.

Each enumeration type of the constants interface is one block of a table:

    enum pcu_ctloutxbar_enum_t 95 crossbar
      pcu_ctloutxbar_ctxt{0-3}_logical_false_token{0,1} | 24 step 4/2 | 24 step 4/2 | 24 step 4/2
      pcu_ctloutxbar_ne_scl_crdrtn_{0-3}                | 10 to 10 (1 of 4) | ... | 10 to 79  # inferred

The heading names the type, its declared number of enumerants and optionally its kind (crossbar, mux,
udc-select, ormask, signals).  A row holds an enumerant or a pattern and one cell per generation in the
order ko | ry | rye; uko answers as ko and has no column.

Expansion of a pattern
  A brace stands for its indices: {0-7} is 0..7, {0,1,3} those listed, in ascending order.  Every
  combination is one enumerant; the first brace is the outermost loop and the last the innermost, so
  ctxt{0-1}_token{0,1} gives ctxt0_token0, ctxt0_token1, ctxt1_token0, ctxt1_token1.

Cells
  N               every name of the row has code N.
  V step A/B/C    the first combination has code V; a name's code adds, for each brace, the step of that
                  brace times the name's index less the brace's first index.  The unit is the index
                  value, not its position in the list: ctr{2,4}_max_dim{0-2} 150 step 4/1 puts ctr4 at
                  158..160, two units of 4 past ctr2, which is what keeps the ctr{2,4} stride registers at
                  153 step 4/1 and the {0,1,3} registers between them free of clashes.  The number of
                  steps must equal the number of braces.
  A to B          (inferred) the codes lie in A..B and follow no single step.
  A to B (M of N) (inferred) only M of the row's N names answer.
  -               the generation does not answer (code None).

Inference, for the rows marked "# inferred" (every row with a span cell must be marked, and only those)
  Which names answer: a directive "instances <label> ko=N ry=N rye=N" in the block gives the number of
  instances of the braced block whose literal text before the brace ends in <label> (for example
  "ctrchain" for ..._ctrchain{0-7}); the first N indices of that brace answer.  Without such a
  directive the first M names in expansion order answer.  Either way exactly M names must answer.
  Which codes: the first answered name takes A and the last takes B.  The names between are placed so
  that no two enumerants of the type and generation share a code:
    1. If the answered names fit one linear layout inside the span, it is used.  The candidate
       layouts nest the braces in every order (the table's order first); the innermost brace steps by
       1, each further brace by the extent of those inside it, and the outermost takes whatever step
       makes the last name land on B.  A candidate is taken only if all its codes are free and the
       other rows of the type can still be placed.
    2. Otherwise the names take the free codes of the span in rising order.  Free codes are handed out
       from the lowest up; each goes to the row with the nearest span end among those that still need
       codes and whose span contains it, which places every row whenever a placement exists.
  Every code of a row marked inferred counts as inferred, endpoints included.

Checks (each raises TableError naming the table file, line, type, row and generation)
  unknown or malformed cells and braces, step counts that do not match the braces, a span without the
  inferred mark or a mark without a span, names repeated within a type, accessor names repeated across
  types, an expanded count that differs from the heading, a span that cannot hold its names.
  Codes given exactly that repeat within a selection type are not refused: stated_collisions() lists
  them so that they can be taken up with the hardware description.
"""

import dataclasses
import glob
import itertools
import os
import re
import sys

GENERATIONS = ("ko", "ry", "rye")

KINDS = ("crossbar", "mux", "udc-select", "ormask", "signals")
# Kinds whose codes name one choice each: two enumerants of one generation must not share a code.
SELECTION_KINDS = ("crossbar", "mux", "udc-select", "ormask")


class TableError(Exception):
    """A table that cannot be loaded: "<table path>:<line>: error: <type> <row>, generation <g>: <what>"."""

    def __init__(self, path, line, what, type_name=None, row=None, generation=None):
        where = " ".join(x for x in (type_name, row) if x)
        if generation:
            where += ", generation " + generation
        super().__init__(
            "%s:%d: error: %s%s" % (path, line, where + ": " if where else "", what))


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
    count: int
    kind: str  # one of KINDS or ""
    path: str
    line: int
    instances: dict  # label -> {generation: count}
    rows: list


@dataclasses.dataclass
class _Cell:
    form: str  # "none", "plain", "step", "span"
    text: str
    value: int = 0
    steps: tuple = ()
    last: int = 0  # span end
    answered: int = 0  # span: names that answer
    of: int = 0  # span: names of the row, as the cell states them


@dataclasses.dataclass
class _Row:
    pattern: str
    cells: dict  # generation -> _Cell
    marked: bool
    line: int
    literals: list  # text between the braces; len(braces) + 1 items
    braces: list  # per brace: ascending list of index values
    names: list  # expanded: (name, combination of index values)


_ENUM_RE = re.compile(r"enum\s+(\w+)\s+(\d+)(?:\s+(\S+))?$")
_INSTANCES_RE = re.compile(r"instances\s+(\w+)((?:\s+\w+=\d+)+)$")
_PLAIN_RE = re.compile(r"(\d+)$")
_STEP_RE = re.compile(r"(\d+) step (\d+(?:/\d+)*)$")
_SPAN_RE = re.compile(r"(\d+) to (\d+)(?: \((\d+) of (\d+)\))?$")
_NAME_RE = re.compile(r"[A-Za-z0-9_{},-]+$")


def _parse_braces(pattern, fail):
    """Splits a pattern into its literal pieces and the index values of its braces."""
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


def _parse_cell(text, row_names, n_braces, fail):
    if text == "-":
        return _Cell("none", text)
    m = _PLAIN_RE.match(text)
    if m:
        return _Cell("plain", text, value=int(m.group(1)))
    m = _STEP_RE.match(text)
    if m:
        steps = tuple(int(s) for s in m.group(2).split("/"))
        if n_braces == 0:
            fail("'%s' steps, but the name has no brace" % text)
        if len(steps) != n_braces:
            fail("'%s' has %d steps for %d braces" % (text, len(steps), n_braces))
        return _Cell("step", text, value=int(m.group(1)), steps=steps)
    m = _SPAN_RE.match(text)
    if m:
        first, last = int(m.group(1)), int(m.group(2))
        of = int(m.group(4)) if m.group(4) else len(row_names)
        answered = int(m.group(3)) if m.group(3) else of
        if of != len(row_names):
            fail("'%s' counts %d names, the row has %d" % (text, of, len(row_names)))
        if not 1 <= answered <= of:
            fail("'%s' answers %d of %d names" % (text, answered, of))
        if answered == 1 and first != last:
            fail("'%s' has one name but two ends" % text)
        if answered > 1 and last - first + 1 < answered:
            fail("'%s' cannot hold %d distinct codes" % (text, answered))
        return _Cell("span", text, value=first, last=last, answered=answered, of=of)
    fail("unknown cell '%s'" % text)


def _parse_file(path):
    """Reads one table file into a list of EnumType."""
    types = []
    with open(path, encoding="utf-8") as f:
        lines = f.read().split("\n")
    for number, raw in enumerate(lines, start=1):
        text, _, comment = raw.partition("#")
        comment = comment.strip()
        if not text.strip():
            continue
        cur = types[-1] if types else None

        def fail(what, row=None, generation=None, number=number, cur=cur):
            raise TableError(path, number, what, cur.name if cur else None, row, generation)

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
        if cur is None:
            fail("row outside an enum block")
        stripped = text.strip()
        m = _INSTANCES_RE.match(stripped)
        if m:
            counts = {}
            for item in m.group(2).split():
                generation, value = item.split("=")
                if generation not in GENERATIONS or generation in counts:
                    fail("instances: bad or repeated generation '%s'" % generation)
                counts[generation] = int(value)
            if set(counts) != set(GENERATIONS):
                fail("instances %s: needs a count for each of %s" % (m.group(1), " ".join(GENERATIONS)))
            cur.instances[m.group(1)] = counts
            continue
        parts = [p.strip() for p in stripped.split("|")]
        pattern = parts[0]
        rowfail = lambda what, generation=None: fail(what, pattern, generation)  # noqa: E731
        if len(parts) != 1 + len(GENERATIONS):
            rowfail("expected %d cells (%s), found %d"
                    % (len(GENERATIONS), " | ".join(GENERATIONS), len(parts) - 1))
        literals, braces = _parse_braces(pattern, rowfail)
        names = _expand(literals, braces)
        cells = {}
        for generation, cell_text in zip(GENERATIONS, parts[1:]):
            cells[generation] = _parse_cell(
                cell_text, names, len(braces), lambda what, g=generation: rowfail(what, g))
        marked = comment.startswith("inferred")
        has_span = any(c.form == "span" for c in cells.values())
        if has_span and not marked:
            rowfail("a span cell needs the mark '# inferred'")
        if marked and not has_span:
            rowfail("marked inferred, but every code is exact")
        cur.rows.append(_Row(pattern, cells, marked, number, literals, braces, names))
    return types


def _answered_names(enum_type, row, generation, cell, fail):
    """Index positions (into row.names) of the names that answer a span cell, in expansion order."""
    if cell.answered == cell.of:
        return list(range(len(row.names)))
    limits = {}
    for label, counts in enum_type.instances.items():
        for i, literal in enumerate(row.literals[:-1]):
            if literal == label or literal.endswith("_" + label):
                limits[i] = set(row.braces[i][:counts[generation]])
    if limits:
        chosen = [k for k, (_, combo) in enumerate(row.names)
                  if all(combo[i] in allowed for i, allowed in limits.items())]
        if len(chosen) != cell.answered:
            fail("the instance counts give %d names, the cell says %d" % (len(chosen), cell.answered))
        return chosen
    return list(range(cell.answered))


def _linear_candidates(row, chosen, first, last):
    """Linear layouts of the chosen names from first to last, as lists of codes in expansion order."""
    combos = [row.names[k][1] for k in chosen]
    used = [sorted({c[i] for c in combos}) for i in range(len(row.braces))]
    if len(combos) != _product(len(u) for u in used):
        return []  # not a full grid of indices: no single step describes it
    axes = [i for i, u in enumerate(used) if len(u) > 1]
    if not axes:
        return []
    extent = {i: used[i][-1] - used[i][0] for i in axes}
    candidates = []
    orders = [axes[::-1]] + [list(p) for p in itertools.permutations(axes[::-1]) if list(p) != axes[::-1]]
    for order in orders:  # innermost first
        steps, step = {}, 1
        for i in order[:-1]:
            steps[i] = step
            step *= extent[i] + 1
        outer = order[-1]
        rest = last - first - sum(steps[i] * extent[i] for i in order[:-1])
        if rest <= 0 or rest % extent[outer]:
            continue
        steps[outer] = rest // extent[outer]
        codes = [first + sum(steps[i] * (c[i] - used[i][0]) for i in axes) for c in combos]
        if len(set(codes)) == len(codes) and codes not in candidates:
            candidates.append(codes)
    return candidates


def _product(values):
    result = 1
    for v in values:
        result *= v
    return result


def _place_in_spans(spans, taken):
    """Hands out free codes to the spans' middle names, lowest code first, nearest span end first.

    spans: list of (first, last, how many middle codes).  Returns a list of code lists, or None when
    some span cannot be filled.
    """
    need = [n for _, _, n in spans]
    placed = [[] for _ in spans]
    if not any(need):
        return placed
    lo = min(first for first, _, n in spans if n)
    hi = max(last for _, last, n in spans if n)
    for code in range(lo + 1, hi):
        if code in taken:
            continue
        best = None
        for k, (first, last, _) in enumerate(spans):
            if need[k] and first < code < last:
                if best is None or (last, -need[k]) < (spans[best][1], -need[best]):
                    best = k
        if best is not None:
            placed[best].append(code)
            need[best] -= 1
    return None if any(need) else placed


def _infer(enum_type, generation, codes_of_rows):
    """Fills the codes of the inferred rows of one type and generation.

    codes_of_rows: row index -> list of codes (None = not answered) for the exact rows; filled in here
    for the span rows.
    """
    taken = set()
    for codes in codes_of_rows.values():
        taken.update(c for c in codes if c is not None)
    pending = []  # (row index, chosen name positions, first, last)
    for r, row in enumerate(enum_type.rows):
        cell = row.cells[generation]
        if cell.form != "span":
            continue

        def fail(what, row=row):
            raise TableError(enum_type.path, row.line, what, enum_type.name, row.pattern, generation)

        chosen = _answered_names(enum_type, row, generation, cell, fail)
        pending.append((r, chosen, cell.value, cell.last, fail))
        taken.update((cell.value, cell.last))

    def middles(item):
        return max(len(item[1]) - 2, 0)

    # Linear layouts first, in table order, as long as the rest can still be placed.
    remaining = []
    for idx, item in enumerate(pending):
        r, chosen, first, last, _ = item
        done = False
        for codes in _linear_candidates(enum_type.rows[r], chosen, first, last):
            inner = codes[1:-1]
            if any(c in taken for c in inner):
                continue
            trial = taken | set(inner)
            rest = [(f, l, middles(it)) for it in pending[idx + 1:] + remaining
                    for (_, _, f, l, _) in [it]]
            if _place_in_spans(rest, trial) is None:
                continue
            taken = trial
            _store(enum_type, codes_of_rows, r, chosen, codes)
            done = True
            break
        if not done:
            remaining.append(item)
    placed = _place_in_spans([(f, l, middles(it)) for it in remaining for (_, _, f, l, _) in [it]],
                             taken)
    if placed is None:
        # Name the first row that cannot be filled on its own terms.
        for item in remaining:
            r, chosen, first, last, fail = item
            if _place_in_spans([(first, last, middles(item))], taken) is None:
                fail("span %d..%d has no room for %d more distinct codes" % (first, last, middles(item)))
        remaining[0][4]("the inferred rows of this type cannot share their spans without a clash")
    for item, inner in zip(remaining, placed):
        r, chosen, first, last, _ = item
        codes = [first] + inner + ([last] if len(chosen) > 1 else [])
        _store(enum_type, codes_of_rows, r, chosen, codes)


def _store(enum_type, codes_of_rows, r, chosen, codes):
    full = [None] * len(enum_type.rows[r].names)
    for k, code in zip(chosen, codes):
        full[k] = code
    codes_of_rows[r] = full


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
                    cell.value + sum(s * (v - b[0]) for s, v, b in zip(cell.steps, combo, row.braces))
                    for _, combo in row.names]
        _infer(enum_type, generation, codes_of_rows)
        per_generation[generation] = codes_of_rows
    stem = enum_type.name[:-2]
    enumerants = []
    seen = {}
    for r, row in enumerate(enum_type.rows):
        for k, (name, _) in enumerate(row.names):
            if name in seen:
                raise TableError(enum_type.path, row.line, "%s repeats the name of line %d" % (name, seen[name]),
                                 enum_type.name, row.pattern)
            seen[name] = row.line
            codes = {g: per_generation[g][r][k] for g in GENERATIONS}
            inferred = {g: row.cells[g].form == "span" and codes[g] is not None for g in GENERATIONS}
            enumerants.append(Enumerant(enum_type.name, name, stem + "_" + name, codes, inferred,
                                        "%s:%d" % (source_name, row.line)))
    if len(enumerants) != enum_type.count:
        raise TableError(enum_type.path, enum_type.line,
                         "%d enumerants in the rows, %d declared" % (len(enumerants), enum_type.count),
                         enum_type.name)
    _check_inferred_codes(enum_type, enumerants)
    return enumerants


def _check_inferred_codes(enum_type, enumerants):
    """An inferred code never repeats a code of its type and generation (a bug in _infer if it did)."""
    for generation in GENERATIONS:
        owner = {}
        for e in enumerants:
            code = e.codes[generation]
            if code is None:
                continue
            other = owner.setdefault(code, e)
            if other is not e and (e.inferred[generation] or other.inferred[generation]):
                line = int(e.source.rsplit(":", 1)[1])
                raise TableError(enum_type.path, line,
                                 "inferred code %d of %s repeats that of %s" % (code, e.name, other.name),
                                 enum_type.name, e.name, generation)


def table_files(tables_dir):
    return sorted(glob.glob(os.path.join(tables_dir, "enums_*.tbl")))


def load_types(tables_dir):
    """Like load(), but returns the EnumType blocks (name, count, kind, place) instead of pairs."""
    files = table_files(tables_dir)
    if not files:
        raise TableError(os.path.join(tables_dir, "enums_*.tbl"), 0, "no enumerant tables found")
    types, enumerants = [], []
    type_seen, accessor_seen = {}, {}
    for path in files:
        for enum_type in _parse_file(path):
            if enum_type.name in type_seen:
                raise TableError(path, enum_type.line, "type already declared at %s" % type_seen[enum_type.name],
                                 enum_type.name)
            type_seen[enum_type.name] = "%s:%d" % (path, enum_type.line)
            for e in _expand_type(enum_type, os.path.basename(path)):
                if e.accessor in accessor_seen:
                    line = int(e.source.rsplit(":", 1)[1])
                    raise TableError(path, line, "accessor %s already made by %s" % (e.accessor, accessor_seen[e.accessor]),
                                     e.type, e.name)
                accessor_seen[e.accessor] = e.source
                enumerants.append(e)
            types.append(enum_type)
    return types, enumerants


def load(tables_dir):
    """All enumeration types in table order with their declared counts, and all enumerants, expanded, in table
    order. Checks every type's expanded count against its declared count and raises TableError on any problem."""
    types, enumerants = load_types(tables_dir)
    return [(t.name, t.count) for t in types], enumerants


def inferred_summary(enumerants):
    """(type, generation, number of inferred codes), for the rows that have any."""
    counts = {}
    for e in enumerants:
        for generation in GENERATIONS:
            counts.setdefault((e.type, generation), 0)
            if e.inferred[generation]:
                counts[(e.type, generation)] += 1
    return [(t, g, n) for (t, g), n in counts.items() if n]


def stated_collisions(types, enumerants):
    """(type, kind, generation, code, names) where exactly stated codes of one type repeat."""
    kinds = {t.name: t.kind for t in types}
    found = {}
    for generation in GENERATIONS:
        for e in enumerants:
            if e.codes[generation] is not None:
                found.setdefault((e.type, generation, e.codes[generation]), []).append(e.name)
    return sorted(((t, kinds[t], g, code, names) for (t, g, code), names in found.items() if len(names) > 1),
                  key=lambda c: (c[0], GENERATIONS.index(c[2]), c[3]))


def main(argv):
    if len(argv) != 2:
        sys.stderr.write("usage: enumerants.py TABLES_DIR\n")
        return 2
    try:
        types, enumerants = load_types(argv[1])
    except TableError as e:
        sys.stderr.write("%s\n" % e)
        return 1
    print("%d types, %d enumerants" % (len(types), len(enumerants)))
    for generation in GENERATIONS:
        answered = sum(1 for e in enumerants if e.codes[generation] is not None)
        print("  answered by %-3s %5d" % (generation, answered))
    print("  answered by none %4d" % sum(1 for e in enumerants if all(c is None for c in e.codes.values())))
    summary = inferred_summary(enumerants)
    print("inferred codes: %d" % sum(n for _, _, n in summary))
    for type_name, generation, n in summary:
        print("  %-40s %-3s %4d" % (type_name, generation, n))
    collisions = stated_collisions(types, enumerants)
    selection = [c for c in collisions if c[1] in SELECTION_KINDS]
    print("stated codes shared within a selection type: %d" % len(selection))
    for type_name, kind, generation, code, names in selection:
        print("  %s (%s) %s code %d: %s" % (type_name, kind, generation, code, ", ".join(names)))
    print("stated codes shared within other types: %d" % (len(collisions) - len(selection)))
    for type_name, kind, generation, code, names in collisions:
        if kind not in SELECTION_KINDS:
            print("  %s %s code %d: %s" % (type_name, generation, code, ", ".join(names)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
