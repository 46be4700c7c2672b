// Dense kernels side by side with a direct call of the BLAS/LAPACK routine
// each one wraps, and with Eigen's own kernels (no BLAS back end).
//
// Every benchmark is named <kernel>/<form>/<n>, form one of
//   wrapper  the qvarray function (Array form)
//   direct   the BLAS or LAPACK routine that the wrapper calls, called directly
//   eigen    the same operation through Eigen on the same storage
//   loop     (norm, scale) the plain vectorisable loop that the wrapper runs
//            for n <= 50, here at every n: where it stops beating the direct
//            call is where the threshold belongs
// bench/dense_ratios.py runs this program with repetitions and prints the
// ratios wrapper/direct, wrapper/eigen and loop/direct per n.
//
// Eigen is compiled for the same portable x86-64 baseline as the library
// (SSE2), while OpenBLAS chooses its kernels (AVX-512 here) at run time; its
// norm() is the plain sum of squares, where dnrm2 scales against overflow.
#include <benchmark/benchmark.h>
#include <cblas.h>

#include <Eigen/Dense>
#include <cmath>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "qvarray/arrayutil.h"

extern "C" void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv,
                       double* b, const int* ldb, int* info);

namespace {

using Vec = Array<double, 1>;
using EigenMap = Eigen::Map<Eigen::VectorXd>;
using EigenConstMap = Eigen::Map<const Eigen::VectorXd>;

constexpr std::initializer_list<int> kVectorSizes = {10, 50, 51, 1000, 100000};
constexpr std::initializer_list<int> kSolveSizes = {8, 64, 512};

Vec randomVector(size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  Vec v(n);
  for (double& x : v) x = dist(gen);
  return v;
}

// A random matrix made diagonally dominant, so that every solve is well posed.
Array<double, 2> randomSystem(size_t n) {
  Vec v = randomVector(n * n, 11);
  Array<double, 2> A(n, n);
  std::copy(v.begin(), v.end(), A.data);
  for (size_t i = 0; i < n; ++i) A(i, i) += static_cast<double>(n);
  return A;
}

void setItems(benchmark::State& st) { st.SetItemsProcessed(st.iterations() * st.range(0)); }

// ---------------------------------------------------------------- dot: Σ x·y
void dotWrapper(benchmark::State& st) {
  const Vec x = randomVector(st.range(0), 1), y = randomVector(st.range(0), 2);
  for (auto _ : st) benchmark::DoNotOptimize(qvarray::dot(x, y));
  setItems(st);
}
void dotDirect(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1), y = randomVector(n, 2);
  for (auto _ : st) benchmark::DoNotOptimize(cblas_ddot(n, x.data, 1, y.data, 1));
  setItems(st);
}
void dotEigen(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1), y = randomVector(n, 2);
  const EigenConstMap ex(x.data, n), ey(y.data, n);
  for (auto _ : st) benchmark::DoNotOptimize(ex.dot(ey));
  setItems(st);
}

// ------------------------------------------------------ yPlusaMulx: y += a·x
constexpr double kA = 1e-9;  // small, so that y stays bounded however long the run

void axpyWrapper(benchmark::State& st) {
  const Vec x = randomVector(st.range(0), 1);
  Vec y = randomVector(st.range(0), 2);
  for (auto _ : st) {
    qvarray::yPlusaMulx(y, kA, x);
    benchmark::DoNotOptimize(y.data);
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void axpyDirect(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1);
  Vec y = randomVector(n, 2);
  for (auto _ : st) {
    cblas_daxpy(n, kA, x.data, 1, y.data, 1);
    benchmark::DoNotOptimize(y.data);
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void axpyEigen(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1);
  Vec y = randomVector(n, 2);
  const EigenConstMap ex(x.data, n);
  EigenMap ey(y.data, n);
  for (auto _ : st) {
    ey += kA * ex;
    benchmark::DoNotOptimize(y.data);
    benchmark::ClobberMemory();
  }
  setItems(st);
}

// ------------------------------------------------------------- norm: ‖x‖₂
void normWrapper(benchmark::State& st) {
  const Vec x = randomVector(st.range(0), 1);
  for (auto _ : st) benchmark::DoNotOptimize(qvarray::norm(x));
  setItems(st);
}
void normDirect(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1);
  for (auto _ : st) benchmark::DoNotOptimize(cblas_dnrm2(n, x.data, 1));
  setItems(st);
}
void normEigen(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1);
  const EigenConstMap ex(x.data, n);
  for (auto _ : st) benchmark::DoNotOptimize(ex.norm());
  setItems(st);
}
void normLoop(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Vec x = randomVector(n, 1);
  for (auto _ : st) {
    const double* p = x.data;
    benchmark::DoNotOptimize(p);
    double s = 0;
#pragma omp simd reduction(+ : s)
    for (int i = 0; i < n; ++i) s += p[i] * p[i];
    benchmark::DoNotOptimize(std::sqrt(s));
  }
  setItems(st);
}

