// Singular value decomposition and numerical rank: U·Σ·Vᴴ reconstructions,
// output sizing per job, and ranks of matrices built with a known rank.
#include <gtest/gtest.h>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;

template <class T>
class LapackSvd : public ::testing::Test {};
TYPED_TEST_SUITE(LapackSvd, ScalarTypes);

TYPED_TEST(LapackSvd, FullAndThinFactorsReconstruct) {
  using T = TypeParam;
  Rng rng(21);
  for (auto [m, n] : {std::pair<size_t, size_t>{9, 5}, {5, 9}, {6, 6}}) {
    const size_t k = std::min(m, n);
    const Array<T, 2> A = randomMatrix<T>(m, n, rng);
    for (char job : {'A', 'S'}) {
      Array<T, 2> F(A), U, VT;
      Array<double, 1> s;
      EXPECT_EQ(qvarray::svd(job, job, F, U, s, VT, qvarray::RaiseAll), 0);
      ASSERT_EQ(s.count, k);
      ASSERT_TRUE(U.sizes[0] == m && U.sizes[1] == (job == 'A' ? m : k));
      ASSERT_TRUE(VT.sizes[0] == (job == 'A' ? n : k) && VT.sizes[1] == n);
      for (size_t i = 0; i < k; ++i) EXPECT_TRUE(s[i] >= 0 && (i == 0 || s[i] <= s[i - 1]));
      Array<T, 2> S = zeros<T>(U.sizes[1], VT.sizes[0]);
      for (size_t i = 0; i < k; ++i) S(i, i) = T(s[i]);
      EXPECT_LT(orthonormalityError(U), kScaledBound);
      EXPECT_LT(orthonormalityError(adj(VT)), kScaledBound);
      EXPECT_LT(reconstructionError(A, mul(U, mul(S, VT))), kScaledBound) << m << "x" << n << job;
    }
  }
}

TYPED_TEST(LapackSvd, JobNLeavesFactorsAloneAndValuesAgree) {
  using T = TypeParam;
  Rng rng(22);
  const Array<T, 2> A = randomMatrix<T>(7, 4, rng);
  Array<T, 2> F(A), G(A), U(2, 2), VT;
  U.fill(T(3));
  Array<double, 1> full, values;
  qvarray::svd('N', 'A', F, U, full, VT, qvarray::RaiseAll);
  EXPECT_TRUE(U.sizes[0] == 2 && U(1, 1) == T(3));
  EXPECT_EQ(VT.sizes[0], 4u);
  EXPECT_EQ(qvarray::svd(G, values, qvarray::RaiseAll), 0);
  EXPECT_LT(relDiff(values, full), 1e-13);
  // The Frobenius norm is the root of the sum of squared singular values.
  EXPECT_NEAR(normF(values), normF(A), 1e-13 * normF(A));
  // Both factors cannot overwrite A: an illegal job, raised with bit 2 only.
  Array<T, 2> I = identity<T>(3);
  expectIllegal([&](int flags) { return qvarray::svd('O', 'O', I, U, full, VT, flags); });
}

TYPED_TEST(LapackSvd, RankOfMatricesWithKnownRank) {
  using T = TypeParam;
  Rng rng(23);
  const Array<T, 2> A = mul(randomMatrix<T>(7, 3, rng), randomMatrix<T>(3, 5, rng));
  const Array<T, 2> copy(A);
  double sigmaMax = 0;
  EXPECT_EQ(qvarray::rank(A, -1.0, sigmaMax), 3);
  EXPECT_EQ(normF(minus(A, copy)), 0.0);
  Array<T, 2> F(A);
  Array<double, 1> s;
  qvarray::svd(F, s, qvarray::RaiseAll);
  EXPECT_EQ(sigmaMax, s[0]);
  // A tolerance between σ₂ and σ₃ (relative to σmax) cuts the rank to 2.
  EXPECT_EQ(qvarray::rank(A, 0.5 * (s[1] + s[2]) / s[0]), 2);
  EXPECT_EQ(qvarray::rank(zeros<T>(4, 4), -1.0), 0);
  EXPECT_EQ(qvarray::rank(identity<T>(6), -1.0), 6);
  EXPECT_EQ(qvarray::rank(Array<T, 2>(), -1.0, sigmaMax), 0);
  EXPECT_EQ(sigmaMax, 0.0);
}

}  // namespace
