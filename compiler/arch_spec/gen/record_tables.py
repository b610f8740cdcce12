"""Reads and checks the record tables (tables/records/*.rec).

A table file holds tile lines and one block per record:

    tile pcu  pcu_config_struct  compute tile

    record PCU_SIMD_struct  ko=82/17  ry=82/17  rye=82/17
      stage_immediate       32
      rounding_enable       -         -         1

A tile line names a tile type, its top-level record and what the tile is. A line

    namespace ry2 like ry

gives the records namespace ry2 (of a later generation than ry) a copy of each of ry's records
that no block declares for ry2 itself: a new namespace starts as another's, and a record that
differs is declared for it in its block (a cell per row, a total in the heading).

A record heading names the record and declares, per records namespace that has it, the total
bits, the number of direct fields and, for top-level records, the number of unique ids that
numbering the whole record hands out (NS=BITS/FIELDS[/IDS]). These are the numbers the hardware
description states for each record, kept as cross-checks of the rows; the generator computes every
one of them from the rows and names each that disagrees (TotalError, which --fix rewrites). Each row names one field, in record
order, with one cell per namespace of the heading, or a single cell that holds for all of them. A
record whose field order differs between namespaces has one block per namespace.

Cells:
    6       leaf of 6 bits                               BitsInteger<6>
    4x8     4 packed elements of 8 bits                  PackedArray<4, 8>
    [2]X    2 of X, a packed array, record or array      ArrayLE<2, X>
    NAME    one nested record of the same namespace      NAME
    -       the field does not exist in this namespace

Every declared total is checked against what the rows add up to, a record's from its own rows and
the sizes its nested records compute (not those they declare), so that one run names the wrong
totals of a record and of every record that holds it. The top-level records of each namespace must
be exactly the records of the tiles.
"""

import dataclasses
import os
import re

from genlib import TableError, TotalError, table_lines

MAX_LEAF_BITS = 64
NAME_RE = re.compile(r"[A-Za-z_][A-Za-z0-9_]*\Z")
HEADING_DECL_RE = re.compile(r"([a-z][a-z0-9]*)=(\d+)/(\d+)(?:/(\d+))?\Z")
LEAF_RE = re.compile(r"(\d+)\Z")
PACKED_RE = re.compile(r"(\d+)x(\d+)\Z")
ARRAY_RE = re.compile(r"\[(\d+)\](.+)\Z")
CELL_FORMS = "N, NxB, [K]X, a record name or -"


def record_error(path, line, record, ns, found, expected):
    return TableError(path, line, f"record {record}, generation {ns}: {found}, {expected}")


# Cells ------------------------------------------------------------------------------------------


@dataclasses.dataclass(frozen=True)
class Leaf:
    bits: int

    def cpp(self):
        return f"BitsInteger<{self.bits}>"


@dataclasses.dataclass(frozen=True)
class Packed:
    count: int
    bits: int

    def cpp(self):
        return f"PackedArray<{self.count}, {self.bits}>"


@dataclasses.dataclass(frozen=True)
class Array:
    count: int
    element: object

    def cpp(self):
        return f"ArrayLE<{self.count}, {self.element.cpp()}>"


@dataclasses.dataclass(frozen=True)
class Ref:
    name: str

    def cpp(self):
        return self.name


def parse_cell(text):
    """The cell's construct, or None for '-'. Raises ValueError(found, expected) for anything
    else: the generator never guesses."""
    if text == "-":
        return None
    m = LEAF_RE.match(text)
    if m:
        bits = int(m.group(1))
        if not 1 <= bits <= MAX_LEAF_BITS:
            raise ValueError(f"found leaf of {bits} bits", f"expected 1 to {MAX_LEAF_BITS} bits")
        return Leaf(bits)
    construct = parse_construct(text)
    if construct is None:
        raise ValueError(f"found unknown cell '{text}'", f"expected {CELL_FORMS}")
    return construct


def parse_construct(text):
    """A packed array, an array or a record name; None if the text is none of them."""
    m = PACKED_RE.match(text)
    if m:
        count, bits = int(m.group(1)), int(m.group(2))
        if count < 1 or not 1 <= bits <= MAX_LEAF_BITS:
            raise ValueError(f"found packed array {text}",
                             f"expected at least 1 element of 1 to {MAX_LEAF_BITS} bits")
        return Packed(count, bits)
    m = ARRAY_RE.match(text)
    if m:
        count = int(m.group(1))
        if count < 1:
            raise ValueError(f"found array {text} of no element", "expected at least 1 element")
        element = parse_construct(m.group(2))
        return None if element is None else Array(count, element)
    return Ref(text) if NAME_RE.match(text) else None


