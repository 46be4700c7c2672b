// Sparse: storage-level edits as plain compressed-column operations. Every
// edit that changes the pattern draws a new pattern version; edits of values
// alone keep it.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "qvutil/errors.h"
#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

constexpr size_t npos = llsparse<double>::npos;

template <class T>
T fromComplex(std::complex<double> v) {
  if constexpr (std::is_same_v<T, double>)
    return v.real();
  else
    return v;
}

// Keeps the columns j with keepCol(j) and, within them, the entries p with
// keepEntry(j, p), renumbering the kept columns in order and the rows through
// rowMap when given (npos drops the entry). Entries move only towards the
// front, so the row and value arrays are rewritten in place. Draws a new
// pattern version.
template <class S, class KeepCol, class KeepEntry>
void compact(S& s, const KeepCol& keepCol, const KeepEntry& keepEntry, const size_t* rowMap,
             size_t newM) {
  size_t kept = 0;
  for (size_t j = 0; j < s.n; ++j) kept += keepCol(j) ? 1 : 0;
  Array<size_t, 1> cp(kept + 1);  // allocations first: a failure changes nothing
  s.ownRows();
  s.ownValues();
  size_t q = 0, jn = 0;
  cp[0] = 0;
  for (size_t j = 0; j < s.n; ++j) {
    if (!keepCol(j)) continue;
    for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p) {
      if (!keepEntry(j, p)) continue;
      size_t r = s.row[p];
      if (rowMap) {
        r = rowMap[r];
        if (r == npos) continue;
      }
      s.row[q] = r;
      s.value[q] = s.value[p];
      ++q;
    }
    cp[++jn] = q;
  }
  s.colptr = std::move(cp);
  s.n = kept;
  s.m = newM;
  s.nnz = q;
  if (s.form == FormSorted) s.rebuildDiag();
  s.newVersion();
}

void checkIndices(const Array<size_t, 1>& idx, size_t bound, const char* sentence) {
  for (size_t k = 0; k < idx.count; ++k)
    if (idx[k] >= bound) QV_RAISE(sparse, Internal_error_sparse, sentence);
}

}  // namespace

Sparse& Sparse::setElem(size_t i, size_t j, std::complex<double> v) {
  const size_t pos = visit([&](const auto& s) {
    if (i >= s.m || j >= s.n) QV_RAISE(sparse, Internal_error_sparse, "Index out of range.");
    const size_t p = s.find(i, j);
    if (p == npos && s.nnz == s.nzmax)
      QV_RAISE(sparse, Internal_error_sparse, "Reallocation is needed.");
    return p;
  });
  if (real_ && v.imag() != 0) real2complex();
  visitMutable([&](auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    const T val = fromComplex<T>(v);
    s.ownValues();
    if (pos != npos) {
      s.value[pos] = val;
      return;
    }
    // Insert into the spare room: later entries move up by one.
    s.ownRows();
    size_t at = s.colptr[j + 1];
    if (s.form == FormSorted)
      at = static_cast<size_t>(std::lower_bound(s.row + s.colptr[j], s.row + at, i) - s.row);
    std::copy_backward(s.row + at, s.row + s.nnz, s.row + s.nnz + 1);
    std::copy_backward(s.value + at, s.value + s.nnz, s.value + s.nnz + 1);
    s.row[at] = i;
    s.value[at] = val;
    for (size_t k = j + 1; k <= s.n; ++k) ++s.colptr[k];
    ++s.nnz;
    if (s.form == FormSorted) s.rebuildDiag();
    s.newVersion();
  });
  return *this;
}

Sparse& Sparse::format(Form_t form, bool dropZeros) {
  if (form != FormUnordered && form != FormSorted)
    QV_RAISE(sparse, Internal_error_sparse, "Invalid storage form.");
  const bool hasZeros = dropZeros && visit([](const auto& s) {
                          using T = std::remove_reference_t<decltype(*s.value)>;
                          return std::any_of(s.value, s.value + s.nnz,
                                             [](const T& v) { return v == T(0); });
                        });
  if (!hasZeros && form == getForm()) return *this;
  visitMutable([&](auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    if (hasZeros)
      compact(
          s, [](size_t) { return true; }, [&](size_t, size_t p) { return s.value[p] != T(0); },
          nullptr, s.m);
    if (form == FormSorted) {
      if (s.sortColumns()) s.newVersion();
    } else {
      s.form = FormUnordered;
      s.diag = Array<size_t, 1>();
    }
  });
  return *this;
}

Sparse& Sparse::reallocate(double factor) {
  const size_t nnz = getNnz();
  size_t capacity = nnz;
  if (factor > 1) {
    const double want = std::ceil(factor * static_cast<double>(std::max<size_t>(nnz, 1)));
    if (!(want < 9.0e18)) throw std::bad_alloc();
    capacity = std::max(nnz, static_cast<size_t>(want));
  }
  if (capacity != getNzmax()) visitMutable([&](auto& s) { s.setCapacity(capacity); });
  return *this;
}

size_t Sparse::nonZeros(int dim, Array<int, 1>& counts) const {
  if (dim != 0 && dim != 1) QV_RAISE(sparse, Internal_error_sparse, "Invalid dimension.");
  return visit([&](const auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    counts.resize(dim == 0 ? s.n : s.m);
    counts.fill(0);
    size_t total = 0;
    for (size_t j = 0; j < s.n; ++j)
      for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p)
        if (s.value[p] != T(0)) {
          ++counts[dim == 0 ? j : s.row[p]];
          ++total;
        }
    return total;
  });
}

