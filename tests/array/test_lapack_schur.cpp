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
using qvarray::Array;

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
  EXPECT_EQ(untouched.sizes[1], 3u);
  EXPECT_EQ(normF(minus(H2, H)), 0.0);

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
  dcomplex sum = 0, trace = 0;
  for (const dcomplex& w : diagonalEigenvalues(S)) sum += w;
  for (size_t i = 0; i < n; ++i) trace += A(i, i);
  EXPECT_LT(std::abs(sum - trace), 1e-12 * n);

  // Without Q the triangular factor is the same.
  Array<T, 2> S2(A), none;
  EXPECT_EQ(qvarray::schur(S2, none, false), 0);
  EXPECT_EQ(none.count, 0u);
  expectSchurForm(S2);
  const auto w1 = diagonalEigenvalues(S), w2 = diagonalEigenvalues(S2);
  ASSERT_EQ(w1.size(), w2.size());
  for (size_t i = 0; i < w1.size(); ++i) EXPECT_LT(std::abs(w1[i] - w2[i]), 1e-10);
}

TYPED_TEST(LapackSchur, OrdschurMovesSelectedEigenvaluesToTheFront) {
  using T = TypeParam;
  Rng rng(44);
  const size_t n = 10;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  Array<T, 2> S(A), Q;
  qvarray::schur(S, Q, true);
  const std::vector<dcomplex> before = diagonalEigenvalues(S);
  // Select the last diagonal block (and its partner in a real 2×2 block) and
  // the first eigenvalue.
  Array<int, 1> select(n);
  select.fill(0);
  select[0] = 1;
  select[n - 1] = 7;  // any non-zero value selects
  if (!isComplex<T> && S(n - 1, n - 2) != T(0)) select[n - 2] = 1;
  std::vector<dcomplex> wanted = {before[0], before[n - 1]};
  if (!isComplex<T> && S(n - 1, n - 2) != T(0)) wanted.push_back(before[n - 2]);
  if (!isComplex<T> && S(1, 0) != T(0)) {  // the first eigenvalue is half of a pair
    select[1] = 1;
    wanted.push_back(before[1]);
  }
  EXPECT_EQ(qvarray::ordschur(S, Q, select), 0);
  expectSchurForm(S);
  EXPECT_LT(orthonormalityError(Q), kScaledBound);
  EXPECT_LT(reconstructionError(A, similar(Q, S)), kScaledBound);
  const std::vector<dcomplex> after = diagonalEigenvalues(S);
  for (size_t i = 0; i < wanted.size(); ++i) {
    double best = std::numeric_limits<double>::infinity();
    for (const dcomplex& w : wanted) best = std::min(best, std::abs(after[i] - w));
    EXPECT_LT(best, 1e-10) << i;
  }

  Array<int, 1> shortSelect(n - 1);
  expectThrowKey([&] { qvarray::ordschur(S, Q, shortSelect); }, "Internal_numerical_error",
                 "ordschur: T and Q are not square matrices of the same size or select is "
                 "shorter than T.");
}

TEST(LapackSchurFailure, InfiniteEntryDefeatsTheQRIteration) {
  const size_t n = 5;
  Array<double, 2> A(n, n), S, Q;
  for (size_t k = 0; k < A.count; ++k) A[k] = std::sin(k + 1.0);
  A(n - 1, 0) = std::numeric_limits<double>::infinity();
  S = A;
  const int info = qvarray::schur(S, Q, true, 0);
  ASSERT_GT(info, 0);
  S = A;
  auto e =
      expectThrowKey([&] { qvarray::schur(S, Q, true); }, "Iteration_in_the_QR_algorithm_failed");
  EXPECT_EQ(e.detail("Iteration"), std::to_string(info));
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

void expectRoots(const std::vector<dcomplex>& got, const std::vector<dcomplex>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (const dcomplex& w : want) {
    double best = std::numeric_limits<double>::infinity();
    for (const dcomplex& g : got) best = std::min(best, std::abs(g - w));
    EXPECT_LT(best, 1e-10) << w;
  }
}

TEST(LapackRoots, RealPolynomials) {
  Array<double, 1> re, im;
  // (x − 1)(x − 2)(x + 3) with two leading zeros that do not count.
  const Array<double, 1> cubic = fromRoots<double>({1, 2, -3});
  Array<double, 1> padded(cubic.count + 2);
  padded.fill(0.0);
  std::copy(cubic.begin(), cubic.end(), padded.begin() + 2);
  EXPECT_EQ(qvarray::roots(padded, re, im, qvarray::RaiseAll), 0);
  ASSERT_EQ(re.count, 3u);
  std::vector<dcomplex> got;
  for (size_t i = 0; i < re.count; ++i) got.emplace_back(re[i], im[i]);
  expectRoots(got, {1.0, 2.0, -3.0});

  // 2x² + 2 has the roots ±i.
  Array<double, 1> quad(3);
  quad[0] = 2;
  quad[1] = 0;
  quad[2] = 2;
  qvarray::roots(quad, re, im, qvarray::RaiseAll);
  got.clear();
  for (size_t i = 0; i < re.count; ++i) got.emplace_back(re[i], im[i]);
  expectRoots(got, {dcomplex(0, 1), dcomplex(0, -1)});

  // Constants and the zero polynomial have no roots.
  Array<double, 1> constant(1), zero(3);
  constant[0] = 4;
  zero.fill(0.0);
  qvarray::roots(constant, re, im, qvarray::RaiseAll);
  EXPECT_EQ(re.count, 0u);
  qvarray::roots(zero, re, im, qvarray::RaiseAll);
  EXPECT_EQ(im.count, 0u);
}

TEST(LapackRoots, ComplexPolynomial) {
  const std::vector<dcomplex> want = {{1, 2}, {-0.5, 0}, {3, -1}, {0, 0}};
  Array<dcomplex, 1> c = fromRoots(want), r;
  for (dcomplex& v : c) v *= dcomplex(0.5, 1.5);  // scaling keeps the roots
  EXPECT_EQ(qvarray::roots(c, r, qvarray::RaiseAll), 0);
  expectRoots(std::vector<dcomplex>(r.begin(), r.end()), want);
}

}  // namespace
