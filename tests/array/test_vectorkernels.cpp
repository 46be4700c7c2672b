// Level-1 and elementwise kernels against naive long-double loops, on both
// sides of the 50-element BLAS threshold.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "kernel_oracles.h"
#include "qvarray/arrayutil.h"

using namespace kernel_oracles;
using qvarray::Array;
using qvtest::expectThrowKey;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";
const int kLengths[] = {0, 1, 5, 50, 51, 1000};

template <class T>
class VectorKernels : public ::testing::Test {};
using Scalars = ::testing::Types<double, cplx>;
TYPED_TEST_SUITE(VectorKernels, Scalars);

template <class T>
T callDot(const T* x, const T* y, int n, Trans_t t) {
  if constexpr (std::is_same_v<T, double>) return qvarray::dot(x, y, n);
  else return qvarray::dot(x, y, n, t);
}

}  // namespace

TYPED_TEST(VectorKernels, DotMatchesNaiveSum) {
  using T = TypeParam;
  qvtest::Rng rng;
  for (int n : kLengths) {
    auto x = randomArray<T, 1>(rng, n), y = randomArray<T, 1>(rng, n);
    for (Trans_t t : {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans}) {
      Wide<T> ref = 0;
      const bool conj = qvarray::is_complex_v<T> && t == qvarray::ConjTrans;
      for (int i = 0; i < n; ++i) ref += (conj ? conjw(wide(x[i])) : wide(x[i])) * wide(y[i]);
      EXPECT_LT(relErr(callDot(x.data, y.data, n, t), ref), 1e-14) << n << " " << t;
    }
  }
}

TEST(VectorKernels, ArrayDotsIncludingFrobenius) {
  qvtest::Rng rng;
  auto a = randomArray<double, 2>(rng, 7, 9), b = randomArray<double, 2>(rng, 7, 9);
  auto za = randomArray<cplx, 2>(rng, 7, 9), zb = randomArray<cplx, 2>(rng, 7, 9);
  long double ref = 0;
  std::complex<long double> zref = 0;
  for (size_t k = 0; k < a.count; ++k) {
    ref += wide(a[k]) * wide(b[k]);
    zref += std::conj(wide(za[k])) * wide(zb[k]);
  }
  EXPECT_LT(relErr(qvarray::dot(a, b), ref), 1e-14);
  EXPECT_LT(relErr(qvarray::dot(za, zb, qvarray::ConjTrans), zref), 1e-14);
  Array<double, 1> x(a.count), y(b.count);
  std::copy(a.begin(), a.end(), x.begin());
  std::copy(b.begin(), b.end(), y.begin());
  EXPECT_DOUBLE_EQ(qvarray::dot(x, y), qvarray::dot(a, b));

  const char* s = "dot: x and y does not have the same length.";
  Array<double, 2> a2(7, 8);
  Array<cplx, 2> z2(9, 9);
  Array<double, 1> x2(3);
  Array<cplx, 1> zx(3), zy(4);
  expectThrowKey([&] { qvarray::dot(a, a2); }, kNumErr, s);
  expectThrowKey([&] { qvarray::dot(za, z2, qvarray::NoTrans); }, kNumErr, s);
  expectThrowKey([&] { qvarray::dot(x, x2); }, kNumErr, s);
  expectThrowKey([&] { qvarray::dot(zx, zy, qvarray::ConjTrans); }, kNumErr, s);
}

TEST(VectorKernels, AxpyUpdatesAllThreeForms) {
  qvtest::Rng rng;
  for (int n : kLengths) {
    auto x = randomArray<double, 1>(rng, n), y = randomArray<double, 1>(rng, n);
    auto zx = randomArray<cplx, 1>(rng, n), zy = randomArray<cplx, 1>(rng, n), zy2 = zy;
    const Array<double, 1> y0 = y;
    const Array<cplx, 1> zy0 = zy;
    const cplx a(0.75, -1.5);
    qvarray::yPlusaMulx(y, -2.5, x);
    qvarray::yPlusaMulx(zy, a, zx);
    qvarray::yPlusaMulx(zy2, a, x);
    for (int i = 0; i < n; ++i) {
      EXPECT_LT(relErr(y[i], wide(y0[i]) - 2.5L * wide(x[i])), 1e-15);
      EXPECT_LT(relErr(zy[i], wide(zy0[i]) + wide(a) * wide(zx[i])), 1e-15);
      EXPECT_LT(relErr(zy2[i], wide(zy0[i]) + wide(a) * wide(x[i])), 1e-15);
    }
  }
  Array<double, 1> x(3), y(4);
  Array<cplx, 1> zy(4), zx(3);
  expectThrowKey([&] { qvarray::yPlusaMulx(y, 1.0, x); }, kNumErr,
                 "yPlusaMulx: x and y does not have the same length.");
  expectThrowKey([&] { qvarray::yPlusaMulx(zy, cplx(1), zx); }, kNumErr,
                 "yPlusaMulx: y and x does not have the same length.");
  expectThrowKey([&] { qvarray::yPlusaMulx(zy, cplx(1), x); }, kNumErr,
                 "yPlusaMulx: y and x does not have the same length.");
}

