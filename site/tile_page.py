"""The page of one tile of one records namespace: the bit map and the field tree.

The leaves and the records and arrays above them, with their offsets, widths and registers, are the
tool's layout: each names the branch that holds it, so the page reads no path. The record tables
only name what each group is (a record, an array, a packed array).
"""

import dataclasses
from html import escape

import record_tables
import runtime_page
from pages import form_html

BITS_PER_ROW = 64
BIT = 12  # width of one bit in the map, in pixels: the map is drawn at its own size
PITCH = 18  # height of one row of bits
BOX = 16  # height of a leaf's box
GUTTER = 44  # room left of the rows for their first bit's offset
CHAR = 6.1  # width of one character of a label (10 px monospace)
RULER_STEP = 4  # the ruler above the map numbers every fourth bit of a row
GOLDEN = 137.508  # degrees between the hues of records met one after another
OPEN_ROWS = 400  # rows the field tree shows at first; deeper groups start closed

@dataclasses.dataclass
class Node:
    name: str  # "AGCU_AGU_config", "[1]" or the leaf's field name
    path: str  # from the tile record down, as the tool writes leaf paths
    cell: object  # the record_tables construct it is, None where the tables do not say
    children: list = dataclasses.field(default_factory=list)
    leaf: dict = None  # the tool's leaf, for a leaf
    first: int = 0  # offset of its first bit
    bits: int = 0
    regs: str = ""  # its registers as the tool shows them, "7" or "7-12"


def child_cell(cell, name, records):
    """What the field or element `name` of a construct is, by the record tables."""
    if name.startswith("["):
        if isinstance(cell, record_tables.Array):
            return cell.element
        if isinstance(cell, record_tables.Packed):
            return record_tables.Leaf(cell.bits)
        return None
    if isinstance(cell, record_tables.Ref) and cell.name in records:
        field = next((f for f in records[cell.name].fields if f.name == name), None)
        return field.cell if field else None
    return None


def build_tree(layout, records):
    """The tile's record as a tree of groups over its leaves; `records` maps names to the records
    of the layout's namespace."""
    nodes = {}
    for branch in layout.branches:  # each before what it holds
        node = Node(branch["name"], branch["path"], None, first=branch["offset"],
                    bits=branch["bits"], regs=branch["registers"])
        nodes[branch["path"]] = node
        if "parent" in branch:
            nodes[branch["parent"]].children.append(node)
    for leaf in layout.leaves:
        nodes[leaf["parent"]].children.append(
            Node(leaf["name"], leaf["path"], None, leaf=leaf, first=leaf["offset"],
                 bits=leaf["width"], regs=leaf["registers"]))
    root = nodes[""]
    root.cell = record_tables.Ref(layout.record)
    _place(root, records)
    return root


def _place(node, records):
    """Puts the children of `node` in bit order and names what each is, by the record tables."""
    node.children.sort(key=lambda child: child.first)
    for child in node.children:
        child.cell = child_cell(node.cell, child.name, records)
        _place(child, records)


def walk(node):
    """Every node below `node`, in bit order."""
    for child in node.children:
        yield child
        yield from walk(child)


def record_instances(root):
    """The first group of each record in the tile, by record name: where a record's page links."""
    found = {}
    for node in walk(root):
        if isinstance(node.cell, record_tables.Ref) and node.cell.name not in found:
            found[node.cell.name] = node.path
    return found


# The bit map ------------------------------------------------------------------------------------


def _colours(root):
    """Per leaf path, its colour class: the hue of the record that holds it (its innermost group
    that is a record), and a second shade for odd elements of the innermost array that holds it,
    so that neighbouring elements stand apart. Also the records in the order they are first met,
    which is the order of their hues (hue_styles)."""
    classes, hues = {}, {}

    def visit(node, record, index):
        if isinstance(node.cell, record_tables.Ref):
            record = node.cell.name
        for child in node.children:
            if child.leaf:
                hue = hues.setdefault(record, len(hues))
                classes[child.path] = f"c{hue}" + (" a" if index % 2 else "")
            else:
                visit(child, record, _element_index(child.name, index))

    visit(root, None, 0)
    return classes, list(hues)


def _element_index(name, outer):
    """The index of an element step ("[15]"), or `outer` for a member's name."""
    return int(name[1:-1]) if name.startswith("[") else outer


