// Evaluation trees and recursion guards: time-order sets against an interval
// model; identity numbers; the evaluation rules (zero root, request mask, NaN
// annotation on a copy); syntax errors; derivatives against central
// differences; combinators, simplify and linearize against direct
// evaluation; shadows renewed by the version key; the recursion limit at
// 9999/10000 nested definitions, on the calling thread and on a worker.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <map>
#include <random>
#include <set>

#include "qvarray/expr/evaltree.h"
#include "nodetesting.h"
#include "qvtest.h"
#include "qvutil/parallel.h"

using namespace qvarray;

namespace {

using qvtest::TestEvaluator;
using EvPtr = std::shared_ptr<TestEvaluator>;

// NaN for a NaN value.
double value(const EvalTreePtr& t, const EvPtr& ev, unsigned flags = kEvalNames) {
  ValRepCache cache;
  ValRepPtr v = t->eval(ev, cache, flags);
  return v->isNaN() ? NAN : v->isZero() ? 0.0 : v->getDouble();
}

EvalTreePtr tree(const std::string& text) { return std::make_shared<EvalTree>(text); }

// Time orders as intervals: order k < 15 is [k, k], bit 15 is [15, "inf");
// sums and differences of intervals, clipped at 0, read back as a mask. An
// independent statement of what the mask rules compute.
using Ivl = std::pair<int, int>;
std::vector<Ivl> toIvls(uint16_t m) {
  std::vector<Ivl> v;
  for (int k = 0; k < 16; ++k)
    if (m >> k & 1) v.push_back({k, k < 15 ? k : 1 << 20});
  return v;
}
uint16_t toMask(const std::vector<Ivl>& v) {
  uint32_t m = 0;
  for (auto [lo, hi] : v)
    for (int k = std::min(std::max(lo, 0), 15); hi >= std::max(lo, 0) && k <= std::min(hi, 15); ++k)
      m |= 1u << k;
  return static_cast<uint16_t>(m);
}
// a + b (sign 1) or a - b (sign -1); a shift by n is a + [n, n].
uint16_t modelSum(uint16_t a, const std::vector<Ivl>& b, int sign) {
  std::vector<Ivl> v;
  for (auto [alo, ahi] : toIvls(a))
    for (auto [blo, bhi] : b) v.push_back(sign > 0 ? Ivl{alo + blo, ahi + bhi} : Ivl{alo - bhi, ahi - blo});
  return toMask(v);
}
TimeOrderRange fromMask(uint16_t m) {
  TimeOrderRange r;
  for (int k = 0; k < 16; ++k)
    if (m >> k & 1) r.set(k);
  return r;
}

// Definitions v_i = v_{i+1} + 1 for i < n, v_n = 1: v_1 is n and needs n
// nested variable evaluations.
EvPtr chainEvaluator(int n) {
  auto ev = std::make_shared<TestEvaluator>();
  NodeMaker& mk = ev->getNodeMaker();
  for (int i = 1; i < n; ++i)
    ev->defs["v" + std::to_string(i)] =
        mk.makeOpNode(NodeMaker::Plus, mk.makeVarNode("v" + std::to_string(i + 1)), mk.unit());
  ev->defs["v" + std::to_string(n)] = mk.unit();
  return ev;
}

}  // namespace

