"""Writes the C++ of the constants, features and constraints classes: one function per file or
kind of class, one line per accessor where it fits the line width, and every answer followed by
the table row it comes from, marked `(inferred)` where the code is inferred."""

import genlib
from flags import cpp_flag_type

GENERATOR = "gen_constants.py"
SOURCES = "compiler/arch_spec/gen/tables/constants/*.tbl"
GEN_DIR = "compiler/arch_spec/gen"
WIDTH = genlib.LINE_WIDTH
BLOCKS = (("SCALAR", "Scalar parameters (params.tbl)."),
          ("ENUM", "Enumerants (enums_*.tbl)."),
          ("CONTAINER", "Container parameters (containers.tbl): the same object at every call."))


def from_global(return_type):
    """The return type spelled from the global namespace where it is one of ours
    (`::zu::spec::arch_const_t`): a name looked up inside a class of thousands of members would
    cost the compiler a search of them for each declaration, and every includer pays for that."""
    if return_type == "arch_const_t" or return_type.endswith("_t") and "::" not in return_type \
            and not return_type.startswith(("size_t", "uint", "int")):
        return f"::zu::spec::{return_type}"
    return return_type


def declaration(prefix, return_type, name, suffix):
    """A member declaration within the width: `  virtual T name() const;` and its broken forms."""
    return_type = from_global(return_type)
    one = f"  {prefix}{return_type} {name}() const{suffix};"
    if len(one) <= WIDTH:
        return [one]
    call = f"  {name}() const{suffix};"
    if len(call) <= WIDTH:
        return [f"  {prefix}{return_type}", call]
    return [f"  {prefix}{return_type}", f"  {name}()", f"      const{suffix};"]


def definition(return_type, qualified, statement, comment=""):
    """A member function that returns at once: one line if it fits, else its body on a line of its
    own, and the head broken after the return type (and before `const`) where it is too long."""
    trailer = f"  {comment}" if comment else ""
    one = f"{return_type} {qualified}() const {{ {statement} }}{trailer}"
    if len(one) <= WIDTH:
        return [one]
    head = f"{return_type} {qualified}() const {{"
    if len(head) <= WIDTH:
        heads = [head]
    elif len(f"{qualified}() const {{") <= WIDTH:
        heads = [return_type, f"{qualified}() const {{"]
    else:
        heads = [return_type, f"{qualified}()", "    const {"]
    body = f"  {statement}{trailer}"
    if len(body) > WIDTH and "{" in statement:  # an aggregate: one line per part of it
        opening = statement.index("{") + 1
        parts = statement[opening:statement.rindex("}")].split(", .")
        items = [parts[0]] + ["." + p for p in parts[1:]]
        return heads + wrap_items(f"  {statement[:opening]}", items,
                                  statement[statement.rindex("}"):] + trailer, "      ") + ["}"]
    return heads + [body, "}"]


def wrap_items(first, items, last, indent):
    """`first` items joined by ", " `last`, broken after a comma wherever a line would be too long."""
    lines, line = [], first
    for i, item in enumerate(items):
        piece = item + (", " if i + 1 < len(items) else last)
        if len(line) + len(piece.rstrip()) > WIDTH and line.strip():
            lines.append(line.rstrip())
            line = indent
        line += piece
    return lines + [line]


def origin(a, prefix):
    return f"// {a.origins.get(prefix, a.source)}" + (" (inferred)" if a.inferred.get(prefix) else "")


def signature_type(a):
    """The return type as a function's signature prints it."""
    return f"const {a.type[len('const '):-1]} &" if a.kind == "CONTAINER" else a.type


# ArchConstants.h ---------------------------------------------------------------------------------

HEADER_INCLUDES = """\
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "compiler/arch_spec/Constructs.h"
#include "zu/Optional.h"

namespace zu::spec {

// The general integer of the constants classes; no value is negative.
using arch_const_t = uint64_t;

// Enumeration types (enums_*.tbl): each names a 64-bit leaf that holds one code. An accessor
// returns a fresh leaf, its unique id unassigned.
"""


