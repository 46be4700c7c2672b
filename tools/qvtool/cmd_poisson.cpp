// qvtool poisson: the finite-difference Poisson problem on a structured grid,
// assembled through triplets and solved by GMRES preconditioned with one
// symmetric SOR step, and by plain SOR iterations for comparison.
//
// The right-hand side is b = A·u for a smooth grid function u computed from
// the stencil (poissongrid.h), so u is the exact discrete solution and the
// error of the computed x is checked against the bound that the residual
// gives: ‖x − u‖/‖u‖ ≤ κ(A)·‖b − A·x‖/‖b‖ with κ(A) ≤ 4/(π²h²) · (1 + h²),
// which holds for either dimension (the extreme eigenvalues of the stencil
// are 2·dim·(1 ∓ cos πh)).
#include <climits>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "qvarray/blasruntime.h"
#include "qvarray/gmres.h"
#include "qvarray/sparse/poissongrid.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparserelax.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "qvutil/parallel.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using qvarray::Sparse;
using qvarray::Vector;

struct Options {
  qvarray::PoissonGrid grid{2, 100};
  double omega = 1.5;
  int threads = 0;
  int sorMaxit = 5000;
  bool symmetric = false;
  bool history = false;
  qvarray::GmresOptions gmres;
};

Options parse(int argc, char** argv) {
  Options o;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--symmetric")) o.symmetric = true;
    else if (args.is("--history")) o.history = true;
    else if (args.is("--dim")) o.grid.dim = static_cast<int>(args.integer(2, 3));
    else if (args.is("--n")) o.grid.n = static_cast<size_t>(args.integer(1, 100000));
    else if (args.is("--threads")) o.threads = static_cast<int>(args.integer(0, 1 << 20));
    else if (args.is("--maxit")) o.gmres.maxIter = static_cast<int>(args.integer(0, INT_MAX));
    else if (args.is("--restart")) o.gmres.restart = static_cast<int>(args.integer(1, INT_MAX));
    else if (args.is("--sor-maxit")) o.sorMaxit = static_cast<int>(args.integer(0, INT_MAX));
    else if (args.is("--omega")) {
      o.omega = args.number();
      if (!(o.omega > 0.0 && o.omega < 2.0)) args.badValue("is out of range (0 < w < 2)");
    } else if (args.is("--tol")) {
      o.gmres.tol = args.number();
      if (!(o.gmres.tol > 0.0)) args.badValue("is not positive");
    } else {
      args.unexpected();
    }
  }
  return o;
}

// Relative 2-norm error of x against u.
double relativeError(const Vector& x, const std::vector<double>& u) {
  double e = 0.0, s = 0.0;
  for (size_t i = 0; i < u.size(); ++i) {
    e += (x.d(i) - u[i]) * (x.d(i) - u[i]);
    s += u[i] * u[i];
  }
  return std::sqrt(e / s);
}

