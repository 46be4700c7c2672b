#pragma once
// Run information (cancellation) and the run log of one operation.
#include <atomic>
#include <functional>
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

/// Messages and warnings collected during a run. Thread-safe.
///
/// The log keeps every entry. It writes nowhere by itself: a library loaded
/// into a host must not write to the host's streams unasked. A host that wants
/// to see entries as they arrive sets a sink (a program prints them, a JVM
/// host forwards them to its own log).
class QVUTIL_API RunLog {
 public:
  struct Entry {
    bool warning;
    std::string text;
  };
  /// Receives each entry after it is stored, on the thread that added it and
  /// under the log's lock, so entries reach the sink one at a time and in the
  /// log's order. It must not add to the same log. An exception it throws is
  /// dropped (the entry stays in the log).
  using Sink = std::function<void(const Entry&)>;

  RunLog() = default;
  void addMessage(const std::string& text);
  void addWarning(const std::string& text);
  std::vector<Entry> entries() const;
  std::vector<std::string> warnings() const;
  void clear();

  /// Replaces the sink; an empty one (the default) sends entries nowhere.
  void setSink(Sink sink);

  /// The process-wide log that the libraries write to. It has no sink until
  /// the host sets one.
  static RunLog& global();

 private:
  void append(bool warning, const std::string& text);
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  Sink sink_;
};

}  // namespace qvutil
