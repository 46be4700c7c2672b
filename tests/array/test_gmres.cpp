#include <gtest/gtest.h>

#include <cmath>

#include "mmtriplets.h"
#include "qvarray/gmres.h"
#include "qvarray/matrixutil.h"
#include "qvtest.h"
#include "qvutil/runinfo.h"

using qvarray::Array;
using qvarray::GmresOptions;
using qvarray::GmresStatus;
using dcomplex = std::complex<double>;

namespace {

// A nonsymmetric, non-normal test matrix: shifted identity plus a random
// part and a strong upper diagonal. Its eigenvalues cluster around `shift`.
Matrix testMatrix(size_t n, bool real, double shift, qvtest::Rng& rng) {
  Matrix A(n, n);
  if (!real) A.makeComplex();
  const double s = 1.0 / std::sqrt(static_cast<double>(n));
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i < n; ++i) A.set(i, j, s * (real ? dcomplex(rng.real()) : rng.complex()));
  for (size_t i = 0; i < n; ++i) {
    A.set(i, i, A.get(i, i) + shift);
    if (i + 1 < n) A.set(i, i + 1, A.get(i, i + 1) + 1.5);
  }
  return A;
}

Vector testRhs(size_t n, bool real, qvtest::Rng& rng) {
  Vector b(n);
  if (!real) b.makeComplex();
  for (size_t i = 0; i < n; ++i) b.set(i, real ? dcomplex(rng.real()) : rng.complex());
  return b;
}

// ‖b − A·x‖ / ‖b‖ computed independently of the solver.
double trueRelResidual(const Matrix& A, const Vector& x, const Vector& b) {
  Vector r;
  qvmatrix::mul(A, x, r);
  r -= b;
  return r.norm() / b.norm();
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

// A sparse matrix in compressed rows: how matrices other than Matrix plug in.
class CsrOperator : public qvarray::LinearOperator {
 public:
  explicit CsrOperator(const qvtool::Triplets& t) : start_(t.rows + 1, 0), complex_(t.complex) {
    for (int r : t.row) ++start_[r + 1];
    for (size_t i = 0; i < t.rows; ++i) start_[i + 1] += start_[i];
    std::vector<size_t> next(start_.begin(), start_.end() - 1);
    col_.resize(t.row.size());
    val_.resize(t.row.size());
    for (size_t e = 0; e < t.row.size(); ++e) {
      col_[next[t.row[e]]] = t.col[e];
      val_[next[t.row[e]]++] = t.value[e];
    }
  }
  size_t size() const override { return start_.size() - 1; }
  bool isReal() const override { return !complex_; }

 protected:
  void applyReal(const Array<double, 1>& x, Array<double, 1>& y) const override {
    for (size_t i = 0; i + 1 < start_.size(); ++i) {
      double s = 0.0;
      for (size_t k = start_[i]; k < start_[i + 1]; ++k) s += val_[k].real() * x[col_[k]];
      y[i] = s;
    }
  }
  void applyComplex(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) const override {
    for (size_t i = 0; i + 1 < start_.size(); ++i) {
      dcomplex s = 0.0;
      for (size_t k = start_[i]; k < start_[i + 1]; ++k) s += val_[k] * x[col_[k]];
      y[i] = s;
    }
  }

 private:
  std::vector<size_t> start_;
  std::vector<int> col_;
  std::vector<dcomplex> val_;
  bool complex_;
};

}  // namespace

