#!/usr/bin/python3
"""3-D Poisson solves through the PETSc bridge on 1 and 2 ranks against the
library's GMRES + SSOR on 1 and 2 threads (bench_petsc_solve), interleaved.

Every round runs, in a fresh random order, one process per configuration:
bench_petsc_solve alone (the library's solves, 1 and 2 threads) and
bench_petsc_solve under mpirun -np 1 and -np 2 (PETSc's solves, the
preconditioners' set-up and the bridge's conversions), OMP_NUM_THREADS=1 for
the ranks. Each benchmark runs once per round (the conversions a fixed count).
Prints per case the median time over the rounds, the iteration counts and
the median over the rounds of the same-round ratio qvarray / peer (below 1:
the library is faster); with --json writes the medians as one benchmark
output that bench/summary.py reads (it runs this script for
bench_petsc_solve).

usage: bench/petsc_solve_mpi.py [--rounds N] [--filter REGEX] [--unknowns LIST]
                                [--ranks LIST] [--json FILE] [BUILD_DIR]
"""
import argparse
import json
import os
import random
import re
import statistics
import subprocess
import sys
import tempfile

MPIRUN = ["mpirun", "--allow-run-as-root", "--oversubscribe", "-x", "OMP_NUM_THREADS=1",
          "-x", "OPENBLAS_NUM_THREADS=1"]


def commands(binary, ranks, bench_args, out):
    """(label, argv) of the round's processes; under mpirun only rank 0
    writes the JSON output (an MPMD launch: one context with it, one without)."""
    mine = bench_args + [f"--benchmark_out={out}", "--benchmark_out_format=json"]
    yield "library", [binary] + mine
    for p in ranks:
        argv = MPIRUN + ["-np", "1", binary] + mine
        if p > 1:
            argv += [":", "-np", str(p - 1), binary] + bench_args
        yield f"np {p}", argv


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("build_dir", nargs="?", default=os.path.join(here, "..", "build", "release"))
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--min-time", help="ignored: the iteration counts are fixed")
    ap.add_argument("--filter", default=".", help="benchmark name regex")
    ap.add_argument("--unknowns", default="1000000",
                    help="comma-separated problem sizes (125000, 1000000, 3375000; "
                         "1e8_share_of_64: one rank's share of 10^8, converted on 1 rank)")
    ap.add_argument("--ranks", default="1,2")
    ap.add_argument("--json", help="write the medians here (benchmark JSON)")
    a = ap.parse_args()
    binary = os.path.join(a.build_dir, "bench", "bench_petsc_solve")
    sizes = "|".join(f"poisson_{u}/" for u in a.unknowns.split(","))
    bench_args = [f"--benchmark_filter=({sizes}).*({a.filter})|({a.filter}).*({sizes})"]
    ranks = [int(p) for p in a.ranks.split(",")]

    times, info, context = {}, {}, {}
    cores = {}  # CPU seconds of all ranks and threads per call, per round
    ratios = {}  # (case, peer): same-round ratios qvarray / peer
    fd, out = tempfile.mkstemp(suffix=".json")
    os.close(fd)
    for r in range(a.rounds):
        jobs = list(commands(binary, ranks, bench_args, out))
        random.shuffle(jobs)
        round_times = {}
        for label, argv in jobs:
            print(f"round {r + 1}/{a.rounds}: {label} ...", file=sys.stderr, flush=True)
            if os.path.exists(out):
                os.remove(out)
            subprocess.run(argv, check=True, stdout=sys.stderr)
            if not os.path.exists(out) or os.path.getsize(out) == 0:
                continue  # none of its benchmarks matched
            with open(out) as fh:
                data = json.load(fh)
            if label == "library" or not context:
                context = data.get("context", context)
            for b in data["benchmarks"]:
                key = b["run_name"].replace("/manual_time", "").split("/iterations:")[0]
                if b.get("error_occurred"):
                    info[key] = {"error_occurred": True,
                                 "error_message": b.get("error_message", "error")}
                    continue
                scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
                round_times[key] = b["real_time"] * scale
                times.setdefault(key, []).append(round_times[key])
                info[key] = {k: b[k] for k in ("diff", "tol", "its", "nnz_local", "rows_local",
                                               "mallocs") if k in b}
                if "core_s" in b:
                    cores.setdefault(key, []).append(b["core_s"])
        for key, t in round_times.items():
            case, impl = key.rsplit("/", 1)
            ours = round_times.get(case + "/qvarray")
            if impl != "qvarray" and ours:
                ratios.setdefault((case, impl), []).append(ours / t)
    if os.path.exists(out):
        os.remove(out)

    def order(key):
        what, size, procs, impl = key.split("/")
        unknowns = float(re.match(r"poisson_([0-9.e]+)", size).group(1))
        return (unknowns, int(procs.split(":")[1]),
                ["solve", "setup", "convert"].index(what), impl != "qvarray", impl)

    print(f"{'case':36}{'impl':>22}{'median':>12}{'min':>10}{'max':>10}{'core_s':>8}{'its':>6}"
          f"{'ns/nnz':>8}  same-round qvarray/peer (median; min..max)")
    rows = []
    for i, key in enumerate(sorted(set(times) | set(info), key=order)):
        case, impl = key.rsplit("/", 1)
        extra = info.get(key, {})
        if extra.get("error_occurred"):
            print(f"{case:36}{impl:>22}  FAILED: {extra['error_message']}")
            rows.append(dict({"name": key, "run_name": key, "run_type": "iteration"}, **extra))
            continue
        t = times[key]
        med = statistics.median(t)
        cv = statistics.pstdev(t) / statistics.mean(t) if len(t) > 1 else 0.0
        its = f"{extra['its']:.0f}" if "its" in extra else ""
        per_nnz = f"{med / extra['nnz_local']:.1f}" if "nnz_local" in extra else ""
        core = f"{statistics.median(cores[key]):.3f}" if key in cores else ""
        rr = ratios.get((case, impl))
        ratio = (f"{statistics.median(rr):.3f}; {min(rr):.3f}..{max(rr):.3f}" if rr else "")
        print(f"{case:36}{impl:>22}{med / 1e6:10.2f}ms{min(t) / 1e6:10.2f}{max(t) / 1e6:10.2f}"
              f"{core:>8}{its:>6}{per_nnz:>8}  {ratio}")
        run_name = key + "/manual_time"
        for agg, v in (("median", med), ("cv", cv)):
            rows.append(dict({"name": run_name + "_" + agg, "run_name": run_name,
                              "run_type": "aggregate", "aggregate_name": agg, "time_unit": "ns",
                              "real_time": v, "cpu_time": v, "family_index": i,
                              "per_family_instance_index": 0},
                             **{k: v for k, v in extra.items() if k in ("diff", "tol", "its")}))
    print(f"medians of {a.rounds} rounds (wall-clock, the slowest rank); conversions per call; "
          "core_s: CPU seconds of all ranks and threads (median); ns/nnz: wall-clock per local "
          "non-zero")
    if a.json:
        with open(a.json, "w") as fh:
            json.dump({"context": context, "benchmarks": rows}, fh)


if __name__ == "__main__":
    main()