TYPED_TEST(VectorKernels, AddScalarThroughZeroIncrement) {
  using T = TypeParam;
  qvtest::Rng rng;
  for (int n : {0, 3, 51, 200000}) {  // the longest run is large enough for BLAS threads
    auto y = randomArray<T, 1>(rng, n);
    const auto y0 = y;
    const T a = rng.value<T>();
    qvarray::yPlusa(y, a);
    for (int i = 0; i < n; ++i) ASSERT_EQ(y[i], y0[i] + a) << i;
  }
}

TYPED_TEST(VectorKernels, ScaleOnBothSidesOfTheThreshold) {
  using T = TypeParam;
  qvtest::Rng rng;
  for (int n : kLengths) {
    auto x = randomArray<T, 1>(rng, n);
    const auto x0 = x;
    qvarray::scale(x, -1.75);
    for (int i = 0; i < n; ++i) EXPECT_LT(relErr(x[i], -1.75L * wide(x0[i])), 1e-15);
    if constexpr (qvarray::is_complex_v<T>) {
      const cplx a(0.5, 2.0);
      auto z = x0;
      qvarray::scale(z, a);
      for (int i = 0; i < n; ++i) EXPECT_LT(relErr(z[i], wide(a) * wide(x0[i])), 1e-15);
    }
  }
  std::vector<double> v(60, 2.0);
  qvarray::scale(v, 0.25);
  for (double e : v) EXPECT_EQ(e, 0.5);
}

TYPED_TEST(VectorKernels, ScaleByNaNGivesNaNEverywhere) {
  using T = TypeParam;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (int n : {10, 60}) {
    Array<T, 1> x(n);
    x.fill(T(1.0));
    x[0] = T(0.0);  // 0·NaN is NaN too
    qvarray::scale(x, nan);
    for (int i = 0; i < n; ++i) EXPECT_TRUE(std::isnan(std::real(x[i]))) << n << " " << i;
  }
  std::vector<double> v(60, 1.0);
  qvarray::scale(v, nan);
  for (double e : v) EXPECT_TRUE(std::isnan(e));
  Array<cplx, 1> z(60);
  z.fill(cplx(1, 1));
  qvarray::scale(z, cplx(nan, 0.0));
  for (const cplx& e : z) EXPECT_TRUE(std::isnan(e.real()) && std::isnan(e.imag()));
}

TYPED_TEST(VectorKernels, NormAgreesAcrossTheThreshold) {
  using T = TypeParam;
  qvtest::Rng rng;
  auto x = randomArray<T, 1>(rng, 51);
  x[50] = T(0.0);
  long double ref = 0;
  for (int i = 0; i < 50; ++i) ref += std::norm(wide(x[i]));
  ref = std::sqrt(ref);
  const double n50 = qvarray::norm(x.data, 50);  // plain sum
  const double n51 = qvarray::norm(x.data, 51);  // BLAS
  EXPECT_LT(relErr(n50, ref), 1e-15);
  EXPECT_LT(relErr(n51, ref), 1e-15);
  EXPECT_NEAR(n50, n51, 4 * std::numeric_limits<double>::epsilon() * n50);
  EXPECT_EQ(qvarray::norm(x), n51);
  EXPECT_EQ(qvarray::norm(Array<T, 1>()), 0.0);
}

TYPED_TEST(VectorKernels, CopyMovesOverlappingShortRunsAndKeepsTheTarget) {
  using T = TypeParam;
  qvtest::Rng rng;
  auto x = randomArray<T, 1>(rng, 20);
  const auto x0 = x;
  qvarray::copy(10, x.data, x.data + 5);  // overlapping short run: memory move
  for (int i = 0; i < 10; ++i) EXPECT_EQ(x[5 + i], x0[i]);

  for (int n : {7, 51, 300}) {
    auto src = randomArray<T, 1>(rng, n);
    auto dst = randomArray<T, 1>(rng, n + 4);
    const auto dst0 = dst;
    T* storage = dst.data;
    qvarray::copy(src, dst);
    EXPECT_EQ(dst.data, storage);
    EXPECT_EQ(dst.count, size_t(n + 4));
    for (int i = 0; i < n; ++i) EXPECT_EQ(dst[i], src[i]);
    for (int i = n; i < n + 4; ++i) EXPECT_EQ(dst[i], dst0[i]);
  }
  Array<T, 1> longer(5), shorter(4);
  expectThrowKey([&] { qvarray::copy(longer, shorter); }, kNumErr, "copy: y is shorter than x.");
}

