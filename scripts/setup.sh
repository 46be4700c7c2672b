#!/usr/bin/env bash
# Installs from Debian's packages what building and testing qvarray needs.
# Idempotent: when everything is present it only asks dpkg and returns.
set -euo pipefail
pkgs=(g++ cmake ninja-build
      libopenblas0-openmp libopenblas-openmp-dev   # BLAS + LAPACK, OpenMP threading
      libgtest-dev libbenchmark-dev                # tests and benchmarks
      libeigen3-dev libsuitesparse-dev             # side-by-side benchmarks only
      libomp-14-dev                                # OpenMP runtime with Archer for ThreadSanitizer
      openjdk-17-jdk-headless                      # JNI headers and the JVM of the Java bridge test
      clang-14 libclang-rt-14-dev libfuzzer-14-dev # libFuzzer (-fsanitize=fuzzer) for tests/fuzz
      libsleef-dev libboost-math-dev               # SIMD elementary functions, special functions
      libfftw3-dev libqhull-dev libnanoflann-dev   # FFT plans, triangulations, k-d trees
      libasm-java                                  # class-file checks of the expression compiler
      python3-mpmath python3-scipy python3-numpy   # reference values and peers
      libmuparser-dev libginac-dev python3-numexpr # expression-engine peers, benchmarks only
      libpetsc-real3.18-dev                        # distributed solves (optional qvarray_petsc)
      ccache)                                      # shared compiler cache for work trees
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
