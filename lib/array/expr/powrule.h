#pragma once
// The power rule shared by "^" (PowFun) and the constant power (ConstPowFun):
//   code 2 when a < 0 and b is not an integer; else code 4 when a == 0 and b < 0;
//   the value is stored in any case: b == 2 gives a*a, b == 1 gives a,
//   b == 0 gives 1 (also for a == 0), any other b the 1-ulp vector pow.
#include <cmath>
#include <complex>
#include <utility>
#include <cstddef>

#include "vecmath.h"

namespace qvarray::evalfun {

// Whether b is an integer (infinities are, NaN is not), without the libm call
// that trunc is on the x86-64 baseline: every double of magnitude 2^52 or
// more is an integer, every smaller one converts to a 64-bit integer exactly.
inline bool isInteger(double b) {
  if (!(std::fabs(b) < 0x1p52)) return b == b;
  return b == static_cast<double>(static_cast<long long>(b));
}

inline unsigned powCode(double a, double b) {
  if (a < 0.0 && !isInteger(b)) return 2;
  if (a == 0.0 && b < 0.0) return 4;
  return 0;
}

inline double powSpecial(double a, double b, double general) {
  if (b == 2.0) return a * a;
  if (b == 1.0) return a;
  if (b == 0.0) return 1.0;
  return general;
}

/// out[i] = a[i*sa] ^ b[i*sb] for i < n (strides 0 or 1; out may be a or b);
/// returns the largest code.
inline unsigned powArray(const double* a, std::ptrdiff_t sa, const double* b, std::ptrdiff_t sb,
                         double* out, std::size_t n) {
  // One exponent of the special values (x^2 above all): the rule's own
  // values, without the vector pow whose result the rule would discard.
  // These exponents give code 0 for every base.
  if (sb == 0 && sa == 1 && (*b == 2.0 || *b == 1.0 || *b == 0.0)) {
    const double e = *b;
    // omp simd: out may be a, element by element.
    if (e == 2.0) {
#pragma omp simd
      for (std::size_t i = 0; i < n; ++i) out[i] = a[i] * a[i];
    } else if (e == 1.0) {
#pragma omp simd
      for (std::size_t i = 0; i < n; ++i) out[i] = a[i];
    } else {
#pragma omp simd
      for (std::size_t i = 0; i < n; ++i) out[i] = 1.0;
    }
    return 0;
  }
  constexpr std::size_t kChunk = 256;
  double general[kChunk];
  unsigned code = 0;
  for (std::size_t i = 0; i < n; i += kChunk) {
    std::size_t m = n - i < kChunk ? n - i : kChunk;
    const double* ai = a + i * sa;
    const double* bi = b + i * sb;
    vecmath::kernels().pow(ai, sa, bi, sb, general, m);
    for (std::size_t k = 0; k < m; ++k) {
      double av = ai[k * sa], bv = bi[k * sb];
      unsigned c = powCode(av, bv);
      code = c > code ? c : code;
      out[i + k] = powSpecial(av, bv, general[k]);
    }
  }
  return code;
}

/// The complex power. Real operands whose real power exists take the real
/// rule (so a real value stored as complex has the real bits); an integer
/// exponent of modest size is exact repeated squaring ((-8)^3 = -512 exactly);
/// otherwise exp(b log a). Code 4 for 0 to an exponent of negative real part.
inline std::pair<unsigned, std::complex<double>> powComplex(std::complex<double> a,
                                                             std::complex<double> b) {
  unsigned code = (a == 0.0 && b.real() < 0.0) ? 4 : 0;
  if (a.imag() == 0.0 && b.imag() == 0.0 && powCode(a.real(), b.real()) != 2)
    return {code, powSpecial(a.real(), b.real(), vecmath::pow(a.real(), b.real()))};
  if (b.imag() == 0.0 && std::fabs(b.real()) <= 1024 && isInteger(b.real())) {
    long long k = static_cast<long long>(std::fabs(b.real()));
    std::complex<double> r = 1.0, f = a;
    for (; k; k >>= 1, f *= f)
      if (k & 1) r *= f;
    return {code, b.real() < 0 ? 1.0 / r : r};
  }
  if (b == 0.0) return {code, 1.0};
  return {code, std::pow(a, b)};
}

}  // namespace qvarray::evalfun
