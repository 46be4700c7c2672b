#include "qvutil/numeric.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <string>

#include "qvutil/errors.h"
#include "qvutil/parallel.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// The value for a number that std::from_chars found out of range: a zero when
// the exponent is negative (underflow), else an infinity (overflow); `exp`
// marks the exponent ('e' decimal, 'p' hexadecimal).
double outOfRangeValue(std::string_view number, char exp, bool& overflow) {
  const size_t e = number.find_first_of(exp == 'e' ? "eE" : "pP");
  overflow = !(e != std::string_view::npos && e + 1 < number.size() && number[e + 1] == '-');
  return overflow ? qvGetInf() : 0.0;
}

}  // namespace

bool qvIsNaN(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  return (bits & 0x7ff0000000000000ULL) == 0x7ff0000000000000ULL && (bits & 0x000fffffffffffffULL) != 0;
}

namespace qvutil {

NumberScan scanDouble(std::string_view text, double& value) noexcept {
  // std::from_chars takes '-' but not '+', which number files do use.
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (text.front() == '+' || negative)) text.remove_prefix(1);
  if (text.empty() || text.front() == '+' || text.front() == '-') return NumberScan::Invalid;
  const char* end = text.data() + text.size();
  double v = 0;
  const auto [ptr, ec] = std::from_chars(text.data(), end, v);
  if (ec == std::errc::invalid_argument || ptr != end) return NumberScan::Invalid;
  if (ec == std::errc::result_out_of_range) {
    bool overflow = false;
    v = outOfRangeValue(text, 'e', overflow);
    if (overflow) return NumberScan::OutOfRange;
  }
  value = negative ? -v : v;
  return NumberScan::Ok;
}

bool scanCount(std::string_view text, size_t& value) noexcept {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  return !text.empty() && ec == std::errc() && ptr == end;
}

double parseDouble(std::string_view text) {
  std::string_view t = text;
  while (!t.empty() && isBlank(t.front())) t.remove_prefix(1);
  while (!t.empty() && isBlank(t.back())) t.remove_suffix(1);
  double value = 0;
  switch (scanDouble(t, value)) {
    case NumberScan::Ok: return value;
    case NumberScan::Invalid: QV_RAISE(numeric, Invalid_number, std::string(text));
    case NumberScan::OutOfRange: QV_RAISE(numeric, Number_out_of_range, std::string(text));
  }
  return value;
}

double parseDoublePrefix(std::string_view text) noexcept {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  const bool negative = !text.empty() && text.front() == '-';
  if (!text.empty() && (text.front() == '+' || negative)) text.remove_prefix(1);
  if (text.empty() || text.front() == '+' || text.front() == '-') return 0.0;
  const char* end = text.data() + text.size();
  // "0x" starts a hexadecimal number when a hexadecimal digit follows (or a
  // point and one); otherwise the "0" alone is the number.
  auto isHex = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
  };
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') &&
                   (isHex(text[2]) || (text[2] == '.' && text.size() > 3 && isHex(text[3])));
  const char* begin = text.data() + (hex ? 2 : 0);
  double v = 0;
  const auto [ptr, ec] =
      std::from_chars(begin, end, v, hex ? std::chars_format::hex : std::chars_format::general);
  if (ec == std::errc::invalid_argument) return 0.0;
  if (ec == std::errc::result_out_of_range) {
    bool overflow = false;
    v = outOfRangeValue(std::string_view(begin, static_cast<size_t>(ptr - begin)), hex ? 'p' : 'e',
                        overflow);
  }
  return negative ? -v : v;
}

void initializeUtil() {
  static bool done = false;
  if (done) return;
  done = true;
  (void)qvbase::Parallel::maxThreads();  // fixes the thread bound before any region runs
}

}  // namespace qvutil
