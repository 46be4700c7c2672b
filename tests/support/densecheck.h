#pragma once
// Naive dense linear algebra for test oracles: products, adjoints, norms and
// the LAPACK-style scaled errors built from them. Plain loops on purpose, so
// that a reconstruction never shares code with what it checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <type_traits>

#include "qvarray/array.h"
#include "qvtest.h"

namespace qvtest {

using qvarray::Array;
using dcomplex = std::complex<double>;

inline constexpr double kEps = std::numeric_limits<double>::epsilon();

template <class T>
constexpr bool isComplex = !std::is_same_v<T, double>;

inline double conjOf(double x) { return x; }
inline dcomplex conjOf(const dcomplex& x) { return std::conj(x); }

template <class T>
Array<T, 2> zeros(size_t m, size_t n) {
  Array<T, 2> A(m, n);
  A.fill(T(0));
  return A;
}

template <class T>
Array<T, 2> identity(size_t n) {
  Array<T, 2> I = zeros<T>(n, n);
  for (size_t i = 0; i < n; ++i) I(i, i) = T(1);
  return I;
}

template <class T>
Array<T, 2> randomMatrix(size_t m, size_t n, Rng& rng) {
  Array<T, 2> A(m, n);
  rng.fill(A);
  return A;
}

template <class T>
Array<T, 1> randomVector(size_t n, Rng& rng) {
  Array<T, 1> x(n);
  rng.fill(x);
  return x;
}

/// A·B
template <class T>
Array<T, 2> mul(const Array<T, 2>& A, const Array<T, 2>& B) {
  Array<T, 2> C = zeros<T>(A.sizes[0], B.sizes[1]);
  for (size_t j = 0; j < B.sizes[1]; ++j)
    for (size_t k = 0; k < A.sizes[1]; ++k)
      for (size_t i = 0; i < A.sizes[0]; ++i) C(i, j) += A(i, k) * B(k, j);
  return C;
}

/// A·x
template <class T>
Array<T, 1> mul(const Array<T, 2>& A, const Array<T, 1>& x) {
  Array<T, 1> y(A.sizes[0]);
  y.fill(T(0));
  for (size_t k = 0; k < A.sizes[1]; ++k)
    for (size_t i = 0; i < A.sizes[0]; ++i) y[i] += A(i, k) * x[k];
  return y;
}

/// Aᴴ
template <class T>
Array<T, 2> adj(const Array<T, 2>& A) {
  Array<T, 2> B(A.sizes[1], A.sizes[0]);
  for (size_t j = 0; j < A.sizes[1]; ++j)
    for (size_t i = 0; i < A.sizes[0]; ++i) B(j, i) = conjOf(A(i, j));
  return B;
}

template <class T, int N>
Array<T, N> minus(const Array<T, N>& A, const Array<T, N>& B) {
  Array<T, N> C(A);
  for (size_t k = 0; k < C.count; ++k) C[k] -= B[k];
  return C;
}

/// Frobenius norm (the 2-norm of a vector).
template <class T, int N>
double normF(const Array<T, N>& A) {
  double s = 0;
  for (const T& v : A) s += std::norm(v);
  return std::sqrt(s);
}

/// Leading rows×cols block of A.
template <class T>
Array<T, 2> block(const Array<T, 2>& A, size_t rows, size_t cols) {
  Array<T, 2> B(rows, cols);
  for (size_t j = 0; j < cols; ++j)
    for (size_t i = 0; i < rows; ++i) B(i, j) = A(i, j);
  return B;
}

/// Upper triangle (sub = 0) or Hessenberg part (sub = 1) of A.
template <class T>
Array<T, 2> upperPart(const Array<T, 2>& A, size_t sub = 0) {
  Array<T, 2> U(A);
  for (size_t j = 0; j < U.sizes[1]; ++j)
    for (size_t i = j + sub + 1; i < U.sizes[0]; ++i) U(i, j) = T(0);
  return U;
}

/// Largest modulus below the sub-th subdiagonal.
template <class T>
double maxBelow(const Array<T, 2>& A, size_t sub = 0) {
  double m = 0;
  for (size_t j = 0; j < A.sizes[1]; ++j)
    for (size_t i = j + sub + 1; i < A.sizes[0]; ++i) m = std::max(m, std::abs(A(i, j)));
  return m;
}

/// ‖A − F‖ / (‖A‖·n·ε) with n the larger dimension: how many rounding units a
/// factorisation's reconstruction F is away from A.
template <class T>
double reconstructionError(const Array<T, 2>& A, const Array<T, 2>& F) {
  const double n = static_cast<double>(std::max<size_t>({A.sizes[0], A.sizes[1], 1}));
  const double a = std::max(normF(A), std::numeric_limits<double>::min());
  return normF(minus(A, F)) / (a * n * kEps);
}

/// ‖Qᴴ·Q − I‖ / (n·ε) for the columns of Q.
template <class T>
double orthonormalityError(const Array<T, 2>& Q) {
  const size_t n = Q.sizes[1];
  const double scale = static_cast<double>(std::max<size_t>({Q.sizes[0], n, 1}));
  return normF(minus(mul(adj(Q), Q), identity<T>(n))) / (scale * kEps);
}

/// ‖A·X − B‖ / (‖A‖·‖X‖·n·ε), the scaled residual of a computed solution X.
template <class T>
double scaledResidual(const Array<T, 2>& A, const Array<T, 2>& X, const Array<T, 2>& B) {
  const double n = static_cast<double>(std::max<size_t>({A.sizes[0], A.sizes[1], 1}));
  const double denom = std::max(normF(A) * normF(X), std::numeric_limits<double>::min());
  return normF(minus(mul(A, X), B)) / (denom * n * kEps);
}

template <class T>
double scaledResidual(const Array<T, 2>& A, const Array<T, 1>& x, const Array<T, 1>& b) {
  Array<T, 2> X(x.count, 1), B(b.count, 1);
  std::copy(x.begin(), x.end(), X.begin());
  std::copy(b.begin(), b.end(), B.begin());
  return scaledResidual(A, X, B);
}

/// Bound on the scaled errors above that a backward-stable routine meets.
inline constexpr double kScaledBound = 30.0;

using ScalarTypes = ::testing::Types<double, dcomplex>;

}  // namespace qvtest
