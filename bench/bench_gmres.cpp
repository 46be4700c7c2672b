// Restarted GMRES side by side with Eigen's GMRES (unsupported module) on the
// same matrix, right-hand side, restart length and tolerance, no
// preconditioner. Reported per run: gmres_its, the iterations to converge,
// and time_per_it, the time of one iteration.
//
// Names: gmres/<case>/<solver>, case one of
//   dense1000    dense real nonsymmetric n = 1000 (qvarray: MatrixOperator / BLAS gemv)
//   convdiff     2-D convection–diffusion, upwind 5-point stencil, n = 4900, real
//   young1c      the complex acoustics matrix young1c.mtx, n = 841
// The sparse cases apply the matrix through a plain compressed-row loop on
// the qvarray side and through Eigen's SparseMatrix on the other.
#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <Eigen/Sparse>
#include <cmath>
#include <complex>
#include <random>
#include <unsupported/Eigen/IterativeSolvers>
#include <vector>

#include "mmtriplets.h"
#include "qvarray/gmres.h"

namespace {

using dcomplex = std::complex<double>;
constexpr double kTol = 1e-8;
constexpr int kMaxIter = 20000;

template <class T>
struct Coo {
  int n = 0;
  std::vector<int> row, col;
  std::vector<T> val;
};

// y = A·x by compressed rows.
template <class T>
class CsrOperator : public qvarray::LinearOperator {
 public:
  explicit CsrOperator(const Coo<T>& a) : n_(a.n), start_(a.n + 1, 0) {
    for (int r : a.row) ++start_[r + 1];
    for (int i = 0; i < n_; ++i) start_[i + 1] += start_[i];
    std::vector<int> next(start_.begin(), start_.end() - 1);
    col_.resize(a.val.size());
    val_.resize(a.val.size());
    for (size_t e = 0; e < a.val.size(); ++e) {
      const int k = next[a.row[e]]++;
      col_[k] = a.col[e];
      val_[k] = a.val[e];
    }
  }
  size_t size() const override { return static_cast<size_t>(n_); }
  bool isReal() const override { return !qvarray::is_complex_v<T>; }

 protected:
  void applyReal(const Array<double, 1>& x, Array<double, 1>& y) const override {
    if constexpr (!qvarray::is_complex_v<T>) product(x, y);
  }
  void applyComplex(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) const override {
    if constexpr (qvarray::is_complex_v<T>) product(x, y);
    else LinearOperator::applyComplex(x, y);
  }

 private:
  template <class U>
  void product(const Array<U, 1>& x, Array<U, 1>& y) const {
    for (int i = 0; i < n_; ++i) {
      U s = 0.0;
      for (int k = start_[i]; k < start_[i + 1]; ++k) s += val_[k] * x.data[col_[k]];
      y.data[i] = s;
    }
  }
  int n_;
  std::vector<int> start_, col_;
  std::vector<T> val_;
};

template <class T>
Eigen::SparseMatrix<T> toEigen(const Coo<T>& a) {
  std::vector<Eigen::Triplet<T>> t;
  for (size_t e = 0; e < a.val.size(); ++e) t.emplace_back(a.row[e], a.col[e], a.val[e]);
  Eigen::SparseMatrix<T> A(a.n, a.n);
  A.setFromTriplets(t.begin(), t.end());
  return A;
}

// −Δu + β·∇u on an m×m grid, first-order upwind, scaled by h².
Coo<double> convectionDiffusion(int m, double betaH) {
  Coo<double> a;
  a.n = m * m;
  auto add = [&](int r, int c, double v) {
    a.row.push_back(r);
    a.col.push_back(c);
    a.val.push_back(v);
  };
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < m; ++i) {
      const int k = i + j * m;
      add(k, k, 4.0 + 2.0 * betaH);
      if (i > 0) add(k, k - 1, -1.0 - betaH);
      if (i + 1 < m) add(k, k + 1, -1.0);
      if (j > 0) add(k, k - m, -1.0 - betaH);
      if (j + 1 < m) add(k, k + m, -1.0);
    }
  return a;
}

Coo<dcomplex> young1c() {
  const qvtool::Triplets t = qvtool::readTriplets(QV_MATRIX_DIR "/young1c.mtx");
  Coo<dcomplex> a;
  a.n = static_cast<int>(t.rows);
  a.row = t.row;
  a.col = t.col;
  a.val = t.value;
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

template <class T>
void runQvarray(benchmark::State& st, const qvarray::LinearOperator& A, int restart) {
  const Array<T, 1> b = rhs<T>(A.size());
  Array<T, 1> x;
  qvarray::GmresOptions o;
  o.tol = kTol;
  o.restart = restart;
  o.maxIter = kMaxIter;
  qvarray::GmresResult res;
  for (auto _ : st) {
    res = qvarray::gmres(A, b, x, o);
    benchmark::DoNotOptimize(x.data);
  }
  report(st, res.iterations, res.converged());
}

template <class T, class M>
void runEigen(benchmark::State& st, const M& A, int restart) {
  using Vec = Eigen::Matrix<T, Eigen::Dynamic, 1>;
  const Array<T, 1> b0 = rhs<T>(static_cast<size_t>(A.rows()));
  const Vec b = Eigen::Map<const Vec>(b0.data, A.rows());
  Eigen::GMRES<M, Eigen::IdentityPreconditioner> solver;
  solver.set_restart(restart);
  solver.setTolerance(kTol);
  solver.setMaxIterations(kMaxIter);
  solver.compute(A);
  Vec x;
  for (auto _ : st) {
    x = solver.solve(b);
    benchmark::DoNotOptimize(x.data());
  }
  report(st, static_cast<int>(solver.iterations()), solver.info() == Eigen::Success);
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

void denseQvarray(benchmark::State& st) {
  const Matrix A = denseMatrix(1000);
  runQvarray<double>(st, qvarray::MatrixOperator(A), 30);
}

void denseEigen(benchmark::State& st) {
  const Matrix A = denseMatrix(1000);
  const Eigen::MatrixXd E = Eigen::Map<const Eigen::MatrixXd>(A.getdArr().data, 1000, 1000);
  runEigen<double>(st, E, 30);
}

void convdiffQvarray(benchmark::State& st) {
  runQvarray<double>(st, CsrOperator<double>(convectionDiffusion(70, 0.5)), 30);
}

void convdiffEigen(benchmark::State& st) {
  runEigen<double>(st, toEigen(convectionDiffusion(70, 0.5)), 30);
}

void youngQvarray(benchmark::State& st) { runQvarray<dcomplex>(st, CsrOperator<dcomplex>(young1c()), 200); }

void youngEigen(benchmark::State& st) { runEigen<dcomplex>(st, toEigen(young1c()), 200); }

}  // namespace

BENCHMARK(denseQvarray)->Name("gmres/dense1000/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK(denseEigen)->Name("gmres/dense1000/eigen")->Unit(benchmark::kMillisecond);
BENCHMARK(convdiffQvarray)->Name("gmres/convdiff/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK(convdiffEigen)->Name("gmres/convdiff/eigen")->Unit(benchmark::kMillisecond);
BENCHMARK(youngQvarray)->Name("gmres/young1c/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK(youngEigen)->Name("gmres/young1c/eigen")->Unit(benchmark::kMillisecond);
