// LU and Cholesky factorisations and dense solves: reconstructions, scaled
// residuals, and the INFO conventions (NaN solution, raised keys).
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;
using qvarray::Array;

template <class T>
class LapackSolve : public ::testing::Test {};
TYPED_TEST_SUITE(LapackSolve, ScalarTypes);

/// P·L·U from the output of lu: L unit lower (m×k), U upper (k×n), and the
/// row interchanges of ipiv applied backwards.
template <class T>
Array<T, 2> rebuildLU(const Array<T, 2>& F, const Array<int, 1>& ipiv) {
  const size_t m = F.sizes[0], n = F.sizes[1], k = std::min(m, n);
  Array<T, 2> L = zeros<T>(m, k), U = zeros<T>(k, n);
  for (size_t j = 0; j < k; ++j) {
    L(j, j) = T(1);
    for (size_t i = j + 1; i < m; ++i) L(i, j) = F(i, j);
  }
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i <= std::min(j, k - 1); ++i) U(i, j) = F(i, j);
  Array<T, 2> P = mul(L, U);
  for (size_t i = k; i-- > 0;) {
    const size_t p = static_cast<size_t>(ipiv[i] - 1);
    for (size_t j = 0; j < n; ++j) std::swap(P(i, j), P(p, j));
  }
  return P;
}

TYPED_TEST(LapackSolve, LuReconstructsSquareTallAndWide) {
  using T = TypeParam;
  Rng rng(1);
  for (auto [m, n] : {std::pair<size_t, size_t>{7, 7}, {9, 4}, {4, 9}}) {
    const Array<T, 2> A = randomMatrix<T>(m, n, rng);
    Array<T, 2> F(A);
    Array<int, 1> ipiv(1);
    EXPECT_EQ(qvarray::lu(F, ipiv, qvarray::RaiseAll), 0);
    ASSERT_EQ(ipiv.count, std::min(m, n));
    EXPECT_LT(reconstructionError(A, rebuildLU(F, ipiv)), kScaledBound) << m << "x" << n;
  }
}

TYPED_TEST(LapackSolve, LuOfSingularMatrixReturnsInfoEvenWithFlagOne) {
  using T = TypeParam;
  Array<T, 2> A = zeros<T>(3, 3);
  A(0, 0) = T(1);
  A(1, 1) = T(2);
  Array<int, 1> ipiv;
  EXPECT_EQ(qvarray::lu(A, ipiv, qvarray::RaiseAll), 3);
}

TYPED_TEST(LapackSolve, DecompThenSolveOneTwoAndThreeDimensional) {
  using T = TypeParam;
  Rng rng(2);
  const size_t n = 12;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  Array<T, 2> LU(A);
  Array<int, 1> ipiv(n);
  qvarray::linsolvdecomp(LU, ipiv);

  const Array<T, 1> b = randomVector<T>(n, rng);
  Array<T, 1> x(b);
  EXPECT_EQ(qvarray::linsolvsolve(LU, ipiv, x), 0);
  EXPECT_LT(scaledResidual(A, x, b), kScaledBound);

  const Array<T, 2> B = randomMatrix<T>(n, 3, rng);
  Array<T, 2> X(B);
  EXPECT_EQ(qvarray::linsolvsolve(LU, ipiv, X), 0);
  EXPECT_LT(scaledResidual(A, X, B), kScaledBound);

  // A 3-D right-hand side is n rows by size1·size2 columns.
  Array<T, 3> B3(n, 2, 3);
  rng.fill(B3);
  Array<T, 3> X3(B3);
  qvarray::linsolvsolve(LU, ipiv, X3);
  Array<T, 2> Bflat(n, 6), Xflat(n, 6);
  std::copy(B3.begin(), B3.end(), Bflat.begin());
  std::copy(X3.begin(), X3.end(), Xflat.begin());
  EXPECT_LT(scaledResidual(A, Xflat, Bflat), kScaledBound);
}

TYPED_TEST(LapackSolve, SolveWithoutRightHandSidesDoesNothing) {
  using T = TypeParam;
  Array<T, 2> LU = identity<T>(3);
  Array<int, 1> ipiv(3);
  for (int i = 0; i < 3; ++i) ipiv[i] = i + 1;
  Array<T, 2> B(3, 0);
  EXPECT_EQ(qvarray::linsolvsolve(LU, ipiv, B), 0);
  Array<T, 3> B3(3, 2, 0);
  qvarray::linsolvsolve(LU, ipiv, B3);
}

