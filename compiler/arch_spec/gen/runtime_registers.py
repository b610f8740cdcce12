"""Reads and checks the table of run-time registers (tables/records/runtime_registers.tbl).

A block names a tile and its run-time register enumeration; a row names a register family by its
enumerants' names, with each index a named brace, and the leaf it writes:

    tile pcu pcu_rcf_enum_t
    pcu_rcf_reg_ctrchain{c}_max_ctxt{x}  CounterChain_structIn[x].counter_max_value[c]  ko,ry,rye  stated
    agcu_rcf_reg_agu{a}_vag{v}_ctrchain{c}_max_hi  ...counter_max_value[c]:hi  ry,rye  inferred  # why
    pcu_rcf_reg_num_stages_ctxt{x}  -   # why it is not linked

Every name a generation answers becomes one register: its code (from the constants tables), the
leaf (its path with the indices put in) and the word of the leaf it writes. A row is refused when
its leaf does not exist in a generation's records (a field missing, an index beyond an array),
when a register would hold more than 32 bits, when two registers write one word of a leaf or share
a number, when a generation it names answers none of its names, and when a family a generation
answers has no row. Run as a script, it prints the coverage per tile and generation as Markdown.
"""

import dataclasses
import os
import re
import sys

import enumerants
import field_types
import genlib
import record_tables

TABLE = "runtime_registers.tbl"
BASES = ("stated", "inferred")
HALVES = {"": 0, "lo": 1, "hi": 2}  # the whole leaf (up to 32 bits), its low word, its high word
_TILE_RE = re.compile(r"tile\s+(\w+)\s+(\w+)$")
_BRACE_RE = re.compile(r"\{([a-z])(?:=([0-9,-]+))?\}")
_INDEX_RE = re.compile(r"[0-9a-z*+ -]+\Z")


@dataclasses.dataclass
class Row:
    tile: str
    enum_type: str
    family: str  # as written, "pcu_rcf_reg_ctrchain{c}_max_ctxt{x}"
    pattern: object  # compiled: the names of the family, one group per brace
    variables: list  # the braces' names, in order
    allowed: list  # per brace, the indices it takes, or None for any
    path: str  # "" for a row that links nothing
    half: int
    generations: list  # columns; every column for a '-' row that names none
    basis: str
    reason: str
    line: int

    @property
    def source(self):
        return f"{TABLE}:{self.line}"


@dataclasses.dataclass(frozen=True)
class Register:
    """One run-time register of one generation: its enumerant, and the leaf word it writes."""

    column: str
    tile: str
    accessor: str
    name: str
    code: int
    inferred: bool  # the code is inferred in the constants tables
    path: str  # "" where the register is not linked
    half: int
    width: int  # bits of the leaf the register writes (0 if unlinked)
    row: Row


def _indices(text):
    out = []
    for part in text.split(","):
        low, _, high = part.partition("-")
        out += range(int(low), int(high or low) + 1)
    return out


def _family(text, fail):
    """(compiled pattern, variables, allowed indices) of a family's name."""
    variables, allowed, regex, last = [], [], "", 0
    for m in _BRACE_RE.finditer(text):
        regex += re.escape(text[last:m.start()]) + r"(\d+)"
        last = m.end()
        if m.group(1) in variables:
            raise fail(f"{text}: found index {m.group(1)} twice, expected each brace named once")
        variables.append(m.group(1))
        allowed.append(_indices(m.group(2)) if m.group(2) else None)
    rest = text[last:]
    if "{" in rest or "}" in rest or not re.match(r"[A-Za-z0-9_]*\Z", rest) or \
            not re.match(r"[A-Za-z0-9_{}=,-]+\Z", text):
        raise fail(f"found family '{text}', expected an enumerant name with braces such as {{c}} "
                   "or {s=0-4}")
    return re.compile(regex + re.escape(rest) + r"\Z"), variables, allowed


