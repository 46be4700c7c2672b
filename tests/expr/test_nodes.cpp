// Evaluation nodes and their factory: the folds and simplifications of the
// factory's table; nodes against a plain double evaluation of the syntax
// tree at random points; symbolic derivatives against central differences
// and read back from their printed form; hash-consing on one thread, two
// host threads and an OpenMP team; proxies, shadows and version keys;
// dependency records; the factory's errors.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <thread>

#include "nodetesting.h"
#include "qvtest.h"

using namespace qvarray;
using NM = NodeMaker;

namespace {

using Fixture = qvtest::NodeFixture;
using qvtest::close;
using qvtest::randomExpr;
using TestEvaluator = qvtest::TestEvaluator;

}  // namespace

TEST(NodeMaker, FoldsAndSimplifications) {
  Fixture t;
  EvalNodePtr x = t.mk.makeVarNode("x");
  EXPECT_EQ(t.mk.makeConstNode(0.0), t.mk.zero());
  EXPECT_EQ(t.mk.makeConstNode(-0.0), t.mk.zero());
  EXPECT_EQ(t.mk.makeConstNode(std::nan("")), t.mk.makeConstNode(std::nan("")));
  EXPECT_EQ(t.parse("x*x"), t.mk.makeOpNode(NM::Pow2, x));
  EXPECT_EQ(t.parse("x^2"), t.mk.makeOpNode(NM::Pow2, x));
  EXPECT_EQ(t.parse("a+b"), t.parse("b+a"));
  EXPECT_EQ(t.parse("a*b"), t.parse("b*a"));
  EXPECT_TRUE(t.parse("0*x")->isZero());
  EXPECT_EQ(t.parse("x+0"), x);
  EXPECT_EQ(t.parse("1*x"), x);
  EXPECT_EQ(t.parse("0-x"), t.mk.makeOpNode(NM::UMinus, x));
  EXPECT_EQ(t.parse("x^(-1)"), t.mk.makeOpNode(NM::PowM1, x));
  // Folded constants, and the deliberate non-folds.
  struct Row { const char* text; double value; bool folded; };
  const Row rows[] = {{"3^2", 9, true},       {"6/3", 2, true},        {"sqrt(4)", 2, true},
                      {"2<3", 1, true},       {"abs(-0.5)", 0.5, true}, {"exp(0)", 1, true},
                      {"1/0", 0, false},      {"log(-1)", 0, false},   {"sqrt(-4)", 0, false},
                      {"log(0)", 0, false},   {"0^(-1)", 0, false},    {"(-8)^(1/3)", 0, false},
                      {"x^2.5", 0, false}};
  for (const Row& r : rows) {
    double v = 0.0;
    EXPECT_EQ(t.parse(r.text)->isRealScalar(v), r.folded) << r.text;
    if (r.folded) {
      EXPECT_EQ(v, r.value) << r.text;
    }
  }
  EXPECT_EQ(t.parse("x^2.5")->toString(), "(x)^(2.5)");
  EXPECT_TRUE(std::isnan(t.eval(t.parse("1/0"), 0.0)));
}

TEST(NodeMaker, NodesEvaluateAsTheirSyntaxTree) {
  Fixture t;
  std::mt19937 g(7);
  std::uniform_real_distribution<double> u(-2.0, 2.0);
  int compared = 0;
  for (int k = 0; k < 400; ++k) {
    std::string text = randomExpr(g, 4);
    ExprImpl syntax(text);
    EvalNodePtr n = t.mk.fromSyntax(*syntax.root(), t.ev);
    for (int p = 0; p < 4; ++p) {
      double x = u(g), y = u(g), want = qvtest::plainValue(*syntax.root(), x, y);
      if (!std::isfinite(want)) continue;  // domain failures, and 0*x at infinite x
      // x^3 rewritten as x*x*x and SLEEF's 1-ulp functions: a few ulps per operation.
      EXPECT_TRUE(close(t.eval(n, x, y), want, 1e4)) << text << " at " << x << ", " << y;
      ++compared;
    }
  }
  EXPECT_GT(compared, 600);
}

