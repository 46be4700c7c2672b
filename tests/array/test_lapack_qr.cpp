// QR factorisations and least squares: Q·R reconstructions, orthonormality,
// normal equations, and agreement between the QR and SVD solvers.
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;

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
    ASSERT_TRUE(Q.sizes[0] == m && Q.sizes[1] == k);
    EXPECT_LT(orthonormalityError(Q), kScaledBound);
    EXPECT_LT(reconstructionError(A, mul(Q, R)), kScaledBound) << m << "x" << n;
  }
}

TYPED_TEST(LapackQR, PivotedQRFactorsPermutedColumns) {
  using T = TypeParam;
  Rng rng(12);
  const size_t m = 9, n = 6;
  const Array<T, 2> A = randomMatrix<T>(m, n, rng);
  Array<T, 2> F(A), Rfull(A);
  Array<T, 1> tau;
  Array<int, 1> jpvt, jR;  // wrong length: every column is free
  EXPECT_EQ(qvarray::qr(F, tau, jpvt, qvarray::RaiseAll), 0);
  ASSERT_EQ(jpvt.count, n);
  const Array<T, 2> R = upperPart(block(F, n, n));
  for (size_t i = 1; i < n; ++i) EXPECT_LE(std::abs(R(i, i)), std::abs(R(i - 1, i - 1)));
  Array<T, 2> Q(F);
  qvarray::q(Q, tau, qvarray::RaiseAll);
  EXPECT_LT(reconstructionError(permuteColumns(A, jpvt), mul(Q, R)), kScaledBound);
  // The R-only form: Q has orthonormal columns, so (A·P)ᴴ·(A·P) = Rᴴ·R.
  EXPECT_EQ(qvarray::qr(Rfull, jR), 0);
  EXPECT_EQ(maxBelow(Rfull), 0.0);
  const Array<T, 2> AP = permuteColumns(A, jR), Rn = block(Rfull, n, n);
  EXPECT_LT(reconstructionError(mul(adj(AP), AP), mul(adj(Rn), Rn)), kScaledBound);
  // A marked column goes first, however small.
  Array<T, 2> B = randomMatrix<T>(5, 4, rng);
  for (size_t i = 0; i < 5; ++i) B(i, 2) *= T(1e-3);
  Array<int, 1> marked(4);
  marked.fill(0);
  marked[2] = 1;
  qvarray::qr(B, tau, marked, qvarray::RaiseAll);
  EXPECT_EQ(marked[0], 3);
}

TYPED_TEST(LapackQR, OverAndUnderdeterminedLeastSquares) {
  using T = TypeParam;
  Rng rng(15);
  for (auto [m, n] : {std::pair<size_t, size_t>{12, 5}, {4, 9}}) {
    const size_t nrhs = 2;
    const Array<T, 2> A = randomMatrix<T>(m, n, rng), B = randomMatrix<T>(m, nrhs, rng);
    const Array<T, 2> Acopy(A), Bcopy(B);
    Array<T, 2> F(A), Xr(B), Xs;
    EXPECT_EQ(qvarray::leastSquaresQRResize(F, Xr, qvarray::RaiseAll), 0);
    ASSERT_TRUE(Xr.sizes[0] == n && Xr.sizes[1] == nrhs);
    if (m > n) {
      EXPECT_LT(normalEquationsError(A, Xr, B), kScaledBound);
      Array<T, 2> G(A), X(B);  // the unresized form leaves X in the first n rows
      EXPECT_EQ(qvarray::leastSquaresQR(G, X, qvarray::RaiseAll), 0);
      EXPECT_EQ(normF(minus(Xr, block(X, n, nrhs))), 0.0);
    } else {
      EXPECT_LT(scaledResidual(A, Xr, B), kScaledBound);
    }
    // The SVD solver leaves A and B alone and finds the same (minimum-norm) X.
    int r = 0;
    EXPECT_EQ(qvarray::leastSquares(A, B, Xs, -1.0, qvarray::RaiseAll, &r), 0);
    EXPECT_EQ(r, static_cast<int>(std::min(m, n)));
    EXPECT_EQ(normF(minus(A, Acopy)) + normF(minus(B, Bcopy)), 0.0);
    EXPECT_LT(relDiff(Xs, Xr), 1e-10);
  }
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
  // Minimum norm: X lies in the row space of A, spanned by the right singular
  // vectors of the two non-zero σ.
  Array<T, 2> U, VT, W(A);
  Array<double, 1> s;
  qvarray::svd('S', 'S', W, U, s, VT, qvarray::RaiseAll);
  const Array<T, 2> V2 = block(adj(VT), n, 2);
  EXPECT_LT(relDiff(mul(V2, mul(adj(V2), X)), X), 1e-10);
  // rcond decides the effective rank of diag(1, 1e-10).
  Array<T, 2> D = zeros<T>(2, 2), b(2, 1);
  D(0, 0) = T(1);
  D(1, 1) = T(1e-10);
  b.fill(T(1));
  qvarray::leastSquares(D, b, X, 1e-8, qvarray::RaiseAll, &r);
  EXPECT_EQ(r, 1);
  EXPECT_LT(std::abs(X(1, 0)), 1e-12);
  qvarray::leastSquares(D, b, X, 1e-12, qvarray::RaiseAll, &r);
  EXPECT_EQ(r, 2);
  EXPECT_NEAR(std::real(X(1, 0)), 1e10, 1e-4);
}

TYPED_TEST(LapackQR, RankDeficiencyAndBadShapesInTheQRSolver) {
  using T = TypeParam;
  Rng rng(18);
  Array<T, 2> A = randomMatrix<T>(6, 3, rng);
  for (size_t i = 0; i < 6; ++i) A(i, 1) = T(0);
  const Array<T, 2> B = randomMatrix<T>(6, 1, rng);
  expectFailure(
      [&](int flags) {
        Array<T, 2> F(A), X(B);
        return qvarray::leastSquaresQR(F, X, flags);
      },
      "Error_in_LAPACK_call", "Singular_matrix");
  // leastSquaresQR needs max(m, n) rows in B: LAPACK reports the illegal value.
  Array<T, 2> I = identity<T>(4), B3(3, 1), X;
  expectIllegal([&](int flags) { return qvarray::leastSquaresQR(I, B3, flags); });
  expectThrowsAll("Internal_numerical_error",
                  {{[&] { qvarray::leastSquaresQRResize(I, B3, 0); },
                    "leastSquaresQRResize: B does not have as many rows as A."},
                   {[&] { qvarray::leastSquares(I, B3, X, -1.0, 0); },
                    "leastSquares: B does not have as many rows as A."}});
}

}  // namespace
