// The decoder page: hands the input to the decoder module (the library and the tooling layer
// compiled to WebAssembly, archspec-decoder.js) and shows what it gives back. Every check,
// message and written form is the module's; this script only moves text between it and the page.
"use strict";

(function () {
  const $ = (id) => document.getElementById(id);
  const arch = $("arch"), tile = $("tile"), form = $("form"), input = $("input");
  const error = $("error"), listing = $("listing"), findings = $("findings");
  const mapPane = $("decode-map");
  const geometry = Object.fromEntries(
    ["bitsPerRow", "bit", "pitch", "box", "gutter"].map((k) => [k, Number(mapPane.dataset[k])]));
  // What the tests and the performance notes read, in ms: the module's instantiation (load), the
  // time from the page's start until the module answers (ready), and the last decode with its
  // listing and findings (decode).
  const times = (window.decoderTimes = {});

  let module = null;
  let layout = null; // the open tile's layout: {arch, record, bits, header, leaves}
  let boxes = []; // per leaf, its group of boxes in the map
  let file = null; // {name, bytes} of the file opened, until the text is edited
  let readAs = "sparse"; // the form of the last input decoded: "bits", "bytes", "sparse", "json"

  function showError(text) {
    error.textContent = text;
  }

  // Opens the chosen generation and tile in the module: an empty configuration, its map drawn.
  function open() {
    const complaint = module.open(arch.value, tile.value);
    if (complaint) {
      showError(complaint);
      return false;
    }
    useLayout();
    return true;
  }

  // The layout of the module's tile, its map drawn, where it is not the one shown.
  function useLayout() {
    const key = arch.value + " " + tile.value;
    if (!layout || layout.key !== key) {
      layout = JSON.parse(module.layout());
      layout.key = key;
      drawMap();
      $("paths").replaceChildren(...layout.leaves.slice(0, 5000).map((leaf) => {
        const option = document.createElement("option");
        option.value = leaf.path;
        return option;
      }));
    }
  }

  // The tile's bit string in rows, a group of boxes per leaf, as on the tile pages.
  function drawMap() {
    const { bitsPerRow, bit, pitch, box, gutter } = geometry;
    const svgNs = "http://www.w3.org/2000/svg";
    const rows = Math.ceil(layout.bits / bitsPerRow);
    const width = gutter + bitsPerRow * bit;
    const svg = document.createElementNS(svgNs, "svg");
    svg.id = "bitmap";
    svg.setAttribute("class", "bitmap");
    svg.setAttribute("width", width);
    svg.setAttribute("height", rows * pitch);
    svg.setAttribute("viewBox", `0 0 ${width} ${rows * pitch}`);
    const parts = [];
    for (let r = 0; r < rows; r++) {
      parts.push(`<text class="o" x="${gutter - 4}" y="${r * pitch + 12}">` +
                 `${r * bitsPerRow}</text>`);
    }
    for (const leaf of layout.leaves) {
      let [offset, left] = [leaf.offset, leaf.width];
      parts.push("<g>");
      while (left > 0) {
        const row = Math.floor(offset / bitsPerRow), column = offset % bitsPerRow;
        const take = Math.min(left, bitsPerRow - column);
        parts.push(`<rect x="${gutter + column * bit}" y="${row * pitch}" width="${take * bit}" ` +
                   `height="${box}"/>`);
        offset += take;
        left -= take;
      }
      parts.push("</g>");
    }
    svg.innerHTML = parts.join("");
    boxes = [...svg.querySelectorAll("g")];
    mapPane.querySelector("#bitmap")?.remove();
    mapPane.append(svg);
  }

  // Takes away what showed the last configuration: after a failed decode none is shown, and the
  // module holds the empty configuration of the chosen tile, which "Set" then starts from.
  function clear() {
    listing.textContent = "";
    findings.replaceChildren();
    $("check-note").textContent = "";
    $("bits").textContent = "";
    $("summary").textContent = "";
    for (const g of mapPane.querySelectorAll("#bitmap g.on")) g.classList.remove("on");
  }

  // Shows the module's configuration: its listing, its bits, its non-zero leaves lit, and what
  // `check` finds in it.
  function show() {
    showWrites(null); // a "Set" shows its writes after this
    const text = module.listing();
    listing.textContent = text;
    const found = JSON.parse(module.check());
    findings.replaceChildren(...found.map((line) => {
      const div = document.createElement("div");
      div.textContent = line;
      return div;
    }));
    $("check-note").textContent = found.length
      ? `${found.length} ${found.length === 1 ? "leaf" : "leaves"} with a value that is no code ` +
        "of its type"
      : "Every leaf with an enumeration type holds one of its codes, or zero.";
    $("bits").textContent = module.bits();
    for (const g of mapPane.querySelectorAll("#bitmap g.on")) g.classList.remove("on");
    const lit = module.nonZero();
    for (let i = 0; i < lit.size(); i++) boxes[lit.get(i)].classList.add("on");
    if (lit.size()) {
      // The first leaf set in view, once the page is drawn.
      const first = boxes[lit.get(0)];
      requestAnimationFrame(() => {
        const top = mapPane.querySelector("#bitmap").getBoundingClientRect().top -
          mapPane.getBoundingClientRect().top + mapPane.scrollTop;
        mapPane.scrollTop = Math.max(0, top + first.getBBox().y - 60);
      });
    }
    $("summary").textContent = `${lit.size()} of ${layout.leaves.length} leaves set · ` +
      `${layout.record} of ${layout.arch}`;
    lit.delete();
  }

  // Which form the input has and what it names, told by the tool's own rule (a header means a
  // listing, "{" JSON, a text of 0 and 1 bits, other text a listing, what is not text bytes):
  // {form, generation?, tile?}. A form chosen on the page is taken as it is.
  function inspect(bytes) {
    const told = JSON.parse(module.inspect(bytes));
    if (form.value !== "auto") told.form = form.value;
    return told;
  }

  function decode() {
    if (!module) return;
    showError("");
    $("port-report").textContent = "";
    const [name, bytes] = file ? [file.name, file.bytes]
      : ["input", new TextEncoder().encode(input.value)];
    if (!open()) return;
    const told = inspect(bytes);
    const kind = told.form;
    {
      // A listing's header, or the JSON's arch and tile, choose the generation and tile, where
      // the page offers them.
      const header = told.generation === undefined ? null : told;
      if (header) {
        for (const [select, wanted] of [[arch, header.generation], [tile, header.tile]]) {
          const option = [...select.options].find(
            (o) => o.value.toLowerCase() === wanted.toLowerCase());
          if (option) select.value = option.value;
        }
        if (!open()) return;
      }
    }
    const started = performance.now();
    // The module refuses input past the size the tool reads, in the tool's words.
    const complaint = module.decode(kind, bytes, name);
    if (complaint) {
      open(); // the module keeps nothing of a configuration that was refused
      clear();
      showError(complaint);
      return;
    }
    readAs = kind;
    show();
    times.decode = performance.now() - started;
  }

  function setLeaf() {
    if (!module) return;
    showError("");
    const complaint = module.patch(`${$("path").value} = ${$("value").value}\n`, "change");
    if (complaint) {
      showError(complaint);
      return;
    }
    show();
    showWrites(JSON.parse(module.patchWrites()));
    // The input now holds what was set, so that "Decode" reads the configuration shown: in the
    // form it was read in where that is text, else as a listing (whose header names the tile).
    if (readAs === "bits") {
      input.value = module.bits();
    } else {
      input.value = module.listing();
      readAs = "sparse";
      if (form.value === "bytes") form.value = "auto";
    }
    file = null;
    $("source").textContent = "";
  }

  // The configuration shown, moved to the generation chosen beside "Port" by the module's port:
  // what moved becomes the configuration shown, under that generation, with the port's report.
  function port() {
    if (!module) return;
    showError("");
    const result = JSON.parse(module.port($("port-arch").value));
    if (result.error) {
      showError(result.error);
      return;
    }
    arch.value = $("port-arch").value;
    useLayout();
    show();
    $("port-report").textContent = result.report || "Every leaf moved exactly.";
    // The input holds the port, which "Decode" reads again by its header.
    input.value = module.listing();
    readAs = "sparse";
    if (form.value !== "auto") form.value = "auto";
    file = null;
    $("source").textContent = "";
  }

  // What the last "Set" costs the running unit, as the module gives it (`archspec writes --format
  // json` of the configuration before and after): the run-time register writes that make the
  // change, and the changed leaves that need the configuration loaded. Null clears it.
  function showWrites(result) {
    const out = $("writes");
    out.replaceChildren();
    if (!result) return;
    const text = (tag, content, className) => {
      const e = document.createElement(tag);
      e.textContent = content;
      if (className) e.className = className;
      return e;
    };
    if (result.writes.length) {
      const rows = result.writes.map((w) => {
        const tr = document.createElement("tr");
        tr.append(text("td", String(w.register), w.inferred_number ? "inf" : ""),
                  text("td", w.name), text("td", "0x" + w.value.toString(16)), text("td", w.path));
        return tr;
      });
      const table = document.createElement("table");
      table.className = "plain writes";
      const head = document.createElement("tr");
      head.append(...["register", "name", "value", "path"].map((h) => text("th", h)));
      table.createTHead().append(head);
      table.createTBody().append(...rows);
      out.append(text("p", `${result.writes.length === 1 ? "One write" : result.writes.length +
        " writes"} make the change while the unit runs:`), table);
    }
    if (result.load.length) {
      const list = document.createElement("ul");
      list.append(...result.load.map((leaf) => text("li", leaf.path)));
      out.append(text("p", "needs the configuration loaded: no run-time register writes these " +
        "changed leaves"), list);
    }
    if (!result.writes.length && !result.load.length) {
      out.append(text("p", "The leaf held that value already: nothing to write."));
    }
  }

  function save(data, suffix, type) {
    const a = document.createElement("a");
    a.href = URL.createObjectURL(new Blob([data], { type }));
    a.download = `${tile.value}-${arch.value}.${suffix}`;
    a.click();
    setTimeout(() => URL.revokeObjectURL(a.href), 1000);
  }

  // The leaf under the pointer, named at the pointer with its place, type and value.
  const tip = document.createElement("div");
  tip.id = "tip";
  tip.hidden = true;
  document.body.append(tip);
  mapPane.addEventListener("mousemove", (event) => {
    const g = event.target.closest("#bitmap g");
    if (!g) {
      tip.hidden = true;
      return;
    }
    const index = boxes.indexOf(g);
    const leaf = layout.leaves[index];
    const regs = leaf.reg_hi === undefined ? leaf.reg_lo : `${leaf.reg_lo}-${leaf.reg_hi}`;
    const name = document.createElement("b");
    name.textContent = leaf.path;
    const facts = document.createElement("small");
    facts.textContent = `offset ${leaf.offset} · width ${leaf.width} · registers ${regs}` +
      (leaf.type ? ` · ${leaf.type}` : "") + ` · value ${module.valueOf(index)}`;
    tip.replaceChildren(name, facts);
    tip.hidden = false;
    tip.style.left = Math.min(event.clientX + 14, innerWidth - tip.offsetWidth - 4) + "px";
    tip.style.top = event.clientY + 18 + "px";
  });
  mapPane.addEventListener("mouseleave", () => (tip.hidden = true));
  mapPane.addEventListener("click", (event) => {
    const g = event.target.closest("#bitmap g");
    if (g) $("path").value = layout.leaves[boxes.indexOf(g)].path;
  });

  $("decode").addEventListener("click", decode);
  $("set").addEventListener("click", setLeaf);
  $("port").addEventListener("click", port);
  input.addEventListener("input", () => {
    file = null;
    $("source").textContent = "";
  });
  $("file").addEventListener("change", async (event) => {
    const chosen = event.target.files[0];
    if (!chosen) return;
    file = { name: chosen.name, bytes: new Uint8Array(await chosen.arrayBuffer()) };
    input.value = "";
    $("source").textContent = `${chosen.name}, ${file.bytes.length} bytes`;
    decode();
  });
  for (const select of [arch, tile]) {
    select.addEventListener("change", () => {
      if (module && open()) show();
    });
  }
  $("save-bits").addEventListener("click", () => module && save(module.bits(), "bits",
                                                                 "text/plain"));
  $("save-bytes").addEventListener("click", () => module && save(module.bytes().slice(), "bin",
                                                                  "application/octet-stream"));
  $("save-listing").addEventListener("click", () => module && save(module.listing(), "sparse",
                                                                    "text/plain"));

  if (typeof ArchspecDecoder !== "function") {
    showError("The decoder module is not part of this site.");
    return;
  }
  const started = performance.now();
  ArchspecDecoder().then((loaded) => {
    times.load = performance.now() - started;
    times.ready = performance.now();
    module = loaded;
    if (open()) show();
    document.body.dataset.decoder = "ready";
  });
})();
