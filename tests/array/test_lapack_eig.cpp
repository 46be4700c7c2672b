// Eigenvalue problems: eigenpair residuals A·v = λ·v (and generalised
// β·A·v = α·B·v), trace checks, selection ranges, and the QR/QZ failure keys.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

namespace {

using namespace qvtest;
using qvarray::Array;

/// Eigenvectors of the real routines as complex columns: a complex pair
/// λ, λ̄ at j, j+1 has vectors V(:,j) ± i·V(:,j+1).
Array<dcomplex, 2> complexVectors(const Array<double, 2>& V, const Array<double, 1>& wi) {
  const size_t n = V.sizes[0];
  Array<dcomplex, 2> C(n, n);
  for (size_t j = 0; j < n; ++j) {
    if (wi[j] != 0.0 && j + 1 < n) {
      for (size_t i = 0; i < n; ++i) {
        C(i, j) = {V(i, j), V(i, j + 1)};
        C(i, j + 1) = {V(i, j), -V(i, j + 1)};
      }
      ++j;
    } else {
      for (size_t i = 0; i < n; ++i) C(i, j) = V(i, j);
    }
  }
  return C;
}

Array<dcomplex, 2> toComplex(const Array<double, 2>& A) {
  Array<dcomplex, 2> C(A.sizes[0], A.sizes[1]);
  for (size_t k = 0; k < A.count; ++k) C[k] = A[k];
  return C;
}

/// max over j of ‖β_j·A·v_j − α_j·B·v_j‖ / ((|β_j|·‖A‖ + |α_j|·‖B‖)·‖v_j‖·n·ε);
/// with B = I and β = 1 this is the standard eigenpair residual.
double pencilResidual(const Array<dcomplex, 2>& A, const Array<dcomplex, 2>& B,
                      const Array<dcomplex, 1>& alpha, const Array<dcomplex, 1>& beta,
                      const Array<dcomplex, 2>& V) {
  const size_t n = A.sizes[0];
  const Array<dcomplex, 2> AV = mul(A, V), BV = mul(B, V);
  const double a = normF(A), b = normF(B);
  double worst = 0;
  for (size_t j = 0; j < n; ++j) {
    double r = 0, v = 0;
    for (size_t i = 0; i < n; ++i) {
      r += std::norm(beta[j] * AV(i, j) - alpha[j] * BV(i, j));
      v += std::norm(V(i, j));
    }
    const double scale = (std::abs(beta[j]) * a + std::abs(alpha[j]) * b) * std::sqrt(v);
    worst = std::max(worst, std::sqrt(r) / (scale * static_cast<double>(n) * kEps));
  }
  return worst;
}

double eigenResidual(const Array<dcomplex, 2>& A, const Array<dcomplex, 1>& w,
                     const Array<dcomplex, 2>& V) {
  Array<dcomplex, 1> one(w.count);
  one.fill(1.0);
  return pencilResidual(A, identity<dcomplex>(A.sizes[0]), w, one, V);
}

Array<dcomplex, 1> combine(const Array<double, 1>& re, const Array<double, 1>& im) {
  Array<dcomplex, 1> w(re.count);
  for (size_t i = 0; i < re.count; ++i) w[i] = {re[i], im[i]};
  return w;
}

/// Every value of `a` has a partner in `b` within tol (equal multisets for
/// well-separated values).
void expectSameValues(const Array<dcomplex, 1>& a, const Array<dcomplex, 1>& b, double tol) {
  ASSERT_EQ(a.count, b.count);
  for (const dcomplex& x : a) {
    double best = std::numeric_limits<double>::infinity();
    for (const dcomplex& y : b) best = std::min(best, std::abs(x - y));
    EXPECT_LT(best, tol) << x;
  }
}

dcomplex trace(const Array<dcomplex, 2>& A) {
  dcomplex t = 0;
  for (size_t i = 0; i < A.sizes[0]; ++i) t += A(i, i);
  return t;
}

dcomplex sum(const Array<dcomplex, 1>& w) {
  dcomplex s = 0;
  for (const dcomplex& v : w) s += v;
  return s;
}

// ---------------------------------------------------------------------------
// Packed symmetric.

/// Random symmetric matrix and its upper triangle packed by columns.
Array<double, 2> symmetric(size_t n, Rng& rng, Array<double, 1>& AP) {
  Array<double, 2> A(n, n);
  AP.resize(n * (n + 1) / 2);
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i <= j; ++i) {
      A(i, j) = A(j, i) = rng.real();
      AP[i + j * (j + 1) / 2] = A(i, j);
    }
  return A;
}

