// Solves of the 3-D Poisson problem (7-point stencil, Dirichlet, one
// right-hand side) through the PETSc bridge on 1 and 2 ranks against the
// library's GMRES(30) with one symmetric SOR step as right preconditioner on
// 1 and 2 threads, all to the same true relative residual ‖b − A·x‖/‖b‖ ≤
// 1e-8 from x = 0; and the bridge's own costs on the way.
//
// Names: <case>/<impl>, case = <what>/poisson_<unknowns>/procs:<p>, p being
// threads for the library and ranks for PETSc:
//   solve/.../qvarray        gmres() + SsorPreconditioner, ω = 1.85, from the
//                            sorted Sparse (operator and preconditioner made
//                            inside the timing)
//   solve/.../petsc_gamg     kspSolve with "-ksp_type gmres -ksp_pc_side right
//                            -pc_type gamg", from the assembled Mat (b to Vec,
//                            KSP and GAMG set-up, solve, x back to a Vector)
//   solve/.../petsc_ilu      the same with PETSc's default preconditioner,
//                            block Jacobi with ILU(0) in each rank's block
//   solve/.../petsc_hypre    the same with hypre's BoomerAMG (through PETSc)
//   setup/.../petsc_<pc>     KSPSetUp and KSPSetUpOnBlocks alone (the
//                            preconditioner's set-up) of the same KSP: the
//                            solve's share is solve − setup
//   convert/.../to_mat       toPetscMat of the rank's Sparse block (gather,
//                            exact preallocation, MatSetValues, assembly)
//   convert/.../to_vec, from_vec   toPetscVec and fromPetscVec of the rank's
//                            part of b
//   convert/poisson_1e8_share_of_64/procs:1/{to_mat_global_columns,row_block_transposed}
//                            one rank's share of 465³ unknowns over 64 ranks
//                            (1 rank only): toPetscMat of the rows held with
//                            all 465³ columns, against rowBlockToPetscMat of
//                            the same rows as a transposed block
// Counter "its": iterations; "core_s": CPU seconds of all ranks (Clock).
// Right preconditioning makes PETSc's GMRES watch the unpreconditioned
// residual, as the library's does, so "-ksp_rtol 1e-8" is the same target.
//
// Processes: the library's benchmarks run in a process of their own, started
// without mpirun (PETSc, and with it MPI, is never initialised there: mpirun
// binds a 1-rank job to one core, which would hide the second thread); the
// PETSc benchmarks run under mpirun -np 1 or 2 and register only their rank
// count. Each rank builds the Sparse block of its own rows (balanced
// partition) from the stencil: nothing is gathered to one rank.
//
// Checks (once per case, before timing): every solver's x gives a true
// relative residual ≤ 1e-8 (times 1.05 for the rounding of the recurrence
// estimate), computed here from the compressed columns with x gathered from
// the ranks; it is reported as "diff" beside "tol". The error of x against
// the exact discrete solution (manufacturedSolution) must also stay within
// κ(A)·residual, which checks that the matrix is the library's Poisson
// matrix. A failed check skips the case with an error.
//
// Timing: every benchmark runs a fixed iteration count with manual time taken
// between two barriers, so that the ranks' collective calls stay in step and
// a time is that of the slowest rank; repetitions are interleaved by
// bench/petsc_solve_mpi.py, which alternates the three processes:
//   build/release/bench/bench_petsc_solve --benchmark_filter=1000000
//   OMP_NUM_THREADS=1 mpirun -np 2 --allow-run-as-root --oversubscribe
//       build/release/bench/bench_petsc_solve --benchmark_filter=1000000
// (one command line).
#include <benchmark/benchmark.h>
#include <petscksp.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "benchthreads.h"
#include "qvarray/blasruntime.h"
#include "qvarray/gmres.h"
#include "qvarray/petsc/petscbridge.h"
#include "qvarray/petsc/petscsolve.h"
#include "qvarray/sparse/poissongrid.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "qvutil/parallel.h"

