"""Inference of the enumerant codes that a table gives only as a span: `A to B`, or
`A to B (M of N)` where only M of a row's N names answer.

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
     of the type can still be placed.
  2. Otherwise the names take free codes of the span, rising in expansion order. Free codes are
     handed out from the lowest up; each goes to the row with the nearest span end among those
     that still need codes and whose span holds it. That places every row whenever any placement
     exists.
"""

import dataclasses
import itertools

from genlib import TableError


def enum_error(path, line, what, type_name, row, generation):
    return TableError(path, line, f"{type_name} {row}, generation {generation}: {what}")


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


def brace_follows(literal, label):
    """True if the brace after this literal text is the block that an instances directive names."""
    return literal == label or literal.endswith("_" + label)


def _answered_names(enum_type, row, generation, cell, fail):
    """Positions in row.names of the names that answer a span cell, in expansion order."""
    if cell.answered == len(row.names):
        return list(range(len(row.names)))
    allowed = {}
    for label, counts in enum_type.instances.items():
        for i, literal in enumerate(row.literals[:-1]):
            if brace_follows(literal, label):
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


def infer(enum_type, generation, codes_of_rows):
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
            raise enum_error(enum_type.path, row.line, what, enum_type.name, row.pattern,
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


