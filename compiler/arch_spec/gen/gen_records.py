#!/usr/bin/env python3
"""Generate the tile record classes of every generation from the record tables.

A table file (*.rec) holds one block per record:

    record PCU_SIMD_struct  ko=82/17  ry=82/17  rye=82/17
      stage_immediate       32
      rounding_enable       -         -         1

The heading names the record and declares, per generation that has it, the total bits, the
number of direct fields and, for top-level records, the number of unique ids that numbering
the whole record hands out (GEN=BITS/FIELDS[/IDS]). Each row names one field, in record order,
with one cell per generation of the heading, or a single cell that holds for all of them.
A record whose field order differs between generations has one block per generation.

Cells:
    6       leaf of 6 bits                               BitsInteger<6>
    4x8     4 packed elements of 8 bits                  PackedArray<4, 8>
    [2]X    2 of X, a packed array, record or array      ArrayLE<2, X>
    NAME    one nested record of the same namespace      NAME
    -       the field does not exist in this generation

For each generation the generator writes <Ns>Config.h (the classes, nested records first),
<Ns>Config.cpp (one field visitor per record) and <Ns>Records.inc (an X-macro list), and checks
every declared total against what the rows add up to. A file is rewritten only when its content
changes, so that builds stay incremental. Any disagreement is reported as
    <table>:<line>: error: record <R>, generation <g>: <found>, <expected>
and nothing is written.
"""

import argparse
import os
import re
import sys

# Generation, file prefix, and the chip major followed by the minors its records serve.
GENERATIONS = (
    ("ko", "Ko", (2, 0, 1)),
    ("ry", "Ry", (3, 0)),
    ("rye", "Rye", (4, 0)),
)
GENERATION_NAMES = tuple(g for g, _, _ in GENERATIONS)
OUT_SUBDIR = os.path.join("compiler", "arch_spec", "gen")
MAX_LEAF_BITS = 64

NAME_RE = re.compile(r"[A-Za-z_][A-Za-z0-9_]*\Z")
HEADING_DECL_RE = re.compile(r"([a-z]+)=(\d+)/(\d+)(?:/(\d+))?\Z")
LEAF_RE = re.compile(r"(\d+)\Z")
PACKED_RE = re.compile(r"(\d+)x(\d+)\Z")
ARRAY_RE = re.compile(r"\[(\d+)\](.+)\Z")
CELL_FORMS = "N, NxB, [K]X, a record name or -"


class TableError(Exception):
    def __init__(self, path, line, record, gen, found, expected):
        super().__init__(
            f"{path}:{line}: error: record {record}, generation {gen}: {found}, {expected}"
        )


# Cells ----------------------------------------------------------------------------------


class Leaf:
    def __init__(self, bits):
        self.bits = bits

    def cpp(self):
        return f"BitsInteger<{self.bits}>"


class Packed:
    def __init__(self, count, bits):
        self.count = count
        self.bits = bits

    def cpp(self):
        return f"PackedArray<{self.count}, {self.bits}>"


class Array:
    def __init__(self, count, element):
        self.count = count
        self.element = element

    def cpp(self):
        return f"ArrayLE<{self.count}, {self.element.cpp()}>"


class Ref:
    def __init__(self, name):
        self.name = name

    def cpp(self):
        return self.name


def parse_cell(text):
    """Returns the cell's construct, or None for '-'.

    Raises ValueError(found, expected) for anything else, since the generator never guesses.
    """
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
    """Parses a packed array, an array or a record name; None if the text is none of them."""
    m = PACKED_RE.match(text)
    if m:
        count, bits = int(m.group(1)), int(m.group(2))
        if count < 1 or not 1 <= bits <= MAX_LEAF_BITS:
            raise ValueError(
                f"found packed array {text}",
                f"expected at least 1 element of 1 to {MAX_LEAF_BITS} bits",
            )
        return Packed(count, bits)
    m = ARRAY_RE.match(text)
    if m:
        count = int(m.group(1))
        if count < 1:
            raise ValueError(f"found array {text} of no element", "expected at least 1 element")
        element = parse_construct(m.group(2))
        return None if element is None else Array(count, element)
    if NAME_RE.match(text):
        return Ref(text)
    return None