TEST(NodeMaker, DerivativesMatchCentralDifferencesAndReadBack) {
  Fixture t;
  // Every function with a rule, at a point inside its domain.
  struct Row { const char* text; double x; };
  const Row rows[] = {
      {"sin(x)", 0.7},   {"cos(x)", 0.7},    {"tan(x)", 0.7},    {"cot(x)", 0.7},  {"sec(x)", 0.7},
      {"csc(x)", 0.7},   {"asin(x)", 0.3},   {"acos(x)", 0.3},   {"atan(x)", 0.3}, {"acot(x)", 0.3},
      {"asec(x)", 1.7},  {"acsc(x)", -1.7},  {"sinh(x)", 0.7},   {"cosh(x)", 0.7}, {"tanh(x)", 0.7},
      {"coth(x)", 0.7},  {"sech(x)", 0.7},   {"csch(x)", 0.7},   {"asinh(x)", 0.7}, {"acosh(x)", 1.7},
      {"atanh(x)", 0.3}, {"acoth(x)", 1.7},  {"asech(x)", 0.3},  {"acsch(x)", 0.7}, {"exp(x)", 0.7},
      {"log(x)", 0.7},   {"log10(x)", 0.7},  {"log2(x)", 0.7},   {"sqrt(x)", 0.7}, {"abs(x)", -0.7},
      {"x^3", 0.7},      {"x^(-2)", 0.7},    {"x^2.5", 0.7},     {"2^x", 0.7},     {"x^x", 0.7},
      {"x/(1+x)", 0.7},  {"atan2(x,2)", 0.7}, {"atan2(2,x)", 0.7}, {"plussq(x,3)", 0.7},
      {"min(x,0.5)", 0.7}, {"max(x,0.5)", 0.7}, {"floor(x)+sign(x)", 0.7},
      {"qvsmhs(x,2)", 0.3}, {"qvsmsign(x,3)", -0.4}, {"qvc1hs(0.3,x)", 1.5}, {"qvc2hs(x-0.2,x)", 1.1},
      {"mod(x,0.3)", 0.7}, {"mod(2,x)", 0.7}, {"real(x)+imag(x)+arg(x)", 0.7}, {"conj(x^2)", 0.7},
      {"realdot(x,sin(x))", 0.7}, {"erf(x)", 0.7}, {"gamma(x)", 2.5}, {"gamma(x)", -0.5},
      {"psi(0,x)", 0.7}, {"psi(2,x)", 1.7}, {"bessel(0,x)", 1.3}, {"besselj(1.5,x)", 1.3},
      {"bessely(0.5,x)", 1.3}, {"besseli(2,x)", 1.3}, {"besselk(1,x)", 1.3},
      {"exp(sin(x)*x)/sqrt(1+x^2)", 0.4}};
  for (const Row& r : rows) {
    EvalNodePtr f = t.parse(r.text), d = f->diff("x", t.ev);
    const double fd = qvtest::centralDiff([&](double x) { return t.eval(f, x); }, r.x, 1e-6);
    double dv = t.eval(d, r.x);
    EXPECT_NEAR(dv, fd, 1e-7 * std::max(1.0, std::fabs(fd))) << r.text << " -> " << d->toString();
    EXPECT_TRUE(close(t.eval(t.parse(d->toString()), r.x), dv, 8)) << d->toString();
  }
  // No rule in a Bessel function's order: the derivative stays d(...).
  EXPECT_EQ(t.parse("besselj(x,2)")->diff("x", t.ev)->toString().rfind("d(", 0), 0u);
  // Random compositions.
  std::mt19937 g(11);
  int compared = 0;
  for (int k = 0; k < 200; ++k) {
    EvalNodePtr f = t.parse(randomExpr(g, 3)), d = f->diff("x", t.ev);
    double x = 0.3 + 0.1 * (k % 7), y = 0.9;
    const double fd = qvtest::centralDiff([&](double s) { return t.eval(f, s, y); }, x, 1e-6);
    // Skipped: points off the domain or where a part is not differentiable (sqrt(0)).
    if (!std::isfinite(fd) || std::fabs(fd) > 1e4 || !std::isfinite(t.eval(d, x, y))) continue;
    EXPECT_NEAR(t.eval(d, x, y), fd, 1e-5 * std::max(1.0, std::fabs(fd))) << f->toString();
    ++compared;
  }
  EXPECT_GT(compared, 100);
}

