#pragma once
// The typed LAPACK layer: the one place where LAPACK routines are declared and
// called. Each routine is wrapped as an overload on double and
// std::complex<double> in namespace qvarray::lapack, returning INFO.
//
// What the layer does once for every caller:
// - workspace: routines with a work array are called twice, first as a size
//   query (lwork = -1), then with a work array of the reported size
//   (callWithWorkspace);
// - INFO: checkInfo turns INFO into the library's error convention;
// - threads: problems below kSerialBelow run their BLAS/LAPACK calls on the
//   calling thread only (SmallProblem), because a second BLAS thread makes
//   small factorisations and solves slower.
//
// Declarations follow the gfortran calling convention: every argument by
// address, and one hidden character length (size_t) per character argument,
// appended after the visible arguments. LOGICAL is a 4-byte int.
#include <algorithm>
#include <climits>
#include <complex>
#include <cstddef>
#include <memory>
#include <optional>
#include <source_location>
#include <type_traits>

#include "qvarray/arrayutil.h"
#include "qvarray/blasruntime.h"
#include "qvutil/errors.h"
#include "qvutil/exception.h"

extern "C" {
using qv_z = std::complex<double>;

void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void zgetrf_(const int* m, const int* n, qv_z* a, const int* lda, int* ipiv, int* info);
void dgetrs_(const char* trans, const int* n, const int* nrhs, const double* a, const int* lda,
             const int* ipiv, double* b, const int* ldb, int* info, size_t);
void zgetrs_(const char* trans, const int* n, const int* nrhs, const qv_z* a, const int* lda,
             const int* ipiv, qv_z* b, const int* ldb, int* info, size_t);
void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv, double* b,
            const int* ldb, int* info);
void zgesv_(const int* n, const int* nrhs, qv_z* a, const int* lda, int* ipiv, qv_z* b,
            const int* ldb, int* info);
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info, size_t);
void zpotrf_(const char* uplo, const int* n, qv_z* a, const int* lda, int* info, size_t);

void dgeqrf_(const int* m, const int* n, double* a, const int* lda, double* tau, double* work,
             const int* lwork, int* info);
void zgeqrf_(const int* m, const int* n, qv_z* a, const int* lda, qv_z* tau, qv_z* work,
             const int* lwork, int* info);
void dgeqp3_(const int* m, const int* n, double* a, const int* lda, int* jpvt, double* tau,
             double* work, const int* lwork, int* info);
void zgeqp3_(const int* m, const int* n, qv_z* a, const int* lda, int* jpvt, qv_z* tau, qv_z* work,
             const int* lwork, double* rwork, int* info);
void dorgqr_(const int* m, const int* n, const int* k, double* a, const int* lda, const double* tau,
             double* work, const int* lwork, int* info);
void zungqr_(const int* m, const int* n, const int* k, qv_z* a, const int* lda, const qv_z* tau,
             qv_z* work, const int* lwork, int* info);
void dormqr_(const char* side, const char* trans, const int* m, const int* n, const int* k,
             const double* a, const int* lda, const double* tau, double* c, const int* ldc,
             double* work, const int* lwork, int* info, size_t, size_t);
void zunmqr_(const char* side, const char* trans, const int* m, const int* n, const int* k,
             const qv_z* a, const int* lda, const qv_z* tau, qv_z* c, const int* ldc, qv_z* work,
             const int* lwork, int* info, size_t, size_t);
void dgels_(const char* trans, const int* m, const int* n, const int* nrhs, double* a,
            const int* lda, double* b, const int* ldb, double* work, const int* lwork, int* info,
            size_t);
void zgels_(const char* trans, const int* m, const int* n, const int* nrhs, qv_z* a, const int* lda,
            qv_z* b, const int* ldb, qv_z* work, const int* lwork, int* info, size_t);
void dgelss_(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b,
             const int* ldb, double* s, const double* rcond, int* rank, double* work,
             const int* lwork, int* info);