def emit_interfaces(accessors, enum_types, features, structs, constraints):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ["// The interfaces that the compiler asks a chip generation through; the classes of",
            "// each generation are in ArchGenerations.h."]
    out += HEADER_INCLUDES.splitlines()
    out += [f"using {name} = BitsInteger<64>;" for name in sorted(t.name for t in enum_types)]
    out += ["", "// What the compiler asks of a chip generation. Every accessor of this base class",
            '// fails with "Enum <name> not implemented for target architecture!".',
            "class ArchConstants {", " public:", "  virtual ~ArchConstants() = 0;"]
    for kind, title in BLOCKS:
        out += ["", f"  // {title}"]
        for a in accessors:
            if a.kind == kind:
                out += declaration("virtual ", a.type, a.name, "")
    out += ["};", "", "// The two numbers answered by ArchFeatures::dotp_accumulation().",
            "using Int64Pair = std::pair<int64_t, int64_t>;", ""]
    for s in structs.values():
        out += [f"// Aggregate of an optional feature (features.tbl:{s.line}).",
                f"struct {s.name} {{"]
        out += [f"  {cpp_type} {field};" for field, cpp_type in s.fields]
        out += ["};", ""]
    for family, flags in (("Features", features), ("Constraints", constraints)):
        out += [f"// {family} of a generation ({family.lower()}.tbl). An accessor that is not pure",
                "// answers false, 0 or empty unless the generation's class overrides it.",
                f"class Arch{family} {{", " public:", f"  virtual ~Arch{family}() = 0;", ""]
        for f in flags.values():
            out += declaration("virtual ", cpp_flag_type(f.type), f.name,
                               " = 0" if f.default is None else "")
        out += ["};", ""]
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


# ArchGenerations.h --------------------------------------------------------------------------------


def base_prefix(g):
    return "Arch" if g.answers == "own" else genlib.class_prefix(g.answers)


def emit_generations_header(generations, accessors, features, constraints):
    out = genlib.banner(GENERATOR, SOURCES)
    out += ["// The classes of every generation (generations.tbl): what each one answers. Only",
            "// the library and those who want one generation's class directly include this.",
            "#pragma once", "", '#include "compiler/arch_spec/gen/ArchConstants.h"', "",
            "namespace zu::spec {", ""]
    for g in generations.with_answers:
        name = f"{g.prefix}Constants"
        out += [f"// Generation {g.code} ({genlib.GENERATIONS_TABLE}:{g.line}).",
                f"class {name} : public {base_prefix(g)}Constants {{", " public:",
                f"  ~{name}() override;"]
        for a in accessors:
            if g.prefix in a.values:
                out += declaration("", a.type, a.name, " override")
        out += ["};", ""]
    for family, flags in (("Features", features), ("Constraints", constraints)):
        for g in generations.with_answers:
            name = f"{g.prefix}{family}"
            out += [f"class {name} : public {base_prefix(g)}{family} {{", " public:",
                    f"  ~{name}() override;"]
            if g.answers == "own":  # the others answer as the generation they derive from
                for f in flags.values():
                    if f.values[g.code] is not None:
                        out += declaration("", cpp_flag_type(f.type), f.name, " override")
            out += ["};", ""]
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


# ArchConstants.cpp --------------------------------------------------------------------------------

DEFAULTS_TOP = f"""\
// The failing defaults of ArchConstants, and the features and constraints classes.
#include "compiler/arch_spec/gen/ArchGenerations.h"

#include <string>

#include "compiler/arch_spec/Logging.h"
#include "zu/SourceLocation.h"

namespace zu::spec {{
namespace {{

constexpr char kFile[] = "{GEN_DIR}/ArchConstants.cpp";

// Ends the process: the generation in force does not answer the accessor that calls this. The
// compiler names that accessor in `where`; the failure names it twice, in the text and as the
// location's function, spelled as the accessor's signature.
[[noreturn]] void Unanswered(const char* return_type,
                             zu::SourceLocation where = zu::SourceLocation::current()) {{
  const std::string name = where.function();
  const std::string signature =
      "virtual " + std::string(return_type) + " zu::spec::ArchConstants::" + name + "() const";
  unreachable("Enum " + name + " not implemented for target architecture!",
              zu::SourceLocation(kFile, signature.c_str(), where.line(), 1));
}}

}}  // namespace

ArchConstants::~ArchConstants() = default;
"""