int run(int argc, char** argv) {
  Options o = parse(argc, argv);
  if (o.threads > 0) qvbase::Parallel::setAvailableThreads(o.threads);
  // One thread means one for BLAS as well (GMRES's orthogonalisation).
  std::optional<qvarray::SerialBlasScope> serialBlas;
  if (AVAILABLETHREADS() == 1) serialBlas.emplace();
  const qvarray::PoissonGrid& g = o.grid;
  const size_t N = g.unknowns();
  qvutil::Stopwatch assemblyClock;
  Sparse A = qvarray::assemblePoisson(g, o.symmetric);
  const double assembly = assemblyClock.seconds();
  qvutil::Stopwatch sortClock;
  A.setForm(qvarray::FormSorted);  // the sweeps need sorted rows
  const double sorting = sortClock.seconds();
  std::vector<double> u, bv;
  qvarray::manufacturedSolution(g, u, bv);
  const Vector b(bv);

  const double h = 1.0 / static_cast<double>(g.n + 1);
  const double kappa = 4.0 / (std::numbers::pi * std::numbers::pi * h * h) * (1.0 + h * h);
  std::printf("Poisson %dD, n = %zu: %zu unknowns, %zu stored entries (%s storage), "
              "%d thread%s\n",
              g.dim, g.n, N, A.getNnz(), o.symmetric ? "symmetric" : "general",
              AVAILABLETHREADS(), AVAILABLETHREADS() == 1 ? "" : "s");
  std::printf("assembly through triplets %.3f s, sorting the columns %.3f s\n", assembly,
              sorting);

  // GMRES with the symmetric SOR preconditioner.
  const qvarray::SparseOperator op(A);
  const qvarray::SsorPreconditioner ssor(A, o.omega);
  o.gmres.precond = &ssor;
  Vector x;
  qvutil::Stopwatch gmresClock;
  const qvarray::GmresResult res = qvarray::gmres(op, b, x, o.gmres);
  const double gmresTime = gmresClock.seconds();
  std::printf("\nGMRES(%d) with symmetric SOR, omega %g, tol %.1e\n", o.gmres.restart, o.omega,
              o.gmres.tol);
  qvtool::printHistory(res.history, o.history);
  const double err = relativeError(x, u);
  const bool errorOk = err <= kappa * res.relResidual * 1.01 + 1e-15;
  std::printf("%s after %d iterations in %.3f s (%.3f ms per iteration)\n",
              res.converged() ? "converged" : "not converged", res.iterations, gmresTime,
              res.iterations ? gmresTime * 1e3 / res.iterations : 0.0);
  std::printf("true relative residual %.3e; relative error against the discrete solution "
              "%.3e (bound %.3e): %s\n",
              res.relResidual, err, kappa * res.relResidual, errorOk ? "ok" : "FAILED");

  // Plain SOR iterations; y is kept equal to the residual A·x − b.
  if (o.sorMaxit > 0) {
    Vector xs(N), y(b);
    y *= -1.0;
    const double bnorm = b.norm();
    std::vector<double> hist{y.norm() / bnorm};
    qvutil::Stopwatch sorClock;
    while (static_cast<int>(hist.size()) <= o.sorMaxit && hist.back() > o.gmres.tol) {
      qvarray::SORItUpdater(A, xs, y, o.omega, false);
      hist.push_back(y.norm() / bnorm);
    }
    const double sorTime = sorClock.seconds();
    const size_t its = hist.size() - 1;
    std::printf("\nSOR, omega %g\n", o.omega);
    qvtool::printHistory(hist, o.history);
    std::printf("%s after %zu iterations in %.3f s (%.3f ms per iteration); relative error "
                "%.3e\n",
                hist.back() <= o.gmres.tol ? "converged" : "iteration limit reached", its,
                sorTime, its ? sorTime * 1e3 / static_cast<double>(its) : 0.0,
                relativeError(xs, u));
  }
  if (!std::isfinite(res.relResidual) || !std::isfinite(err))
    throw qvtool::Failure("poisson: GMRES gave a non-finite solution");
  if (!res.converged()) throw qvtool::Failure("poisson: GMRES did not converge");
  if (!errorOk)
    throw qvtool::Failure("poisson: the error exceeds the bound that the residual gives");
  return 0;
}

}  // namespace

const qvtool::Command qvtool::poissonCommand = {
    "poisson", run, "solve a 2-D or 3-D Poisson problem by GMRES with SSOR and by SOR",
    "qvtool poisson [--dim 2|3] [--n N] [--omega w] [--threads t] [--tol t]\n"
    "                      [--maxit k] [--restart m] [--sor-maxit k] [--symmetric] [--history]",
    "Solves -Laplace(u) = f on the unit square (--dim 2) or cube (--dim 3) with\n"
    "u = 0 on the boundary, N interior grid points per direction, assembled\n"
    "through triplets: by GMRES preconditioned with one symmetric SOR step\n"
    "(a forward and a backward sweep with factor w) and, for comparison, by\n"
    "plain SOR iterations with the same w. Prints the residual histories and\n"
    "times and checks the answer against the exact discrete solution.\n"
    "Defaults: dim 2, N 100, w 1.5, threads as available, tol 1e-8, maxit 1000,\n"
    "restart 30, sor-maxit 5000 (0 skips the SOR run).\n"
    "  --symmetric  store the lower triangle with half the diagonal (mode 1)\n"
    "  --history    print the residual after every iteration\n"};
