// Gamma function of a complex argument (no packaged library offers it), by
// Lanczos' approximation with g = 7 and nine terms (C. Lanczos, SIAM J.
// Numer. Anal. B1 (1964) 86; coefficients of P. Godfrey):
//
//   Gamma(w+1) = sqrt(2 pi) t^{w+1/2} e^{-t} A(w),   t = w + g + 1/2,
//   A(w) = p_0 + sum_{k=1..8} p_k / (w + k)                     Re w >= -1/2
//
// and for Re z < 1/2 the reflection Gamma(z) = pi / (sin(pi z) Gamma(1-z)).
// On the real axis the real form (Boost.Math) answers, so that both forms
// agree there.
#include <boost/math/special_functions/cos_pi.hpp>
#include <boost/math/special_functions/sin_pi.hpp>
#include <cmath>
#include <limits>
#include <numbers>

#include "policy.h"
#include "qvsf/qvsf.h"

namespace qvsf {
namespace {

using cplx = std::complex<double>;
using std::numbers::pi;

constexpr double lanczosG = 7.0;
constexpr double lanczosP[9] = {0.99999999999980993,  676.5203681218851,     -1259.1392167224028,
                                771.32342877765313,   -176.61502916214059,   12.507343278686905,
                                -0.13857109526572012, 9.9843695780195716e-6, 1.5056327351493116e-7};

// Gamma(z) for Re z >= 1/2.
cplx lanczosGamma(cplx z) {
  const cplx w = z - 1.0;
  cplx a = lanczosP[0];
  for (int k = 1; k < 9; ++k) a += lanczosP[k] / (w + double(k));
  const cplx t = w + lanczosG + 0.5;
  return std::sqrt(2.0 * pi) * std::exp((w + 0.5) * std::log(t) - t) * a;
}

// sin(pi z) = sin(pi x) cosh(pi y) + i cos(pi x) sinh(pi y), exact zeros at
// the integers.
cplx sinPi(cplx z) {
  const double x = z.real(), y = pi * z.imag();
  return {boost::math::sin_pi(x, detail::Policy()) * std::cosh(y),
          boost::math::cos_pi(x, detail::Policy()) * std::sinh(y)};
}

}  // namespace

cplx qvgamma(cplx z) {
  if (z.imag() == 0.0) return qvgamma(z.real());
  if (!std::isfinite(z.real()) || !std::isfinite(z.imag()))
    return {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN()};
  if (z.real() >= 0.5) return lanczosGamma(z);
  return pi / (sinPi(z) * lanczosGamma(1.0 - z));
}

}  // namespace qvsf
