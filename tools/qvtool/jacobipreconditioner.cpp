#include "jacobipreconditioner.h"

namespace qvtool {

using dcomplex = std::complex<double>;

JacobiPreconditioner::JacobiPreconditioner(const qvarray::Sparse& A)
    : inv_(A.getN(), 1.0), real_(A.isReal()) {
  const size_t* colptr = A.getColPtr();
  const size_t* row = A.getRow();
  const double* dv = A.getDoubleVal();
  const dcomplex* zv = A.getDcmplxVal();
  // The diagonal is stored whole in every mode but the symmetric ones, which
  // keep half of it.
  const bool halved = A.getSymm() == qvarray::SymmSymmetric || A.getSymm() == qvarray::SymmHermitian;
  for (size_t j = 0; j < inv_.size(); ++j) {
    dcomplex d = 0.0;
    for (size_t k = colptr[j]; k < colptr[j + 1]; ++k)
      if (row[k] == j) d += real_ ? dcomplex(dv[k]) : zv[k];
    if (halved) d *= 2.0;
    if (d != 0.0) inv_[j] = 1.0 / d;
  }
}

void JacobiPreconditioner::applyReal(const qvarray::Array<double, 1>& x,
                                     qvarray::Array<double, 1>& y) const {
  for (size_t i = 0; i < inv_.size(); ++i) y[i] = inv_[i].real() * x[i];
}

void JacobiPreconditioner::applyComplex(const qvarray::Array<dcomplex, 1>& x,
                                        qvarray::Array<dcomplex, 1>& y) const {
  for (size_t i = 0; i < inv_.size(); ++i) y[i] = inv_[i] * x[i];
}

}  // namespace qvtool
