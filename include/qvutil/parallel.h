#pragma once
// The thread count that the libraries' OpenMP regions use.
//
// maxThreads() is fixed at start-up (the larger of OpenMP's maximum and the
// processor count) and bounds every thread count ever used, so per-thread
// slot arrays sized with MAXAVAILABLETHREADS are indexed safely by
// omp_get_thread_num(). availableThreads() is settable within 1..maxThreads().
#include "qvutil/export.h"

namespace qvbase {

class QVUTIL_API Parallel {
 public:
  static int availableThreads();
  static int maxThreads();
  /// Sets the thread count, clamped to 1..maxThreads(); returns the value set.
  static int setAvailableThreads(int n);
};

}  // namespace qvbase

#define AVAILABLETHREADS() (::qvbase::Parallel::availableThreads())
#define MAXAVAILABLETHREADS (::qvbase::Parallel::maxThreads())
