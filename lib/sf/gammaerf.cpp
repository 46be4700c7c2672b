// erf (the C library), gamma and polygamma (Boost.Math).
#include <boost/math/special_functions/digamma.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <boost/math/special_functions/polygamma.hpp>
#include <cmath>
#include <limits>

#include "policy.h"
#include "qvsf/qvsf.h"

namespace qvsf {

double qverf(double x) { return std::erf(x); }

double qvgamma(double x) { return boost::math::tgamma(x, detail::Policy()); }

double qvpsi(int order, double x) {
  // The poles 0, -1, -2, ... are checked here: Boost reports some of them as
  // an overflow.
  const bool pole = x <= 0.0 && std::floor(x) == x;
  if (order < 0 || std::isnan(x) || pole) return std::numeric_limits<double>::quiet_NaN();
  if (order == 0) return boost::math::digamma(x, detail::Policy());
  return boost::math::polygamma(order, x, detail::Policy());
}

}  // namespace qvsf
