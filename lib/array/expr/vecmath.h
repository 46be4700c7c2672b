#pragma once
// Elementary functions and arithmetic over contiguous arrays of doubles, on SLEEF's 1-ulp
// vector functions for the widest instruction set the processor offers
// (chosen once per process). A single value goes through the same vector
// code (in lane 0 of a padded vector), so a value never depends on whether it
// was computed alone, inside an array or at which position.
#include <cstddef>

namespace qvarray::vecmath {

enum class Fn : int {
  exp, log, log10, log2, sin, cos, tan, asin, acos, atan,
  sinh, cosh, tanh, asinh, acosh, atanh, sqrt, count
};

using Unary = void (*)(const double* x, double* y, std::size_t n);
/// z[i] = f(x[i*sx], y[i*sy]) with strides 0 (broadcast) or 1.
using Binary = void (*)(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy,
                        double* z, std::size_t n);

/// One instruction set's kernels.
struct Kernels {
  Unary unary[static_cast<int>(Fn::count)];
  Binary pow;
  Binary atan2;
  /// z = x + y, x - y, x * y, x / y (IEEE operations: the same bits in
  /// every instruction set, only wider).
  Binary add, sub, mul, div;
  /// Whether some x[i] < lo or x[i] > hi (NaN is inside), i < n.
  bool (*outside)(const double* x, std::size_t n, double lo, double hi);
  const char* isa;
};

extern const Kernels kSse2Kernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;

/// The kernels of this processor.
const Kernels& kernels();

/// y[i] = f(x[i]), i < n; y may be x.
inline void apply(Fn f, const double* x, double* y, std::size_t n) {
  kernels().unary[static_cast<int>(f)](x, y, n);
}
inline double apply(Fn f, double x) {
  apply(f, &x, &x, 1);
  return x;
}
inline double pow(double x, double y) {
  double z;
  kernels().pow(&x, 0, &y, 0, &z, 1);
  return z;
}
inline double atan2(double y, double x) {
  double z;
  kernels().atan2(&y, 0, &x, 0, &z, 1);
  return z;
}

}  // namespace qvarray::vecmath