def emit_flag_bodies(family, flags, generations):
    out = [f"// {family} ({family.lower()}.tbl).", f"Arch{family}::~Arch{family}() = default;"]
    for f in flags.values():
        if f.default is not None:
            out += definition(cpp_flag_type(f.type), f"Arch{family}::{f.name}",
                              f"return {f.default};", f"// {family.lower()}.tbl:{f.line}")
    for g in generations.with_answers:
        name = f"{g.prefix}{family}"
        out += ["", f"{name}::~{name}() = default;"]
        if g.answers != "own":
            continue
        for f in flags.values():
            if f.values[g.code] is not None:
                out += definition(cpp_flag_type(f.type), f"{name}::{f.name}",
                                  f"return {f.values[g.code]};", f"// {family.lower()}.tbl:{f.line}")
    return out + [""]


def emit_defaults_cpp(generations, accessors, features, constraints):
    out = genlib.banner(GENERATOR, SOURCES) + DEFAULTS_TOP.splitlines() + [""]
    for a in accessors:
        out += definition(a.type, f"ArchConstants::{a.name}", f'Unanswered("{signature_type(a)}");')
    out.append("")
    out += emit_flag_bodies("Features", features, generations)
    out += emit_flag_bodies("Constraints", constraints, generations)
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


# <Code>Constants.cpp ------------------------------------------------------------------------------

CODE_HELPER = """\
// A fresh enumeration leaf holding `value`; its unique id stays unassigned. Every enumerant of the
// file calls this one copy, so that each accessor stays a few bytes.
[[gnu::noinline]] BitsInteger<64> code(uint64_t value) {
  BitsInteger<64> leaf;
  leaf.SetRaw(value);  // every 64-bit value fits
  return leaf;
}
"""

ONES_HELPERS = {
    "ones64": """\
// All ones in `bits` bits, in 64-bit arithmetic; the shift count is taken modulo 64.
uint64_t ones64(uint64_t bits) { return (uint64_t{1} << (bits % 64)) - 1; }
""",
    "ones32": """\
// All ones in `bits` bits, in 32-bit arithmetic; the shift count is taken modulo 32.
uint32_t ones32(uint64_t bits) { return (uint32_t{1} << (bits % 32)) - 1; }
""",
}


def emit_body(prefix, a):
    """The definition of one answer, ending with the row it comes from."""
    head = f"{a.type} {prefix}Constants::{a.name}() const {{"
    answer = a.values[prefix]
    if a.kind == "CONTAINER":
        vector = a.type[len("const "):-1]
        items = answer.split(", ") if answer and not answer.startswith("std::vector") else \
            ([answer] if answer else [])
        if not items:
            return [head, f"  static const {vector} vals;  {origin(a, prefix)}",
                    "  return vals;", "}"]
        return ([head] + wrap_items(f"  static const {vector} vals{{", items,
                                    f"}};  {origin(a, prefix)}", "      ")
                + ["  return vals;", "}"])
    return definition(a.type, f"{prefix}Constants::{a.name}", f"return {answer};",
                      origin(a, prefix))


def emit_answers(g, accessors):
    """The bodies of one class, in the order of the tables: block by block, each in row order, an
    enumerant row with several names under a line naming its pattern."""
    out = [f"{g.prefix}Constants::~{g.prefix}Constants() = default;", ""]
    for kind, title in BLOCKS:
        rows = [a for a in accessors if a.kind == kind and g.prefix in a.values]
        if not rows:
            continue
        out.append(f"// {g.prefix}Constants: {title}")
        rows.sort(key=lambda a: (a.source.rpartition(":")[0], a.rank))
        last = None
        for a in rows:
            if a.kind == "ENUM" and a.source != last and "{" in a.pattern:
                out.append(f"// {a.source}: {a.pattern}")
            last = a.source
            out += emit_body(g.prefix, a)
        out.append("")
    return out


