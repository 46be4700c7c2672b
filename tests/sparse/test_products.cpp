// Sparse matrix–vector products against dense products of the represented
// matrix: every symmetry mode, transposition, operand kind, path and sign.
#include <gtest/gtest.h>

#include <omp.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "producttest.h"
#include "qvarray/sparse/externalsparse.h"
#include "qvarray/sparse/parallelsparse.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvtest.h"

namespace {

using namespace producttest;
using qvarray::NoTrans;
using qvarray::Sparse;
using qvarray::Trans;
using qvarray::Vector;

using Product = Vector& (*)(Vector&, const Sparse&, const Vector&, Trans_t);
const std::tuple<const char*, Product, Product> kPaths[] = {  // name, y += op(A)·x, y −= op(A)·x
    {"serial", qvarray::serialyPlusAMulx, qvarray::serialyMinusAMulx},
    {"select", qvarray::yPlusAMulx, qvarray::yMinusAMulx},
    {"parallel", qvarray::parallelyPlusAMulx, qvarray::parallelyMinusAMulx}};

// Every operand kind (matrix, x, y real or complex; a real y is made complex
// when A or x is) on every path, sign and thread count, against the dense
// reference.
void checkAllProducts(const Sparse& A, const std::string& name) {
  for (Trans_t t : kTrans) {
    const Dense<dcomplex> D = applyTrans(represented(A), t);
    for (int kinds = 0; kinds < 4; ++kinds) {
      const bool xReal = kinds & 1, yReal = kinds & 2;
      const Vector x = randomVector(D.n, xReal, 17 + kinds), y0 = randomVector(D.m, yReal, 29 + kinds);
      for (bool minus : {false, true}) {
        const Reference ref = denseProduct(D, x, y0, minus);
        onOneAndTwoThreads([&](int threads) {
          const std::string what = name + " t=" + std::to_string(t) + " kinds " + std::to_string(kinds) +
                                   (minus ? " minus" : " plus") + " threads " + std::to_string(threads);
          Vector y[4] = {y0, y0, y0, y0};
          for (int p = 0; p < 4; ++p) {
            const auto [path, plus, less] = kPaths[std::min(p, 2)];  // the parallel path twice
            expectNear((minus ? less : plus)(y[p], A, x, t), ref, what + " " + path);
          }
          EXPECT_EQ(y[0].isReal(), A.isReal() && xReal && yReal) << what;
          expectSameBits(y[2], y[3], what + " parallel run again");  // no scheduling-dependent sums
          // Every mode adds into each entry in the serial order: same bits.
          expectSameBits(y[0], y[2], what + " serial vs parallel");
        });
        if (::testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

TEST(SparseProducts, EveryModeAndKindMatchesDense) {
  for (Symm_t symm : kModes)
    for (bool real : {true, false})
      for (bool large : {false, true}) {
        // Large ones pass the 10000 non-zero threshold.
        const size_t m = large ? 200 : 23, n = isSymmetric(symm) ? m : (large ? 150 : 17);
        const Sparse A = randomSparse(m, n, large ? 20000 : 60, real, symm, 5 + symm);
        ASSERT_EQ(large, A.getNnz() >= qvarray::kParallelNnzThreshold) << A.getNnz();
        checkAllProducts(A, "mode " + std::to_string(symm) + (real ? " real" : " complex") +
                                (large ? " large" : " small"));
        if (HasFatalFailure()) return;
      }
}

TEST(SparseProducts, DuplicatesEmptyPartsAndPartialMatrix) {
  // flat2sparse keeps a repeated row within a column; the parallel row
  // gather must add the two entries in the serial order.
  Sparse A = Sparse().flat2sparse(std::vector<size_t>{2, 0, 2, 4, 0}, std::vector<size_t>{0, 3, 3, 3, 5, 5},
                                   std::vector<double>{1.5, -2.0, 0.25, 3.0, 1e-17}, 6, 5);
  checkAllProducts(A, "duplicates");
  checkAllProducts(A.setSymm(qvarray::SymmTransposed), "duplicates transposed");
  checkAllProducts(A.zeros(4, 3, 0, false), "no entries");
  checkAllProducts(A.zeros(0, 3, 0, true), "no rows");
  // A 4×3 block whose stored rows are global rows 10…13 of a larger matrix:
  // its row space starts at row 10.
  A.vectorTripletToSparse({10, 13, 11, 12, 10}, {0, 0, 1, 2, 2}, std::vector<double>{1, 2, 3, 4, 5}, 14, 3)
      .setOffsets(10, 20);
  ASSERT_TRUE(A.isPartial());
  const Dense<dcomplex> D = represented(A);
  ASSERT_TRUE(D.m == 4 && D(0, 0) == 1.0 && D(0, 2) == 5.0 && D(1, 1) == 3.0 && D(3, 0) == 2.0);
  checkAllProducts(A, "partial");
}

TEST(SparseProducts, SymmetricStorageWithHalfDiagonalGivesTheFullProduct) {
  // The upper triangle plus half the diagonal in modes 1 and 2 against the
  // dense product of the whole symmetric (Hermitian) matrix; serial on one
  // thread, parallel on two.
  for (bool real : {true, false}) {
    const size_t n = 150;
    std::mt19937_64 g(3);
    std::uniform_real_distribution<double> u(-1, 1);
    Dense<dcomplex> full(n, n);
    sparsetest::Triplets<dcomplex> half(n, n);
    for (size_t j = 0; j < n; ++j)
      for (size_t i = 0; i <= j; ++i)
        if (i == j || g() % 100 < 90) {
          const dcomplex v = i == j ? dcomplex(4 + u(g)) : dcomplex(u(g), real ? 0.0 : u(g));
          full(i, j) = v, full(j, i) = std::conj(v);
          half.add(i, j, i == j ? 0.5 * v : v);
        }
    Sparse H = half.assemble();
    if (real) H.convertZeroImagToReal();
    H.setSymm(real ? qvarray::SymmSymmetric : qvarray::SymmHermitian);
    ASSERT_GE(H.getNnz(), 10000u);
    const Vector x = randomVector(n, real, 8);
    onOneAndTwoThreads([&](int) { expectNear(qvarray::AMulx(H, x, NoTrans), denseProduct(full, x, Vector(n)), "half"); });
  }
}

TEST(SparseProducts, DispatchAtTheThresholdOfTenThousandNonZeros) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  // A diagonal of 9999 entries, then one more.
  for (size_t n : {size_t{9999}, size_t{10000}}) {
    const Sparse A = Sparse().eye(n);
    const Vector x = randomVector(n, true, 4);
    Vector y(n);
    onOneAndTwoThreads([&](int threads) {
      qvarray::yPlusAMulx(y, A, x, NoTrans);
      EXPECT_EQ(A.hasParallelData(), threads == 2 && n == 10000) << n;
      EXPECT_EQ(qvarray::usesParallelProduct(A), threads == 2 && n == 10000) << n;
    });
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(y.d(i), 2 * x.d(i));
  }
}

TEST(SparseProducts, ParallelDataFollowsThePatternAndValues) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  Threads scope(2);
  Sparse A = randomSparse(200, 200, 20000, true, qvarray::SymmNone, 9);
  A.reallocate(1.5);  // room for setElem below
  const Vector x = randomVector(200, true, 5);
  const Vector y = qvarray::AMulx(A, x, NoTrans);
  const auto data = A.getParallelData();
  ASSERT_TRUE(data);
  EXPECT_EQ(data->getVersion(), A.getRowColptrVersion());
  EXPECT_TRUE(data->hasRowCompressed());  // A·x in mode 0 gathers rows
  EXPECT_EQ(data->memoryBytes(), (201 + 2 * A.getNnz()) * 8);

  // A second product reuses the data; a copy shares it.
  qvarray::AMulx(A, x, NoTrans);
  EXPECT_EQ(A.getParallelData(), data);
  const Sparse copy = A;
  EXPECT_EQ(copy.getParallelData(), data);

  // A value change drops it; the next product sees the new values.
  A.scale(2.0);
  EXPECT_FALSE(A.hasParallelData());
  const Vector y2 = qvarray::AMulx(A, x, NoTrans);
  for (size_t i = 0; i < 200; ++i) ASSERT_EQ(y2.d(i), 2 * y.d(i));
  EXPECT_NE(A.getParallelData(), data);
  EXPECT_EQ(copy.getParallelData(), data);  // the copy keeps its own storage and data

  // A pattern change draws a new version and a new build.
  A.setElem(0, 199, 5.0);
  EXPECT_FALSE(A.hasParallelData());
  expectNear(qvarray::AMulx(A, x, NoTrans), denseProduct(represented(A), x, Vector(200)), "after setElem");
  EXPECT_EQ(A.getParallelData()->getVersion(), A.getRowColptrVersion());

  // Aᵀ·x needs only the column split: no row companion is built.
  Sparse B = randomSparse(200, 200, 20000, true, qvarray::SymmNone, 10);
  qvarray::AMulx(B, x, Trans);
  EXPECT_FALSE(B.getParallelData()->hasRowCompressed());
  EXPECT_EQ(B.getParallelData()->memoryBytes(), 0u);
}

TEST(SparseProducts, ConcurrentFirstProductsAndNestedProducts) {
  if (!Threads::available(2)) GTEST_SKIP() << "one processor";
  Threads scope(2);
  // Two threads at once start the first parallel product of A; nested in a
  // parallel region a product's team has one thread. The bits depend on
  // neither.
  for (Symm_t symm : kModes)
    for (int nested : {0, 1}) {
      const auto make = [&] { return randomSparse(300, 300, 30000, (symm + nested) % 2, symm, 100 + symm); };
      const Sparse A = make();
      const Vector x = randomVector(300, true, 6), expected = qvarray::AMulx(make(), x, NoTrans);
      Vector y[2] = {Vector(300), Vector(300)};
      const int levels = omp_get_max_active_levels();
      omp_set_max_active_levels(nested ? 1 : 2);  // with 2 the products open their own teams
#pragma omp parallel num_threads(2)
      qvarray::yPlusAMulx(y[omp_get_thread_num()], A, x, NoTrans);
      omp_set_max_active_levels(levels);
      expectSameBits(y[0], expected, "thread 0");
      expectSameBits(y[1], expected, "thread 1");
    }
  // The first build is guarded: two threads asking at the same moment get one
  // object.
  const Sparse proto = randomSparse(50, 50, 200, true, qvarray::SymmNone, 1);
  int split = 0;
  for (int round = 0; round < 200; ++round) {
    const Sparse A = proto;
    std::shared_ptr<const ParallelSparse> got[2];
#pragma omp parallel num_threads(2)
    {
#pragma omp barrier
      got[omp_get_thread_num()] = A.setParallelData();
    }
    split += got[0] != got[1];
  }
  EXPECT_EQ(split, 0);
}

TEST(SparseProducts, SizeChecks) {
  Sparse A = randomSparse(3, 2, 5, true, qvarray::SymmNone, 1);
  Vector x3 = randomVector(3, true, 1), y3 = randomVector(3, true, 2), y2 = randomVector(2, true, 3);
  const Vector before = y3, z3 = randomVector(3, false, 4);
  auto bad = [](auto f) { qvtest::expectThrowKey(f, "Size_vector_sparse_matrix_disagree"); };
  bad([&] { qvarray::yPlusAMulx(y3, A, x3, NoTrans); });
  bad([&] { qvarray::yMinusAMulx(y3, A, x3, Trans); });
  bad([&] { qvarray::AMulx(A, x3, NoTrans); });
  bad([&] { qvarray::parallelyPlusAMulx(y3, A, x3, NoTrans); });
  bad([&] { qvarray::serialyPlusAMulx(y3, A, z3, NoTrans); });  // must not turn y complex first
  expectSameBits(y3, before, "unchanged");
  qvarray::yPlusAMulx(y2, A, x3, Trans);  // 2-long y, 3-long x: fits
  // Mode 3 represents the 2×3 transpose; the symmetric modes need a square matrix.
  A.setSymm(qvarray::SymmTransposed);
  qvarray::yPlusAMulx(y2, A, x3, NoTrans);
  A.setSymm(qvarray::SymmSymmetric);
  bad([&] { qvarray::AMulx(A, randomVector(2, true, 5), NoTrans); });
  A.setSymm(qvarray::SymmNone);
  qvtest::expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x3, static_cast<Trans_t>(7)); },
                         "Internal_error_sparse");
}

TEST(SparseProducts, MatrixColumnBaseClassAndAliasedForms) {
  const Sparse A = randomSparse(20, 20, 120, false, qvarray::SymmNone, 4);
  const qvarray::SparseBase& B = A;
  Matrix X(20, 3);
  for (size_t j = 0; j < 3; ++j) X.setColumn(j, randomVector(20, false, 40 + j));
  for (size_t k = 0; k < 3; ++k) {
    // Column k of X, through every form, gives the bits of the vector product.
    const Vector z = qvarray::AMulx(A, X.column(k), Trans);
    Vector y[5] = {Vector(20), Vector(20), Vector(20), Vector(20)};
    qvarray::yPlusAMulx(y[0], A, X, Trans, k);
    qvarray::serialyPlusAMulx(y[1], A, X, Trans, k);
    qvarray::yPlusAMulx(y[2], B, X, Trans, k);
    qvarray::yPlusAMulx(y[3], B, X.column(k), Trans);
    qvarray::mulVec(y[4], B, X.column(k), Trans);
    for (const Vector& v : y) expectSameBits(v, z, "column " + std::to_string(k));
    expectSameBits(qvarray::AMulx(A, X, Trans, k), z, "AMulx column");
    expectSameBits(qvarray::AMulx(B, X.column(k), Trans), z, "base AMulx");
    qvarray::yMinusAMulx(y[1], A, X, Trans, k);
    qvarray::yMinusAMulx(y[3], B, X.column(k), Trans);
    for (size_t i = 0; i < 20; ++i) ASSERT_TRUE(y[1].get(i) == 0.0 && y[3].get(i) == 0.0) << i;
  }
  Vector y(20);
  qvtest::expectThrowKey([&] { qvarray::yPlusAMulx(y, A, X, NoTrans, 3); }, "Internal_error_sparse");

  // y += A·y reads the old y.
  Vector v = randomVector(20, false, 9), expected = v;
  qvarray::yPlusAMulx(expected, A, Vector(v), NoTrans);
  expectSameBits(qvarray::yPlusAMulx(v, A, v, NoTrans), expected, "aliased");

  // mulVec overwrites; its kind follows the operands.
  Vector w = randomVector(5, true, 1);
  qvarray::mulVec(w, A, Vector(20, 1.0), NoTrans);
  EXPECT_EQ(w.size(), 20u);
  EXPECT_FALSE(w.isReal());
}

// An external representation that multiplies by the dense matrix and counts
// its calls.
struct DenseExternal : qvarray::ExternalSparse {
  DenseExternal(const Sparse& A, bool usable) : D(represented(A)), usable(usable) {}
  bool setUp(const Sparse&) override { return ++setUps, usable; }
  void mulAdd(double alpha, const double* x, double* y, Trans_t t) const override {
    ++products;
    const Dense<dcomplex> op = applyTrans(D, t);
    for (size_t i = 0; i < op.m; ++i)
      for (size_t j = 0; j < op.n; ++j) y[i] += alpha * op(i, j).real() * x[j];
  }
  Dense<dcomplex> D;
  bool usable;
  int setUps = 0;
  mutable int products = 0;
};

TEST(SparseProducts, ExternalRepresentationTakesTheRealSerialProduct) {
  Sparse A = randomSparse(30, 20, 150, true, qvarray::SymmNone, 21);
  auto ext = std::make_shared<DenseExternal>(A, true);
  A.attachExtData(ext);
  ASSERT_TRUE(A.hasExtData());
  const Vector x = randomVector(30, true, 1), y0 = randomVector(20, true, 2);
  Vector y = y0, other = y0, yz = randomVector(20, false, 3);
  qvarray::yMinusAMulx(y, A, x, Trans);
  EXPECT_EQ(ext->products, 1);
  expectNear(y, denseProduct(applyTrans(represented(A), Trans), x, y0, true), "external");
  // Complex operands, the parallel path and an unusable representation take
  // the storage kernel.
  qvarray::yPlusAMulx(yz, A, x, Trans);
  qvarray::parallelyPlusAMulx(other, A, x, Trans);
  EXPECT_EQ(ext->products, 1);
  auto idle = std::make_shared<DenseExternal>(A, false);
  A.attachExtData(idle);
  qvarray::yPlusAMulx(other, A, x, Trans);
  EXPECT_EQ(idle->setUps, 1);
  EXPECT_EQ(idle->products, 0);
  // A value change drops the attachment.
  A.attachExtData(ext);
  A.scale(2.0);
  EXPECT_TRUE(!A.hasExtData() && A.getExtData() == nullptr);
}

}  // namespace