// ------------------------------------------------------------- scale: x *= a
constexpr double kS = -1.0;  // keeps x bounded; BLAS has no shortcut for it

void scaleWrapper(benchmark::State& st) {
  Vec x = randomVector(st.range(0), 1);
  for (auto _ : st) {
    qvarray::scale(x, kS);
    benchmark::DoNotOptimize(x.data);
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void scaleDirect(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  Vec x = randomVector(n, 1);
  for (auto _ : st) {
    cblas_dscal(n, kS, x.data, 1);
    benchmark::DoNotOptimize(x.data);
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void scaleEigen(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  Vec x = randomVector(n, 1);
  EigenMap ex(x.data, n);
  for (auto _ : st) {
    ex *= kS;
    benchmark::DoNotOptimize(x.data);
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void scaleLoop(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  Vec x = randomVector(n, 1);
  for (auto _ : st) {
    double* p = x.data;
    benchmark::DoNotOptimize(p);
#pragma omp simd
    for (int i = 0; i < n; ++i) p[i] *= kS;
    benchmark::ClobberMemory();
  }
  setItems(st);
}

// ------------------------------------------------ linsolv: A·x = b, LU with pivoting
// Each form restores A and b from a copy every iteration (the solve
// overwrites them); the copy is the same for all three forms.
void solveWrapper(benchmark::State& st) {
  const size_t n = st.range(0);
  const Array<double, 2> A0 = randomSystem(n);
  const Vec b0 = randomVector(n, 3);
  Array<double, 2> A = A0;
  Vec b = b0;
  for (auto _ : st) {
    A = A0;
    b = b0;
    benchmark::DoNotOptimize(qvarray::linsolv(A, b, qvarray::RaiseAll));
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void solveDirect(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Array<double, 2> A0 = randomSystem(n);
  const Vec b0 = randomVector(n, 3);
  Array<double, 2> A = A0;
  Vec b = b0;
  std::vector<int> ipiv(n);
  const int nrhs = 1;
  int info = 0;
  for (auto _ : st) {
    A = A0;
    b = b0;
    dgesv_(&n, &nrhs, A.data, &n, ipiv.data(), b.data, &n, &info);
    benchmark::DoNotOptimize(info);
    benchmark::ClobberMemory();
  }
  setItems(st);
}
void solveEigen(benchmark::State& st) {
  const int n = static_cast<int>(st.range(0));
  const Array<double, 2> A0 = randomSystem(n);
  const Vec b0 = randomVector(n, 3);
  const Eigen::Map<const Eigen::MatrixXd> eA(A0.data, n, n);
  const EigenConstMap eb(b0.data, n);
  Eigen::PartialPivLU<Eigen::MatrixXd> lu(n);
  Eigen::VectorXd x(n);
  for (auto _ : st) {
    lu.compute(eA);  // copies A into its own storage, then factorises
    x = lu.solve(eb);
    benchmark::DoNotOptimize(x.data());
    benchmark::ClobberMemory();
  }
  setItems(st);
}

void add(const char* name, void (*fn)(benchmark::State&), std::initializer_list<int> sizes) {
  auto* b = benchmark::RegisterBenchmark(name, fn);
  for (int n : sizes) b->Arg(n);
}

// Registered at start-up, kernel by kernel, so that related rows sit together.
const bool kRegistered = [] {
  add("linsolv/wrapper", solveWrapper, kSolveSizes);
  add("linsolv/direct", solveDirect, kSolveSizes);
  add("linsolv/eigen", solveEigen, kSolveSizes);
  add("dot/wrapper", dotWrapper, kVectorSizes);
  add("dot/direct", dotDirect, kVectorSizes);
  add("dot/eigen", dotEigen, kVectorSizes);
  add("yPlusaMulx/wrapper", axpyWrapper, kVectorSizes);
  add("yPlusaMulx/direct", axpyDirect, kVectorSizes);
  add("yPlusaMulx/eigen", axpyEigen, kVectorSizes);
  add("norm/wrapper", normWrapper, kVectorSizes);
  add("norm/direct", normDirect, kVectorSizes);
  add("norm/eigen", normEigen, kVectorSizes);
  add("norm/loop", normLoop, kVectorSizes);
  add("scale/wrapper", scaleWrapper, kVectorSizes);
  add("scale/direct", scaleDirect, kVectorSizes);
  add("scale/eigen", scaleEigen, kVectorSizes);
  add("scale/loop", scaleLoop, kVectorSizes);
  return true;
}();

}  // namespace
