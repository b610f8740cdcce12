"""Reads and checks the table of field types (tables/records/field_types.tbl).

A row names a record, one of its fields, the enumeration type whose code the field holds and
what that rests on:

    PCU_SIMD_struct  stage_opcode  stage_opcode_t  stated    # a stage opcode
    Switch_CtlXbar_struct  UDCIncXbarMuxsel  ry=switch_udc_incdec_xbar_sel_t rye=...  inferred
    PCU_SIMD_struct  stage_opA_sel  -    # why the field takes no type

The type applies in every records namespace whose record has the field, or, written NS=TYPE, in
the namespaces named and in those whose record is a copy of a named one's (namespace NS like
OTHER). A row is refused when the record or field is unknown or holds no leaves, the type is not
an enumeration type of the constants tables, a generation whose records have the field answers no
code of the type, or a code that a generation answers does not fit the field's width. Run as a
script, it prints the coverage of the tiles' leaves as Markdown.
"""

import collections
import dataclasses
import os
import re
import sys

import enumerants
import genlib
import record_tables

TABLE = "field_types.tbl"
BASES = ("stated", "inferred")
# Names that look like the selection of one code among named ones.
SELECTION_RE = re.compile(r"(_sel$|_select$|Xbar|xbar|_src$|opcode|Opcode|format|Format|_mode$|"
                          r"Sel$|Select$)")
NAME_RE = re.compile(r"[A-Za-z_][A-Za-z0-9_]*\Z")


@dataclasses.dataclass(frozen=True)
class FieldType:
    record: str
    field: str
    types: dict  # records namespace -> enumeration type; empty for a '-' row
    basis: str  # "stated", "inferred", or "" for a '-' row
    reason: str  # the row's comment
    line: int

    @property
    def source(self):
        return f"{TABLE}:{self.line}"


def leaf_width(cell):
    """The width of each leaf of a field, or None for a field of records."""
    while isinstance(cell, record_tables.Array):
        cell = cell.element
    if isinstance(cell, (record_tables.Leaf, record_tables.Packed)):
        return cell.bits
    return None


def generations_of(generations):
    """{records namespace: [(product or code, enumerant column)]} of the generations with records
    and answers: the column is the generation's own, or that of the generation it answers as."""
    out = {}
    for g in generations.rows:
        if g.records and g.answers:
            column = g.code if g.answers == "own" else g.answers
            out.setdefault(g.records, []).append((g.product or g.code, column))
    return out


def answered_codes(enums):
    """{(type, column): [(code, enumerant name)]} of every code a generation answers."""
    out = collections.defaultdict(list)
    for e in enums:
        for column, code in e.codes.items():
            if code is not None:
                out[(e.type, column)].append((code, e.accessor))
    return out


def parse(path, per_ns, types, enums, generations, errors):
    """The rows of the table, each checked; faulty rows are reported and left out."""
    type_names = {t.name for t in types}
    codes = answered_codes(enums)
    serving = generations_of(generations)
    records = {ns: {r.name: r for r in recs} for ns, recs in per_ns.items()}
    rows, seen = [], {}
    try:
        lines = list(genlib.table_lines(path))
    except OSError as e:
        errors.add(genlib.TableError(path, 0, f"found {e.strerror}, expected the field types"))
        return rows
    for line in lines:
        with errors.collect():
            row = parse_row(path, line, type_names, records)
            key = (row.record, row.field)
            if key in seen:
                raise genlib.TableError(path, line.number, f"{row.record}.{row.field}: found a "
                                        f"second row, expected one (first at line {seen[key]})")
            seen[key] = line.number
            check_row(path, row, records, codes, serving)
            rows.append(row)
    for (record, field, type_name), (where, namespaces) in untyped_namesakes(
            per_ns, type_names, rows).items():
        errors.add(genlib.TableError(
            *where, f"{record}.{field}: found a field named after enumeration "
            f"type {type_name} ({', '.join(namespaces)} records) with no row in {TABLE}, "
            f"expected a row that types it or '{record} {field} -  # why it takes no type'"))
    return rows


def namesake(field, type_names):
    """The enumeration type that a field is named after (its name and '_t', in any case), or
    None."""
    wanted = f"{field}_t".lower()
    return next((t for t in sorted(type_names) if t.lower() == wanted), None)


