// Relaxation entry points (qvarray/sparserelax.h): checks, preparation of the
// matrix (sorted rows, diagonal index), the serial/parallel dispatch, and the
// choice of kernel by the number types of storage and vectors.
#include <string>

#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/sparse/sparserelax.h"
#include "qvutil/errors.h"
#include "qvutil/parallel.h"
#include "sparse/relaxkernels.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

// Fixed thresholds of the parallel paths: columns for the Jacobi step, stored
// entries for the sweeps and updates.
constexpr size_t kParallelColumns = 10000;
constexpr size_t kParallelNnz = 10000;

template <class T>
T* data(Vector& v) {
  if constexpr (std::is_same_v<T, double>)
    return v.getdArr().data;
  else
    return v.getzArr().data;
}

size_t firstRowOf(const Sparse& A) { return A.getFirstRow(); }

// Row-space length: stored rows from the first row on.
size_t rowSpace(const Sparse& A) {
  const size_t m = A.getM(), fr = firstRowOf(A);
  return m >= fr ? m - fr : static_cast<size_t>(-1);
}

void checkLength(const Vector& v, size_t expected) {
  if (v.size() != expected) QV_RAISE(sparse, Size_vector_sparse_matrix_disagree);
}

size_t missingDiagonals(const Sparse& A) {
  return A.isReal() ? A.getptrD()->diagMissing : A.getptrZ()->diagMissing;
}

[[noreturn]] void raiseMissingDiagonal(const Sparse& A) {
  const size_t* diag = A.getDiag();
  size_t j = 0;
  while (j < A.getN() && diag[j] != llsparse<double>::npos) ++j;
  QV_RAISE(sparse, Matrix_has_zero_on_diagonal, "Column", static_cast<std::int64_t>(j));
}

// The sweeps split each column at its diagonal entry, so they need the rows
// sorted within each column and the diagonal index, which FormSorted keeps
// (setForm(FormSorted) sorts and builds it; triplet assembly keeps the order
// of first appearance). An unsorted matrix is refused rather than sorted here:
// a relaxation step changes nothing but its vectors, so that one matrix can
// serve several threads, and the one-off cost of sorting stays visible.
void prepare(const Sparse& A) {
  if (A.getFirstColumn() < A.getFirstRow())
    QV_RAISE(sparse, Internal_error_sparse,
             "The first column of a partial matrix lies before its first row.");
  if (A.getForm() != FormSorted)
    QV_RAISE(sparse, Internal_error_sparse,
             "Relaxation needs the rows sorted within each column: call setForm(FormSorted) "
             "first.");
  if (missingDiagonals(A)) raiseMissingDiagonal(A);
}

// Blocks for the parallel path of a sweep or update, 0 for the serial one.
// The parallel path builds the matrix's parallel data when it is absent.
int parallelBlocks(const Sparse& A, size_t size, size_t threshold) {
  if (size < threshold) return 0;
  const int threads = AVAILABLETHREADS();
  if (threads < 2) return 0;
  (void)A.setParallelData();
  return threads;
}

// The parallel ordering of A's pattern for `blocks`, kept with the matrix's
// parallel data (built on first use, guarded).
template <class TA>
std::shared_ptr<const relax::Ordering> orderingFor(const Sparse& A, const relax::View<TA>& V,
                                                   int blocks) {
  return A.setParallelData()->derived<relax::Ordering>(
      blocks, [&] { return relax::makeOrdering(V, blocks); });
}

// Calls f(view) on the view of A's storage, real or complex.
template <class F>
int withView(const Sparse& A, F&& f) {
  if (A.isReal()) {
    const auto s = A.getptrD();
    return f(relax::viewOf(*s));
  }
  const auto s = A.getptrZ();
  return f(relax::viewOf(*s));
}

template <class V>
using ValueOf = std::remove_cv_t<std::remove_pointer_t<decltype(std::declval<V>().val)>>;

// The number types of a sweep: complex arithmetic when the storage or r is
// complex (then x and r are made complex), else real r with x as it is.
void typeSweepVectors(const Sparse& A, Vector& x, Vector& r) {
  if (!A.isReal() || !r.isReal()) {
    r.makeComplex();
    x.makeComplex();
  }
}

// Calls f(x data, r data) with the typed pointers of a prepared pair.
template <class F>
int withSweepVectors(Vector& x, Vector& r, F&& f) {
  if (!r.isReal()) return f(data<dcomplex>(x), data<dcomplex>(r));
  if (!x.isReal()) return f(data<dcomplex>(x), data<double>(r));
  return f(data<double>(x), data<double>(r));
}

// ---- index lists ----------------------------------------------------------------

