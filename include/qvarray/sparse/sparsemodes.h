#pragma once
// The symmetry mode and the storage form of a sparse matrix. Values are fixed:
// they pass between separately built modules.
#include <cstdint>

namespace qvarray {

/// How the stored compressed columns S represent the matrix A.
enum Symm_t : std::int32_t {
  /// A = S: every entry of A is stored; getM() × getN() is the size of A.
  SymmNone = 0,
  /// A = S + Sᵀ (symmetric, also for complex values). Every stored entry acts
  /// twice, once as stored and once mirrored, so the diagonal of A is stored
  /// halved. Usually S is one triangle of A with half its diagonal.
  SymmSymmetric = 1,
  /// A = S + Sᴴ (Hermitian). As SymmSymmetric, but mirrored entries are
  /// conjugated; on real values the two modes coincide. The diagonal of A is
  /// 2·Re(s_ii).
  SymmHermitian = 2,
  /// A = Sᵀ: the stored columns are the rows of A, so A is getN() × getM().
  /// getM()/getN() always report the stored dimensions.
  SymmTransposed = 3,
};

/// Arrangement of the entries within each stored column.
enum Form_t : std::int32_t {
  /// Any row order; triplet assembly gives first-appearance order.
  FormUnordered = 0,
  /// Rows ascending within each column, and the diagonal index (getDiag) is
  /// kept: for column j the position of its entry in row j + first column, or
  /// npos when the column has none.
  FormSorted = 1,
};

}  // namespace qvarray

using qvarray::Form_t;
using qvarray::Symm_t;
