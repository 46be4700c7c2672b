#pragma once
// SparseOperator: a square sparse matrix as a LinearOperator (y = op(A)·x),
// so that the iterative solvers (gmres.h) run on it.
//
// The operator holds its own handle of the matrix (shared storage, no copy
// of the entries): later changes of the caller's matrix do not reach it. Its
// products are the library's sparse products (sparseproducts.h), serial or
// parallel by the usual rule; a real matrix acts on complex vectors directly
// through the mixed real/complex kernels.
#include "qvarray/export.h"
#include "qvarray/linearoperator.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/trans.h"

namespace qvarray {

class QVARRAY_API SparseOperator : public LinearOperator {
 public:
  /// op(A) for the matrix A represents (its symmetry mode applied). Raises
  /// "Matrix_not_square" (module "sparse") unless that matrix is square and
  /// "Internal_error_sparse" for a partial matrix.
  explicit SparseOperator(const Sparse& A, Trans_t t = NoTrans);

  size_t size() const override { return A_.getN(); }
  bool isReal() const override { return A_.isReal(); }
  const Sparse& matrix() const { return A_; }

 protected:
  void applyReal(const Array<double, 1>& x, Array<double, 1>& y) const override;
  void applyComplex(const Array<std::complex<double>, 1>& x,
                    Array<std::complex<double>, 1>& y) const override;

 private:
  Sparse A_;
  Trans_t t_;
};

}  // namespace qvarray

using qvarray::SparseOperator;
