// ParallelSparse: the per-pattern data of the parallel kernels, its guarded
// build, and the parallel products (see parallelsparse.h for the design).
#include "qvarray/sparse/parallelsparse.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "qvutil/errors.h"
#include "qvutil/parallel.h"
#include "sparse/sparseimpl.h"
#include "sparse/sparseproductimpl.h"
#include "sparse/spmvkernels.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

// The identity of A's values: with the pattern version it tells whether data
// was made for A's storage as it is (a value change always drops the data).
const void* valueIdentity(const Sparse& A) {
  return A.isReal() ? static_cast<const void*>(A.getDoubleVal())
                    : static_cast<const void*>(A.getDcmplxVal());
}

// The stored matrix in compressed rows, built in AVAILABLETHREADS() parts:
// each part owns an equal share of the rows; it counts its rows' entries in a
// pass over the row indices, and once every part has its total, turns the
// counts into row starts (offset by the totals of the parts before it) and
// scatters its rows' entries in a pass over the columns. Every part reads the
// whole pattern, but the scattered writes, the slow part, are shared out.
// Columns are visited in order, so they ascend within a row.
template <class T>
void buildRows(const llsparse<T>& s, ParallelSparse::RowCompressed& rc, Array<T, 1>& values) {
  const size_t m = s.m, n = s.n, nnz = s.nnz;
  Array<size_t, 1> rowptr(m + 1), col(nnz), next(m);
  Array<T, 1> v(nnz);
  const size_t parts = static_cast<size_t>(AVAILABLETHREADS());
  std::vector<size_t> totals(parts + 1, 0);  // entries of part k at k + 1
  rowptr[0] = 0;
  const size_t* cp = s.colptr.data;
  const size_t* row = s.row;
  const T* value = s.value;
  auto rows = [&](size_t part) { return std::pair(m * part / parts, m * (part + 1) / parts); };
  auto count = [&](int p) {
    const auto [r0, r1] = rows(static_cast<size_t>(p));
    for (size_t r = r0; r < r1; ++r) rowptr[r + 1] = 0;
    for (size_t q = 0; q < nnz; ++q) {
      const size_t r = row[q];
      if (r >= r0 && r < r1) ++rowptr[r + 1];
    }
    for (size_t r = r0; r < r1; ++r) rowptr[r + 1] += r > r0 ? rowptr[r] : 0;
    totals[static_cast<size_t>(p) + 1] = r1 > r0 ? rowptr[r1] : 0;
  };
  auto scatter = [&](int p) {
    const auto [r0, r1] = rows(static_cast<size_t>(p));
    size_t offset = 0;
    for (size_t k = 0; k <= static_cast<size_t>(p); ++k) offset += totals[k];
    for (size_t r = r0; r < r1; ++r) {
      rowptr[r + 1] += offset;
      next[r] = r > r0 ? rowptr[r] : offset;
    }
    for (size_t j = 0; j < n; ++j)
      for (size_t q = cp[j]; q < cp[j + 1]; ++q) {
        const size_t r = row[q];
        if (r < r0 || r >= r1) continue;
        const size_t at = next[r]++;
        col[at] = j;
        v[at] = value[q];
      }
  };
  qvbase::runParts(static_cast<int>(parts), nnz * parts, count, scatter);
  rc.rowptr = std::move(rowptr);
  rc.col = std::move(col);
  values = std::move(v);
}

}  // namespace

// ---- ParallelSparse -------------------------------------------------------------

ParallelSparse::ParallelSparse(const Sparse& A)
    : version_(A.getRowColptrVersion()), storage_(valueIdentity(A)) {}

ParallelSparse::~ParallelSparse() = default;

bool ParallelSparse::fits(const Sparse& A) const {
  return version_ == A.getRowColptrVersion() && storage_ == valueIdentity(A);
}

qvbase::NestedLock& ParallelSparse::buildLock() {
  static qvbase::NestedLock lock;
  return lock;
}

