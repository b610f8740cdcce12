"""How a PCU context's pipeline is counted: `pcu_num_stages` against the stage records of the
tile. Each context runs the stages of its arrays in this order: on the generations that have them,
the small GEMM stages (`simd_gemm_stage_structIn`), then the first stages (`simd_structIn`), then
the last stage (`simd_last_stage_structIn`); `pcu_num_stages` counts them all. The counts come from
the tool's layout of the tile and its answers, and a generation whose count disagrees with its
records stops the site's build.
"""

from html import escape

# (array of a context's stages, what its stages are called, the constant that counts them)
STAGES = (("simd_gemm_stage_structIn", "small GEMM stages", "pcu_num_gemm_stages"),
          ("simd_structIn", "first stages", "pcu_num_first_stages"),
          ("simd_last_stage_structIn", "last stage", None))


def stage_runs(layout):
    """[(array, stages per context, name, constant)] of the stage arrays the tile has, in the order
    a context runs them, and the number of contexts."""
    branches = {b["path"]: b for b in layout.branches}
    runs = [(array, branches[f"{array}[0]"]["elements"], name, constant)
            for array, name, constant in STAGES if f"{array}[0]" in branches]
    contexts = branches["simd_structIn"]["elements"] if "simd_structIn" in branches else 0
    return runs, contexts


def answer(facts, name, product):
    value = facts.constant(name).values.get(product)
    return value if isinstance(value, int) and not isinstance(value, bool) else None


def section(layout, facts):
    """The pipeline's section of a PCU page: per generation the page serves, how its
    pcu_num_stages is made of the records' stages; empty for another tile."""
    if layout.tile != "pcu":
        return ""
    runs, contexts = stage_runs(layout)
    total = sum(count for _, count, _, _ in runs)
    parts = []
    for array, count, name, _ in runs:
        last = f"0–{count - 1}" if count > 1 else "0"
        parts.append(f"{count} {escape(name if count > 1 or name == 'last stage' else name[:-1])} "
                     f"(<code>{escape(array)}[c][{last}]</code>)")
    items = []
    for g in layout.serves:
        stages = answer(facts, "pcu_num_stages", g.product)
        if stages != total:
            raise ValueError(f"{g.product}: pcu_num_stages is {stages}, while a context of "
                             f"{layout.record} has {total} stages")
        counted = [f"<code>{c}</code> = {answer(facts, c, g.product)}" for _, _, _, c in runs
                   if c and answer(facts, c, g.product) is not None]
        common = answer(facts, "pcu_num_cmn_stages", g.product)
        if common is not None:
            counted.append(f"<code>pcu_num_cmn_stages</code> = {common}, the first stages and "
                           f"the last")
        note = f"; {', '.join(counted)}" if counted else ""
        items.append(f"<li>{escape(g.product)}: <code>pcu_num_stages</code> = {stages}{note}</li>")
    return (f'<section id="pipeline"><h2>Pipeline</h2><p>Each of the {contexts} contexts runs '
            f'{total} stages, in this order: {", then ".join(parts)}. '
            f'<code>pcu_num_stages</code> counts them all:</p><ul>{"".join(items)}</ul></section>')
