#pragma once
// Oracles shared by the sparse tests: a dense matrix built in lockstep with
// the triplets, a straightforward model of first-appearance assembly, and
// conversions of sparse results to dense arrays.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <initializer_list>
#include <map>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "qvarray/sparse/sparse.h"

namespace sparsetest {

using dcomplex = std::complex<double>;

/// Column-major dense matrix.
template <class T>
struct Dense {
  size_t m = 0, n = 0;
  std::vector<T> a;
  Dense(size_t m_, size_t n_) : m(m_), n(n_), a(m_ * n_, T(0)) {}
  T& operator()(size_t i, size_t j) { return a[i + j * m]; }
  const T& operator()(size_t i, size_t j) const { return a[i + j * m]; }
};

template <class T>
const T* values(const qvarray::Sparse& A) {
  if constexpr (std::is_same_v<T, double>)
    return A.getDoubleVal();
  else
    return A.getDcmplxVal();
}

/// The stored matrix of A as a dense one (stored duplicates summed); a real
/// A may be read as a complex matrix.
template <class T>
Dense<T> toDense(const qvarray::Sparse& A) {
  Dense<T> D(A.getM(), A.getN());
  const size_t* cp = A.getColPtr();
  const size_t* row = A.getRow();
  for (size_t j = 0; j < A.getN(); ++j)
    for (size_t p = cp[j]; p < cp[j + 1]; ++p)
      D(row[p], j) += A.isReal() ? T(A.getDoubleVal()[p]) : T(values<T>(A)[p]);
  return D;
}

/// The same as a qvarray::Array, for the dense linear-algebra oracles.
template <class T>
Array<T, 2> toArray(const qvarray::Sparse& A) {
  const auto D = toDense<T>(A);
  Array<T, 2> M(D.m, D.n);
  std::copy(D.a.begin(), D.a.end(), M.begin());
  return M;
}

template <class T>
Array<T, 1> toArray(const qvarray::Vector& v) {
  Array<T, 1> a(v.size());
  for (size_t i = 0; i < v.size(); ++i) {
    if constexpr (std::is_same_v<T, double>)
      a[i] = v.get(i).real();
    else
      a[i] = v.get(i);
  }
  return a;
}

/// An index array with the given entries.
inline Array<size_t, 1> sizes(std::initializer_list<size_t> v) {
  Array<size_t, 1> a(v.size());
  std::copy(v.begin(), v.end(), a.data);
  return a;
}

/// Triplets and their expected assembly, built side by side.
template <class T>
struct Triplets {
  size_t m, n;
  std::vector<size_t> rows, cols;
  std::vector<T> values;
  Triplets(size_t m_, size_t n_) : m(m_), n(n_) {}
  void add(size_t i, size_t j, T v) {
    rows.push_back(i);
    cols.push_back(j);
    values.push_back(v);
  }
  size_t size() const { return rows.size(); }
  Dense<T> dense() const {
    Dense<T> D(m, n);
    for (size_t k = 0; k < size(); ++k) D(rows[k], cols[k]) += values[k];
    return D;
  }
  /// Reorders the triplets (a fixed-seed permutation), so that assembly gives
  /// columns whose rows are out of order.
  void shuffle(unsigned seed) {
    std::vector<size_t> perm(size());
    for (size_t k = 0; k < perm.size(); ++k) perm[k] = k;
    std::shuffle(perm.begin(), perm.end(), std::mt19937(seed));
    Triplets t(m, n);
    for (size_t k : perm) t.add(rows[k], cols[k], values[k]);
    *this = t;
  }
  qvarray::Sparse assemble() const {
    qvarray::Sparse A;
    A.vectorTripletToSparse(rows, cols, values, m, n);
    return A;
  }
};

/// A's arrays against first-appearance assembly of t, bit for bit: per column
/// the distinct rows in order of first appearance, values summed in input order.
template <class T>
void expectModel(const qvarray::Sparse& A, const Triplets<T>& t) {
  std::vector<std::vector<std::pair<size_t, T>>> columns(t.n);
  std::map<std::pair<size_t, size_t>, size_t> slot;  // (row, col) -> place in its column
  for (size_t k = 0; k < t.size(); ++k) {
    auto& column = columns[t.cols[k]];
    const auto [it, fresh] = slot.try_emplace({t.rows[k], t.cols[k]}, column.size());
    if (fresh)
      column.emplace_back(t.rows[k], t.values[k]);
    else
      column[it->second].second += t.values[k];
  }
  ASSERT_EQ(A.getNnz(), slot.size());
  size_t p = 0;
  for (size_t j = 0; j < t.n; ++j) {
    for (const auto& [r, v] : columns[j]) {
      ASSERT_EQ(A.getRow()[p], r) << p;
      ASSERT_EQ(values<T>(A)[p], v) << p;
      ++p;
    }
    ASSERT_EQ(A.getColPtr()[j + 1], p) << j;
  }
}

template <class T>
void expectDenseEq(const Dense<T>& a, const Dense<T>& b) {
  ASSERT_EQ(a.m, b.m);
  ASSERT_EQ(a.n, b.n);
  for (size_t k = 0; k < a.a.size(); ++k) ASSERT_EQ(a.a[k], b.a[k]) << k;
}

/// Triplets of an m×n matrix from a list of (row, column, value).
template <class T>
Triplets<T> tripletsOf(size_t m, size_t n, std::initializer_list<std::tuple<size_t, size_t, T>> entries) {
  Triplets<T> t(m, n);
  for (const auto& [i, j, v] : entries) t.add(i, j, v);
  return t;
}

/// A random m×n matrix's triplets with about `count` entries, repeats included.
template <class T>
Triplets<T> randomTriplets(size_t m, size_t n, size_t count, double dupFraction, unsigned seed) {
  std::mt19937_64 g(seed);
  std::uniform_real_distribution<double> u(-1, 1);
  Triplets<T> t(m, n);
  for (size_t k = 0; k < count; ++k) {
    T v;
    if constexpr (std::is_same_v<T, double>)
      v = u(g);
    else
      v = T(u(g), u(g));
    if (t.size() > 0 && std::uniform_real_distribution<double>(0, 1)(g) < dupFraction) {
      const size_t e = g() % t.size();
      t.add(t.rows[e], t.cols[e], v);
    } else {
      t.add(g() % m, g() % n, v);
    }
  }
  return t;
}

}  // namespace sparsetest