TEST(Gmres, ReachesToleranceOnNonsymmetricRealAndComplexSystems) {
  qvtest::Rng rng(101);
  for (bool real : {true, false})
    for (int restart : {5, 20, 200}) {
      const size_t n = 200;
      const Matrix A = testMatrix(n, real, 3.0, rng);
      const Vector b = testRhs(n, real, rng);
      const qvarray::MatrixOperator op(A);
      Vector x;
      GmresOptions o;
      o.tol = 1e-10;
      o.restart = restart;
      const auto res = qvarray::gmres(op, b, x, o);
      ASSERT_TRUE(res.converged()) << real << " " << restart;
      EXPECT_EQ(x.isReal(), real);
      const double rel = trueRelResidual(A, x, b);
      EXPECT_LE(rel, 1e-10);
      EXPECT_NEAR(res.relResidual, rel, 1e-12) << "reported residual is the true one";
      EXPECT_EQ(res.history.size(), static_cast<size_t>(res.iterations) + 1);
      EXPECT_EQ(res.history.front(), 1.0);
      EXPECT_EQ(res.cycles, (res.iterations + restart - 1) / restart);
      // Within a cycle the residual estimate never grows (GMRES minimises it).
      for (size_t k = 1; k < res.history.size(); ++k) {
        if ((k - 1) % restart != 0) {
          EXPECT_LE(res.history[k], res.history[k - 1] * (1 + 1e-12));
        }
      }
    }
}

TEST(Gmres, SolvesAComplexSparseMatrixThroughItsOwnOperator) {
  // young1c: complex, nonsymmetric, from an acoustics problem.
  const qvtool::Triplets t = qvtool::readTriplets(QV_MATRIX_DIR "/young1c.mtx");
  const CsrOperator A(t);
  ASSERT_FALSE(A.isReal());
  Array<dcomplex, 1> ones(A.size()), b, x;
  ones.fill(1.0);
  A.apply(ones, b);
  GmresOptions o;
  o.tol = 1e-10;
  o.restart = 200;
  o.maxIter = 5000;
  const auto res = qvarray::gmres(A, b, x, o);
  ASSERT_TRUE(res.converged()) << res.iterations << " " << res.relResidual;
  // Recompute the residual by the triplets themselves.
  std::vector<dcomplex> r(b.begin(), b.end());
  for (size_t e = 0; e < t.row.size(); ++e) r[t.row[e]] -= t.value[e] * x[t.col[e]];
  double rn = 0.0, bn = 0.0;
  for (size_t i = 0; i < r.size(); ++i) {
    rn += std::norm(r[i]);
    bn += std::norm(b[i]);
  }
  EXPECT_LE(std::sqrt(rn / bn), 1e-10);
  EXPECT_LT(res.iterations, 1000);
}

TEST(Gmres, FullRestartIsExactWithinNSteps) {
  qvtest::Rng rng(7);
  for (bool real : {true, false}) {
    const size_t n = 24;
    // Eigenvalues spread over [−2, 4]: slow to converge, so GMRES needs the
    // whole space.
    Matrix A = testMatrix(n, real, 0.0, rng);
    for (size_t i = 0; i < n; ++i) A.set(i, i, A.get(i, i) + (-2.0 + 6.0 * i / n));
    const Vector b = testRhs(n, real, rng);
    const qvarray::MatrixOperator op(A);
    Vector x;
    GmresOptions o;
    o.tol = 1e-13;
    o.restart = static_cast<int>(n);
    o.maxIter = static_cast<int>(n);
    const auto res = qvarray::gmres(op, b, x, o);
    EXPECT_TRUE(res.converged());
    EXPECT_LE(res.iterations, static_cast<int>(n));
    Vector xd = b;
    qvmatrix::solve(A, xd, 3);
    Vector d = x;
    d -= xd;
    EXPECT_LT(d.norm() / xd.norm(), 1e-10);
  }
}

TEST(Gmres, PreconditionerAndInitialGuess) {
  qvtest::Rng rng(3);
  const size_t n = 150;
  // Badly scaled rows: diagonal from 1 to 1e4.
  Matrix A = testMatrix(n, true, 3.0, rng);
  for (size_t i = 0; i < n; ++i)
    for (size_t j = 0; j < n; ++j) A.set(i, j, A.get(i, j) * std::pow(1e4, double(i) / n));
  const Vector b = testRhs(n, true, rng);
  const qvarray::MatrixOperator op(A);
  const DiagonalInverse jacobi(A);
  GmresOptions o;
  o.tol = 1e-9;
  o.restart = 30;
  o.maxIter = 3000;
  Vector x1, x2;
  const auto plain = qvarray::gmres(op, b, x1, o);
  o.precond = &jacobi;
  const auto pre = qvarray::gmres(op, b, x2, o);
  ASSERT_TRUE(pre.converged());
  EXPECT_LT(pre.iterations, plain.iterations);
  EXPECT_LE(trueRelResidual(A, x2, b), 1e-9) << "right preconditioning monitors the true residual";

  // Starting from the solution needs no iteration.
  o.useInitialGuess = true;
  const auto again = qvarray::gmres(op, b, x2, o);
  EXPECT_TRUE(again.converged());
  EXPECT_EQ(again.iterations, 0);

  // A complex right-hand side with the real operator and preconditioner.
  Vector bz = testRhs(n, false, rng), xz;
  o.useInitialGuess = false;
  const auto cz = qvarray::gmres(op, bz, xz, o);
  EXPECT_TRUE(cz.converged());
  EXPECT_FALSE(xz.isReal());
  EXPECT_LE(trueRelResidual(A, xz, bz), 1e-9);
}

