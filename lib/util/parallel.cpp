#include "qvutil/parallel.h"

#include <omp.h>

#include <algorithm>
#include <atomic>

namespace qvbase {

namespace {

int initialMax() {
  static const int value = std::max({1, omp_get_max_threads(), omp_get_num_procs()});
  return value;
}

std::atomic<int>& current() {
  static std::atomic<int> value{std::max(1, omp_get_max_threads())};
  return value;
}

}  // namespace

int Parallel::maxThreads() { return initialMax(); }

int Parallel::availableThreads() {
  return std::min(current().load(std::memory_order_relaxed), initialMax());
}

int Parallel::setAvailableThreads(int n) {
  n = std::clamp(n, 1, initialMax());
  current().store(n, std::memory_order_relaxed);
  return n;
}

}  // namespace qvbase
