#!/usr/bin/env python3
"""Runs the benchmark programs one after the other in one window and prints
one table: per case the library's median time, each peer's, their ratio and
how far the peer's result was from the library's.

usage: bench/summary.py [--repetitions N] [--min-time S] [--filter REGEX]
                        [--programs NAME,...] [--save DIR | --load DIR] [BUILD_DIR]

Naming convention of the programs (bench/*.cpp): every benchmark is named
<case>/<impl>, where <case> may have several parts (kernel, size, matrix,
threads:N) and <impl> is "qvarray" for the library and any other name for a
peer; a trailing "real_time" is ignored. Names BM_<Impl>/<args> (one function
per implementation) are read as <label or args>/<Impl>, BM_Sparse being the
library. Rows of one case are compared with
its qvarray row: ratio = qvarray time / peer time, so a ratio below 1 means the
library is faster. "triad" rows are not peers but the stream triad of the same
memory footprint: qvarray/triad is the product's time over the time the
memory needs to stream its bytes.

Each program runs with repetitions in random order
(--benchmark_enable_random_interleaving), so that drifts of a shared machine
spread over the library and its peers alike; the table shows medians and the
larger coefficient of variation of the two. Single-threaded benchmarks are
compared by CPU time, which other processes on the machine do not inflate;
benchmarks marked real_time or manual_time (threaded ones) by wall-clock time. bench_dense
runs with OMP_NUM_THREADS=1 (no BLAS threads on short vectors). bench_eval runs under
bench/eval_numexpr.py, which adds the numexpr and numpy rows; bench_exprcomp under
bench/exprcomp_jvm.py, which adds the compiled classes' speed in the JVM against javac's;
bench_petsc_solve under bench/petsc_solve_mpi.py, which alternates its library
process with its runs under mpirun -np 1 and -np 2.

The check columns come from the programs: every configuration is checked
once before it is timed, and each row reports the difference of the peer's
result to the library's ("0": bit for bit) and the tolerance stated for it.
"""
import argparse
import glob
import json
import os
import re
import subprocess
import sys
import tempfile
from collections import OrderedDict

# Programs with settings of their own.
ENV = {"bench_dense": {"OMP_NUM_THREADS": "1", "OPENBLAS_NUM_THREADS": "1"}}
# Programs run through a script of bench/ that times Python peers on the same
# data and writes the merged rows (repetitions become its rounds).
DRIVERS = {"bench_eval": "eval_numexpr.py", "bench_exprcomp": "exprcomp_jvm.py",
           "bench_petsc_solve": "petsc_solve_mpi.py"}
# Programs built only with an optional component (the PETSc bridge).
OPTIONAL = {"bench_petsc", "bench_petsc_solve"}
# Name parts that are not part of a case.
IGNORED = re.compile(r"^(real_time|process_time|manual_time|iterations:\d+|repeats:\d+)$")
OURS = "qvarray"
HEAD = ("case", "qvarray", "peer", "peer time", "ratio", "cv%", "t", "check: diff (tol)")
# Counters shown beside the check, as qvarray / peer: the size of a copy
# (rowcopy), iteration counts of solvers, the growth exponent of the
# compiler's compile time.
NOTED = ("MB", "its", "gmres_its", "exponent")


def programs(build_dir, only):
    """The programs bench/CMakeLists.txt builds (not stale ones in the build
    directory), or those named in `only`."""
    here = os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(here, "CMakeLists.txt")) as f:
        names = re.findall(r"^qv_add_bench\((\w+)", f.read(), re.M)
    if only:
        names = [n for n in names if n in set(only.split(","))]
    paths = [os.path.join(build_dir, "bench", n) for n in names]
    # Programs of optional components run only where they were built.
    paths = [p for p in paths
             if os.path.basename(p) not in OPTIONAL or os.access(p, os.X_OK)]
    missing = [p for p in paths if not os.access(p, os.X_OK)]
    if missing:
        sys.exit("not built: " + ", ".join(missing))
    return paths


