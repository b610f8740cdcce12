#!/usr/bin/env python3
"""Generates the tile record classes of every records namespace from tables/records/*.rec.

For each namespace of generations.tbl it writes <Ns>Config.h, the record classes in the order
that nested records come first (each class is its fields and its `Fields` list, on the Record
template), and <Ns>Config.cpp, which instantiates the records' operations once. It also writes
RecordCatalog.cpp, the list of every record class and of the tiles, for the tooling layer.
The reading and checking of the tables is record_tables.py.
"""

import os
import sys

import genlib
import record_tables
from genlib import class_prefix

GENERATOR = "gen_records.py"
SOURCES = "compiler/arch_spec/gen/tables/records/*.rec"


def generation_struct(ns, major, minors, generations):
    rows = [g for g in generations.rows if g.records == ns]
    source = f"{genlib.GENERATIONS_TABLE}:{','.join(str(g.line) for g in rows)}"
    return [f"// The chip versions that the records of namespace {ns} describe ({source}).",
            f"struct {class_prefix(ns)}Generation {{",
            f"  static constexpr int kMajor = {major};",
            f"  static constexpr int kMinors[] = {{{', '.join(str(m) for m in minors)}}};",
            "};"]


def class_heading(rec, base):
    line = f"class {rec.name} final : public {base} {{"
    if len(line) <= genlib.LINE_WIDTH:
        return [line]
    return [f"class {rec.name} final", f"    : public {base} {{"]


def member_line(fld, rec):
    """A member, with the table row it comes from; the row above it where the line would be too
    long."""
    member = f"  {fld.cell.cpp()} {fld.name};"
    row = f"// {os.path.basename(rec.path)}:{fld.line}"
    if len(member) + 2 + len(row) <= genlib.LINE_WIDTH:
        return f"{member}  {row}"
    return f"  {row}\n{member}"


def visit_line(name):
    line = f'    visit("{name}", self.{name});'
    return line if len(line) <= genlib.LINE_WIDTH else f'    visit("{name}",\n          self.{name});'


def emit_record(rec):
    base = f"Record<{rec.name}, {class_prefix(rec.ns)}Generation>"
    out = [f"// {rec.source}: {rec.bits} bits in {len(rec.fields)} fields, {rec.ids} unique ids"]
    out += class_heading(rec, base)
    out += [" public:",
            f"  static constexpr size_t kSizeInBits = {rec.bits};",
            f"  static constexpr size_t kFieldCount = {len(rec.fields)};",
            f"  static constexpr int kUniqueIds = {rec.ids};", ""]
    out += [member_line(fld, rec) for fld in rec.fields]
    out += ["", "  template <class Self, class Visit>",
            "  static void Fields(Self& self, Visit&& visit) {"]
    out += [visit_line(fld.name) for fld in rec.fields]
    out += ["  }", "};", ""]
    return out


def emit_header(ns, major, minors, records, generations):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ["#pragma once", "", '#include "compiler/arch_spec/Record.h"', "",
            "namespace zu::spec {", ""]
    out += generation_struct(ns, major, minors, generations)
    out += ["", "}  // namespace zu::spec", "", f"namespace zu::spec::{ns} {{", ""]
    for rec in records:
        out += emit_record(rec)
    out += [f"}}  // namespace zu::spec::{ns}", "",
            "// The records' operations are instantiated once, in the library.",
            "namespace zu::spec {", ""]
    out += [f"extern template class Record<{ns}::{rec.name}, {class_prefix(ns)}Generation>;"
            for rec in records]
    out += ["", "}  // namespace zu::spec"]
    return "\n".join(out) + "\n"


def emit_source(ns, records):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ["// The operations of every record of this namespace, instantiated once, here.",
            f'#include "compiler/arch_spec/gen/{class_prefix(ns)}Config.h"', "",
            "namespace zu::spec {", ""]
    generation = f"{class_prefix(ns)}Generation"
    out += [f"template class Record<{ns}::{rec.name}, {generation}>;  // {rec.source}"
            for rec in records]
    out += ["", "}  // namespace zu::spec"]
    return "\n".join(out) + "\n"


def emit_catalog(per_ns, tiles):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ["// Every record class of every namespace, and the tiles, for the tooling layer.",
            '#include "RecordCatalog.h"', ""]
    out += [f'#include "compiler/arch_spec/gen/{class_prefix(ns)}Config.h"' for ns in per_ns]
    out += ["", "namespace archspec {", "namespace {", "",
            "template <class R>",
            "std::unique_ptr<zu::spec::BaseConstruct> Make() {",
            "  return std::make_unique<R>();", "}", "",
            "// namespace, class, bits, fields, unique ids, top-level, table row, maker",
            "const RecordClass kRecordClasses[] = {"]
    for ns, records in per_ns.items():
        for rec in records:
            out.append(f'    {{"{ns}", "{rec.name}", {rec.bits}, {len(rec.fields)}, {rec.ids}, '
                       f'{"true" if rec.top_level else "false"}, "{rec.source}",')
            out.append(f"     &Make<zu::spec::{ns}::{rec.name}>}},")
    out += ["};", "", "// tile, top-level record, what the tile is, table row",
            "const TileType kTileTypes[] = {"]
    out += [f'    {{"{t.name}", "{t.record}", "{t.description}", "{t.source}"}},' for t in tiles]
    out += ["};", "", "}  // namespace", "",
            "std::span<const RecordClass> RecordClasses() { return kRecordClasses; }",
            "std::span<const TileType> TileTypes() { return kTileTypes; }", "",
            "}  // namespace archspec"]
    return "\n".join(out) + "\n"


def generate(tables, errors):
    generations = genlib.load_generations(tables, errors)
    namespaces = generations.namespaces
    per_ns, tiles = record_tables.load(os.path.join(tables, "records"), list(namespaces), errors)
    if errors:
        return {}, None
    files = {}
    for ns, (major, minors) in namespaces.items():
        config = f"{class_prefix(ns)}Config"
        files[f"{config}.h"] = emit_header(ns, major, minors, per_ns[ns], generations)
        files[f"{config}.cpp"] = emit_source(ns, per_ns[ns])
    files["RecordCatalog.cpp"] = emit_catalog(per_ns, tiles)
    return files, None


def main(argv=None):
    return genlib.main(__doc__, generate, argv)


if __name__ == "__main__":
    sys.exit(main())