TEST(TimeOrderRange, AgainstIntervalModel) {
  std::mt19937 g(11);
  std::uniform_int_distribution<int> mask(0, 0xFFFF), bit(0, 3), k(-3, 20), n(-20, 20);
  auto randomMask = [&] {  // sparse sets too, and the special {0}
    int r = bit(g);
    return static_cast<uint16_t>(r == 0 ? 0 : r == 1 ? 1 : r == 2 ? (1u << bit(g) * 5) : mask(g));
  };
  for (int trial = 0; trial < 3000; ++trial) {
    uint16_t a = randomMask(), b = randomMask();
    int s = n(g), lo = k(g), hi = k(g);
    TimeOrderRange ra = fromMask(a), rb = fromMask(b);
    ASSERT_EQ(ra.mask(), a);
    TimeOrderRange t = ra;
    t.tShift(s);
    EXPECT_EQ(t.mask(), modelSum(a, {{s, s}}, 1)) << a << " shift " << s;
    t = ra;
    t += rb;
    EXPECT_EQ(t.mask(), modelSum(a, toIvls(b), 1)) << a << " + " << b;
    t = ra;
    t -= rb;
    EXPECT_EQ(t.mask(), modelSum(a, toIvls(b), -1)) << a << " - " << b;
    EXPECT_EQ(ra.intersects(rb), (a & b) != 0);
    t = ra;
    t.set(-1);  // no negative orders
    EXPECT_EQ(t.mask(), a);
    EXPECT_EQ(TimeOrderRange(lo, hi).mask(),
              lo > hi ? 0 : toMask({{lo >= 15 ? 15 : lo, lo >= 15 ? 15 : hi}}));
    EXPECT_EQ(ra.get(lo), lo >= 0 && ((a >> std::min(lo, 15)) & 1));
  }
}

TEST(EvalTree, IdentityAndEvaluationRules) {
  auto ev = std::make_shared<TestEvaluator>();
  ev->values = {{"x", 2.0}};
  EvalTree a("x+1"), b("x+1"), c(a);
  EXPECT_NE(a.getID(), b.getID());
  EXPECT_EQ(c.getID(), a.getID());
  b = a;
  EXPECT_EQ(b.getID(), a.getID());
  EXPECT_EQ(EvalTree(a).getRoot(ev), a.getRoot(ev));  // a parsed copy shares the root
  NodeMaker& mk = ev->getNodeMaker();
  EXPECT_EQ(mk.makeTree(a.getRoot(ev)), mk.makeTree(a.getRoot(ev)));
  EXPECT_EQ(EvalTree("u", true).getNames(), std::vector<std::string>{"u"});
  // Zero root whatever the flags (y is unknown: never evaluated), then mask 5.
  struct Row {
    const char* text;
    unsigned flags;
    double expect;  // NaN: a NaN value; -0.0: a value marked zero
  };
  const Row rows[] = {{"0*y", 0, -0.0},           {"0*y", kEvalVariantA, -0.0},
                      {"x+1", 0, NAN},            {"x+1", kEvalVariantB | kEvalComplex, NAN},
                      {"x+1", kEvalNames, 3},     {"x+1", kEvalAnnotate, 3},
                      {"x*x-1", kEvalNames | kEvalVariantC, 3}, {"1/(x-2)", kEvalNames, NAN}};
  for (const Row& r : rows) {
    ValRepCache cache;
    ValRepPtr v = tree(r.text)->eval(ev, cache, r.flags);
    EXPECT_EQ(v->isZero(), r.expect == 0 && std::signbit(r.expect)) << r.text;
    EXPECT_EQ(v->isNaN(), std::isnan(r.expect)) << r.text;
    if (!v->isNaN() && !v->isZero()) {
      EXPECT_EQ(v->getDouble(), r.expect) << r.text;
    }
  }
  EvalTreePtr two = tree("2");
  EXPECT_FALSE(two->isConstant());  // unparsed
  two->getRoot(ev);
  EXPECT_TRUE(two->isConstant());
}

