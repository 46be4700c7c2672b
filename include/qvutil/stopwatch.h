#pragma once
// Wall-clock timer on the steady clock.
#include <chrono>

namespace qvutil {

class Stopwatch {
 public:
  using Clock = std::chrono::steady_clock;
  /// Starts running at construction.
  Stopwatch() : start_(Clock::now()) {}
  void start() { start_ = Clock::now(); running_ = true; }
  void stop() { if (running_) { accumulated_ += Clock::now() - start_; running_ = false; } }
  void reset() { accumulated_ = {}; start_ = Clock::now(); running_ = true; }
  /// Seconds elapsed over all start/stop intervals, including a running one.
  double seconds() const {
    auto d = accumulated_;
    if (running_) d += Clock::now() - start_;
    return std::chrono::duration<double>(d).count();
  }

 private:
  Clock::time_point start_;
  Clock::duration accumulated_{};
  bool running_ = true;
};

}  // namespace qvutil
