#!/usr/bin/env bash
# Command-line checks of qvtool: exit status and messages of the subcommand
# dispatcher and of every subcommand on good, hostile, singular, non-finite
# and mis-shaped input, on bad option values and on --help.
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
  # A number below the bound: 'nan' and 'inf' fail (mawk compares NaN as true).
  awk -v r="$r" -v b="$bound" 'BEGIN { exit !(r ~ /^[0-9.]+([eE][-+]?[0-9]+)?$/ && r + 0 <= b + 0) }'
}

mm() { printf '%%%%MatrixMarket matrix %s\n' "$1"; shift; printf '%s\n' "$@"; }
mm "coordinate real general" "3 3 3" "1 1 2" "2 2 4" "3 3 8" >"$tmp/D.mtx"
mm "array real general" "3 2" 1 2 3 4 5 6 >"$tmp/B.mtx"
mm "array real general" "2 1" 1 2 >"$tmp/b2.mtx"
mm "coordinate real general" "3 3 4" "1 1 2" "2 2 3" "3 3 4" "2 1 x" >"$tmp/bad.mtx"
mm "coordinate real general" "2 2 2" "1 1 1" "2 1 1" >"$tmp/singular.mtx"
mm "coordinate real general" "2 2 2" "1 1 inf" "2 2 1" >"$tmp/inf.mtx"
mm "array real general" "0 0" >"$tmp/empty.mtx"
mm "coordinate real general" "2 2 2" "1 1 1" "2 2 nan" >"$tmp/nan.mtx"
mm "coordinate real general" "2 2 3" "1 1 1e308" "1 1 1e308" "2 2 1" >"$tmp/sum.mtx"
mm "coordinate real general" "2 2 3" "1 1 1e308" "1 2 1e308" "2 2 1" >"$tmp/big.mtx"
printf '%%%%MatrixMarket junk coordinate real general\n2 2 1\n1 1 1\n' >"$tmp/junk.mtx"
mm "coordinate complex general" "2 2 2" "1 1 1" "2 2 1 1" >"$tmp/noimag.mtx"
printf '%%%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 1\n2 2 1\0x\n' >"$tmp/nul.mtx"

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
# Every command that reads a file: one line "qvtool: FILE:LINE: sentence" for
# a broken file, a missing one and a non-finite entry, never the raw
# exception (key, source module and line), never cut at a NUL byte.
# All of them read through the one reader: the same sentence from each.
for cmd in sparse spmv gmres band solve; do
  check "$cmd-bad-value" 1 "^qvtool: $tmp/bad.mtx:6: Invalid number 'x'\.$" -- "$qvtool" $cmd "$tmp/bad.mtx"
  check "$cmd-junk" 1 "^qvtool: $tmp/junk.mtx:1: Object 'junk' is not supported" \
    -- "$qvtool" $cmd "$tmp/junk.mtx"
  check "$cmd-nul" 1 "^qvtool: $tmp/nul.mtx:4: .*'1\\\\0x'" -- "$qvtool" $cmd "$tmp/nul.mtx"
  check "$cmd-missing-file" 1 "^qvtool: $tmp/none.mtx: Cannot open file" -- "$qvtool" $cmd "$tmp/none.mtx"
  check "$cmd-inf" 1 "^qvtool: $tmp/inf.mtx:3: the entry '1 1 inf' is not a finite number$" \
    -- "$qvtool" $cmd "$tmp/inf.mtx"
  check "$cmd-nan" 1 "^qvtool: $tmp/nan.mtx:4: the entry '2 2 nan' is not a finite number$" \
    -- "$qvtool" $cmd "$tmp/nan.mtx"
  check "$cmd-sum" 1 "^qvtool: $tmp/sum.mtx: .*\(1,1\) overflow" -- "$qvtool" $cmd "$tmp/sum.mtx"
  check "$cmd-help" 0 "^usage: qvtool $cmd " -- "$qvtool" $cmd --help
  out=$("$qvtool" $cmd "$tmp/noimag.mtx" 2>&1)
  if [[ $out =~ \([a-z]+:[0-9]+\)|_[a-z]+_|Line\ = ]]; then
    echo "FAIL $cmd-raw: $out"; failures=$((failures + 1)); fi