const ParallelSparse::RowCompressed& ParallelSparse::rowCompressed(const Sparse& A) const {
  if (!rowsReady_.load(std::memory_order_acquire)) {
    qvbase::LockHandler guard(buildLock());
    if (!rowsReady_.load(std::memory_order_acquire)) {
      if (A.isReal())
        buildRows(*A.getptrD(), rows_, rows_.dvalue);
      else
        buildRows(*A.getptrZ(), rows_, rows_.zvalue);
      rowsReady_.store(true, std::memory_order_release);
    }
  }
  return rows_;
}

size_t ParallelSparse::memoryBytes() const {
  if (!hasRowCompressed()) return 0;
  size_t bytes = (rows_.rowptr.count + rows_.col.count) * sizeof(size_t) +
                 rows_.dvalue.count * sizeof(double) + rows_.zvalue.count * sizeof(dcomplex);
  qvbase::LockHandler guard(buildLock());
  if (symmetricParts_) {
    bytes += symmetricParts_->start.size() * sizeof(size_t);
    for (const auto& list : symmetricParts_->before) bytes += list.size() * sizeof(size_t);
    for (const auto& list : symmetricParts_->after) bytes += list.size() * sizeof(size_t);
  }
  return bytes;
}

std::shared_ptr<const ParallelSparse::SymmetricParts> ParallelSparse::symmetricParts(
    const Sparse& A, int parts) const {
  qvbase::LockHandler guard(buildLock());
  const auto np = static_cast<size_t>(parts);
  if (symmetricParts_ && symmetricParts_->start.size() == np + 1) return symmetricParts_;
  const RowCompressed& rc = rowCompressed(A);
  const size_t *cp = A.getColPtr(), *rp = rc.rowptr.data, *col = rc.col.data;
  const size_t m = A.getM(), n = A.getN(), off = A.getFirstRow();
  const size_t count = std::max(n, m - std::min(off, m));  // index i: column i, stored row i + off
  auto P = std::make_shared<SymmetricParts>();
  P->start.resize(np + 1);
  P->before.resize(np);
  P->after.resize(np);
  for (size_t t = 0; t <= np; ++t)
    P->start[t] = split(count, t, np, [&](size_t i) { return cp[std::min(i, n)] + i; });
  for (size_t t = 0; t < np; ++t)
    for (size_t i = P->start[t]; i < P->start[t + 1]; ++i) {
      const size_t r = i + off;
      if (r >= m || rp[r] == rp[r + 1]) continue;
      if (col[rp[r]] < P->start[t]) P->before[t].push_back(i);
      if (col[rp[r + 1] - 1] >= P->start[t + 1]) P->after[t].push_back(i);
    }
  symmetricParts_ = P;
  return P;
}

size_t ParallelSparse::columnSplit(const size_t* colptr, size_t n, size_t part, size_t parts) {
  return split(n, part, parts, [colptr](size_t j) { return colptr[j] + j; });
}

// ---- Sparse's handle on its parallel data ----------------------------------------

std::shared_ptr<const ParallelSparse> Sparse::setParallelData() const {
  if (hasParallelData_.load(std::memory_order_acquire) && parallelData_->fits(*this))
    return parallelData_;
  qvbase::LockHandler guard(ParallelSparse::buildLock());
  // Another thread may have built it while this one waited.
  if (!hasParallelData_.load(std::memory_order_acquire) || !parallelData_->fits(*this)) {
    auto data = std::make_shared<ParallelSparse>(*this);
    parallelData_ = std::move(data);
    hasParallelData_.store(true, std::memory_order_release);
  }
  return parallelData_;
}

std::shared_ptr<const ParallelSparse> Sparse::getParallelData() const {
  if (!hasParallelData_.load(std::memory_order_acquire)) return nullptr;
  return parallelData_;
}

// ---- the parallel products --------------------------------------------------------

