// Interpolation of 10⁶ points, side by side with scipy.interpolate on the same
// data: bench/interp_scipy.py writes the data and scipy's results to a
// directory (QV_INTERP_DATA), times scipy, runs this program and prints both
// with their ratios. Run alone (without QV_INTERP_DATA) it skips every case.
//
// Names: <case>/qvarray
//   grid_1e6/linear, grid_1e6/neighbor   100³ uniform grid on [0,1]³, 10⁶
//       random points inside; peer RegularGridInterpolator("linear"/"nearest")
//   grid_1e6/cubicspline                 the same with not-a-knot splines
//       (no peer: scipy 1.10's "cubic" takes minutes here)
//   scattered_1e5/linear                 10⁵ random points in [0,1]³, 10⁶
//       queries in [0.05,0.95]³ (inside the hull: scipy's point location
//       scans every simplex for a point outside, 8 ms each here); peer
//       LinearNDInterpolator
//   scattered_1e5/neighbor               peer cKDTree.query → values
// The library runs on one thread (as scipy does); both are compared by CPU
// time, which the other processes of a shared machine do not inflate. Setup
// (the grid's Hermite data, the triangulation, the k-d tree) is not timed.
//
// Checks (once per case, before timing): largest difference to scipy's
// result relative to the largest value: linear cases within 1e-12, nearest
// cases bit for bit.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/interp/interpolator.h"
#include "qvutil/parallel.h"

namespace {

using qvarray::Array;
using qvarray::InterpExtrapolation;
using qvarray::InterpMethod;
using qvarray::Interpolator;

const char* dataDir() { return std::getenv("QV_INTERP_DATA"); }

// A file of raw doubles written by interp_scipy.py.
std::vector<double> load(const std::string& name) {
  std::ifstream in(std::string(dataDir()) + "/" + name + ".f64", std::ios::binary | std::ios::ate);
  if (!in) return {};
  std::vector<double> v(static_cast<size_t>(in.tellg()) / sizeof(double));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(v.data()), static_cast<std::streamsize>(v.size() * sizeof(double)));
  return v;
}

Array<double, 2> matrix(const std::vector<double>& v, size_t cols) {
  Array<double, 2> a(v.size() / cols, cols);
  std::copy(v.begin(), v.end(), a.data);
  return a;
}

struct Case {
  Interpolator f;
  Array<double, 2> queries;  // rows: points
  std::vector<double> reference;
};

std::unique_ptr<Case> makeCase(const std::string& kind, InterpMethod method) {
  if (kind == "grid_1e6") {
    const std::vector<double> axes = load("grid_axes");
    const size_t n = axes.size() / 3;
    std::vector<std::vector<double>> ax;
    for (int d = 0; d < 3; ++d) ax.emplace_back(axes.begin() + d * n, axes.begin() + (d + 1) * n);
    Interpolator f = Interpolator::onGrid(ax, matrix(load("grid_values"), 1), method);
    return std::make_unique<Case>(Case{f, matrix(load("grid_queries"), 3),
                                       load(std::string("grid_") + qvarray::interpMethodName(method))});
  }
  Interpolator f = Interpolator::scattered(matrix(load("scattered_points"), 3), matrix(load("scattered_values"), 1),
                                           method,
                                           method == InterpMethod::Linear ? InterpExtrapolation::NaN
                                                                          : InterpExtrapolation::Constant);
  return std::make_unique<Case>(Case{f, matrix(load("scattered_queries"), 3),
                                     load(std::string("scattered_") + qvarray::interpMethodName(method))});
}

void run(benchmark::State& state, const std::string& kind, InterpMethod method) {
  if (!dataDir()) {
    state.SkipWithError("QV_INTERP_DATA not set (run bench/interp_scipy.py)");
    return;
  }
  qvbase::Parallel::setAvailableThreads(1);
  static std::map<std::string, std::unique_ptr<Case>> cases;
  const std::string name = kind + "/" + qvarray::interpMethodName(method);
  auto& c = cases[name];
  if (!c) c = makeCase(kind, method);
  const qvbench::Agreements& agreements = qvbench::checked(name, [&] {
    qvbench::Agreements a;
    if (c->reference.empty()) return a;
    const Array<double, 2> v = c->f.evaluate(c->queries);
    const bool nearest = method == InterpMethod::Neighbor;
    a["scipy"] = {qvbench::relDiff(v.data, c->reference.data(), v.size()), nearest ? 0.0 : 1e-12};
    if (nearest) a["scipy"].diff = qvbench::bitDiff(v.data, c->reference.data(), v.size());
    return a;
  });
  if (!c->reference.empty() && !qvbench::agrees(state, agreements, "scipy")) return;
  for (auto _ : state) {
    Array<double, 2> v = c->f.evaluate(c->queries);
    benchmark::DoNotOptimize(v.data);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * c->queries.size(0)));
}

}  // namespace

BENCHMARK_CAPTURE(run, grid_linear, std::string("grid_1e6"), InterpMethod::Linear)
    ->Name("grid_1e6/linear/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run, grid_neighbor, std::string("grid_1e6"), InterpMethod::Neighbor)
    ->Name("grid_1e6/neighbor/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run, grid_cubic, std::string("grid_1e6"), InterpMethod::CubicSpline)
    ->Name("grid_1e6/cubicspline/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run, scattered_linear, std::string("scattered_1e5"), InterpMethod::Linear)
    ->Name("scattered_1e5/linear/qvarray")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(run, scattered_neighbor, std::string("scattered_1e5"), InterpMethod::Neighbor)
    ->Name("scattered_1e5/neighbor/qvarray")->Unit(benchmark::kMillisecond);
