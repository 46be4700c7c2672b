#!/usr/bin/env bash
# Command-line checks of qvtool: exit status and messages of the subcommand
# dispatcher and of `qvtool solve` on good, bad, singular and mis-shaped input,
# and of the other subcommands on a few files.
# usage: test_qvtool.sh <qvtool> <matrix dir>
set -u
qvtool=$1
matrices=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
failures=0

# check <name> <expected status> <regex over stdout+stderr> -- command...
check() {
  local name=$1 status=$2 pattern=$3
  shift 4
  local out rc
  out=$("$@" 2>&1)
  rc=$?
  if [[ $rc -ne $status ]]; then
    echo "FAIL $name: exit status $rc, expected $status"; echo "$out"; failures=$((failures + 1))
  elif ! grep -Eq -- "$pattern" <<<"$out"; then
    echo "FAIL $name: output does not match /$pattern/"; echo "$out"; failures=$((failures + 1))
  else
    echo "ok   $name"
  fi
}

# Relative residual printed by solve must be at most $2.
residual_below() {
  local out=$1 bound=$2 r
  r=$(sed -n 's/^relative residual .* = //p' <<<"$out")
  awk -v r="$r" -v b="$bound" 'BEGIN { exit !(r != "" && r + 0 <= b + 0) }'
}

mm() { printf '%%%%MatrixMarket matrix %s\n' "$1"; shift; printf '%s\n' "$@"; }
mm "coordinate real general" "3 3 3" "1 1 2" "2 2 4" "3 3 8" >"$tmp/D.mtx"
mm "array real general" "3 2" 1 2 3 4 5 6 >"$tmp/B.mtx"
mm "array real general" "2 1" 1 2 >"$tmp/b2.mtx"
mm "coordinate real general" "3 3 4" "1 1 2" "2 2 3" "3 3 4" "2 1 x" >"$tmp/bad.mtx"
mm "coordinate real general" "2 2 2" "1 1 1" "2 1 1" >"$tmp/singular.mtx"
mm "coordinate real general" "2 2 2" "1 1 inf" "2 2 1" >"$tmp/inf.mtx"
mm "array real general" "0 0" >"$tmp/empty.mtx"

check usage 2 'solve .*MatrixMarket' -- "$qvtool"
check help 0 'blas ' -- "$qvtool" --help
check unknown-command 2 "unknown command 'frobnicate'" -- "$qvtool" frobnicate
check solve-help 0 'usage: qvtool solve' -- "$qvtool" solve --help
check unknown-option 2 "unknown option '--fast'" -- "$qvtool" solve --fast

out=$("$qvtool" solve 2>&1)
check example 0 '^  4: -4$' -- "$qvtool" solve
residual_below "$out" 1e-15 || { echo "FAIL example residual: $out"; failures=$((failures + 1)); }

# Diagonal system: the solution is B divided row-wise by (2, 4, 8), exactly.
check diagonal 0 'solution written' -- "$qvtool" solve -o "$tmp/X.mtx" "$tmp/D.mtx" "$tmp/B.mtx"
want=$'%%MatrixMarket matrix array real general\n3 2\n0.5\n0.5\n0.375\n2\n1.25\n0.75'
got=$(grep -v '^% ' "$tmp/X.mtx")
[[ $got == "$want" ]] || { echo "FAIL diagonal solution file:"; cat "$tmp/X.mtx"; failures=$((failures + 1)); }

check bad-value 1 "^qvtool: $tmp/bad.mtx:6: Invalid number 'x'\.$" -- "$qvtool" solve "$tmp/bad.mtx"
check missing-file 1 "^qvtool: $tmp/none.mtx: Cannot open file: " -- "$qvtool" solve "$tmp/none.mtx"
check singular 1 'the matrix is singular: U\(2,2\)' -- "$qvtool" solve "$tmp/singular.mtx"
check non-finite 1 'A holds a non-finite value at \(1,1\)' -- "$qvtool" solve "$tmp/inf.mtx"
check empty 1 'empty.mtx: the matrix is empty' -- "$qvtool" solve "$tmp/empty.mtx"
check rows-mismatch 1 'b2.mtx: B has 2 rows but A has 3' -- "$qvtool" solve "$tmp/D.mtx" "$tmp/b2.mtx"
check non-square 1 'lp_afiro.mtx: the matrix is 27 x 51; solve needs a square matrix' \
  -- "$qvtool" solve "$matrices/lp_afiro.mtx"

# Shared matrices: real general, real symmetric, complex general.
for f in west0067.mtx 494_bus.mtx young1c.mtx; do
  out=$("$qvtool" solve "$matrices/$f" 2>&1)
  if [[ $? -eq 0 ]] && residual_below "$out" 1e-14; then echo "ok   $f"
  else echo "FAIL $f"; echo "$out"; failures=$((failures + 1)); fi
done
check complex-rhs 0 'solving in complex arithmetic' -- "$qvtool" solve "$tmp/D.mtx" "$matrices/c.mtx"
# band and gmres: errors of the file reader name the file and the line.
for cmd in band gmres; do
  check "$cmd-bad-value" 1 "^qvtool: $tmp/bad.mtx:6: Invalid value 'x'\.$" -- "$qvtool" $cmd "$tmp/bad.mtx"
  check "$cmd-missing-file" 1 "^qvtool: $tmp/none.mtx: Cannot open file" -- "$qvtool" $cmd "$tmp/none.mtx"
  check "$cmd-non-square" 1 'lp_afiro.mtx: the matrix is not square \(27 x 51\)' \
    -- "$qvtool" $cmd "$matrices/lp_afiro.mtx"
done
check band 0 'max error against x = \(1, \.\.\., 1\): ' -- "$qvtool" band --sym "$matrices/494_bus.mtx"
check gmres 0 '^converged after ' -- "$qvtool" gmres --jacobi "$matrices/west0067.mtx" --restart 67
check spmv 0 'Effective bandwidth: ' -- "$qvtool" spmv "$matrices/lp_afiro.mtx" --trans --reps 3
check spmv-usage 2 'usage: qvtool spmv' -- "$qvtool" spmv --threads x "$matrices/c.mtx"

# Constraint elimination against Lagrange multipliers (exit 0: the solutions agree).
for fun in auto orth sparse; do
  check "null-$fun" 0 '2 redundant constraints' -- "$qvtool" null --grid 12 --nullfun "$fun"
done
check null-bad-nullfun 2 'usage: qvtool null' -- "$qvtool" null --nullfun qr
check null-bad-grid 2 'usage: qvtool null' -- "$qvtool" null --grid 2
# Poisson: GMRES with symmetric SOR reaches the discrete solution; SOR converges.
check poisson-2d 0 'discrete solution .*: ok' -- "$qvtool" poisson --n 30 --sor-maxit 3000 --omega 1.8
check poisson-sor 0 'converged after [0-9]+ iterations .*relative error' -- \
  "$qvtool" poisson --n 30 --sor-maxit 3000 --omega 1.8
check poisson-3d 0 'discrete solution .*: ok' -- "$qvtool" poisson --dim 3 --n 12 --symmetric --threads 2
check poisson-bad 2 'out of range' -- "$qvtool" poisson --omega 2
check poisson-option 2 "unknown option '--fast'" -- "$qvtool" poisson --fast 1

[[ $failures -eq 0 ]] && echo "all qvtool checks passed" || echo "$failures qvtool checks failed"
exit $((failures > 0))
