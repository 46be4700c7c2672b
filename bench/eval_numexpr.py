#!/usr/bin/python3
"""Formulas over 10^3 and 10^6 points: the library (bench_eval, with muParser
and a fused loop in the same program) against numexpr (1 and 2 threads) and
numpy on the same points, in one session.

Writes the points (fixed seed) and numexpr's and numpy's results to a
temporary directory, then alternates ROUNDS times: each peer case timed once
(calls repeated for MIN_TIME seconds) and one run of bench_eval with
QV_EVAL_DATA set (it checks every result, numexpr's and numpy's included,
against its fused loop before timing). Times: 1 thread by CPU time, 2 threads
by wall-clock time, as bench_eval. Prints per case the medians and the ratio
qvarray / peer (below 1: the library is faster), and with --json writes all
rows as one benchmark output that bench/summary.py reads (it runs this
script for bench_eval).

With --busy, one spinning process per core runs beside the whole session
(the library's 2-thread path should then stay near its 1-thread time).

usage: bench/eval_numexpr.py [--rounds N] [--min-time S] [--filter REGEX]
                             [--json FILE] [--busy] [BUILD_DIR]   (default build/release)
"""
import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

import numexpr as ne
import numpy as np

N = 10**6
FORMULAS = {  # name: (numexpr text, numpy form)
    "sincos": ("sin(x)**2+cos(x)**2", lambda x, y: np.sin(x) ** 2 + np.cos(x) ** 2),
    "polyexp": ("x*y+3*x**2-exp(-x/y)", lambda x, y: x * y + 3 * x ** 2 - np.exp(-x / y)),
    "hypotstep": ("sqrt(x**2+y**2)*(x>0)",
                  lambda x, y: np.sqrt(x ** 2 + y ** 2) * (x > 0)),
    "rational": ("(x+1)*(x-1)/(x*x+1)", lambda x, y: (x + 1) * (x - 1) / (x * x + 1)),
}


def peer_calls(x, y):
    """{(formula, n, threads, impl): call}; numexpr compiled once (NumExpr),
    as a program evaluating a formula many times would."""
    calls = {}
    for name, (text, npf) in FORMULAS.items():
        names = ["x", "y"] if "y" in text else ["x"]  # the names the text uses
        ex = ne.NumExpr(text, signature=[(v, np.double) for v in names])
        for n in (1000, N):
            xs, ys = x[:n], y[:n]
            args = (xs, ys)[:len(names)]
            for t in (1, 2):
                calls[(name, n, t, "numexpr")] = (t, lambda ex=ex, args=args: ex(*args))
            calls[(name, n, 1, "numpy")] = (1, lambda f=npf, xs=xs, ys=ys: f(xs, ys))
    return calls


def time_call(threads, call, min_time):
    """Seconds per call: CPU time on 1 thread, wall-clock time on 2."""
    ne.set_num_threads(threads)
    clock = time.process_time if threads == 1 else time.perf_counter
    call()
    k, start = 0, clock()
    while True:
        call()
        k += 1
        elapsed = clock() - start
        if elapsed >= min_time:
            return elapsed / k


def case_name(name, n, threads):
    return f"{name}/{n}/threads:{threads}"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--min-time", type=float, default=0.1)
    ap.add_argument("--filter", default=".")
    ap.add_argument("--json", help="write the merged rows here (benchmark JSON)")
    ap.add_argument("--busy", action="store_true",
                    help="keep every core busy with a spinning process of our own meanwhile")
    ap.add_argument("build", nargs="?", default="build/release")
    a = ap.parse_args()
    binary = os.path.join(a.build, "bench", "bench_eval")
    tmp = tempfile.mkdtemp()

    def save(name, arr):
        np.asarray(arr, dtype="<f8").tofile(os.path.join(tmp, name + ".f64"))

    rng = np.random.default_rng(2026)
    x = rng.uniform(-2.0, 2.0, N)
    y = rng.uniform(0.5, 2.5, N)
    save("x", x)
    save("y", y)
    calls = peer_calls(x, y)
    ne.set_num_threads(1)
    for name in FORMULAS:
        save("numexpr_" + name, calls[(name, N, 1, "numexpr")][1]())
        save("numpy_" + name, calls[(name, N, 1, "numpy")][1]())
    wanted = re.compile(a.filter)
    calls = {k: v for k, v in calls.items() if wanted.search(case_name(*k[:3]) + "/" + k[3])}

    spinners = []
    if a.busy:
        spinners = [subprocess.Popen([sys.executable, "-c", "while True: pass"])
                    for _ in range(os.cpu_count() or 1)]
    try:
        measure(a, binary, tmp, calls)
    finally:
        for p in spinners:
            p.kill()
            p.wait()


