#pragma once
// Run information (cancellation) and the run log of one operation.
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "qvutil/export.h"

namespace qvutil {

/// Cancellation state of one run. Long operations poll isCancelled() and raise
/// qvbase::CancelException when it is true. Thread-safe.
class QVUTIL_API RunInfo {
 public:
  virtual ~RunInfo() = default;
  virtual bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }
  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  void reset() { cancelled_.store(false, std::memory_order_relaxed); }

 private:
  std::atomic<bool> cancelled_{false};
};

/// Messages and warnings collected during a run. Thread-safe. When echo is on,
/// each entry is also written to standard error as it arrives.
class QVUTIL_API RunLog {
 public:
  struct Entry {
    bool warning;
    std::string text;
  };

  explicit RunLog(bool echo = false) : echo_(echo) {}
  void addMessage(const std::string& text);
  void addWarning(const std::string& text);
  std::vector<Entry> entries() const;
  std::vector<std::string> warnings() const;
  void clear();

  /// The process-wide log that the libraries write to; it echoes to stderr.
  static RunLog& global();

 private:
  void append(bool warning, const std::string& text);
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  bool echo_;
};

}  // namespace qvutil