void zgelss_(const int* m, const int* n, const int* nrhs, qv_z* a, const int* lda, qv_z* b,
             const int* ldb, double* s, const double* rcond, int* rank, qv_z* work,
             const int* lwork, double* rwork, int* info);

void dgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, double* a,
             const int* lda, double* s, double* u, const int* ldu, double* vt, const int* ldvt,
             double* work, const int* lwork, int* info, size_t, size_t);
void zgesvd_(const char* jobu, const char* jobvt, const int* m, const int* n, qv_z* a,
             const int* lda, double* s, qv_z* u, const int* ldu, qv_z* vt, const int* ldvt,
             qv_z* work, const int* lwork, double* rwork, int* info, size_t, size_t);

void dspevx_(const char* jobz, const char* range, const char* uplo, const int* n, double* ap,
             const double* vl, const double* vu, const int* il, const int* iu, const double* abstol,
             int* m, double* w, double* z, const int* ldz, double* work, int* iwork, int* ifail,
             int* info, size_t, size_t, size_t);
void dgeev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda,
            double* wr, double* wi, double* vl, const int* ldvl, double* vr, const int* ldvr,
            double* work, const int* lwork, int* info, size_t, size_t);
void zgeev_(const char* jobvl, const char* jobvr, const int* n, qv_z* a, const int* lda, qv_z* w,
            qv_z* vl, const int* ldvl, qv_z* vr, const int* ldvr, qv_z* work, const int* lwork,
            double* rwork, int* info, size_t, size_t);
void dggev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda,
            double* b, const int* ldb, double* alphar, double* alphai, double* beta, double* vl,
            const int* ldvl, double* vr, const int* ldvr, double* work, const int* lwork, int* info,
            size_t, size_t);
void zggev_(const char* jobvl, const char* jobvr, const int* n, qv_z* a, const int* lda, qv_z* b,
            const int* ldb, qv_z* alpha, qv_z* beta, qv_z* vl, const int* ldvl, qv_z* vr,
            const int* ldvr, qv_z* work, const int* lwork, double* rwork, int* info, size_t,
            size_t);
void dggevx_(const char* balanc, const char* jobvl, const char* jobvr, const char* sense,
             const int* n, double* a, const int* lda, double* b, const int* ldb, double* alphar,
             double* alphai, double* beta, double* vl, const int* ldvl, double* vr, const int* ldvr,
             int* ilo, int* ihi, double* lscale, double* rscale, double* abnrm, double* bbnrm,
             double* rconde, double* rcondv, double* work, const int* lwork, int* iwork, int* bwork,
             int* info, size_t, size_t, size_t, size_t);

void dgehrd_(const int* n, const int* ilo, const int* ihi, double* a, const int* lda, double* tau,
             double* work, const int* lwork, int* info);
void zgehrd_(const int* n, const int* ilo, const int* ihi, qv_z* a, const int* lda, qv_z* tau,
             qv_z* work, const int* lwork, int* info);
void dorghr_(const int* n, const int* ilo, const int* ihi, double* a, const int* lda,
             const double* tau, double* work, const int* lwork, int* info);
void zunghr_(const int* n, const int* ilo, const int* ihi, qv_z* a, const int* lda, const qv_z* tau,
             qv_z* work, const int* lwork, int* info);
void dgghrd_(const char* compq, const char* compz, const int* n, const int* ilo, const int* ihi,
             double* a, const int* lda, double* b, const int* ldb, double* q, const int* ldq,
             double* z, const int* ldz, int* info, size_t, size_t);
void zgghrd_(const char* compq, const char* compz, const int* n, const int* ilo, const int* ihi,
             qv_z* a, const int* lda, qv_z* b, const int* ldb, qv_z* q, const int* ldq, qv_z* z,
             const int* ldz, int* info, size_t, size_t);
void dhseqr_(const char* job, const char* compz, const int* n, const int* ilo, const int* ihi,
             double* h, const int* ldh, double* wr, double* wi, double* z, const int* ldz,
             double* work, const int* lwork, int* info, size_t, size_t);
