// Sparse matrix–vector products against dense products of the represented
// matrix: every symmetry mode, transposition, operand kind, path and sign.
#include <gtest/gtest.h>

#include <omp.h>

#include <cstring>
#include <string>

#include "producttest.h"
#include "qvarray/externalsparse.h"
#include "qvarray/parallelsparse.h"
#include "qvarray/sparseproducts.h"
#include "qvtest.h"

namespace {

using namespace producttest;
using qvarray::Sparse;
using qvarray::Vector;

const Trans_t kTrans[] = {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans};
const Symm_t kModes[] = {qvarray::SymmNone, qvarray::SymmSymmetric, qvarray::SymmHermitian,
                         qvarray::SymmTransposed};

// Every operand kind (matrix, x, y real or complex; a real y is made complex
// when A or x is) on every path, sign and thread count, against the dense
// reference.
void checkAllProducts(const Sparse& A, const std::string& name) {
  for (Trans_t t : kTrans) {
    const Dense<dcomplex> D = applyTrans(represented(A), t);
    for (int kinds = 0; kinds < 4; ++kinds) {
      const bool xReal = kinds & 1, yReal = kinds & 2;
      const Vector x = randomVector(D.n, xReal, 17 + kinds);
      const Vector y0 = randomVector(D.m, yReal, 29 + kinds);
      for (bool minus : {false, true}) {
        const Reference ref = denseProduct(D, toComplex(x), toComplex(y0), minus);
        for (int threads : {1, 2}) {
          if (!Threads::available(threads)) continue;
          Threads scope(threads);
          const std::string what = name + " t=" + std::to_string(t) + " x" +
                                   (xReal ? "R" : "C") + " y" + (yReal ? "R" : "C") +
                                   (minus ? " minus" : " plus") + " threads " +
                                   std::to_string(threads);
          Vector serial = y0, select = y0, parallel = y0;
          if (minus) {
            qvarray::serialyMinusAMulx(serial, A, x, t);
            qvarray::yMinusAMulx(select, A, x, t);
            qvarray::parallelyMinusAMulx(parallel, A, x, t);
          } else {
            qvarray::serialyPlusAMulx(serial, A, x, t);
            qvarray::yPlusAMulx(select, A, x, t);
            qvarray::parallelyPlusAMulx(parallel, A, x, t);
          }
          expectNear(serial, ref, what + " serial");
          expectNear(select, ref, what + " select");
          expectNear(parallel, ref, what + " parallel");
          EXPECT_EQ(serial.isReal(), A.isReal() && xReal && yReal) << what;
          // The general modes gather each row in the serial order: same bits.
          const Symm_t symm = A.getSymm();
          if (symm == qvarray::SymmNone || symm == qvarray::SymmTransposed)
            expectSameBits(serial, parallel, what + " serial vs parallel");
          if (::testing::Test::HasFatalFailure()) return;
        }
      }
    }
  }
}

TEST(SparseProducts, EveryModeAndKindMatchesDense) {
  for (Symm_t symm : kModes)
    for (bool real : {true, false})
      for (bool large : {false, true}) {
        const bool symmetric = symm == qvarray::SymmSymmetric || symm == qvarray::SymmHermitian;
        // Large ones pass the 10000 non-zero threshold.
        const size_t m = large ? 200 : 23, n = symmetric ? m : (large ? 150 : 17);
        const Sparse A = randomSparse(m, n, large ? 20000 : 60, real, symm, 5 + symm);
        ASSERT_EQ(large, A.getNnz() >= qvarray::kParallelNnzThreshold) << A.getNnz();
        checkAllProducts(A, "mode " + std::to_string(symm) + (real ? " real" : " complex") +
                                (large ? " large" : " small"));
        if (HasFatalFailure()) return;
      }
}

TEST(SparseProducts, DuplicateRowsInAColumnAndEmptyParts) {
  // flat2sparse keeps a repeated row within a column; the parallel row
  // gather must add the two entries in the serial order.
  Sparse A;
  A.flat2sparse(std::vector<size_t>{2, 0, 2, 4, 0}, std::vector<size_t>{0, 3, 3, 3, 5, 5},
                std::vector<double>{1.5, -2.0, 0.25, 3.0, 1e-17}, 6, 5);
  checkAllProducts(A, "duplicates");
  A.setSymm(qvarray::SymmTransposed);
  checkAllProducts(A, "duplicates transposed");
  Sparse E;
  E.zeros(4, 3, 0, false);
  checkAllProducts(E, "no entries");
  E.zeros(0, 3, 0, true);
  checkAllProducts(E, "no rows");
}

TEST(SparseProducts, SymmetricStorageWithHalfDiagonalGivesTheFullProduct) {
  // Full symmetric (and Hermitian) A in mode 0 against its strict upper
  // triangle plus half its diagonal in modes 1 and 2.
  for (bool large : {false, true})
    for (bool real : {true, false}) {
      const size_t n = large ? 150 : 12;
      std::mt19937_64 g(3);
      std::uniform_real_distribution<double> u(-1, 1);
      std::vector<size_t> fr, fc, hr, hc;
      std::vector<dcomplex> fv, hv;
      for (size_t j = 0; j < n; ++j)
        for (size_t i = 0; i <= j; ++i) {
          if (i != j && (g() % 100) >= (large ? 90u : 40u)) continue;
          dcomplex v(u(g), real ? 0.0 : u(g));
          if (i == j) v = dcomplex(v.real() + 4.0, 0.0);
          fr.push_back(i), fc.push_back(j), fv.push_back(v);
          if (i != j) fr.push_back(j), fc.push_back(i), fv.push_back(std::conj(v));
          hr.push_back(i), hc.push_back(j), hv.push_back(i == j ? v * 0.5 : v);
        }
      Sparse full, half;
      full.vectorTripletToSparse(fr, fc, fv, n, n);
      half.vectorTripletToSparse(hr, hc, hv, n, n);
      if (real) {
        full.convertZeroImagToReal();
        half.convertZeroImagToReal();
      }
      half.setSymm(real ? qvarray::SymmSymmetric : qvarray::SymmHermitian);
      ASSERT_EQ(large, half.getNnz() >= qvarray::kParallelNnzThreshold);
      for (int threads : {1, 2}) {
        if (!Threads::available(threads)) continue;
        Threads scope(threads);
        const Vector x = randomVector(n, real, 8);
        const Vector a = qvarray::AMulx(full, x, qvarray::NoTrans);
        const Vector b = qvarray::AMulx(half, x, qvarray::NoTrans);
        const Reference ref = denseProduct(represented(full), toComplex(x),
                                           std::vector<dcomplex>(n), false);
        expectNear(a, ref, "full");
        expectNear(b, ref, "half");
      }
    }
}

TEST(SparseProducts, ParallelResultsRepeatBitForBit) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  Threads scope(2);
  for (Symm_t symm : kModes)
    for (bool real : {true, false}) {
      const Sparse A = randomSparse(300, 300, 40000, real, symm, 77);
      const Vector x = randomVector(300, real, 1), y0 = randomVector(300, real, 2);
      for (Trans_t t : kTrans) {
        Vector first = y0;
        qvarray::yPlusAMulx(first, A, x, t);
        for (int run = 0; run < 20; ++run) {
          Vector again = y0;
          qvarray::yPlusAMulx(again, A, x, t);
          expectSameBits(first, again, "run " + std::to_string(run));
          if (HasFatalFailure()) return;
        }
      }
    }
}

