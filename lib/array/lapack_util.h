#pragma once
// Small helpers shared by the LAPACK wrappers of module "arrayutil".
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "qvarray/array.h"

namespace qvarray::detail {

/// Sets A(i, j) = 0 for i > j + sub inside the leading rows×cols block:
/// sub = 0 clears the strictly lower triangle, sub = 1 everything below the
/// subdiagonal (what LAPACK leaves there are reflectors, not matrix entries).
template <class T>
void zeroBelow(Array<T, 2>& A, size_t rows, size_t cols, size_t sub) {
  for (size_t j = 0; j < cols; ++j)
    for (size_t i = j + sub + 1; i < rows; ++i) A(i, j) = T(0);
}

/// Keeps the leading rows×cols block of A (A's own column length is
/// A.size0) and makes A exactly that size.
template <class T>
void shrinkTo(Array<T, 2>& A, size_t rows, size_t cols) {
  if (A.sizes[0] == rows && A.sizes[1] == cols) return;
  Array<T, 2> kept(rows, cols);
  for (size_t j = 0; j < cols; ++j)
    std::memcpy(static_cast<void*>(&kept(0, j)), &A(0, j), rows * sizeof(T));
  A = std::move(kept);
}

}  // namespace qvarray::detail
