// The symmetric SOR step of a sparse matrix as a LinearOperator.
#include "relaxoperators.h"

#include <utility>

#include "qvarray/sparse/sparserelax.h"

namespace qvtool {

using qvarray::Array;
using qvarray::Vector;

// The arrays move into Vectors and back; only v is copied.
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
