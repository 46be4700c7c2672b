#pragma once
// Dense vectors and matrices whose elements are real or complex.
//
// VectorBase / MatrixBase / Matrix3 hold the storage (see
// MatrixTemplateBase: one real or one complex Array in use, isReal() tells
// which, getdArr()/getzArr() hand it out without copying) and give element
// access. Vector and Matrix add the everyday algebra as members; products,
// solves and factorisations are free functions in qvmatrix (matrixutil.h).
//
// Mixed operands: a result is complex when any operand is complex; a real
// target that receives complex values is made complex first. Size mismatches
// raise "Internal_numerical_error" with a sentence naming the operation,
// before anything is changed.
#include <complex>
#include <cstddef>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/matrixtemplatebase.h"

namespace qvarray {

class QVARRAY_API VectorBase : public MatrixTemplateBase<1> {
 public:
  VectorBase() = default;
  /// A real vector of n zeros.
  explicit VectorBase(size_t n) { resizeStorage(n); }
  /// n copies of v (complex storage for a complex v).
  VectorBase(size_t n, double v) : VectorBase(n) { fill(v); }
  VectorBase(size_t n, dcomplex v) : VectorBase(n) { setKind(false); fill(v); }
  explicit VectorBase(const Array<double, 1>& values) : MatrixTemplateBase(values) {}
  explicit VectorBase(Array<double, 1>&& values) : MatrixTemplateBase(std::move(values)) {}
  explicit VectorBase(const Array<dcomplex, 1>& values) : MatrixTemplateBase(values) {}
  explicit VectorBase(Array<dcomplex, 1>&& values) : MatrixTemplateBase(std::move(values)) {}
  explicit VectorBase(const std::vector<double>& values);
  explicit VectorBase(const std::vector<dcomplex>& values);

  size_t size() const { return getCount(); }
  /// New length; contents kept when the length is unchanged, else zeros.
  void resize(size_t n) { resizeStorage(n); }
  /// New length and kind, all zeros.
  void resize(size_t n, bool real) {
    setKind(real);
    resizeStorage(n);
    setZero();
  }

  /// Element i as a complex number (either kind).
  dcomplex get(size_t i) const { return getAt(i); }
  /// Stores v; a value with non-zero imaginary part makes the vector complex.
  void set(size_t i, dcomplex v) { setAt(i, v); }
  void set(size_t i, double v) { if (real_) d_.data[i] = v; else z_.data[i] = v; }
  /// Unchecked element references into the real / complex storage; valid
  /// while the storage is of that kind.
  double& d(size_t i) { return d_.data[i]; }
  double d(size_t i) const { return d_.data[i]; }
  dcomplex& z(size_t i) { return z_.data[i]; }
  const dcomplex& z(size_t i) const { return z_.data[i]; }
};

class QVARRAY_API Vector : public VectorBase {
 public:
  using VectorBase::VectorBase;
  Vector() = default;

  /// this += x, this −= x (equal lengths).
  Vector& operator+=(const Vector& x);
  Vector& operator-=(const Vector& x);
  /// this *= a.
  Vector& operator*=(double a);
  Vector& operator*=(dcomplex a);

  /// Euclidean, maximum-modulus and sum-of-moduli norms.
  double norm() const;
  double normInf() const;
  double norm1() const;
};

class QVARRAY_API MatrixBase : public MatrixTemplateBase<2> {
 public:
  MatrixBase() = default;
  /// A real m×n matrix of zeros.
  MatrixBase(size_t m, size_t n) { resizeStorage(m, n); }
  /// m×n copies of v (complex storage for a complex v).
  MatrixBase(size_t m, size_t n, double v) : MatrixBase(m, n) { fill(v); }
  MatrixBase(size_t m, size_t n, dcomplex v) : MatrixBase(m, n) { setKind(false); fill(v); }
  explicit MatrixBase(const Array<double, 2>& values) : MatrixTemplateBase(values) {}
  explicit MatrixBase(Array<double, 2>&& values) : MatrixTemplateBase(std::move(values)) {}
  explicit MatrixBase(const Array<dcomplex, 2>& values) : MatrixTemplateBase(values) {}
  explicit MatrixBase(Array<dcomplex, 2>&& values) : MatrixTemplateBase(std::move(values)) {}

