#!/usr/bin/python3
"""The expression compiler's benchmarks: compile time (bench_exprcomp) with
its growth exponent, and the speed of compiled classes in the JVM against
javac's classes of the same definitions (bench/jvm/ClassSpeed.java).

Runs bench_exprcomp (ROUNDS repetitions, interleaved) and prints the growth
exponent of the compile time: the least-squares slope of log(median) over
log(definitions) from 10^2 to 10^5 (1: linear). Then writes random sets of
100 and 400 definitions with exprcomp_classgen (a class from ExprComp and the
same definitions as Java source, once in the compiled program's operation
order, once in definition order), compiles the sources with javac, and runs
ClassSpeed on each pair in one JVM per pair: warm-up, a check that both give
the same outputs, then max(ROUNDS, 7) rounds of CALLS calls of each,
alternating. Cases jvm/<defs>/program (javac's class in the program's
order: the same work in the same order, the bytecode's quality) and
jvm/<defs>/deforder (definition order: what the compiler's choice of order
costs or gains), each with rows qvarray (the compiled class) and javac from
the same JVM, carry the medians per call; the ratio in the table is the
ratio of the medians (ClassSpeed also prints the median of the rounds'
ratios, shown here). With --json writes all rows as one benchmark output that
bench/summary.py reads (it runs this script for bench_exprcomp).

usage: bench/exprcomp_jvm.py [--rounds N] [--min-time S] [--filter REGEX]
                             [--calls N] [--json FILE] [BUILD_DIR]   (default build/release)
"""
import argparse
import json
import math
import os
import re
import statistics
import subprocess
import sys
import tempfile

SIZES = (100, 400)


def compile_rows(a, build):
    fd, out = tempfile.mkstemp(suffix=".json")
    os.close(fd)
    subprocess.run([os.path.join(build, "bench", "bench_exprcomp"),
                    f"--benchmark_repetitions={a.rounds}", "--benchmark_report_aggregates_only=true",
                    "--benchmark_enable_random_interleaving=true", f"--benchmark_min_time={a.min_time}",
                    f"--benchmark_filter={a.filter}", f"--benchmark_out={out}",
                    "--benchmark_out_format=json"], check=True, stdout=sys.stderr)
    with open(out) as f:
        data = json.load(f)
    os.remove(out)
    medians = {}
    scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
    for b in data["benchmarks"]:
        m = re.match(r"compile/(\d+)/", b["run_name"])
        if m and b.get("aggregate_name") == "median":
            medians[int(m.group(1))] = (b, b["cpu_time"] * scale[b["time_unit"]])
    if len(medians) >= 2:
        xs = [math.log(n) for n in sorted(medians)]
        ys = [math.log(medians[n][1]) for n in sorted(medians)]
        mx, my = statistics.fmean(xs), statistics.fmean(ys)
        slope = sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / sum((x - mx) ** 2 for x in xs)
        print(f"compile time growth exponent {slope:.3f} (log-log slope of the medians over "
              + ", ".join(f"{n} defs {t / 1e3:.4g} us" for n, (_, t) in sorted(medians.items()))
              + ")")
        medians[max(medians)][0]["exponent"] = slope
    return data


def jvm_rows(a, build, rounds):
    rows = []
    with tempfile.TemporaryDirectory() as tmp:
        sets = subprocess.run([os.path.join(build, "bench", "exprcomp_classgen"), tmp]
                              + [str(n) for n in SIZES], check=True, capture_output=True,
                              text=True).stdout.split("\n")
        sets = [s.split() for s in sets if s.strip()]
        javac_dir = os.path.join(tmp, "javac")
        subprocess.run(["javac", "-d", javac_dir] + [os.path.join(tmp, c + ".java") for s in sets for c in s[1:]],
                       check=True)
        for k, (n, (gen, src, dfn)) in enumerate(zip(SIZES, sets)):
            if not re.search(a.filter, f"jvm/{n}/qvarray"):
                continue
            for peer, cls in (("javac", src), ("javac_deforder", dfn)):
                r = subprocess.run(["java", "-cp", os.path.join(build, "bench", "jvm"), "ClassSpeed",
                                    tmp, gen, javac_dir, cls, str(rounds), str(a.calls)],
                                   capture_output=True, text=True)
                if r.returncode != 0:
                    sys.exit(f"ClassSpeed {gen} {cls} failed: {r.stdout}{r.stderr}")
                lines = r.stdout.split("\n")
                size = next(l.split() for l in lines if l.startswith("size"))
                rounds_t = [tuple(map(float, l.split()[1:])) for l in lines if l.startswith("round")]
                med = next(l.split() for l in lines if l.startswith("median"))
                print(f"jvm/{n} against {peer}: class {size[1]} bytes, {size[3]} work method(s); "
                      f"per call {float(med[1]):.1f} ns compiled, {float(med[2]):.1f} ns {peer}; "
                      f"median of the rounds' ratios {float(med[3]):.3f}")
                order = "program" if peer == "javac" else "deforder"
                for i, impl in enumerate(("qvarray", "javac")):
                    times = [t[i] for t in rounds_t]
                    med_t = statistics.median(times)
                    cv = statistics.pstdev(times) / statistics.fmean(times)
                    run_name = f"jvm/{n}/{order}/{impl}"
                    for agg, v in (("median", med_t), ("cv", cv)):
                        rows.append({"name": run_name + "_" + agg, "run_name": run_name,
                                     "run_type": "aggregate", "aggregate_name": agg, "time_unit": "ns",
                                     "real_time": v, "cpu_time": v, "family_index": 1000 + k,
                                     "per_family_instance_index": len(rows), "diff": 0.0, "tol": 0.0})
    return rows


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    here = os.path.dirname(os.path.abspath(__file__))
    ap.add_argument("build_dir", nargs="?", default=os.path.join(here, "..", "build", "release"))
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--min-time", default="0.2")
    ap.add_argument("--filter", default=".")
    ap.add_argument("--calls", type=int, default=200000, help="calls per round in the JVM")
    ap.add_argument("--json", help="write the merged rows here (benchmark JSON)")
    a = ap.parse_args()
    data = compile_rows(a, a.build_dir)
    data["benchmarks"] += jvm_rows(a, a.build_dir, max(a.rounds, 7))
    if a.json:
        with open(a.json, "w") as fh:
            json.dump(data, fh)


if __name__ == "__main__":
    main()
