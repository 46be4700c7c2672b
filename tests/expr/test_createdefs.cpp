// Compiled definitions from evaluation nodes: the compiler's evaluation of
// the definitions against the engine's evaluation of the same nodes at random
// points, bit for bit where both compute the same operations, within 8 ulps
// where the engine uses its vector library and the compiler the C library
// (products of up to three such functions; at most 4 seen over 2*10^4
// points); shared nodes and variables defined once; variables defined by
// expressions, a cycle among them; the refusals; a chain of 10^5 operators;
// the exact sets' classes in the JVM against the compiler's evaluation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>

#include "qvarray/expr/createdefs.h"
#include "qvarray/expr/smoothsteps.h"
#include "jvm/classcheck.h"
#include "nodetesting.h"
#include "qvtest.h"

using namespace qvarray;
using NM = NodeMaker;

namespace {

using Fixture = qvtest::NodeFixture;
using qvtest::ulps;

struct Row {
  const char* text;
  double xlo, xhi, ylo, yhi;
  double tolUlps;  // 0: the same bits
};

}  // namespace

// For the exact rows half the points are on an integer grid, so that
// comparisons meet equal operands, rounding meets halves and mod meets zero
// divisors. (The functions keep inside their domains: the engine reports
// log(0) as a failure, the compiler's evaluation allows it.)
TEST(CreateDefs, CompiledEqualsEngine) {
  const Row rows[] = {
      {"x + y*x - y/(x + 3)", -2, 2, -5, 5, 0},
      {"(x<y) + 2*(x>=y) + 4*(x==y) + 8*(x!=y) + 16*(x<=y) + 32*(x>y)", -2, 2, -2, 2, 0},
      {"(x && y) + 2*(x || y) + 4*!x", -2, 2, -2, 2, 0},
      {"floor(x) + ceil(y) + round(x*y) + fix(x - y) + abs(y) + sign(x)", -3, 3, -3, 3, 0},
      {"min(x, y) + max(x, 2*y) + mod(x, y)", -3, 3, -3, 3, 0},
      {"x^2 + (x - y)^2 + x*x*y + plussq(x, y) + realdot(x, y)", -3, 3, -3, 3, 0},
      {"real(x) + imag(y) + conj(x*y) - (-x) + (+y)", -3, 3, -3, 3, 0},
      {"qvsmhs(x, y) + 3*qvdsmhs(x, y) + 5*qvsmsign(x, y) + 7*qvdsmsign(x, y)", -2, 2, -0.5, 3, 0},
      {"qvc1hs(x, y) + 3*qvdc1hs(x, y) + 5*qvc2hs(x, y) + 7*qvdc2hs(x, y)", -2, 2, -0.5, 3, 0},
      {"sin(x)*cos(y)", -4, 4, -4, 4, 8},
      {"tan(x)*exp(y)", -1.5, 1.5, -5, 5, 8},
      {"log(x)*log10(y)*log2(x*y)", 0.1, 9, 0.1, 9, 8},
      {"sqrt(x)*atan(y)*atan2(y, x)", 0, 4, -4, 4, 8},
      {"asin(x)*acos(y)", -1, 1, -1, 1, 8},
      {"sinh(x)*cosh(y)*tanh(x)", -3, 3, -3, 3, 8},
      {"cot(x)*csc(y)*sec(x)", 0.1, 1.5, 0.1, 3, 8},
      {"coth(x)*csch(y)*sech(x)", 0.1, 3, 0.1, 3, 8},
      {"x^3 * y^(-1) + x^4 * y^(-2)", 0.5, 3, 0.5, 3, 8},
      {"x^y", 0.1, 4, -3, 3, 8},
  };
  qvtest::Rng rng(7);
  qvtest::ClassCheck jvm(std::filesystem::path(testing::TempDir()) / "qv_createdefs");
  std::vector<std::vector<double>> jvmWant;  // the exact rows' compiled values
  for (const Row& r : rows) {
    SCOPED_TRACE(r.text);
    Fixture f;
    EvalNodePtr node = f.parse(r.text);
    ExprComp comp;
    NodeDefs d = createNodeDefs(comp, {"f"}, {node}, {"x", "y"}, f.ev);
    ASSERT_EQ(d.inputs, (std::vector<std::string>{"x", "y"}));
    if (r.tolUlps == 0) {
      std::vector<unsigned char> bytes;
      comp.compile("Defs" + std::to_string(jvmWant.size()), "work", bytes, false);
      jvm.addClass("Defs" + std::to_string(jvmWant.size()), bytes);
      jvmWant.emplace_back();
    }
    for (int i = 0; i < 64; ++i) {
      double u = 0.5 * (rng.real() + 1), v = 0.5 * (rng.real() + 1);
      double x = r.xlo + u * (r.xhi - r.xlo), y = r.ylo + v * (r.yhi - r.ylo);
      if (i % 2 && r.tolUlps == 0) x = std::round(x), y = std::round(y);
      std::vector<double> out;
      comp.eval({x, y}, out);
      if (r.tolUlps == 0) {
        jvm.addCall({x, y});
        jvmWant.back().push_back(out.at(0));
      }
      double want = f.eval(node, x, y);
      EXPECT_LE(ulps(out.at(0), want), r.tolUlps) << "x=" << x << " y=" << y << " got " << out[0]
                                                  << " engine " << want;
    }
  }
  // The exact rows' classes in the JVM: the same bits as the compiler's
  // evaluation (round is floor(x + 0.5) there and Math.round here; they
  // differ at none of these points).
  if (!qvtest::ClassCheck::available()) return;
  auto runs = jvm.run();
  ASSERT_EQ(runs.size(), jvmWant.size()) << "the JVM did not run";
  for (size_t k = 0; k < runs.size(); ++k) {
    EXPECT_EQ(runs[k].verdict.rfind("ok", 0), 0u) << runs[k].verdict;
    ASSERT_EQ(runs[k].calls.size(), jvmWant[k].size());
    for (size_t i = 0; i < jvmWant[k].size(); ++i)
      EXPECT_EQ(ulps(runs[k].calls[i].out.at(0), jvmWant[k][i]), 0) << "class " << k << " call " << i;
  }
}

