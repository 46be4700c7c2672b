// Restarted GMRES side by side with Eigen's GMRES (unsupported module) on the
// same matrix, right-hand side, restart length and tolerance, no
// preconditioner. Reported per run: gmres_its, the iterations to converge,
// and time_per_it, the time of one iteration.
//
// Names: gmres/<case>/<solver>, case one of
//   dense1000    dense real nonsymmetric n = 1000 (qvarray: MatrixOperator / BLAS gemv)
//   convdiff     2-D convection–diffusion, upwind 5-point stencil, n = 4900, real
//   young1c      the complex acoustics matrix young1c.mtx, n = 841
// The sparse cases apply the matrix through SparseOperator (the library's
// sparse product) on the qvarray side and through Eigen's SparseMatrix on the
// other.
//
// Check (once per case, before timing): both sides stop at a relative
// residual of 1e-8; their solutions agree within kAgree of the largest
// solution entry (the residual bound times the conditioning of these
// matrices leaves room for that much, no more).
#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <Eigen/Sparse>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <unsupported/Eigen/IterativeSolvers>
#include <vector>

#include "benchcheck.h"
#include "qvarray/gmres.h"
#include "qvarray/io/sparsemm.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/sparse/sparseoperator.h"

namespace {

using dcomplex = std::complex<double>;
constexpr double kTol = 1e-8;
constexpr int kMaxIter = 20000;
constexpr double kAgree = 1e-6;

template <class T>
struct Coo {
  size_t n = 0;
  std::vector<size_t> row, col;
  std::vector<T> val;
};

Sparse toSparse(const Coo<double>& a) {
  Sparse A;
  A.vectorTripletToSparse(a.row, a.col, a.val, a.n, a.n);
  return A;
}

Sparse toSparse(const Coo<dcomplex>& a) {
  Sparse A;
  A.vectorTripletToSparse(a.row, a.col, a.val, a.n, a.n);
  return A;
}

template <class T>
Eigen::SparseMatrix<T> toEigen(const Coo<T>& a) {
  std::vector<Eigen::Triplet<T>> t;
  for (size_t e = 0; e < a.val.size(); ++e)
    t.emplace_back(static_cast<int>(a.row[e]), static_cast<int>(a.col[e]), a.val[e]);
  Eigen::SparseMatrix<T> A(static_cast<int>(a.n), static_cast<int>(a.n));
  A.setFromTriplets(t.begin(), t.end());
  return A;
}

// −Δu + β·∇u on an m×m grid, first-order upwind, scaled by h².
Coo<double> convectionDiffusion(int m, double betaH) {
  Coo<double> a;
  a.n = static_cast<size_t>(m) * m;
  auto add = [&](size_t r, size_t c, double v) {
    a.row.push_back(r);
    a.col.push_back(c);
    a.val.push_back(v);
  };
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < m; ++i) {
      const size_t k = static_cast<size_t>(i + j * m);
      add(k, k, 4.0 + 2.0 * betaH);
      if (i > 0) add(k, k - 1, -1.0 - betaH);
      if (i + 1 < m) add(k, k + 1, -1.0);
      if (j > 0) add(k, k - m, -1.0 - betaH);
      if (j + 1 < m) add(k, k + m, -1.0);
    }
  return a;
}

Coo<dcomplex> young1c() {
  qvarray::MatrixMarketTriplets t = qvarray::readMatrixMarketTriplets(QV_MATRIX_DIR "/young1c.mtx");
  Coo<dcomplex> a;
  a.n = t.n;
  a.row = std::move(t.rows);
  a.col = std::move(t.cols);
  a.val = std::move(t.complexValues);
  return a;
}

template <class T>
Array<T, 1> rhs(size_t n) {
  std::mt19937_64 gen(5);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  Array<T, 1> b(n);
  for (auto& v : b) {
    if constexpr (qvarray::is_complex_v<T>) v = T(dist(gen), dist(gen));
    else v = dist(gen);
  }
  return b;
}

