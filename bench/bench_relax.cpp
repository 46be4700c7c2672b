// Relaxation steps on the 3-D Poisson matrix (7-point stencil), side by side
// with their practical limits and a solver peer, in one run.
//
//   relax/<step>/<threads>   qvarray: SORIt forward sweep (mode 0, scatter),
//                            SORIt forward sweep in mode 3 (gather), JacobiIts
//   plain/<step>             the same loop written by hand over the same
//                            compressed-column arrays (diagonal index included)
//   triad/<threads>          a[i] = b[i] + s·c[i] over 3 × 80 MB: the
//                            bandwidth; the sweeps report the bytes they move
//                            per second (counter "bytes_per_second") to compare
//   solve/gmres_ssor/<threads>/<100ω>   GMRES(30) with one symmetric SOR step as
//                                right preconditioner, to ‖b − A·x‖/‖b‖ ≤ 1e-8,
//                                for ω = 1.2 and ω = 1.85 (about the best ω for
//                                the serial sweep here)
//   solve/eigen_cg_diagonal      Eigen ConjugateGradient + DiagonalPreconditioner
//   solve/eigen_cg_ichol         Eigen ConjugateGradient + IncompleteCholesky
//                                (setup included; BiCGSTAB + IncompleteLUT was
//                                left out: its setup alone takes minutes here)
// The sweeps run on n = 113 (1.44·10⁶ unknowns, 1.0·10⁷ stored entries), the
// solves on n = 100 (10⁶ unknowns); counters "its" give iteration counts.
// Eigen is compiled for the same generic x86-64 target, single-threaded.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/Sparse>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "qvarray/blasruntime.h"
#include "qvarray/gmres.h"
#include "qvarray/sparse/poissongrid.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparserelax.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "qvutil/parallel.h"

namespace {

using qvarray::Sparse;
using qvarray::Vector;

constexpr size_t kSweepGrid = 113;
constexpr size_t kSolveGrid = 100;
constexpr double kOmega = 1.2;
constexpr double kTol = 1e-8;

class Threads {
 public:
  explicit Threads(int n) : saved_(AVAILABLETHREADS()) { qvbase::Parallel::setAvailableThreads(n); }
  ~Threads() { qvbase::Parallel::setAvailableThreads(saved_); }

