#pragma once
// The Jacobi preconditioner of qvtool's gmres and null subcommands.
#include <complex>
#include <vector>

#include "qvarray/linearoperator.h"
#include "qvarray/sparse/sparse.h"

namespace qvtool {

/// y = diag(A)⁻¹·x for the matrix A represents; zero diagonal entries act
/// as 1. Real or complex as A is.
class JacobiPreconditioner : public qvarray::LinearOperator {
 public:
  explicit JacobiPreconditioner(const qvarray::Sparse& A);
  size_t size() const override { return inv_.size(); }
  bool isReal() const override { return real_; }

 protected:
  void applyReal(const qvarray::Array<double, 1>& x, qvarray::Array<double, 1>& y) const override;
  void applyComplex(const qvarray::Array<std::complex<double>, 1>& x,
                    qvarray::Array<std::complex<double>, 1>& y) const override;

 private:
  std::vector<std::complex<double>> inv_;
  bool real_;
};

}  // namespace qvtool