def leaf_steps(root):
    """Per leaf path, the names of the groups down to it and its own: ["AGCU_AGU", "[15]",
    "vsid"]."""
    steps = {}

    def visit(node, above):
        for child in node.children:
            if child.leaf:
                steps[child.path] = above + [child.name]
            else:
                visit(child, above + [child.name])

    visit(root, [])
    return steps


def hue_styles(count):
    """The style of `count` record colours: each hue a golden angle from the one before, so that
    records met one after another in the map, and any two of the first dozen or so, stand well
    apart; every third record darker, so that hues that come close again still differ."""
    rules = []
    for i in range(count):
        light = (80, 72, 87)[i % 3]
        rules.append(f".c{i}{{--h:{round(i * GOLDEN % 360)};--l:{light}%}}")
    return "".join(rules)


def label_text(parts, room):
    """The label of the leaf whose steps (leaf_steps) are `parts`, in `room` pixels: its name with the index of its nearest
    array element ("[15].AGU_ECF_SLB_vsid", since the same name stands once per element), or,
    where that does not fit, shorter forms of it: the index and the name's last word ("[15].vsid"),
    the name alone, its last word. Empty where none fits."""
    name = parts[-1]
    if name.startswith("[") and len(parts) > 1:  # an element of a packed array
        name = parts[-2] + name
        parts = parts[:-1]
    index = next((p for p in reversed(parts[:-1]) if p.startswith("[")), "")
    word = name.rsplit("_", 1)[-1] if not name.endswith("]") else name
    candidates = [f"{index}.{name}", f"{index}.{word}"] if index else []
    candidates += [name, word]
    return next((c for c in candidates if len(c) * CHAR + 4 <= room), "")


def ruler_svg():
    """The bit positions of a row, above the map, every RULER_STEP bits with a tick per bit."""
    width = GUTTER + BITS_PER_ROW * BIT
    out = [f'<svg class="ruler" viewBox="0 0 {width} 16" width="{width}" height="16" '
           f'aria-hidden="true">']
    for b in range(BITS_PER_ROW):
        x = GUTTER + b * BIT
        tall = b % RULER_STEP == 0
        out.append(f'<line x1="{x}" x2="{x}" y1="{8 if tall else 12}" y2="16"/>')
        if tall:
            out.append(f'<text x="{x + 1}" y="8">{b}</text>')
    out.append(f'<text class="o" x="{GUTTER - 4}" y="12">bit</text></svg>')
    return "".join(out)


def _pieces(offset, width):
    """A leaf's bits cut at the ends of rows: (row, first column, bits) per piece."""
    while width > 0:
        row, column = divmod(offset, BITS_PER_ROW)
        take = min(width, BITS_PER_ROW - column)
        yield row, column, take
        offset, width = offset + take, width - take


