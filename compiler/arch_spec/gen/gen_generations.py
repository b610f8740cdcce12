#!/usr/bin/env python3
"""Generates the list of generations from tables/generations.tbl.

Writes ArchVersionNames.inc (the named versions of ArchVersion, v2_0_0 and so on, declared in its
class body), GenerationTable.h (the row type and the table) and GenerationTable.cpp (the named
versions, the rows, and for each generation with answers the classes that ArchSpec builds).
"""

import sys

import genlib

GENERATOR = "gen_generations.py"
SOURCE = "compiler/arch_spec/gen/tables/generations.tbl"


def names(g):
    return ", ".join(x for x in (g.product, g.code) if x)


def emit_names(generations):
    out = genlib.banner(GENERATOR, SOURCE)
    out.append("// Included in the body of struct ArchVersion: its named generations.")
    out += [f"static const ArchVersion {g.version_name};  // {names(g)} "
            f"({genlib.GENERATIONS_TABLE}:{g.line})" for g in generations.rows]
    return "\n".join(out) + "\n"


HEADER = """\
#pragma once

#include <memory>
#include <span>

#include "compiler/arch_spec/ArchVersion.h"

namespace zu::spec {

class ArchConstants;
class ArchFeatures;
class ArchConstraints;

// One named generation. Text cells that the table leaves empty ("-") are empty strings; a
// generation without answers has no makers.
struct GenerationRow {
  ArchVersion version;
  const char* product_name;  // what --arch accepts (any case)
  const char* code_name;
  const char* records;  // the namespace of its tile records, zu::spec::<records>
  const char* answers_as;  // the generation whose classes its own derive from, or empty
  bool selectable;  // listed by ArchVersion::supported_archs()
  std::unique_ptr<ArchConstants> (*make_constants)();
  std::unique_ptr<ArchFeatures> (*make_features)();
  std::unique_ptr<ArchConstraints> (*make_constraints)();

  bool has_answers() const { return make_constants != nullptr; }
};

// Every named generation, in rising version order.
std::span<const GenerationRow> GenerationTable();

// The row whose classes serve `version`: among the rows with answers, the row of its major, or
// where a major has several, the one of its minor too. Null if none serves it. (ArchSpec.cpp: the
// one rule by which a version finds its row, for the library and everything above it.)
const GenerationRow* ServingGeneration(const ArchVersion& version);

}  // namespace zu::spec
"""


def emit_header():
    return "\n".join(genlib.banner(GENERATOR, SOURCE)) + "\n" + HEADER


def emit_source(generations):
    out = genlib.banner(GENERATOR, SOURCE)
    out += ['#include "compiler/arch_spec/gen/GenerationTable.h"', "",
            '#include "compiler/arch_spec/gen/ArchGenerations.h"', "",
            "namespace zu::spec {", "namespace {", "",
            "template <class Interface, class Class>",
            "std::unique_ptr<Interface> Make() {",
            "  return std::make_unique<Class>();", "}", "",
            "// version, product, code, records, answers as, selectable, makers",
            "constexpr GenerationRow kRows[] = {"]
    for g in generations.rows:
        version = "{%d, %d, %d}" % g.version
        head = (f'    {{{version}, "{g.product}", "{g.code}", "{g.records}", '
                f'"{g.answers if g.answers != "own" else ""}", {str(g.selectable).lower()},')
        out.append(f"    // {genlib.GENERATIONS_TABLE}:{g.line}")
        if g.answers:
            p = g.prefix
            out += [head,
                    f"     &Make<ArchConstants, {p}Constants>, &Make<ArchFeatures, {p}Features>,",
                    f"     &Make<ArchConstraints, {p}Constraints>}},"]
        else:
            out.append(head + " nullptr, nullptr, nullptr},")
    out += ["};", "", "}  // namespace", ""]
    out += [f"constinit const ArchVersion ArchVersion::{g.version_name} = "
            + "{%d, %d, %d};" % g.version for g in generations.rows]
    out += ["", "std::span<const GenerationRow> GenerationTable() { return kRows; }", "",
            "}  // namespace zu::spec"]
    return "\n".join(out) + "\n"


def generate(tables, errors):
    generations = genlib.load_generations(tables, errors)
    if errors:
        return {}, None
    return {"ArchVersionNames.inc": emit_names(generations),
            "GenerationTable.h": emit_header(),
            "GenerationTable.cpp": emit_source(generations)}, None


def main(argv=None):
    return genlib.main(__doc__, generate, argv)


if __name__ == "__main__":
    sys.exit(main())
