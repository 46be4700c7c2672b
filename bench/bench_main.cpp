// main() of every benchmark program: restart on OpenBLAS's fast kernels, say
// how the library, BLAS and the peers were built (in the output's context
// lines), then run the benchmarks.
#include <benchmark/benchmark.h>

#include <Eigen/Core>
#include <cstdio>
#include <string>

#include "qvarray/blasruntime.h"
#include "qvarray/init.h"

#define QV_STRING_(x) #x
#define QV_STRING(x) QV_STRING_(x)

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  const auto rt = qvarray::blasRuntime();
  const std::string blas =
      "OpenBLAS " + rt.coreName + " kernels (processor supports " + rt.preferredCore + ")";
  const std::string peers = "Eigen " QV_STRING(EIGEN_WORLD_VERSION) "." QV_STRING(
      EIGEN_MAJOR_VERSION) "." QV_STRING(EIGEN_MINOR_VERSION) " and the benchmarks' own loops, "
                           "compiled " QV_BENCH_FLAGS " (Eigen SIMD: " +
                           std::string(Eigen::SimdInstructionSetsInUse()) + ")";
  benchmark::AddCustomContext("blas", blas);
  benchmark::AddCustomContext("compiled", peers);
  benchmark::AddCustomContext("qvarray", "x86-64 baseline, AVX2/AVX-512 paths chosen at run time");
  std::printf("%s\npeers: %s\n", blas.c_str(), peers.c_str());
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
