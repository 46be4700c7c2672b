#pragma once
// ParallelSparse: the per-matrix data of the parallel sparse kernels, and the
// parallel products themselves.
//
// Partitioning. Every parallel kernel cuts its index range into
// AVAILABLETHREADS() contiguous parts and lets each part write only the vector
// entries of its range: no atomics, no per-thread buffers, no reduction. The
// parts run on a qvbase::Team, which may be smaller than the parts (a small
// step, a busy machine) without changing a bit. The ranges are cut afresh on
// each call (a few binary searches), balanced by weight(i) = entries before
// index i + i (an index costs its entries plus a vector access):
// - a product whose result is indexed by the stored columns (Aᵀ·x in mode
//   SymmNone, A·x in mode SymmTransposed) splits the columns: each part
//   gathers its columns' dot products from the compressed columns;
// - a product whose result is indexed by the stored rows (A·x in mode
//   SymmNone, Aᵀ·x in mode SymmTransposed) splits the rows of the
//   row-compressed companion below and gathers each row's sum in column
//   order, the order in which the serial column sweep adds into that row;
// - the symmetric modes split the index range 0…n−1 (weighted by the
//   columns): each part runs the serial column pass over its own columns
//   but makes only the column updates that land in its own range, and gets
//   those from columns outside its range from the row-compressed companion,
//   the updates from earlier columns before its pass and from later ones
//   after it (SymmetricParts lists the rows that have any), so that each
//   entry receives its updates in the order of the serial pass.
// So every product gives the bits of the serial kernel, whatever the number
// of parts, and a team of one runs the serial kernel itself.
//
// Row-compressed companion. The stored matrix in compressed rows: row starts
// (m + 1), the column of each entry (ascending within a row) and a copy of
// the values in that order. It costs 8·(m + 1) + 16·nnz bytes for real
// values (24·nnz for complex), about as much again as the matrix, and is
// built only for the kernels that need it, on their first call on more than
// one thread, as a team step: each part counts and then scatters the entries
// of its share of the rows (two passes over the pattern per part,
// O(nnz + m)). On the benchmark
// machine the build of a 10⁷-non-zero matrix takes about as long as a dozen
// products on two threads. Value changes need no detection here: every
// change of a Sparse's values or pattern drops its ParallelSparse
// (Sparse::clearAuxData), and the next parallel call builds a new one.
//
// Lifetime and threads. A Sparse builds its ParallelSparse on the first
// parallel call (Sparse::setParallelData) for the pattern version of its
// storage. The creation and each lazily built part are guarded by one
// process-wide lock (buildLock) and published by an atomic flag, so that
// threads making a first parallel call on one matrix at once are safe; once
// built, the data is only read.
#include <atomic>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/trans.h"
#include "qvutil/nestedlock.h"

namespace qvarray {

class QVARRAY_API ParallelSparse {
 public:
  /// The stored matrix in compressed rows.
  struct RowCompressed {
    Array<size_t, 1> rowptr;                ///< m + 1 row starts
    Array<size_t, 1> col;                   ///< column of each entry, ascending within a row
    Array<double, 1> dvalue;                ///< the values in row order (real storage)
    Array<std::complex<double>, 1> zvalue;  ///< the values in row order (complex storage)
  };

  /// Data for the storage that A uses now; nothing is built yet.
  explicit ParallelSparse(const Sparse& A);
  ParallelSparse(const ParallelSparse&) = delete;
  ParallelSparse& operator=(const ParallelSparse&) = delete;
  ~ParallelSparse();

  /// The pattern version this data was made for.
  std::int64_t getVersion() const { return version_; }
  /// True when this data belongs to A's storage object and pattern version.
  bool fits(const Sparse& A) const;

  /// The row-compressed companion of A (the matrix this data fits), built
  /// on the first call.
  const RowCompressed& rowCompressed(const Sparse& A) const;
  bool hasRowCompressed() const { return rowsReady_.load(std::memory_order_acquire); }
  /// Bytes held by the built parts.
  size_t memoryBytes() const;

  /// The symmetric products in `parts` parts: the parts' index ranges
  /// (start, parts + 1 entries) and per part the indices i of its range
  /// whose stored row i + off holds entries of columns before the range
  /// (before) or after it (after).
  struct SymmetricParts {
    std::vector<size_t> start;
    std::vector<std::vector<size_t>> before, after;
  };
  /// The symmetric parts of A for `parts` parts, built on the first call for
  /// that number (a call with another number replaces them).
  std::shared_ptr<const SymmetricParts> symmetricParts(const Sparse& A, int parts) const;

  /// The first index of part `part` (0 ≤ part ≤ parts) when [0, count) is cut
  /// into `parts` contiguous ranges of about equal weight; weight(i) is the
  /// weight of the indices below i (non-decreasing, weight(0) = 0). Part
  /// `parts` starts at count.
  template <class Weight>
  static size_t split(size_t count, size_t part, size_t parts, const Weight& weight);
  /// split over the columns of a compressed-column pattern, weight(j) =
  /// colptr[j] + j.
  static size_t columnSplit(const size_t* colptr, size_t n, size_t part, size_t parts);

  /// The lock that guards every build of parallel data (re-entrant).
  static qvbase::NestedLock& buildLock();

  // ---- data of other parallel kernels (the relaxation steps) ---------------

  /// Data that another parallel kernel derives from this pattern, so that it
  /// lives and dies with it: the data stored under `key`, built by make()
  /// (returning std::shared_ptr<const T>) under buildLock() when the slot is
  /// empty or holds another key. One slot: a new key replaces the old data.
  template <class T, class Make>
  std::shared_ptr<const T> derived(std::int64_t key, Make&& make) const {
    qvbase::LockHandler guard(buildLock());
    if (!derived_ || derivedKey_ != key) {
      derived_ = std::shared_ptr<const T>(make());
      derivedKey_ = key;
    }
    return std::static_pointer_cast<const T>(derived_);
  }

 private:
  std::int64_t version_ = 0;
  const void* storage_ = nullptr;  // identity of the storage object
  mutable std::atomic<bool> rowsReady_{false};
  mutable RowCompressed rows_;
  // The slots of symmetricParts() and derived(), guarded by buildLock().
  mutable std::shared_ptr<const SymmetricParts> symmetricParts_;
  mutable std::shared_ptr<const void> derived_;
  mutable std::int64_t derivedKey_ = 0;
};

template <class Weight>
size_t ParallelSparse::split(size_t count, size_t part, size_t parts, const Weight& weight) {
  if (part == 0) return 0;
  if (part >= parts) return count;
  const size_t total = weight(count);
  // The smallest i with weight(i) ≥ total·part/parts (in 128 bits: no overflow).
  const size_t target =
      static_cast<size_t>(static_cast<unsigned __int128>(total) * part / parts);
  size_t lo = 0, hi = count;
  while (lo < hi) {
    const size_t mid = lo + (hi - lo) / 2;
    if (weight(mid) < target)
      lo = mid + 1;
    else
      hi = mid;
  }
  return lo;
}

/// The parallel product y += op(A)·x, checked as the products of
/// sparseproducts.h, in AVAILABLETHREADS() parts whatever the size of A.
QVARRAY_API Vector& parallelyPlusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);
QVARRAY_API Vector& parallelyPlusAMulx(Vector& y, const Sparse& A, const Matrix& X, Trans_t t,
                                       size_t k);
/// The parallel product y −= op(A)·x.
QVARRAY_API Vector& parallelyMinusAMulx(Vector& y, const Sparse& A, const Vector& x, Trans_t t);

}  // namespace qvarray

using qvarray::ParallelSparse;
