// QR factorisations and least squares: Q·R reconstructions, orthonormality,
// normal equations, and agreement between the QR and SVD solvers.
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;
using qvarray::Array;

template <class T>
class LapackQR : public ::testing::Test {};
TYPED_TEST_SUITE(LapackQR, ScalarTypes);

/// Columns of A in the order of a 1-based permutation.
template <class T>
Array<T, 2> permuteColumns(const Array<T, 2>& A, const Array<int, 1>& jpvt) {
  Array<T, 2> P(A.sizes[0], A.sizes[1]);
  for (size_t j = 0; j < A.sizes[1]; ++j)
    for (size_t i = 0; i < A.sizes[0]; ++i) P(i, j) = A(i, static_cast<size_t>(jpvt[j] - 1));
  return P;
}

/// ‖Aᴴ·(B − A·X)‖ / (‖A‖·(‖A‖·‖X‖ + ‖B‖)·n·ε): a least-squares solution makes the
/// residual orthogonal to A's columns.
template <class T>
double normalEquationsError(const Array<T, 2>& A, const Array<T, 2>& X, const Array<T, 2>& B) {
  const double n = static_cast<double>(std::max(A.sizes[0], A.sizes[1]));
  const double a = normF(A);
  return normF(mul(adj(A), minus(B, mul(A, X)))) / (a * (a * normF(X) + normF(B)) * n * kEps);
}

TYPED_TEST(LapackQR, QTimesRIsAForTallAndWide) {
  using T = TypeParam;
  Rng rng(11);
  for (auto [m, n] : {std::pair<size_t, size_t>{8, 5}, {5, 8}, {6, 6}}) {
    const Array<T, 2> A = randomMatrix<T>(m, n, rng);
    Array<T, 2> F(A);
    Array<T, 1> tau;
    EXPECT_EQ(qvarray::qr(F, tau, qvarray::RaiseAll), 0);
    const size_t k = std::min(m, n);
    ASSERT_EQ(tau.count, k);
    const Array<T, 2> R = upperPart(block(F, k, n));
    Array<T, 2> Q(F);
    EXPECT_EQ(qvarray::q(Q, tau, qvarray::RaiseAll), 0);
    ASSERT_EQ(Q.sizes[0], m);
    ASSERT_EQ(Q.sizes[1], k);
    EXPECT_LT(orthonormalityError(Q), kScaledBound);
    EXPECT_LT(reconstructionError(A, mul(Q, R)), kScaledBound) << m << "x" << n;
  }
}

TYPED_TEST(LapackQR, PivotedQRFactorsPermutedColumns) {
  using T = TypeParam;
  Rng rng(12);
  const size_t m = 9, n = 6;
  const Array<T, 2> A = randomMatrix<T>(m, n, rng);
  Array<T, 2> F(A);
  Array<T, 1> tau;
  Array<int, 1> jpvt;  // wrong length: every column is free
  EXPECT_EQ(qvarray::qr(F, tau, jpvt, qvarray::RaiseAll), 0);
  ASSERT_EQ(jpvt.count, n);
  const Array<T, 2> R = upperPart(block(F, n, n));
  for (size_t i = 1; i < n; ++i) EXPECT_LE(std::abs(R(i, i)), std::abs(R(i - 1, i - 1)));
  Array<T, 2> Q(F);
  qvarray::q(Q, tau, qvarray::RaiseAll);
  EXPECT_LT(reconstructionError(permuteColumns(A, jpvt), mul(Q, R)), kScaledBound);
}

TYPED_TEST(LapackQR, PivotedQRKeepsMarkedColumnsInFront) {
  using T = TypeParam;
  Rng rng(13);
  Array<T, 2> A = randomMatrix<T>(5, 4, rng);
  for (size_t i = 0; i < 5; ++i) A(i, 2) *= T(1e-3);  // the smallest column, yet marked
  Array<T, 1> tau;
  Array<int, 1> jpvt(4);
  jpvt.fill(0);
  jpvt[2] = 1;
  qvarray::qr(A, tau, jpvt, qvarray::RaiseAll);
  EXPECT_EQ(jpvt[0], 3);
}

TYPED_TEST(LapackQR, ROnlyFormMatchesGramMatrix) {
  using T = TypeParam;
  Rng rng(14);
  const Array<T, 2> A = randomMatrix<T>(7, 4, rng);
  Array<T, 2> R(A);
  Array<int, 1> jpvt;
  EXPECT_EQ(qvarray::qr(R, jpvt), 0);
  EXPECT_EQ(maxBelow(R), 0.0);
  // Q has orthonormal columns, so (A·P)ᴴ·(A·P) = Rᴴ·R.
  const Array<T, 2> AP = permuteColumns(A, jpvt);
  EXPECT_LT(reconstructionError(mul(adj(AP), AP), mul(adj(R), R)), kScaledBound);
}

