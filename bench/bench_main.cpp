// main() of every benchmark program: restart on OpenBLAS's fast kernels, print
// which kernels run, then run the benchmarks.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "qvarray/blasruntime.h"
#include "qvarray/init.h"

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  const auto rt = qvarray::blasRuntime();
  std::printf("OpenBLAS kernels: %s (processor supports %s)\n", rt.coreName.c_str(),
              rt.preferredCore.c_str());
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
