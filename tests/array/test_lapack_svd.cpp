// Singular value decomposition and numerical rank: U·Σ·Vᴴ reconstructions,
// output sizing per job, and ranks of matrices built with a known rank.
#include <gtest/gtest.h>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;
using qvarray::Array;

template <class T>
class LapackSvd : public ::testing::Test {};
TYPED_TEST_SUITE(LapackSvd, ScalarTypes);

/// U·Σ·Vᴴ with Σ the rows(U)×rows(VT) matrix holding s on its diagonal.
template <class T>
Array<T, 2> rebuildSvd(const Array<T, 2>& U, const Array<double, 1>& s, const Array<T, 2>& VT) {
  Array<T, 2> S = zeros<T>(U.sizes[1], VT.sizes[0]);
  for (size_t i = 0; i < s.count; ++i) S(i, i) = T(s[i]);
  return mul(U, mul(S, VT));
}

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
      ASSERT_EQ(U.sizes[0], m);
      ASSERT_EQ(U.sizes[1], job == 'A' ? m : k);
      ASSERT_EQ(VT.sizes[0], job == 'A' ? n : k);
      ASSERT_EQ(VT.sizes[1], n);
      for (size_t i = 0; i < k; ++i) {
        EXPECT_GE(s[i], 0.0);
        if (i) {
          EXPECT_LE(s[i], s[i - 1]);
        }
      }
      EXPECT_LT(orthonormalityError(U), kScaledBound);
      EXPECT_LT(orthonormalityError(adj(VT)), kScaledBound);
      EXPECT_LT(reconstructionError(A, rebuildSvd(U, s, VT)), kScaledBound)
          << m << "x" << n << " job " << job;
    }
  }
}

TYPED_TEST(LapackSvd, JobNLeavesFactorsAloneAndValuesAgree) {
  using T = TypeParam;
  Rng rng(22);
  const Array<T, 2> A = randomMatrix<T>(7, 4, rng);
  Array<T, 2> F(A), U(2, 2), VT;
  U.fill(T(3));
  Array<double, 1> full, values;
  qvarray::svd('N', 'A', F, U, full, VT, qvarray::RaiseAll);
  EXPECT_EQ(U.sizes[0], 2u);
  EXPECT_EQ(U(1, 1), T(3));
  EXPECT_EQ(VT.sizes[0], 4u);
  F = A;
  EXPECT_EQ(qvarray::svd(F, values, qvarray::RaiseAll), 0);
  ASSERT_EQ(values.count, 4u);
  for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(values[i], full[i], 1e-13 * full[0]);
  // The Frobenius norm is the root of the sum of squared singular values.
  double sum = 0;
  for (double v : values) sum += v * v;
  EXPECT_NEAR(std::sqrt(sum), normF(A), 1e-13 * normF(A));
}

TYPED_TEST(LapackSvd, IllegalJobCombinationRaisesWithBitTwo) {
  using T = TypeParam;
  Array<T, 2> A = identity<T>(3), U, VT;
  Array<double, 1> s;
  // Both factors cannot overwrite A.
  EXPECT_LT(qvarray::svd('O', 'O', A, U, s, VT, 0), 0);
  expectThrowKey([&] { qvarray::svd('O', 'O', A, U, s, VT, qvarray::RaiseOnIllegal); },
                 "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
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
  EXPECT_EQ(qvarray::rank(Array<T, 2>(), -1.0, sigmaMax), 0);
  EXPECT_EQ(sigmaMax, 0.0);
  EXPECT_EQ(qvarray::rank(identity<T>(6), -1.0), 6);
}

}  // namespace
