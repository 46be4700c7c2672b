#include "qvarray/matrixutil.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvmatrix {

using qvarray::Array;
using qvarray::NoTrans;
using qvarray::Trans_t;

namespace {

int asInt(size_t n) {
  QV_CHECK(n <= static_cast<size_t>(std::numeric_limits<int>::max()), matrixutil,
           Internal_numerical_error, "matrixutil: Too many elements for the BLAS kernels.");
  return static_cast<int>(n);
}

template <int N>
Array<dcomplex, N> toComplex(const Array<double, N>& a) {
  Array<dcomplex, N> z;
  if constexpr (N == 1) z.resize(a.sizes[0]);
  else z.resize(a.sizes[0], a.sizes[1]);
  for (size_t k = 0; k < a.count; ++k) z.data[k] = a.data[k];
  return z;
}

/// Complex copy of A's storage, whatever its kind.
Array<dcomplex, 2> complexCopy(const Matrix& A) {
  return A.isReal() ? toComplex(A.getdArr()) : A.getzArr();
}

/// The n×k complex block z as the real n×2k block [Re z, Im z].
Array<double, 2> splitParts(const dcomplex* z, size_t n, size_t k) {
  Array<double, 2> r(n, 2 * k);
  for (size_t j = 0; j < k; ++j)
    for (size_t i = 0; i < n; ++i) {
      r(i, j) = z[i + j * n].real();
      r(i, j + k) = z[i + j * n].imag();
    }
  return r;
}

/// Inverse of splitParts: z (n×k) = r(:, 0:k) + i·r(:, k:2k).
void joinParts(const Array<double, 2>& r, dcomplex* z, size_t n, size_t k) {
  for (size_t j = 0; j < k; ++j)
    for (size_t i = 0; i < n; ++i) z[i + j * n] = dcomplex(r(i, j), r(i, j + k));
}

/// op(A) as a plain array: A itself for NoTrans, else the transpose built in tmp.
const Array<double, 2>& applyOp(const Array<double, 2>& A, Trans_t t, Array<double, 2>& tmp) {
  if (t == NoTrans) return A;
  qvarray::adjoint(A, tmp);
  return tmp;
}

const Array<dcomplex, 2>& applyOp(const Array<dcomplex, 2>& A, Trans_t t, Array<dcomplex, 2>& tmp) {
  if (t == NoTrans) return A;
  qvarray::adjoint(A, tmp);
  if (t == qvarray::Trans)
    for (auto& v : tmp) v = std::conj(v);
  return tmp;
}

}  // namespace

// ---------------------------------------------------------------------------
// Vector operations

void yPlusaMulx(Vector& y, double a, const Vector& x) {
  QV_CHECK(y.size() == x.size(), matrixutil, Internal_numerical_error,
           "yPlusaMulx: x and y does not have the same length.");
  const int n = asInt(x.size());
  if (y.isReal() && x.isReal()) {
    qvarray::yPlusaMulx(y.getdArr().data, a, x.getdArr().data, n);
    return;
  }
  yPlusaMulx(y, dcomplex(a, 0.0), x);
}

void yPlusaMulx(Vector& y, dcomplex a, const Vector& x) {
  QV_CHECK(y.size() == x.size(), matrixutil, Internal_numerical_error,
           "yPlusaMulx: x and y does not have the same length.");
  const int n = asInt(x.size());
  if (y.isReal() && x.isReal() && a.imag() == 0.0) {
    qvarray::yPlusaMulx(y.getdArr().data, a.real(), x.getdArr().data, n);
    return;
  }
  y.makeComplex();
  if (x.isReal()) qvarray::yPlusaMulx(y.getzArr().data, a, x.getdArr().data, n);
  else qvarray::yPlusaMulx(y.getzArr().data, a, x.getzArr().data, n);
}

dcomplex dot(const Vector& x, const Vector& y, Trans_t t) {
  QV_CHECK(x.size() == y.size(), matrixutil, Internal_numerical_error,
           "dot: x and y does not have the same length.");
  const int n = asInt(x.size());
  if (x.isReal() && y.isReal()) return qvarray::dot(x.getdArr().data, y.getdArr().data, n);
  if (!x.isReal() && !y.isReal()) return qvarray::dot(x.getzArr().data, y.getzArr().data, n, t);
  // One operand is real: promote it.
  if (x.isReal()) return qvarray::dot(toComplex(x.getdArr()).data, y.getzArr().data, n, t);
  return qvarray::dot(x.getzArr().data, toComplex(y.getdArr()).data, n, t);
}