void report(benchmark::State& st, int its, bool converged) {
  if (!converged) st.SkipWithError("did not converge");
  st.counters["gmres_its"] = its;
  st.counters["time_per_it"] =
      benchmark::Counter(its, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// A solution as doubles (a complex entry as its two parts).
template <class T>
std::vector<double> asDoubles(const T* x, size_t n) {
  const double* d = reinterpret_cast<const double*>(x);
  return {d, d + n * sizeof(T) / sizeof(double)};
}

using Solution = std::function<std::vector<double>()>;

// Solves both sides once for case `kase` and compares the solutions.
bool checked(benchmark::State& st, const std::string& kase, const char* impl,
             const Solution& ours, const Solution& eigen) {
  const auto& agreements = qvbench::checked(kase, [&] {
    const std::vector<double> x = ours(), y = eigen();
    const double diff = x.size() == y.size() ? qvbench::relDiff(x.data(), y.data(), x.size())
                                             : std::numeric_limits<double>::infinity();
    return qvbench::Agreements{{"qvarray", {0.0, kAgree}}, {"eigen", {diff, kAgree}}};
  });
  return qvbench::agrees(st, agreements, impl);
}

template <class T>
qvarray::GmresOptions options(int restart) {
  qvarray::GmresOptions o;
  o.tol = kTol;
  o.restart = restart;
  o.maxIter = kMaxIter;
  return o;
}

template <class T>
std::vector<double> solveQvarray(const qvarray::LinearOperator& A, int restart) {
  const Array<T, 1> b = rhs<T>(A.size());
  Array<T, 1> x;
  qvarray::gmres(A, b, x, options<T>(restart));
  return asDoubles(x.data, x.count);
}

template <class T>
void runQvarray(benchmark::State& st, const qvarray::LinearOperator& A, int restart) {
  const Array<T, 1> b = rhs<T>(A.size());
  Array<T, 1> x;
  qvarray::GmresResult res;
  for (auto _ : st) {
    res = qvarray::gmres(A, b, x, options<T>(restart));
    benchmark::DoNotOptimize(x.data);
  }
  report(st, res.iterations, res.converged());
}

template <class T, class M>
struct EigenGmres {
  using Vec = Eigen::Matrix<T, Eigen::Dynamic, 1>;
  Eigen::GMRES<M, Eigen::IdentityPreconditioner> solver;
  Vec b;
  EigenGmres(const M& A, int restart) {
    const Array<T, 1> b0 = rhs<T>(static_cast<size_t>(A.rows()));
    b = Eigen::Map<const Vec>(b0.data, A.rows());
    solver.set_restart(restart);
    solver.setTolerance(kTol);
    solver.setMaxIterations(kMaxIter);
    solver.compute(A);
  }
};

template <class T, class M>
std::vector<double> solveEigen(const M& A, int restart) {
  EigenGmres<T, M> g(A, restart);
  const typename EigenGmres<T, M>::Vec x = g.solver.solve(g.b);
  return asDoubles(x.data(), static_cast<size_t>(x.size()));
}

template <class T, class M>
void runEigen(benchmark::State& st, const M& A, int restart) {
  EigenGmres<T, M> g(A, restart);
  typename EigenGmres<T, M>::Vec x;
  for (auto _ : st) {
    x = g.solver.solve(g.b);
    benchmark::DoNotOptimize(x.data());
  }
  report(st, static_cast<int>(g.solver.iterations()), g.solver.info() == Eigen::Success);
}

// Dense nonsymmetric: random part of spectral radius about 1 around 1.5.
Matrix denseMatrix(int n) {
  std::mt19937_64 gen(9);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  Matrix A(n, n);
  const double s = std::sqrt(3.0 / n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) A.d(i, j) = s * dist(gen) + (i == j ? 1.5 : 0.0);
  return A;
}

Eigen::MatrixXd denseEigenMatrix() {
  const Matrix A = denseMatrix(1000);
  return Eigen::Map<const Eigen::MatrixXd>(A.getdArr().data, 1000, 1000);
}

std::vector<double> denseOurs() {
  const Matrix A = denseMatrix(1000);
  return solveQvarray<double>(qvarray::MatrixOperator(A), 30);
}
std::vector<double> denseTheirs() { return solveEigen<double>(denseEigenMatrix(), 30); }

void denseQvarray(benchmark::State& st) {
  if (!checked(st, "dense1000", "qvarray", denseOurs, denseTheirs)) return;
  const Matrix A = denseMatrix(1000);
  runQvarray<double>(st, qvarray::MatrixOperator(A), 30);
}

void denseEigen(benchmark::State& st) {
  if (!checked(st, "dense1000", "eigen", denseOurs, denseTheirs)) return;
  runEigen<double>(st, denseEigenMatrix(), 30);
}

std::vector<double> convdiffOurs() {
  return solveQvarray<double>(SparseOperator(toSparse(convectionDiffusion(70, 0.5))), 30);
}
std::vector<double> convdiffTheirs() {
  return solveEigen<double>(toEigen(convectionDiffusion(70, 0.5)), 30);
}

void convdiffQvarray(benchmark::State& st) {
  if (!checked(st, "convdiff", "qvarray", convdiffOurs, convdiffTheirs)) return;
  runQvarray<double>(st, SparseOperator(toSparse(convectionDiffusion(70, 0.5))), 30);
}

void convdiffEigen(benchmark::State& st) {
  if (!checked(st, "convdiff", "eigen", convdiffOurs, convdiffTheirs)) return;
  runEigen<double>(st, toEigen(convectionDiffusion(70, 0.5)), 30);
}

std::vector<double> youngOurs() {
  return solveQvarray<dcomplex>(SparseOperator(toSparse(young1c())), 200);
}
std::vector<double> youngTheirs() { return solveEigen<dcomplex>(toEigen(young1c()), 200); }

void youngQvarray(benchmark::State& st) {
  if (!checked(st, "young1c", "qvarray", youngOurs, youngTheirs)) return;
  runQvarray<dcomplex>(st, SparseOperator(toSparse(young1c())), 200);
}

void youngEigen(benchmark::State& st) {
  if (!checked(st, "young1c", "eigen", youngOurs, youngTheirs)) return;
  runEigen<dcomplex>(st, toEigen(young1c()), 200);
}

}  // namespace

BENCHMARK(denseQvarray)->Name("gmres/dense1000/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK(denseEigen)->Name("gmres/dense1000/eigen")->Unit(benchmark::kMillisecond);
BENCHMARK(convdiffQvarray)->Name("gmres/convdiff/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK(convdiffEigen)->Name("gmres/convdiff/eigen")->Unit(benchmark::kMillisecond);
BENCHMARK(youngQvarray)->Name("gmres/young1c/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK(youngEigen)->Name("gmres/young1c/eigen")->Unit(benchmark::kMillisecond);
