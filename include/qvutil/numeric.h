#pragma once
// NaN and infinity helpers and the library's one number parser.
//
// Every conversion of number text in the library goes through scanDouble
// (decimal or exponent notation, "inf", "infinity", "nan", always in the C
// locale, whatever the process's locale); the entry points below only differ
// in how they treat what scanDouble cannot read.
#include <cmath>
#include <cstddef>
#include <limits>
#include <string_view>

#include "qvutil/export.h"

/// A quiet NaN.
inline double qvGetNaN() { return std::numeric_limits<double>::quiet_NaN(); }
/// True for any NaN (also under -ffast-math, by bit test).
QVUTIL_API bool qvIsNaN(double x);
/// Positive infinity.
inline double qvGetInf() { return std::numeric_limits<double>::infinity(); }

namespace qvutil {

/// What scanDouble made of a text.
enum class NumberScan {
  Ok,          ///< the value was read
  Invalid,     ///< not a number
  OutOfRange,  ///< a number beyond the largest double
};

/// Reads the whole of `text` (no surrounding blanks) as a double: an optional
/// sign ('+' too), then a decimal or exponent number, "inf", "infinity" or
/// "nan". A magnitude too small for a double reads as a zero of the text's
/// sign; one too large is OutOfRange. Never throws.
QVUTIL_API NumberScan scanDouble(std::string_view text, double& value) noexcept;

/// Reads the whole of `text` (no blanks, no sign) as a decimal count or
/// index. False for anything else or a value beyond size_t. Never throws.
QVUTIL_API bool scanCount(std::string_view text, size_t& value) noexcept;

/// scanDouble of `text` with surrounding blanks allowed. Raises
/// "Invalid_number" or "Number_out_of_range" (module "numeric") with the text
/// as detail.
QVUTIL_API double parseDouble(std::string_view text);

/// Reads a number from the start of `text` as the C library's "%lf"
/// conversion does in the C locale: leading blanks are skipped and the longest
/// prefix that is a number is read (the rest is ignored); a text that does
/// not start with a number reads as 0.0, a magnitude beyond the largest
/// double as an infinity. Never throws.
QVUTIL_API double parseDoublePrefix(std::string_view text) noexcept;

/// Initialises the utility library; idempotent.
QVUTIL_API void initializeUtil();

}  // namespace qvutil
