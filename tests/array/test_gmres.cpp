// GMRES: true residuals of real and complex systems, exactness with a full
// Krylov space, preconditioning, and the failure, argument and cancel paths.
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/gmres.h"
#include "qvarray/io/sparsemm.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/matrixutil.h"
#include "qvutil/runinfo.h"

using namespace qvtest;
using qvarray::GmresOptions;
using qvarray::GmresStatus;

namespace {

// A nonsymmetric, non-normal test matrix: shifted identity plus a random
// part and a strong upper diagonal. Its eigenvalues cluster around `shift`.
Matrix testMatrix(size_t n, bool real, double shift, Rng& rng) {
  Matrix A = randomM(n, n, real, rng);
  A *= 1.0 / std::sqrt(static_cast<double>(n));
  for (size_t i = 0; i < n; ++i) {
    A.set(i, i, A.get(i, i) + shift);
    if (i + 1 < n) A.set(i, i + 1, A.get(i, i + 1) + 1.5);
  }
  return A;
}

// ‖b − A·x‖ / ‖b‖ computed independently of the solver.
double trueRelResidual(const Matrix& A, const Vector& x, const Vector& b) {
  return normF(minus(mul(Z(A), Z(x)), Z(b))) / normF(Z(b));
}

GmresOptions options(double tol, int restart, int maxIter) {
  GmresOptions o;
  o.tol = tol;
  o.restart = restart;
  o.maxIter = maxIter;
  return o;
}

// Jacobi preconditioner: M⁻¹ = diag(A)⁻¹.
class DiagonalInverse : public qvarray::LinearOperator {
 public:
  explicit DiagonalInverse(const Matrix& A) : inv_(A.rows()) {
    for (size_t i = 0; i < A.rows(); ++i) inv_[i] = 1.0 / A.get(i, i).real();
  }
  size_t size() const override { return inv_.count; }
  bool isReal() const override { return true; }

 protected:
  void applyReal(const Array<double, 1>& x, Array<double, 1>& y) const override {
    for (size_t i = 0; i < x.count; ++i) y[i] = inv_[i] * x[i];
  }

 private:
  Array<double, 1> inv_;
};

// A complex sparse matrix applied by its own loop over the compressed
// columns: how operators other than Matrix plug in.
class ColumnLoopOperator : public qvarray::LinearOperator {
 public:
  explicit ColumnLoopOperator(const Sparse& A) : A_(A) {}
  size_t size() const override { return A_.getN(); }
  bool isReal() const override { return A_.isReal(); }

 protected:
  void applyComplex(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) const override {
    const size_t* colptr = A_.getColPtr();
    const size_t* row = A_.getRow();
    const dcomplex* v = A_.getDcmplxVal();
    y.fill(0.0);
    for (size_t j = 0; j < A_.getN(); ++j)
      for (size_t k = colptr[j]; k < colptr[j + 1]; ++k) y[row[k]] += v[k] * x[j];
  }

 private:
  Sparse A_;
};

}  // namespace

TEST(Gmres, ReachesToleranceOnNonsymmetricRealAndComplexSystems) {
  Rng rng(101);
  for (bool real : {true, false})
    for (int restart : {5, 20, 200}) {
      const size_t n = 200;
      const Matrix A = testMatrix(n, real, 3.0, rng);
      const Vector b = randomV(n, real, rng);
      Vector x;
      const auto res =
          qvarray::gmres(qvarray::MatrixOperator(A), b, x, options(1e-10, restart, 1000));
      ASSERT_TRUE(res.converged()) << real << " " << restart;
      EXPECT_EQ(x.isReal(), real);
      const double rel = trueRelResidual(A, x, b);
      EXPECT_LE(rel, 1e-10);
      EXPECT_NEAR(res.relResidual, rel, 1e-12) << "reported residual is the true one";
      EXPECT_EQ(res.history.size(), static_cast<size_t>(res.iterations) + 1);
      EXPECT_EQ(res.history.front(), 1.0);
      EXPECT_EQ(res.cycles, (res.iterations + restart - 1) / restart);
      // Within a cycle the residual estimate never grows (GMRES minimises it).
      for (size_t k = 1; k < res.history.size(); ++k)
        EXPECT_TRUE((k - 1) % restart == 0 || res.history[k] <= res.history[k - 1] * (1 + 1e-12));
    }
}

TEST(Gmres, SolvesAComplexSparseMatrixThroughItsOwnOperator) {
  // young1c: complex, nonsymmetric, from an acoustics problem.
  const Sparse S = qvarray::readMatrixMarket(QV_MATRIX_DIR "/young1c.mtx");
  const ColumnLoopOperator A(S);
  ASSERT_FALSE(A.isReal());
  Array<dcomplex, 1> ones(A.size()), b, x, Ax;
  ones.fill(1.0);
  A.apply(ones, b);
  const auto res = qvarray::gmres(A, b, x, options(1e-10, 200, 5000));
  ASSERT_TRUE(res.converged()) << res.iterations << " " << res.relResidual;
  EXPECT_LT(res.iterations, 1000);
  // The residual through the library's sparse product, a second way to apply A.
  SparseOperator(S).apply(x, Ax);
  EXPECT_LE(normF(minus(Ax, b)) / normF(b), 1.01e-10);
}