void checkColumns(const Array<size_t, 1>& cols, size_t n) {
  for (size_t t = 0; t < cols.count; ++t) {
    if (cols[t] >= n) QV_RAISE(sparse, Internal_error_sparse, "Column index out of range.");
    if (t > 0 && cols[t] <= cols[t - 1])
      QV_RAISE(sparse, Internal_error_sparse, "Column list not strictly increasing.");
  }
}

void checkPositions(const Array<size_t, 1>& idx, size_t count, size_t bound) {
  if (idx.count != count)
    QV_RAISE(sparse, Internal_error_sparse, "Index lists of different lengths.");
  for (size_t t = 0; t < count; ++t)
    if (idx[t] >= bound) QV_RAISE(sparse, Size_vector_sparse_matrix_disagree);
}

relax::ColumnList makeList(const Sparse& A, const Array<size_t, 1>& cols) {
  relax::ColumnList J;
  J.cols = cols.data;
  J.count = cols.count;
  J.firstColumn = A.getFirstColumn();
  J.contiguous = cols.count == 0 || cols[cols.count - 1] - cols[0] + 1 == cols.count;
  return J;
}

// One list: x by column, the row-space vectors with the matrix's offsets.
relax::ColumnList oneList(const Sparse& A, const Array<size_t, 1>& cols, bool xInRowSpace) {
  checkColumns(cols, A.getN());
  relax::ColumnList J = makeList(A, cols);
  J.shift3 = A.getFirstColumn() - A.getFirstRow();
  J.shift2 = xInRowSpace ? J.shift3 : 0;
  return J;
}

// Three lists: positions given explicitly.
relax::ColumnList threeLists(const Sparse& A, const Array<size_t, 1>& cols,
                             const Array<size_t, 1>& idx2, size_t bound2,
                             const Array<size_t, 1>& idx3, size_t bound3) {
  checkColumns(cols, A.getN());
  checkPositions(idx2, cols.count, bound2);
  checkPositions(idx3, cols.count, bound3);
  relax::ColumnList J = makeList(A, cols);
  J.idx2 = idx2.data;
  J.idx3 = idx3.data;
  return J;
}

// ---- the restricted forms, shared by the one- and three-list entries -----------

// Runs step(V, xp, wp) on the matrix's typed view and the raw storage of x
// (column space) and w (row space: the residual r, or y), once their number
// types are settled; shared by every SORIt and SORItUpdater entry.
template <class Step>
int withTypedSweep(const Sparse& A, Vector& x, Vector& w, Step step) {
  typeSweepVectors(A, x, w);
  return withView(A, [&](const auto& V) {
    return withSweepVectors(x, w, [&](auto* xp, auto* wp) {
      if constexpr (relax::isComplex<ValueOf<decltype(V)>> &&
                    !relax::isComplex<std::remove_pointer_t<decltype(wp)>>) {
        return -1;  // not reached: complex storage makes w complex
      } else {
        return step(V, xp, wp);
      }
    });
  });
}

int listSweep(const Sparse& A, Vector& x, Vector& r, double omega, bool backward,
              const relax::ColumnList& J) {
  return withTypedSweep(A, x, r, [&](const auto& V, auto* xp, auto* rp) {
    relax::listSweep(V, J, xp, rp, omega, backward);
    return -1;
  });
}

int listSweepUpdate(const Sparse& A, Vector& x, Vector& y, double omega, bool backward,
                    const relax::ColumnList& J) {
  return withTypedSweep(A, x, y, [&](const auto& V, auto* xp, auto* yp) {
    relax::listSweepUpdate(V, J, xp, yp, omega, backward);
    return -1;
  });
}

int listUpdate(const Sparse& A, Vector& x, double omega, bool flag, const relax::ColumnList& J) {
  if (!A.isReal()) x.makeComplex();
  return withView(A, [&](const auto& V) {
    if (x.isReal()) {
      if constexpr (!relax::isComplex<ValueOf<decltype(V)>>)
        relax::listUpdate(V, J, data<double>(x), omega, flag);
    } else {
      relax::listUpdate(V, J, data<dcomplex>(x), omega, flag);
    }
    return -1;
  });
}

}  // namespace

// ---- JacobiIts -------------------------------------------------------------------

int JacobiIts(const Sparse& A, Vector& x, Vector& r, double omega) {
  checkLength(x, A.getN());
  // The step reads r by column index, r[0..n), without the row offset: r must
  // hold those n entries, whatever the row space.
  if (r.size() < A.getN()) QV_RAISE(sparse, Size_vector_sparse_matrix_disagree);
  prepare(A);
  if (!A.isReal() || !r.isReal()) x.makeComplex();
  const int blocks = parallelBlocks(A, A.getN(), kParallelColumns);
  return withView(A, [&](const auto& V) {
    auto run = [&](auto* xp, const auto* rp) {
      if constexpr (relax::isComplex<ValueOf<decltype(V)>> &&
                    !relax::isComplex<std::remove_pointer_t<decltype(xp)>>) {
        return -1;  // not reached: complex storage makes x complex
      } else {
        if (blocks) return relax::parallelJacobi(V, xp, rp, omega, blocks);
        relax::serialJacobi(V, xp, rp, omega, 0, 0);
        return -1;
      }
    };
    if (x.isReal()) return run(data<double>(x), data<double>(r));
    if (r.isReal()) return run(data<dcomplex>(x), data<double>(r));
    return run(data<dcomplex>(x), data<dcomplex>(r));
  });
}

