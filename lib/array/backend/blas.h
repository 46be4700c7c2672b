#pragma once
// The typed BLAS layer: the only place where BLAS is declared and called.
//
// Every routine is an overload on double and std::complex<double>, so the
// kernels never see the d/z prefixes. Arguments follow BLAS (column-major,
// int counts and increments, leading dimensions at least 1); complex scalars
// are passed by address as CBLAS requires.
//
// Transposition selectors are translated here, in one place. A value outside
// NoTrans/Trans/ConjTrans is an illegal argument: CBLAS would only print a
// message through xerbla and carry on, so the translation raises
// "Internal_numerical_error" / "Illegal_input_values_in_LAPACK_call" instead,
// before BLAS is entered and before any output is touched. On real data
// ConjTrans acts as Trans.
#include <cblas.h>

#include <climits>
#include <complex>
#include <cstddef>
#include <optional>

#include "qvarray/array.h"
#include "qvarray/blasruntime.h"
#include "qvarray/trans.h"
#include "qvutil/errors.h"

namespace qvarray::blas {

using dcomplex = std::complex<double>;

/// An extent as a BLAS int; only a programming error hands BLAS a matrix
/// or run with more than INT_MAX elements along one dimension.
inline int toInt(size_t v) {
  QV_ASSERT(v <= static_cast<size_t>(INT_MAX), arrayutil);
  return static_cast<int>(v);
}

/// Leading dimension of a column-major matrix with `rows` rows (at least 1).
inline int leadingDim(size_t rows) { return rows == 0 ? 1 : toInt(rows); }

/// CBLAS selector of t for element type T; raises on an illegal selector.
template <class T>
inline CBLAS_TRANSPOSE trans(Trans_t t) {
  switch (t) {
    case NoTrans: return CblasNoTrans;
    case Trans: return CblasTrans;
    case ConjTrans: return is_complex_v<T> ? CblasConjTrans : CblasTrans;
  }
  QV_RAISE(arrayutil, Internal_numerical_error, "Illegal_input_values_in_LAPACK_call");
}

// ---------------------------------------------------------------------------
// Level 1

/// Σ x·y
inline double dot(int n, const double* x, int incx, const double* y, int incy) {
  return cblas_ddot(n, x, incx, y, incy);
}
/// Σ x·y (unconjugated)
inline dcomplex dotu(int n, const dcomplex* x, int incx, const dcomplex* y, int incy) {
  dcomplex r;
  cblas_zdotu_sub(n, x, incx, y, incy, &r);
  return r;
}
/// Σ conj(x)·y
inline dcomplex dotc(int n, const dcomplex* x, int incx, const dcomplex* y, int incy) {
  dcomplex r;
  cblas_zdotc_sub(n, x, incx, y, incy, &r);
  return r;
}

/// y += a·x (incx = 0 adds the single value a·x[0] to every element)
inline void axpy(int n, double a, const double* x, int incx, double* y, int incy) {
  cblas_daxpy(n, a, x, incx, y, incy);
}
inline void axpy(int n, dcomplex a, const dcomplex* x, int incx, dcomplex* y, int incy) {
  cblas_zaxpy(n, &a, x, incx, y, incy);
}

/// x *= a
inline void scal(int n, double a, double* x, int incx) { cblas_dscal(n, a, x, incx); }
inline void scal(int n, double a, dcomplex* x, int incx) { cblas_zdscal(n, a, x, incx); }
inline void scal(int n, dcomplex a, dcomplex* x, int incx) { cblas_zscal(n, &a, x, incx); }

/// Euclidean norm, computed without overflow of the intermediate sum.
inline double nrm2(int n, const double* x, int incx) { return cblas_dnrm2(n, x, incx); }
inline double nrm2(int n, const dcomplex* x, int incx) { return cblas_dznrm2(n, x, incx); }

/// y = x
inline void copy(int n, const double* x, int incx, double* y, int incy) {
  cblas_dcopy(n, x, incx, y, incy);
}
inline void copy(int n, const dcomplex* x, int incx, dcomplex* y, int incy) {
  cblas_zcopy(n, x, incx, y, incy);
}

// ---------------------------------------------------------------------------
// Threads of the level-2 and level-3 calls: OpenBLAS (0.3.21) runs gemv from
// m·n ≥ 9216 and gemm from m·n·k > 262144 on its team; such calls go through
// BlasThreads, which keeps them on the calling thread while the team loses time.

inline constexpr double kTeamGemv = 9216.0;
inline constexpr double kTeamGemm = 262144.0;

// ---------------------------------------------------------------------------
// Level 2

/// y = alpha·op(A)·x + beta·y, A m×n with leading dimension lda.
inline void gemv(Trans_t t, int m, int n, double alpha, const double* A, int lda, const double* x,
                 int incx, double beta, double* y, int incy) {
  const double work = double(m) * n;
  std::optional<BlasThreads> threads;
  if (work >= kTeamGemv) threads.emplace(__PRETTY_FUNCTION__, work);
  cblas_dgemv(CblasColMajor, trans<double>(t), m, n, alpha, A, lda, x, incx, beta, y, incy);
}
inline void gemv(Trans_t t, int m, int n, dcomplex alpha, const dcomplex* A, int lda,
                 const dcomplex* x, int incx, dcomplex beta, dcomplex* y, int incy) {
  const double work = double(m) * n;
  std::optional<BlasThreads> threads;
  if (work >= kTeamGemv) threads.emplace(__PRETTY_FUNCTION__, work);
  cblas_zgemv(CblasColMajor, trans<dcomplex>(t), m, n, &alpha, A, lda, x, incx, &beta, y, incy);
}

/// Solves op(R)·z = x in place; R the upper or lower triangle of the n×n A.
inline void trsv(bool upper, Trans_t t, bool unitDiag, int n, const double* A, int lda, double* x,
                 int incx) {
  cblas_dtrsv(CblasColMajor, upper ? CblasUpper : CblasLower, trans<double>(t),
              unitDiag ? CblasUnit : CblasNonUnit, n, A, lda, x, incx);
}
inline void trsv(bool upper, Trans_t t, bool unitDiag, int n, const dcomplex* A, int lda,
                 dcomplex* x, int incx) {
  cblas_ztrsv(CblasColMajor, upper ? CblasUpper : CblasLower, trans<dcomplex>(t),
              unitDiag ? CblasUnit : CblasNonUnit, n, A, lda, x, incx);
}

// ---------------------------------------------------------------------------
// Level 3

/// C = alpha·op(A)·op(B) + beta·C, C m×n, inner dimension k. With beta = 0, C
/// is written without being read.
inline void gemm(Trans_t ta, Trans_t tb, int m, int n, int k, double alpha, const double* A,
                 int lda, const double* B, int ldb, double beta, double* C, int ldc) {
  const double work = double(m) * n * k;
  std::optional<BlasThreads> threads;
  if (work > kTeamGemm) threads.emplace(__PRETTY_FUNCTION__, work);
  cblas_dgemm(CblasColMajor, trans<double>(ta), trans<double>(tb), m, n, k, alpha, A, lda, B, ldb,
              beta, C, ldc);
}
inline void gemm(Trans_t ta, Trans_t tb, int m, int n, int k, dcomplex alpha, const dcomplex* A,
                 int lda, const dcomplex* B, int ldb, dcomplex beta, dcomplex* C, int ldc) {
  const double work = double(m) * n * k;
  std::optional<BlasThreads> threads;
  if (work > kTeamGemm) threads.emplace(__PRETTY_FUNCTION__, work);
  cblas_zgemm(CblasColMajor, trans<dcomplex>(ta), trans<dcomplex>(tb), m, n, k, &alpha, A, lda, B,
              ldb, &beta, C, ldc);
}

}  // namespace qvarray::blas
