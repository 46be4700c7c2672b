// Node slopes of the cubic Hermite interpolants: the formulas are in
// hermiteslopes.h.
#include "interp/hermiteslopes.h"

#include <cmath>

namespace qvarray::interpdetail {

SplineSlopes::SplineSlopes(const std::vector<double>& x) : x_(x) {
  const size_t n = x.size();
  if (n < 4) return;  // the line or the parabola: no system
  auto h = [&](size_t i) { return x[i + 1] - x[i]; };
  sub_.assign(n, 0.0), diag_.assign(n, 0.0), super_.assign(n, 0.0);
  // Rows of the system: sub_ (coefficient of s_{i-1}), diag_, super_.
  diag_[0] = h(1), super_[0] = h(0) + h(1);
  for (size_t i = 1; i + 1 < n; ++i)
    sub_[i] = h(i), diag_[i] = 2 * (h(i - 1) + h(i)), super_[i] = h(i - 1);
  sub_[n - 1] = h(n - 3) + h(n - 2), diag_[n - 1] = h(n - 3);
  // Elimination: sub_ becomes the multiplier, diag_ the pivot.
  for (size_t i = 1; i < n; ++i) {
    sub_[i] /= diag_[i - 1];
    diag_[i] -= sub_[i] * super_[i - 1];
  }
}

void SplineSlopes::operator()(const double* y, double* s) const {
  const std::vector<double>& x = x_;
  const size_t n = x.size();
  auto h = [&](size_t i) { return x[i + 1] - x[i]; };
  auto delta = [&](size_t i) { return (y[i + 1] - y[i]) / h(i); };
  if (n == 2) {
    s[0] = s[1] = delta(0);
    return;
  }
  if (n == 3) {  // the parabola through the three points
    const double h0 = h(0), h1 = h(1), d0 = delta(0), d1 = delta(1);
    s[0] = ((2 * h0 + h1) * d0 - h0 * d1) / (h0 + h1);
    s[1] = (h1 * d0 + h0 * d1) / (h0 + h1);
    s[2] = ((2 * h1 + h0) * d1 - h1 * d0) / (h0 + h1);
    return;
  }
  // Right-hand sides into s, forward elimination on the way.
  const double d = h(0) + h(1);
  s[0] = ((h(0) + 2 * d) * h(1) * delta(0) + h(0) * h(0) * delta(1)) / d;
  for (size_t i = 1; i + 1 < n; ++i)
    s[i] = 3 * (h(i) * delta(i - 1) + h(i - 1) * delta(i)) - sub_[i] * s[i - 1];
  const double e = h(n - 3) + h(n - 2);
  s[n - 1] = (h(n - 2) * h(n - 2) * delta(n - 3) + (2 * e + h(n - 2)) * h(n - 3) * delta(n - 2)) / e -
             sub_[n - 1] * s[n - 2];
  // Back substitution.
  s[n - 1] /= diag_[n - 1];
  for (size_t i = n - 1; i-- > 0;) s[i] = (s[i] - super_[i] * s[i + 1]) / diag_[i];
}

namespace {

// The limited three-point end slope from the end secant d0 and the next d1.
double pchipEndSlope(double h0, double h1, double d0, double d1) {
  double s = ((2 * h0 + h1) * d0 - h0 * d1) / (h0 + h1);
  if (std::signbit(s) != std::signbit(d0) || s == 0 || d0 == 0) s = 0;
  else if (std::signbit(d0) != std::signbit(d1) && std::fabs(s) > 3 * std::fabs(d0)) s = 3 * d0;
  return s;
}

}  // namespace

void pchipSlopes(const std::vector<double>& x, const double* y, double* s) {
  const size_t n = x.size();
  auto h = [&](size_t i) { return x[i + 1] - x[i]; };
  auto delta = [&](size_t i) { return (y[i + 1] - y[i]) / h(i); };
  if (n == 2) {
    s[0] = s[1] = delta(0);
    return;
  }
  for (size_t i = 1; i + 1 < n; ++i) {
    const double dl = delta(i - 1), dr = delta(i);
    if (dl == 0 || dr == 0 || std::signbit(dl) != std::signbit(dr)) {
      s[i] = 0;
      continue;
    }
    const double w1 = 2 * h(i) + h(i - 1), w2 = h(i) + 2 * h(i - 1);
    s[i] = (w1 + w2) / (w1 / dl + w2 / dr);
  }
  s[0] = pchipEndSlope(h(0), h(1), delta(0), delta(1));
  s[n - 1] = pchipEndSlope(h(n - 2), h(n - 3), delta(n - 2), delta(n - 3));
}

}  // namespace qvarray::interpdetail
