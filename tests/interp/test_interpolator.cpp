// Grid interpolation: every method in 1 to 3 dimensions against independent
// oracles (the data at the nodes, polynomials each method must reproduce,
// measured convergence orders, monotonicity, finite differences of the
// interpolant), extrapolation, vector-valued data, thread independence and
// the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "qvarray/interp/interpolator.h"
#include "qvtest.h"
#include "qvutil/numeric.h"
#include "qvutil/parallel.h"

namespace {

using qvarray::Array;
using qvarray::InterpExtrapolation;
using qvarray::InterpMethod;
using qvarray::Interpolator;
using Fn = std::function<double(const double*)>;

const InterpMethod kMethods[] = {InterpMethod::Linear, InterpMethod::Neighbor,
                                 InterpMethod::CubicSpline, InterpMethod::PiecewiseCubic};

// A non-uniform axis of n nodes over [lo, hi] (uniform when jitter is 0).
std::vector<double> axis(size_t n, double lo, double hi, double jitter, qvtest::Rng& rng) {
  std::vector<double> x(n);
  for (size_t i = 0; i < n; ++i)
    x[i] = lo + (hi - lo) * (static_cast<double>(i) + (i && i + 1 < n ? jitter * 0.3 * rng.real() : 0)) /
                    static_cast<double>(n - 1);
  return x;
}

struct Grid {
  std::vector<std::vector<double>> axes;
  Array<double, 2> values;  // one column per function
};

Grid sample(std::vector<std::vector<double>> axes, const std::vector<Fn>& fs) {
  size_t N = 1;
  for (const auto& a : axes) N *= a.size();
  Grid g{std::move(axes), Array<double, 2>(N, fs.size())};
  for (size_t k = 0; k < N; ++k) {
    double x[3];
    size_t r = k;
    for (size_t d = 0; d < g.axes.size(); ++d) x[d] = g.axes[d][r % g.axes[d].size()], r /= g.axes[d].size();
    for (size_t f = 0; f < fs.size(); ++f) g.values(k, f) = fs[f](x);
  }
  return g;
}

// n random points inside the grid's box (rows).
Array<double, 2> pointsIn(const Grid& g, size_t n, qvtest::Rng& rng) {
  Array<double, 2> p(n, g.axes.size());
  for (size_t d = 0; d < g.axes.size(); ++d)
    for (size_t k = 0; k < n; ++k)
      p(k, d) = g.axes[d].front() + (g.axes[d].back() - g.axes[d].front()) * 0.5 * (1 + rng.real());
  return p;
}

double smooth(const double* x, int D) {
  double v = std::sin(1.3 * x[0]);
  if (D > 1) v *= std::cos(0.7 * x[1]);
  if (D > 2) v += std::exp(0.4 * x[2]);
  return v;
}

TEST(GridInterp, ReproducesDataAtNodes) {
  qvtest::Rng rng(1);
  for (int D = 1; D <= 3; ++D)
    for (InterpMethod m : kMethods) {
      SCOPED_TRACE(std::string(qvarray::interpMethodName(m)) + " " + std::to_string(D) + "-D");
      std::vector<std::vector<double>> axes;
      for (int d = 0; d < D; ++d) axes.push_back(axis(4 + d, -1, 2, 1, rng));
      Grid g = sample(axes, {[&](const double*) { return rng.real(); }});
      const Interpolator f = Interpolator::onGrid(g.axes, g.values, m);
      size_t N = g.values.size(0);
      Array<double, 2> nodes(N, D);
      for (size_t k = 0; k < N; ++k) {
        size_t r = k;
        for (int d = 0; d < D; ++d) nodes(k, d) = g.axes[d][r % g.axes[d].size()], r /= g.axes[d].size();
      }
      const Array<double, 2> v = f.evaluate(nodes);
      for (size_t k = 0; k < N; ++k) EXPECT_NEAR(v(k, 0), g.values(k, 0), 1e-14) << k;
    }
}

// Linear reproduces multilinear functions, both cubics tensor-product cubics
// (piecewisecubic only straight lines: its slopes are limited).
TEST(GridInterp, ExactOnPolynomials) {
  qvtest::Rng rng(2);
  struct Case {
    InterpMethod method;
    Fn f;
  };
  const Case cases[] = {
      {InterpMethod::Linear, [](const double* x) { return 1 + 2 * x[0] - 3 * x[1] + x[0] * x[1] * x[2]; }},
      {InterpMethod::CubicSpline,
       [](const double* x) { return x[0] * x[0] * x[0] - 2 * x[0] * x[1] * x[1] * x[2] + x[2] * x[2] * x[2] * x[1]; }},
      {InterpMethod::PiecewiseCubic, [](const double* x) { return 0.5 + x[0] - 2 * x[1] + 3 * x[2]; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(qvarray::interpMethodName(c.method));
    Grid g = sample({axis(6, -1, 2, 1, rng), axis(5, 0, 1, 1, rng), axis(4, -2, 0, 1, rng)}, {c.f});
    const Array<double, 2> p = pointsIn(g, 200, rng);
    const Array<double, 2> v = Interpolator::onGrid(g.axes, g.values, c.method).evaluate(p);
    for (size_t k = 0; k < p.size(0); ++k) {
      const double x[3] = {p(k, 0), p(k, 1), p(k, 2)};
      EXPECT_NEAR(v(k, 0), c.f(x), 1e-12) << k;
    }
  }
}

// Errors on n and 2n uniform nodes: the measured order log2(e_n / e_2n).
TEST(GridInterp, ConvergenceOrders) {
  qvtest::Rng rng(3);
  struct Case {
    InterpMethod method;
    int D;
    double order;
  };
  const Case cases[] = {{InterpMethod::Linear, 1, 2}, {InterpMethod::CubicSpline, 1, 4},
                        {InterpMethod::Linear, 2, 2}, {InterpMethod::CubicSpline, 2, 4},
                        {InterpMethod::CubicSpline, 3, 4}, {InterpMethod::PiecewiseCubic, 1, 2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(qvarray::interpMethodName(c.method)) + " " + std::to_string(c.D) + "-D");
    double err[2];
    for (int level = 0; level < 2; ++level) {
      std::vector<std::vector<double>> axes;
      for (int d = 0; d < c.D; ++d) axes.push_back(axis(12 << level, 0, 3, 0, rng));
      const int D = c.D;
      Grid g = sample(axes, {[D](const double* x) { return smooth(x, D); }});
      qvtest::Rng prng(4);
      const Array<double, 2> p = pointsIn(g, 500, prng);
      const Array<double, 2> v = Interpolator::onGrid(g.axes, g.values, c.method).evaluate(p);
      err[level] = 0;
      for (size_t k = 0; k < p.size(0); ++k) {
        double x[3];
        for (int d = 0; d < D; ++d) x[d] = p(k, d);
        err[level] = std::max(err[level], std::fabs(v(k, 0) - smooth(x, D)));
      }
    }
    EXPECT_GT(std::log2(err[0] / err[1]), c.order - 0.3) << err[0] << " " << err[1];
  }
}

TEST(GridInterp, PiecewiseCubicKeepsMonotoneData) {
  const std::vector<double> x = {0, 1, 1.5, 4, 5, 5.2, 8, 9, 10};
  Array<double, 2> y(x.size(), 1);
  const double data[] = {0, 0, 0.1, 0.1, 3, 3.01, 3.02, 9, 9};
  for (size_t i = 0; i < x.size(); ++i) y(i, 0) = data[i];
  const Interpolator f = Interpolator::onGrid({x}, y, InterpMethod::PiecewiseCubic);
  Array<double, 2> p(2001, 1);
  for (size_t k = 0; k < p.size(0); ++k) p(k, 0) = 10.0 * static_cast<double>(k) / 2000;
  const Array<double, 2> v = f.evaluate(p), dv = f.evaluate(p, 0);
  for (size_t k = 1; k < p.size(0); ++k) {
    EXPECT_GE(v(k, 0), v(k - 1, 0) - 4e-16 * v(k - 1, 0)) << p(k, 0);  // to rounding
    EXPECT_GE(dv(k, 0), 0.0) << p(k, 0);
  }
  EXPECT_EQ(v(50, 0), 0.0);  // flat data stay flat
}

// ∂f/∂x_d against central differences of the interpolant, inside cells.
TEST(GridInterp, DerivativesMatchFiniteDifferences) {
  qvtest::Rng rng(5);
  for (int D = 1; D <= 3; ++D)
    for (InterpMethod m : {InterpMethod::Linear, InterpMethod::CubicSpline, InterpMethod::PiecewiseCubic}) {
      SCOPED_TRACE(std::string(qvarray::interpMethodName(m)) + " " + std::to_string(D) + "-D");
      std::vector<std::vector<double>> axes;
      for (int d = 0; d < D; ++d) axes.push_back(axis(7, -1, 1, 1, rng));
      Grid g = sample(axes, {[D](const double* x) { return smooth(x, D); }});
      const Interpolator f = Interpolator::onGrid(g.axes, g.values, m);
      const Array<double, 2> p = pointsIn(g, 50, rng);
      for (int d = 0; d < D; ++d) {
        const Array<double, 2> dv = f.evaluate(p, d);
        for (size_t k = 0; k < p.size(0); ++k) {
          Array<double, 2> q(1, D);
          for (int e = 0; e < D; ++e) q(0, e) = p(k, e);
          auto at = [&](double t) { return q(0, d) = t, f.evaluate(q)(0, 0); };
          EXPECT_NEAR(dv(k, 0), qvtest::centralDiff(at, p(k, d), 1e-6), 1e-6) << d << " " << k;
        }
      }
    }
}

TEST(GridInterp, Extrapolation) {
  // f = 2x + 1 on [0, 3]; points 1 left and 2 right of the data.
  const std::vector<double> x = {0, 1, 2, 3};
  Array<double, 2> y(4, 1);
  for (size_t i = 0; i < 4; ++i) y(i, 0) = 2 * x[i] + 1;
  const double left = -1, right = 5;
  const double* coords[] = {&left};
  const double* coordsR[] = {&right};
  struct Case {
    InterpExtrapolation ex;
    double left, right, slopeLeft;
  };
  const Case cases[] = {{InterpExtrapolation::Constant, 1, 7, 0},
                        {InterpExtrapolation::Linear, -1, 11, 2}};
  for (InterpMethod m : {InterpMethod::Linear, InterpMethod::CubicSpline, InterpMethod::PiecewiseCubic})
    for (const Case& c : cases) {
      const Interpolator f = Interpolator::onGrid({x}, y, m, c.ex);
      double v = 0;
      f.evaluate(coords, 1, &v);
      EXPECT_NEAR(v, c.left, 1e-13);
      f.evaluate(coordsR, 1, &v);
      EXPECT_NEAR(v, c.right, 1e-13);
      f.evaluate(coords, 1, &v, 0, 0);
      EXPECT_NEAR(v, c.slopeLeft, 1e-13);
    }
  double v = 0;
  Interpolator::onGrid({x}, y, InterpMethod::Linear, InterpExtrapolation::NaN).evaluate(coords, 1, &v);
  EXPECT_TRUE(std::isnan(v));
  // "error" names the point and leaves the output alone.
  const double pts[] = {1.5, 2, 3.5};
  const double* c3[] = {pts};
  double out[3] = {-7, -7, -7};
  const Interpolator fe = Interpolator::onGrid({x}, y, InterpMethod::CubicSpline, InterpExtrapolation::Error);
  const qvbase::Exception e = qvtest::expectThrowKey([&] { fe.evaluate(c3, 3, out); },
                                                     "Point_outside_interpolation_data", "3");
  EXPECT_EQ(e.detail("Coordinates").value_or(""), "(3.5)");
  EXPECT_EQ(out[0], -7);
}

// Several functions over one grid give what each gives alone; the batch
// gives the same bits on one thread and on all, and as a short batch (the
// cubic data, over 32 MB, make long batches go block by block).
TEST(GridInterp, VectorValuedAndThreadIndependent) {
  qvtest::Rng rng(6);
  Grid g = sample({axis(90, 0, 1, 1, rng), axis(80, 0, 2, 1, rng), axis(70, -1, 0, 1, rng)},
                  {[](const double* x) { return smooth(x, 3); }, [](const double* x) { return x[0] * x[2]; }});
  const Array<double, 2> p = pointsIn(g, 20000, rng);
  const double* coords[] = {p.data, p.data + p.size(0), p.data + 2 * p.size(0)};
  for (InterpMethod m : kMethods) {
    const Interpolator f = Interpolator::onGrid(g.axes, g.values, m);
    const int threads = qvbase::Parallel::availableThreads();
    qvbase::Parallel::setAvailableThreads(1);
    const Array<double, 2> serial = f.evaluate(p, 1);
    qvbase::Parallel::setAvailableThreads(std::max(threads, 2));
    const Array<double, 2> all = f.evaluate(p, 1);
    qvbase::Parallel::setAvailableThreads(threads);
    std::vector<double> one(p.size(0)), shortBatch(100);
    for (size_t fun = 0; fun < 2; ++fun) {
      f.evaluate(coords, p.size(0), one.data(), fun, 1);
      f.evaluate(coords, shortBatch.size(), shortBatch.data(), fun, 1);
      for (size_t k = 0; k < p.size(0); ++k) {
        ASSERT_EQ(serial(k, fun), all(k, fun));
        ASSERT_EQ(one[k], all(k, fun));
        if (k < shortBatch.size()) {
          ASSERT_EQ(shortBatch[k], all(k, fun));
        }
      }
    }
  }
}

TEST(GridInterp, BadArguments) {
  const std::vector<double> x = {0, 1, 2, 3};
  Array<double, 2> y(4, 1), y3(3, 1);
  y.fill(1), y3.fill(1);
  Array<double, 2> ynan(y);
  ynan(2, 0) = qvGetNaN();
  using qvtest::Throws;
  auto grid = [&](std::vector<std::vector<double>> axes, const Array<double, 2>& v) {
    return [axes, &v] { Interpolator::onGrid(axes, v, InterpMethod::Linear); };
  };
  qvtest::expectThrowsAll("Invalid_interpolation_grid",
                          {Throws{grid({}, y), "A grid has 1 to 3 axes."},
                           Throws{grid({x, x, x, x}, y), "A grid has 1 to 3 axes."},
                           Throws{grid({{1}}, y), "A grid axis needs at least 2 nodes."},
                           Throws{grid({{0, 2, 1, 3}}, y), "Grid coordinates must be strictly increasing."},
                           Throws{grid({{0, 1, qvGetInf(), 3}}, y), "A grid coordinate is not finite."}});
  qvtest::expectThrowsAll(
      "Invalid_interpolation_data",
      {Throws{grid({x}, y3), "The number of rows of values differs from the number of data points."},
       Throws{grid({x}, ynan), "A data value is not finite."},
       Throws{grid({x}, Array<double, 2>(4, 0)), "The data hold no function (no column of values)."}});
  qvtest::expectThrowKey([] { qvarray::interpMethodByName("spline"); }, "Unknown_interpolation_method", "spline");
  qvtest::expectThrowKey([] { qvarray::interpExtrapolationByName("none"); }, "Unknown_extrapolation_method",
                         "none");
  const Interpolator f = Interpolator::onGrid({x}, y, InterpMethod::Linear);
  double v = 0, out = 0;
  const double* c[] = {&v};
  qvtest::expectThrowsAll("Invalid_interpolation_argument",
                          {Throws{[&] { f.evaluate(c, 1, &out, 1); }, "2"},
                           Throws{[&] { f.evaluate(c, 1, &out, 0, 1); }, "1"},
                           Throws{[&] { f.evaluate(Array<double, 2>(3, 2)); }, "2"}});
  for (const char* name : {"linear", "neighbor", "cubicspline", "piecewisecubic"})
    EXPECT_STREQ(qvarray::interpMethodName(qvarray::interpMethodByName(name)), name);
}

}  // namespace
