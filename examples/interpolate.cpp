// Interpolating tabulated data: a material property k(T) from a table, its
// derivative, the choice of method and of extrapolation, and scattered
// samples in the plane.
#include <cstdio>
#include <vector>

#include "qvarray/blasruntime.h"
#include "qvarray/expr/userevaluator.h"
#include "qvarray/init.h"
#include "qvarray/interp/interpfun.h"
#include "qvarray/interp/interpolator.h"
#include "qvutil/exception.h"

using qvarray::InterpExtrapolation;
using qvarray::InterpMethod;
using qvarray::Interpolator;

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();

  // Thermal conductivity against temperature: one axis, one column of values.
  const std::vector<double> T = {300, 400, 500, 600, 700};
  Array<double, 2> k(T.size(), 1);
  const double measured[] = {148.0, 98.9, 76.2, 61.9, 51.5};
  for (size_t i = 0; i < T.size(); ++i) k(i, 0) = measured[i];

  const Interpolator spline = Interpolator::onGrid({T}, k, InterpMethod::CubicSpline);
  const Interpolator monotone = Interpolator::onGrid({T}, k, InterpMethod::PiecewiseCubic);

  // Batches: one array per coordinate.
  const double at[] = {350.0, 450.0, 650.0};
  const double* coords[] = {at};
  double value[3], slope[3], shapeKept[3];
  spline.evaluate(coords, 3, value);
  spline.evaluate(coords, 3, slope, 0, /*deriv=*/0);  // dk/dT of the spline itself
  monotone.evaluate(coords, 3, shapeKept);
  for (int i = 0; i < 3; ++i)
    std::printf("T = %g: k = %.4g (spline), %.4g (shape-preserving), dk/dT = %.4g\n", at[i],
                value[i], shapeKept[i], slope[i]);

  // In formulas: k(T) names the spline; the heat flux -k(T)*dTdx and its
  // derivative in T (through the spline's own derivative) over a batch.
  auto ev = qvarray::UserEvaluator::make(3);
  ev->defineFunction("k", std::make_shared<qvarray::InterpFun>(
                              "k", std::make_shared<const Interpolator>(spline)));
  Array<double, 1> temps(3);
  for (int i = 0; i < 3; ++i) temps.data[i] = at[i];
  ev->bind("T", temps);
  ev->bind("dTdx", -20.0);
  const Array<double, 1> flux = ev->values("-k(T)*dTdx");
  const Array<double, 1> dflux = ev->values(ev->derivative("-k(T)*dTdx", "T")->getExpandedExpr());
  for (int i = 0; i < 3; ++i)
    std::printf("T = %g: flux = %.5g, d(flux)/dT = %.4g\n", at[i], flux.data[i], dflux.data[i]);

  // Outside the table: refused on request, before anything is written.
  const Interpolator strict =
      Interpolator::onGrid({T}, k, InterpMethod::Linear, InterpExtrapolation::Error);
  const double outside[] = {800.0};
  const double* outsideCoords[] = {outside};
  double ignored;
  try {
    strict.evaluate(outsideCoords, 1, &ignored);
  } catch (const qvbase::Exception& e) {
    std::printf("T = 800: %s\n", e.what());
  }

  // Scattered samples of f(x, y) = x + 2y: linear interpolation over their
  // Delaunay triangulation reproduces the plane.
  Array<double, 2> points(5, 2), f(5, 1);
  const double xy[5][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0.4, 0.6}};
  for (int i = 0; i < 5; ++i) {
    points(i, 0) = xy[i][0];
    points(i, 1) = xy[i][1];
    f(i, 0) = xy[i][0] + 2 * xy[i][1];
  }
  const Interpolator plane = Interpolator::scattered(points, f, InterpMethod::Linear);
  Array<double, 2> query(1, 2);
  query(0, 0) = 0.25;
  query(0, 1) = 0.5;
  std::printf("f(0.25, 0.5) = %g\n", plane.evaluate(query)(0, 0));  // 1.25
  return 0;
}