done
for cmd in band gmres; do
  check "$cmd-non-square" 1 'lp_afiro.mtx: the matrix is not square \(27 x 51\)' \
    -- "$qvtool" $cmd "$matrices/lp_afiro.mtx"
  check "$cmd-overflow" 1 'big.mtx: the right-hand side A\*\(1, \.\.\., 1\) overflows' \
    -- "$qvtool" $cmd "$tmp/big.mtx"
done
for cmd in null poisson blas psolve; do check "$cmd-help" 0 "^usage: qvtool $cmd" -- "$qvtool" $cmd -h; done
# A qvtool without its PETSc module beside it (a copy elsewhere) says so.
cp "$qvtool" "$tmp/qvtool"
check psolve-absent 2 '^qvtool psolve: needs the PETSc bridge' -- "$tmp/qvtool" psolve "$tmp/D.mtx" "$tmp/b2.mtx"

# Bad option values are named with the option.
check gmres-tol 2 "^qvtool gmres: --tol: 'abc' is not a number$" -- "$qvtool" gmres --tol abc "$tmp/D.mtx"
check gmres-restart 2 "^qvtool gmres: --restart needs a value$" -- "$qvtool" gmres "$tmp/D.mtx" --restart
check null-grid 2 "^qvtool null: --grid: '41' is out of range \(3 to 40\)$" -- "$qvtool" null --grid 41
check spmv-threads 2 "^qvtool spmv: --threads: 'x' is not an integer$" -- "$qvtool" spmv --threads x "$tmp/D.mtx"
check sparse-two-files 2 "^qvtool sparse: unexpected argument" -- "$qvtool" sparse "$tmp/D.mtx" "$tmp/D.mtx"
check sparse-no-file 2 "^qvtool sparse: no matrix file given$" -- "$qvtool" sparse --print
# 2^31 columns for one entry: refused before 16 GiB are asked for, naming the size line.
printf '%%%%MatrixMarket matrix coordinate real general\n3 2147483648 1\n1 1 1.0\n' > "$tmp/wide.mtx"
check sparse-wide 1 "^qvtool: $tmp/wide.mtx:2: not enough memory to read the matrix \\(A 3 x 2147483648" \
  -- "$qvtool" sparse "$tmp/wide.mtx"
check blas-argument 2 "^qvtool blas: unexpected argument 'x'" -- "$qvtool" blas x

# sparse: the library's text header, every entry with --print (the Hermitian
# file expanded: the conjugate of 3 + 0i prints as (3,-0)), symmetric storage.
out=$("$qvtool" sparse "$matrices/c.mtx" --print 2>&1)
want=$'Sparse 3-by-3 matrix. Nnz = 7.\n    Row    Col               Value\n      0      0               (1,0)
      2      0              (2,-1)\n      1      1               (1,0)\n      2      1               (3,0)
      0      2               (2,1)\n      1      2              (3,-0)\n      2      2              (42,0)'
[[ $out == "$want"$'\nRead time: '*$'\nAssembly time: '* ]] || { echo "FAIL sparse-print: $out"; failures=$((failures + 1)); }
check sparse-symmetric 0 '^Symmetric\.$' -- "$qvtool" sparse --symmetric "$matrices/c.mtx"
check sparse-nnz 0 'Nnz = 5\.' -- "$qvtool" sparse --symmetric "$matrices/c.mtx"
check band 0 'max error against x = \(1, \.\.\., 1\): ' -- "$qvtool" band --sym "$matrices/494_bus.mtx"
check gmres 0 '^converged after ' -- "$qvtool" gmres --jacobi "$matrices/west0067.mtx" --restart 67
# The residual history: a summary of at most about 25 lines by default, every
# iteration with --history.
lines() { "$@" 2>&1 | grep -Ec '^ +[0-9]+  [0-9.e+-]+$'; }
short=$(lines "$qvtool" gmres "$matrices/west0067.mtx" --maxit 200)
long=$(lines "$qvtool" gmres "$matrices/west0067.mtx" --maxit 200 --history)
[[ $short -le 27 && $long -eq 201 ]] || { echo "FAIL gmres-history: $short and $long lines"; failures=$((failures + 1)); }
check gmres-not-converged 1 'west0067.mtx: GMRES did not converge \(iteration limit reached\)$' \
  -- "$qvtool" gmres "$matrices/west0067.mtx" --maxit 20
