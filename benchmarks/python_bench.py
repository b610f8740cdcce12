#!/usr/bin/env python3
"""What the Python package costs, on the largest record (rye's AGCU, 46,608 bits, 6,073 leaves):
reading bytes into a tile, nonzero() of a dense configuration, to_dict(), 1,000 assignments by
path, to_bytes(), and importing the package. Prints the best of several runs of each.

    PYTHONPATH=BUILD_DIR/python /usr/bin/python3 benchmarks/python_bench.py
"""
import random
import subprocess
import sys
import time
import timeit

import archspec


def best(statement, number, repeat=7):
    """Seconds of one run of `statement`, the best of `repeat` batches of `number`."""
    return min(timeit.repeat(statement, number=number, repeat=repeat)) / number


def main():
    g = archspec.generation("mk44")
    dense = g.tile("agcu")
    rng = random.Random(1)
    for leaf in dense.layout():
        dense[leaf.path] = rng.getrandbits(leaf.width) | 1 if leaf.width else 0
    data = dense.to_bytes()
    paths = [leaf.path for leaf in dense.layout()][:1000]
    target = g.tile("agcu")

    def assign():
        for path in paths:
            target[path] = 1

    rows = [
        ("bytes to a tile (tile_from_bytes)", best(lambda: g.tile_from_bytes("agcu", data), 200),
         50e-6),
        ("nonzero() of a dense configuration", best(dense.nonzero, 50), 1e-3),
        ("to_dict()", best(dense.to_dict, 50), 1e-3),
        ("1,000 assignments by path", best(assign, 20), 2e-3),
        ("to_bytes()", best(dense.to_bytes, 200), 50e-6),
    ]
    python = [sys.executable, "-c"]
    bare = min(_timed(python + ["pass"]) for _ in range(5))
    imported = min(_timed(python + ["import archspec"]) for _ in range(5))
    rows.append(("import archspec (less Python's own start)", imported - bare, 0.3))
    print(f"{g.product} {dense.record}: {dense.bits} bits, {len(dense.layout())} leaves")
    for what, seconds, goal in rows:
        shown = f"{seconds * 1e6:9.1f} µs" if seconds < 1e-3 else f"{seconds * 1e3:9.2f} ms"
        print(f"  {what:<45} {shown}   goal {goal * 1e6:.0f} µs" + ("" if seconds <= goal
                                                                    else "   ABOVE GOAL"))


def _timed(command):
    start = time.perf_counter()
    subprocess.run(command, check=True)
    return time.perf_counter() - start


if __name__ == "__main__":
    main()