# Tables ---------------------------------------------------------------------------------


class Field:
    def __init__(self, name, cell, line):
        self.name = name
        self.cell = cell
        self.line = line


class Record:
    """One record of one generation, as a block of a table declares it."""

    def __init__(self, name, gen, path, line, bits, fields, ids):
        self.name = name
        self.gen = gen
        self.path = path
        self.line = line
        self.declared_bits = bits
        self.declared_fields = fields
        self.declared_ids = ids
        self.fields = []
        self.bits = None
        self.ids = None
        self.top_level = False
        self.broken = False  # a row failed to parse: its totals would only repeat that error

    def error(self, found, expected, line=None):
        return TableError(
            self.path, self.line if line is None else line, self.name, self.gen, found, expected
        )


def parse_heading(path, lineno, words):
    """Parses 'record NAME GEN=BITS/FIELDS[/IDS] ...' into (name, [(gen, bits, fields, ids)])."""
    name = words[1] if len(words) > 1 else "-"
    if len(words) < 3 or not NAME_RE.match(name):
        raise TableError(
            path, lineno, name, "-", f"found heading '{' '.join(words)}'",
            "expected 'record NAME GEN=BITS/FIELDS[/IDS] ...'",
        )
    decls = []
    for word in words[2:]:
        m = HEADING_DECL_RE.match(word)
        gen = word.split("=")[0]
        if not m:
            raise TableError(
                path, lineno, name, gen, f"found declaration '{word}'",
                "expected GEN=BITS/FIELDS or GEN=BITS/FIELDS/IDS",
            )
        if gen not in GENERATION_NAMES:
            raise TableError(
                path, lineno, name, gen, f"found unknown generation '{gen}'",
                f"expected one of {', '.join(GENERATION_NAMES)}",
            )
        ids = int(m.group(4)) if m.group(4) is not None else None
        decls.append((gen, int(m.group(2)), int(m.group(3)), ids))
    gens = [d[0] for d in decls]
    expected_order = [g for g in GENERATION_NAMES if g in gens]
    if gens != expected_order:
        raise TableError(
            path, lineno, name, gens[0], f"found generations {' '.join(gens)}",
            f"expected each once, in the order {' '.join(GENERATION_NAMES)}",
        )
    return name, decls


def parse_table(path, errors):
    """Returns the records that one table file declares, each generation apart."""
    records = []
    block = None  # the records of the block being read, one per generation of its heading

    def close_block():
        for rec in block or ():
            if not rec.fields and not rec.broken:
                errors.append(rec.error("found no rows", "expected one row per field"))
                rec.broken = True

    with open(path, encoding="utf-8") as f:
        lines = f.read().splitlines()
    for lineno, raw in enumerate(lines, 1):
        text = raw.split("#", 1)[0].rstrip()
        if not text:
            continue
        words = text.split()
        try:
            if not text[0].isspace():
                if words[0] != "record":
                    raise TableError(
                        path, lineno, "-", "-", f"found '{words[0]}' at the start of a line",
                        "expected a heading 'record NAME ...' or an indented field row",
                    )
                close_block()
                block = []  # rows under a heading that fails are skipped with it
                name, decls = parse_heading(path, lineno, words)
                block = [Record(name, g, path, lineno, b, n, i) for g, b, n, i in decls]
                records.extend(block)
                continue
            if block is None:
                raise TableError(
                    path, lineno, "-", "-", f"found field row '{words[0]}' outside a record",
                    "expected a heading 'record NAME ...' first",
                )
            if block:
                parse_row(path, lineno, words, block, errors)
        except TableError as e:
            errors.append(e)
            for rec in block or ():
                rec.broken = True  # a record missing a row would only repeat the error
    close_block()
    return records


