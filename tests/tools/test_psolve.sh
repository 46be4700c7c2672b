#!/usr/bin/env bash
# qvtool psolve under MPI: an SPD system solved with the default options
# reaches the tolerance on the true residual, both reading modes give the same
# iterations, the solution written (gathered from the ranks) has that residual
# when recomputed here from the files, and a bad PETSc option arrives as
# PETSc's error.
# usage: test_psolve.sh <qvtool> <matrix dir> <mpiexec and its arguments...>
set -u
qvtool=$1 A=$2/494_bus.mtx b=$2/494_bus_b.mtx
shift 2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
failures=0
fail() { echo "FAIL $1"; echo "$2"; failures=$((failures + 1)); }
# r < b, strictly: mawk counts NaN <= b as true.
below() { awk -v r="$1" -v b="$2" 'BEGIN { exit !(r != "" && r + 0 < b + 0) }'; }

# ||b - A*x|| / ||b|| from a symmetric coordinate file A (lower triangle) and
# array files x and b.
residual() {
  awk 'FNR == 1 { f++; sized = 0 } /^%/ { next } !sized { sized = 1; next }
       f == 1 { I[++n] = $1; J[n] = $2; V[n] = $3; next }
       f == 2 { x[++nx] = $1; next }
       { bv[++nb] = $1 }
       END {
         for (k = 1; k <= n; k++) { y[I[k]] += V[k] * x[J[k]]; if (I[k] != J[k]) y[J[k]] += V[k] * x[I[k]] }
         for (i = 1; i <= nb; i++) { r += (bv[i] - y[i]) ^ 2; s += bv[i] ^ 2 }
         printf "%.3e\n", sqrt(r / s)
       }' "$@"
}

declare -A its
for mode in root each; do
  out=$("$@" "$qvtool" psolve "$A" "$b" --read $mode --out "$tmp/x.mtx" 2>&1) ||
    fail "$mode: exit status $?" "$out"
  its[$mode]=$(sed -n 's/^converged (CONVERGED_RTOL) after \([0-9]*\) iterations$/\1/p' <<<"$out")
  r=$(sed -n 's/^relative residual .* = //p' <<<"$out")
  [[ -n ${its[$mode]} ]] && below "$r" 1e-8 || fail "$mode: not converged below 1e-8" "$out"
  r=$(residual "$A" "$tmp/x.mtx" "$b")
  below "$r" 1.01e-8 || fail "$mode: the written solution's residual is $r" "$out"
done
[[ ${its[root]} == "${its[each]}" ]] || fail "iterations differ: ${its[root]} (root), ${its[each]} (each)" ""

# Failures on any rank end every rank with one report: a PETSc error, a file
# rank 0 cannot read, a non-finite entry in the last rank's rows, a usage error;
# and an option PETSc never read is named once.
printf '%%%%MatrixMarket matrix coordinate real general\n4 4 4\n1 1 1\n2 2 1\n3 3 1\n4 4 inf\n' >"$tmp/inf.mtx"
printf '%%%%MatrixMarket matrix array real general\n4 1\n1\n1\n1\n1\n' >"$tmp/b4.mtx"
while IFS='|' read -r status pattern args; do
  out=$("$@" "$qvtool" psolve $args 2>&1)
  rc=$?
  [[ $rc -eq $status && $(grep -c "$pattern" <<<"$out") -eq 1 ]] || fail "psolve $args: status $rc" "$out"
done <<EOT
1|^qvtool: .*Unable to find requested KSP type nonsense|$A $b -ksp_type nonsense
1|^qvtool: $tmp/none.mtx: Cannot open file|$tmp/none.mtx $b
1|^qvtool: $tmp/inf.mtx:7: the entry '4 4 inf' is not a finite number|$tmp/inf.mtx $tmp/b4.mtx
2|^qvtool psolve: no right-hand side file given|$A
0|^PETSc did not use the option -ksp_rtoll$|$A $b -ksp_rtoll 1e-3
EOT

[[ $failures -eq 0 ]] && echo "psolve checks passed (${its[root]} iterations)"
exit $((failures > 0))
