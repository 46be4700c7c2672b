// LU and Cholesky factorisations and dense linear solves (xGETRF, xGETRS,
// xGESV, xPOTRF).
#include <algorithm>

#include "backend/lapack.h"
#include "lapack_util.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

using lapack::ld;
using lapack::toInt;

/// linsolvdecomp raises on any INFO, a singular pivot included.
constexpr lapack::Failure kDecompFailed{qvbase::ErrKey::Internal_numerical_error,
                                        "Singular_matrix"};

template <class T>
int luT(Array<T, 2>& A, Array<int, 1>& ipiv, int flags) {
  const int m = toInt(A.sizes[0]), n = toInt(A.sizes[1]);
  ipiv.resize(static_cast<size_t>(std::min(m, n)));
  const int info = lapack::getrf(m, n, A.data, ld(A.sizes[0]), ipiv.data);
  return lapack::checkInfo(info, flags & RaiseOnIllegal, lapack::kSingular);
}

template <class T>
int linsolvdecompT(Array<T, 2>& A, Array<int, 1>& ipiv) {
  QV_CHECK(A.sizes[0] == A.sizes[1] && ipiv.count >= A.sizes[0], arrayutil,
           Internal_numerical_error, "linsolvdecomp: A is not square or ipiv is shorter than A.");
  const int n = toInt(A.sizes[0]);
  const int info = lapack::getrf(n, n, A.data, ld(A.sizes[0]), ipiv.data);
  return lapack::checkInfo(info, RaiseAll, kDecompFailed);
}

/// op(A)⁻¹·B for the nrhs columns of B (leading dimension ldb) with the
/// factors of an LU factorisation.
template <class T>
int luSolve(const Array<T, 2>& LU, const Array<int, 1>& ipiv, T* b, size_t ldb, size_t nrhs,
            int flags) {
  QV_CHECK(LU.sizes[0] == LU.sizes[1] && ipiv.count >= LU.sizes[0], arrayutil,
           Internal_numerical_error, "linsolvsolve: LU is not square or ipiv is shorter than LU.");
  if (nrhs == 0) return 0;
  const int n = toInt(LU.sizes[0]);
  const int info =
      lapack::getrs('N', n, toInt(nrhs), LU.data, ld(LU.sizes[0]), ipiv.data, b, ld(ldb, n));
  return lapack::checkInfo(info, flags & RaiseOnIllegal, lapack::kSingular);
}

/// A·X = B with X overwriting the nrhs columns of B (leading dimension
/// A.size0); a singular A leaves B all NaN unless flags bit 1 raises.
template <class T>
int linsolvT(Array<T, 2>& A, T* b, size_t bcount, size_t nrhs, int flags) {
  if (nrhs == 0) return 0;
  const int n = toInt(A.sizes[0]);
  auto ipiv = lapack::scratch<int>(n);
  const int info =
      lapack::gesv(n, toInt(nrhs), A.data, ld(A.sizes[0]), ipiv.get(), b, ld(A.sizes[0]));
  lapack::checkInfo(info, flags, lapack::kSingular);
  if (info > 0) std::fill(b, b + bcount, T(qvGetNaN()));
  return info;
}

template <class T>
int linsolvT(Array<T, 2>& A, Array<T, 1>& B, int flags) {
  QV_CHECK(A.sizes[1] >= A.sizes[0] && B.count >= A.sizes[0], arrayutil, Internal_numerical_error,
           "linsolv: A and B do not have matching sizes.");
  return linsolvT(A, B.data, B.count, 1, flags);
}

template <class T>
int linsolvT(Array<T, 2>& A, Array<T, 2>& B, int flags) {
  QV_CHECK(A.sizes[1] >= A.sizes[0] && B.sizes[0] == A.sizes[0], arrayutil,
           Internal_numerical_error, "linsolv: A and B do not have matching sizes.");
  return linsolvT(A, B.data, B.count, B.sizes[1], flags);
}

template <class T>
int cholT(Array<T, 2>& A, int flags) {
  QV_CHECK(A.sizes[1] >= A.sizes[0], arrayutil, Internal_numerical_error,
           "chol: A has fewer columns than rows.");
  const size_t n = A.sizes[0];
  const int info = lapack::potrf('U', toInt(n), A.data, ld(n));
  // A holds exactly R afterwards (A = Rᴴ·R), even when the factorisation
  // stopped early.
  detail::zeroBelow(A, n, n, 0);
  return lapack::checkInfo(info, flags, lapack::kNotPositiveDefinite);
}

}  // namespace

int lu(Array<double, 2>& A, Array<int, 1>& ipiv, int flags) { return luT(A, ipiv, flags); }
int lu(Array<dcomplex, 2>& A, Array<int, 1>& ipiv, int flags) { return luT(A, ipiv, flags); }

int linsolvdecomp(Array<double, 2>& A, Array<int, 1>& ipiv) { return linsolvdecompT(A, ipiv); }
int linsolvdecomp(Array<dcomplex, 2>& A, Array<int, 1>& ipiv) { return linsolvdecompT(A, ipiv); }

int linsolvsolve(const Array<double, 2>& LU, const Array<int, 1>& ipiv, Array<double, 1>& B,
                 int flags) {
  return luSolve(LU, ipiv, B.data, B.count, 1, flags);
}
int linsolvsolve(const Array<double, 2>& LU, const Array<int, 1>& ipiv, Array<double, 2>& B,
                 int flags) {
  return luSolve(LU, ipiv, B.data, B.sizes[0], B.sizes[1], flags);
}
void linsolvsolve(const Array<double, 2>& LU, const Array<int, 1>& ipiv, Array<double, 3>& B) {
  luSolve(LU, ipiv, B.data, B.sizes[0], B.sizes[1] * B.sizes[2], RaiseOnIllegal);
}
int linsolvsolve(const Array<dcomplex, 2>& LU, const Array<int, 1>& ipiv, Array<dcomplex, 1>& B,
                 int flags) {
  return luSolve(LU, ipiv, B.data, B.count, 1, flags);
}
int linsolvsolve(const Array<dcomplex, 2>& LU, const Array<int, 1>& ipiv, Array<dcomplex, 2>& B,
                 int flags) {
  return luSolve(LU, ipiv, B.data, B.sizes[0], B.sizes[1], flags);
}
void linsolvsolve(const Array<dcomplex, 2>& LU, const Array<int, 1>& ipiv, Array<dcomplex, 3>& B) {
  luSolve(LU, ipiv, B.data, B.sizes[0], B.sizes[1] * B.sizes[2], RaiseOnIllegal);
}

int linsolv(Array<double, 2>& A, Array<double, 1>& B, int flags) { return linsolvT(A, B, flags); }
int linsolv(Array<double, 2>& A, Array<double, 2>& B, int flags) { return linsolvT(A, B, flags); }
int linsolv(Array<dcomplex, 2>& A, Array<dcomplex, 1>& B, int flags) {
  return linsolvT(A, B, flags);
}
int linsolv(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, int flags) {
  return linsolvT(A, B, flags);
}

int chol(Array<double, 2>& A, int flags) { return cholT(A, flags); }
int chol(Array<dcomplex, 2>& A, int flags) { return cholT(A, flags); }

}  // namespace qvarray
