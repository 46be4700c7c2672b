#include "toolutil.h"

#include <cstdio>
#include <new>
#include <string>

#include "qvutil/exception.h"

namespace qvtool {

int fail(const std::string& message) {
  std::fflush(stdout);  // the message follows what was printed so far
  std::fprintf(stderr, "qvtool: %s\n", message.c_str());
  return 1;
}

int reportError(const std::exception& e) {
  if (dynamic_cast<const std::bad_alloc*>(&e)) return fail("not enough memory");
  const auto* q = dynamic_cast<const qvbase::Exception*>(&e);
  if (!q) return fail(e.what());
  const auto file = q->detail("File");
  if (!file) return fail(q->what());
  // The sentence is the first unnamed detail; without one, the key reads as text.
  std::string what;
  for (const auto& [name, value] : q->details())
    if (name.empty()) {
      what = value;
      break;
    }
  if (what.empty()) {
    what = q->key();
    for (char& c : what)
      if (c == '_') c = ' ';
    if (const auto reason = q->detail("Reason")) what += ": " + *reason;
  }
  const auto line = q->detail("Line");
  return fail(*file + (line ? ":" + *line : std::string()) + ": " + what);
}

std::string formatValue(double v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "% .12g", v);
  return buf;
}

std::string formatValue(const std::complex<double>& v) {
  char buf[80];
  std::snprintf(buf, sizeof buf, "% .12g%+.12gi", v.real(), v.imag());
  return buf;
}

template <class T>
void printValues(const T* v, size_t n, size_t limit) {
  const size_t head = n > limit ? limit * 2 / 3 : n;
  const size_t tail = n > limit ? limit - head : 0;
  const int width = static_cast<int>(std::to_string(n).size());
  for (size_t i = 0; i < head; ++i)
    std::printf("  %*zu: %s\n", width, i + 1, formatValue(v[i]).c_str());
  if (tail) std::printf("  %*s  (%zu values not shown)\n", width, "...", n - head - tail);
  for (size_t i = n - tail; i < n; ++i)
    std::printf("  %*zu: %s\n", width, i + 1, formatValue(v[i]).c_str());
}

template void printValues(const double*, size_t, size_t);
template void printValues(const std::complex<double>*, size_t, size_t);

}  // namespace qvtool
