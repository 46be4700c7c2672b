#pragma once
// Element access shared by the operator loops: one template walks any pair
// of operand shapes (scalar or array, real or complex), broadcasting a scalar
// over the array and writing into the chosen operand. A complex value written
// into a real operand keeps its real part.
#include <algorithm>
#include <complex>
#include <cstddef>
#include <limits>
#include <type_traits>

#include "qvarray/expr/funobj.h"

namespace qvarray::evalfun {

using cplx = std::complex<double>;
using Code = FunObj::FunOpCode;

template <class P> struct Shape;
template <> struct Shape<FunObj::RS> {
  using T = double;
  static double* at(const FunObj::RS& p) { return p.get(); }
  static constexpr std::ptrdiff_t step = 0;
};
template <> struct Shape<FunObj::CS> {
  using T = cplx;
  static cplx* at(const FunObj::CS& p) { return p.get(); }
  static constexpr std::ptrdiff_t step = 0;
};
template <> struct Shape<FunObj::RA> {
  using T = double;
  static double* at(const FunObj::RA& p) { return p->data; }
  static constexpr std::ptrdiff_t step = 1;
};
template <> struct Shape<FunObj::CA> {
  using T = cplx;
  static cplx* at(const FunObj::CA& p) { return p->data; }
  static constexpr std::ptrdiff_t step = 1;
};

inline void put(double& out, double v) { out = v; }
inline void put(double& out, cplx v) { out = v.real(); }
inline void put(cplx& out, double v) { out = v; }
inline void put(cplx& out, cplx v) { out = v; }

template <class P> constexpr bool isComplex = std::is_same_v<typename Shape<P>::T, cplx>;
template <class P> constexpr bool isArray = Shape<P>::step == 1;

inline Code maxCode(unsigned a, unsigned b) { return static_cast<Code>(std::max(a, b)); }
inline Code toCode(unsigned c) { return static_cast<Code>(c); }

/// out[i] = op(x[i], y[i]) for i < n, written into x (which == 1) or y;
/// op(a, b) returns (code, value) and sees a, b in the computing type (complex
/// when either operand is). Returns the largest code.
template <class X, class Y, class Op>
Code zipInto(const X& x, const Y& y, std::size_t n, int which, Op op) {
  using R = std::conditional_t<isComplex<X> || isComplex<Y>, cplx, double>;
  auto* a = Shape<X>::at(x);
  auto* b = Shape<Y>::at(y);
  unsigned code = 0;
  // omp simd: vectorised at -O2 too; in place is element by element.
  if (which == 1) {
#pragma omp simd reduction(max : code)
    for (std::size_t i = 0; i < n; ++i) {
      auto [c, v] = op(R(a[i * Shape<X>::step]), R(b[i * Shape<Y>::step]));
      put(a[i * Shape<X>::step], v);
      code = std::max(code, c);
    }
  } else {
#pragma omp simd reduction(max : code)
    for (std::size_t i = 0; i < n; ++i) {
      auto [c, v] = op(R(a[i * Shape<X>::step]), R(b[i * Shape<Y>::step]));
      put(b[i * Shape<Y>::step], v);
      code = std::max(code, c);
    }
  }
  return toCode(code);
}

}  // namespace qvarray::evalfun
