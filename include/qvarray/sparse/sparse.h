#pragma once
// Sparse: the library's compressed-column sparse matrix handle.
//
// A Sparse holds either a real or a complex storage object (llsparse.h)
// through a shared pointer; copies share storage until one of them is
// changed (copy on write: uniqueD / uniqueZ). Every change of pattern or
// values drops the auxiliary data (parallel-product data, external
// representation), and every change of pattern draws a new pattern version
// (getRowColptrVersion).
//
// Errors (module "sparse"): "Length_triplet_vectors_disagree" (input lengths
// inconsistent), "Size_input_vector_too_large" (more than kMaxHashSize
// values), "Internal_error_sparse" (bad index or an impossible change, with a
// sentence), "Internal_error_sparse_base" (operation not yet available).
// Checks come first: a failed call leaves the matrix as it was.
//
// Not thread-safe for writing: a handle must not be changed while another
// thread reads it. Storage shared between handles is only read.
#include <atomic>
#include <complex>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

#include "qvarray/sparse/sparsebase.h"

namespace qvarray {

/// Per-pattern data of the parallel products (built by the product code).
class ParallelSparse;
/// An externally owned representation of the matrix.
class ExternalSparse;

class QVARRAY_API Sparse : public SparseBase {
 public:
  /// The real 0×0 matrix.
  Sparse();
  /// Shares B's storage and auxiliary data.
  Sparse(const Sparse& B);
  /// Takes a ready storage object (consistent, see llsparse.h) as the matrix.
  explicit Sparse(std::shared_ptr<llsparse<double>> store);
  explicit Sparse(std::shared_ptr<llsparse<std::complex<double>>> store);
  Sparse& operator=(const Sparse& B);
  Sparse& operator=(const SparseBase& B) override;
  ~Sparse() override;

  // ---- construction (see SparseBase) --------------------------------------

  Sparse& triplet2sparse(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                         const Vector& values, size_t m, size_t n) override;
  /// triplet2sparse from std::vector inputs.
  Sparse& vectorTripletToSparse(const std::vector<size_t>& rows, const std::vector<size_t>& cols,
                                const std::vector<double>& values, size_t m, size_t n);
  Sparse& vectorTripletToSparse(const std::vector<size_t>& rows, const std::vector<size_t>& cols,
                                const std::vector<std::complex<double>>& values, size_t m,
                                size_t n);
  Sparse& flat2sparse(const Array<size_t, 1>& rowIndex, const Array<size_t, 1>& colPtr,
                      const Array<double, 1>& values, size_t m, size_t n) override;
  Sparse& flat2sparse(const Array<size_t, 1>& rowIndex, const Array<size_t, 1>& colPtr,
                      const Array<std::complex<double>, 1>& values, size_t m, size_t n) override;
  Sparse& flat2sparse(const std::vector<size_t>& rowIndex, const std::vector<size_t>& colPtr,
                      const std::vector<double>& values, size_t m, size_t n);
  Sparse& flat2sparse(const std::vector<size_t>& rowIndex, const std::vector<size_t>& colPtr,
                      const std::vector<std::complex<double>>& values, size_t m, size_t n);
  Sparse& zeros(size_t n) override;
  Sparse& zeros(size_t m, size_t n, size_t nzmax, bool isReal) override;
  Sparse& eye(size_t n) override;
  Sparse& clear() override;

  /// The pattern version of the storage in use (0 before any pattern).
  std::int64_t getRowColptrVersion() const;
  size_t getFirstRow() const;
  size_t getFirstColumn() const;
  /// Marks the matrix as a block of a larger one whose first stored row and
  /// column are the given offsets; stored row indices are then global.
  Sparse& setOffsets(size_t firstRow, size_t firstColumn);
  /// True for a block of a larger matrix (a non-zero row or column offset):
  /// the products then skip their size check.
  bool isPartial() const { return getFirstRow() != 0 || getFirstColumn() != 0; }

