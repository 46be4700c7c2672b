// Hessenberg and Schur forms (xGEHRD, xORGHR / xUNGHR, xGGHRD, xHSEQR,
// xTRSEN) and polynomial roots through the companion matrix.
#include "backend/lapack.h"
#include "lapack_util.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using lapack::ld;
using lapack::toInt;

/// dtrsen cannot separate eigenvalues that lie too close together.
constexpr lapack::Failure kReorderFailed{qvbase::ErrKey::Error_in_LAPACK_call, "Reordering_failed"};

/// Reduces the n×n matrix A to Hessenberg form H = Qᴴ·A·Q in place; Q is
/// formed when wanted. Returns INFO of the first routine that failed.
template <class T>
int reduceToHessenberg(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ) {
  const size_t n = A.sizes[0];
  Array<T, 1> tau(n > 1 ? n - 1 : 1);
  const int in = toInt(n);
  int info = lapack::gehrd(in, 1, in, A.data, ld(n), tau.data);
  if (info != 0) return info;
  if (wantQ) {
    Q = A;
    info = lapack::orghr(in, 1, in, Q.data, ld(n), tau.data);
  }
  detail::zeroBelow(A, n, n, 1);
  return info;
}

template <class T>
int hessT(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ, int flags) {
  QV_CHECK(A.sizes[0] == A.sizes[1], arrayutil, Internal_numerical_error, "hess: A is not square.");
  return lapack::checkInfo(reduceToHessenberg(A, Q, wantQ), flags, lapack::kSingular);
}

template <class T>
int generalizedHessT(Array<T, 2>& A, Array<T, 2>& B, Array<T, 2>& Q, Array<T, 2>& Z, int flags) {
  QV_CHECK(A.sizes[0] == A.sizes[1] && B.sizes[0] == A.sizes[0] && B.sizes[1] == A.sizes[0],
           arrayutil, Internal_numerical_error,
           "generalizedHess: A and B are not square matrices of the same size.");
  const size_t n = A.sizes[0];
  const int in = toInt(n), ldn = ld(n);
  // B = Q₀·R, then A ← Q₀ᴴ·A, so that the pencil becomes (Q₀ᴴ·A, R).
  Array<T, 1> tau(n);
  int info = lapack::geqrf(in, in, B.data, ldn, tau.data);
  if (info == 0) info = lapack::ormqr('L', 'C', in, in, in, B.data, ldn, tau.data, A.data, ldn);
  if (info == 0) {
    Q = B;
    info = lapack::orgqr(in, in, in, Q.data, ldn, tau.data);
  }
  if (info != 0) return lapack::checkInfo(info, flags, lapack::kQZFailed);
  detail::zeroBelow(B, n, n, 0);
  // Rotations from both sides bring Q₀ᴴ·A to Hessenberg form and keep R
  // triangular; they accumulate into Q (starting from Q₀) and Z.
  Z.resize(n, n);
  info = lapack::gghrd('V', 'I', in, 1, in, A.data, ldn, B.data, ldn, Q.data, ldn, Z.data, ldn);
  return lapack::checkInfo(info, flags, lapack::kQZFailed);
}

template <class T>
int schurT(Array<T, 2>& A, Array<T, 2>& Q, bool wantQ, int flags) {
  QV_CHECK(A.sizes[0] == A.sizes[1], arrayutil, Internal_numerical_error,
           "schur: A is not square.");
  const size_t n = A.sizes[0];
  int info = reduceToHessenberg(A, Q, wantQ);
  if (info != 0) return lapack::checkInfo(info, flags, lapack::kQRFailed);
  // Eigenvalues (the real routine splits them into real and imaginary parts).
  constexpr bool real = std::is_same_v<T, double>;
  Array<T, 1> w(n);
  Array<double, 1> wi(real ? n : 0);
  T dummy[1] = {T(0)};
  const char compz = wantQ ? 'V' : 'N';
  T* z = wantQ ? Q.data : dummy;
  const int ldz = wantQ ? ld(n) : 1;
  if constexpr (real)
    info = lapack::hseqr('S', compz, toInt(n), 1, toInt(n), A.data, ld(n), w.data, wi.data, z, ldz);
  else
    info = lapack::hseqr('S', compz, toInt(n), 1, toInt(n), A.data, ld(n), w.data, z, ldz);
  return lapack::checkInfo(info, flags, lapack::kQRFailed);
}

