#pragma once
// Scratch-array pools of expression evaluation.
//
// An evaluation draws the storage of its many short-lived values from an
// ArrayAllocator and hands it back when a value dies, so that evaluating the
// same expression again finds its arrays in the pool instead of allocating.
//
//   ArrayAllocator        the interface (29 virtual operations, order fixed)
//   SerialArrayAllocator  one pool, for one thread
//   ParaArrayAllocator    one pool per OpenMP thread number, no locks
//
// The pool itself is ArrayAllocImpl (arrayallocimpl.h). A checked-out array
// holds stale numbers (complex arrays made afresh start at zero); the caller
// writes every element it reads. Release hands an array back and empties the
// caller's pointer; the array enters the pool only when that pointer was its
// sole owner, otherwise the other owners keep it. Complex 2-D arrays are never
// pooled: their release empties the pointer only when it was the sole owner.
//
// Threads. SerialArrayAllocator serves one thread. ParaArrayAllocator serves
// one host thread and the OpenMP teams that thread starts: each call picks the
// pool of omp_get_thread_num(). Every thread outside a parallel region is
// thread 0, and the workers of two host threads' regions share their numbers,
// so two host threads (std::thread, Java threads) must never use one
// ParaArrayAllocator at the same time: give each host thread its own
// allocator (copies share pools, so a copy is not a new allocator). Arrays are
// released by the thread that checked them out.
#include <complex>
#include <cstddef>
#include <memory>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

class ArrayAllocImpl;

class QVARRAY_API ArrayAllocator {
 public:
  using Complex = std::complex<double>;
  using DArray = Array<double, 1>;
  using CArray = Array<Complex, 1>;

  virtual ~ArrayAllocator();

  // Checkout: an array of n elements, or of the block size without n.
  virtual void dCheckout(int const& n, std::shared_ptr<DArray>& out) = 0;
  virtual void dCheckout(std::shared_ptr<DArray>& out) = 0;
  virtual void cCheckout(int const& n, std::shared_ptr<CArray>& out) = 0;
  virtual void cCheckout(std::shared_ptr<CArray>& out) = 0;
  virtual void dvCheckout(int const& m, int const& n, std::shared_ptr<Array<double, 2>>& out) = 0;
  virtual void cvCheckout(int const& m, int const& n, std::shared_ptr<Array<Complex, 2>>& out) = 0;
  virtual void dtCheckout(int const& m, int const& n, int const& p,
                          std::shared_ptr<Array<double, 3>>& out) = 0;
  virtual void ctCheckout(int const& m, int const& n, int const& p,
                          std::shared_ptr<Array<Complex, 3>>& out) = 0;

  // Replicate: an array filled with v (a real array takes v's real part), of
  // n elements or of the block size.
  virtual void dReplicate(Complex const& v, int const& n, std::shared_ptr<DArray>& out) = 0;
  virtual void dReplicate(double const& v, int const& n, std::shared_ptr<DArray>& out) = 0;
  virtual void dReplicate(Complex const& v, std::shared_ptr<DArray>& out) = 0;
  virtual void dReplicate(double const& v, std::shared_ptr<DArray>& out) = 0;
  virtual void cReplicate(Complex const& v, int const& n, std::shared_ptr<CArray>& out) = 0;
  virtual void cReplicate(double const& v, int const& n, std::shared_ptr<CArray>& out) = 0;
  virtual void cReplicate(Complex const& v, std::shared_ptr<CArray>& out) = 0;
  virtual void cReplicate(double const& v, std::shared_ptr<CArray>& out) = 0;

  // Clone: a pooled copy of every element of src (a real copy keeps the real parts).
  virtual void dClone(CArray const& src, std::shared_ptr<DArray>& out) = 0;
  virtual void dClone(DArray const& src, std::shared_ptr<DArray>& out) = 0;
  virtual void cClone(CArray const& src, std::shared_ptr<CArray>& out) = 0;
  virtual void cClone(DArray const& src, std::shared_ptr<CArray>& out) = 0;

  // Release: hand the array back; `a` is emptied (complex 2-D: see above).
  virtual void release(std::shared_ptr<Array<Complex, 3>>& a) = 0;
  virtual void release(std::shared_ptr<Array<double, 3>>& a) = 0;
  virtual void release(std::shared_ptr<Array<Complex, 2>>& a) = 0;
  virtual void release(std::shared_ptr<Array<double, 2>>& a) = 0;
  virtual void release(std::shared_ptr<CArray>& a) = 0;
  virtual void release(std::shared_ptr<DArray>& a) = 0;

  /// Elements of a standard block.
  virtual int getBlockSize() = 0;
  /// Budget of the odd-sized arrays kept, in bytes at 8 per element.
  virtual size_t getMaxExtraSize() = 0;
  /// OpenMP thread number of the thread that made the pool.
  virtual int getCreatorThread() = 0;
};

/// One pool for one thread.
class QVARRAY_API SerialArrayAllocator final : public ArrayAllocator {
 public:
  SerialArrayAllocator(int blockSize, size_t maxExtraSize);
  ~SerialArrayAllocator() override;

