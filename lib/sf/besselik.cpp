// I_nu(z) and K_nu(z) for nu >= 0 in the right half-plane; regions and
// methods are listed in besselik.h. References: N. M. Temme, J. Comput.
// Phys. 19 (1975) 324 (series and continued fraction for K); W. J. Thompson
// and A. R. Barnett, J. Comput. Phys. 64 (1986) 490 (Steed's algorithm);
// DLMF 10.25.2, 10.29.1, 10.28.2, 10.40.2, 10.40.5.
#include "besselik.h"

#include <boost/math/special_functions/gamma.hpp>
#include <cmath>
#include <limits>
#include <numbers>

#include "policy.h"

namespace qvsf::detail {
namespace {

using cplx = std::complex<double>;
using std::numbers::pi;

constexpr double eps = std::numeric_limits<double>::epsilon();
// Convergence tests compare squared moduli (std::norm): no square roots.
constexpr double eps2 = eps * eps;
// Bounds every loop; the longest converging one, the ratio of I at |z| just
// below nu^2/4 for nu = 1000, needs about 250000 terms.
constexpr int maxIterations = 1000000;
// Below this |z| the power and Temme series; above it the continued fractions.
constexpr double seriesRadius = 2.0;

// |z| from which Hankel's expansions are used for order nu.
double asymptoticRadius(double nu) { return std::max(25.0, 0.25 * nu * nu); }

// I_nu(z) = (z/2)^nu sum_k (z^2/4)^k / (k! Gamma(nu+k+1))
cplx seriesI(double nu, cplx z) {
  const cplx h = 0.5 * z;
  const cplx q = h * h;
  cplx term = 1.0, sum = 1.0;
  for (int k = 1; k < maxIterations; ++k) {
    term *= q / (k * (nu + k));
    sum += term;
    if (std::norm(term) <= eps2 * std::norm(sum)) break;
  }
  // (z/2)^nu / Gamma(nu+1) in polar form: the modulus through pow keeps its
  // relative accuracy for large nu |log(z/2)|; Gamma overflows beyond 170.
  const double modulus =
      nu <= 170.0 ? std::pow(std::abs(h), nu) / std::tgamma(nu + 1.0)
                  : std::exp(nu * std::log(std::abs(h)) - boost::math::lgamma(nu + 1.0, Policy()));
  const cplx scale = std::polar(modulus, nu * std::arg(h));
  return scale * sum;
}

// Temme's auxiliary gamma values for |mu| <= 1/2:
//   gamma1 = (1/Gamma(1-mu) - 1/Gamma(1+mu)) / (2 mu)   (-> -Euler's gamma at 0)
//   gamma2 = (1/Gamma(1-mu) + 1/Gamma(1+mu)) / 2
// With g(x) = Gamma(1+x) - 1 (accurate near 0), gamma1 =
// (g(mu) - g(-mu)) / (2 mu Gamma(1+mu) Gamma(1-mu)) has no cancellation.
struct TemmeGammas {
  double gamma1, gamma2, gammaPlus, gammaMinus;  // last two: Gamma(1+mu), Gamma(1-mu)
};

TemmeGammas temmeGammas(double mu) {
  const double gp = boost::math::tgamma1pm1(mu, Policy()),
               gm = boost::math::tgamma1pm1(-mu, Policy());
  const double gammaPlus = 1.0 + gp, gammaMinus = 1.0 + gm;
  const double gamma1 =
      std::abs(mu) < 1e-8 ? -std::numbers::egamma : (gp - gm) / (2.0 * mu * gammaPlus * gammaMinus);
  const double gamma2 = 0.5 * (1.0 / gammaMinus + 1.0 / gammaPlus);
  return {gamma1, gamma2, gammaPlus, gammaMinus};
}

struct KPair {
  cplx kmu, kmu1;  // K_mu(z), K_mu+1(z)
};

// Temme's series for |z| <= 2, |mu| <= 1/2:
//   K_mu   = sum_k c_k f_k,   K_mu+1 = (2/z) sum_k c_k (p_k - k f_k),   c_k = (z^2/4)^k / k!
//   f_0 = (mu pi / sin mu pi) [gamma1 cosh s + gamma2 ln(2/z) sinh(s)/s],  s = mu ln(2/z)
//   p_0 = (z/2)^-mu Gamma(1+mu) / 2,   q_0 = (z/2)^mu Gamma(1-mu) / 2
//   f_k = (k f_k-1 + p_k-1 + q_k-1) / (k^2 - mu^2),  p_k = p_k-1 / (k-mu),  q_k = q_k-1 / (k+mu)
KPair temmeSeriesK(double mu, cplx z) {
  const TemmeGammas g = temmeGammas(mu);
  const cplx logTwoOverZ = -std::log(0.5 * z);
  const cplx s = mu * logTwoOverZ;
  const double piMu = pi * mu;
  const double piMuOverSin = std::abs(piMu) < 1e-8 ? 1.0 : piMu / std::sin(piMu);
  const cplx sinhSOverS = std::abs(s) < 1e-8 ? cplx(1.0) : std::sinh(s) / s;
  const cplx powMinusMu = std::exp(s);  // (z/2)^-mu

  cplx f = piMuOverSin * (g.gamma1 * std::cosh(s) + g.gamma2 * logTwoOverZ * sinhSOverS);
  cplx p = 0.5 * powMinusMu * g.gammaPlus;
  cplx q = 0.5 / powMinusMu * g.gammaMinus;
  const cplx quarterZ2 = 0.25 * z * z;
  cplx c = 1.0;
  cplx sumK = f, sumK1 = p;
  for (int k = 1; k < maxIterations; ++k) {
    f = (double(k) * f + p + q) / (double(k) * k - mu * mu);
    c *= quarterZ2 / double(k);
    p /= (k - mu);
    q /= (k + mu);
    const cplx termK = c * f;
    sumK += termK;
    sumK1 += c * (p - double(k) * f);
    if (std::norm(termK) < eps2 * std::norm(sumK)) break;
  }
  return {sumK, sumK1 * 2.0 / z};
}

// Steed's algorithm for Temme's continued fraction (|z| > 2, |mu| <= 1/2).
// K_mu = sqrt(pi/(2z)) e^-z / S with S = sum_n C_n z^n U(mu+1/2+n, 2mu+1, 2z)
// normalised by its first term, summed alongside the continued fraction
// h = K'-related ratio; K_mu+1 = K_mu (mu + z + 1/2 - a_1 h) / z, a_1 = 1/4 - mu^2.
KPair steedK(double mu, cplx z) {
  const double a1 = 0.25 - mu * mu;
  cplx b = 2.0 * (1.0 + z);
  cplx d = 1.0 / b;
  cplx delh = d, h = d;
  cplx q1 = 0.0, q2 = 1.0;
  double a = -a1;
  cplx q = a1, c = a1;
  cplx s = 1.0 + q * delh;
  for (int i = 1; i < maxIterations; ++i) {
    a -= 2.0 * i;
    c = -a * c / (i + 1.0);
    const cplx qnew = (q1 - b * q2) / a;
    q1 = q2;
    q2 = qnew;
    q += c * qnew;
    b += 2.0;
    d = 1.0 / (b + a * d);
    delh = (b * d - 1.0) * delh;
    h += delh;
    const cplx dels = q * delh;
    s += dels;
    if (std::norm(dels) < eps2 * std::norm(s)) break;
  }
  const cplx kmu = std::sqrt(pi / (2.0 * z)) * std::exp(-z) / s;
  return {kmu, kmu * (mu + z + 0.5 - a1 * h) / z};
}

// Forward recurrence K_m+1 = K_m-1 + (2 m / z) K_m from order mu up to nu
// (K is the growing solution, so the recurrence is stable): K_nu, K_nu+1.
KPair recurK(double mu, int steps, KPair k, cplx z) {
  const cplx twoOverZ = 2.0 / z;
  for (int j = 0; j < steps; ++j) {
    const cplx next = k.kmu + (mu + j + 1.0) * twoOverZ * k.kmu1;
    k.kmu = k.kmu1;
    k.kmu1 = next;
  }
  return k;
}

// I_nu+1(z) / I_nu(z) = 1/(b_1 + 1/(b_2 + ...)),  b_k = 2(nu+k)/z  (modified Lentz).
cplx ratioI(double nu, cplx z) {
  constexpr double tiny = 1e-300;
  const cplx zInv = 1.0 / z;
  cplx f = tiny, C = tiny, D = 0.0;
  for (int k = 1; k < maxIterations; ++k) {
    const cplx b = 2.0 * (nu + k) * zInv;
    D = b + D;
    if (D == 0.0) D = tiny;
    C = b + 1.0 / C;
    if (C == 0.0) C = tiny;
    D = 1.0 / D;
    const cplx delta = C * D;
    f *= delta;
    if (std::norm(delta - 1.0) < eps2) break;
  }
  return f;
}

// Hankel's expansions, a_k(nu) = prod_{j=1..k} (4 nu^2 - (2j-1)^2) / (k! 8^k):
//   K_nu(z) ~ sqrt(pi/(2z)) e^-z sum_k a_k / z^k
//   I_nu(z) ~ e^z / sqrt(2 pi z) sum_k (-1)^k a_k / z^k  +-  i e^{+-i nu pi} e^-z / sqrt(2 pi z)
//   sum_k a_k / z^k
// with the upper signs for Im z >= 0 (valid for -pi/2 < arg z < 3pi/2), the
// lower ones below. The series are summed until their terms stop shrinking.
BesselIK hankelIK(double nu, cplx z) {
  const double fourNu2 = 4.0 * nu * nu;
  const cplx zInv = 1.0 / z;
  cplx term = 1.0, sumPlus = 1.0, sumAlt = 1.0;
  double lastSize = 1.0;
  for (int k = 1; k < maxIterations; ++k) {
    const double odd = 2.0 * k - 1.0;
    term *= (fourNu2 - odd * odd) / (8.0 * k) * zInv;
    const double size = std::abs(term);
    // Past k = nu + 1/2 the ratio of successive terms grows with k: once a
    // term is larger than the one before, the smallest has passed.
    if (k > nu + 0.5 && size > lastSize) break;
    sumPlus += term;
    sumAlt += (k % 2 ? -term : term);
    if (size < eps * 0.5 * std::min(std::abs(sumPlus), std::abs(sumAlt)) || term == 0.0) break;
    lastSize = size;
  }
  const cplx root = std::sqrt(2.0 * pi * z);
  const cplx eMinus = std::exp(-z);
  const cplx k = pi / root * eMinus * sumPlus;
  const double sign = z.imag() >= 0.0 ? 1.0 : -1.0;
  const cplx phase = cplx(0.0, sign) * std::polar(1.0, sign * pi * std::fmod(nu, 2.0));
  const cplx i = (std::exp(z) * sumAlt + phase * eMinus * sumPlus) / root;
  return {i, k};
}

}  // namespace

BesselIK besselIK(double nu, cplx z, Want want) {
  const double r = std::abs(z);
  if (r >= asymptoticRadius(nu)) return hankelIK(nu, z);

  const bool small = r <= seriesRadius;
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  BesselIK out{{nan, nan}, {nan, nan}};
  KPair knu{};
  if (want != Want::I || !small) {
    const int n = int(std::floor(nu + 0.5));
    const double mu = nu - n;  // -1/2 <= mu < 1/2
    knu = recurK(mu, n, small ? temmeSeriesK(mu, z) : steedK(mu, z), z);
    out.k = knu.kmu;
  }
  // I from the series near 0; elsewhere from the Wronskian
  // I_nu K_nu+1 + I_nu+1 K_nu = 1/z with the ratio I_nu+1/I_nu.
  if (want != Want::K)
    out.i = small ? seriesI(nu, z) : 1.0 / (z * (knu.kmu1 + ratioI(nu, z) * knu.kmu));
  return out;
}

}  // namespace qvsf::detail
