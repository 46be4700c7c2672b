// Relaxation steps on the 3-D Poisson matrix (7-point stencil), side by side
// with their practical limits and a solver peer, in one run.
//
// Names: <case>/<impl>
//   sweep/<step>/threads:<t>/qvarray   SORIt forward sweep (sor: mode 0,
//                       scatter; sor_rows: mode 3, gather) or JacobiIts
//   sweep/<step>/threads:1/plain       the same loop written by hand over the
//                       same compressed-column arrays (diagonal index included)
//   sweep/<step>/threads:<t>/triad     a[i] = b[i] + s·c[i] over three arrays
//                       as large together as the bytes the step moves: the time
//                       the memory needs for them (counter bytes_per_second on
//                       every row)
//   solve/poisson_1e6[/omega:1.20]/threads:<t>/qvarray   GMRES(30) with one
//                       symmetric SOR step as right preconditioner, to
//                       ‖b − A·x‖/‖b‖ ≤ 1e-8, ω = 1.85 (about the best ω for the
//                       serial sweep here) or 1.2
//   solve/poisson_1e6/threads:<t>/eigen_cg_diagonal   Eigen ConjugateGradient +
//                       DiagonalPreconditioner, same tolerance, on Eigen's
//                       threads
//   solve/poisson_1e6/threads:<t>/eigen_cg_ichol      the same with
//                       IncompleteCholesky (setup included; BiCGSTAB +
//                       IncompleteLUT was left out: its setup alone takes minutes)
// The sweeps run on n = 113 (1.44·10⁶ unknowns, 1.0·10⁷ stored entries), the
// solves on n = 100 (10⁶ unknowns); counters "its" give iteration counts.
//
// Checks (once per case, before timing): the serial steps give the plain
// loops' x and r bit for bit; the 2-thread Jacobi step too (each entry is its
// own; reported on the library's row). The 2-thread SOR sweep relaxes in
// another order (see sorparallel.cpp) and has no peer computing the same; its
// rows compare with the triad only.
// The solvers' solutions agree within 1e-6 of the largest entry (both stop at
// a relative residual of 1e-8; the matrix's condition number is about 6·10³).
#include <benchmark/benchmark.h>
#include <omp.h>

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/Sparse>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "benchcheck.h"
#include "benchthreads.h"
#include "qvarray/blasruntime.h"
#include "qvarray/gmres.h"
#include "qvarray/sparse/poissongrid.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparserelax.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "qvutil/parallel.h"

