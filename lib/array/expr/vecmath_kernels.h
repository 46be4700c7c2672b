// The kernels of one instruction set, included once by each vecmath_<isa>.cpp
// after it defines:
//   QV_VW              lanes per vector
//   QV_LOAD(p)         unaligned load,  QV_STORE(p, v) unaligned store
//   QV_SLEEF(fn)       SLEEF's 1-ulp function fn for this set
//   QV_SQRT(v)         the vector square root
//   QV_KERNELS         name of the Kernels table to define, QV_ISA its name
// Only plain loops and intrinsics: nothing here may be shared with code built
// for another instruction set.
#include "vecmath.h"

namespace qvarray::vecmath {
namespace {

// A partial vector runs through the same lane code in a zero-padded buffer.
#define QV_UNARY_KERNEL(fn)                                                     \
  void fn##Kernel(const double* x, double* y, std::size_t n) {                  \
    std::size_t i = 0;                                                          \
    for (; i + QV_VW <= n; i += QV_VW) QV_STORE(y + i, QV_SLEEF(fn)(QV_LOAD(x + i))); \
    if (i == n) return;                                                         \
    double buf[QV_VW] = {};                                                     \
    for (std::size_t k = 0; i + k < n; ++k) buf[k] = x[i + k];                  \
    QV_STORE(buf, QV_SLEEF(fn)(QV_LOAD(buf)));                                  \
    for (std::size_t k = 0; i + k < n; ++k) y[i + k] = buf[k];                  \
  }

#define QV_BINARY_KERNEL(fn)                                                    \
  void fn##Kernel(const double* x, std::ptrdiff_t sx, const double* y,          \
                  std::ptrdiff_t sy, double* z, std::size_t n) {                \
    double bx[QV_VW] = {}, by[QV_VW] = {};                                      \
    for (std::size_t i = 0; i < n; i += QV_VW) {                                \
      std::size_t m = n - i < QV_VW ? n - i : QV_VW;                            \
      for (std::size_t k = 0; k < m; ++k) {                                     \
        bx[k] = x[(i + k) * sx];                                                \
        by[k] = y[(i + k) * sy];                                                \
      }                                                                         \
      QV_STORE(bx, QV_SLEEF(fn)(QV_LOAD(bx), QV_LOAD(by)));                     \
      for (std::size_t k = 0; k < m; ++k) z[i + k] = bx[k];                     \
    }                                                                           \
  }

// Plain loops vectorised for this instruction set (omp simd: the library is
// built -O2, whose cost model would not version the loops for aliasing; an
// output equal to an input is element by element, which simd allows); a
// stride of 0 is a broadcast scalar, read once.
#define QV_ARITH_KERNEL(fn, op)                                                 \
  void fn##Kernel(const double* x, std::ptrdiff_t sx, const double* y,          \
                  std::ptrdiff_t sy, double* z, std::size_t n) {                \
    if (sx != 0 && sy != 0) {                                                   \
      _Pragma("omp simd") for (std::size_t i = 0; i < n; ++i) z[i] = x[i] op y[i]; \
    } else if (sy != 0) {                                                       \
      const double a = *x;                                                      \
      _Pragma("omp simd") for (std::size_t i = 0; i < n; ++i) z[i] = a op y[i];  \
    } else if (sx != 0) {                                                       \
      const double b = *y;                                                      \
      _Pragma("omp simd") for (std::size_t i = 0; i < n; ++i) z[i] = x[i] op b;  \
    } else if (n != 0) {                                                        \
      z[0] = *x op *y;                                                          \
    }                                                                           \
  }

QV_ARITH_KERNEL(add, +)
QV_ARITH_KERNEL(sub, -)
QV_ARITH_KERNEL(mul, *)
QV_ARITH_KERNEL(div, /)
#undef QV_ARITH_KERNEL

// By the smallest and largest element: minimum and maximum reductions
// vectorise where a reduction of comparison flags does not; a NaN never wins
// a comparison, so it is inside.
bool outsideKernel(const double* x, std::size_t n, double lo, double hi) {
  double smallest = lo, largest = hi;
  _Pragma("omp simd reduction(min : smallest) reduction(max : largest)")
  for (std::size_t i = 0; i < n; ++i) {
    smallest = x[i] < smallest ? x[i] : smallest;
    largest = x[i] > largest ? x[i] : largest;
  }
  return smallest < lo || largest > hi;
}

// The square root is an IEEE operation: the same bits in every set.
void sqrtKernel(const double* x, double* y, std::size_t n) {
  std::size_t i = 0;
  for (; i + QV_VW <= n; i += QV_VW) QV_STORE(y + i, QV_SQRT(QV_LOAD(x + i)));
  for (; i < n; ++i) y[i] = __builtin_sqrt(x[i]);
}

QV_UNARY_KERNEL(exp)
QV_UNARY_KERNEL(log)
QV_UNARY_KERNEL(log10)
QV_UNARY_KERNEL(log2)
QV_UNARY_KERNEL(sin)
QV_UNARY_KERNEL(cos)
QV_UNARY_KERNEL(tan)
QV_UNARY_KERNEL(asin)
QV_UNARY_KERNEL(acos)
QV_UNARY_KERNEL(atan)
QV_UNARY_KERNEL(sinh)
QV_UNARY_KERNEL(cosh)
QV_UNARY_KERNEL(tanh)
QV_UNARY_KERNEL(asinh)
QV_UNARY_KERNEL(acosh)
QV_UNARY_KERNEL(atanh)
QV_BINARY_KERNEL(pow)
QV_BINARY_KERNEL(atan2)

#undef QV_UNARY_KERNEL
#undef QV_BINARY_KERNEL

}  // namespace

// In the order of Fn.
const Kernels QV_KERNELS = {
    {expKernel, logKernel, log10Kernel, log2Kernel, sinKernel, cosKernel, tanKernel, asinKernel,
     acosKernel, atanKernel, sinhKernel, coshKernel, tanhKernel, asinhKernel, acoshKernel,
     atanhKernel, sqrtKernel},
    powKernel,
    atan2Kernel,
    addKernel,
    subKernel,
    mulKernel,
    divKernel,
    outsideKernel,
    QV_ISA};

}  // namespace qvarray::vecmath
