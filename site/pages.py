"""The pages of the reference site, one function per kind of page. Each returns the page's HTML;
gen_site.py writes them. Every value shown is the tool's answer, written as `archspec get` writes
it.
"""

import json
from html import escape

import record_tables
import units
from facts import UNANSWERED

SITE = "archspec reference"


def frame(title, page, body, ns=""):
    """A whole page: the header with its links and the search box, then the body. `ns` is the
    records namespace the page belongs to, whose search results come first."""
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{escape(title)} · {SITE}</title>
<link rel="stylesheet" href="site.css">
<script src="site.js" defer></script>
</head>
<body data-page="{page}"{f' data-ns="{escape(ns)}"' if ns else ""}>
<header>
<a class="home" href="index.html">{SITE}</a>
<nav><a href="index.html#tiles">Tiles</a><a href="index.html#constants">Constants</a>
<a href="flags.html">Features and constraints</a><a href="changes.html">What changed</a>
<a href="decode.html">Decoder</a></nav>
<div class="search"><input id="search" type="search" autocomplete="off" spellcheck="false"
placeholder="Search accessors, field paths, records, types" aria-label="Search">
<ol id="results" hidden></ol></div>
</header>
<main>
{body}
</main>
</body>
</html>
"""


def value_text(value):
    """A value as `archspec get` prints it; a dash where the generation does not answer."""
    if value is UNANSWERED:
        return "—"
    if value is None:
        return "none"
    return json.dumps(value, separators=(",", ":"), sort_keys=True)


def records_page_name(ns):
    return f"records-{ns}.html"


_SHEET = {}


def sheet():
    """{name: (group, type, (quantity, unit, derived) or None, line)} of every parameter, by the
    generators' rule (units.py), read once."""
    if not _SHEET:
        _SHEET.update(units.sheet())
    return _SHEET


def unit(name):
    """A parameter's unit, or its quantity where that has no unit ("count"); empty where the rule
    gives it none."""
    meaning = sheet()[name][2] if name in sheet() else None
    return (meaning[1] or meaning[0]) if meaning else ""


def value_html(value):
    """A value's text, free to break after the commas of a list or an object, so that a long
    value folds in its cell instead of widening the page."""
    return escape(value_text(value)).replace(",", ",<wbr>")


def link(page, anchor, text):
    return f'<a href="{page}#{escape(anchor)}">{escape(text)}</a>'


# Constants tables ---------------------------------------------------------------------------------


def constant_cells(constant, columns):
    """One cell per generation. A cell is marked where the generation does not answer (na), where
    its code is inferred (inf), and where it differs from the generation before: another value
    (chg) or an answer where there was none (new)."""
    cells, before = [], None
    for i, g in enumerate(columns):
        value = constant.values.get(g.product, UNANSWERED)
        marks = []
        if value is UNANSWERED:
            marks.append("na")
        elif i > 0 and before is UNANSWERED:
            marks.append("new")
        elif i > 0 and value != before:
            marks.append("chg")
        if constant.inferred.get(g.product) and value is not UNANSWERED:
            marks.append("inf")
        attribute = f' class="{" ".join(marks)}"' if marks else ""
        cells.append(f"<td{attribute}>{value_html(value)}</td>")
        before = value
    return "".join(cells)


def constants_table(constants, columns, show_type=False, show_unit=False, sortable=False):
    """A row per accessor, a column per generation. A sortable table sorts by name (its first
    column) or by the codes of a generation (that generation's column) when the head is clicked;
    it starts sorted by name."""
    sort = (lambda key: f' data-sort="{key}"') if sortable else (lambda key: "")
    head = "".join(f'<th title="{escape(g.version)}"{sort("code")}>{escape(g.product)} <small>'
                   f'{escape(g.code)}</small></th>' for g in columns)
    type_head = "<th>type</th>" if show_type else ""
    unit_head = "<th>unit</th>" if show_unit else ""
    rows = []
    for c in sorted(constants, key=lambda c: c.name) if sortable else constants:
        type_cell = f"<td>{escape(c.type)}</td>" if show_type else ""
        unit_cell = f'<td class="unit">{escape(unit(c.name))}</td>' if show_unit else ""
        rows.append(f'<tr id="{escape(c.name)}"><th>{escape(c.name)}</th>{type_cell}{unit_cell}'
                    f'{constant_cells(c, columns)}<td class="src">{escape(c.source)}</td></tr>')
    name_sorted = ' aria-sort="ascending"' if sortable else ""
    return (f'<table class="constants"><thead><tr><th{sort("name")}{name_sorted}>accessor</th>'
            f'{type_head}{unit_head}{head}<th>table row</th></tr></thead>'
            f'<tbody>{"".join(rows)}</tbody></table>')