TEST(EvalTree, NaNAnnotationCopiesASharedValue) {
  auto ev = std::make_shared<TestEvaluator>();
  // A NaN value with a record, shared by the cache.
  ValRepPtr shared = ValRep::makeNaN();
  shared->setErrors(std::make_shared<qvbase::ErrInfo>("evalfun", qvbase::DetailPairs{{"div", "1"}}));
  ValRepCache cache;
  cache.setVar("w", kEvalAnnotate, shared);
  ValRepPtr r = tree("w")->eval(ev, cache, kEvalAnnotate);
  ASSERT_TRUE(r->isNaN());
  EXPECT_NE(r, shared);
  const qvbase::ErrInfo& rec = *r->getErrors();
  EXPECT_EQ(rec.module(), "evalfun");
  ASSERT_TRUE(rec.find("message") && rec.find("exprs") && rec.find("div"));
  EXPECT_EQ(*rec.find("message"), "expreval");
  EXPECT_EQ(*rec.find("exprs"), "w");
  EXPECT_EQ(shared->getErrors()->pairs().size(), 1u);  // the shared value is unchanged
  // Without the flag nothing is added; a NaN from evaluation is annotated too.
  EXPECT_FALSE(tree("w")->eval(ev, cache, kEvalNames)->getErrors()->find("exprs"));
  ev->values = {{"x", 0.0}};
  ValRepPtr d = tree("1/x")->eval(ev, cache, kEvalAnnotate);
  ASSERT_TRUE(d->isNaN());
  EXPECT_EQ(*d->getErrors()->find("exprs"), "1/x");
}

TEST(EvalTree, Errors) {
  auto ev = std::make_shared<TestEvaluator>();
  EXPECT_EQ(qvtest::expectThrowKey([&] { tree("x+*2")->getRoot(ev); }, "Syntax_error_in_expression",
                                   "x+*2").module(), "evaltree");
  qvtest::expectThrowKey([&] { tree("")->getRoot(ev); }, "Syntax_error_in_expression", "");
  qvtest::expectThrowKey([&] { tree("x")->linearize(ev, {"x"}, {}); }, "Evaluation_internal_error");
  qvtest::expectThrowKey([&] { EvalTree::diffStatic(nullptr, "x", ev); }, "Evaluation_internal_error");
}

TEST(EvalTree, DerivativesAgainstCentralDifferences) {
  qvtest::NodeFixture f;
  auto& ev = f.ev;
  ev->defs["u"] = f.parse("sin(x)*y");
  const char* texts[] = {"x^3-2*x*y", "exp(-x/y)*u", "sqrt(x^2+y^2)", "log(1+x^2)/y", "atan(u)"};
  const double h = 1e-5;
  for (const char* text : texts) {
    EvalTreePtr t = tree(text);
    for (const char* var : {"x", "y"}) {
      EvalTreePtr d = EvalTree::diffStatic(t, var, ev);
      EXPECT_EQ(d, t->diff(var, ev)) << "memoised";
      const bool byX = var[0] == 'x';
      for (double x : {-0.7, 0.4, 1.3}) {
        const double y = 0.9;
        auto at = [&](double s) {
          ev->values = {{"x", byX ? s : x}, {"y", byX ? y : s}};
          return value(t, ev);
        };
        const double fd = qvtest::centralDiff(at, byX ? x : y, h);
        at(byX ? x : y);
        EXPECT_NEAR(value(d, ev), fd, 1e-7 * (1 + std::fabs(fd))) << text << " by " << var;
      }
    }
  }
}

TEST(EvalTree, CombinatorsSimplifyLinearize) {
  auto ev = std::make_shared<TestEvaluator>();
  ev->values = {{"x", 1.5}, {"y", -0.25}, {"dx", 0.3}, {"dy", 2.0}};
  EvalTreePtr a = tree("x*y+1"), b = tree("exp(x)");
  const double va = value(a, ev), vb = value(b, ev);
  struct Row {
    EvalTreePtr t;
    double expect;
    const char* text;
  };
  const Row rows[] = {{EvalTree::plus(a, b, ev), va + vb, "(x*y+1)+(exp(x))"},
                      {EvalTree::minus(a, b, ev), va - vb, "(x*y+1)-(exp(x))"},
                      {EvalTree::times(a, b, ev), va * vb, "(x*y+1)*(exp(x))"},
                      {EvalTree::uminus(a, ev), -va, "-(x*y+1)"},
                      {a->simplify(ev), va, "simplify(x*y+1)"},
                      // d(x*y+1) along (dx, dy): y*dx + x*dy
                      {a->linearize(ev, {"x", "y"}, {"dx", "dy"}), -0.25 * 0.3 + 1.5 * 2.0, nullptr}};
  for (const Row& r : rows) {
    EXPECT_DOUBLE_EQ(value(r.t, ev), r.expect);
    if (r.text) {
      EXPECT_EQ(r.t->getExpr(), r.text);
    }
  }
  EvalTreePtr sq = tree("x*x");
  EXPECT_EQ(sq->getExpandedExpr(), "x*x");  // unparsed: the text
  sq->getRoot(ev);
  EXPECT_EQ(sq->getExpandedExpr(), "(x)^(2)");
  IdSet ids;
  NameSet names;
  ev->defs["u"] = ev->getNodeMaker().makeVarNode("z");
  tree("x+u*y")->gatherBVars(ev, ids, names);
  EXPECT_EQ(names, (NameSet{"x", "u", "y", "z"}));
}

