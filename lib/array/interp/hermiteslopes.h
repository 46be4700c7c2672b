#pragma once
// Node slopes of the cubic Hermite interpolants along one axis.
//
// On nodes x_0 < ... < x_{n-1} with data y_i, h_i = x_{i+1} − x_i and secant
// slopes δ_i = (y_{i+1} − y_i)/h_i, the piece on [x_i, x_{i+1}] is the cubic
// with values y_i, y_{i+1} and slopes s_i, s_{i+1}. The rules for s:
//
// Not-a-knot spline (C2): for 0 < i < n-1
//     h_i s_{i-1} + 2(h_{i-1} + h_i) s_i + h_{i-1} s_{i+1} = 3(h_i δ_{i-1} + h_{i-1} δ_i),
//   and at the ends the third derivative continuous at x_1 and x_{n-2}:
//     h_1 s_0 + (h_0 + h_1) s_1 = ((h_0 + 2d) h_1 δ_0 + h_0² δ_1)/d,   d = h_0 + h_1,
//     d' s_{n-2} + h_{n-3} s_{n-1} = (h_{n-2}² δ_{n-3} + (2d' + h_{n-2}) h_{n-3} δ_{n-2})/d',
//   d' = h_{n-3} + h_{n-2}. The tridiagonal system is solved by elimination
//   without pivoting, whose pivots stay positive: the first is h_1, the
//   second h_0 + h_1 and each later one exceeds the next row's
//   off-diagonal. 3 nodes: the slopes of the parabola; 2: of the line.
//
// Shape-preserving (Fritsch–Carlson with Brodlie's weights): s_i = 0 where
// δ_{i-1} and δ_i differ in sign or one is zero, else the weighted harmonic
// mean (w_1 + w_2)/(w_1/δ_{i-1} + w_2/δ_i), w_1 = 2h_i + h_{i-1},
// w_2 = h_i + 2h_{i-1}. End slopes from the three-point formula
// ((2h_0 + h_1)δ_0 − h_0 δ_1)/(h_0 + h_1), set to 0 when its sign differs
// from δ_0's and limited to 3δ_0 when δ_0 and δ_1 differ in sign (likewise at
// the right end). 2 nodes: the line.
#include <cstddef>
#include <vector>

namespace qvarray::interpdetail {

/// The not-a-knot system of one axis, eliminated once: slopes of any data
/// on the axis then cost one forward and one backward pass.
class SplineSlopes {
 public:
  explicit SplineSlopes(const std::vector<double>& x);
  /// s[0..n-1] from y[0..n-1] (distinct arrays).
  void operator()(const double* y, double* s) const;

 private:
  std::vector<double> x_;
  std::vector<double> sub_, diag_, super_;  // the eliminated system
};

/// The shape-preserving slopes s[0..n-1] of y[0..n-1] on x (n >= 2).
void pchipSlopes(const std::vector<double>& x, const double* y, double* s);

}  // namespace qvarray::interpdetail