// A derivative of order 2 of a smoothed step (w^2 through the power).
TEST(CreateDefs, SecondDerivativeOfStep) {
  Fixture f;
  auto d2 = std::make_shared<DiracPolyFun>("qvdsmhs", 0, 1, StepKind::Smooth, 2);
  EvalNodePtr node = f.mk.makeOpNode(d2, f.parse("x"), f.parse("y"));
  ExprComp comp;
  createNodeDefs(comp, {"f"}, {node}, {"x", "y"}, f.ev);
  qvtest::Rng rng(3);
  for (int i = 0; i < 64; ++i) {
    double x = rng.real(), y = 1.5 + rng.real();
    std::vector<double> out;
    comp.eval({x, y}, out);
    EXPECT_LE(ulps(out.at(0), f.eval(node, x, y)), 2) << x << " " << y;
  }
}

// x*y is used by both outputs and twice in the first: one definition.
// Variables the evaluator defines are compiled through their definitions,
// once each; a cycle among them is the compiler's cycle.
TEST(CreateDefs, SharedNodesAndVariables) {
  Fixture f;
  EvalNodePtr g = f.parse("x*y");
  EvalNodePtr h = f.mk.makeOpNode(NM::Plus, f.mk.makeOpNode(NM::Sin, g), f.mk.makeOpNode(NM::Cos, g));
  ExprComp comp;
  NodeDefs d = createNodeDefs(comp, {"h", "g"}, {h, g}, {"x", "y"}, f.ev);
  // x, y, x*y, sin, cos, +, and one definition per output.
  EXPECT_EQ(d.counter, 8);
  int counter = d.counter;
  int again = g->createDefs(comp, d.defs, counter, f.ev);
  EXPECT_EQ(counter, d.counter);
  EXPECT_EQ(d.defs.at(again), "#" + std::to_string(g->getDeepID()));
  std::vector<double> out;
  comp.eval({0.3, 0.7}, out);
  EXPECT_EQ(out.at(0), f.eval(h, 0.3, 0.7));
  EXPECT_EQ(out.at(1), 0.3 * 0.7);

  f.ev->defs["z"] = f.parse("x + 1");
  EvalNodePtr e = f.parse("z*z + z + w");
  ExprComp comp2;
  NodeDefs d2 = createNodeDefs(comp2, {"e"}, {e}, {"x"}, f.ev);
  EXPECT_EQ(d2.inputs, (std::vector<std::string>{"x", "w"}));
  comp2.eval({0.25, 2.0}, out);
  EXPECT_EQ(out.at(0), 1.25 * 1.25 + 1.25 + 2.0);

  // An unexpanded derivative and a derivative variable: their expressions.
  EvalNodePtr dn = f.mk.makeDiffNode(f.parse("x*x*y"), f.parse("x"), 0);
  EvalNodePtr vd = f.mk.makeVarDiffNode(f.parse("x*y - y"), "u", "x");
  ExprComp comp4;
  createNodeDefs(comp4, {"dn", "vd"}, {dn, vd}, {"x", "y"}, f.ev);
  comp4.eval({0.3, 0.7}, out);
  EXPECT_EQ(out, (std::vector<double>{f.eval(dn, 0.3, 0.7), f.eval(vd, 0.3, 0.7)}));

  f.ev->defs["a"] = f.parse("b + 1");
  f.ev->defs["b"] = f.parse("a * 2");
  ExprComp comp3;
  createNodeDefs(comp3, {"a"}, {f.parse("a")}, {}, f.ev);
  try {
    comp3.eval({}, out);
    ADD_FAILURE() << "a cycle compiled";
  } catch (const qvbase::Exception& ex) {
    EXPECT_EQ(ex.key().rfind("Cyclic dependency for definition #", 0), 0u) << ex.key();
  }
}

