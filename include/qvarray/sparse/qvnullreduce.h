#pragma once
// Constraint elimination with the bases of qvNull: the reduced system
//   Nᴴ·K·N·v = Nᴴ·(f − K·u₀)
// of K·u = f under B·u = r, and the way back u = N·v + u₀.
//
// K is the n×n matrix that the Sparse represents (any symmetry mode); the
// results are in mode SymmNone and complex when any operand is. Sizes are
// checked first (module "qvnull"): "Size_sparse_matrices_disagree" unless K
// is n×n, "Size_vector_sparse_matrix_disagree" for a vector of the wrong
// length (f and u₀: n, v: n − rank).
#include "qvarray/export.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/qvnull.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

/// Nᴴ·K·N, (n − rank) × (n − rank); exact zeros of the products are dropped.
QVARRAY_API Sparse reduceMatrix(const NullSpace& ns, const Sparse& K);
/// Nᴴ·(f − K·u₀).
QVARRAY_API Vector reduceVector(const NullSpace& ns, const Sparse& K, const Vector& f,
                                const Vector& u0);
/// u = N·v + u₀.
QVARRAY_API Vector expandSolution(const NullSpace& ns, const Vector& v, const Vector& u0);

}  // namespace qvarray
