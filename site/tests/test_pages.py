#!/usr/bin/env python3
"""The built reference site against the archspec tool's text answers and the generated sources:
every leaf's row and boxes on every tile page, every value and mark of the constants pages, the
changes between generations, every link and search entry, the pages' weight, and a second run
that writes the same site.

    test_pages.py --site BUILD/reference --archspec BUILD/tools/cli/archspec \\
                  --generated BUILD/generated/compiler/arch_spec/gen
"""

import filecmp
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

import sitecheck
from sitecheck import Page

ARGS = sitecheck.arguments()
SITE_SOURCE = os.path.join(sitecheck.SOURCE, "site")
GEN_DIR = os.path.join(sitecheck.SOURCE, "compiler", "arch_spec", "gen")
sys.path[:0] = [SITE_SOURCE, GEN_DIR]

import changes  # noqa: E402  (after the path to the site's and the generators' modules)
import genlib  # noqa: E402
import pages  # noqa: E402
import record_tables  # noqa: E402
import tile_page  # noqa: E402
import units  # noqa: E402

PAGE_LIMIT = 5_000_000
MODULE_LIMIT = 8_000_000
MODULE = "archspec-decoder.js"
_pages = {}


def page(name):
    if name not in _pages:
        _pages[name] = Page(os.path.join(ARGS.site, name))
    return _pages[name]


def constant_rows():
    """{accessor: (page, {product: (text, classes)}, source cell)} from every constants table."""
    found = {}
    for name in sitecheck.site_pages(ARGS.site):
        if name.startswith("tile-"):
            continue
        for table in page(name).root.iter("table", "constants"):
            heads = [th.text().split()[0] for th in next(table.iter("thead")).iter("th")]
            for tr in next(table.iter("tbody")).iter("tr"):
                cells = list(tr.iter("td"))
                by_product = {heads[i + 1]: (cell.text(), cell.classes)
                              for i, cell in enumerate(cells) if heads[i + 1].startswith("mk")}
                accessor = tr.attrs["id"]
                if accessor in found:
                    raise AssertionError(f"{accessor} on {found[accessor][0]} and {name}")
                found[accessor] = (name, by_product, cells[-1].text())
    return found


