#pragma once
// qvmath: the scalar functions whose definition the expression language fixes.
// Every evaluator of the library (function objects, constant folding, the
// expression compiler's interpreter and its generated code) uses these, so an
// expression has one value however it is evaluated.
#include <cmath>
#include <complex>

namespace qvmath {

/// a mod b = a - b*floor(a/b): the result has the sign of b (floor
/// convention), mod(a, 0) = a. Computed through the exact fmod, so no
/// cancellation: |mod(a, b)| <= |b|, equal to |b| only when the exact result
/// rounds to it (mod(-1e-20, 1) = 1). NaN in, NaN out; mod(±inf, b) is NaN;
/// mod(a, ±inf) is a when a has the sign of b (or is 0), else ±inf.
inline double mod(double a, double b) {
  if (b == 0.0) return a;
  double r = std::fmod(a, b);
  if (r != 0.0 && ((r < 0.0) != (b < 0.0))) r += b;
  return r;
}

/// Complex mod: z - w*floor(z/w) with floor taken of the real and imaginary
/// parts (the Gaussian floor); mod(z, 0) = z. On real operands it is the real
/// mod above, bit for bit.
inline std::complex<double> mod(std::complex<double> z, std::complex<double> w) {
  if (z.imag() == 0.0 && w.imag() == 0.0) return mod(z.real(), w.real());
  if (w == 0.0) return z;
  std::complex<double> q = z / w;
  return z - w * std::complex<double>(std::floor(q.real()), std::floor(q.imag()));
}

/// round(x) = floor(x + 0.5): halves round upward, also for negative numbers
/// (round(-2.5) = -2).
inline double round(double x) { return std::floor(x + 0.5); }

/// fix(x): rounds toward zero (ceil for negative x, floor otherwise).
inline double fix(double x) { return x < 0.0 ? std::ceil(x) : std::floor(x); }

/// sign(x): 1, -1 or 0; NaN for NaN.
inline double sign(double x) {
  if (x > 0.0) return 1.0;
  if (x < 0.0) return -1.0;
  return x == 0.0 ? 0.0 : x;
}

/// sign(z) = z/|z|, 0 for 0.
inline std::complex<double> sign(std::complex<double> z) {
  if (z.imag() == 0.0) return sign(z.real());
  return z / std::abs(z);
}

/// Rounding of a complex number: of its real and imaginary parts.
inline std::complex<double> round(std::complex<double> z) {
  return {round(z.real()), round(z.imag())};
}
inline std::complex<double> fix(std::complex<double> z) { return {fix(z.real()), fix(z.imag())}; }
inline std::complex<double> floor(std::complex<double> z) {
  return {std::floor(z.real()), std::floor(z.imag())};
}
inline std::complex<double> ceil(std::complex<double> z) {
  return {std::ceil(z.real()), std::ceil(z.imag())};
}

}  // namespace qvmath
