#include "qvutil/runinfo.h"

#include <utility>

namespace qvutil {

void RunLog::append(bool warning, const std::string& text) {
  std::lock_guard<std::mutex> guard(mutex_);
  entries_.push_back({warning, text});
  if (!sink_) return;
  try {
    sink_(entries_.back());
  } catch (...) {
    // The host's sink failed; the entry is kept all the same.
  }
}

void RunLog::addMessage(const std::string& text) { append(false, text); }
void RunLog::addWarning(const std::string& text) { append(true, text); }

std::vector<RunLog::Entry> RunLog::entries() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return entries_;
}

std::vector<std::string> RunLog::warnings() const {
  std::lock_guard<std::mutex> guard(mutex_);
  std::vector<std::string> out;
  for (const auto& e : entries_)
    if (e.warning) out.push_back(e.text);
  return out;
}

void RunLog::clear() {
  std::lock_guard<std::mutex> guard(mutex_);
  entries_.clear();
}

void RunLog::setSink(Sink sink) {
  std::lock_guard<std::mutex> guard(mutex_);
  sink_ = std::move(sink);
}

RunLog& RunLog::global() {
  static RunLog log;
  return log;
}

}  // namespace qvutil
