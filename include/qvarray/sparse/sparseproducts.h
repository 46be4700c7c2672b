#pragma once
// Sparse matrix–vector products: y ± op(A)·x with op(A) = A, Aᵀ or Aᴴ.
//
// Operands: the matrix A (real or complex storage) and dense Vectors x and y,
// each real or complex, in any combination. The result is complex when A or
// x is; a real y that receives a complex result is made complex first.
// ConjTrans on a real matrix acts as Trans.
//
// How the storage's symmetry mode enters (sparsemodes.h): mode SymmNone
// multiplies the stored matrix S; SymmTransposed represents Sᵀ, so NoTrans
// and Trans exchange their roles; SymmSymmetric represents S + Sᵀ and
// SymmHermitian S + Sᴴ, every stored entry (the diagonal included) acting
// once as stored and once mirrored.
//
// Sizes: op(A) is the represented matrix as selected; y must have its row
// count and x its column count (both n for the symmetric modes, which need a
// square matrix), else "Size_vector_sparse_matrix_disagree" (module
// "sparse") is raised before anything changes. Matrices marked partial
// (Sparse::isPartial: a block of a larger matrix) skip the check; their
// stored row indices minus the first-row offset index the row-space vector.
// x and y may be the same Vector (x is then copied first).
//
// Dispatch: the products run the parallel kernel (parallelsparse.h) when A
// has at least 10000 non-zeros and AVAILABLETHREADS() > 1, else the serial
// one. The serial product of real A, x and y uses an attached external
// representation when it reports itself usable (externalsparse.h).
//
// Results are deterministic: the parallel kernel adds into every entry of y
// in the order of the serial one, so both give the same bits in every mode,
// whatever the thread count and however many threads a step actually gets
// (qvutil/parallel.h: small steps and a busy machine get fewer).
#include <cstddef>

#include "qvarray/export.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/trans.h"

namespace qvarray {

/// The number of non-zeros from which the products go parallel.
inline constexpr size_t kParallelNnzThreshold = 10000;

/// y += op(A)·x; returns y.
QVARRAY_API Vector& yPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);
/// y −= op(A)·x; returns y.
QVARRAY_API Vector& yMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);
/// A new vector op(A)·x (real when A and x are).
QVARRAY_API Vector AMulx(const Sparse& A, const Vector& x, Trans_t t);
/// y = op(A)·x (y takes the result's length and kind).
QVARRAY_API void mulVec(Vector& y, const Sparse& A, const Vector& x, Trans_t t);
/// The same with column k of X as x (k ≥ X.cols() raises
/// "Internal_error_sparse"): y += op(A)·X(:, k), y −= op(A)·X(:, k), and a
/// new vector op(A)·X(:, k).
QVARRAY_API Vector& yPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k);
QVARRAY_API Vector& yMinusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t, size_t k);
QVARRAY_API Vector AMulx(const Sparse& A, const Matrix& X, Trans_t t, size_t k);

/// The serial product y += op(A)·x (checked as above), never parallel.
QVARRAY_API Vector& serialyPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);
QVARRAY_API Vector& serialyPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t,
                                     size_t k);
/// The serial product y −= op(A)·x.
QVARRAY_API Vector& serialyMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);

/// The serial/parallel dispatch of y += op(A)·x (checked as above); the
/// products above call these.
QVARRAY_API Vector& selectyPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);
QVARRAY_API Vector& selectyPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t,
                                     size_t k);
QVARRAY_API Vector& selectyMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);

/// True when a product with A takes the parallel path now.
QVARRAY_API bool usesParallelProduct(const Sparse& A);

}  // namespace qvarray