def untyped_namesakes(per_ns, type_names, rows):
    """{(record, field, type): ((table, line) of the field's first declaration, [namespace])} of
    every field of leaves named after an enumeration type that no row speaks for in those
    namespaces: a row that types the field there, or a '-' row or one of NS=TYPE cells that leaves
    it out, with the reason in its comment."""
    spoken = {(r.record, r.field): r for r in rows}
    found = {}
    for ns, recs in per_ns.items():
        for rec in recs:
            for fld in rec.fields:
                type_name = namesake(fld.name, type_names)
                if type_name is None or leaf_width(fld.cell) is None:
                    continue
                row = spoken.get((rec.name, fld.name))
                if row is not None and (ns in row.types or row.reason):
                    continue
                where = (rec.path, fld.line)
                found.setdefault((rec.name, fld.name, type_name), (where, []))[1].append(ns)
    return found


def parse_row(path, line, type_names, records):
    words = line.text.split()

    def fail(what):
        return genlib.TableError(path, line.number, what)

    if len(words) < 3 or not NAME_RE.match(words[0]) or not NAME_RE.match(words[1]):
        raise fail(f"found '{line.text.strip()}', expected 'RECORD FIELD TYPE BASIS' or "
                   "'RECORD FIELD -  # reason'")
    record, field, cells = words[0], words[1], words[2:]
    where = f"{record}.{field}"
    namespaces = [ns for ns, recs in records.items() if record in recs]
    if not namespaces:
        raise fail(f"{where}: found unknown record {record}, expected a record of the tables")
    present = [ns for ns in namespaces
               if any(f.name == field for f in records[ns][record].fields)]
    if not present:
        raise fail(f"{where}: found no field {field} in {record}, expected one of its fields")
    if cells == ["-"]:
        if not line.comment:
            raise fail(f"{where}: found '-' without a comment, expected the reason the field "
                       "takes no type")
        return FieldType(record, field, {}, "", line.comment, line.number)
    if len(cells) < 2 or cells[-1] not in BASES:
        raise fail(f"{where}: found '{' '.join(cells)}', expected TYPE (or NS=TYPE cells) and "
                   f"a basis, {' or '.join(BASES)}")
    basis, type_cells = cells[-1], cells[:-1]
    types = {}
    if len(type_cells) == 1 and "=" not in type_cells[0]:
        types = {ns: type_cells[0] for ns in present}
    else:
        for cell in type_cells:
            ns, eq, name = cell.partition("=")
            if not eq or ns not in records:
                raise fail(f"{where}: found cell '{cell}', expected NS=TYPE with NS one of "
                           f"{', '.join(records)}")
            if ns not in present:
                raise fail(f"{where}: found a type for {ns}, whose {record} has no field {field}; "
                           f"expected types for {', '.join(present)} only")
            if ns in types:
                raise fail(f"{where}: found {ns} twice, expected one type per namespace")
            types[ns] = name
        # A namespace whose record is a copy of another's (namespace NS like OTHER) types the
        # field as that one does.
        for ns in present:
            like = records[ns][record].like
            if ns not in types and like in types:
                types[ns] = types[like]
    for name in dict.fromkeys(types.values()):
        if name not in type_names:
            raise fail(f"{where}: found type {name}, expected one of the "
                       f"{len(type_names)} enumeration types of the constants tables")
    return FieldType(record, field, types, basis, line.comment, line.number)


def check_row(path, row, records, codes, serving):
    """Every generation whose records have the field answers its type, with codes that fit."""
    for ns, type_name in row.types.items():
        fld = next(f for f in records[ns][row.record].fields if f.name == row.field)
        width = leaf_width(fld.cell)
        where = f"{row.record}.{row.field}"
        if width is None:
            raise genlib.TableError(path, row.line, f"{where}: found a field of records, "
                                    "expected a field of leaves")
        for generation, column in serving.get(ns, []):
            answered = codes.get((type_name, column), [])
            if not answered:
                raise genlib.TableError(path, row.line, f"{where}: {generation} answers no code "
                                        f"of {type_name}, expected every generation with the "
                                        f"field ({ns} records) to answer its type")
            code, name = max(answered)
            if code >= 1 << width:
                raise genlib.TableError(path, row.line, f"{where}: code {code} of {name} on "
                                        f"{generation} does not fit the field's {width} bits, "
                                        f"expected codes below {1 << width}")


