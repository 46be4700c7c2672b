// Level-1 vector kernels: dot products, axpy updates, scaling, norms and
// copies, on element runs and on whole arrays.
//
// scale and norm run the library's own loop for up to kShortRun (50)
// elements and call BLAS above it: short runs are frequent in the evaluation
// engine, and for them the call into BLAS costs more than the loop. Where a
// result is BLAS's (dot and yPlusaMulx at every length, scale above 50), real
// runs of up to kStandInRun elements go to stand-ins that give BLAS's bits
// when this process's BLAS was found to agree with them (shortruns.h). copy
// is a memory move at every length: its result is dcopy's whatever does it.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "backend/blas.h"
#include "chunks.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"
#include "shortruns.h"

namespace qvarray {

namespace {

using detail::kShortRun;

constexpr const char* kDotLength = "dot: x and y does not have the same length.";

// Raises the kernel's length sentence. Out of line, so that the kernels'
// short-run paths need no stack frame.
[[noreturn, gnu::noinline, gnu::cold]] void raiseLength(const char* sentence) {
  QV_RAISE(arrayutil, Internal_numerical_error, sentence);
}

bool isNaN(double a) { return qvIsNaN(a); }
bool isNaN(dcomplex a) { return qvIsNaN(a.real()) || qvIsNaN(a.imag()); }

double absSquare(dcomplex v) { return v.real() * v.real() + v.imag() * v.imag(); }

/// The element count of a pointer kernel's run (none for n <= 0).
size_t runLength(int n) { return n > 0 ? static_cast<size_t>(n) : 0; }

/// Whether a real run of `count` elements goes to the BLAS stand-ins.
bool standIn(size_t count) {
  return count <= static_cast<size_t>(detail::kStandInRun) && detail::blasFaithful();
}

// ---- real runs -------------------------------------------------------------
// Every run length goes through these, from the pointer and the array forms.
// The short-run branch comes first and stays free of the BLAS branch's
// set-up; runs longer than an int are handed to BLAS chunk by chunk.

[[gnu::noinline]] double dotBlas(const double* x, const double* y, size_t count) {
  if (count <= detail::kMaxChunk) return blas::dot(static_cast<int>(count), x, 1, y, 1);
  double sum = 0.0;
  detail::forChunks(count,
                    [&](size_t off, int n) { sum += blas::dot(n, x + off, 1, y + off, 1); });
  return sum;
}

inline double dotRun(const double* x, const double* y, size_t count) {
  if (standIn(count)) return detail::dotShort(x, y, static_cast<int>(count));
  return dotBlas(x, y, count);
}

[[gnu::noinline]] void axpyBlas(double* y, double a, const double* x, size_t count) {
  detail::forChunks(count, [&](size_t off, int n) { blas::axpy(n, a, x + off, 1, y + off, 1); });
}

inline void axpyRun(double* y, double a, const double* x, size_t count) {
  if (standIn(count)) return detail::axpyShort(y, a, x, static_cast<int>(count));
  axpyBlas(y, a, x, count);
}

// x *= a. Up to kShortRun elements the library's own loop; above, a NaN factor
// gives NaN everywhere (whatever BLAS would do with it), and otherwise dscal's
// result, the products x[i]·a, which the stand-in gives as well except for a
// zero factor (BLAS then writes zeros without multiplying).
[[gnu::noinline]] void scaleBlas(double* x, double a, size_t count) {
  if (isNaN(a)) return std::fill(x, x + count, qvGetNaN());
  detail::forChunks(count, [&](size_t off, int n) { blas::scal(n, a, x + off, 1); });
}

inline void scaleRun(double* x, double a, size_t count) {
  if (count <= static_cast<size_t>(kShortRun) || (a != 0.0 && !std::isnan(a) && standIn(count)))
    return detail::scaleShort(x, a, static_cast<int>(count));
  scaleBlas(x, a, count);
}

// Up to kShortRun elements the square root of the plain sum of squares;
// above, BLAS's scaled sum, safe from overflow (chunks joined by hypot).
[[gnu::noinline]] double normBlas(const double* x, size_t count) {
  if (count <= detail::kMaxChunk) return blas::nrm2(static_cast<int>(count), x, 1);
  double r = 0.0;
  detail::forChunks(count,
                    [&](size_t off, int n) { r = std::hypot(r, blas::nrm2(n, x + off, 1)); });
  return r;
}

inline double normRun(const double* x, size_t count) {
  if (count <= static_cast<size_t>(kShortRun))
    return std::sqrt(detail::sumOfSquares(x, static_cast<int>(count)));
  return normBlas(x, count);
}

// ---- complex runs ----------------------------------------------------------

// NaN in every element of x[0..n).
void fillNaN(dcomplex* x, int n) { std::fill(x, x + n, dcomplex(qvGetNaN(), qvGetNaN())); }

// x *= a as for real runs; no stand-ins.
template <class S>
void scaleComplexRun(dcomplex* x, S a, int n) {
  if (n <= kShortRun) {
#pragma omp simd
    for (int i = 0; i < n; ++i) x[i] *= a;
  } else if (isNaN(a)) {
    fillNaN(x, n);
  } else {
    blas::scal(n, a, x, 1);
  }
}

double normComplexRun(const dcomplex* x, int n) {
  if (n > kShortRun) return blas::nrm2(n, x, 1);
  double sum = 0.0;
#pragma omp simd reduction(+ : sum)
  for (int i = 0; i < n; ++i) sum += absSquare(x[i]);
  return std::sqrt(sum);
}

// y = x. A copy gives dcopy's result however it is made: every length is a
// memory move, faster than the BLAS call at every length measured, and
// defined for overlapping runs too.
template <class T>
void copyRun(int n, const T* x, T* y) {
  if (n > 0) std::memmove(static_cast<void*>(y), x, sizeof(T) * static_cast<size_t>(n));
}

// A run of one chunk returns the pointer kernel's result itself (not 0 + it,
// which would turn −0 into +0).
dcomplex dotComplexArray(const dcomplex* x, const dcomplex* y, size_t count, Trans_t t) {
  if (count <= detail::kMaxChunk) return dot(x, y, static_cast<int>(count), t);
  dcomplex sum = 0;
  detail::forChunks(count, [&](size_t off, int n) { sum += dot(x + off, y + off, n, t); });
  return sum;
}

double normComplexArray(const dcomplex* x, size_t count) {
  if (count <= detail::kMaxChunk) return normComplexRun(x, static_cast<int>(count));
  double r = 0.0;
  detail::forChunks(count,
                    [&](size_t off, int n) { r = std::hypot(r, normComplexRun(x + off, n)); });
  return r;
}

template <class S>
void scaleComplexArray(dcomplex* x, S a, size_t count) {
  detail::forChunks(count, [&](size_t off, int n) { scaleComplexRun(x + off, a, n); });
}

}  // namespace

// ---------------------------------------------------------------------------
// Pointer kernels

double dot(const double* x, const double* y, int n) { return dotRun(x, y, runLength(n)); }

dcomplex dot(const dcomplex* x, const dcomplex* y, int n, Trans_t t) {
  return t == ConjTrans ? blas::dotc(n, x, 1, y, 1) : blas::dotu(n, x, 1, y, 1);
}

void yPlusaMulx(double* y, double a, const double* x, int n) { axpyRun(y, a, x, runLength(n)); }

void yPlusaMulx(dcomplex* y, dcomplex a, const dcomplex* x, int n) {
  blas::axpy(n, a, x, 1, y, 1);
}

void yPlusaMulx(dcomplex* y, dcomplex a, const double* x, int n) {
  for (int i = 0; i < n; ++i) y[i] += a * x[i];
}

// y += a as an axpy with the one-element run a and increment 0.
void yPlusa(double* y, double a, int n) { blas::axpy(n, 1.0, &a, 0, y, 1); }

void yPlusa(dcomplex* y, dcomplex a, int n) { blas::axpy(n, dcomplex(1.0), &a, 0, y, 1); }

void scale(double* x, double a, int n) { scaleRun(x, a, runLength(n)); }
void scale(dcomplex* x, double a, int n) { scaleComplexRun(x, a, n); }
void scale(dcomplex* x, dcomplex a, int n) { scaleComplexRun(x, a, n); }

double norm(const double* x, int n) { return normRun(x, runLength(n)); }
double norm(const dcomplex* x, int n) { return normComplexRun(x, n); }

void copy(int n, const double* x, double* y) { copyRun(n, x, y); }
void copy(int n, const dcomplex* x, dcomplex* y) { copyRun(n, x, y); }

// ---------------------------------------------------------------------------
// Array kernels

double dot(const Array<double, 1>& x, const Array<double, 1>& y) {
  if (x.count != y.count) raiseLength(kDotLength);
  return dotRun(x.data, y.data, x.count);
}

dcomplex dot(const Array<dcomplex, 1>& x, const Array<dcomplex, 1>& y, Trans_t t) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error, kDotLength);
  return dotComplexArray(x.data, y.data, x.count, t);
}

