// Building and differentiating large expressions: the library's node factory
// (hash-consed, folded nodes; derivatives memoised per shared subexpression)
// against GiNaC's expression construction and diff.
//
// Cases, each built from nothing and differentiated by x per iteration:
//   sines/N    sum over k = 1..N of sin(k x) sin(y + k)
//   nested/D   g <- g sin(g) + x, D times from g = x
// qvarray: a fresh NodeMaker (empty tables) per iteration, nodes made through
// makeOpNode, then diff. ginac: the same expression as a GiNaC ex, then diff.
// Counters (qvarray): nodes = nodes the factory made for the expression and
// its derivative; tree = size of the derivative written out as a tree (no
// sharing), which is what an unshared representation would hold.
//
// Check (before timing): the derivatives' values at x = 0.3, y = 0.7 agree
// within 1e-12, relative to the value, or 1e-9 for the sums of 10^4 terms,
// which the two add in different orders. GiNaC evaluates with evalf (17
// decimal digits), the library in double.
//
//   build/release/bench/bench_nodes --benchmark_min_time=0.5
#include <benchmark/benchmark.h>
#include <ginac/ginac.h>

#include <cmath>
#include <unordered_map>
#include <utility>

#include "benchcheck.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/varevaluator.h"

namespace {

using namespace qvarray;
using NM = NodeMaker;

class PointEvaluator : public VarEvaluator {
 public:
  bool eval(const VarEvalPtr&, const std::string& name, const NodeList&, unsigned, ValRepPtr& r,
            ValRepCache&) override {
    r = std::make_shared<ValRep>(name == "x" ? 0.3 : 0.7);
    return true;
  }
};

struct Built {
  std::shared_ptr<PointEvaluator> ev = std::make_shared<PointEvaluator>();
  EvalNodePtr f, d;
};

Built buildOurs(bool nested, int n) {
  Built b;
  NodeMaker& m = b.ev->getNodeMaker();
  FunPtr sin = m.builtinFun("sin", 1);
  EvalNodePtr x = m.makeVarNode("x"), y = m.makeVarNode("y");
  if (nested) {
    b.f = x;
    for (int k = 0; k < n; ++k)
      b.f = m.makeOpNode(NM::Plus, m.makeOpNode(NM::Times, b.f, m.makeOpNode(sin, b.f)), x);
  } else {
    b.f = m.zero();
    for (int k = 1; k <= n; ++k) {
      EvalNodePtr kk = m.makeConstNode(double(k));
      b.f = m.makeOpNode(NM::Plus, b.f,
                         m.makeOpNode(NM::Times, m.makeOpNode(sin, m.makeOpNode(NM::Times, kk, x)),
                                      m.makeOpNode(sin, m.makeOpNode(NM::Plus, y, kk))));
    }
  }
  b.d = b.f->diff("x", b.ev);
  return b;
}

const GiNaC::symbol& symbolX() {
  static const GiNaC::symbol x("x");
  return x;
}
const GiNaC::symbol& symbolY() {
  static const GiNaC::symbol y("y");
  return y;
}

GiNaC::ex buildGinac(bool nested, int n) {
  const GiNaC::symbol &x = symbolX(), &y = symbolY();
  GiNaC::ex f;
  if (nested) {
    f = x;
    for (int k = 0; k < n; ++k) f = f * GiNaC::sin(f) + x;
  } else {
    f = 0;
    for (int k = 1; k <= n; ++k) f += GiNaC::sin(k * x) * GiNaC::sin(y + k);
  }
  return f.diff(x);
}

double ourValue(const Built& b) {
  ValRepCache cache;
  return b.d->eval(b.ev, cache, 0)->getDouble();
}

double ginacValue(const GiNaC::ex& d) {
  GiNaC::exmap at;
  at[symbolX()] = 0.3;
  at[symbolY()] = 0.7;
  return GiNaC::ex_to<GiNaC::numeric>(GiNaC::evalf(d.subs(at))).to_double();
}

// Size of the node written out as a tree.
double treeSize(const EvalNodePtr& n, std::unordered_map<const EvalNode*, double>& memo) {
  if (auto it = memo.find(n.get()); it != memo.end()) return it->second;
  double s = 1;
  if (auto* p = dynamic_cast<ProxyNode*>(n.get())) s = treeSize(p->target(), memo);
  if (auto* o = dynamic_cast<OpNode*>(n.get()))
    for (const auto& a : o->args()) s += treeSize(a, memo);
  return memo[n.get()] = s;
}

bool checked(benchmark::State& st, bool nested, int n, const char* impl) {
  std::string config = std::string(nested ? "nested/" : "sines/") + std::to_string(n);
  const auto& agreements = qvbench::checked(config, [&] {
    double ours = ourValue(buildOurs(nested, n)), theirs = ginacValue(buildGinac(nested, n));
    qvbench::Agreements a;
    a["qvarray"] = {0.0, 0.0};
    a["ginac"] = {qvbench::relDiff(&theirs, &ours, 1), n >= 10000 ? 1e-9 : 1e-12};
    return a;
  });
  return qvbench::agrees(st, agreements, impl);
}

void ours(benchmark::State& st, bool nested, int n) {
  if (!checked(st, nested, n, "qvarray")) return;
  for (auto _ : st) {
    Built b = buildOurs(nested, n);
    benchmark::DoNotOptimize(b.d.get());
  }
  Built b = buildOurs(nested, n);
  std::unordered_map<const EvalNode*, double> memo;
  st.counters["nodes"] = double(b.ev->getNodeMaker().tableSize());
  st.counters["tree"] = treeSize(b.d, memo);
}

void ginac(benchmark::State& st, bool nested, int n) {
  if (!checked(st, nested, n, "ginac")) return;
  for (auto _ : st) {
    GiNaC::ex d = buildGinac(nested, n);
    benchmark::DoNotOptimize(&d);
  }
}

const bool kRegistered = [] {
  for (auto [nested, n] : {std::pair{false, 1000}, {false, 10000}, {true, 8}, {true, 12}}) {
    std::string c = std::string(nested ? "nested/" : "sines/") + std::to_string(n);
    benchmark::RegisterBenchmark((c + "/qvarray").c_str(), ours, nested, n)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((c + "/ginac").c_str(), ginac, nested, n)->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