// ---------------------------------------------------------------------------
// Products

void yPlusAMulx(Vector& y, const Matrix& A, const Vector& x, Trans_t t) {
  const bool trans = t != NoTrans;
  const size_t rowsOp = trans ? A.cols() : A.rows();
  const size_t colsOp = trans ? A.rows() : A.cols();
  QV_CHECK(x.size() == colsOp && y.size() == rowsOp, matrixutil, Internal_numerical_error,
           "yPlusAMulx: Size of A does not match x and y.");
  if (rowsOp == 0 || colsOp == 0) return;
  if (!A.isReal()) {
    y.makeComplex();
    if (x.isReal()) qvarray::yPlusAMulx(y.getzArr(), A.getzArr(), toComplex(x.getdArr()), t);
    else qvarray::yPlusAMulx(y.getzArr(), A.getzArr(), x.getzArr(), t);
    return;
  }
  if (x.isReal()) {
    if (y.isReal()) {
      qvarray::yPlusAMulx(y.getdArr(), A.getdArr(), x.getdArr(), t);
      return;
    }
    Array<double, 1> r(rowsOp);
    r.fill(0.0);
    qvarray::yPlusAMulx(r, A.getdArr(), x.getdArr(), t);
    qvarray::yPlusaMulx(y.getzArr().data, dcomplex(1.0), r.data, asInt(rowsOp));
    return;
  }
  // Real A on complex x: real and imaginary parts separately.
  Array<double, 1> part(colsOp), re(rowsOp), im(rowsOp);
  const dcomplex* xz = x.getzArr().data;
  for (size_t i = 0; i < colsOp; ++i) part[i] = xz[i].real();
  re.fill(0.0);
  qvarray::yPlusAMulx(re, A.getdArr(), part, t);
  for (size_t i = 0; i < colsOp; ++i) part[i] = xz[i].imag();
  im.fill(0.0);
  qvarray::yPlusAMulx(im, A.getdArr(), part, t);
  y.makeComplex();
  dcomplex* yz = y.getzArr().data;
  for (size_t i = 0; i < rowsOp; ++i) yz[i] += dcomplex(re[i], im[i]);
}

void mul(const Matrix& A, const Vector& x, Vector& y, Trans_t t) {
  const size_t rowsOp = t != NoTrans ? A.cols() : A.rows();
  const size_t colsOp = t != NoTrans ? A.rows() : A.cols();
  QV_CHECK(x.size() == colsOp, matrixutil, Internal_numerical_error,
           "mul: Size of A does not match x.");
  Vector r;
  r.resize(rowsOp, A.isReal() && x.isReal());
  yPlusAMulx(r, A, x, t);
  y = std::move(r);
}

void mul(const Matrix& A, const Matrix& B, Matrix& C, Trans_t ta, Trans_t tb) {
  const size_t m = ta != NoTrans ? A.cols() : A.rows();
  const size_t k = ta != NoTrans ? A.rows() : A.cols();
  const size_t kb = tb != NoTrans ? B.cols() : B.rows();
  const size_t n = tb != NoTrans ? B.rows() : B.cols();
  QV_CHECK(k == kb, matrixutil, Internal_numerical_error,
           "mul: Inner dimensions of A and B do not agree.");
  const bool real = A.isReal() && B.isReal();
  Matrix R;
  if (m == 0 || n == 0 || k == 0) {
    R.resize(m, n, real);
  } else if (real) {
    Array<double, 2> Rd, ta_, tb_;
    qvarray::matmatAMulB(applyOp(A.getdArr(), ta, ta_), applyOp(B.getdArr(), tb, tb_), 1.0, 0.0, Rd);
    R = Matrix(std::move(Rd));
  } else {
    // A real operand is promoted; a complex one is used in place.
    Array<dcomplex, 2> Rz, ca, cb, ta_, tb_;
    if (A.isReal()) ca = complexCopy(A);
    if (B.isReal()) cb = complexCopy(B);
    const Array<dcomplex, 2>& za = A.isReal() ? ca : A.getzArr();
    const Array<dcomplex, 2>& zb = B.isReal() ? cb : B.getzArr();
    qvarray::matmatAMulB(applyOp(za, ta, ta_), applyOp(zb, tb, tb_), dcomplex(1.0), dcomplex(0.0), Rz);
    R = Matrix(std::move(Rz));
  }
  C = std::move(R);
}

