#!/usr/bin/env bash
# Sets up, builds and runs every test: the optimised build (with the benchmarks
# compiled, not run, and an outside project consuming the installed package),
# then the whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer,
# and the tests of the parallel sparse kernels under ThreadSanitizer.
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

# ThreadSanitizer: LLVM's OpenMP runtime with Archer stands in for the
# uninstrumented libgomp (tests/CMakeLists.txt); the preset selects the tests
# (the parallel sparse kernels, parallel interpolation batches, start-up from
# several threads at once, the per-thread scratch-array pools and the node
# factory's per-thread tables, FFT plans made from several threads).
cmake --preset tsan
cmake --build --preset tsan -j "$jobs" --target test_sparseops test_init test_relax test_util test_interp test_values test_nodes test_evaltree test_evaluate test_fftplan check_error_keys
ctest --preset tsan -j "$jobs"

# Fuzzing: the MatrixMarket reader and the expression reader under libFuzzer
# with AddressSanitizer and UndefinedBehaviorSanitizer, a bounded run of each
# from its seed corpus (clang build in build/fuzz; tests/fuzz/run.sh). Any
# finding fails the script.
tests/fuzz/run.sh 100000

ctest --preset release -j "$jobs"
