// The scratch-array pool: standard-block stacks, odd-sized lists, pruning.
#include "qvarray/expr/arrayallocimpl.h"

#include <omp.h>

namespace qvarray {

namespace {

// Storage a kept odd-sized array counts against the budget: 8 per element,
// whatever the element type.
template <class A>
size_t extraOf(const A& a) {
  return a.count * 8;
}

}  // namespace

ArrayAllocImpl::ArrayAllocImpl(int blockSize, size_t maxExtraSize)
    : blockSize_(blockSize < 0 ? 0 : blockSize),
      maxExtraSize_(maxExtraSize),
      creatorThread_(omp_get_thread_num()) {}

size_t ArrayAllocImpl::oddCount(OddKind kind) const {
  return kind == OddReal ? dOdd_.size() : kind == OddComplex ? cOdd_.size() : dvOdd_.size();
}

std::vector<size_t> ArrayAllocImpl::oddSizes(OddKind kind) const {
  std::vector<size_t> sizes;
  auto collect = [&](const auto& list) {
    for (const auto& a : list) sizes.push_back(a->count);
  };
  if (kind == OddReal)
    collect(dOdd_);
  else if (kind == OddComplex)
    collect(cOdd_);
  else
    collect(dvOdd_);
  return sizes;
}

// The first array of exactly n elements, taken off the list.
template <class A>
bool ArrayAllocImpl::takeOdd(std::deque<std::shared_ptr<A>>& list, size_t n,
                             std::shared_ptr<A>& out) {
  for (auto it = list.begin(); it != list.end(); ++it) {
    if ((*it)->count != n) continue;
    out = std::move(*it);
    list.erase(it);
    extraSize_ -= extraOf(*out);
    return true;
  }
  return false;
}

template <class A>
void ArrayAllocImpl::keepOdd(std::deque<std::shared_ptr<A>>& list, std::shared_ptr<A>& a) {
  extraSize_ += extraOf(*a);
  list.push_back(std::move(a));
  a.reset();
}

template <class A>
void ArrayAllocImpl::dropFront(std::deque<std::shared_ptr<A>>& list) {
  extraSize_ -= extraOf(*list.front());
  list.pop_front();
}

void ArrayAllocImpl::dCheckout(std::shared_ptr<DArray>& out) {
  if (!dBlocks_.empty()) {
    out = std::move(dBlocks_.back());
    dBlocks_.pop_back();
    return;
  }
  out = std::make_shared<DArray>(static_cast<size_t>(blockSize_));
}

void ArrayAllocImpl::cCheckout(std::shared_ptr<CArray>& out) {
  if (!cBlocks_.empty()) {
    out = std::move(cBlocks_.back());
    cBlocks_.pop_back();
    return;
  }
  out = std::make_shared<CArray>(static_cast<size_t>(blockSize_));
}

void ArrayAllocImpl::dCheckout(size_t n, std::shared_ptr<DArray>& out) {
  if (n == static_cast<size_t>(blockSize_)) return dCheckout(out);
  if (!takeOdd(dOdd_, n, out)) out = std::make_shared<DArray>(n);
}

void ArrayAllocImpl::cCheckout(size_t n, std::shared_ptr<CArray>& out) {
  if (n == static_cast<size_t>(blockSize_)) return cCheckout(out);
  if (!takeOdd(cOdd_, n, out)) out = std::make_shared<CArray>(n);
}

void ArrayAllocImpl::dvCheckout(size_t m, size_t n, std::shared_ptr<DMatrix>& out) {
  if (takeOdd(dvOdd_, m * n, out))
    out->resize(m, n);  // same count: storage kept
  else
    out = std::make_shared<DMatrix>(m, n);
}

void ArrayAllocImpl::cvCheckout(size_t m, size_t n, std::shared_ptr<Array<Complex, 2>>& out) {
  out = std::make_shared<Array<Complex, 2>>(m, n);
}

void ArrayAllocImpl::dtCheckout(size_t m, size_t n, size_t p,
                                std::shared_ptr<Array<double, 3>>& out) {
  out = std::make_shared<Array<double, 3>>(m, n, p);
}

void ArrayAllocImpl::ctCheckout(size_t m, size_t n, size_t p,
                                std::shared_ptr<Array<Complex, 3>>& out) {
  out = std::make_shared<Array<Complex, 3>>(m, n, p);
}

void ArrayAllocImpl::dReplicate(Complex v, size_t n, std::shared_ptr<DArray>& out) {
  dCheckout(n, out);
  out->fill(v.real());
}

void ArrayAllocImpl::cReplicate(Complex v, size_t n, std::shared_ptr<CArray>& out) {
  cCheckout(n, out);
  out->fill(v);
}

template <class S>
void ArrayAllocImpl::dClone(const Array<S, 1>& src, std::shared_ptr<DArray>& out) {
  dCheckout(src.count, out);
  double* y = out->data;
  for (size_t i = 0; i < src.count; ++i) y[i] = std::real(src.data[i]);
}

template <class S>
void ArrayAllocImpl::cClone(const Array<S, 1>& src, std::shared_ptr<CArray>& out) {
  cCheckout(src.count, out);
  Complex* y = out->data;
  for (size_t i = 0; i < src.count; ++i) y[i] = src.data[i];
}

template void ArrayAllocImpl::dClone(const Array<double, 1>&, std::shared_ptr<DArray>&);
template void ArrayAllocImpl::dClone(const Array<Complex, 1>&, std::shared_ptr<DArray>&);
template void ArrayAllocImpl::cClone(const Array<double, 1>&, std::shared_ptr<CArray>&);
template void ArrayAllocImpl::cClone(const Array<Complex, 1>&, std::shared_ptr<CArray>&);

void ArrayAllocImpl::release(std::shared_ptr<Array<Complex, 2>>& a) {
  if (a.use_count() == 1) a.reset();
}

void ArrayAllocImpl::release(std::shared_ptr<DArray>& a) {
  if (!a) return;
  if (a.use_count() != 1) return a.reset();
  if (a->count == static_cast<size_t>(blockSize_)) {
    dBlocks_.push_back(std::move(a));
    a.reset();
    return;
  }
  keepOdd(dOdd_, a);
  pruneExtraCaches();
}

void ArrayAllocImpl::release(std::shared_ptr<CArray>& a) {
  if (!a) return;
  if (a.use_count() != 1) return a.reset();
  if (a->count == static_cast<size_t>(blockSize_)) {
    cBlocks_.push_back(std::move(a));
    a.reset();
    return;
  }
  keepOdd(cOdd_, a);
  pruneExtraCaches();
}

void ArrayAllocImpl::release(std::shared_ptr<DMatrix>& a) {
  if (!a) return;
  if (a.use_count() != 1) return a.reset();
  keepOdd(dvOdd_, a);
  pruneExtraCaches();
}

void ArrayAllocImpl::pruneExtraCaches() {
  while (dOdd_.size() > maxOddArrays_) dropFront(dOdd_);
  while (cOdd_.size() > maxOddArrays_) dropFront(cOdd_);
  while (dvOdd_.size() > maxOddArrays_) dropFront(dvOdd_);
  while (extraSize_ > maxExtraSize_) {
    if (!dOdd_.empty()) dropFront(dOdd_);
    if (extraSize_ <= maxExtraSize_) break;
    if (!cOdd_.empty()) dropFront(cOdd_);
    if (extraSize_ <= maxExtraSize_) break;
    if (!dvOdd_.empty()) dropFront(dvOdd_);
  }
}

}  // namespace qvarray
