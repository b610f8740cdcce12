"""What the site's tests share: their command line, the archspec tool's answers, and a reader of
pages into a small tree of elements."""

import argparse
import json
import os
import subprocess
import sys
from html.parser import HTMLParser

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
VOID = {"meta", "link", "input", "br", "img", "rect", "hr"}


def arguments():
    """The tests' own options, taken off sys.argv so that unittest sees only its own."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--site", required=True, help="the built site")
    parser.add_argument("--archspec", required=True, help="the archspec tool")
    parser.add_argument("--generated", help="the generated sources of the constants classes")
    parser.add_argument("--screenshots", help="where the browser test saves its screenshots")
    parser.add_argument("--decoder-module", help="the decoder page's module, where it was built")
    parser.add_argument("--axe", default=os.path.join(SOURCE, "build", "npm", "node_modules",
                                                      "axe-core", "axe.min.js"),
                        help="axe-core's script, which the browser test runs in its pages "
                        "(scripts/setup installs it in build/npm)")
    args, rest = parser.parse_known_args()
    sys.argv[1:] = rest
    return args


def tool_text(archspec, *args):
    done = subprocess.run([archspec, *args], capture_output=True, text=True, check=False)
    return done.stdout


def tool_json(archspec, *args):
    return json.loads(tool_text(archspec, *args, "--json"))


def answers(archspec, product):
    """{accessor: its value as the tool's text form prints it, None where not answered}, for the
    constants, features and constraints of one generation."""
    found = {}
    for command in ("constants", "features", "constraints"):
        for line in tool_text(archspec, command, "--arch", product).splitlines():
            if " = " in line:
                name, value = line.split(" = ", 1)
                found[name] = value.split("  # ", 1)[0]  # without its unit or mark
            else:
                found[line.split(":", 1)[0]] = None
    return found


def products(archspec):
    """{product: records namespace} of the selectable generations, in the tool's order."""
    return {g["product"]: g["records"] for g in tool_json(archspec, "archs") if g["selectable"]}


class Element:
    def __init__(self, tag, attrs, parent):
        self.tag, self.attrs, self.parent = tag, dict(attrs), parent
        self.children, self.parts = [], []

    @property
    def classes(self):
        return set((self.attrs.get("class") or "").split())

    def text(self):
        return "".join(p if isinstance(p, str) else p.text() for p in self.parts)

    def iter(self, tag=None, cls=None):
        for child in self.children:
            if (tag is None or child.tag == tag) and (cls is None or cls in child.classes):
                yield child
            yield from child.iter(tag, cls)

    def ancestor(self, tag):
        up = self.parent
        while up is not None and up.tag != tag:
            up = up.parent
        return up


class Page(HTMLParser):
    """A page as a tree of elements; `root` holds it."""

    def __init__(self, path):
        super().__init__(convert_charrefs=True)
        self.name = os.path.basename(path)
        self.size = os.path.getsize(path)
        self.root = self._at = Element("#document", {}, None)
        with open(path, encoding="utf-8") as f:
            self.feed(f.read())

    def handle_starttag(self, tag, attrs):
        element = Element(tag, attrs, self._at)
        self._at.children.append(element)
        self._at.parts.append(element)
        if tag not in VOID:
            self._at = element

    def handle_startendtag(self, tag, attrs):
        element = Element(tag, attrs, self._at)
        self._at.children.append(element)
        self._at.parts.append(element)

    def handle_endtag(self, tag):
        up = self._at
        while up is not self.root and up.tag != tag:
            up = up.parent
        if up is not self.root:
            self._at = up.parent

    def handle_data(self, data):
        self._at.parts.append(data)

    def ids(self):
        return [e.attrs["id"] for e in self.root.iter() if "id" in e.attrs]


def site_pages(site):
    return sorted(n for n in os.listdir(site) if n.endswith(".html"))