TYPED_TEST(VectorKernels, ElementwiseLoopsAllowAliasing) {
  using T = TypeParam;
  qvtest::Rng rng;
  for (int n = 0; n <= 9; ++n) {  // every remainder of the unrolled loop
    auto x = randomArray<T, 1>(rng, n), y = randomArray<T, 1>(rng, n);
    const T a = rng.value<T>();
    Array<T, 1> out(n);
    qvarray::plus(n, x.data, a, out.data);
    for (int i = 0; i < n; ++i) EXPECT_EQ(out[i], x[i] + a);
    qvarray::minus(n, a, x.data, out.data);
    for (int i = 0; i < n; ++i) EXPECT_EQ(out[i], a - x[i]);
    qvarray::times(n, x.data, y.data, out.data);
    for (int i = 0; i < n; ++i) EXPECT_EQ(out[i], x[i] * y[i]);

    // in place: output = first input, = second input, and x·x into x
    auto p = x, m = x, t1 = x, t2 = y, sq = x;
    qvarray::plus(n, p.data, a, p.data);
    qvarray::minus(n, a, m.data, m.data);
    qvarray::times(n, t1.data, y.data, t1.data);
    qvarray::times(n, x.data, t2.data, t2.data);
    qvarray::times(n, sq.data, sq.data, sq.data);
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(p[i], x[i] + a);
      EXPECT_EQ(m[i], a - x[i]);
      EXPECT_EQ(t1[i], x[i] * y[i]);
      EXPECT_EQ(t2[i], x[i] * y[i]);
      EXPECT_EQ(sq[i], x[i] * x[i]);
    }
    if (n > 0) {  // the scalar itself inside the output run
      auto q = x;
      qvarray::plus(n, q.data, q[0], q.data);
      for (int i = 0; i < n; ++i) EXPECT_EQ(q[i], x[i] + x[0]);
    }
  }
}

TEST(VectorKernels, PowEdgeCases) {
  Array<double, 1> x(2);
  x[0] = 0.0;
  x[1] = 2.0;
  auto y = x;
  qvarray::pow(x, 0.0);
  EXPECT_EQ(x[0], 1.0);
  EXPECT_EQ(x[1], 1.0);
  qvarray::pow(y, -1.0);
  EXPECT_EQ(y[0], std::numeric_limits<double>::infinity());
  EXPECT_EQ(y[1], 0.5);
  double nan = std::numeric_limits<double>::quiet_NaN();
  qvarray::pow(&nan, 0.0, 1);
  EXPECT_EQ(nan, 1.0);
}

TEST(VectorKernels, PowFastPathsMatchStdPow) {
  qvtest::Rng rng;
  for (double p : {-1.0, 0.0, 1.0, 2.0, 3.0, 4.0, -2.0, 0.5, 2.5, 5.0}) {
    auto x = randomArray<double, 1>(rng, 13);
    for (auto& v : x) v *= 3.0;
    auto z = randomArray<cplx, 1>(rng, 13);
    z[0] = cplx(2.5, 0.0);   // real and positive: the real power
    z[1] = cplx(-8.0, 0.0);  // negative real: the complex power
    const auto x0 = x;
    const auto z0 = z;
    qvarray::pow(x, p);
    qvarray::pow(z, p);
    for (int i = 0; i < 13; ++i) {
      const double ref = std::pow(x0[i], p);
      if (std::isnan(ref)) EXPECT_TRUE(std::isnan(x[i])) << p;  // negative base, fractional p
      else EXPECT_LT(std::abs(x[i] - ref), 1e-14 * std::max(1.0, std::abs(ref))) << p << " " << i;
      const cplx zref = std::pow(z0[i], p);
      EXPECT_LT(std::abs(z[i] - zref), 1e-13 * std::max(1.0, std::abs(zref))) << p << " " << i;
    }
    EXPECT_EQ(z[0], cplx(std::pow(2.5, p), 0.0)) << p;
    // a complex exponent with zero imaginary part behaves as the real one
    auto w = z0;
    qvarray::pow(w, cplx(p, 0.0));
    for (int i = 0; i < 13; ++i) EXPECT_EQ(w[i], z[i]);
  }
  auto z = randomArray<cplx, 1>(rng, 9);
  const auto z0 = z;
  const cplx p(0.5, -1.25);
  qvarray::pow(z, p);
  for (int i = 0; i < 9; ++i) {
    const cplx ref = std::exp(p * std::log(z0[i]));
    EXPECT_LT(std::abs(z[i] - ref), 1e-14 * std::max(1.0, std::abs(ref)));
  }
}
