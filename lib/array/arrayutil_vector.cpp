// Level-1 vector kernels: dot products, axpy updates, scaling, norms and
// copies, on element runs and on whole arrays.
//
// scale, norm and copy run an inline loop for up to kBlasThreshold elements
// and call BLAS above it: short runs are frequent in the evaluation engine,
// and for them the call into BLAS costs more than the loop. The inline loops
// are marked for vectorisation (the norm's sum may be reassociated), which
// keeps them at least as fast as BLAS up to the threshold.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "backend/blas.h"
#include "chunks.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

constexpr int kBlasThreshold = 50;

constexpr const char* kDotLength = "dot: x and y does not have the same length.";

bool isNaN(double a) { return qvIsNaN(a); }
bool isNaN(dcomplex a) { return qvIsNaN(a.real()) || qvIsNaN(a.imag()); }

// NaN in every element of x[0..n).
void fillNaN(double* x, int n) { std::fill(x, x + n, qvGetNaN()); }
void fillNaN(dcomplex* x, int n) { std::fill(x, x + n, dcomplex(qvGetNaN(), qvGetNaN())); }

double absSquare(double v) { return v * v; }
double absSquare(dcomplex v) { return v.real() * v.real() + v.imag() * v.imag(); }

// x *= a. A NaN factor gives NaN everywhere, whatever BLAS would do with it.
template <class T, class S>
void scaleRun(T* x, S a, int n) {
  if (n <= kBlasThreshold) {
#pragma omp simd
    for (int i = 0; i < n; ++i) x[i] *= a;
  } else if (isNaN(a)) {
    fillNaN(x, n);
  } else {
    blas::scal(n, a, x, 1);
  }
}

template <class T>
double normRun(const T* x, int n) {
  if (n > kBlasThreshold) return blas::nrm2(n, x, 1);
  double sum = 0.0;
#pragma omp simd reduction(+ : sum)
  for (int i = 0; i < n; ++i) sum += absSquare(x[i]);
  return std::sqrt(sum);
}

template <class T>
void copyRun(int n, const T* x, T* y) {
  if (n > kBlasThreshold) {
    blas::copy(n, x, 1, y, 1);
  } else if (n > 0) {
    std::memmove(static_cast<void*>(y), x, sizeof(T) * static_cast<size_t>(n));
  }
}

// Whole-array forms: runs longer than an int are processed chunk by chunk.
template <class T>
T dotArray(const T* x, const T* y, size_t count, Trans_t t) {
  T sum = 0;
  detail::forChunks(count, [&](size_t off, int n) {
    if constexpr (is_complex_v<T>) sum += dot(x + off, y + off, n, t);
    else sum += dot(x + off, y + off, n);
  });
  return sum;
}

template <class T>
double normArray(const T* x, size_t count) {
  if (count <= detail::kMaxChunk) return normRun(x, static_cast<int>(count));
  double r = 0.0;
  detail::forChunks(count, [&](size_t off, int n) { r = std::hypot(r, normRun(x + off, n)); });
  return r;
}

template <class T, class S>
void scaleArray(T* x, S a, size_t count) {
  detail::forChunks(count, [&](size_t off, int n) { scaleRun(x + off, a, n); });
}

}  // namespace

// ---------------------------------------------------------------------------
// Pointer kernels

double dot(const double* x, const double* y, int n) { return blas::dot(n, x, 1, y, 1); }

dcomplex dot(const dcomplex* x, const dcomplex* y, int n, Trans_t t) {
  return t == ConjTrans ? blas::dotc(n, x, 1, y, 1) : blas::dotu(n, x, 1, y, 1);
}

void yPlusaMulx(double* y, double a, const double* x, int n) { blas::axpy(n, a, x, 1, y, 1); }

void yPlusaMulx(dcomplex* y, dcomplex a, const dcomplex* x, int n) {
  blas::axpy(n, a, x, 1, y, 1);
}

void yPlusaMulx(dcomplex* y, dcomplex a, const double* x, int n) {
  for (int i = 0; i < n; ++i) y[i] += a * x[i];
}