LEGEND = ('<p class="marks">Marks: <span class="na">—</span> not answered by the generation, '
          '<span class="chg">changed</span> from the generation on its left, '
          '<span class="new">answered</span> where the generation on its left does not, '
          '≈ after an inferred code, one the tables give only as a span of codes.</p>')


def enum_type_section(t, columns):
    answered = ", ".join(
        f"{g.product} {sum(m.answered_by(g.product) for m in t.members)}"
        for g in columns)
    inferred = sum(any(m.inferred.values()) for m in t.members)
    kind = f"{escape(t.kind)} · " if t.kind else ""
    note = f" · {inferred} with inferred codes" if inferred else ""
    return (f'<section id="{escape(t.name)}"><h2>{escape(t.name)}</h2>'
            f'<p>{kind}{t.count} enumerants · answered: {answered}{note} · declared at '
            f'{escape(t.source)}</p>{type_takers(t)}'
            f'{constants_table(t.members, columns, sortable=True)}</section>')


def type_takers(t):
    """The fields that hold the type's codes, each linked to its record on the records page of
    each namespace that has it, with the row of the table of field types it rests on."""
    if not t.fields:
        return '<p class="takers">No field of the tables is known to hold its codes.</p>'
    items = []
    for record, field, namespaces, row in t.fields:
        where = ", ".join(link(records_page_name(ns), record, ns) for ns in namespaces)
        # A long name breaks after an underscore or a dot, never inside a word.
        name = escape(f"{record}.{field}").replace("_", "_<wbr>").replace(".", ".<wbr>")
        items.append(f"<li><code>{name}</code> ({where}; {escape(row.basis)}, "
                     f"{escape(row.source)})</li>")
    return (f'<p class="takers">Held by {len(t.fields)} '
            f'{"field" if len(t.fields) == 1 else "fields"}:</p><ul class="takers">'
            f'{"".join(items)}</ul>')


def enum_page(types, columns):
    """A family of enumeration types: one type, or the types of a table that share a page."""
    title = types[0].family
    toc = ""
    if len(types) > 1:
        toc = '<ul class="toc">' + "".join(
            f'<li>{link(types[0].page, t.name, t.name)} <small>{t.count}</small></li>'
            for t in types) + "</ul>"
    sections = "".join(enum_type_section(t, columns) for t in types)
    return frame(title, types[0].page, f"<h1>{escape(title)}</h1>{LEGEND}{toc}{sections}")


def kind_page(title, page, constants, columns, lead, show_unit=False):
    """Parameters or containers: every accessor of the kind, one column per generation. The
    parameters (`show_unit`) stand in the groups of their table, each with its unit."""
    if show_unit:
        return frame(title, page, f'<h1>{escape(title)}</h1><p class="lead">{lead}</p>{LEGEND}'
                     f'{parameter_groups(constants, columns)}')
    return frame(title, page, f'<h1>{escape(title)}</h1><p class="lead">{lead}</p>{LEGEND}'
                 f'{constants_table(constants, columns, show_type=True, show_unit=show_unit)}')


def group_id(title):
    """"PCU: latencies and delays in cycles" as "pcu-latencies-and-delays-in-cycles"."""
    return "-".join("".join(c if c.isalnum() else " " for c in title.lower()).split())


def parameter_groups(constants, columns):
    """A section per group heading of the table of parameters, in the table's order, its rows in
    the table's order; the rows that no generation answers folded away under a switch of their
    own, open on demand."""
    by_name = {c.name: c for c in constants}
    groups = {}
    for name, (group, _, _, _) in sheet().items():
        if name in by_name:
            groups.setdefault(group, []).append(by_name[name])
    toc = "".join(f'<li>{link("", group_id(g), g)} <small>{len(rows)}</small></li>'
                  for g, rows in groups.items())
    sections = []
    for group, rows in groups.items():
        answered = [c for c in rows if any(c.answered_by(g.product) for g in columns)]
        unanswered = [c for c in rows if c not in answered]
        table = constants_table(answered, columns, show_type=True, show_unit=True)
        folded = ""
        if unanswered:
            folded = (f'<details class="unanswered"><summary>{len(unanswered)} '
                      f'{"parameter" if len(unanswered) == 1 else "parameters"} that no '
                      f'generation answers</summary>'
                      f'{constants_table(unanswered, columns, show_type=True, show_unit=True)}'
                      f'</details>')
        sections.append(f'<section id="{group_id(group)}"><h2>{escape(group)}</h2>'
                        f'<p>{len(answered)} answered by at least one generation</p>'
                        f'{table}{folded}</section>')
    return f'<ul class="toc">{toc}</ul>{"".join(sections)}'


