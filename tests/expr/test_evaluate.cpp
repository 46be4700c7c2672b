// Formulas end to end through the ready evaluator: values against plain C++
// (including soft failures with their records, complex results and the 0*x
// rule), derivatives against central differences and read back from their
// printed text, dependency records of components and their time
// derivatives, circular and deeply nested definitions, random formulas
// against a second evaluator, and parallel evaluation bit for bit.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <random>
#include <thread>

#include "nodetesting.h"
#include "qvarray/expr/userevaluator.h"
#include "qvtest.h"

using namespace qvarray;
using Cx = std::complex<double>;

namespace {

constexpr size_t kN = 7;

std::shared_ptr<UserEvaluator> fixture() {
  auto ev = UserEvaluator::make(kN);
  Array<double, 1> x(kN);
  for (size_t i = 0; i < kN; ++i) x.data[i] = 0.1 + 0.3 * double(i);
  ev->bind("x", x);
  ev->bind("y", 2.0);
  ev->define("a", "x*y+1");
  ev->define("b", "a^2-x");
  ev->define("bad", "log(x-10)+a");
  ev->defineFunction("f", {"x", "s"}, "x*sin(s)+y");
  return ev;
}

double xAt(size_t i) { return 0.1 + 0.3 * double(i); }

}  // namespace

TEST(Evaluate, FormulaTable) {
  auto ev = fixture();
  struct Row { const char* text; std::function<double(double)> want; };
  const Row rows[] = {
      {"x*y+1", [](double x) { return 2 * x + 1; }},
      {"b/a", [](double x) { return ((2 * x + 1) * (2 * x + 1) - x) / (2 * x + 1); }},
      {"f(x^2, a)", [](double x) { return x * x * std::sin(2 * x + 1) + 2; }},
      {"f(1, f(x, 2))", [](double x) { return std::sin(x * std::sin(2.0) + 2) + 2; }},
      {"0*log(-x)", [](double) { return 0.0; }},  // the zero node wins over the failure
      {"sqrt(x)*(x>0.5)", [](double x) { return std::sqrt(x) * (x > 0.5); }},
  };
  for (const Row& r : rows) {
    Array<double, 1> v = ev->values(r.text);
    for (size_t i = 0; i < kN; ++i) EXPECT_NEAR(v.data[i], r.want(xAt(i)), 1e-14) << r.text;
  }
  // Soft failures: NaN values whose records name the function, the defined
  // variable on the way and the formula.
  struct NanRow { const char* text; const char* fun; const char* defexpr; };
  const NanRow nans[] = {{"log(x-10)", "log", nullptr}, {"bad*2", "log", "bad"}, {"f(x, log(-x))", "log", nullptr}};
  for (const NanRow& r : nans) {
    ValRepPtr v = ev->evaluate(r.text);
    ASSERT_TRUE(v->isNaN()) << r.text;
    const auto& e = *v->getErrors();
    EXPECT_EQ(*e.find("message"), r.fun) << r.text;
    EXPECT_EQ(*e.find("exprs"), r.text);
    EXPECT_EQ(e.find("Name") != nullptr, r.defexpr != nullptr) << r.text;
    qvtest::expectThrowKey([&] { ev->values(r.text); }, "Unexpected_NaN");
  }
  qvtest::expectThrowKey([&] { ev->evaluate("x+nope"); }, "Unknown_variable_name");
  // Complex: bound values read as complex; a complex binding refuses a real evaluation.
  ev->bind("z", Cx(1, 2));
  qvtest::expectThrowKey([&] { ev->evaluate("z*x"); }, "Complex_number_in_real_expression");
  ev->setComplex(true);
  Array<Cx, 1> c = ev->complexValues("sqrt(-x)+z*a");
  for (size_t i = 0; i < kN; ++i) {
    Cx want = std::sqrt(-Cx(xAt(i))) + Cx(1, 2) * (2 * xAt(i) + 1);
    EXPECT_NEAR(std::abs(c.data[i] - want), 0.0, 1e-14);
  }
}

TEST(Evaluate, BindingErrors) {
  auto ev = fixture();
  qvtest::expectThrowKey([&] { ev->bind("a", 1.0); }, "Invalid_variable_binding");
  qvtest::expectThrowKey([&] { ev->define("x", "1"); }, "Invalid_variable_binding");
  qvtest::expectThrowKey([&] { ev->bind("w", Array<double, 1>(kN + 1)); }, "Invalid_variable_binding");
  qvtest::expectThrowKey([&] { ev->define("w", "1+"); }, "Syntax_error_in_expression");
  EXPECT_NEAR(ev->values("a").data[0], 1.2, 1e-15);  // nothing changed
}