TEST(NodeMaker, SharedSubexpressionsAreDifferentiatedOnce) {
  Fixture t;
  // g <- g*g + g: 2^k leaves as a tree, a few shared nodes per level.
  EvalNodePtr g = t.parse("sin(x)"), g12;
  for (int k = 0; k < 24; ++k) {
    g = t.mk.makeOpNode(NM::Plus, t.mk.makeOpNode(NM::Times, g, g), g);
    if (k == 11) g12 = g;
  }
  size_t before = t.mk.tableSize();
  g->diff("x", t.ev);
  EXPECT_LT(t.mk.tableSize() - before, 24u * 8u);
  const double x = 0.001, fd = qvtest::centralDiff([&](double s) { return t.eval(g12, s); }, x, 1e-7);
  EXPECT_NEAR(t.eval(g12->diff("x", t.ev), x), fd, 1e-6 * std::fabs(fd));
}

TEST(NodesParallel, HashConsingPerThread) {
  Fixture t;
  EvalNodePtr ab = t.parse("a+b");
  auto* proxy = dynamic_cast<ProxyNode*>(ab.get());
  ASSERT_NE(proxy, nullptr);
  EXPECT_EQ(ab->getDeepID(), proxy->target()->getID());
  EXPECT_NE(ab->getDeepID(), ab->getID());
  EXPECT_FALSE(proxy->isShared());
  EXPECT_EQ(t.parse("b+a"), ab);
  EXPECT_TRUE(proxy->isShared());
  // Two host threads on one maker: each sees its own builds agree.
  auto work = [&](bool* ok) {
    for (int k = 0; k < 300; ++k) {
      EvalNodePtr p = t.parse("sin(x)*y+exp(x)"), q = t.parse("exp(x)+y*sin(x)");
      *ok = *ok && p == q;
    }
  };
  bool ok1 = true, ok2 = true;
  std::thread t1(work, &ok1), t2(work, &ok2);
  t1.join();
  t2.join();
  EXPECT_TRUE(ok1 && ok2);
  // An OpenMP team: threads other than 0 build nodes of their own.
  const int n = std::min(4, omp_get_max_threads());
  std::vector<EvalNodePtr> built(n);
  std::vector<int> agree(n, 0);
#pragma omp parallel num_threads(n)
  {
    int i = omp_get_thread_num();
    EvalNodePtr x = t.mk.makeVarNode("x"), y = t.mk.makeVarNode("y");
    built[i] = t.mk.makeOpNode(NM::Plus, x, y);
    agree[i] = built[i] == t.mk.makeOpNode(NM::Plus, y, x);
  }
  for (int i = 0; i < n; ++i) {
    EXPECT_TRUE(agree[i]);
    if (i > 0) {
      EXPECT_NE(built[i], built[0]);
    }
  }
}

