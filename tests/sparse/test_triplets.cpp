// Triplet assembly against a dense matrix built in lockstep and a model of
// first-appearance order; its counting and hashed ways against each other;
// the one-value form; bad input.
#include <gtest/gtest.h>

#include <cstring>

#include "qvarray/sparse/sparse.h"
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
    EXPECT_EQ(A.isReal(), (std::is_same_v<T, double>));
    EXPECT_TRUE((A.isReal() ? A.getptrD()->isConsistent() : A.getptrZ()->isConsistent()));
    expectModel(A, t);
    expectDenseEq(toDense<T>(A), t.dense());
  }
}

// Triplets of an nx × nx mesh of bilinear quads in element order: every
// column comes in runs of four, interior entries repeat up to four times.
Triplets<double> meshTriplets(size_t nx) {
  Triplets<double> t((nx + 1) * (nx + 1), (nx + 1) * (nx + 1));
  for (size_t e = 0; e < nx * nx; ++e) {
    const size_t n0 = e / nx * (nx + 1) + e % nx;
    const size_t node[4] = {n0, n0 + 1, n0 + nx + 2, n0 + nx + 1};
    for (int a = 0; a < 4; ++a)
      for (int b = 0; b < 4; ++b) t.add(node[b], node[a], (a == b ? 4.0 : -1.0) / double(e % 7 + 1));
  }
  return t;
}

void expectSameBits(const Sparse& A, const Sparse& B) {
  ASSERT_EQ(A.getNnz(), B.getNnz());
  EXPECT_EQ(A.getNzmax(), A.getNnz());
  EXPECT_EQ(B.getNzmax(), B.getNnz());
  for (size_t j = 0; j <= A.getN(); ++j) ASSERT_EQ(A.getColPtr()[j], B.getColPtr()[j]) << j;
  for (size_t p = 0; p < A.getNnz(); ++p) {
    ASSERT_EQ(A.getRow()[p], B.getRow()[p]) << p;
    ASSERT_EQ(std::memcmp(A.getDoubleVal() + p, B.getDoubleVal() + p, sizeof(double)), 0) << p;
  }
}

TEST(TripletAssembly, CountingAndHashedWaysAgreeBitForBit) {
  // Real values go the counting way unless the rows outnumber the triplets
  // by far; the same triplets in a matrix with 2·N more rows go the hashed
  // way. Random order over many columns (the prefetching scatter) and over
  // few, mesh order, signed zeros, and one value for all triplets.
  Triplets<double> zeros(3, 2);
  for (double v : {-0.0, 0.0, -0.0, -0.0, 1.0, -1.0, -0.0})
    zeros.add(zeros.size() % 3, zeros.size() % 2, v);
  for (const auto& t : {randomTriplets<double>(300, 8000, 20000, 0.5, 3),
                        randomTriplets<double>(200, 60, 5000, 0.7, 4), meshTriplets(40), zeros}) {
    SCOPED_TRACE(::testing::Message() << t.m << "x" << t.n << " count " << t.size());
    Triplets<double> tall = t;
    tall.m += 2 * t.size();
    const Sparse A = t.assemble();
    expectModel(A, t);
    expectSameBits(A, tall.assemble());
    Sparse B, C;
    B.vectorTripletToSparse(t.rows, t.cols, std::vector<double>{0.1}, t.m, t.n);
    C.vectorTripletToSparse(t.rows, t.cols, std::vector<double>{0.1}, tall.m, t.n);
    expectSameBits(B, C);
  }
}

