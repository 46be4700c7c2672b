// Helpers for tests that build evaluation nodes: an evaluator of plain
// variables, a node's value at a point, central differences, distance in
// ulps, random formulas over x and y with their value computed from the
// syntax tree by the C library (an oracle independent of the nodes), and a
// thread with a stack of a chosen size for deep nesting.
#pragma once

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>

#include "qvarray/expr/exprtree.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/varevaluator.h"

namespace qvtest {

// Variables bound to numbers, or defined by nodes.
class TestEvaluator : public qvarray::VarEvaluator {
 public:
  std::map<std::string, double> values;
  std::map<std::string, qvarray::EvalNodePtr> defs;
  bool eval(const qvarray::VarEvalPtr&, const std::string& name, const qvarray::NodeList& args, unsigned,
            qvarray::ValRepPtr& r, qvarray::ValRepCache&) override {
    auto it = values.find(name);
    if (!args.empty() || it == values.end()) return false;
    r = std::make_shared<qvarray::ValRep>(it->second);
    return true;
  }
  qvarray::EvalNodePtr expand(const qvarray::VarEvalPtr&, const std::string& name) override {
    auto it = defs.find(name);
    return it == defs.end() ? nullptr : it->second;
  }
};

// An evaluator, its node factory, and nodes read from text.
struct NodeFixture {
  std::shared_ptr<TestEvaluator> ev = std::make_shared<TestEvaluator>();
  qvarray::NodeMaker& mk = ev->getNodeMaker();
  qvarray::EvalNodePtr parse(const std::string& text) {
    return mk.fromSyntax(*qvarray::ExprImpl(text).root(), ev);
  }
  // The value at (x, y); NaN for a failed evaluation.
  double eval(const qvarray::EvalNodePtr& n, double x, double y = 0.0) {
    ev->values = {{"x", x}, {"y", y}};
    qvarray::ValRepCache cache;
    qvarray::ValRepPtr v = n->eval(ev, cache, 0);
    return v->isNaN() ? NAN : v->isZero() ? 0.0 : v->getDouble();
  }
};

// (f(x + h) - f(x - h)) / 2h.
template <class F>
double centralDiff(F&& f, double x, double h) {
  return (f(x + h) - f(x - h)) / (2 * h);
}

// Distance in units in the last place of the larger (0 for equal values, +0
// and -0, or two NaNs; NaN against a number is NaN, never close).
inline double ulps(double a, double b) {
  if (std::isnan(a) && std::isnan(b)) return 0;
  if (a == b) return 0;
  return std::fabs(a - b) / (std::max(std::fabs(a), std::fabs(b)) * 0x1p-52);
}
inline bool close(double a, double b, double maxUlps) { return ulps(a, b) <= maxUlps; }

// Random formulas over x and y: sums, differences, products, quotients,
// integer and half powers, negation, and seven elementary functions.
inline std::string randomExpr(std::mt19937& g, int depth) {
  static const char* leaves[] = {"x", "y", "0", "1", "2", "3", "0.5", "x", "y"};
  static const char* ops[] = {"+", "-", "*", "/", "^"};
  static const char* funs[] = {"sin", "cos", "exp", "log", "sqrt", "atan", "tanh"};
  std::uniform_int_distribution<int> pick(0, 9);
  int k = pick(g);
  if (depth == 0 || k < 2) return leaves[pick(g) % 9];
  if (k < 4) return std::string(funs[pick(g) % 7]) + "(" + randomExpr(g, depth - 1) + ")";
  if (k == 4) return "-(" + randomExpr(g, depth - 1) + ")";
  std::string op = ops[pick(g) % 5];
  std::string r = op == "^" ? std::string(leaves[2 + pick(g) % 5]) : randomExpr(g, depth - 1);
  return "(" + randomExpr(g, depth - 1) + ")" + op + "(" + r + ")";
}

// A syntax tree of randomExpr's grammar evaluated with the C library's
// functions; NaN once any part is not finite (the engine reports log(0) as a
// failure).
inline double plainValue(const qvarray::ExprImpl::Node& n, double x, double y) {
  using E = qvarray::ExprImpl;
  double v = NAN;
  if (auto* u = dynamic_cast<const E::Unary*>(&n)) {
    v = -plainValue(*u->operand(), x, y);
  } else if (auto* b = dynamic_cast<const E::Binary*>(&n)) {
    double l = plainValue(*b->left(), x, y), r = plainValue(*b->right(), x, y);
    if (std::isnan(l) || std::isnan(r)) return NAN;  // also NaN^0
    switch (b->code()) {
      case E::OpPlus: v = l + r; break;
      case E::OpMinus: v = l - r; break;
      case E::OpTimes: v = l * r; break;
      case E::OpDivide: v = l / r; break;
      default: v = std::pow(l, r);
    }
  } else if (auto* c = dynamic_cast<const E::FuncCall*>(&n)) {
    static const std::map<std::string, double (*)(double)> f = {
        {"sin", std::sin}, {"cos", std::cos}, {"exp", std::exp}, {"log", std::log},
        {"sqrt", std::sqrt}, {"atan", std::atan}, {"tanh", std::tanh}};
    v = f.at(c->name())(plainValue(*c->args()[0], x, y));
  } else if (auto* i = dynamic_cast<const E::Identifier*>(&n)) {
    v = i->name() == "x" ? x : y;
  } else {
    v = std::stod(static_cast<const E::LiteralValue&>(n).text());
  }
  return std::isfinite(v) ? v : NAN;
}

// Runs `f` on a thread with a stack of `bytes`; rethrows what it throws.
inline void onStack(size_t bytes, const std::function<void()>& f) {
  std::exception_ptr error;
  auto body = [&] {
    try {
      f();
    } catch (...) {
      error = std::current_exception();
    }
  };
  using Body = decltype(body);
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, bytes);
  pthread_t thread;
  if (pthread_create(&thread, &attr, [](void* b) -> void* { return (*static_cast<Body*>(b))(), nullptr; }, &body))
    throw std::runtime_error("no thread with that stack");
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  if (error) std::rethrow_exception(error);
}

}  // namespace qvtest
