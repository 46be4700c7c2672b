#pragma once
// MatrixTemplateBase<N>: storage shared by the dense Vector (N = 1), Matrix
// (N = 2) and Matrix3 (N = 3) classes.
//
// An object holds either real or complex elements, never both: exactly one of
// the two Arrays is in use (isReal() tells which) and the other is empty. A
// real object becomes complex on demand (makeComplex(), or storing a value
// with a non-zero imaginary part); makeReal() goes back, dropping imaginary
// parts. The storage is handed out as Array<double,N> / Array<complex,N>
// through getdArr() / getzArr() without copying, so every qvarray kernel and
// LAPACK wrapper works on it directly.
//
// Copies are deep and follow Array's rules (storage is reused when the
// element count is unchanged).
#include <complex>
#include <cstddef>
#include <utility>

#include "qvarray/array.h"

namespace qvarray {

template <int N>
class MatrixTemplateBase {
 public:
  using dcomplex = std::complex<double>;

  bool isReal() const { return real_; }
  /// Number of elements.
  size_t getCount() const { return real_ ? d_.count : z_.count; }
  /// Extent of dimension dim.
  size_t size(int dim) const { return real_ ? d_.sizes[dim] : z_.sizes[dim]; }
  bool empty() const { return getCount() == 0; }

  /// The real storage; valid (non-empty) while isReal().
  Array<double, N>& getdArr() { return d_; }
  const Array<double, N>& getdArr() const { return d_; }
  /// The complex storage; valid (non-empty) while !isReal().
  Array<dcomplex, N>& getzArr() { return z_; }
  const Array<dcomplex, N>& getzArr() const { return z_; }

  /// Switches to complex storage, keeping the values. No-op when complex.
  void makeComplex() {
    if (!real_) return;
    Array<dcomplex, N> z;
    shapeLike(z, d_);
    for (size_t k = 0; k < d_.count; ++k) z.data[k] = d_.data[k];
    z_.swap(z);
    d_ = Array<double, N>();
    real_ = false;
  }

  /// Switches to real storage, keeping the real parts. No-op when real.
  void makeReal() {
    if (real_) return;
    Array<double, N> d;
    shapeLike(d, z_);
    for (size_t k = 0; k < z_.count; ++k) d.data[k] = z_.data[k].real();
    d_.swap(d);
    z_ = Array<dcomplex, N>();
    real_ = true;
  }

  /// True when every imaginary part is zero (always for real storage).
  bool isImagZero() const {
    if (real_) return true;
    for (size_t k = 0; k < z_.count; ++k)
      if (z_.data[k].imag() != 0.0) return false;
    return true;
  }

  /// Goes back to real storage when no value has an imaginary part; returns isReal().
  bool compact() {
    if (!real_ && isImagZero()) makeReal();
    return real_;
  }

  /// Sets every element to v; a complex v with non-zero imaginary part makes
  /// the object complex, otherwise the kind is kept.
  void fill(double v) {
    if (real_) d_.fill(v); else z_.fill(v);
  }
  void fill(dcomplex v) {
    if (real_ && v.imag() != 0.0) makeComplex();
    if (real_) d_.fill(v.real()); else z_.fill(v);
  }
  void setZero() { fill(0.0); }

  /// Complex conjugate in place (no-op for real storage).
  void conj() {
    if (real_) return;
    for (size_t k = 0; k < z_.count; ++k) z_.data[k] = std::conj(z_.data[k]);
  }

  void swap(MatrixTemplateBase& other) noexcept {
    d_.swap(other.d_);
    z_.swap(other.z_);
    std::swap(real_, other.real_);
  }

 protected:
  MatrixTemplateBase() = default;
  explicit MatrixTemplateBase(const Array<double, N>& values) : d_(values) {}
  explicit MatrixTemplateBase(Array<double, N>&& values) : d_(std::move(values)) {}
  explicit MatrixTemplateBase(const Array<dcomplex, N>& values) : z_(values), real_(false) {}
  explicit MatrixTemplateBase(Array<dcomplex, N>&& values) : z_(std::move(values)), real_(false) {}

  /// Resizes the storage in use. As Array::resize, contents are kept when the
  /// element count is unchanged; newly obtained storage is zeroed.
  template <class... S>
  void resizeStorage(S... s) {
    if (real_) {
      const size_t before = d_.count;
      d_.resize(s...);
      if (d_.count != before) d_.fill(0.0);
    } else {
      z_.resize(s...);  // new complex storage starts at zero
    }
  }

  /// Sets the kind without keeping values (the other storage is released).
  void setKind(bool real) {
    if (real == real_) return;
    if (real) {
      Array<double, N> d;
      shapeLike(d, z_);
      d.fill(0.0);
      d_.swap(d);
      z_ = Array<dcomplex, N>();
    } else {
      Array<dcomplex, N> z;
      shapeLike(z, d_);
      z_.swap(z);
      d_ = Array<double, N>();
    }
    real_ = real;
  }

  /// Stores v at linear index k, becoming complex when v needs it.
  void setAt(size_t k, dcomplex v) {
    if (real_ && v.imag() != 0.0) makeComplex();
    if (real_) d_.data[k] = v.real(); else z_.data[k] = v;
  }
  dcomplex getAt(size_t k) const { return real_ ? dcomplex(d_.data[k]) : z_.data[k]; }

  Array<double, N> d_;
  Array<dcomplex, N> z_;
  bool real_ = true;

 private:
  template <class A, class B>
  static void shapeLike(A& a, const B& b) {
    if constexpr (N == 1) a.resize(b.sizes[0]);
    if constexpr (N == 2) a.resize(b.sizes[0], b.sizes[1]);
    if constexpr (N == 3) a.resize(b.sizes[0], b.sizes[1], b.sizes[2]);
  }
};

}  // namespace qvarray
