// LU and Cholesky factorisations and dense solves: reconstructions, scaled
// residuals, and the INFO conventions (NaN solution, raised keys).
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;

constexpr const char* kNumErr = "Internal_numerical_error";
constexpr const char* kIllegal = "Illegal_input_values_in_LAPACK_call";

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

/// The identity's LU factors and pivots.
template <class T>
void identityLU(size_t n, Array<T, 2>& LU, Array<int, 1>& ipiv) {
  LU = identity<T>(n);
  ipiv.resize(n);
  for (size_t i = 0; i < n; ++i) ipiv[i] = int(i) + 1;
}

TYPED_TEST(LapackSolve, LuReconstructsAndReportsSingularityOnlyByInfo) {
  using T = TypeParam;
  Rng rng(1);
  Array<int, 1> ipiv(1);
  for (auto [m, n] : {std::pair<size_t, size_t>{7, 7}, {9, 4}, {4, 9}}) {
    const Array<T, 2> A = randomMatrix<T>(m, n, rng);
    Array<T, 2> F(A);
    EXPECT_EQ(qvarray::lu(F, ipiv, qvarray::RaiseAll), 0);
    ASSERT_EQ(ipiv.count, std::min(m, n));
    EXPECT_LT(reconstructionError(A, rebuildLU(F, ipiv)), kScaledBound) << m << "x" << n;
  }
  Array<T, 2> S = zeros<T>(3, 3);
  S(0, 0) = T(1);
  S(1, 1) = T(2);
  EXPECT_EQ(qvarray::lu(S, ipiv, qvarray::RaiseAll), 3);  // even with flag bit 1
}

TYPED_TEST(LapackSolve, DecompThenSolveOneTwoAndThreeDimensional) {
  using T = TypeParam;
  Rng rng(2);
  const size_t n = 12;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  Array<T, 2> LU(A);
  Array<int, 1> ipiv(n);
  EXPECT_EQ(qvarray::linsolvdecomp(LU, ipiv), 0);
  const Array<T, 1> b = randomVector<T>(n, rng);
  const Array<T, 2> B = randomMatrix<T>(n, 3, rng);
  Array<T, 1> x(b);
  Array<T, 2> X(B);
  EXPECT_EQ(qvarray::linsolvsolve(LU, ipiv, x), 0);
  EXPECT_EQ(qvarray::linsolvsolve(LU, ipiv, X), 0);
  EXPECT_LT(scaledResidual(A, x, b), kScaledBound);
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

TYPED_TEST(LapackSolve, SolveChecksRightHandSides) {
  using T = TypeParam;
  Array<T, 2> LU, one = identity<T>(1), none(3, 0), B(2, 1);
  Array<T, 3> none3(3, 2, 0), B3(2, 1, 2);
  Array<T, 1> b(2), empty;
  Array<int, 1> ipiv;
  identityLU<T>(3, LU, ipiv);
  EXPECT_EQ(qvarray::linsolvsolve(LU, ipiv, none), 0);  // no right-hand sides: nothing to do
  qvarray::linsolvsolve(LU, ipiv, none3);
  // Too few rows: INFO comes back without bit 2 and B is untouched.
  B.fill(T(5));
  expectIllegal([&](int flags) { return qvarray::linsolvsolve(LU, ipiv, B, flags); });
  EXPECT_EQ(B(0, 0), T(5));
  expectIllegal([&](int flags) { return qvarray::linsolvsolve(LU, ipiv, b, flags); });
  expectThrowsAll(kNumErr,
                  {{[&] { qvarray::linsolvsolve(LU, ipiv, B); }, kIllegal},   // default flags
                   {[&] { qvarray::linsolvsolve(LU, ipiv, B3); }, kIllegal},  // always raises
                   {[&] { qvarray::linsolvsolve(one, ipiv, empty); }, kIllegal}});
  Array<T, 2> S = zeros<T>(2, 2), R(2, 3);
  Array<int, 1> ipiv2(2);
  const char* shape = "linsolvdecomp: A is not square or ipiv is shorter than A.";
  expectThrowsAll(kNumErr, {{[&] { qvarray::linsolvdecomp(S, ipiv2); }, "Singular_matrix"},
                            {[&] { qvarray::linsolvdecomp(R, ipiv2); }, shape},
                            {[&] { qvarray::linsolvdecomp(LU, ipiv2); }, shape}});
}

TYPED_TEST(LapackSolve, LinsolvResidualsSingularAndSizes) {
  using T = TypeParam;
  Rng rng(3);
  for (size_t n : {1, 5, 40, 250}) {
    const Array<T, 2> A = randomMatrix<T>(n, n, rng), B = randomMatrix<T>(n, 4, rng);
    const Array<T, 1> b = randomVector<T>(n, rng);
    Array<T, 2> F(A), G(A), X(B);
    Array<T, 1> x(b);
    EXPECT_EQ(qvarray::linsolv(F, x, qvarray::RaiseAll) + qvarray::linsolv(G, X, qvarray::RaiseAll),
              0);
    EXPECT_LT(scaledResidual(A, x, b), kScaledBound) << n;
    EXPECT_LT(scaledResidual(A, X, B), kScaledBound) << n;
  }
  // Singular (columns (1, 2) and (2, 4)): NaN solution, or the key with bit 1.
  const Array<T, 2> A = mat<T>(2, 2, {T(1), T(2), T(2), T(4)});
  Array<T, 2> F(A), G(A), H(A), B(2, 3);
  Array<T, 1> b(2), c(2);
  B.fill(T(1));
  b.fill(T(1));
  EXPECT_GT(qvarray::linsolv(F, b, 0), 0);
  EXPECT_GT(qvarray::linsolv(G, B, qvarray::RaiseOnIllegal), 0);
  for (const T& e : b) EXPECT_TRUE(std::isnan(std::real(e)));
  for (const T& e : B) EXPECT_TRUE(std::isnan(std::real(e)));
  expectThrowKey([&] { qvarray::linsolv(H, c, qvarray::RaiseOnFailure); }, "Error_in_LAPACK_call",
                 "Singular_matrix");
  // Sizes are checked before anything changes.
  Array<T, 2> I = identity<T>(3), B22(2, 2), wide(3, 2), none(3, 0);
  Array<T, 1> b3(3);
  B22.fill(T(7));
  const char* s = "linsolv: A and B do not have matching sizes.";
  expectThrowsAll(kNumErr, {{[&] { qvarray::linsolv(I, B22, 0); }, s},
                            {[&] { qvarray::linsolv(wide, b3, 0); }, s}});
  EXPECT_EQ(B22(1, 1), T(7));
  EXPECT_EQ(qvarray::linsolv(I, none, qvarray::RaiseAll), 0);
}

TYPED_TEST(LapackSolve, CholReconstructsOrZeroesAndRaisesWithAnyFlag) {
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

  Array<T, 2> D = identity<T>(3);
  D(2, 2) = T(-1);
  D(2, 0) = T(5);  // below the diagonal: ignored by the factorisation, then zeroed
  R = D;
  EXPECT_EQ(qvarray::chol(R, 0), 3);
  EXPECT_EQ(maxBelow(R), 0.0);
  for (int flags : {1, 2, 3}) {
    R = D;
    expectThrowKey([&] { qvarray::chol(R, flags); }, "Input_matrix_must_be_positive_definite");
  }
}

}  // namespace
