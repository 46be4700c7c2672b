// Eigenvalue problems: packed symmetric (DSPEVX), general (xGEEV) and
// generalised (xGGEV, DGGEVX).
#include <cctype>

#include "backend/lapack.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using lapack::ld;
using lapack::toInt;

char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

/// Sizes an eigenvector matrix to n×n for job 'V' and returns its storage;
/// for other jobs V is left alone and LAPACK gets a dummy.
template <class T>
T* vectors(char job, Array<T, 2>& V, size_t n, T* dummy, int& ldv) {
  if (job == 'V') {
    V.resize(n, n);
    ldv = ld(n);
    return V.data;
  }
  ldv = 1;
  return dummy;
}

template <class T>
size_t squareOrder(const Array<T, 2>& A) {
  QV_CHECK(A.sizes[0] == A.sizes[1], arrayutil, Internal_numerical_error, "eig: A is not square.");
  return A.sizes[0];
}

template <class T>
size_t pencilOrder(const Array<T, 2>& A, const Array<T, 2>& B) {
  QV_CHECK(A.sizes[0] == A.sizes[1] && B.sizes[0] == A.sizes[0] && B.sizes[1] == A.sizes[0],
           arrayutil, Internal_numerical_error,
           "eig: A and B are not square matrices of the same size.");
  return A.sizes[0];
}

}  // namespace

int eig(char jobz, char range, char uplo, int n, Array<double, 1>& AP, double vl, double vu, int il,
        int iu, double abstol, int& m, Array<double, 1>& W, Array<double, 2>& Z,
        Array<int, 1>& ifail, int flags) {
  const size_t order = n > 0 ? static_cast<size_t>(n) : 0;
  QV_CHECK(AP.count >= order * (order + 1) / 2, arrayutil, Internal_numerical_error,
           "eig: AP is shorter than n*(n+1)/2.");
  const char jz = upper(jobz);
  W.resize(order);
  ifail.resize(order);
  double dummy[1] = {0};
  int ldz = 1;
  double* z = vectors(jz, Z, order, dummy, ldz);
  m = 0;
  const int info = lapack::spevx(jz, range, uplo, n, AP.data, vl, vu, il, iu, abstol, m, W.data, z,
                                 ldz, ifail.data);
  return lapack::checkInfo(info, flags, lapack::kQRFailed);
}

int eig(int n, Array<double, 1>& AP, Array<double, 1>& W, int flags) {
  Array<double, 2> Z;
  Array<int, 1> ifail;
  int m = 0;
  return eig('N', 'A', 'U', n, AP, 0.0, 0.0, 0, 0, 0.0, m, W, Z, ifail, flags);
}

int eig(char jobvl, char jobvr, Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi,
        Array<double, 2>& VL, Array<double, 2>& VR, int flags) {
  const size_t n = squareOrder(A);
  const char jl = upper(jobvl), jr = upper(jobvr);
  wr.resize(n);
  wi.resize(n);
  double dummyL[1] = {0}, dummyR[1] = {0};
  int ldvl = 1, ldvr = 1;
  double* vl = vectors(jl, VL, n, dummyL, ldvl);
  double* vr = vectors(jr, VR, n, dummyR, ldvr);
  const int info =
      lapack::geev(jl, jr, toInt(n), A.data, ld(n), wr.data, wi.data, vl, ldvl, vr, ldvr);
  return lapack::checkInfo(info, flags, lapack::kQRFailed);
}

int eig(char jobvl, char jobvr, Array<dcomplex, 2>& A, Array<dcomplex, 1>& w,
        Array<dcomplex, 2>& VL, Array<dcomplex, 2>& VR, int flags) {
  const size_t n = squareOrder(A);
  const char jl = upper(jobvl), jr = upper(jobvr);
  w.resize(n);
  dcomplex dummyL[1], dummyR[1];
  int ldvl = 1, ldvr = 1;
  dcomplex* vl = vectors(jl, VL, n, dummyL, ldvl);
  dcomplex* vr = vectors(jr, VR, n, dummyR, ldvr);
  const int info = lapack::geev(jl, jr, toInt(n), A.data, ld(n), w.data, vl, ldvl, vr, ldvr);
  return lapack::checkInfo(info, flags, lapack::kQRFailed);
}

