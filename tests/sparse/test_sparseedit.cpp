// Storage-level edits and element access, each checked against the same
// operation done on a dense copy.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "qvarray/sparse/sparse.h"
#include "qvtest.h"
#include "sparsetest.h"

using namespace sparsetest;
using qvarray::Sparse;

namespace {

// A 12×9 matrix with stored zeros, an empty column 4, a column 6 of stored
// zeros only and unsorted rows, with its dense copy.
class SparseEdit : public ::testing::Test {
 protected:
  static Triplets<double> sample() {
    auto t = randomTriplets<double>(12, 9, 60, 0.2, 21);
    t.add(3, 2, 0.0);
    t.add(11, 7, 0.0);
    t.add(0, 6, 0.0);
    for (size_t k = 0; k < t.size(); ++k) {
      if (t.cols[k] == 4) t.cols[k] = 5;
      if (t.cols[k] == 6) t.values[k] = 0;
    }
    return t;
  }
  const Triplets<double> t = sample();
  Sparse A = t.assemble();
  Dense<double> D = t.dense();
};

// D restricted to the given rows and columns, in that order.
Dense<double> pick(const Dense<double>& D, std::vector<size_t> rows, std::vector<size_t> cols) {
  if (rows.empty()) rows = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  Dense<double> R(rows.size(), cols.size());
  for (size_t b = 0; b < cols.size(); ++b)
    for (size_t a = 0; a < rows.size(); ++a) R(a, b) = D(rows[a], cols[b]);
  return R;
}

TEST_F(SparseEdit, SetElemOverwritesAndInserts) {
  A.setElem(t.rows[0], t.cols[0], 42.0);
  D(t.rows[0], t.cols[0]) = 42.0;
  expectDenseEq(toDense<double>(A), D);
  // No spare room for a new entry of the empty column: the matrix is left alone.
  qvtest::expectThrowsAll("Internal_error_sparse", {{[&] { A.setElem(0, 4, 1.0); }, "Reallocation is needed."},
                                                    {[&] { A.setElem(12, 0, 1.0); }, "Index out of range."}});
  expectDenseEq(toDense<double>(A), D);

  A.reallocate(1.5);
  EXPECT_GE(A.getNzmax(), A.getNnz() + 2);
  A.setElem(0, 4, 1.0);
  A.format(qvarray::FormSorted, false);
  A.setElem(5, 4, -1.0);  // sorted insertion keeps the column sorted
  D(0, 4) = 1.0;
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

TEST_F(SparseEdit, FormatSortsAndDropsZeros) {
  A.format(qvarray::FormSorted, false);
  EXPECT_EQ(A.getForm(), qvarray::FormSorted);
  expectDenseEq(toDense<double>(A), D);
  const size_t* cp = A.getColPtr();
  ASSERT_NE(A.getDiag(), nullptr);
  for (size_t j = 0; j < A.getN(); ++j) {
    EXPECT_TRUE(std::is_sorted(A.getRow() + cp[j], A.getRow() + cp[j + 1]));
    EXPECT_EQ(A.getDiag()[j], A.getIdx(j, j));
  }
  const size_t before = A.getNnz();
  const size_t zeros = std::count(A.getDoubleVal(), A.getDoubleVal() + before, 0.0);
  EXPECT_GE(zeros, 3u);
  A.format(qvarray::FormSorted, true);
  EXPECT_EQ(A.getNnz(), before - zeros);
  EXPECT_EQ(std::count(A.getDoubleVal(), A.getDoubleVal() + A.getNnz(), 0.0), 0);
  expectDenseEq(toDense<double>(A), D);
  A.setForm(qvarray::FormUnordered);
  EXPECT_EQ(A.getDiag(), nullptr);
}

TEST_F(SparseEdit, CountsAndAccess) {
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
  Array<size_t, 2> idx;
  A.getRealBlock(ri, ci, block);
  A.getImagBlock(ri, ci, imag);
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

TEST_F(SparseEdit, ColumnAndRowRemovalAndExtraction) {
  Sparse B = A, C = A, E = A;
  A.zeroCols(sizes({2, 8}));
  Dense<double> Z = D;
  for (size_t i = 0; i < 12; ++i) Z(i, 2) = Z(i, 8) = 0;
  expectDenseEq(toDense<double>(A), Z);
  Array<size_t, 1> kept;
  A.removeZeroCols(kept);
  EXPECT_EQ(std::vector<size_t>(kept.begin(), kept.end()), (std::vector<size_t>{0, 1, 3, 5, 7}));
  expectDenseEq(toDense<double>(A), pick(Z, {}, {0, 1, 3, 5, 7}));
  EXPECT_TRUE(A.getptrD()->isConsistent());

  B.removeCols(sizes({8, 0, 8, 3}));
  expectDenseEq(toDense<double>(B), pick(D, {}, {1, 2, 4, 5, 6, 7}));

  C.format(qvarray::FormSorted, false);
  C.inplaceRemove(sizes({0, 7, 11}), sizes({1}));
  expectDenseEq(toDense<double>(C), pick(D, {1, 2, 3, 4, 5, 6, 8, 9, 10}, {0, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_TRUE(C.getptrD()->isConsistent());  // sorted, diagonal index rebuilt

  E.setSymm(qvarray::SymmTransposed);
  const Sparse X = E.extractMatrix(sizes({4, 0, 11, 3}), sizes({5, 5, 1, 7}));
  EXPECT_EQ(X.getSymm(), qvarray::SymmTransposed);
  expectDenseEq(toDense<double>(X), pick(D, {4, 0, 11, 3}, {5, 5, 1, 7}));

  const auto version = E.getRowColptrVersion();
  qvtest::expectThrowsAll("Internal_error_sparse",
                          {{[&] { E.removeCols(sizes({9})); }, "Column index out of range."},
                           {[&] { E.inplaceRemove(sizes({12}), sizes({})); }, "Row index out of range."},
                           {[&] { (void)E.extractMatrix(sizes({1, 1}), sizes({0})); }, "Repeated row index."}});
  EXPECT_EQ(E.getRowColptrVersion(), version);
  EXPECT_EQ(E.getN(), 9u);
}

TEST_F(SparseEdit, TruncateCols) {
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

TEST_F(SparseEdit, ValueOperations) {
  Sparse Z = A;
  A.sign();
  Z.scale({0, 2});
  EXPECT_FALSE(Z.isReal());
  Z.conjugate();
  for (size_t i = 0; i < 12; ++i)
    for (size_t j = 0; j < 9; ++j) {
      EXPECT_EQ(A.getReal(i, j), D(i, j) > 0 ? 1.0 : D(i, j) < 0 ? -1.0 : 0.0);
      EXPECT_EQ(Z.getImag(i, j), -2 * D(i, j));
    }
  EXPECT_EQ(qvtest::expectThrowKey([&] { Z.sign(); }, "Sign_of_complex_Sparse_not_implemented").module(),
            "sparse");
  EXPECT_FALSE(Z.convertZeroImagToReal());
  Z.scale({0, 0.5});  // −i·d·i = d: real again
  EXPECT_TRUE(Z.convertZeroImagToReal());
  EXPECT_TRUE(Z.isReal());
  expectDenseEq(toDense<double>(Z), D);
}

}  // namespace
