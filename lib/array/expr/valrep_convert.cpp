// ValRep: copies to other storage kinds, partial values, export into arrays.
#include <algorithm>
#include <cstring>
#include <type_traits>

#include "qvarray/expr/valrep.h"
#include "qvutil/errors.h"

namespace qvarray {

// Calls put(flat index, part reader, element) for the N = nEl·nEp numbers of
// the value, part-major; a zero value counts as one part of zeros.
template <class Out>
void ValRep::exportTo(Out&& put) const {
  checkNotNaN();
  const size_t parts = zero_ ? std::max<uint64_t>(nEp_, 1) : nEp_;
  size_t flat = 0;
  for (size_t p = 0; p < parts; ++p) {
    const DValRepReader::Part q = readerPart(zero_ ? 0 : p);
    for (uint64_t k = 0; k < nEl_; ++k) put(flat++, q.data + k * q.stride, q.complex);
  }
}

namespace {

template <class T>
T numberAt(const double* x, bool complex) {
  if constexpr (std::is_same_v<T, double>)
    return x[0];
  else
    return {x[0], complex ? x[1] : 0.0};
}

size_t numbersOf(uint64_t nEl, uint64_t nEp, bool zero) {
  return static_cast<size_t>(nEl * (zero ? std::max<uint64_t>(nEp, 1) : nEp));
}

}  // namespace

// ---- copies ----------------------------------------------------------------

ValRep::Ptr ValRep::clone() const {
  auto r = std::make_shared<ValRep>();
  r->reset(*this, true);
  return r;
}

ValRep::Ptr ValRep::cloneToReal() const { return cloneCast(alloc_, scalar_, false, nEl_); }

ValRep::Ptr ValRep::cloneCast(const AllocPtr& alloc, bool scalar, bool complex,
                              uint64_t nEl) const {
  const bool data = !zero_ && !nan_;
  QV_ASSERT(!data || scalar_ || (scalar ? nEl_ == 1 : nEl == nEl_), evalrep);
  if (data && !complex && storedAsComplex_ && checkComplex())
    QV_RAISE(evalrep, Complex_number_in_real_expression);
  auto r = std::make_shared<ValRep>(alloc);
  r->reset(scalar, complex, nEl);
  r->complex_ = complex && complex_;
  r->zero_ = zero_;
  r->nan_ = nan_;
  r->evaluated_ = evaluated_;
  if (errors_) r->errors_ = std::make_shared<qvbase::ErrInfo>(*errors_);
  if (!data) return r;
  const CValRepReader in = getComplexReader();
  for (size_t p = 0; p < nEp_; ++p) {
    if (scalar && complex)
      r->addCScalar(in(p, 0));
    else if (scalar)
      r->addDScalar(in(p, 0).real());
    else if (complex) {
      Complex* y = r->addCArray().data;
      for (uint64_t k = 0; k < nEl; ++k) y[k] = in(p, k);
    } else {
      double* y = r->addDArray().data;
      for (uint64_t k = 0; k < nEl; ++k) y[k] = in(p, k).real();
    }
  }
  return r;
}

void ValRep::cast(const AllocPtr& alloc, bool scalar, bool complex, uint64_t nEl) {
  const Ptr r = cloneCast(alloc, scalar, complex, nEl);
  reset(*r, false);
}

void ValRep::copyCast(const ValRep& other, const AllocPtr& alloc, bool scalar, bool complex,
                      uint64_t nEl) {
  const Ptr r = other.cloneCast(alloc, scalar, complex, nEl);
  reset(*r, false);
}

ValRep::Ptr ValRep::getPartial(const std::vector<uint64_t>& indices) const {
  const uint64_t m = indices.size();
  if (zero_ || nan_ || scalar_) {
    Ptr r = clone();
    r->nEl_ = m;
    return r;
  }
  for (uint64_t i : indices) QV_ASSERT(i < nEl_, evalrep);
  auto r = std::make_shared<ValRep>(alloc_);
  r->reset(false, storedAsComplex_, m);
  r->complex_ = complex_;
  r->evaluated_ = evaluated_;
  for (size_t p = 0; p < nEp_; ++p) {
    if (storedAsComplex_) {
      const Complex* x = cArrays_[p]->data;
      Complex* y = r->addCArray().data;
      for (uint64_t k = 0; k < m; ++k) y[k] = x[indices[k]];
    } else {
      const double* x = dArrays_[p]->data;
      double* y = r->addDArray().data;
      for (uint64_t k = 0; k < m; ++k) y[k] = x[indices[k]];
    }
  }
  return r;
}

// ---- export ----------------------------------------------------------------

// The first `count` numbers of a real array value into y, part by part in
// whole runs; false (nothing written) for any other kind of value.
bool ValRep::copyRealArrays(double* y, size_t count) const {
  if (zero_ || nan_ || scalar_ || storedAsComplex_) return false;
  for (size_t p = 0; p < nEp_ && count > 0; ++p) {
    const size_t m = std::min<size_t>(count, static_cast<size_t>(nEl_));
    std::memcpy(y, dArrays_[p]->data, m * sizeof(double));
    y += m;
    count -= m;
  }
  return true;
}

void ValRep::copyToArray(DArray& out) const {
  if (complex_ && checkComplex()) QV_RAISE(evalrep, Complex_number_in_real_expression);
  out.resize(numbersOf(nEl_, nEp_, zero_));
  double* y = out.data;
  if (copyRealArrays(y, out.count)) return;
  exportTo([y](size_t i, const double* x, bool) { y[i] = x[0]; });
}

void ValRep::copyToArray(CArray& out) const {
  out.resize(numbersOf(nEl_, nEp_, zero_));
  Complex* y = out.data;
  exportTo([y](size_t i, const double* x, bool c) { y[i] = numberAt<Complex>(x, c); });
}

template <class T>
void ValRep::copyToArrayIndexed(Array<T, 1>& out, const int* index, size_t n) const {
  if (std::is_same_v<T, double> && complex_ && checkComplex())
    QV_RAISE(evalrep, Complex_number_in_real_expression);
  QV_ASSERT(n == numbersOf(nEl_, nEp_, zero_), evalrep);
  for (size_t i = 0; i < n; ++i)
    QV_ASSERT(index[i] >= 0 && static_cast<size_t>(index[i]) < out.count, evalrep);
  T* y = out.data;
  exportTo([y, index](size_t i, const double* x, bool c) { y[index[i]] = numberAt<T>(x, c); });
}

void ValRep::copyToArray(DArray& out, const Array<int, 1>& index) const {
  copyToArrayIndexed(out, index.data, index.count);
}
void ValRep::copyToArray(CArray& out, const Array<int, 1>& index) const {
  copyToArrayIndexed(out, index.data, index.count);
}
void ValRep::copyToArray(DArray& out, const std::vector<int>& index) const {
  copyToArrayIndexed(out, index.data(), index.size());
}
void ValRep::copyToArray(CArray& out, const std::vector<int>& index) const {
  copyToArrayIndexed(out, index.data(), index.size());
}

void ValRep::copyToArray(double* buf, size_t offset, size_t count) const {
  if (complex_ && checkComplex()) QV_RAISE(evalrep, Complex_number_in_real_expression);
  QV_ASSERT(count <= numbersOf(nEl_, nEp_, zero_), evalrep);
  double* y = buf + offset;
  if (copyRealArrays(y, count)) return;
  exportTo([y, count](size_t i, const double* x, bool) {
    if (i < count) y[i] = x[0];
  });
}

void ValRep::copyToArray(Complex* buf, size_t offset, size_t count) const {
  QV_ASSERT(count <= numbersOf(nEl_, nEp_, zero_), evalrep);
  Complex* y = buf + offset;
  exportTo([y, count](size_t i, const double* x, bool c) {
    if (i < count) y[i] = numberAt<Complex>(x, c);
  });
}

void ValRep::addToArray(DArray& out) const {
  if (complex_ && checkComplex()) QV_RAISE(evalrep, Complex_number_in_real_expression);
  QV_ASSERT(out.count == numbersOf(nEl_, nEp_, zero_), evalrep);
  double* y = out.data;
  exportTo([y](size_t i, const double* x, bool) { y[i] += x[0]; });
}

void ValRep::addToArray(CArray& out) const {
  QV_ASSERT(out.count == numbersOf(nEl_, nEp_, zero_), evalrep);
  Complex* y = out.data;
  exportTo([y](size_t i, const double* x, bool c) { y[i] += numberAt<Complex>(x, c); });
}

void ValRep::multiplyArray(DArray& out) const {
  if (complex_ && checkComplex()) QV_RAISE(evalrep, Complex_number_in_real_expression);
  QV_ASSERT(out.count == numbersOf(nEl_, nEp_, zero_), evalrep);
  double* y = out.data;
  exportTo([y](size_t i, const double* x, bool) { y[i] *= x[0]; });
}

void ValRep::multiplyArray(CArray& out) const {
  QV_ASSERT(out.count == numbersOf(nEl_, nEp_, zero_), evalrep);
  Complex* y = out.data;
  exportTo([y](size_t i, const double* x, bool c) { y[i] *= numberAt<Complex>(x, c); });
}

}  // namespace qvarray
