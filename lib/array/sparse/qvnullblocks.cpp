// qvNull: reading the constraint matrix, its connected blocks, and turning
// collected entries into compressed columns.
#include <algorithm>
#include <numeric>
#include <string>

#include "qvutil/errors.h"
#include "sparse/qvnullimpl.h"

namespace qvarray::nulldetail {

namespace {

template <class T>
const T* storedValues(const Sparse& B) {
  if constexpr (std::is_same_v<T, double>)
    return B.getDoubleVal();
  else
    return B.getDcmplxVal();
}

template <class T>
bool isFinite(T v) {
  if constexpr (std::is_same_v<T, double>)
    return std::isfinite(v);
  else
    return std::isfinite(v.real()) && std::isfinite(v.imag());
}

// Stable counting sort of the entries (key[k], other[k], val[k]) by key < bound.
template <class T>
void sortByKey(size_t bound, std::vector<size_t>& key, std::vector<size_t>& other,
               std::vector<T>& val, std::vector<size_t>& start) {
  start.assign(bound + 1, 0);
  for (size_t k : key) ++start[k + 1];
  std::partial_sum(start.begin(), start.end(), start.begin());
  std::vector<size_t> next(start.begin(), start.end() - 1);
  std::vector<size_t> key2(key.size()), other2(key.size());
  std::vector<T> val2(key.size());
  for (size_t k = 0; k < key.size(); ++k) {
    const size_t p = next[key[k]]++;
    key2[p] = key[k];
    other2[p] = other[k];
    val2[p] = val[k];
  }
  key.swap(key2);
  other.swap(other2);
  val.swap(val2);
}

size_t findRoot(std::vector<size_t>& parent, size_t i) {
  while (parent[i] != i) {
    parent[i] = parent[parent[i]];  // path halving
    i = parent[i];
  }
  return i;
}

}  // namespace

template <class T>
Constraints<T> readConstraints(const Sparse& B) {
  if (B.getFirstRow() != 0 || B.getFirstColumn() != 0)
    QV_RAISE(qvnull, Internal_error_sparse, "qvNull needs a whole matrix, not a partial one.");
  const size_t sm = B.getM(), sn = B.getN();
  const size_t* cp = B.getColPtr();
  const size_t* rw = B.getRow();
  const T* val = storedValues<T>(B);
  const Symm_t symm = B.getSymm();

  // Entries (i, j, v) of the represented matrix, the stored zeros left out.
  Constraints<T> c;
  c.m = symm == SymmTransposed ? sn : sm;
  c.n = symm == SymmTransposed ? sm : sn;
  std::vector<size_t> ri, cj;
  std::vector<T> v;
  const size_t mirrored = symm == SymmSymmetric || symm == SymmHermitian ? 2 : 1;
  ri.reserve(B.getNnz() * mirrored);
  cj.reserve(B.getNnz() * mirrored);
  v.reserve(B.getNnz() * mirrored);
  for (size_t j = 0; j < sn; ++j)
    for (size_t p = cp[j]; p < cp[j + 1]; ++p) {
      const T x = val[p];
      if (!isFinite(x))
        QV_RAISE(qvnull, Non_finite_constraint_coefficients,
                 DetailPairs{{"Row", std::to_string(rw[p])}, {"Column", std::to_string(j)}});
      if (x == T(0)) continue;
      if (symm == SymmTransposed) {
        ri.push_back(j), cj.push_back(rw[p]), v.push_back(x);
        continue;
      }
      ri.push_back(rw[p]), cj.push_back(j), v.push_back(x);
      if (mirrored == 2) {
        ri.push_back(j), cj.push_back(rw[p]);
        v.push_back(symm == SymmHermitian ? conjugate(x) : x);
      }
    }

  // By columns, then stably by rows: every row lists its columns ascending.
  sortByKey(c.n, cj, ri, v, c.colptr);
  sortByKey(c.m, ri, cj, v, c.rowptr);
  // Sum duplicates (adjacent within a row) and drop sums that vanish.
  size_t q = 0;
  for (size_t i = 0; i < c.m; ++i) {
    const size_t begin = c.rowptr[i], end = c.rowptr[i + 1];
    c.rowptr[i] = q;
    for (size_t p = begin; p < end;) {
      T s = v[p];
      size_t e = p + 1;
      while (e < end && cj[e] == cj[p]) s += v[e++];
      if (s != T(0)) {
        cj[q] = cj[p];
        v[q] = s;
        ++q;
      }
      p = e;
    }
  }
  c.rowptr[c.m] = q;
  cj.resize(q);
  v.resize(q);
  c.col = cj;
  c.rval = v;

  // The same entries by columns (rows ascending).
  ri.resize(q);
  for (size_t i = 0; i < c.m; ++i)
    for (size_t p = c.rowptr[i]; p < c.rowptr[i + 1]; ++p) ri[p] = i;
  sortByKey(c.n, cj, ri, v, c.colptr);
  c.row.swap(ri);
  c.cval.swap(v);
  return c;
}

Blocks findBlocks(size_t m, size_t n, const std::vector<size_t>& colptr,
                  const std::vector<size_t>& row) {
  // Union of the rows of every column.
  std::vector<size_t> parent(m);
  std::iota(parent.begin(), parent.end(), size_t(0));
  for (size_t j = 0; j < n; ++j) {
    if (colptr[j] == colptr[j + 1]) continue;
    const size_t r0 = findRoot(parent, row[colptr[j]]);
    for (size_t p = colptr[j] + 1; p < colptr[j + 1]; ++p) {
      const size_t r = findRoot(parent, row[p]);
      if (r != r0) parent[std::max(r, r0)] = std::min(r, r0);
    }
  }
  // Number the blocks by their first row; the smaller root wins every union,
  // so a root is its block's first row.
  Blocks bl;
  std::vector<size_t> label(m);
  for (size_t i = 0; i < m; ++i) {
    const size_t r = findRoot(parent, i);
    label[i] = r == i ? bl.count++ : label[r];
  }
  bl.rowStart.assign(bl.count + 1, 0);
  bl.colStart.assign(bl.count + 1, 0);
  for (size_t i = 0; i < m; ++i) ++bl.rowStart[label[i] + 1];
  for (size_t j = 0; j < n; ++j)
    if (colptr[j] != colptr[j + 1]) ++bl.colStart[label[row[colptr[j]]] + 1];
  std::partial_sum(bl.rowStart.begin(), bl.rowStart.end(), bl.rowStart.begin());
  std::partial_sum(bl.colStart.begin(), bl.colStart.end(), bl.colStart.begin());
  bl.rows.resize(m);
  bl.cols.resize(bl.colStart[bl.count]);
  bl.local.assign(n, npos);
  std::vector<size_t> next(bl.rowStart.begin(), bl.rowStart.end() - 1);
  for (size_t i = 0; i < m; ++i) bl.rows[next[label[i]]++] = i;
  next.assign(bl.colStart.begin(), bl.colStart.end() - 1);
  for (size_t j = 0; j < n; ++j) {
    if (colptr[j] == colptr[j + 1]) continue;
    const size_t b = label[row[colptr[j]]];
    bl.local[j] = next[b] - bl.colStart[b];
    bl.cols[next[b]++] = j;
  }
  return bl;
}

template <class T>
Sparse toSparse(const Entries<T>& e, size_t m, size_t ncols) {
  const size_t nnz = e.v.size();
  return buildSparse<T>(m, ncols, nnz, [&](size_t* colptr, size_t* rows, T* vals) {
    for (size_t k = 0; k < nnz; ++k) ++colptr[e.c[k] + 1];
    for (size_t j = 0; j < ncols; ++j) colptr[j + 1] += colptr[j];
    std::vector<size_t> next(colptr, colptr + ncols);
    for (size_t k = 0; k < nnz; ++k) {
      const size_t p = next[e.c[k]]++;
      rows[p] = e.r[k];
      vals[p] = e.v[k];
    }
    // Rows ascending within each column: columns arrive nearly sorted and are
    // mostly short (insertion sort); long unsorted ones are sorted as pairs.
    std::vector<std::pair<size_t, T>> pairs;
    for (size_t j = 0; j < ncols; ++j) {
      const size_t b = colptr[j], e2 = colptr[j + 1];
      if (std::is_sorted(rows + b, rows + e2)) continue;
      if (e2 - b <= 32) {
        for (size_t p = b + 1; p < e2; ++p)
          for (size_t q = p; q > b && rows[q - 1] > rows[q]; --q) {
            std::swap(rows[q - 1], rows[q]);
            std::swap(vals[q - 1], vals[q]);
          }
        continue;
      }
      pairs.clear();
      for (size_t p = b; p < e2; ++p) pairs.emplace_back(rows[p], vals[p]);
      std::sort(pairs.begin(), pairs.end(),
                [](const auto& x, const auto& y) { return x.first < y.first; });
      for (size_t p = b; p < e2; ++p) rows[p] = pairs[p - b].first, vals[p] = pairs[p - b].second;
    }
  });
}

template Constraints<double> readConstraints<double>(const Sparse&);
template Constraints<dcomplex> readConstraints<dcomplex>(const Sparse&);
template Sparse toSparse<double>(const Entries<double>&, size_t, size_t);
template Sparse toSparse<dcomplex>(const Entries<dcomplex>&, size_t, size_t);

}  // namespace qvarray::nulldetail
