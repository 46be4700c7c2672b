// The symmetric SOR step of a sparse matrix as a LinearOperator.
#include "qvarray/sparse/ssorpreconditioner.h"

#include <utility>

#include "qvarray/sparse/sparserelax.h"

namespace qvarray {

// The arrays move into Vectors and back; only v is copied.
void SsorPreconditioner::applyReal(const Array<double, 1>& v, Array<double, 1>& z) const {
  Vector r(v);
  r *= -1.0;
  Vector zv(std::move(z));
  zv.setZero();
  SORItUpdater(A_, zv, r, omega_, false);
  SORIt(A_, zv, r, omega_, true);
  z = std::move(zv.getdArr());
}

}  // namespace qvarray
