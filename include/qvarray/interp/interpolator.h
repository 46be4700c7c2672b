#pragma once
// Interpolator: functions known at data points, evaluated anywhere.
//
// Data on a structured grid (1 to 3 dimensions, tensor product of strictly
// increasing axes) or at scattered points (2 or 3 dimensions), carrying one
// or several functions (a vector-valued table: several columns of values over
// the same points). Methods:
//
//   "linear"          grid: multilinear in each cell;          C0
//                     scattered: linear on the simplices of the Delaunay
//                     triangulation (tetrahedralisation) of the points
//   "neighbor"        the value of the nearest data point (grid: nearest
//                     node along each axis, ties to the lower node)
//   "cubicspline"     grid only: tensor product of not-a-knot cubic splines; C2.
//                     Not-a-knot (third derivative continuous at the second
//                     and last-but-one node) reproduces cubic polynomials
//                     exactly on 4 or more nodes; 3 nodes give the parabola,
//                     2 the straight line through them.
//   "piecewisecubic"  grid only: cubic Hermite pieces with the shape-preserving
//                     slopes of Fritsch and Carlson (harmonic mean of the
//                     neighbouring secant slopes, zero at local extrema,
//                     limited three-point end slopes); C1, monotone on every
//                     interval where the data are monotone.
//
// The cubic methods are one form: a cubic Hermite piece per axis and cell
// whose node values and slopes are f, ∂f/∂x_d and the mixed derivatives,
// found once by applying each axis' slope rule in turn along that axis (for
// "cubicspline" this is exactly the tensor-product spline; for
// "piecewisecubic" every grid line is the 1-D monotone interpolant).
//
// Outside the data (outside the grid's box, outside the convex hull of
// scattered points; for scattered "neighbor" outside the points' bounding
// box) the extrapolation decides:
//   "const"   grid: the value at the nearest point of the box (each coordinate
//             clamped); scattered: the value of the nearest data point
//   "linear"  grid: along each axis beyond its ends the end piece continues as
//             a straight line with the end slope; scattered "linear": the
//             linear function of the boundary simplex the point lies beyond
//   "nan"     NaN
//   "error"   "Point_outside_interpolation_data" with the point's index and
//             coordinates, raised before any output is written
// Points with a NaN coordinate give NaN.
//
// Derivatives: evaluate(..., deriv = d) gives ∂f/∂x_d of the interpolant
// itself (piecewise: zero for "neighbor", the cell's one-sided value on a
// node of a C0 method), so formulas using the interpolant can be
// differentiated exactly.
//
// Batches: evaluation takes n points as one array per coordinate and runs in
// parallel (OpenMP over points) for large batches; every point is computed the
// same way whatever the thread count, so results do not depend on it.
// An Interpolator is immutable once built; copies share the data, and it may
// be evaluated from several threads at once.
#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

enum class InterpMethod { Linear, Neighbor, CubicSpline, PiecewiseCubic };
enum class InterpExtrapolation { Constant, Linear, NaN, Error };

/// The method named "linear", "neighbor", "cubicspline" or "piecewisecubic";
/// else "Unknown_interpolation_method" with the name.
QVARRAY_API InterpMethod interpMethodByName(std::string_view name);
QVARRAY_API const char* interpMethodName(InterpMethod method);
/// The extrapolation named "const", "linear", "nan" or "error"; else
/// "Unknown_extrapolation_method" with the name.
QVARRAY_API InterpExtrapolation interpExtrapolationByName(std::string_view name);
QVARRAY_API const char* interpExtrapolationName(InterpExtrapolation extrapolation);

class InterpImpl;

class QVARRAY_API Interpolator {
 public:
  /// Data on the grid axes[0] x ... x axes[D-1] (D = 1..3, each axis at
  /// least 2 strictly increasing finite coordinates): values has one row per
  /// grid node, first axis fastest, and one column per function.
  /// "Invalid_interpolation_grid" for a bad axis, "Invalid_interpolation_data"
  /// for a size mismatch, no column or a non-finite value.
  static Interpolator onGrid(const std::vector<std::vector<double>>& axes,
                             const Array<double, 2>& values, InterpMethod method,
                             InterpExtrapolation extrapolation = InterpExtrapolation::Constant);

  /// Data at scattered points: points has one row per point and 2 or 3
  /// columns (the coordinates), values one row per point and one column per
  /// function. "Interpolation_method_needs_grid" for the cubic methods;
  /// "Invalid_interpolation_data" for sizes, non-finite numbers, repeated
  /// points or fewer than D + 1 points; "Triangulation_failed" when the
  /// points span no area (volume) for "linear".
  static Interpolator scattered(const Array<double, 2>& points, const Array<double, 2>& values,
                                InterpMethod method,
                                InterpExtrapolation extrapolation = InterpExtrapolation::Constant);

  int dimension() const;
  size_t functionCount() const;
  bool isGrid() const;
  InterpMethod method() const;
  InterpExtrapolation extrapolation() const;

  /// out[p] = function `fun` at the point (coords[0][p], ..., coords[D-1][p])
  /// for p < n, or its derivative along coordinate `deriv` (0 <= deriv < D;
  /// -1: the value). "Invalid_interpolation_argument" for a bad `fun` or
  /// `deriv`.
  void evaluate(const double* const* coords, size_t n, double* out, size_t fun = 0,
                int deriv = -1) const;
  /// Every function at the points given as rows of `points` (n x D): an
  /// n x functionCount() array. "Invalid_interpolation_argument" when the
  /// columns are not D.
  Array<double, 2> evaluate(const Array<double, 2>& points, int deriv = -1) const;

 private:
  explicit Interpolator(std::shared_ptr<const InterpImpl> impl) : impl_(std::move(impl)) {}
  std::shared_ptr<const InterpImpl> impl_;
};

}  // namespace qvarray