TEST(Gmres, FailuresAreReported) {
  qvtest::Rng rng(8);
  const size_t n = 60;
  const Matrix A = testMatrix(n, true, 0.2, rng);
  const Vector b = testRhs(n, true, rng);
  const qvarray::MatrixOperator op(A);
  Vector x;
  GmresOptions o;
  o.tol = 1e-12;
  o.restart = 3;
  o.maxIter = 10;
  auto res = qvarray::gmres(op, b, x, o);
  EXPECT_EQ(res.status, GmresStatus::MaxIterations);
  EXPECT_EQ(res.iterations, 10);
  EXPECT_GT(res.relResidual, 1e-12);
  o.raiseOnFailure = true;
  auto e = qvtest::expectThrowKey([&] { qvarray::gmres(op, b, x, o); }, "GMRES_did_not_converge");
  EXPECT_EQ(e.detail("Iterations"), "10");

  // Singular A, b outside its range: the Krylov space closes without a solution.
  Matrix S(4, 4);
  S.set(0, 0, 1.0);
  S.set(1, 1, 2.0);
  const Vector bs(std::vector<double>{1.0, 1.0, 1.0, 0.0});
  const qvarray::MatrixOperator ops(S);
  o.raiseOnFailure = false;
  o.maxIter = 100;
  res = qvarray::gmres(ops, bs, x, o);
  EXPECT_EQ(res.status, GmresStatus::Breakdown);
  EXPECT_NEAR(res.relResidual, 1.0 / std::sqrt(3.0), 1e-14) << "the least-squares residual";
  o.raiseOnFailure = true;
  qvtest::expectThrowKey([&] { qvarray::gmres(ops, bs, x, o); }, "GMRES_breakdown");

  // Zero right-hand side: zero solution at once.
  Vector xz(std::vector<double>{1.0, 1.0, 1.0, 1.0});
  res = qvarray::gmres(ops, Vector(4), xz);
  EXPECT_TRUE(res.converged());
  EXPECT_EQ(xz.norm(), 0.0);

  // Argument errors come before anything is changed.
  Array<double, 1> xa(3);
  xa.fill(7.0);
  GmresOptions bad;
  bad.useInitialGuess = true;
  qvtest::expectThrowKey([&] { qvarray::gmres(op, b.getdArr(), xa, bad); }, "Internal_numerical_error",
                         "gmres: Length of x differs from the operator size.");
  EXPECT_EQ(xa[0], 7.0);
  bad.useInitialGuess = false;
  bad.restart = 0;
  qvtest::expectThrowKey([&] { qvarray::gmres(op, b.getdArr(), xa, bad); }, "Internal_numerical_error",
                         "gmres: restart must be positive, maxIter and tol not negative.");
  Matrix Z(3, 3, dcomplex(0.0, 1.0));
  const qvarray::MatrixOperator opz(Z);
  Array<double, 1> b3(3);
  qvtest::expectThrowKey([&] { qvarray::gmres(opz, b3, xa); }, "Internal_numerical_error",
                         "gmres: A complex operator needs complex vectors.");
}

TEST(Gmres, CancellationRaises) {
  qvtest::Rng rng(2);
  const Matrix A = testMatrix(40, true, 3.0, rng);
  const Vector b = testRhs(40, true, rng);
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
