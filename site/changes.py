"""The page of what changed from each selectable generation to the next: the tiles' sizes, records
and fields added, removed or resized (by the record tables, sized by their own rule), what a port
to the next generation does with each field that it removed, resized or retyped (by the tool's
port and layouts), and constants added, removed or changed (by the tool's answers).
"""

import re
from html import escape

import record_tables
from facts import UNANSWERED
from pages import form_html, frame, link, records_page_name, value_html

KINDS = (("parameter", "Parameters"), ("enumerant", "Enumerants"), ("container", "Containers"),
         ("feature", "Features"), ("constraint", "Constraints"))


def field_changes(old, new, old_records, new_records):
    """(what, field, before, after) for the fields of one record in two namespaces; before and after
    are constructs, None where the field does not exist."""
    before = {f.name: f for f in old.fields}
    after = {f.name: f for f in new.fields}
    found = [("removed", f.name, f.cell, None) for f in old.fields if f.name not in after]
    for f in new.fields:
        if f.name not in before:
            found.append(("added", f.name, None, f.cell))
            continue
        was = before[f.name].cell
        if was == f.cell:
            continue
        # cell_size gives (bits, unique ids): a field is resized when its bits change.
        bits_was = record_tables.cell_size(was, old_records)[0]
        bits_now = record_tables.cell_size(f.cell, new_records)[0]
        found.append(("resized" if bits_was != bits_now else "changed form", f.name, was, f.cell))
    return found


def record_changes(old_ns, new_ns, records):
    """Records added, removed, and those whose fields changed, from one namespace to another."""
    old = {r.name: r for r in records[old_ns]}
    new = {r.name: r for r in records[new_ns]}
    added = sorted((n for n in new if n not in old), key=str.lower)
    removed = sorted((n for n in old if n not in new), key=str.lower)
    changed = []
    for name in sorted((n for n in new if n in old), key=str.lower):
        fields = field_changes(old[name], new[name], old, new)
        if fields or old[name].bits != new[name].bits:
            changed.append((name, old[name].bits, new[name].bits, fields))
    return added, removed, changed


def constant_changes(constants, a, b):
    """(what, constant) for the accessors that one generation answers and the next does not, or
    answers differently."""
    found = []
    for c in constants:
        before = c.values.get(a.product, UNANSWERED)
        after = c.values.get(b.product, UNANSWERED)
        if before == after:
            continue
        what = ("added" if before is UNANSWERED else "removed" if after is UNANSWERED
                else "changed")
        found.append((what, c))
    return found


def _form(cell, ns):
    return form_html(cell, records_page_name(ns)) if cell is not None else "—"


def _records_section(a, b, facts):
    if a.records == b.records:
        return f"<p>Both use the records of {escape(a.records)}: the tiles are the same.</p>"
    tiles = []
    for old in (t for t in facts.tiles if t.ns == a.records):
        new = next(t for t in facts.tiles if t.ns == b.records and t.tile == old.tile)
        tiles.append(f"<tr><th>{link(new.page, '', old.tile.upper())}</th>"
                     f"<td>{old.bits:,} → {new.bits:,}</td>"
                     f"<td>{len(old.leaves):,} → {len(new.leaves):,}</td></tr>")
    added, removed, changed = record_changes(a.records, b.records, facts.records)
    out = ['<table class="plain"><thead><tr><th>tile</th><th>bits</th><th>leaves</th></tr>'
           f'</thead><tbody>{"".join(tiles)}</tbody></table>']
    for what, names, ns in (("added", added, b.records), ("removed", removed, a.records)):
        items = ", ".join(link(records_page_name(ns), n, n) for n in names) or "none"
        out.append(f'<p class="{what}">Records {what} ({len(names)}): {items}</p>')
    rows = []
    for name, bits_was, bits_now, fields in changed:
        items = "".join(f'<li class="{what.split()[0]}">{what} <b>{escape(field)}</b>: '
                        f'{_form(was, a.records)} → {_form(now, b.records)}</li>'
                        for what, field, was, now in fields)
        rows.append(f"<tr><th>{link(records_page_name(b.records), name, name)}</th>"
                    f"<td>{bits_was} → {bits_now}</td><td><ul>{items}</ul></td></tr>")
    out.append(f'<details open><summary>Records changed ({len(changed)})</summary>'
               f'<table class="plain"><thead><tr><th>record</th><th>bits</th><th>fields</th>'
               f'</tr></thead><tbody>{"".join(rows)}</tbody></table></details>')
    return "".join(out)


# What a port does with a leaf that it reports, by the report's reason: what a configuration of the
# earlier generation at its largest values loses on the way.
PORT_LOSSES = {
    "no-field": "removed: its values do not move",
    "shape": "another array: its values do not move",
    "beyond-array": "a shorter array: the indices beyond it do not move",
    "too-wide": "narrower: a value moves where it fits",
}


def _template(path):
    """"simd_structIn[][].stage_opcode": what the elements of one field have in common."""
    return re.sub(r"\[\d+\]", "[]", path)


