// Scattered data: linear interpolation over the Delaunay triangulation and
// nearest neighbours against scipy.interpolate's values on the same points
// (tests/data/interp, written by make_scipy_reference.py), exactness on
// linear functions, gradients, the hull and the extrapolations, and errors.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "qvarray/interp/interpfilereader.h"
#include "qvarray/interp/interpolator.h"
#include "qvtest.h"

namespace {

using qvarray::Array;
using qvarray::InterpExtrapolation;
using qvarray::InterpMethod;
using qvarray::Interpolator;

const std::string kDir = QV_MATRIX_DIR "/interp/";

TEST(ScatteredInterp, AgreesWithScipy) {
  for (int D : {2, 3}) {
    SCOPED_TRACE(std::to_string(D) + "-D");
    const std::string name = kDir + "scattered" + std::to_string(D) + "d";
    const qvarray::InterpData data = qvarray::InterpFileReader(D).read(name + ".txt");
    ASSERT_FALSE(data.grid);
    const qvarray::InterpData ref = qvarray::InterpFileReader(D).read(name + "_ref.txt");
    ASSERT_EQ(ref.values.size(1), 2u);
    const Array<double, 2> lin = data.interpolator(InterpMethod::Linear).evaluate(ref.points);
    const Array<double, 2> near = data.interpolator(InterpMethod::Neighbor).evaluate(ref.points);
    for (size_t k = 0; k < ref.points.size(0); ++k) {
      EXPECT_NEAR(lin(k, 0), ref.values(k, 0), 1e-13) << k;
      EXPECT_EQ(near(k, 0), ref.values(k, 1)) << k;
    }
  }
}

// f = 1 + 2x − 3y (+ 0.5z) is reproduced inside the hull, its gradient
// exactly, and with "linear" extrapolation outside too.
TEST(ScatteredInterp, LinearFunctionsAndHull) {
  qvtest::Rng rng(7);
  for (int D : {2, 3}) {
    SCOPED_TRACE(std::to_string(D) + "-D");
    const double grad[3] = {2, -3, 0.5};
    auto f = [&](const double* x) { return 1 + grad[0] * x[0] + grad[1] * x[1] + (D == 3 ? grad[2] * x[2] : 0); };
    Array<double, 2> pts(500, D), vals(500, 1);
    for (size_t k = 0; k < 500; ++k) {
      double x[3] = {};
      for (int d = 0; d < D; ++d) pts(k, d) = x[d] = rng.real();
      vals(k, 0) = f(x);
    }
    // Half inside the hull, half far outside; enough for the batch to be
    // evaluated in bucket order.
    const size_t nq = 2000, half = nq / 2;
    Array<double, 2> q(nq, D);
    for (size_t k = 0; k < nq; ++k)
      for (int d = 0; d < D; ++d) q(k, d) = (k < half ? 0.5 : 3.0) * rng.real() + (k < half ? 0 : (d ? 0 : 4));
    const Interpolator lin = Interpolator::scattered(pts, vals, InterpMethod::Linear, InterpExtrapolation::Linear);
    const Array<double, 2> v = lin.evaluate(q);
    for (size_t k = 0; k < nq; ++k) {
      double x[3] = {};
      for (int d = 0; d < D; ++d) x[d] = q(k, d);
      // Outside, the rounding of a thin hull simplex's slope grows with distance.
      EXPECT_NEAR(v(k, 0), f(x), (k < half ? 1e-12 : 1e-10) * (1 + std::fabs(f(x)))) << k;
    }
    for (int d = 0; d < D; ++d) {
      const Array<double, 2> g = lin.evaluate(q, d);
      for (size_t k = 0; k < nq; ++k) EXPECT_NEAR(g(k, 0), grad[d], 1e-10) << d << " " << k;
    }
    // Outside: NaN, the nearest point's value, or an error naming the point.
    const Array<double, 2> vn =
        Interpolator::scattered(pts, vals, InterpMethod::Linear, InterpExtrapolation::NaN).evaluate(q);
    const Array<double, 2> vc =
        Interpolator::scattered(pts, vals, InterpMethod::Linear, InterpExtrapolation::Constant).evaluate(q);
    const Array<double, 2> vnear = Interpolator::scattered(pts, vals, InterpMethod::Neighbor).evaluate(q);
    for (size_t k = 0; k < nq; ++k) {
      EXPECT_EQ(std::isnan(vn(k, 0)), k >= half) << k;
      if (k >= half) {
        EXPECT_EQ(vc(k, 0), vnear(k, 0)) << k;
      }
    }
    const Interpolator le = Interpolator::scattered(pts, vals, InterpMethod::Linear, InterpExtrapolation::Error);
    qvtest::expectThrowKey([&] { le.evaluate(q); }, "Point_outside_interpolation_data", "1001");
  }
}

TEST(ScatteredInterp, BadData) {
  Array<double, 2> line(4, 2), vals(4, 1), twin(4, 2), pts4(4, 4);
  vals.fill(1);
  for (size_t k = 0; k < 4; ++k) line(k, 0) = line(k, 1) = static_cast<double>(k);
  twin = line, twin(3, 1) = 0, twin(2, 0) = 0, twin(2, 1) = 0;
  qvtest::expectThrowKey([&] { Interpolator::scattered(line, vals, InterpMethod::Linear); }, "Triangulation_failed");
  qvtest::expectThrowKey([&] { Interpolator::scattered(twin, vals, InterpMethod::Neighbor); },
                         "Invalid_interpolation_data", "Two data points coincide.");
  qvtest::expectThrowKey([&] { Interpolator::scattered(pts4, vals, InterpMethod::Linear); },
                         "Invalid_interpolation_data", "Scattered data have 2 or 3 coordinates.");
  qvtest::expectThrowKey([&] { Interpolator::scattered(line, vals, InterpMethod::CubicSpline); },
                         "Interpolation_method_needs_grid", "cubicspline");
}

}  // namespace