TEST(SparseProducts, DispatchAtTheThresholdOfTenThousandNonZeros) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  // A diagonal of 9999 entries, then one more.
  for (size_t n : {size_t{9999}, size_t{10000}}) {
    Sparse A;
    A.eye(n);
    const Vector x = randomVector(n, true, 4);
    Vector y(n);
    {
      Threads scope(1);
      qvarray::yPlusAMulx(y, A, x, qvarray::NoTrans);
      EXPECT_FALSE(A.hasParallelData());
      EXPECT_FALSE(qvarray::usesParallelProduct(A));
    }
    Threads scope(2);
    qvarray::yPlusAMulx(y, A, x, qvarray::NoTrans);
    EXPECT_EQ(A.hasParallelData(), n == 10000) << n;
    EXPECT_EQ(qvarray::usesParallelProduct(A), n == 10000) << n;
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(y.d(i), 2 * x.d(i));
  }
}

TEST(SparseProducts, ParallelDataFollowsThePatternAndValues) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  Threads scope(2);
  Sparse A = randomSparse(200, 200, 20000, true, qvarray::SymmNone, 9);
  A.reallocate(1.5);  // room for setElem below
  const Vector x = randomVector(200, true, 5);
  Vector y = qvarray::AMulx(A, x, qvarray::NoTrans);
  ASSERT_TRUE(A.hasParallelData());
  const auto data = A.getParallelData();
  EXPECT_EQ(data->getVersion(), A.getRowColptrVersion());
  EXPECT_TRUE(data->hasRowCompressed());  // A·x in mode 0 gathers rows
  EXPECT_EQ(data->memoryBytes(), (201 + 2 * A.getNnz()) * 8);

  // A second product reuses the data; a copy shares it.
  qvarray::AMulx(A, x, qvarray::NoTrans);
  EXPECT_EQ(A.getParallelData(), data);
  const Sparse copy = A;
  EXPECT_EQ(copy.getParallelData(), data);

  // A value change drops it; the next product sees the new values.
  A.scale(2.0);
  EXPECT_FALSE(A.hasParallelData());
  Vector y2 = qvarray::AMulx(A, x, qvarray::NoTrans);
  for (size_t i = 0; i < 200; ++i) ASSERT_EQ(y2.d(i), 2 * y.d(i));
  EXPECT_NE(A.getParallelData(), data);
  EXPECT_EQ(copy.getParallelData(), data);  // the copy keeps its own storage and data

  // A pattern change draws a new version and a new build.
  A.setElem(0, 199, 5.0);
  EXPECT_FALSE(A.hasParallelData());
  const Vector y3 = qvarray::AMulx(A, x, qvarray::NoTrans);
  EXPECT_EQ(A.getParallelData()->getVersion(), A.getRowColptrVersion());
  expectNear(y3, denseProduct(represented(A), toComplex(x), std::vector<dcomplex>(200), false),
             "after setElem");

  // Aᵀ·x needs only the column split: no row companion is built.
  Sparse B = randomSparse(200, 200, 20000, true, qvarray::SymmNone, 10);
  qvarray::AMulx(B, x, qvarray::Trans);
  EXPECT_FALSE(B.getParallelData()->hasRowCompressed());
  EXPECT_EQ(B.getParallelData()->memoryBytes(), 0u);
}