namespace {

using qvbench::Threads;
using qvarray::Sparse;
using qvarray::Vector;
using namespace qvarray::petsc;

constexpr double kTol = 1e-8;
constexpr double kTolCheck = 1.05 * kTol;
constexpr double kOmega = 1.85;  // about the best ω for the serial sweep at 100³ (bench_relax)
constexpr const char* kKrylov =
    "-ksp_type gmres -ksp_gmres_restart 30 -ksp_pc_side right "
    "-ksp_rtol 1e-8 -ksp_max_it 20000 ";
const std::map<std::string, std::string> kPetscOptions = {
    {"petsc_gamg", std::string(kKrylov) + "-pc_type gamg"},
    {"petsc_ilu", std::string(kKrylov) + "-pc_type bjacobi -sub_pc_type ilu"},
    {"petsc_hypre", std::string(kKrylov) + "-pc_type hypre -pc_hypre_type boomeramg"}};

// The rank count mpirun started, 0 without mpirun (read before MPI starts:
// registration comes first).
int mpiRanks() {
  const char* size = std::getenv("OMPI_COMM_WORLD_SIZE");
  return size ? std::atoi(size) : 0;
}

void ensurePetsc() { static Session session(nullptr, nullptr); }

double processCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Wall-clock time between two barriers (that of the slowest rank), and the
// CPU time all ranks' processes spent meanwhile, threads included (on a
// shared machine the time the work would take on idle cores; MPI's and
// OpenMP's waits spin and count too). Counter "core_s": CPU seconds per
// iteration.
class Clock {
 public:
  explicit Clock(benchmark::State& state) : state_(state) {}
  ~Clock() {
    if (state_.iterations() > 0)
      state_.counters["core_s"] = cpu_ / static_cast<double>(state_.iterations());
  }
  void start() {
    if (mpiRanks() > 0) MPI_Barrier(PETSC_COMM_WORLD);
    wall0_ = std::chrono::steady_clock::now();
    cpu0_ = processCpuSeconds();
  }
  void stop() {
    if (mpiRanks() > 0) MPI_Barrier(PETSC_COMM_WORLD);
    state_.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0_).count());
    double cpu = processCpuSeconds() - cpu0_;
    if (mpiRanks() > 0) MPI_Allreduce(MPI_IN_PLACE, &cpu, 1, MPI_DOUBLE, MPI_SUM, PETSC_COMM_WORLD);
    cpu_ += cpu;
  }

 private:
  benchmark::State& state_;
  std::chrono::steady_clock::time_point wall0_;
  double cpu0_ = 0.0, cpu_ = 0.0;
};

// ---- the problem -------------------------------------------------------------------

struct Problem {
  size_t n = 0, N = 0;       // grid points per direction, unknowns
  std::vector<double> u, b;  // the exact discrete solution and b = A·u, whole
};

const Problem& problem(size_t n) {
  static std::map<size_t, std::unique_ptr<Problem>> cache;
  auto& slot = cache[n];
  if (!slot) {
    slot = std::make_unique<Problem>();
    slot->n = n;
    slot->N = n * n * n;
    qvarray::manufacturedSolution({3, n}, slot->u, slot->b);
  }
  return *slot;
}

// Rows r0 <= i < r1 of the Poisson matrix on the n³ grid (h² times the
// 7-point stencil: 6 on the diagonal, −1 per neighbour inside the grid) as
// triplets, without building the whole matrix.
struct Triplets {
  std::vector<size_t> rows, cols;
  std::vector<double> vals;
  void add(size_t i, size_t j, double v) {
    rows.push_back(i);
    cols.push_back(j);
    vals.push_back(v);
  }
};
Triplets poissonRows(size_t n, size_t r0, size_t r1) {
  Triplets t;
  const size_t stride[3] = {1, n, n * n};
  for (size_t i = r0; i < r1; ++i) {
    const size_t at[3] = {i % n, i / n % n, i / (n * n)};
    t.add(i, i, 6.0);
    for (int d = 0; d < 3; ++d) {
      if (at[d] > 0) t.add(i, i - stride[d], -1.0);
      if (at[d] + 1 < n) t.add(i, i + stride[d], -1.0);
    }
  }
  return t;
}

// The rank's rows of the Poisson matrix as a Sparse with the global
// dimensions, and the Mat the bridge makes of it.
struct RankPart {
  size_t r0 = 0, r1 = 0;
  std::vector<size_t> offsets;
  Sparse block;
  OwnedMat A;
};

