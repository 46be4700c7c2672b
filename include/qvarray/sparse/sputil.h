#pragma once
// Free functions on sparse matrices: blocks, the lower triangle and
// horizontal concatenation.
//
// Errors (module "sparse"): "Size_sparse_matrices_disagree",
// "Symmetry_sparse_matrices_disagree", "Matrix_not_square",
// "Internal_error_sparse" (an index out of range, a null operand, a partial
// matrix where a whole one is needed). Inputs are checked before anything
// is built.
#include <memory>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

/// The block B(a, b) = A(rows[a], cols[b]) of the matrix A represents (its
/// symmetry mode applied), in mode SymmNone with A's value type. Rows and
/// columns may repeat and come in any order; within a column, rows follow
/// A's storage order of the represented matrix, a repeated row in the order
/// of its positions in `rows`.
QVARRAY_API Sparse subMatrix(const Sparse& A, const Array<size_t, 1>& rows,
                             const Array<size_t, 1>& cols);

/// The lower triangle, diagonal included, of the square matrix A represents,
/// in mode SymmNone ("Matrix_not_square" otherwise).
QVARRAY_API Sparse sparse2tril(const Sparse& A);

/// [A1 A2 … Ak]: the stored columns of the listed matrices side by side. All
/// must have the same row count ("Size_sparse_matrices_disagree") and the
/// same symmetry mode ("Symmetry_sparse_matrices_disagree"), which the result
/// takes; in mode SymmTransposed this stacks the represented matrices
/// vertically. The result is complex when any operand is. An empty list
/// gives the real 0×0 matrix.
QVARRAY_API Sparse hcatPrivate(const std::vector<std::shared_ptr<Sparse>>& list);

}  // namespace qvarray
