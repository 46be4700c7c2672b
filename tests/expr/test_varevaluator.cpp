// Variable evaluators. Oracles: the fixed table of built-in functions, the
// documented keys and pairs, constants evaluated through nodes, a bit-matrix
// model of DepInfo's Jacobian operations, hash-consing for derivatives.
#include <gtest/gtest.h>

#include <any>
#include <cmath>
#include <random>
#include <typeindex>

#include "qvarray/expr/constvarevaluator.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/exprtree.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/randomfuns.h"
#include "qvarray/expr/sffuns.h"
#include "qvarray/expr/smoothsteps.h"
#include "qvtest.h"

using namespace qvarray;

namespace {

// The base evaluator with its protected check in reach.
struct Checker : VarEvaluator {
  using VarEvaluator::checkGenFun;
};

// An operator (not a function) of two arguments.
struct DiamondOp : GenFunObj {
  const std::string& getName() const override { static const std::string n = "<>"; return n; }
  bool acceptsNArgs(int n) const override { return n == 2; }
  int getNArgs() const override { return 2; }
  bool isOperator() const override { return true; }
  EvalNodePtr makeEvalNode(const GenFunPtr&, NodeMaker&, const NodeList&) const override { return {}; }
};

EvalNodePtr parse(const VarEvalPtr& ev, const std::string& text) {
  return ev->getNodeMaker().fromSyntax(*ExprImpl(text).root(), ev);
}

double value(const VarEvalPtr& ev, const EvalNodePtr& n) {
  ValRepCache cache;
  ValRepPtr v = n->eval(ev, cache, 1);
  return v->isZero() ? 0.0 : v->getDouble();
}

}  // namespace

TEST(VarEvaluator, StdFunsFollowTheTable) {
  struct Row { const char* name; std::type_index cls; int nArgs; bool complexOnly; };
#define R(name, Class, n) {name, typeid(Class), n, false}
#define C(name, Class, n) {name, typeid(Class), n, true}
  const Row table[] = {
      R("sign", SignFun, 1),       R("exp", ExpFun, 1),         R("sqrt", SqrtFun, 1),
      R("arg", ArgFun, 1),         C("realdot", RealDotFun, 2), C("abs", AbsFun, 1),
      C("real", RealFun, 1),       C("imag", ImagFun, 1),       C("conj", ConjFun, 1),
      R("log", LogFun, 1),         R("log10", Log10Fun, 1),     R("log2", Log2Fun, 1),
      R("erf", ErfFun, 1),         R("round", RoundFun, 1),     R("ceil", CeilFun, 1),
      R("floor", FloorFun, 1),     R("fix", FixFun, 1),         R("min", MinFun, 2),
      R("max", MaxFun, 2),         R("mod", ModFun, 2),         R("acos", AcosFun, 1),
      R("acot", AcotFun, 1),       R("acsc", AcscFun, 1),       R("asec", AsecFun, 1),
      R("asin", AsinFun, 1),       R("atan", AtanFun, 1),       R("cos", CosFun, 1),
      R("cot", CotFun, 1),         R("csc", CscFun, 1),         R("sec", SecFun, 1),
      R("sin", SinFun, 1),         R("tan", TanFun, 1),         R("atan2", Atan2Fun, 2),
      R("acosh", AcoshFun, 1),     R("acoth", AcothFun, 1),     R("acsch", AcschFun, 1),
      R("asech", AsechFun, 1),     R("asinh", AsinhFun, 1),     R("atanh", AtanhFun, 1),
      R("cosh", CoshFun, 1),       R("coth", CothFun, 1),       R("csch", CschFun, 1),
      R("sech", SechFun, 1),       R("sinh", SinhFun, 1),       R("tanh", TanhFun, 1),
      R("bessel", BesselFun, 2),   R("besselj", BesselFun, 2),  R("bessely", BesselFun, 2),
      R("besseli", BesselFun, 2),  R("besselk", BesselFun, 2),  R("gamma", GammaFun, 1),
      R("psi", PsiFun, 2),         R("random", RandomFun, -1),  R("randomnormal", RandomNormalFun, -1),
      R("qvsmhs", TransPolyFun, 2),   R("qvdsmhs", DiracPolyFun, 2),
      R("qvsmsign", TransPolyFun, 2), R("qvdsmsign", DiracPolyFun, 2),
      R("qvc1hs", TransPolyFun, 2),   R("qvdc1hs", DiracPolyFun, 2),
      R("qvc2hs", TransPolyFun, 2),   R("qvdc2hs", DiracPolyFun, 2)};
#undef R
#undef C
  auto ev = std::make_shared<VarEvaluator>();
  NodeMaker& mk = ev->getNodeMaker();
  for (bool withComplex : {false, true}) {
    std::vector<FunPtr> list{nullptr};  // appended to, not replaced
    VarEvaluator::getStdFuns(list, withComplex);
    ASSERT_EQ(list.size(), withComplex ? 63u : 58u);
    size_t k = 1;
    for (const Row& r : table) {
      if (r.complexOnly && !withComplex) continue;
      const FunObj& f = *list[k++];
      EXPECT_EQ(f.getName(), r.name);
      EXPECT_EQ(std::type_index(typeid(f)), r.cls) << r.name;
      EXPECT_EQ(f.getNArgs(), r.nArgs) << r.name;
      // The factory's lookup is this table: same name, same class.
      FunPtr g = mk.builtinFun(r.name);
      ASSERT_TRUE(g) << r.name;
      EXPECT_EQ(std::type_index(typeid(*g)), r.cls) << r.name;
    }
  }
  EXPECT_EQ(dynamic_cast<const TransPolyFun&>(*mk.builtinFun("qvsmsign")).lower(), -1.0);
  EXPECT_EQ(dynamic_cast<const TransPolyFun&>(*mk.builtinFun("qvc2hs")).lower(), 0.0);
  // A call by name and the factory's own operator build one node.
  EXPECT_EQ(parse(ev, "sin(x)"), mk.makeOpNode(NodeMaker::Sin, mk.makeVarNode("x")));
}

