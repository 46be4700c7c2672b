#!/usr/bin/env bash
# Out-of-memory checks of qvtool. Each case runs once to count the
# allocations its run makes (the failalloc shim, preloaded, counts operator
# new after main starts), then once for every N from 1 to that count with
# the N-th allocation failing, and once with every allocation from the N-th on
# failing. Whenever an allocation failed, qvtool must exit with status 1 and a
# "qvtool..." line on stderr; when none did (the run ended before N), or only
# a nothrow allocation did (its caller may carry on), it may also end as the
# clean run did. An abort or a signal is always a failure.
# usage: test_failalloc.sh <qvtool> <libfailalloc.so> <matrix dir>
set -u
qvtool=$1
shim=$2
matrices=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
jobs=$(nproc)

mm() { printf '%%%%MatrixMarket matrix %s\n' "$1"; shift; printf '%s\n' "$@"; }
mm "coordinate real general" "3 3 5" "1 1 4" "2 1 -1" "2 2 4" "3 2 -1" "3 3 4" >"$tmp/A.mtx"
mm "coordinate real symmetric" "3 3 4" "1 1 4" "2 1 -1" "2 2 4" "3 3 4" >"$tmp/S.mtx"
mm "array real general" "3 2" 1 2 3 4 5 6 >"$tmp/B.mtx"
mm "coordinate real general" "2 2 2" "1 1 inf" "2 2 1" >"$tmp/inf.mtx"
mm "coordinate real general" "2 2 2" "1 1 1" "2 2 x" >"$tmp/bad.mtx"
printf '%% x f\n0 0\n1 1\n2 8\n3 27\n' >"$tmp/table.txt"
printf '0 0 1\n1 0 2\n0 1 3\n1 1 5\n0.5 0.4 2\n' >"$tmp/scattered.txt"

# run N FROM args...: qvtool with allocation N failing (FROM non-empty: and
# every later one), logging to $log; sets rc, err (stderr) and failed (an
# allocation of a throwing form failed, declined: one of a nothrow form did).
run() {
  local n=$1 from=$2
  shift 2
  rm -f "$log"
  err=$(env QV_FAILALLOC="$n" ${from:+QV_FAILALLOC_FROM=1} QV_FAILALLOC_LOG="$log" \
        LD_PRELOAD="$shim" "$qvtool" "$@" 2>&1 >/dev/null)
  rc=$?
  failed=0 declined=0
  grep -q '^failed ' "$log" 2>/dev/null && failed=1
  grep -q '^declined ' "$log" 2>/dev/null && declined=1
}

# sweep NAME args...: the clean run, then every point of failure; prints
# "ok" or the failures, and its status says which.
sweep() {
  local name=$1 clean count n from reported bad=0 log="$tmp/$1.log"
  shift
  run 0 "" "$@"
  clean=$rc
  count=$(sed -n 's/^count //p' "$log" 2>/dev/null | tail -1)
  if [[ -z $count || $clean -gt 2 ]]; then
    echo "FAIL $name: the clean run ended with status $clean"; echo "$err"
    return 1
  fi
  for ((n = 1; n <= count + 1; n++)); do
    for from in "" 1; do
      run "$n" "$from" "$@"
      reported=0
      [[ $rc -eq 1 ]] && grep -q '^qvtool' <<<"$err" && reported=1
      if [[ $failed -eq 1 ]]; then
        [[ $reported -eq 1 ]] && continue
      elif [[ $rc -eq $clean ]] || [[ $declined -eq 1 && $reported -eq 1 ]]; then
        continue
      fi
      echo "FAIL $name: allocation $n${from:+ and every later one} failing:" \
           "exit status $rc (clean run: $clean)"
      tail -3 <<<"$err"
      bad=$((bad + 1))
      [[ $bad -ge 3 ]] && break 2
    done
  done
  [[ $bad -eq 0 ]] && echo "ok   $name ($count allocations, $((2 * count + 3)) runs)"
  return $((bad > 0))
}

# Sweeps run side by side, $jobs at a time; each one's report goes to
# $tmp/NAME.out and is printed in order at the end.
names=()
launch() {
  local name=$1
  names+=("$name")
  while [[ $(jobs -rp | wc -l) -ge $jobs ]]; do wait -n; done
  sweep "$@" >"$tmp/$name.out" 2>&1 &
}

# One OpenMP thread unless a case asks for more: process start-up is halved.
export OMP_NUM_THREADS=1
launch solve-example solve
launch solve-files solve -o "$tmp/X.mtx" "$tmp/A.mtx" "$tmp/B.mtx"
launch band band "$tmp/A.mtx"
launch band-sym band --sym "$tmp/S.mtx"
launch gmres gmres --jacobi --restart 67 "$matrices/west0067.mtx"
launch sparse sparse --print "$matrices/c.mtx"
launch sparse-symmetric sparse --symmetric "$matrices/c.mtx"
launch spmv spmv --reps 3 "$matrices/c.mtx"
OMP_NUM_THREADS=2 launch spmv-parallel spmv --reps 2 --threads 2 --symmetric "$matrices/bcsstk13.mtx"
launch null null --grid 3
launch poisson poisson --n 4 --sor-maxit 20
launch poisson-3d poisson --dim 3 --n 3 --symmetric --sor-maxit 5
launch blas blas
launch interp interp "$tmp/table.txt" --method cubicspline --at 1.5 --at 2.5
launch interp-scattered interp "$tmp/scattered.txt" --at 0.3,0.3 --at 2,2 --extrapolation linear
printf 's = a + b\ny = sqrt(s) * 2 + round(a)\n' >"$tmp/defs.txt"
launch compile compile "$tmp/defs.txt" --class D --inputs a,b --outputs y,s -o "$tmp/D.class"
launch eval eval "x*y+sin(x)" x=0:0.5:1 y=3 --diff x --def a=x+1
# Failures on the way: a reader error, a non-finite entry, a usage error.
launch sparse-bad sparse "$tmp/bad.mtx"
launch gmres-inf gmres "$tmp/inf.mtx"
launch spmv-usage spmv --threads x "$matrices/c.mtx"
# Start-up: the relaunch onto OpenBLAS's fast kernels fails in the first image.
OPENBLAS_CORETYPE=Sandybridge launch relaunch blas

wait
failures=0
for name in "${names[@]}"; do
  cat "$tmp/$name.out"
  grep -q '^ok ' "$tmp/$name.out" || failures=$((failures + 1))
done
[[ $failures -eq 0 ]] && echo "all out-of-memory checks passed" || echo "$failures out-of-memory cases failed"
exit $((failures > 0))
