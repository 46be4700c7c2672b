// qvtool band: solves a sparse system from a MatrixMarket file with band LU.
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <limits>
#include <string>

#include "commands.h"
#include "qvarray/bandmatrix.h"
#include "qvarray/sparse/sparse.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using qvtool::Failure;

template <class T>
double absMax(const qvarray::Array<T, 1>& x) {
  double m = 0.0;
  for (const T& v : x) m = std::max(m, std::abs(v));
  return m;
}

// Fills the band matrix, solves for b = A·1 and prints the outcome.
template <class T, class M>
int solveAndReport(M& A, int n, const std::string& file) {
  qvarray::Array<T, 1> ones(n), b, x;
  ones.fill(T(1));
  A.mul(ones, b);
  if (!qvtool::allFinite(b.data, b.count))
    throw Failure(file + ": the right-hand side A*(1, ..., 1) overflows");
  x = b;
  M A0 = A;  // kept for the residual; A holds its factors afterwards
  qvutil::Stopwatch clock;
  const int info = A.solve(x, 0);
  const double seconds = clock.seconds();
  if (info > 0)
    throw Failure(file + ": the matrix is singular: zero pivot in column " + std::to_string(info));
  if (!qvtool::allFinite(x.data, x.count))
    throw Failure(file + ": the solution overflows; the matrix is singular to working precision");
  qvarray::Array<T, 1> r;
  A0.mul(x, r);
  for (int i = 0; i < n; ++i) r[i] = b[i] - r[i];
  double bnorm = 0.0, rnorm = 0.0;
  for (int i = 0; i < n; ++i) {
    bnorm = std::hypot(bnorm, std::abs(b[i]));
    rnorm = std::hypot(rnorm, std::abs(r[i]));
  }
  const double rel = bnorm > 0 ? rnorm / bnorm : rnorm;
  if (!std::isfinite(rel)) throw Failure(file + ": the residual of the solution overflows");
  for (int i = 0; i < n; ++i) x[i] -= T(1);
  std::printf("factor+solve time: %.3f ms\n", seconds * 1e3);
  std::printf("relative residual |b - A*x| / |b|: %.3e\n", rel);
  std::printf("max error against x = (1, ..., 1): %.3e\n", absMax(x));
  return 0;
}

int run(int argc, char** argv) {
  std::string file;
  bool sym = false;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--sym")) sym = true;
    else args.positional(file);
  }
  qvtool::Arguments::require(file, "matrix file");

  const qvarray::Sparse S = qvtool::readSparse(file);
  if (S.getM() != S.getN())
    throw Failure(file + ": the matrix is not square (" + std::to_string(S.getM()) + " x " +
                  std::to_string(S.getN()) + ")");
  if (S.getN() > static_cast<size_t>(std::numeric_limits<int>::max()))
    throw Failure(file + ": the matrix is too large for band storage (n = " +
                  std::to_string(S.getN()) + ")");
  const int n = static_cast<int>(S.getN());
  const size_t* colptr = S.getColPtr();
  const size_t* row = S.getRow();
  // Bandwidths from the stored entries: kl below the diagonal, ku above.
  int kl = 0, ku = 0;
  for (int j = 0; j < n; ++j)
    for (size_t k = colptr[j]; k < colptr[j + 1]; ++k) {
      const int i = static_cast<int>(row[k]);
      kl = std::max(kl, i - j);
      ku = std::max(ku, j - i);
    }
  const double storage = (2.0 * kl + ku + 1) * n;
  std::printf("matrix: %s, n = %d, kl = %d, ku = %d, %s, %zu entries\n", file.c_str(), n, kl, ku,
              S.isReal() ? "real" : "complex", S.getNnz());
  std::printf("band storage: %d x %d (%.1f%% of dense)\n", 2 * kl + ku + 1, n,
              n ? 100.0 * storage / (double(n) * n) : 0.0);
  if (storage > 2e8)
    throw Failure(file + ": the band is too wide to store (" +
                  std::to_string(static_cast<long long>(storage)) + " elements)");
  // Copies every stored entry A(i, j) = v[k] (those with keep(i, j)) into B.
  auto fill = [&](auto& B, const auto* v, auto keep) {
    for (int j = 0; j < n; ++j)
      for (size_t k = colptr[j]; k < colptr[j + 1]; ++k) {
        const int i = static_cast<int>(row[k]);
        if (keep(i, j)) B.add(i, j, v[k]);
      }
  };
  auto all = [](int, int) { return true; };
  if (sym) {
    if (!S.isReal() || kl != ku) throw Failure(file + ": --sym needs a real symmetric matrix");
    ExtSymBandMatrix A(n, kl);
    fill(A, S.getDoubleVal(), [](int i, int j) { return i >= j; });  // one triangle gives both
    return solveAndReport<double>(A, n, file);
  }
  if (!S.isReal()) {
    ZBandMatrix A(n, kl, ku);
    fill(A, S.getDcmplxVal(), all);
    return solveAndReport<std::complex<double>>(A, n, file);
  }
  BandMatrix A(n, kl, ku);
  fill(A, S.getDoubleVal(), all);
  return solveAndReport<double>(A, n, file);
}

}  // namespace

const qvtool::Command qvtool::bandCommand = {
    "band", run, "solve a banded system from a MatrixMarket coordinate file by band LU",
    "qvtool band FILE.mtx [--sym]",
    "Stores the square matrix of a MatrixMarket coordinate file as a band matrix\n"
    "(bandwidths taken from its entries), solves A*x = b for b = A*(1, ..., 1)\n"
    "by band LU and prints the bandwidths, the time, the relative residual and\n"
    "the error against the known solution.\n"
    "  --sym  the matrix is real symmetric: use the symmetric band class\n"};
