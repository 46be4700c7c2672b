// Minimal program against an installed qvarray: x·y of two short arrays.
#include <cstdio>

#include "qvarray/array.h"
#include "qvarray/init.h"

int main() {
  qvarray::initializeArray();
  Array<double, 2> a(2, 3);
  a.fill(1.5);
  std::printf("a is %zux%zu with %zu elements\n", a.sizes[0], a.sizes[1], a.count);
  return a.count == 6 ? 0 : 1;
}
