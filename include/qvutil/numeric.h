#pragma once
// NaN and infinity helpers and locale-independent number parsing.
#include <cmath>
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

/// Parses the whole of `text` (surrounding blanks allowed) as a double in the
/// C locale: decimal or exponent notation, "inf", "nan". Anything else raises
/// "Invalid_number" with the text as detail. Out-of-range values raise
/// "Number_out_of_range".
QVUTIL_API double parseDouble(std::string_view text);

/// Initialises the utility library; idempotent.
QVUTIL_API void initializeUtil();

}  // namespace qvutil