def templates(rec, records, prefix=""):
    """(leaf path template, field name, record name) of every leaf of a record, in record order:
    the leaf paths with each index written as []."""
    for fld in rec.fields:
        path = f"{prefix}.{fld.name}" if prefix else fld.name
        cell = fld.cell
        while isinstance(cell, record_tables.Array):
            path += "[]"
            cell = cell.element
        if isinstance(cell, record_tables.Leaf):
            yield path, fld.name, rec.name
        elif isinstance(cell, record_tables.Packed):
            yield path + "[]", fld.name, rec.name
        else:
            yield from templates(records[cell.name], records, path)


def load(tables, errors):
    """Everything the field types rest on, checked: (generations, records per namespace, tiles,
    enumeration types, enumerants, rows)."""
    generations = genlib.load_generations(tables, errors)
    namespaces = list(generations.namespaces)
    per_ns, tiles = record_tables.load(os.path.join(tables, "records"), namespaces, errors)
    types, enums = enumerants.load_types(os.path.join(tables, "constants"),
                                         generations.columns, errors)
    if errors:
        return generations, per_ns, tiles, types, enums, []
    rows = parse(os.path.join(tables, "records", TABLE), per_ns, types, enums, generations, errors)
    return generations, per_ns, tiles, types, enums, rows


def typed_templates(per_ns, tiles, rows):
    """{(namespace, tile): [(template, type, row)]} of the typed leaves, in bit-walk order."""
    by_key = {(r.record, r.field): r for r in rows}
    out = {}
    for ns, recs in per_ns.items():
        records = {r.name: r for r in recs}
        for tile in tiles:
            found = []
            for template, field, record in templates(records[tile.record], records):
                row = by_key.get((record, field))
                if row is not None and ns in row.types:
                    found.append((template, row.types[ns], row))
            out[(ns, tile.name)] = found
    return out


def coverage(tables):
    """The coverage of the tiles' leaves by the table, as Markdown."""
    errors = genlib.Errors()
    generations, per_ns, tiles, types, _, rows = load(tables, errors)
    for e in errors:
        raise e
    type_names = {t.name for t in types}
    by_key = {(r.record, r.field): r for r in rows}
    out = ["| tile | records | generations | leaves | typed leaves | typed fields |",
           "|---|---|---|---:|---:|---:|"]
    untyped = collections.OrderedDict()
    for tile in tiles:
        for ns, recs in per_ns.items():
            records = {r.name: r for r in recs}
            leaves = typed = 0
            fields = set()
            for template, field, record in templates(records[tile.record], records):
                count = _instances(template, records[tile.record], records)
                leaves += count
                row = by_key.get((record, field))
                if row is not None and ns in row.types:
                    typed += count
                    fields.add((record, field))
                elif SELECTION_RE.search(field) or namesake(field, type_names):
                    reason = row.reason if row is not None and not row.types else (
                        f"no type for {ns}: {row.reason}" if row is not None else
                        "no row: no enumeration type of the tables is known to fit it")
                    untyped.setdefault((record, field, reason), []).append(ns)
            gens = ", ".join(g.product for g in generations.rows if g.records == ns)
            out.append(f"| {tile.name} | {ns} | {gens} | {leaves} | {typed} | {len(fields)} |")
    out += ["", "| record | field | records | why it takes no type |", "|---|---|---|---|"]
    for (record, field, reason), namespaces in untyped.items():
        out.append(f"| {record} | `{field}` | {', '.join(dict.fromkeys(namespaces))} | {reason} |")
    return "\n".join(out) + "\n"


def _instances(template, top, records):
    """How many leaves a template stands for: the product of the counts of its arrays."""
    count = 1
    rec = top
    for part in template.split("."):
        name = part.split("[", 1)[0]
        fld = next(f for f in rec.fields if f.name == name)
        cell = fld.cell
        while isinstance(cell, record_tables.Array):
            count *= cell.count
            cell = cell.element
        if isinstance(cell, record_tables.Packed):
            count *= cell.count
        elif isinstance(cell, record_tables.Ref):
            rec = records[cell.name]
    return count


BEGIN = "<!-- coverage: written by field_types.py, do not edit by hand -->"
END = "<!-- end of coverage -->"


def main(argv):
    """field_types.py TABLES_DIR prints the coverage; with DOC it checks that the document's
    section is current, and with --write DOC it rewrites it."""
    return genlib.section_main(argv, "field_types.py", coverage, BEGIN, END)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
