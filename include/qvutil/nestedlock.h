#pragma once
// A re-entrant lock (an OpenMP nestable lock) and its scope guard.
#include "qvutil/export.h"

namespace qvbase {

class QVUTIL_API NestedLock {
 public:
  NestedLock();
  ~NestedLock();
  NestedLock(const NestedLock&) = delete;
  NestedLock& operator=(const NestedLock&) = delete;
  void lock();
  void unlock();

 private:
  void* impl_;  // omp_nest_lock_t, kept out of the header
};

/// Holds a NestedLock for its lifetime.
class LockHandler {
 public:
  explicit LockHandler(NestedLock& lock) : lock_(lock) { lock_.lock(); }
  ~LockHandler() { lock_.unlock(); }
  LockHandler(const LockHandler&) = delete;
  LockHandler& operator=(const LockHandler&) = delete;

 private:
  NestedLock& lock_;
};

}  // namespace qvbase