TEST(SparseProducts, FirstParallelProductsFromTwoThreadsAtOnce) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  Threads scope(2);
  for (int round = 0; round < 10; ++round) {
    const Sparse A = randomSparse(400, 300, 30000, round % 2 == 0, qvarray::SymmNone, 100 + round);
    const Vector x = randomVector(300, true, 6);
    Vector expected(400);
    qvarray::serialyPlusAMulx(expected, A, x, qvarray::NoTrans);
    Vector y[2];
    y[0].resize(400, A.isReal());
    y[1].resize(400, A.isReal());
    std::shared_ptr<const ParallelSparse> seen[2];
    const int levels = omp_get_max_active_levels();
    omp_set_max_active_levels(2);  // the products open their own teams
#pragma omp parallel num_threads(2)
    {
      const int k = omp_get_thread_num();
      qvarray::yPlusAMulx(y[k], A, x, qvarray::NoTrans);
      seen[k] = A.getParallelData();
    }
    omp_set_max_active_levels(levels);
    EXPECT_EQ(seen[0], seen[1]);
    expectSameBits(y[0], expected, "thread 0");
    expectSameBits(y[1], expected, "thread 1");
  }
}

TEST(SparseProducts, NestedInAParallelRegionTheTeamHasOneThread) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  Threads scope(2);
  const Sparse A = randomSparse(150, 150, 12000, false, qvarray::SymmHermitian, 12);
  const Vector x = randomVector(150, false, 13);
  const Vector expected = qvarray::AMulx(A, x, qvarray::NoTrans);
  Vector y[2];
#pragma omp parallel num_threads(2)
  y[omp_get_thread_num()] = qvarray::AMulx(A, x, qvarray::NoTrans);
  expectSameBits(y[0], expected, "thread 0");
  expectSameBits(y[1], expected, "thread 1");
}

