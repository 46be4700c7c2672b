#pragma once
// Dense vectors and matrices whose elements are real or complex.
//
// A Vector holds either real or complex storage (isReal() tells which) and
// hands it out as an Array without copying.
#include <complex>
#include <cstddef>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API Vector {
 public:
  Vector() = default;
  /// A real vector of n zeros.
  explicit Vector(size_t n) : d_(n) { d_.fill(0.0); }
  explicit Vector(const Array<double, 1>& values) : d_(values) {}
  explicit Vector(const Array<std::complex<double>, 1>& values) : z_(values), real_(false) {}

  bool isReal() const { return real_; }
  size_t size() const { return real_ ? d_.count : z_.count; }

  /// The real storage (valid while isReal()).
  Array<double, 1>& getdArr() { return d_; }
  const Array<double, 1>& getdArr() const { return d_; }
  /// The complex storage (valid while !isReal()).
  Array<std::complex<double>, 1>& getzArr() { return z_; }
  const Array<std::complex<double>, 1>& getzArr() const { return z_; }

 private:
  Array<double, 1> d_;
  Array<std::complex<double>, 1> z_;
  bool real_ = true;
};

}  // namespace qvarray

using qvarray::Vector;
