// Interpolator: names of methods and extrapolations, the checks of the data
// (all made before anything is built), and batch evaluation.
#include "qvarray/interp/interpolator.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <string>

#include "interp/gridinterp.h"
#include "interp/scatteredinterp.h"
#include "qvutil/errors.h"
#include "qvutil/parallel.h"

namespace qvarray {

using qvbase::DetailPairs;

namespace {

constexpr const char* kMethodNames[] = {"linear", "neighbor", "cubicspline", "piecewisecubic"};
constexpr const char* kExtrapolationNames[] = {"const", "linear", "nan", "error"};

bool allFinite(const Array<double, 2>& a) {
  return std::all_of(a.begin(), a.end(), [](double v) { return std::isfinite(v); });
}

void checkValues(const Array<double, 2>& values, size_t points) {
  QV_CHECK(values.size(1) >= 1, interpolator, Invalid_interpolation_data,
           "The data hold no function (no column of values).");
  QV_CHECK(values.size(0) == points, interpolator, Invalid_interpolation_data,
           DetailPairs{{"", "The number of rows of values differs from the number of data points."},
                       {"Rows", std::to_string(values.size(0))},
                       {"Points", std::to_string(points)}});
  QV_CHECK(allFinite(values), interpolator, Invalid_interpolation_data,
           "A data value is not finite.");
}

std::string pointText(const double* const* coords, int dim, size_t p) {
  std::string s = "(";
  for (int d = 0; d < dim; ++d) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", coords[d][p]);
    s += (d ? ", " : "") + std::string(buf);
  }
  return s + ")";
}

// Points per part of a parallel batch; a part is evaluated by one call.
constexpr size_t kPartPoints = 1024;

// out[p + n*(f - f0)] for every point, in parts over the threads: each point
// is computed alone, so the result does not depend on the team.
void evaluateBatch(const InterpImpl& impl, const double* const* coords, size_t n, double* out,
                   size_t f0, size_t f1, int deriv) {
  if (impl.extrapolation == InterpExtrapolation::Error) {
    const size_t p = impl.firstOutside(coords, n);
    QV_CHECK(p == n, interpolator, Point_outside_interpolation_data,
             DetailPairs{{"Point", std::to_string(p + 1)},
                         {"Coordinates", p < n ? pointText(coords, impl.dim, p) : ""}});
  }
  // Points by key (a counting sort), when the data want them so.
  std::vector<size_t> order;
  if (impl.keyCount() && n >= kPartPoints) {
    std::vector<std::uint32_t> key(n);
    std::vector<size_t> next(impl.keyCount() + 1, 0);
    for (size_t p = 0; p < n; ++p) ++next[(key[p] = impl.key(coords, p)) + 1];
    std::partial_sum(next.begin(), next.end(), next.begin());
    order.resize(n);
    for (size_t p = 0; p < n; ++p) order[next[key[p]]++] = p;
  }
  const size_t parts = (n + kPartPoints - 1) / kPartPoints;
  const int team = parts > 1 ? qvbase::Parallel::teamFor(
                                   static_cast<int>(std::min<size_t>(parts, 1 << 20)),
                                   n * (f1 - f0) * impl.costPerPoint())
                             : 1;
#pragma omp parallel for schedule(static) num_threads(team) if (team > 1)
  for (size_t k = 0; k < parts; ++k) {
    const size_t k0 = k * kPartPoints, k1 = std::min(n, k0 + kPartPoints);
    if (order.empty()) impl.evaluateRange(coords, k0, k1, n, out, f0, f1, deriv);
    else impl.evaluateOrdered(coords, order.data(), k0, k1, n, out, f0, f1, deriv);
  }
}

}  // namespace

InterpMethod interpMethodByName(std::string_view name) {
  for (int k = 0; k < 4; ++k)
    if (name == kMethodNames[k]) return static_cast<InterpMethod>(k);
  QV_RAISE(interpolator, Unknown_interpolation_method, DetailPairs{{"Method", std::string(name)}});
}

const char* interpMethodName(InterpMethod method) {
  return kMethodNames[static_cast<int>(method)];
}

InterpExtrapolation interpExtrapolationByName(std::string_view name) {
  for (int k = 0; k < 4; ++k)
    if (name == kExtrapolationNames[k]) return static_cast<InterpExtrapolation>(k);
  QV_RAISE(interpolator, Unknown_extrapolation_method,
           DetailPairs{{"Extrapolation", std::string(name)}});
}

const char* interpExtrapolationName(InterpExtrapolation extrapolation) {
  return kExtrapolationNames[static_cast<int>(extrapolation)];
}

