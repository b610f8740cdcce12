"""The decoder page: a configuration read in the browser by the project's own code.

The page is a form over the decoder module (archspec-decoder.js, the library and the tooling layer
compiled to WebAssembly, written beside the page): decode.js hands it the input and shows what it
gives back. The page itself knows only the generations and tiles to offer and the geometry of the
bit map, which is the tile pages' own.
"""

from html import escape

import tile_page
from pages import frame

MODULE = "archspec-decoder.js"


def body(facts, module_built):
    archs = "".join(f'<option value="{escape(g.product)}">{escape(g.product)} '
                    f'({escape(g.code)}, records of {escape(g.records)})</option>'
                    for g in facts.columns if g.records)
    tiles = "".join(f'<option value="{escape(t)}">{escape(t.upper())}</option>'
                    for t in dict.fromkeys(layout.tile for layout in facts.tiles))
    missing = "" if module_built else (
        '<p class="notice" id="no-module">This site was built without the decoder module: '
        'emscripten was not installed where it was built (scripts/setup installs it).</p>')
    geometry = (f'data-bits-per-row="{tile_page.BITS_PER_ROW}" data-bit="{tile_page.BIT}" '
                f'data-pitch="{tile_page.PITCH}" data-box="{tile_page.BOX}" '
                f'data-gutter="{tile_page.GUTTER}"')
    return f"""<h1>Decoder</h1>
<p class="lead">Reads a configuration of one tile as <code>archspec decode --format sparse</code>
reads it, with the same code compiled for the browser: the text form (<code>0</code> and
<code>1</code>), the packed bytes, or a sparse listing, whose header chooses the generation and
tile. Nothing leaves the page. Set a leaf by its path and a value or an enumerant's name (the page
then says what the change costs a running unit, as <code>archspec writes</code> does: the run-time
register writes that make it, or the leaves that need the configuration loaded), save
the result as bits, bytes or a listing, or port it to another generation as <code>archspec port
--partial</code> does: codes by name, with the report of every leaf that did not move exactly.</p>
{missing}
<div class="decoder">
<section class="input" aria-label="input">
<div class="row">
<label>Generation <select id="arch">{archs}</select></label>
<label>Tile <select id="tile">{tiles}</select></label>
<label>Form <select id="form"><option value="auto">as it reads</option>
<option value="bits">bits (text)</option><option value="bytes">bytes (packed)</option>
<option value="sparse">sparse listing</option></select></label>
</div>
<textarea id="input" rows="10" spellcheck="false" autocomplete="off"
placeholder="Paste the bits (0 and 1) or a sparse listing, or open a file"></textarea>
<div class="row">
<button type="button" id="decode">Decode</button>
<label class="file">Open a file <input type="file" id="file"></label>
<span id="source"></span>
</div>
<div id="error" role="alert"></div>
<h2>Set a leaf</h2>
<div class="row">
<input id="path" type="text" spellcheck="false" placeholder="simd_structIn[0][4].stage_opcode"
aria-label="path" list="paths">
<input id="value" type="text" spellcheck="false" placeholder="26, 0x1a or a name"
aria-label="value">
<button type="button" id="set">Set</button>
</div>
<datalist id="paths"></datalist>
<div id="writes" aria-live="polite"></div>
<h2>Findings</h2>
<p id="check-note"></p>
<div id="findings"></div>
<h2>Save</h2>
<div class="row">
<button type="button" id="save-bits">Bits</button>
<button type="button" id="save-bytes">Bytes</button>
<button type="button" id="save-listing">Listing</button>
</div>
<div class="row">
<label>Port to <select id="port-arch">{archs}</select></label>
<button type="button" id="port">Port</button>
</div>
<pre id="port-report" tabindex="0"></pre>
<details><summary>The bits</summary><pre id="bits" tabindex="0"></pre></details>
</section>
<section class="output" aria-label="listing">
<h2>Listing <small id="summary"></small></h2>
<pre id="listing" tabindex="0"></pre>
</section>
</div>
<section class="map decoded" id="decode-map" aria-label="bit map" tabindex="0" {geometry}>
<div class="ruler-bar">{tile_page.ruler_svg()}</div>
</section>
"""


def decode_page(facts, module_built):
    scripts = (f'<script src="{MODULE}" defer></script>' if module_built else "") + \
        '<script src="decode.js" defer></script>'
    page = frame("Decoder", "decode.html", body(facts, module_built))
    return page.replace("</head>", scripts + "\n</head>", 1)
