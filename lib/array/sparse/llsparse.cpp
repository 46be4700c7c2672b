// llsparse<T>: compressed-column storage, its copy-on-write arrays, the
// process-wide pattern version, and the small storage-level operations.
#include "qvarray/sparse/llsparse.h"

#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "qvutil/errors.h"

namespace qvarray {

namespace {

// The process-wide pattern version counter and the OpenMP lock guarding it.
struct VersionCounter {
  omp_lock_t lock;
  std::int64_t value = 0;
  VersionCounter() { omp_init_lock(&lock); }
  ~VersionCounter() { omp_destroy_lock(&lock); }
};

VersionCounter& versionCounter() {
  static VersionCounter counter;
  return counter;
}

}  // namespace

std::int64_t getNewRowColptrVersion() {
  VersionCounter& c = versionCounter();
  omp_set_lock(&c.lock);
  // Wraps instead of overflowing; a result below 1 becomes 1.
  std::int64_t v = static_cast<std::int64_t>(static_cast<std::uint64_t>(c.value) + 1);
  if (v < 1) v = 1;
  c.value = v;
  omp_unset_lock(&c.lock);
  return v;
}

void checkSparseSizes(size_t m, size_t n) {
  if (n > kMaxDimension || m == SIZE_MAX) throw std::bad_alloc();
}

template <class T>
llsparse<T>::llsparse() : colptr(1) {
  colptr[0] = 0;
}

template <class T>
llsparse<T>::llsparse(const llsparse& other)
    : rowData(other.rowData),
      valueData(other.valueData),
      colptr(other.colptr),
      row(other.row),
      value(other.value),
      m(other.m),
      n(other.n),
      nnz(other.nnz),
      nzmax(other.nzmax),
      symm(other.symm),
      form(other.form),
      firstRow(other.firstRow),
      firstColumn(other.firstColumn),
      version(other.version),
      diag(other.diag),
      diagMissing(other.diagMissing) {}

template <class T>
void llsparse<T>::allocateEntries(size_t count) {
  std::shared_ptr<Array<size_t, 1>> rows;
  std::shared_ptr<Array<T, 1>> values;
  if (count > 0) {
    rows = std::make_shared<Array<size_t, 1>>(count);
    values = std::make_shared<Array<T, 1>>(count);
  }
  rowData = std::move(rows);
  valueData = std::move(values);
  row = rowData ? rowData->data : nullptr;
  value = valueData ? valueData->data : nullptr;
  nzmax = count;
}

template <class T>
void llsparse<T>::setCompressed(const size_t* rowIndex, const size_t* colPtr, const T* values,
                                size_t mIn, size_t nIn) {
  // Check everything before the first write.
  checkSparseSizes(mIn, nIn);
  const size_t count = colPtr ? colPtr[nIn] : 0;
  if (colPtr && colPtr[0] != 0) QV_RAISE(sparse, Internal_error_sparse, "Invalid column pointers.");
  for (size_t j = 0; colPtr && j < nIn; ++j)
    if (colPtr[j + 1] < colPtr[j])
      QV_RAISE(sparse, Internal_error_sparse, "Invalid column pointers.");
  for (size_t p = 0; p < count; ++p)
    if (rowIndex[p] >= mIn) QV_RAISE(sparse, Internal_error_sparse, "Row index out of range.");

  Array<size_t, 1> cp(nIn + 1);
  if (colPtr)
    std::copy(colPtr, colPtr + nIn + 1, cp.data);
  else
    cp.fill(0);
  allocateEntries(count);
  if (count) {
    std::copy(rowIndex, rowIndex + count, row);
    std::copy(values, values + count, value);
  }
  colptr = std::move(cp);
  m = mIn;
  n = nIn;
  nnz = count;
  form = FormUnordered;
  diag = Array<size_t, 1>();
  newVersion();
}

template <class T>
void llsparse<T>::setZeros(size_t mIn, size_t nIn, size_t capacity) {
  checkSparseSizes(mIn, nIn);
  Array<size_t, 1> cp(nIn + 1);
  cp.fill(0);
  allocateEntries(capacity);
  colptr = std::move(cp);
  m = mIn;
  n = nIn;
  nnz = 0;
  form = FormUnordered;
  diag = Array<size_t, 1>();
  newVersion();
}

template <class T>
void llsparse<T>::setIdentity(size_t nIn) {
  checkSparseSizes(nIn, nIn);
  Array<size_t, 1> cp(nIn + 1);
  allocateEntries(nIn);
  for (size_t j = 0; j <= nIn; ++j) cp[j] = j;
  for (size_t j = 0; j < nIn; ++j) {
    row[j] = j;
    value[j] = T(1);
  }
  colptr = std::move(cp);
  m = nIn;
  n = nIn;
  nnz = nIn;
  form = FormUnordered;
  diag = Array<size_t, 1>();
  newVersion();
}

template <class T>
void llsparse<T>::ownRows() {
  if (rowData && rowData.use_count() > 1) {
    rowData = std::make_shared<Array<size_t, 1>>(*rowData);
    row = rowData->data;
  }
}

template <class T>
void llsparse<T>::ownValues() {
  if (valueData && valueData.use_count() > 1) {
    valueData = std::make_shared<Array<T, 1>>(*valueData);
    value = valueData->data;
  }
}

template <class T>
void llsparse<T>::setCapacity(size_t capacity) {
  if (capacity < nnz) QV_RAISE(sparse, Internal_error_sparse, "Capacity below the entry count.");
  std::shared_ptr<Array<size_t, 1>> rows;
  std::shared_ptr<Array<T, 1>> values;
  if (capacity > 0) {
    rows = std::make_shared<Array<size_t, 1>>(capacity);
    values = std::make_shared<Array<T, 1>>(capacity);
    std::copy(row, row + nnz, rows->data);
    std::copy(value, value + nnz, values->data);
  }
  rowData = std::move(rows);
  valueData = std::move(values);
  row = rowData ? rowData->data : nullptr;
  value = valueData ? valueData->data : nullptr;
  nzmax = capacity;
}

template <class T>
size_t llsparse<T>::find(size_t i, size_t j) const {
  if (j >= n) return npos;
  const size_t begin = colptr[j], end = colptr[j + 1];
  if (form == FormSorted) {
    const size_t* p = std::lower_bound(row + begin, row + end, i);
    return p != row + end && *p == i ? static_cast<size_t>(p - row) : npos;
  }
  for (size_t p = begin; p < end; ++p)
    if (row[p] == i) return p;
  return npos;
}

template <class T>
bool llsparse<T>::sortColumns() {
  bool moved = false;
  std::vector<std::pair<size_t, T>> scratch;
  for (size_t j = 0; j < n; ++j) {
    const size_t begin = colptr[j], end = colptr[j + 1];
    if (std::is_sorted(row + begin, row + end)) continue;
    if (!moved) {
      ownRows();
      ownValues();
      moved = true;
    }
    scratch.clear();
    for (size_t p = begin; p < end; ++p) scratch.emplace_back(row[p], value[p]);
    std::stable_sort(scratch.begin(), scratch.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (size_t p = begin; p < end; ++p) {
      row[p] = scratch[p - begin].first;
      value[p] = scratch[p - begin].second;
    }
  }
  form = FormSorted;
  rebuildDiag();
  return moved;
}

template <class T>
void llsparse<T>::rebuildDiag() {
  Array<size_t, 1> d(n);
  size_t missing = 0;
  for (size_t j = 0; j < n; ++j) {
    const size_t begin = colptr[j], end = colptr[j + 1];
    const size_t target = j + firstColumn;
    const size_t* p = std::lower_bound(row + begin, row + end, target);
    d[j] = p != row + end && *p == target ? static_cast<size_t>(p - row) : npos;
    missing += d[j] == npos;
  }
  diag = std::move(d);
  diagMissing = missing;
}

template <class T>
bool llsparse<T>::isConsistent() const {
  if (colptr.count != n + 1 || colptr[0] != 0 || colptr[n] != nnz || nnz > nzmax) return false;
  if (nzmax > 0 && (!rowData || !valueData || rowData->count < nzmax ||
                    valueData->count < nzmax || row != rowData->data ||
                    value != valueData->data))
    return false;
  for (size_t j = 0; j < n; ++j)
    if (colptr[j + 1] < colptr[j]) return false;
  for (size_t p = 0; p < nnz; ++p)
    if (row[p] >= m) return false;
  if (form == FormSorted) {
    if (diag.count != n) return false;
    size_t missing = 0;
    for (size_t j = 0; j < n; ++j) {
      if (!std::is_sorted(row + colptr[j], row + colptr[j + 1])) return false;
      if (diag[j] != npos && (diag[j] < colptr[j] || diag[j] >= colptr[j + 1] ||
                              row[diag[j]] != j + firstColumn))
        return false;
      missing += diag[j] == npos;
    }
    if (missing != diagMissing) return false;
  }
  return true;
}

template class llsparse<double>;
template class llsparse<std::complex<double>>;

}  // namespace qvarray
