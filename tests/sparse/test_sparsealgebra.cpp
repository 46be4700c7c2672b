// Matrix-level algebra of Sparse against dense algebra on the represented
// matrices: sums, products, scaling, symmetric storage, blocks, triangles
// and concatenation, with every error key.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "producttest.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvarray/sparse/sputil.h"
#include "qvtest.h"

namespace {

using namespace producttest;
using qvarray::NoTrans;
using qvarray::Sparse;
using qvarray::Vector;

// f(a(i,j), i, j) for every entry of a.
template <class F>
Dense<dcomplex> map(Dense<dcomplex> a, F f) {
  for (size_t j = 0; j < a.n; ++j)
    for (size_t i = 0; i < a.m; ++i) a(i, j) = f(a(i, j), i, j);
  return a;
}

Dense<dcomplex> multiply(const Dense<dcomplex>& a, const Dense<dcomplex>& b) {
  return map(Dense<dcomplex>(a.m, b.n), [&](dcomplex s, size_t i, size_t j) {
    for (size_t k = 0; k < a.n; ++k) s += a(i, k) * b(k, j);
    return s;
  });
}

void expectDenseNear(const Dense<dcomplex>& a, const Dense<dcomplex>& b, const std::string& what,
                     double tol = 1e-13) {
  ASSERT_EQ(a.m, b.m) << what;
  ASSERT_EQ(a.n, b.n) << what;
  for (size_t k = 0; k < a.a.size(); ++k)
    ASSERT_LE(std::abs(a.a[k] - b.a[k]), tol * (1 + std::abs(b.a[k]))) << what << " entry " << k;
}

// Every stored entry of A lies in its lower triangle, rows ascending and
// distinct within each column.
void expectSortedLower(const Sparse& A, const std::string& what) {
  const size_t *cp = A.getColPtr(), *row = A.getRow();
  for (size_t j = 0; j < A.getN(); ++j)
    for (size_t p = cp[j]; p < cp[j + 1]; ++p)
      ASSERT_TRUE(row[p] >= j && (p == cp[j] || row[p - 1] < row[p])) << what << " column " << j;
}

TEST(SparseAlgebra, AddMatMatchesDenseInEveryMode) {
  for (Symm_t symm : kModes)
    for (int kinds = 0; kinds < 4; ++kinds) {
      const bool realA = kinds & 1, realB = kinds & 2;
      const size_t n = isSymmetric(symm) ? 30 : 24;
      Sparse A = randomSparse(30, n, 150, realA, symm, 1);
      const Sparse B = randomSparse(30, n, 150, realB, symm, 2);
      const Dense<dcomplex> a = represented(A), b = represented(B);
      const dcomplex f = symm == qvarray::SymmHermitian ? dcomplex(-1.5) : dcomplex(0.5, -2);
      A.addMat(f, B, false);
      expectDenseNear(represented(A), map(a, [&](dcomplex v, size_t i, size_t j) { return v + f * b(i, j); }),
                      "mode " + std::to_string(symm));
      EXPECT_EQ(A.getSymm(), symm);
      EXPECT_EQ(A.isReal(), realA && realB && f.imag() == 0);
    }
}

TEST(SparseAlgebra, AddMatSamePatternDroppedZerosAndErrors) {
  Sparse A = randomSparse(40, 40, 300, true, qvarray::SymmNone, 3), B = A;
  B.scale(3.0);  // B's own values, A's pattern and version
  const std::int64_t version = A.getRowColptrVersion();
  const Dense<dcomplex> a = represented(A);
  A.addMat(2.0, B, false);
  EXPECT_EQ(A.getRowColptrVersion(), version);  // values only
  expectDenseNear(represented(A), map(a, [](dcomplex v, size_t, size_t) { return 7.0 * v; }), "same pattern");

  // A − A keeps the zeros unless asked to drop them; A may be its own operand.
  Sparse C = A, D = A;
  C.addMat(-1.0, C, false);
  EXPECT_EQ(C.getNnz(), A.getNnz());
  D.addMat(-1.0, A, true);
  EXPECT_EQ(D.getNnz(), 0u);

  Sparse E = randomSparse(10, 8, 30, true, qvarray::SymmNone, 4), H = randomSparse(8, 8, 30, false, qvarray::SymmHermitian, 6);
  const Sparse before = E;
  qvtest::expectThrowKey([&] { E.addMat(1.0, randomSparse(10, 9, 30, true, qvarray::SymmNone, 5), false); },
                         "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { E.addMat(1.0, randomSparse(10, 8, 30, true, qvarray::SymmTransposed, 5), false); },
                         "Symmetry_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { H.addMat(dcomplex(0, 1), H, false); }, "Symmetry_sparse_matrices_disagree");
  struct Other : qvarray::SparseBase {};
  qvtest::expectThrowKey([&] { E.addMat(1.0, Other(), false); }, "Internal_error_sparse_base");
  EXPECT_EQ(E.getptrD(), before.getptrD());  // untouched, still shared
}

TEST(SparseAlgebra, ProductsMatchDenseForEveryModeAndTransposition) {
  for (Symm_t sa : kModes)
    for (Symm_t sb : {qvarray::SymmNone, qvarray::SymmHermitian, qvarray::SymmTransposed})
      for (Trans_t t : kTrans)
        for (int kinds = 0; kinds < 4; ++kinds) {
          const bool realA = kinds & 1, realB = kinds & 2;
          // A is 20×20 (symmetric modes) or stored 20×16; B and C fit on
          // either side: op(B) has a.n rows, op(C) has a.m columns.
          const Sparse A = randomSparse(20, isSymmetric(sa) ? 20 : 16, 90, realA, sa, 7);
          const Dense<dcomplex> a = represented(A);
          const bool squareB = sb == qvarray::SymmHermitian;
          const bool swap = (t != NoTrans) != (sb == qvarray::SymmTransposed);
          auto operand = [&](size_t inner, size_t outer, unsigned seed) {
            return randomSparse(swap ? outer : inner, swap ? inner : outer, 70, realB, sb, seed);
          };
          const Sparse B = operand(a.n, squareB ? a.n : 13, 8), C = operand(squareB ? a.m : 11, a.m, 9);
          const std::string what = "modes " + std::to_string(sa) + "," + std::to_string(sb) +
                                   " t=" + std::to_string(t) + " kinds " + std::to_string(kinds);
          Sparse R = A, L = A;
          R.mulRight(B, t, false);
          expectDenseNear(represented(R), multiply(a, applyTrans(represented(B), t)), what + " right");
          EXPECT_EQ(R.getSymm(), qvarray::SymmNone);
          EXPECT_EQ(R.isReal(), realA && realB);
          L.multLeft(C, t, false);
          expectDenseNear(represented(L), multiply(applyTrans(represented(C), t), a), what + " left");
          if (HasFatalFailure()) return;
        }
}

TEST(SparseAlgebra, ProductDetails) {
  // A·A with A its own operand; cancellation kept or dropped.
  Sparse A = Sparse().vectorTripletToSparse({0, 1, 0, 1}, {0, 0, 1, 1}, std::vector<double>{1, 1, 1, -1}, 2, 2);
  Sparse B = A, C = A, P = A;
  B.mulRight(B, NoTrans, false);  // [[1,1],[1,-1]]² = 2·I, zeros stored
  EXPECT_EQ(B.getNnz(), 4u);
  EXPECT_EQ(B.getReal(0, 0), 2.0);
  EXPECT_EQ(B.getReal(1, 0), 0.0);
  C.multLeft(A, qvarray::Trans, true);
  EXPECT_EQ(C.getNnz(), 2u);
  // Sizes that do not chain; a partial operand.
  qvtest::expectThrowKey([&] { A.mulRight(randomSparse(3, 2, 4, true, qvarray::SymmNone, 1), NoTrans, false); },
                         "Size_sparse_matrices_disagree");
  P.setOffsets(1, 1);
  qvtest::expectThrowKey([&] { A.mulRight(P, NoTrans, false); }, "Internal_error_sparse");
  // An empty inner dimension gives an empty product.
  Sparse E = Sparse().zeros(3, 0, 0, true);
  E.mulRight(Sparse().zeros(0, 4, 0, true), NoTrans, false);
  EXPECT_TRUE(E.getM() == 3 && E.getN() == 4 && E.getNnz() == 0);
}

TEST(SparseAlgebra, DiagonalScaling) {
  // General storage by two diagonals, and symmetric storage scaled on both
  // sides by one (D·A·D).
  for (bool symmetric : {false, true})
    for (int kinds = 0; kinds < 4; ++kinds) {
      const bool realA = kinds & 1, realD = kinds & 2;
      const size_t n = symmetric ? 12 : 9;
      Sparse A = randomSparse(12, n, 60, realA, symmetric ? qvarray::SymmSymmetric : qvarray::SymmNone, 10);
      const Dense<dcomplex> a = represented(A);
      const Vector dr = randomVector(12, realD, 1), dc = symmetric ? dr : randomVector(n, realD, 2);
      const std::int64_t version = A.getRowColptrVersion();
      A.rowscale(dr).colscale(dc);
      expectDenseNear(represented(A), map(a, [&](dcomplex v, size_t i, size_t j) { return v * dr.get(i) * dc.get(j); }),
                      "scale");
      EXPECT_EQ(A.getRowColptrVersion(), version);
      EXPECT_EQ(A.isReal(), realA && realD);
      A.rowscaleInv(dr).colscaleInv(dc);
      expectDenseNear(represented(A), a, "scale back", 1e-12);
    }
  Sparse A = randomSparse(5, 4, 10, true, qvarray::SymmNone, 12);
  const Sparse before = A;
  Vector z(5, 1.0);
  z.set(3, 0.0);
  qvtest::expectThrowKey([&] { A.rowscale(Vector(4, 1.0)); }, "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { A.colscaleInv(Vector(5, 1.0)); }, "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { A.rowscaleInv(z); }, "Matrix_has_zero_on_diagonal");
  EXPECT_EQ(A.getptrD(), before.getptrD());
}

TEST(SparseAlgebra, MakeSymmetricAndUniqueSymmetric) {
  // makeSymmetric stores the lower triangle of the symmetric part.
  for (Symm_t from : {qvarray::SymmNone, qvarray::SymmTransposed, qvarray::SymmHermitian})
    for (bool real : {true, false})
      for (Trans_t t : {qvarray::Trans, qvarray::ConjTrans}) {
        Sparse A = randomSparse(15, 15, 80, real, from, 13);
        const Dense<dcomplex> a = represented(A), at = applyTrans(a, t);
        const Dense<dcomplex> expected = map(a, [&](dcomplex v, size_t i, size_t j) { return 0.5 * (v + at(i, j)); });
        const std::string what = "from " + std::to_string(from) + " t=" + std::to_string(t);
        A.makeSymmetric(t);
        expectDenseNear(represented(A), expected, what);
        EXPECT_EQ(A.getSymm(), t == qvarray::ConjTrans ? qvarray::SymmHermitian : qvarray::SymmSymmetric);
        expectSortedLower(A, what);
        // Its products are those of the dense symmetric part.
        const Vector x = randomVector(15, real, 4);
        expectNear(qvarray::AMulx(A, x, NoTrans), denseProduct(expected, x, Vector(15)), what);
      }
  qvtest::expectThrowKey([] { randomSparse(4, 5, 8, true, qvarray::SymmNone, 14).makeSymmetric(qvarray::Trans); },
                         "Matrix_not_square");

  // uniqueSymmetric folds entries of both triangles, repeated and complex
  // diagonals included, into sorted lower storage.
  for (Symm_t symm : {qvarray::SymmSymmetric, qvarray::SymmHermitian})
    for (bool real : {true, false}) {
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
  EXPECT_EQ(A.uniqueSymmetric().getptrD(), store);
}

TEST(SparseAlgebra, SubMatrixTrilAndConcatenation) {
  const Sparse A = randomSparse(9, 9, 40, false, qvarray::SymmHermitian, 17);
  const Dense<dcomplex> a = represented(A);
  auto rows = sparsetest::sizes({4, 0, 4, 8, 2});
  const auto cols = sparsetest::sizes({7, 7, 1, 0});
  const Sparse B = qvarray::subMatrix(A, rows, cols);
  Dense<dcomplex> expected(5, 4);
  expectDenseNear(represented(B), map(expected, [&](dcomplex, size_t i, size_t j) { return a(rows[i], cols[j]); }),
                  "subMatrix");
  EXPECT_EQ(B.getSymm(), qvarray::SymmNone);
  rows[2] = 9;
  qvtest::expectThrowKey([&] { qvarray::subMatrix(A, rows, cols); }, "Internal_error_sparse");

  expectDenseNear(represented(qvarray::sparse2tril(A)),
                  map(a, [](dcomplex v, size_t i, size_t j) { return i < j ? 0.0 : v; }), "tril");
  qvtest::expectThrowKey([&] { qvarray::sparse2tril(randomSparse(3, 4, 5, true, qvarray::SymmNone, 1)); },
                         "Matrix_not_square");

  auto part = [](size_t m, size_t n, bool real, Symm_t s = qvarray::SymmNone) {
    return std::make_shared<Sparse>(randomSparse(m, n, 2 * n, real, s, unsigned(m + n)));
  };
  const auto p1 = part(6, 3, true), p2 = part(6, 0, true), p3 = part(6, 5, false);
  const Sparse H = qvarray::hcatPrivate({p1, p2, p3});
  const Dense<dcomplex> d1 = represented(*p1), d3 = represented(*p3), h = represented(H);
  ASSERT_EQ(h.n, 8u);
  for (size_t i = 0; i < 6; ++i)
    for (size_t j = 0; j < 8; ++j) ASSERT_EQ(h(i, j), j < 3 ? d1(i, j) : d3(i, j - 3));
  EXPECT_FALSE(H.isReal());
  EXPECT_EQ(qvarray::hcatPrivate({}).getN(), 0u);
  qvtest::expectThrowKey([&] { qvarray::hcatPrivate({p1, part(5, 3, true)}); }, "Size_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::hcatPrivate({p1, part(6, 3, true, qvarray::SymmTransposed)}); },
                         "Symmetry_sparse_matrices_disagree");
  qvtest::expectThrowKey([&] { qvarray::hcatPrivate({p1, nullptr}); }, "Internal_error_sparse");
}

TEST(SparseAlgebra, PermutationTimesDiagonal) {
  // A large, very sparse product: each column of the result is one column of
  // a permutation scaled by the diagonal.
  const size_t n = 200000;
  std::vector<size_t> rows(n), cols(n);
  for (size_t j = 0; j < n; ++j) rows[j] = (j * 7919) % n, cols[j] = j;
  Sparse P = Sparse().vectorTripletToSparse(rows, cols, std::vector<double>{1.0}, n, n);
  P.mulRight(Sparse().eye(n).scale(3.0), NoTrans, false);
  ASSERT_EQ(P.getNnz(), n);
  for (size_t j = 0; j < n; j += 99991) ASSERT_EQ(P.getReal(rows[j], j), 3.0);
}

}  // namespace