def _parse(path, columns, errors):
    rows, block = [], None
    try:
        lines = list(genlib.table_lines(path))
    except OSError as e:
        errors.add(genlib.TableError(path, 0, f"found {e.strerror}, expected the run-time "
                                     "registers"))
        return rows
    for line in lines:
        def fail(what, line=line):
            return genlib.TableError(path, line.number, what)

        with errors.collect():
            words = line.text.split()
            m = _TILE_RE.match(line.text.strip())
            if m:
                block = m.groups()
                continue
            if block is None:
                raise fail(f"found '{line.text.strip()}' before any block, expected "
                           "'tile TILE TYPE'")
            pattern, variables, allowed = _family(words[0], fail)
            if words[1:2] == ["-"]:
                if not line.comment:
                    raise fail(f"{words[0]}: found '-' without a comment, expected the reason "
                               "the family is not linked")
                gens = words[2].split(",") if len(words) > 2 else list(columns)
                rows.append(Row(*block, words[0], pattern, variables, allowed, "", 0, gens, "",
                                line.comment, line.number))
                continue
            if len(words) != 4 or words[3] not in BASES:
                raise fail(f"{words[0]}: found '{' '.join(words[1:])}', expected PATH "
                           f"GENERATIONS BASIS ({' or '.join(BASES)}) or '-  # reason'")
            target, _, half = words[1].partition(":")
            if half not in HALVES or (half == "" and ":" in words[1]):
                raise fail(f"{words[0]}: found ':{half}', expected :lo or :hi after a leaf "
                           "above 32 bits, or nothing")
            gens = words[2].split(",")
            for g in gens:
                if g not in columns:
                    raise fail(f"{words[0]}: found generation {g}, expected some of "
                               f"{', '.join(columns)}")
            rows.append(Row(*block, words[0], pattern, variables, allowed, target, HALVES[half],
                            gens, words[3], line.comment, line.number))
    return rows


def _substitute(row, values):
    """The row's path with the braces' indices put in; index expressions are evaluated."""
    bound = dict(zip(row.variables, values))

    def index(m):
        text = m.group(1)
        if not _INDEX_RE.match(text):
            raise ValueError(text)
        return "[%d]" % eval(text, {"__builtins__": {}}, bound)  # digits, names, + - * only

    path = re.sub(r"\[([^\]]*)\]", index, row.path)
    return re.sub(r"\{([a-z])\}", lambda m: str(bound[m.group(1)]), path)


def _leaf_width(path, top, records):
    """The width of the leaf at `path` below the record `top`; raises ValueError(found,
    expected) where the path names no leaf."""
    rec = top
    parts = path.split(".")
    for n, part in enumerate(parts):
        m = re.match(r"(\w+)((?:\[\d+\])*)\Z", part)
        if not m:
            raise ValueError(f"found path element '{part}'", "expected NAME or NAME[i]...")
        name, indices = m.group(1), [int(i) for i in re.findall(r"\d+", m.group(2))]
        fld = next((f for f in rec.fields if f.name == name), None)
        if fld is None:
            raise ValueError(f"found no field {name} in {rec.name}",
                             f"expected one of its fields")
        cell = fld.cell
        for i in indices:
            if isinstance(cell, record_tables.Array):
                count, cell = cell.count, cell.element
            elif isinstance(cell, record_tables.Packed):
                count, cell = cell.count, record_tables.Leaf(cell.bits)
            else:
                raise ValueError(f"found index [{i}] on {name}, which is no array",
                                 "expected an index per array")
            if i >= count:
                raise ValueError(f"found index {i} of {rec.name}.{name}, which has {count} "
                                 "elements", f"expected an index below {count}")
        last = n + 1 == len(parts)
        if isinstance(cell, record_tables.Leaf):
            if not last:
                raise ValueError(f"found {name} a leaf before the path's end", "expected a record")
            return cell.bits
        if isinstance(cell, (record_tables.Array, record_tables.Packed)):
            raise ValueError(f"found {name} an array", "expected an index per array")
        if last:
            raise ValueError(f"found {name} a record", "expected a leaf")
        rec = records[cell.name]
    raise AssertionError(path)


