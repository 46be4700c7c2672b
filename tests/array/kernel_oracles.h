#pragma once
// Reference computations for the kernel tests: naive loops in long double.
#include <algorithm>
#include <cmath>
#include <complex>
#include <type_traits>

#include "qvarray/array.h"
#include "qvtest.h"

namespace kernel_oracles {

using cplx = std::complex<double>;

/// long double, or complex long double for complex T.
template <class T>
using Wide = std::conditional_t<qvarray::is_complex_v<T>, std::complex<long double>, long double>;

inline long double wide(double v) { return v; }
inline std::complex<long double> wide(cplx v) { return {v.real(), v.imag()}; }
inline long double conjw(long double v) { return v; }
inline std::complex<long double> conjw(std::complex<long double> v) { return std::conj(v); }

/// |a − b| relative to max(1, |b|).
template <class A, class B>
double relErr(A a, B b) {
  using std::abs;
  return static_cast<double>(abs(wide(a) - b) / std::max<long double>(1.0L, abs(b)));
}

template <class T, int N>
qvarray::Array<T, N> randomArray(qvtest::Rng& rng, size_t s0, size_t s1 = 1) {
  qvarray::Array<T, N> a;
  if constexpr (N == 1) a.resize(s0);
  else a.resize(s0, s1);
  rng.fill(a);
  return a;
}

}  // namespace kernel_oracles
