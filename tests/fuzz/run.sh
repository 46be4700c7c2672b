#!/usr/bin/env bash
# Builds the fuzz targets with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer (build/fuzz) and runs them for a bounded number of
# inputs from seed corpora. Any finding fails the run.
#
#   tests/fuzz/run.sh [RUNS] [TARGET]   (default 100000 runs; TARGET
#                                        matrixmarket, expr or all, default all)
#
# matrixmarket: the MatrixMarket reader, from the hand-written seeds here and a
# small piece of every test matrix. Allocations above max_allocation_size_mb
# fail (the target turns that into std::bad_alloc), so every refused
# allocation must be handled by the reader.
# expr: the expression reader (infix and prefix), from tests/fuzz/seeds_expr.
# A longer run of the expression reader (about 40 minutes on one core):
#   tests/fuzz/run.sh 10000000 expr
set -euo pipefail
cd "$(dirname "$0")/../.."
runs=${1:-100000}
which=${2:-all}
build=build/fuzz

CXX=clang++-14 cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQV_SANITIZE=address,undefined,fuzzer-no-link -DQV_BUILD_FUZZ=ON >/dev/null
cmake --build "$build" -j "$(nproc)" >/dev/null

# fuzz <target> <dict> <max_len> <seed dir>...: runs the target on a fresh corpus.
fuzz() {
  local target=$1 dict=$2 maxlen=$3
  shift 3
  local corpus=$build/corpus_$target log=$build/fuzz_$target.log
  rm -rf "$corpus"
  mkdir -p "$corpus"
  ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=32:detect_leaks=1 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$build/tests/fuzz/fuzz_$target" -runs="$runs" -seed=1 -max_len="$maxlen" -rss_limit_mb=1024 \
    -timeout=10 -dict="$dict" -print_final_stats=1 \
    -artifact_prefix="$build/" "$corpus" "$@" 2>"$log" || {
      tail -n 60 "$log"
      echo "fuzz $target: finding (input saved under $build/)"
      exit 1
    }
  echo "fuzz $target:"
  grep -E '^stat::number_of_executed_units|^Done' "$log" || true
}

if [[ $which == all || $which == matrixmarket ]]; then
  # Seeds from the test matrices: header, entries within the leading 40 x 40
  # block (20 at most), and the size line made to match.
  seeds=$build/seeds
  rm -rf "$seeds"
  mkdir -p "$seeds"
  cp tests/fuzz/seeds/*.mtx "$seeds"/
  for f in tests/data/*.mtx; do
    awk -v lim=40 -v keep=20 '
      NR == 1 { print; next }
      /^%/ { next }
      !sized { sized = 1; m = $1 < lim ? $1 : lim; n = $2 < lim ? $2 : lim; next }
      $1 <= m && $2 <= n && count < keep { e[count++] = $0 }
      END { print m, n, count; for (k = 0; k < count; k++) print e[k] }' "$f" >"$seeds/$(basename "$f")"
  done
  fuzz matrixmarket tests/fuzz/matrixmarket.dict 512 "$seeds"
fi
if [[ $which == all || $which == expr ]]; then
  fuzz expr tests/fuzz/expr.dict 256 tests/fuzz/seeds_expr
fi