def parse_row(path, lineno, words, block, errors):
    field, cells = words[0], words[1:]
    first = block[0]
    if not NAME_RE.match(field):
        raise TableError(
            path, lineno, first.name, first.gen, f"found field name '{field}'",
            "expected an identifier",
        )
    if len(cells) == 1:
        cells = cells * len(block)
    elif len(cells) != len(block):
        expected = "1" if len(block) == 1 else f"1 or {len(block)}"
        raise TableError(
            path, lineno, first.name, first.gen, f"found {len(cells)} cells for field {field}",
            f"expected {expected}",
        )
    parsed = {}
    for rec, text in zip(block, cells):
        if text not in parsed:
            try:
                parsed[text] = parse_cell(text)
            except ValueError as e:
                found, expected = e.args
                errors.append(rec.error(f"field {field}: {found}", expected, lineno))
                parsed[text] = e
        if isinstance(parsed[text], ValueError):
            rec.broken = True
            continue
        if parsed[text] is not None:
            rec.fields.append(Field(field, parsed[text], lineno))


# Checks ---------------------------------------------------------------------------------


def cell_size(cell, records):
    """Returns (bits, unique ids) of one field; None where a nested record is unknown."""
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


def check_generation(gen, records, errors):
    """Checks the records of one generation; returns them in emission order."""
    by_name = {}
    for rec in records:
        if rec.name in by_name:
            first = by_name[rec.name]
            errors.append(
                rec.error(
                    "found a second declaration of the record",
                    f"expected one per generation (first at {first.path}:{first.line})",
                )
            )
            continue
        by_name[rec.name] = rec
    ordered = [by_name[r.name] for r in records if by_name.get(r.name) is r]

    used = set()
    for rec in ordered:
        seen = {}
        for fld in rec.fields:
            if fld.name in seen:
                errors.append(
                    rec.error(
                        f"found field {fld.name} twice",
                        f"expected unique field names (first at line {seen[fld.name]})",
                        fld.line,
                    )
                )
            seen.setdefault(fld.name, fld.line)
            target = refs(fld.cell)
            if target is None:
                continue
            if target not in by_name:
                errors.append(
                    rec.error(
                        f"field {fld.name} refers to record {target}, which generation {gen} "
                        "does not declare",
                        "expected a record of the same namespace",
                        fld.line,
                    )
                )
            else:
                used.add(target)

    # Nested records first, otherwise table order; sizes follow the same order.
    emitted, state = [], {}

    def visit(rec, via):
        if state.get(rec.name) == "done":
            return
        if state.get(rec.name) == "open":
            errors.append(
                via[0].error(
                    f"found record {rec.name} nested in itself through field {via[1].name}",
                    "expected records to nest without cycles",
                    via[1].line,
                )
            )
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
            errors.append(
                rec.error(
                    "found a top-level record without a declared id count",
                    f"expected {gen}=BITS/FIELDS/IDS in its heading",
                )
            )
    return emitted


def size_record(rec, by_name, errors):
    if rec.broken:
        return
    bits, ids = 0, 1
    for fld in rec.fields:
        size = cell_size(fld.cell, by_name)
        if size is None:
            return
        bits += size[0]
        ids += size[1]
    found = []
    if bits != rec.declared_bits:
        found.append((f"found {bits} bits in the fields", f"expected {rec.declared_bits}"))
    if len(rec.fields) != rec.declared_fields:
        found.append((f"found {len(rec.fields)} fields", f"expected {rec.declared_fields}"))
    if rec.declared_ids is not None and ids != rec.declared_ids:
        found.append((f"found {ids} unique ids", f"expected {rec.declared_ids}"))
    for what, expected in found:
        errors.append(rec.error(what, expected + " as declared"))
    if not found:
        rec.bits, rec.ids = bits, ids


# Emission -------------------------------------------------------------------------------


def banner(source, gen):
    return [
        f"// Generated by gen_records.py from {source}: records of generation {gen}.",
        "// Do not edit.",
    ]


