#pragma once
// Helpers shared by the qvtool subcommands: error messages and printing of
// numbers and vectors.
#include <complex>
#include <cstddef>
#include <exception>
#include <string>

namespace qvtool {

/// Prints "qvtool: <message>" to stderr and returns 1 (the failure status).
int fail(const std::string& message);

/// Reports an exception on stderr and returns 1. A library error that names a
/// file prints as "qvtool: <file>:<line>: <what is wrong>"; other library
/// errors print their key and details; allocation failure says so.
int reportError(const std::exception& e);

/// " 1.5", "-2e-07" (a blank where the sign goes); complex values as
/// " 1.5-2i". 12 significant digits.
std::string formatValue(double v);
std::string formatValue(const std::complex<double>& v);

/// Prints v[0..n-1] one per line with 1-based indices; when n
/// exceeds `limit` only the first and last few, with a line for the gap.
template <class T>
void printValues(const T* v, size_t n, size_t limit = 12);

}  // namespace qvtool
