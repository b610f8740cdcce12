#!/usr/bin/env python3
"""The reference site in a real browser: headless Chromium driven by Selenium, both from Debian's
packages (run with Debian's /usr/bin/python3). Pages load without console errors, the search box
finds a leaf of the largest tile and the page shows its row and boxes, the bit map has one group of
boxes per leaf, constants read as `archspec get` answers them, links lead to pages of the site, and
the largest page is interactive within 2 seconds.

    test_browser.py --site BUILD/reference --archspec BUILD/tools/cli/archspec [--screenshots DIR]

Exits 77 (skipped) where Chromium is not installed.
"""

import os
import shutil
import sys
import tempfile
import time
import unittest

import sitecheck

SKIPPED = 77
INTERACTIVE_MS = 2000
CHROMIUM_FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                  "--no-first-run", "--disable-background-networking",
                  "--disable-component-update", "--disable-sync", "--window-size=1600,1000")

ARGS = sitecheck.arguments()


def chromium():
    return shutil.which("chromium") or shutil.which("chromium-browser")


def start_browser():
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    options = webdriver.ChromeOptions()
    options.binary_location = chromium()
    for flag in CHROMIUM_FLAGS:
        options.add_argument(flag)
    profile = tempfile.mkdtemp(prefix="archspec-chromium-")
    options.add_argument(f"--user-data-dir={profile}")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
    return driver, profile


class BrowserTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        from selenium.webdriver.support.ui import WebDriverWait

        cls.driver, cls.profile = start_browser()
        cls.wait = WebDriverWait(cls.driver, 10)
        cls.products = sitecheck.products(ARGS.archspec)
        cls.largest = max(cls.products, key=lambda p: sitecheck.tool_json(
            ARGS.archspec, "layout", "--arch", p, "agcu")["bits"])
        cls.layout = sitecheck.tool_json(ARGS.archspec, "layout", "--arch", cls.largest, "agcu")
        cls.largest_page = f"tile-{cls.products[cls.largest]}-agcu.html"

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()
        shutil.rmtree(cls.profile, ignore_errors=True)

    def open(self, page):
        self.driver.get("file://" + os.path.abspath(os.path.join(ARGS.site, page)))
        self.wait.until(lambda d: d.execute_script("return document.readyState") == "complete")

    def console_errors(self):
        return [e["message"] for e in self.driver.get_log("browser") if e["level"] == "SEVERE"]

    def js(self, script, *args):
        return self.driver.execute_script(script, *args)

    def search(self, text):
        """Types into the search box; the results once they are shown."""
        from selenium.webdriver.common.by import By

        box = self.driver.find_element(By.ID, "search")
        box.clear()
        box.send_keys(text)
        self.wait.until(lambda d: d.find_elements(By.CSS_SELECTOR, "#results li a")
                        or "nothing" in d.find_element(By.ID, "results").text)
        return self.driver.find_elements(By.CSS_SELECTOR, "#results li a")

    def test_pages_of_every_kind_load_without_console_errors(self):
        for page in ("index.html", "params.html", "registers.html", "flags.html",
                     "changes.html", "records-ko.html", "tile-ko-switch.html"):
            with self.subTest(page=page):
                self.open(page)
                self.assertEqual(self.js("return document.body.dataset.page"), page)
                self.assertEqual(self.console_errors(), [])

    def test_search_finds_a_leaf_of_the_largest_tile_and_scrolls_to_its_row(self):
        leaves = self.layout["leaves"]
        index = len(leaves) * 2 // 3
        path = leaves[index]["path"]
        self.open(self.largest_page)
        part = path[path.index(".") + 1:]  # part of the name: all but its first field
        found = [a for a in self.search(part) if a.get_attribute("data-anchor") == path
                 and a.get_attribute("data-page") == self.largest_page]
        self.assertEqual(len(found), 1, f"searching {part}")
        found[0].click()
        self.wait.until(lambda d: d.execute_script(
            "return document.getElementById(arguments[0]).classList.contains('sel')", path))
        inside = """
            const [el, pane] = [arguments[0], document.getElementById(arguments[1])];
            const e = el.getBoundingClientRect(), p = pane.getBoundingClientRect();
            return e.height > 0 && e.top >= p.top && e.bottom <= p.bottom && p.top >= 0 &&
                   p.top < window.innerHeight;"""
        row = self.js("return document.getElementById(arguments[0])", path)
        self.assertTrue(self.js(inside, row, "fields-pane"), "the row is not in view")
        box = self.js("return document.querySelectorAll('#bitmap g')[arguments[0]]", index)
        self.assertIn("sel", box.get_attribute("class"))
        self.assertTrue(self.js(inside, box, "map-pane"), "the boxes are not in view")
        if ARGS.screenshots:
            os.makedirs(ARGS.screenshots, exist_ok=True)
            self.driver.save_screenshot(os.path.join(ARGS.screenshots, "reference-tile.png"))
        self.assertEqual(self.console_errors(), [])

    def test_bit_map_has_one_group_of_boxes_per_leaf_named_on_hover(self):
        from selenium.webdriver.common.action_chains import ActionChains

        self.open(self.largest_page)
        leaves = self.layout["leaves"]
        counts = self.js("""
            const groups = [...document.querySelectorAll('#bitmap g')];
            return [groups.length, groups.filter(g => g.querySelector('rect')).length,
                    document.querySelectorAll('#fields-pane .r').length];""")
        self.assertEqual(counts, [len(leaves)] * 3)
        middle = len(leaves) // 2
        box = self.js("return document.querySelectorAll('#bitmap g')[arguments[0]]", middle)
        self.js("arguments[0].scrollIntoView({block: 'center'})", box)
        ActionChains(self.driver).move_to_element(box).perform()
        self.assertEqual(self.js("return arguments[0].querySelector('title').textContent", box),
                         leaves[middle]["path"])

    def test_constant_rows_read_as_the_tool_answers_each_generation(self):
        values = {p: {c["name"]: c for c in sitecheck.tool_json(ARGS.archspec, "constants",
                                                                "--arch", p)}
                  for p in self.products}
        first, *rest = self.products

        def differs(c):
            return len({str(values[p][c["name"]].get("value")) for p in self.products}) > 1

        picks = [next(c["name"] for c in values[first].values() if c["kind"] == kind and
                      differs(c)) for kind in ("parameter", "enumerant", "container")]
        for name in picks:
            with self.subTest(accessor=name):
                self.open("index.html")
                results = self.search(name)
                self.assertEqual(results[0].get_attribute("data-anchor"), name)
                results[0].click()
                self.wait.until(lambda d: d.execute_script(
                    "return document.getElementById(arguments[0])?.classList.contains('sel')",
                    name))
                heads = self.js("""
                    const table = document.getElementById(arguments[0]).closest('table');
                    return [...table.tHead.rows[0].cells].map(c => c.textContent.split(' ')[0]);
                    """, name)
                cells = self.js("return [...document.getElementById(arguments[0]).cells]"
                                ".map(c => [c.textContent, getComputedStyle(c).backgroundColor])",
                                name)
                for product in self.products:
                    text = sitecheck.tool_text(ARGS.archspec, "get", "--arch", product, name)
                    expected = text.split(" = ", 1)[1].strip() if text else "—"
                    self.assertEqual(cells[heads.index(product)][0], expected, product)
                # The first generation's cell is never marked: a changed value stands out from it.
                shown = [cells[heads.index(p)] for p in self.products]
                for before, after in zip(shown, shown[1:]):
                    if "—" not in (before[0], after[0]) and before[0] != after[0]:
                        self.assertNotEqual(after[1], shown[0][1], "a change is not highlighted")
        self.assertEqual(self.console_errors(), [])

    def test_links_lead_to_pages_of_the_site(self):
        """Following the links of the header and one of each kind from the home page lands on the
        page named, at the anchor named."""
        self.open("index.html")
        targets = self.js("""
            const links = [...document.querySelectorAll('header nav a, main a')];
            const kinds = {};
            for (const a of links) {
              const kind = a.getAttribute('href').replace(/[-#].*|[.]html$/, '');
              if (!(kind in kinds)) kinds[kind] = a.getAttribute('href');
            }
            return Object.values(kinds);""")
        self.assertGreaterEqual(len(targets), 6)
        for target in targets:
            with self.subTest(link=target):
                self.open("index.html")
                self.js("document.querySelector(`a[href='${arguments[0]}']`).click()", target)
                page, _, anchor = target.partition("#")
                self.wait.until(lambda d: d.execute_script(
                    "return document.body && document.body.dataset.page") == page)
                if anchor:
                    self.assertTrue(self.js("return !!document.getElementById(arguments[0])",
                                            anchor))
                self.assertEqual(self.console_errors(), [])

    def test_largest_page_is_interactive_within_2_seconds(self):
        timings = []
        for _ in range(2):
            self.open(self.largest_page)
            timings.append(self.js("""
                const n = performance.getEntriesByType('navigation')[0];
                return [n.domInteractive, n.domContentLoadedEventEnd, n.loadEventEnd];"""))
            started = time.monotonic()
            self.search("vsid")  # the search box answers: the page and its script are live
            timings[-1].append(timings[-1][2] + (time.monotonic() - started) * 1000)
        best = min(timings, key=lambda t: t[2])
        size = os.path.getsize(os.path.join(ARGS.site, self.largest_page))
        print(f"\n{self.largest_page} ({size / 1e6:.2f} MB): DOM interactive {best[0]:.0f} ms, "
              f"DOMContentLoaded {best[1]:.0f} ms, load {best[2]:.0f} ms, first search answered "
              f"{best[3]:.0f} ms", file=sys.stderr)
        self.assertLessEqual(best[2], INTERACTIVE_MS)


def main():
    if chromium() is None:
        print("SKIPPED: Chromium is not installed (apt-get install chromium chromium-driver "
              "python3-selenium, or scripts/setup)")
        return SKIPPED
    try:
        import selenium.webdriver  # noqa: F401  (the tests import it where they use it)
    except ImportError:
        print(f"error: {sys.executable} cannot import selenium: apt-get install python3-selenium")
        return 1
    if shutil.which("chromedriver") is None:
        print("error: chromedriver is missing: apt-get install chromium-driver")
        return 1
    result = unittest.main(exit=False, verbosity=2).result
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
