// Level-1 and elementwise kernels against naive long-double loops, on both
// sides of the 50-element BLAS threshold, and against the direct BLAS call
// where the result is BLAS's.
#include <cblas.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

using namespace qvtest;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";
const int kLengths[] = {0, 1, 5, 50, 51, 1000};
const double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
class VectorKernels : public ::testing::Test {};
TYPED_TEST_SUITE(VectorKernels, ScalarTypes);

// The dot products of one type; the real ones take no selector.
template <class T, class... A>
T dotOf(Trans_t t, const A&... a) {
  if constexpr (isComplex<T>)
    return qvarray::dot(a..., t);
  else
    return qvarray::dot(a...);
}

}  // namespace

// On real data the complex-only forms (complex factor, real x into complex y)
// resolve to the real kernels and are simply checked twice.
TYPED_TEST(VectorKernels, DotAxpyAndScaleAgainstWideLoops) {
  using T = TypeParam;
  Rng rng;
  for (int n : kLengths) {
    const auto x = randomVector<T>(n, rng), y = randomVector<T>(n, rng);
    const auto xr = randomVector<double>(n, rng);
    const T a = rng.value<T>();
    Array<T, 2> X(size_t(n), 1), Y(size_t(n), 1);  // the same values as matrices
    std::copy(x.begin(), x.end(), X.begin());
    std::copy(y.begin(), y.end(), Y.begin());
    for (Trans_t t : {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans}) {
      Wide<T> ref = 0;
      for (int i = 0; i < n; ++i)
        ref += (t == qvarray::ConjTrans ? conjOf(wide(x[i])) : wide(x[i])) * wide(y[i]);
      EXPECT_LT(relErr(dotOf<T>(t, x.data, y.data, n), ref), 1e-14) << n << " " << t;
      EXPECT_LT(relErr(dotOf<T>(t, x, y), ref), 1e-14) << n << " " << t;
      EXPECT_LT(relErr(dotOf<T>(t, X, Y), ref), 1e-14) << n << " " << t;
    }
    auto axpy = y, mixed = y, byReal = x, byT = x;
    qvarray::yPlusaMulx(axpy, a, x);
    qvarray::yPlusaMulx(mixed, a, xr);
    qvarray::scale(byReal, -1.75);
    qvarray::scale(byT, a);
    for (int i = 0; i < n; ++i) {
      EXPECT_LT(relErr(axpy[i], wide(y[i]) + wide(a) * wide(x[i])), 1e-15) << n << " " << i;
      EXPECT_LT(relErr(mixed[i], wide(y[i]) + wide(a) * wide(xr[i])), 1e-15) << n << " " << i;
      EXPECT_LT(relErr(byReal[i], -1.75L * wide(x[i])), 1e-15) << n << " " << i;
      EXPECT_LT(relErr(byT[i], wide(a) * wide(x[i])), 1e-15) << n << " " << i;
    }
  }
  std::vector<double> v(60, 2.0);
  qvarray::scale(v, 0.25);
  for (double e : v) EXPECT_EQ(e, 0.5);
  for (int n : {0, 3, 51, 200000}) {  // the longest run is large enough for BLAS threads
    const auto y0 = randomVector<T>(n, rng);
    const T a = rng.value<T>();
    auto y = y0;
    qvarray::yPlusa(y, a);
    for (int i = 0; i < n; ++i) ASSERT_EQ(y[i], y0[i] + a) << i;
  }
  Array<T, 1> x3(3), x4(4), x5(5);
  Array<double, 1> xr3(3);
  Array<T, 2> a79(7, 9), a78(7, 8);
  const char* dot = "dot: x and y does not have the same length.";
  const char* axpy = isComplex<T> ? "yPlusaMulx: y and x does not have the same length."
                                  : "yPlusaMulx: x and y does not have the same length.";
  expectThrowsAll(kNumErr, {{[&] { dotOf<T>(qvarray::ConjTrans, x3, x4); }, dot},
                            {[&] { dotOf<T>(qvarray::NoTrans, a79, a78); }, dot},
                            {[&] { qvarray::yPlusaMulx(x4, T(1), x3); }, axpy},
                            {[&] { qvarray::yPlusaMulx(x4, T(1), xr3); }, axpy},
                            {[&] { qvarray::copy(x5, x4); }, "copy: y is shorter than x."}});
}