TEST(EvalTree, ShadowRenewedByVersionKey) {
  qvtest::NodeFixture f;
  auto& ev = f.ev;
  ev->values = {{"x", 3.0}};
  ev->defs["u"] = f.parse("x+1");
  EvalTreePtr t = tree("u*2");
  EXPECT_EQ(value(t->diff("x", ev), ev), 2.0);
  ev->defs["u"] = f.parse("x*x");
  EXPECT_EQ(value(t->diff("x", ev), ev), 2.0);  // the shadow's derivative of its version
  ev->updateVersion();
  EXPECT_EQ(value(t->diff("x", ev), ev), 12.0);
  EXPECT_TRUE(EvalTreeShadow().shouldUpdateCache(ev->getVersionKey()));
}

// One tree shared by a team: parsed once, every thread sees the same root,
// and each thread's evaluator (sharing the factory) gets the same values.
TEST(EvalTreeParallel, FirstParseIsShared) {
  auto proto = std::make_shared<TestEvaluator>();
  proto->values = {{"x", 0.5}};
  EvalTreePtr t = tree("sin(x)^2+cos(x)^2-x*x");
  std::vector<EvalNodePtr> roots(4);
  std::vector<double> values(4);
  int n = 1;
#pragma omp parallel num_threads(std::min(4, int(MAXAVAILABLETHREADS)))
  {
    auto ev = std::make_shared<TestEvaluator>(*proto);
    const int i = omp_get_thread_num();
    if (i == 0) n = omp_get_num_threads();
    roots[i] = t->getRoot(ev);
    values[i] = value(t, ev);
  }
  for (int i = 1; i < n; ++i) {
    EXPECT_EQ(roots[i], roots[0]);
    EXPECT_EQ(values[i], values[0]);
  }
  EXPECT_DOUBLE_EQ(values[0], 0.75);
}

TEST(RecLimCheck, DepthNamesAndExemption) {
  SerialRecCount counter;
  std::vector<std::unique_ptr<RecLimCheck>> checks;
  for (int i = 1; i <= RecLimCheck::kLimit; ++i) {
    checks.push_back(std::make_unique<RecLimCheck>());
    checks.back()->init(counter, "n" + std::to_string(i % 2));
    ASSERT_EQ(checks.back()->isLimitExceeded(), i >= 10000) << i;
    ASSERT_EQ(checks.back()->isError(), i >= 10000) << i;
  }
  EXPECT_EQ(counter.getRecDepth(), 10000);
  while (!checks.empty()) checks.pop_back();  // innermost first
  EXPECT_EQ(counter.getRecDepth(), 0);
  EXPECT_EQ(counter.getCheckName(), "");
  // The same name and data directly inside: an error, unless exempt.
  struct Row {
    const char *outer, *inner;
    RecVarData outerData, innerData;
    bool same;
  } rows[] = {{"a", "a", {}, {}, true},           {"a", "b", {}, {}, false},
              {"a", "a", {1, 2, 3}, {1, 2, 4}, false}, {"a", "a", {1, 2, 3}, {1, 2, 3}, true},
              {"{a", "{a", {}, {}, false},        {"a}", "a}", {}, {}, false}};
  for (const Row& r : rows) {
    RecLimCheck outer;
    outer.init(counter, r.outer, r.outerData);
    {
      RecLimCheck inner;
      inner.init(counter, r.inner, r.innerData);
      EXPECT_EQ(inner.isSame(), r.same) << r.outer << " " << r.inner;
      EXPECT_EQ(inner.isError(), r.same);
      EXPECT_EQ(counter.getCheckName(), r.inner);
      EXPECT_EQ(counter.getCheckDepth(), 2);
    }
    EXPECT_EQ(counter.getCheckName(), r.outer);  // put back
    EXPECT_TRUE(counter.getCheckId() == r.outerData);
  }
  // One state per thread.
  ParaRecCount para;
  int bad = 0;
#pragma omp parallel num_threads(std::min(2, int(MAXAVAILABLETHREADS))) reduction(+ : bad)
  {
    RecLimCheck c;
    c.init(para, "t");
    bad += c.getDepth() != 1;
  }
  EXPECT_EQ(bad, 0);
}