def emit_generation_cpp(family, accessors):
    """The answers of one generation with a column of its own, and of those that derive from it."""
    answers = [(g, a) for g in family for a in accessors if g.prefix in a.values]
    helpers = [CODE_HELPER] if any(a.kind == "ENUM" for _, a in answers) else []
    helpers += [text for name, text in ONES_HELPERS.items()
                if any(f"{name}(" in a.values[g.prefix] for g, a in answers)]
    names = " and ".join(g.code for g in family)
    out = genlib.banner(GENERATOR, SOURCES)
    out += [f"// The answers of generation {names} (params.tbl, containers.tbl, enums_*.tbl).",
            '#include "compiler/arch_spec/gen/ArchGenerations.h"', "", "namespace zu::spec {",
            "namespace {", ""]
    out += "\n".join(helpers).splitlines() + ["", "}  // namespace", ""]
    for g in family:
        out += emit_answers(g, accessors)
    out += ["}  // namespace zu::spec", ""]
    return "\n".join(out)


# ArchConstantsIndex.inc ---------------------------------------------------------------------------


def emit_index(generations, accessors, features, constraints):
    codes = " ".join(g.code for g in generations.with_answers)
    out = genlib.banner(GENERATOR, SOURCES)
    out += ["// Every accessor of the constants, features and constraints classes, in interface "
            "order.",
            "// ZU_SPEC_CONSTANT(kind, return type, accessor, answered)",
            "//   kind: SCALAR, ENUM or CONTAINER; answered: one character per generation with",
            f"//   answers, in generations.tbl order ({codes}), '1' where it answers.",
            "// ZU_SPEC_FEATURE(return type, accessor)   ZU_SPEC_CONSTRAINT(return type, accessor)",
            "// A macro that the includer leaves undefined expands to nothing.",
            "#ifndef ZU_SPEC_CONSTANT", "#define ZU_SPEC_CONSTANT(kind, type, accessor, answered)",
            "#endif", "#ifndef ZU_SPEC_FEATURE", "#define ZU_SPEC_FEATURE(type, accessor)",
            "#endif", "#ifndef ZU_SPEC_CONSTRAINT", "#define ZU_SPEC_CONSTRAINT(type, accessor)",
            "#endif", ""]
    for a in accessors:
        answered = "".join(
            "1" if g.prefix in a.values or (g.answers not in ("own", "") and
                                            base_prefix(g) in a.values) else "0"
            for g in generations.with_answers)
        line = f'ZU_SPEC_CONSTANT({a.kind}, {a.type}, {a.name}, "{answered}")'
        if len(line) > WIDTH:
            indent = " " * len("ZU_SPEC_CONSTANT(")
            name = f"{indent}{a.name}, " + ("" if len(a.name) + 27 > WIDTH else f'"{answered}")')
            line = f"ZU_SPEC_CONSTANT({a.kind}, {a.type},\n{name.rstrip()}"
            if not line.endswith(")"):
                line += f'\n{indent}"{answered}")'
        out.append(line)
    out.append("")
    out += [f"ZU_SPEC_FEATURE({cpp_flag_type(f.type)}, {f.name})" for f in features.values()]
    out.append("")
    out += [f"ZU_SPEC_CONSTRAINT({cpp_flag_type(f.type)}, {f.name})" for f in constraints.values()]
    out += ["", "#undef ZU_SPEC_CONSTANT", "#undef ZU_SPEC_FEATURE", "#undef ZU_SPEC_CONSTRAINT", ""]
    return "\n".join(out)


def files(generations, accessors, enum_types, features, structs, constraints):
    out = {
        "ArchConstants.h": emit_interfaces(accessors, enum_types, features, structs, constraints),
        "ArchGenerations.h": emit_generations_header(generations, accessors, features,
                                                     constraints),
        "ArchConstants.cpp": emit_defaults_cpp(generations, accessors, features, constraints),
        "ArchConstantsIndex.inc": emit_index(generations, accessors, features, constraints),
    }
    for g in generations.rows:
        if g.answers == "own":
            family = [g] + [h for h in generations.inheriting if h.answers == g.code]
            out[f"{g.prefix}Constants.cpp"] = emit_generation_cpp(family, accessors)
    return out