  // ---- copy on write and auxiliary data ------------------------------------

  /// Gives this handle its own real storage object when it is shared.
  void uniqueD();
  /// Gives this handle its own complex storage object when it is shared.
  void uniqueZ();
  /// Drops the parallel-product data and the external representation.
  void clearAuxData();
  bool hasParallelData() const { return hasParallelData_.load(std::memory_order_acquire); }
  bool hasExtData() const { return hasExtData_; }

  /// The parallel-product data of the storage in use (parallelsparse.h),
  /// built when absent. The build is guarded: threads that make a first
  /// parallel call on one matrix at once get the same data. Valid until the
  /// matrix changes (every change drops it).
  std::shared_ptr<const ParallelSparse> setParallelData() const;
  /// The parallel-product data when built, else null.
  std::shared_ptr<const ParallelSparse> getParallelData() const;
  /// Attaches an external representation of the current matrix
  /// (externalsparse.h); any change of the matrix drops it.
  void attachExtData(std::shared_ptr<ExternalSparse> ext);
  std::shared_ptr<ExternalSparse> getExtData() const { return extData_; }
  /// Sets up the attached external representation for a product (its
  /// setUp); returns whether it is there and usable.
  bool setExtData() const;

  // ---- sizes and raw storage -------------------------------------------------

  size_t getM() const override;
  size_t getN() const override;
  size_t getNnz() const override;
  size_t getNzmax() const override;
  const size_t* getColPtr() const override;
  const size_t* getRow() const override;
  const size_t* getDiag() const override;
  const double* getDoubleVal() const override;
  const std::complex<double>* getDcmplxVal() const override;
  std::shared_ptr<const llsparse<double>> getptrD() const override;
  std::shared_ptr<const llsparse<std::complex<double>>> getptrZ() const override;
  bool isReal() const override { return real_; }
  Form_t getForm() const override;
  Sparse& setForm(Form_t form) override;
  Symm_t getSymm() const override;
  Sparse& setSymm(Symm_t symm) override;
  bool isSymmetric(double tol, Trans_t t) const override;
  bool isEqual(const SparseBase& B, double tol, Trans_t t) const override;

  // ---- element and value operations (see SparseBase) -----------------------

