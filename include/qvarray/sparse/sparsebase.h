#pragma once
// SparseBase: the abstract interface of the library's sparse matrices.
//
// The virtual operations are declared in a fixed slot order (the products and
// relaxation steps first, the destructor last). Every default implementation
// raises "Internal_error_sparse_base" (module "sparsebase"): the operation is
// not available on this kind of matrix. `Sparse` (sparse.h) overrides all.
//
// Conventions of the interface:
// - Indices are 0-based stored indices: row i, column j of the stored
//   compressed columns (see sparsemodes.h for how they represent the matrix).
// - Operations that change the matrix return it, so calls chain.
// - Element access and edits act on the stored entries; in the symmetric and
//   transposed modes they do not mirror or transpose.
#include <complex>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/sparse/llsparse.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparsemodes.h"
#include "qvarray/trans.h"

namespace qvarray {

class Matrix;  // dense matrix of several right-hand sides (matriximpl.h)
class SparseBase;

// The products on the interface (sparseproducts.h); each forwards to the
// matrix's virtual operation of the same name with the suffix Impl.
QVARRAY_API Vector& yPlusAMulx(Vector& y, const SparseBase& A, const Vector& x, Trans_t t);
QVARRAY_API Vector& yPlusAMulx(Vector& y, const SparseBase& A, const Matrix& X, Trans_t t,
                               size_t k);
QVARRAY_API Vector& yMinusAMulx(Vector& y, const SparseBase& A, const Vector& x, Trans_t t);
QVARRAY_API Vector AMulx(const SparseBase& A, const Vector& x, Trans_t t);
QVARRAY_API void mulVec(Vector& y, const SparseBase& A, const Vector& x, Trans_t t);

class QVARRAY_API SparseBase {
 public:
  SparseBase() = default;
  SparseBase(const SparseBase&) = default;

  /// Writes the text form (see outputImpl) to `os`.
  friend QVARRAY_API std::ostream& operator<<(std::ostream& os, const SparseBase& A);
  friend Vector& yPlusAMulx(Vector& y, const SparseBase& A, const Vector& x, Trans_t t);
  friend Vector& yPlusAMulx(Vector& y, const SparseBase& A, const Matrix& X, Trans_t t,
                            size_t k);
  friend Vector& yMinusAMulx(Vector& y, const SparseBase& A, const Vector& x, Trans_t t);
  friend Vector AMulx(const SparseBase& A, const Vector& x, Trans_t t);
  friend void mulVec(Vector& y, const SparseBase& A, const Vector& x, Trans_t t);
  /// The relaxation steps (sparserelax.h) reach the protected slots through it.
  friend struct SparseRelaxAccess;

 protected:
  // ---- text output, products and relaxation -------------------------------