  void dCheckout(int const& n, std::shared_ptr<DArray>& out) override;
  void dCheckout(std::shared_ptr<DArray>& out) override;
  void cCheckout(int const& n, std::shared_ptr<CArray>& out) override;
  void cCheckout(std::shared_ptr<CArray>& out) override;
  void dvCheckout(int const& m, int const& n, std::shared_ptr<Array<double, 2>>& out) override;
  void cvCheckout(int const& m, int const& n, std::shared_ptr<Array<Complex, 2>>& out) override;
  void dtCheckout(int const& m, int const& n, int const& p,
                  std::shared_ptr<Array<double, 3>>& out) override;
  void ctCheckout(int const& m, int const& n, int const& p,
                  std::shared_ptr<Array<Complex, 3>>& out) override;
  void dReplicate(Complex const& v, int const& n, std::shared_ptr<DArray>& out) override;
  void dReplicate(double const& v, int const& n, std::shared_ptr<DArray>& out) override;
  void dReplicate(Complex const& v, std::shared_ptr<DArray>& out) override;
  void dReplicate(double const& v, std::shared_ptr<DArray>& out) override;
  void cReplicate(Complex const& v, int const& n, std::shared_ptr<CArray>& out) override;
  void cReplicate(double const& v, int const& n, std::shared_ptr<CArray>& out) override;
  void cReplicate(Complex const& v, std::shared_ptr<CArray>& out) override;
  void cReplicate(double const& v, std::shared_ptr<CArray>& out) override;
  void dClone(CArray const& src, std::shared_ptr<DArray>& out) override;
  void dClone(DArray const& src, std::shared_ptr<DArray>& out) override;
  void cClone(CArray const& src, std::shared_ptr<CArray>& out) override;
  void cClone(DArray const& src, std::shared_ptr<CArray>& out) override;
  void release(std::shared_ptr<Array<Complex, 3>>& a) override;
  void release(std::shared_ptr<Array<double, 3>>& a) override;
  void release(std::shared_ptr<Array<Complex, 2>>& a) override;
  void release(std::shared_ptr<Array<double, 2>>& a) override;
  void release(std::shared_ptr<CArray>& a) override;
  void release(std::shared_ptr<DArray>& a) override;
  int getBlockSize() override;
  size_t getMaxExtraSize() override;
  int getCreatorThread() override;

  /// The pool (for inspection).
  const ArrayAllocImpl& pool() const { return *impl_; }

 private:
  std::shared_ptr<ArrayAllocImpl> impl_;
};

/// One pool per OpenMP thread number below MAXAVAILABLETHREADS; each call
/// works on the calling thread's pool. One host thread at a time (see above).
class QVARRAY_API ParaArrayAllocator final : public ArrayAllocator {
 public:
  ParaArrayAllocator(int blockSize, size_t maxExtraSize);
  /// Shares the per-thread pools of `other`.
  ParaArrayAllocator(const ParaArrayAllocator& other);
  ~ParaArrayAllocator() override;

  void dCheckout(int const& n, std::shared_ptr<DArray>& out) override;
  void dCheckout(std::shared_ptr<DArray>& out) override;
  void cCheckout(int const& n, std::shared_ptr<CArray>& out) override;
  void cCheckout(std::shared_ptr<CArray>& out) override;
  void dvCheckout(int const& m, int const& n, std::shared_ptr<Array<double, 2>>& out) override;
  void cvCheckout(int const& m, int const& n, std::shared_ptr<Array<Complex, 2>>& out) override;
  void dtCheckout(int const& m, int const& n, int const& p,
                  std::shared_ptr<Array<double, 3>>& out) override;
  void ctCheckout(int const& m, int const& n, int const& p,
                  std::shared_ptr<Array<Complex, 3>>& out) override;
  void dReplicate(Complex const& v, int const& n, std::shared_ptr<DArray>& out) override;
  void dReplicate(double const& v, int const& n, std::shared_ptr<DArray>& out) override;
  void dReplicate(Complex const& v, std::shared_ptr<DArray>& out) override;
  void dReplicate(double const& v, std::shared_ptr<DArray>& out) override;
  void cReplicate(Complex const& v, int const& n, std::shared_ptr<CArray>& out) override;
  void cReplicate(double const& v, int const& n, std::shared_ptr<CArray>& out) override;
  void cReplicate(Complex const& v, std::shared_ptr<CArray>& out) override;
  void cReplicate(double const& v, std::shared_ptr<CArray>& out) override;
  void dClone(CArray const& src, std::shared_ptr<DArray>& out) override;
  void dClone(DArray const& src, std::shared_ptr<DArray>& out) override;
  void cClone(CArray const& src, std::shared_ptr<CArray>& out) override;
  void cClone(DArray const& src, std::shared_ptr<CArray>& out) override;
  void release(std::shared_ptr<Array<Complex, 3>>& a) override;
  void release(std::shared_ptr<Array<double, 3>>& a) override;
  void release(std::shared_ptr<Array<Complex, 2>>& a) override;
  void release(std::shared_ptr<Array<double, 2>>& a) override;
  void release(std::shared_ptr<CArray>& a) override;
  void release(std::shared_ptr<DArray>& a) override;
  int getBlockSize() override;
  size_t getMaxExtraSize() override;
  int getCreatorThread() override;

  /// Number of pools (MAXAVAILABLETHREADS at construction).
  int poolCount() const { return static_cast<int>(pools_.size()); }
  /// The pool of thread index t (for inspection).
  const ArrayAllocImpl& pool(int t) const { return *pools_[static_cast<size_t>(t)]; }

 private:
  ArrayAllocImpl& mine();
  std::vector<std::shared_ptr<ArrayAllocImpl>> pools_;
};

/// Extra-size budget of the pools the engine makes for itself.
inline constexpr size_t kEnginePoolBudget = 5000000;

}  // namespace qvarray
