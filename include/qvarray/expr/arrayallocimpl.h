#pragma once
// ArrayAllocImpl: the pool behind SerialArrayAllocator and each thread slot of
// ParaArrayAllocator (arrayallocator.h). Not thread-safe: one thread at a time.
//
// Kept arrays:
//   standard blocks  1-D arrays of exactly blockSize elements, real and
//                    complex, on two stacks (last released, first out), unbounded
//   odd-sized lists  three lists, by kind: real 1-D, complex 1-D and real 2-D
//                    arrays of any other size, oldest first; at most 50 per list
//                    and, together, at most maxExtraSize "bytes" counted as
//                    8 per element (complex elements too)
// Complex 2-D and all 3-D arrays are never kept: they are freed when released
// by their sole owner.
//
// Checkout of n elements: n == blockSize (1-D) takes a standard block; else
// the odd list of the kind is searched from its front for an array of exactly
// n elements (m·n for 2-D, reshaped), else a new array is made. Release of the
// sole owner's array puts it on its stack or at the back of its list, then
// pruneExtraCaches:
//   1. each list in turn: drop front entries while it holds more than 50;
//   2. while the total exceeds the budget: drop the front entry of each
//      non-empty list in turn, one per list and round, stopping as soon as the
//      total is within the budget.
#include <complex>
#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API ArrayAllocImpl {
 public:
  using Complex = std::complex<double>;
  using DArray = Array<double, 1>;
  using CArray = Array<Complex, 1>;
  using DMatrix = Array<double, 2>;

  /// Kept odd-sized arrays per kind.
  static constexpr size_t kMaxOddArrays = 50;
  /// Kinds of the odd-sized lists, in the order pruning visits them.
  enum OddKind { OddReal = 0, OddComplex = 1, OddReal2D = 2 };

  ArrayAllocImpl(int blockSize, size_t maxExtraSize);
  ArrayAllocImpl(const ArrayAllocImpl&) = delete;
  ArrayAllocImpl& operator=(const ArrayAllocImpl&) = delete;

  void dCheckout(size_t n, std::shared_ptr<DArray>& out);
  void dCheckout(std::shared_ptr<DArray>& out);
  void cCheckout(size_t n, std::shared_ptr<CArray>& out);
  void cCheckout(std::shared_ptr<CArray>& out);
  void dvCheckout(size_t m, size_t n, std::shared_ptr<DMatrix>& out);
  void cvCheckout(size_t m, size_t n, std::shared_ptr<Array<Complex, 2>>& out);
  void dtCheckout(size_t m, size_t n, size_t p, std::shared_ptr<Array<double, 3>>& out);
  void ctCheckout(size_t m, size_t n, size_t p, std::shared_ptr<Array<Complex, 3>>& out);

  /// A pooled array of n elements filled with v (real arrays: its real part).
  void dReplicate(Complex v, size_t n, std::shared_ptr<DArray>& out);
  void cReplicate(Complex v, size_t n, std::shared_ptr<CArray>& out);
  /// A pooled copy of every element of src (real copies: the real parts).
  template <class S>
  void dClone(const Array<S, 1>& src, std::shared_ptr<DArray>& out);
  template <class S>
  void cClone(const Array<S, 1>& src, std::shared_ptr<CArray>& out);

  void release(std::shared_ptr<DArray>& a);
  void release(std::shared_ptr<CArray>& a);
  void release(std::shared_ptr<DMatrix>& a);
  /// Never kept: freed when `a` is the sole owner, left alone otherwise.
  void release(std::shared_ptr<Array<Complex, 2>>& a);
  /// Never kept; `a` is emptied.
  void release(std::shared_ptr<Array<double, 3>>& a) { a.reset(); }
  void release(std::shared_ptr<Array<Complex, 3>>& a) { a.reset(); }

  int getBlockSize() const { return blockSize_; }
  size_t getMaxExtraSize() const { return maxExtraSize_; }
  int getCreatorThread() const { return creatorThread_; }

  // Inspection.
  size_t freeBlocks(bool complex) const { return complex ? cBlocks_.size() : dBlocks_.size(); }
  size_t oddCount(OddKind kind) const;
  /// Element counts of an odd list, front (oldest) first.
  std::vector<size_t> oddSizes(OddKind kind) const;
  /// Running total of the odd lists: 8 per element.
  size_t extraSize() const { return extraSize_; }

 private:
  template <class A>
  bool takeOdd(std::deque<std::shared_ptr<A>>& list, size_t n, std::shared_ptr<A>& out);
  template <class A>
  void keepOdd(std::deque<std::shared_ptr<A>>& list, std::shared_ptr<A>& a);
  template <class A>
  void dropFront(std::deque<std::shared_ptr<A>>& list);
  void pruneExtraCaches();

  int blockSize_;
  size_t maxExtraSize_;
  size_t maxOddArrays_ = kMaxOddArrays;
  size_t extraSize_ = 0;
  std::vector<std::shared_ptr<DArray>> dBlocks_;
  std::vector<std::shared_ptr<CArray>> cBlocks_;
  std::deque<std::shared_ptr<DArray>> dOdd_;
  std::deque<std::shared_ptr<CArray>> cOdd_;
  std::deque<std::shared_ptr<DMatrix>> dvOdd_;
  int creatorThread_;
};

}  // namespace qvarray