namespace spmv {

namespace {

template <class T>
const T* rowValues(const ParallelSparse::RowCompressed& rc) {
  if constexpr (std::is_same_v<T, double>)
    return rc.dvalue.data;
  else
    return rc.zvalue.data;
}

// op(S)·x in AVAILABLETHREADS() parts, each writing only the y entries of its
// own index range (see parallelsparse.h). Every form gives the bits of the
// serial kernel, so a team of one runs that kernel instead: one pass over the
// compressed columns, and no row-compressed companion.
template <class TA, class TX, class TY>
void storageProduct(const Sparse& A, const llsparse<TA>& s, const TX* x, TY* y, Trans_t t,
                    bool minus) {
  constexpr bool kComplex = !std::is_same_v<TA, double>;
  const Plan plan = planFor(s.symm, t);
  const std::shared_ptr<const ParallelSparse> data = A.setParallelData();
  const size_t* cp = s.colptr.data;
  const size_t m = s.m, n = s.n, off = s.firstRow;
  const int parts = AVAILABLETHREADS();
  const qvbase::Team team(parts, s.nnz + std::max(m, n));
  withFlags(kComplex && plan.conjA, kComplex && plan.conjB, minus, [&](auto CA, auto CB, auto SUB) {
    if (team.threads() == 1)
      return serialColumns<CA(), CB(), SUB()>(plan.form, cp, s.row, s.value, off, n, x, y);
    const ParallelSparse::RowCompressed* rc =
        plan.form == Form::Gather ? nullptr : &data->rowCompressed(A);
    const auto sp = plan.form == Form::Symmetric ? data->symmetricParts(A, parts) : nullptr;
    const size_t firstStored = std::min(off, m);  // rows below the offset are not addressed
    const auto nparts = static_cast<size_t>(parts);
    team.run([&](int p) {
      const auto part = static_cast<size_t>(p);
      switch (plan.form) {
        case Form::Gather: {
          const size_t c0 = ParallelSparse::columnSplit(cp, n, part, nparts);
          const size_t c1 = ParallelSparse::columnSplit(cp, n, part + 1, nparts);
          gatherColumns<CA(), SUB()>(cp, s.row, s.value, off, c0, c1, x, y);
          break;
        }
        case Form::Scatter: {
          const size_t* rp = rc->rowptr.data;
          const size_t base = rp[firstStored];
          auto weight = [&](size_t i) { return rp[firstStored + i] - base + i; };
          const size_t count = m - firstStored;
          const size_t r0 = firstStored + ParallelSparse::split(count, part, nparts, weight);
          const size_t r1 = firstStored + ParallelSparse::split(count, part + 1, nparts, weight);
          gatherRows<CA(), SUB()>(rp, rc->col.data, rowValues<TA>(*rc), off, r0, r1, x, y);
          break;
        }
        case Form::Symmetric: {
          // The part owns y[i0 … i1 − 1]: the updates from earlier columns,
          // its own columns, the updates from later columns.
          const size_t i0 = sp->start[part], i1 = sp->start[part + 1];
          const size_t *rp = rc->rowptr.data, *col = rc->col.data;
          const TA* rv = rowValues<TA>(*rc);
          symmetricOutside<true, CA(), SUB()>(sp->before[part], rp, col, rv, off, i0, i1, x, y);
          symmetricColumns<CA(), CB(), SUB(), true>(cp, s.row, s.value, off, std::min(i0, n),
                                                    std::min(i1, n), x, y, i0, i1);
          symmetricOutside<false, CA(), SUB()>(sp->after[part], rp, col, rv, off, i0, i1, x, y);
          break;
        }
      }
    });
  });
}

}  // namespace

void parallelProduct(const Sparse& A, const ConstVec& x, const MutVec& y, Trans_t t, bool minus) {
  if (A.isReal()) {
    const llsparse<double>& s = *A.getptrD();
    if (!y.complex) {
      if (x.complex) QV_RAISE(sparse, Internal_error_sparse, "Complex product into a real vector.");
      storageProduct(A, s, x.d, y.d, t, minus);
    } else if (!x.complex) {
      storageProduct(A, s, x.d, y.z, t, minus);
    } else {
      storageProduct(A, s, x.z, y.z, t, minus);
    }
    return;
  }
  if (!y.complex) QV_RAISE(sparse, Internal_error_sparse, "Complex product into a real vector.");
  const llsparse<dcomplex>& s = *A.getptrZ();
  if (x.complex)
    storageProduct(A, s, x.z, y.z, t, minus);
  else
    storageProduct(A, s, x.d, y.z, t, minus);
}

}  // namespace spmv

}  // namespace qvarray
