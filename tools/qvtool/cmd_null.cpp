// qvtool null: constraint elimination demonstrated on a Poisson problem and
// checked against Lagrange multipliers.
//
//   qvtool null [--grid n] [--nullfun auto|orth|sparse]
//
// The 5-point operator K on an n×n grid of unknowns with the load f = h²
// (h = 1/(n−1)) is constrained by u = 0 on the bottom row, u = 1 on the top
// row and periodic columns u(0, y) = u(n−1, y). The corner unknowns are
// constrained twice (Dirichlet and periodic), so two constraints are
// redundant.
//
// Elimination: qvNull gives N and u₀; the reduced system Nᴴ·K·N·v =
// Nᴴ·(f − K·u₀) is solved by GMRES with a Jacobi preconditioner.
// Lagrange multipliers: the saddle-point system [K Bᴴ; B 0]·[u; λ] = [f; r]
// without the redundant corner ties is solved by dense LU.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "jacobipreconditioner.h"
#include "qvarray/arrayutil.h"
#include "qvarray/blasruntime.h"
#include "qvarray/gmres.h"
#include "qvarray/sparse/qvnull.h"
#include "qvarray/sparse/qvnullreduce.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using qvarray::Sparse;

constexpr size_t kMaxDenseGrid = 40;  // the dense saddle-point solve limits the grid

struct Problem {
  size_t n = 0;        // grid points per side
  Sparse K, B, BL;     // operator, all constraints, constraints without the corner ties
  Vector f, r, rL;
};

Problem poisson(size_t n) {
  Problem p;
  p.n = n;
  const size_t N = n * n;
  const double h = 1.0 / static_cast<double>(n - 1);
  std::vector<size_t> ri, ci;
  std::vector<double> v;
  for (size_t y = 0; y < n; ++y)
    for (size_t x = 0; x < n; ++x) {
      const size_t i = x + n * y;
      ri.push_back(i), ci.push_back(i), v.push_back(4.0);
      for (size_t j : {x > 0 ? i - 1 : i, x + 1 < n ? i + 1 : i, y > 0 ? i - n : i,
                       y + 1 < n ? i + n : i})
        if (j != i) ri.push_back(i), ci.push_back(j), v.push_back(-1.0);
    }
  p.K.vectorTripletToSparse(ri, ci, v, N, N);
  p.f = Vector(N, h * h);

  // Rows: bottom and top Dirichlet values, then one periodic tie per grid row.
  auto constraints = [&](bool corners, Sparse& B, Vector& r) {
    std::vector<size_t> br, bc;
    std::vector<double> bv, rv;
    size_t m = 0;
    for (size_t x = 0; x < n; ++x) {
      br.push_back(m++), bc.push_back(x), bv.push_back(1.0), rv.push_back(0.0);
      br.push_back(m++), bc.push_back(x + n * (n - 1)), bv.push_back(1.0), rv.push_back(1.0);
    }
    for (size_t y = corners ? 0 : 1; y < (corners ? n : n - 1); ++y) {
      br.push_back(m), bc.push_back(n * y), bv.push_back(1.0);
      br.push_back(m++), bc.push_back(n * y + n - 1), bv.push_back(-1.0);
      rv.push_back(0.0);
    }
    B.vectorTripletToSparse(br, bc, bv, m, N);
    r = Vector(rv);
  };
  constraints(true, p.B, p.r);
  constraints(false, p.BL, p.rL);
  return p;
}

// ‖B·u − r‖∞
double constraintResidual(const Sparse& B, const Vector& u, const Vector& r) {
  Vector d = r;
  qvarray::yMinusAMulx(d, B, u, qvarray::NoTrans);
  return d.normInf();
}