TEST(LapackEig, PackedSymmetricAllSubsetAndShortForm) {
  Rng rng(31);
  const size_t n = 8;
  Array<double, 1> AP;
  const Array<double, 2> A = symmetric(n, rng, AP);
  Array<double, 1> ap(AP), W;
  Array<double, 2> Z;
  Array<int, 1> ifail;
  int m = 0;
  EXPECT_EQ(qvarray::eig('V', 'A', 'U', static_cast<int>(n), ap, 0, 0, 0, 0, 0.0, m, W, Z, ifail,
                         qvarray::RaiseAll),
            0);
  ASSERT_EQ(m, static_cast<int>(n));
  ASSERT_EQ(Z.sizes[1], n);
  for (size_t i = 1; i < n; ++i) EXPECT_LE(W[i - 1], W[i]);
  Array<dcomplex, 1> w(n);
  for (size_t i = 0; i < n; ++i) w[i] = W[i];
  EXPECT_LT(eigenResidual(toComplex(A), w, toComplex(Z)), kScaledBound);
  EXPECT_LT(orthonormalityError(Z), kScaledBound);

  // Indices 2..4 (1-based) and the interval around the 3rd to 5th values.
  Array<double, 1> Ws;
  ap = AP;
  qvarray::eig('N', 'I', 'U', static_cast<int>(n), ap, 0, 0, 2, 4, 0.0, m, Ws, Z, ifail,
               qvarray::RaiseAll);
  ASSERT_EQ(m, 3);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(Ws[i], W[i + 1], 1e-13);
  ap = AP;
  qvarray::eig('V', 'V', 'U', static_cast<int>(n), ap, 0.5 * (W[1] + W[2]), 0.5 * (W[4] + W[5]), 0,
               0, 0.0, m, Ws, Z, ifail, qvarray::RaiseAll);
  ASSERT_EQ(m, 3);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(Ws[i], W[i + 2], 1e-13);

  ap = AP;
  Array<double, 1> Wshort;
  EXPECT_EQ(qvarray::eig(static_cast<int>(n), ap, Wshort, qvarray::RaiseAll), 0);
  ASSERT_EQ(Wshort.count, n);
  double traceA = 0, total = 0;
  for (size_t i = 0; i < n; ++i) {
    EXPECT_NEAR(Wshort[i], W[i], 1e-13);
    traceA += A(i, i);
    total += Wshort[i];
  }
  EXPECT_NEAR(total, traceA, 1e-12);
}

TEST(LapackEig, PackedSymmetricChecksAndFailures) {
  Array<double, 1> AP(5), W;
  expectThrowKey([&] { qvarray::eig(3, AP, W, 0); }, "Internal_numerical_error",
                 "eig: AP is shorter than n*(n+1)/2.");
  // NaN entries defeat the eigenvector iteration.
  Array<double, 1> bad(15);
  bad.fill(1.0);
  bad[1] = std::numeric_limits<double>::quiet_NaN();
  Array<double, 1> ap(bad);
  const int info = qvarray::eig(5, ap, W, 0);
  ASSERT_GT(info, 0);
  ap = bad;
  auto e = expectThrowKey([&] { qvarray::eig(5, ap, W, qvarray::RaiseOnFailure); },
                          "Iteration_in_the_QR_algorithm_failed");
  EXPECT_EQ(e.detail("Iteration"), std::to_string(info));
}

// ---------------------------------------------------------------------------
// General.