  size_t rows() const { return size(0); }
  size_t cols() const { return size(1); }
  bool isSquare() const { return rows() == cols(); }
  /// New shape; contents kept when the element count is unchanged (then
  /// reinterpreted column-major), else zeros.
  void resize(size_t m, size_t n) { resizeStorage(m, n); }
  /// New shape and kind, all zeros.
  void resize(size_t m, size_t n, bool real) {
    setKind(real);
    resizeStorage(m, n);
    setZero();
  }
  /// Makes this the real n×n identity.
  void setIdentity(size_t n);

  dcomplex get(size_t i, size_t j) const { return getAt(i + j * rows()); }
  void set(size_t i, size_t j, dcomplex v) { setAt(i + j * rows(), v); }
  void set(size_t i, size_t j, double v) {
    if (real_) d_(i, j) = v; else z_(i, j) = v;
  }
  double& d(size_t i, size_t j) { return d_(i, j); }
  double d(size_t i, size_t j) const { return d_(i, j); }
  dcomplex& z(size_t i, size_t j) { return z_(i, j); }
  const dcomplex& z(size_t i, size_t j) const { return z_(i, j); }
};

class QVARRAY_API Matrix : public MatrixBase {
 public:
  using MatrixBase::MatrixBase;
  Matrix() = default;

  /// The real n×n identity.
  static Matrix identity(size_t n);

  /// this += B, this −= B (equal shapes).
  Matrix& operator+=(const Matrix& B);
  Matrix& operator-=(const Matrix& B);
  Matrix& operator*=(double a);
  Matrix& operator*=(dcomplex a);

  /// Frobenius norm, maximum column sum and maximum row sum of moduli.
  double normFro() const;
  double norm1() const;
  double normInf() const;

  /// Column j as a vector of the matrix's kind.
  Vector column(size_t j) const;
  /// Overwrites column j (x.size() == rows()); a complex x makes this complex.
  void setColumn(size_t j, const Vector& x);
};

class QVARRAY_API Matrix3 : public MatrixTemplateBase<3> {
 public:
  Matrix3() = default;
  /// A real s0×s1×s2 array of zeros.
  Matrix3(size_t s0, size_t s1, size_t s2) { resizeStorage(s0, s1, s2); }
  explicit Matrix3(const Array<double, 3>& values) : MatrixTemplateBase(values) {}
  explicit Matrix3(Array<double, 3>&& values) : MatrixTemplateBase(std::move(values)) {}
  explicit Matrix3(const Array<dcomplex, 3>& values) : MatrixTemplateBase(values) {}
  explicit Matrix3(Array<dcomplex, 3>&& values) : MatrixTemplateBase(std::move(values)) {}

  /// New shape; contents kept when the element count is unchanged, else zeros.
  void resize(size_t s0, size_t s1, size_t s2) { resizeStorage(s0, s1, s2); }
  /// New shape and kind, all zeros.
  void resize(size_t s0, size_t s1, size_t s2, bool real) {
    setKind(real);
    resizeStorage(s0, s1, s2);
    setZero();
  }

  dcomplex get(size_t i, size_t j, size_t k) const { return getAt(index(i, j, k)); }
  void set(size_t i, size_t j, size_t k, dcomplex v) { setAt(index(i, j, k), v); }
  void set(size_t i, size_t j, size_t k, double v) {
    if (real_) d_(i, j, k) = v; else z_(i, j, k) = v;
  }
  double& d(size_t i, size_t j, size_t k) { return d_(i, j, k); }
  double d(size_t i, size_t j, size_t k) const { return d_(i, j, k); }
  dcomplex& z(size_t i, size_t j, size_t k) { return z_(i, j, k); }
  const dcomplex& z(size_t i, size_t j, size_t k) const { return z_(i, j, k); }

  /// Slice (:, :, k) as a matrix of this kind.
  Matrix slice(size_t k) const;
  /// Overwrites slice (:, :, k) with A (A must be size(0)×size(1)).
  void setSlice(size_t k, const Matrix& A);

 private:
  size_t index(size_t i, size_t j, size_t k) const {
    return i + size(0) * (j + size(1) * k);
  }
};

}  // namespace qvarray

using qvarray::Matrix;
using qvarray::Matrix3;
using qvarray::MatrixBase;
using qvarray::Vector;
using qvarray::VectorBase;
