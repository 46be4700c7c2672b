#include "qvarray/matriximpl.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// The BLAS kernels take int counts; longer runs go in chunks.
constexpr size_t kChunk = static_cast<size_t>(std::numeric_limits<int>::max());

template <class F>
void chunked(size_t n, F f) {
  for (size_t off = 0; off < n; off += kChunk) f(off, static_cast<int>(std::min(kChunk, n - off)));
}

}  // namespace

// ---------------------------------------------------------------------------
// VectorBase

VectorBase::VectorBase(const std::vector<double>& values) {
  d_.resize(values.size());
  std::copy(values.begin(), values.end(), d_.data);
}

VectorBase::VectorBase(const std::vector<dcomplex>& values) {
  setKind(false);
  z_.resize(values.size());
  std::copy(values.begin(), values.end(), z_.data);
}

// ---------------------------------------------------------------------------
// Vector algebra

namespace {

// y += sign·x for storages of equal count, promoting y when x is complex.
template <int N>
void addScaled(MatrixTemplateBase<N>& y, double sign, const MatrixTemplateBase<N>& x) {
  const size_t n = y.getCount();
  if (y.isReal() && x.isReal()) {
    double* yd = y.getdArr().data;
    const double* xd = x.getdArr().data;
    chunked(n, [&](size_t o, int c) { yPlusaMulx(yd + o, sign, xd + o, c); });
    return;
  }
  y.makeComplex();
  dcomplex* yz = y.getzArr().data;
  if (x.isReal()) {
    const double* xd = x.getdArr().data;
    chunked(n, [&](size_t o, int c) { yPlusaMulx(yz + o, dcomplex(sign), xd + o, c); });
  } else {
    const dcomplex* xz = x.getzArr().data;
    chunked(n, [&](size_t o, int c) { yPlusaMulx(yz + o, dcomplex(sign), xz + o, c); });
  }
}

template <int N>
void scaleBy(MatrixTemplateBase<N>& x, double a) {
  if (x.isReal()) {
    double* xd = x.getdArr().data;
    chunked(x.getCount(), [&](size_t o, int c) { scale(xd + o, a, c); });
  } else {
    dcomplex* xz = x.getzArr().data;
    chunked(x.getCount(), [&](size_t o, int c) { scale(xz + o, a, c); });
  }
}

template <int N>
void scaleBy(MatrixTemplateBase<N>& x, dcomplex a) {
  if (a.imag() == 0.0) return scaleBy(x, a.real());
  x.makeComplex();
  dcomplex* xz = x.getzArr().data;
  chunked(x.getCount(), [&](size_t o, int c) { scale(xz + o, a, c); });
}

template <class T>
double maxAbs(const T* x, size_t n) {
  double m = 0.0;
  for (size_t k = 0; k < n; ++k) {
    const double a = std::abs(x[k]);
    if (a > m || std::isnan(a)) m = a;
    if (std::isnan(m)) break;
  }
  return m;
}

template <class T>
double sumAbs(const T* x, size_t n) {
  double s = 0.0;
  for (size_t k = 0; k < n; ++k) s += std::abs(x[k]);
  return s;
}

}  // namespace

Vector& Vector::operator+=(const Vector& x) {
  QV_CHECK(size() == x.size(), matriximpl, Internal_numerical_error,
           "Vector: x and y does not have the same length.");
  addScaled(*this, 1.0, x);
  return *this;
}

Vector& Vector::operator-=(const Vector& x) {
  QV_CHECK(size() == x.size(), matriximpl, Internal_numerical_error,
           "Vector: x and y does not have the same length.");
  addScaled(*this, -1.0, x);
  return *this;
}

Vector& Vector::operator*=(double a) {
  scaleBy(*this, a);
  return *this;
}

Vector& Vector::operator*=(dcomplex a) {
  scaleBy(*this, a);
  return *this;
}

double Vector::norm() const {
  if (getCount() <= kChunk)
    return real_ ? qvarray::norm(d_.data, static_cast<int>(d_.count))
                 : qvarray::norm(z_.data, static_cast<int>(z_.count));
  double s = 0.0;  // beyond the BLAS count: chunk norms combined
  if (real_) chunked(d_.count, [&](size_t o, int c) { s = std::hypot(s, qvarray::norm(d_.data + o, c)); });
  else chunked(z_.count, [&](size_t o, int c) { s = std::hypot(s, qvarray::norm(z_.data + o, c)); });
  return s;
}

double Vector::normInf() const { return real_ ? maxAbs(d_.data, d_.count) : maxAbs(z_.data, z_.count); }

double Vector::norm1() const { return real_ ? sumAbs(d_.data, d_.count) : sumAbs(z_.data, z_.count); }

// ---------------------------------------------------------------------------
// MatrixBase, Matrix

void MatrixBase::setIdentity(size_t n) {
  resize(n, n, true);
  for (size_t i = 0; i < n; ++i) d_(i, i) = 1.0;
}

Matrix Matrix::identity(size_t n) {
  Matrix I;
  I.setIdentity(n);
  return I;
}

Matrix& Matrix::operator+=(const Matrix& B) {
  QV_CHECK(rows() == B.rows(), matriximpl, Internal_numerical_error,
           "Matrix: A and B does not have the same size.");
  QV_CHECK(cols() == B.cols(), matriximpl, Internal_numerical_error,
           "Matrix: A and B does not have the same size.");
  addScaled(*this, 1.0, B);
  return *this;
}