def bitmap_svg(layout, root):
    """The tile's bit string, BITS_PER_ROW bits a row, one group of boxes per leaf (a box, or
    several where a leaf crosses the end of a row), labelled where its name fits. The groups come
    in the order of the leaves' rows in the field tree, which is how the page's script names a
    box on hover without repeating every path here."""
    rows = -(-layout.bits // BITS_PER_ROW)
    width, height = GUTTER + BITS_PER_ROW * BIT, rows * PITCH
    out = [f'<svg id="bitmap" class="bitmap" viewBox="0 0 {width} {height}" '
           f'width="{width}" height="{height}" role="img" '
           f'aria-label="bit map of {escape(layout.record)}">']
    out += [f'<text class="o" x="{GUTTER - 4}" y="{r * PITCH + 12}">{r * BITS_PER_ROW}</text>'
            for r in range(rows)]
    colours, _ = _colours(root)
    steps = leaf_steps(root)
    for leaf in layout.leaves:
        pieces = list(_pieces(leaf["offset"], leaf["width"]))
        out.append(f'<g class="{colours[leaf["path"]]}">')
        for row, column, bits in pieces:
            out.append(f'<rect x="{GUTTER + column * BIT}" y="{row * PITCH}" '
                       f'width="{bits * BIT}" height="{BOX}"/>')
        row, column, bits = max(pieces, key=lambda p: p[2])
        label = label_text(steps[leaf["path"]], bits * BIT)
        if label:
            out.append(f'<text x="{GUTTER + column * BIT + 2}" y="{row * PITCH + 12}">'
                       f'{escape(label)}</text>')
        out.append("</g>")
    out.append("</svg>")
    return "".join(out)


def legend(root, records_page):
    """The records of the tile with their colours; each links to its fields."""
    _, records = _colours(root)
    items = [f'<li><span class="sw c{hue}"></span>'
             f'<a href="{records_page}#{escape(name)}">{escape(name)}</a></li>'
             for hue, name in enumerate(records)]
    return (f'<style>{hue_styles(len(records))}</style>'
            f'<ul class="legend">{"".join(items)}</ul>')


# The field tree -----------------------------------------------------------------------------------


def open_depth(root):
    """How deep the groups of the tree start open: as deep as keeps the rows shown at first within
    OPEN_ROWS, and the top-level groups at least. Closed groups cost the browser nothing to lay
    out, which keeps the largest tiles quick to open."""
    depth, level, shown = 1, root.children, len(root.children)
    while True:
        level = [c for node in level if not node.leaf for c in node.children]
        shown += len(level)
        if not level or shown > OPEN_ROWS:
            return depth
        depth += 1


def _tree_rows(node, records_page, type_pages, map_page, depth, opened, out):
    """The rows below `node`; a leaf's run-time cell links its registers' rows on `map_page`."""
    for child in node.children:
        # Long names break after an underscore, never inside a word.
        name, regs = escape(child.name).replace("_", "_<wbr>"), child.regs
        if child.leaf:
            kind = child.leaf.get("type")  # the enumeration type of its codes, if it has one
            typed = f' data-type="{escape(kind)}"' if kind else ""
            # A typed leaf names its type, linked to the page of the type's names and codes.
            type_link = (f' <a class="ty" href="{type_pages[kind]}#{escape(kind)}">'
                         f'{escape(kind)}</a>' if kind else "")
            out.append(f'<div class="r" id="{escape(child.path)}"{typed}>'
                       f'<span class="n">{name}{type_link}</span>'
                       f'<span>{child.first}</span><span>{child.bits}</span><span>{regs}</span>'
                       f'<span>{runtime_page.leaf_cell(child.leaf, map_page)}</span></div>')
            continue
        # A summary opens and closes its group: it holds no link (the legend links the records).
        kind = form_html(child.cell, records_page, linked=False) if child.cell else ""
        state = " open" if depth <= opened else ""
        out.append(f'<details{state} id="{escape(child.path)}"><summary><span class="n">{name} '
                   f'<em>{kind}</em></span><span>{child.first}</span><span>{child.bits}</span>'
                   f'<span>{regs}</span><span></span></summary>')
        _tree_rows(child, records_page, type_pages, map_page, depth + 1, opened, out)
        out.append("</details>")


def field_tree(root, records_page, type_pages, map_page=""):
    out = ['<div class="tree"><div class="th"><span class="n">path</span><span>offset</span>'
           '<span>width</span><span>registers</span><span>run-time</span></div>']
    _tree_rows(root, records_page, type_pages, map_page, 1, open_depth(root), out)
    out.append("</div>")
    return "".join(out)


def body(layout, root, records_page, type_pages, before_map="", register_map=None):
    """The tile's page; `type_pages` says on which page each enumeration type stands,
    `before_map` is HTML put between the lead and the map (a PCU's pipeline), and `register_map`
    the tile's run-time registers (runtime_page.register_map), whose page the tree links."""
    serves = ", ".join(g.label for g in layout.serves)
    leaves = len(layout.leaves)
    return (f'<h1>{escape(layout.tile.upper())} of {escape(layout.ns)} '
            f'<small>{escape(layout.record)}</small></h1>'
            f'<p class="lead">The {escape(layout.description)} as the records of '
            f'{escape(layout.ns)} lay it out, for {escape(serves)}: {layout.bits:,} bits in '
            f'{leaves:,} leaves, registers {root.regs}. Offsets count from the first '
            f'bit of the tile\'s bit string; a leaf\'s offset is its most significant bit. '
            f'Click a box or a row to link to it.</p>'
            f'{runtime_page.tree_note(layout, register_map)}{before_map}'
            f'<div class="split"><section id="map-pane" class="map" aria-label="bit map">'
            f'{legend(root, records_page)}<div class="ruler-bar">{ruler_svg()}</div>'
            f'{bitmap_svg(layout, root)}</section>'
            f'<section id="fields-pane" aria-label="fields"><div class="tools">'
            f'<button type="button" data-tree="open">Expand all</button>'
            f'<button type="button" data-tree="close">Collapse all</button>'
            f'<output id="leaf"></output></div>'
            f'{field_tree(root, records_page, type_pages, runtime_page.page_name(layout))}'
            f'</section></div>')
