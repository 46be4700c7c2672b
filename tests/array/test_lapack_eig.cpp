// Eigenvalue problems: eigenpair residuals A·v = λ·v (and generalised
// β·A·v = α·B·v), trace checks, selection ranges, and the QR/QZ failure keys.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;
using CVec = Array<dcomplex, 1>;
using CMat = Array<dcomplex, 2>;
constexpr int kAll = qvarray::RaiseAll;
const double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
class LapackEig : public ::testing::Test {};
TYPED_TEST_SUITE(LapackEig, ScalarTypes);

/// Eigenvectors of the real routines as complex columns: a complex pair
/// λ, λ̄ at j, j+1 has vectors V(:,j) ± i·V(:,j+1). Complex ones pass through.
CMat vectors(const CMat& V, const Array<double, 1>&) { return V; }
CMat vectors(const Array<double, 2>& V, const Array<double, 1>& wi) {
  const size_t n = V.sizes[0];
  CMat C = toComplex(V);
  for (size_t j = 0; j + 1 < n; ++j) {
    if (wi[j] == 0.0) continue;
    for (size_t i = 0; i < n; ++i) {
      C(i, j) = {V(i, j), V(i, j + 1)};
      C(i, j + 1) = {V(i, j), -V(i, j + 1)};
    }
    ++j;
  }
  return C;
}

CVec combine(const Array<double, 1>& re, const Array<double, 1>& im) {
  CVec w(re.count);
  for (size_t i = 0; i < re.count; ++i) w[i] = {re[i], im[i]};
  return w;
}

CVec conjAll(CVec w) {
  for (dcomplex& v : w) v = std::conj(v);
  return w;
}

CVec ratio(const CVec& a, const CVec& b) {
  CVec r(a.count);
  for (size_t i = 0; i < a.count; ++i) r[i] = a[i] / b[i];
  return r;
}

/// xGEEV for either type, eigenvalues and vectors as complex arrays: a factor
/// with job 'N' is left alone, and the values-only driver agrees.
template <class T>
void geev(char jl, char jr, Array<T, 2> A, CVec& w, CMat& VL, CMat& VR) {
  Array<T, 2> L(1, 1), R(1, 1), A2(A);
  Array<double, 1> wr, wi, wr2, wi2;
  CVec w2;
  if constexpr (isComplex<T>) {
    EXPECT_EQ(qvarray::eig(jl, jr, A, w, L, R, kAll) + qvarray::eig(A2, w2, kAll), 0);
  } else {
    EXPECT_EQ(qvarray::eig(jl, jr, A, wr, wi, L, R, kAll) + qvarray::eig(A2, wr2, wi2, kAll), 0);
    w = combine(wr, wi);
    w2 = combine(wr2, wi2);
  }
  expectSameValues(w2, w, 1e-10);
  EXPECT_TRUE((L.count == 1) == (jl == 'N') && (R.count == 1) == (jr == 'N'));
  VL = vectors(L, wi);
  VR = vectors(R, wi);
}

/// xGGEV for either type, as geev; returns λ = alpha/beta.
template <class T>
CVec ggev(Array<T, 2> A, Array<T, 2> B, CVec& alpha, CVec& beta, CMat& VL, CMat& VR) {
  Array<T, 2> L, R, A2(A), B2(B);
  Array<double, 1> ar, ai, b, ar2, ai2, b2;
  CVec alpha2, beta2;
  if constexpr (isComplex<T>) {
    EXPECT_EQ(qvarray::eig('V', 'V', A, B, alpha, beta, L, R, kAll) +
                  qvarray::eig(A2, B2, alpha2, beta2, kAll),
              0);
  } else {
    EXPECT_EQ(qvarray::eig('V', 'V', A, B, ar, ai, b, L, R, kAll) +
                  qvarray::eig(A2, B2, ar2, ai2, b2, kAll),
              0);
    alpha = combine(ar, ai);
    beta = toComplex(b);
    alpha2 = combine(ar2, ai2);
    beta2 = toComplex(b2);
  }
  expectSameValues(ratio(alpha2, beta2), ratio(alpha, beta), 1e-8);
  VL = vectors(L, ai);
  VR = vectors(R, ai);
  return ratio(alpha, beta);
}