Interpolator Interpolator::onGrid(const std::vector<std::vector<double>>& axes,
                                  const Array<double, 2>& values, InterpMethod method,
                                  InterpExtrapolation extrapolation) {
  QV_CHECK(!axes.empty() && axes.size() <= 3, interpolator, Invalid_interpolation_grid,
           DetailPairs{{"", "A grid has 1 to 3 axes."}, {"Axes", std::to_string(axes.size())}});
  size_t points = 1;
  for (size_t d = 0; d < axes.size(); ++d) {
    const std::vector<double>& x = axes[d];
    const std::string axis = std::to_string(d + 1);
    QV_CHECK(x.size() >= 2, interpolator, Invalid_interpolation_grid,
             DetailPairs{{"", "A grid axis needs at least 2 nodes."}, {"Axis", axis}});
    for (size_t i = 0; i < x.size(); ++i) {
      QV_CHECK(std::isfinite(x[i]), interpolator, Invalid_interpolation_grid,
               DetailPairs{{"", "A grid coordinate is not finite."}, {"Axis", axis}});
      QV_CHECK(i == 0 || x[i] > x[i - 1], interpolator, Invalid_interpolation_grid,
               DetailPairs{{"", "Grid coordinates must be strictly increasing."},
                           {"Axis", axis},
                           {"Node", std::to_string(i + 1)}});
    }
    QV_CHECK(!__builtin_mul_overflow(points, x.size(), &points), interpolator,
             Invalid_interpolation_grid, "The grid has too many nodes.");
  }
  checkValues(values, points);
  std::vector<interpdetail::GridAxis> gridAxes;
  for (const std::vector<double>& x : axes) gridAxes.emplace_back(x);
  return Interpolator(std::make_shared<const interpdetail::GridInterp>(std::move(gridAxes), values,
                                                                       method, extrapolation));
}

Interpolator Interpolator::scattered(const Array<double, 2>& points,
                                     const Array<double, 2>& values, InterpMethod method,
                                     InterpExtrapolation extrapolation) {
  QV_CHECK(method == InterpMethod::Linear || method == InterpMethod::Neighbor, interpolator,
           Interpolation_method_needs_grid, DetailPairs{{"Method", interpMethodName(method)}});
  const size_t D = points.size(1), n = points.size(0);
  QV_CHECK(D == 2 || D == 3, interpolator, Invalid_interpolation_data,
           DetailPairs{{"", "Scattered data have 2 or 3 coordinates."},
                       {"Coordinates", std::to_string(D)}});
  QV_CHECK(n >= D + 1, interpolator, Invalid_interpolation_data,
           DetailPairs{{"", "Too few data points."}, {"Points", std::to_string(n)}});
  QV_CHECK(allFinite(points), interpolator, Invalid_interpolation_data,
           "A data point coordinate is not finite.");
  checkValues(values, n);
  if (method == InterpMethod::Linear)
    return Interpolator(interpdetail::makeScatteredLinear(points, values, extrapolation));
  return Interpolator(interpdetail::makeScatteredNeighbor(points, values, extrapolation));
}

int Interpolator::dimension() const { return impl_->dim; }
size_t Interpolator::functionCount() const { return impl_->nfun; }
bool Interpolator::isGrid() const { return impl_->grid; }
InterpMethod Interpolator::method() const { return impl_->method; }
InterpExtrapolation Interpolator::extrapolation() const { return impl_->extrapolation; }

void Interpolator::evaluate(const double* const* coords, size_t n, double* out, size_t fun,
                            int deriv) const {
  QV_CHECK(fun < impl_->nfun, interpolator, Invalid_interpolation_argument,
           DetailPairs{{"Function", std::to_string(fun + 1)},
                       {"Functions", std::to_string(impl_->nfun)}});
  QV_CHECK(deriv >= -1 && deriv < impl_->dim, interpolator, Invalid_interpolation_argument,
           DetailPairs{{"Derivative", std::to_string(deriv)}});
  evaluateBatch(*impl_, coords, n, out, fun, fun + 1, deriv);
}

Array<double, 2> Interpolator::evaluate(const Array<double, 2>& points, int deriv) const {
  const size_t n = points.size(0);
  QV_CHECK(points.size(1) == static_cast<size_t>(impl_->dim), interpolator,
           Invalid_interpolation_argument,
           DetailPairs{{"Coordinates", std::to_string(points.size(1))},
                       {"Dimension", std::to_string(impl_->dim)}});
  QV_CHECK(deriv >= -1 && deriv < impl_->dim, interpolator, Invalid_interpolation_argument,
           DetailPairs{{"Derivative", std::to_string(deriv)}});
  const double* coords[3];
  for (int d = 0; d < impl_->dim; ++d) coords[d] = points.data + d * n;
  Array<double, 2> out(n, impl_->nfun);
  evaluateBatch(*impl_, coords, n, out.data, 0, impl_->nfun, deriv);
  return out;
}

}  // namespace qvarray