void adjoint(const Matrix& A, Matrix& B) {
  if (A.isReal()) {
    Array<double, 2> T;
    qvarray::adjoint(A.getdArr(), T);
    B = Matrix(std::move(T));
  } else {
    Array<dcomplex, 2> T;
    qvarray::adjoint(A.getzArr(), T);
    B = Matrix(std::move(T));
  }
}

void transpose(const Matrix& A, Matrix& B) {
  adjoint(A, B);
  B.conj();
}

// ---------------------------------------------------------------------------
// Solves

int solve(const Matrix& A, Vector& b, int flags) {
  const size_t n = A.rows();
  QV_CHECK(A.isSquare() && b.size() == n, matrixutil, Internal_numerical_error,
           "solve: A must be square and match the rows of B.");
  if (n == 0) return 0;
  if (!A.isReal()) {
    Array<dcomplex, 2> LU = A.getzArr();
    b.makeComplex();
    return qvarray::linsolv(LU, b.getzArr(), flags);
  }
  Array<double, 2> LU = A.getdArr();
  if (b.isReal()) return qvarray::linsolv(LU, b.getdArr(), flags);
  Array<double, 2> parts = splitParts(b.getzArr().data, n, 1);
  const int info = qvarray::linsolv(LU, parts, flags);
  joinParts(parts, b.getzArr().data, n, 1);
  return info;
}

int solve(const Matrix& A, Matrix& B, int flags) {
  const size_t n = A.rows();
  QV_CHECK(A.isSquare() && B.rows() == n, matrixutil, Internal_numerical_error,
           "solve: A must be square and match the rows of B.");
  if (n == 0 || B.cols() == 0) return 0;
  if (!A.isReal()) {
    Array<dcomplex, 2> LU = A.getzArr();
    B.makeComplex();
    return qvarray::linsolv(LU, B.getzArr(), flags);
  }
  Array<double, 2> LU = A.getdArr();
  if (B.isReal()) return qvarray::linsolv(LU, B.getdArr(), flags);
  Array<double, 2> parts = splitParts(B.getzArr().data, n, B.cols());
  const int info = qvarray::linsolv(LU, parts, flags);
  joinParts(parts, B.getzArr().data, n, B.cols());
  return info;
}

int inverse(const Matrix& A, Matrix& Ainv, int flags) {
  QV_CHECK(A.isSquare(), matrixutil, Internal_numerical_error, "inverse: A must be square.");
  Matrix X = Matrix::identity(A.rows());
  if (!A.isReal()) X.makeComplex();
  const int info = solve(A, X, flags);
  Ainv = std::move(X);
  return info;
}

dcomplex det(const Matrix& A) {
  QV_CHECK(A.isSquare(), matrixutil, Internal_numerical_error, "det: A must be square.");
  const size_t n = A.rows();
  Array<int, 1> ipiv;
  dcomplex d = 1.0;
  if (A.isReal()) {
    Array<double, 2> LU = A.getdArr();
    if (n > 0) qvarray::lu(LU, ipiv, qvarray::RaiseOnIllegal);
    double p = 1.0;
    for (size_t i = 0; i < n; ++i) p *= (ipiv[i] != static_cast<int>(i) + 1) ? -LU(i, i) : LU(i, i);
    d = p;
  } else {
    Array<dcomplex, 2> LU = A.getzArr();
    if (n > 0) qvarray::lu(LU, ipiv, qvarray::RaiseOnIllegal);
    for (size_t i = 0; i < n; ++i) d *= (ipiv[i] != static_cast<int>(i) + 1) ? -LU(i, i) : LU(i, i);
  }
  return d;
}