/// max over j of ‖β_j·A·v_j − α_j·B·v_j‖ / ((|β_j|·‖A‖ + |α_j|·‖B‖)·‖v_j‖·n·ε);
/// with B = I and β = 1 this is the standard eigenpair residual.
double pencilResidual(const CMat& A, const CMat& B, const CVec& alpha, const CVec& beta,
                      const CMat& V) {
  const size_t n = A.sizes[0];
  const CMat AV = mul(A, V), BV = mul(B, V);
  double worst = 0;
  for (size_t j = 0; j < n; ++j) {
    double r = 0, v = 0;
    for (size_t i = 0; i < n; ++i) {
      r += std::norm(beta[j] * AV(i, j) - alpha[j] * BV(i, j));
      v += std::norm(V(i, j));
    }
    const double scale =
        (std::abs(beta[j]) * normF(A) + std::abs(alpha[j]) * normF(B)) * std::sqrt(v);
    worst = std::max(worst, std::sqrt(r) / (scale * static_cast<double>(n) * kEps));
  }
  return worst;
}

double eigenResidual(const CMat& A, const CVec& w, const CMat& V) {
  CVec one(w.count);
  one.fill(1.0);
  return pencilResidual(A, identity<dcomplex>(A.sizes[0]), w, one, V);
}

double traceError(const CMat& A, const CVec& w) {
  dcomplex t = 0;
  for (size_t i = 0; i < A.sizes[0]; ++i) t += A(i, i) - w[i];
  return std::abs(t);
}

TYPED_TEST(LapackEig, GeneralRightAndLeftEigenpairs) {
  using T = TypeParam;
  Rng rng(32);
  const size_t n = 9;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng);
  const CMat Ac = toComplex(A);
  CVec w, w2;
  CMat VL, VR;
  geev('V', 'V', A, w, VL, VR);
  bool anyPair = false;
  for (const dcomplex& v : w) anyPair |= v.imag() != 0.0;
  EXPECT_TRUE(anyPair);  // for real A the case of interest: complex pairs in real storage
  EXPECT_LT(eigenResidual(Ac, w, VR), kScaledBound);
  // uᴴ·A = λ·uᴴ  ⇔  Aᴴ·u = λ̄·u
  EXPECT_LT(eigenResidual(adj(Ac), conjAll(w), VL), kScaledBound);
  EXPECT_LT(traceError(Ac, w), 1e-12 * n);
  geev('N', 'V', A, w2, VL, VR);  // right vectors only
  EXPECT_LT(eigenResidual(Ac, w2, VR), kScaledBound);
}

TYPED_TEST(LapackEig, GeneralisedEigenpairs) {
  using T = TypeParam;
  Rng rng(34);
  const size_t n = 7;
  const Array<T, 2> A = randomMatrix<T>(n, n, rng), B = randomMatrix<T>(n, n, rng);
  const CMat Ac = toComplex(A), Bc = toComplex(B);
  CVec alpha, beta;
  CMat VL, VR;
  const CVec lambda = ggev(A, B, alpha, beta, VL, VR);
  EXPECT_LT(pencilResidual(Ac, Bc, alpha, beta, VR), kScaledBound);
  // uᴴ·(β·A − α·B) = 0  ⇔  (β̄·Aᴴ − ᾱ·Bᴴ)·u = 0
  EXPECT_LT(pencilResidual(adj(Ac), adj(Bc), conjAll(alpha), conjAll(beta), VL), kScaledBound);
  if constexpr (!isComplex<T>) {  // the balancing driver finds the same pencil's eigenpairs
    for (char balanc : {'N', 'B'}) {
      Array<double, 2> FA(A), FB(B), XV;
      Array<double, 1> xr, xi, xb;
      EXPECT_EQ(qvarray::eig(FA, FB, balanc, 'V', xr, xi, xb, XV, kAll), 0);
      const CVec xalpha = combine(xr, xi), xbeta = toComplex(xb);
      expectSameValues(ratio(xalpha, xbeta), lambda, 1e-8);
      EXPECT_LT(pencilResidual(Ac, Bc, xalpha, xbeta, vectors(XV, xi)), kScaledBound) << balanc;
    }
  }
}

