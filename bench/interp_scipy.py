#!/usr/bin/python3
"""Interpolation of 10^6 points: the library (bench_interp) against
scipy.interpolate on the same data, in one session.

Writes the data (fixed seed) and scipy's results to a temporary directory,
then alternates ROUNDS times: scipy's evaluations (each timed once per round)
and one run of bench_interp (which checks its results against scipy's before
timing, see bench_interp.cpp). Prints per case the medians and the ratio
qvarray / scipy (below 1: the library is faster). Both on one thread, by
CPU time (the machine may be shared).

usage: bench/interp_scipy.py [--rounds N] [BUILD_DIR]   (default build/release)
"""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np
from scipy.interpolate import LinearNDInterpolator, RegularGridInterpolator
from scipy.spatial import cKDTree


def f(x, y, z):
    return np.sin(3 * x) * np.cos(2 * y) + z * z


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("build", nargs="?", default="build/release")
    a = ap.parse_args()
    binary = os.path.join(a.build, "bench", "bench_interp")
    tmp = tempfile.mkdtemp()

    def save(name, arr):
        np.asarray(arr, dtype="<f8").tofile(os.path.join(tmp, name + ".f64"))

    rng = np.random.default_rng(2026)
    # 100^3 grid; 10^6 points, column after column (x's, then y's, then z's).
    ax = np.linspace(0, 1, 100)
    X, Y, Z = np.meshgrid(ax, ax, ax, indexing="ij")
    grid_values = f(X, Y, Z)
    gq = rng.uniform(0, 1, (10**6, 3))
    save("grid_axes", np.concatenate([ax, ax, ax]))
    save("grid_values", grid_values.ravel(order="F"))  # first axis fastest
    save("grid_queries", gq.ravel(order="F"))
    # 10^5 scattered points, 10^6 queries.
    sp = rng.uniform(0, 1, (10**5, 3))
    sv = f(sp[:, 0], sp[:, 1], sp[:, 2])
    sq = rng.uniform(0.05, 0.95, (10**6, 3))  # inside the hull
    save("scattered_points", sp.ravel(order="F"))
    save("scattered_values", sv)
    save("scattered_queries", sq.ravel(order="F"))

    print("setting up scipy (Delaunay of 10^5 points) ...", file=sys.stderr, flush=True)
    peers = {
        "grid_1e6/linear": (RegularGridInterpolator((ax, ax, ax), grid_values, method="linear"), gq),
        "grid_1e6/neighbor": (RegularGridInterpolator((ax, ax, ax), grid_values, method="nearest"), gq),
        "scattered_1e5/linear": (LinearNDInterpolator(sp, sv), sq),
    }
    tree = cKDTree(sp)
    calls = {k: (lambda p=p, q=q: p(q)) for k, (p, q) in peers.items()}
    calls["scattered_1e5/neighbor"] = lambda: sv[tree.query(sq)[1]]
    for k, call in calls.items():
        kind, method = k.split("/")
        save(kind.split("_")[0] + "_" + method, call())

    scipy_times = {k: [] for k in calls}
    ours = {}
    env = dict(os.environ, QV_INTERP_DATA=tmp, OMP_NUM_THREADS="1")
    for r in range(a.rounds):
        for k, call in calls.items():
            t = time.process_time()
            call()
            scipy_times[k].append(time.process_time() - t)
        out = os.path.join(tmp, "out.json")
        subprocess.run([binary, "--benchmark_repetitions=3", "--benchmark_min_time=0.5",
                        "--benchmark_enable_random_interleaving=true",
                        f"--benchmark_out={out}", "--benchmark_out_format=json"],
                       check=True, stdout=sys.stderr, env=env)
        with open(out) as fh:
            for b in json.load(fh)["benchmarks"]:
                if b.get("error_occurred"):
                    sys.exit(f"{b['name']}: {b.get('error_message')}")
                if b.get("run_type") == "iteration":
                    case = b["name"].rsplit("/", 1)[0]
                    ours.setdefault(case, []).append(b["cpu_time"] / 1e3)  # ms → s
                    ours[case + ":diff"] = b.get("diff", "")

    print(f"{'case':28} {'qvarray s':>10} {'scipy s':>10} {'ratio':>7}  check vs scipy")
    for case in sorted(c for c in ours if ":" not in c):
        q = statistics.median(ours[case])
        if case in scipy_times:
            s = statistics.median(scipy_times[case])
            print(f"{case:28} {q:10.4f} {s:10.4f} {q / s:7.3f}  diff {ours[case + ':diff']}")
        else:
            print(f"{case:28} {q:10.4f} {'-':>10} {'-':>7}  (no peer)")


if __name__ == "__main__":
    main()