class TilePagesTest(unittest.TestCase):
    """Each tile page shows the tool's layout: a row and a run of boxes per leaf, in bit order."""

    @classmethod
    def setUpClass(cls):
        cls.products = sitecheck.products(ARGS.archspec)
        cls.codes = {g["product"]: g["code_name"]
                     for g in sitecheck.tool_json(ARGS.archspec, "archs")}
        links = (a.attrs.get("href", "") for a in page("index.html").root.iter("a"))
        cls.tiles = sorted(h for h in links if h.startswith("tile-"))

    def layout(self, product, tile):
        """(path, offset, width, registers, run-time registers) of each leaf, from the tool's
        text form."""
        lines = sitecheck.tool_text(ARGS.archspec, "layout", "--arch", product, tile).splitlines()
        rows = [line.split() for line in lines[2:]]
        return [(path, int(offset), int(width), registers, runtime)
                for offset, width, registers, runtime, path in rows]

    def test_every_namespace_and_tile_has_a_page(self):
        expected = {f"tile-{ns}-{tile}.html" for ns in self.products.values()
                    for tile in ("pcu", "pmu", "switch", "agcu")}
        self.assertEqual(set(self.tiles), expected)

    def test_rows_are_the_layout_of_every_generation_served(self):
        for name in self.tiles:
            _, ns, tile = name[:-5].split("-")
            rows = [(r.attrs["id"], [s.text() for s in r.iter("span")])
                    for r in page(name).root.iter("div", "r")]
            # A leaf that no run-time register writes has an empty cell where the tool writes "-".
            shown = [(path, int(s[1]), int(s[2]), s[3], s[4] or "-") for path, s in rows]
            for path, spans in rows:
                leaf_name = spans[0].split(" ")[0]  # a typed leaf's type follows its name
                self.assertTrue(path.endswith(leaf_name), f"{name}: row {path} reads {spans[0]}")
            served = [p for p, records in self.products.items() if records == ns]
            for product in served:
                with self.subTest(page=name, product=product):
                    self.assertEqual(shown, self.layout(product, tile))
            self.assertIn(", ".join(f"{p} ({self.codes[p]})" for p in served),
                          page(name).root.text())

    def test_typed_leaves_link_their_type_as_the_tool_says(self):
        """A leaf's type is the one `layout --json` gives, linked to the type's section."""
        type_page = {}
        for name in os.listdir(ARGS.site):
            if name.endswith(".html") and (name.startswith("enum-") or
                                           name in ("opcodes.html", "registers.html")):
                for section in page(name).root.iter("section"):
                    type_page[section.attrs.get("id")] = name
        for name in self.tiles:
            _, ns, tile = name[:-5].split("-")
            product = next(p for p, records in self.products.items() if records == ns)
            expected = {leaf["path"]: leaf["type"] for leaf in sitecheck.tool_json(
                ARGS.archspec, "layout", "--arch", product, tile, "--json")["leaves"]
                if "type" in leaf}
            self.assertTrue(expected, name)
            shown = {}
            for row in page(name).root.iter("div", "r"):
                for a in row.iter("a", "ty"):
                    shown[row.attrs["id"]] = a.text()
                    self.assertEqual(a.attrs["href"], f"{type_page[a.text()]}#{a.text()}")
            self.assertEqual(shown, expected, name)

    def test_boxes_cover_each_leaf_bits_once(self):
        """The boxes of the n-th leaf, read back as bits of the map's rows, are exactly its bits;
        a leaf that crosses the end of a row has a box on each row."""
        for name in self.tiles:
            with self.subTest(page=name):
                rows = list(page(name).root.iter("div", "r"))
                svg = next(s for s in page(name).root.iter("svg") if s.attrs.get("id") == "bitmap")
                groups = list(svg.iter("g"))
                self.assertEqual(len(groups), len(rows))
                crossing = 0
                for row, group in zip(rows, groups):
                    offset, width = (int(s.text()) for s in list(row.iter("span"))[1:3])
                    bits = []
                    for rect in group.iter("rect"):
                        x, y, w = (float(rect.attrs[k]) for k in ("x", "y", "width"))
                        first = int(y // tile_page.PITCH) * tile_page.BITS_PER_ROW + \
                            int((x - tile_page.GUTTER) // tile_page.BIT)
                        bits += range(first, first + int(w // tile_page.BIT))
                    self.assertEqual(bits, list(range(offset, offset + width)), row.attrs["id"])
                    crossing += len(list(group.iter("rect"))) > 1
                self.assertGreater(crossing, 0, "no leaf crosses a row: the test shows nothing")


class TypePagesTest(unittest.TestCase):
    """Each enumeration type's section lists the fields that hold its codes, from the table of
    field types, each linked to its record."""

    def test_every_typed_field_is_listed_under_its_type(self):
        import field_types

        errors = genlib.Errors()
        rows = field_types.load(os.path.join(GEN_DIR, "tables"), errors)[-1]
        self.assertFalse(errors)
        expected = {}
        for row in rows:
            for type_name in set(row.types.values()):
                expected.setdefault(type_name, set()).add(f"{row.record}.{row.field}")
        shown = {}
        for name in os.listdir(ARGS.site):
            if not name.endswith(".html"):
                continue
            for section in page(name).root.iter("section"):
                for li in section.iter("li"):
                    codes = list(li.iter("code"))
                    if codes and any(a.attrs.get("href", "").startswith("records-")
                                     for a in li.iter("a")):
                        shown.setdefault(section.attrs["id"], set()).add(codes[0].text())
        self.assertEqual(shown, expected)


class ConstantPagesTest(unittest.TestCase):
    """The constants, features and constraints pages show the tool's answers, with their marks."""

    @classmethod
    def setUpClass(cls):
        cls.products = list(sitecheck.products(ARGS.archspec))
        cls.rows = constant_rows()
        cls.answers = {p: sitecheck.answers(ARGS.archspec, p) for p in cls.products}

    def test_every_accessor_once_with_the_tool_value_per_generation(self):
        self.assertEqual(set(self.rows), set(self.answers[self.products[0]]))
        for product in self.products:
            for name, value in self.answers[product].items():
                text, classes = self.rows[name][1][product]
                if value is None:
                    self.assertEqual((text, "na" in classes), ("—", True), f"{name} {product}")
                else:
                    self.assertEqual(text, value, f"{name} {product}")

    def test_a_value_is_marked_where_it_differs_from_the_generation_before(self):
        for name, (_, cells, _) in self.rows.items():
            for before, after in zip(self.products, self.products[1:]):
                was, now = self.answers[before][name], self.answers[after][name]
                classes = cells[after][1]
                self.assertEqual("chg" in classes, None not in (was, now) and was != now, name)
                self.assertEqual("new" in classes, was is None and now is not None, name)

    @unittest.skipUnless(ARGS.generated, "needs --generated")
    def test_inferred_codes_and_table_rows_are_those_of_the_generated_classes(self):
        """The C++ generator marks each inferred answer `(inferred)` next to its table row; a
        class that derives from another keeps the answers it does not override."""
        with open(os.path.join(ARGS.generated, "ArchGenerations.h"), encoding="utf-8") as f:
            bases = dict(re.findall(r"class (\w+)Constants : public (\w+)Constants", f.read()))
        marks, sources = {}, {}
        for file in os.listdir(ARGS.generated):
            if not file.endswith("Constants.cpp"):
                continue
            with open(os.path.join(ARGS.generated, file), encoding="utf-8") as f:
                text = f.read()
            for cls, accessor, source, inferred in re.findall(
                    r"(\w+)Constants::(\w+)\(\) const \{\n  return code\(\d+\);  // (\S+)"
                    r"( \(inferred\))?\n", text):
                marks.setdefault(cls, {})[accessor] = bool(inferred)
                sources[accessor] = source

        def inferred(cls, accessor):
            while cls != "Arch" and accessor not in marks.get(cls, {}):
                cls = bases[cls]
            return cls != "Arch" and marks[cls][accessor]

        archs = {g["product"]: g["code_name"] for g in sitecheck.tool_json(ARGS.archspec, "archs")}
        self.assertGreater(sum(marks["Ry"].values()), 0)
        for product in self.products:
            cls = archs[product][:1].upper() + archs[product][1:]
            for accessor, source in sources.items():
                _, cells, shown_source = self.rows[accessor]
                self.assertEqual("inf" in cells[product][1], inferred(cls, accessor),
                                 f"{accessor} {product}")
                self.assertEqual(shown_source, source, accessor)


class ParameterPageTest(unittest.TestCase):
    """The parameters page stands as the table of parameters does: its groups in the table's
    order, each group's rows in the table's order, each with the unit the generators' rule gives,
    and the rows that no generation answers folded under their group's switch."""

    def test_groups_rows_and_units_are_the_tables(self):
        sheet = units.sheet()
        answers = {p: sitecheck.answers(ARGS.archspec, p)
                   for p in sitecheck.products(ARGS.archspec)}
        groups = {}
        for name, (group, _, _, _) in sheet.items():
            groups.setdefault(group, []).append(name)
        sections = [s for s in page("params.html").root.iter("section")]
        self.assertEqual([s.attrs.get("id") for s in sections],
                         [pages.group_id(g) for g in groups])
        for section, (group, names) in zip(sections, groups.items()):
            self.assertEqual(next(section.iter("h2")).text(), group)
            shown, folded = [], []
            for tr in section.iter("tr"):
                if "id" not in tr.attrs:
                    continue
                (folded if tr.ancestor("details") else shown).append(tr.attrs["id"])
                meaning = sheet[tr.attrs["id"]][2]
                self.assertEqual(next(tr.iter("td", "unit")).text(),
                                 (meaning[1] or meaning[0]) if meaning else "", tr.attrs["id"])
            answered = [n for n in names if any(a[n] is not None for a in answers.values())]
            self.assertEqual(shown, answered, group)
            self.assertEqual(folded, [n for n in names if n not in answered], group)


class RuntimeRegistersTest(unittest.TestCase):
    """Each tile page marks the leaves that a run-time register writes with the tool's register,
    and its register map lists every register the generations it serves answer: those the tool's
    layout links, with their words' bits as `archspec where` places them, and those the table
    leaves unlinked, with its reason."""

    @classmethod
    def setUpClass(cls):
        import runtime_registers

        errors = genlib.Errors()
        _, _, cls.registers = runtime_registers.registers(os.path.join(GEN_DIR, "tables"), errors)
        assert not errors, [str(e) for e in errors]
        cls.archs = {g["product"]: g for g in sitecheck.tool_json(ARGS.archspec, "archs")}
        cls.served = {}
        for product, ns in sitecheck.products(ARGS.archspec).items():
            cls.served.setdefault(ns, []).append(product)

    def linked(self, product, tile):
        """{register name: (number, path, word, link, inferred number)} of the tool's layout."""
        found = {}
        for leaf in sitecheck.tool_json(ARGS.archspec, "layout", "--arch", product, tile,
                                        "--json")["leaves"]:
            for e in leaf.get("runtime", ()):
                found[e["name"]] = (e["register"], leaf["path"], e["word"], e["link"],
                                    bool(e.get("inferred_number")))
        return found

    def map_rows(self, name):
        """{register name: (number, field cell, word, bits, link, classes of the number)}."""
        rows = {}
        for tr in next(page(name).root.iter("table", "runtime")).iter("tr"):
            cells = list(tr.iter("td"))
            if cells:
                texts = [c.text() for c in cells] + [""] * 3
                rows[tr.attrs["id"]] = (int(texts[0]), texts[2], texts[3], texts[4], texts[5],
                                        cells[0].classes)
        return rows

    def test_tile_pages_mark_linked_leaves_with_their_registers(self):
        for ns, products in self.served.items():
            for tile in ("pcu", "pmu", "switch", "agcu"):
                name = f"tile-{ns}-{tile}.html"
                marks = {}
                for row in page(name).root.iter("div", "r"):
                    cell = list(row.iter("span"))[4]
                    # An inferred number reads "119?", as the tool writes it, and says so.
                    marks.update({a.attrs["title"].split(" ")[0]: (
                        int(a.text().rstrip("?")), row.attrs["id"], a.attrs["href"],
                        "inferred" in a.attrs["title"]) for a in cell.iter("a")
                        if a.text().endswith("?") == ("inferred" in a.attrs["title"])})
                for product in products:
                    with self.subTest(page=name, product=product):
                        expected = {reg: (number, path, f"runtime-{ns}-{tile}.html#{reg}",
                                          inferred)
                                    for reg, (number, path, _, _, inferred)
                                    in self.linked(product, tile).items()}
                        self.assertTrue(expected)
                        self.assertEqual(marks, expected)
                note = " ".join(next(page(name).root.iter("p", "rt-note")).text().split())
                self.assertIn("written while the unit runs", note)
                self.assertIn(f"{len(marks)} of", note)

    def test_the_map_lists_every_register_answered_linked_or_not(self):
        """mk44's PCU and every other tile: the linked rows are the tool's, the rest the
        table's, with its reason; the counts are the tool's."""
        for ns, products in self.served.items():
            for tile in ("pcu", "pmu", "switch", "agcu"):
                name = f"runtime-{ns}-{tile}.html"
                rows = self.map_rows(name)
                for product in products:
                    with self.subTest(page=name, product=product):
                        linked = self.linked(product, tile)
                        column = self.archs[product]["answers_as"]
                        answered = [r for r in self.registers
                                    if r.column == column and r.tile == tile]
                        self.assertEqual(set(rows), {r.accessor for r in answered})
                        for r in answered:
                            number, field, word, _, link, classes = rows[r.accessor]
                            self.assertEqual((number, "inf" in classes), (r.code, r.inferred))
                            if r.accessor in linked:
                                was = linked[r.accessor]
                                self.assertEqual((number, field, word.replace(" word", "") or
                                                  "whole", link, "inf" in classes), was)
                            else:
                                self.assertEqual(field, f"not linked: {r.row.reason}")
                        lead = " ".join(next(page(name).root.iter("p", "lead")).text().split())
                        self.assertIn(f"{len(answered)} registers, {len(linked)} linked", lead)
                        self.assertIn(f"{len(answered) - len(linked)} not linked", lead)
        self.assertEqual(sum(1 for r in self.map_rows("runtime-rye-pcu.html").values()
                             if r[1].startswith("not linked")), 40)

    def test_bits_are_those_of_the_word_as_where_places_them(self):
        """`archspec where` names a register at the first and last bit of its word and not at
        the bits just outside them (another leaf, or the leaf's other word). Every register of
        mk44's PCU, and of mk44's AGCU some of each word, whose wide counters are written a word
        at a time."""
        for tile, every in (("pcu", 1), ("agcu", 29)):
            rows = [(reg, r) for reg, r in self.map_rows(f"runtime-rye-{tile}.html").items()
                    if not r[1].startswith("not linked")]
            picked = rows[::every]
            if tile == "agcu":
                picked += [next(x for x in rows if x[1][2] == w) for w in ("low word", "high word")]
                self.assertEqual({r[2] for _, r in picked}, {"", "low word", "high word"})
            for reg, (number, path, word, bits, _, _) in picked:
                first, last = (int(b) for b in bits.split(".."))
                names = re.compile(f"  run-time  {number} {reg}( |\n)")
                for bit, inside in ((first - 1, False), (first, True), (last, True),
                                    (last + 1, False)):
                    with self.subTest(register=reg, bit=bit):
                        text = sitecheck.tool_text(ARGS.archspec, "where", "--arch", "mk44",
                                                   tile, str(bit))
                        self.assertEqual(bool(names.search(text)), inside, text)
                        if inside:
                            self.assertIn(f"  leaf      {path}\n", text)


class PipelineTest(unittest.TestCase):
    """Each PCU page says how pcu_num_stages meets the stages of its records, for every generation
    it serves: the tool's answer, and the stages of a context in the tool's layout."""

    def test_each_pcu_page_counts_its_stages_as_the_tool_answers(self):
        pages_seen = 0
        for name in sitecheck.site_pages(ARGS.site):
            if not (name.startswith("tile-") and name.endswith("-pcu.html")):
                continue
            pages_seen += 1
            ns = name[len("tile-"):-len("-pcu.html")]
            section = next(s for s in page(name).root.iter("section") if s.attrs.get("id") ==
                           "pipeline")
            text = " ".join(section.text().split())
            products = [p for p, records in sitecheck.products(ARGS.archspec).items()
                        if records == ns]
            layout = sitecheck.tool_json(ARGS.archspec, "layout", "--arch", products[0], "pcu")
            stages = sum(b["elements"] for b in layout["branches"]
                         if b["path"] in ("simd_gemm_stage_structIn[0]", "simd_structIn[0]",
                                          "simd_last_stage_structIn[0]"))
            self.assertIn(f"runs {stages} stages", text)
            for product in products:
                answered = sitecheck.answers(ARGS.archspec, product)["pcu_num_stages"]
                self.assertEqual(answered, str(stages), product)
                self.assertIn(f"{product}: pcu_num_stages = {answered}", text)
        self.assertEqual(pages_seen, 3)


class ChangesTest(unittest.TestCase):
    """The page of changes lists what the tool answers differently from one generation to the
    next, and the records diff finds what a table changes."""

    def test_constants_listed_are_those_the_tool_answers_differently(self):
        products = list(sitecheck.products(ARGS.archspec))
        answers = {p: sitecheck.answers(ARGS.archspec, p) for p in products}
        sections = {s.attrs["id"]: s for s in page("changes.html").root.iter("section")}
        for before, after in zip(products, products[1:]):
            listed = {}
            for tr in sections[f"{before}-{after}"].iter("tr"):
                if tr.classes & {"added", "removed", "changed"}:
                    listed[next(tr.iter("th")).text()] = tr.classes
            expected = {}
            for name, was in answers[before].items():
                now = answers[after][name]
                if was != now:
                    expected[name] = {"added" if was is None else "removed" if now is None
                                      else "changed"}
            self.assertEqual(listed, expected, f"{before} -> {after}")

    def test_a_change_of_an_inferred_code_says_so(self):
        """A code that the tables only place within a span and that moves within it is no known
        change of the hardware: its row reads "inferred" and its inferred values carry ≈."""
        moved = "pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1"  # inferred on mk43 and mk44
        seen = {}
        for section in page("changes.html").root.iter("section"):
            for tr in section.iter("tr"):
                if "changed" not in tr.classes:
                    continue
                label, *values = list(tr.iter("td"))
                if len(values) > 2:  # the enumerants' rows have a type cell first
                    values = values[1:]
                marked = any("inf" in td.classes for td in values)
                name = next(tr.iter("th")).text()
                self.assertEqual(label.text() == "inferred", marked, name)
                seen[(section.attrs["id"], name)] = label.text()
        self.assertEqual(seen.get(("mk43-mk44", moved)), "inferred")

    def test_what_a_port_does_is_what_the_tool_reports(self):
        """Each field that a port of a configuration at its largest values does not carry stands
        on the page with the tool's words; a retyped field, with its two types."""
        sections = {s.attrs["id"]: s for s in page("changes.html").root.iter("section")}
        for before, after, tile in (("mk43", "mk44", "pcu"), ("mk42", "mk43", "switch")):
            details = next(d for d in sections[f"{before}-{after}"].iter("details", "port")
                           if d.attrs["data-tile"] == tile)
            shown = {next(tr.iter("th")).text(): [td.text() for td in tr.iter("td")]
                     for tr in details.iter("tr") if list(tr.iter("td"))}
            bits = sitecheck.tool_json(ARGS.archspec, "layout", "--arch", before, tile)["bits"]
            done = subprocess.run([ARGS.archspec, "port", "--to", after, "--arch", before, tile,
                                   "-", "--json"], input="1" * bits, capture_output=True,
                                  text=True, check=False)
            self.assertEqual(done.returncode, 3, done.stderr)
            expected = {}
            for entry in json.loads(done.stderr)["lost"]:
                if entry["reason"] in changes.PORT_LOSSES:
                    expected.setdefault(re.sub(r"\[\d+\]", "[]", entry["path"]), entry["text"])
            self.assertTrue(expected)
            self.assertEqual({f: shown[f][1] for f in expected if f in shown}, expected)
            self.assertEqual(shown.get("output_structIn[].vecdestPMU", [None])[0] if tile == "pcu"
                             else shown["xbar_config.ctlMuxsel[][]"][1],
                             "removed: its values do not move" if tile == "pcu"
                             else "switch_ctl_signal_t → switch_ctl_xbar_sel_t")

    def test_record_changes_of_a_small_table(self):
        table = """
tile t top the tile
record inner  ko=4/1
  x      4
record fresh  ry=1/1
  f      1
record top  ko=22/4/8  ry=23/5/11
  a      4
  b      6      8
  gone   inner  -
  c      -      2
  fr     -      fresh
  p      2x4    4x2
"""
        with tempfile.TemporaryDirectory() as tables:
            with open(os.path.join(tables, "small.rec"), "w") as f:
                f.write(table)
            errors = genlib.Errors()
            records, _ = record_tables.load(tables, ["ko", "ry"], errors)
            self.assertFalse(errors, [str(e) for e in errors])
        added, removed, changed = changes.record_changes("ko", "ry", records)
        self.assertEqual((added, removed), (["fresh"], ["inner"]))
        self.assertEqual([(name, was, now) for name, was, now, _ in changed], [("top", 22, 23)])
        self.assertEqual({(what, field) for what, field, _, _ in changed[0][3]},
                         {("removed", "gone"), ("added", "c"), ("added", "fr"),
                          ("resized", "b"), ("changed form", "p")})


class LinksTest(unittest.TestCase):
    """Every link and search entry leads to a page of the site and an anchor on it; nothing is
    fetched from elsewhere; the pages stay light."""

    def test_every_link_resolves(self):
        for name in sitecheck.site_pages(ARGS.site):
            ids = {name: set(page(name).ids())}
            for element in page(name).root.iter():
                for target in (element.attrs.get("href"), element.attrs.get("src")):
                    if target is None:
                        continue
                    with self.subTest(page=name, link=target):
                        self.assertNotRegex(target, r"^[a-z]+:|^//", "points off the site")
                        file, _, anchor = target.partition("#")
                        file = file or name
                        self.assertTrue(os.path.exists(os.path.join(ARGS.site, file)))
                        if anchor and file.endswith(".html"):
                            if file not in ids:
                                ids[file] = set(page(file).ids())
                            self.assertIn(anchor, ids[file])

    def test_ids_are_unique_on_each_page(self):
        for name in sitecheck.site_pages(ARGS.site):
            ids = page(name).ids()
            self.assertEqual(len(ids), len(set(ids)), name)

    def test_every_search_entry_resolves(self):
        with open(os.path.join(ARGS.site, "search-index.js"), encoding="utf-8") as f:
            text = f.read()
        index = json.loads(text[text.index("{"):text.rindex("}") + 1])
        kinds = set()
        for entry in index["lists"]:
            names = entry.get("names")
            if names is None:  # front-coded: [shared length, rest, ...]
                names, before = [], ""
                for shared, rest in zip(entry["front"][::2], entry["front"][1::2]):
                    before = before[:shared] + rest
                    names.append(before)
            target = index["pages"][entry["page"]]
            ids = set(page(target).ids())
            missing = [n for n in names if n not in ids]
            self.assertEqual(missing, [], f"{entry['kind']} entries of {target}")
            kinds.add(entry["kind"])
        self.assertLessEqual({"parameter", "enumerant", "container", "feature", "constraint",
                              "type", "record", "leaf"}, kinds)

    def test_pages_stay_light(self):
        """Every page and script within PAGE_LIMIT, the decoder's module within MODULE_LIMIT."""
        sizes = {n: os.path.getsize(os.path.join(ARGS.site, n)) for n in os.listdir(ARGS.site)}
        module = sizes.pop(MODULE, None)
        largest = max(sizes, key=sizes.get)
        print(f"\nlargest page: {largest}, {sizes[largest] / 1e6:.2f} MB", file=sys.stderr)
        self.assertLessEqual(sizes[largest], PAGE_LIMIT, largest)
        self.assertEqual(module is not None, bool(ARGS.decoder_module))
        if module is not None:
            print(f"decoder module: {module / 1e6:.2f} MB", file=sys.stderr)
            self.assertLessEqual(module, MODULE_LIMIT)

    def test_a_second_run_writes_the_same_site(self):
        with tempfile.TemporaryDirectory() as scratch:
            out = os.path.join(scratch, "reference")
            subprocess.run([sys.executable, os.path.join(SITE_SOURCE, "gen_site.py"),
                            "--archspec", ARGS.archspec, "--tables",
                            os.path.join(GEN_DIR, "tables"), "--out", out]
                           + (["--decoder-module", ARGS.decoder_module]
                              if ARGS.decoder_module else []),
                           check=True, capture_output=True)
            files = sorted(os.listdir(ARGS.site))
            self.assertEqual(sorted(os.listdir(out)), files)
            _, differ, errors = filecmp.cmpfiles(ARGS.site, out, files, shallow=False)
            self.assertEqual(differ + errors, [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