TYPED_TEST(LapackQR, OverdeterminedLeastSquaresSatisfiesNormalEquations) {
  using T = TypeParam;
  Rng rng(15);
  const size_t m = 12, n = 5, nrhs = 2;
  const Array<T, 2> A = randomMatrix<T>(m, n, rng);
  const Array<T, 2> B = randomMatrix<T>(m, nrhs, rng);
  Array<T, 2> F(A), X(B);
  EXPECT_EQ(qvarray::leastSquaresQR(F, X, qvarray::RaiseAll), 0);
  EXPECT_LT(normalEquationsError(A, block(X, n, nrhs), B), kScaledBound);

  F = A;
  Array<T, 2> Xr(B);
  EXPECT_EQ(qvarray::leastSquaresQRResize(F, Xr, qvarray::RaiseAll), 0);
  ASSERT_EQ(Xr.sizes[0], n);
  ASSERT_EQ(Xr.sizes[1], nrhs);
  EXPECT_EQ(normF(minus(Xr, block(X, n, nrhs))), 0.0);

  Array<T, 2> Xs;
  const Array<T, 2> Acopy(A), Bcopy(B);
  int r = 0;
  EXPECT_EQ(qvarray::leastSquares(A, B, Xs, -1.0, qvarray::RaiseAll, &r), 0);
  EXPECT_EQ(r, static_cast<int>(n));
  EXPECT_EQ(normF(minus(A, Acopy)), 0.0);  // A and B untouched
  EXPECT_EQ(normF(minus(B, Bcopy)), 0.0);
  EXPECT_LT(normF(minus(Xs, Xr)), 1e-10 * normF(Xr));
}

TYPED_TEST(LapackQR, UnderdeterminedGivesTheMinimumNormSolution) {
  using T = TypeParam;
  Rng rng(16);
  const size_t m = 4, n = 9, nrhs = 3;
  const Array<T, 2> A = randomMatrix<T>(m, n, rng);
  const Array<T, 2> B = randomMatrix<T>(m, nrhs, rng);
  Array<T, 2> F(A), Xr(B);
  EXPECT_EQ(qvarray::leastSquaresQRResize(F, Xr, qvarray::RaiseAll), 0);
  ASSERT_EQ(Xr.sizes[0], n);
  EXPECT_LT(scaledResidual(A, Xr, B), kScaledBound);
  // The SVD solver's answer is the minimum-norm one too.
  Array<T, 2> Xs;
  EXPECT_EQ(qvarray::leastSquares(A, B, Xs, -1.0, qvarray::RaiseAll), 0);
  EXPECT_LT(normF(minus(Xs, Xr)), 1e-10 * normF(Xr));
}

TYPED_TEST(LapackQR, SvdSolverHandlesRankDeficiency) {
  using T = TypeParam;
  Rng rng(17);
  const size_t m = 8, n = 5;
  const Array<T, 2> A = mul(randomMatrix<T>(m, 2, rng), randomMatrix<T>(2, n, rng));
  const Array<T, 2> B = randomMatrix<T>(m, 1, rng);
  Array<T, 2> X;
  int r = -1;
  EXPECT_EQ(qvarray::leastSquares(A, B, X, 1e-10, qvarray::RaiseAll, &r), 0);
  EXPECT_EQ(r, 2);
  EXPECT_LT(normalEquationsError(A, X, B), kScaledBound);
  // Minimum norm: X lies in the row space of A, i.e. X = Aᴴ·y. Project X onto
  // the row space through the pseudo-inverse built from the SVD of A.
  Array<T, 2> U, VT, W(A);
  Array<double, 1> s;
  qvarray::svd('S', 'S', W, U, s, VT, qvarray::RaiseAll);
  Array<T, 2> V2 = block(adj(VT), n, 2);  // right singular vectors of the two non-zero σ
  const Array<T, 2> projected = mul(V2, mul(adj(V2), X));
  EXPECT_LT(normF(minus(projected, X)), 1e-10 * normF(X));
}

TYPED_TEST(LapackQR, RcondDecidesTheEffectiveRank) {
  using T = TypeParam;
  Array<T, 2> A = zeros<T>(2, 2);
  A(0, 0) = T(1);
  A(1, 1) = T(1e-10);
  Array<T, 2> B(2, 1), X;
  B.fill(T(1));
  int r = 0;
  qvarray::leastSquares(A, B, X, 1e-8, qvarray::RaiseAll, &r);
  EXPECT_EQ(r, 1);
  EXPECT_LT(std::abs(X(1, 0)), 1e-12);
  qvarray::leastSquares(A, B, X, 1e-12, qvarray::RaiseAll, &r);
  EXPECT_EQ(r, 2);
  EXPECT_NEAR(std::real(X(1, 0)), 1e10, 1e-4);
}

TYPED_TEST(LapackQR, RankDeficientQRSolveReturnsInfoOrRaises) {
  using T = TypeParam;
  Rng rng(18);
  Array<T, 2> A = randomMatrix<T>(6, 3, rng);
  for (size_t i = 0; i < 6; ++i) A(i, 1) = T(0);
  Array<T, 2> F(A), B = randomMatrix<T>(6, 1, rng);
  EXPECT_GT(qvarray::leastSquaresQR(F, B, 0), 0);
  F = A;
  expectThrowKey([&] { qvarray::leastSquaresQR(F, B, qvarray::RaiseOnFailure); },
                 "Error_in_LAPACK_call", "Singular_matrix");
}

TYPED_TEST(LapackQR, BadShapesAreRejected) {
  using T = TypeParam;
  Array<T, 2> A = identity<T>(4), B(3, 1), X;
  // leastSquaresQR needs max(m, n) rows in B: LAPACK reports the illegal value.
  EXPECT_LT(qvarray::leastSquaresQR(A, B, 0), 0);
  expectThrowKey([&] { qvarray::leastSquaresQR(A, B, qvarray::RaiseOnIllegal); },
                 "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
  expectThrowKey([&] { qvarray::leastSquaresQRResize(A, B, 0); }, "Internal_numerical_error",
                 "leastSquaresQRResize: B does not have as many rows as A.");
  expectThrowKey([&] { qvarray::leastSquares(A, B, X, -1.0, 0); }, "Internal_numerical_error",
                 "leastSquares: B does not have as many rows as A.");
}

}  // namespace