check spmv 0 'Effective bandwidth: ' -- "$qvtool" spmv "$matrices/lp_afiro.mtx" --trans --reps 3
spmv_out='^Sparse 3-by-3 matrix\. Nnz = 7\.
Product: y \+= A\*x, complex, 1 thread, serial kernel
First product: [0-9.e+-]+ s
Products: 3
Time per product: [0-9.e+-]+ s \(median; fastest [0-9.e+-]+ s\)
Time per non-zero: [0-9.e+-]+ ns
Effective bandwidth: [0-9.e+-]+ GB/s$'
[[ $("$qvtool" spmv "$matrices/c.mtx" --reps 3 --threads 1 2>&1) =~ $spmv_out ]] ||
  { echo "FAIL spmv-output"; failures=$((failures + 1)); }
kernel=$([[ $(nproc) -ge 2 ]] && echo "2 threads, parallel" || echo "1 thread, serial")
[[ $("$qvtool" spmv --trans --symmetric "$matrices/bcsstk13.mtx" --reps 2 --threads 2 2>&1) =~ \
   Symmetric\.$'\n'"Product: y += A^T*x, real, $kernel kernel" ]] ||
  { echo "FAIL spmv-parallel"; failures=$((failures + 1)); }
# The library's run log reaches stderr through the sink qvtool sets.
check log-sink 0 "^qvtool: warning: OpenBLAS runs its 'Sandybridge' kernels" \
  -- env QVARRAY_BLAS_RELAUNCHED=1 OPENBLAS_CORETYPE=Sandybridge "$qvtool" blas

# Constraint elimination against Lagrange multipliers (exit 0: the solutions agree).
for fun in auto orth sparse; do
  check "null-$fun" 0 '2 redundant constraints' -- "$qvtool" null --grid 12 --nullfun "$fun"
done
check null-bad-nullfun 2 "--nullfun: 'qr' is not one of auto, orth, sparse" -- "$qvtool" null --nullfun qr
# Poisson: GMRES with symmetric SOR reaches the discrete solution; SOR converges.
check poisson-2d 0 'discrete solution .*: ok' -- "$qvtool" poisson --n 30 --sor-maxit 3000 --omega 1.8
check poisson-sor 0 'converged after [0-9]+ iterations .*relative error' -- \
  "$qvtool" poisson --n 30 --sor-maxit 3000 --omega 1.8
check poisson-3d 0 'discrete solution .*: ok' -- "$qvtool" poisson --dim 3 --n 12 --symmetric --threads 2
check poisson-bad 2 'out of range' -- "$qvtool" poisson --omega 2
check poisson-option 2 "unknown option '--fast'" -- "$qvtool" poisson --fast 1
# Expressions: prefix form and text printed back; syntax errors with their position.
check parse-unary 0 '^prefix: U- \+ a b$' -- "$qvtool" parse "-a+b"
check parse-print 0 "^infix:  \\(-a\\)\\+f\\(x,'it''s'\\)\\[m\\]$" -- "$qvtool" parse "(-a) + f(x, 'it''s')[m]"
check parse-simp 0 '^simplified infix:  6\*x$' -- "$qvtool" parse "2*3*x+0" --simp
check parse-error 1 'unexpected end of expression \(Position = 2; Expression = a\+\)' -- "$qvtool" parse "a+"
check parse-help 0 '-a\+b means -\(a\+b\)' -- "$qvtool" parse --help
check parse-none 2 'no expression given' -- "$qvtool" parse

