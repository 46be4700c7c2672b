#pragma once
// Relaxation steps on sparse matrices: the smoothers of iterative solvers.
//
//   JacobiIts     x ← x − ω'·D⁻¹·r                 one damped Jacobi correction
//   SORIt         one SOR sweep for A·δ = −r: r ← δ, x ← x + δ
//   SORUpdater    x ← (c'·D + U)·x or (c'·D + L)·x in place, c = (ω − 1)/ω
//   SORItUpdater  one SOR sweep, then y becomes the residual of the new x
//
// D, L and U are read from the stored compressed columns S (sparsemodes.h):
// the diagonal entry of column i sits in row i + first column, the entries
// stored before it are the rows above the diagonal and those after it the
// rows below. In the symmetric modes 1 and 2 (A = S + Sᵀ or S + Sᴴ) the
// sweeps use ω' = ω/2 and the updates c' = 2c, which is what the halved
// diagonal of that storage needs; modes 0 and 3 use ω and c as given. Mode 2
// conjugates the entries it reads in their mirrored role and divides by the
// real part of the stored diagonal (the diagonal of a Hermitian matrix is
// real); on real storage modes 1 and 2 coincide.
//
// What the sweep computes, with ω in place of ω' outside the symmetric modes:
// - forward:  (D/ω + L)·δ = −r, rows visited in increasing order;
// - backward: (D/ω + U)·δ = −r, rows visited in decreasing order,
// where L and U are the strict triangles of the matrix A the mode stands for
// (mode 3 stores Aᵀ: its stored columns are A's rows). On return r holds δ
// and x has advanced by δ. With ω = 1 a forward sweep is one Gauss–Seidel
// step. The kernel is the textbook one per mode: mode 0 scatters δ down its
// column, mode 3 gathers along its stored column (a row of A), the symmetric
// modes gather over one side of the diagonal and scatter over the other.
//
// SORUpdater reads, for every column i, the stored entries on one side of
// the diagonal as the row i of the product: with the flag set
//   x_i ← c'·d_i·x_i + Σ_{stored rows k > i} s_ki·x_k   (columns increasing),
// otherwise the same over the stored rows k < i (columns decreasing), so the
// update reads old values only. For mode 3 this is (c·D + U)·x and
// (c·D + L)·x of A; for symmetric storage of one triangle it is the same of
// the symmetric matrix; for mode 0 it is the product of the matrix read row
// by row, i.e. (c·D + Lᵀ)·x and (c·D + Uᵀ)·x, which equals (c·D + U)·x for
// a symmetric A.
//
// SORItUpdater(x, y): y enters as the residual r of x for A·x = b in the
// sign convention of the sweeps (r = A·x − b). The sweep runs on it, x
// advances by δ, and y leaves as the residual of the new x, r + A·δ, in every
// mode (it is (c·D + U)·δ after a forward and (c·D + L)·δ after a backward
// sweep; mode 0 computes it in the same pass as the sweep). A forward
// SORItUpdater followed by a backward SORIt is one symmetric SOR step.
//
// Index spaces: x of JacobiIts, SORIt and SORItUpdater is indexed by column
// (x[i]); r, y and the vector of SORUpdater live in the row space of the
// stored matrix: stored row k is entry k − first row, so column i owns entry
// i + first column − first row. JacobiIts reads r by column index directly.
// Lengths: column-space vectors have getN() entries, row-space vectors
// getM() − first row; otherwise "Size_vector_sparse_matrix_disagree". A
// partial matrix (Sparse::setOffsets) must store no row before its first
// row, and its first column must not lie before its first row (else
// "Internal_error_sparse").
//
// Restricted forms (SORIt, SORUpdater, SORItUpdater with index lists): the
// same steps on the principal submatrix A(J, J) of the listed columns J
// (strictly increasing, each < getN()); unknowns outside J are held fixed:
// their entries are neither read nor written, and couplings to them are
// left out. With all columns listed they compute the full sweep. The
// one-list forms address the vectors as the full forms do; the three-list
// forms (cols, idx2, idx3) address them through the lists: column cols[t]
// owns x[idx2[t]] and r[idx3[t]] (y[idx3[t]]); SORUpdater reads the old
// values at idx2 and writes the new ones at idx3 (in place when the lists
// are equal; otherwise the two sets of positions must not overlap). The
// restricted forms always run serially: their work is bounded by the list.
//
// Number types: complex storage works on complex vectors, and a complex r
// (or x) puts real storage to complex arithmetic; vectors that must hold
// complex values are made complex first. JacobiIts reads a real r as it is.
//
// Dispatch: JacobiIts runs in parallel when getN() ≥ 10000, the sweeps and
// updates when getNnz() ≥ 10000, provided AVAILABLETHREADS() > 1; the
// matrix's parallel data is then built if absent (Sparse::setParallelData).
// The serial kernels return −1, the parallel ones the number of column blocks
// (AVAILABLETHREADS()).
// - Parallel JacobiIts is the serial step split by columns: same result.
// - Parallel SORUpdater is the serial product, bit for bit (the blocks read a
//   copy of the old vector).
// - Parallel SORIt is the SOR sweep for a fixed ordering P of the columns:
//   the columns are cut into one contiguous block per available thread,
//   balanced by stored entries (the column split of the parallel products,
//   parallelsparse.h); the columns coupled to another block (an entry in a
//   row of another block, or an entry of another block in their row) are the
//   boundary columns, the others interior. P takes the interior columns of
//   every block, then the boundary columns, each in increasing order; the
//   interiors of the blocks, which do not couple, are relaxed at once, the
//   boundary columns on one thread (a backward sweep runs P in reverse).
//   This is a true SOR sweep of the symmetrically permuted matrix, so it
//   smooths and converges as the serial sweep does (for a symmetric positive
//   definite matrix, for every 0 < ω < 2). The result
//   depends on the thread count (through P), never on the scheduling or on
//   how many threads a step actually gets (qvutil/parallel.h: small steps
//   and a busy machine get fewer); it equals the serial sweep when no column
//   couples across blocks.
// - Parallel SORItUpdater is that sweep followed by the exact residual
//   r + A·δ.
// The ordering is built once per pattern and thread count and kept with the
// matrix's parallel data.
//
// Preparation: the steps split each column at its diagonal entry, so they
// need the rows sorted within each column and the diagonal index: the matrix
// must be in FormSorted (A.setForm(FormSorted) sorts the rows, builds the
// index and draws a new pattern version when an entry moves; triplet assembly
// keeps the rows in the order of first appearance). Another form is refused
// with "Internal_error_sparse" and a sentence saying so: a relaxation step
// changes nothing but its vectors, so one matrix can serve several threads
// at once. A column without its diagonal entry raises
// "Matrix_has_zero_on_diagonal" (module "sparse", detail ("Column", j)); a
// stored zero on the diagonal divides by zero. Errors are raised before any
// vector changes.
#include <cstddef>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/matriximpl.h"