def emit_header(source, gen, versions, records):
    out = banner(source, gen)
    out += ["#pragma once", "", '#include "compiler/arch_spec/Constructs.h"', ""]
    out += [f"namespace zu::spec::{gen} {{", ""]
    out += [f"ZU_SPEC_RECORD_GENERATION({', '.join(str(v) for v in versions)})", ""]
    for rec in records:
        out.append(f"// table {os.path.basename(rec.path)}:{rec.line}")
        out.append(f"class {rec.name} final : public BaseConstruct {{")
        out.append(" public:")
        for fld in rec.fields:
            out.append(f"  {fld.cell.cpp()} {fld.name};")
        out.append(f"  ZU_SPEC_RECORD({rec.name}, {rec.bits})")
        out.append("};")
        out.append("")
    out.append(f"}}  // namespace zu::spec::{gen}")
    return "\n".join(out) + "\n"


def emit_source(source, gen, prefix, records):
    out = banner(source, gen)
    out += [f'#include "compiler/arch_spec/gen/{prefix}Config.h"', ""]
    out += ['#include "compiler/arch_spec/RecordRules.h"', ""]
    out += [f"namespace zu::spec::{gen} {{", ""]
    for rec in records:
        out.append(f"// table {os.path.basename(rec.path)}:{rec.line}")
        out.append("template <class Self, class Visit>")
        out.append(f"void {rec.name}::Fields(Self& self, Visit&& visit) {{")
        for fld in rec.fields:
            out.append(f'  visit("{fld.name}", self.{fld.name});')
        out.append("}")
        out.append(f"ZU_SPEC_RECORD_IMPL({rec.name})")
        out.append("")
    out.append(f"}}  // namespace zu::spec::{gen}")
    return "\n".join(out) + "\n"


def emit_list(source, gen, records):
    out = banner(source, gen)
    out.append("// ZU_SPEC_RECORD_ENTRY(class, bits, fields, unique ids, is top-level)")
    for rec in records:
        out.append(
            f"ZU_SPEC_RECORD_ENTRY({rec.name}, {rec.bits}, {len(rec.fields)}, {rec.ids}, "
            f"{int(rec.top_level)})"
        )
    return "\n".join(out) + "\n"


def write_if_changed(path, content):
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == content:
                return
    except FileNotFoundError:
        pass
    os.makedirs(os.path.dirname(path), exist_ok=True)
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8") as f:
        f.write(content)
    os.replace(tmp, path)


def source_name(tables):
    """Names the table directory from the repository root, whatever the checkout's place."""
    parts = os.path.abspath(tables).split(os.sep)
    if "compiler" in parts:
        parts = parts[len(parts) - 1 - parts[::-1].index("compiler"):]
        return "/".join(parts) + "/*.rec"
    return tables.rstrip("/") + "/*.rec"


def generate(tables, outdir):
    """Checks all tables; returns the list of errors, and writes the outputs if there are none."""
    errors = []
    try:
        names = sorted(n for n in os.listdir(tables) if n.endswith(".rec"))
    except OSError as e:
        return [TableError(tables, 0, "-", "-", f"found {e.strerror}", "expected a directory")]
    if not names:
        errors.append(
            TableError(tables, 0, "-", "-", "found no *.rec table", "expected the record tables")
        )
    records = []
    for name in names:
        path = os.path.join(tables, name)
        records.extend(parse_table(path, errors))
    per_gen = {}
    for gen in GENERATION_NAMES:
        per_gen[gen] = check_generation(gen, [r for r in records if r.gen == gen], errors)
    if errors:
        return errors
    source = source_name(tables)
    target = os.path.join(outdir, OUT_SUBDIR)
    for gen, prefix, versions in GENERATIONS:
        recs = per_gen[gen]
        write_if_changed(
            os.path.join(target, f"{prefix}Config.h"),
            emit_header(source, gen, versions, recs),
        )
        write_if_changed(
            os.path.join(target, f"{prefix}Config.cpp"), emit_source(source, gen, prefix, recs)
        )
        write_if_changed(
            os.path.join(target, f"{prefix}Records.inc"), emit_list(source, gen, recs)
        )
    return []


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--tables", required=True, help="directory of the *.rec tables")
    parser.add_argument("--out", required=True, help="root of the generated tree")
    args = parser.parse_args(argv)
    errors = generate(args.tables, args.out)
    for e in errors:
        print(e, file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