def run(binary, a):
    fd, out = tempfile.mkstemp(suffix=".json")
    os.close(fd)
    driver = DRIVERS.get(os.path.basename(binary))
    if driver:  # the program runs under a driver that times Python peers beside it
        here = os.path.dirname(os.path.abspath(__file__))
        print(f"running {driver} ...", file=sys.stderr, flush=True)
        subprocess.run(["/usr/bin/python3", os.path.join(here, driver), f"--rounds={a.repetitions}",
                        f"--min-time={a.min_time}", f"--filter={a.filter}", f"--json={out}",
                        os.path.dirname(os.path.dirname(binary))], check=True, stdout=sys.stderr)
        with open(out) as f:
            data = json.load(f)
        os.remove(out)
        return data
    cmd = [binary, f"--benchmark_repetitions={a.repetitions}",
           "--benchmark_report_aggregates_only=true",
           "--benchmark_enable_random_interleaving=true",
           f"--benchmark_min_time={a.min_time}",
           f"--benchmark_filter={a.filter}",
           f"--benchmark_out={out}", "--benchmark_out_format=json"]
    env = dict(os.environ, **ENV.get(os.path.basename(binary), {}))
    print(f"running {os.path.basename(binary)} ...", file=sys.stderr, flush=True)
    subprocess.run(cmd, check=True, stdout=sys.stderr, env=env)
    with open(out) as f:
        data = json.load(f)
    os.remove(out)
    return data


def split_name(b):
    """(case, impl) of a benchmark. Names of the form BM_<Impl>/<args> (one
    function per implementation, bench_triplets) take the case from the label
    or the arguments; BM_Sparse is the library's."""
    parts = [p for p in b["run_name"].split("/") if not IGNORED.match(p)]
    if parts[0].startswith("BM_"):
        impl = parts[0][3:]
        return b.get("label") or "/".join(parts[1:]), OURS if impl == "Sparse" else impl
    return "/".join(parts[:-1]), parts[-1]


def collect(data):
    """{case: {impl: row}} in the order the program registered them."""
    cases = OrderedDict()
    order = lambda b: (b.get("family_index", 0), b.get("per_family_instance_index", 0))
    for b in sorted(data["benchmarks"], key=order):
        case, impl = split_name(b)
        row = cases.setdefault(case, OrderedDict()).setdefault(impl, {})
        if b.get("error_occurred"):
            row["error"] = b.get("error_message", "error")
            continue
        agg = b.get("aggregate_name")
        if agg not in ("median", "cv"):
            continue
        wall = {"real_time", "manual_time"} & set(b["run_name"].split("/"))
        field = "real_time" if wall else "cpu_time"
        scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
        if agg == "median":
            row["time"] = b[field] * scale
            row["field"] = "real" if field == "real_time" else "cpu"
            for k in ("diff", "tol") + NOTED:
                if k in b:
                    row[k] = b[k]
        else:
            row["cv"] = b[field]
    return cases


def fmt_time(ns):
    if ns is None:
        return "-"
    for unit, div in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= div:
            return f"{ns / div:.3g} {unit}"
    return f"{ns:.3g} ns"


def fmt_count(v):
    return "-" if v is None else f"{v:.4g}"


def fmt_check(row):
    if "diff" not in row:
        return ""
    diff, tol = row["diff"], row.get("tol", 0.0)
    d = "0" if diff == 0 else f"{diff:.1e}"
    t = "bits" if tol == 0 else f"{tol:.0e}"
    return f"{d} ({t})"