def registers(tables, errors):
    """(generations, rows, registers): every run-time register a generation answers, linked to its
    leaf by the table or not; the faults go to `errors`."""
    generations = genlib.load_generations(tables, errors)
    per_ns, tiles = record_tables.load(os.path.join(tables, "records"),
                                       list(generations.namespaces), errors)
    types, enums = enumerants.load_types(os.path.join(tables, "constants"),
                                         generations.columns, errors)
    if errors:
        return generations, [], []
    path = os.path.join(tables, "records", TABLE)
    rows = _parse(path, generations.columns, errors)
    tile_records = {t.name: t.record for t in tiles}
    type_names = {t.name for t in types}
    ns_of = {column: ns for ns, pairs in field_types.generations_of(generations).items()
             for _, column in pairs}
    found, used, words, numbers = [], set(), {}, {}
    for row in rows:
        def fail(what, row=row):
            return genlib.TableError(path, row.line, f"{row.family}: {what}")

        with errors.collect():
            if row.tile not in tile_records:
                raise fail(f"found tile {row.tile}, expected one of {', '.join(tile_records)}")
            if row.enum_type not in type_names:
                raise fail(f"found type {row.enum_type}, expected an enumeration type of the "
                           "constants tables")
    if errors:
        return generations, rows, []
    by_type = {}
    for e in enums:
        by_type.setdefault(e.type, []).append(e)
    for column in generations.columns:
        records = {r.name: r for r in per_ns[ns_of[column]]}
        for enum_type in dict.fromkeys(r.enum_type for r in rows):
            for e in by_type.get(enum_type, []):
                if e.codes.get(column) is None:
                    continue
                matches = []
                for row in rows:
                    m = row.pattern.match(e.name) if row.enum_type == enum_type else None
                    if m is None or column not in row.generations:
                        continue
                    values = [int(v) for v in m.groups()]
                    if all(a is None or v in a for v, a in zip(values, row.allowed)):
                        matches.append((row, values))
                with errors.collect():
                    if not matches:
                        raise genlib.TableError(path, 0, f"{e.name}: {column} answers it "
                                                f"({e.source}) and no row of {TABLE} speaks for "
                                                "it, expected a row that links it or '-  # why'")
                    if len(matches) > 1:
                        lines = " and ".join(str(r.line) for r, _ in matches)
                        raise genlib.TableError(path, matches[1][0].line,
                                                f"{e.name}: found rows {lines} for {column}, "
                                                "expected one")
                    row, values = matches[0]
                    used.add((row.line, column))
                    found.append(_register(path, row, values, e, column, records,
                                           tile_records, words, numbers))
    for row in rows:
        for column in row.generations:
            if (row.line, column) not in used and row.path:
                errors.add(genlib.TableError(path, row.line, f"{row.family}: {column} answers no "
                                             "register of the family, expected each generation "
                                             "named to answer some"))
        if row.path == "" and not any((row.line, c) in used for c in row.generations):
            errors.add(genlib.TableError(path, row.line, f"{row.family}: no generation answers "
                                         "a register of the family, expected a row for answered "
                                         "registers only"))
    return generations, rows, found


def _register(path, row, values, e, column, records, tile_records, words, numbers):
    code = e.codes[column]

    def fail(what):
        return genlib.TableError(path, row.line, f"{e.name} on {column}: {what}")

    leaf, width = "", 0
    if row.path:
        try:
            leaf = _substitute(row, values)
        except (ValueError, SyntaxError, NameError) as x:
            raise fail(f"found index '{x}', expected digits, the braces' names, + - and *")
        try:
            width = _leaf_width(leaf, records[tile_records[row.tile]], records)
        except ValueError as x:
            found, expected = x.args
            raise fail(f"{leaf}: {found}, {expected}")
        if row.half == 0 and width > 32:
            raise fail(f"{leaf} has {width} bits, expected a register to hold at most 32 bits: "
                       "name the word it writes (:lo or :hi)")
        if row.half and width <= 32:
            raise fail(f"{leaf} has {width} bits, one word: expected no :lo or :hi")
        for half in ((1, 2) if row.half == 0 else (row.half,)):
            key = (column, row.tile, leaf, half)
            if key in words:
                raise fail(f"{leaf}: found its {'low high'.split()[half - 1]} word written by "
                           f"{words[key]} too, expected one register per word")
            words[key] = e.name
        key = (column, row.tile, code)
        if key in numbers:
            raise fail(f"found register number {code} linked by {numbers[key]} too, expected one "
                       "field per register")
        numbers[key] = e.name
    return Register(column, row.tile, e.accessor, e.name, code, bool(e.inferred.get(column)),
                    leaf, row.half, width, row)


def coverage(tables):
    """Per tile and generation: registers answered, linked, and the families left out."""
    errors = genlib.Errors()
    generations, rows, found = registers(tables, errors)
    for e in errors:
        raise e
    out = ["| tile | generation | run-time registers | linked | stated | inferred | left out |",
           "|---|---|---:|---:|---:|---:|---:|"]
    tiles = list(dict.fromkeys(r.tile for r in rows))
    for tile in tiles:
        for column in generations.columns:
            mine = [r for r in found if r.tile == tile and r.column == column]
            linked = [r for r in mine if r.path]
            stated = sum(1 for r in linked if r.row.basis == "stated")
            out.append(f"| {tile} | {column} | {len(mine)} | {len(linked)} | {stated} | "
                       f"{len(linked) - stated} | {len(mine) - len(linked)} |")
    out += ["", "| tile | family | generations | registers | why it is not linked |",
            "|---|---|---|---:|---|"]
    for row in rows:
        if row.path:
            continue
        mine = [r for r in found if r.row is row]
        gens = ", ".join(dict.fromkeys(r.column for r in mine))
        out.append(f"| {row.tile} | `{row.family}` | {gens} | {len(mine)} | {row.reason} |")
    return "\n".join(out) + "\n"


BEGIN = "<!-- run-time registers: written by runtime_registers.py, do not edit by hand -->"
END = "<!-- end of run-time registers -->"


def main(argv):
    """runtime_registers.py TABLES_DIR prints the coverage; with DOC it checks that the document's section is
    current, and with --write DOC it rewrites it."""
    return genlib.section_main(argv, "runtime_registers.py", coverage, BEGIN, END)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
