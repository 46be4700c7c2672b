#pragma once
// Helpers shared by the qvtool subcommands: the command-line walker, the one
// presentation of errors, the checks of input and results for non-finite
// numbers, and printing of numbers, vectors and residual histories.
//
// Failures travel as exceptions to main(), which reports them through
// reportCurrentException(): a library error, an allocation failure or a
// qvtool::Failure give "qvtool: ..." and exit status 1, a UsageError gives
// "qvtool <command>: ..." with the usage and exit status 2.
#include <complex>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qvarray/sparse/sparse.h"
#include "qvutil/runinfo.h"

namespace qvtool {

struct Command;

/// A command line the subcommand cannot run; the message names the argument
/// at fault ("--tol: 'abc' is not a number").
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A failure that qvtool finds itself (a non-square matrix, a non-finite
/// entry or result); the message starts with the file it concerns.
class Failure : public std::exception {
 public:
  explicit Failure(std::string message) : message_(std::move(message)) {}
  /// The whole message, also past a NUL byte read from a file.
  const std::string& message() const { return message_; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

/// Walks the arguments of a subcommand (argv[0] is its name). Values of
/// options are checked here, and a bad one raises a UsageError that names
/// the option and the value.
class Arguments {
 public:
  Arguments(int argc, char** argv) : argc_(argc), argv_(argv) {}

  /// Moves to the next argument; false after the last one.
  bool next() { return ++k_ < argc_; }
  /// The current argument is `option`.
  bool is(const char* option) const;
  /// The current argument as written.
  const char* current() const { return argv_[k_]; }

  /// The value that follows the current option, consumed.
  const char* value();
  /// ... read as a finite number.
  double number();
  /// ... read as an integer in [lo, hi].
  long integer(long lo, long hi);
  /// Refuses the value just read: "<option>: '<value>' <why>".
  [[noreturn]] void badValue(const std::string& why) const;

  /// The current argument is a positional one (a file): stored in `slot` if
  /// that is still empty. An unknown option or a second file is refused.
  void positional(std::string& slot) const;
  /// Refuses the current argument: "unknown option '--x'" or "unexpected
  /// argument 'x'".
  [[noreturn]] void unexpected() const;
  /// Refuses a missing positional argument: "no <what> given".
  static void require(const std::string& slot, const char* what);

 private:
  int argc_;
  char** argv_;
  int k_ = 0;
  const char* option_ = "";
  const char* value_ = "";
};

/// Reports the exception being handled on stderr as one readable line and
/// returns 1. A library error reads "qvtool: FILE:LINE: sentence" from its
/// details; a key without a sentence is spelt out in words. Bytes that do not
/// print (a NUL read from a file) are escaped. Allocates nothing, so it also
/// works when memory has run out. Call it only inside a catch handler.
int reportCurrentException() noexcept;

/// Reports a UsageError of `command` with its synopsis and returns 2.
/// Allocates nothing.
int reportUsageError(const Command& command, const UsageError& e) noexcept;

/// The sink qvtool gives the library's run log: each entry on stderr.
void printLogEntry(const qvutil::RunLog::Entry& entry);

/// Reads the sparse matrix of the MatrixMarket file `path` (keepSymmetric as
/// for qvarray::readMatrixMarket) and checks its entries are finite. Running
/// out of memory on the way raises a Failure that names the file.
qvarray::Sparse readSparse(const std::string& path, bool keepSymmetric = false);
/// Raises a Failure when A holds a NaN or an infinity, naming the line of
/// the file `path` where the offending entry stands. A may be a block of the
/// matrix's rows from row firstRow on, stored as it is or transposed.
void requireFiniteEntries(const qvarray::Sparse& A, const std::string& path, size_t firstRow = 0);
/// The Failure for memory that ran out while the file `path` was read; the
/// reader's FileBadAlloc, which already names the line, passes through.
[[noreturn]] void failReading(const std::string& path);
/// Raises the Failure for a matrix read from `path` whose entry (row, col)
/// (0-based) is not finite: at the line of the first entry the file writes
/// as a non-finite number ("inf", "nan" in any case), else at the position
/// (then duplicates overflowed when they were summed).
[[noreturn]] void failNonFinite(const std::string& path, size_t row, size_t col);

/// True when every value is finite.
bool allFinite(const double* v, size_t n);
bool allFinite(const std::complex<double>* v, size_t n);

/// " 1.5", "-2e-07" (a blank where the sign goes); complex values as
/// " 1.5-2i". 12 significant digits.
std::string formatValue(double v);
std::string formatValue(const std::complex<double>& v);

/// Prints v[0..n-1] one per line with 1-based indices; when n
/// exceeds `limit` only the first and last few, with a line for the gap.
template <class T>
void printValues(const T* v, size_t n, size_t limit = 12);

/// Prints a residual history, one "iteration value" line each: all of them
/// with `all`, else about 25 evenly spaced ones and the last.
void printHistory(const std::vector<double>& history, bool all);

}  // namespace qvtool
