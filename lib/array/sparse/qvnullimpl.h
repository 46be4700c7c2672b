#pragma once
// Internals of qvNull: the constraint matrix in compressed rows and columns,
// its connected blocks, the collectors of the result's bases and the two
// per-block methods.
#include <cmath>
#include <complex>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "qvarray/sparse/qvnull.h"
#include "qvutil/exception.h"

namespace qvarray::nulldetail {

inline constexpr size_t npos = static_cast<size_t>(-1);

using dcomplex = std::complex<double>;
using qvbase::DetailPairs;

template <class T>
inline T conjugate(T v) {
  if constexpr (std::is_same_v<T, double>)
    return v;
  else
    return std::conj(v);
}

/// The represented m×n matrix (symmetry mode applied) without stored zeros,
/// duplicates summed: by rows (columns ascending) and by columns (rows
/// ascending).
template <class T>
struct Constraints {
  size_t m = 0, n = 0;
  std::vector<size_t> rowptr, col;
  std::vector<T> rval;
  std::vector<size_t> colptr, row;
  std::vector<T> cval;
};

/// Reads B's storage (which must hold values of type T). Raises
/// "Internal_error_sparse" for a partial matrix and
/// "Non_finite_constraint_coefficients" for a NaN or infinite value.
template <class T>
Constraints<T> readConstraints(const Sparse& B);

/// Connected blocks of constraints: two rows are coupled when they share an
/// unknown. Blocks are numbered by their first row; rows and unknowns of each
/// block ascend. A row without entries is a block without unknowns.
struct Blocks {
  size_t count = 0;
  std::vector<size_t> rowStart, rows;  ///< rows of block b: rows[rowStart[b] .. rowStart[b+1])
  std::vector<size_t> colStart, cols;  ///< unknowns of block b, likewise
  std::vector<size_t> local;           ///< per unknown: its place in its block, npos if free
  size_t rowCount(size_t b) const { return rowStart[b + 1] - rowStart[b]; }
  size_t colCount(size_t b) const { return colStart[b + 1] - colStart[b]; }
};

Blocks findBlocks(size_t m, size_t n, const std::vector<size_t>& colptr,
                  const std::vector<size_t>& row);

/// Entries of a sparse matrix collected in any order; exact zeros are not
/// kept.
template <class T>
struct Entries {
  std::vector<size_t> r, c;
  std::vector<T> v;
  size_t cols = 0;
  size_t newColumn() { return cols++; }
  void add(size_t i, size_t j, T x) {
    if (x == T(0)) return;
    r.push_back(i);
    c.push_back(j);
    v.push_back(x);
  }
};

/// Whole columns collected one after the other (rows ascending within each),
/// each with an anchor unknown; exact zeros are not kept.
template <class T>
struct Columns {
  std::vector<size_t> start{0}, row, anchor;
  std::vector<T> val;
  size_t count() const { return anchor.size(); }
  void open(size_t a) { anchor.push_back(a); }
  void add(size_t i, T x) {
    if (x == T(0)) return;
    row.push_back(i);
    val.push_back(x);
  }
  void close() { start.push_back(row.size()); }
};

/// An m×ncols Sparse of nnz entries whose compressed columns fill(colptr, row,
/// value) writes in place (colptr[0] = 0 is set).
template <class T, class Fill>
Sparse buildSparse(size_t m, size_t ncols, size_t nnz, Fill fill) {
  auto s = std::make_shared<llsparse<T>>();
  s->setZeros(m, ncols, nnz);
  fill(s->colptr.data, s->row, s->value);
  s->nnz = nnz;
  return Sparse(std::move(s));
}

/// The m×ncols Sparse of the entries (rows ascending in every column).
template <class T>
Sparse toSparse(const Entries<T>& e, size_t m, size_t ncols);

/// Everything qvNull produces, gathered block by block. The null columns of
/// the blocks are anchored at an unknown and put in anchor order at the end,
/// between the unit columns of the unconstrained unknowns.
template <class T>
struct Collect {
  Columns<T> N;
  Entries<T> complement, rangeBt, rangeB, leftNull, P;
  size_t rank = 0;
};

/// The block by the SVD. Raises "Constraint_elimination_failed_in_SVD".
template <class T>
void svdBlock(const Constraints<T>& B, const Blocks& blocks, size_t b, const NullOptions& o,
              Collect<T>& out);

/// One pivot's expression u_p = g_p + Σ coef·u_j (j free, local indices),
/// with g_p = Σ weight·r_i over the block's local rows i.
template <class T>
struct Expression {
  size_t unknown = 0;
  std::vector<std::pair<size_t, T>> coef;
  std::vector<std::pair<size_t, T>> weight;
};

/// Workspace of the elimination, grown to the largest block and reused.
template <class T>
struct EliminationWork {
  std::vector<size_t> pivotOf;             ///< per local unknown: its expression, or npos
  std::vector<size_t> remaining;           ///< per local unknown: unprocessed rows using it
  std::vector<std::vector<size_t>> users;  ///< per local unknown: expressions that may use it
  std::vector<Expression<T>> expr;
  std::vector<T> acc, wacc;                ///< scattered reduced row and its row weights
  std::vector<double> mag;                 ///< magnitudes summed into acc
  std::vector<size_t> where;               ///< scatter positions for merging
  std::vector<size_t> touched, wtouched;
  std::vector<char> isTouched, isWTouched;
  std::vector<std::vector<std::pair<size_t, T>>> redundant;  ///< weights of redundant rows
  std::vector<size_t> independent;         ///< local rows that got a pivot
  std::vector<std::pair<size_t, T>> column;  ///< null-column entries gathered by column
};

/// The block by sparse elimination. With `mayDecline`, returns false without
/// output when the block is rank-deficient or its coefficients grow beyond
/// kNullGrowthLimit (the caller then takes the SVD); otherwise returns true.
template <class T>
bool eliminateBlock(const Constraints<T>& B, const Blocks& blocks, size_t b,
                    const NullOptions& o, bool mayDecline, EliminationWork<T>& work,
                    Collect<T>& out);

}  // namespace qvarray::nulldetail