def measure(a, binary, tmp, calls):
    """The rounds, the table and the JSON of main()."""
    peer_times = {k: [] for k in calls}
    ours, info, context = {}, {}, {}
    env = dict(os.environ, QV_EVAL_DATA=tmp)
    out = os.path.join(tmp, "out.json")
    for r in range(a.rounds):
        for k, (threads, call) in calls.items():
            peer_times[k].append(time_call(threads, call, a.min_time) * 1e9)
        print(f"round {r + 1}/{a.rounds}: bench_eval ...", file=sys.stderr, flush=True)
        subprocess.run([binary, "--benchmark_repetitions=1", f"--benchmark_min_time={a.min_time}",
                        f"--benchmark_filter={a.filter}",
                        "--benchmark_enable_random_interleaving=true",
                        f"--benchmark_out={out}", "--benchmark_out_format=json"],
                       check=True, stdout=sys.stderr, env=env)
        with open(out) as fh:
            data = json.load(fh)
        context = data.get("context", context)
        for b in data["benchmarks"]:
            if b.get("run_type") != "iteration":
                continue
            key = b["run_name"]
            if b.get("error_occurred"):
                info[key] = {"error_message": b.get("error_message", "error"), "error_occurred": True}
                continue
            wall = key.endswith("/real_time")
            scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
            ours.setdefault(key, []).append(b["real_time" if wall else "cpu_time"] * scale)
            info[key] = {k: b[k] for k in ("diff", "tol", "diff_numexpr", "diff_numpy") if k in b}

    rows = []

    impls = ("qvarray", "fused", "muparser", "numexpr", "numpy")
    order = {name: i for i, name in enumerate(FORMULAS)}

    def case_key(case):  # formula, points, threads
        parts = case.split("/")
        return order[parts[0]], int(parts[1]), parts[2]

    def add(run_name, times, extra):
        med = statistics.median(times)
        cv = statistics.pstdev(times) / statistics.mean(times) if len(times) > 1 else 0.0
        case, impl = run_name.split("/real_time")[0].rsplit("/", 1)
        f, n, t = case_key(case)
        place = {"family_index": (f * 2 + (n > 1000)) * 2 + (t != "threads:1"),
                 "per_family_instance_index": impls.index(impl)}
        for agg, v in (("median", med), ("cv", cv)):
            rows.append(dict({"name": run_name + "_" + agg, "run_name": run_name, "run_type": "aggregate",
                              "aggregate_name": agg, "time_unit": "ns", "real_time": v, "cpu_time": v},
                             **place, **extra))
        return med

    medians = {}
    for key, times in ours.items():
        medians[key] = add(key, times, {k: v for k, v in info[key].items() if k in ("diff", "tol")})
    for key, i in info.items():
        if i.get("error_occurred"):
            rows.append(dict({"name": key, "run_name": key, "run_type": "iteration"}, **i))
    for (name, n, t, impl), times in peer_times.items():
        case = case_name(name, n, t)
        suffix = "/real_time" if t > 1 else ""
        diff = info.get(f"{case}/qvarray{suffix}", {}).get("diff_" + impl)
        medians[f"{case}/{impl}{suffix}"] = add(f"{case}/{impl}{suffix}", times,
                                               {"diff": diff, "tol": 1e-14} if diff is not None else {})
    # One line per case: ns per point of each implementation, then qvarray / peer.
    print(f"{'case':26}" + "".join(f"{i:>10}" for i in impls) + "   qvarray / " +
          " ".join(f"{i:>8}" for i in impls[1:]))
    cases = set(k.split("/real_time")[0].rsplit("/", 1)[0] for k in medians)
    for case in sorted(cases, key=case_key):
        n = int(case.split("/")[1])
        suffix = "/real_time" if not case.endswith("threads:1") else ""
        ns = {i: medians.get(f"{case}/{i}{suffix}") for i in impls}
        cols = "".join(f"{v / n:10.2f}" if v else f"{'-':>10}" for v in ns.values())
        q = ns["qvarray"]
        ratios = " ".join(f"{q / ns[i]:8.3f}" if q and ns[i] else f"{'-':>8}" for i in impls[1:])
        print(f"{case:26}{cols}   {'':10}{ratios}")
    print("ns per point, medians of the rounds; 1 thread by CPU time, 2 threads by wall-clock time")
    if a.json:
        with open(a.json, "w") as fh:
            json.dump({"context": context, "benchmarks": rows}, fh)


if __name__ == "__main__":
    main()