TEST(SparseProducts, SizeChecks) {
  Sparse A = randomSparse(3, 2, 5, true, qvarray::SymmNone, 1);
  Vector x3 = randomVector(3, true, 1), y3 = randomVector(3, true, 2), y2 = randomVector(2, true, 3);
  const Vector before = y3;
  qvtest::expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x3, qvarray::NoTrans); },
                         "Size_vector_sparse_matrix_disagree");
  expectSameBits(y3, before, "unchanged");
  qvarray::yPlusAMulx(y2, A, x3, qvarray::Trans);  // 2-long y, 3-long x: fits
  qvtest::expectThrowKey([&] { qvarray::yMinusAMulx(y3, A, x3, qvarray::Trans); },
                         "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { qvarray::AMulx(A, x3, qvarray::NoTrans); },
                         "Size_vector_sparse_matrix_disagree");
  qvtest::expectThrowKey([&] { qvarray::parallelyPlusAMulx(y3, A, x3, qvarray::NoTrans); },
                         "Size_vector_sparse_matrix_disagree");
  // A complex x must not turn y complex before the check fails.
  Vector z3 = randomVector(3, false, 4);
  qvtest::expectThrowKey([&] { qvarray::serialyPlusAMulx(y3, A, z3, qvarray::NoTrans); },
                         "Size_vector_sparse_matrix_disagree");
  EXPECT_TRUE(y3.isReal());

  // Mode 3 represents the 2×3 transpose.
  A.setSymm(qvarray::SymmTransposed);
  qvarray::yPlusAMulx(y2, A, x3, qvarray::NoTrans);
  // The symmetric modes need a square matrix.
  A.setSymm(qvarray::SymmSymmetric);
  qvtest::expectThrowKey([&] { qvarray::AMulx(A, randomVector(2, true, 5), qvarray::NoTrans); },
                         "Size_vector_sparse_matrix_disagree");
  // An invalid selector.
  A.setSymm(qvarray::SymmNone);
  qvtest::expectThrowKey(
      [&] { qvarray::yPlusAMulx(y3, A, x3, static_cast<Trans_t>(7)); }, "Internal_error_sparse");
}

TEST(SparseProducts, RealConjTransIsTrans) {
  const Sparse A = randomSparse(40, 30, 300, true, qvarray::SymmNone, 3);
  const Vector x = randomVector(40, false, 1);
  expectSameBits(qvarray::AMulx(A, x, qvarray::ConjTrans), qvarray::AMulx(A, x, qvarray::Trans),
                 "real A");
}

TEST(SparseProducts, MatrixColumnAndAliasedOperands) {
  const Sparse A = randomSparse(20, 20, 120, false, qvarray::SymmNone, 4);
  Matrix X(20, 3);
  for (size_t j = 0; j < 3; ++j)
    for (size_t i = 0; i < 20; ++i) X.set(i, j, dcomplex(double(i) - 3.0 * j, 0.5));
  for (size_t k = 0; k < 3; ++k) {
    Vector y(20), z(20);
    qvarray::yPlusAMulx(y, A, X, qvarray::Trans, k);
    qvarray::yPlusAMulx(z, A, X.column(k), qvarray::Trans);
    expectSameBits(y, z, "column " + std::to_string(k));
    Vector s(20);
    qvarray::serialyPlusAMulx(s, A, X, qvarray::Trans, k);
    expectSameBits(s, z, "serial column");
    expectSameBits(qvarray::AMulx(A, X, qvarray::Trans, k), z, "AMulx column");
    qvarray::yMinusAMulx(s, A, X, qvarray::Trans, k);
    for (size_t i = 0; i < 20; ++i) ASSERT_EQ(s.get(i), dcomplex(0.0));
  }
  Vector y(20);
  qvtest::expectThrowKey([&] { qvarray::yPlusAMulx(y, A, X, qvarray::NoTrans, 3); },
                         "Internal_error_sparse");

  // y += A·y reads the old y.
  Vector v = randomVector(20, false, 9);
  Vector expected = v;
  qvarray::yPlusAMulx(expected, A, Vector(v), qvarray::NoTrans);
  qvarray::yPlusAMulx(v, A, v, qvarray::NoTrans);
  expectSameBits(v, expected, "aliased");

  // mulVec overwrites; AMulx's kind follows the operands.
  Vector w = randomVector(5, true, 1);
  qvarray::mulVec(w, A, Vector(20, 1.0), qvarray::NoTrans);
  EXPECT_EQ(w.size(), 20u);
  EXPECT_FALSE(w.isReal());
}

TEST(SparseProducts, InterfaceFormsForward) {
  const Sparse A = randomSparse(30, 25, 200, true, qvarray::SymmNone, 6);
  const qvarray::SparseBase& B = A;
  const Vector x = randomVector(25, true, 1);
  Vector y1 = randomVector(30, true, 2), y2 = y1;
  qvarray::yPlusAMulx(y1, B, x, qvarray::NoTrans);
  qvarray::yPlusAMulx(y2, A, x, qvarray::NoTrans);
  expectSameBits(y1, y2, "yPlusAMulx");
  qvarray::yMinusAMulx(y1, B, x, qvarray::NoTrans);
  qvarray::yMinusAMulx(y2, A, x, qvarray::NoTrans);
  expectSameBits(y1, y2, "yMinusAMulx");
  expectSameBits(qvarray::AMulx(B, x, qvarray::NoTrans), qvarray::AMulx(A, x, qvarray::NoTrans),
                 "AMulx");
  Vector m1, m2;
  qvarray::mulVec(m1, B, x, qvarray::NoTrans);
  qvarray::mulVec(m2, A, x, qvarray::NoTrans);
  expectSameBits(m1, m2, "mulVec");
  Matrix X(25, 2, 1.0);
  qvarray::yPlusAMulx(y1, B, X, qvarray::NoTrans, 1);
  qvarray::yPlusAMulx(y2, A, X, qvarray::NoTrans, 1);
  expectSameBits(y1, y2, "matrix form");
}