TEST(TripletAssembly, SummedInInputOrderAndSmallCases) {
  // (1e16 + 1) − 1e16 = 0 in doubles, not 1: the sum follows the input order.
  Sparse A;
  for (const auto& [v, sum] : {std::pair{std::vector<double>{1e16, 1, -1e16}, 0.0},
                               {{1, 1e16, -1e16}, 0.0}, {{1e16, -1e16, 1}, 1.0}}) {
    A.vectorTripletToSparse({0, 0, 0}, {0, 0, 0}, v, 1, 1);
    EXPECT_EQ(A.getNnz(), 1u);
    EXPECT_EQ(A.getDoubleVal()[0], sum);
  }
  // One value for all triplets, real then complex.
  const Array<size_t, 1> rows = sizes({1, 0, 1, 2}), cols = sizes({0, 0, 0, 1});
  Array<double, 1> one(1);
  one[0] = 2.5;
  A.triplet2sparse(rows, cols, qvarray::Vector(one), 3, 2);
  EXPECT_EQ(A.getNnz(), 3u);
  EXPECT_EQ(A.getReal(1, 0), 5.0);
  EXPECT_EQ(A.getReal(0, 0), 2.5);
  EXPECT_EQ(A.getReal(2, 1), 2.5);
  Array<dcomplex, 1> zone(1);
  zone[0] = {0, 1};
  A.triplet2sparse(rows, cols, qvarray::Vector(zone), 3, 2);
  EXPECT_FALSE(A.isReal());
  EXPECT_EQ(A.getImag(1, 0), 2.0);
  // Empty shapes; with m or n zero the triplets are not read.
  A.vectorTripletToSparse({}, {}, std::vector<double>{}, 0, 5);
  EXPECT_EQ(A.getNnz(), 0u);
  for (size_t j = 0; j < 6; ++j) EXPECT_EQ(A.getColPtr()[j], 0u);
  EXPECT_EQ(A.getRow(), nullptr);
  A.vectorTripletToSparse({3}, {1}, std::vector<double>{1}, 0, 5);
  EXPECT_EQ(A.getNnz(), 0u);
  EXPECT_EQ(A.getN(), 5u);
  A.vectorTripletToSparse({}, {}, std::vector<double>{}, 4, 3);
  EXPECT_EQ(A.getM(), 4u);
  EXPECT_EQ(A.getNnz(), 0u);
}

TEST(TripletAssembly, HugeDimensions) {
  // m·n exceeds 2^64: (r, c) and (r, c + 4) share the key col·m + row modulo
  // 2^64, so pairs must be compared.
  Triplets<double> t(size_t{1} << 62, 8);
  for (size_t k = 0; k < 200; ++k) {
    t.add(k * 7919 % 1000, k % 4, 1.0 + k);
    t.add(k * 7919 % 1000, k % 4 + 4, 2.0 + k);
  }
  expectModel(t.assemble(), t);
  // m·n = 2^60 fits 64 bits, but key and ordinal do not fit one word together.
  const size_t m = size_t{1} << 40, n = size_t{1} << 20;
  Triplets<dcomplex> w(m, n);
  for (size_t k = 0; k < 3000; ++k)
    w.add((k * 2654435761u) % 700 + (m - 700), (k * 40503u) % 9 + (n - 9), {double(k), 1.0});
  expectModel(w.assemble(), w);
}

TEST(TripletAssembly, BadInputLeavesMatrixUnchanged) {
  Sparse A;
  A.eye(3);
  const auto version = A.getRowColptrVersion();
  // m = 2 goes the counting way, m = 100 the hashed way.
  auto build = [&](std::vector<size_t> r, std::vector<size_t> c, std::vector<double> v, size_t m = 2) {
    return [&A, r, c, v, m] { A.vectorTripletToSparse(r, c, v, m, 2); };
  };
  qvtest::expectThrowsAll("Length_triplet_vectors_disagree",
                          {{build({0, 1}, {0}, {1, 2}), ""}, {build({0, 1}, {0, 1}, {1, 2, 3}), ""}});
  const char* range = "Triplet index out of range.";
  qvtest::expectThrowsAll("Internal_error_sparse",
                          {{build({0, 2}, {0, 1}, {1, 2}), range}, {build({0, 1}, {0, 9}, {1, 2}), range},
                           {build({0, 100}, {0, 1}, {1, 2}, 100), range},
                           {build({0, 1}, {0, 2}, {1, 2}, 100), range}});
  // Above the largest hash size: refused before any input is read, so arrays
  // that merely claim that many entries do.
  Array<size_t, 1> r(1), c(1);
  r.count = c.count = qvarray::kMaxHashSize + 1;
  const qvarray::Vector one(Array<double, 1>(1));  // one value for all triplets
  qvtest::expectThrowKey([&] { A.triplet2sparse(r, c, one, 2, 2); }, "Size_input_vector_too_large");
  r.count = c.count = 1;
  EXPECT_EQ(A.getRowColptrVersion(), version);
  EXPECT_EQ(A.getN(), 3u);
  EXPECT_EQ(A.getNnz(), 3u);
  qvarray::llsparse<double> s;
  const size_t dummy = 0;
  const double v = 1;
  qvtest::expectThrowKey(
      [&] { s.assembleTriplets(&dummy, &dummy, &v, qvarray::kMaxHashSize + 1, 1, 1, true); },
      "Size_input_vector_too_large");
}

}  // namespace
