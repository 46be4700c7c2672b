#pragma once
// Compressed-column algebra on plain arrays, the working form of the
// matrix-level operations of Sparse: the represented matrix of a storage
// object, transposition, sums and Gustavson's product. Every routine is
// linear in its input, output and flop counts; workspace is O(rows).
#include <complex>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

#include "qvarray/sparse/llsparse.h"
#include "sparse/sparseimpl.h"

namespace qvarray::csc {

using dcomplex = std::complex<double>;
constexpr size_t npos = static_cast<size_t>(-1);

/// An m×n matrix in compressed columns (rows in any order within a column).
template <class T>
struct Matrix {
  size_t m = 0, n = 0;
  std::vector<size_t> colptr{0};
  std::vector<size_t> row;
  std::vector<T> value;
  size_t nnz() const { return row.size(); }
};

template <class T>
inline T conjIf(const T& v, bool conj) {
  if constexpr (std::is_same_v<T, double>)
    return v;
  else
    return conj ? std::conj(v) : v;
}

template <class To, class From>
inline To convertValue(const From& v) {
  if constexpr (std::is_same_v<To, double>)
    return static_cast<double>(std::real(v));
  else
    return To(v);
}

/// The stored matrix of s (value type To), symmetry mode ignored.
template <class To, class From>
Matrix<To> stored(const llsparse<From>& s) {
  Matrix<To> a;
  a.m = s.m;
  a.n = s.n;
  a.colptr.assign(s.colptr.data, s.colptr.data + s.n + 1);
  a.row.assign(s.row, s.row + s.nnz);
  a.value.resize(s.nnz);
  for (size_t p = 0; p < s.nnz; ++p) a.value[p] = convertValue<To>(s.value[p]);
  return a;
}

/// op(a) with op = transpose, conjugated when `conj`; rows come out
/// ascending within each column.
template <class T>
Matrix<T> transpose(const Matrix<T>& a, bool conj) {
  Matrix<T> t;
  t.m = a.n;
  t.n = a.m;
  t.colptr.assign(a.m + 1, 0);
  for (size_t r : a.row) ++t.colptr[r + 1];
  for (size_t i = 0; i < a.m; ++i) t.colptr[i + 1] += t.colptr[i];
  std::vector<size_t> next(t.colptr.begin(), t.colptr.end() - 1);
  t.row.resize(a.nnz());
  t.value.resize(a.nnz());
  for (size_t j = 0; j < a.n; ++j)
    for (size_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p) {
      const size_t q = next[a.row[p]]++;
      t.row[q] = j;
      t.value[q] = conjIf(a.value[p], conj);
    }
  return t;
}

/// alpha·a + beta·b (equal sizes). Within a column, a's rows come first in
/// a's order, then b's new rows in b's order; repeated rows are summed.
/// dropZeros removes entries whose sum is exactly zero.
template <class T>
Matrix<T> add(T alpha, const Matrix<T>& a, T beta, const Matrix<T>& b, bool dropZeros) {
  Matrix<T> c;
  c.m = a.m;
  c.n = a.n;
  c.colptr.assign(a.n + 1, 0);
  c.row.reserve(a.nnz() + b.nnz());
  c.value.reserve(a.nnz() + b.nnz());
  std::vector<size_t> where(a.m, npos);  // position of a row in the current column
  for (size_t j = 0; j < a.n; ++j) {
    const size_t start = c.row.size();
    auto put = [&](size_t r, T v) {
      if (where[r] != npos) {
        c.value[where[r]] += v;
        return;
      }
      where[r] = c.row.size();
      c.row.push_back(r);
      c.value.push_back(v);
    };
    for (size_t p = a.colptr[j]; p < a.colptr[j + 1]; ++p) put(a.row[p], alpha * a.value[p]);
    for (size_t p = b.colptr[j]; p < b.colptr[j + 1]; ++p) put(b.row[p], beta * b.value[p]);
    size_t q = start;
    for (size_t p = start; p < c.row.size(); ++p) {
      where[c.row[p]] = npos;
      if (dropZeros && c.value[p] == T(0)) continue;
      c.row[q] = c.row[p];
      c.value[q] = c.value[p];
      ++q;
    }
    c.row.resize(q);
    c.value.resize(q);
    c.colptr[j + 1] = q;
  }
  return c;
}

/// a·b by Gustavson's method (a.n == b.m): column j of the product
/// accumulates a's columns scaled by b's entries of column j, in a dense
/// workspace of a.m values marked by column. Rows appear in the order first
/// met; cost O(flops + a.m + b.n).
template <class T>
Matrix<T> multiply(const Matrix<T>& a, const Matrix<T>& b, bool dropZeros) {
  Matrix<T> c;
  c.m = a.m;
  c.n = b.n;
  c.colptr.assign(b.n + 1, 0);
  std::vector<size_t> mark(a.m, npos);
  std::vector<T> acc(a.m);
  for (size_t j = 0; j < b.n; ++j) {
    const size_t start = c.row.size();
    for (size_t pb = b.colptr[j]; pb < b.colptr[j + 1]; ++pb) {
      const size_t k = b.row[pb];
      const T bkj = b.value[pb];
      for (size_t pa = a.colptr[k]; pa < a.colptr[k + 1]; ++pa) {
        const size_t i = a.row[pa];
        if (mark[i] != j) {
          mark[i] = j;
          acc[i] = a.value[pa] * bkj;
          c.row.push_back(i);
        } else {
          acc[i] += a.value[pa] * bkj;
        }
      }
    }
    size_t q = start;
    for (size_t p = start; p < c.row.size(); ++p) {
      const size_t i = c.row[p];
      if (dropZeros && acc[i] == T(0)) continue;
      c.row[q++] = i;
      c.value.push_back(acc[i]);
    }
    c.row.resize(q);
    c.colptr[j + 1] = q;
  }
  return c;
}

/// The matrix that s represents (its symmetry mode applied), in mode 0:
/// S, S + Sᵀ, S + Sᴴ or Sᵀ.
template <class To, class From>
Matrix<To> represented(const llsparse<From>& s) {
  Matrix<To> a = stored<To>(s);
  switch (s.symm) {
    case SymmTransposed:
      return transpose(a, false);
    case SymmSymmetric:
    case SymmHermitian:
      return add(To(1), a, To(1), transpose(a, s.symm == SymmHermitian), false);
    default:
      return a;
  }
}

/// A fresh storage object holding c in mode `symm` (a new pattern version).
template <class T>
std::shared_ptr<llsparse<T>> toStorage(const Matrix<T>& c, Symm_t symm) {
  auto s = std::make_shared<llsparse<T>>();
  s->setCompressed(c.nnz() ? c.row.data() : nullptr, c.colptr.data(),
                   c.nnz() ? c.value.data() : nullptr, c.m, c.n);
  s->symm = symm;
  return s;
}

/// A fresh storage object assembled from triplets (duplicates summed), rows
/// sorted within columns.
template <class T>
std::shared_ptr<llsparse<T>> fromTriplets(const std::vector<size_t>& rows,
                                          const std::vector<size_t>& cols,
                                          const std::vector<T>& values, size_t m, size_t n,
                                          Symm_t symm) {
  auto s = std::make_shared<llsparse<T>>();
  s->assembleTriplets(rows.data(), cols.data(), values.data(), rows.size(), m, n, false);
  s->sortColumns();
  s->symm = symm;
  return s;
}

}  // namespace qvarray::csc
