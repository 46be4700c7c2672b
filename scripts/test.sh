#!/usr/bin/env bash
# Sets up, builds and runs every test: the optimised build (with the benchmarks
# compiled, not run, and an outside project consuming the installed package),
# then the whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
jobs=$(nproc)

cmake --preset release
cmake --build --preset release -j "$jobs"
cmake --install build/release >/dev/null
cmake -S examples/consumer -B build/consumer -G Ninja \
      -DCMAKE_PREFIX_PATH="$PWD/build/install" >/dev/null
cmake --build build/consumer
build/consumer/consumer

cmake --preset asan
cmake --build --preset asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --preset asan -j "$jobs"

ctest --preset release -j "$jobs"
