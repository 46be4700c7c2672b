// A sparse matrix and its symmetric SOR step as LinearOperators.
#include "relaxoperators.h"

#include <utility>

#include "qvarray/sparseproducts.h"
#include "qvarray/sparserelax.h"

namespace qvtool {

using qvarray::Array;
using qvarray::Vector;

// The arrays move into Vectors and back; only x is copied.
void SparseOperator::applyReal(const Array<double, 1>& x, Array<double, 1>& y) const {
  const Vector xv(x);
  Vector yv(std::move(y));
  qvarray::mulVec(yv, A_, xv, qvarray::NoTrans);
  y = std::move(yv.getdArr());
}

void SsorPreconditioner::applyReal(const Array<double, 1>& v, Array<double, 1>& z) const {
  Vector r(v);
  r *= -1.0;
  Vector zv(std::move(z));
  zv.setZero();
  qvarray::SORItUpdater(A_, zv, r, omega_, false);
  qvarray::SORIt(A_, zv, r, omega_, true);
  z = std::move(zv.getdArr());
}

}  // namespace qvtool