# Tables -----------------------------------------------------------------------------------------


@dataclasses.dataclass
class Field:
    name: str
    cell: object
    line: int


@dataclasses.dataclass
class Record:
    """One record of one namespace, as a block of a table declares it."""

    name: str
    ns: str
    path: str
    line: int
    declared_bits: int
    declared_fields: int
    declared_ids: object  # int, or None where the heading leaves it out
    fields: list = dataclasses.field(default_factory=list)
    bits: object = None  # checked totals, set when the rows agree with the heading
    ids: object = None
    top_level: bool = False
    broken: bool = False  # a row failed: its totals would only repeat that error
    like: str = ""  # the namespace whose block it was copied from (namespace NS like OTHER)
    word: int = 0  # the word of the heading that declares its totals

    @property
    def source(self):
        return f"{os.path.basename(self.path)}:{self.line}"

    def error(self, found, expected, line=None):
        return record_error(self.path, self.line if line is None else line, self.name, self.ns,
                            found, expected)

    def total_error(self, found, expected, part, computed):
        """A declared total that disagrees with the rows. A copy of another namespace's block
        declares nothing of its own: its fault is a plain one, which --fix leaves."""
        if self.like:
            return self.error(found, expected + f" (a copy of {self.like}'s block: declare it for "
                              f"{self.ns} in its heading)")
        e = self.error(found, expected)
        return TotalError(e.path, e.line, e.message, self.word, part, computed)


@dataclasses.dataclass(frozen=True)
class Like:
    """namespace NS like OTHER: NS takes OTHER's records where its own blocks do not declare
    them."""

    ns: str
    other: str
    path: str
    line: int


@dataclasses.dataclass(frozen=True)
class Tile:
    name: str
    record: str
    description: str
    source: str


def parse_heading(path, lineno, words, namespaces):
    """'record NAME NS=BITS/FIELDS[/IDS] ...' as (name, [(ns, bits, fields, ids, word)]), word
    being the place of the declaration among the heading's words."""
    name = words[1] if len(words) > 1 else "-"
    if len(words) < 3 or not NAME_RE.match(name):
        raise record_error(path, lineno, name, "-", f"found heading '{' '.join(words)}'",
                           "expected 'record NAME GEN=BITS/FIELDS[/IDS] ...'")
    decls = []
    for index, word in enumerate(words[2:], start=2):
        m = HEADING_DECL_RE.match(word)
        ns = word.split("=")[0]
        if not m:
            raise record_error(path, lineno, name, ns, f"found declaration '{word}'",
                               "expected GEN=BITS/FIELDS or GEN=BITS/FIELDS/IDS")
        if ns not in namespaces:
            raise record_error(path, lineno, name, ns, f"found unknown generation '{ns}'",
                               f"expected one of {', '.join(namespaces)}")
        ids = int(m.group(4)) if m.group(4) is not None else None
        decls.append((ns, int(m.group(2)), int(m.group(3)), ids, index))
    found = [d[0] for d in decls]
    if found != [ns for ns in namespaces if ns in found]:
        raise record_error(path, lineno, name, found[0], f"found generations {' '.join(found)}",
                           f"expected each once, in the order {' '.join(namespaces)}")
    return name, decls


def parse_like(path, lineno, words, namespaces):
    """'namespace NS like OTHER', OTHER a namespace of an earlier generation than NS."""
    if len(words) != 4 or words[2] != "like":
        raise TableError(path, lineno, f"found '{' '.join(words)}', expected "
                         "'namespace NS like OTHER'")
    ns, other = words[1], words[3]
    for name in (ns, other):
        if name not in namespaces:
            raise TableError(path, lineno, f"found records namespace '{name}', expected one of "
                             f"{', '.join(namespaces)}")
    if namespaces.index(other) >= namespaces.index(ns):
        raise TableError(path, lineno, f"namespace {ns} like {other}: found {other} after {ns} in "
                         f"the generations, expected the namespace of an earlier generation")
    return Like(ns, other, path, lineno)


