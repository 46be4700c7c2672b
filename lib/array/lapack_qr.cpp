// QR factorisations and least-squares solvers (xGEQRF, xGEQP3, xORGQR /
// xUNGQR, xGELS, xGELSS).
#include <algorithm>
#include <cstring>

#include "backend/lapack.h"
#include "lapack_util.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using lapack::ld;
using lapack::toInt;

template <class T>
int qrT(Array<T, 2>& A, Array<T, 1>& tau, int flags) {
  const int m = toInt(A.sizes[0]), n = toInt(A.sizes[1]);
  tau.resize(static_cast<size_t>(std::min(m, n)));
  const int info = lapack::geqrf(m, n, A.data, ld(A.sizes[0]), tau.data);
  return lapack::checkInfo(info, flags, lapack::kSingular);
}

template <class T>
int qrPivotT(Array<T, 2>& A, Array<T, 1>& tau, Array<int, 1>& jpvt, int flags) {
  const int m = toInt(A.sizes[0]), n = toInt(A.sizes[1]);
  // A jpvt of the right length keeps its entries: non-zero ones mark
  // columns that LAPACK moves to the front. Otherwise every column is free.
  if (jpvt.count != A.sizes[1]) {
    jpvt.resize(A.sizes[1]);
    jpvt.fill(0);
  }
  tau.resize(static_cast<size_t>(std::min(m, n)));
  const int info = lapack::geqp3(m, n, A.data, ld(A.sizes[0]), jpvt.data, tau.data);
  return lapack::checkInfo(info, flags, lapack::kSingular);
}

template <class T>
int qrRT(Array<T, 2>& A, Array<int, 1>& jpvt) {
  Array<T, 1> tau;
  const int info = qrPivotT(A, tau, jpvt, RaiseAll);
  detail::zeroBelow(A, A.sizes[0], A.sizes[1], 0);
  return info;
}

template <class T>
int qT(Array<T, 2>& A, const Array<T, 1>& tau, int flags) {
  const size_t m = A.sizes[0], k = std::min(A.sizes[0], A.sizes[1]);
  const size_t reflectors = std::min(tau.count, k);
  const int info = lapack::orgqr(toInt(m), toInt(k), toInt(reflectors), A.data, ld(m), tau.data);
  detail::shrinkTo(A, m, k);
  return lapack::checkInfo(info, flags, lapack::kSingular);
}

template <class T>
int leastSquaresQRT(Array<T, 2>& A, Array<T, 2>& B, int flags) {
  const int m = toInt(A.sizes[0]), n = toInt(A.sizes[1]);
  const int info = lapack::gels('N', m, n, toInt(B.sizes[1]), A.data, ld(A.sizes[0]), B.data,
                                ld(B.sizes[0], std::max(m, n)));
  return lapack::checkInfo(info, flags, lapack::kSingular);
}

/// Copies the m×nrhs matrix B into the top of a rows×nrhs matrix whose
/// remaining rows are zero, as the least-squares routines want their
/// right-hand sides.
template <class T>
Array<T, 2> padRows(const Array<T, 2>& B, size_t rows) {
  Array<T, 2> W(rows, B.sizes[1]);
  W.fill(T(0));
  for (size_t j = 0; j < B.sizes[1]; ++j)
    std::memcpy(static_cast<void*>(&W(0, j)), &B(0, j), B.sizes[0] * sizeof(T));
  return W;
}

template <class T>
int leastSquaresQRResizeT(Array<T, 2>& A, Array<T, 2>& B, int flags) {
  QV_CHECK(B.sizes[0] == A.sizes[0], arrayutil, Internal_numerical_error,
           "leastSquaresQRResize: B does not have as many rows as A.");
  const size_t m = A.sizes[0], n = A.sizes[1];
  if (m < n) {
    Array<T, 2> W = padRows(B, n);
    B = std::move(W);
  }
  const int info = leastSquaresQRT(A, B, flags);
  detail::shrinkTo(B, n, B.sizes[1]);
  return info;
}

template <class T>
int leastSquaresT(const Array<T, 2>& A, const Array<T, 2>& B, Array<T, 2>& X, double rcond,
                  int flags, int* rank) {
  QV_CHECK(B.sizes[0] == A.sizes[0], arrayutil, Internal_numerical_error,
           "leastSquares: B does not have as many rows as A.");
  const size_t m = A.sizes[0], n = A.sizes[1];
  Array<T, 2> F(A);  // the routine destroys its matrix; A stays as it is
  Array<T, 2> W = padRows(B, std::max(m, n));
  Array<double, 1> s(std::min(m, n));
  int r = 0;
  const int info = lapack::gelss(toInt(m), toInt(n), toInt(B.sizes[1]), F.data, ld(m), W.data,
                                 ld(W.sizes[0]), s.data, rcond, r);
  if (rank) *rank = r;
  detail::shrinkTo(W, n, B.sizes[1]);
  X = std::move(W);
  return lapack::checkInfo(info, flags, lapack::kSvdFailed<T>);
}

}  // namespace

int qr(Array<double, 2>& A, Array<double, 1>& tau, int flags) { return qrT(A, tau, flags); }
int qr(Array<dcomplex, 2>& A, Array<dcomplex, 1>& tau, int flags) { return qrT(A, tau, flags); }
int qr(Array<double, 2>& A, Array<double, 1>& tau, Array<int, 1>& jpvt, int flags) {
  return qrPivotT(A, tau, jpvt, flags);
}
int qr(Array<dcomplex, 2>& A, Array<dcomplex, 1>& tau, Array<int, 1>& jpvt, int flags) {
  return qrPivotT(A, tau, jpvt, flags);
}
int qr(Array<double, 2>& A, Array<int, 1>& jpvt) { return qrRT(A, jpvt); }
int qr(Array<dcomplex, 2>& A, Array<int, 1>& jpvt) { return qrRT(A, jpvt); }

int q(Array<double, 2>& A, const Array<double, 1>& tau, int flags) { return qT(A, tau, flags); }
int q(Array<dcomplex, 2>& A, const Array<dcomplex, 1>& tau, int flags) { return qT(A, tau, flags); }

int leastSquaresQR(Array<double, 2>& A, Array<double, 2>& B, int flags) {
  return leastSquaresQRT(A, B, flags);
}
int leastSquaresQR(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, int flags) {
  return leastSquaresQRT(A, B, flags);
}
int leastSquaresQRResize(Array<double, 2>& A, Array<double, 2>& B, int flags) {
  return leastSquaresQRResizeT(A, B, flags);
}
int leastSquaresQRResize(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, int flags) {
  return leastSquaresQRResizeT(A, B, flags);
}

int leastSquares(const Array<double, 2>& A, const Array<double, 2>& B, Array<double, 2>& X,
                 double rcond, int flags, int* rank) {
  return leastSquaresT(A, B, X, rcond, flags, rank);
}
int leastSquares(const Array<dcomplex, 2>& A, const Array<dcomplex, 2>& B, Array<dcomplex, 2>& X,
                 double rcond, int flags, int* rank) {
  return leastSquaresT(A, B, X, rcond, flags, rank);
}

}  // namespace qvarray