// ---- SORIt -----------------------------------------------------------------------

int SORIt(const Sparse& A, Vector& x, Vector& r, double omega, bool backward) {
  checkLength(x, A.getN());
  checkLength(r, rowSpace(A));
  prepare(A);
  const int blocks = parallelBlocks(A, A.getNnz(), kParallelNnz);
  return withTypedSweep(A, x, r, [&](const auto& V, auto* xp, auto* rp) {
    if (blocks)
      return relax::parallelSweep(V, *orderingFor(A, V, blocks), xp, rp, omega, backward);
    relax::serialSweep(V, xp, rp, omega, backward);
    return -1;
  });
}

int SORIt(const Sparse& A, Vector& x, Vector& r, double omega, bool backward,
          const Array<size_t, 1>& cols) {
  checkLength(x, A.getN());
  checkLength(r, rowSpace(A));
  const relax::ColumnList J = oneList(A, cols, false);
  prepare(A);
  return listSweep(A, x, r, omega, backward, J);
}

int SORIt(const Sparse& A, Vector& x, Vector& r, double omega, bool backward,
          const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
          const Array<size_t, 1>& idx3) {
  const relax::ColumnList J = threeLists(A, cols, idx2, x.size(), idx3, r.size());
  prepare(A);
  return listSweep(A, x, r, omega, backward, J);
}

// ---- SORUpdater ------------------------------------------------------------------

int SORUpdater(const Sparse& A, Vector& x, double omega, bool flag) {
  checkLength(x, rowSpace(A));
  prepare(A);
  if (!A.isReal()) x.makeComplex();
  const int blocks = parallelBlocks(A, A.getNnz(), kParallelNnz);
  return withView(A, [&](const auto& V) {
    auto run = [&](auto* xp) {
      if constexpr (relax::isComplex<ValueOf<decltype(V)>> &&
                    !relax::isComplex<std::remove_pointer_t<decltype(xp)>>) {
        return -1;
      } else {
        if (blocks) return relax::parallelUpdate(V, xp, omega, flag, blocks);
        relax::serialUpdate(V, xp, omega, flag);
        return -1;
      }
    };
    return x.isReal() ? run(data<double>(x)) : run(data<dcomplex>(x));
  });
}

int SORUpdater(const Sparse& A, Vector& x, double omega, bool flag,
               const Array<size_t, 1>& cols) {
  checkLength(x, rowSpace(A));
  const relax::ColumnList J = oneList(A, cols, true);
  prepare(A);
  return listUpdate(A, x, omega, flag, J);
}

int SORUpdater(const Sparse& A, Vector& x, double omega, bool flag, const Array<size_t, 1>& cols,
               const Array<size_t, 1>& idx2, const Array<size_t, 1>& idx3) {
  const relax::ColumnList J = threeLists(A, cols, idx2, x.size(), idx3, x.size());
  prepare(A);
  return listUpdate(A, x, omega, flag, J);
}

// ---- SORItUpdater ----------------------------------------------------------------

int SORItUpdater(const Sparse& A, Vector& x, Vector& y, double omega, bool backward) {
  checkLength(x, A.getN());
  checkLength(y, rowSpace(A));
  prepare(A);
  const int blocks = parallelBlocks(A, A.getNnz(), kParallelNnz);
  return withTypedSweep(A, x, y, [&](const auto& V, auto* xp, auto* yp) {
    if (blocks)
      return relax::parallelSweepUpdate(V, *orderingFor(A, V, blocks), xp, yp, omega, backward);
    relax::serialSweepUpdate(V, xp, yp, omega, backward);
    return -1;
  });
}

int SORItUpdater(const Sparse& A, Vector& x, Vector& y, double omega, bool backward,
                 const Array<size_t, 1>& cols) {
  checkLength(x, A.getN());
  checkLength(y, rowSpace(A));
  const relax::ColumnList J = oneList(A, cols, false);
  prepare(A);
  return listSweepUpdate(A, x, y, omega, backward, J);
}

int SORItUpdater(const Sparse& A, Vector& x, Vector& y, double omega, bool backward,
                 const Array<size_t, 1>& cols, const Array<size_t, 1>& idx2,
                 const Array<size_t, 1>& idx3) {
  const relax::ColumnList J = threeLists(A, cols, idx2, x.size(), idx3, y.size());
  prepare(A);
  return listSweepUpdate(A, x, y, omega, backward, J);
}