TEST(VarEvaluator, CheckGenFunKeysAndPairs) {
  auto ev = std::make_shared<VarEvaluator>();
  for (int n : {0, 1, 3, 7}) EXPECT_TRUE(ev->getGenFun("random", n));
  struct Row { std::function<void()> call; const char* key; const char* expected; const char* name; };
  const Row rows[] = {
      {[&] { ev->getGenFun("atan2", 1); }, "Wrong_number_of_function_arguments", "2", "atan2"},
      {[&] { ev->getGenFun("nosuch", 1); }, "Unknown_function_or_operator", nullptr, "nosuch"},
      {[&] { parse(ev, "sin(x,y)"); }, "Wrong_number_of_function_arguments", "1", "sin"},
      {[&] { parse(ev, "foo(x)"); }, "Unknown_function_or_operator", nullptr, "foo"},
      {[&] { Checker::checkGenFun(std::make_shared<DiamondOp>(), "<>", 3); },
       "Wrong_number_of_operator_arguments", "2", "<>"}};
  for (const Row& r : rows) {
    qvbase::Exception e = qvtest::expectThrowKey(r.call, r.key);
    EXPECT_EQ(e.module(), "varevaluator");
    EXPECT_EQ(e.detail("Name").value_or(""), r.name);
    EXPECT_EQ(e.detail("Number_of_arguments_expected").has_value(), r.expected != nullptr) << r.name;
    if (r.expected) {
      EXPECT_EQ(*e.detail("Number_of_arguments_expected"), r.expected);
    }
  }
}

TEST(ConstVarEvaluator, ConstantsThroughNodes) {
  qvtest::expectThrowKey([] { ConstVarEvaluator({"a", "1", "b"}); }, "Name_value_pair_mismatch");
  qvtest::expectThrowKey([] { ConstVarEvaluator({"a", "x1"}); }, "Invalid_number");
  ConstVarEvaluator empty(std::vector<std::string>{});
  EXPECT_EQ(empty.size(), 6u);
  const std::pair<const char*, double> known[] = {{"pi", std::acos(-1.0)}, {"eps", std::ldexp(1.0, -52)},
                                                  {"nan", NAN}, {"NaN", NAN},
                                                  {"inf", INFINITY}, {"Inf", INFINITY}};
  for (auto [n, want] : known) {
    double v = 0.0;
    EXPECT_TRUE(empty.getConstant(n, v) && (v == want || (std::isnan(v) && std::isnan(want)))) << n;
  }

  auto ev = std::make_shared<ConstVarEvaluator>(std::vector<std::string>{"pi", "3", "g", " 9.81e0"});
  EXPECT_EQ(value(ev, parse(ev, "2*pi+g*eps")), 6.0 + 9.81 * std::ldexp(1.0, -52));
  EXPECT_EQ(value(ev, parse(ev, "atan2(g,pi)")), std::atan2(9.81, 3.0));
  EXPECT_TRUE(parse(ev, "pi*g")->diff("g", ev)->isZero());
  qvbase::Exception e =
      qvtest::expectThrowKey([&] { parse(ev, "mod(g)"); }, "Wrong_number_of_function_arguments");
  EXPECT_EQ(e.module(), "evalconst");
  EXPECT_EQ(e.detail("Number_of_arguments_expected").value_or(""), "2");
  e = qvtest::expectThrowKey([&] { ev->getGenFun("gg", 1); }, "Unknown_function_name");
  EXPECT_EQ(e.detail("Name").value_or(""), "gg");
}

