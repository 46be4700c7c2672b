#pragma once
// The symmetric SOR step of a sparse matrix as a LinearOperator: the
// preconditioner of GMRES in qvtool's poisson subcommand and the relaxation
// benchmark (the matrix itself is a qvarray::SparseOperator).
#include "qvarray/linearoperator.h"
#include "qvarray/sparse/sparse.h"

namespace qvtool {

/// z = M⁻¹·v for the symmetric SOR step M with factor ω: from z = 0, whose
/// residual is −v, a forward sweep that also updates the residual
/// (SORItUpdater), then a backward sweep (SORIt). Real matrices only; the
/// matrix is referenced and must outlive the operator, unchanged and in
/// FormSorted.
class SsorPreconditioner : public qvarray::LinearOperator {
 public:
  SsorPreconditioner(const qvarray::Sparse& A, double omega) : A_(A), omega_(omega) {}
  size_t size() const override { return A_.getN(); }
  bool isReal() const override { return true; }

 protected:
  void applyReal(const qvarray::Array<double, 1>& v, qvarray::Array<double, 1>& z) const override;

 private:
  const qvarray::Sparse& A_;
  double omega_;
};

}  // namespace qvtool
