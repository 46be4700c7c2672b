#pragma once
// The one scanner of MatrixMarket text: lines, tokens and numbers, and every
// format error with the file and the line at fault. The dense and the sparse
// reader both read through it (mmreader.h).
#include <cstddef>
#include <fstream>
#include <iosfwd>
#include <string>
#include <string_view>

#include "qvutil/errinfo.h"

namespace qvarray::mmio {

inline bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}

/// The blank-separated tokens of one line: the first kMax are kept, all are
/// counted.
struct Tokens {
  static constexpr int kMax = 6;
  std::string_view tok[kMax];
  int count = 0;

  explicit Tokens(std::string_view line);
};

/// `text` in single quotes for a message, a long text cut after 40 bytes. The
/// bytes are kept as they are (NUL included): escaping them for a reader is
/// the business of whoever presents the message.
std::string quote(std::string_view text);

/// The details of a format error: the sentence, ("File", name), ("Line", n).
qvbase::DetailPairs errorDetails(const std::string& sentence, const std::string& name, size_t line);

/// Reads text line by line, from memory or from a stream in pieces of
/// kChunk bytes. A line handed out stays valid until the next call.
class Scanner {
 public:
  /// Over text held in memory.
  Scanner(std::string_view text, const std::string& name);
  /// Over a stream; `sizeHint` is its length in bytes when known, else 0.
  Scanner(std::istream& in, const std::string& name, size_t sizeHint = 0);

  /// The next line, without its line end; false at the end of the text.
  /// Raises "Cannot_read_file" when the stream fails.
  bool nextLine(std::string_view& line);
  /// The next line that is neither blank nor a '%' comment.
  bool nextDataLine(std::string_view& line);

  /// The 1-based number of the line last handed out.
  size_t lineNumber() const { return line_; }
  const std::string& name() const { return name_; }
  /// The length of the text in bytes when known, else 0.
  size_t sizeHint() const { return sizeHint_; }

  // Errors name the caller's source line (`where`, by default the line of
  // the call), so that each check of the reader keeps its own.

  /// Raises "Invalid_MatrixMarket_file" at the current line / at `line`.
  [[noreturn]] void fail(const std::string& sentence, int where = __builtin_LINE()) const;
  [[noreturn]] void failAt(size_t line, const std::string& sentence,
                           int where = __builtin_LINE()) const;

  /// A size or an index: unsigned decimal digits, or "Invalid <what> 'tok'.".
  size_t count(std::string_view tok, const char* what, int where = __builtin_LINE()) const;
  /// A number of a "real" or "complex" field.
  double real(std::string_view tok, int where = __builtin_LINE()) const;
  /// A number of an "integer" field: digits with an optional sign.
  double integer(std::string_view tok, int where = __builtin_LINE()) const;

 private:
  bool refill();

  static constexpr size_t kChunk = size_t{1} << 16;
  std::istream* in_ = nullptr;
  std::string buf_;        // the stream's unread text (stream form only)
  std::string_view data_;  // the text at hand: all of it, or buf_
  size_t pos_ = 0;         // start of the next line in data_
  size_t searched_ = 0;    // data_ holds no line end before this offset
  const std::string& name_;
  size_t sizeHint_ = 0;
  size_t line_ = 0;
};

/// Opens `path` for reading; raises "Cannot_open_file" with ("File", path) and
/// ("Reason", why). `size` receives the file's length in bytes (0 if unknown).
std::ifstream openForReading(const std::string& path, size_t& size);

/// Opens `path` for writing, truncated; raises "Cannot_write_file".
std::ofstream openForWriting(const std::string& path);
/// Closes a file written through openForWriting; raises "Cannot_write_file"
/// when that fails.
void closeWritten(std::ofstream& out, const std::string& path);

}  // namespace qvarray::mmio
