#!/usr/bin/env python3
"""Runs bench_dense with repetitions and prints, per kernel and size, the
median times and the ratios wrapper/direct, wrapper/eigen and loop/direct.

usage: bench/dense_ratios.py [--repetitions N] [--min-time S] [--filter REGEX]
                             [--threads N] [--json FILE] [path/to/bench_dense]

The run uses one thread unless --threads says otherwise (OMP_NUM_THREADS for
OpenBLAS's OpenMP build and for Eigen): on a busy machine a second thread
waiting for a core costs more than the few percent being measured.

A ratio above 1 means the first form is slower. The wrapper's overhead goal
is wrapper/direct <= 1.05 for n >= 64; rows breaking it are marked '!'. For
norm and scale, loop/direct < 1 where the plain loop beats the BLAS call.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
from collections import defaultdict

FORMS = ("wrapper", "direct", "eigen", "loop")
KERNELS = ("linsolv", "dot", "yPlusaMulx", "norm", "scale")


def run(binary, repetitions, min_time, bench_filter, threads):
    fd, out = tempfile.mkstemp(suffix=".json")
    os.close(fd)
    cmd = [binary, f"--benchmark_repetitions={repetitions}",
           "--benchmark_report_aggregates_only=true",
           # repetitions in random order, so that drifts of a shared machine
           # spread over all forms alike
           "--benchmark_enable_random_interleaving=true",
           f"--benchmark_min_time={min_time}",
           f"--benchmark_filter={bench_filter}",
           f"--benchmark_out={out}", "--benchmark_out_format=json"]
    env = dict(os.environ, OMP_NUM_THREADS=str(threads), OPENBLAS_NUM_THREADS=str(threads))
    subprocess.run(cmd, check=True, stdout=sys.stderr, env=env)
    with open(out) as f:
        data = json.load(f)
    os.remove(out)
    return data


def medians(data, field):
    """{(kernel, n): {form: median time in ns}}, time from `field`."""
    table = defaultdict(dict)
    for b in data["benchmarks"]:
        if b.get("aggregate_name", "median") != "median":
            continue
        kernel, form, n = b["run_name"].split("/")
        scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
        table[(kernel, int(n))][form] = b[field] * scale
    return table


def fmt_time(ns):
    if ns is None:
        return "-"
    for unit, div in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= div:
            return f"{ns / div:.3g} {unit}"
    return f"{ns:.3g} ns"


def ratio(a, b):
    return f"{a / b:.3f}" if a is not None and b else "-"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    here = os.path.dirname(os.path.abspath(__file__))
    default = os.path.join(here, "..", "build", "release", "bench", "bench_dense")
    p.add_argument("binary", nargs="?", default=default)
    p.add_argument("--repetitions", type=int, default=10)
    p.add_argument("--min-time", default="0.05", help="seconds per repetition")
    p.add_argument("--filter", default=".", help="benchmark name regex")
    p.add_argument("--threads", type=int, default=1)
    p.add_argument("--json", help="read this earlier --benchmark_out file instead of running")
    a = p.parse_args()

    if a.json:
        with open(a.json) as f:
            data = json.load(f)
    else:
        data = run(a.binary, a.repetitions, a.min_time, a.filter, a.threads)
    # One thread: CPU time, which other processes on a shared machine do not
    # inflate. Several threads: wall-clock time.
    field = "cpu_time" if a.threads == 1 else "real_time"
    table = medians(data, field)
    ctx = data.get("context", {})
    if not a.json:
        print(f"medians of {a.repetitions} repetitions of {field}, {a.threads} thread(s); ",
              end="")
    print(f"{ctx.get('num_cpus', '?')} CPUs at {ctx.get('mhz_per_cpu', '?')} MHz")
    head = (f"{'kernel':<11}{'n':>7}  {'wrapper':>10}{'direct':>10}{'eigen':>10}{'loop':>10}"
            f"  {'wrap/dir':>8}{'wrap/eig':>9}{'loop/dir':>9}")
    print(head)
    print("-" * len(head))
    # Fixed order (the run interleaves at random); unknown kernels last.
    order = [k for k in KERNELS if any(k == kk for kk, _ in table)]
    order += sorted({k for k, _ in table} - set(order))
    for kernel in order:
        for n in sorted(n for k, n in table if k == kernel):
            t = table[(kernel, n)]
            w, d, e, l = (t.get(f) for f in FORMS)
            flag = " !" if n >= 64 and w and d and w / d > 1.05 else ""
            print(f"{kernel:<11}{n:>7}  {fmt_time(w):>10}{fmt_time(d):>10}{fmt_time(e):>10}"
                  f"{fmt_time(l):>10}  {ratio(w, d):>8}{ratio(w, e):>9}{ratio(l, d):>9}{flag}")


if __name__ == "__main__":
    main()
