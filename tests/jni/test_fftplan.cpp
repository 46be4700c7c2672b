// FFTPlan against the definition (a direct DFT in long double) on small
// sizes of every rank, and against the transform's algebra on larger ones:
// linearity, the shift theorem and Parseval's identity (Ergün's randomized
// checks), each to 10·ε·log2(N) relative to the norms involved. Real
// transforms against the complex one, backward against forward, and the
// plan's variants (unaligned, in place, concurrent) against the plain run.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "qvarray/jni/fftplan.h"
#include "qvtest.h"

namespace {

using dcomplex = std::complex<double>;
using Kind = FFTPlan::Kind;
using Dir = FFTPlan::Direction;
using Sizes = std::vector<size_t>;

size_t countOf(const Sizes& s) {
  size_t n = 1;
  for (size_t d : s) n *= d;
  return n;
}

double tolerance(size_t n) {
  return 10 * std::numeric_limits<double>::epsilon() * std::max(1.0, std::log2(double(n)));
}

std::vector<dcomplex> randomComplex(size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::normal_distribution<double> g;
  std::vector<dcomplex> x(n);
  for (auto& v : x) v = dcomplex(g(gen), g(gen));
  return x;
}

double norm(const std::vector<dcomplex>& x) {
  double s = 0;
  for (auto v : x) s += std::norm(v);
  return std::sqrt(s);
}

// ‖a − b‖ / ‖b‖.
double relErr(const std::vector<dcomplex>& a, const std::vector<dcomplex>& b) {
  double s = 0;
  for (size_t k = 0; k < a.size(); ++k) s += std::norm(a[k] - b[k]);
  return std::sqrt(s) / norm(b);
}

std::vector<dcomplex> fft(const Sizes& s, Dir dir, const std::vector<dcomplex>& x) {
  FFTPlan plan(Kind::Complex, dir, s);
  std::vector<dcomplex> y(x.size());
  plan.execute(x.data(), y.data());
  return y;
}

// The definition, summed in long double; column-major multi-indices.
std::vector<dcomplex> directDft(const Sizes& s, Dir dir, const std::vector<dcomplex>& x) {
  const size_t n0 = s[0], n1 = s.size() > 1 ? s[1] : 1, n2 = s.size() > 2 ? s[2] : 1;
  const long double sign = dir == Dir::Forward ? -1 : 1, tau = 2 * std::numbers::pi_v<long double>;
  std::vector<dcomplex> y(x.size());
  for (size_t k2 = 0; k2 < n2; ++k2)
    for (size_t k1 = 0; k1 < n1; ++k1)
      for (size_t k0 = 0; k0 < n0; ++k0) {
        std::complex<long double> acc = 0;
        for (size_t j2 = 0; j2 < n2; ++j2)
          for (size_t j1 = 0; j1 < n1; ++j1)
            for (size_t j0 = 0; j0 < n0; ++j0) {
              const long double phase =
                  sign * tau *
                  ((long double)(j0 * k0 % n0) / n0 + (long double)(j1 * k1 % n1) / n1 +
                   (long double)(j2 * k2 % n2) / n2);
              const dcomplex v = x[j0 + n0 * (j1 + n1 * j2)];
              acc += std::complex<long double>(v.real(), v.imag()) *
                     std::complex<long double>(std::cos(phase), std::sin(phase));
            }
        y[k0 + n0 * (k1 + n1 * k2)] = dcomplex(double(acc.real()), double(acc.imag()));
      }
  return y;
}

const std::vector<Sizes> kSmall = {{1}, {2}, {3}, {5}, {8}, {12}, {17}, {64},
                                   {4, 6}, {5, 3}, {1, 7}, {3, 4, 5}, {2, 1, 7}};
const std::vector<Sizes> kLarge = {{1024}, {1000}, {4099}, {64, 48}, {16, 12, 10}};

TEST(FFTPlan, MatchesDirectDft) {
  for (const Sizes& s : kSmall)
    for (Dir dir : {Dir::Forward, Dir::Backward}) {
      const auto x = randomComplex(countOf(s), 1);
      EXPECT_LE(relErr(fft(s, dir, x), directDft(s, dir, x)), tolerance(countOf(s)))
          << "rank " << s.size() << " size " << s[0];
    }
}

TEST(FFTPlan, RandomizedChecks) {
  for (const Sizes& s : kLarge) {
    const size_t n = countOf(s);
    const double tol = tolerance(n);
    const auto x = randomComplex(n, 2), y = randomComplex(n, 3);
    const auto X = fft(s, Dir::Forward, x), Y = fft(s, Dir::Forward, y);

    // Linearity: F(a·x + y) = a·F(x) + F(y).
    const dcomplex a(0.75, -1.25);
    std::vector<dcomplex> axy(n), aXY(n);
    for (size_t k = 0; k < n; ++k) {
      axy[k] = a * x[k] + y[k];
      aXY[k] = a * X[k] + Y[k];
    }
    EXPECT_LE(relErr(fft(s, Dir::Forward, axy), aXY), tol) << "linearity, N = " << n;

    // Shift along the first dimension by t: F(x(· − t))[k] = F(x)[k]·ω^(k0·t).
    const size_t n0 = s[0], t = n0 / 3 + 1;
    std::vector<dcomplex> shifted(n), phased(n);
    for (size_t k = 0; k < n; ++k) {
      const size_t k0 = k % n0, rest = k - k0;
      shifted[rest + (k0 + t) % n0] = x[k];
      const double phase = -2 * std::numbers::pi * double(k0 * t % n0) / double(n0);
      phased[k] = X[k] * std::polar(1.0, phase);
    }
    EXPECT_LE(relErr(fft(s, Dir::Forward, shifted), phased), tol) << "shift, N = " << n;

    // Parseval: ‖F(x)‖² = N‖x‖².
    EXPECT_NEAR(norm(X), std::sqrt(double(n)) * norm(x), tol * norm(X)) << "Parseval, N = " << n;

    // Backward undoes forward up to the factor N.
    auto back = fft(s, Dir::Backward, X);
    for (auto& v : back) v /= double(n);
    EXPECT_LE(relErr(back, x), tol) << "inverse, N = " << n;
  }
}

// Real input: the first n0/2 + 1 rows of the complex transform, and back.
TEST(FFTPlan, RealTransforms) {
  for (const Sizes& s : {Sizes{9}, Sizes{16}, Sizes{7, 4}, Sizes{6, 5, 3}}) {
    const size_t n = countOf(s), h0 = s[0] / 2 + 1;
    std::vector<double> x(n);
    std::vector<dcomplex> xc(n);
    const auto r = randomComplex(n, 4);
    for (size_t k = 0; k < n; ++k) xc[k] = x[k] = r[k].real();
    const auto X = fft(s, Dir::Forward, xc);

    FFTPlan r2c(Kind::RealToComplex, Dir::Forward, s);
    ASSERT_EQ(r2c.outputCount(), n / s[0] * h0);
    std::vector<dcomplex> half(r2c.outputCount()), expect;
    r2c.execute(x.data(), half.data());
    for (size_t k = 0; k < n; ++k)
      if (k % s[0] < h0) expect.push_back(X[k]);
    EXPECT_LE(relErr(half, expect), tolerance(n));

    FFTPlan c2r(Kind::ComplexToReal, Dir::Backward, s);
    std::vector<double> back(n);
    c2r.execute(half.data(), back.data());  // overwrites half
    double err = 0, ref = 0;
    for (size_t k = 0; k < n; ++k) {
      err += std::pow(back[k] / double(n) - x[k], 2);
      ref += x[k] * x[k];
    }
    EXPECT_LE(std::sqrt(err / ref), tolerance(n));
  }
}

// The same transform on arrays off the SIMD alignment, in place and through
// Arrays, and bit for bit from several threads at once on one plan.
TEST(FFTPlan, VariantsAgree) {
  const Sizes s = {24, 10};
  const size_t n = countOf(s);
  const FFTPlan plan(Kind::Complex, Dir::Forward, s);
  const auto x = randomComplex(n, 5);
  std::vector<dcomplex> ref(n);
  plan.execute(x.data(), ref.data());

  // Complex values starting 8 bytes into a buffer: not 16-byte aligned.
  std::vector<double> in(2 * n + 1), out(2 * n + 1);
  std::copy_n(reinterpret_cast<const double*>(x.data()), 2 * n, in.data() + 1);
  plan.execute(reinterpret_cast<const dcomplex*>(in.data() + 1),
               reinterpret_cast<dcomplex*>(out.data() + 1));
  EXPECT_LE(relErr(std::vector<dcomplex>(reinterpret_cast<dcomplex*>(out.data() + 1),
                                         reinterpret_cast<dcomplex*>(out.data() + 1) + n),
                   ref),
            tolerance(n));

  auto inPlace = x;
  plan.execute(inPlace.data(), inPlace.data());
  EXPECT_LE(relErr(inPlace, ref), tolerance(n));

  Array<dcomplex, 2> a(24, 10), b;
  std::copy(x.begin(), x.end(), a.data);
  plan.execute(a, b);
  EXPECT_LE(relErr(std::vector<dcomplex>(b.begin(), b.end()), ref), tolerance(n));

  // Threads racing to make the in-place variant of a fresh plan.
  const FFTPlan fresh(Kind::Complex, Dir::Forward, s);
  std::vector<std::vector<dcomplex>> outs(8, x);
#pragma omp parallel for num_threads(4)
  for (int t = 0; t < 8; ++t) fresh.execute(outs[t].data(), outs[t].data());
  for (const auto& o : outs) EXPECT_TRUE(o == inPlace);
}

TEST(FFTPlan, Wisdom) {
  { FFTPlan measured(Kind::Complex, Dir::Forward, {32}, FFTPlan::Rigor::Measure); }
  const std::string wisdom = FFTPlan::exportWisdom();
  EXPECT_NE(wisdom.find("fftw"), std::string::npos);
  FFTPlan::forgetWisdom();
  EXPECT_TRUE(FFTPlan::importWisdom(wisdom));
  EXPECT_FALSE(FFTPlan::importWisdom("not wisdom"));
}

TEST(FFTPlan, Errors) {
  const FFTPlan plan(Kind::RealToComplex, Dir::Forward, {8, 3});
  Array<double, 2> x(8, 3), wrong(7, 3);
  Array<dcomplex, 2> y;
  Array<dcomplex, 1> y1;
  Array<double, 1> x1(8);
  x.fill(1.0);
  plan.execute(x, y);
  EXPECT_EQ(y.sizes[0], 5u);
  const dcomplex y00 = y(0, 0);
  struct Case {
    const char* key;
    std::function<void()> call;
  };
  const std::vector<Case> cases = {
      {"Invalid_FFT_size", [] { FFTPlan(Kind::Complex, Dir::Forward, {}); }},
      {"Invalid_FFT_size", [] { FFTPlan(Kind::Complex, Dir::Forward, {2, 2, 2, 2}); }},
      {"Invalid_FFT_size", [] { FFTPlan(Kind::Complex, Dir::Forward, {4, 0}); }},
      {"Invalid_FFT_size", [] { FFTPlan(Kind::Complex, Dir::Forward, {1u << 16, 1u << 16}); }},
      {"FFT_size_mismatch", [&] { plan.execute(wrong, y); }},
      {"FFT_size_mismatch", [&] { plan.execute(x1, y1); }},
      {"FFT_size_mismatch", [&] { plan.execute(y.data, y.data); }},
      {"FFT_size_mismatch",
       [&] { plan.execute(x.data, reinterpret_cast<dcomplex*>(x.data)); }},
  };
  for (const Case& c : cases) EXPECT_EQ(qvtest::expectThrowKey(c.call, c.key).module(), "fftplan");
  EXPECT_EQ(y(0, 0), y00);  // nothing written
}

}  // namespace
