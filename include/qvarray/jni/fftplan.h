#pragma once
// FFTPlan: a discrete Fourier transform of fixed sizes, planned once by FFTW
// and executed any number of times, from any thread, on any arrays of those
// sizes.
//
//   forward  X[k] = Σ_j x[j] · exp(−2πi·(j·k)/n)      (per dimension, summed)
//   backward x[j] = Σ_k X[k] · exp(+2πi·(j·k)/n)
// Neither is scaled: backward(forward(x)) = N·x, N the product of the sizes.
//
// Sizes are given in the library's column-major order (an Array's sizes,
// 1 to 3 of them). Kinds:
//   Complex        complex → complex, both of the given sizes;
//   RealToComplex  real of the given sizes → complex of sizes
//                  (n0/2 + 1, n1, n2): the first dimension keeps only the
//                  non-negative frequencies (the others follow by symmetry);
//   ComplexToReal  the inverse shape: complex (n0/2 + 1, n1, n2) → real of
//                  the given sizes; the input is overwritten (FFTW's
//                  multi-dimensional complex-to-real transforms use it as
//                  scratch).
// RealToComplex is always forward and ComplexToReal backward.
//
// Threads. FFTW's planner is not thread-safe: every planner call of the
// process (plans, variants, destruction, wisdom) is made under one lock.
// Execution takes no lock: a plan made, it runs concurrently from any number
// of threads. A plan is made for the arrays' alignment and placement; arrays
// that are not SIMD-aligned (the library's own always are) or the same for
// input and output (in place, Complex only) get their own variant of the
// plan, made on first use under the lock.
//
// Wisdom is FFTW's memory of good plans, kept for the whole process: plans of
// rigor Measure add to it (and take long to make the first time); plans of
// rigor Estimate (the default) use it when it has their size. It can be
// exported to text and imported back.
//
// Errors (module "fftplan"): "Invalid_FFT_size" for 0 or more than 3 sizes,
// a zero size, or more elements than FFTW can index; "FFT_size_mismatch" when
// an execute gets arrays of other sizes or element types than the plan's.
// Checks come before any transform.
#include <complex>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API FFTPlan {
 public:
  using dcomplex = std::complex<double>;
  enum class Kind { Complex, RealToComplex, ComplexToReal };
  enum class Direction { Forward, Backward };
  enum class Rigor { Estimate, Measure };

  FFTPlan(Kind kind, Direction direction, std::vector<size_t> sizes,
          Rigor rigor = Rigor::Estimate);
  ~FFTPlan();
  FFTPlan(FFTPlan&&) noexcept;
  FFTPlan& operator=(FFTPlan&&) noexcept;

  Kind kind() const;
  Direction direction() const;
  /// The transform's sizes, as given.
  const std::vector<size_t>& sizes() const;
  /// Elements of the input and of the output.
  size_t inputCount() const;
  size_t outputCount() const;

  /// Transforms `in` into `out` (of inputCount() and outputCount() elements;
  /// the same array for an in-place Complex transform).
  void execute(const dcomplex* in, dcomplex* out) const;  // Complex
  void execute(const double* in, dcomplex* out) const;    // RealToComplex
  void execute(dcomplex* in, double* out) const;          // ComplexToReal, overwrites in

  /// As above on arrays, checked: `in` must have the plan's input sizes (N =
  /// the number of sizes); `out` is resized to the output sizes.
  template <int N>
  void execute(const Array<dcomplex, N>& in, Array<dcomplex, N>& out) const;
  template <int N>
  void execute(const Array<double, N>& in, Array<dcomplex, N>& out) const;
  template <int N>
  void execute(Array<dcomplex, N>& in, Array<double, N>& out) const;

  /// FFTW's wisdom of the process as text; importWisdom adds such a text
  /// (false when it is not wisdom); forgetWisdom clears it. Under the lock.
  static std::string exportWisdom();
  static bool importWisdom(const std::string& text);
  static void forgetWisdom();

 private:
  struct Impl;
  template <int N, class In, class Out>
  void checkArrays(const Array<In, N>& in, Array<Out, N>& out) const;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qvarray

using qvarray::FFTPlan;
