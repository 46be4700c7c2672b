// Bessel functions of a real order and a real argument: Boost.Math, with the
// library's domain rules (qvsf.h) checked first.
#include <boost/math/special_functions/bessel.hpp>
#include <cmath>
#include <limits>

#include "policy.h"
#include "qvsf/qvsf.h"

namespace qvsf {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

bool isInteger(double nu) { return std::floor(nu) == nu; }

// J_nu(0) and I_nu(0): 1 for nu = 0, 0 for nu > 0 or an integer, a pole otherwise.
double atZero(double nu) {
  if (nu == 0.0) return 1.0;
  return nu > 0.0 || isInteger(nu) ? 0.0 : nan;
}

}  // namespace

// Negative x with an integer order: Boost applies J_n(-x) = (-1)^n J_n(x);
// with any other order it reports a domain error, NaN here.
double qvbesselj(double nu, double x) {
  if (std::isnan(nu) || std::isnan(x)) return nan;
  if (x == 0.0) return atZero(nu);
  return boost::math::cyl_bessel_j(nu, x, detail::Policy());
}

double qvbessely(double nu, double x) {
  if (std::isnan(nu) || !(x > 0.0)) return nan;
  return boost::math::cyl_neumann(nu, x, detail::Policy());
}

double qvbesseli(double nu, double x) {
  if (std::isnan(nu) || std::isnan(x)) return nan;
  if (x == 0.0) return atZero(nu);
  return boost::math::cyl_bessel_i(nu, x, detail::Policy());
}

double qvbesselk(double nu, double x) {
  if (std::isnan(nu) || !(x > 0.0)) return nan;
  return boost::math::cyl_bessel_k(nu, x, detail::Policy());
}

}  // namespace qvsf