  /// Text form: "Sparse <m>-by-<n> matrix. Nnz = <nnz>." (dimensions swapped
  /// in the transposed mode), "Symmetric." when the mode is not 0, a header
  /// line and one line per stored entry in column order.
  virtual void outputImpl(std::ostream& os) const;
  /// Returns op(A)·x.
  virtual Vector AMulxImpl(const Vector& x, Trans_t t) const;
  /// y = op(A)·x.
  virtual void mulVecImpl(Vector& y, const Vector& x, Trans_t t) const;
  /// y += op(A)·x; returns y.
  virtual Vector& yPlusAMulxImpl(Vector& y, const Vector& x, Trans_t t) const;
  /// y += op(A)·X(:, k); returns y.
  virtual Vector& yPlusAMulxImpl(Vector& y, const Matrix& X, Trans_t t, size_t k) const;
  /// y −= op(A)·x; returns y.
  virtual Vector& yMinusAMulxImpl(Vector& y, const Vector& x, Trans_t t) const;
  /// One damped Jacobi correction x ← x − ω'·D⁻¹·r.
  virtual int JacobiItsImpl(Vector& x, Vector& r, double omega) const;
  /// One SOR sweep on the residual r (r becomes the correction, x advances).
  virtual int SORItImpl(Vector& x, Vector& r, double omega, bool backward) const;
  /// The sweep restricted to the listed columns.
  virtual int SORItImpl(Vector& x, Vector& r, double omega, bool backward,
                        const Array<size_t, 1>& cols) const;
  /// The sweep restricted by three index lists.
  virtual int SORItImpl(Vector& x, Vector& r, double omega, bool backward,
                        const Array<size_t, 1>& idx1, const Array<size_t, 1>& idx2,
                        const Array<size_t, 1>& idx3) const;
  /// x ← (c'·D + U)·x (flag) or (c'·D + L)·x in place, c = (ω − 1)/ω.
  virtual int SORUpdaterImpl(Vector& x, double omega, bool flag) const;
  virtual int SORUpdaterImpl(Vector& x, double omega, bool flag,
                             const Array<size_t, 1>& cols) const;
  virtual int SORUpdaterImpl(Vector& x, double omega, bool flag, const Array<size_t, 1>& idx1,
                             const Array<size_t, 1>& idx2, const Array<size_t, 1>& idx3) const;
  /// The sweep and the update combined.
  virtual int SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward) const;
  virtual int SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward,
                               const Array<size_t, 1>& cols) const;
  virtual int SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward,
                               const Array<size_t, 1>& idx1, const Array<size_t, 1>& idx2,
                               const Array<size_t, 1>& idx3) const;

 public:
  // ---- sizes and raw storage ------------------------------------------------

  virtual size_t getM() const;      ///< stored rows
  virtual size_t getN() const;      ///< stored columns
  virtual size_t getNnz() const;    ///< stored entries
  virtual size_t getNzmax() const;  ///< allocated entries
  /// Column starts (n + 1 entries) of the storage in use.
  virtual const size_t* getColPtr() const;
  /// Row indices (null when there are no entries).
  virtual const size_t* getRow() const;
  /// Diagonal positions per column (FormSorted only; null otherwise).
  virtual const size_t* getDiag() const;
  /// Real values, or null when the storage is complex.
  virtual const double* getDoubleVal() const;
  /// Complex values, or null when the storage is real.
  virtual const std::complex<double>* getDcmplxVal() const;
  /// The real storage object (null while the matrix is complex).
  virtual std::shared_ptr<const llsparse<double>> getptrD() const;
  /// The complex storage object (null while the matrix is real).
  virtual std::shared_ptr<const llsparse<std::complex<double>>> getptrZ() const;
  virtual bool isReal() const;
  virtual Form_t getForm() const;
  /// Rearranges the storage into `form` (as format(form, false)).
  virtual SparseBase& setForm(Form_t form);
  virtual Symm_t getSymm() const;
  /// Sets the symmetry mode: how the stored entries are read; they are not
  /// changed. Raises "Internal_error_sparse" for a value outside 0…3.
  virtual SparseBase& setSymm(Symm_t symm);
  /// True when the stored matrix equals its transpose (t = Trans) or its
  /// conjugate transpose (t = ConjTrans) within tol (see isEqual).
  virtual bool isSymmetric(double tol, Trans_t t) const;
  /// True when the stored matrix equals op(B): sizes agree and every element
  /// pair is equal or differs by at most tol·(largest finite stored magnitude
  /// of the two). Stored duplicates count as their sum; a stored zero equals
  /// a missing entry. Raises "Internal_error_sparse_base" when B is not
  /// comparable.
  virtual bool isEqual(const SparseBase& B, double tol, Trans_t t) const;

  // ---- construction ---------------------------------------------------------

  /// The m×n matrix of the triplets (rows[k], cols[k], values[k]); duplicates
  /// summed in input order, rows in order of first appearance. values may
  /// hold a single value meant for every triplet. Real values give a real
  /// matrix, complex values a complex one.
  virtual SparseBase& triplet2sparse(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                                     const Vector& values, size_t m, size_t n);
  /// The m×n matrix of ready compressed columns (colPtr has n + 1 entries).
  virtual SparseBase& flat2sparse(const Array<size_t, 1>& rowIndex, const Array<size_t, 1>& colPtr,
                                  const Array<double, 1>& values, size_t m, size_t n);
  virtual SparseBase& flat2sparse(const Array<size_t, 1>& rowIndex, const Array<size_t, 1>& colPtr,
                                  const Array<std::complex<double>, 1>& values, size_t m,
                                  size_t n);
  /// The real n×n zero matrix.
  virtual SparseBase& zeros(size_t n);
  /// The m×n zero matrix, real or complex, with room for nzmax entries.
  virtual SparseBase& zeros(size_t m, size_t n, size_t nzmax, bool isReal);
  /// The real n×n identity.
  virtual SparseBase& eye(size_t n);
  /// The real 0×0 matrix.
  virtual SparseBase& clear();

  // ---- element and value operations ------------------------------------------

  /// Sets element (i, j). A missing element is inserted into spare room
  /// (raises "Internal_error_sparse", "Reallocation is needed." when there is
  /// none; see reallocate). A value with a non-zero imaginary part makes a
  /// real matrix complex.
  virtual SparseBase& setElem(size_t i, size_t j, std::complex<double> v);
  /// A ← a·A (a real factor keeps a real matrix real).
  virtual SparseBase& scale(std::complex<double> a);
  /// Scale the stored entries by diagonal matrices: rowscale S ← diag(d)·S,
  /// rowscaleInv S ← diag(d)⁻¹·S, colscale S ← S·diag(d), colscaleInv
  /// S ← S·diag(d)⁻¹ (d indexed by stored row minus the first-row offset, or
  /// by column). The pattern and its version stay; a complex d makes a real
  /// matrix complex. On symmetric storage rowscale and colscale by the same
  /// d give D·A·D. Errors: "Size_vector_sparse_matrix_disagree" (d's length
  /// is not the row or column count), "Matrix_has_zero_on_diagonal" (a zero
  /// in d for the inverse forms).
  virtual SparseBase& rowscale(const Vector& d);
  virtual SparseBase& rowscaleInv(const Vector& d);
  virtual SparseBase& colscale(const Vector& d);
  virtual SparseBase& colscaleInv(const Vector& d);
  /// Conjugates the values (nothing to do on a real matrix).
  virtual SparseBase& conjugate();
  /// Replaces each value by its sign (−1, 0, 1); real matrices only
  /// ("Sign_of_complex_Sparse_not_implemented").
  virtual SparseBase& sign();
  /// Makes the storage complex with the same pattern (the row array is
  /// shared) and values with zero imaginary parts.
  virtual SparseBase& real2complex();
  /// Makes a complex matrix whose imaginary parts are all zero real; returns
  /// whether the matrix is real afterwards.
  virtual bool convertZeroImagToReal();
  /// Replaces the (square) represented matrix R by its symmetric part
  /// (R + Rᵀ)/2 (t = NoTrans or Trans, mode SymmSymmetric) or Hermitian part
  /// (R + Rᴴ)/2 (t = ConjTrans, mode SymmHermitian), stored as its lower
  /// triangle with half the diagonal, rows sorted. "Matrix_not_square"
  /// otherwise.
  virtual SparseBase& makeSymmetric(Trans_t t);
  /// Symmetric storage (modes 1, 2) folded into its lower triangle: each
  /// pair (i, j), (j, i) stored once, duplicates summed, rows sorted; the
  /// represented matrix is unchanged. Nothing to do in modes 0 and 3.
  virtual SparseBase& uniqueSymmetric();
  /// Removes from each column the entries of magnitude ≤ tol·(largest
  /// magnitude in that column); a column of zeros becomes empty.
  virtual SparseBase& truncateCols(double tol);
  /// A ← A·op(B) and A ← op(B)·A for the represented matrices (symmetry
  /// modes applied), by Gustavson's method: time linear in the flops, rows of
  /// the result in order of first appearance, mode SymmNone. With flag,
  /// entries that come out exactly zero are dropped. Errors:
  /// "Size_sparse_matrices_disagree", "Internal_error_sparse_base" (B not a
  /// Sparse), "Internal_error_sparse" (a partial operand).
  virtual SparseBase& mulRight(const SparseBase& B, Trans_t t, bool flag);
  virtual SparseBase& multLeft(const SparseBase& B, Trans_t t, bool flag);
  /// A ← A + a·B on the stored entries: sizes, offsets and symmetry modes
  /// must agree ("Size_sparse_matrices_disagree",
  /// "Symmetry_sparse_matrices_disagree", the latter also for a non-real a
  /// in mode SymmHermitian). B's new rows follow A's within each column; with
  /// the same pattern version only the values change. With flag, entries
  /// that come out exactly zero are dropped.
  virtual SparseBase& addMat(std::complex<double> a, const SparseBase& B, bool flag);
  /// Rearranges the storage into `form`; with dropZeros, stored zeros are
  /// removed as well. A new pattern version is drawn when the row array
  /// changes.
  virtual SparseBase& format(Form_t form, bool dropZeros);
  /// Sets the capacity to ⌈factor·max(nnz, 1)⌉ entries for factor > 1, else
  /// to nnz (trimming spare room); values, pattern and version are kept.
  virtual SparseBase& reallocate(double factor);
  /// Counts the entries with a non-zero value per column (dim 0, n counts) or
  /// per row (dim 1, m counts) into `counts`; returns their total.
  virtual size_t nonZeros(int dim, Array<int, 1>& counts) const;
  /// Sets every stored value of the listed columns to zero (pattern kept).
  virtual SparseBase& zeroCols(const Array<size_t, 1>& cols);
  /// Removes the columns without a non-zero value; `kept` receives the old
  /// indices of the remaining columns.
  virtual SparseBase& removeZeroCols(Array<size_t, 1>& kept);
  /// Position of element (i, j) in the value array, or llsparse<T>::npos.
  virtual size_t getIdx(size_t i, size_t j) const;
  /// idx(a, b) = getIdx(rows[a], cols[b]).
  virtual void getIdxBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                           Array<size_t, 2>& idx) const;
  /// Real part of element (i, j); 0 when it is not stored.
  virtual double getReal(size_t i, size_t j) const;
  virtual void getRealBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                            Array<double, 2>& block) const;
  /// Imaginary part of element (i, j); 0 when it is not stored or real.
  virtual double getImag(size_t i, size_t j) const;
  virtual void getImagBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                            Array<double, 2>& block) const;
  /// Column j as a pair: its stored row indices and values (real or complex).
  virtual void getVectorPair(size_t j, Array<size_t, 1>& rows, Vector& values) const;
  /// Takes over B's matrix (shared storage).
  virtual SparseBase& operator=(const SparseBase& B);
  virtual ~SparseBase();
};

QVARRAY_API std::ostream& operator<<(std::ostream& os, const SparseBase& A);

}  // namespace qvarray

using qvarray::SparseBase;