Matrix& Matrix::operator-=(const Matrix& B) {
  QV_CHECK(rows() == B.rows(), matriximpl, Internal_numerical_error,
           "Matrix: A and B does not have the same size.");
  QV_CHECK(cols() == B.cols(), matriximpl, Internal_numerical_error,
           "Matrix: A and B does not have the same size.");
  addScaled(*this, -1.0, B);
  return *this;
}

Matrix& Matrix::operator*=(double a) {
  scaleBy(*this, a);
  return *this;
}

Matrix& Matrix::operator*=(dcomplex a) {
  scaleBy(*this, a);
  return *this;
}

namespace {

template <class T>
double normFroOf(const Array<T, 2>& A) {
  // Scaled sum of squares, as the BLAS norm does, so that large entries do not overflow.
  double scaleMax = 0.0, ssq = 1.0;
  for (size_t k = 0; k < A.count; ++k) {
    const double a = std::abs(A.data[k]);
    if (a == 0.0) continue;
    if (std::isnan(a)) return a;
    if (scaleMax < a) {
      ssq = 1.0 + ssq * (scaleMax / a) * (scaleMax / a);
      scaleMax = a;
    } else {
      ssq += (a / scaleMax) * (a / scaleMax);
    }
  }
  return scaleMax * std::sqrt(ssq);
}

template <class T>
double norm1Of(const Array<T, 2>& A) {
  double m = 0.0;
  for (size_t j = 0; j < A.sizes[1]; ++j) {
    const double s = sumAbs(A.data + j * A.sizes[0], A.sizes[0]);
    if (s > m || std::isnan(s)) m = s;
  }
  return m;
}

template <class T>
double normInfOf(const Array<T, 2>& A) {
  std::vector<double> rowSum(A.sizes[0], 0.0);
  for (size_t j = 0; j < A.sizes[1]; ++j)
    for (size_t i = 0; i < A.sizes[0]; ++i) rowSum[i] += std::abs(A(i, j));
  double m = 0.0;
  for (double s : rowSum)
    if (s > m || std::isnan(s)) m = s;
  return m;
}

}  // namespace

double Matrix::normFro() const { return real_ ? normFroOf(d_) : normFroOf(z_); }
double Matrix::norm1() const { return real_ ? norm1Of(d_) : norm1Of(z_); }
double Matrix::normInf() const { return real_ ? normInfOf(d_) : normInfOf(z_); }

Vector Matrix::column(size_t j) const {
  const size_t m = rows();
  if (j >= cols())
    QV_RAISE(matriximpl, Internal_numerical_error, "column: Column index out of range.");
  if (real_) {
    Array<double, 1> c(m);
    std::copy(d_.data + j * m, d_.data + (j + 1) * m, c.data);
    return Vector(std::move(c));
  }
  Array<dcomplex, 1> c(m);
  std::copy(z_.data + j * m, z_.data + (j + 1) * m, c.data);
  return Vector(std::move(c));
}

void Matrix::setColumn(size_t j, const Vector& x) {
  const size_t m = rows();
  if (j >= cols())
    QV_RAISE(matriximpl, Internal_numerical_error, "setColumn: Column index out of range.");
  QV_CHECK(x.size() == m, matriximpl, Internal_numerical_error,
           "setColumn: Length of x differs from the number of rows.");
  if (real_ && !x.isReal()) makeComplex();
  if (real_) {
    std::copy(x.getdArr().data, x.getdArr().data + m, d_.data + j * m);
  } else if (x.isReal()) {
    std::copy(x.getdArr().data, x.getdArr().data + m, z_.data + j * m);
  } else {
    std::copy(x.getzArr().data, x.getzArr().data + m, z_.data + j * m);
  }
}

// ---------------------------------------------------------------------------
// Matrix3

Matrix Matrix3::slice(size_t k) const {
  const size_t m = size(0), n = size(1);
  if (k >= size(2))
    QV_RAISE(matriximpl, Internal_numerical_error, "slice: Slice index out of range.");
  if (real_) {
    Array<double, 2> S(m, n);
    std::copy(d_.data + k * m * n, d_.data + (k + 1) * m * n, S.data);
    return Matrix(std::move(S));
  }
  Array<dcomplex, 2> S(m, n);
  std::copy(z_.data + k * m * n, z_.data + (k + 1) * m * n, S.data);
  return Matrix(std::move(S));
}

void Matrix3::setSlice(size_t k, const Matrix& A) {
  const size_t m = size(0), n = size(1);
  if (k >= size(2))
    QV_RAISE(matriximpl, Internal_numerical_error, "setSlice: Slice index out of range.");
  if (A.rows() != m || A.cols() != n)
    QV_RAISE(matriximpl, Internal_numerical_error, "setSlice: Size of A differs from the slice.");
  if (real_ && !A.isReal()) makeComplex();
  const size_t off = k * m * n;
  if (real_) {
    std::copy(A.getdArr().data, A.getdArr().data + m * n, d_.data + off);
  } else if (A.isReal()) {
    std::copy(A.getdArr().data, A.getdArr().data + m * n, z_.data + off);
  } else {
    std::copy(A.getzArr().data, A.getzArr().data + m * n, z_.data + off);
  }
}

}  // namespace qvarray
