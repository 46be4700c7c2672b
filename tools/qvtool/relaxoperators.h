#pragma once
// A sparse matrix and its symmetric SOR step as LinearOperators, for GMRES in
// qvtool's poisson subcommand and the relaxation benchmark. Both reference
// the matrix, which must outlive them and stay unchanged (and in FormSorted
// for the preconditioner).
#include "qvarray/linearoperator.h"
#include "qvarray/sparse.h"

namespace qvtool {

/// y = A·x through the library's product (parallel from 10000 entries on).
class SparseOperator : public qvarray::LinearOperator {
 public:
  explicit SparseOperator(const qvarray::Sparse& A) : A_(A) {}
  size_t size() const override { return A_.getN(); }
  bool isReal() const override { return A_.isReal(); }

 protected:
  void applyReal(const qvarray::Array<double, 1>& x, qvarray::Array<double, 1>& y) const override;

 private:
  const qvarray::Sparse& A_;
};

/// z = M⁻¹·v for the symmetric SOR step M with factor ω: from z = 0, whose
/// residual is −v, a forward sweep that also updates the residual
/// (SORItUpdater), then a backward sweep (SORIt). Real matrices only.
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