TYPED_TEST(VectorKernels, ScaleByNaNGivesNaNEverywhere) {
  using T = TypeParam;
  for (int n : {10, 60}) {
    Array<T, 1> x(n);
    x.fill(T(1.0));
    x[0] = T(0.0);  // 0·NaN is NaN too
    auto z = x;
    qvarray::scale(x, kNaN);
    qvarray::scale(z, T(kNaN));  // complex: NaN real part, zero imaginary part
    for (int i = 0; i < n; ++i) {
      EXPECT_TRUE(std::isnan(std::real(x[i]))) << n << " " << i;
      EXPECT_TRUE(std::isnan(std::real(z[i])) && std::isnan(std::imag(z[i])) == isComplex<T>);
    }
  }
  std::vector<double> w(60, 1.0);
  qvarray::scale(w, kNaN);
  for (double e : w) EXPECT_TRUE(std::isnan(e));
}

TYPED_TEST(VectorKernels, NormAgreesAcrossTheThreshold) {
  using T = TypeParam;
  Rng rng;
  auto x = randomVector<T>(61, rng);
  x[50] = T(0.0);
  long double ref = 0;
  for (int n = 1; n <= 50; ++n) {  // plain sums of every length
    ref += std::norm(wide(x[n - 1]));
    EXPECT_LT(relErr(qvarray::norm(x.data, n), std::sqrt(ref)), 1e-15) << n;
  }
  const double n50 = qvarray::norm(x.data, 50);  // plain sum
  const double n51 = qvarray::norm(x.data, 51);  // BLAS
  EXPECT_NEAR(n50, n51, 4 * kEps * n50);
  EXPECT_EQ(qvarray::norm(x.data, 61), qvarray::norm(x));
  EXPECT_EQ(qvarray::norm(Array<T, 1>()), 0.0);
  for (int n : {10, 61}) {  // NaN and infinity propagate on both sides
    auto z = x;
    z[3] = T(kNaN);
    EXPECT_TRUE(std::isnan(qvarray::norm(z.data, n))) << n;
    z[3] = T(std::numeric_limits<double>::infinity());
    EXPECT_EQ(qvarray::norm(z.data, n), std::numeric_limits<double>::infinity()) << n;
  }
  auto big = x;  // above the threshold the sum is scaled: no overflow
  for (auto& v : big) v *= 1e200;
  EXPECT_LT(relErr(qvarray::norm(big) / 1e200, wide(qvarray::norm(x))), 1e-14);
}

// dot and yPlusaMulx promise BLAS's result, and scale above 50 elements
// dscal's: the bits of the direct call at every length, whichever way the
// library computes them. Magnitudes spread over 2^±20, so that any other order
// of the additions shows in the last bits.
TEST(VectorKernels, RealKernelsGiveTheBitsOfBlas) {
  Rng rng;
  const auto spread = [&](int n) {
    Array<double, 1> v(static_cast<size_t>(n));
    for (double& e : v) e = std::ldexp(rng.real(), static_cast<int>(20 * rng.real()));
    return v;
  };
  const auto same = [](const Array<double, 1>& a, const Array<double, 1>& b) {
    return a.count == 0 || std::memcmp(a.data, b.data, sizeof(double) * a.count) == 0;
  };
  std::vector<int> lengths;
  for (int n = 0; n <= 70; ++n) lengths.push_back(n);
  lengths.insert(lengths.end(), {100, 255, 1000, 4096, 4097, 20000});
  for (int n : lengths) {
    const auto x = spread(n), y = spread(n);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(qvarray::dot(x, y)),
              std::bit_cast<std::uint64_t>(cblas_ddot(n, x.data, 1, y.data, 1))) << n;
    for (double a : {rng.real(), 0.0}) {
      auto ours = y, theirs = y;
      qvarray::yPlusaMulx(ours, a, x);
      cblas_daxpy(n, a, x.data, 1, theirs.data, 1);
      EXPECT_TRUE(same(ours, theirs)) << n << " " << a;
      if (n <= 50) continue;  // below, scale is the library's own loop
      ours = x, theirs = x;
      qvarray::scale(ours, a);
      cblas_dscal(n, a, theirs.data, 1);
      EXPECT_TRUE(same(ours, theirs)) << n << " " << a;
    }
  }
  for (int n : {10, 60}) {  // a zero factor does not read x, as in BLAS
    auto x = spread(n), y = spread(n);
    x[1] = kNaN;
    const auto y0 = y;
    qvarray::yPlusaMulx(y, 0.0, x);
    EXPECT_TRUE(same(y, y0)) << n;
  }
}

