// GMRES on sparse matrices through SparseOperator; every solution checked by
// a residual recomputed with the serial product.
#include <gtest/gtest.h>

#include "producttest.h"
#include "qvarray/gmres.h"
#include "qvarray/matrixmarket.h"
#include "qvarray/sparseoperator.h"
#include "qvarray/sparseproducts.h"
#include "qvtest.h"

namespace {

using namespace producttest;
using qvarray::NoTrans;
using qvarray::Sparse;
using qvarray::SparseOperator;
using qvarray::Vector;

// The five-point Laplacian on a k×k grid shifted by `shift`, plus an upwind
// convection term of strength `convection` (nonsymmetric unless 0).
Sparse gridOperator(size_t k, dcomplex shift, double convection = 0.5) {
  sparsetest::Triplets<dcomplex> t(k * k, k * k);
  for (size_t i = 0; i < k * k; ++i) {
    t.add(i, i, 4.0 + convection + shift);
    if (i % k > 0) t.add(i, i - 1, -1.0 - convection);
    if (i % k + 1 < k) t.add(i, i + 1, -1.0);
    if (i >= k) t.add(i, i - k, -1.0);
    if (i + k < k * k) t.add(i, i + k, -1.0);
  }
  Sparse A = t.assemble();
  A.convertZeroImagToReal();
  return A;
}

// Solves op(A)·x = b through SparseOperator, expects convergence and checks
// ‖b − op(check)·x‖ / ‖b‖ by the serial product; returns the iterations.
int solveAndCheck(const Sparse& A, const Vector& b, Vector& x, const qvarray::GmresOptions& o,
                  Trans_t t = NoTrans, const Sparse* check = nullptr) {
  const auto res = qvarray::gmres(SparseOperator(A, t), b, x, o);
  EXPECT_TRUE(res.converged()) << res.iterations << " " << res.relResidual;
  Vector r = b;
  qvarray::serialyMinusAMulx(r, check ? *check : A, x, t);
  EXPECT_LE(r.norm() / b.norm(), 1.01 * o.tol) << t;
  return res.iterations;
}

TEST(SparseGmres, SolvesOnOneAndTwoThreads) {
  for (bool real : {true, false}) {
    const Sparse A = gridOperator(110, real ? dcomplex(0.0) : dcomplex(0.0, 0.3));
    ASSERT_GE(A.getNnz(), qvarray::kParallelNnzThreshold);
    ASSERT_EQ(A.isReal(), real);
    const Vector b = randomVector(A.getN(), real, 3);
    int iterations[2] = {0, 0};
    onOneAndTwoThreads([&](int threads) {
      Vector x;
      iterations[threads - 1] = solveAndCheck(A, b, x, {.tol = 1e-9, .restart = 60, .maxIter = 3000});
    });
    // The parallel product of mode 0 gives the serial bits: same run.
    EXPECT_TRUE(!Threads::available(2) || iterations[0] == iterations[1]) << iterations[0] << " " << iterations[1];
  }
}

TEST(SparseGmres, SymmetricStorageSolvesTheSameSystem) {
  // The shifted Laplacian as its lower triangle with half the diagonal in
  // mode 1 solves the system of the whole matrix.
  const Sparse full = gridOperator(40, 0.2, 0.0);
  Sparse half = full;
  half.makeSymmetric(qvarray::Trans);
  ASSERT_EQ(half.getSymm(), qvarray::SymmSymmetric);
  ASSERT_LT(half.getNnz(), full.getNnz());
  Vector x;
  solveAndCheck(half, randomVector(full.getN(), true, 5), x, {.tol = 1e-11, .restart = 100, .maxIter = 2000},
                NoTrans, &full);
}

TEST(SparseGmres, ComplexMatrixFromFileAndMixedOperands) {
  // young1c: complex, nonsymmetric.
  const Sparse A = qvarray::readMatrixMarket(QV_MATRIX_DIR "/young1c.mtx");
  ASSERT_FALSE(A.isReal());
  const qvarray::GmresOptions o{.tol = 1e-10, .restart = 200, .maxIter = 5000};
  Vector x;
  solveAndCheck(A, qvarray::AMulx(A, Vector(A.getN(), 1.0), NoTrans), x, o);
  // A real matrix with a complex right-hand side, and the transposed system.
  const Sparse R = gridOperator(30, 0.0);
  for (Trans_t t : {NoTrans, qvarray::Trans}) {
    Vector xz;
    solveAndCheck(R, randomVector(R.getN(), false, 6), xz, o, t);
    EXPECT_FALSE(xz.isReal());
  }
}

TEST(SparseGmres, OperatorChecks) {
  qvtest::expectThrowKey([] { SparseOperator(randomSparse(4, 5, 6, true, qvarray::SymmNone, 1)); },
                         "Matrix_not_square");
  qvtest::expectThrowKey([] { SparseOperator(gridOperator(3, 0.0).setOffsets(2, 2)); }, "Internal_error_sparse");
  // The operator keeps its own handle: a later change of the caller's matrix
  // does not reach it.
  Sparse A = gridOperator(3, 0.0);
  const SparseOperator op(A);
  A.scale(2.0);
  Array<double, 1> x(9), y;
  x.fill(1.0);
  op.apply(x, y);
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(y[i], qvarray::AMulx(op.matrix(), Vector(9, 1.0), NoTrans).d(i));
  EXPECT_EQ(y[0], 2.5);  // 4.5 − 1 − 1 in the corner of the original
  // A complex operator refuses real vectors.
  const SparseOperator zop(randomSparse(3, 3, 5, false, qvarray::SymmNone, 2));
  Array<double, 1> x3(3);
  qvtest::expectThrowKey([&] { zop.apply(x3, y); }, "Internal_numerical_error");
}

}  // namespace
