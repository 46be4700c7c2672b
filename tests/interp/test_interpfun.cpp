// InterpFun: the interpolant callable in expressions. Oracles: the
// Interpolator itself (bit for bit), central differences of the values, and
// the error key of a refused extrapolation.
#include <gtest/gtest.h>

#include <cmath>

#include "nodetesting.h"
#include "qvarray/expr/userevaluator.h"
#include "qvarray/interp/interpfun.h"
#include "qvtest.h"

using namespace qvarray;

namespace {

// sin(x) + x*y on a non-uniform 2-D grid.
std::shared_ptr<Interpolator> makeGrid(InterpMethod m, InterpExtrapolation e) {
  std::vector<double> x{0, 0.3, 0.7, 1.2, 1.6, 2.0}, y{-1, -0.2, 0.5, 1.0};
  Array<double, 2> v(x.size() * y.size(), 1);
  for (size_t j = 0; j < y.size(); ++j)
    for (size_t i = 0; i < x.size(); ++i) v(i + j * x.size(), 0) = std::sin(x[i]) + x[i] * y[j];
  return std::make_shared<Interpolator>(Interpolator::onGrid({x, y}, v, m, e));
}

TEST(InterpFun, ValuesNodesAndDerivativesMatchTheInterpolator) {
  const InterpMethod methods[] = {InterpMethod::Linear, InterpMethod::CubicSpline,
                                  InterpMethod::PiecewiseCubic};
  const double pts[][2] = {{0.45, 0.1}, {1.3, -0.7}, {1.9, 0.8}};
  for (InterpMethod m : methods) {
    auto ip = makeGrid(m, InterpExtrapolation::Constant);
    auto f = std::make_shared<InterpFun>("k", ip);
    // Array arguments: one array per coordinate.
    auto xa = std::make_shared<Array<double, 1>>(3), ya = std::make_shared<Array<double, 1>>(3);
    for (int p = 0; p < 3; ++p) xa->data[p] = pts[p][0], ya->data[p] = pts[p][1];
    const double* c[] = {xa->data, ya->data};
    double ref[3], dref[3];
    ip->evaluate(c, 3, ref);
    ip->evaluate(c, 3, dref, 0, 0);
    ASSERT_EQ((*f)(std::vector<FunObj::RA>{xa, ya}, 3, 2), FunObj::Success);
    for (int p = 0; p < 3; ++p) EXPECT_EQ(xa->data[p], ref[p]);
    // Nodes: the value, and its symbolic derivative through the factory.
    qvtest::NodeFixture t;
    EvalNodePtr node = t.mk.makeOpNode(FunPtr(f), NodeList{t.mk.makeVarNode("x"), t.mk.makeVarNode("y")});
    EvalNodePtr d = node->diff("x", t.ev);
    for (int p = 0; p < 3; ++p) {
      const double x = pts[p][0], y = pts[p][1];
      EXPECT_EQ(t.eval(node, x, y), ref[p]);
      EXPECT_EQ(t.eval(d, x, y), dref[p]) << d->toString();
      EXPECT_NEAR(t.eval(d, x, y), qvtest::centralDiff([&](double s) { return t.eval(node, s, y); }, x, 1e-6),
                  1e-6);
    }
    // No second derivative from the interpolant: an unexpanded d(...).
    EXPECT_EQ(d->diff("x", t.ev)->toString().rfind("d(", 0), 0u);
  }
}

TEST(InterpFun, OneDimensionalNodeAndBroadcastScalar) {
  std::vector<double> x{0, 0.4, 0.9, 1.5, 2.0};
  Array<double, 2> v(x.size(), 1);
  for (size_t i = 0; i < x.size(); ++i) v(i, 0) = std::exp(x[i]);
  auto ip = std::make_shared<Interpolator>(Interpolator::onGrid({x}, v, InterpMethod::CubicSpline));
  auto f = std::make_shared<InterpFun>("e", ip);
  qvtest::NodeFixture t;
  EvalNodePtr node = t.mk.makeOpNode(FunPtr(f), NodeList{t.mk.makeVarNode("x")});
  EvalNodePtr d = node->diff("x", t.ev);
  const double p = 1.1;
  const double* c[] = {&p};
  double ref = 0, dref = 0;
  ip->evaluate(c, 1, &ref);
  ip->evaluate(c, 1, &dref, 0, 0);
  EXPECT_EQ(t.eval(node, p), ref);
  EXPECT_EQ(t.eval(d, p), dref);
  // 2-D: a scalar y broadcast over an array x equals the point-by-point values.
  auto g = std::make_shared<InterpFun>("k", makeGrid(InterpMethod::Linear, InterpExtrapolation::Constant));
  auto xa = std::make_shared<Array<double, 1>>(2);
  xa->data[0] = 0.2, xa->data[1] = 1.7;
  auto ys = std::make_shared<double>(0.3);
  const double xs[] = {0.2, 1.7};
  ASSERT_EQ((*g)(xa, ys, 2, 1), FunObj::Success);
  for (int k = 0; k < 2; ++k) {
    std::vector<FunObj::RS> a{std::make_shared<double>(xs[k]), std::make_shared<double>(0.3)};
    ASSERT_EQ((*g)(a, 2), FunObj::Success);
    EXPECT_EQ(xa->data[k], *a[0]);
  }
}

TEST(InterpFun, RefusedExtrapolationAndComplexArgumentsGiveCodes) {
  auto f = std::make_shared<InterpFun>("k", makeGrid(InterpMethod::Linear, InterpExtrapolation::Error));
  std::vector<FunObj::RS> a{std::make_shared<double>(2.5), std::make_shared<double>(0.0)};
  const unsigned code = (*f)(a, 2);
  EXPECT_TRUE(std::isnan(*a[0]));
  qvtest::expectThrowKey([&] { f->raiseError(code); }, "Point_outside_interpolation_data");
  std::vector<FunObj::CS> z{std::make_shared<std::complex<double>>(1.0),
                            std::make_shared<std::complex<double>>(0.0)};
  EXPECT_EQ((*f)(z, 2), FunObj::Failure1);
}

// Named in formula text: k(x, y) in a UserEvaluator, its value, the chain
// rule through its diffRule, its dependencies and its argument count.
TEST(InterpFun, CalledByNameInFormulas) {
  auto ip = makeGrid(InterpMethod::CubicSpline, InterpExtrapolation::Constant);
  auto ev = UserEvaluator::make(3);
  ev->defineFunction("k", std::make_shared<InterpFun>("k", ip));
  ev->addSolution("u");
  Array<double, 1> x(3), y(3);
  const double xs[] = {0.45, 1.3, 1.9}, ys[] = {0.1, -0.7, 0.8};
  for (int p = 0; p < 3; ++p) x.data[p] = xs[p], y.data[p] = ys[p];
  ev->bind("x", x);
  ev->bind("y", y);
  const double* c[] = {x.data, y.data};
  double k[3], kx[3];
  ip->evaluate(c, 3, k);
  ip->evaluate(c, 3, kx, 0, 0);
  Array<double, 1> v = ev->values("x*k(x, y)");
  Array<double, 1> dv = ev->values(ev->derivative("x*k(x, y)", "x")->getExpandedExpr());
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(v.data[p], xs[p] * k[p]);
    EXPECT_NEAR(dv.data[p], k[p] + xs[p] * kx[p], 1e-14 * std::abs(dv.data[p]));
  }
  EXPECT_TRUE(ev->dependencies("k(2*u, y)").getSolDep(0, 0));
  // Defined again (linear now): the printed derivative reads back as the new one's.
  auto lin = makeGrid(InterpMethod::Linear, InterpExtrapolation::Constant);
  ev->defineFunction("k", std::make_shared<InterpFun>("k", lin));
  lin->evaluate(c, 3, kx, 0, 0);
  Array<double, 1> dk = ev->values(ev->derivative("k(x, y)", "x")->getExpandedExpr());
  for (int p = 0; p < 3; ++p) EXPECT_EQ(dk.data[p], kx[p]);
  qvtest::expectThrowKey([&] { ev->values("k(x)"); }, "Wrong_number_of_function_arguments");
}

}  // namespace