namespace {

using qvbench::Threads;
using qvarray::Sparse;
using qvarray::Vector;

constexpr size_t kSweepGrid = 113;
constexpr size_t kSolveGrid = 100;
constexpr double kOmega = 1.2;
constexpr double kBestOmega = 1.85;
constexpr double kTol = 1e-8;

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

// The hand-written loops over the matrix's own arrays.
struct Raw {
  const size_t *colptr, *row, *diag;
  const double* val;
  size_t n;
  explicit Raw(const Sparse& A)
      : colptr(A.getColPtr()), row(A.getRow()), diag(A.getDiag()), val(A.getDoubleVal()),
        n(A.getN()) {}
};

enum class Step { Sor, SorRows, Jacobi };
const char* const kStepName[] = {"sor", "sor_rows", "jacobi"};

const Sparse& stepMatrix(Step step) {
  return poisson(kSweepGrid, step == Step::SorRows ? qvarray::SymmTransposed : qvarray::SymmNone);
}

// One step by the library or by the plain loop, on x and r.
void step(Step s, bool plain, const Sparse& A, Vector& xv, Vector& rv) {
  if (!plain) {
    if (s == Step::Jacobi) qvarray::JacobiIts(A, xv, rv, kOmega);
    else qvarray::SORIt(A, xv, rv, kOmega, false);
    return;
  }
  const Raw a(A);
  double* x = xv.getdArr().data;
  double* r = rv.getdArr().data;
  switch (s) {
    case Step::Sor:
      for (size_t i = 0; i < a.n; ++i) {
        const double d = -(r[i] / a.val[a.diag[i]]) * kOmega;
        r[i] = d;
        x[i] += d;
        for (size_t p = a.diag[i] + 1; p < a.colptr[i + 1]; ++p) r[a.row[p]] += d * a.val[p];
      }
      break;
    case Step::SorRows:
      for (size_t i = 0; i < a.n; ++i) {
        double s = r[i];
        for (size_t p = a.colptr[i]; p < a.diag[i]; ++p) s += a.val[p] * r[a.row[p]];
        const double d = -(s / a.val[a.diag[i]]) * kOmega;
        r[i] = d;
        x[i] += d;
      }
      break;
    case Step::Jacobi:
      for (size_t i = 0; i < a.n; ++i) x[i] -= kOmega * r[i] / a.val[a.diag[i]];
      break;
  }
}

// Start vectors of a checked step: x and r varied, so that every entry counts.
void startVectors(size_t n, Vector& x, Vector& r) {
  x = Vector(n);
  r = Vector(n);
  for (size_t i = 0; i < n; ++i) {
    x.d(i) = 1e-3 * static_cast<double>(i % 89);
    r.d(i) = 1.0 + 1e-3 * static_cast<double>(i % 97);
  }
}

void BM_Sweep(benchmark::State& state, Step s, int threads, const std::string& impl) {
  const Sparse& A = stepMatrix(s);
  Threads t(threads);
  std::string config = kStepName[static_cast<int>(s)];
  config += "/threads:" + std::to_string(threads);
  // The plain loop is serial: on 2 threads only the Jacobi step (whose
  // entries are independent) must still give its bits, reported on the
  // library's row; the 2-thread sweeps relax in another order.
  const auto& agreements = qvbench::checked(config, [&] {
    if (threads > 1 && s != Step::Jacobi) return qvbench::Agreements{{"qvarray", {0.0, 0.0}}};
    Vector x1, r1, x2, r2;
    startVectors(A.getN(), x1, r1);
    startVectors(A.getN(), x2, r2);
    step(s, false, A, x1, r1);
    step(s, true, A, x2, r2);
    const size_t n = A.getN();
    const double diff = std::max(qvbench::bitDiff(x1.getdArr().data, x2.getdArr().data, n),
                                 qvbench::bitDiff(r1.getdArr().data, r2.getdArr().data, n));
    if (threads > 1) return qvbench::Agreements{{"qvarray", {diff, 0.0}}};
    return qvbench::Agreements{{"qvarray", {0.0, 0.0}}, {"plain", {diff, 0.0}}};
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  const bool plain = impl == "plain";
  if (s == Step::Jacobi) {
    const size_t N = A.getN();
    Vector x(N), r(std::vector<double>(N, 1.0));
    for (auto _ : state) {
      step(s, plain, A, x, r);
      benchmark::DoNotOptimize(x.getdArr().data);
    }
    setCounters(state, jacobiBytes(A));
  } else {
    runSweeps(state, A, [&](Vector& x, Vector& r) { step(s, plain, A, x, r); });
  }
}

// a[i] = b[i] + s·c[i] over three arrays as large together as the bytes the
// step moves, made once per size.
void BM_Triad(benchmark::State& state, Step s, int threads) {
  const Sparse& A = stepMatrix(s);
  const double bytes = s == Step::Jacobi ? jacobiBytes(A) : sweepBytes(A);
  const size_t N = static_cast<size_t>(bytes / 24.0);
  static std::map<size_t, std::unique_ptr<double[]>> arrays;
  auto& slot = arrays[N];
  if (!slot) {
    slot.reset(new double[3 * N]);
    std::fill(slot.get(), slot.get() + N, 0.0);
    std::fill(slot.get() + N, slot.get() + 3 * N, 1.0);
  }
  double* a = slot.get();
  const double* b = a + N;
  const double* c = b + N;
  for (auto _ : state) {
#pragma omp parallel for schedule(static) num_threads(threads)
    for (size_t i = 0; i < N; ++i) a[i] = b[i] + 0.5 * c[i];
    benchmark::DoNotOptimize(a);
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

// GMRES(30) with one symmetric SOR step as right preconditioner; returns x.
std::vector<double> gmresSsor(double omega, int* its = nullptr) {
  const Sparse& A = poisson(kSolveGrid);
  const SolveProblem& p = solveProblem();
  const qvarray::SparseOperator op(A);
  const qvarray::SsorPreconditioner ssor(A, omega);
  qvarray::GmresOptions o;
  o.tol = kTol;
  o.precond = &ssor;
  Vector x;
  const qvarray::GmresResult res = qvarray::gmres(op, p.b, x, o);
  if (its) *its = res.converged() ? res.iterations : -1;
  return {x.getdArr().data, x.getdArr().data + x.size()};
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

using CgDiagonal = Eigen::ConjugateGradient<EigenMatrix, Eigen::Lower | Eigen::Upper>;
using CgIchol = Eigen::ConjugateGradient<EigenMatrix, Eigen::Lower | Eigen::Upper,
                                         Eigen::IncompleteCholesky<double>>;

// One solve by an Eigen solver (set-up included); returns x.
template <class Solver>
std::vector<double> eigenSolve(int* its = nullptr) {
  const SolveProblem& p = solveProblem();
  const Eigen::Map<const Eigen::VectorXd> b(p.b.getdArr().data,
                                            static_cast<Eigen::Index>(p.b.size()));
  Solver solver;
  solver.setTolerance(kTol);
  solver.setMaxIterations(20000);
  solver.compute(eigenPoisson());
  const Eigen::VectorXd x = solver.solve(b);
  if (its) *its = solver.info() == Eigen::Success ? static_cast<int>(solver.iterations()) : -1;
  return {x.data(), x.data() + x.size()};
}

// A solve by impl on `threads` threads (BLAS too; one thread: serial BLAS).
std::vector<double> solve(const std::string& impl, double omega, int* its = nullptr) {
  if (impl == "eigen_cg_diagonal") return eigenSolve<CgDiagonal>(its);
  if (impl == "eigen_cg_ichol") return eigenSolve<CgIchol>(its);
  return gmresSsor(omega, its);
}

void BM_Solve(benchmark::State& state, const std::string& impl, double omega, int threads) {
  Threads t(threads);
  Eigen::setNbThreads(threads);
  const std::string config = "solve/" + std::to_string(omega) + "/" + std::to_string(threads);
  const auto& agreements = qvbench::checked(config, [&] {
    const std::vector<double> ours = solve("qvarray", omega);
    qvbench::Agreements a{{"qvarray", {0.0, 1e-6}}};
    if (omega == kBestOmega)
      for (const char* peer : {"eigen_cg_diagonal", "eigen_cg_ichol"}) {
        const std::vector<double> x = solve(peer, omega);
        a[peer] = {qvbench::relDiff(ours.data(), x.data(), ours.size()), 1e-6};
      }
    return a;
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  int its = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(solve(impl, omega, &its).data());
    if (its < 0) state.SkipWithError("the solver did not converge");
  }
  state.counters["its"] = its;
}

}  // namespace

const bool kRegistered = [] {
  auto add = [](const std::string& name, auto... args) {
    return benchmark::RegisterBenchmark(name.c_str(), args...)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  };
  for (Step s : {Step::Sor, Step::SorRows, Step::Jacobi}) {
    for (int threads : {1, 2}) {
      const std::string k = std::string("sweep/") + kStepName[static_cast<int>(s)] +
                            "/threads:" + std::to_string(threads) + "/";
      add(k + "qvarray", BM_Sweep, s, threads, std::string("qvarray"));
      if (threads == 1) add(k + "plain", BM_Sweep, s, threads, std::string("plain"));
      add(k + "triad", BM_Triad, s, threads);
    }
  }
  for (int threads : {1, 2}) {
    const std::string k = "solve/poisson_1e6/threads:" + std::to_string(threads) + "/";
    for (const char* impl : {"qvarray", "eigen_cg_diagonal", "eigen_cg_ichol"})
      add(k + impl, BM_Solve, std::string(impl), kBestOmega, threads)->Iterations(1);
    add("solve/poisson_1e6/omega:1.20/threads:" + std::to_string(threads) + "/qvarray", BM_Solve,
        std::string("qvarray"), 1.2, threads)
        ->Iterations(1);
  }
  return true;
}();
