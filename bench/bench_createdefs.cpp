// One formula, evaluated at n points by the evaluation engine and by the
// compiler's in-process evaluation of the definitions that createNodeDefs
// makes from the engine's nodes, beside a plain loop.
//
// Names: eval/<formula>/<n>/<impl>
//   qvarray   the engine: the formula's node evaluated once over arrays of
//             the n points (a fresh value cache per evaluation)
//   exprcomp  ExprComp::eval called once per point (the compiler's
//             interpreter of the same definitions; the passes run before
//             timing)
//   fused     a hand-written loop with the C library's functions
// Counter per_point: the time per point.
//
// Check (once per configuration, before timing): on the arithmetic, the
// comparisons and the smoothed step exprcomp gives the engine's bits, with
// sin and cos (the engine's vector library, the C library here) it agrees
// within 8 * 2^-52 of the largest value; so does the fused loop (built with
// -march=native, it may fuse multiply-adds).
#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <random>
#include <string>

#include "benchcheck.h"
#include "qvarray/expr/arrayallocator.h"
#include "qvarray/expr/createdefs.h"
#include "qvarray/expr/exprtree.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/varevaluator.h"

namespace {

using namespace qvarray;

// x and y bound to arrays of the points.
class PointsEvaluator : public VarEvaluator {
 public:
  std::map<std::string, ValRepPtr> values;
  bool eval(const VarEvalPtr&, const std::string& name, const NodeList& args, unsigned,
            ValRepPtr& r, ValRepCache&) override {
    auto it = values.find(name);
    if (!args.empty() || it == values.end()) return false;
    r = it->second;
    return true;
  }
};

struct Formula {
  const char* name;
  const char* text;
  double (*fused)(double x, double y);
  double tol;  // of exprcomp against the engine (0: the same bits)
};

const Formula kFormulas[] = {
    {"arith", "x*y + 3*x^2 - x/y", [](double x, double y) { return x * y + 3 * (x * x) - x / y; }, 0},
    {"trig", "sin(x)^2 + cos(x)^2",
     [](double x, double) { return std::sin(x) * std::sin(x) + std::cos(x) * std::cos(x); },
     8 * 0x1p-52},
    {"step", "qvsmhs(x, 0.5) + (x > y)",
     [](double x, double y) {
       double t = x / 0.5 + 0.5, s = 0.0;
       if (t >= 1.0) s = 1.0;
       else if (t > 0.0) s = ((((-20 * t + 70) * t - 84) * t + 35) * t) * t * t * t;
       return s + (x > y ? 1.0 : 0.0);
     },
     0},
};

struct Setup {
  std::shared_ptr<PointsEvaluator> ev = std::make_shared<PointsEvaluator>();
  std::shared_ptr<SerialArrayAllocator> alloc;
  EvalNodePtr node;
  ExprComp comp;
  size_t n;
  std::vector<double> x, y;
  Setup(const Formula& f, size_t len) : n(len), x(len), y(len) {
    alloc = std::make_shared<SerialArrayAllocator>(static_cast<int>(len), 5000000);
    std::mt19937_64 gen(11);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    for (size_t i = 0; i < n; ++i) x[i] = dist(gen), y[i] = 1.5 + dist(gen);
    for (auto [name, src] : {std::pair{"x", &x}, std::pair{"y", &y}}) {
      auto v = std::make_shared<ValRep>(alloc);
      v->reset(false, false, n);
      std::copy(src->begin(), src->end(), v->addDArray().data);
      ev->values[name] = v;
    }
    node = ev->getNodeMaker().fromSyntax(*ExprImpl(f.text).root(), ev);
    createNodeDefs(comp, {"f"}, {node}, {"x", "y"}, ev);
    std::vector<double> out;
    comp.eval({x[0], y[0]}, out);  // runs the passes
  }
  ValRepPtr engine() {
    ValRepCache cache;
    return node->eval(ev, cache, 0);
  }
  void compiled(std::vector<double>& r) {
    std::vector<double> in(2), out;
    for (size_t i = 0; i < n; ++i) {
      in[0] = x[i];
      in[1] = y[i];
      comp.eval(in, out);
      r[i] = out[0];
    }
  }
};

qvbench::Agreements check(const Formula& f, size_t n) {
  Setup s(f, n);
  ValRepPtr v = s.engine();
  const double* ours = v->getDoubleIterator(0);
  std::vector<double> c(n), p(n);
  s.compiled(c);
  for (size_t i = 0; i < n; ++i) p[i] = f.fused(s.x[i], s.y[i]);
  auto diff = [&](const std::vector<double>& r) {
    return f.tol == 0 ? qvbench::bitDiff(ours, r.data(), n) : qvbench::relDiff(ours, r.data(), n);
  };
  qvbench::Agreements out;
  out["qvarray"] = {0.0, 0.0};
  out["exprcomp"] = {diff(c), f.tol};
  out["fused"] = {qvbench::relDiff(ours, p.data(), n), 8 * 0x1p-52};
  return out;
}

void BM_eval(benchmark::State& st, const Formula& f, size_t n, const std::string& impl) {
  const std::string config = std::string("eval/") + f.name + "/" + std::to_string(n);
  if (!qvbench::agrees(st, qvbench::checked(config, [&] { return check(f, n); }), impl)) return;
  Setup s(f, n);
  std::vector<double> r(n);
  if (impl == "qvarray") {
    for (auto _ : st) benchmark::DoNotOptimize(s.engine().get());
  } else if (impl == "exprcomp") {
    for (auto _ : st) {
      s.compiled(r);
      benchmark::ClobberMemory();
    }
  } else {
    for (auto _ : st) {
      for (size_t i = 0; i < n; ++i) r[i] = f.fused(s.x[i], s.y[i]);
      benchmark::ClobberMemory();
    }
  }
  st.counters["per_point"] = benchmark::Counter(
      static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

const bool kRegistered = [] {
  for (const Formula& f : kFormulas)
    for (size_t n : {100, 10000})
      for (const char* impl : {"qvarray", "exprcomp", "fused"})
        benchmark::RegisterBenchmark(
            (std::string("eval/") + f.name + "/" + std::to_string(n) + "/" + impl).c_str(), BM_eval,
            f, n, std::string(impl));
  return true;
}();

}  // namespace
