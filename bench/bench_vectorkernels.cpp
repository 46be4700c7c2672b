// Level-1 and elementwise kernels against their peers in the same run: the
// direct BLAS call for norm, scale and copy (where our inline loop must win
// on short runs and match BLAS on long ones), Eigen for plus and times.
#include <benchmark/benchmark.h>
#include <cblas.h>

#include <Eigen/Core>
#include <vector>

#include "qvarray/arrayutil.h"

namespace {

std::vector<double> ramp(int n) {
  std::vector<double> v(n);
  for (int i = 0; i < n; ++i) v[i] = 1.0 + 1e-3 * i;
  return v;
}

void kernelArgs(benchmark::internal::Benchmark* b) {
  for (int n : {8, 50, 51, 1000, 100000}) b->Arg(n);
}

void BM_norm_qvarray(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n);
  for (auto _ : st) benchmark::DoNotOptimize(qvarray::norm(x.data(), n));
}
void BM_norm_blas(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n);
  for (auto _ : st) benchmark::DoNotOptimize(cblas_dnrm2(n, x.data(), 1));
}

void BM_scale_qvarray(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n);
  for (auto _ : st) {
    qvarray::scale(x.data(), 1.0000001, n);
    benchmark::ClobberMemory();
  }
}
void BM_scale_blas(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n);
  for (auto _ : st) {
    cblas_dscal(n, 1.0000001, x.data(), 1);
    benchmark::ClobberMemory();
  }
}

void BM_copy_qvarray(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n), y = ramp(n);
  for (auto _ : st) {
    qvarray::copy(n, x.data(), y.data());
    benchmark::ClobberMemory();
  }
}
void BM_copy_blas(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n), y = ramp(n);
  for (auto _ : st) {
    cblas_dcopy(n, x.data(), 1, y.data(), 1);
    benchmark::ClobberMemory();
  }
}

void BM_times_qvarray(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n), y = ramp(n), z = ramp(n);
  for (auto _ : st) {
    qvarray::times(n, x.data(), y.data(), z.data());
    benchmark::ClobberMemory();
  }
}
void BM_times_eigen(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n), y = ramp(n), z = ramp(n);
  Eigen::Map<Eigen::ArrayXd> ex(x.data(), n), ey(y.data(), n), ez(z.data(), n);
  for (auto _ : st) {
    ez = ex * ey;
    benchmark::ClobberMemory();
  }
}

void BM_plus_qvarray(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n);
  const double a = 1e-9;
  for (auto _ : st) {
    qvarray::plus(n, x.data(), a, x.data());
    benchmark::ClobberMemory();
  }
}
void BM_plus_eigen(benchmark::State& st) {
  const int n = int(st.range(0));
  auto x = ramp(n);
  Eigen::Map<Eigen::ArrayXd> ex(x.data(), n);
  for (auto _ : st) {
    ex += 1e-9;
    benchmark::ClobberMemory();
  }
}

}  // namespace

BENCHMARK(BM_norm_qvarray)->Apply(kernelArgs);
BENCHMARK(BM_norm_blas)->Apply(kernelArgs);
BENCHMARK(BM_scale_qvarray)->Apply(kernelArgs);
BENCHMARK(BM_scale_blas)->Apply(kernelArgs);
BENCHMARK(BM_copy_qvarray)->Apply(kernelArgs);
BENCHMARK(BM_copy_blas)->Apply(kernelArgs);
BENCHMARK(BM_times_qvarray)->Apply(kernelArgs);
BENCHMARK(BM_times_eigen)->Apply(kernelArgs);
BENCHMARK(BM_plus_qvarray)->Apply(kernelArgs);
BENCHMARK(BM_plus_eigen)->Apply(kernelArgs);