void zhseqr_(const char* job, const char* compz, const int* n, const int* ilo, const int* ihi,
             qv_z* h, const int* ldh, qv_z* w, qv_z* z, const int* ldz, qv_z* work,
             const int* lwork, int* info, size_t, size_t);
void dtrsen_(const char* job, const char* compq, const int* select, const int* n, double* t,
             const int* ldt, double* q, const int* ldq, double* wr, double* wi, int* m, double* s,
             double* sep, double* work, const int* lwork, int* iwork, const int* liwork, int* info,
             size_t, size_t);
void ztrsen_(const char* job, const char* compq, const int* select, const int* n, qv_z* t,
             const int* ldt, qv_z* q, const int* ldq, qv_z* w, int* m, double* s, double* sep,
             qv_z* work, const int* lwork, int* info, size_t, size_t);

void dgbtrf_(const int* m, const int* n, const int* kl, const int* ku, double* ab, const int* ldab,
             int* ipiv, int* info);
void zgbtrf_(const int* m, const int* n, const int* kl, const int* ku, qv_z* ab, const int* ldab,
             int* ipiv, int* info);
void dgbtrs_(const char* trans, const int* n, const int* kl, const int* ku, const int* nrhs,
             const double* ab, const int* ldab, const int* ipiv, double* b, const int* ldb,
             int* info, size_t);
void zgbtrs_(const char* trans, const int* n, const int* kl, const int* ku, const int* nrhs,
             const qv_z* ab, const int* ldab, const int* ipiv, qv_z* b, const int* ldb, int* info,
             size_t);
}  // extern "C"

namespace qvarray::lapack {

using dcomplex = std::complex<double>;

// ---------------------------------------------------------------------------
// Sizes.

/// A size as LAPACK's int; sizes beyond int's range are a programming error.
inline int toInt(size_t n) {
  QV_ASSERT(n <= static_cast<size_t>(INT_MAX), arrayutil);
  return static_cast<int>(n);
}

/// Leading dimension of a matrix with `rows` rows whose row count is also the
/// routine's own dimension: LAPACK wants at least 1 even for an empty matrix.
inline int ld(size_t rows) { return std::max(1, toInt(rows)); }

/// Leading dimension of an array with `rows` rows where the routine needs at
/// least `needed`. An empty array stays 0 unless nothing is needed, so that
/// LAPACK rejects it rather than writing into storage that does not exist.
inline int ld(size_t rows, int needed) { return rows == 0 && needed <= 0 ? 1 : toInt(rows); }

// ---------------------------------------------------------------------------
// INFO.

/// What a positive INFO means for the routine that returned it: the key raised
/// under flag bit 1 and its detail, either a plain text or INFO itself as a
/// named integer.
/// The layer raises on behalf of the dense kernels, at the caller's line.
inline constexpr qvbase::ErrModule kModule = qvbase::ErrModule::arrayutil;

struct Failure {
  qvbase::ErrKey key;
  const char* detail = nullptr;
  const char* infoName = nullptr;
  /// Any non-zero INFO raises `key` as soon as any flag bit is set.
  bool anyInfoAnyFlag = false;
};

inline constexpr Failure kSingular{qvbase::ErrKey::Error_in_LAPACK_call, "Singular_matrix"};
inline constexpr Failure kQRFailed{qvbase::ErrKey::Iteration_in_the_QR_algorithm_failed, nullptr,
                                   "Iteration"};
inline constexpr Failure kQZFailed{qvbase::ErrKey::Iteration_in_the_QZ_algorithm_failed, nullptr,
                                   "Iteration"};
inline constexpr Failure kNotPositiveDefinite{
    qvbase::ErrKey::Input_matrix_must_be_positive_definite, nullptr, nullptr, true};

/// The singular-value iteration's key names the real or complex routine.
template <class T>
inline constexpr Failure kSvdFailed{std::is_same_v<T, double>
                                        ? qvbase::ErrKey::DBDSQR_did_not_converge
                                        : qvbase::ErrKey::ZBDSQR_did_not_converge,
                                    nullptr, "Unconverged_superdiagonals"};

/// Applies the flag word to INFO: bit value 2 raises on INFO < 0
/// ("Internal_numerical_error" / "Illegal_input_values_in_LAPACK_call"), bit
/// value 1 on INFO > 0 (the routine's failure). Returns INFO otherwise.
inline int checkInfo(int info, int flags, const Failure& failure,
                     std::source_location where = std::source_location::current()) {
  const int line = static_cast<int>(where.line());
  if (failure.anyInfoAnyFlag) {
    if (info != 0 && flags != 0) qvbase::raise(kModule, line, failure.key);
    return info;
  }
  if (info < 0 && (flags & RaiseOnIllegal))
    qvbase::raise(kModule, line, qvbase::ErrKey::Internal_numerical_error,
                  "Illegal_input_values_in_LAPACK_call");
  if (info > 0 && (flags & RaiseOnFailure)) {
    if (failure.infoName)
      qvbase::raise(kModule, line, failure.key, failure.infoName, static_cast<std::int64_t>(info));
    if (failure.detail) qvbase::raise(kModule, line, failure.key, failure.detail);
    qvbase::raise(kModule, line, failure.key);
  }
  return info;
}

// ---------------------------------------------------------------------------
// Threads.

/// Problems whose largest dimension is below this run on the calling thread
/// only. Measured on two cores (OpenBLAS 0.3.21, OpenMP): a second thread
/// makes xGESV slower up to about n = 100 and pays from n ≈ 200 on; xPOTRF
/// and xGEQRF gain only from n ≈ 250 on, and xPOTRF at n = 64 takes twice as
/// long with two threads.
inline constexpr int kSerialBelow = 200;

/// Keeps BLAS/LAPACK on the calling thread while alive when the problem's
/// largest dimension is below kSerialBelow; larger problems use the team when
/// it pays now (BlasThreads, keyed by the calling routine, work size³).
class SmallProblem {
 public:
  explicit SmallProblem(int size, std::source_location where = std::source_location::current()) {
    if (size < kSerialBelow)
      serial_.emplace();
    else
      threads_.emplace(where.function_name(), double(size) * size * size);
  }