// Derivatives against central differences of the values, and the printed
// derivative read back and evaluated.
TEST(Evaluate, Derivatives) {
  const char* texts[] = {"b*exp(-x)", "f(a, x^2)/a", "atan(x*y)^3", "sqrt(x)*d(x^3, x)", "f(x, x)*x"};
  for (const char* text : texts) {
    auto ev = fixture();
    EvalTreePtr dt = ev->derivative(text, "x");
    Array<double, 1> d = ev->toArray(*ev->evaluate(dt));
    Array<double, 1> again = ev->values(dt->getExpandedExpr());
    const double h = 1e-5;
    auto shifted = [&](double s) {
      Array<double, 1> x(kN);
      for (size_t i = 0; i < kN; ++i) x.data[i] = xAt(i) + s;
      auto e = fixture();
      e->bind("x", x);
      return e->values(text);
    };
    Array<double, 1> vu = shifted(h), vd = shifted(-h);
    for (size_t i = 0; i < kN; ++i) {
      EXPECT_NEAR(d.data[i], (vu.data[i] - vd.data[i]) / (2 * h), 1e-6 * (1 + std::fabs(d.data[i]))) << text;
      EXPECT_NEAR(again.data[i], d.data[i], 1e-13 * (1 + std::fabs(d.data[i]))) << text;
    }
  }
}

TEST(Evaluate, Dependencies) {
  auto ev = UserEvaluator::make(1);
  ev->addSolution("u", 2);
  ev->addSolution("v", 1);
  ev->addParameter("p");
  ev->define("w", "utt*2+p");
  // (solution bit, order) pairs and parameter pairs expected; J: Jacobian.
  struct Row { const char* text; bool jac; std::vector<std::pair<int, int>> sol, par; };
  const Row rows[] = {
      {"u*v", false, {{0, 0}, {1, 0}}, {}},
      {"ut+sin(vt)", false, {{0, 1}, {1, 1}}, {}},
      {"d(u,t)*p", false, {{0, 1}}, {{0, 0}}},
      {"d(d(u,t),t)+d(vt,t)", false, {{0, 2}}, {}},  // vtt is past v's order: zero
      {"w+1", false, {{0, 2}}, {{0, 0}}},
      {"ut+3*u-p", true, {}, {}},
      {"u*ut+v", true, {{0, 0}, {0, 1}}, {}},
  };
  for (const Row& r : rows) {
    DepInfo d = ev->dependencies(r.text, r.jac);
    for (int i = 0; i < 2; ++i)
      for (int k = 0; k < 3; ++k) {
        bool s = std::count(r.sol.begin(), r.sol.end(), std::pair(i, k)) > 0;
        bool p = std::count(r.par.begin(), r.par.end(), std::pair(i, k)) > 0;
        EXPECT_EQ(d.getSolDep(i, k), s) << r.text << " sol " << i << "@" << k;
        EXPECT_EQ(d.getParDep(i, k), p) << r.text << " par " << i << "@" << k;
      }
  }
}

TEST(Evaluate, CircularAndNestedDefinitions) {
  auto ev = fixture();
  ev->define("c1", "c2+1");
  ev->define("c2", "2*c3");
  ev->define("c3", "x+c1");
  auto e = qvtest::expectThrowKey([&] { ev->evaluate("y+c2"); }, "Recursion_limit_exceeded");
  EXPECT_EQ(e.detail("Chain").value_or(""), "c2 -> c3 -> c1 -> c2");
  EXPECT_EQ(e.detail("message").value_or(""), "circvar");
  ev->define("self", "x+self");
  e = qvtest::expectThrowKey([&] { ev->evaluate("self"); }, "Recursion_limit_exceeded");
  EXPECT_EQ(e.detail("Chain").value_or(""), "self -> self");
  EXPECT_NEAR(ev->values("a").data[0], 1.2, 1e-15);  // the guard was left as found
  // v0 = v1+1, ..., the last one = x: 9999 nested definitions evaluate,
  // 10000 are refused before evaluating.
  for (int depth : {9999, 10000}) {
    auto chain = fixture();
    for (int k = 0; k < depth; ++k)
      chain->define("v" + std::to_string(k), k + 1 < depth ? "v" + std::to_string(k + 1) + "+1" : "x");
    qvtest::onStack(size_t(512) << 20, [&] {
      if (depth < RecLimCheck::kLimit)
        EXPECT_NEAR(chain->values("v0").data[0], xAt(0) + depth - 1, 1e-9);
      else
        qvtest::expectThrowKey([&] { chain->values("v0"); }, "Recursion_limit_exceeded");
    });
  }
}

// Random formulas against the C library's evaluation of their syntax tree,
// at every point where that value and all its parts are finite.
TEST(Evaluate, RandomFormulasAgainstPlainEvaluator) {
  std::mt19937 g(17);
  auto ev = fixture();
  int compared = 0;
  for (int trial = 0; trial < 300; ++trial) {
    const std::string text = qvtest::randomExpr(g, 4);
    ExprImpl syntax(text);
    double want[kN];
    bool finite = true;
    for (size_t i = 0; i < kN; ++i) finite = finite && std::isfinite(want[i] = qvtest::plainValue(*syntax.root(), xAt(i), 2.0));
    if (!finite) continue;  // a soft failure at some point: values() would refuse the formula
    Array<double, 1> v = ev->values(text);
    for (size_t i = 0; i < kN; ++i) EXPECT_TRUE(qvtest::close(v.data[i], want[i], 1e4)) << text << " at " << xAt(i);
    ++compared;
  }
  EXPECT_GT(compared, 150);
}

