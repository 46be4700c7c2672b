// Singular value decomposition (xGESVD) and the numerical rank built on it.
#include <algorithm>
#include <cctype>
#include <limits>

#include "backend/lapack.h"
#include "qvarray/arrayutil.h"

namespace qvarray {

namespace {

using lapack::ld;
using lapack::toInt;

char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

/// Sizes a singular-vector factor to rows×cols for job 'A' or 'S' and returns
/// its storage; other jobs leave it alone and LAPACK gets a dummy.
template <class T>
T* sizeFactor(char job, Array<T, 2>& F, size_t rows, size_t cols, T* dummy, int& ldf) {
  if (job == 'A' || job == 'S') {
    F.resize(rows, cols);
    ldf = ld(rows);
    return F.data;
  }
  ldf = 1;
  return dummy;
}

template <class T>
int svdT(char jobu, char jobvt, Array<T, 2>& A, Array<T, 2>& U, Array<double, 1>& S,
         Array<T, 2>& VT, int flags) {
  const size_t m = A.sizes[0], n = A.sizes[1], k = std::min(m, n);
  const char ju = upper(jobu), jv = upper(jobvt);
  S.resize(k);
  T dummyU[1] = {T(0)}, dummyVT[1] = {T(0)};
  int ldu = 1, ldvt = 1;
  // U is m×m ('A') or m×k ('S'); Vᴴ is n×n ('A') or k×n ('S').
  T* u = sizeFactor(ju, U, m, ju == 'A' ? m : k, dummyU, ldu);
  T* vt = sizeFactor(jv, VT, jv == 'A' ? n : k, n, dummyVT, ldvt);
  const int info =
      lapack::gesvd(ju, jv, toInt(m), toInt(n), A.data, ld(m), S.data, u, ldu, vt, ldvt);
  return lapack::checkInfo(info, flags, lapack::kSvdFailed<T>);
}

template <class T>
int svdValuesT(Array<T, 2>& A, Array<double, 1>& S, int flags) {
  Array<T, 2> none;
  return svdT('N', 'N', A, none, S, none, flags);
}

template <class T>
int rankT(const Array<T, 2>& A, double tol, double& sigmaMax) {
  Array<T, 2> F(A);
  Array<double, 1> s;
  svdValuesT(F, s, RaiseAll);
  sigmaMax = s.count ? s[0] : 0.0;
  if (tol < 0)
    tol = static_cast<double>(std::max(A.sizes[0], A.sizes[1])) *
          std::numeric_limits<double>::epsilon();
  const double bound = tol * sigmaMax;
  int r = 0;
  for (size_t i = 0; i < s.count; ++i)
    if (s[i] > bound) ++r;
  return r;
}

}  // namespace

int svd(char jobu, char jobvt, Array<double, 2>& A, Array<double, 2>& U, Array<double, 1>& S,
        Array<double, 2>& VT, int flags) {
  return svdT(jobu, jobvt, A, U, S, VT, flags);
}
int svd(char jobu, char jobvt, Array<dcomplex, 2>& A, Array<dcomplex, 2>& U, Array<double, 1>& S,
        Array<dcomplex, 2>& VT, int flags) {
  return svdT(jobu, jobvt, A, U, S, VT, flags);
}
int svd(Array<double, 2>& A, Array<double, 1>& S, int flags) { return svdValuesT(A, S, flags); }
int svd(Array<dcomplex, 2>& A, Array<double, 1>& S, int flags) { return svdValuesT(A, S, flags); }

int rank(const Array<double, 2>& A, double tol) {
  double sigmaMax = 0;
  return rankT(A, tol, sigmaMax);
}
int rank(const Array<double, 2>& A, double tol, double& sigmaMax) {
  return rankT(A, tol, sigmaMax);
}
int rank(const Array<dcomplex, 2>& A, double tol) {
  double sigmaMax = 0;
  return rankT(A, tol, sigmaMax);
}
int rank(const Array<dcomplex, 2>& A, double tol, double& sigmaMax) {
  return rankT(A, tol, sigmaMax);
}

}  // namespace qvarray