 private:
  std::optional<SerialBlasScope> serial_;
  std::optional<BlasThreads> threads_;
};

// ---------------------------------------------------------------------------
// Workspace.

/// Calls routine(work, lwork, info) first as a workspace query (lwork = -1,
/// one-element work array), then with a work array of the optimal size; the
/// one-element array serves again when that size is 1. Returns INFO (of the
/// query when that already failed).
template <class T, class Routine>
int callWithWorkspace(Routine&& routine) {
  T query[1] = {T(0)};
  int info = 0;
  routine(query, -1, info);
  if (info != 0) return info;
  const double optimal = std::min(std::real(query[0]), static_cast<double>(INT_MAX));
  const int lwork = std::max(1, static_cast<int>(optimal));
  if (lwork == 1) {
    routine(query, 1, info);
    return info;
  }
  auto work = std::make_unique_for_overwrite<T[]>(static_cast<size_t>(lwork));
  routine(work.get(), lwork, info);
  return info;
}

/// Scratch array of n elements (at least one) for the fixed-size work arrays.
template <class T>
std::unique_ptr<T[]> scratch(int n) {
  return std::make_unique<T[]>(static_cast<size_t>(std::max(1, n)));
}

// ---------------------------------------------------------------------------
// LU, Cholesky, linear systems.

inline int getrf(int m, int n, double* a, int lda, int* ipiv) {
  SmallProblem small(std::max(m, n));
  int info = 0;
  dgetrf_(&m, &n, a, &lda, ipiv, &info);
  return info;
}
inline int getrf(int m, int n, dcomplex* a, int lda, int* ipiv) {
  SmallProblem small(std::max(m, n));
  int info = 0;
  zgetrf_(&m, &n, a, &lda, ipiv, &info);
  return info;
}

/// The argument checks of xGETRS. OpenBLAS's own xGETRS reports an illegal
/// argument through XERBLA but leaves INFO at what it was, so the layer makes
/// them itself and does not call the routine when one fails.
inline int getrsArgumentInfo(char trans, int n, int nrhs, int lda, int ldb) {
  if (trans != 'N' && trans != 'T' && trans != 'C') return -1;
  if (n < 0) return -2;
  if (nrhs < 0) return -3;
  if (lda < std::max(1, n)) return -5;
  if (ldb < std::max(1, n)) return -8;
  return 0;
}

inline int getrs(char trans, int n, int nrhs, const double* a, int lda, const int* ipiv, double* b,
                 int ldb) {
  if (int illegal = getrsArgumentInfo(trans, n, nrhs, lda, ldb)) return illegal;
  SmallProblem small(n);
  int info = 0;
  dgetrs_(&trans, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info, 1);
  return info;
}
inline int getrs(char trans, int n, int nrhs, const dcomplex* a, int lda, const int* ipiv,
                 dcomplex* b, int ldb) {
  if (int illegal = getrsArgumentInfo(trans, n, nrhs, lda, ldb)) return illegal;
  SmallProblem small(n);
  int info = 0;
  zgetrs_(&trans, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info, 1);
  return info;
}

inline int gesv(int n, int nrhs, double* a, int lda, int* ipiv, double* b, int ldb) {
  SmallProblem small(n);
  int info = 0;
  dgesv_(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}
inline int gesv(int n, int nrhs, dcomplex* a, int lda, int* ipiv, dcomplex* b, int ldb) {
  SmallProblem small(n);
  int info = 0;
  zgesv_(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info);
  return info;
}

inline int potrf(char uplo, int n, double* a, int lda) {
  SmallProblem small(n);
  int info = 0;
  dpotrf_(&uplo, &n, a, &lda, &info, 1);
  return info;
}
inline int potrf(char uplo, int n, dcomplex* a, int lda) {
  SmallProblem small(n);
  int info = 0;
  zpotrf_(&uplo, &n, a, &lda, &info, 1);
  return info;
}

// ---------------------------------------------------------------------------
// QR and least squares.

inline int geqrf(int m, int n, double* a, int lda, double* tau) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<double>(
      [&](double* w, int lw, int& info) { dgeqrf_(&m, &n, a, &lda, tau, w, &lw, &info); });
}
inline int geqrf(int m, int n, dcomplex* a, int lda, dcomplex* tau) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<dcomplex>(
      [&](dcomplex* w, int lw, int& info) { zgeqrf_(&m, &n, a, &lda, tau, w, &lw, &info); });
}

