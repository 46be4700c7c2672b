// The body of qvtool psolve, built as the module qvtool_psolve.so that qvtool
// loads on demand (cmd_psolve.cpp): the only part of qvtool that links PETSc
// and MPI.
//
// Every rank runs the whole command: it parses the arguments, gets its rows
// of A and b (psolverows.h), and the bridge assembles the distributed matrix
// from them and solves. The residual ‖b − A·x‖/‖b‖ is computed afterwards by
// PETSc's product, apart from the solver's own (possibly preconditioned)
// estimate. Rank 0 prints. A failure is reported once, by the lowest rank
// where it happened; the other ranks end silently with the same exit status.
#include <mpi.h>
#include <petscksp.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "psolverows.h"
#include "qvarray/io/densemm.h"
#include "qvarray/petsc/petscbridge.h"
#include "qvarray/petsc/petscsolve.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using namespace qvtool::psolve;
using qvarray::petsc::check;

// PETSc options that every solve starts from; the command line's follow and
// override them. Right preconditioning makes GMRES's tolerance bound the true
// residual rather than the preconditioned one.
constexpr const char* kDefaultOptions =
    "-ksp_type gmres -ksp_pc_side right -pc_type gamg -ksp_rtol 1e-8";

struct Options {
  std::string aPath, bPath, outPath;
  ReadMode mode = ReadMode::Root;
  std::string petsc = kDefaultOptions;
};

// qvtool's own options anywhere; after the two files, every argument that
// starts with '-' is a PETSc option, and a plain one that follows it its
// value.
Options parse(int argc, char** argv) {
  Options o;
  qvtool::Arguments args(argc, argv);
  bool optionBefore = false;
  while (args.next()) {
    const char* a = args.current();
    const bool dash = a[0] == '-' && a[1] != '\0';
    if (args.is("--read")) {
      const std::string v = args.value();
      if (v == "root") o.mode = ReadMode::Root;
      else if (v == "each") o.mode = ReadMode::Each;
      else args.badValue("is not 'root' or 'each'");
      optionBefore = false;
    } else if (args.is("--out")) {
      o.outPath = args.value();
      optionBefore = false;
    } else if (!o.bPath.empty() && (dash || optionBefore)) {
      o.petsc += ' ';
      o.petsc += a;
      optionBefore = dash;
    } else {
      args.positional(o.aPath.empty() ? o.aPath : o.bPath);
    }
  }
  qvtool::Arguments::require(o.aPath, "matrix file");
  qvtool::Arguments::require(o.bPath, "right-hand side file");
  return o;
}

// ‖b − A·x‖ / ‖b‖ (‖b − A·x‖ when b = 0) through PETSc's product. Collective.
double relativeResidual(Mat A, const qvarray::Vector& x, const qvarray::Vector& b) {
  using qvarray::petsc::OwnedVec;
  const OwnedVec xv = qvarray::petsc::toPetscVec(A, x), bv = qvarray::petsc::toPetscVec(A, b);
  Vec r = nullptr;
  check(VecDuplicate(bv, &r));
  const OwnedVec residual(r);
  check(MatMult(A, xv, r));
  check(VecAYPX(r, -1.0, bv));
  PetscReal rnorm = 0, bnorm = 0;
  check(VecNorm(r, NORM_2, &rnorm));
  check(VecNorm(bv, NORM_2, &bnorm));
  return bnorm > 0 ? rnorm / bnorm : rnorm;
}

int run(int argc, char** argv) {
  const MPI_Comm comm = PETSC_COMM_WORLD;
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  Options o;
  together(comm, [&] { o = parse(argc, argv); });

  qvutil::Stopwatch readClock;
  const LocalSystem sys = readLocalSystem(o.aPath, o.bPath, o.mode, comm);
  const double readTime = readClock.seconds();

  qvutil::Stopwatch assemblyClock;
  qvarray::petsc::OwnedMat A;
  together(comm, [&] { A = qvarray::petsc::rowBlockToPetscMat(sys.A, comm); });
  const double assemblyTime = assemblyClock.seconds();

  qvutil::Stopwatch solveClock;
  qvarray::petsc::KspResult res;
  together(comm, [&] { res = qvarray::petsc::kspSolve(A, sys.b, o.petsc); });
  const double solveTime = solveClock.seconds();

  double residual = 0;
  together(comm, [&] { residual = relativeResidual(A, res.x, sys.b); });
  std::array<double, 3> times{readTime, assemblyTime, solveTime}, slowest{};
  MPI_Reduce(times.data(), slowest.data(), 3, MPI_DOUBLE, MPI_MAX, 0, comm);
  unsigned long long nnz = sys.A.getNnz(), totalNnz = 0;
  MPI_Reduce(&nnz, &totalNnz, 1, MPI_UNSIGNED_LONG_LONG, MPI_SUM, 0, comm);
  const std::vector<double> x = o.outPath.empty() ? std::vector<double>()
                                                  : gatherOnRoot(res.x, comm);

  if (rank == 0) {
    std::printf("A: %s, %zu x %zu, %llu entries; b: %s\n", o.aPath.c_str(), sys.n, sys.n,
                totalNnz, o.bPath.c_str());
    std::printf("%d rank%s, rows read %s\n", size, size == 1 ? "" : "s",
                o.mode == ReadMode::Root ? "by rank 0" : "by every rank");
    std::printf("PETSc options: %s\n", o.petsc.c_str());
    std::printf("%s (%s) after %d iterations\n", res.converged ? "converged" : "not converged",
                KSPConvergedReasons[res.reason], res.iterations);
    std::printf("relative residual ||b - A*x|| / ||b|| = %.3e\n", residual);
    for (const std::string& unused : res.unusedOptions)
      std::printf("PETSc did not use the option %s\n", unused.c_str());
    std::printf("time (slowest rank): read %.3f ms, assembly %.3f ms, solve %.3f ms\n",
                slowest[0] * 1e3, slowest[1] * 1e3, slowest[2] * 1e3);
  }
  together(comm, [&] {
    if (rank != 0 || o.outPath.empty()) return;
    qvarray::Array<double, 2> X;
    X.resize(x.size(), 1);
    std::copy(x.begin(), x.end(), &X(0, 0));
    qvarray::writeMatrixMarket(o.outPath, X, "solution of A*x = b for A = " + o.aPath);
    std::printf("solution written to %s\n", o.outPath.c_str());
  });
  together(comm, [&] {
    if (!res.converged && rank == 0)
      throw qvtool::Failure(o.aPath + ": the solve did not converge (" +
                            KSPConvergedReasons[res.reason] + ")");
  });
  return 0;
}

}  // namespace

/// The command psolve: qvtool's arguments from the command's name on. PETSc
/// and MPI live from the start of the call to its end.
extern "C" __attribute__((visibility("default"))) int qvtool_psolve_run(int argc, char** argv) {
  try {
    const qvarray::petsc::Session session(nullptr, nullptr);
    return run(argc, argv);
  } catch (const PeerFailure& e) {
    return e.status;
  }
}
