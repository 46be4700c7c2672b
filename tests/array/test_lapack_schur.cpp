// Hessenberg and Schur forms, reordering, and polynomial roots: Q·H·Qᴴ and
// Q·T·Qᴴ reconstructions, structure of the reduced matrices, and roots that
// reproduce a polynomial built from known zeros.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;

template <class T>
class LapackSchur : public ::testing::Test {};
TYPED_TEST_SUITE(LapackSchur, ScalarTypes);

/// Q·M·Qᴴ
template <class T>
Array<T, 2> similar(const Array<T, 2>& Q, const Array<T, 2>& M) {
  return mul(Q, mul(M, adj(Q)));
}

/// Eigenvalues on the diagonal of a (quasi-)triangular T, in order; a real
/// 2×2 block [a b; c d] with c ≠ 0 gives (a+d)/2 ± sqrt(((a−d)/2)² + b·c).
template <class T>
std::vector<dcomplex> diagonalEigenvalues(const Array<T, 2>& S) {
  std::vector<dcomplex> w;
  const size_t n = S.sizes[0];
  for (size_t i = 0; i < n; ++i) {
    if (i + 1 < n && S(i + 1, i) != T(0)) {
      const dcomplex a = S(i, i), b = S(i, i + 1), c = S(i + 1, i), d = S(i + 1, i + 1);
      const dcomplex root = std::sqrt((a - d) * (a - d) / 4.0 + b * c);
      w.push_back((a + d) / 2.0 + root);
      w.push_back((a + d) / 2.0 - root);
      ++i;
    } else {
      w.push_back(S(i, i));
    }
  }
  return w;
}

/// A real quasi-triangular matrix has no two consecutive subdiagonal
/// non-zeros and nothing below the subdiagonal; a complex one is triangular.
template <class T>
void expectSchurForm(const Array<T, 2>& S) {
  const size_t n = S.sizes[0];
  EXPECT_EQ(maxBelow(S, 1), 0.0);
  for (size_t i = 0; i + 1 < n; ++i) {
    if (isComplex<T>) {
      EXPECT_EQ(S(i + 1, i), T(0));
    }
    if (i + 2 < n) {
      EXPECT_TRUE(S(i + 1, i) == T(0) || S(i + 2, i + 1) == T(0)) << i;
    }
  }
}

TYPED_TEST(LapackSchur, HessReconstructsWithAndWithoutQ) {
  using T = TypeParam;
  Rng rng(41);
  const size_t n = 10;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  Array<T, 2> H(A), Q;
  EXPECT_EQ(qvarray::hess(H, Q, true), 0);
  EXPECT_EQ(maxBelow(H, 1), 0.0);
  EXPECT_LT(orthonormalityError(Q), kScaledBound);
  EXPECT_LT(reconstructionError(A, similar(Q, H)), kScaledBound);

  Array<T, 2> H2(A), untouched(2, 3);
  EXPECT_EQ(qvarray::hess(H2, untouched, false), 0);
  EXPECT_TRUE(untouched.sizes[1] == 3 && normF(minus(H2, H)) == 0.0);
  expectThrowKey([&] { qvarray::hess(untouched, Q, true); }, "Internal_numerical_error",
                 "hess: A is not square.");
}

TYPED_TEST(LapackSchur, GeneralizedHessReducesBothMatrices) {
  using T = TypeParam;
  Rng rng(42);
  const size_t n = 8;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng), B = randomMatrix<T>(n, n, rng);
  Array<T, 2> H(A), R(B), Q, Z;
  EXPECT_EQ(qvarray::generalizedHess(H, R, Q, Z), 0);
  EXPECT_LT(maxBelow(H, 1), 1e-14 * normF(A));
  EXPECT_EQ(maxBelow(R, 0), 0.0);
  EXPECT_LT(orthonormalityError(Q), kScaledBound);
  EXPECT_LT(orthonormalityError(Z), kScaledBound);
  // Qᴴ·A·Z = H and Qᴴ·B·Z = R, i.e. A = Q·H·Zᴴ and B = Q·R·Zᴴ.
  EXPECT_LT(reconstructionError(A, mul(Q, mul(upperPart(H, 1), adj(Z)))), kScaledBound);
  EXPECT_LT(reconstructionError(B, mul(Q, mul(R, adj(Z)))), kScaledBound);

  Array<T, 2> small = identity<T>(3);
  expectThrowKey([&] { qvarray::generalizedHess(H, small, Q, Z); }, "Internal_numerical_error",
                 "generalizedHess: A and B are not square matrices of the same size.");
}