const RankPart& rankPart(size_t n) {
  static std::map<size_t, std::unique_ptr<RankPart>> cache;
  auto& slot = cache[n];
  if (slot) return *slot;
  slot = std::make_unique<RankPart>();
  RankPart& p = *slot;
  const size_t N = n * n * n;
  p.offsets = balancedPartition(N, PetscGlobalSize);
  p.r0 = p.offsets[PetscGlobalRank];
  p.r1 = p.offsets[PetscGlobalRank + 1];
  const Triplets t = poissonRows(n, p.r0, p.r1);
  p.block.vectorTripletToSparse(t.rows, t.cols, t.vals, N, N);
  p.A = toPetscMat(p.block, PETSC_COMM_WORLD, p.offsets);
  return p;
}

// The library's matrix, sorted for the sweeps.
const Sparse& libraryMatrix(size_t n) {
  static std::map<size_t, std::unique_ptr<Sparse>> cache;
  auto& slot = cache[n];
  if (!slot) {
    slot = std::make_unique<Sparse>(qvarray::assemblePoisson({3, n}));
    slot->setForm(qvarray::FormSorted);
  }
  return *slot;
}

// ---- the check ---------------------------------------------------------------------

// The true relative residual of the whole x for the rank's rows of `block`
// (summed over the ranks) and the relative error of x against u, checked
// against the bound κ(A)·residual; returns the residual, or infinity when the
// bound fails.
double checkSolution(const Sparse& block, size_t r0, size_t r1, const Problem& pb,
                     const std::vector<double>& x) {
  const size_t* colPtr = block.getColPtr();
  const size_t* row = block.getRow();
  const double* val = block.getDoubleVal();
  std::vector<double> ax(r1 - r0, 0.0);
  for (size_t j = 0; j < pb.N; ++j)
    for (size_t k = colPtr[j]; k < colPtr[j + 1]; ++k) ax[row[k] - r0] += val[k] * x[j];
  double sums[2] = {0.0, 0.0};  // ‖b − A·x‖², ‖b‖² over the rank's rows
  for (size_t i = r0; i < r1; ++i) {
    const double r = pb.b[i] - ax[i - r0];
    sums[0] += r * r;
    sums[1] += pb.b[i] * pb.b[i];
  }
  if (mpiRanks() > 0) MPI_Allreduce(MPI_IN_PLACE, sums, 2, MPI_DOUBLE, MPI_SUM, PETSC_COMM_WORLD);
  const double res = std::sqrt(sums[0] / sums[1]);
  double e = 0.0, s = 0.0;
  for (size_t i = 0; i < pb.N; ++i) {
    e += (x[i] - pb.u[i]) * (x[i] - pb.u[i]);
    s += pb.u[i] * pb.u[i];
  }
  const double h = 1.0 / static_cast<double>(pb.n + 1);
  const double kappa = 4.0 / (std::numbers::pi * std::numbers::pi * h * h) * (1.0 + h * h);
  return std::sqrt(e / s) <= kappa * res * 1.01 + 1e-15 ? res : INFINITY;
}

// The ranks' parts of x, gathered on every rank.
std::vector<double> gathered(const Vector& local, const std::vector<size_t>& offsets) {
  std::vector<int> counts, displs;
  for (size_t r = 0; r + 1 < offsets.size(); ++r) {
    counts.push_back(static_cast<int>(offsets[r + 1] - offsets[r]));
    displs.push_back(static_cast<int>(offsets[r]));
  }
  std::vector<double> x(offsets.back());
  MPI_Allgatherv(local.getdArr().data, static_cast<int>(local.size()), MPI_DOUBLE, x.data(),
                 counts.data(), displs.data(), MPI_DOUBLE, PETSC_COMM_WORLD);
  return x;
}

// ---- the solvers -------------------------------------------------------------------

qvarray::GmresResult librarySolve(const Sparse& A, const Vector& b, Vector& x) {
  const qvarray::SparseOperator op(A);
  const qvarray::SsorPreconditioner ssor(A, kOmega);
  qvarray::GmresOptions o;
  o.tol = kTol;
  o.restart = 30;
  o.maxIter = 20000;
  o.precond = &ssor;
  return qvarray::gmres(op, b, x, o);
}