Sparse& Sparse::zeroCols(const Array<size_t, 1>& cols) {
  checkIndices(cols, getN(), "Column index out of range.");
  if (cols.count == 0) return *this;
  visitMutable([&](auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    s.ownValues();
    for (size_t k = 0; k < cols.count; ++k)
      std::fill(s.value + s.colptr[cols[k]], s.value + s.colptr[cols[k] + 1], T(0));
  });
  return *this;
}

Sparse& Sparse::removeZeroCols(Array<size_t, 1>& kept) {
  std::vector<char> keep = visit([](const auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    std::vector<char> k(s.n, 0);
    for (size_t j = 0; j < s.n; ++j)
      k[j] = std::any_of(s.value + s.colptr[j], s.value + s.colptr[j + 1],
                         [](const T& v) { return v != T(0); });
    return k;
  });
  const size_t count = static_cast<size_t>(std::count(keep.begin(), keep.end(), 1));
  kept.resize(count);
  for (size_t j = 0, q = 0; j < keep.size(); ++j)
    if (keep[j]) kept[q++] = j;
  if (count == keep.size()) return *this;
  visitMutable([&](auto& s) {
    compact(
        s, [&](size_t j) { return keep[j] != 0; }, [](size_t, size_t) { return true; }, nullptr,
        s.m);
  });
  return *this;
}

Sparse& Sparse::truncateCols(double tol) {
  // Per column the bound tol·(largest magnitude); an entry at or below it goes.
  std::vector<double> bound;
  const bool removes = visit([&](const auto& s) {
    bound.assign(s.n, 0.0);
    bool any = false;
    for (size_t j = 0; j < s.n; ++j) {
      double largest = 0;
      for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p)
        largest = std::max(largest, static_cast<double>(std::abs(s.value[p])));
      bound[j] = tol * largest;
      for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p)
        any = any || std::abs(s.value[p]) <= bound[j];
    }
    return any;
  });
  if (!removes) return *this;
  visitMutable([&](auto& s) {
    compact(
        s, [](size_t) { return true; },
        [&](size_t j, size_t p) { return !(std::abs(s.value[p]) <= bound[j]); }, nullptr, s.m);
  });
  return *this;
}

Sparse& Sparse::removeCols(const Array<size_t, 1>& cols) {
  const size_t n = getN();
  checkIndices(cols, n, "Column index out of range.");
  if (cols.count == 0) return *this;
  std::vector<char> keep(n, 1);
  for (size_t k = 0; k < cols.count; ++k) keep[cols[k]] = 0;
  visitMutable([&](auto& s) {
    compact(
        s, [&](size_t j) { return keep[j] != 0; }, [](size_t, size_t) { return true; }, nullptr,
        s.m);
  });
  return *this;
}

Sparse& Sparse::inplaceRemove(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols) {
  const size_t m = getM(), n = getN();
  checkIndices(rows, m, "Row index out of range.");
  checkIndices(cols, n, "Column index out of range.");
  if (rows.count == 0 && cols.count == 0) return *this;
  std::vector<char> keep(n, 1);
  for (size_t k = 0; k < cols.count; ++k) keep[cols[k]] = 0;
  std::vector<size_t> rowMap(m, 0);
  for (size_t k = 0; k < rows.count; ++k) rowMap[rows[k]] = npos;
  size_t newM = 0;
  for (size_t i = 0; i < m; ++i)
    if (rowMap[i] != npos) rowMap[i] = newM++;
  visitMutable([&](auto& s) {
    compact(
        s, [&](size_t j) { return keep[j] != 0; }, [](size_t, size_t) { return true; },
        rowMap.data(), newM);
  });
  return *this;
}

Sparse Sparse::extractMatrix(const Array<size_t, 1>& rows, const Array<size_t, 1>& cols) const {
  const size_t m = getM(), n = getN();
  checkIndices(rows, m, "Row index out of range.");
  checkIndices(cols, n, "Column index out of range.");
  std::vector<size_t> rowMap(m, npos);
  for (size_t a = 0; a < rows.count; ++a) {
    if (rowMap[rows[a]] != npos) QV_RAISE(sparse, Internal_error_sparse, "Repeated row index.");
    rowMap[rows[a]] = a;
  }
  Sparse B;
  visit([&](const auto& s) {
    using T = std::remove_reference_t<decltype(*s.value)>;
    size_t count = 0;
    for (size_t b = 0; b < cols.count; ++b)
      for (size_t p = s.colptr[cols[b]]; p < s.colptr[cols[b] + 1]; ++p)
        count += rowMap[s.row[p]] != npos ? 1 : 0;
    auto t = std::make_shared<llsparse<T>>();
    t->setZeros(rows.count, cols.count, count);
    size_t q = 0;
    for (size_t b = 0; b < cols.count; ++b) {
      for (size_t p = s.colptr[cols[b]]; p < s.colptr[cols[b] + 1]; ++p) {
        const size_t r = rowMap[s.row[p]];
        if (r == npos) continue;
        t->row[q] = r;
        t->value[q] = s.value[p];
        ++q;
      }
      t->colptr[b + 1] = q;
    }
    t->nnz = q;
    t->symm = s.symm;
    B.adopt(std::move(t));
  });
  return B;
}

}  // namespace qvarray