# eval: values at round-trip precision, derivatives (values and text),
# dependency records, complex evaluation, and the errors with their details.
check eval-points 0 '^x = 0\.5:  2$' -- "$qvtool" eval "x*y+1" x=0:0.5:1 y=2
check eval-last 0 '^x = 1:  3$' -- "$qvtool" eval "x*y+1" x=0:0.5:1 y=2
check eval-roundtrip 0 '^0\.3333333333333333$' -- "$qvtool" eval "x/3" x=1
check eval-def 0 '^x = 2, y = 5:  7$' -- "$qvtool" eval "a" x=1,2 y=4,5 --def a=x+y
check eval-diff 0 '^12$' -- "$qvtool" eval "x^3" x=2 --diff x
check eval-text 0 'cos\(x\)' -- "$qvtool" eval "sin(x)*x" --diff x --text
check eval-deps 0 '^u: orders 0 1; nonlinear in orders 0 1$' -- "$qvtool" eval "ut*u+p" --deps u:1 --params p
check eval-params 0 '^p: orders 0; nonlinear in orders none$' -- "$qvtool" eval "ut*u+p" --deps u:1 --params p
check eval-complex 0 '^0\+2i$' -- "$qvtool" eval "sqrt(x)" x=-4 --complex
check eval-syntax 1 'Position = 2.*x\+|x\+.*Position = 2' -- "$qvtool" eval "x+" x=1
check eval-nan 1 'message = log.*exprs = log\(x\)' -- "$qvtool" eval "log(x)" x=-1
check eval-unknown 1 '[Uu]nknown.variable.name.*q' -- "$qvtool" eval "x+q" x=1
check eval-circular 1 'circvar' -- "$qvtool" eval "a" --def a=b --def b=a
check eval-lengths 2 "'y': 3 values, other variables have 2" -- "$qvtool" eval "x+y" x=1,2 y=1,2,3
check eval-help 0 'round-trip precision' -- "$qvtool" eval --help

# Interpolation: a cubic through five points is exact (not-a-knot spline);
# file errors name the line; points outside refused on request.
printf '%% x f\n0 0\n1 1\n2 8\n3 27\n4 64\n' >"$tmp/cubic.txt"
printf '0 1\n1 x\n' >"$tmp/badinterp.txt"
check interp-cubic 0 '^x = 2.5:  15.625$' -- "$qvtool" interp "$tmp/cubic.txt" --method cubicspline --at x=2.5
check interp-deriv 0 '^x = 2.5:  18.75$' -- "$qvtool" interp "$tmp/cubic.txt" --method cubicspline --at 2.5 --deriv x
check interp-bad-file 1 'badinterp.txt:2: .x. is not a number' -- "$qvtool" interp "$tmp/badinterp.txt" --at 0.5
check interp-outside 1 'Point outside interpolation data' -- \
  "$qvtool" interp "$tmp/cubic.txt" --at 5 --extrapolation error
check interp-bad-point 2 "--at: 'a' is not a finite number" -- "$qvtool" interp "$tmp/cubic.txt" --at x=a

# Compiled definitions: the class runs in the JVM (when there is one) with
# eval's values, its domain status, and Math.round's value at 0.49999999999999994.
printf '# demo\ns = a + b\ny = sqrt(s) * 2\nz = round(a)\n' >"$tmp/defs.txt"
check compile 0 'wrote .*Demo.class \(3 definitions' -- \
  "$qvtool" compile "$tmp/defs.txt" --class Demo --inputs a,b --outputs y,z -o "$tmp/Demo.class"
check compile-no-file 1 'Cannot create native file: Name = /nonexistent/D.class' -- \
  "$qvtool" compile "$tmp/defs.txt" --class D --inputs a,b --outputs y -o /nonexistent/D.class
check compile-undefined 1 'Undefined inputs: b' -- \
  "$qvtool" compile "$tmp/defs.txt" --class D --inputs a --outputs y -o "$tmp/D.class"
check compile-no-class 2 'no --class given' -- "$qvtool" compile "$tmp/defs.txt" --outputs y
if command -v java >/dev/null || [[ -n ${JAVA_HOME:-} ]]; then
  check run-class 0 '^out0 = 4\.0$' -- "$qvtool" run-class "$tmp/Demo.class" 1 3
  check run-class-sqrt 0 'status -2' -- "$qvtool" run-class "$tmp/Demo.class" -5 1
  check run-class-round 0 'out1 = 0.0' -- "$qvtool" run-class "$tmp/Demo.class" 0.49999999999999994 1
  check run-class-arity 1 'Demo takes 2 inputs, 1 given' -- "$qvtool" run-class "$tmp/Demo.class" 1
fi
check run-class-number 2 "'x' is not a number" -- "$qvtool" run-class "$tmp/Demo.class" x
check run-class-missing 1 'no such class file' -- "$qvtool" run-class "$tmp/None.class" 1

[[ $failures -eq 0 ]] && echo "all qvtool checks passed" || echo "$failures qvtool checks failed"
exit $((failures > 0))
