// ValRep: construction, queries, reading, writing, the error record, printing.
#include "qvarray/expr/valrep.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <type_traits>

#include "qvutil/errors.h"

namespace qvarray {

namespace {

const double kZero[2] = {0.0, 0.0};

// A private copy of a part, drawn from `alloc` when there is one.
template <class A>
std::shared_ptr<A> copyPart(const std::shared_ptr<A>& src, const ValRep::AllocPtr& alloc) {
  if constexpr (std::is_same_v<A, ValRep::DArray>) {
    std::shared_ptr<A> out;
    if (alloc)
      alloc->dClone(*src, out);
    else
      out = std::make_shared<A>(*src);
    return out;
  } else if constexpr (std::is_same_v<A, ValRep::CArray>) {
    std::shared_ptr<A> out;
    if (alloc)
      alloc->cClone(*src, out);
    else
      out = std::make_shared<A>(*src);
    return out;
  } else {
    return std::make_shared<A>(*src);
  }
}

template <class A>
void releaseAll(std::vector<std::shared_ptr<A>>& list, const ValRep::AllocPtr& alloc) {
  if (alloc) {
    for (auto& p : list) alloc->release(p);
  }
  list.clear();
}

template <class A>
void releaseScalars(std::vector<std::shared_ptr<A>>& list) {
  list.clear();
}

void appendNumber(std::string& s, double x) {
  char buf[32];
  auto r = std::to_chars(buf, buf + sizeof buf, x);
  s.append(buf, r.ptr);
}

void appendNumber(std::string& s, std::complex<double> z) {
  s += '(';
  appendNumber(s, z.real());
  if (!(z.imag() < 0.0) && !std::signbit(z.imag())) s += '+';
  appendNumber(s, z.imag());
  s += "*i)";
}

}  // namespace

ValRep::ValRep() = default;

ValRep::ValRep(AllocPtr alloc) : scalar_(false), alloc_(std::move(alloc)) {}

ValRep::ValRep(double v) : nEl_(1), nEp_(1) { dScalars_.push_back(std::make_shared<double>(v)); }

ValRep::ValRep(Complex v) : storedAsComplex_(true), complex_(true), nEl_(1), nEp_(1) {
  cScalars_.push_back(std::make_shared<Complex>(v));
}

ValRep::~ValRep() { clearData(); }

ValRep::Ptr ValRep::makeZero() {
  auto v = std::make_shared<ValRep>();
  v->zero_ = true;
  v->evaluated_ = true;
  return v;
}

ValRep::Ptr ValRep::makeNaN() {
  auto v = std::make_shared<ValRep>();
  v->setNaN();
  return v;
}

// ---- queries ---------------------------------------------------------------

int ValRep::getAllocatorBlockSize() const { return alloc_ ? alloc_->getBlockSize() : 0; }

bool ValRep::hasUniqueData() const {
  if (zero_ || nan_) return true;
  auto unique = [](const auto& list) {
    for (const auto& p : list)
      if (!p || p.use_count() != 1) return false;
    return true;
  };
  if (scalar_) return storedAsComplex_ ? unique(cScalars_) : unique(dScalars_);
  return storedAsComplex_ ? unique(cArrays_) : unique(dArrays_);
}

void ValRep::uniquify() {
  auto own = [this](auto& list) {
    for (auto& p : list)
      if (p && p.use_count() != 1) {
        auto copy = copyPart(p, alloc_);
        p = std::move(copy);
      }
  };
  own(dScalars_);
  own(cScalars_);
  own(dArrays_);
  own(cArrays_);
}

DValRepReader::Part ValRep::readerPart(size_t p) const {
  if (zero_ || nEp_ == 0) return {kZero, 0, false};
  if (scalar_) {
    if (storedAsComplex_) return {reinterpret_cast<const double*>(cScalars_[p].get()), 0, true};
    return {dScalars_[p].get(), 0, false};
  }
  if (storedAsComplex_) return {reinterpret_cast<const double*>(cArrays_[p]->data), 2, true};
  return {dArrays_[p]->data, 1, false};
}

bool ValRep::isZero(double tol) const {
  if (zero_) return true;
  if (nan_) return false;
  return maxAbs() <= tol;
}

bool ValRep::checkComplex() const {
  if (!storedAsComplex_ || zero_ || nan_) return false;
  const uint64_t n = scalar_ ? 1 : nEl_;
  for (size_t p = 0; p < nEp_; ++p) {
    const Complex* z = scalar_ ? cScalars_[p].get() : cArrays_[p]->data;
    for (uint64_t k = 0; k < n; ++k)
      if (z[k].imag() != 0.0) return true;
  }
  return false;
}

double ValRep::maxAbsPos(std::pair<uint64_t, uint64_t>& pos) const {
  pos = {0, 0};
  if (nan_) return std::nan("");
  if (zero_) return 0.0;
  const uint64_t n = scalar_ ? 1 : nEl_;
  double best = 0.0;
  for (size_t p = 0; p < nEp_; ++p) {
    const DValRepReader::Part q = readerPart(p);
    for (uint64_t k = 0; k < n; ++k) {
      const double* x = q.data + k * q.stride;
      const double m = q.complex ? std::hypot(x[0], x[1]) : std::fabs(x[0]);
      if (m > best || std::isnan(m)) {
        best = m;
        pos = {p, k};
        if (std::isnan(m)) return m;
      }
    }
  }
  return best;
}

double ValRep::maxAbs() const {
  std::pair<uint64_t, uint64_t> pos;
  return maxAbsPos(pos);
}

// ---- errors ----------------------------------------------------------------

std::shared_ptr<qvbase::ErrInfo>& ValRep::getErrors() {
  if (!errors_) errors_ = std::make_shared<qvbase::ErrInfo>();
  return errors_;
}

void ValRep::throwError() const {
  qvbase::DetailPairs details;
  if (errors_) {
    if (!errors_->module().empty()) details.emplace_back("module", errors_->module());
    details.insert(details.end(), errors_->pairs().begin(), errors_->pairs().end());
  }
  QV_RAISE(evalrep, Unexpected_NaN, std::move(details));
}

void ValRep::checkNotNaN() const {
  if (nan_) throwError();
}

// ---- reading ---------------------------------------------------------------

double ValRep::getDouble() const { return getComplex().real(); }

ValRep::Complex ValRep::getComplex() const {
  checkNotNaN();
  if (zero_ || nEp_ == 0) return 0.0;
  const DValRepReader::Part q = readerPart(0);
  return CValRepReader::at(q, 0);
}

double ValRep::getScalarDouble(uint64_t i) const { return getScalarComplex(i).real(); }

ValRep::Complex ValRep::getScalarComplex(uint64_t i) const {
  checkNotNaN();
  if (zero_ || nEp_ == 0) return 0.0;
  const size_t p = partIndex(i);
  QV_ASSERT(p < nEp_, evalrep);
  return CValRepReader::at(readerPart(p), 0);
}

double* ValRep::getDoubleIterator(uint64_t i) {
  checkNotNaN();
  const size_t p = partIndex(i);
  QV_ASSERT(!zero_ && !scalar_ && !storedAsComplex_ && p < dArrays_.size(), evalrep);
  return dArrays_[p]->data;
}

ValRep::Complex* ValRep::getComplexIterator(uint64_t i) {
  checkNotNaN();
  const size_t p = partIndex(i);
  QV_ASSERT(!zero_ && !scalar_ && storedAsComplex_ && p < cArrays_.size(), evalrep);
  return cArrays_[p]->data;
}

DValRepReader ValRep::getDoubleReader(bool checkReal) const {
  checkNotNaN();
  if (checkReal && complex_ && checkComplex()) QV_RAISE(evalrep, Complex_number_in_real_expression);
  DValRepReader r;
  r.single_ = nEp_ <= 1 || zero_;
  const size_t parts = r.single_ ? 1 : nEp_;
  for (size_t p = 0; p < parts; ++p) r.parts_.push_back(readerPart(p));
  return r;
}

CValRepReader ValRep::getComplexReader() const {
  checkNotNaN();
  CValRepReader r;
  r.single_ = nEp_ <= 1 || zero_;
  const size_t parts = r.single_ ? 1 : nEp_;
  for (size_t p = 0; p < parts; ++p) r.parts_.push_back(readerPart(p));
  return r;
}

// ---- writing ---------------------------------------------------------------

void ValRep::clearData() {
  releaseAll(dArrays_, alloc_);
  releaseAll(cArrays_, alloc_);
  releaseScalars(dScalars_);
  releaseScalars(cScalars_);
  nEp_ = 0;
}

void ValRep::releaseUnused() {
  if (zero_ || nan_) return clearData();
  if (!scalar_ || storedAsComplex_) releaseScalars(dScalars_);
  if (!scalar_ || !storedAsComplex_) releaseScalars(cScalars_);
  if (scalar_ || storedAsComplex_) releaseAll(dArrays_, alloc_);
  if (scalar_ || !storedAsComplex_) releaseAll(cArrays_, alloc_);
}

void ValRep::reset(bool scalar, bool complex, uint64_t nEl) {
  clearData();
  scalar_ = scalar;
  storedAsComplex_ = complex_ = complex;
  nEl_ = nEl;
  zero_ = nan_ = evaluated_ = false;
  errors_.reset();
}

void ValRep::reset(const ValRep& other, bool copyData) {
  if (this == &other) return;
  clearData();
  scalar_ = other.scalar_;
  storedAsComplex_ = other.storedAsComplex_;
  complex_ = other.complex_;
  zero_ = other.zero_;
  nan_ = other.nan_;
  evaluated_ = other.evaluated_;
  nEl_ = other.nEl_;
  nEp_ = other.nEp_;
  alloc_ = other.alloc_;
  errors_ = other.errors_ ? std::make_shared<qvbase::ErrInfo>(*other.errors_) : nullptr;
  dScalars_ = other.dScalars_;
  cScalars_ = other.cScalars_;
  dArrays_ = other.dArrays_;
  cArrays_ = other.cArrays_;
  if (copyData) uniquify();
}

ValRep::DArray& ValRep::addDArray() {
  std::shared_ptr<DArray> a;
  const size_t n = static_cast<size_t>(nEl_);
  if (!alloc_)
    a = std::make_shared<DArray>(n);
  else if (n > static_cast<size_t>(std::max(alloc_->getBlockSize(), 0)))
    alloc_->dCheckout(static_cast<int>(n), a);
  else
    alloc_->dCheckout(a);
  dArrays_.push_back(std::move(a));
  ++nEp_;
  zero_ = false;
  return *dArrays_.back();
}

ValRep::CArray& ValRep::addCArray() {
  std::shared_ptr<CArray> a;
  const size_t n = static_cast<size_t>(nEl_);
  if (!alloc_)
    a = std::make_shared<CArray>(n);
  else if (n > static_cast<size_t>(std::max(alloc_->getBlockSize(), 0)))
    alloc_->cCheckout(static_cast<int>(n), a);
  else
    alloc_->cCheckout(a);
  cArrays_.push_back(std::move(a));
  ++nEp_;
  zero_ = false;
  return *cArrays_.back();
}

double& ValRep::addDScalar(double v) {
  dScalars_.push_back(std::make_shared<double>(v));
  ++nEp_;
  zero_ = false;
  return *dScalars_.back();
}

ValRep::Complex& ValRep::addCScalar(Complex v) {
  cScalars_.push_back(std::make_shared<Complex>(v));
  ++nEp_;
  zero_ = false;
  return *cScalars_.back();
}

void ValRep::setNaN() {
  clearData();
  nan_ = true;
  zero_ = false;
  evaluated_ = true;
}

void ValRep::setZero() {
  clearData();
  zero_ = true;
  nan_ = false;
  evaluated_ = true;
}

// ---- printing --------------------------------------------------------------

std::string ValRep::toString() const {
  if (nan_) return "NaN";
  if (zero_) return "0";
  std::string s;
  const uint64_t n = scalar_ ? 1 : nEl_;
  if (!scalar_) s += '[';
  for (size_t p = 0; p < nEp_; ++p) {
    if (p) s += "; ";
    const DValRepReader::Part q = readerPart(p);
    for (uint64_t k = 0; k < n; ++k) {
      if (k) s += ", ";
      if (q.complex)
        appendNumber(s, CValRepReader::at(q, k));
      else
        appendNumber(s, q.data[k * q.stride]);
    }
  }
  if (!scalar_) s += ']';
  return s;
}

}  // namespace qvarray
