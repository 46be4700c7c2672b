// The two allocators: each operation forwards to a pool (arrayallocimpl.h),
// the one pool of SerialArrayAllocator or the calling thread's pool of
// ParaArrayAllocator.
#include "qvarray/expr/arrayallocator.h"

#include <omp.h>

#include "qvarray/expr/arrayallocimpl.h"
#include "qvutil/errors.h"
#include "qvutil/parallel.h"

namespace qvarray {

namespace {

size_t count(int n) {
  QV_ASSERT(n >= 0, evalrep);
  return static_cast<size_t>(n);
}

}  // namespace

ArrayAllocator::~ArrayAllocator() = default;

// The 29 operations of CLASS on the pool POOL (an expression of type ArrayAllocImpl&).
#define QV_FORWARD_TO_POOL(CLASS, POOL)                                                          \
  void CLASS::dCheckout(int const& n, std::shared_ptr<DArray>& out) {                            \
    POOL.dCheckout(count(n), out);                                                               \
  }                                                                                              \
  void CLASS::dCheckout(std::shared_ptr<DArray>& out) { POOL.dCheckout(out); }                   \
  void CLASS::cCheckout(int const& n, std::shared_ptr<CArray>& out) {                            \
    POOL.cCheckout(count(n), out);                                                               \
  }                                                                                              \
  void CLASS::cCheckout(std::shared_ptr<CArray>& out) { POOL.cCheckout(out); }                   \
  void CLASS::dvCheckout(int const& m, int const& n, std::shared_ptr<Array<double, 2>>& out) {   \
    POOL.dvCheckout(count(m), count(n), out);                                                    \
  }                                                                                              \
  void CLASS::cvCheckout(int const& m, int const& n, std::shared_ptr<Array<Complex, 2>>& out) {  \
    POOL.cvCheckout(count(m), count(n), out);                                                    \
  }                                                                                              \
  void CLASS::dtCheckout(int const& m, int const& n, int const& p,                               \
                         std::shared_ptr<Array<double, 3>>& out) {                               \
    POOL.dtCheckout(count(m), count(n), count(p), out);                                          \
  }                                                                                              \
  void CLASS::ctCheckout(int const& m, int const& n, int const& p,                               \
                         std::shared_ptr<Array<Complex, 3>>& out) {                              \
    POOL.ctCheckout(count(m), count(n), count(p), out);                                          \
  }                                                                                              \
  void CLASS::dReplicate(Complex const& v, int const& n, std::shared_ptr<DArray>& out) {         \
    POOL.dReplicate(v, count(n), out);                                                           \
  }                                                                                              \
  void CLASS::dReplicate(double const& v, int const& n, std::shared_ptr<DArray>& out) {          \
    POOL.dReplicate(v, count(n), out);                                                           \
  }                                                                                              \
  void CLASS::dReplicate(Complex const& v, std::shared_ptr<DArray>& out) {                       \
    auto& pool = POOL;                                                                           \
    pool.dReplicate(v, count(pool.getBlockSize()), out);                                         \
  }                                                                                              \
  void CLASS::dReplicate(double const& v, std::shared_ptr<DArray>& out) {                        \
    auto& pool = POOL;                                                                           \
    pool.dReplicate(v, count(pool.getBlockSize()), out);                                         \
  }                                                                                              \
  void CLASS::cReplicate(Complex const& v, int const& n, std::shared_ptr<CArray>& out) {         \
    POOL.cReplicate(v, count(n), out);                                                           \
  }                                                                                              \
  void CLASS::cReplicate(double const& v, int const& n, std::shared_ptr<CArray>& out) {          \
    POOL.cReplicate(v, count(n), out);                                                           \
  }                                                                                              \
  void CLASS::cReplicate(Complex const& v, std::shared_ptr<CArray>& out) {                       \
    auto& pool = POOL;                                                                           \
    pool.cReplicate(v, count(pool.getBlockSize()), out);                                         \
  }                                                                                              \
  void CLASS::cReplicate(double const& v, std::shared_ptr<CArray>& out) {                        \
    auto& pool = POOL;                                                                           \
    pool.cReplicate(v, count(pool.getBlockSize()), out);                                         \
  }                                                                                              \
  void CLASS::dClone(CArray const& src, std::shared_ptr<DArray>& out) { POOL.dClone(src, out); } \
  void CLASS::dClone(DArray const& src, std::shared_ptr<DArray>& out) { POOL.dClone(src, out); } \
  void CLASS::cClone(CArray const& src, std::shared_ptr<CArray>& out) { POOL.cClone(src, out); } \
  void CLASS::cClone(DArray const& src, std::shared_ptr<CArray>& out) { POOL.cClone(src, out); } \
  void CLASS::release(std::shared_ptr<Array<Complex, 3>>& a) { POOL.release(a); }                \
  void CLASS::release(std::shared_ptr<Array<double, 3>>& a) { POOL.release(a); }                 \
  void CLASS::release(std::shared_ptr<Array<Complex, 2>>& a) { POOL.release(a); }                \
  void CLASS::release(std::shared_ptr<Array<double, 2>>& a) { POOL.release(a); }                 \
  void CLASS::release(std::shared_ptr<CArray>& a) { POOL.release(a); }                           \
  void CLASS::release(std::shared_ptr<DArray>& a) { POOL.release(a); }                           \
  int CLASS::getBlockSize() { return POOL.getBlockSize(); }                                      \
  size_t CLASS::getMaxExtraSize() { return POOL.getMaxExtraSize(); }                             \
  int CLASS::getCreatorThread() { return POOL.getCreatorThread(); }

SerialArrayAllocator::SerialArrayAllocator(int blockSize, size_t maxExtraSize)
    : impl_(std::make_shared<ArrayAllocImpl>(blockSize, maxExtraSize)) {}

SerialArrayAllocator::~SerialArrayAllocator() = default;

QV_FORWARD_TO_POOL(SerialArrayAllocator, (*impl_))

ParaArrayAllocator::ParaArrayAllocator(int blockSize, size_t maxExtraSize) {
  const int threads = MAXAVAILABLETHREADS;
  pools_.reserve(static_cast<size_t>(threads));
  for (int t = 0; t < threads; ++t)
    pools_.push_back(std::make_shared<ArrayAllocImpl>(blockSize, maxExtraSize));
}

ParaArrayAllocator::ParaArrayAllocator(const ParaArrayAllocator& other) = default;

ParaArrayAllocator::~ParaArrayAllocator() = default;

// The calling thread's pool. Thread numbers are below MAXAVAILABLETHREADS,
// which bounds every team the library's regions start.
ArrayAllocImpl& ParaArrayAllocator::mine() {
  const size_t t = static_cast<size_t>(omp_get_thread_num());
  QV_ASSERT(t < pools_.size(), evalrep);
  return *pools_[t];
}

QV_FORWARD_TO_POOL(ParaArrayAllocator, mine())

#undef QV_FORWARD_TO_POOL

}  // namespace qvarray