def parse_table(path, namespaces, errors):
    """The records, tiles and namespace likenesses that one table file declares, each namespace
    apart."""
    records, tiles, likes = [], [], []
    block = None  # the records of the block being read, one per namespace of its heading

    def close_block():
        for rec in block or ():
            if not rec.fields and not rec.broken:
                errors.add(rec.error("found no rows", "expected one row per field"))
                rec.broken = True

    for line in table_lines(path):
        words = line.text.split()
        try:
            if not line.text[0].isspace():
                if words[0] == "tile":
                    if len(words) < 3:
                        raise TableError(path, line.number, f"found '{line.text}', expected "
                                         "'tile NAME RECORD DESCRIPTION'")
                    tiles.append(Tile(words[1], words[2], " ".join(words[3:]),
                                      f"{os.path.basename(path)}:{line.number}"))
                    continue
                if words[0] == "namespace":
                    likes.append(parse_like(path, line.number, words, namespaces))
                    continue
                if words[0] != "record":
                    raise record_error(path, line.number, "-", "-",
                                       f"found '{words[0]}' at the start of a line",
                                       "expected a heading 'record NAME ...', a 'tile' or "
                                       "'namespace' line, or an indented field row")
                close_block()
                block = []  # rows under a heading that fails are skipped with it
                name, decls = parse_heading(path, line.number, words, namespaces)
                block = [Record(name, ns, path, line.number, b, n, i, word=w)
                         for ns, b, n, i, w in decls]
                records.extend(block)
                continue
            if block is None:
                raise record_error(path, line.number, "-", "-",
                                   f"found field row '{words[0]}' outside a record",
                                   "expected a heading 'record NAME ...' first")
            if block:
                parse_row(path, line.number, words, block, errors)
        except TableError as e:
            errors.add(e)
            for rec in block or ():
                rec.broken = True  # a record missing a row would only repeat the error
    close_block()
    return records, tiles, likes


def parse_row(path, lineno, words, block, errors):
    field, cells = words[0], words[1:]
    first = block[0]
    if not NAME_RE.match(field):
        raise first.error(f"found field name '{field}'", "expected an identifier", lineno)
    if len(cells) == 1:
        cells = cells * len(block)
    elif len(cells) != len(block):
        expected = "1" if len(block) == 1 else f"1 or {len(block)}"
        raise first.error(f"found {len(cells)} cells for field {field}", f"expected {expected}",
                          lineno)
    parsed = {}
    for rec, text in zip(block, cells):
        if text not in parsed:
            try:
                parsed[text] = parse_cell(text)
            except ValueError as e:
                found, expected = e.args
                errors.add(rec.error(f"field {field}: {found}", expected, lineno))
                parsed[text] = e
        if isinstance(parsed[text], ValueError):
            rec.broken = True
            continue
        if parsed[text] is not None:
            rec.fields.append(Field(field, parsed[text], lineno))


# Checks -----------------------------------------------------------------------------------------


def cell_size(cell, records):
    """(bits, unique ids) of one field; None where a nested record is unknown."""
    if isinstance(cell, Leaf):
        return cell.bits, 1
    if isinstance(cell, Packed):
        return cell.count * cell.bits, cell.count + 1
    if isinstance(cell, Array):
        if isinstance(cell.element, Packed):
            # The inner packed arrays take no id of their own: one per element, one per array.
            packed = cell.element
            return cell.count * packed.count * packed.bits, cell.count * packed.count + 1
        inner = cell_size(cell.element, records)
        if inner is None:
            return None
        return cell.count * inner[0], 1 + cell.count * inner[1]
    rec = records.get(cell.name)
    if rec is None or rec.bits is None:
        return None  # unknown, or already reported: its users would only repeat the error
    return rec.bits, rec.ids


def refs(cell):
    while isinstance(cell, Array):
        cell = cell.element
    return cell.name if isinstance(cell, Ref) else None


def check_namespace(ns, records, errors):
    """Checks the records of one namespace; returns them in emission order, nested ones first."""
    by_name = {}
    for rec in records:
        if rec.name in by_name:
            first = by_name[rec.name]
            errors.add(rec.error("found a second declaration of the record",
                                 f"expected one per generation (first at "
                                 f"{os.path.basename(first.path)}:{first.line})"))
            continue
        by_name[rec.name] = rec
    ordered = [by_name[r.name] for r in records if by_name.get(r.name) is r]

    used = set()
    for rec in ordered:
        seen = {}
        for fld in rec.fields:
            if fld.name in seen:
                errors.add(rec.error(f"found field {fld.name} twice",
                                     f"expected unique field names (first at line "
                                     f"{seen[fld.name]})", fld.line))
            seen.setdefault(fld.name, fld.line)
            target = refs(fld.cell)
            if target is None:
                continue
            if target not in by_name:
                errors.add(rec.error(f"field {fld.name} refers to record {target}, which "
                                     f"generation {ns} does not declare",
                                     "expected a record of the same namespace", fld.line))
            else:
                used.add(target)

    emitted, state = [], {}

    def visit(rec, via):
        if state.get(rec.name) == "done":
            return
        if state.get(rec.name) == "open":
            errors.add(via[0].error(f"found record {rec.name} nested in itself through field "
                                    f"{via[1].name}", "expected records to nest without cycles",
                                    via[1].line))
            return
        state[rec.name] = "open"
        for fld in rec.fields:
            target = by_name.get(refs(fld.cell))
            if target is not None:
                visit(target, (rec, fld))
        state[rec.name] = "done"
        emitted.append(rec)
        size_record(rec, by_name, errors)

    for rec in ordered:
        visit(rec, None)

    for rec in emitted:
        rec.top_level = rec.name not in used
        if rec.top_level and rec.declared_ids is None and not rec.broken:
            found = "found a top-level record without a declared id count"
            if rec.ids is None:
                errors.add(rec.error(found, f"expected {ns}=BITS/FIELDS/IDS in its heading"))
            else:
                errors.add(rec.total_error(found, f"expected {ns}=BITS/FIELDS/{rec.ids} in its "
                                           "heading", 2, rec.ids))
    return emitted


