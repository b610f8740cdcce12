"""The run-time registers of a tile: the page of its register map, and the mark of each leaf that
one writes on the tile's page.

A run-time register is written while its unit runs. The registers linked to a leaf, with their
numbers, words and what the link rests on, are the tool's layout (each leaf's "runtime"); those
the table of run-time registers leaves unlinked, with the reason, come from the generators' own
reading of that table (runtime_registers.py), which also gives each row's place in the table.
"""

import dataclasses
from html import escape

import genlib
import runtime_registers

from pages import frame

LEGEND = "written while the unit runs"
WORDS = {"whole": "", "low": "low word", "high": "high word"}


@dataclasses.dataclass
class MapRow:
    number: int
    name: str  # its accessor, "pcu_rcf_enum_pcu_rcf_reg_ctrchain0_max_ctxt0"
    inferred_number: bool  # its number is inferred in the constants tables
    path: str = ""  # the leaf it writes; "" where it is not linked
    word: str = "whole"  # "whole", "low" or "high", as the tool names them
    first: int = 0  # the bits of the word it writes in the tile's bit string, first to last
    last: int = 0
    link: str = ""  # "stated" or "inferred"; "" where not linked
    reason: str = ""  # why it is not linked
    source: str = ""  # its row of the table of run-time registers


@dataclasses.dataclass
class RegisterMap:
    enum_type: str  # "pcu_rcf_enum_t"
    rows: list  # MapRow, by number

    @property
    def linked(self):
        return [r for r in self.rows if r.path]


def page_name(layout):
    return f"runtime-{layout.ns}-{layout.tile}.html"


def load(tables):
    """The generators' run-time registers, a table that disagrees with itself refused."""
    errors = genlib.Errors()
    _, _, found = runtime_registers.registers(tables, errors)
    if errors:
        raise ValueError("the table of run-time registers is refused:\n" +
                         "\n".join(map(str, errors)))
    return found


def register_map(layout, registers):
    """The register map of a tile page: every run-time register that the generations it serves
    answer. Those generations must answer the same registers (they share records and answer as
    one generation), else the page could not stand for all of them."""
    columns = {g.answers_as for g in layout.serves}
    if len(columns) != 1:
        raise ValueError(f"{layout.title}: the generations it serves answer as "
                         f"{', '.join(sorted(columns))}: one register map cannot serve them all")
    column = columns.pop()
    mine = {r.accessor: r for r in registers if r.column == column and r.tile == layout.tile}
    if not mine:
        return None
    rows = []
    for leaf in layout.leaves:
        for entry in leaf.get("runtime", ()):
            first, last = entry["bits"]
            rows.append(MapRow(entry["register"], entry["name"],
                               bool(entry.get("inferred_number")), leaf["path"], entry["word"],
                               first, last, entry["link"], "",
                               mine[entry["name"]].row.source))
    linked = {r.name for r in rows}
    rows += [MapRow(r.code, r.accessor, r.inferred, reason=r.row.reason, source=r.row.source)
             for r in mine.values() if r.accessor not in linked]
    rows.sort(key=lambda r: (r.number, r.name))
    return RegisterMap(next(iter(mine.values())).row.enum_type, rows)


def leaf_cell(leaf, map_page):
    """A leaf's run-time cell in the field tree: the numbers of the registers that write it, as
    `archspec layout` writes them ("24", a wide leaf's "191+255", "?" after a number the tables
    infer), each linked to its row of the
    map and named in its title; empty for a leaf that no register writes."""
    links = [f'<a href="{map_page}#{escape(e["name"])}" title="{escape(e["name"])}'
             f'{" (its number is inferred)" if e.get("inferred_number") else ""}">'
             f'{e["register"]}{"?" if e.get("inferred_number") else ""}</a>'
             for e in leaf.get("runtime", ())]
    return "+".join(links)


def tree_note(layout, register_map):
    """What the field tree's run-time column means, above the map."""
    if register_map is None:
        return ""
    return (f'<p class="rt-note"><b>run-time</b>: the register that writes a leaf, '
            f'{LEGEND} (two for a leaf above 32 bits, its low word first; a ? after a number '
            f'the tables infer); a change of a leaf without one needs the configuration '
            f'loaded. {len(register_map.linked)} of '
            f'{len(layout.leaves):,} leaves have one: <a href="{page_name(layout)}">the run-time '
            f'register map</a>.</p>')


def _row_html(row, tile_page):
    number = f'<td class="num{" inf" if row.inferred_number else ""}">{row.number}</td>'
    name = f'<td class="name">{escape(row.name).replace("_", "_<wbr>")}</td>'
    source = f'<td class="src">{escape(row.source)}</td>'
    if not row.path:
        return (f'<tr id="{escape(row.name)}" class="na">{number}{name}<td colspan="4">not '
                f'linked: {escape(row.reason)}</td>{source}</tr>')
    path = escape(row.path).replace(".", ".<wbr>")
    return (f'<tr id="{escape(row.name)}">{number}{name}'
            f'<td><a href="{tile_page}#{escape(row.path)}">{path}</a></td>'
            f'<td>{WORDS[row.word]}</td><td class="bits">{row.first}..{row.last}</td>'
            f'<td>{row.link}</td>{source}</tr>')


def map_page(layout, register_map):
    """The page of a tile's register map: a row per register, by number, with a filter."""
    rows = register_map.rows
    linked = register_map.linked
    stated = sum(r.link == "stated" for r in linked)
    serves = ", ".join(g.label for g in layout.serves)
    body = (f'<h1>Run-time registers of the {escape(layout.tile.upper())} of {escape(layout.ns)} '
            f'<small>{escape(register_map.enum_type)}</small></h1>'
            f'<p class="lead">The registers of the {escape(layout.description)} that are '
            f'{LEGEND}, for {escape(serves)}: {len(rows)} registers, {len(linked)} linked to the '
            f'leaf they write ({stated} stated, {len(linked) - stated} inferred from the name and '
            f'the field\'s role), {len(rows) - len(linked)} not linked. A register\'s number is '
            f'its code in <code>{escape(register_map.enum_type)}</code>; ≈ follows a number the '
            f'tables infer. Its bits are those of the word it writes, counted as on '
            f'<a href="{layout.page}">the tile\'s page</a>: a leaf\'s first bit is its most '
            f'significant, and a leaf above 32 bits is written a word at a time, its low word its '
            f'last 32 bits. A change of a leaf that no register writes needs the configuration '
            f'loaded.</p>'
            f'<div class="filter"><label>Filter <input id="filter" type="search" '
            f'autocomplete="off" spellcheck="false" placeholder="a number, or words of a name or '
            f'a field"></label> <output id="filter-count" aria-live="polite">{len(rows)} '
            f'registers</output></div>'
            f'<table class="plain runtime"><thead><tr><th>number</th><th>register</th>'
            f'<th>field</th><th>word</th><th>bits</th><th>link</th><th>table row</th></tr>'
            f'</thead><tbody>{"".join(_row_html(r, layout.page) for r in rows)}</tbody></table>')
    return frame(f"Run-time registers of {layout.title}", page_name(layout), body, layout.ns)
