#!/usr/bin/env python3
"""Runs bench_busy several times and prints, per parallel path, the medians of
one call on 1 and on 2 threads, on an idle machine and beside one busy-loop
process per core, with the 2-thread/1-thread ratios (each ratio is measured
in one run, the 1- and 2-thread batches interleaved).

usage: bench/busy_table.py [--runs N] [--filter REGEX] [--before OLD_BINARY]
                           [path/to/bench_busy]

With --before, an older build of the same benchmark runs in turn with this
one (run 1 old, run 1 new, run 2 old, ...) and both tables are printed. The
"idle" columns mean what the machine gives: check `uptime` first.
"""
import argparse
import json
import os
import statistics
import subprocess
import sys
from collections import defaultdict


def run(binary, bench_filter):
    cmd = [binary, f"--benchmark_filter={bench_filter}", "--benchmark_format=json"]
    out = subprocess.run(cmd, check=True, capture_output=True, text=True).stdout
    return json.loads(out[out.index("{"):])


def collect(results, data):
    for b in data["benchmarks"]:
        if "error_occurred" in b and b["error_occurred"]:
            continue
        # busy/<path>/<size>/<idle|busy>/iterations:…
        parts = b["name"].split("/")
        path, state = "/".join(parts[1:3]), parts[3]
        for key in ("t1_us", "t2_us", "ratio"):
            results[path][state + key].append(b[key])


def table(title, results):
    print(f"\n{title}")
    print(f"{'path':18} {'1 idle':>10} {'2 idle':>10} {'ratio':>6}  "
          f"{'1 busy':>10} {'2 busy':>10} {'ratio':>6}   (µs per call, medians)")
    for path in results:
        r = results[path]
        def med(key):
            return statistics.median(r[key]) if r[key] else float("nan")
        print(f"{path:18} {med('idlet1_us'):10.1f} {med('idlet2_us'):10.1f} {med('idleratio'):6.2f}  "
              f"{med('busyt1_us'):10.1f} {med('busyt2_us'):10.1f} {med('busyratio'):6.2f}")


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    here = os.path.dirname(os.path.abspath(__file__))
    p.add_argument("binary", nargs="?",
                   default=os.path.join(here, "..", "build", "release", "bench", "bench_busy"))
    p.add_argument("--runs", type=int, default=3)
    p.add_argument("--filter", default=".")
    p.add_argument("--before", help="an older bench_busy to run in turn with this one")
    a = p.parse_args()
    binaries = ([("before", a.before)] if a.before else []) + [("after", a.binary)]
    results = {name: defaultdict(lambda: defaultdict(list)) for name, _ in binaries}
    for k in range(a.runs):
        for name, binary in binaries:
            print(f"run {k + 1}/{a.runs}: {name}", file=sys.stderr, flush=True)
            collect(results[name], run(binary, a.filter))
    for name, _ in binaries:
        table(name if a.before else "bench_busy", results[name])


if __name__ == "__main__":
    main()