Vector localB(const Problem& pb, const RankPart& p) {
  return Vector(std::vector<double>(pb.b.begin() + static_cast<std::ptrdiff_t>(p.r0),
                                    pb.b.begin() + static_cast<std::ptrdiff_t>(p.r1)));
}

void BM_Library(benchmark::State& state, size_t n, int threads) {
  Threads t(threads);
  const Problem& pb = problem(n);
  const Sparse& A = libraryMatrix(n);
  const Vector b(pb.b);
  const std::string config = "library/" + std::to_string(n) + "/" + std::to_string(threads);
  const auto& agreements = qvbench::checked(config, [&] {
    Vector x;
    librarySolve(A, b, x);
    const std::vector<double> xv(x.getdArr().data, x.getdArr().data + x.size());
    return qvbench::Agreements{{"qvarray", {checkSolution(A, 0, pb.N, pb, xv), kTolCheck}}};
  });
  if (!qvbench::agrees(state, agreements, "qvarray")) return;
  int its = 0;
  Clock clock(state);
  for (auto _ : state) {
    clock.start();
    Vector x;
    const qvarray::GmresResult res = librarySolve(A, b, x);
    clock.stop();
    its = res.converged() ? res.iterations : -1;
    benchmark::DoNotOptimize(x.getdArr().data);
  }
  if (its < 0) state.SkipWithError("the solver did not converge");
  state.counters["its"] = its;
}