// The same trees from one thread, an OpenMP team and two host threads, each
// with its own evaluator copy over its block of points: the same bits.
TEST(EvaluateParallel, SameBitsAsSerial) {
  const size_t n = 4096, block = 512;
  const char* texts[] = {"sin(x)^2+cos(x)^2", "x*y+3*x^2-exp(-x/y)", "sqrt(x^2+y^2)*(x>0)", "g(x, y)+a"};
  std::mt19937 rng(5);
  Array<double, 1> x(n);
  for (size_t i = 0; i < n; ++i) x.data[i] = std::uniform_real_distribution<double>(-2, 2)(rng);
  auto ev = UserEvaluator::make(n);
  ev->bind("x", x);
  ev->bind("y", 1.5);
  ev->define("a", "x/(1+x^2)");
  ev->defineFunction("g", {"s", "t"}, "s*t-a");
  std::vector<EvalTreePtr> roots;
  std::vector<Array<double, 1>> serial;
  for (const char* t : texts) {
    roots.push_back(std::make_shared<EvalTree>(t));
    serial.push_back(ev->toArray(*ev->evaluate(roots.back())));
  }
  // Fresh trees: the first parse happens on the threads.
  for (auto& r : roots) r = std::make_shared<EvalTree>(r->getExpr());
  auto runBlock = [&](const std::shared_ptr<UserEvaluator>& mine, size_t b, std::vector<Array<double, 1>>& out) {
    mine->setNPoints(block);
    Array<double, 1> xb(block);
    std::copy(x.data + b * block, x.data + (b + 1) * block, xb.data);
    mine->bind("x", xb);
    for (size_t r = 0; r < roots.size(); ++r) {
      Array<double, 1> v = mine->toArray(*mine->evaluate(roots[r]));
      std::copy(v.data, v.data + block, out[r].data + b * block);
    }
  };
  auto fresh = [&] { return std::vector<Array<double, 1>>(roots.size(), Array<double, 1>(n)); };
  auto same = [&](const std::vector<Array<double, 1>>& out, const char* how) {
    for (size_t r = 0; r < roots.size(); ++r)
      EXPECT_EQ(0, std::memcmp(out[r].data, serial[r].data, n * sizeof(double))) << how << " " << texts[r];
  };
  auto team = fresh();
  auto pool = std::make_shared<ParaArrayAllocator>(int(block), 5000000);
#pragma omp parallel for num_threads(2) schedule(static, 1)
  for (size_t b = 0; b < n / block; ++b) {
    auto mine = ev->copy();
    mine->setAllocator(pool);
    runBlock(mine, b, team);
  }
  same(team, "OpenMP");
  for (auto& r : roots) r = std::make_shared<EvalTree>(r->getExpr());
  auto hosts = fresh();
  auto half = [&](size_t first) {
    auto mine = ev->copy();
    mine->setAllocator(std::make_shared<SerialArrayAllocator>(int(block), 5000000));
    for (size_t b = first; b < n / block; b += 2) runBlock(mine, b, hosts);
  };
  std::thread t0(half, 0), t1(half, 1);
  t0.join();
  t1.join();
  same(hosts, "threads");
}

// User-function calls: a wrong argument count is refused when the formula is
// read (also inside another function's body), and a call depends on what
// its body uses besides its parameters, as the same formula written out does.
TEST(Evaluate, UserFunctionCalls) {
  auto ev = UserEvaluator::make(1);
  for (const char* c : {"u", "v"}) ev->addSolution(c);
  ev->addParameter("p");
  ev->bind("u", 3.0);
  ev->bind("p", 0.5);
  ev->defineFunction("f", {"x"}, "x*p");
  ev->defineFunction("g", {"s", "r"}, "f(s)+r*v");
  ev->defineFunction("h", {"x"}, "f(x, x)");
  const std::pair<const char*, const char*> bad[] = {
      {"f(u, u)", "1"}, {"1+g(u)", "2"}, {"f()", "1"}, {"h(u)", "1"}, {"f..p1(u, 1)", "1"}};
  for (const auto& [text, expected] : bad) {
    auto e = qvtest::expectThrowKey([&] { ev->evaluate(text); }, "Wrong_number_of_function_arguments");
    EXPECT_EQ(e.detail("Number_of_arguments_expected").value_or(""), expected) << text;
  }
  EXPECT_EQ(ev->values("f(u)").data[0], 1.5);  // nothing changed
  const std::pair<const char*, const char*> same[] = {
      {"f(1)", "p"}, {"f(u)", "u*p"}, {"g(2, u)", "2*p+u*v"}, {"g(1, 1)", "p+v"}};
  for (const auto& [call, written] : same) {
    DepInfo a = ev->dependencies(call), b = ev->dependencies(written);
    EXPECT_EQ(a.getSolDep(0, 0), b.getSolDep(0, 0)) << call;
    EXPECT_EQ(a.getSolDep(1, 0), b.getSolDep(1, 0)) << call;
    EXPECT_EQ(a.getParDep(0, 0), b.getParDep(0, 0)) << call;
  }
}
