// Evaluating formulas that a user typed: variables bound to arrays over a
// batch of points, a variable defined by another formula, a user function,
// the derivative of a formula (its values and its text), a soft failure with
// its error record, and what a formula depends on among declared solution
// components and their time derivatives.
#include <cmath>
#include <cstdio>

#include "qvarray/blasruntime.h"
#include "qvarray/expr/userevaluator.h"
#include "qvarray/init.h"
#include "qvutil/exception.h"

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();

  // Five points along x, one temperature for all of them.
  const size_t n = 5;
  auto ev = qvarray::UserEvaluator::make(n);
  Array<double, 1> x(n);
  for (size_t i = 0; i < n; ++i) x.data[i] = 0.25 * double(i);
  ev->bind("x", x);
  ev->bind("T0", 300.0);
  ev->define("T", "T0*(1+0.1*sin(x))");      // a variable defined by a formula
  ev->defineFunction("k", {"s"}, "2+s/100");  // a user function

  const char* heat = "k(T)*T^2";
  Array<double, 1> q = ev->values(heat);
  Array<double, 1> dq = ev->toArray(*ev->evaluate(ev->derivative(heat, "x")));
  int bad = 0;
  for (size_t i = 0; i < n; ++i) {
    // Independent check: the same formula in plain C++ and its derivative.
    const double xi = x.data[i], T = 300 * (1 + 0.1 * std::sin(xi)), dT = 30 * std::cos(xi);
    const double want = (2 + T / 100) * T * T, dwant = (T * T / 100 + 2 * (2 + T / 100) * T) * dT;
    bad += std::fabs(q.data[i] - want) > 1e-9 * want || std::fabs(dq.data[i] - dwant) > 1e-9 * std::fabs(dwant);
    std::printf("x = %.2f: %s = %.6g, d/dx = %.6g\n", xi, heat, q.data[i], dq.data[i]);
  }
  std::printf("d/dx as text: %s\n", ev->derivative(heat, "x")->getExpandedExpr().c_str());

  // A formula without a value at some point is a NaN value with a record.
  qvarray::ValRepPtr v = ev->evaluate("log(x-1)");
  if (v->isNaN())
    for (const auto& [name, value] : v->getErrors()->pairs()) std::printf("  %s = %s\n", name.c_str(), value.c_str());

  // Dependencies: u with its first and second time derivatives, a parameter p.
  ev->addSolution("u", 2);
  ev->addParameter("p");
  qvarray::DepInfo d = ev->dependencies("p*d(u,t)+utt^2");
  qvarray::DepInfo j = ev->dependencies("p*d(u,t)+utt^2", /*jacobian=*/true);
  std::printf("depends on u: %d, ut: %d, utt: %d, p: %d; nonlinear in ut: %d, utt: %d\n",
              d.getSolDep(0, 0), d.getSolDep(0, 1), d.getSolDep(0, 2), d.getParDep(0, 0),
              j.getSolDep(0, 1), j.getSolDep(0, 2));
  bad += d.getSolDep(0, 0) || !d.getSolDep(0, 1) || !d.getSolDep(0, 2) || !d.getParDep(0, 0) ||
         !j.getSolDep(0, 2);

  // A circular definition is refused with the chain of names.
  ev->define("a", "b+1");
  ev->define("b", "2*a");
  try {
    ev->evaluate("a");
    bad += 1;
  } catch (const qvbase::Exception& e) {
    std::printf("circular: %s\n", e.detail("Chain").value_or("?").c_str());
  }
  return bad ? 1 : 0;
}