void BM_PetscSolve(benchmark::State& state, size_t n, const std::string& impl) {
  ensurePetsc();
  const Problem& pb = problem(n);
  const RankPart& p = rankPart(n);
  const Vector b = localB(pb, p);
  const std::string& options = kPetscOptions.at(impl);
  const std::string config = "petsc/" + std::to_string(n) + "/" + impl;
  const auto& agreements = qvbench::checked(config, [&] {
    const KspResult r = kspSolve(p.A, b, options);
    const double res =
        r.converged ? checkSolution(p.block, p.r0, p.r1, pb, gathered(r.x, p.offsets)) : INFINITY;
    return qvbench::Agreements{{impl, {res, kTolCheck}}};
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  int its = 0;
  Clock clock(state);
  for (auto _ : state) {
    clock.start();
    const KspResult r = kspSolve(p.A, b, options);
    clock.stop();
    its = r.converged ? r.iterations : -1;
    benchmark::DoNotOptimize(r.x.getdArr().data);
  }
  if (its < 0) state.SkipWithError("the solver did not converge");
  state.counters["its"] = its;
}

// The KSP of kspSolve up to its set-up: options from a private database.
void BM_PetscSetup(benchmark::State& state, size_t n, const std::string& impl) {
  ensurePetsc();
  const RankPart& p = rankPart(n);
  const std::string& options = kPetscOptions.at(impl);
  Clock clock(state);
  for (auto _ : state) {
    PetscOptions db = nullptr;
    KSP ksp = nullptr;
    check(PetscOptionsCreate(&db));
    check(PetscOptionsInsertString(db, options.c_str()));
    check(KSPCreate(PETSC_COMM_WORLD, &ksp));
    check(PetscObjectSetOptions(reinterpret_cast<PetscObject>(ksp), db));
    check(KSPSetOperators(ksp, p.A, p.A));
    check(KSPSetFromOptions(ksp));
    clock.start();
    check(KSPSetUp(ksp));
    check(KSPSetUpOnBlocks(ksp));  // block Jacobi factors its blocks here
    clock.stop();
    check(KSPDestroy(&ksp));
    check(PetscOptionsDestroy(&db));
  }
}

// The bridge's conversions of the rank's part.
void BM_Convert(benchmark::State& state, size_t n, const std::string& what) {
  ensurePetsc();
  const Problem& pb = problem(n);
  const RankPart& p = rankPart(n);
  const Vector b = localB(pb, p);
  const OwnedVec v = toPetscVec(p.A, b);
  Clock clock(state);
  for (auto _ : state) {
    clock.start();
    if (what == "to_mat") {
      OwnedMat A = toPetscMat(p.block, PETSC_COMM_WORLD, p.offsets);
      benchmark::DoNotOptimize(A.get());
    } else if (what == "to_vec") {
      OwnedVec w = toPetscVec(p.A, b);
      benchmark::DoNotOptimize(w.get());
    } else {
      Vector x = fromPetscVec(v);
      benchmark::DoNotOptimize(x.getdArr().data);
    }
    clock.stop();
  }
  if (what != "to_mat") return;
  state.counters["nnz_local"] = static_cast<double>(p.block.getNnz());
  state.counters["rows_local"] = static_cast<double>(p.r1 - p.r0);
  MatInfo info;
  check(MatGetInfo(p.A, MAT_LOCAL, &info));
  state.counters["mallocs"] = info.mallocs;
  state.counters["nz_allocated"] = info.nz_allocated;
}

// One rank's share of a 64-rank run at 10⁸ unknowns (n = 465), converted on
// its own: the first 465³/64 rows of the Poisson matrix, as a Sparse with all
// 465³ columns (toPetscMat) or as a block of its own rows stored transposed,
// whose column pointers count the rows (rowBlockToPetscMat). The two differ
// by the per-column cost of a block held with the global column count.
void BM_Share(benchmark::State& state, bool globalColumns) {
  ensurePetsc();
  constexpr size_t n = 465, N = n * n * n, rows = N / 64;
  static std::map<bool, std::unique_ptr<Sparse>> cache;
  auto& slot = cache[globalColumns];
  if (!slot) {
    const Triplets t = poissonRows(n, 0, rows);
    slot = std::make_unique<Sparse>();
    if (globalColumns) {
      slot->vectorTripletToSparse(t.rows, t.cols, t.vals, rows, N);
    } else {
      slot->vectorTripletToSparse(t.cols, t.rows, t.vals, N, rows);
      slot->setSymm(qvarray::SymmTransposed);
    }
  }
  Clock clock(state);
  for (auto _ : state) {
    clock.start();
    OwnedMat A = globalColumns ? toPetscMat(*slot, PETSC_COMM_WORLD)
                               : rowBlockToPetscMat(*slot, PETSC_COMM_WORLD);
    clock.stop();
    benchmark::DoNotOptimize(A.get());
  }
  state.counters["nnz_local"] = static_cast<double>(slot->getNnz());
  state.counters["rows_local"] = static_cast<double>(rows);
}

void registerAll() {
  const int ranks = mpiRanks();
  auto add = [](const std::string& name, int iterations, auto fn) {
    benchmark::RegisterBenchmark(name.c_str(), fn)
        ->UseManualTime()
        ->Iterations(iterations)
        ->Unit(benchmark::kMillisecond);
  };
  if (ranks == 1)
    for (bool global : {false, true})
      add(std::string("convert/poisson_1e8_share_of_64/procs:1/") +
              (global ? "to_mat_global_columns" : "row_block_transposed"),
          3, [global](benchmark::State& s) { BM_Share(s, global); });
  for (size_t n : {50, 100, 150}) {
    const std::string grid = "/poisson_" + std::to_string(n * n * n) + "/procs:";
    if (ranks == 0) {
      for (int threads : {1, 2})
        add("solve" + grid + std::to_string(threads) + "/qvarray", 1,
            [n, threads](benchmark::State& s) { BM_Library(s, n, threads); });
      continue;
    }
    const std::string p = grid + std::to_string(ranks);
    for (const char* impl : {"petsc_gamg", "petsc_ilu", "petsc_hypre"}) {
      const std::string name(impl);
      add("solve" + p + "/" + name, 1,
          [n, name](benchmark::State& s) { BM_PetscSolve(s, n, name); });
      add("setup" + p + "/" + name, 1,
          [n, name](benchmark::State& s) { BM_PetscSetup(s, n, name); });
    }
    for (const char* what : {"to_mat", "to_vec", "from_vec"}) {
      const std::string name(what);
      add("convert" + p + "/" + name, name == "to_mat" ? 5 : 50,
          [n, name](benchmark::State& s) { BM_Convert(s, n, name); });
    }
  }
}
const int kRegistered = (registerAll(), 0);

}  // namespace
