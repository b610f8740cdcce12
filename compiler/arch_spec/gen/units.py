"""The quantity and unit of every hardware parameter (a scalar row of params.tbl), from its name's
ending and its type: the one rule that gen_units.py turns into the tooling's table and that the
reference site reads.

By the name's ending: `_width` bits in a field, `_depth` and `_fifo_size` entries, `_latency`
cycles (unless MEANINGS gives another unit), `_ctrs`, `_counters`, `_chains`, `_stages` and a
`num` word counts, `log2` and `_clog2` base-2 logarithms (the latter rounded up), `_pr` and `_reg`
the number of a register. Endings are matched as written, underscore and all (`scalarwidth` is no
`_width`); `log2` is matched where a word starts with it (`log2lanes`, `pcu_log2_num_stages`),
after a `_latency` ending (`pcu_tail_log2_latency` is the latency of the log2 operation).

A group whose title says its rows are "in cycles" gives that unit to its rows that no ending
names (the delays of "PCU: latencies and delays in cycles").

`_bandwidth` and `_throughput` take the unit that MEANINGS gives them, as does every `double`:
a double or a rate without a meaning there is an error, never a guess. A parameter that no ending
names and MEANINGS does not describe has no quantity: UNDESCRIBED lists it, for the docs.
"""

import os
import re

# quantity, unit ("" where the quantity has none, as a count), and a derived figure the faces show
# beside the value ("clock": the clock frequency, the reciprocal of a period in seconds).
MEANINGS = {
    "cycle_time": ("clock period", "seconds", "clock"),
    "agcu_load_bandwidth": ("bandwidth", "bytes per second", ""),
    "agcu_store_bandwidth": ("bandwidth", "bytes per second", ""),
    "pmu_bandwidth": ("bandwidth", "bytes per second", ""),
    "ddr_bandwidth": ("bandwidth", "bytes per second", ""),
    "pcie_bandwidth": ("bandwidth", "bytes per second", ""),
    "p2p_per_link_bandwidth": ("bandwidth", "bytes per second", ""),
    "bitfile_load_latency": ("time to load a configuration", "seconds", ""),
    # The two link latencies share one unit, which only the compiler's cost models fix.
    "p2p_local_link_latency": ("link latency", "", ""),
    "p2p_switch_link_latency": ("link latency", "", ""),
    "pcu_double_width_result_throughput": ("throughput", "results per cycle", ""),
    "pln_on_die_switch_bandwidth": ("ratio", "", ""),
    "tln_to_core_bandwidth_ratio": ("ratio", "", ""),
    # Four bits a tile, tile 0 in the low bits.
    "power_domain_for_tiles": ("power domains, 4 bits a tile", "", ""),
}
# The bit positions of the header fields of a scalar and a vector packet.
for _field in ("scalar_destid", "scalar_vif", "vec_destid", "vec_seqid", "vec_vif"):
    MEANINGS[_field + "_h"] = ("header field's high bit", "", "")
    MEANINGS[_field + "_l"] = ("header field's low bit", "", "")

# (ending, quantity, unit), tried in this order.
ENDINGS = (
    ("_latency", "latency", "cycles"),
    ("_width", "width", "bits"),
    ("_depth", "depth", "entries"),
    ("_fifo_size", "depth", "entries"),
    ("_clog2", "base-2 logarithm, rounded up", ""),
    ("_ctrs", "count", ""),
    ("_counters", "count", ""),
    ("_chains", "count", ""),
    ("_stages", "count", ""),
    ("_pr", "register number", ""),
    ("_reg", "register number", ""),
)
RATES = ("_bandwidth", "_throughput")
LOG2 = re.compile(r"(^|_)log2")
NUM = re.compile(r"(^|_)num(_|$)")
IN_CYCLES = " in cycles"

TABLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "tables")


class UnitError(Exception):
    """A parameter whose unit the rule would have to guess."""


def describe(name, cpp_type, group=""):
    """(quantity, unit, derived) of the parameter `name` of type `cpp_type` in the group titled
    `group`; None where the rule gives it none."""
    if name in MEANINGS:
        return MEANINGS[name]
    if cpp_type == "double" or name.endswith(RATES):
        raise UnitError(f"{name} ({cpp_type}): no stated meaning; expected a row of MEANINGS")
    if name.endswith("_latency"):
        return ("latency", "cycles", "")
    if LOG2.search(name):
        return ("base-2 logarithm", "", "")
    for ending, quantity, unit in ENDINGS:
        if name.endswith(ending):
            return (quantity, unit, "")
    if NUM.search(name):
        return ("count", "", "")
    if group.endswith(IN_CYCLES):
        return ("delay", "cycles", "")
    return None


def sheet(tables=TABLES):
    """{name: (group, type, (quantity, unit, derived) or None, line)} of every row of params.tbl,
    in table order. Raises genlib.TableError or UnitError."""
    import genlib
    from params import load_params

    errors = genlib.Errors()
    generations = genlib.load_generations(tables, errors)
    params = load_params(os.path.join(tables, "constants", "params.tbl"), generations, errors)
    for e in errors:
        raise e
    return {s.name: (s.group, s.type, describe(s.name, s.type, s.group), s.line)
            for s in params.scalars.values()}


def undescribed(tables=TABLES):
    """The parameters that the rule gives no quantity, in table order."""
    return [name for name, (_, _, meaning, _) in sheet(tables).items() if meaning is None]