int run(int argc, char** argv) {
  size_t n = 24;
  qvarray::NullOptions o;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--grid")) {
      n = static_cast<size_t>(args.integer(3, static_cast<long>(kMaxDenseGrid)));
    } else if (args.is("--nullfun")) {
      const char* name = args.value();
      if (std::strcmp(name, "auto") && std::strcmp(name, "orth") && std::strcmp(name, "sparse"))
        args.badValue("is not one of auto, orth, sparse");
      o.nullfun = qvarray::parseNullFun(name);
    } else {
      args.unexpected();
    }
  }

  const Problem p = poisson(n);
  const size_t N = n * n;
  std::printf("Poisson problem on a %zu x %zu grid: %zu unknowns, %zu constraints\n", n, n, N,
              p.B.getM());

  // ---- elimination ----
  qvutil::Stopwatch clock;
  const qvarray::NullSpace ns = qvarray::qvNull(p.B, o);
  const Vector u0 = ns.particular(p.r);
  const Sparse A = qvarray::reduceMatrix(ns, p.K);
  const Vector g = qvarray::reduceVector(ns, p.K, p.f, u0);
  const double tNull = clock.seconds();
  const qvarray::SparseOperator op(A);
  const qvtool::JacobiPreconditioner jacobi(A);
  qvarray::GmresOptions go;
  go.tol = 1e-12;
  go.restart = 100;
  go.maxIter = 20000;
  go.precond = &jacobi;
  Vector v;
  const qvarray::GmresResult res = qvarray::gmres(op, g, v, go);
  const Vector uE = qvarray::expandSolution(ns, v, u0);
  const double tElim = clock.seconds();
  // Optimality: K·u − f must lie in range(Bᴴ), i.e. Nᴴ·(f − K·u) = 0.
  const double kkt = qvarray::reduceVector(ns, p.K, p.f, uE).norm() / g.norm();
  std::printf("\nelimination (nullfun \"%s\"):\n", qvarray::nullFunName(o.nullfun));
  std::printf("  rank %zu, %zu redundant constraints, %zu blocks (%zu by SVD)\n", ns.rank,
              p.B.getM() - ns.rank, ns.blocks, ns.svdBlocks);
  std::printf("  N: %zu x %zu, nnz(N)/n = %.3f; reduced matrix: %zu non-zeros\n", ns.N.getM(),
              ns.N.getN(), static_cast<double>(ns.N.getNnz()) / static_cast<double>(N),
              A.getNnz());
  std::printf("  GMRES: %s after %d iterations, relative residual %.3e\n",
              res.converged() ? "converged" : "not converged", res.iterations, res.relResidual);
  std::printf("  residual |N^H (f - K u)| / |N^H (f - K u0)| = %.3e, |B u - r|_inf = %.3e\n", kkt,
              constraintResidual(p.B, uE, p.r));
  std::printf("  time: %.3f ms (qvNull and reduction %.3f ms)\n", tElim * 1e3, tNull * 1e3);

  // ---- Lagrange multipliers ----
  clock.reset();
  const size_t m = p.BL.getM(), S = N + m;
  Array<double, 2> KKT(S, S);
  KKT.fill(0.0);
  Array<double, 1> rhs(S);
  for (size_t j = 0; j < N; ++j) {
    rhs[j] = p.f.d(j);
    for (size_t q = p.K.getColPtr()[j]; q < p.K.getColPtr()[j + 1]; ++q)
      KKT(p.K.getRow()[q], j) += p.K.getDoubleVal()[q];
    for (size_t q = p.BL.getColPtr()[j]; q < p.BL.getColPtr()[j + 1]; ++q) {
      const size_t i = p.BL.getRow()[q];
      KKT(N + i, j) += p.BL.getDoubleVal()[q];
      KKT(j, N + i) += p.BL.getDoubleVal()[q];
    }
  }
  for (size_t i = 0; i < m; ++i) rhs[N + i] = p.rL.d(i);
  const Array<double, 2> KKT0 = KKT;
  const Array<double, 1> rhs0 = rhs;
  {
    const qvarray::SerialBlasScope serial;  // a small system: one BLAS thread is faster
    qvarray::linsolv(KKT, rhs, qvarray::RaiseAll);
  }
  const double tLagrange = clock.seconds();
  Array<double, 1> resid(S);  // [f; r] − KKT·x
  resid.fill(0.0);
  qvarray::yPlusAMulx(resid, KKT0, rhs, qvarray::NoTrans);
  for (size_t i = 0; i < S; ++i) resid[i] = rhs0[i] - resid[i];
  Vector uL(N);
  for (size_t i = 0; i < N; ++i) uL.d(i) = rhs[i];
  std::printf("\nLagrange multipliers (%zu constraints, saddle-point system %zu x %zu, dense LU):\n",
              m, S, S);
  std::printf("  residual |[K B^H; B 0] x - [f; r]| / |[f; r]| = %.3e, |B u - r|_inf = %.3e\n",
              qvarray::norm(resid) / qvarray::norm(rhs0), constraintResidual(p.B, uL, p.r));
  std::printf("  time: %.3f ms\n", tLagrange * 1e3);

  Vector d = uE;
  d -= uL;
  const double diff = d.normInf() / uL.normInf();
  std::printf("\nmax |u_elimination - u_Lagrange| / max |u| = %.3e\n", diff);
  if (!std::isfinite(diff) || !res.converged())
    throw qvtool::Failure("null: the elimination did not converge");
  if (!(diff < 1e-8))
    throw qvtool::Failure("null: the two solutions differ by " + qvtool::formatValue(diff));
  return 0;
}

}  // namespace

const qvtool::Command qvtool::nullCommand = {
    "null", run, "Poisson with Dirichlet and periodic constraints: elimination vs Lagrange",
    "qvtool null [--grid n] [--nullfun auto|orth|sparse]",
    "Poisson problem on an n x n grid (default 24, 3 to 40): u = 0 on the bottom\n"
    "row, u = 1 on the top row, periodic left/right columns. Solves it by\n"
    "constraint elimination (qvNull, GMRES on the reduced system) and by Lagrange\n"
    "multipliers (dense saddle-point solve), prints both residuals and checks\n"
    "that the two solutions agree.\n"
    "  --nullfun f  the null-space method: auto, orth or sparse (default auto)\n"};
