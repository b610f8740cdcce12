#!/usr/bin/env python3
"""`archspec get TYPE` on every generation against the constants' own answers: each enumeration
type lists exactly the enumerants of that type that the generation answers, with their codes and
inferred marks, and a type's fields are those of the table of field types."""

import json
import subprocess
import sys


def run(archspec, *args):
    done = subprocess.run([archspec, *args], capture_output=True, text=True, check=True)
    return json.loads(done.stdout)


def main(archspec):
    failures, checked = [], 0
    for row in run(archspec, "archs", "--json"):
        if not row["selectable"]:
            continue
        arch = row["product"]
        expected = {}
        for entry in run(archspec, "constants", "--arch", arch, "--answered", "--json"):
            if entry["kind"] == "enumerant":
                expected.setdefault(entry["type"], {})[entry["name"]] = (entry["value"],
                                                                        entry["inferred"])
        answers = run(archspec, "get", "--arch", arch, "--json", *sorted(expected))
        for answer in answers:
            got = {n["name"]: (n["code"], n["inferred"]) for n in answer["names"]}
            if got != expected[answer["name"]]:
                failures.append(f"{arch} {answer['name']}: names differ from the constants'")
            codes = [n["code"] for n in answer["names"]]
            if codes != sorted(codes):
                failures.append(f"{arch} {answer['name']}: names not in the order of codes")
            checked += 1
        if len(answers) != len(expected):
            failures.append(f"{arch}: {len(answers)} types answered, {len(expected)} expected")
    opcode = run(archspec, "get", "--arch", "mk44", "--json", "stage_opcode_t")[0]["fields"]
    if {f["path"] for f in opcode["pcu"]} != {"simd_structIn[][].stage_opcode",
                                              "simd_last_stage_structIn[][].stage_opcode"}:
        failures.append(f"mk44 stage_opcode_t: fields {opcode['pcu']}")
    for failure in failures:
        print(failure)
    print(f"types_answered: {checked - len(failures)} passed, {len(failures)} failed")
    return 1 if failures or checked == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
