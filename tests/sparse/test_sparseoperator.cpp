// GMRES on sparse matrices through SparseOperator; every solution checked by
// a residual recomputed with the serial product.
#include <gtest/gtest.h>

#include <string>

#include "producttest.h"
#include "qvarray/gmres.h"
#include "qvarray/matrixmarket.h"
#include "qvarray/sparseoperator.h"
#include "qvarray/sparseproducts.h"
#include "qvtest.h"

namespace {

using namespace producttest;
using qvarray::GmresOptions;
using qvarray::Sparse;
using qvarray::SparseOperator;
using qvarray::Vector;

// Convection–diffusion on a k×k grid: the five-point Laplacian plus an
// upwind convection term (nonsymmetric), shifted by `shift`.
Sparse convectionDiffusion(size_t k, dcomplex shift) {
  std::vector<size_t> rows, cols;
  std::vector<dcomplex> values;
  auto add = [&](size_t i, size_t j, dcomplex v) {
    rows.push_back(i), cols.push_back(j), values.push_back(v);
  };
  for (size_t y = 0; y < k; ++y)
    for (size_t x = 0; x < k; ++x) {
      const size_t i = y * k + x;
      add(i, i, 4.0 + 0.5 + shift);
      if (x > 0) add(i, i - 1, -1.0 - 0.5);
      if (x + 1 < k) add(i, i + 1, -1.0);
      if (y > 0) add(i, i - k, -1.0);
      if (y + 1 < k) add(i, i + k, -1.0);
    }
  Sparse A;
  A.vectorTripletToSparse(rows, cols, values, k * k, k * k);
  A.convertZeroImagToReal();
  return A;
}

// ‖b − op(A)·x‖ / ‖b‖ by the serial product.
double relativeResidual(const Sparse& A, const Vector& x, const Vector& b, Trans_t t) {
  Vector r = b;
  qvarray::serialyMinusAMulx(r, A, x, t);
  return r.norm() / b.norm();
}

TEST(SparseGmres, SolvesOnOneAndTwoThreads) {
  for (bool real : {true, false}) {
    const Sparse A = convectionDiffusion(110, real ? dcomplex(0.0) : dcomplex(0.0, 0.3));
    ASSERT_GE(A.getNnz(), qvarray::kParallelNnzThreshold);
    ASSERT_EQ(A.isReal(), real);
    const Vector b = randomVector(A.getN(), real, 3);
    int iterations[2] = {0, 0};
    for (int threads : {1, 2}) {
      if (!Threads::available(threads)) continue;
      Threads scope(threads);
      GmresOptions o;
      o.tol = 1e-9;
      o.restart = 60;
      o.maxIter = 3000;
      Vector x;
      const auto res = qvarray::gmres(SparseOperator(A), b, x, o);
      ASSERT_TRUE(res.converged()) << res.iterations << " " << res.relResidual;
      EXPECT_LE(relativeResidual(A, x, b, qvarray::NoTrans), 1.01e-9);
      iterations[threads - 1] = res.iterations;
    }
    // The parallel product of mode 0 gives the serial bits: same run.
    if (Threads::available(2)) {
      EXPECT_EQ(iterations[0], iterations[1]);
    }
  }
}

TEST(SparseGmres, SymmetricStorageSolvesTheSameSystem) {
  // The shifted Laplacian stored whole and as its lower triangle with half
  // the diagonal (mode 1).
  const size_t k = 40, n = k * k;
  std::vector<size_t> fr, fc, hr, hc;
  std::vector<double> fv, hv;
  for (size_t y = 0; y < k; ++y)
    for (size_t x = 0; x < k; ++x) {
      const size_t i = y * k + x;
      fr.push_back(i), fc.push_back(i), fv.push_back(4.2);
      hr.push_back(i), hc.push_back(i), hv.push_back(2.1);
      for (size_t j : {x + 1 < k ? i + 1 : i, y + 1 < k ? i + k : i}) {
        if (j == i) continue;
        fr.push_back(i), fc.push_back(j), fv.push_back(-1.0);
        fr.push_back(j), fc.push_back(i), fv.push_back(-1.0);
        hr.push_back(j), hc.push_back(i), hv.push_back(-1.0);
      }
    }
  Sparse full, half;
  full.vectorTripletToSparse(fr, fc, fv, n, n);
  half.vectorTripletToSparse(hr, hc, hv, n, n);
  half.setSymm(qvarray::SymmSymmetric);
  const Vector b = randomVector(n, true, 5);
  GmresOptions o;
  o.tol = 1e-11;
  o.restart = 100;
  o.maxIter = 2000;
  Vector xf, xh;
  ASSERT_TRUE(qvarray::gmres(SparseOperator(full), b, xf, o).converged());
  ASSERT_TRUE(qvarray::gmres(SparseOperator(half), b, xh, o).converged());
  EXPECT_LE(relativeResidual(full, xh, b, qvarray::NoTrans), 1.01e-11);
  Vector d = xf;
  d -= xh;
  EXPECT_LE(d.norm(), 1e-9 * xf.norm());
}

TEST(SparseGmres, ComplexMatrixFromFileAndMixedOperands) {
  // young1c: complex, nonsymmetric.
  const Sparse A = qvarray::readMatrixMarket(QV_MATRIX_DIR "/young1c.mtx");
  ASSERT_FALSE(A.isReal());
  const Vector b = qvarray::AMulx(A, Vector(A.getN(), 1.0), qvarray::NoTrans);
  GmresOptions o;
  o.tol = 1e-10;
  o.restart = 200;
  o.maxIter = 5000;
  Vector x;
  ASSERT_TRUE(qvarray::gmres(SparseOperator(A), b, x, o).converged());
  EXPECT_LE(relativeResidual(A, x, b, qvarray::NoTrans), 1.01e-10);

  // A real matrix with a complex right-hand side, and the transposed system.
  const Sparse R = convectionDiffusion(30, 0.0);
  const Vector bz = randomVector(R.getN(), false, 6);
  for (Trans_t t : {qvarray::NoTrans, qvarray::Trans}) {
    Vector xz;
    o.tol = 1e-10;
    ASSERT_TRUE(qvarray::gmres(SparseOperator(R, t), bz, xz, o).converged());
    EXPECT_FALSE(xz.isReal());
    EXPECT_LE(relativeResidual(R, xz, bz, t), 1.01e-10) << t;
  }
}

TEST(SparseGmres, OperatorChecks) {
  qvtest::expectThrowKey([] { SparseOperator(randomSparse(4, 5, 6, true, qvarray::SymmNone, 1)); },
                         "Matrix_not_square");
  Sparse P = convectionDiffusion(3, 0.0);
  P.setOffsets(2, 2);
  qvtest::expectThrowKey([&] { SparseOperator op(P); }, "Internal_error_sparse");
  // The operator keeps its own handle: a later change of the caller's matrix
  // does not reach it.
  Sparse A = convectionDiffusion(3, 0.0);
  const SparseOperator op(A);
  A.scale(2.0);
  Array<double, 1> x(9), y;
  x.fill(1.0);
  op.apply(x, y);
  const Vector expected = qvarray::AMulx(op.matrix(), Vector(9, 1.0), qvarray::NoTrans);
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(y[i], expected.d(i));
  EXPECT_EQ(y[0], 2.5);  // 4.5 − 1 − 1 in the corner of the original
  // A complex operator refuses real vectors.
  const SparseOperator zop(randomSparse(3, 3, 5, false, qvarray::SymmNone, 2));
  Array<double, 1> x3(3);
  qvtest::expectThrowKey([&] { zop.apply(x3, y); }, "Internal_numerical_error");
}

}  // namespace