int leastSquares(const Matrix& A, const Matrix& B, Matrix& X, double rcond, int flags, int* rank) {
  QV_CHECK(B.rows() == A.rows(), matrixutil, Internal_numerical_error,
           "leastSquares: A and B must have the same number of rows.");
  const size_t m = A.rows(), k = B.cols();
  if (A.isReal() && B.isReal()) {
    Array<double, 2> Xd;
    const int info = qvarray::leastSquares(A.getdArr(), B.getdArr(), Xd, rcond, flags, rank);
    X = Matrix(std::move(Xd));
    return info;
  }
  if (A.isReal()) {
    // The real pseudo-inverse applies to real and imaginary parts alike.
    const Array<double, 2> parts = splitParts(B.getzArr().data, m, k);
    Array<double, 2> Xd;
    const int info = qvarray::leastSquares(A.getdArr(), parts, Xd, rcond, flags, rank);
    Matrix R;
    R.resize(A.cols(), k, false);
    joinParts(Xd, R.getzArr().data, A.cols(), k);
    X = std::move(R);
    return info;
  }
  Array<dcomplex, 2> Xz;
  const int info = B.isReal()
                       ? qvarray::leastSquares(A.getzArr(), complexCopy(B), Xz, rcond, flags, rank)
                       : qvarray::leastSquares(A.getzArr(), B.getzArr(), Xz, rcond, flags, rank);
  X = Matrix(std::move(Xz));
  return info;
}

int leastSquares(const Matrix& A, const Vector& b, Vector& x, double rcond, int flags, int* rank) {
  QV_CHECK(b.size() == A.rows(), matrixutil, Internal_numerical_error,
           "leastSquares: A and B must have the same number of rows.");
  Matrix B;
  if (b.isReal()) {
    Array<double, 2> Bd(b.size(), 1);
    std::copy(b.getdArr().begin(), b.getdArr().end(), Bd.data);
    B = Matrix(std::move(Bd));
  } else {
    Array<dcomplex, 2> Bz(b.size(), 1);
    std::copy(b.getzArr().begin(), b.getzArr().end(), Bz.data);
    B = Matrix(std::move(Bz));
  }
  Matrix X;
  const int info = leastSquares(A, B, X, rcond, flags, rank);
  x = X.column(0);
  return info;
}

// ---------------------------------------------------------------------------
// Factorisations

int lu(Matrix& A, Array<int, 1>& ipiv, int flags) {
  return A.isReal() ? qvarray::lu(A.getdArr(), ipiv, flags) : qvarray::lu(A.getzArr(), ipiv, flags);
}

int luSolve(const Matrix& LU, const Array<int, 1>& ipiv, Vector& b, int flags) {
  const size_t n = LU.rows();
  QV_CHECK(LU.isSquare() && b.size() == n && ipiv.count >= n, matrixutil, Internal_numerical_error,
           "luSolve: LU must be square and match the rows of B.");
  if (n == 0) return 0;
  if (!LU.isReal()) {
    b.makeComplex();
    return qvarray::linsolvsolve(LU.getzArr(), ipiv, b.getzArr(), flags);
  }
  if (b.isReal()) return qvarray::linsolvsolve(LU.getdArr(), ipiv, b.getdArr(), flags);
  Array<double, 2> parts = splitParts(b.getzArr().data, n, 1);
  const int info = qvarray::linsolvsolve(LU.getdArr(), ipiv, parts, flags);
  joinParts(parts, b.getzArr().data, n, 1);
  return info;
}

int chol(Matrix& A, int flags) {
  QV_CHECK(A.isSquare(), matrixutil, Internal_numerical_error, "chol: A must be square.");
  return A.isReal() ? qvarray::chol(A.getdArr(), flags) : qvarray::chol(A.getzArr(), flags);
}

namespace {

template <class T>
int thinQr(Array<T, 2> F, Matrix& Q, Matrix& R, int flags) {
  const size_t m = F.sizes[0], n = F.sizes[1], k = std::min(m, n);
  Array<T, 1> tau;
  int info = qvarray::qr(F, tau, flags);
  Array<T, 2> Rk(k, n);
  Rk.fill(T(0));
  for (size_t j = 0; j < n; ++j)
    for (size_t i = 0; i <= std::min(j, k - 1); ++i) Rk(i, j) = F(i, j);
  const int qinfo = qvarray::q(F, tau, flags);
  if (info == 0) info = qinfo;
  R = Matrix(std::move(Rk));
  Q = Matrix(std::move(F));
  return info;
}

}  // namespace

