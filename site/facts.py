"""What the reference site shows, gathered once and held as plain data.

The library answers through the archspec tool: the generations (`archs`), where every leaf of a tile
lies (`layout`), and the value of every accessor (`constants`, `features`, `constraints`). What the
tool does not say comes from the tables, read by the generators' own modules: the records and their
fields per records namespace (record_tables), each enumerant's type, table row and inferred codes
(enumerants), the table row of every other accessor (gen_constants, flags), and which generation
answers as another (genlib). Nothing here computes an offset, a register or a code.
"""

import dataclasses
import json
import os
import subprocess
import sys

# Where an accessor has no answer in a generation. None is an answer: an absent optional.
UNANSWERED = object()

# Enumeration types of these tables share one page each; every other type has a page of its own.
SHARED_ENUM_PAGES = {
    "enums_opcodes.tbl": ("opcodes", "Opcodes and formats"),
    "enums_registers.tbl": ("registers", "Register indices"),
}


class ToolError(Exception):
    """The archspec tool failed, or said something the site cannot use."""


@dataclasses.dataclass
class Generation:
    version: str  # as the library prints it: "2.1"
    product: str  # "mk42", "" where the generation cannot be selected
    code: str  # "uko"
    records: str  # records namespace, "" where it has none
    selectable: bool
    answers_as: str  # the code of the generation whose answers it takes, or its own code

    @property
    def label(self):
        return f"{self.product} ({self.code})" if self.product else self.code


@dataclasses.dataclass
class TileLayout:
    tile: str  # "agcu"
    description: str  # "address-generation and coalescing unit"
    record: str  # "AGCU_Config_struct"
    ns: str  # records namespace
    serves: list  # the Generations whose records these are
    bits: int
    leaves: list  # {path, name, parent, offset, width, registers, ...} in bit order, as the tool gives them
    branches: list  # {path, name, parent?, offset, bits, registers, ...}, each before what it holds

    @property
    def page(self):
        return f"tile-{self.ns}-{self.tile}.html"

    @property
    def title(self):
        return f"{self.ns} {self.tile.upper()}"


@dataclasses.dataclass
class Constant:
    """One accessor of the constants, features or constraints classes."""

    name: str
    kind: str  # parameter, enumerant, container, feature, constraint
    type: str  # return type; for an enumerant its enumeration type
    values: dict  # product -> the tool's JSON value, or UNANSWERED
    source: str = ""  # "params.tbl:31": the table row
    inferred: dict = dataclasses.field(default_factory=dict)  # product -> code is inferred

    def answered_by(self, product):
        return self.values.get(product, UNANSWERED) is not UNANSWERED


@dataclasses.dataclass
class EnumType:
    name: str
    kind: str  # crossbar, mux, ... or "" for plain value codes
    count: int
    source: str  # "enums_pcu.tbl:46"
    page: str  # the page that shows it
    family: str  # title of that page's family
    members: list  # the Constants of its enumerants, in table order
    # (record, field, records namespaces, row of the table of field types) of the fields that
    # hold its codes
    fields: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Facts:
    generations: list  # every named generation, in version order
    columns: list  # the selectable generations: one column each on the constants pages
    tiles: list  # TileLayout per records namespace and tile
    records: dict  # ns -> record_tables.Record in emission order (nested first)
    constants: list  # parameters, enumerants and containers, in interface order
    flags: list  # features, then constraints, in interface order
    enum_types: list  # EnumType, in table order
    # (from product, to product, tile) -> the tool's port report (`port --json`) of a configuration
    # whose every leaf holds its largest value, for each pair of adjacent generations whose records
    # differ: what a port does with each field that the next generation removed or resized
    ports: dict = dataclasses.field(default_factory=dict)

    def namespaces(self):
        return list(dict.fromkeys(t.ns for t in self.tiles))

    def constant(self, name):
        return next(c for c in self.constants + self.flags if c.name == name)


def run_tool(archspec, *args):
    """The JSON that `archspec ARGS --json` prints."""
    command = [archspec, *args, "--json"]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise ToolError(f"{' '.join(command)} failed with status {done.returncode}: "
                        f"{done.stderr.strip()}")
    return json.loads(done.stdout)


def port_report(archspec, source, target, tile, bits):
    """The report of `archspec port` of `tile`'s configuration of generation `source` whose every
    bit is 1, to `target`: exit status 3 (something did not move) is what it is asked for."""
    command = [archspec, "port", "--to", target, "--arch", source, tile, "-", "--json"]
    done = subprocess.run(command, input="1" * bits, capture_output=True, text=True, check=False)
    if done.returncode not in (0, 3):
        raise ToolError(f"{' '.join(command)} failed with status {done.returncode}: "
                        f"{done.stderr.strip()}")
    return json.loads(done.stderr)


