// Error function of a complex argument (no packaged library offers it).
// erf is odd, so z is taken to the right half-plane, x = Re z >= 0:
//
//   x < 3/2 or |z| <= 2   Taylor series  erf(z) = 2/sqrt(pi) sum_n (-1)^n z^{2n+1} / (n! (2n+1))
//                         (terms at most e^{|z|^2}, the value about e^{y^2-x^2}/|z|:
//                         the loss e^{x^2} |z| stays below 10 |z|)
//   otherwise             erf(z) = 1 - erfc(z) with Laplace's continued fraction
//                         erfc(z) = e^{-z^2} / (sqrt(pi) (z + (1/2)/(z + 1/(z + (3/2)/(z + ...)))))
//
// On the real axis the real form (the C library) answers, so that both forms
// agree there.
#include <cmath>
#include <limits>
#include <numbers>

#include "qvsf/qvsf.h"

namespace qvsf {
namespace {

using cplx = std::complex<double>;

constexpr double eps = std::numeric_limits<double>::epsilon();
constexpr int maxIterations = 100000;
const double twoOverSqrtPi = 2.0 * std::numbers::inv_sqrtpi;

cplx taylorErf(cplx z) {
  const cplx minusZ2 = -z * z;
  cplx power = z, sum = z;
  for (int n = 1; n < maxIterations; ++n) {
    power *= minusZ2 / double(n);
    const cplx term = power / (2.0 * n + 1.0);
    sum += term;
    if (std::abs(term) <= eps * std::abs(sum)) break;  // moduli: norms would overflow
  }
  return twoOverSqrtPi * sum;
}

// erfc(z) for Re z > 0, |z| > 2: the continued fraction by modified Lentz.
cplx fractionErfc(cplx z) {
  cplx f = z, C = z, D = 0.0;
  for (int k = 1; k < maxIterations; ++k) {
    const double a = 0.5 * k;
    D = 1.0 / (z + a * D);
    C = z + a / C;
    const cplx delta = C * D;
    f *= delta;
    if (std::norm(delta - 1.0) < eps * eps) break;
  }
  return std::exp(-z * z) * std::numbers::inv_sqrtpi / f;
}

}  // namespace

cplx qverf(cplx z) {
  if (z.imag() == 0.0) return qverf(z.real());
  if (!std::isfinite(z.real()) || !std::isfinite(z.imag()))
    return {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::quiet_NaN()};
  const bool flip = z.real() < 0.0;
  const cplx w = flip ? -z : z;
  const cplx value = (w.real() < 1.5 || std::abs(w) <= 2.0) ? taylorErf(w) : 1.0 - fractionErfc(w);
  return flip ? -value : value;
}

}  // namespace qvsf