// 9999 nested definitions evaluate; 10000 reach the limit; circular
// definitions are reported with their chain. In a release build on the
// calling thread and on an OpenMP worker (8 MiB stacks unless OMP_STACKSIZE
// says less); instrumented frames are several times larger, so sanitizer
// builds run the nesting on a thread with a larger stack instead.
TEST(RecLimCheck, NestedDefinitionsReachTheLimitBeforeTheStack) {
  auto run = [](int n) -> std::string {
    EvPtr ev = chainEvaluator(n);
    try {
      double v = value(tree("v1"), ev);
      return v == n ? "ok" : "wrong value";
    } catch (const qvbase::Exception& e) {
      return e.key() + " " + e.detail("Depth").value_or("") + " " + e.detail("message").value_or("");
    }
  };
  std::string result[4];
  auto nested = [&] {
    result[0] = run(9999);
    result[1] = run(10000);
    auto ev = std::make_shared<TestEvaluator>();
    NodeMaker& mk = ev->getNodeMaker();
    ev->defs["a"] = mk.makeOpNode(NodeMaker::Plus, mk.makeVarNode("b"), mk.unit());
    ev->defs["b"] = mk.makeOpNode(NodeMaker::Times, mk.makeVarNode("a"), mk.makeConstNode(2.0));
    qvbase::Exception e = qvtest::expectThrowKey([&] { value(tree("a"), ev); }, "Recursion_limit_exceeded");
    result[2] = e.detail("Chain").value_or("");  // depth 10000 is b
    result[3] = std::to_string(ev->getRecCount().getRecDepth());  // guards unwound
  };
  const std::string expect[4] = {"ok", "Recursion_limit_exceeded 10000 circvar", "b -> a -> b", "0"};
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  qvtest::onStack(size_t(256) << 20, nested);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(result[i], expect[i]) << i;
#else
  nested();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(result[i], expect[i]) << i;
  for (auto& r : result) r.clear();
  bool onWorker = false;
#pragma omp parallel num_threads(std::min(2, int(MAXAVAILABLETHREADS)))
  if (omp_get_thread_num() == 1) {
    onWorker = true;
    nested();
  }
  if (onWorker) {
    for (int i = 0; i < 4; ++i) EXPECT_EQ(result[i], expect[i]) << "worker " << i;
  }
#endif

  // A definition that needs itself directly stops at once.
  auto ev = std::make_shared<TestEvaluator>();
  NodeMaker& mk = ev->getNodeMaker();
  ev->defs["c"] = mk.makeOpNode(NodeMaker::Sin, mk.makeVarNode("c"));
  qvbase::Exception e = qvtest::expectThrowKey([&] { value(tree("c"), ev); }, "Recursion_limit_exceeded");
  EXPECT_EQ(e.detail("Chain").value_or(""), "c -> c");
  EXPECT_EQ(e.detail("Depth").value_or(""), "2");
}