// y += a as an axpy with the one-element run a and increment 0.
void yPlusa(double* y, double a, int n) { blas::axpy(n, 1.0, &a, 0, y, 1); }

void yPlusa(dcomplex* y, dcomplex a, int n) { blas::axpy(n, dcomplex(1.0), &a, 0, y, 1); }

void scale(double* x, double a, int n) { scaleRun(x, a, n); }
void scale(dcomplex* x, double a, int n) { scaleRun(x, a, n); }
void scale(dcomplex* x, dcomplex a, int n) { scaleRun(x, a, n); }

double norm(const double* x, int n) { return normRun(x, n); }
double norm(const dcomplex* x, int n) { return normRun(x, n); }

void copy(int n, const double* x, double* y) { copyRun(n, x, y); }
void copy(int n, const dcomplex* x, dcomplex* y) { copyRun(n, x, y); }

// ---------------------------------------------------------------------------
// Array kernels

double dot(const Array<double, 1>& x, const Array<double, 1>& y) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error, kDotLength);
  return dotArray(x.data, y.data, x.count, NoTrans);
}

dcomplex dot(const Array<dcomplex, 1>& x, const Array<dcomplex, 1>& y, Trans_t t) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error, kDotLength);
  return dotArray(x.data, y.data, x.count, t);
}

double dot(const Array<double, 2>& x, const Array<double, 2>& y) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error, kDotLength);
  return dotArray(x.data, y.data, x.count, NoTrans);
}

dcomplex dot(const Array<dcomplex, 2>& x, const Array<dcomplex, 2>& y, Trans_t t) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error, kDotLength);
  return dotArray(x.data, y.data, x.count, t);
}

void yPlusaMulx(Array<double, 1>& y, double a, const Array<double, 1>& x) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error,
           "yPlusaMulx: x and y does not have the same length.");
  detail::forChunks(x.count, [&](size_t off, int n) { yPlusaMulx(y.data + off, a, x.data + off, n); });
}

void yPlusaMulx(Array<dcomplex, 1>& y, dcomplex a, const Array<dcomplex, 1>& x) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error,
           "yPlusaMulx: y and x does not have the same length.");
  detail::forChunks(x.count, [&](size_t off, int n) { yPlusaMulx(y.data + off, a, x.data + off, n); });
}

void yPlusaMulx(Array<dcomplex, 1>& y, dcomplex a, const Array<double, 1>& x) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error,
           "yPlusaMulx: y and x does not have the same length.");
  detail::forChunks(x.count, [&](size_t off, int n) { yPlusaMulx(y.data + off, a, x.data + off, n); });
}

void yPlusa(Array<double, 1>& y, double a) {
  detail::forChunks(y.count, [&](size_t off, int n) { yPlusa(y.data + off, a, n); });
}

void yPlusa(Array<dcomplex, 1>& y, dcomplex a) {
  detail::forChunks(y.count, [&](size_t off, int n) { yPlusa(y.data + off, a, n); });
}

void scale(Array<double, 1>& x, double a) { scaleArray(x.data, a, x.count); }
void scale(Array<dcomplex, 1>& x, double a) { scaleArray(x.data, a, x.count); }
void scale(Array<dcomplex, 1>& x, dcomplex a) { scaleArray(x.data, a, x.count); }
void scale(std::vector<double>& x, double a) { scaleArray(x.data(), a, x.size()); }

double norm(const Array<double, 1>& x) { return normArray(x.data, x.count); }
double norm(const Array<dcomplex, 1>& x) { return normArray(x.data, x.count); }

void copy(const Array<double, 1>& x, Array<double, 1>& y) {
  QV_CHECK(y.count >= x.count, arrayutil, Internal_numerical_error, "copy: y is shorter than x.");
  detail::forChunks(x.count, [&](size_t off, int n) { copyRun(n, x.data + off, y.data + off); });
}

void copy(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) {
  QV_CHECK(y.count >= x.count, arrayutil, Internal_numerical_error, "copy: y is shorter than x.");
  detail::forChunks(x.count, [&](size_t off, int n) { copyRun(n, x.data + off, y.data + off); });
}

}  // namespace qvarray
