#!/usr/bin/env python3
"""Runs bench_triplets with repetitions and prints, per input, the median ns
per triplet of qvarray, CXSparse (cs_dl_compress + cs_dl_dupl) and Eigen
(64- and 32-bit indices), and qvarray's ratio to each peer.

usage: bench/triplet_ratios.py [--repetitions N] [--min-time S] [--filter REGEX]
                               [--json FILE] [path/to/bench_triplets]

A ratio above 1 means qvarray is slower than the peer. Repetitions run in
random order, so that drifts of a shared machine spread over all forms. The
benchmark compares the results with the peers' before it times anything.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
from collections import defaultdict

IMPLS = {"BM_Sparse": "qvarray", "BM_CXSparse": "cxsparse",
         "BM_Eigen<std::int64_t>": "eigen64", "BM_Eigen<int>": "eigen32"}
INPUTS = ("fe_1e6", "random_1e6", "fe_1e7", "random_1e7")


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
    default = os.path.join(here, "..", "build", "release", "bench", "bench_triplets")
    p.add_argument("binary", nargs="?", default=default)
    p.add_argument("--repetitions", type=int, default=7)
    p.add_argument("--min-time", default="0.5", help="seconds per repetition")
    p.add_argument("--filter", default=".")
    p.add_argument("--json", help="read results from this file instead of running")
    a = p.parse_args()
    data = json.load(open(a.json)) if a.json else run(a.binary, a.repetitions, a.min_time, a.filter)

    ns = defaultdict(dict)  # input -> impl -> median ns per triplet
    for b in data["benchmarks"]:
        if b.get("aggregate_name") != "median" or b.get("error_occurred"):
            continue
        impl = IMPLS.get(b["run_name"].split("/")[0])
        if impl:
            ns[b["label"]][impl] = b["ns_per_triplet"]

    print("ns per triplet, medians; ratio = qvarray / peer (above 1: qvarray slower)")
    print(f"{'input':<11} {'qvarray':>8} {'cxsparse':>8} {'eigen64':>8} {'eigen32':>8} "
          f"{'/cxs':>6} {'/eig64':>6} {'/eig32':>6}")
    for name in INPUTS:
        r = ns.get(name)
        if not r:
            continue
        cells = [f"{r[i]:8.2f}" if i in r else f"{'-':>8}"
                 for i in ("qvarray", "cxsparse", "eigen64", "eigen32")]
        ratios = [f"{r['qvarray'] / r[i]:6.3f}" if "qvarray" in r and i in r else f"{'-':>6}"
                  for i in ("cxsparse", "eigen64", "eigen32")]
        print(f"{name:<11} " + " ".join(cells) + " " + " ".join(ratios))


if __name__ == "__main__":
    main()
