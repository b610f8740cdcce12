#!/usr/bin/env python3
"""Writes the package's type stubs: the hand-written package/__init__.pyi, then what follows from
the tables.

From the constants tables, the classes _Constants, _Features and _Constraints: every accessor with
the Python type of its answer (an enumerant's code and an integer parameter are int, a container
a list, an optional aggregate a TypedDict or None). From the record tables, per records namespace,
a class per record that declares its members (a leaf, an array of leaves or of records, a nested
record), a class per tile, and a generation class whose tile() and tile_from_*() give them by the
tile's name. From the list of generations, generation() by product name, in lower or upper case.

Members whose names are attributes of the package's Node or Tile (`path`, `bits`, the methods:
read from the hand-written stub), keywords and names that start with '_' are not declared: those
are reached by item, typed as any member. The table readers are the C++ generators' own.
"""

import argparse
import ast
import keyword
import os
import re
import sys

GEN_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "compiler", "arch_spec",
                       "gen")
sys.path.insert(0, GEN_DIR)

import enumerants  # noqa: E402  (the generators' modules, found through GEN_DIR)
import gen_constants  # noqa: E402
import genlib  # noqa: E402
import record_tables  # noqa: E402
from containers import load_containers  # noqa: E402
from flags import load_flags  # noqa: E402
from params import load_params  # noqa: E402

GENERATOR = "python/gen_stubs.py"

INTEGERS = {"arch_const_t", "size_t", "int", "unsigned", "int8_t", "int16_t", "int32_t",
            "int64_t", "uint8_t", "uint16_t", "uint32_t", "uint64_t"}
SCALARS = {"bool": "bool", "double": "float", "float": "float", "std::string": "str",
           **{name: "int" for name in INTEGERS}}


class StubError(Exception):
    """A type of a table that this generator has no Python type for."""


def python_type(cpp, structs, where):
    """The Python type of an answer of C++ type `cpp` as the package gives it."""
    cpp = re.sub(r"^const (.*)&$", r"\1", cpp.strip())
    if cpp in SCALARS:
        return SCALARS[cpp]
    vector = re.fullmatch(r"std::vector<(.+)>", cpp)
    if vector:
        return f"list[{python_type(vector.group(1), structs, where)}]"
    optional = re.fullmatch(r"(?:zu::)?optional<(.+)>", cpp)
    if optional:
        inner = optional.group(1)
        if inner == "Int64Pair":  # the pair is answered as a list of its two numbers
            return "Optional[list[int]]"
        if inner in structs:
            return f"Optional[_{inner}]"
        return f"Optional[{python_type(inner, structs, where)}]"
    raise StubError(f"{where}: found C++ type '{cpp}', expected one of {', '.join(sorted(SCALARS))}"
                    ", std::vector<T>, optional<T>, Int64Pair or an aggregate of features.tbl")


def load_answers(tables, errors):
    """The accessors of the constants classes and the flags, read as gen_constants.py reads them."""
    t = gen_constants.load_constant_tables(tables, errors)
    if t is None or errors:
        return None
    accessors = gen_constants.all_accessors(t, errors)
    return accessors, t.features, t.constraints, t.structs


def emit_answers(accessors, features, constraints, structs):
    out = ["# The aggregates that optional features answer, as dictionaries (features.tbl)."]
    for s in structs.values():
        out.append(f"class _{s.name}(TypedDict):  # features.tbl:{s.line}")
        out += [f"    {name}: {python_type(cpp, structs, f'features.tbl:{s.line}')}"
                for name, cpp in s.fields]
        out.append("")
    out += ["class _Constants(Answers):",
            '    """The parameters, enumerants and containers: an enumerant is its code."""']
    for a in accessors:
        kind = "int" if a.kind == "ENUM" else python_type(a.type, structs, a.source)
        out += sourced(f"    {a.name}: Final[{kind}]", a.source)
    for family, flags in (("features", features), ("constraints", constraints)):
        out += ["", f"class _{family.capitalize()}(Answers):"]
        for f in flags.values():
            source = f"{family}.tbl:{f.line}"
            out += sourced(f"    {f.name}: Final[{python_type(f.type, structs, source)}]", source)
    return out


def sourced(line, source):
    """A declaration with the table row it comes from; the row above it where the line would be
    too long."""
    if len(line) + 4 + len(source) <= genlib.LINE_WIDTH:
        return [f"{line}  # {source}"]
    return [f"{line[:len(line) - len(line.lstrip())]}# {source}", line]


def record_class(ns, name):
    return f"_{genlib.class_prefix(ns)}_{name}"


def tile_class(ns, tile):
    return f"_{genlib.class_prefix(ns)}{genlib.class_prefix(tile)}Tile"


def member_type(ns, cell):
    if isinstance(cell, record_tables.Leaf):
        return "_Leaf"
    if isinstance(cell, record_tables.Packed):
        return "_Array[int]"
    if isinstance(cell, record_tables.Array):
        return f"_Array[{member_type(ns, cell.element)}]"
    return record_class(ns, cell.name)