def table(results):
    rows = []  # (case, qvarray time, peer, peer time, ratio, cv, field, check) or a title
    for program, cases in results:
        rows.append(f"[{program}]")
        for case, impls in cases.items():
            ours = impls.get(OURS)
            if ours is None:  # no library row: the medians as they are
                for impl, row in impls.items():
                    rows.append((case, "-", impl, fmt_time(row.get("time")), "", "", "", ""))
                continue
            peers = [(i, r) for i, r in impls.items() if i != OURS] or [("-", {})]
            for k, (impl, row) in enumerate(peers):
                label = case if k == 0 else ""
                if "error" in ours or "error" in row:
                    msg = ours.get("error") or row.get("error")
                    rows.append((label, "", impl, "", "FAILED: " + msg, "", "", ""))
                    continue
                t_ours, t_peer = ours.get("time"), row.get("time")
                ratio = f"{t_ours / t_peer:.3f}" if t_ours and t_peer else "-"
                cv = max(ours.get("cv", 0.0), row.get("cv", 0.0)) * 100
                check = fmt_check(row if impl != "-" else ours)
                for k in NOTED:
                    if k in ours or k in row:
                        check += f"  {k} {fmt_count(ours.get(k))} / {fmt_count(row.get(k))}"
                name = "/triad" if impl == "triad" else impl
                rows.append((label, fmt_time(t_ours), name, fmt_time(t_peer), ratio, f"{cv:.0f}",
                             ours.get("field", ""), check))
    widths = [max([len(h)] + [len(r[i]) for r in rows if isinstance(r, tuple)])
              for i, h in enumerate(HEAD)]
    line = lambda r: " ".join(c.ljust(w) if i in (0, 2, 6) else c.rjust(w)
                              for i, (c, w) in enumerate(zip(r[:-1], widths))) + " " + r[-1]
    out = [line(HEAD), "-" * (sum(widths) + len(widths) + 8)]
    out += [r if isinstance(r, str) else line(r) for r in rows]
    return "\n".join(out)


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0],
                                formatter_class=argparse.RawDescriptionHelpFormatter,
                                epilog="\n".join(__doc__.splitlines()[5:]))
    here = os.path.dirname(os.path.abspath(__file__))
    p.add_argument("build_dir", nargs="?", default=os.path.join(here, "..", "build", "release"))
    p.add_argument("--repetitions", type=int, default=5)
    p.add_argument("--min-time", default="0.1", help="seconds per repetition")
    p.add_argument("--filter", default=".", help="benchmark name regex (every program)")
    p.add_argument("--programs", help="comma-separated program names (default: all)")
    p.add_argument("--save", help="keep each program's JSON output in this directory")
    p.add_argument("--load", help="print the table of JSON outputs saved earlier")
    a = p.parse_args()

    results, contexts = [], []
    if a.load:
        for path in sorted(glob.glob(os.path.join(a.load, "*.json"))):
            with open(path) as f:
                data = json.load(f)
            results.append((os.path.basename(path)[:-5], collect(data)))
            contexts.append(data.get("context", {}))
    else:
        for binary in programs(a.build_dir, a.programs):
            data = run(binary, a)
            name = os.path.basename(binary)
            if a.save:
                os.makedirs(a.save, exist_ok=True)
                with open(os.path.join(a.save, name + ".json"), "w") as f:
                    json.dump(data, f)
            results.append((name, collect(data)))
            contexts.append(data.get("context", {}))
    if contexts:
        c = contexts[0]
        loads = [", ".join(f"{x:.1f}" for x in k.get("load_avg", [])) for k in contexts]
        print(f"{c.get('host_name', '?')}: {c.get('num_cpus', '?')} CPUs at "
              f"{c.get('mhz_per_cpu', '?')} MHz; load averages at start: {'; '.join(loads)}")
        for key in ("blas", "compiled", "peers", "qvarray"):
            for value in dict.fromkeys(k[key] for k in contexts if key in k):
                print(f"{key}: {value}")
    print("medians, repetitions interleaved at random; ratio = qvarray / peer "
          "(below 1: the library is faster)")
    print(table(results))


if __name__ == "__main__":
    main()