TYPED_TEST(VectorKernels, CopyMovesOverlappingRunsAndKeepsTheTarget) {
  using T = TypeParam;
  Rng rng;
  for (int n : {10, 300}) {  // overlapping runs, either side of 50 elements
    auto x = randomVector<T>(n + 5, rng);
    const auto x0 = x;
    qvarray::copy(n, x.data, x.data + 5);
    for (int i = 0; i < n; ++i) ASSERT_EQ(x[5 + i], x0[i]) << n << " " << i;
  }
  for (int n : {7, 51, 300}) {
    const auto src = randomVector<T>(n, rng), dst0 = randomVector<T>(n + 4, rng);
    auto dst = dst0;
    const T* storage = dst.data;
    qvarray::copy(src, dst);
    EXPECT_EQ(dst.data, storage);
    EXPECT_EQ(dst.count, size_t(n + 4));
    for (int i = 0; i < n + 4; ++i) EXPECT_EQ(dst[i], i < n ? src[i] : dst0[i]);
  }
}

TYPED_TEST(VectorKernels, ElementwiseLoopsAllowAliasing) {
  using T = TypeParam;
  Rng rng;
  for (int n = 0; n <= 9; ++n) {  // every remainder of the unrolled loop
    const auto x = randomVector<T>(n, rng), y = randomVector<T>(n, rng);
    const T a = rng.value<T>();
    Array<T, 1> p(n), m(n), t(n);
    qvarray::plus(n, x.data, a, p.data);
    qvarray::minus(n, a, x.data, m.data);
    qvarray::times(n, x.data, y.data, t.data);
    // in place: output = first input, = second input, and x·x into x
    auto pi = x, mi = x, t1 = x, t2 = y, sq = x, q = x;
    qvarray::plus(n, pi.data, a, pi.data);
    qvarray::minus(n, a, mi.data, mi.data);
    qvarray::times(n, t1.data, y.data, t1.data);
    qvarray::times(n, x.data, t2.data, t2.data);
    qvarray::times(n, sq.data, sq.data, sq.data);
    if (n > 0) qvarray::plus(n, q.data, q[0], q.data);  // the scalar inside the output run
    for (int i = 0; i < n; ++i) {
      EXPECT_TRUE(p[i] == x[i] + a && pi[i] == p[i]) << n << " " << i;
      EXPECT_TRUE(m[i] == a - x[i] && mi[i] == m[i]) << n << " " << i;
      EXPECT_TRUE(t[i] == x[i] * y[i] && t1[i] == t[i] && t2[i] == t[i]) << n << " " << i;
      EXPECT_EQ(sq[i], x[i] * x[i]);
      EXPECT_EQ(q[i], x[i] + x[0]);
    }
  }
}

TEST(VectorKernels, PowFastPathsMatchStdPow) {
  Rng rng;
  auto near = [](auto got, auto ref, double tol) {
    return std::abs(got - ref) < tol * std::max(1.0, std::abs(ref));
  };
  for (double p : {-1.0, 0.0, 1.0, 2.0, 3.0, 4.0, -2.0, 0.5, 2.5, 5.0}) {
    auto x = randomVector<double>(13, rng);
    for (auto& v : x) v *= 3.0;
    x[0] = 0.0;   // 0^0 = 1, 0^−1 = ∞
    x[1] = kNaN;  // NaN^0 = 1
    auto z = randomVector<dcomplex>(13, rng);
    z[0] = 2.5;   // real and positive: the real power
    z[1] = -8.0;  // negative real: the complex power
    const auto x0 = x;
    const auto z0 = z;
    auto w = z0;
    qvarray::pow(x, p);
    qvarray::pow(z, p);
    qvarray::pow(w, dcomplex(p, 0.0));  // a zero imaginary part behaves as the real exponent
    for (int i = 0; i < 13; ++i) {
      const double ref = std::pow(x0[i], p);
      // NaN from a negative base with a fractional p, or from a NaN base
      const bool bothNaN = std::isnan(ref) && std::isnan(x[i]);
      EXPECT_TRUE(x[i] == ref || near(x[i], ref, 1e-14) || bothNaN) << p << " " << i << " " << x[i];
      EXPECT_TRUE(near(z[i], std::pow(z0[i], p), 1e-13)) << p << " " << i;
      EXPECT_EQ(w[i], z[i]);
    }
    EXPECT_EQ(z[0], dcomplex(std::pow(2.5, p), 0.0)) << p;
  }
  auto z = randomVector<dcomplex>(9, rng);
  const auto z0 = z;
  const dcomplex p(0.5, -1.25);
  qvarray::pow(z, p);
  for (int i = 0; i < 9; ++i) EXPECT_TRUE(near(z[i], std::exp(p * std::log(z0[i])), 1e-14));
}