def emit_members(rec, reserved):
    out = []
    for field in rec.fields:
        if field.name in reserved or field.name.startswith("_") or keyword.iskeyword(field.name):
            continue  # reached by item only
        kind = member_type(rec.ns, field.cell)
        # A leaf is set through its descriptor; a record or an array is not set whole.
        kind = kind if kind == "_Leaf" else f"Final[{kind}]"
        out += sourced(f"    {field.name}: {kind}", f"{os.path.basename(rec.path)}:{field.line}")
    return out


def emit_namespace(ns, rows, records, tiles, reserved):
    prefix = genlib.class_prefix(ns)
    out = [f"# The records of namespace {ns}, of {', '.join(g.product or g.code for g in rows)}."]
    by_name = {rec.name: rec for rec in records}
    for rec in records:
        if rec.top_level:
            continue
        out += [f"class {record_class(ns, rec.name)}(_Record):  # {rec.source}"]
        out += emit_members(rec, reserved["_Record"]) or ["    pass"]
        out.append("")
    generation = f"_{prefix}Generation"
    for t in tiles:
        rec = by_name[t.record]
        out += [f"class {tile_class(ns, t.name)}(Tile):  # {t.source}; {rec.source}",
                "    @property", f"    def generation(self) -> {generation}: ..."]
        out += emit_members(rec, reserved["Tile"])
        out.append("")
    source = ",".join(str(g.line) for g in rows)
    out.append(f"class {generation}(Generation):  # {genlib.GENERATIONS_TABLE}:{source}")
    calls = (("tile", "name", ""), ("tile_from_bits", "tile", ", text: Union[str, bytes, bytearray]"),
             ("tile_from_bytes", "tile", ", data: Union[bytes, bytearray, memoryview]"),
             ("tile_from_sparse", "tile",
              ", listing: Union[str, bytes, bytearray], force: bool = False"))
    for call, argument, rest in calls:
        results = [(names(t.name), tile_class(ns, t.name)) for t in tiles] + [("str", "Tile")]
        for kind, result in results:
            out += ["    @overload", signature(f"    def {call}(self, {argument}: {kind}", rest,
                                                 f") -> {result}: ...")]
    return out


def signature(head, rest, tail):
    """A method's line, its arguments after the first on a line of their own where it is too
    long."""
    line = head + rest + tail
    if len(line) <= genlib.LINE_WIDTH or not rest:
        return line
    return f"{head},\n{' ' * (head.index('(') + 1)}{rest[2:]}{tail}"


def names(name):
    """The Literal of a name given in lower or upper case."""
    return f'Literal["{name}", "{name.upper()}"]'


def emit_generation_function(generations):
    out = ["# A generation by its product name: of the class of its records namespace."]
    for g in generations.rows:
        if g.product and g.answers:
            result = f"_{genlib.class_prefix(g.records)}Generation" if g.records else "Generation"
            out += ["@overload", f"def generation(name: {names(g.product)}) -> {result}: ...  "
                    f"# {genlib.GENERATIONS_TABLE}:{g.line}"]
    out += ["@overload", "def generation(name: str) -> Generation: ..."]
    return out


def reserved_names(stub_text):
    """{class: the attribute names it declares, with those of its bases in the stub}."""
    classes = {}
    for node in ast.parse(stub_text).body:
        if isinstance(node, ast.ClassDef):
            own = {n.name for n in node.body if isinstance(n, (ast.FunctionDef, ast.ClassDef))}
            own |= {n.target.id for n in node.body
                    if isinstance(n, ast.AnnAssign) and isinstance(n.target, ast.Name)}
            for base in node.bases:
                base_name = base.value.id if isinstance(base, ast.Subscript) else base.id
                own |= classes.get(base_name, set())
            classes[node.name] = own
    return classes


def generate(tables, stub_text):
    errors = genlib.Errors()
    generations = genlib.load_generations(tables, errors)
    namespaces = list(generations.namespaces)
    per_ns, tiles = record_tables.load(os.path.join(tables, "records"), namespaces, errors)
    answers = load_answers(tables, errors)
    if errors:
        raise StubError("\n".join(str(e) for e in errors))
    reserved = reserved_names(stub_text)
    out = [stub_text.rstrip(), "", "",
           f"# Generated by {GENERATOR} from compiler/arch_spec/gen/tables. Do not edit.",
           "# Each part names the table row it comes from (table:line).", ""]
    out += emit_answers(*answers)
    for ns in namespaces:
        rows = [g for g in generations.rows if g.records == ns]
        out += [""] + emit_namespace(ns, rows, per_ns[ns], tiles, reserved)
    out += [""] + emit_generation_function(generations)
    return "\n".join(out) + "\n"


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.strip().splitlines()[0])
    parser.add_argument("--tables", required=True, help="the tables directory")
    parser.add_argument("--stub", required=True, help="the hand-written __init__.pyi")
    parser.add_argument("--out", required=True, help="the __init__.pyi to write")
    args = parser.parse_args(argv)
    with open(args.stub, encoding="utf-8") as f:
        stub_text = f.read()
    try:
        text = generate(args.tables, stub_text)
    except (StubError, genlib.TableError) as e:
        print(f"{GENERATOR}: {e}", file=sys.stderr)
        return 1
    genlib.write_if_changed(args.out, text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
