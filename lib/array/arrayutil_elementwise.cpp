// Elementwise kernels: y = x + a, y = a − x, z = x·y and x = x^p.
//
// The loops are written by hand, four elements per step. Within a step all
// reads come before the writes, so an output may be the very same run as an
// input (z = x·x through times(n, x, x, x), for example); partially
// overlapping runs are not supported.
#include <algorithm>
#include <cmath>
#include <complex>

#include "chunks.h"
#include "qvarray/arrayutil.h"

namespace qvarray {

namespace {

// out[i] = f(i) for i < n, four at a time.
template <class T, class F>
void unrolled4(int n, T* out, F f) {
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const T v0 = f(i), v1 = f(i + 1), v2 = f(i + 2), v3 = f(i + 3);
    out[i] = v0;
    out[i + 1] = v1;
    out[i + 2] = v2;
    out[i + 3] = v3;
  }
  for (; i < n; ++i) out[i] = f(i);
}

// The scalar is copied first: it may live inside the output run.
template <class T>
void plusRun(int n, const T* x, T a, T* y) {
  unrolled4(n, y, [x, a](int i) { return x[i] + a; });
}

template <class T>
void minusRun(int n, T a, const T* x, T* y) {
  unrolled4(n, y, [x, a](int i) { return a - x[i]; });
}

template <class T>
void timesRun(int n, const T* x, const T* y, T* z) {
  unrolled4(n, z, [x, y](int i) { return x[i] * y[i]; });
}

// x = x^p for p one of the integers −1..4, without calling pow. Returns false
// (and leaves x alone) for any other p.
template <class T>
bool powFastPath(T* x, double p, int n) {
  if (p == -1.0) {
    for (int i = 0; i < n; ++i) x[i] = T(1.0) / x[i];
  } else if (p == 0.0) {
    std::fill(x, x + n, T(1.0));  // also for 0 and NaN elements
  } else if (p == 1.0) {
  } else if (p == 2.0) {
    timesRun(n, x, x, x);
  } else if (p == 3.0) {
    for (int i = 0; i < n; ++i) x[i] = (x[i] * x[i]) * x[i];
  } else if (p == 4.0) {
    for (int i = 0; i < n; ++i) {
      const T sq = x[i] * x[i];
      x[i] = sq * sq;
    }
  } else {
    return false;
  }
  return true;
}

}  // namespace

void plus(int n, const double* x, const double& a, double* y) { plusRun(n, x, a, y); }
void plus(int n, const dcomplex* x, const dcomplex& a, dcomplex* y) { plusRun(n, x, a, y); }

void minus(int n, const double& a, const double* x, double* y) { minusRun(n, a, x, y); }
void minus(int n, const dcomplex& a, const dcomplex* x, dcomplex* y) { minusRun(n, a, x, y); }

void times(int n, const double* x, const double* y, double* z) { timesRun(n, x, y, z); }
void times(int n, const dcomplex* x, const dcomplex* y, dcomplex* z) { timesRun(n, x, y, z); }

void pow(double* x, double p, int n) {
  if (n <= 0 || powFastPath(x, p, n)) return;
  for (int i = 0; i < n; ++i) x[i] = std::pow(x[i], p);
}

// Real and positive elements take the real power, which is exact where the
// complex power (through exp and log) is not.
void pow(dcomplex* x, double p, int n) {
  if (n <= 0 || powFastPath(x, p, n)) return;
  for (int i = 0; i < n; ++i) {
    if (x[i].imag() == 0.0 && x[i].real() > 0.0) x[i] = std::pow(x[i].real(), p);
    else x[i] = std::pow(x[i], p);
  }
}

// A complex exponent with zero imaginary part is a real exponent.
void pow(dcomplex* x, dcomplex p, int n) {
  if (p.imag() == 0.0) return pow(x, p.real(), n);
  for (int i = 0; i < n; ++i) x[i] = std::pow(x[i], p);
}

void pow(Array<double, 1>& x, double p) {
  detail::forChunks(x.count, [&](size_t off, int n) { pow(x.data + off, p, n); });
}

void pow(Array<dcomplex, 1>& x, double p) {
  detail::forChunks(x.count, [&](size_t off, int n) { pow(x.data + off, p, n); });
}

void pow(Array<dcomplex, 1>& x, dcomplex p) {
  detail::forChunks(x.count, [&](size_t off, int n) { pow(x.data + off, p, n); });
}

}  // namespace qvarray
