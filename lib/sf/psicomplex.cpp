// Polygamma functions of a complex argument (no packaged library offers
// them), psi^(n)(z) = d^n/dz^n psi(z), psi = psi^(0) = Gamma'/Gamma:
//
//   reflection (Re z < 1/2)          psi^(n)(z) = (-1)^n psi^(n)(1-z) - pi d^n/dz^n cot(pi z)
//   recurrence, to Re z >= R         psi^(n)(z) = psi^(n)(z+m) - (-1)^n n! sum_{k<m} (z+k)^{-n-1}
//   asymptotic series at Re z >= R   psi(z) ~ log z - 1/(2z) - sum_k B_2k / (2k z^2k)
//                                    psi^(n)(z) ~ (-1)^{n+1} [(n-1)!/z^n + n!/(2 z^{n+1})
//                                                 + sum_k B_2k (2k+n-1)! / ((2k)! z^{2k+n})]
// (DLMF 5.15.6, 5.15.5, 5.15.8, 5.15.9). R = 20 + n keeps the series' smallest term
// below double precision. On the real axis the real form (Boost.Math) answers.
#include <boost/math/special_functions/bernoulli.hpp>
#include <boost/math/special_functions/cos_pi.hpp>
#include <boost/math/special_functions/factorials.hpp>
#include <boost/math/special_functions/sin_pi.hpp>
#include <cmath>
#include <limits>
#include <numbers>

#include "policy.h"
#include "qvsf/qvsf.h"

namespace qvsf {
namespace {

using cplx = std::complex<double>;

constexpr double eps = std::numeric_limits<double>::epsilon();
constexpr int maxBernoulli = 60;

// The asymptotic series, for Re z >= 20 + n.
cplx asymptoticPsi(int n, cplx z) {
  const cplx zInv = 1.0 / z, zInv2 = zInv * zInv;
  if (n == 0) {
    cplx sum = std::log(z) - 0.5 * zInv, power = zInv2;
    for (int k = 1; k <= maxBernoulli; ++k, power *= zInv2) {
      const cplx term = boost::math::bernoulli_b2n<double>(k, detail::Policy()) / (2.0 * k) * power;
      sum -= term;
      if (std::abs(term) <= eps * std::abs(sum)) break;
    }
    return sum;
  }
  cplx zInvN = 1.0;  // z^-n
  for (int j = 0; j < n; ++j) zInvN *= zInv;
  const double nFact = boost::math::factorial<double>(n, detail::Policy());
  cplx sum = nFact / n * zInvN + 0.5 * nFact * zInvN * zInv;
  double c = 0.5 * nFact * (n + 1);  // (2k+n-1)! / (2k)! at k = 1
  cplx power = zInvN * zInv2;
  for (int k = 1; k <= maxBernoulli; ++k, power *= zInv2) {
    const cplx term = boost::math::bernoulli_b2n<double>(k, detail::Policy()) * c * power;
    sum += term;
    if (std::abs(term) <= eps * std::abs(sum)) break;
    c *= double(2 * k + n) * (2 * k + n + 1) / ((2.0 * k + 1) * (2 * k + 2));
  }
  return n % 2 ? sum : -sum;
}

// psi^(n)(z) by the recurrence up to Re z >= 20 + n, then the series.
cplx shiftedPsi(int n, cplx z) {
  const double target = 20.0 + n;
  const double sign = n % 2 ? -1.0 : 1.0;  // (-1)^n
  cplx correction = 0.0;
  for (; z.real() < target; z += 1.0) {
    cplx power = 1.0 / z;
    for (int j = 0; j < n; ++j) power /= z;
    correction += power;
  }
  const double scale = n == 0 ? 1.0 : boost::math::factorial<double>(n, detail::Policy());
  return asymptoticPsi(n, z) - sign * scale * correction;
}

// d^n/dz^n of pi cot(pi z) for Im z > 0, through q = e^{2 pi i z} (|q| < 1):
//   cot(pi z) = -i (1 + q) / (1 - q) = -i (1 + 2 sum_{k>=1} q^k),
//   n >= 1:  d^n/dz^n cot(pi z) = -2i sum_{k>=1} (2 pi i k)^n q^k
// (no overflow for large Im z; the sum is used for Im z >= 1, |q| <= e^{-2 pi}).
cplx piCotPiDerivative(int n, cplx z) {
  const double decay = std::exp(-2.0 * std::numbers::pi * z.imag());
  const cplx q(decay * boost::math::cos_pi(2.0 * z.real(), detail::Policy()),
               decay * boost::math::sin_pi(2.0 * z.real(), detail::Policy()));
  const cplx minusI(0.0, -1.0);
  if (n == 0) {
    // 1 - q without cancellation near the poles (q -> 1): with a = -2 pi y,
    // Re(1 - q) = 2 sin^2(pi x) - expm1(a) cos(2 pi x).
    const double s = boost::math::sin_pi(z.real(), detail::Policy());
    const double em1 = std::expm1(-2.0 * std::numbers::pi * z.imag());
    const cplx oneMinusQ(2.0 * s * s - em1 * q.real() / decay, -q.imag());
    return std::numbers::pi * minusI * (2.0 - oneMinusQ) / oneMinusQ;
  }
  cplx sum = 0.0, qk = 1.0;
  for (int k = 1; k < 1000; ++k) {
    qk *= q;
    cplx term = qk;
    const cplx factor(0.0, 2.0 * std::numbers::pi * k);
    for (int j = 0; j < n; ++j) term *= factor;
    sum += term;
    if (std::abs(term) <= eps * std::abs(sum)) break;
  }
  return std::numbers::pi * 2.0 * minusI * sum;
}

}  // namespace

// Below the real axis by symmetry, psi^(n)(conj z) = conj psi^(n)(z). The
// reflection psi^(n)(z) = (-1)^n psi^(n)(1-z) - pi d^n/dz^n cot(pi z) serves
// Re z < 1/2 where the recurrence would cancel: always for n = 0, for n >= 1
// at Im z >= 1 (closer to the real axis the poles' terms dominate the sum).
cplx qvpsi(int order, cplx z) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  if (z.imag() == 0.0) return qvpsi(order, z.real());
  if (order < 0 || !std::isfinite(z.real()) || !std::isfinite(z.imag())) return {nan, nan};
  if (z.imag() < 0.0) return std::conj(qvpsi(order, std::conj(z)));
  if (z.real() < 0.5 && (order == 0 || z.imag() >= 1.0)) {
    const double sign = order % 2 ? -1.0 : 1.0;
    return sign * shiftedPsi(order, 1.0 - z) - piCotPiDerivative(order, z);
  }
  return shiftedPsi(order, z);
}

}  // namespace qvsf
