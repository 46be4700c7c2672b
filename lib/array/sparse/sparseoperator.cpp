// SparseOperator: the sparse products behind the LinearOperator interface.
#include "qvarray/sparse/sparseoperator.h"

#include "qvutil/errors.h"
#include "sparse/sparseimpl.h"
#include "sparse/sparseproductimpl.h"

namespace qvarray {

SparseOperator::SparseOperator(const Sparse& A, Trans_t t) : A_(A), t_(t) {
  if (t != NoTrans && t != Trans && t != ConjTrans)
    QV_RAISE(sparse, Internal_error_sparse, "Invalid transposition selector.");
  if (A.isPartial())
    QV_RAISE(sparse, Internal_error_sparse, "SparseOperator needs a whole matrix.");
  // Every symmetry mode represents a square matrix exactly when its storage is square.
  if (A.getM() != A.getN()) QV_RAISE(sparse, Matrix_not_square);
}

void SparseOperator::applyReal(const Array<double, 1>& x, Array<double, 1>& y) const {
  if (!A_.isReal()) {
    LinearOperator::applyReal(x, y);  // raises: complex operator, real vectors
    return;
  }
  y.fill(0.0);
  spmv::addProduct(A_, {x.data, nullptr, x.count, false}, {y.data, nullptr, y.count, false}, t_,
                   false, spmv::Path::Select);
}

void SparseOperator::applyComplex(const Array<std::complex<double>, 1>& x,
                                  Array<std::complex<double>, 1>& y) const {
  y.fill(0.0);
  spmv::addProduct(A_, {nullptr, x.data, x.count, true}, {nullptr, y.data, y.count, true}, t_,
                   false, spmv::Path::Select);
}

}  // namespace qvarray
