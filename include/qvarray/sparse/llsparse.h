#pragma once
// llsparse<T>: the storage of one sparse matrix in compressed sparse columns
// with 64-bit indices, T = double or std::complex<double>.
//
// Column j holds the entries colptr[j] … colptr[j+1] − 1 of the row and value
// arrays; colptr[0] = 0 and colptr[n] = nnz; every row index is < m. The row
// and value arrays hold nzmax ≥ nnz entries (the tail is spare room) and are
// held by shared pointers, so that two storage objects may share them: a
// writer first makes the array it writes its own (ownRows / ownValues). Rows
// within a column keep the order in which triplet assembly first met them
// unless the form says otherwise (sparsemodes.h).
//
// Every construction or change of the pattern (colptr and row arrays) draws a
// new pattern version from the process-wide counter; data derived from a
// pattern is tied to the version it was built for.
//
// A storage object is built completely before a handle adopts it: a failure
// (std::bad_alloc, or an error on bad input) leaves the handle untouched.
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/sparse/sparsemodes.h"

namespace qvarray {

/// Draws a new pattern version: increments the process-wide counter under a
/// lock and returns it (never below 1).
QVARRAY_API std::int64_t getNewRowColptrVersion();

/// Hash-table size of triplet assembly for n triplets: 0 for n = 0, else the
/// smallest prime of a fixed table (searched by bisection over its entries
/// 1…205) that is ≥ ⌊n / 0.7⌋; 3 at least and 4009617631 at most.
QVARRAY_API size_t llsp_hashsize(size_t n);

/// The largest hash-table size, and with it the largest number of triplets or
/// values a matrix can be built from.
inline constexpr size_t kMaxHashSize = 4009617631ULL;

/// Refuses sizes no sparse matrix can have, with the standard allocation
/// failure (std::bad_alloc) as for an Array too large to allocate: n above
/// kMaxDimension (no allocation holds its n + 1 column pointers, and n + 1 may
/// wrap), or m = SIZE_MAX (m + 1, the column pointers of the transpose, would
/// wrap to 0). Every construction from caller-given sizes calls it before it
/// computes n + 1 or allocates anything.
QVARRAY_API void checkSparseSizes(size_t m, size_t n);

template <class T>
class QVARRAY_API llsparse {
 public:
  using value_type = T;
  /// "No such position": a missing diagonal entry, a missing element.
  static constexpr size_t npos = static_cast<size_t>(-1);

  // Fields, in this order.
  std::shared_ptr<Array<size_t, 1>> rowData;  ///< shared row-index array (null when empty)
  std::shared_ptr<Array<T, 1>> valueData;     ///< shared value array (null when empty)
  Array<size_t, 1> colptr;                    ///< n + 1 column starts
  size_t* row = nullptr;                      ///< rowData->data, or null
  T* value = nullptr;                         ///< valueData->data, or null
  size_t m = 0;
  size_t n = 0;
  size_t nnz = 0;
  size_t nzmax = 0;
  Symm_t symm = SymmNone;
  Form_t form = FormUnordered;
  size_t firstRow = 0;     ///< row offset of a partial matrix (0 otherwise)
  size_t firstColumn = 0;  ///< column offset of a partial matrix (0 otherwise)
  std::int64_t version = 0;
  Array<size_t, 1> diag;   ///< per column the position of its diagonal entry (FormSorted only)
  size_t diagMissing = 0;  ///< columns whose diagonal entry is missing (npos in diag)

  /// A 0×0 matrix: colptr = {0}, no entries, version 0 (no pattern drawn yet).
  llsparse();
  /// Copies sizes, modes, colptr and diagonal index; shares the row and value
  /// arrays with `other`.
  llsparse(const llsparse& other);
  llsparse& operator=(const llsparse&) = delete;

  // ---- construction (each draws a new pattern version) --------------------

  /// Builds the m×n matrix of the triplets (rows[k], cols[k], values[k]),
  /// k < nnzIn, summing duplicates in input order. Rows within a column keep
  /// the order of their first appearance; nothing is sorted. With oneValue,
  /// values[0] is the value of every triplet. Cost linear in nnzIn; a hash
  /// table of llsp_hashsize(nnzIn) slots lives during the call. An empty
  /// matrix results when m or n is 0 (the triplets are then not read).
  /// Raises "Size_input_vector_too_large" above kMaxHashSize triplets and
  /// "Internal_error_sparse" for an index out of range.
  void assembleTriplets(const size_t* rows, const size_t* cols, const T* values, size_t nnzIn,
                        size_t m, size_t n, bool oneValue);
  /// Copies ready compressed columns (colPtr has n + 1 entries, rowIndex and
  /// values colPtr[n]); null arrays stand for empty ones.
  void setCompressed(const size_t* rowIndex, const size_t* colPtr, const T* values, size_t m,
                     size_t n);
  /// An m×n matrix without entries and room for nzmax.
  void setZeros(size_t m, size_t n, size_t nzmax);
  /// The n×n identity.
  void setIdentity(size_t n);

  // ---- copy on write and capacity -------------------------------------------

  /// Makes the row array this object's own (a copy when it is shared).
  void ownRows();
  /// Makes the value array this object's own (a copy when it is shared).
  void ownValues();
  /// Replaces both arrays by new own arrays of `capacity` ≥ nnz entries holding
  /// the current entries (pattern and version unchanged).
  void setCapacity(size_t capacity);
  /// Draws a new pattern version.
  void newVersion() { version = getNewRowColptrVersion(); }

  // ---- queries and small edits ---------------------------------------------

  /// Position of element (i, j) (stored indices), or npos.
  size_t find(size_t i, size_t j) const;
  /// Sorts the rows of every column (values moved along) and rebuilds the
  /// diagonal index; form becomes FormSorted. Returns whether any entry moved;
  /// no new version is drawn here.
  bool sortColumns();
  /// Recomputes the diagonal index of a FormSorted storage and the count of
  /// columns without a diagonal entry.
  void rebuildDiag();
  /// Checks the invariants (debug aid and tests): colptr monotone from 0 to
  /// nnz, rows < m, nnz ≤ nzmax, raw pointers match the arrays.
  bool isConsistent() const;

 private:
  void allocateEntries(size_t count);
};

extern template class llsparse<double>;
extern template class llsparse<std::complex<double>>;

}  // namespace qvarray

using qvarray::llsparse;