namespace qvarray {

class Sparse;
class SparseBase;

/// x ← x − ω'·D⁻¹·r.
QVARRAY_API int JacobiIts(const Sparse& A, Vector& x, Vector& r, double omega);
QVARRAY_API int JacobiIts(const SparseBase& A, Vector& x, Vector& r, double omega);

/// One SOR sweep on the residual r: r ← δ, x ← x + δ.
QVARRAY_API int SORIt(const Sparse& A, Vector& x, Vector& r, double omega, bool backward);
QVARRAY_API int SORIt(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward);
QVARRAY_API int SORIt(const Sparse& A, Vector& x, Vector& r, double omega, bool backward,
                      const Array<size_t, 1>& cols);
QVARRAY_API int SORIt(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward,
                      const Array<size_t, 1>& cols);
QVARRAY_API int SORIt(const Sparse& A, Vector& x, Vector& r, double omega, bool backward,
                      const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
                      const Array<size_t, 1>& idx3);
QVARRAY_API int SORIt(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward,
                      const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
                      const Array<size_t, 1>& idx3);

/// x ← (c'·D + U)·x (flag) or (c'·D + L)·x in place, c = (ω − 1)/ω.
QVARRAY_API int SORUpdater(const Sparse& A, Vector& x, double omega, bool flag);
QVARRAY_API int SORUpdater(const SparseBase& A, Vector& x, double omega, bool flag);
QVARRAY_API int SORUpdater(const Sparse& A, Vector& x, double omega, bool flag,
                           const Array<size_t, 1>& cols);
QVARRAY_API int SORUpdater(const SparseBase& A, Vector& x, double omega, bool flag,
                           const Array<size_t, 1>& cols);
QVARRAY_API int SORUpdater(const Sparse& A, Vector& x, double omega, bool flag,
                           const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
                           const Array<size_t, 1>& idx3);
QVARRAY_API int SORUpdater(const SparseBase& A, Vector& x, double omega, bool flag,
                           const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
                           const Array<size_t, 1>& idx3);

/// One SOR sweep on the residual y, then y ← the residual of the new x.
QVARRAY_API int SORItUpdater(const Sparse& A, Vector& x, Vector& y, double omega, bool backward);
QVARRAY_API int SORItUpdater(const SparseBase& A, Vector& x, Vector& y, double omega,
                             bool backward);
QVARRAY_API int SORItUpdater(const Sparse& A, Vector& x, Vector& y, double omega, bool backward,
                             const Array<size_t, 1>& cols);
QVARRAY_API int SORItUpdater(const SparseBase& A, Vector& x, Vector& y, double omega,
                             bool backward, const Array<size_t, 1>& cols);
QVARRAY_API int SORItUpdater(const Sparse& A, Vector& x, Vector& y, double omega, bool backward,
                             const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
                             const Array<size_t, 1>& idx3);
QVARRAY_API int SORItUpdater(const SparseBase& A, Vector& x, Vector& y, double omega,
                             bool backward, const Array<size_t, 1>& cols,
                             const Array<size_t, 1>& idx2, const Array<size_t, 1>& idx3);

}  // namespace qvarray
