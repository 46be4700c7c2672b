#pragma once
// Naive dense linear algebra for test oracles: products, adjoints, norms and
// the LAPACK-style scaled errors built from them. Plain loops on purpose, so
// that a reconstruction never shares code with what it checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <string>
#include <type_traits>

#include "qvarray/array.h"
#include "qvarray/matriximpl.h"
#include "qvtest.h"

namespace qvtest {

using qvarray::Array;
using dcomplex = std::complex<double>;

inline constexpr double kEps = std::numeric_limits<double>::epsilon();

template <class T>
constexpr bool isComplex = !std::is_same_v<T, double>;

template <class T>
T conjOf(const T& x) {
  if constexpr (std::is_floating_point_v<T>) {
    return x;
  } else {
    return std::conj(x);
  }
}

/// long double, or complex long double for complex T: the kernels' oracles
/// sum in this wider type.
template <class T>
using Wide = std::conditional_t<isComplex<T>, std::complex<long double>, long double>;
inline long double wide(double v) { return v; }
inline std::complex<long double> wide(dcomplex v) { return {v.real(), v.imag()}; }

/// |a − b| relative to max(1, |b|), b a wide reference value.
template <class A, class B>
double relErr(A a, B b) {
  using std::abs;
  return static_cast<double>(abs(wide(a) - b) / std::max<long double>(1.0L, abs(b)));
}

/// A vector, or a column-major m×n matrix, with the given values.
template <class T>
Array<T, 1> vec(std::initializer_list<T> v) {
  Array<T, 1> x(v.size());
  std::copy(v.begin(), v.end(), x.begin());
  return x;
}
template <class T>
Array<T, 2> mat(size_t m, size_t n, std::initializer_list<T> v) {
  Array<T, 2> A(m, n);
  std::copy(v.begin(), v.end(), A.begin());
  return A;
}

template <class T, int N>
Array<dcomplex, N> toComplex(const Array<T, N>& A) {
  Array<dcomplex, N> C;
  if constexpr (N == 1)
    C.resize(A.sizes[0]);
  else
    C.resize(A.sizes[0], A.sizes[1]);
  std::copy(A.begin(), A.end(), C.begin());
  return C;
}

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

/// Column j of A.
template <class T>
Array<T, 1> column(const Array<T, 2>& A, size_t j) {
  Array<T, 1> c(A.sizes[0]);
  std::copy(&A(0, j), &A(0, j) + A.sizes[0], c.begin());
  return c;
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

/// ‖a − b‖ / ‖b‖ (absolute when b is zero).
template <class T, int N>
double relDiff(const Array<T, N>& a, const Array<T, N>& b) {
  EXPECT_EQ(a.count, b.count);
  if (a.count != b.count) return std::numeric_limits<double>::infinity();
  const double nb = normF(b);
  return normF(minus(a, b)) / (nb > 0 ? nb : 1.0);
}

/// Every value of `got` has a partner in `want` within tol (the same multiset
/// for well-separated values, in any order).
template <class A, class B>
void expectSameValues(const A& got, const B& want, double tol) {
  ASSERT_EQ(std::distance(got.begin(), got.end()), std::distance(want.begin(), want.end()));
  for (const auto& w : want) {
    double best = std::numeric_limits<double>::infinity();
    for (const auto& g : got) best = std::min(best, std::abs(dcomplex(g) - dcomplex(w)));
    EXPECT_LT(best, tol) << w;
  }
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

/// Random dense Matrix and Vector objects, real or complex.
inline qvarray::Matrix randomM(size_t m, size_t n, bool real, Rng& rng) {
  return real ? qvarray::Matrix(randomMatrix<double>(m, n, rng))
              : qvarray::Matrix(randomMatrix<dcomplex>(m, n, rng));
}
inline qvarray::Vector randomV(size_t n, bool real, Rng& rng) {
  return real ? qvarray::Vector(randomVector<double>(n, rng))
              : qvarray::Vector(randomVector<dcomplex>(n, rng));
}

/// Complex copies of a Matrix's or Vector's storage, for the oracles above.
inline Array<dcomplex, 2> Z(qvarray::Matrix A) {
  A.makeComplex();
  return A.getzArr();
}
inline Array<dcomplex, 1> Z(qvarray::Vector v) {
  v.makeComplex();
  return v.getzArr();
}

/// LAPACK's INFO convention for a wrapper called as call(flags) on fresh
/// copies of its inputs: without flags a failure comes back as INFO > 0, with
/// flag bit 1 it raises `key` (and `detail`, or INFO under the name `infoName`).
inline int expectFailure(const std::function<int(int)>& call, const std::string& key,
                         const std::string& detail, const char* infoName = nullptr) {
  const int info = call(0);
  EXPECT_GT(info, 0);
  const qvbase::Exception e = expectThrowKey([&] { call(1); }, key, detail);
  if (infoName) {
    EXPECT_EQ(e.detail(infoName), std::to_string(info));
  }
  return info;
}

/// An illegal argument: INFO < 0 without flags, raised with flag bit 2.
inline int expectIllegal(const std::function<int(int)>& call) {
  const int info = call(0);
  EXPECT_LT(info, 0);
  expectThrowKey([&] { call(2); }, "Internal_numerical_error",
                 "Illegal_input_values_in_LAPACK_call");
  return info;
}

/// Bound on the scaled errors above that a backward-stable routine meets.
inline constexpr double kScaledBound = 30.0;

using ScalarTypes = ::testing::Types<double, dcomplex>;

}  // namespace qvtest