def flags_page(flags, columns):
    body = ['<h1>Features and constraints</h1><p class="lead">Every feature flag and constraint, '
            'per generation. They always answer: a generation that sets none takes the '
            'default.</p>', LEGEND]
    for kind, title in (("feature", "Features"), ("constraint", "Constraints")):
        rows = [f for f in flags if f.kind == kind]
        body.append(f'<h2 id="{kind}s">{title}</h2>{constants_table(rows, columns, True)}')
    return frame("Features and constraints", "flags.html", "".join(body))


# Records ---------------------------------------------------------------------------------------


def record_field_rows(rec, records):
    rows = []
    for f in rec.fields:
        size = record_tables.cell_size(f.cell, records)
        rows.append(f"<tr><td>{escape(f.name)}</td><td>{form_html(f.cell)}</td>"
                    f"<td>{size[0] if size else ''}</td></tr>")
    return "".join(rows)


def bits_text(n):
    return f"{n} bit" if n == 1 else f"{n} bits"


def form_html(cell, page="", linked=True):
    """A field's construct as its table cell reads, a nested record linked to its section (or
    named only, where `linked` is false)."""
    if isinstance(cell, record_tables.Leaf):
        return bits_text(cell.bits)
    if isinstance(cell, record_tables.Packed):
        return f"{cell.count} × {bits_text(cell.bits)}, packed"
    if isinstance(cell, record_tables.Array):
        return f"[{cell.count}] {form_html(cell.element, page, linked)}"
    return link(page, cell.name, cell.name) if linked else escape(cell.name)


def records_page(ns, records, layouts, instances):
    """Every record of a namespace with its fields, where it is used and where its first instance
    lies in a tile."""
    by_name = {r.name: r for r in records}
    users = {}
    for r in records:
        for f in r.fields:
            target = record_tables.refs(f.cell)
            if target:
                users.setdefault(target, []).append(f"{r.name}.{f.name}")
    serves = ", ".join(g.label for g in layouts[0].serves)
    ordered = sorted(records, key=lambda r: (not r.top_level, r.name.lower()))
    toc = "".join(f'<li>{link("", r.name, r.name)} <small>{r.bits}</small></li>' for r in ordered)
    sections = []
    for r in ordered:
        where = []
        if r.top_level:
            tile = next(t for t in layouts if t.record == r.name)
            where.append(f'the record of the {link(tile.page, "", tile.tile.upper())} tile')
        if r.name in users:
            where.append("used by " + ", ".join(
                link("", u.split(".")[0], u) for u in users[r.name]))
        first = next(((t, instances[t.page][r.name]) for t in layouts
                      if r.name in instances[t.page]), None)
        if first:
            path = escape(first[1]).replace(".", ".<wbr>")  # a long path breaks after a dot
            where.append(f'first instance <a href="{first[0].page}#{escape(first[1])}">{path}</a> '
                         f'({escape(first[0].title)})')
        sections.append(
            f'<section id="{escape(r.name)}"><h2>{escape(r.name)}</h2><p>{r.bits} bits in '
            f'{len(r.fields)} fields · declared at {escape(r.source)} · {" · ".join(where)}</p>'
            f'<table class="plain record"><thead><tr><th>field</th><th>form</th><th>bits</th></tr>'
            f'</thead><tbody>{record_field_rows(r, by_name)}</tbody></table></section>')
    return frame(f"Records of {ns}", records_page_name(ns),
                 f'<h1>Records of {escape(ns)}</h1><p class="lead">The {len(records)} records '
                 f'of the {escape(ns)} namespace, for {escape(serves)}; the tiles\' records '
                 f'first. Fields follow one another in this order in the bit string.</p>'
                 f'<ul class="toc">{toc}</ul>{"".join(sections)}', ns)