TYPED_TEST(LapackSchur, SchurReconstructsAndHasSchurForm) {
  using T = TypeParam;
  Rng rng(43);
  const size_t n = 12;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  Array<T, 2> S(A), Q;
  EXPECT_EQ(qvarray::schur(S, Q, true), 0);
  expectSchurForm(S);
  EXPECT_LT(orthonormalityError(Q), kScaledBound);
  EXPECT_LT(reconstructionError(A, similar(Q, S)), kScaledBound);
  // The diagonal holds A's eigenvalues: their sum is the trace.
  const std::vector<dcomplex> w = diagonalEigenvalues(S);
  dcomplex trace = 0;
  for (size_t i = 0; i < n; ++i) trace += A(i, i) - w[i];
  EXPECT_LT(std::abs(trace), 1e-12 * n);
  // Without Q the triangular factor is the same.
  Array<T, 2> S2(A), none;
  EXPECT_EQ(qvarray::schur(S2, none, false), 0);
  EXPECT_EQ(none.count, 0u);
  expectSchurForm(S2);
  const auto w2 = diagonalEigenvalues(S2);
  auto near = [](dcomplex a, dcomplex b) { return std::abs(a - b) < 1e-10; };
  EXPECT_TRUE(std::equal(w.begin(), w.end(), w2.begin(), w2.end(), near));
}

TYPED_TEST(LapackSchur, OrdschurMovesSelectedEigenvaluesToTheFront) {
  using T = TypeParam;
  Rng rng(44);
  const size_t n = 10;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  Array<T, 2> S(A), Q;
  qvarray::schur(S, Q, true);
  const std::vector<dcomplex> before = diagonalEigenvalues(S);
  // Select the first and the last eigenvalue, with their partners when they
  // are halves of real 2×2 blocks; any non-zero value selects.
  Array<int, 1> select(n);
  select.fill(0);
  select[0] = 1;
  select[n - 1] = 7;
  select[1] = S(1, 0) != T(0);
  select[n - 2] = S(n - 1, n - 2) != T(0);
  std::vector<dcomplex> wanted;
  for (size_t i = 0; i < n; ++i)
    if (select[i]) wanted.push_back(before[i]);
  EXPECT_EQ(qvarray::ordschur(S, Q, select), 0);
  expectSchurForm(S);
  EXPECT_LT(orthonormalityError(Q), kScaledBound);
  EXPECT_LT(reconstructionError(A, similar(Q, S)), kScaledBound);
  const std::vector<dcomplex> after = diagonalEigenvalues(S);
  expectSameValues(std::vector<dcomplex>(after.begin(), after.begin() + wanted.size()), wanted,
                   1e-10);

  Array<int, 1> shortSelect(n - 1);
  expectThrowKey([&] { qvarray::ordschur(S, Q, shortSelect); }, "Internal_numerical_error",
                 "ordschur: T and Q are not square matrices of the same size or select is "
                 "shorter than T.");
}

TEST(LapackSchurFailure, InfiniteEntryDefeatsTheQRIteration) {
  Array<double, 2> A(5, 5);
  for (size_t k = 0; k < A.count; ++k) A[k] = std::sin(k + 1.0);
  A(4, 0) = std::numeric_limits<double>::infinity();
  expectFailure(
      [&](int flags) {
        Array<double, 2> S(A), Q;
        return qvarray::schur(S, Q, true, flags);
      },
      "Iteration_in_the_QR_algorithm_failed", "", "Iteration");
}

// ---------------------------------------------------------------------------
// Roots.

/// Coefficients (highest power first) of Π (x − r).
template <class T>
Array<T, 1> fromRoots(const std::vector<T>& roots) {
  std::vector<T> c = {T(1)};
  for (const T& r : roots) {
    c.push_back(T(0));
    for (size_t i = c.size() - 1; i > 0; --i) c[i] -= r * c[i - 1];
  }
  Array<T, 1> a(c.size());
  std::copy(c.begin(), c.end(), a.begin());
  return a;
}

TEST(LapackRoots, RealAndComplexPolynomials) {
  Array<double, 1> re, im;
  auto realRoots = [&](const Array<double, 1>& c) {
    EXPECT_EQ(qvarray::roots(c, re, im, qvarray::RaiseAll), 0);
    std::vector<dcomplex> r;
    for (size_t i = 0; i < re.count; ++i) r.emplace_back(re[i], im[i]);
    return r;
  };
  // (x − 1)(x − 2)(x + 3) with two leading zeros that do not count.
  const Array<double, 1> cubic = fromRoots<double>({1, 2, -3});
  Array<double, 1> padded(cubic.count + 2);
  padded.fill(0.0);
  std::copy(cubic.begin(), cubic.end(), padded.begin() + 2);
  expectSameValues(realRoots(padded), std::vector<dcomplex>{1.0, 2.0, -3.0}, 1e-10);
  // 2x² + 2 has the roots ±i; constants and the zero polynomial have none.
  expectSameValues(realRoots(vec<double>({2, 0, 2})), std::vector<dcomplex>{{0, 1}, {0, -1}},
                   1e-10);
  EXPECT_TRUE(realRoots(vec<double>({4})).empty());
  EXPECT_TRUE(realRoots(vec<double>({0, 0, 0})).empty() && im.count == 0);
  const std::vector<dcomplex> want = {{1, 2}, {-0.5, 0}, {3, -1}, {0, 0}};
  Array<dcomplex, 1> c = fromRoots(want), r;
  for (dcomplex& v : c) v *= dcomplex(0.5, 1.5);  // scaling keeps the roots
  EXPECT_EQ(qvarray::roots(c, r, qvarray::RaiseAll), 0);
  expectSameValues(r, want, 1e-10);
}

}  // namespace
