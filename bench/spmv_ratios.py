#!/usr/bin/env python3
"""Runs bench_spmv with repetitions and prints, per matrix, product and
thread count, the median time of each implementation with ns per non-zero,
effective GB/s, the fraction of the stream-triad bandwidth measured in the
same run (same thread count) and the ratio to Eigen (64- and 32-bit indices).

usage: bench/spmv_ratios.py [--repetitions N] [--min-time S] [--filter REGEX]
                            [--json FILE] [path/to/bench_spmv]

A ratio above 1 means qvarray is slower than the peer. Repetitions run in
random order, so that drifts of a shared machine spread over all forms.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
from collections import defaultdict


def run(binary, repetitions, min_time, bench_filter):
    fd, out = tempfile.mkstemp(suffix=".json")
    os.close(fd)
    cmd = [binary, f"--benchmark_repetitions={repetitions}",
           "--benchmark_report_aggregates_only=true",
           "--benchmark_enable_random_interleaving=true",
           f"--benchmark_min_time={min_time}",
           f"--benchmark_filter={bench_filter}",
           f"--benchmark_out={out}", "--benchmark_out_format=json"]
    subprocess.run(cmd, check=True, stdout=sys.stderr)
    with open(out) as f:
        data = json.load(f)
    os.remove(out)
    return data


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    here = os.path.dirname(os.path.abspath(__file__))
    default = os.path.join(here, "..", "build", "release", "bench", "bench_spmv")
    p.add_argument("binary", nargs="?", default=default)
    p.add_argument("--repetitions", type=int, default=7)
    p.add_argument("--min-time", default="0.3", help="seconds per repetition")
    p.add_argument("--filter", default=".")
    p.add_argument("--json", help="read results from this file instead of running")
    a = p.parse_args()
    data = json.load(open(a.json)) if a.json else run(a.binary, a.repetitions, a.min_time, a.filter)

    triad = {}
    rows = defaultdict(dict)  # (matrix, op, threads) -> impl -> (ms, ns/nnz, GB/s)
    for b in data["benchmarks"]:
        if b.get("aggregate_name", "median") != "median":
            continue
        name = b["run_name"].replace("/real_time", "")
        parts = name.split("/")
        threads = int(parts[-1].split(":")[1])
        scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b["time_unit"]]
        if parts[0] == "triad":
            triad[threads] = b["GB/s"]
            continue
        _, matrix, op, impl, _ = parts
        rows[(matrix, op, threads)][impl] = (b["real_time"] * scale, b["ns_per_nnz"], b["GB/s"])

    print("triad GB/s: " + ", ".join(f"{t} thread{'s' if t > 1 else ''} {g:.1f}"
                                      for t, g in sorted(triad.items())))
    print(f"{'matrix':<11} {'op':<4} {'thr':>3} {'impl':<8} {'ms':>8} {'ns/nnz':>7} "
          f"{'GB/s':>6} {'triad':>6} {'/eig64':>7} {'/eig32':>7}")
    for key in sorted(rows, key=lambda k: (k[0], k[1], k[2])):
        matrix, op, threads = key
        impls = rows[key]
        for impl in ("qvarray", "eigen64", "eigen32", "loop"):
            if impl not in impls:
                continue
            ms, ns, gbs = impls[impl]
            frac = f"{gbs / triad[threads]:.2f}" if threads in triad else "-"
            r64 = r32 = ""
            if impl == "qvarray":
                if "eigen64" in impls:
                    r64 = f"{ms / impls['eigen64'][0]:.3f}"
                if "eigen32" in impls:
                    r32 = f"{ms / impls['eigen32'][0]:.3f}"
            print(f"{matrix:<11} {op:<4} {threads:>3} {impl:<8} {ms:>8.3f} {ns:>7.3f} "
                  f"{gbs:>6.1f} {frac:>6} {r64:>7} {r32:>7}")


if __name__ == "__main__":
    main()