# Home --------------------------------------------------------------------------------------------


def home_page(facts):
    gens = "".join(
        f'<tr><td>{escape(g.version)}</td><td>{escape(g.product or "—")}</td>'
        f'<td>{escape(g.code)}</td><td>{escape(g.records or "—")}</td>'
        f'<td>{"yes" if g.selectable else "no"}</td></tr>' for g in facts.generations)
    namespaces = facts.namespaces()
    tile_names = list(dict.fromkeys(t.tile for t in facts.tiles))
    serves = {ns: ", ".join(g.product for g in facts.columns if g.records == ns)
              for ns in namespaces}
    head = "".join(f'<th>{escape(ns)} <small>{escape(serves[ns])}</small></th>'
                   for ns in namespaces)
    rows = []
    for tile in tile_names:
        cells = []
        for ns in namespaces:
            t = next(x for x in facts.tiles if x.ns == ns and x.tile == tile)
            cells.append(f'<td><a href="{t.page}">{escape(t.record)}</a><br><small>{t.bits:,} '
                         f'bits · {len(t.leaves):,} leaves</small></td>')
        description = facts.tiles[tile_names.index(tile)].description
        rows.append(f'<tr><th>{escape(tile.upper())}<br><small>{escape(description)}</small></th>'
                    f'{"".join(cells)}</tr>')
    records = "".join(f'<td><a href="{records_page_name(ns)}">records of {escape(ns)}</a>'
                      f'<br><small>{len(facts.records[ns])} records</small></td>'
                      for ns in namespaces)
    # "; mk41 and mk42 share the records of ko": generations whose tiles are one page each.
    by_records = {}
    for g in facts.generations:
        if g.selectable and g.records:
            by_records.setdefault(g.records, []).append(g.product)
    sharing = "".join(f"; {' and '.join(products)} share the records of {escape(ns)}"
                      for ns, products in by_records.items() if len(products) > 1)
    counts = {kind: sum(c.kind == kind for c in facts.constants)
              for kind in ("parameter", "container")}
    shared = {}
    for t in facts.enum_types:
        shared.setdefault(t.page, []).append(t)
    families = [f'<li><a href="params.html">Parameters</a> '
                f'<small>{counts["parameter"]}</small></li>']
    families += [f'<li><a href="{page}">{escape(types[0].family)}</a> <small>{len(types)} types, '
                 f'{sum(t.count for t in types)} enumerants</small></li>'
                 for page, types in shared.items() if len(types) > 1]
    families.append(f'<li><a href="containers.html">Containers</a> '
                    f'<small>{counts["container"]}</small></li>')
    own = "".join(f'<li><a href="{t.page}">{escape(t.name)}</a> <small>{t.count}'
                  f'{" " + escape(t.kind) if t.kind else ""}</small></li>'
                  for t in facts.enum_types if len(shared[t.page]) == 1)
    body = (f'<h1>Reference of every generation</h1>'
            f'<p class="lead">Where every field of every tile lies and which register patches it, '
            f'every parameter, opcode and enumerant code, the features and constraints, and what '
            f'changed from one generation to the next: the answers of libArchSpecCore, through '
            f'the archspec tool, and the rows of its tables. Search from any page.</p>'
            f'<h2 id="generations">Generations</h2><table class="plain"><thead><tr><th>version</th>'
            f'<th>product</th><th>code</th><th>records</th><th>selectable</th></tr></thead>'
            f'<tbody>{gens}</tbody></table>'
            f'<h2 id="tiles">Tiles</h2><p>One page per tile and records namespace{sharing}.</p>'
            f'<table class="plain tiles"><thead><tr><th>tile</th>'
            f'{head}</tr></thead><tbody>{"".join(rows)}<tr><th>records</th>{records}</tr>'
            f'</tbody></table>'
            f'<h2 id="constants">Constants</h2><ul class="families">{"".join(families)}</ul>'
            f'<h3>Enumeration types</h3><ul class="types">{own}</ul>'
            f'<h2>Features, constraints and changes</h2><ul class="families">'
            f'<li><a href="flags.html">Features and constraints</a> <small>'
            f'{len(facts.flags)}</small></li><li><a href="changes.html">What changed between '
            f'generations</a></li></ul>')
    return frame("Generations", "index.html", body)