TYPED_TEST(LapackSolve, SolveWithTooFewRowsIsAnIllegalArgument) {
  using T = TypeParam;
  Array<T, 2> LU = identity<T>(3);
  Array<int, 1> ipiv(3);
  for (int i = 0; i < 3; ++i) ipiv[i] = i + 1;
  Array<T, 2> B(2, 1);
  B.fill(T(5));
  // Without bit 2 INFO comes back and B is untouched.
  EXPECT_LT(qvarray::linsolvsolve(LU, ipiv, B, 0), 0);
  EXPECT_EQ(B(0, 0), T(5));
  expectThrowKey([&] { qvarray::linsolvsolve(LU, ipiv, B); }, "Internal_numerical_error",
                 "Illegal_input_values_in_LAPACK_call");
  Array<T, 1> b(2);
  expectThrowKey([&] { qvarray::linsolvsolve(LU, ipiv, b, qvarray::RaiseOnIllegal); },
                 "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
  // The 3-D form has no flags and always raises.
  Array<T, 3> B3(2, 1, 2);
  expectThrowKey([&] { qvarray::linsolvsolve(LU, ipiv, B3); }, "Internal_numerical_error",
                 "Illegal_input_values_in_LAPACK_call");
  // An empty right-hand side cannot hold the solution of a 1×1 system either.
  Array<T, 2> one = identity<T>(1);
  Array<T, 1> empty;
  expectThrowKey([&] { qvarray::linsolvsolve(one, ipiv, empty); }, "Internal_numerical_error",
                 "Illegal_input_values_in_LAPACK_call");
}

TYPED_TEST(LapackSolve, DecompRaisesOnSingularMatrixAndBadSizes) {
  using T = TypeParam;
  Array<T, 2> S = zeros<T>(2, 2);
  Array<int, 1> ipiv(2);
  expectThrowKey([&] { qvarray::linsolvdecomp(S, ipiv); }, "Internal_numerical_error",
                 "Singular_matrix");
  Array<T, 2> R(2, 3);
  expectThrowKey([&] { qvarray::linsolvdecomp(R, ipiv); }, "Internal_numerical_error",
                 "linsolvdecomp: A is not square or ipiv is shorter than A.");
  Array<T, 2> A = identity<T>(3);
  expectThrowKey([&] { qvarray::linsolvdecomp(A, ipiv); }, "Internal_numerical_error",
                 "linsolvdecomp: A is not square or ipiv is shorter than A.");
}

TYPED_TEST(LapackSolve, LinsolvResidualOneAndTwoDimensional) {
  using T = TypeParam;
  Rng rng(3);
  for (size_t n : {1, 5, 40, 250}) {
    const Array<T, 2> A = randomMatrix<T>(n, n, rng);
    const Array<T, 1> b = randomVector<T>(n, rng);
    Array<T, 2> F(A);
    Array<T, 1> x(b);
    EXPECT_EQ(qvarray::linsolv(F, x, qvarray::RaiseAll), 0);
    EXPECT_LT(scaledResidual(A, x, b), kScaledBound) << n;

    const Array<T, 2> B = randomMatrix<T>(n, 4, rng);
    Array<T, 2> X(B);
    F = A;
    EXPECT_EQ(qvarray::linsolv(F, X, qvarray::RaiseAll), 0);
    EXPECT_LT(scaledResidual(A, X, B), kScaledBound) << n;
  }
}

TYPED_TEST(LapackSolve, LinsolvSingularGivesNaNOrRaises) {
  using T = TypeParam;
  const T v[4] = {T(1), T(2), T(2), T(4)};  // columns (1, 2) and (2, 4)
  Array<T, 2> A(2, 2);
  std::copy(v, v + 4, A.begin());
  Array<T, 2> F(A);
  Array<T, 1> b(2);
  b.fill(T(1));
  EXPECT_GT(qvarray::linsolv(F, b, 0), 0);
  for (const T& e : b) EXPECT_TRUE(std::isnan(std::real(e)));

  Array<T, 2> B(2, 3);
  B.fill(T(1));
  F = A;
  EXPECT_GT(qvarray::linsolv(F, B, qvarray::RaiseOnIllegal), 0);
  for (const T& e : B) EXPECT_TRUE(std::isnan(std::real(e)));

  F = A;
  b.fill(T(1));
  expectThrowKey([&] { qvarray::linsolv(F, b, qvarray::RaiseOnFailure); }, "Error_in_LAPACK_call",
                 "Singular_matrix");
}

TYPED_TEST(LapackSolve, LinsolvChecksSizesBeforeChangingAnything) {
  using T = TypeParam;
  Array<T, 2> A = identity<T>(3);
  Array<T, 2> B(2, 2);
  B.fill(T(7));
  expectThrowKey([&] { qvarray::linsolv(A, B, 0); }, "Internal_numerical_error",
                 "linsolv: A and B do not have matching sizes.");
  EXPECT_EQ(B(1, 1), T(7));
  Array<T, 2> wide(3, 2);
  Array<T, 1> b(3);
  expectThrowKey([&] { qvarray::linsolv(wide, b, 0); }, "Internal_numerical_error",
                 "linsolv: A and B do not have matching sizes.");
  // No right-hand sides: nothing to do.
  Array<T, 2> none(3, 0);
  EXPECT_EQ(qvarray::linsolv(A, none, qvarray::RaiseAll), 0);
}

TYPED_TEST(LapackSolve, CholReconstructsAndZeroesLowerTriangle) {
  using T = TypeParam;
  Rng rng(4);
  const size_t n = 9;
  const Array<T, 2> M = randomMatrix<T>(n, n, rng);
  Array<T, 2> A = mul(adj(M), M);
  for (size_t i = 0; i < n; ++i) A(i, i) += T(1);
  Array<T, 2> R(A);
  EXPECT_EQ(qvarray::chol(R, qvarray::RaiseAll), 0);
  EXPECT_EQ(maxBelow(R), 0.0);
  EXPECT_LT(reconstructionError(A, mul(adj(R), R)), kScaledBound);
}

TYPED_TEST(LapackSolve, CholFailureZeroesAndRaisesWithAnyFlag) {
  using T = TypeParam;
  Array<T, 2> A = identity<T>(3);
  A(2, 2) = T(-1);
  A(2, 0) = T(5);  // below the diagonal: ignored by the factorisation, then zeroed
  Array<T, 2> R(A);
  EXPECT_EQ(qvarray::chol(R, 0), 3);
  EXPECT_EQ(maxBelow(R), 0.0);
  for (int flags : {1, 2, 3}) {
    R = A;
    expectThrowKey([&] { qvarray::chol(R, flags); }, "Input_matrix_must_be_positive_definite");
  }
}

}  // namespace
