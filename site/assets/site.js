// The reference site's one script: the search box of every page, and on tile pages the link
// between the bit map and the field tree. Pages are opened from disk, so the search index is a
// script beside them (search-index.js), added to the page the first time the box is used.
"use strict";

(function () {
  const here = document.body.dataset.page;
  const ownNs = document.body.dataset.ns || "";
  const LIMIT = 60;

  // --- Search --------------------------------------------------------------------------------

  const input = document.getElementById("search");
  const results = document.getElementById("results");
  let loading = null;
  let active = -1;

  // Words that name a generation (to its records namespace) and the tile names, from the index.
  let generationWords = {};
  let tileWords = [];

  // Every entry of the index as {name, low, kind, where, page, ns, tile}. Leaf paths come
  // front-coded: [shared length, rest, ...], each path sharing its start with the one before.
  function prepare(index) {
    generationWords = index.generations || {};
    tileWords = index.tiles || [];
    const entries = [];
    for (const list of index.lists) {
      let names = list.names;
      if (list.front) {
        names = [];
        let before = "";
        for (let i = 0; i < list.front.length; i += 2) {
          before = before.slice(0, list.front[i]) + list.front[i + 1];
          names.push(before);
        }
      }
      const page = index.pages[list.page];
      for (const name of names) {
        entries.push({ name, low: name.toLowerCase(), kind: list.kind, where: list.where, page,
                       ns: list.ns || "", tile: list.tile || "" });
      }
    }
    return entries;
  }

  function loadIndex() {
    if (!loading) {
      loading = new Promise((resolve, reject) => {
        const script = document.createElement("script");
        script.src = "search-index.js";
        script.onload = () => resolve(prepare(window.archspecIndex));
        script.onerror = () => reject(new Error("search-index.js did not load"));
        document.head.appendChild(script);
      });
    }
    return loading;
  }

  // Whether `word` names the generation or the tile of entry `e` ("rye", "mk44", "agcu").
  function names(e, word) {
    return (e.ns && generationWords[word] === e.ns) || (e.tile && e.tile === word);
  }

  // The first word of a query that is not a generation's or a tile's name: the one that ranks.
  function textWord(query) {
    const words = query.toLowerCase().split(/\s+/).filter(Boolean);
    return words.find((w) => !(w in generationWords) && !tileWords.includes(w)) || words[0] || "";
  }

  // Entries that answer every word of the query, best first. A word is answered by an entry whose
  // generation or tile it names, or by the entry's name holding it: "rye agcu vsid 15" finds the
  // leaves of rye's AGCU whose paths hold "vsid" and "15". The rank is that of the first word the
  // name must hold: the name itself, then names that start with it, then those where it starts a
  // part of the name, then the rest; an entry that answers every word by its generation and tile
  // ranks first. Within a rank, entries of the page's own generation come first, then shorter
  // names.
  function find(entries, query) {
    const words = query.toLowerCase().split(/\s+/).filter(Boolean);
    if (!words.length) return { found: [], total: 0 };
    const found = [];
    for (const e of entries) {
      const rest = words.filter((w) => !names(e, w));
      if (!rest.every((w) => e.low.includes(w))) continue;
      let rank = 0;
      if (rest.length) {
        const first = rest[0];
        const at = e.low.indexOf(first);
        rank = 3;
        if (e.low === first) rank = 0;
        else if (at === 0) rank = 1;
        else if ("._[".includes(e.low[at - 1])) rank = 2;
      }
      found.push({ e, rank, own: ownNs && e.ns === ownNs ? 0 : 1 });
    }
    found.sort((a, b) => a.rank - b.rank || a.own - b.own || a.e.name.length - b.e.name.length);
    return { found: found.slice(0, LIMIT).map((f) => f.e), total: found.length };
  }

  function marked(name, query) {
    const word = textWord(query);
    const at = name.toLowerCase().indexOf(word.toLowerCase());
    const text = (s) => document.createTextNode(s);
    const b = document.createElement("b");
    if (at < 0 || !word) {
      b.append(text(name));
    } else {
      const mark = document.createElement("mark");
      mark.textContent = name.slice(at, at + word.length);
      b.append(text(name.slice(0, at)), mark, text(name.slice(at + word.length)));
    }
    return b;
  }

  function show(query) {
    loadIndex().then((entries) => {
      if (input.value !== query) return; // a newer query is on its way
      const { found, total } = find(entries, query);
      results.replaceChildren();
      active = found.length ? 0 : -1;
      found.forEach((e, i) => {
        const a = document.createElement("a");
        a.href = e.page + "#" + e.name;
        a.dataset.page = e.page;
        a.dataset.anchor = e.name;
        const where = document.createElement("small");
        where.textContent = e.kind + " · " + e.where;
        a.append(marked(e.name, query), where);
        const li = document.createElement("li");
        if (i === active) li.className = "active";
        li.append(a);
        results.append(li);
      });
      const more = document.createElement("li");
      more.className = "more";
      more.textContent = total > found.length
        ? `${total - found.length} more: type more of the name`
        : total ? `${total} found` : "nothing found";
      results.append(more);
      results.hidden = !query.trim();
    });
  }

  function follow(a) {
    results.hidden = true;
    if (a.dataset.page === here) {
      history.replaceState(null, "", "#" + encodeURIComponent(a.dataset.anchor));
      reveal(a.dataset.anchor);
    } else {
      location.href = a.href;
    }
  }

  function choose(step) {
    const items = results.querySelectorAll("li:not(.more)");
    if (!items.length) return;
    items[active]?.classList.remove("active");
    active = (active + step + items.length) % items.length;
    items[active].classList.add("active");
    items[active].scrollIntoView({ block: "nearest" });
  }

  input.addEventListener("focus", () => loadIndex());
  input.addEventListener("input", () => show(input.value));
  input.addEventListener("keydown", (event) => {
    if (event.key === "ArrowDown" || event.key === "ArrowUp") {
      choose(event.key === "ArrowDown" ? 1 : -1);
      event.preventDefault();
    } else if (event.key === "Enter") {
      const a = results.querySelectorAll("li:not(.more) a")[active];
      if (a) follow(a);
    } else if (event.key === "Escape") {
      results.hidden = true;
    }
  });
  results.addEventListener("click", (event) => {
    const a = event.target.closest("a");
    if (!a) return;
    event.preventDefault();
    follow(a);
  });
  document.addEventListener("click", (event) => {
    if (!event.target.closest(".search")) results.hidden = true;
  });
  document.addEventListener("keydown", (event) => {
    if (event.key === "/" && document.activeElement !== input) {
      input.focus();
      event.preventDefault();
    }
  });

  // --- Sorting an enumeration's table by name or by a generation's codes ---------------------

  // A code cell's number; a generation that does not answer sorts last.
  const code = (cell) => (/^\d+$/.test(cell.textContent) ? Number(cell.textContent) : Infinity);
  document.addEventListener("click", (event) => {
    const th = event.target.closest("th[data-sort]");
    if (!th) return;
    const table = th.closest("table");
    const column = th.cellIndex;
    const rows = [...table.tBodies[0].rows];
    const name = (row) => row.cells[0].textContent;
    if (th.dataset.sort === "name") {
      rows.sort((a, b) => (name(a) < name(b) ? -1 : name(a) > name(b) ? 1 : 0));
    } else {
      rows.sort((a, b) => code(a.cells[column]) - code(b.cells[column]) ||
        (name(a) < name(b) ? -1 : 1));
    }
    table.tBodies[0].append(...rows);
    for (const other of table.tHead.querySelectorAll("th[aria-sort]")) {
      other.removeAttribute("aria-sort");
    }
    th.setAttribute("aria-sort", "ascending");
  });

  // --- A register map's filter ---------------------------------------------------------------

  // A query of a number (decimal or 0x hexadecimal) keeps the register of that number; other
  // words keep the rows whose name or field holds every one of them.
  const filter = document.getElementById("filter");
  if (filter) {
    const table = document.querySelector("table.runtime");
    const count = document.getElementById("filter-count");
    const rows = [...table.tBodies[0].rows].map((row) => ({
      row, number: Number(row.cells[0].textContent),
      text: (row.id + " " + row.cells[2].textContent).toLowerCase() }));
    filter.addEventListener("input", () => {
      const query = filter.value.trim().toLowerCase();
      const number = /^(\d+|0x[0-9a-f]+)$/.test(query) ? Number(query) : null;
      const words = query.split(/\s+/).filter(Boolean);
      let shown = 0;
      for (const r of rows) {
        const keep = number !== null ? r.number === number : words.every((w) => r.text.includes(w));
        r.row.hidden = !keep;
        shown += keep;
      }
      count.textContent = (query ? `${shown} of ` : "") + `${rows.length} registers`;
    });
  }

  // --- Going to an anchor ---------------------------------------------------------------------

  const fields = document.getElementById("fields-pane");
  const map = document.getElementById("map-pane");
  // The bit map has one group of boxes per leaf, in the order of the leaves' rows in the tree:
  // the n-th group is the n-th row's leaf.
  let leaves = null;

  function pairs() {
    if (!leaves) {
      const rows = fields.querySelectorAll(".r");
      const groups = document.querySelectorAll("#bitmap g");
      leaves = { boxOf: new Map(), pathOf: new Map() };
      rows.forEach((row, i) => {
        leaves.boxOf.set(row.id, groups[i]);
        leaves.pathOf.set(groups[i], row.id);
      });
    }
    return leaves;
  }
  const box = (path) => pairs().boxOf.get(path);
  const pathOf = (g) => pairs().pathOf.get(g);

  // Scrolls `pane` so that `el` stands in its middle, leaving the window where it is.
  function centre(pane, el) {
    const p = pane.getBoundingClientRect();
    const e = el.getBoundingClientRect();
    pane.scrollTop += e.top - p.top - (p.height - e.height) / 2;
  }

  function reveal(id) {
    const el = document.getElementById(id);
    if (!el) return;
    for (let up = el.parentElement; up; up = up.parentElement) {
      if (up.tagName === "DETAILS") up.open = true;
    }
    for (const old of document.querySelectorAll(".sel")) old.classList.remove("sel");
    el.classList.add("sel");
    if (!fields || !fields.contains(el)) {
      el.scrollIntoView({ block: "center" });
      return;
    }
    // A tile: the panes fill the window, the row and its boxes stand in their middles.
    const split = document.querySelector(".split");
    const header = document.querySelector("header").offsetHeight;
    window.scrollBy(0, split.getBoundingClientRect().top - header);
    centre(fields, el.tagName === "DETAILS" ? el.firstElementChild : el);
    document.getElementById("leaf").textContent = id;
    const g = box(id);
    if (g) {
      g.classList.add("sel");
      centre(map, g);
    }
  }

  // Points the address at `id` and shows it; shows it again if the address points there already.
  function go(id) {
    if (decodeURIComponent(location.hash.slice(1)) === id) reveal(id);
    else location.hash = "#" + encodeURIComponent(id);
  }

  function revealHash() {
    if (location.hash.length > 1) reveal(decodeURIComponent(location.hash.slice(1)));
  }
  window.addEventListener("hashchange", revealHash);
  // After the load, when the browser has made its own scroll to the anchor.
  window.addEventListener("load", () => requestAnimationFrame(revealHash));

  // --- Tile pages: the bit map and the field tree point at each other -------------------------

  if (!fields) return;
  const status = document.getElementById("leaf");
  let lit = null;
  // Lights a leaf's boxes and writes its whole path above the tree, ready to copy.
  function light(path) {
    const g = path ? box(path) : null;
    if (lit) lit.classList.remove("hl");
    lit = g;
    if (g) g.classList.add("hl");
    if (path) status.textContent = path;
  }
  map.addEventListener("click", (event) => {
    const g = event.target.closest("#bitmap g");
    if (g) go(pathOf(g));
  });
  fields.addEventListener("click", (event) => {
    const row = event.target.closest(".r");
    if (row) go(row.id);
    const button = event.target.closest("button[data-tree]");
    if (button) {
      const open = button.dataset.tree === "open";
      for (const d of fields.querySelectorAll("details")) d.open = open;
    }
  });
  fields.addEventListener("mouseover", (event) => {
    const row = event.target.closest(".r");
    light(row ? row.id : null);
  });
  // The tooltip at the pointer: the leaf's path, and its offset, width, registers and type as its
  // row in the tree gives them.
  const tip = document.createElement("div");
  tip.id = "tip";
  tip.hidden = true;
  document.body.append(tip);
  let tipped = null;
  map.addEventListener("mousemove", (event) => {
    const g = event.target.closest("#bitmap g");
    if (!g) {
      tip.hidden = true;
      tipped = null;
      return;
    }
    if (g !== tipped) {
      tipped = g;
      const path = pathOf(g);
      status.textContent = path;
      const row = document.getElementById(path);
      const [, offset, width, regs, runtime] = row.children;
      const written = [...runtime.querySelectorAll("a")].map((a) => `${a.textContent} ${a.title}`);
      const facts = document.createElement("small");
      facts.textContent = `offset ${offset.textContent} · width ${width.textContent} · ` +
        `registers ${regs.textContent}` +
        (written.length ? ` · run-time ${written.join(", ")}` : "") +
        (row.dataset.type ? ` · ${row.dataset.type}` : "");
      const name = document.createElement("b");
      name.textContent = path;
      tip.replaceChildren(name, facts);
      tip.hidden = false;
    }
    // Beside the pointer, inside the window.
    const r = tip.getBoundingClientRect();
    tip.style.left = Math.min(event.clientX + 14, innerWidth - r.width - 4) + "px";
    tip.style.top = (event.clientY + 18 + r.height > innerHeight
      ? event.clientY - r.height - 8 : event.clientY + 18) + "px";
  });
  map.addEventListener("mouseleave", () => {
    tip.hidden = true;
    tipped = null;
  });
})();
