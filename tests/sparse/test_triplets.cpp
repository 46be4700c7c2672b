// Triplet assembly against a dense matrix built in lockstep and a model of
// first-appearance order; shuffled inputs; the one-value form; bad input.
#include <gtest/gtest.h>

#include "qvarray/sparse.h"
#include "qvtest.h"
#include "sparsetest.h"

using namespace sparsetest;
using qvarray::Sparse;

namespace {

template <class T>
class TripletAssembly : public ::testing::Test {};
using ValueTypes = ::testing::Types<double, std::complex<double>>;
TYPED_TEST_SUITE(TripletAssembly, ValueTypes);

TYPED_TEST(TripletAssembly, MatchesDenseAndFirstAppearanceModel) {
  using T = TypeParam;
  struct Case {
    size_t m, n, count;
    double dup;
  };
  // Shapes from a single row or column to wide, tall and nearly dense ones;
  // many repeats force long probe sequences.
  for (const Case c : {Case{1, 1, 50, 0.5}, Case{1, 40, 100, 0.2}, Case{40, 1, 100, 0.2},
                       Case{7, 9, 300, 0.3}, Case{300, 200, 5000, 0.1}, Case{20, 3000, 4000, 0.6},
                       Case{1000, 1000, 20000, 0.0}}) {
    SCOPED_TRACE(::testing::Message() << c.m << "x" << c.n << " count " << c.count);
    const auto t = randomTriplets<T>(c.m, c.n, c.count, c.dup, 17 + unsigned(c.count));
    const Sparse A = t.assemble();
    EXPECT_EQ(A.getM(), c.m);
    EXPECT_EQ(A.getN(), c.n);
    EXPECT_EQ(A.isReal(), (std::is_same_v<T, double>));
    EXPECT_TRUE((A.isReal() ? A.getptrD()->isConsistent() : A.getptrZ()->isConsistent()));
    expectModel(A, model(t));
    expectDenseEq(toDense<T>(A), t.dense());
  }
}

TYPED_TEST(TripletAssembly, ShuffledInputGivesSameMatrixUpToRowOrder) {
  using T = TypeParam;
  // Small integers: sums do not depend on the order of summation.
  auto t = randomTriplets<T>(50, 60, 3000, 0.4, 5);
  for (auto& v : t.values) v = T(std::round(std::real(v) * 8));
  const Sparse A = t.assemble();
  for (unsigned seed : {1u, 2u, 3u}) {
    auto s = t;
    s.shuffle(seed);
    const Sparse B = s.assemble();
    EXPECT_TRUE(A.isEqual(B, 0.0, qvarray::NoTrans));
    expectModel(B, model(s));
    for (size_t j = 0; j <= A.getN(); ++j) EXPECT_EQ(A.getColPtr()[j], B.getColPtr()[j]);
  }
}

TEST(TripletAssembly, DuplicatesSummedAndFirstAppearanceKept) {
  Sparse A;
  A.vectorTripletToSparse({0, 0}, {0, 0}, std::vector<double>{1, 2}, 1, 1);
  EXPECT_EQ(A.getNnz(), 1u);
  EXPECT_EQ(A.getDoubleVal()[0], 3.0);

  A.vectorTripletToSparse({2, 0}, {0, 0}, std::vector<double>{5, 6}, 3, 3);
  EXPECT_EQ(A.getRow()[0], 2u);
  EXPECT_EQ(A.getRow()[1], 0u);
  EXPECT_EQ(A.getDoubleVal()[0], 5.0);

  // Input order of summation: (1e16 + 1) − 1e16 = 0 in doubles, not 1.
  A.vectorTripletToSparse({0, 0, 0}, {0, 0, 0}, std::vector<double>{1e16, 1, -1e16}, 1, 1);
  EXPECT_EQ(A.getDoubleVal()[0], 0.0);
  A.vectorTripletToSparse({0, 0, 0}, {0, 0, 0}, std::vector<double>{1, 1e16, -1e16}, 1, 1);
  EXPECT_EQ(A.getDoubleVal()[0], 0.0);
  A.vectorTripletToSparse({0, 0, 0}, {0, 0, 0}, std::vector<double>{1e16, -1e16, 1}, 1, 1);
  EXPECT_EQ(A.getDoubleVal()[0], 1.0);
}

TEST(TripletAssembly, OneValueForAll) {
  Sparse A;
  Array<size_t, 1> rows(4), cols(4);
  const size_t r[] = {1, 0, 1, 2}, c[] = {0, 0, 0, 1};
  std::copy(r, r + 4, rows.data);
  std::copy(c, c + 4, cols.data);
  Array<double, 1> one(1);
  one[0] = 2.5;
  A.triplet2sparse(rows, cols, qvarray::Vector(one), 3, 2);
  EXPECT_EQ(A.getNnz(), 3u);
  EXPECT_EQ(A.getReal(1, 0), 5.0);
  EXPECT_EQ(A.getReal(0, 0), 2.5);
  EXPECT_EQ(A.getReal(2, 1), 2.5);

  Array<std::complex<double>, 1> zone(1);
  zone[0] = {0, 1};
  A.triplet2sparse(rows, cols, qvarray::Vector(zone), 3, 2);
  EXPECT_FALSE(A.isReal());
  EXPECT_EQ(A.getImag(1, 0), 2.0);
}

TEST(TripletAssembly, EmptyShapes) {
  Sparse A;
  A.vectorTripletToSparse({}, {}, std::vector<double>{}, 0, 5);
  EXPECT_EQ(A.getNnz(), 0u);
  for (size_t j = 0; j < 6; ++j) EXPECT_EQ(A.getColPtr()[j], 0u);
  EXPECT_EQ(A.getRow(), nullptr);
  // With m or n zero the triplets are not read.
  A.vectorTripletToSparse({3}, {1}, std::vector<double>{1}, 0, 5);
  EXPECT_EQ(A.getNnz(), 0u);
  EXPECT_EQ(A.getN(), 5u);
  A.vectorTripletToSparse({}, {}, std::vector<double>{}, 4, 3);
  EXPECT_EQ(A.getM(), 4u);
  EXPECT_EQ(A.getNnz(), 0u);
}

TEST(TripletAssembly, HugeDimensionsWhoseKeysWrap) {
  // m·n exceeds 2^64: different pairs can share a key, so pairs are compared.
  const size_t m = size_t{1} << 62, n = 8;
  Triplets<double> t(m, n);
  // (r, c) and (r, c + 4) have the same key col·m + row modulo 2^64.
  for (size_t k = 0; k < 200; ++k) {
    t.add(k * 7919 % 1000, k % 4, 1.0 + k);
    t.add(k * 7919 % 1000, k % 4 + 4, 2.0 + k);
  }
  const Sparse A = t.assemble();
  expectModel(A, model(t));
}

TEST(TripletAssembly, LargeKeysUseWideSlots) {
  // m·n = 2^60 fits 64 bits, but key and ordinal do not fit one word together.
  const size_t m = size_t{1} << 40, n = size_t{1} << 20;
  Triplets<std::complex<double>> t(m, n);
  for (size_t k = 0; k < 3000; ++k)
    t.add((k * 2654435761u) % 700 + (m - 700), (k * 40503u) % 9 + (n - 9), {double(k), 1.0});
  expectModel(t.assemble(), model(t));
}

TEST(TripletAssembly, BadInputLeavesMatrixUnchanged) {
  Sparse A;
  A.eye(3);
  const auto version = A.getRowColptrVersion();
  qvtest::expectThrowKey(
      [&] { A.vectorTripletToSparse({0, 1}, {0}, std::vector<double>{1, 2}, 2, 2); },
      "Length_triplet_vectors_disagree");
  qvtest::expectThrowKey(
      [&] { A.vectorTripletToSparse({0, 1}, {0, 1}, std::vector<double>{1, 2, 3}, 2, 2); },
      "Length_triplet_vectors_disagree");
  qvtest::expectThrowKey(
      [&] { A.vectorTripletToSparse({0, 2}, {0, 1}, std::vector<double>{1, 2}, 2, 2); },
      "Internal_error_sparse", "Triplet index out of range.");
  qvtest::expectThrowKey(
      [&] { A.vectorTripletToSparse({0, 1}, {0, 9}, std::vector<double>{1, 2}, 2, 2); },
      "Internal_error_sparse", "Triplet index out of range.");
  EXPECT_EQ(A.getRowColptrVersion(), version);
  EXPECT_EQ(A.getN(), 3u);
  EXPECT_EQ(A.getNnz(), 3u);

  // Above the largest hash size: refused before any input is read, so arrays
  // that merely claim that many entries do.
  Array<size_t, 1> r(1), c(1);
  r.count = c.count = qvarray::kMaxHashSize + 1;
  const qvarray::Vector one(Array<double, 1>(1));  // one value for all triplets
  qvtest::expectThrowKey([&] { A.triplet2sparse(r, c, one, 2, 2); }, "Size_input_vector_too_large");
  r.count = c.count = 1;
  EXPECT_EQ(A.getRowColptrVersion(), version);
  qvarray::llsparse<double> s;
  const size_t dummy = 0;
  const double v = 1;
  qvtest::expectThrowKey(
      [&] { s.assembleTriplets(&dummy, &dummy, &v, qvarray::kMaxHashSize + 1, 1, 1, true); },
      "Size_input_vector_too_large");
}

}  // namespace
