#pragma once
// The census of raised error keys: every key the library raises while the
// recorder listens, written one a line to a file that check_error_keys reads.
#include <fstream>
#include <mutex>
#include <set>
#include <string>

#include "qvutil/errors.h"

namespace qvtest::keys {

inline std::mutex mutex;
inline std::set<std::string> raised;

inline void record(const qvbase::Exception& e) noexcept {
  try {
    std::lock_guard<std::mutex> lock(mutex);
    raised.insert(e.key());
  } catch (...) {
  }
}

/// Records from now on every key the library raises.
inline void listen() { qvbase::setErrorListener(record); }

/// Writes the keys raised so far to `path` (even none: the file also says
/// that the program ran).
inline void write(const std::string& path) {
  std::lock_guard<std::mutex> lock(mutex);
  std::ofstream out(path);
  for (const std::string& k : raised) out << k << '\n';
}

}  // namespace qvtest::keys