TEST(NodeMaker, ShadowsRenewOnVersionChange) {
  Fixture t;
  EvalNodePtr u = t.parse("u*2");
  t.ev->defs["u"] = t.parse("x+1");
  EXPECT_EQ(t.eval(u, 3.0), 8.0);
  t.ev->defs["u"] = t.parse("x*x");
  EXPECT_EQ(t.eval(u, 3.0), 8.0);  // the shadow keeps the definition of its version
  t.ev->updateVersion();
  EXPECT_EQ(t.eval(u, 3.0), 18.0);
  VarNodeShadow fresh;
  EXPECT_TRUE(fresh.shouldUpdateCache(t.ev->getVersionKey()));
  // A copied evaluator keeps the shadows and version it was copied with.
  auto copy = std::make_shared<TestEvaluator>(*t.ev);
  EXPECT_EQ(copy->getShadowHandler().size(), t.ev->getShadowHandler().size());
  EXPECT_TRUE(copy->getVersionKey() == t.ev->getVersionKey());
}

TEST(NodeMaker, DependenciesAndErrors) {
  Fixture t;
  ValRepCache cache;
  EvalNodePtr f = t.parse("x*y+z");
  DepInfo d = f->depends({"x", "w"}, t.ev, cache);
  EXPECT_TRUE(d.getSolDep(0, 0));
  EXPECT_FALSE(d.getSolDep(1, 0));
  EXPECT_FALSE(t.parse("x+y")->jacDepends({"x"}, t.ev, cache).isSolDepAll());
  EXPECT_TRUE(t.parse("x*y")->jacDepends({"x"}, t.ev, cache).isSolDepAll());
  EXPECT_EQ(t.eval(t.mk.makeDepNode(f, "y"), 1.0), 1.0);
  EXPECT_EQ(t.eval(t.mk.makeDepNode(f, "w"), 1.0), 0.0);
  EXPECT_EQ(t.eval(t.mk.makeJacUDepNode(t.parse("x+y")), 1.0), 0.0);
  EXPECT_TRUE(t.mk.makeUDepNode(f)->diff("x", t.ev)->isZero());
  EXPECT_EQ(t.mk.makeJacDepNode(f, t.mk.makeVarNode("x"))->toString(),
            "jacdepends(" + f->toString() + ",x)");
  EvalNodePtr two = t.mk.makeConstNode(2.0), x = t.mk.makeVarNode("x");
  qvtest::expectThrowKey([&] { t.mk.makeDiffNode(f, two, 0); }, "Can_only_diff_wrt_variables");
  qvtest::expectThrowKey([&] { t.mk.makeDepNode(f, two); }, "Can_only_test_dependency_wrt_variables");
  qvtest::expectThrowKey([&] { t.mk.makeJacDepNode(f, f); }, "Can_only_test_dependency_wrt_variables");
  qvtest::expectThrowKey([&] { t.mk.makeOpNode(NM::Sin, x, x); }, "Evaluation_internal_error");
  qvtest::expectThrowKey([&] { t.mk.makeOpNode(NM::Plus, NodeList{x, x, x}); }, "Evaluation_internal_error");
  qvtest::expectThrowKey([&] { t.parse("[x, 1]"); }, "Evaluation_internal_error");
}

// A chain of 2·10^5 nodes (operators, their proxies, calls and dependency
// tests, a third each) that only its parents hold is destroyed on a 512 KiB
// stack, and completely: its last node goes too.
TEST(NodeMaker, DeepChainIsDestroyedInConstantStack) {
  Fixture t;
  EvalNodePtr x = t.mk.makeVarNode("x"), chain = x;
  for (int i = 0; i < 200000 / 3; ++i) {
    chain = t.mk.makeOpNode(i % 2 ? NM::Sin : NM::Cos, chain);  // an operator behind its proxy
    chain = i % 2 ? t.mk.makeGenOpNode("f", {chain, x}) : t.mk.makeUDepNode(chain);
  }
  std::weak_ptr<EvalNode> leafEnd = x;
  t.mk.reset();  // the factory's tables let go: the chain holds itself
  x.reset();
  EXPECT_FALSE(leafEnd.expired());
  qvtest::onStack(size_t(512) << 10, [&] { chain.reset(); });
  EXPECT_TRUE(leafEnd.expired());
}