TEST(LapackEig, PackedSymmetricAllSubsetAndShortForm) {
  Rng rng(31);
  const size_t n = 8;
  const int ni = static_cast<int>(n);
  Array<double, 2> A(n, n);
  Array<double, 1> AP(n * (n + 1) / 2);  // upper triangle packed by columns
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i <= j; ++i) A(i, j) = A(j, i) = AP[i + j * (j + 1) / 2] = rng.real();
  Array<double, 1> ap(AP), W, Ws, Wshort;
  Array<double, 2> Z;
  Array<int, 1> ifail;
  int m = 0;
  EXPECT_EQ(qvarray::eig('V', 'A', 'U', ni, ap, 0, 0, 0, 0, 0.0, m, W, Z, ifail, kAll), 0);
  ASSERT_TRUE(m == ni && Z.sizes[1] == n);
  for (size_t i = 1; i < n; ++i) EXPECT_LE(W[i - 1], W[i]);
  EXPECT_LT(eigenResidual(toComplex(A), toComplex(W), toComplex(Z)), kScaledBound);
  EXPECT_LT(orthonormalityError(Z), kScaledBound);
  EXPECT_LT(traceError(toComplex(A), toComplex(W)), 1e-12);
  // Indices 2..4 (1-based), and the interval around the 3rd to 5th values.
  ap = AP;
  qvarray::eig('N', 'I', 'U', ni, ap, 0, 0, 2, 4, 0.0, m, Ws, Z, ifail, kAll);
  ASSERT_EQ(m, 3);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(Ws[i], W[i + 1], 1e-13);
  ap = AP;
  qvarray::eig('V', 'V', 'U', ni, ap, 0.5 * (W[1] + W[2]), 0.5 * (W[4] + W[5]), 0, 0, 0.0, m, Ws, Z,
               ifail, kAll);
  ASSERT_EQ(m, 3);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(Ws[i], W[i + 2], 1e-13);
  ap = AP;
  EXPECT_EQ(qvarray::eig(ni, ap, Wshort, kAll), 0);
  EXPECT_LT(relDiff(Wshort, W), 1e-13);
}

TEST(LapackEig, FailuresAndChecks) {
  // NaN entries defeat the QR iteration of the packed symmetric driver and the
  // QZ iteration of the generalised one; INFO comes back as the iteration.
  Array<double, 1> bad(15), W, ar, ai, beta, AP5(5);
  bad.fill(1.0);
  bad[1] = kNaN;
  expectFailure(
      [&](int flags) {
        Array<double, 1> ap(bad);
        return qvarray::eig(5, ap, W, flags);
      },
      "Iteration_in_the_QR_algorithm_failed", "", "Iteration");
  Array<double, 2> A(5, 5), B(5, 5), R(3, 4), small = identity<double>(3);
  A.fill(1.0);
  B.fill(1.0);
  A(0, 1) = kNaN;
  expectFailure(
      [&](int flags) {
        Array<double, 2> FA(A), FB(B);
        return qvarray::eig(FA, FB, ar, ai, beta, flags);
      },
      "Iteration_in_the_QZ_algorithm_failed", "", "Iteration");
  CMat I = identity<dcomplex>(3), ZL, ZR;
  CVec w;
  expectIllegal([&](int flags) { return qvarray::eig('X', 'N', I, w, ZL, ZR, flags); });
  expectThrowsAll("Internal_numerical_error",
                  {{[&] { qvarray::eig(3, AP5, W, 0); }, "eig: AP is shorter than n*(n+1)/2."},
                   {[&] { qvarray::eig(R, ar, ai, 0); }, "eig: A is not square."},
                   {[&] { qvarray::eig(A, small, ar, ai, beta, 0); },
                    "eig: A and B are not square matrices of the same size."}});
}

}  // namespace
