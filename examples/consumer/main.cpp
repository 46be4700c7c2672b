// Minimal program against an installed qvarray: an array's shape and a
// formula evaluated by the ready evaluator.
#include <cstdio>

#include "qvarray/array.h"
#include "qvarray/expr/userevaluator.h"
#include "qvarray/init.h"

int main() {
  qvarray::initializeArray();
  Array<double, 2> a(2, 3);
  a.fill(1.5);
  std::printf("a is %zux%zu with %zu elements\n", a.sizes[0], a.sizes[1], a.count);
  auto ev = qvarray::UserEvaluator::make(1);
  ev->bind("x", 2.0);
  const double v = ev->values("3*x+1").data[0];
  std::printf("3*x+1 at x = 2 is %g\n", v);
  return a.count == 6 && v == 7.0 ? 0 : 1;
}