TEST(LapackEig, RealGeneralRightAndLeftEigenpairs) {
  Rng rng(32);
  const size_t n = 9;
  const Array<double, 2> A = randomMatrix<double>(n, n, rng);
  Array<double, 2> F(A), VL, VR;
  Array<double, 1> wr, wi;
  EXPECT_EQ(qvarray::eig('V', 'V', F, wr, wi, VL, VR, qvarray::RaiseAll), 0);
  ASSERT_EQ(wr.count, n);
  ASSERT_EQ(VR.sizes[0], n);
  const Array<dcomplex, 1> w = combine(wr, wi);
  bool anyPair = false;
  for (double v : wi) anyPair |= v != 0.0;
  EXPECT_TRUE(anyPair);  // the case of interest: complex pairs in real storage
  const Array<dcomplex, 2> Ac = toComplex(A);
  EXPECT_LT(eigenResidual(Ac, w, complexVectors(VR, wi)), kScaledBound);
  // uᴴ·A = λ·uᴴ  ⇔  Aᴴ·u = λ̄·u
  Array<dcomplex, 1> wbar(n);
  for (size_t i = 0; i < n; ++i) wbar[i] = std::conj(w[i]);
  EXPECT_LT(eigenResidual(adj(Ac), wbar, complexVectors(VL, wi)), kScaledBound);
  EXPECT_LT(std::abs(sum(w) - trace(Ac)), 1e-12 * n);

  F = A;
  Array<double, 1> sr, si;
  EXPECT_EQ(qvarray::eig(F, sr, si, qvarray::RaiseAll), 0);
  expectSameValues(combine(sr, si), w, 1e-10);
}

TEST(LapackEig, ComplexGeneralRightAndLeftEigenpairs) {
  Rng rng(33);
  const size_t n = 8;
  const Array<dcomplex, 2> A = randomMatrix<dcomplex>(n, n, rng);
  Array<dcomplex, 2> F(A), VL, VR;
  Array<dcomplex, 1> w;
  EXPECT_EQ(qvarray::eig('V', 'V', F, w, VL, VR, qvarray::RaiseAll), 0);
  EXPECT_LT(eigenResidual(A, w, VR), kScaledBound);
  Array<dcomplex, 1> wbar(n);
  for (size_t i = 0; i < n; ++i) wbar[i] = std::conj(w[i]);
  EXPECT_LT(eigenResidual(adj(A), wbar, VL), kScaledBound);
  EXPECT_LT(std::abs(sum(w) - trace(A)), 1e-12 * n);

  // Right vectors only: VL is left alone.
  F = A;
  Array<dcomplex, 2> untouched(1, 1);
  EXPECT_EQ(qvarray::eig('N', 'V', F, w, untouched, VR, qvarray::RaiseAll), 0);
  EXPECT_EQ(untouched.count, 1u);
  EXPECT_LT(eigenResidual(A, w, VR), kScaledBound);

  F = A;
  Array<dcomplex, 1> ws;
  EXPECT_EQ(qvarray::eig(F, ws, qvarray::RaiseAll), 0);
  expectSameValues(ws, w, 1e-10);
}

TEST(LapackEig, GeneralChecksAndIllegalJob) {
  Array<double, 2> R(3, 4), VL, VR;
  Array<double, 1> wr, wi;
  expectThrowKey([&] { qvarray::eig(R, wr, wi, 0); }, "Internal_numerical_error",
                 "eig: A is not square.");
  Array<dcomplex, 2> A = identity<dcomplex>(3), ZL, ZR;
  Array<dcomplex, 1> w;
  EXPECT_LT(qvarray::eig('X', 'N', A, w, ZL, ZR, 0), 0);
  expectThrowKey([&] { qvarray::eig('X', 'N', A, w, ZL, ZR, qvarray::RaiseOnIllegal); },
                 "Internal_numerical_error", "Illegal_input_values_in_LAPACK_call");
}

// ---------------------------------------------------------------------------
// Generalised.

