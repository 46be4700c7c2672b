#pragma once
// LinearOperator: a square linear map y = A·x for the iterative solvers.
//
// Implementations override applyReal (real operators) and/or applyComplex.
// A real operator need not provide applyComplex: the default applies the real
// form to the real and imaginary parts. The public apply() checks lengths
// once (key "Internal_numerical_error") and sizes y.
//
// MatrixOperator adapts a dense Matrix; sparse matrices and matrix-free maps
// implement the interface themselves.
#include <complex>
#include <cstddef>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/matriximpl.h"

namespace qvarray {

class QVARRAY_API LinearOperator {
 public:
  virtual ~LinearOperator();

  /// Number of rows (and columns).
  virtual size_t size() const = 0;
  /// True when the operator maps real vectors to real vectors.
  virtual bool isReal() const = 0;

  /// y = A·x; y is resized to size(). x and y must be different arrays.
  void apply(const Array<double, 1>& x, Array<double, 1>& y) const;
  void apply(const Array<std::complex<double>, 1>& x, Array<std::complex<double>, 1>& y) const;

 protected:
  /// y = A·x with lengths checked and y sized; y's contents are undefined on
  /// entry. The default raises: a complex operator cannot act on real vectors.
  virtual void applyReal(const Array<double, 1>& x, Array<double, 1>& y) const;
  /// The default (for real operators) applies applyReal to the real and
  /// imaginary parts.
  virtual void applyComplex(const Array<std::complex<double>, 1>& x,
                            Array<std::complex<double>, 1>& y) const;
};

/// A dense square Matrix as an operator. The matrix is referenced, not
/// copied: it must outlive the operator and stay unchanged while in use.
class QVARRAY_API MatrixOperator : public LinearOperator {
 public:
  /// Raises "Internal_numerical_error" unless A is square.
  explicit MatrixOperator(const Matrix& A);
  MatrixOperator(Matrix&&) = delete;  // would reference a temporary
  size_t size() const override { return A_.rows(); }
  bool isReal() const override { return A_.isReal(); }

 protected:
  void applyReal(const Array<double, 1>& x, Array<double, 1>& y) const override;
  void applyComplex(const Array<std::complex<double>, 1>& x,
                    Array<std::complex<double>, 1>& y) const override;

 private:
  const Matrix& A_;
};

}  // namespace qvarray

using qvarray::LinearOperator;
using qvarray::MatrixOperator;
