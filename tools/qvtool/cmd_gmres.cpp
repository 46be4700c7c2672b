// qvtool gmres: restarted GMRES on a sparse MatrixMarket matrix, printing the
// residual history.
#include <climits>
#include <cmath>
#include <complex>
#include <cstdio>
#include <string>

#include "commands.h"
#include "jacobipreconditioner.h"
#include "qvarray/gmres.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using dcomplex = std::complex<double>;
using qvtool::Failure;

bool finite(const Vector& v) {
  return v.isReal() ? qvtool::allFinite(v.getdArr().data, v.getdArr().count)
                    : qvtool::allFinite(v.getzArr().data, v.getzArr().count);
}

int run(int argc, char** argv) {
  std::string file;
  qvarray::GmresOptions o;
  bool jacobi = false, history = false;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--jacobi")) jacobi = true;
    else if (args.is("--history")) history = true;
    else if (args.is("--restart")) o.restart = static_cast<int>(args.integer(1, INT_MAX));
    else if (args.is("--maxit")) o.maxIter = static_cast<int>(args.integer(0, INT_MAX));
    else if (args.is("--tol")) {
      o.tol = args.number();
      if (o.tol < 0) args.badValue("is negative");
    } else args.positional(file);
  }
  qvtool::Arguments::require(file, "matrix file");

  const qvarray::Sparse S = qvtool::readSparse(file);
  if (S.getM() != S.getN())
    throw Failure(file + ": the matrix is not square (" + std::to_string(S.getM()) + " x " +
                  std::to_string(S.getN()) + ")");
  const size_t n = S.getN();
  const qvarray::SparseOperator A(S);
  const qvtool::JacobiPreconditioner M(S);
  if (jacobi) o.precond = &M;
  std::printf("matrix: %s, n = %zu, %s, %zu entries\n", file.c_str(), n,
              S.isReal() ? "real" : "complex", S.getNnz());
  std::printf("restart %d, tol %.1e, maxit %d, preconditioner: %s\n", o.restart, o.tol, o.maxIter,
              jacobi ? "Jacobi" : "none");

  Vector ones(n, 1.0), b, x;
  if (A.isReal()) {
    b = Vector(n);
    A.apply(ones.getdArr(), b.getdArr());
  } else {
    ones.makeComplex();
    b = Vector(n, dcomplex(0.0));
    A.apply(ones.getzArr(), b.getzArr());
  }
  if (!finite(b)) throw Failure(file + ": the right-hand side A*(1, ..., 1) overflows");
  qvutil::Stopwatch clock;
  const qvarray::GmresResult res = qvarray::gmres(A, b, x, o);
  const double seconds = clock.seconds();

  qvtool::printHistory(res.history, history);
  const char* status = res.status == qvarray::GmresStatus::Converged       ? "converged"
                       : res.status == qvarray::GmresStatus::MaxIterations ? "iteration limit reached"
                                                                             : "breakdown";
  std::printf("%s after %d iterations (%d cycles) in %.3f ms, %.3f ms per iteration\n", status,
              res.iterations, res.cycles, seconds * 1e3,
              res.iterations ? seconds * 1e3 / res.iterations : 0.0);
  if (!std::isfinite(res.relResidual) || !finite(x))
    throw Failure(file + ": GMRES gave a non-finite solution");
  x -= ones;
  std::printf("true relative residual: %.3e, max error against x = (1, ..., 1): %.3e\n",
              res.relResidual, x.normInf());
  if (!res.converged()) throw Failure(file + ": GMRES did not converge (" + status + ")");
  return 0;
}

}  // namespace

const qvtool::Command qvtool::gmresCommand = {
    "gmres", run, "solve a sparse system from a MatrixMarket file by restarted GMRES",
    "qvtool gmres FILE.mtx [--restart m] [--tol t] [--maxit k] [--jacobi] [--history]",
    "Solves A*x = b for b = A*(1, ..., 1) with restarted GMRES on the square\n"
    "matrix of a MatrixMarket coordinate file and prints the relative residual\n"
    "every few iterations, the outcome and the error against x = (1, ..., 1).\n"
    "  --restart m  Krylov vectors per cycle (default 30)\n"
    "  --tol t      relative residual to reach (default 1e-8)\n"
    "  --maxit k    iteration limit (default 1000)\n"
    "  --jacobi     precondition with the inverse of the diagonal\n"
    "  --history    print the residual after every iteration\n"};