TEST(Gmres, FullRestartIsExactWithinNSteps) {
  Rng rng(7);
  for (bool real : {true, false}) {
    const int n = 24;
    // Eigenvalues spread over [−2, 4]: slow to converge, so GMRES needs the
    // whole space.
    Matrix A = testMatrix(n, real, 0.0, rng);
    for (int i = 0; i < n; ++i) A.set(i, i, A.get(i, i) + (-2.0 + 6.0 * i / n));
    const Vector b = randomV(n, real, rng);
    Vector x, xd = b;
    const auto res = qvarray::gmres(qvarray::MatrixOperator(A), b, x, options(1e-13, n, n));
    EXPECT_TRUE(res.converged() && res.iterations <= n);
    qvmatrix::solve(A, xd, 3);
    EXPECT_LT(relDiff(Z(x), Z(xd)), 1e-10);
  }
}

TEST(Gmres, PreconditionerAndInitialGuess) {
  Rng rng(3);
  const size_t n = 150;
  // Badly scaled rows: diagonal from 1 to 1e4.
  Matrix A = testMatrix(n, true, 3.0, rng);
  for (size_t i = 0; i < n; ++i)
    for (size_t j = 0; j < n; ++j) A.set(i, j, A.get(i, j) * std::pow(1e4, double(i) / n));
  const Vector b = randomV(n, true, rng), bz = randomV(n, false, rng);
  const qvarray::MatrixOperator op(A);
  const DiagonalInverse jacobi(A);
  GmresOptions o = options(1e-9, 30, 3000);
  Vector x1, x2, xz;
  const auto plain = qvarray::gmres(op, b, x1, o);
  o.precond = &jacobi;
  const auto pre = qvarray::gmres(op, b, x2, o);
  ASSERT_TRUE(pre.converged());
  EXPECT_LT(pre.iterations, plain.iterations);
  EXPECT_LE(trueRelResidual(A, x2, b), 1e-9) << "right preconditioning monitors the true residual";
  // A complex right-hand side with the real operator and preconditioner.
  const auto cz = qvarray::gmres(op, bz, xz, o);
  EXPECT_TRUE(cz.converged() && !xz.isReal());
  EXPECT_LE(trueRelResidual(A, xz, bz), 1e-9);
  // Starting from the solution needs no iteration.
  o.useInitialGuess = true;
  const auto again = qvarray::gmres(op, b, x2, o);
  EXPECT_TRUE(again.converged() && again.iterations == 0);
}

TEST(Gmres, FailuresAreReported) {
  Rng rng(8);
  const Matrix A = testMatrix(60, true, 0.2, rng);
  const Vector b = randomV(60, true, rng);
  const qvarray::MatrixOperator op(A);
  Vector x;
  GmresOptions o = options(1e-12, 3, 10);
  auto res = qvarray::gmres(op, b, x, o);
  EXPECT_TRUE(res.status == GmresStatus::MaxIterations && res.iterations == 10);
  EXPECT_GT(res.relResidual, 1e-12);
  o.raiseOnFailure = true;
  auto e = expectThrowKey([&] { qvarray::gmres(op, b, x, o); }, "GMRES_did_not_converge");
  EXPECT_EQ(e.detail("Iterations"), "10");

  // Singular A, b outside its range: the Krylov space closes without a solution.
  Matrix S(4, 4);
  S.set(0, 0, 1.0);
  S.set(1, 1, 2.0);
  const Vector bs(std::vector<double>{1.0, 1.0, 1.0, 0.0});
  const qvarray::MatrixOperator ops(S);
  o = options(1e-12, 3, 100);
  res = qvarray::gmres(ops, bs, x, o);
  EXPECT_EQ(res.status, GmresStatus::Breakdown);
  EXPECT_NEAR(res.relResidual, 1.0 / std::sqrt(3.0), 1e-14) << "the least-squares residual";
  o.raiseOnFailure = true;
  expectThrowKey([&] { qvarray::gmres(ops, bs, x, o); }, "GMRES_breakdown");
  // Zero right-hand side: zero solution at once.
  Vector xz(std::vector<double>{1.0, 1.0, 1.0, 1.0});
  EXPECT_TRUE(qvarray::gmres(ops, Vector(4), xz).converged());
  EXPECT_EQ(xz.norm(), 0.0);

  // Argument errors come before anything is changed.
  Array<double, 1> xa(3), b3(3);
  xa.fill(7.0);
  GmresOptions guess, bad;
  guess.useInitialGuess = true;
  bad.restart = 0;
  const Matrix Zc(3, 3, dcomplex(0.0, 1.0));
  const qvarray::MatrixOperator opz(Zc);
  expectThrowsAll(
      "Internal_numerical_error",
      {{[&] { qvarray::gmres(op, b.getdArr(), xa, guess); },
        "gmres: Length of x differs from the operator size."},
       {[&] { qvarray::gmres(op, b.getdArr(), xa, bad); },
        "gmres: restart must be positive, maxIter and tol not negative."},
       {[&] { qvarray::gmres(opz, b3, xa); }, "gmres: A complex operator needs complex vectors."}});
  EXPECT_EQ(xa[0], 7.0);
}

TEST(Gmres, CancellationRaises) {
  Rng rng(2);
  const Matrix A = testMatrix(40, true, 3.0, rng);
  const Vector b = randomV(40, true, rng);
  const qvarray::MatrixOperator op(A);
  qvutil::RunInfo run;
  run.cancel();
  GmresOptions o;
  o.runInfo = &run;
  Vector x;
  EXPECT_THROW(qvarray::gmres(op, b, x, o), qvbase::CancelException);
  run.reset();
  EXPECT_TRUE(qvarray::gmres(op, b, x, o).converged());
}
