#!/usr/bin/env bash
# Builds the MatrixMarket fuzz target with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer (build/fuzz) and runs it for a bounded number of
# inputs from a seed corpus: the hand-written seeds here and a small piece of
# every test matrix. Any finding fails the run.
#
#   tests/fuzz/run.sh [RUNS]     (default 100000)
#
# Allocations above max_allocation_size_mb fail (the target turns that into
# std::bad_alloc), so every refused allocation must be handled by the reader.
set -euo pipefail
cd "$(dirname "$0")/../.."
runs=${1:-100000}
build=build/fuzz

CXX=clang++-14 cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQV_SANITIZE=address,undefined,fuzzer-no-link -DQV_BUILD_FUZZ=ON >/dev/null
cmake --build "$build" -j "$(nproc)" >/dev/null

# Seeds from the test matrices: header, entries within the leading 40 x 40
# block (20 at most), and the size line made to match.
seeds=$build/seeds corpus=$build/corpus
rm -rf "$seeds" "$corpus"
mkdir -p "$seeds" "$corpus"
cp tests/fuzz/seeds/*.mtx "$seeds"/
for f in tests/data/*.mtx; do
  awk -v lim=40 -v keep=20 '
    NR == 1 { print; next }
    /^%/ { next }
    !sized { sized = 1; m = $1 < lim ? $1 : lim; n = $2 < lim ? $2 : lim; next }
    $1 <= m && $2 <= n && count < keep { e[count++] = $0 }
    END { print m, n, count; for (k = 0; k < count; k++) print e[k] }' "$f" >"$seeds/$(basename "$f")"
done

ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=32:detect_leaks=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  "$build/tests/fuzz/fuzz_matrixmarket" -runs="$runs" -seed=1 -max_len=512 -rss_limit_mb=1024 \
  -timeout=10 -dict=tests/fuzz/matrixmarket.dict -print_final_stats=1 \
  -artifact_prefix="$build/" "$corpus" "$seeds" 2>"$build/fuzz.log" || {
    tail -n 60 "$build/fuzz.log"
    echo "fuzz: finding (input saved under $build/)"
    exit 1
  }
grep -E '^stat::number_of_executed_units|^Done' "$build/fuzz.log" || true