  Sparse& setElem(size_t i, size_t j, std::complex<double> v) override;
  Sparse& scale(std::complex<double> a) override;
  Sparse& rowscale(const Vector& d) override;
  Sparse& rowscaleInv(const Vector& d) override;
  Sparse& colscale(const Vector& d) override;
  Sparse& colscaleInv(const Vector& d) override;
  Sparse& conjugate() override;
  Sparse& sign() override;
  Sparse& real2complex() override;
  bool convertZeroImagToReal() override;
  Sparse& makeSymmetric(Trans_t t) override;
  Sparse& uniqueSymmetric() override;
  Sparse& truncateCols(double tol) override;
  Sparse& mulRight(const SparseBase& B, Trans_t t, bool flag) override;
  Sparse& multLeft(const SparseBase& B, Trans_t t, bool flag) override;
  Sparse& addMat(std::complex<double> a, const SparseBase& B, bool flag) override;
  Sparse& format(Form_t form, bool dropZeros) override;
  Sparse& reallocate(double factor) override;
  size_t nonZeros(int dim, Array<int, 1>& counts) const override;
  Sparse& zeroCols(const Array<size_t, 1>& cols) override;
  Sparse& removeZeroCols(Array<size_t, 1>& kept) override;
  size_t getIdx(size_t i, size_t j) const override;
  void getIdxBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                   Array<size_t, 2>& idx) const override;
  double getReal(size_t i, size_t j) const override;
  void getRealBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                    Array<double, 2>& block) const override;
  double getImag(size_t i, size_t j) const override;
  void getImagBlock(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols,
                    Array<double, 2>& block) const override;
  void getVectorPair(size_t j, Array<size_t, 1>& rows, Vector& values) const override;

  // ---- structural edits -------------------------------------------------------

  /// Removes the listed columns (any order, repeats allowed); the others keep
  /// their order and are renumbered.
  Sparse& removeCols(const Array<size_t, 1>& cols);
  /// Removes the listed rows and columns in place; the remaining ones keep
  /// their order and are renumbered.
  Sparse& inplaceRemove(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols);
  /// The block B(a, b) = A(rows[a], cols[b]) (rows distinct, columns in any
  /// order), with A's value type and symmetry mode; rows within a column keep
  /// A's order.
  Sparse extractMatrix(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols) const;

 protected:
  void outputImpl(std::ostream& os) const override;
  Vector AMulxImpl(const Vector& x, Trans_t t) const override;
  void mulVecImpl(Vector& y, const Vector& x, Trans_t t) const override;
  Vector& yPlusAMulxImpl(Vector& y, const Vector& x, Trans_t t) const override;
  Vector& yPlusAMulxImpl(Vector& y, const Matrix& X, Trans_t t, size_t k) const override;
  Vector& yMinusAMulxImpl(Vector& y, const Vector& x, Trans_t t) const override;
  int JacobiItsImpl(Vector& x, Vector& r, double omega) const override;
  int SORItImpl(Vector& x, Vector& r, double omega, bool backward) const override;
  int SORItImpl(Vector& x, Vector& r, double omega, bool backward,
                const Array<size_t, 1>& cols) const override;
  int SORItImpl(Vector& x, Vector& r, double omega, bool backward, const Array<size_t, 1>& idx1,
                const Array<size_t, 1>& idx2, const Array<size_t, 1>& idx3) const override;
  int SORUpdaterImpl(Vector& x, double omega, bool flag) const override;
  int SORUpdaterImpl(Vector& x, double omega, bool flag,
                     const Array<size_t, 1>& cols) const override;
  int SORUpdaterImpl(Vector& x, double omega, bool flag, const Array<size_t, 1>& idx1,
                     const Array<size_t, 1>& idx2, const Array<size_t, 1>& idx3) const override;
  int SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward) const override;
  int SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward,
                       const Array<size_t, 1>& cols) const override;
  int SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward,
                       const Array<size_t, 1>& idx1, const Array<size_t, 1>& idx2,
                       const Array<size_t, 1>& idx3) const override;

 private:
  using dstore = llsparse<double>;
  using zstore = llsparse<std::complex<double>>;

  // Makes `store` the storage in use (real or complex by its type), drops the
  // other one and the auxiliary data.
  void adopt(std::shared_ptr<dstore> store);
  void adopt(std::shared_ptr<zstore> store);
  // Applies f to the storage in use (const and writable forms; the writable
  // one makes the storage unique and drops the auxiliary data first).
  template <class F>
  decltype(auto) visit(F&& f) const;
  template <class F>
  decltype(auto) visitMutable(F&& f);
  // Multiplies (or divides) the values by d[row − first row] (rows) or d[column].
  Sparse& scaleByVector(const Vector& d, bool rows, bool divides);

  std::shared_ptr<dstore> dsp_;
  std::shared_ptr<zstore> zsp_;
  bool real_ = true;
  // A cache of the const products: written once under a lock, published by
  // the flag (release), read after the flag (acquire).
  mutable std::shared_ptr<ParallelSparse> parallelData_;
  mutable std::atomic<bool> hasParallelData_{false};
  std::shared_ptr<ExternalSparse> extData_;
  bool hasExtData_ = false;
};

/// The first lines of A's text output: "Sparse <m>-by-<n> matrix. Nnz = <nnz>."
/// and, for a non-zero symmetry mode, "Symmetric.".
QVARRAY_API void outputSparseHeader(std::ostream& os, const Sparse& A);

}  // namespace qvarray

using qvarray::Sparse;