inline int geqp3(int m, int n, double* a, int lda, int* jpvt, double* tau) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<double>(
      [&](double* w, int lw, int& info) { dgeqp3_(&m, &n, a, &lda, jpvt, tau, w, &lw, &info); });
}
inline int geqp3(int m, int n, dcomplex* a, int lda, int* jpvt, dcomplex* tau) {
  SmallProblem small(std::max(m, n));
  auto rwork = scratch<double>(2 * n);
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zgeqp3_(&m, &n, a, &lda, jpvt, tau, w, &lw, rwork.get(), &info);
  });
}

/// Forms the m×n matrix Q of k reflectors (xORGQR / xUNGQR).
inline int orgqr(int m, int n, int k, double* a, int lda, const double* tau) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<double>(
      [&](double* w, int lw, int& info) { dorgqr_(&m, &n, &k, a, &lda, tau, w, &lw, &info); });
}
inline int orgqr(int m, int n, int k, dcomplex* a, int lda, const dcomplex* tau) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<dcomplex>(
      [&](dcomplex* w, int lw, int& info) { zungqr_(&m, &n, &k, a, &lda, tau, w, &lw, &info); });
}

/// C = op(Q)·C or C·op(Q) with Q given by k reflectors (xORMQR / xUNMQR);
/// trans 'C' means the (conjugate) transpose for both element types.
inline int ormqr(char side, char trans, int m, int n, int k, const double* a, int lda,
                 const double* tau, double* c, int ldc) {
  SmallProblem small(std::max(m, n));
  const char t = trans == 'C' ? 'T' : trans;
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dormqr_(&side, &t, &m, &n, &k, a, &lda, tau, c, &ldc, w, &lw, &info, 1, 1);
  });
}
inline int ormqr(char side, char trans, int m, int n, int k, const dcomplex* a, int lda,
                 const dcomplex* tau, dcomplex* c, int ldc) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zunmqr_(&side, &trans, &m, &n, &k, a, &lda, tau, c, &ldc, w, &lw, &info, 1, 1);
  });
}

