#pragma once
// qvsf: the special functions of the expression language.
//
// Real arguments go to well-kept implementations (Boost.Math for the Bessel
// functions, gamma and polygamma; the C library for erf). The complex-argument
// Bessel functions and the complex gamma function, which no packaged library
// offers, are computed here.
//
// Conventions shared by every function:
// - Orders nu are real and may be negative; arguments are real or complex.
// - A result that is undefined, complex where a real one is asked for, or a
//   pole gives NaN, never an exception. Overflow gives +-inf.
// - Complex arguments use the principal branch, -pi < arg z <= pi: on the
//   negative real axis the value is the one from the upper half-plane,
//   whatever the sign of the zero imaginary part.
// - The complex Bessel forms take orders |nu| <= 1000 (NaN beyond) and
//   finite arguments (NaN otherwise); their cost grows like |nu| + |z| up to
//   |z| = max(25, nu^2/4), beyond which it is constant. On the positive real
//   axis they return real values (zero imaginary parts).
// - All functions are thread-safe and allocation-free.
//
// Accuracy of the complex Bessel functions, relative to 30-digit references:
// below 2e-14 for |nu| <= 20 and |z| <= 200 (5e-15 typically), below 1e-13
// up to |nu| = 60, |z| = 1000. Near a zero, where the conditioning allows
// nothing better, these bounds hold for the error relative to the envelope
// of the function: min(|H1|, |H2|) for J and Y, (2/pi)|K| for I.
#include <complex>

#include "qvsf/export.h"

namespace qvsf {

// Bessel function of the first kind J_nu(x). NaN for x < 0 unless nu is an
// integer (then J_nu(-x) = (-1)^nu J_nu(x)).
QVSF_API double qvbesselj(double nu, double x);
QVSF_API std::complex<double> qvbesselj(double nu, std::complex<double> z);

// Bessel function of the second kind Y_nu(x). NaN for x <= 0 (complex or a
// pole there). The complex form is NaN at z = 0 only.
QVSF_API double qvbessely(double nu, double x);
QVSF_API std::complex<double> qvbessely(double nu, std::complex<double> z);

// Modified Bessel function of the first kind I_nu(x). NaN for x < 0 unless nu
// is an integer (then I_nu(-x) = (-1)^nu I_nu(x)), and at x = 0 for negative
// non-integer nu (a pole).
QVSF_API double qvbesseli(double nu, double x);
QVSF_API std::complex<double> qvbesseli(double nu, std::complex<double> z);

// Modified Bessel function of the second kind K_nu(x). NaN for x <= 0. The
// complex form is NaN at z = 0 only.
QVSF_API double qvbesselk(double nu, double x);
QVSF_API std::complex<double> qvbesselk(double nu, std::complex<double> z);

// Hankel functions H1_nu(z) = J_nu(z) + i Y_nu(z) (kind 1) and
// H2_nu(z) = J_nu(z) - i Y_nu(z) (kind 2). NaN for another kind and at z = 0.
QVSF_API std::complex<double> qvbesselh(int kind, double nu, std::complex<double> z);

// Error function erf(x) = 2/sqrt(pi) int_0^x exp(-t^2) dt. The complex form
// (Taylor series near the imaginary axis, Laplace's continued fraction for
// erfc elsewhere) is the real form on the real axis. Its relative error
// grows with the conditioning, like (|z|^2 + 25) 2e-16: 5e-15 near the
// origin, 1e-13 at |z| = 25. Where |erf| overflows (|Im z|^2 - |Re z|^2 >
// 709) the result is inf or NaN.
QVSF_API double qverf(double x);
QVSF_API std::complex<double> qverf(std::complex<double> z);

// Gamma function. NaN at its poles 0, -1, -2, ...; +-inf on overflow. The
// complex form (Lanczos' approximation, reflected for Re z < 1/2) is the real
// form on the real axis; its relative error grows like the condition number
// |z log z| eps: below 1e-13 for |z| <= 30.
QVSF_API double qvgamma(double x);
QVSF_API std::complex<double> qvgamma(std::complex<double> z);

// Polygamma function psi(n, x) = d^n/dx^n log Gamma(x): psi(0, x) is the
// digamma function. NaN for n < 0 and at the poles x = 0, -1, -2, ...
// The complex form (recurrence to Re z >= 20 + n, asymptotic series;
// reflection for psi(z), Re z < 1/2) is the real form on the real axis;
// relative accuracy about 1e-14 for |z| <= 30 and n <= 5.
QVSF_API double qvpsi(int order, double x);
QVSF_API std::complex<double> qvpsi(int order, std::complex<double> z);

}  // namespace qvsf
