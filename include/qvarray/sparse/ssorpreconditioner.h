#pragma once
// The symmetric SOR step of a sparse matrix as a LinearOperator: a
// preconditioner for GMRES (gmres.h) built from the relaxation steps of
// sparserelax.h.
#include "qvarray/export.h"
#include "qvarray/linearoperator.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

/// z = M⁻¹·v for the symmetric SOR step M with factor ω: from z = 0, whose
/// residual is −v, a forward sweep that also updates the residual
/// (SORItUpdater), then a backward sweep (SORIt). Real matrices only; the
/// matrix is referenced and must outlive the operator, unchanged and in
/// FormSorted.
class QVARRAY_API SsorPreconditioner : public LinearOperator {
 public:
  SsorPreconditioner(const Sparse& A, double omega) : A_(A), omega_(omega) {}
  size_t size() const override { return A_.getN(); }
  bool isReal() const override { return true; }

 protected:
  void applyReal(const Array<double, 1>& v, Array<double, 1>& z) const override;

 private:
  const Sparse& A_;
  double omega_;
};

}  // namespace qvarray