// ---- SparseBase forms: the matrix's own operation --------------------------------

struct SparseRelaxAccess {
  static int jacobi(const SparseBase& A, Vector& x, Vector& r, double omega) {
    return A.JacobiItsImpl(x, r, omega);
  }
  template <class... L>
  static int sweep(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward,
                   const L&... lists) {
    return A.SORItImpl(x, r, omega, backward, lists...);
  }
  template <class... L>
  static int update(const SparseBase& A, Vector& x, double omega, bool flag, const L&... lists) {
    return A.SORUpdaterImpl(x, omega, flag, lists...);
  }
  template <class... L>
  static int sweepUpdate(const SparseBase& A, Vector& x, Vector& y, double omega, bool backward,
                         const L&... lists) {
    return A.SORItUpdaterImpl(x, y, omega, backward, lists...);
  }
};

using Lst = Array<size_t, 1>;

int JacobiIts(const SparseBase& A, Vector& x, Vector& r, double omega) {
  return SparseRelaxAccess::jacobi(A, x, r, omega);
}
int SORIt(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward) {
  return SparseRelaxAccess::sweep(A, x, r, omega, backward);
}
int SORIt(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward, const Lst& c) {
  return SparseRelaxAccess::sweep(A, x, r, omega, backward, c);
}
int SORIt(const SparseBase& A, Vector& x, Vector& r, double omega, bool backward, const Lst& c,
          const Lst& i2, const Lst& i3) {
  return SparseRelaxAccess::sweep(A, x, r, omega, backward, c, i2, i3);
}
int SORUpdater(const SparseBase& A, Vector& x, double omega, bool flag) {
  return SparseRelaxAccess::update(A, x, omega, flag);
}
int SORUpdater(const SparseBase& A, Vector& x, double omega, bool flag, const Lst& c) {
  return SparseRelaxAccess::update(A, x, omega, flag, c);
}
int SORUpdater(const SparseBase& A, Vector& x, double omega, bool flag, const Lst& c,
               const Lst& i2, const Lst& i3) {
  return SparseRelaxAccess::update(A, x, omega, flag, c, i2, i3);
}
int SORItUpdater(const SparseBase& A, Vector& x, Vector& y, double omega, bool backward) {
  return SparseRelaxAccess::sweepUpdate(A, x, y, omega, backward);
}
int SORItUpdater(const SparseBase& A, Vector& x, Vector& y, double omega, bool backward,
                 const Lst& c) {
  return SparseRelaxAccess::sweepUpdate(A, x, y, omega, backward, c);
}
int SORItUpdater(const SparseBase& A, Vector& x, Vector& y, double omega, bool backward,
                 const Lst& c, const Lst& i2, const Lst& i3) {
  return SparseRelaxAccess::sweepUpdate(A, x, y, omega, backward, c, i2, i3);
}

// ---- Sparse's slots ------------------------------------------------------------------

int Sparse::JacobiItsImpl(Vector& x, Vector& r, double omega) const {
  return JacobiIts(*this, x, r, omega);
}
int Sparse::SORItImpl(Vector& x, Vector& r, double omega, bool backward) const {
  return SORIt(*this, x, r, omega, backward);
}
int Sparse::SORItImpl(Vector& x, Vector& r, double omega, bool backward, const Lst& c) const {
  return SORIt(*this, x, r, omega, backward, c);
}
int Sparse::SORItImpl(Vector& x, Vector& r, double omega, bool backward, const Lst& c,
                      const Lst& i2, const Lst& i3) const {
  return SORIt(*this, x, r, omega, backward, c, i2, i3);
}
int Sparse::SORUpdaterImpl(Vector& x, double omega, bool flag) const {
  return SORUpdater(*this, x, omega, flag);
}
int Sparse::SORUpdaterImpl(Vector& x, double omega, bool flag, const Lst& c) const {
  return SORUpdater(*this, x, omega, flag, c);
}
int Sparse::SORUpdaterImpl(Vector& x, double omega, bool flag, const Lst& c, const Lst& i2,
                           const Lst& i3) const {
  return SORUpdater(*this, x, omega, flag, c, i2, i3);
}
int Sparse::SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward) const {
  return SORItUpdater(*this, x, y, omega, backward);
}
int Sparse::SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward,
                             const Lst& c) const {
  return SORItUpdater(*this, x, y, omega, backward, c);
}
int Sparse::SORItUpdaterImpl(Vector& x, Vector& y, double omega, bool backward, const Lst& c,
                             const Lst& i2, const Lst& i3) const {
  return SORItUpdater(*this, x, y, omega, backward, c, i2, i3);
}

}  // namespace qvarray
