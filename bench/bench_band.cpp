// BandMatrix factor+solve side by side with LAPACK's dgbsv called directly on
// the same band storage, and with a dense dgesv of the same matrix (n = 1000
// only: the dense matrix of n = 100000 would need 80 GB).
//
// Names: band/<n>/<impl>, impl one of
//   qvarray  BandMatrix::solve (band LU and back substitution)
//   dgbsv    LAPACK's band driver called directly
//   dgesv    LAPACK's dense driver on the full matrix
// Every form first restores its input (the factorisation works in place), so
// each timing includes one copy of the matrix and right-hand side.
//
// Checks (once per n, before timing): dgbsv gives the library's solution bit
// for bit (the same band factorisation and substitution); dgesv, with its
// dense pivoting, within 1e-10 of the largest solution entry.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>

#include "benchcheck.h"
#include "qvarray/bandmatrix.h"

extern "C" {
void dgbsv_(const int* n, const int* kl, const int* ku, const int* nrhs, double* ab,
            const int* ldab, int* ipiv, double* b, const int* ldb, int* info);
void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv, double* b,
            const int* ldb, int* info);
}

namespace {

constexpr int kBand = 5;  // kl = ku

// A random band matrix, not diagonally dominant, so that pivoting happens.
BandMatrix randomBand(int n) {
  std::mt19937_64 gen(42);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  BandMatrix B(n, kBand, kBand);
  for (int j = 0; j < n; ++j)
    for (int i = std::max(0, j - kBand); i <= std::min(n - 1, j + kBand); ++i)
      B(i, j) = dist(gen) + (i == j ? 1.0 : 0.0);
  return B;
}

Array<double, 1> ones(int n) {
  Array<double, 1> b(static_cast<size_t>(n));
  b.fill(1.0);
  return b;
}

// One solve of B·x = 1 by each form, on fresh copies: the solution.
Array<double, 1> solveQvarray(int n) {
  BandMatrix B = randomBand(n);
  Array<double, 1> b = ones(n);
  B.solve(b, 3);
  return b;
}

Array<double, 1> solveDgbsv(int n) {
  const BandMatrix B = randomBand(n);
  Array<double, 2> ab = B.getArr();
  Array<double, 1> b = ones(n);
  Array<int, 1> ipiv(static_cast<size_t>(n));
  const int kl = kBand, ku = kBand, nrhs = 1, ldab = static_cast<int>(ab.sizes[0]);
  int info = 0;
  dgbsv_(&n, &kl, &ku, &nrhs, ab.data, &ldab, ipiv.data, b.data, &n, &info);
  return b;
}

Array<double, 2> denseOf(const BandMatrix& B, int n) {
  Array<double, 2> A(static_cast<size_t>(n), static_cast<size_t>(n));
  A.fill(0.0);
  for (int j = 0; j < n; ++j)
    for (int i = std::max(0, j - kBand); i <= std::min(n - 1, j + kBand); ++i) A(i, j) = B(i, j);
  return A;
}

Array<double, 1> solveDgesv(int n) {
  Array<double, 2> A = denseOf(randomBand(n), n);
  Array<double, 1> b = ones(n);
  Array<int, 1> ipiv(static_cast<size_t>(n));
  const int nrhs = 1;
  int info = 0;
  dgesv_(&n, &nrhs, A.data, &n, ipiv.data, b.data, &n, &info);
  return b;
}

bool checked(benchmark::State& st, const char* impl, int n) {
  const auto& agreements = qvbench::checked("band/" + std::to_string(n), [n] {
    const Array<double, 1> ours = solveQvarray(n), band = solveDgbsv(n);
    qvbench::Agreements a{{"qvarray", {0.0, 0.0}},
                          {"dgbsv", {qvbench::bitDiff(ours.data, band.data, ours.count), 0.0}}};
    if (n <= 1000) {
      const Array<double, 1> dense = solveDgesv(n);
      a["dgesv"] = {qvbench::relDiff(ours.data, dense.data, ours.count), 1e-10};
    }
    return a;
  });
  return qvbench::agrees(st, agreements, impl);
}

void bandQvarray(benchmark::State& st, int n) {
  if (!checked(st, "qvarray", n)) return;
  const BandMatrix B0 = randomBand(n);
  const Array<double, 1> b0 = ones(n);
  BandMatrix B = B0;
  Array<double, 1> b = b0;
  for (auto _ : st) {
    B = B0;
    b = b0;
    B.solve(b, 3);
    benchmark::DoNotOptimize(b.data);
  }
}

void bandDgbsv(benchmark::State& st, int n) {
  if (!checked(st, "dgbsv", n)) return;
  const BandMatrix B0 = randomBand(n);
  const Array<double, 1> b0 = ones(n);
  Array<double, 2> ab = B0.getArr();
  Array<double, 1> b = b0;
  Array<int, 1> ipiv(static_cast<size_t>(n));
  const int kl = kBand, ku = kBand, nrhs = 1, ldab = static_cast<int>(ab.sizes[0]);
  int info = 0;
  for (auto _ : st) {
    ab = B0.getArr();
    b = b0;
    dgbsv_(&n, &kl, &ku, &nrhs, ab.data, &ldab, ipiv.data, b.data, &n, &info);
    benchmark::DoNotOptimize(b.data);
  }
  if (info != 0) st.SkipWithError("dgbsv failed");
}

void bandDgesv(benchmark::State& st, int n) {
  if (!checked(st, "dgesv", n)) return;
  const Array<double, 2> A0 = denseOf(randomBand(n), n);
  const Array<double, 1> b0 = ones(n);
  Array<double, 2> A = A0;
  Array<double, 1> b = b0;
  Array<int, 1> ipiv(static_cast<size_t>(n));
  const int nrhs = 1;
  int info = 0;
  for (auto _ : st) {
    A = A0;
    b = b0;
    dgesv_(&n, &nrhs, A.data, &n, ipiv.data, b.data, &n, &info);
    benchmark::DoNotOptimize(b.data);
  }
  if (info != 0) st.SkipWithError("dgesv failed");
}

const bool kRegistered = [] {
  for (int n : {1000, 100000}) {
    const std::string k = "band/" + std::to_string(n) + "/";
    benchmark::RegisterBenchmark((k + "qvarray").c_str(), bandQvarray, n)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark((k + "dgbsv").c_str(), bandDgbsv, n)
        ->Unit(benchmark::kMicrosecond);
    if (n <= 1000)
      benchmark::RegisterBenchmark((k + "dgesv").c_str(), bandDgesv, n)
          ->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