TEST(CreateDefs, Refusals) {
  Fixture f;
  EvalNodePtr x = f.parse("x");
  EvalNodePtr op = f.mk.makeGenOpNode("userop", {x});
  struct Case {
    EvalNodePtr node;
    std::string key, module;
  };
  const std::string from = "Cannot create definitions from ";
  const Case cases[] = {
      {f.mk.makeOpNode(NM::Times, f.mk.makeConstNode(std::complex<double>(1, 2)), x),
       "Definition set may not contain complex variables.", "evalnodes"},
      {f.mk.makeOpNode(NM::Plus, op, x), from + "GenOpNode::userop", "evalnodes"},
      {f.mk.makeDepNode(x, "x"), from + "DepNode", "evalnodes"},
      {f.mk.makeUDepNode(x), from + "UDepNode", "evalnodes"},
      {f.mk.makeJacDepNode(x, "x"), from + "JacDepNode", "evalnodes"},
      {f.mk.makeJacUDepNode(x), from + "JacUDepNode", "evalnodes"},
      {f.mk.makeDiffNode(op, x, 0), from + "DiffNode", "evalnodes"},
      {f.parse("arg(x)"), from + "function arg", "evalfun"},
      {f.parse("acosh(x) + 1"), from + "function acosh", "evalfun"},
      {f.parse("acot(x)"), from + "function acot", "evalfun"},
      {f.parse("erf(x)"), from + "function erf", "evalfun"},
      {f.parse("gamma(x)"), from + "function gamma", "evalfun"},
  };
  for (const Case& c : cases) {
    ExprComp comp;
    std::map<int, std::string> defs;
    int counter = 0;
    qvbase::Exception e = qvtest::expectThrowKey(
        [&] { c.node->createDefs(comp, defs, counter, f.ev); }, c.key);
    EXPECT_EQ(e.module(), c.module) << c.key;
  }
  // The entry point leaves the compiler as it was: another set compiles.
  ExprComp comp;
  EXPECT_THROW(createNodeDefs(comp, {"f"}, {cases[1].node}, {"x"}, f.ev), qvbase::Exception);
  createNodeDefs(comp, {"f"}, {f.parse("x + 1")}, {"x"}, f.ev);
  std::vector<double> out;
  comp.eval({2.0}, out);
  EXPECT_EQ(out.at(0), 3.0);
}

// 10^5 nested operators v = v*0.5 + x: no recursion in the walk (run under
// the address sanitizer), and the value of the plain loop.
TEST(CreateDefs, DeepChain) {
  Fixture f;
  const int depth = 100000;
  EvalNodePtr x = f.parse("x"), half = f.mk.makeConstNode(0.5);
  std::vector<EvalNodePtr> chain{x};
  for (int i = 0; i < depth; ++i)
    chain.push_back(f.mk.makeOpNode(NM::Plus, f.mk.makeOpNode(NM::Times, chain.back(), half), x));
  ExprComp comp;
  NodeDefs d = createNodeDefs(comp, {"v"}, {chain.back()}, {"x"}, f.ev);
  std::vector<double> out;
  comp.eval({0.3}, out);
  double v = 0.3;
  for (int i = 0; i < depth; ++i) v = v * 0.5 + 0.3;
  EXPECT_EQ(out.at(0), v);
  // Nodes go outermost first, so no release cascades down the chain.
  f.mk.reset();
  while (!chain.empty()) chain.pop_back();
}
