#include "qvutil/numeric.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <string>

#include "qvutil/errors.h"
#include "qvutil/parallel.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }
}  // namespace

bool qvIsNaN(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  return (bits & 0x7ff0000000000000ULL) == 0x7ff0000000000000ULL && (bits & 0x000fffffffffffffULL) != 0;
}

namespace qvutil {

double parseDouble(std::string_view text) {
  std::string_view t = text;
  while (!t.empty() && isBlank(t.front())) t.remove_prefix(1);
  while (!t.empty() && isBlank(t.back())) t.remove_suffix(1);
  // from_chars refuses a leading '+', which number files do use.
  if (t.size() > 1 && t.front() == '+' && t[1] != '-' && t[1] != '+') t.remove_prefix(1);
  double value = 0;
  const char* end = t.data() + t.size();
  auto [ptr, ec] = std::from_chars(t.data(), end, value);
  if (t.empty() || ec == std::errc::invalid_argument || ptr != end)
    QV_RAISE(numeric, Invalid_number, std::string(text));
  if (ec == std::errc::result_out_of_range) {
    // from_chars leaves `value` untouched here. Underflow (a negative exponent)
    // reads as a signed zero; overflow is an error.
    const auto e = t.find_first_of("eE");
    if (e != std::string_view::npos && e + 1 < t.size() && t[e + 1] == '-')
      return t.front() == '-' ? -0.0 : 0.0;
    QV_RAISE(numeric, Number_out_of_range, std::string(text));
  }
  return value;
}

void initializeUtil() {
  static bool done = false;
  if (done) return;
  done = true;
  (void)qvbase::Parallel::maxThreads();  // fixes the thread bound before any region runs
}

}  // namespace qvutil
