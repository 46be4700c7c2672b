// Band LU and solve: agreement with the dense solver on the same matrix,
// pivot-array growth, and the assertion, illegal-argument and singular paths.
#include <gtest/gtest.h>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;

template <class T>
class LapackBand : public ::testing::Test {};
TYPED_TEST_SUITE(LapackBand, ScalarTypes);

/// A random n×n matrix with kl sub- and ku superdiagonals, dense, and its
/// LAPACK band storage with `rows` ≥ 2·kl + ku + 1 rows: A(i, j) goes to
/// AB(kl + ku + i − j, j); the top kl rows are room for the fill-in.
template <class T>
Array<T, 2> randomBand(size_t n, size_t kl, size_t ku, Rng& rng, Array<T, 2>& AB, size_t rows) {
  Array<T, 2> A = zeros<T>(n, n);
  AB = zeros<T>(rows, n);
  for (size_t j = 0; j < n; ++j)
    for (size_t i = j > ku ? j - ku : 0; i < std::min(n, j + kl + 1); ++i)
      A(i, j) = AB(kl + ku + i - j, j) = rng.value<T>();
  return A;
}

TYPED_TEST(LapackBand, SolveMatchesDenseSolve) {
  using T = TypeParam;
  Rng rng(51);
  const size_t n = 40, kl = 2, ku = 3;
  // A leading dimension larger than needed must work as well.
  for (size_t rows : {2 * kl + ku + 1, 2 * kl + ku + 4}) {
    Array<T, 2> AB;
    const Array<T, 2> A = randomBand<T>(n, kl, ku, rng, AB, rows);
    Array<int, 1> ipiv;
    EXPECT_EQ(qvarray::luBand(n, kl, ku, AB, ipiv, qvarray::RaiseAll), 0);
    ASSERT_EQ(ipiv.count, n);
    const Array<T, 1> b = randomVector<T>(n, rng);
    const Array<T, 2> B = randomMatrix<T>(n, 3, rng);
    Array<T, 1> x(b), xd(b);
    Array<T, 2> X(B), dense(A);
    qvarray::backSubstBand(n, kl, ku, AB, ipiv, x);
    qvarray::backSubstBand(n, kl, ku, AB, ipiv, X);
    qvarray::linsolv(dense, xd, qvarray::RaiseAll);
    EXPECT_LT(scaledResidual(A, x, b), kScaledBound);
    EXPECT_LT(scaledResidual(A, X, B), kScaledBound);
    EXPECT_LT(relDiff(x, xd), 1e-10);
  }
}

TYPED_TEST(LapackBand, PivotArrayGrowsButNeverShrinks) {
  using T = TypeParam;
  Rng rng(52);
  const size_t n = 6;
  Array<T, 2> AB, AB2;
  const Array<T, 2> A = randomBand<T>(n, 1, 1, rng, AB, 4);
  AB2 = AB;
  Array<int, 1> ipiv(20), shortPivots(2);
  qvarray::luBand(n, 1, 1, AB, ipiv, qvarray::RaiseAll);
  qvarray::luBand(n, 1, 1, AB2, shortPivots, qvarray::RaiseAll);
  EXPECT_EQ(ipiv.count, 20u);
  EXPECT_EQ(shortPivots.count, n);
  const Array<T, 1> b = randomVector<T>(n, rng);
  Array<T, 1> x(b);
  qvarray::backSubstBand(n, 1, 1, AB, ipiv, x);
  EXPECT_LT(scaledResidual(A, x, b), kScaledBound);
}

TYPED_TEST(LapackBand, BadShapesAndSingularMatrices) {
  using T = TypeParam;
  Rng rng(53);
  // Too few columns: an assertion.
  Array<T, 2> AB = zeros<T>(4, 5);
  Array<int, 1> ipiv(6);
  Array<T, 1> b(6);
  expectThrowKey([&] { qvarray::luBand(6, 1, 1, AB, ipiv, 0); }, "QUBRIX_assertion_failure");
  expectThrowKey([&] { qvarray::backSubstBand(6, 1, 1, AB, ipiv, b); }, "QUBRIX_assertion_failure");
  // 2·kl + ku rows: one short of what the factorisation needs for fill-in.
  AB = randomMatrix<T>(2 * 2 + 1, 5, rng);
  const Array<T, 2> before(AB);
  EXPECT_EQ(expectIllegal([&](int flags) { return qvarray::luBand(5, 2, 1, AB, ipiv, flags); }),
            -6);
  EXPECT_EQ(normF(minus(AB, before)), 0.0);
  // A zero column: INFO without bit 1, the key with it.
  Array<T, 2> S;
  randomBand<T>(7, 1, 2, rng, S, 2 * 1 + 2 + 1);
  for (size_t i = 0; i < S.sizes[0]; ++i) S(i, 3) = T(0);
  expectFailure(
      [&](int flags) {
        Array<T, 2> F(S);
        return qvarray::luBand(7, 1, 2, F, ipiv, flags);
      },
      "Error_in_LAPACK_call", "Singular_matrix");
}

}  // namespace
