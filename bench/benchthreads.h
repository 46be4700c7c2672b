#pragma once
// The thread count of the library's kernels for one benchmark, and with one
// thread the calling thread's BLAS too; restored when the scope ends.
#include <optional>

#include "qvarray/blasruntime.h"
#include "qvutil/parallel.h"

namespace qvbench {

class Threads {
 public:
  explicit Threads(int n) : saved_(AVAILABLETHREADS()) {
    qvbase::Parallel::setAvailableThreads(n);
    if (n == 1) serialBlas_.emplace();
  }
  ~Threads() { qvbase::Parallel::setAvailableThreads(saved_); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

 private:
  int saved_;
  std::optional<qvarray::SerialBlasScope> serialBlas_;
};

}  // namespace qvbench