inline int gels(char trans, int m, int n, int nrhs, double* a, int lda, double* b, int ldb) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dgels_(&trans, &m, &n, &nrhs, a, &lda, b, &ldb, w, &lw, &info, 1);
  });
}
inline int gels(char trans, int m, int n, int nrhs, dcomplex* a, int lda, dcomplex* b, int ldb) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zgels_(&trans, &m, &n, &nrhs, a, &lda, b, &ldb, w, &lw, &info, 1);
  });
}

inline int gelss(int m, int n, int nrhs, double* a, int lda, double* b, int ldb, double* s,
                 double rcond, int& rank) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dgelss_(&m, &n, &nrhs, a, &lda, b, &ldb, s, &rcond, &rank, w, &lw, &info);
  });
}
inline int gelss(int m, int n, int nrhs, dcomplex* a, int lda, dcomplex* b, int ldb, double* s,
                 double rcond, int& rank) {
  SmallProblem small(std::max(m, n));
  auto rwork = scratch<double>(5 * std::min(m, n));
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zgelss_(&m, &n, &nrhs, a, &lda, b, &ldb, s, &rcond, &rank, w, &lw, rwork.get(), &info);
  });
}

// ---------------------------------------------------------------------------
// Singular values.

inline int gesvd(char jobu, char jobvt, int m, int n, double* a, int lda, double* s, double* u,
                 int ldu, double* vt, int ldvt) {
  SmallProblem small(std::max(m, n));
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dgesvd_(&jobu, &jobvt, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, w, &lw, &info, 1, 1);
  });
}
inline int gesvd(char jobu, char jobvt, int m, int n, dcomplex* a, int lda, double* s, dcomplex* u,
                 int ldu, dcomplex* vt, int ldvt) {
  SmallProblem small(std::max(m, n));
  auto rwork = scratch<double>(5 * std::min(m, n));
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zgesvd_(&jobu, &jobvt, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, w, &lw, rwork.get(), &info, 1,
            1);
  });
}

// ---------------------------------------------------------------------------
// Eigenvalues.

/// Packed symmetric eigenproblem (DSPEVX); fixed-size workspace, no query.
inline int spevx(char jobz, char range, char uplo, int n, double* ap, double vl, double vu, int il,
                 int iu, double abstol, int& m, double* w, double* z, int ldz, int* ifail) {
  SmallProblem small(n);
  auto work = scratch<double>(8 * n);
  auto iwork = scratch<int>(5 * n);
  int info = 0;
  dspevx_(&jobz, &range, &uplo, &n, ap, &vl, &vu, &il, &iu, &abstol, &m, w, z, &ldz, work.get(),
          iwork.get(), ifail, &info, 1, 1, 1);
  return info;
}

inline int geev(char jobvl, char jobvr, int n, double* a, int lda, double* wr, double* wi,
                double* vl, int ldvl, double* vr, int ldvr) {
  SmallProblem small(n);
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dgeev_(&jobvl, &jobvr, &n, a, &lda, wr, wi, vl, &ldvl, vr, &ldvr, w, &lw, &info, 1, 1);
  });
}
inline int geev(char jobvl, char jobvr, int n, dcomplex* a, int lda, dcomplex* ev, dcomplex* vl,
                int ldvl, dcomplex* vr, int ldvr) {
  SmallProblem small(n);
  auto rwork = scratch<double>(2 * n);
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zgeev_(&jobvl, &jobvr, &n, a, &lda, ev, vl, &ldvl, vr, &ldvr, w, &lw, rwork.get(), &info, 1, 1);
  });
}

