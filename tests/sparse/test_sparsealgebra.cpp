// Matrix-level algebra of Sparse against dense algebra on the represented
// matrices: sums, products, scaling, symmetric storage, blocks, triangles
// and concatenation, with every error key.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "producttest.h"
#include "qvarray/sparseproducts.h"
#include "qvarray/sputil.h"
#include "qvtest.h"

namespace {

using namespace producttest;
using qvarray::Sparse;
using qvarray::Vector;

Dense<dcomplex> multiply(const Dense<dcomplex>& a, const Dense<dcomplex>& b) {
  Dense<dcomplex> c(a.m, b.n);
  for (size_t j = 0; j < b.n; ++j)
    for (size_t k = 0; k < a.n; ++k)
      for (size_t i = 0; i < a.m; ++i) c(i, j) += a(i, k) * b(k, j);
  return c;
}

void expectDenseNear(const Dense<dcomplex>& a, const Dense<dcomplex>& b, const std::string& what,
                     double tol = 1e-13) {
  ASSERT_EQ(a.m, b.m) << what;
  ASSERT_EQ(a.n, b.n) << what;
  for (size_t j = 0; j < a.n; ++j)
    for (size_t i = 0; i < a.m; ++i)
      ASSERT_LE(std::abs(a(i, j) - b(i, j)), tol * (1 + std::abs(b(i, j))))
          << what << " (" << i << ", " << j << ") " << a(i, j) << " vs " << b(i, j);
}

// Every stored entry of A lies in its lower triangle, rows ascending and
// distinct within each column.
void expectSortedLower(const Sparse& A, const std::string& what) {
  const size_t* cp = A.getColPtr();
  const size_t* row = A.getRow();
  for (size_t j = 0; j < A.getN(); ++j)
    for (size_t p = cp[j]; p < cp[j + 1]; ++p) {
      ASSERT_GE(row[p], j) << what;
      if (p > cp[j]) {
        ASSERT_LT(row[p - 1], row[p]) << what;
      }
    }
}

const Symm_t kModes[] = {qvarray::SymmNone, qvarray::SymmSymmetric, qvarray::SymmHermitian,
                         qvarray::SymmTransposed};

TEST(SparseAlgebra, AddMatMatchesDenseInEveryMode) {
  for (Symm_t symm : kModes)
    for (int kinds = 0; kinds < 4; ++kinds) {
      const bool realA = kinds & 1, realB = kinds & 2;
      const size_t m = 30, n = symm == qvarray::SymmNone || symm == qvarray::SymmTransposed ? 24 : 30;
      Sparse A = randomSparse(m, n, 150, realA, symm, 1);
      const Sparse B = randomSparse(m, n, 150, realB, symm, 2);
      const Dense<dcomplex> a = represented(A), b = represented(B);
      const dcomplex factor = symm == qvarray::SymmHermitian ? dcomplex(-1.5) : dcomplex(0.5, -2);
      A.addMat(factor, B, false);
      Dense<dcomplex> expected = a;
      for (size_t k = 0; k < expected.a.size(); ++k) expected.a[k] += factor * b.a[k];
      expectDenseNear(represented(A), expected, "mode " + std::to_string(symm));
      EXPECT_EQ(A.getSymm(), symm);
      EXPECT_EQ(A.isReal(), realA && realB && factor.imag() == 0);
    }
}

TEST(SparseAlgebra, AddMatSamePatternAndDroppedZeros) {
  Sparse A = randomSparse(40, 40, 300, true, qvarray::SymmNone, 3);
  Sparse B = A;
  B.scale(3.0);  // B's own values, A's pattern and version
  const std::int64_t version = A.getRowColptrVersion();
  const Dense<dcomplex> a = represented(A);
  A.addMat(2.0, B, false);
  EXPECT_EQ(A.getRowColptrVersion(), version);  // values only
  Dense<dcomplex> expected = a;
  for (auto& v : expected.a) v *= 7.0;
  expectDenseNear(represented(A), expected, "same pattern");

  // A − A keeps the zeros unless asked to drop them; A may be its own operand.
  Sparse C = A;
  C.addMat(-1.0, C, false);
  EXPECT_EQ(C.getNnz(), A.getNnz());
  Sparse D = A;
  D.addMat(-1.0, A, true);
  EXPECT_EQ(D.getNnz(), 0u);
}

TEST(SparseAlgebra, AddMatErrors) {
  Sparse A = randomSparse(10, 8, 30, true, qvarray::SymmNone, 4);
  const Sparse before = A;
  qvtest::expectThrowKey([&] { A.addMat(1.0, randomSparse(10, 9, 30, true, qvarray::SymmNone, 5), false); },
                         "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey(
      [&] { A.addMat(1.0, randomSparse(10, 8, 30, true, qvarray::SymmTransposed, 5), false); },
      "Symmetry_sparse_matrices_disagree");
  Sparse H = randomSparse(8, 8, 30, false, qvarray::SymmHermitian, 6);
  qvtest::expectThrowKey([&] { H.addMat(dcomplex(0, 1), H, false); },
                         "Symmetry_sparse_matrices_disagree");
  struct Other : qvarray::SparseBase {};
  qvtest::expectThrowKey([&] { A.addMat(1.0, Other(), false); }, "Internal_error_sparse_base");
  EXPECT_TRUE(A.isEqual(before, 0, qvarray::NoTrans));
  EXPECT_EQ(A.getptrD(), before.getptrD());  // untouched, still shared
}

TEST(SparseAlgebra, ProductsMatchDenseForEveryModeAndTransposition) {
  const Trans_t kTrans[] = {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans};
  for (Symm_t sa : kModes)
    for (Symm_t sb : {qvarray::SymmNone, qvarray::SymmHermitian, qvarray::SymmTransposed})
      for (Trans_t t : kTrans)
        for (int kinds = 0; kinds < 4; ++kinds) {
          const bool realA = kinds & 1, realB = kinds & 2;
          // A is 20×20 (symmetric modes) or stored 20×16; B fits on either side.
          const bool squareA = sa == qvarray::SymmSymmetric || sa == qvarray::SymmHermitian;
          const Sparse A0 = randomSparse(20, squareA ? 20 : 16, 90, realA, sa, 7);
          const Dense<dcomplex> a = represented(A0);
          const bool squareB = sb == qvarray::SymmHermitian;
          // B for A·op(B): op(B) has a.n rows.
          const size_t bInner = a.n, bOuter = squareB ? a.n : 13;
          const bool bTransposed = (t != qvarray::NoTrans) != (sb == qvarray::SymmTransposed);
          const Sparse B = randomSparse(bTransposed ? bOuter : bInner, bTransposed ? bInner : bOuter,
                                        70, realB, sb, 8);
          const std::string what = "modes " + std::to_string(sa) + "," + std::to_string(sb) +
                                   " t=" + std::to_string(t) + " kinds " + std::to_string(kinds);
          Sparse R = A0;
          R.mulRight(B, t, false);
          expectDenseNear(represented(R), multiply(a, applyTrans(represented(B), t)), what + " right");
          EXPECT_EQ(R.getSymm(), qvarray::SymmNone);
          EXPECT_EQ(R.isReal(), realA && realB);

          // op(C)·A with C the "transpose" shape of B.
          const size_t cInner = a.m, cOuter = squareB ? a.m : 11;
          const Sparse C = randomSparse(bTransposed ? cInner : cOuter, bTransposed ? cOuter : cInner,
                                        70, realB, sb, 9);
          Sparse L = A0;
          L.multLeft(C, t, false);
          expectDenseNear(represented(L), multiply(applyTrans(represented(C), t), a), what + " left");
          if (HasFatalFailure()) return;
        }
}

TEST(SparseAlgebra, ProductDetails) {
  // A·A with A its own operand; cancellation kept or dropped.
  Sparse A;
  A.vectorTripletToSparse({0, 1, 0, 1}, {0, 0, 1, 1}, std::vector<double>{1, 1, 1, -1}, 2, 2);
  Sparse B = A;
  B.mulRight(B, qvarray::NoTrans, false);  // [[1,1],[1,-1]]² = 2·I, zeros stored
  EXPECT_EQ(B.getNnz(), 4u);
  EXPECT_EQ(B.getReal(0, 0), 2.0);
  EXPECT_EQ(B.getReal(1, 0), 0.0);
  Sparse C = A;
  C.multLeft(A, qvarray::Trans, true);
  EXPECT_EQ(C.getNnz(), 2u);
  // Sizes that do not chain; a partial operand.
  qvtest::expectThrowKey([&] { A.mulRight(randomSparse(3, 2, 4, true, qvarray::SymmNone, 1), qvarray::NoTrans, false); },
                         "Size_sparse_matrices_disagree");
  Sparse P = A;
  P.setOffsets(1, 1);
  qvtest::expectThrowKey([&] { A.mulRight(P, qvarray::NoTrans, false); }, "Internal_error_sparse");
  // An empty inner dimension gives an empty product.
  Sparse E, F;
  E.zeros(3, 0, 0, true);
  F.zeros(0, 4, 0, true);
  E.mulRight(F, qvarray::NoTrans, false);
  EXPECT_EQ(E.getM(), 3u);
  EXPECT_EQ(E.getN(), 4u);
  EXPECT_EQ(E.getNnz(), 0u);
}

TEST(SparseAlgebra, DiagonalScaling) {
  for (bool realA : {true, false})
    for (bool realD : {true, false}) {
      const Sparse A0 = randomSparse(12, 9, 60, realA, qvarray::SymmNone, 10);
      const Dense<dcomplex> a = represented(A0);
      Vector dr = randomVector(12, realD, 1), dc = randomVector(9, realD, 2);
      Sparse A = A0;
      const std::int64_t version = A.getRowColptrVersion();
      A.rowscale(dr).colscale(dc);
      Dense<dcomplex> expected = a;
      for (size_t j = 0; j < 9; ++j)
        for (size_t i = 0; i < 12; ++i) expected(i, j) *= dr.get(i) * dc.get(j);
      expectDenseNear(represented(A), expected, "scale");
      EXPECT_EQ(A.getRowColptrVersion(), version);
      EXPECT_EQ(A.isReal(), realA && realD);
      A.rowscaleInv(dr).colscaleInv(dc);
      expectDenseNear(represented(A), a, "scale back", 1e-12);
    }
  // On symmetric storage, scaling rows and columns by d gives D·A·D.
  Sparse S = randomSparse(10, 10, 40, true, qvarray::SymmSymmetric, 11);
  const Dense<dcomplex> s = represented(S);
  const Vector d = randomVector(10, true, 3);
  S.rowscale(d).colscale(d);
  Dense<dcomplex> expected = s;
  for (size_t j = 0; j < 10; ++j)
    for (size_t i = 0; i < 10; ++i) expected(i, j) *= d.get(i) * d.get(j);
  expectDenseNear(represented(S), expected, "D·A·D");

  Sparse A = randomSparse(5, 4, 10, true, qvarray::SymmNone, 12);
  const Sparse before = A;
  qvtest::expectThrowKey([&] { A.rowscale(Vector(4, 1.0)); }, "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { A.colscaleInv(Vector(5, 1.0)); }, "Size_vector_sparse_matrix_disagree");
  Vector z(5, 1.0);
  z.set(3, 0.0);
  qvtest::expectThrowKey([&] { A.rowscaleInv(z); }, "Matrix_has_zero_on_diagonal");
  EXPECT_EQ(A.getptrD(), before.getptrD());
}

TEST(SparseAlgebra, MakeSymmetricStoresTheLowerTriangleOfTheSymmetricPart) {
  for (Symm_t from : {qvarray::SymmNone, qvarray::SymmTransposed, qvarray::SymmHermitian})
    for (bool real : {true, false})
      for (Trans_t t : {qvarray::Trans, qvarray::ConjTrans}) {
        Sparse A = randomSparse(15, 15, 80, real, from, 13);
        const Dense<dcomplex> a = represented(A), at = applyTrans(a, t);
        A.makeSymmetric(t);
        Dense<dcomplex> expected = a;
        for (size_t k = 0; k < a.a.size(); ++k) expected.a[k] = 0.5 * (a.a[k] + at.a[k]);
        const std::string what = "from " + std::to_string(from) + " t=" + std::to_string(t);
        expectDenseNear(represented(A), expected, what);
        EXPECT_EQ(A.getSymm(), t == qvarray::ConjTrans ? qvarray::SymmHermitian : qvarray::SymmSymmetric);
        expectSortedLower(A, what);
        // Its products are those of the dense symmetric part.
        const Vector x = randomVector(15, real, 4);
        expectNear(qvarray::AMulx(A, x, qvarray::NoTrans),
                   denseProduct(expected, toComplex(x), std::vector<dcomplex>(15), false), what);
      }
  Sparse R = randomSparse(4, 5, 8, true, qvarray::SymmNone, 14);
  qvtest::expectThrowKey([&] { R.makeSymmetric(qvarray::Trans); }, "Matrix_not_square");
}

TEST(SparseAlgebra, UniqueSymmetricFoldsBothTriangles) {
  for (Symm_t symm : {qvarray::SymmSymmetric, qvarray::SymmHermitian})
    for (bool real : {true, false}) {
      // Entries in both triangles, a repeated diagonal, a complex diagonal.
      Sparse S = randomSparse(14, 14, 90, real, symm, 15);
      const Dense<dcomplex> s = represented(S);
      S.uniqueSymmetric();
      expectDenseNear(represented(S), s, "mode " + std::to_string(symm));
      expectSortedLower(S, "unique");
      EXPECT_EQ(S.getSymm(), symm);
    }
  // Nothing to do for the general modes.
  Sparse A = randomSparse(6, 4, 10, true, qvarray::SymmNone, 16);
  const auto store = A.getptrD();
  A.uniqueSymmetric();
  EXPECT_EQ(A.getptrD(), store);
}

TEST(SparseAlgebra, SubMatrixTrilAndConcatenation) {
  const Sparse A = randomSparse(9, 9, 40, false, qvarray::SymmHermitian, 17);
  const Dense<dcomplex> a = represented(A);
  Array<size_t, 1> rows(5), cols(4);
  const size_t r[] = {4, 0, 4, 8, 2}, c[] = {7, 7, 1, 0};
  for (size_t k = 0; k < 5; ++k) rows[k] = r[k];
  for (size_t k = 0; k < 4; ++k) cols[k] = c[k];
  const Sparse B = qvarray::subMatrix(A, rows, cols);
  Dense<dcomplex> expected(5, 4);
  for (size_t q = 0; q < 4; ++q)
    for (size_t p = 0; p < 5; ++p) expected(p, q) = a(r[p], c[q]);
  expectDenseNear(represented(B), expected, "subMatrix");
  EXPECT_EQ(B.getSymm(), qvarray::SymmNone);
  rows[2] = 9;
  qvtest::expectThrowKey([&] { qvarray::subMatrix(A, rows, cols); }, "Internal_error_sparse");

  const Sparse L = qvarray::sparse2tril(A);
  Dense<dcomplex> lower = a;
  for (size_t j = 0; j < 9; ++j)
    for (size_t i = 0; i < j; ++i) lower(i, j) = 0;
  expectDenseNear(represented(L), lower, "tril");
  qvtest::expectThrowKey([&] { qvarray::sparse2tril(randomSparse(3, 4, 5, true, qvarray::SymmNone, 1)); },
                         "Matrix_not_square");

  auto p1 = std::make_shared<Sparse>(randomSparse(6, 3, 10, true, qvarray::SymmNone, 18));
  auto p2 = std::make_shared<Sparse>();
  p2->zeros(6, 0, 0, true);
  auto p3 = std::make_shared<Sparse>(randomSparse(6, 5, 20, false, qvarray::SymmNone, 19));
  const Sparse H = qvarray::hcatPrivate({p1, p2, p3});
  const Dense<dcomplex> d1 = represented(*p1), d3 = represented(*p3), h = represented(H);
  ASSERT_EQ(h.n, 8u);
  for (size_t i = 0; i < 6; ++i) {
    for (size_t j = 0; j < 3; ++j) ASSERT_EQ(h(i, j), d1(i, j));
    for (size_t j = 0; j < 5; ++j) ASSERT_EQ(h(i, 3 + j), d3(i, j));
  }
  EXPECT_FALSE(H.isReal());
  EXPECT_EQ(qvarray::hcatPrivate({}).getN(), 0u);
  auto wrongRows = std::make_shared<Sparse>(randomSparse(5, 3, 10, true, qvarray::SymmNone, 1));
  qvtest::expectThrowKey([&] { qvarray::hcatPrivate({p1, wrongRows}); }, "Size_sparse_matrices_disagree");
  auto transposed = std::make_shared<Sparse>(randomSparse(6, 3, 10, true, qvarray::SymmTransposed, 1));
  qvtest::expectThrowKey([&] { qvarray::hcatPrivate({p1, transposed}); },
                         "Symmetry_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::hcatPrivate({p1, nullptr}); }, "Internal_error_sparse");
}

TEST(SparseAlgebra, PermutationTimesDiagonal) {
  // A large, very sparse product: each column of the result is one column of
  // a permutation scaled by the diagonal.
  const size_t n = 200000;
  std::vector<size_t> rows(n), cols(n);
  for (size_t j = 0; j < n; ++j) rows[j] = (j * 7919) % n, cols[j] = j;
  Sparse P, D;
  P.vectorTripletToSparse(rows, cols, std::vector<double>{1.0}, n, n);
  D.eye(n);
  D.scale(3.0);
  P.mulRight(D, qvarray::NoTrans, false);
  ASSERT_EQ(P.getNnz(), n);
  for (size_t j = 0; j < n; j += 99991) ASSERT_EQ(P.getReal(rows[j], j), 3.0);
}

}  // namespace