// DepInfo's Jacobian operations against a model of plain bit matrices.
TEST(DepInfo, JacobianOperationsMatchABitModel) {
  std::mt19937 g(7);
  using Model = std::vector<std::vector<bool>>;  // [order][component]
  auto randomRecord = [&](DepInfo& d, Model& sol, Model& par) {
    sol.assign(3, std::vector<bool>(32)), par = sol;
    for (int k = 0; k < 3; ++k)
      for (int i = 0; i < 32; ++i) {
        if (g() % 5 == 0) d.setSolDep(i, k), sol[k][i] = true;
        if (g() % 7 == 0) d.setParDep(i, k), par[k][i] = true;
      }
  };
  for (int trial = 0; trial < 50; ++trial) {
    DepInfo a, b, j;
    Model as, ap, bs, bp, js, jp;
    randomRecord(a, as, ap), randomRecord(b, bs, bp), randomRecord(j, js, jp);
    if (trial % 10 == 0) b.setIncompleteJac();
    DepInfo s = a;
    int k = int(g() % 5) - 1;
    s.selectJacTOrder(k);
    j.setJacDep(a, b);
    for (int i = 0; i < 32; ++i) {
      EXPECT_EQ(s.getSolDep(i, 0), k >= 0 && k < 3 && as[k][i]);
      EXPECT_EQ(s.getParDep(i, 0), k >= 0 && k < 3 && ap[k][i]);
      EXPECT_FALSE(s.getSolDep(i, 1));
      for (int r = 0; r < 32; ++r) {
        bool keptS = r < 3 && js[r][i], keptP = r < 3 && jp[r][i];
        EXPECT_EQ(j.getSolDep(i, r), keptS || (as[0][r] && bs[0][i]));
        EXPECT_EQ(j.getParDep(i, r), keptP || (as[0][r] && bp[0][i]));
      }
    }
    EXPECT_EQ(j.isIncompleteJac(), trial % 10 == 0);
  }
  DepInfo d = DepInfo::makeDependent(3, 5, 1, 2);
  for (int k = 0; k < 6; ++k) EXPECT_EQ(d.getSolDep(3, k) && d.getParDep(5, k), k >= 1 && k <= 3);
  EXPECT_FALSE(d.getSolDep(5, 1));
  EXPECT_TRUE(DepInfo::makeDependent().getParDep(31, 0) && !DepInfo::makeDependent().getSolDep(0, 1));
  EXPECT_TRUE(DepInfo::makeFailed().getSolDep(17, 40));
}

TEST(VarEvaluator, OpCacheMethodsAndTangentialDerivatives) {
  auto ev = std::make_shared<VarEvaluator>();
  NodeMaker& mk = ev->getNodeMaker();
  EvalNodePtr x = mk.makeVarNode("x"), s = parse(ev, "x+y");
  const std::string name = VarEvaluator::makeOpCacheName("op", {x, s});
  EXPECT_EQ(name, "op(" + std::to_string(x->getID()) + "," + std::to_string(s->getDeepID()) + ")");
  EXPECT_NE(name, VarEvaluator::makeOpCacheName("op", {s, x}));
  for (auto call : {std::function<void()>([&] { VarEvaluator::makeOpCacheName("op", {x, nullptr}); }),
                    std::function<void()>([&] { VarEvaluator::makeOpCacheName("", {x}); })})
    qvtest::expectThrowKey(call, "Internal_evaluator_error");
  EXPECT_EQ(ev->findOpCacheData(name), nullptr);
  ev->addOpCacheData(name, 1.5);
  ev->addOpCacheData(name, 2.5);
  VarEvaluator copy(*ev);
  ev->clearOpCacheData();
  EXPECT_EQ(ev->findOpCacheData(name), nullptr);
  ASSERT_NE(copy.findOpCacheData(name), nullptr);
  EXPECT_EQ(std::any_cast<double>(*copy.findOpCacheData(name)), 2.5);

  // A tangential derivative has no definition in the base evaluator.
  const std::string tx = std::string(VarEvaluator::kTangentialPrefix) + "x";
  for (EvalNodePtr n : {parse(ev, "x^2"), parse(ev, "sin(u)*x"), mk.makeGenOpNode("op", {x})})
    qvtest::expectThrowKey([&] { n->diff(tx, ev); },
                           "Tangential_differentiation_not_allowed_in_this_context");
  EXPECT_TRUE(parse(ev, "3")->diff(tx, ev)->isZero());
}

TEST(VarEvaluator, RandomAndStepDerivatives) {
  auto ev = std::make_shared<VarEvaluator>();
  NodeMaker& mk = ev->getNodeMaker();
  EXPECT_TRUE(parse(ev, "random(x)")->diff("x", ev)->isZero());
  EXPECT_TRUE(parse(ev, "randomnormal(x,2*x)")->diff("x", ev)->isZero());
  EvalNodePtr x = mk.makeVarNode("x"), w = mk.makeConstNode(0.5);
  for (const char* step : {"qvsmhs", "qvsmsign", "qvc1hs", "qvc2hs"}) {
    EvalNodePtr d = parse(ev, std::string(step) + "(x,0.5)")->diff("x", ev);
    FunPtr partner = mk.builtinFun(std::string("qvd") + (step + 2));
    EXPECT_EQ(d, mk.makeOpNode(partner, x, w)) << step;
  }
}
