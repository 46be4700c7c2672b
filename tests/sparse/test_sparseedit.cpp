// Storage-level edits and element access, each checked against the same
// operation done on a dense copy.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "qvarray/sparse.h"
#include "qvtest.h"
#include "sparsetest.h"

using namespace sparsetest;
using qvarray::Sparse;

namespace {

constexpr size_t npos = qvarray::llsparse<double>::npos;

// A 12×9 matrix with stored zeros, an empty column and unsorted rows.
Triplets<double> sample() {
  auto t = randomTriplets<double>(12, 9, 60, 0.2, 21);
  for (size_t k = 0; k < t.size(); ++k)
    if (t.cols[k] == 4) t.cols[k] = 5;  // column 4 empty
  t.add(3, 2, 0.0);                     // stored zeros
  t.add(11, 7, 0.0);
  t.add(0, 6, 0.0);
  for (size_t k = 0; k < t.size(); ++k)
    if (t.cols[k] == 6) t.values[k] = 0;  // column 6 all zeros
  return t;
}

template <class T>
Dense<T> dropRowsCols(const Dense<T>& D, const std::vector<char>& keepRow,
                      const std::vector<char>& keepCol) {
  size_t m = std::count(keepRow.begin(), keepRow.end(), 1);
  size_t n = std::count(keepCol.begin(), keepCol.end(), 1);
  Dense<T> R(m, n);
  for (size_t j = 0, b = 0; j < D.n; ++j) {
    if (!keepCol[j]) continue;
    for (size_t i = 0, a = 0; i < D.m; ++i)
      if (keepRow[i]) R(a++, b) = D(i, j);
    ++b;
  }
  return R;
}

TEST(SparseEdit, SetElemOverwritesAndInserts) {
  const auto t = sample();
  Sparse A = t.assemble();
  Dense<double> D = t.dense();
  A.setElem(t.rows[0], t.cols[0], 42.0);
  D(t.rows[0], t.cols[0]) = 42.0;
  expectDenseEq(toDense<double>(A), D);

  // No spare room: the matrix is left alone.
  const size_t missing = [&] {
    for (size_t i = 0; i < 12; ++i)
      if (A.getIdx(i, 4) == npos) return i;
    return npos;
  }();
  qvtest::expectThrowKey([&] { A.setElem(missing, 4, 1.0); }, "Internal_error_sparse",
                         "Reallocation is needed.");
  qvtest::expectThrowKey([&] { A.setElem(12, 0, 1.0); }, "Internal_error_sparse",
                         "Index out of range.");
  expectDenseEq(toDense<double>(A), D);

  A.reallocate(1.5);
  EXPECT_GE(A.getNzmax(), A.getNnz() + 2);
  A.setElem(missing, 4, 1.0);
  D(missing, 4) = 1.0;
  A.format(qvarray::FormSorted, false);
  A.setElem(5, 4, -1.0);  // sorted insertion keeps the column sorted
  D(5, 4) = -1.0;
  expectDenseEq(toDense<double>(A), D);
  EXPECT_TRUE(A.getptrD()->isConsistent());

  // A complex value turns the matrix complex.
  A.reallocate(2.0);
  A.setElem(0, 0, {0, 3});
  EXPECT_FALSE(A.isReal());
  EXPECT_EQ(A.getImag(0, 0), 3.0);
  EXPECT_TRUE(A.getptrZ()->isConsistent());
}

TEST(SparseEdit, FormatSortsAndDropsZeros) {
  const auto t = sample();
  Sparse A = t.assemble();
  const Dense<double> D = t.dense();
  A.format(qvarray::FormSorted, false);
  EXPECT_EQ(A.getForm(), qvarray::FormSorted);
  expectDenseEq(toDense<double>(A), D);
  const size_t* cp = A.getColPtr();
  const size_t* diag = A.getDiag();
  ASSERT_NE(diag, nullptr);
  for (size_t j = 0; j < A.getN(); ++j) {
    EXPECT_TRUE(std::is_sorted(A.getRow() + cp[j], A.getRow() + cp[j + 1]));
    EXPECT_EQ(diag[j], A.getIdx(j, j));
  }
  const size_t before = A.getNnz();
  const size_t zeros = std::count(A.getDoubleVal(), A.getDoubleVal() + before, 0.0);
  EXPECT_GE(zeros, 3u);
  A.format(qvarray::FormSorted, true);
  EXPECT_EQ(A.getNnz(), before - zeros);
  for (size_t p = 0; p < A.getNnz(); ++p) EXPECT_NE(A.getDoubleVal()[p], 0.0);
  expectDenseEq(toDense<double>(A), D);
  A.setForm(qvarray::FormUnordered);
  EXPECT_EQ(A.getDiag(), nullptr);
}

TEST(SparseEdit, CountsAndAccess) {
  const auto t = sample();
  const Sparse A = t.assemble();
  const Dense<double> D = t.dense();
  Array<int, 1> perCol, perRow;
  const size_t total = A.nonZeros(0, perCol);
  EXPECT_EQ(A.nonZeros(1, perRow), total);
  std::vector<int> cols(9, 0), rows(12, 0);
  for (size_t j = 0; j < 9; ++j)
    for (size_t i = 0; i < 12; ++i) cols[j] += D(i, j) != 0, rows[i] += D(i, j) != 0;
  EXPECT_EQ(std::vector<int>(perCol.begin(), perCol.end()), cols);
  EXPECT_EQ(std::vector<int>(perRow.begin(), perRow.end()), rows);
  EXPECT_EQ(total, size_t(std::accumulate(cols.begin(), cols.end(), 0)));
  qvtest::expectThrowKey([&] { A.nonZeros(2, perRow); }, "Internal_error_sparse");

  const Array<size_t, 1> ri = sizes({11, 0, 3, 5}), ci = sizes({2, 5, 4, 0, 2});
  Array<double, 2> block, imag;
  A.getRealBlock(ri, ci, block);
  A.getImagBlock(ri, ci, imag);
  Array<size_t, 2> idx;
  A.getIdxBlock(ri, ci, idx);
  for (size_t a = 0; a < ri.count; ++a)
    for (size_t b = 0; b < ci.count; ++b) {
      EXPECT_EQ(block(a, b), D(ri[a], ci[b]));
      EXPECT_EQ(imag(a, b), 0.0);
      EXPECT_EQ(idx(a, b), A.getIdx(ri[a], ci[b]));
      EXPECT_EQ(A.getReal(ri[a], ci[b]), D(ri[a], ci[b]));
    }
  qvtest::expectThrowKey([&] { A.getRealBlock(sizes({12}), ci, block); }, "Internal_error_sparse",
                         "Index out of range.");

  Array<size_t, 1> r;
  qvarray::Vector v;
  A.getVectorPair(5, r, v);
  ASSERT_EQ(r.count, A.getColPtr()[6] - A.getColPtr()[5]);
  ASSERT_TRUE(v.isReal());
  Dense<double> col(12, 1);
  for (size_t k = 0; k < r.count; ++k) col(r[k], 0) += v.getdArr()[k];
  for (size_t i = 0; i < 12; ++i) EXPECT_EQ(col(i, 0), D(i, 5)) << i;
}

TEST(SparseEdit, ColumnAndRowRemoval) {
  const auto t = sample();
  const Dense<double> D = t.dense();
  std::vector<char> allRows(12, 1);

  Sparse A = t.assemble();
  A.zeroCols(sizes({2, 8}));
  Dense<double> Z = D;
  for (size_t i = 0; i < 12; ++i) Z(i, 2) = Z(i, 8) = 0;
  expectDenseEq(toDense<double>(A), Z);

  Array<size_t, 1> kept;
  A.removeZeroCols(kept);
  std::vector<char> keepCol(9, 0);
  for (size_t k = 0; k < kept.count; ++k) keepCol[kept[k]] = 1;
  EXPECT_EQ(keepCol, (std::vector<char>{1, 1, 0, 1, 0, 1, 0, 1, 0}));
  expectDenseEq(toDense<double>(A), dropRowsCols(Z, allRows, keepCol));
  EXPECT_TRUE(A.getptrD()->isConsistent());

  Sparse B = t.assemble();
  B.removeCols(sizes({8, 0, 8, 3}));
  expectDenseEq(toDense<double>(B), dropRowsCols(D, allRows, {0, 1, 1, 0, 1, 1, 1, 1, 0}));

  Sparse C = t.assemble();
  C.format(qvarray::FormSorted, false);
  C.inplaceRemove(sizes({0, 7, 11}), sizes({1}));
  std::vector<char> keepRow(12, 1);
  keepRow[0] = keepRow[7] = keepRow[11] = 0;
  expectDenseEq(toDense<double>(C), dropRowsCols(D, keepRow, {1, 0, 1, 1, 1, 1, 1, 1, 1}));
  EXPECT_EQ(C.getM(), 9u);
  EXPECT_TRUE(C.getptrD()->isConsistent());  // sorted, diagonal index rebuilt

  Sparse E = t.assemble();
  const auto version = E.getRowColptrVersion();
  qvtest::expectThrowKey([&] { E.removeCols(sizes({9})); }, "Internal_error_sparse",
                         "Column index out of range.");
  qvtest::expectThrowKey([&] { E.inplaceRemove(sizes({12}), sizes({})); }, "Internal_error_sparse",
                         "Row index out of range.");
  EXPECT_EQ(E.getRowColptrVersion(), version);
  EXPECT_EQ(E.getN(), 9u);
}

TEST(SparseEdit, ExtractMatrix) {
  auto t = sample();
  Sparse A = t.assemble();
  A.setSymm(qvarray::SymmTransposed);
  const Dense<double> D = t.dense();
  const Array<size_t, 1> rows = sizes({4, 0, 11, 3}), cols = sizes({5, 5, 1, 7});
  const Sparse B = A.extractMatrix(rows, cols);
  EXPECT_EQ(B.getSymm(), qvarray::SymmTransposed);
  Dense<double> E(4, 4);
  for (size_t a = 0; a < 4; ++a)
    for (size_t b = 0; b < 4; ++b) E(a, b) = D(rows[a], cols[b]);
  expectDenseEq(toDense<double>(B), E);
  qvtest::expectThrowKey([&] { (void)A.extractMatrix(sizes({1, 1}), cols); },
                         "Internal_error_sparse", "Repeated row index.");
}

TEST(SparseEdit, TruncateCols) {
  Sparse A;
  A.vectorTripletToSparse({0, 1, 2, 0, 1, 2}, {0, 0, 0, 1, 1, 2},
                          std::vector<double>{1, -1e-3, 0.5, 0, 0, 1e-300}, 3, 3);
  A.truncateCols(1e-2);
  Dense<double> E(3, 3);
  E(0, 0) = 1;
  E(2, 0) = 0.5;
  E(2, 2) = 1e-300;  // relative to its own column
  expectDenseEq(toDense<double>(A), E);
  EXPECT_EQ(A.getNnz(), 3u);  // the zero column became empty
}

TEST(SparseEdit, ValueOperations) {
  auto t = randomTriplets<double>(8, 8, 40, 0.1, 2);
  Sparse A = t.assemble();
  const Dense<double> D = t.dense();
  A.sign();
  for (size_t i = 0; i < 8; ++i)
    for (size_t j = 0; j < 8; ++j)
      EXPECT_EQ(A.getReal(i, j), D(i, j) > 0 ? 1.0 : D(i, j) < 0 ? -1.0 : 0.0);

  Sparse Z = t.assemble();
  Z.scale({0, 2});
  EXPECT_FALSE(Z.isReal());
  Z.conjugate();
  for (size_t i = 0; i < 8; ++i)
    for (size_t j = 0; j < 8; ++j) EXPECT_EQ(Z.getImag(i, j), -2 * D(i, j));
  EXPECT_EQ(qvtest::expectThrowKey([&] { Z.sign(); }, "Sign_of_complex_Sparse_not_implemented").module(),
            "sparse");
  EXPECT_FALSE(Z.convertZeroImagToReal());
  Z.scale({0, 0.5});  // −i·d·i = d: real again
  EXPECT_TRUE(Z.convertZeroImagToReal());
  EXPECT_TRUE(Z.isReal());
  expectDenseEq(toDense<double>(Z), D);
}

}  // namespace