inline int ggev(char jobvl, char jobvr, int n, double* a, int lda, double* b, int ldb,
                double* alphar, double* alphai, double* beta, double* vl, int ldvl, double* vr,
                int ldvr) {
  SmallProblem small(n);
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dggev_(&jobvl, &jobvr, &n, a, &lda, b, &ldb, alphar, alphai, beta, vl, &ldvl, vr, &ldvr, w, &lw,
           &info, 1, 1);
  });
}
inline int ggev(char jobvl, char jobvr, int n, dcomplex* a, int lda, dcomplex* b, int ldb,
                dcomplex* alpha, dcomplex* beta, dcomplex* vl, int ldvl, dcomplex* vr, int ldvr) {
  SmallProblem small(n);
  auto rwork = scratch<double>(8 * n);
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zggev_(&jobvl, &jobvr, &n, a, &lda, b, &ldb, alpha, beta, vl, &ldvl, vr, &ldvr, w, &lw,
           rwork.get(), &info, 1, 1);
  });
}

/// Generalised eigenproblem with balancing (DGGEVX), no left vectors and no
/// condition numbers.
inline int ggevx(char balanc, char jobvr, int n, double* a, int lda, double* b, int ldb,
                 double* alphar, double* alphai, double* beta, double* vr, int ldvr) {
  SmallProblem small(n);
  const char jobvl = 'N', sense = 'N';
  double vl[1];
  const int ldvl = 1;
  int ilo = 0, ihi = 0;
  double abnrm = 0, bbnrm = 0;
  auto lscale = scratch<double>(n), rscale = scratch<double>(n);
  auto rconde = scratch<double>(n), rcondv = scratch<double>(n);
  auto iwork = scratch<int>(n + 6), bwork = scratch<int>(n);
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dggevx_(&balanc, &jobvl, &jobvr, &sense, &n, a, &lda, b, &ldb, alphar, alphai, beta, vl, &ldvl,
            vr, &ldvr, &ilo, &ihi, lscale.get(), rscale.get(), &abnrm, &bbnrm, rconde.get(),
            rcondv.get(), w, &lw, iwork.get(), bwork.get(), &info, 1, 1, 1, 1);
  });
}

// ---------------------------------------------------------------------------
// Hessenberg and Schur forms.

inline int gehrd(int n, int ilo, int ihi, double* a, int lda, double* tau) {
  SmallProblem small(n);
  return callWithWorkspace<double>(
      [&](double* w, int lw, int& info) { dgehrd_(&n, &ilo, &ihi, a, &lda, tau, w, &lw, &info); });
}
inline int gehrd(int n, int ilo, int ihi, dcomplex* a, int lda, dcomplex* tau) {
  SmallProblem small(n);
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zgehrd_(&n, &ilo, &ihi, a, &lda, tau, w, &lw, &info);
  });
}

/// Forms Q of a Hessenberg reduction (xORGHR / xUNGHR).
inline int orghr(int n, int ilo, int ihi, double* a, int lda, const double* tau) {
  SmallProblem small(n);
  return callWithWorkspace<double>(
      [&](double* w, int lw, int& info) { dorghr_(&n, &ilo, &ihi, a, &lda, tau, w, &lw, &info); });
}
inline int orghr(int n, int ilo, int ihi, dcomplex* a, int lda, const dcomplex* tau) {
  SmallProblem small(n);
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zunghr_(&n, &ilo, &ihi, a, &lda, tau, w, &lw, &info);
  });
}

inline int gghrd(char compq, char compz, int n, int ilo, int ihi, double* a, int lda, double* b,
                 int ldb, double* q, int ldq, double* z, int ldz) {
  SmallProblem small(n);
  int info = 0;
  dgghrd_(&compq, &compz, &n, &ilo, &ihi, a, &lda, b, &ldb, q, &ldq, z, &ldz, &info, 1, 1);
  return info;
}
inline int gghrd(char compq, char compz, int n, int ilo, int ihi, dcomplex* a, int lda, dcomplex* b,
                 int ldb, dcomplex* q, int ldq, dcomplex* z, int ldz) {
  SmallProblem small(n);
  int info = 0;
  zgghrd_(&compq, &compz, &n, &ilo, &ihi, a, &lda, b, &ldb, q, &ldq, z, &ldz, &info, 1, 1);
  return info;
}