def _load_tables(tables, gen_dir):
    """The generators' reading of the tables; a table that disagrees with itself stops the site
    just as it stops the build."""
    if gen_dir not in sys.path:
        sys.path.insert(0, gen_dir)
    import enumerants
    import field_types
    import gen_constants
    import genlib
    import record_tables
    from containers import load_containers
    from flags import load_flags
    from params import load_params

    errors = genlib.Errors()
    constants = os.path.join(tables, "constants")
    generations = genlib.load_generations(tables, errors)
    records, tiles = record_tables.load(os.path.join(tables, "records"),
                                        list(generations.namespaces), errors)
    enum_types, enum_items = enumerants.load_types(constants, generations.columns, errors)
    params = load_params(os.path.join(constants, "params.tbl"), generations, errors)
    containers = load_containers(os.path.join(constants, "containers.tbl"), generations, errors)
    flags = {}
    for kind in ("features", "constraints"):
        rows, _ = load_flags(os.path.join(constants, f"{kind}.tbl"), kind, generations, errors)
        flags.update({name: f"{kind}.tbl:{flag.line}" for name, flag in rows.items()})
    if not errors:
        typed = field_types.parse(os.path.join(tables, "records", field_types.TABLE), records,
                                  enum_types, enum_items, generations, errors)
    if errors:
        raise ToolError("the tables disagree with themselves:\n" + "\n".join(map(str, errors)))
    # type -> [(record, field, namespaces, row)] of the fields that take it
    takers = {}
    for row in typed:
        for type_name in dict.fromkeys(row.types.values()):
            namespaces = [ns for ns, t in row.types.items() if t == type_name]
            takers.setdefault(type_name, []).append((row.record, row.field, namespaces, row))
    sources = {a.name: a.source for a in gen_constants.scalar_accessors(params, generations)
               + gen_constants.container_accessors(containers, generations)}
    sources.update(flags)
    return generations, records, tiles, enum_types, enum_items, sources, takers


def gather(archspec, tables, gen_dir):
    _, records, tiles, enum_types, enum_items, sources, takers = \
        _load_tables(tables, gen_dir)
    generations = [Generation(row["version"], row["product"], row["code_name"], row["records"],
                              row["selectable"], row["answers_as"])
                   for row in run_tool(archspec, "archs")]
    columns = [g for g in generations if g.selectable]

    layouts = []
    for ns in dict.fromkeys(g.records for g in columns if g.records):
        serves = [g for g in columns if g.records == ns]
        for tile in tiles:
            layout = run_tool(archspec, "layout", "--arch", serves[0].product, tile.name)
            layouts.append(TileLayout(tile.name, tile.description, layout["record"], ns, serves,
                                      layout["bits"], layout["leaves"], layout["branches"]))

    constants, flags = {}, {}
    for g in columns:
        for command, into in (("constants", constants), ("features", flags),
                              ("constraints", flags)):
            for row in run_tool(archspec, command, "--arch", g.product):
                entry = into.setdefault(row["name"], Constant(row["name"], row["kind"],
                                                              row["type"], {}))
                entry.values[g.product] = row["value"] if row["answered"] else UNANSWERED

    by_accessor = {e.accessor: e for e in enum_items}
    tool_enumerants = {name for name, c in constants.items() if c.kind == "enumerant"}
    if tool_enumerants != set(by_accessor):
        stray = sorted(tool_enumerants ^ set(by_accessor))[:5]
        raise ToolError("the tool and the enumerant tables name different enumerants (the tool "
                        f"is older than the tables?): {', '.join(stray)}")
    for c in list(constants.values()) + list(flags.values()):
        e = by_accessor.get(c.name)
        if e is None:
            c.source = sources.get(c.name, "")
            continue
        c.source = e.source
        # A generation that answers as another has that generation's codes, and their marks.
        c.inferred = {g.product: e.inferred[g.answers_as] for g in columns}

    types = []
    for t in enum_types:
        table = os.path.basename(t.path)
        page, family = SHARED_ENUM_PAGES.get(table, (f"enum-{t.name}", t.name))
        members = [constants[e.accessor] for e in enum_items if e.type == t.name]
        types.append(EnumType(t.name, t.kind, t.count, f"{table}:{t.line}", page + ".html",
                              family, members, takers.get(t.name, [])))
    ports = {}
    for a, b in zip(columns, columns[1:]):
        if a.records and b.records and a.records != b.records:
            for layout in (t for t in layouts if t.ns == a.records):
                ports[(a.product, b.product, layout.tile)] = port_report(
                    archspec, a.product, b.product, layout.tile, layout.bits)
    return Facts(generations, columns, layouts, records, list(constants.values()),
                 list(flags.values()), types, ports)