double dot(const Array<double, 2>& x, const Array<double, 2>& y) {
  if (x.count != y.count) raiseLength(kDotLength);
  return dotRun(x.data, y.data, x.count);
}

dcomplex dot(const Array<dcomplex, 2>& x, const Array<dcomplex, 2>& y, Trans_t t) {
  QV_CHECK(x.count == y.count, arrayutil, Internal_numerical_error, kDotLength);
  return dotComplexArray(x.data, y.data, x.count, t);
}

void yPlusaMulx(Array<double, 1>& y, double a, const Array<double, 1>& x) {
  if (x.count != y.count) raiseLength("yPlusaMulx: x and y does not have the same length.");
  axpyRun(y.data, a, x.data, x.count);
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

void scale(Array<double, 1>& x, double a) { scaleRun(x.data, a, x.count); }
void scale(Array<dcomplex, 1>& x, double a) { scaleComplexArray(x.data, a, x.count); }
void scale(Array<dcomplex, 1>& x, dcomplex a) { scaleComplexArray(x.data, a, x.count); }
void scale(std::vector<double>& x, double a) { scaleRun(x.data(), a, x.size()); }

double norm(const Array<double, 1>& x) { return normRun(x.data, x.count); }
double norm(const Array<dcomplex, 1>& x) { return normComplexArray(x.data, x.count); }

void copy(const Array<double, 1>& x, Array<double, 1>& y) {
  QV_CHECK(y.count >= x.count, arrayutil, Internal_numerical_error, "copy: y is shorter than x.");
  detail::forChunks(x.count, [&](size_t off, int n) { copyRun(n, x.data + off, y.data + off); });
}

void copy(const Array<dcomplex, 1>& x, Array<dcomplex, 1>& y) {
  QV_CHECK(y.count >= x.count, arrayutil, Internal_numerical_error, "copy: y is shorter than x.");
  detail::forChunks(x.count, [&](size_t off, int n) { copyRun(n, x.data + off, y.data + off); });
}

}  // namespace qvarray