def size_record(rec, by_name, errors):
    """Computes the record's bits and ids from its rows and the computed sizes of the records it
    holds, and names each declared total that disagrees; the records that hold it go on with the
    computed sizes, so that their own totals are checked in the same run."""
    if rec.broken:
        return
    bits, ids = 0, 1
    for fld in rec.fields:
        size = cell_size(fld.cell, by_name)
        if size is None:
            return
        bits += size[0]
        ids += size[1]
    rec.bits, rec.ids = bits, ids
    for part, unit, found, declared in ((0, "bits in the fields", bits, rec.declared_bits),
                                        (1, "fields", len(rec.fields), rec.declared_fields),
                                        (2, "unique ids", ids, rec.declared_ids)):
        if declared is not None and found != declared:
            errors.add(rec.total_error(f"found {found} {unit}", f"expected {declared} as declared",
                                       part, found))


def check_tiles(tiles, per_ns, errors):
    """Each namespace's top-level records are exactly the tiles' records."""
    names = [t.record for t in tiles]
    for tile in tiles:
        if names.count(tile.record) > 1 or [t.name for t in tiles].count(tile.name) > 1:
            path, _, line = tile.source.rpartition(":")
            errors.add(TableError(path, int(line), f"tile {tile.name}: found its name or record "
                                  "twice, expected each tile and record once"))
    for ns, records in per_ns.items():
        top = [r for r in records if r.top_level]
        for rec in top:
            if rec.name not in names and not rec.broken:
                errors.add(rec.error("found a top-level record that is no tile's",
                                     "expected a 'tile' line naming it, or a record that "
                                     "uses it"))
        for tile in tiles:
            if records and not any(r.name == tile.record for r in top):
                path, _, line = tile.source.rpartition(":")
                errors.add(TableError(path, int(line), f"tile {tile.name}: generation {ns} has "
                                      f"no top-level record {tile.record}, expected one per "
                                      "records namespace"))


def inherit(records, likes, namespaces, errors):
    """Adds, for each 'namespace NS like OTHER', a copy for NS of every record of OTHER that no
    block declares for NS. Namespaces are taken in generation order, so that NS may be like a
    namespace that is itself like another."""
    by_ns = {}
    for like in likes:
        if like.ns in by_ns:
            first = by_ns[like.ns]
            errors.add(TableError(like.path, like.line, f"namespace {like.ns}: found a second "
                                  f"likeness, expected one (first at "
                                  f"{os.path.basename(first.path)}:{first.line})"))
        else:
            by_ns[like.ns] = like
    for ns in namespaces:
        like = by_ns.get(ns)
        if like is None:
            continue
        own = {r.name for r in records if r.ns == ns}
        records += [dataclasses.replace(r, ns=ns, fields=list(r.fields), like=like.other)
                    for r in records if r.ns == like.other and r.name not in own]


def load(tables_dir, namespaces, errors):
    """The checked records per namespace, in emission order, and the tiles."""
    try:
        names = sorted(n for n in os.listdir(tables_dir) if n.endswith(".rec"))
    except OSError as e:
        errors.add(TableError(tables_dir, 0, f"found {e.strerror}, expected a directory"))
        return {}, []
    if not names:
        errors.add(TableError(tables_dir, 0, "found no *.rec table, expected the record tables"))
    records, tiles, likes = [], [], []
    for name in names:
        found, found_tiles, found_likes = parse_table(os.path.join(tables_dir, name), namespaces,
                                                      errors)
        records += found
        tiles += found_tiles
        likes += found_likes
    inherit(records, likes, namespaces, errors)
    per_ns = {ns: check_namespace(ns, [r for r in records if r.ns == ns], errors)
              for ns in namespaces}
    if not errors.faults():  # else it would repeat their faults; wrong totals do not matter here
        check_tiles(tiles, per_ns, errors)
    return per_ns, tiles
