// Bessel functions of a real order and a complex argument, reduced to the
// core pair I_nu, K_nu of a non-negative order in the right half-plane
// (besselik.h). DLMF 10.4, 10.11, 10.27.
//
// Upper half-plane (Im z >= 0, including the negative real axis), zeta = -iz
// so that Re zeta >= 0:
//   J_nu(z)  = e^{i nu pi/2} I_nu(zeta)
//   H1_nu(z) = -(2i/pi) e^{-i nu pi/2} K_nu(zeta)
//   Y_nu(z)  = i (J_nu(z) - H1_nu(z)),   H2_nu(z) = 2 J_nu(z) - H1_nu(z)
// Lower half-plane by reflection: f(z) = conj f(conj z) for J, Y, I, K, and
// H1_nu(z) = conj H2_nu(conj z).
// Left half-plane for I, K (Im z >= 0, w = -z = z e^{-i pi}):
//   I_nu(z) = e^{i nu pi} I_nu(w),   K_nu(z) = e^{-i nu pi} K_nu(w) - i pi I_nu(w)
// Negative orders, a = -nu > 0:
//   J_-a = cos(a pi) J_a - sin(a pi) Y_a,   Y_-a = sin(a pi) J_a + cos(a pi) Y_a
//   H1_-a = e^{i a pi} H1_a,   H2_-a = e^{-i a pi} H2_a
//   I_-a = I_a + (2/pi) sin(a pi) K_a,      K_-a = K_a
#include <boost/math/special_functions/cos_pi.hpp>
#include <boost/math/special_functions/sin_pi.hpp>
#include <cmath>
#include <limits>
#include <numbers>

#include "besselik.h"
#include "qvsf/qvsf.h"

namespace qvsf {
namespace {

using cplx = std::complex<double>;
using detail::BesselIK;
using detail::besselIK;
using detail::Want;
using std::numbers::pi;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double maxComplexOrder = 1000.0;
const cplx cnan(nan, nan);
constexpr cplx I(0.0, 1.0);

// e^{i a pi}, exact where a pi is a multiple of pi/2.
cplx expIPi(double a) { return {boost::math::cos_pi(a), boost::math::sin_pi(a)}; }

struct Cylinder {
  cplx j, y, h1, h2;
};

// J, Y, H1, H2 for nu >= 0, z != 0; with jOnly, J alone (the rest NaN).
Cylinder cylinder(double nu, cplx z, bool jOnly = false) {
  const bool upper = z.imag() >= 0.0;
  const cplx zu = upper ? z : std::conj(z);
  const BesselIK ik = besselIK(nu, cplx(zu.imag(), -zu.real()), jOnly ? Want::I : Want::Both);
  const cplx rot = expIPi(0.5 * nu);
  Cylinder c;
  c.j = rot * ik.i;
  c.h1 = -2.0 * I / pi * std::conj(rot) * ik.k;
  c.y = I * (c.j - c.h1);
  c.h2 = 2.0 * c.j - c.h1;
  if (!upper) c = {std::conj(c.j), std::conj(c.y), std::conj(c.h2), std::conj(c.h1)};
  if (z.imag() == 0.0 && z.real() > 0.0) {  // real on the positive axis
    c.j = c.j.real();
    c.y = c.y.real();
    c.h1 = {c.j.real(), c.y.real()};
    c.h2 = {c.j.real(), -c.y.real()};
  }
  return c;
}

Cylinder cylinderAnyOrder(double nu, cplx z) {
  if (nu >= 0.0) return cylinder(nu, z);
  const double a = -nu;
  const Cylinder c = cylinder(a, z);
  const double s = boost::math::sin_pi(a), co = boost::math::cos_pi(a);
  const cplx e = expIPi(a);
  return {co * c.j - s * c.y, s * c.j + co * c.y, e * c.h1, std::conj(e) * c.h2};
}

// I, K for nu >= 0, z != 0 (the one not wanted may be NaN).
BesselIK modified(double nu, cplx z, Want want = Want::Both) {
  const bool upper = z.imag() >= 0.0;
  const cplx zu = upper ? z : std::conj(z);
  BesselIK ik;
  if (zu.real() >= 0.0) {
    ik = besselIK(nu, zu, want);
  } else {
    const BesselIK w = besselIK(nu, -zu, want == Want::I ? Want::I : Want::Both);
    const cplx e = expIPi(nu);
    ik = {e * w.i, std::conj(e) * w.k - I * pi * w.i};
  }
  if (!upper) ik = {std::conj(ik.i), std::conj(ik.k)};
  if (z.imag() == 0.0 && z.real() > 0.0) ik = {ik.i.real(), ik.k.real()};
  return ik;
}

BesselIK modifiedAnyOrder(double nu, cplx z) {
  if (nu >= 0.0) return modified(nu, z);
  const double a = -nu;
  const BesselIK ik = modified(a, z);
  return {ik.i + 2.0 / pi * boost::math::sin_pi(a) * ik.k, ik.k};
}

bool isInteger(double nu) { return std::floor(nu) == nu; }

// J_nu(0) and I_nu(0): 1 for nu = 0, 0 for nu > 0 or an integer, a pole otherwise.
cplx atZero(double nu) {
  if (nu == 0.0) return 1.0;
  return nu > 0.0 || isInteger(nu) ? cplx(0.0) : cnan;
}

// Finite arguments and orders up to the bound of qvsf.h.
bool usable(double nu, cplx z) {
  return std::abs(nu) <= maxComplexOrder && std::isfinite(z.real()) && std::isfinite(z.imag());
}

}  // namespace

// J_-n = (-1)^n J_n and I_-n = I_n for an integer order: J and I alone.
cplx qvbesselj(double nu, cplx z) {
  if (!usable(nu, z)) return cnan;
  if (z == 0.0) return atZero(nu);
  if (nu >= 0.0) return cylinder(nu, z, true).j;
  if (isInteger(nu)) return boost::math::cos_pi(nu) * cylinder(-nu, z, true).j;
  return cylinderAnyOrder(nu, z).j;
}

cplx qvbessely(double nu, cplx z) {
  if (!usable(nu, z) || z == 0.0) return cnan;
  return cylinderAnyOrder(nu, z).y;
}

cplx qvbesselh(int kind, double nu, cplx z) {
  if (!usable(nu, z) || z == 0.0 || (kind != 1 && kind != 2)) return cnan;
  const Cylinder c = cylinderAnyOrder(nu, z);
  return kind == 1 ? c.h1 : c.h2;
}

cplx qvbesseli(double nu, cplx z) {
  if (!usable(nu, z)) return cnan;
  if (z == 0.0) return atZero(nu);
  if (nu >= 0.0 || isInteger(nu)) return modified(std::abs(nu), z, Want::I).i;
  return modifiedAnyOrder(nu, z).i;
}

cplx qvbesselk(double nu, cplx z) {
  if (!usable(nu, z) || z == 0.0) return cnan;
  return modified(std::abs(nu), z, Want::K).k;  // K_-nu = K_nu
}

}  // namespace qvsf