int eig(Array<double, 2>& A, Array<double, 1>& wr, Array<double, 1>& wi, int flags) {
  Array<double, 2> none;
  return eig('N', 'N', A, wr, wi, none, none, flags);
}

int eig(Array<dcomplex, 2>& A, Array<dcomplex, 1>& w, int flags) {
  Array<dcomplex, 2> none;
  return eig('N', 'N', A, w, none, none, flags);
}

int eig(char jobvl, char jobvr, Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar,
        Array<double, 1>& alphai, Array<double, 1>& beta, Array<double, 2>& VL,
        Array<double, 2>& VR, int flags) {
  const size_t n = pencilOrder(A, B);
  const char jl = upper(jobvl), jr = upper(jobvr);
  alphar.resize(n);
  alphai.resize(n);
  beta.resize(n);
  double dummyL[1] = {0}, dummyR[1] = {0};
  int ldvl = 1, ldvr = 1;
  double* vl = vectors(jl, VL, n, dummyL, ldvl);
  double* vr = vectors(jr, VR, n, dummyR, ldvr);
  const int info = lapack::ggev(jl, jr, toInt(n), A.data, ld(n), B.data, ld(n), alphar.data,
                                alphai.data, beta.data, vl, ldvl, vr, ldvr);
  return lapack::checkInfo(info, flags, lapack::kQZFailed);
}

int eig(char jobvl, char jobvr, Array<dcomplex, 2>& A, Array<dcomplex, 2>& B,
        Array<dcomplex, 1>& alpha, Array<dcomplex, 1>& beta, Array<dcomplex, 2>& VL,
        Array<dcomplex, 2>& VR, int flags) {
  const size_t n = pencilOrder(A, B);
  const char jl = upper(jobvl), jr = upper(jobvr);
  alpha.resize(n);
  beta.resize(n);
  dcomplex dummyL[1], dummyR[1];
  int ldvl = 1, ldvr = 1;
  dcomplex* vl = vectors(jl, VL, n, dummyL, ldvl);
  dcomplex* vr = vectors(jr, VR, n, dummyR, ldvr);
  const int info = lapack::ggev(jl, jr, toInt(n), A.data, ld(n), B.data, ld(n), alpha.data,
                                beta.data, vl, ldvl, vr, ldvr);
  return lapack::checkInfo(info, flags, lapack::kQZFailed);
}

int eig(Array<double, 2>& A, Array<double, 2>& B, Array<double, 1>& alphar,
        Array<double, 1>& alphai, Array<double, 1>& beta, int flags) {
  Array<double, 2> none;
  return eig('N', 'N', A, B, alphar, alphai, beta, none, none, flags);
}

int eig(Array<dcomplex, 2>& A, Array<dcomplex, 2>& B, Array<dcomplex, 1>& alpha,
        Array<dcomplex, 1>& beta, int flags) {
  Array<dcomplex, 2> none;
  return eig('N', 'N', A, B, alpha, beta, none, none, flags);
}

int eig(Array<double, 2>& A, Array<double, 2>& B, char balanc, char jobvr, Array<double, 1>& alphar,
        Array<double, 1>& alphai, Array<double, 1>& beta, Array<double, 2>& VR, int flags) {
  const size_t n = pencilOrder(A, B);
  const char jr = upper(jobvr);
  alphar.resize(n);
  alphai.resize(n);
  beta.resize(n);
  double dummyR[1] = {0};
  int ldvr = 1;
  double* vr = vectors(jr, VR, n, dummyR, ldvr);
  const int info = lapack::ggevx(upper(balanc), jr, toInt(n), A.data, ld(n), B.data, ld(n),
                                 alphar.data, alphai.data, beta.data, vr, ldvr);
  return lapack::checkInfo(info, flags, lapack::kQZFailed);
}

}  // namespace qvarray