 private:
  int saved_;
};

// The sorted Poisson matrix of the given grid, built once per program.
const Sparse& poisson(size_t n, qvarray::Symm_t symm = qvarray::SymmNone) {
  static std::map<std::pair<size_t, int>, std::unique_ptr<Sparse>> cache;
  auto& slot = cache[{n, symm}];
  if (!slot) {
    slot = std::make_unique<Sparse>(qvarray::assemblePoisson({3, n}));
    slot->setSymm(symm);  // symmetric: mode 3 stands for the same matrix
    slot->setForm(qvarray::FormSorted);
  }
  return *slot;
}

// Bytes one sweep moves: the pattern, values and diagonal index once, x and r
// read and written.
double sweepBytes(const Sparse& A) {
  return 16.0 * static_cast<double>(A.getNnz()) + 48.0 * static_cast<double>(A.getN());
}

// Bytes one Jacobi step moves: the diagonal index, x read and written, r;
// the diagonal values lie one per column, about a cache line apart, so the
// whole value array passes through the cache.
double jacobiBytes(const Sparse& A) {
  return 8.0 * static_cast<double>(A.getNnz()) + 32.0 * static_cast<double>(A.getN());
}

void setCounters(benchmark::State& state, double bytes) {
  state.counters["bytes_per_second"] =
      benchmark::Counter(bytes, benchmark::Counter::kIsIterationInvariantRate);
}

// Fresh r for every sweep (outside the timing): repeated sweeps would drive r
// into subnormal numbers.
template <class Sweep>
void runSweeps(benchmark::State& state, const Sparse& A, Sweep&& sweep) {
  const size_t N = A.getN();
  const Vector r0(std::vector<double>(N, 1.0));
  Vector x(N), r(r0);
  for (auto _ : state) {
    state.PauseTiming();
    r = r0;
    state.ResumeTiming();
    sweep(x, r);
    benchmark::DoNotOptimize(r.getdArr().data);
  }
  setCounters(state, sweepBytes(A));
}

void BM_RelaxSor(benchmark::State& state) {
  const Sparse& A = poisson(kSweepGrid);
  Threads t(static_cast<int>(state.range(0)));
  runSweeps(state, A, [&](Vector& x, Vector& r) { qvarray::SORIt(A, x, r, kOmega, false); });
}

void BM_RelaxSorRows(benchmark::State& state) {
  const Sparse& A = poisson(kSweepGrid, qvarray::SymmTransposed);
  Threads t(static_cast<int>(state.range(0)));
  runSweeps(state, A, [&](Vector& x, Vector& r) { qvarray::SORIt(A, x, r, kOmega, false); });
}

void BM_RelaxJacobi(benchmark::State& state) {
  const Sparse& A = poisson(kSweepGrid);
  Threads t(static_cast<int>(state.range(0)));
  const size_t N = A.getN();
  Vector x(N), r(std::vector<double>(N, 1.0));
  for (auto _ : state) {
    qvarray::JacobiIts(A, x, r, kOmega);
    benchmark::DoNotOptimize(x.getdArr().data);
  }
  setCounters(state, jacobiBytes(A));
}

// The hand-written loops over the matrix's own arrays.
struct Raw {
  const size_t *colptr, *row, *diag;
  const double* val;
  size_t n;
  explicit Raw(const Sparse& A)
      : colptr(A.getColPtr()), row(A.getRow()), diag(A.getDiag()), val(A.getDoubleVal()),
        n(A.getN()) {}
};

void BM_PlainSor(benchmark::State& state) {
  const Sparse& A = poisson(kSweepGrid);
  const Raw a(A);
  runSweeps(state, A, [&](Vector& xv, Vector& rv) {
    double* x = xv.getdArr().data;
    double* r = rv.getdArr().data;
    for (size_t i = 0; i < a.n; ++i) {
      const double d = -(r[i] / a.val[a.diag[i]]) * kOmega;
      r[i] = d;
      x[i] += d;
      for (size_t p = a.diag[i] + 1; p < a.colptr[i + 1]; ++p) r[a.row[p]] += d * a.val[p];
    }
  });
}

void BM_PlainSorRows(benchmark::State& state) {
  const Sparse& A = poisson(kSweepGrid, qvarray::SymmTransposed);
  const Raw a(A);
  runSweeps(state, A, [&](Vector& xv, Vector& rv) {
    double* x = xv.getdArr().data;
    double* r = rv.getdArr().data;
    for (size_t i = 0; i < a.n; ++i) {
      double s = r[i];
      for (size_t p = a.colptr[i]; p < a.diag[i]; ++p) s += a.val[p] * r[a.row[p]];
      const double d = -(s / a.val[a.diag[i]]) * kOmega;
      r[i] = d;
      x[i] += d;
    }
  });
}

void BM_PlainJacobi(benchmark::State& state) {
  const Sparse& A = poisson(kSweepGrid);
  const Raw a(A);
  const size_t N = A.getN();
  std::vector<double> x(N, 0.0), r(N, 1.0);
  for (auto _ : state) {
    for (size_t i = 0; i < N; ++i) x[i] -= kOmega * r[i] / a.val[a.diag[i]];
    benchmark::DoNotOptimize(x.data());
  }
  setCounters(state, jacobiBytes(A));
}

void BM_Triad(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const size_t N = 10'000'000;
  std::vector<double> a(N), b(N, 1.0), c(N, 2.0);
  for (auto _ : state) {
#pragma omp parallel for schedule(static) num_threads(threads)
    for (size_t i = 0; i < N; ++i) a[i] = b[i] + 0.5 * c[i];
    benchmark::DoNotOptimize(a.data());
  }
  setCounters(state, 24.0 * static_cast<double>(N));
}

// ---- solves on 10⁶ unknowns ---------------------------------------------------------

struct SolveProblem {
  Vector b;
  std::vector<double> u;
};

const SolveProblem& solveProblem() {
  static const SolveProblem p = [] {
    SolveProblem s;
    std::vector<double> b;
    qvarray::manufacturedSolution({3, kSolveGrid}, s.u, b);
    s.b = Vector(b);
    return s;
  }();
  return p;
}

void BM_GmresSsor(benchmark::State& state) {
  const Sparse& A = poisson(kSolveGrid);
  const SolveProblem& p = solveProblem();
  Threads t(static_cast<int>(state.range(0)));
  std::optional<qvarray::SerialBlasScope> serialBlas;  // one thread: BLAS too
  if (state.range(0) == 1) serialBlas.emplace();
  const qvarray::SparseOperator op(A);
  const qvarray::SsorPreconditioner ssor(A, static_cast<double>(state.range(1)) / 100.0);
  qvarray::GmresOptions o;
  o.tol = kTol;
  o.precond = &ssor;
  int its = 0;
  for (auto _ : state) {
    Vector x;
    const qvarray::GmresResult res = qvarray::gmres(op, p.b, x, o);
    if (!res.converged()) state.SkipWithError("GMRES did not converge");
    its = res.iterations;
  }
  state.counters["its"] = its;
}

using EigenMatrix = Eigen::SparseMatrix<double, Eigen::ColMajor, int>;

const EigenMatrix& eigenPoisson() {
  static const EigenMatrix M = [] {
    const Sparse& A = poisson(kSolveGrid);
    const size_t n = A.getN(), nnz = A.getNnz();
    std::vector<Eigen::Triplet<double, int>> t;
    t.reserve(nnz);
    for (size_t j = 0; j < n; ++j)
      for (size_t p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p)
        t.emplace_back(static_cast<int>(A.getRow()[p]), static_cast<int>(j), A.getDoubleVal()[p]);
    EigenMatrix m(static_cast<int>(n), static_cast<int>(n));
    m.setFromTriplets(t.begin(), t.end());
    return m;
  }();
  return M;
}

template <class Solver>
void runEigen(benchmark::State& state) {
  const EigenMatrix& M = eigenPoisson();
  const SolveProblem& p = solveProblem();
  const Eigen::Map<const Eigen::VectorXd> b(p.b.getdArr().data,
                                            static_cast<Eigen::Index>(p.b.size()));
  int its = 0;
  for (auto _ : state) {
    Solver solver;
    solver.setTolerance(kTol);
    solver.setMaxIterations(20000);
    solver.compute(M);
    Eigen::VectorXd x = solver.solve(b);
    benchmark::DoNotOptimize(x.data());
    if (solver.info() != Eigen::Success) state.SkipWithError("Eigen solver did not converge");
    its = static_cast<int>(solver.iterations());
  }
  state.counters["its"] = its;
}

void BM_EigenCgDiagonal(benchmark::State& state) {
  runEigen<Eigen::ConjugateGradient<EigenMatrix, Eigen::Lower | Eigen::Upper>>(state);
}

void BM_EigenCgIchol(benchmark::State& state) {
  runEigen<Eigen::ConjugateGradient<EigenMatrix, Eigen::Lower | Eigen::Upper,
                                    Eigen::IncompleteCholesky<double>>>(state);
}

}  // namespace

BENCHMARK(BM_RelaxSor)->Name("relax/sor")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainSor)->Name("plain/sor")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RelaxSorRows)->Name("relax/sor_rows")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainSorRows)->Name("plain/sor_rows")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RelaxJacobi)->Name("relax/jacobi")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainJacobi)->Name("plain/jacobi")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Triad)->Name("triad")->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GmresSsor)->Name("solve/gmres_ssor")->ArgsProduct({{1, 2}, {120, 185}})->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EigenCgDiagonal)->Name("solve/eigen_cg_diagonal")->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EigenCgIchol)->Name("solve/eigen_cg_ichol")->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
