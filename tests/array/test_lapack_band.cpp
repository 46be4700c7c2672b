// Band LU and solve: agreement with the dense solver on the same matrix,
// pivot-array growth, and the assertion, illegal-argument and singular paths.
#include <gtest/gtest.h>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;
using qvarray::Array;

template <class T>
class LapackBand : public ::testing::Test {};
TYPED_TEST_SUITE(LapackBand, ScalarTypes);

/// A random n×n matrix with kl sub- and ku superdiagonals, dense.
template <class T>
Array<T, 2> randomBand(size_t n, size_t kl, size_t ku, Rng& rng) {
  Array<T, 2> A = zeros<T>(n, n);
  for (size_t j = 0; j < n; ++j)
    for (size_t i = j > ku ? j - ku : 0; i < std::min(n, j + kl + 1); ++i) A(i, j) = rng.value<T>();
  return A;
}

/// LAPACK band storage of A with `rows` ≥ 2·kl + ku + 1 rows: A(i, j) goes to
/// AB(kl + ku + i − j, j); the top kl rows are room for the fill-in.
template <class T>
Array<T, 2> toBandStorage(const Array<T, 2>& A, size_t kl, size_t ku, size_t rows) {
  const size_t n = A.sizes[0];
  Array<T, 2> AB = zeros<T>(rows, n);
  for (size_t j = 0; j < n; ++j)
    for (size_t i = j > ku ? j - ku : 0; i < std::min(n, j + kl + 1); ++i)
      AB(kl + ku + i - j, j) = A(i, j);
  return AB;
}

TYPED_TEST(LapackBand, SolveMatchesDenseSolve) {
  using T = TypeParam;
  Rng rng(51);
  const size_t n = 40, kl = 2, ku = 3;
  const Array<T, 2> A = randomBand<T>(n, kl, ku, rng);
  // A leading dimension larger than needed must work as well.
  for (size_t rows : {2 * kl + ku + 1, 2 * kl + ku + 4}) {
    Array<T, 2> AB = toBandStorage(A, kl, ku, rows);
    Array<int, 1> ipiv;
    EXPECT_EQ(qvarray::luBand(n, kl, ku, AB, ipiv, qvarray::RaiseAll), 0);
    ASSERT_EQ(ipiv.count, n);

    const Array<T, 1> b = randomVector<T>(n, rng);
    Array<T, 1> x(b);
    qvarray::backSubstBand(n, kl, ku, AB, ipiv, x);
    EXPECT_LT(scaledResidual(A, x, b), kScaledBound);
    Array<T, 2> dense(A);
    Array<T, 1> xd(b);
    qvarray::linsolv(dense, xd, qvarray::RaiseAll);
    EXPECT_LT(normF(minus(x, xd)), 1e-10 * normF(xd));

    const Array<T, 2> B = randomMatrix<T>(n, 3, rng);
    Array<T, 2> X(B);
    qvarray::backSubstBand(n, kl, ku, AB, ipiv, X);
    EXPECT_LT(scaledResidual(A, X, B), kScaledBound);
  }
}

TYPED_TEST(LapackBand, PivotArrayGrowsButNeverShrinks) {
  using T = TypeParam;
  Rng rng(52);
  const size_t n = 6, kl = 1, ku = 1;
  const Array<T, 2> A = randomBand<T>(n, kl, ku, rng);
  Array<T, 2> AB = toBandStorage(A, kl, ku, 4);
  Array<int, 1> ipiv(20);
  qvarray::luBand(n, kl, ku, AB, ipiv, qvarray::RaiseAll);
  EXPECT_EQ(ipiv.count, 20u);
  Array<T, 1> b = randomVector<T>(n, rng), x(b);
  qvarray::backSubstBand(n, kl, ku, AB, ipiv, x);
  EXPECT_LT(scaledResidual(A, x, b), kScaledBound);

  AB = toBandStorage(A, kl, ku, 4);
  Array<int, 1> shortPivots(2);
  qvarray::luBand(n, kl, ku, AB, shortPivots, qvarray::RaiseAll);
  EXPECT_EQ(shortPivots.count, n);
}

TYPED_TEST(LapackBand, TooFewColumnsIsAnAssertion) {
  using T = TypeParam;
  Array<T, 2> AB = zeros<T>(4, 5);
  Array<int, 1> ipiv(6);
  Array<T, 1> b(6);
  expectThrowKey([&] { qvarray::luBand(6, 1, 1, AB, ipiv, 0); }, "QUBRIX_assertion_failure");
  expectThrowKey([&] { qvarray::backSubstBand(6, 1, 1, AB, ipiv, b); }, "QUBRIX_assertion_failure");
}

TYPED_TEST(LapackBand, TooSmallLeadingDimensionIsAnIllegalArgument) {
  using T = TypeParam;
  Rng rng(53);
  const size_t n = 5, kl = 2, ku = 1;
  // 2·kl + ku rows: one short of what the factorisation needs for fill-in.
  Array<T, 2> AB = randomMatrix<T>(2 * kl + ku, n, rng);
  const Array<T, 2> before(AB);
  Array<int, 1> ipiv;
  EXPECT_EQ(qvarray::luBand(n, kl, ku, AB, ipiv, 0), -6);
  EXPECT_EQ(normF(minus(AB, before)), 0.0);
  expectThrowKey([&] { qvarray::luBand(n, kl, ku, AB, ipiv, qvarray::RaiseOnIllegal); },
                 "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
}

TYPED_TEST(LapackBand, SingularBandMatrixReturnsInfoOrRaises) {
  using T = TypeParam;
  Rng rng(54);
  const size_t n = 7, kl = 1, ku = 2;
  Array<T, 2> A = randomBand<T>(n, kl, ku, rng);
  for (size_t i = 0; i < n; ++i) A(i, 3) = T(0);
  Array<T, 2> AB = toBandStorage(A, kl, ku, 2 * kl + ku + 1);
  Array<int, 1> ipiv;
  EXPECT_GT(qvarray::luBand(n, kl, ku, AB, ipiv, qvarray::RaiseOnIllegal), 0);
  AB = toBandStorage(A, kl, ku, 2 * kl + ku + 1);
  expectThrowKey([&] { qvarray::luBand(n, kl, ku, AB, ipiv, qvarray::RaiseOnFailure); },
                 "Error_in_LAPACK_call", "Singular_matrix");
}

}  // namespace
