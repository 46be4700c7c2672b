#include "qvarray/linearoperator.h"

#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {



}  // namespace

LinearOperator::~LinearOperator() = default;

void LinearOperator::apply(const Array<double, 1>& x, Array<double, 1>& y) const {
  QV_CHECK(x.count == size(), linearoperator, Internal_numerical_error,
           "apply: Length of x differs from the operator size.");
  QV_CHECK(&x != &y, linearoperator, Internal_numerical_error,
           "apply: x and y must be different arrays.");
  y.resize(size());
  applyReal(x, y);
}

void LinearOperator::apply(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) const {
  QV_CHECK(x.count == size(), linearoperator, Internal_numerical_error,
           "apply: Length of x differs from the operator size.");
  QV_CHECK(&x != &y, linearoperator, Internal_numerical_error,
           "apply: x and y must be different arrays.");
  y.resize(size());
  applyComplex(x, y);
}

void LinearOperator::applyReal(const Array<double, 1>&, Array<double, 1>&) const {
  QV_CHECK(false, linearoperator, Internal_numerical_error,
           "apply: A complex operator cannot act on real vectors.");
}

void LinearOperator::applyComplex(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) const {
  QV_CHECK(isReal(), linearoperator, Internal_numerical_error,
           "apply: The operator does not implement its complex form.");
  const size_t n = x.count;
  Array<double, 1> part(n), out(n);
  for (size_t i = 0; i < n; ++i) part[i] = x[i].real();
  applyReal(part, out);
  for (size_t i = 0; i < n; ++i) y[i] = out[i];
  for (size_t i = 0; i < n; ++i) part[i] = x[i].imag();
  applyReal(part, out);
  for (size_t i = 0; i < n; ++i) y[i] += dcomplex(0.0, out[i]);
}

MatrixOperator::MatrixOperator(const Matrix& A) : A_(A) {
  QV_CHECK(A.isSquare(), linearoperator, Internal_numerical_error,
           "MatrixOperator: The matrix must be square.");
}

void MatrixOperator::applyReal(const Array<double, 1>& x, Array<double, 1>& y) const {
  QV_CHECK(A_.isReal(), linearoperator, Internal_numerical_error,
           "apply: A complex operator cannot act on real vectors.");
  y.fill(0.0);
  if (x.count) yPlusAMulx(y, A_.getdArr(), x, NoTrans);
}

void MatrixOperator::applyComplex(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) const {
  if (A_.isReal()) {
    LinearOperator::applyComplex(x, y);
    return;
  }
  y.fill(0.0);
  if (x.count) yPlusAMulx(y, A_.getzArr(), x, NoTrans);
}

}  // namespace qvarray