template <class T>
int ordschurT(Array<T, 2>& T_, Array<T, 2>& Q, const Array<int, 1>& select, int flags) {
  const size_t n = T_.sizes[0];
  QV_CHECK(T_.sizes[1] == n && Q.sizes[0] == n && Q.sizes[1] == n && select.count >= n, arrayutil,
           Internal_numerical_error,
           "ordschur: T and Q are not square matrices of the same size or select is "
           "shorter than T.");
  // LAPACK's LOGICAL wants exactly 0 or 1.
  Array<int, 1> sel(n);
  for (size_t i = 0; i < n; ++i) sel[i] = select[i] != 0 ? 1 : 0;
  constexpr bool real = std::is_same_v<T, double>;
  Array<T, 1> w(n);
  Array<double, 1> wi(real ? n : 0);
  int m = 0;
  int info;
  if constexpr (real)
    info =
        lapack::trsen('V', sel.data, toInt(n), T_.data, ld(n), Q.data, ld(n), w.data, wi.data, m);
  else
    info = lapack::trsen('V', sel.data, toInt(n), T_.data, ld(n), Q.data, ld(n), w.data, m);
  return lapack::checkInfo(info, flags, kReorderFailed);
}

/// Companion matrix of c[first]·x^d + … + c[first + d], whose eigenvalues
/// are the polynomial's roots: first row −c[first + 1 + j] / c[first], ones
/// on the subdiagonal.
template <class T>
Array<T, 2> companion(const Array<T, 1>& c, size_t first, size_t d) {
  Array<T, 2> C(d, d);
  C.fill(T(0));
  for (size_t j = 0; j < d; ++j) C(0, j) = -c[first + 1 + j] / c[first];
  for (size_t i = 1; i < d; ++i) C(i, i - 1) = T(1);
  return C;
}

/// Index of the leading non-zero coefficient, and the degree it gives.
template <class T>
size_t degree(const Array<T, 1>& c, size_t& first) {
  first = 0;
  while (first < c.count && c[first] == T(0)) ++first;
  return first + 1 < c.count ? c.count - first - 1 : 0;
}

}  // namespace

int hess(Array<double, 2>& A, Array<double, 2>& Q, bool wantQ, int flags) {
  return hessT(A, Q, wantQ, flags);
}
int hess(Array<dcomplex, 2>& A, Array<dcomplex, 2>& Q, bool wantQ, int flags) {
  return hessT(A, Q, wantQ, flags);
}

int generalizedHess(Array<double, 2>& A, Array<double, 2>& B, Array<double, 2>& Q,
                    Array<double, 2>& Z, int flags) {
  return generalizedHessT(A, B, Q, Z, flags);
}
int generalizedHess(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, Array<dcomplex, 2>& Q,
                    Array<dcomplex, 2>& Z, int flags) {
  return generalizedHessT(A, B, Q, Z, flags);
}

int schur(Array<double, 2>& A, Array<double, 2>& Q, bool wantQ, int flags) {
  return schurT(A, Q, wantQ, flags);
}
int schur(Array<dcomplex, 2>& A, Array<dcomplex, 2>& Q, bool wantQ, int flags) {
  return schurT(A, Q, wantQ, flags);
}

int ordschur(Array<double, 2>& T, Array<double, 2>& Q, const Array<int, 1>& select, int flags) {
  return ordschurT(T, Q, select, flags);
}
int ordschur(Array<dcomplex, 2>& T, Array<dcomplex, 2>& Q, const Array<int, 1>& select, int flags) {
  return ordschurT(T, Q, select, flags);
}

int roots(const Array<double, 1>& c, Array<double, 1>& re, Array<double, 1>& im, int flags) {
  size_t first = 0;
  const size_t d = degree(c, first);
  Array<double, 2> C = companion(c, first, d);
  return eig(C, re, im, flags);
}

int roots(const Array<dcomplex, 1>& c, Array<dcomplex, 1>& r, int flags) {
  size_t first = 0;
  const size_t d = degree(c, first);
  Array<dcomplex, 2> C = companion(c, first, d);
  return eig(C, r, flags);
}

}  // namespace qvarray