def port_rows(report, old, new):
    """(field, what, the port's words for its first leaf, leaves) of each field whose leaves a
    port from tile layout `old` to `new` does not carry as they are: those the port's report of a
    configuration at its largest values gives (PORT_LOSSES), then those whose enumeration type the
    two generations name otherwise (their codes move by name)."""
    rows = {}
    for entry in report["lost"]:
        what = PORT_LOSSES.get(entry["reason"])
        if what is None:  # a code of no name: the configuration's, not the field's
            continue
        field = _template(entry["path"])
        if field in rows:
            rows[field][3] += 1
        else:
            rows[field] = [field, what, entry["text"], 1]
    types = {leaf["path"]: leaf.get("type") for leaf in new.leaves}
    for leaf in old.leaves:
        if leaf["path"] not in types or types[leaf["path"]] == leaf.get("type"):
            continue
        field = _template(leaf["path"])
        was, now = leaf.get("type"), types[leaf["path"]]
        if field in rows:
            if rows[field][2] == f"{was} → {now}" or rows[field][2].startswith(f"{was or 'no type'} →"):
                rows[field][3] += 1
            continue
        if was and now:
            rows[field] = [field, "retyped: a code moves by its name, where the new type has it",
                           f"{was} → {now}", 1]
        else:
            rows[field] = [field, "typed on one side: its values move by number",
                           f"{was or 'no type'} → {now or 'no type'}", 1]
    return [tuple(row) for row in rows.values()]


def _port_section(a, b, facts):
    out = []
    for old in (t for t in facts.tiles if t.ns == a.records):
        report = facts.ports.get((a.product, b.product, old.tile))
        if report is None:
            continue
        new = next(t for t in facts.tiles if t.ns == b.records and t.tile == old.tile)
        rows = "".join(f"<tr><th><code>{escape(field)}</code></th><td>{escape(what)}</td>"
                       f"<td>{escape(words)}</td><td>{count:,}</td></tr>"
                       for field, what, words, count in port_rows(report, old, new))
        table = (f'<table class="plain"><thead><tr><th>field</th><th>a port</th>'
                 f'<th>as the port says it</th><th>leaves</th></tr></thead><tbody>{rows}'
                 f'</tbody></table>') if rows else "<p>Every field moves as it is.</p>"
        out.append(f'<details class="port" data-tile="{escape(old.tile)}"><summary>'
                   f'{escape(old.tile.upper())}</summary>{table}</details>')
    if not out:
        return ""
    return (f'<h3>What a port does</h3><p>What <code>archspec port --to {escape(b.product)}</code> '
            f'does with each field of {escape(a.product)} that {escape(b.product)} removed, '
            'resized or retyped, field by field (indices left empty): every other leaf moves as '
            'it is, a code by its name.</p>' + "".join(out))


def _inferred_change(c, a, b):
    """Whether a change of an enumerant's code from generation a to b involves an inferred code."""
    return bool(c.inferred.get(a.product) or c.inferred.get(b.product))


def _value_cell(c, g):
    """A generation's value of an accessor, marked (≈) where its code is inferred."""
    value = c.values.get(g.product, UNANSWERED)
    mark = ' class="inf"' if c.inferred.get(g.product) and value is not UNANSWERED else ""
    return f"<td{mark}>{value_html(value)}</td>"  # a long list folds after its commas


def _constants_section(a, b, facts, pages):
    out = []
    for kind, title in KINDS:
        found = constant_changes([c for c in facts.constants + facts.flags if c.kind == kind],
                                 a, b)
        counts = ", ".join(f"{sum(w == what for w, _ in found)} {what}"
                           for what in ("added", "removed", "changed"))
        type_head = "<th>type</th>" if kind == "enumerant" else ""
        inferred = sum(w == "changed" and _inferred_change(c, a, b) for w, c in found)
        if inferred:
            counts += f" ({inferred} between inferred codes)"
        rows = []
        for what, c in found:
            type_cell = f"<td>{escape(c.type)}</td>" if kind == "enumerant" else ""
            # A code the tables only place within a span moved inside it: no known change of the
            # hardware, and said so.
            shown = "inferred" if what == "changed" and _inferred_change(c, a, b) else what
            rows.append(f'<tr class="{what}"><td>{shown}</td>{type_cell}'
                        f'<th>{link(pages[c.name], c.name, c.name)}</th>'
                        f'{_value_cell(c, a)}{_value_cell(c, b)}</tr>')
        table = (f'<table class="plain"><thead><tr><th></th>{type_head}<th>accessor</th>'
                 f'<th>{escape(a.product)}</th><th>{escape(b.product)}</th></tr></thead>'
                 f'<tbody>{"".join(rows)}</tbody></table>') if rows else ""
        out.append(f"<details><summary>{title}: {counts}</summary>{table}</details>")
    return "".join(out)


def changes_page(facts, pages):
    """`pages` maps each accessor to the page of its row."""
    pairs = list(zip(facts.columns, facts.columns[1:]))
    toc = "".join(f'<li>{link("", f"{a.product}-{b.product}", f"{a.label} → {b.label}")}</li>'
                  for a, b in pairs)
    sections = "".join(
        f'<section id="{escape(a.product)}-{escape(b.product)}"><h2>{escape(a.label)} → '
        f'{escape(b.label)}</h2><h3>Tiles and records</h3>{_records_section(a, b, facts)}'
        f'{_port_section(a, b, facts)}'
        f'<h3>Constants, features and constraints</h3>{_constants_section(a, b, facts, pages)}'
        f'</section>' for a, b in pairs)
    return frame("What changed", "changes.html",
                 '<h1>What changed between generations</h1><p class="lead">From each generation '
                 'to the next: the tiles\' sizes; records and fields added, removed or resized; '
                 'constants, features and constraints added (answered only by the later), '
                 'removed (answered only by the earlier) or changed.</p>'
                 f'<ul class="toc">{toc}</ul>{sections}')