/// Schur form of a Hessenberg matrix; eigenvalues into ev (real: ev holds
/// the real parts, evi the imaginary parts).
inline int hseqr(char job, char compz, int n, int ilo, int ihi, double* h, int ldh, double* ev,
                 double* evi, double* z, int ldz) {
  SmallProblem small(n);
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dhseqr_(&job, &compz, &n, &ilo, &ihi, h, &ldh, ev, evi, z, &ldz, w, &lw, &info, 1, 1);
  });
}
inline int hseqr(char job, char compz, int n, int ilo, int ihi, dcomplex* h, int ldh, dcomplex* ev,
                 dcomplex* z, int ldz) {
  SmallProblem small(n);
  return callWithWorkspace<dcomplex>([&](dcomplex* w, int lw, int& info) {
    zhseqr_(&job, &compz, &n, &ilo, &ihi, h, &ldh, ev, z, &ldz, w, &lw, &info, 1, 1);
  });
}

/// Reorders a Schur factorisation (xTRSEN) with job 'N': no condition
/// numbers, so the integer workspace of the real routine needs one element.
/// select holds 0 or 1 per eigenvalue; m receives the number selected.
inline int trsen(char compq, const int* select, int n, double* t, int ldt, double* q, int ldq,
                 double* wr, double* wi, int& m) {
  SmallProblem small(n);
  const char job = 'N';
  double s = 0, sep = 0;
  int iwork[1] = {0};
  const int liwork = 1;
  return callWithWorkspace<double>([&](double* w, int lw, int& info) {
    dtrsen_(&job, &compq, select, &n, t, &ldt, q, &ldq, wr, wi, &m, &s, &sep, w, &lw, iwork,
            &liwork, &info, 1, 1);
  });
}
inline int trsen(char compq, const int* select, int n, dcomplex* t, int ldt, dcomplex* q, int ldq,
                 dcomplex* w, int& m) {
  SmallProblem small(n);
  const char job = 'N';
  double s = 0, sep = 0;
  return callWithWorkspace<dcomplex>([&](dcomplex* work, int lw, int& info) {
    ztrsen_(&job, &compq, select, &n, t, &ldt, q, &ldq, w, &m, &s, &sep, work, &lw, &info, 1, 1);
  });
}

// ---------------------------------------------------------------------------
// Band LU.

// The BLAS work inside the band routines is on blocks of the band's width,
// so the width decides whether a second thread can help.
inline int gbtrf(int m, int n, int kl, int ku, double* ab, int ldab, int* ipiv) {
  SmallProblem small(kl + ku + 1);
  int info = 0;
  dgbtrf_(&m, &n, &kl, &ku, ab, &ldab, ipiv, &info);
  return info;
}
inline int gbtrf(int m, int n, int kl, int ku, dcomplex* ab, int ldab, int* ipiv) {
  SmallProblem small(kl + ku + 1);
  int info = 0;
  zgbtrf_(&m, &n, &kl, &ku, ab, &ldab, ipiv, &info);
  return info;
}

inline int gbtrs(char trans, int n, int kl, int ku, int nrhs, const double* ab, int ldab,
                 const int* ipiv, double* b, int ldb) {
  SmallProblem small(kl + ku + 1);
  int info = 0;
  dgbtrs_(&trans, &n, &kl, &ku, &nrhs, ab, &ldab, ipiv, b, &ldb, &info, 1);
  return info;
}
inline int gbtrs(char trans, int n, int kl, int ku, int nrhs, const dcomplex* ab, int ldab,
                 const int* ipiv, dcomplex* b, int ldb) {
  SmallProblem small(kl + ku + 1);
  int info = 0;
  zgbtrs_(&trans, &n, &kl, &ku, &nrhs, ab, &ldab, ipiv, b, &ldb, &info, 1);
  return info;
}

}  // namespace qvarray::lapack