TEST(SparseProducts, PartialMatrixUsesTheRowOffset) {
  // A 4×3 block whose stored rows are global rows 10…13 of a larger matrix.
  Sparse A;
  A.vectorTripletToSparse({10, 13, 11, 12, 10}, {0, 0, 1, 2, 2}, std::vector<double>{1, 2, 3, 4, 5},
                          14, 3);
  A.setOffsets(10, 20);
  ASSERT_TRUE(A.isPartial());
  const Vector x = randomVector(3, true, 1);
  Vector y(4);  // no size check: the row space starts at row 10
  qvarray::yPlusAMulx(y, A, x, qvarray::NoTrans);
  EXPECT_EQ(y.d(0), 1 * x.d(0) + 5 * x.d(2));
  EXPECT_EQ(y.d(1), 3 * x.d(1));
  EXPECT_EQ(y.d(2), 4 * x.d(2));
  EXPECT_EQ(y.d(3), 2 * x.d(0));
  Vector r = qvarray::AMulx(A, Vector(4, 1.0), qvarray::Trans);
  EXPECT_EQ(r.size(), 3u);
  EXPECT_EQ(r.d(0), 3.0);
  EXPECT_EQ(r.d(2), 9.0);
  Vector p(4);
  qvarray::parallelyPlusAMulx(p, A, x, qvarray::NoTrans);
  expectSameBits(p, y, "parallel partial");
}

// An external representation that multiplies by the dense matrix and counts
// its calls.
class DenseExternal : public qvarray::ExternalSparse {
 public:
  DenseExternal(const Sparse& A, bool usable) : D_(represented(A)), usable_(usable) {}
  bool setUp(const Sparse&) override {
    ++setUps;
    return usable_;
  }
  void mulAdd(double alpha, const double* x, double* y, Trans_t t) const override {
    ++products;
    const Dense<dcomplex> op = applyTrans(D_, t);
    for (size_t i = 0; i < op.m; ++i)
      for (size_t j = 0; j < op.n; ++j) y[i] += alpha * op(i, j).real() * x[j];
  }
  int setUps = 0;
  mutable int products = 0;

 private:
  Dense<dcomplex> D_;
  bool usable_;
};

TEST(SparseProducts, ExternalRepresentationTakesTheRealSerialProduct) {
  Sparse A = randomSparse(30, 20, 150, true, qvarray::SymmNone, 21);
  auto ext = std::make_shared<DenseExternal>(A, true);
  A.attachExtData(ext);
  ASSERT_TRUE(A.hasExtData());
  const Vector x = randomVector(30, true, 1), y0 = randomVector(20, true, 2);
  Vector y = y0, expected = y0;
  qvarray::yMinusAMulx(y, A, x, qvarray::Trans);
  EXPECT_EQ(ext->products, 1);
  expectNear(y, denseProduct(applyTrans(represented(A), qvarray::Trans), toComplex(x), toComplex(y0), true),
             "external");
  // Complex operands, the parallel path and an unusable representation take
  // the storage kernel.
  Vector yz = randomVector(20, false, 3);
  qvarray::yPlusAMulx(yz, A, x, qvarray::Trans);
  qvarray::parallelyPlusAMulx(expected, A, x, qvarray::Trans);
  EXPECT_EQ(ext->products, 1);
  auto idle = std::make_shared<DenseExternal>(A, false);
  A.attachExtData(idle);
  qvarray::yPlusAMulx(expected, A, x, qvarray::Trans);
  EXPECT_EQ(idle->setUps, 1);
  EXPECT_EQ(idle->products, 0);
  // A value change drops the attachment.
  A.attachExtData(ext);
  A.scale(2.0);
  EXPECT_FALSE(A.hasExtData());
  EXPECT_EQ(A.getExtData(), nullptr);
}

}  // namespace
