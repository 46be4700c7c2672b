// GMRES on sparse matrices through SparseOperator; every solution checked by
// a residual recomputed with the serial product.
#include <gtest/gtest.h>

#include "producttest.h"
#include "qvarray/gmres.h"
#include "qvarray/io/sparsemm.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparseproducts.h"
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
  // young1c (complex, nonsymmetric, from a file); convection–diffusion above
  // the parallel threshold, real and complex; a real matrix with a complex
  // right-hand side, plain and transposed; the symmetric Laplacian stored as
  // its lower triangle with half the diagonal (mode 1), checked against the
  // whole matrix.
  const Sparse young = qvarray::readMatrixMarket(QV_MATRIX_DIR "/young1c.mtx"), small = gridOperator(30, 0.0),
               full = gridOperator(40, 0.2, 0.0), half = Sparse(full).makeSymmetric(qvarray::Trans);
  ASSERT_TRUE(!young.isReal() && half.getSymm() == qvarray::SymmSymmetric && half.getNnz() < full.getNnz());
  const struct {
    Sparse A;
    Trans_t t;
    Vector b;
    const Sparse* check;
  } cases[] = {{young, NoTrans, qvarray::AMulx(young, Vector(young.getN(), 1.0), NoTrans), nullptr},
               {gridOperator(110, 0.0), NoTrans, randomVector(12100, true, 3), nullptr},
               {gridOperator(110, dcomplex(0, 0.3)), NoTrans, randomVector(12100, false, 3), nullptr},
               {small, NoTrans, randomVector(900, false, 6), nullptr},
               {small, qvarray::Trans, randomVector(900, false, 6), nullptr},
               {half, NoTrans, randomVector(1600, true, 5), &full}};
  for (const auto& c : cases) {
    SCOPED_TRACE("case " + std::to_string(&c - cases));
    int iterations[2] = {0, 0};
    onOneAndTwoThreads([&](int threads) {
      Vector x;
      iterations[threads - 1] = solveAndCheck(c.A, c.b, x, {.tol = 1e-10, .restart = 100, .maxIter = 5000}, c.t, c.check);
      EXPECT_EQ(x.isReal(), c.A.isReal() && c.b.isReal());
    });
    // Mode 0 products give the serial bits on two threads, and the mode 1
    // matrix stays below the threshold: the same run.
    EXPECT_TRUE(!Threads::available(2) || iterations[0] == iterations[1]) << iterations[0] << " " << iterations[1];
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
