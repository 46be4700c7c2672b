#pragma once
// ExternalSparse: an externally owned representation of a real sparse matrix
// that brings its own product (for example a matrix kept by an accelerator
// or by another library in its own format).
//
// The owner attaches it to a Sparse (Sparse::attachExtData) after building it
// from that matrix. The serial product of real A, x and y then asks it to get
// ready (setUp) and, when it reports itself usable, runs its product instead
// of the storage kernel; otherwise the storage kernel runs. Any change of the
// Sparse's values or pattern drops the attachment (it would be stale).
//
// Products may be made from several threads at once on one matrix: setUp and
// mulAdd must then be safe to call concurrently.
#include <cstddef>

#include "qvarray/export.h"
#include "qvarray/trans.h"

namespace qvarray {

class Sparse;

class QVARRAY_API ExternalSparse {
 public:
  virtual ~ExternalSparse();

  /// Prepares the representation for products with A (called before every
  /// product, so it should be cheap once prepared); returns whether it can
  /// make the product now.
  virtual bool setUp(const Sparse& A) = 0;
  /// y += alpha·op(A)·x with alpha = 1 or −1; t is NoTrans or Trans (the
  /// matrix is real), acting on the represented matrix as the storage
  /// kernels do. x has the column count of op(A) and y its row count.
  virtual void mulAdd(double alpha, const double* x, double* y, Trans_t t) const = 0;
};

}  // namespace qvarray

using qvarray::ExternalSparse;