TEST(LapackEig, RealGeneralisedEigenpairs) {
  Rng rng(34);
  const size_t n = 7;
  const Array<double, 2> A = randomMatrix<double>(n, n, rng), B = randomMatrix<double>(n, n, rng);
  Array<double, 2> FA(A), FB(B), VL, VR;
  Array<double, 1> ar, ai, beta;
  EXPECT_EQ(qvarray::eig('V', 'V', FA, FB, ar, ai, beta, VL, VR, qvarray::RaiseAll), 0);
  const Array<dcomplex, 1> alpha = combine(ar, ai);
  Array<dcomplex, 1> b(n);
  for (size_t i = 0; i < n; ++i) b[i] = beta[i];
  const Array<dcomplex, 2> Ac = toComplex(A), Bc = toComplex(B);
  EXPECT_LT(pencilResidual(Ac, Bc, alpha, b, complexVectors(VR, ai)), kScaledBound);
  // uᴴ·(β·A − α·B) = 0  ⇔  (β̄·Aᴴ − ᾱ·Bᴴ)·u = 0
  Array<dcomplex, 1> alphaBar(n);
  for (size_t i = 0; i < n; ++i) alphaBar[i] = std::conj(alpha[i]);
  EXPECT_LT(pencilResidual(adj(Ac), adj(Bc), alphaBar, b, complexVectors(VL, ai)), kScaledBound);

  // Eigenvalues only, and the balancing driver, find the same λ = α/β.
  Array<dcomplex, 1> lambda(n);
  for (size_t i = 0; i < n; ++i) lambda[i] = alpha[i] / b[i];
  for (char balanc : {'N', 'B'}) {
    FA = A;
    FB = B;
    Array<double, 1> xr, xi, xb;
    Array<double, 2> XV;
    EXPECT_EQ(qvarray::eig(FA, FB, balanc, 'V', xr, xi, xb, XV, qvarray::RaiseAll), 0);
    Array<dcomplex, 1> xl(n), xbeta(n);
    for (size_t i = 0; i < n; ++i) {
      xl[i] = dcomplex(xr[i], xi[i]) / xb[i];
      xbeta[i] = xb[i];
    }
    expectSameValues(xl, lambda, 1e-8);
    EXPECT_LT(pencilResidual(Ac, Bc, combine(xr, xi), xbeta, complexVectors(XV, xi)), kScaledBound)
        << balanc;
  }
  FA = A;
  FB = B;
  Array<double, 1> sr, si, sb;
  EXPECT_EQ(qvarray::eig(FA, FB, sr, si, sb, qvarray::RaiseAll), 0);
  Array<dcomplex, 1> sl(n);
  for (size_t i = 0; i < n; ++i) sl[i] = dcomplex(sr[i], si[i]) / sb[i];
  expectSameValues(sl, lambda, 1e-8);
}

TEST(LapackEig, ComplexGeneralisedEigenpairs) {
  Rng rng(35);
  const size_t n = 6;
  const Array<dcomplex, 2> A = randomMatrix<dcomplex>(n, n, rng);
  const Array<dcomplex, 2> B = randomMatrix<dcomplex>(n, n, rng);
  Array<dcomplex, 2> FA(A), FB(B), VL, VR;
  Array<dcomplex, 1> alpha, beta;
  EXPECT_EQ(qvarray::eig('V', 'V', FA, FB, alpha, beta, VL, VR, qvarray::RaiseAll), 0);
  EXPECT_LT(pencilResidual(A, B, alpha, beta, VR), kScaledBound);
  Array<dcomplex, 1> alphaBar(n), betaBar(n);
  for (size_t i = 0; i < n; ++i) {
    alphaBar[i] = std::conj(alpha[i]);
    betaBar[i] = std::conj(beta[i]);
  }
  EXPECT_LT(pencilResidual(adj(A), adj(B), alphaBar, betaBar, VL), kScaledBound);

  FA = A;
  FB = B;
  Array<dcomplex, 1> sa, sb;
  EXPECT_EQ(qvarray::eig(FA, FB, sa, sb, qvarray::RaiseAll), 0);
  Array<dcomplex, 1> l1(n), l2(n);
  for (size_t i = 0; i < n; ++i) {
    l1[i] = sa[i] / sb[i];
    l2[i] = alpha[i] / beta[i];
  }
  expectSameValues(l1, l2, 1e-8);
}

TEST(LapackEig, GeneralisedQZFailureAndChecks) {
  const size_t n = 5;
  Array<double, 2> A(n, n), B(n, n);
  A.fill(1.0);
  B.fill(1.0);
  A(0, 1) = std::numeric_limits<double>::quiet_NaN();
  Array<double, 2> FA(A), FB(B);
  Array<double, 1> ar, ai, beta;
  const int info = qvarray::eig(FA, FB, ar, ai, beta, 0);
  ASSERT_GT(info, 0);
  FA = A;
  FB = B;
  auto e = expectThrowKey([&] { qvarray::eig(FA, FB, ar, ai, beta, qvarray::RaiseOnFailure); },
                          "Iteration_in_the_QZ_algorithm_failed");
  EXPECT_EQ(e.detail("Iteration"), std::to_string(info));

  Array<double, 2> small = identity<double>(3);
  expectThrowKey([&] { qvarray::eig(FA, small, ar, ai, beta, 0); }, "Internal_numerical_error",
                 "eig: A and B are not square matrices of the same size.");
}

}  // namespace