int qr(const Matrix& A, Matrix& Q, Matrix& R, int flags) {
  const size_t m = A.rows(), n = A.cols();
  if (m == 0 || n == 0) {
    const bool real = A.isReal();
    Q.resize(m, 0, real);
    R.resize(0, n, real);
    return 0;
  }
  return A.isReal() ? thinQr(A.getdArr(), Q, R, flags) : thinQr(A.getzArr(), Q, R, flags);
}

int svd(const Matrix& A, Array<double, 1>& S, int flags) {
  if (A.isReal()) {
    Array<double, 2> F = A.getdArr();
    return qvarray::svd(F, S, flags);
  }
  Array<dcomplex, 2> F = A.getzArr();
  return qvarray::svd(F, S, flags);
}

int svd(const Matrix& A, Matrix& U, Array<double, 1>& S, Matrix& VT, int flags) {
  if (A.isReal()) {
    Array<double, 2> F = A.getdArr(), Ud, VTd;
    const int info = qvarray::svd('S', 'S', F, Ud, S, VTd, flags);
    U = Matrix(std::move(Ud));
    VT = Matrix(std::move(VTd));
    return info;
  }
  Array<dcomplex, 2> F = A.getzArr(), Uz, VTz;
  const int info = qvarray::svd('S', 'S', F, Uz, S, VTz, flags);
  U = Matrix(std::move(Uz));
  VT = Matrix(std::move(VTz));
  return info;
}

int eig(const Matrix& A, Vector& w, int flags) {
  QV_CHECK(A.isSquare(), matrixutil, Internal_numerical_error, "eig: A must be square.");
  const size_t n = A.rows();
  if (!A.isReal()) {
    Array<dcomplex, 2> F = A.getzArr();
    Array<dcomplex, 1> wz;
    const int info = n ? qvarray::eig(F, wz, flags) : 0;
    w = Vector(std::move(wz));
    return info;
  }
  Array<double, 2> F = A.getdArr();
  Array<double, 1> wr, wi;
  const int info = n ? qvarray::eig(F, wr, wi, flags) : 0;
  Array<dcomplex, 1> wz(n);
  for (size_t i = 0; i < n && i < wr.count; ++i) wz[i] = dcomplex(wr[i], wi[i]);
  w = Vector(std::move(wz));
  return info;
}

int eig(const Matrix& A, Vector& w, Matrix& V, int flags) {
  QV_CHECK(A.isSquare(), matrixutil, Internal_numerical_error, "eig: A must be square.");
  const size_t n = A.rows();
  if (!A.isReal()) {
    Array<dcomplex, 2> F = A.getzArr(), VL, VR;
    Array<dcomplex, 1> wz;
    const int info = n ? qvarray::eig('N', 'V', F, wz, VL, VR, flags) : 0;
    w = Vector(std::move(wz));
    V = Matrix(std::move(VR));
    return info;
  }
  Array<double, 2> F = A.getdArr(), VL, VR;
  Array<double, 1> wr, wi;
  const int info = n ? qvarray::eig('N', 'V', F, wr, wi, VL, VR, flags) : 0;
  // Real LAPACK stores a complex pair λ, conj(λ) (positive imaginary part
  // first) as the two real columns Re v, Im v.
  Array<dcomplex, 1> wz(n);
  Array<dcomplex, 2> Vz(n, n);
  for (size_t j = 0; j < n && info == 0;) {
    wz[j] = dcomplex(wr[j], wi[j]);
    if (wi[j] == 0.0 || j + 1 == n) {
      for (size_t i = 0; i < n; ++i) Vz(i, j) = VR(i, j);
      ++j;
      continue;
    }
    wz[j + 1] = dcomplex(wr[j + 1], wi[j + 1]);
    for (size_t i = 0; i < n; ++i) {
      Vz(i, j) = dcomplex(VR(i, j), VR(i, j + 1));
      Vz(i, j + 1) = dcomplex(VR(i, j), -VR(i, j + 1));
    }
    j += 2;
  }
  w = Vector(std::move(wz));
  V = Matrix(std::move(Vz));
  return info;
}

int rank(const Matrix& A, double tol) {
  if (A.empty()) return 0;
  return A.isReal() ? qvarray::rank(A.getdArr(), tol) : qvarray::rank(A.getzArr(), tol);
}

}  // namespace qvmatrix
