#!/usr/bin/env python3
"""Turns benchmark runs (bench --benchmark_format=json) into the tables of docs/performance.md.

    report.py AFTER.json                  one run: time and plain passes per operation and record
    report.py BEFORE.json AFTER.json      two runs: plain passes before -> after

A ratio is the operation's time over the plain pass of the same record in the same run
(x_baseline), so that runs on machines of other speeds compare. Of repeated runs of a benchmark
(--benchmark_repetitions), the fastest counts.
"""
import json
import sys

OPERATIONS = ("Parse", "Build", "ToString", "Walk", "Register", "RegisterFloor", "CollectFields",
              "CollectFieldsFloor", "CollectPatches", "ToStringRegistered", "Names")


def load(path):
    """{record: {operation: (nanoseconds, x_baseline)}} of one run."""
    with open(path) as f:
        run = json.load(f)
    out = {}
    for b in run["benchmarks"]:
        # Benchmarks timed around the operation alone carry "/manual_time" behind their names.
        parts = b.get("run_name", b["name"]).removesuffix("/manual_time").split("/")
        if len(parts) != 3 or "x_baseline" not in b or b.get("run_type") == "aggregate":
            continue
        record, operation = f"{parts[0]}/{parts[1]}", parts[2]
        nanoseconds = b["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6}[b["time_unit"]]
        # Of repetitions (--benchmark_repetitions), the fastest: the machine's noise only adds time.
        best = out.setdefault(record, {}).get(operation)
        if best is None or nanoseconds < best[0]:
            out[record][operation] = (nanoseconds, b["x_baseline"])
    return out


def cell(value):
    if value is None:
        return "-"
    nanoseconds, ratio = value
    time = f"{nanoseconds / 1000:.1f} µs" if nanoseconds >= 1000 else f"{nanoseconds:.0f} ns"
    return f"{time} ({ratio:.1f}x)"


def main(argv):
    if len(argv) not in (2, 3):
        print(__doc__, file=sys.stderr)
        return 2
    runs = [load(p) for p in argv[1:]]
    after = runs[-1]
    operations = [op for op in OPERATIONS if any(op in ops for ops in after.values())]
    print("| record | " + " | ".join(operations) + " |")
    print("|---|" + "---:|" * len(operations))
    for record in sorted(after):
        cells = []
        for op in operations:
            if len(runs) == 1:
                cells.append(cell(after[record].get(op)))
            else:
                old, new = runs[0].get(record, {}).get(op), after[record].get(op)
                old_text = f"{old[1]:.0f}x" if old else "-"
                cells.append(f"{old_text} → {new[1]:.0f}x" if new else "-")
        print(f"| `{record}` | " + " | ".join(cells) + " |")
    worst = {op: max((ops[op][1], r) for r, ops in after.items() if op in ops) for op in operations}
    print()
    print("worst of the records: " + ", ".join(f"{op} {w[0]:.0f}x ({w[1]})"
                                            for op, w in worst.items()))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
