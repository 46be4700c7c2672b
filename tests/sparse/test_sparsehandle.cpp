// The Sparse handle: construction paths, copy on write, pattern versions,
// text output, and the errors of the interface.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <iomanip>
#include <set>
#include <sstream>

#include "qvarray/sparse/sparse.h"
#include "qvtest.h"
#include "sparsetest.h"

using namespace sparsetest;
using qvarray::Sparse;

namespace {

std::string text(const qvarray::SparseBase& A) {
  std::ostringstream os;
  os << A;
  return os.str();
}

TEST(SparseHandle, Flat2SparseRoundTripsCompressedArrays) {
  // 3×4 with an empty column and unsorted rows, kept as given.
  const std::vector<size_t> rowIndex = {2, 0, 1, 1, 0}, colPtr = {0, 2, 2, 3, 5};
  const std::vector<double> values = {1, 2, 3, 4, 5};
  Sparse A;
  A.flat2sparse(rowIndex, colPtr, values, 3, 4);
  ASSERT_EQ(A.getNnz(), 5u);
  EXPECT_TRUE(std::equal(colPtr.begin(), colPtr.end(), A.getColPtr()));
  EXPECT_TRUE(std::equal(rowIndex.begin(), rowIndex.end(), A.getRow()));
  EXPECT_TRUE(std::equal(values.begin(), values.end(), A.getDoubleVal()));

  Array<dcomplex, 1> z(5);
  for (size_t k = 0; k < 5; ++k) z[k] = {double(k), -double(k)};
  Sparse Z;
  Z.flat2sparse(sizes({2, 0, 1, 1, 0}), sizes({0, 2, 2, 3, 5}), z, 3, 4);
  EXPECT_FALSE(Z.isReal());
  EXPECT_EQ(Z.getDcmplxVal()[4], dcomplex(4, -4));
  EXPECT_EQ(Z.getDoubleVal(), nullptr);
  EXPECT_EQ(Z.getptrD(), nullptr);

  // Empty value arrays become null arrays.
  Sparse E;
  E.flat2sparse(std::vector<size_t>{}, std::vector<size_t>{0, 0, 0}, std::vector<double>{}, 2, 2);
  EXPECT_EQ(E.getNnz(), 0u);
  EXPECT_EQ(E.getRow(), nullptr);
  EXPECT_EQ(E.getDoubleVal(), nullptr);
}

TEST(SparseHandle, FailedConstructionKeepsThePreviousStorage) {
  Sparse A;
  A.eye(2);
  const auto version = A.getRowColptrVersion();
  auto flat = [&](std::vector<size_t> r, std::vector<size_t> c, std::vector<double> v, size_t m, size_t n) {
    return [&A, r, c, v, m, n] { A.flat2sparse(r, c, v, m, n); };
  };
  qvtest::expectThrowsAll("Length_triplet_vectors_disagree", {{flat({0}, {0, 1}, {1, 2}, 1, 1), ""},
                                                               {flat({0}, {0, 1}, {1}, 1, 2), ""},
                                                               {flat({0}, {0, 2}, {1}, 1, 1), ""}});
  qvtest::expectThrowsAll("Internal_error_sparse",
                          {{flat({0, 0}, {0, 3, 2}, {1, 1}, 1, 2), "Invalid column pointers."},
                           {flat({3}, {0, 1}, {1}, 3, 1), "Row index out of range."}});
  // A value count above the largest hash size is refused before any entry is
  // read (the arrays below only claim that many entries).
  Array<size_t, 1> r(1), c = sizes({0, qvarray::kMaxHashSize + 1});
  Array<double, 1> v(1);
  r.count = v.count = qvarray::kMaxHashSize + 1;
  qvtest::expectThrowKey([&] { A.flat2sparse(r, c, v, 1, 1); }, "Size_input_vector_too_large");
  r.count = v.count = 1;
  // 2^61 columns need a column-pointer array no allocator can provide.
  const auto storage = A.getptrD();
  EXPECT_THROW(A.triplet2sparse(sizes({0}), sizes({0}), Vector(1), 1, size_t{1} << 61), std::bad_alloc);
  EXPECT_EQ(A.getptrD(), storage);
  EXPECT_EQ(A.getRowColptrVersion(), version);
  EXPECT_EQ(A.getN(), 2u);
  EXPECT_EQ(A.getNnz(), 2u);
}

TEST(SparseHandle, CopyOnWrite) {
  auto t = randomTriplets<double>(30, 20, 200, 0.2, 9);
  Sparse A = t.assemble();
  const Dense<double> original = toDense<double>(A);
  Sparse B = A;
  EXPECT_EQ(A.getDoubleVal(), B.getDoubleVal());  // shared until written
  EXPECT_EQ(A.getptrD(), B.getptrD());

  B.scale(2.0);
  expectDenseEq(toDense<double>(A), original);
  EXPECT_NE(A.getDoubleVal(), B.getDoubleVal());
  EXPECT_EQ(A.getRow(), B.getRow());  // values alone were written: rows stay shared
  EXPECT_EQ(B.getReal(t.rows[0], t.cols[0]), 2 * A.getReal(t.rows[0], t.cols[0]));

  Sparse C = A;
  C.setSymm(qvarray::SymmSymmetric);
  EXPECT_EQ(A.getSymm(), qvarray::SymmNone);

  Sparse D = A;
  D.real2complex();
  EXPECT_EQ(D.getRow(), A.getRow());  // the complex storage shares the row array
  EXPECT_EQ(D.getRowColptrVersion(), A.getRowColptrVersion());
  D.reallocate(2.0);
  D.setElem(29, 19, {1, 1});
  expectDenseEq(toDense<double>(A), original);
  EXPECT_EQ(toDense<dcomplex>(D)(29, 19), dcomplex(1, 1));
}

TEST(SparseHandle, PatternVersionChangesExactlyWithThePattern) {
  Sparse A;
  A.vectorTripletToSparse({1, 0, 2}, {0, 0, 1}, std::vector<double>{1, 2, 3}, 3, 3);
  const auto v0 = A.getRowColptrVersion();
  EXPECT_GE(v0, 1);
  Sparse B = A;
  EXPECT_EQ(B.getRowColptrVersion(), v0);

  // Values only: version kept.
  A.scale(3.0);
  A.setElem(1, 0, 7.0);
  A.zeroCols(sizes({1}));
  A.reallocate(3.0);
  A.setSymm(qvarray::SymmSymmetric);
  A.setSymm(qvarray::SymmNone);
  EXPECT_EQ(A.getRowColptrVersion(), v0);

  // Sorting moves rows 1, 0 of column 0: a new pattern.
  A.format(qvarray::FormSorted, false);
  const auto v1 = A.getRowColptrVersion();
  EXPECT_GT(v1, v0);
  A.format(qvarray::FormSorted, false);  // already sorted: nothing changes
  EXPECT_EQ(A.getRowColptrVersion(), v1);
  A.setElem(2, 2, 1.0);  // insertion into spare room
  const auto v2 = A.getRowColptrVersion();
  EXPECT_GT(v2, v1);
  A.format(qvarray::FormSorted, true);  // drops the zeroed entry of column 1
  EXPECT_GT(A.getRowColptrVersion(), v2);
  EXPECT_EQ(B.getRowColptrVersion(), v0);  // the copy kept its pattern
  EXPECT_EQ(B.getRow()[0], 1u);

  // Every construction draws a fresh version.
  const auto before = A.getRowColptrVersion();
  A.eye(2);
  EXPECT_GT(A.getRowColptrVersion(), before);
}

TEST(SparseHandle, VersionCounterUnderThreads) {
  std::vector<std::int64_t> drawn(4000);
#pragma omp parallel for num_threads(4)
  for (int k = 0; k < 4000; ++k) drawn[k] = qvarray::getNewRowColptrVersion();
  std::set<std::int64_t> distinct(drawn.begin(), drawn.end());
  EXPECT_EQ(distinct.size(), drawn.size());
  EXPECT_GE(*distinct.begin(), 1);
}

TEST(SparseHandle, TextOutput) {
  Sparse A;
  A.vectorTripletToSparse({2, 0}, {1, 1}, std::vector<double>{-0.1234567, 1e-20}, 3, 2);
  A.setSymm(qvarray::SymmTransposed);
  A.setOffsets(0, 10);
  EXPECT_EQ(text(A),
            "Sparse 2-by-3 matrix. Nnz = 2.\n"
            "Symmetric.\n"
            "    Row    Col               Value\n"
            "      2     11           -0.123457\n"
            "      0     11               1e-20\n");

  Sparse Z;
  Z.vectorTripletToSparse({0}, {0}, std::vector<dcomplex>{{1.5, -2}}, 1, 1);
  Z.setSymm(qvarray::SymmHermitian);
  std::ostringstream os;
  os << std::fixed << std::setprecision(2) << std::left << std::hex << std::setw(30);
  os << Z << 1.0 << ' ' << 255;  // the caller's settings are restored
  EXPECT_EQ(os.str(),
            "Sparse 1-by-1 matrix. Nnz = 1.\n"
            "Symmetric.\n"
            "    Row    Col               Value\n"
            "      0      0            (1.5,-2)\n"
            "1.00 ff");

  Sparse E;
  EXPECT_EQ(text(E), "Sparse 0-by-0 matrix. Nnz = 0.\n    Row    Col               Value\n");
}

TEST(SparseHandle, Comparison) {
  auto t = randomTriplets<dcomplex>(6, 6, 30, 0.2, 4);
  auto s = t;
  for (size_t k = 0; k < t.size(); ++k) s.add(t.cols[k], t.rows[k], std::conj(t.values[k]));
  const Sparse H = s.assemble();
  EXPECT_TRUE(H.isSymmetric(1e-15, qvarray::ConjTrans));
  EXPECT_FALSE(H.isSymmetric(1e-15, qvarray::Trans));
  const Sparse A = t.assemble();
  Sparse At;
  At.vectorTripletToSparse(t.cols, t.rows, t.values, 6, 6);
  EXPECT_TRUE(A.isEqual(At, 0.0, qvarray::Trans));
  EXPECT_EQ(A.isEqual(At, 0.0, qvarray::NoTrans), A.isSymmetric(0.0, qvarray::Trans));
  Sparse B = A;
  B.scale(1.0 + 1e-12);
  EXPECT_FALSE(A.isEqual(B, 0.0, qvarray::NoTrans));
  EXPECT_TRUE(A.isEqual(B, 1e-11, qvarray::NoTrans));
  Sparse wide;
  wide.zeros(6, 7, 0, true);
  EXPECT_FALSE(A.isEqual(wide, 1.0, qvarray::NoTrans));
}

// A matrix class that provides nothing of the interface.
struct Bare : qvarray::SparseBase {};

TEST(SparseHandle, UnavailableOperations) {
  Bare bare;
  Sparse A;
  A.eye(2);
  const auto& base = static_cast<const qvarray::SparseBase&>(bare);
  EXPECT_EQ(qvtest::expectThrowKey([&] { (void)bare.getM(); }, "Internal_error_sparse_base", "getM").module(),
            "sparsebase");
  qvtest::expectThrowsAll("Internal_error_sparse_base", {{[&] { std::ostringstream() << bare; }, "outputImpl"},
                                                         {[&] { A = base; }, ""},
                                                         {[&] { (void)A.isEqual(bare, 0, qvarray::NoTrans); }, ""}});
  qvtest::expectThrowsAll("Internal_error_sparse",
                          {{[&] { A.setSymm(static_cast<qvarray::Symm_t>(4)); }, "Invalid symmetry mode."},
                           {[&] { A.format(static_cast<qvarray::Form_t>(2), false); }, "Invalid storage form."}});
  // Assignment through the interface shares storage.
  Sparse B;
  static_cast<qvarray::SparseBase&>(B) = static_cast<const qvarray::SparseBase&>(A);
  EXPECT_EQ(B.getptrD(), A.getptrD());
}

}  // namespace
