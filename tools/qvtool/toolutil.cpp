#include "toolutil.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>

#include "commands.h"
#include "qvarray/io/sparsemm.h"
#include "qvutil/exception.h"

namespace qvtool {

// ---- the command line ----

bool Arguments::is(const char* option) const { return !std::strcmp(argv_[k_], option); }

const char* Arguments::value() {
  option_ = argv_[k_];
  if (k_ + 1 >= argc_) throw UsageError(std::string(option_) + " needs a value");
  value_ = argv_[++k_];
  return value_;
}

double Arguments::number() {
  const char* text = value();
  char* end = nullptr;
  const double v = std::strtod(text, &end);
  if (end == text || *end != '\0') badValue("is not a number");
  if (!std::isfinite(v)) badValue("is not a finite number");
  return v;
}

long Arguments::integer(long lo, long hi) {
  const char* text = value();
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0') badValue("is not an integer");
  if (errno == ERANGE || v < lo || v > hi)
    badValue("is out of range (" + std::to_string(lo) + " to " + std::to_string(hi) + ")");
  return v;
}

void Arguments::badValue(const std::string& why) const {
  throw UsageError(std::string(option_) + ": '" + value_ + "' " + why);
}

void Arguments::positional(std::string& slot) const {
  const char* a = argv_[k_];
  if ((a[0] == '-' && a[1] != '\0') || !slot.empty()) unexpected();
  slot = a;
}

void Arguments::unexpected() const {
  const char* a = argv_[k_];
  if (a[0] == '-' && a[1] != '\0') throw UsageError(std::string("unknown option '") + a + "'");
  throw UsageError(std::string("unexpected argument '") + a + "'");
}

void Arguments::require(const std::string& slot, const char* what) {
  if (slot.empty()) throw UsageError(std::string("no ") + what + " given");
}

// ---- reporting ----

namespace {

// One line of text of bounded length, built in place without allocating, so
// that an error can be reported when memory has run out.
class Message {
 public:
  Message& operator<<(std::string_view s) {
    for (char c : s) put(c);
    return *this;
  }
  Message& operator<<(long v) {
    char digits[24];
    const int n = std::snprintf(digits, sizeof digits, "%ld", v);
    return *this << std::string_view(digits, static_cast<size_t>(n));
  }
  /// Appends s with every byte that does not print as an escape: \0, \t, \n,
  /// \r, \\ or \xNN (bytes from 0x80 on pass, they belong to UTF-8 text).
  Message& escaped(std::string_view s) {
    static const char hex[] = "0123456789abcdef";
    for (char c : s) {
      const auto u = static_cast<unsigned char>(c);
      if (u >= 0x20 && u != 0x7f && u != '\\') {
        put(c);
        continue;
      }
      put('\\');
      switch (u) {
        case 0: put('0'); break;
        case '\t': put('t'); break;
        case '\n': put('n'); break;
        case '\r': put('r'); break;
        case '\\': put('\\'); break;
        default: put('x'), put(hex[u >> 4]), put(hex[u & 15]);
      }
    }
    return *this;
  }
  /// An error key or a key-like detail in words: "Cannot_open_file" →
  /// "Cannot open file".
  Message& words(std::string_view key) {
    for (char c : key) put(c == '_' ? ' ' : c);
    return *this;
  }
  /// Writes the line to `out` after what stdout holds so far.
  void writeLine(std::FILE* out) {
    std::fflush(stdout);
    if (truncated_) std::memcpy(buf_ + kSize - 4, "...", 3), used_ = kSize - 1;
    buf_[used_] = '\n';
    std::fwrite(buf_, 1, used_ + 1, out);
  }

 private:
  static constexpr size_t kSize = 4096;
  void put(char c) {
    if (used_ + 1 < kSize) buf_[used_++] = c;
    else truncated_ = true;
  }
  char buf_[kSize];
  size_t used_ = 0;
  bool truncated_ = false;
};

// A detail that reads as a sentence rather than as a key ("Singular_matrix").
bool isSentence(const std::string& s) { return s.find(' ') != std::string::npos; }

// "FILE:LINE: what is wrong" from the exception's details: the sentence when
// it has one, else its key in words; the remaining details follow.
void describe(Message& m, const qvbase::Exception& e) {
  const std::string *file = nullptr, *line = nullptr, *sentence = nullptr;
  for (const auto& [name, value] : e.details()) {
    if (name == "File" && !file) file = &value;
    else if (name == "Line" && !line) line = &value;
    else if (name.empty() && !sentence && isSentence(value)) sentence = &value;
  }
  if (file) m.escaped(*file) << (line ? ":" : ": ");
  if (line) m << (file ? "" : "line ") << *line << ": ";
  if (sentence) m.escaped(*sentence);
  else m.words(e.key());
  const char* sep = sentence ? " (" : ": ";
  bool rest = false;
  for (const auto& [name, value] : e.details()) {
    if (&value == file || &value == line || &value == sentence) continue;
    m << sep;
    sep = "; ";
    rest = true;
    if (name.empty() || name == "Reason") {
      if (isSentence(value)) m.escaped(value);
      else m.words(value);
    } else {
      m.words(name) << " = ";
      m.escaped(value);
    }
  }
  if (rest && sentence) m << ")";
  if (e.key() == "QUBRIX_assertion_failure")
    m << " (in " << e.module() << ":" << static_cast<long>(e.line()) << ")";
}

}  // namespace

int reportCurrentException() noexcept {
  Message m;
  m << "qvtool: ";
  try {
    throw;
  } catch (const qvarray::FileBadAlloc& e) {
    // The reader says which line asked for the memory, and why it was refused.
    m.escaped(e.file());
    m << ":" << static_cast<long>(e.line()) << ": not enough memory to read the matrix";
    if (!e.reason().empty()) {
      m << " (";
      m.escaped(e.reason());
      m << ")";
    }
  } catch (const std::bad_alloc&) {
    m << "not enough memory";
  } catch (const qvbase::Exception& e) {
    describe(m, e);
  } catch (const Failure& e) {
    m.escaped(e.message());
  } catch (const std::exception& e) {
    m.escaped(e.what());
  } catch (...) {
    m << "unknown error";
  }
  m.writeLine(stderr);
  return 1;
}

int reportUsageError(const Command& command, const UsageError& e) noexcept {
  Message m;
  m << "qvtool " << command.name << ": ";
  m.escaped(e.what());
  m.writeLine(stderr);
  std::fprintf(stderr, "usage: %s\n'qvtool %s --help' describes the command.\n",
               command.synopsis, command.name);
  return 2;
}

void printLogEntry(const qvutil::RunLog::Entry& entry) {
  Message m;
  m << "qvtool: " << (entry.warning ? "warning: " : "");
  m.escaped(entry.text);
  m.writeLine(stderr);
}

// ---- non-finite numbers ----

bool allFinite(const double* v, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (!std::isfinite(v[i])) return false;
  return true;
}

bool allFinite(const std::complex<double>* v, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (!std::isfinite(v[i].real()) || !std::isfinite(v[i].imag())) return false;
  return true;
}

namespace {

// Line (1-based) of the first entry of the MatrixMarket file `path` whose
// text is a non-finite number, with that line's text; 0 when there is none.
// Entries are numbers, so only a non-finite one spells "inf" or "nan"; the
// banner (line 1) and comment lines are passed over.
size_t nonFiniteEntryLine(const std::string& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  for (size_t number = 1; std::getline(in, line); ++number) {
    if (number == 1) continue;
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '%') continue;
    std::string lower = line;
    for (char& c : lower)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (lower.find("inf") != std::string::npos || lower.find("nan") != std::string::npos) {
      text = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
      return number;
    }
  }
  return 0;
}

}  // namespace

void failNonFinite(const std::string& path, size_t row, size_t col) {
  std::string text;
  if (const size_t line = nonFiniteEntryLine(path, text))
    throw Failure(path + ":" + std::to_string(line) + ": the entry '" + text +
                  "' is not a finite number");
  throw Failure(path + ": the entries at (" + std::to_string(row + 1) + "," +
                std::to_string(col + 1) + ") overflow when they are summed");
}

qvarray::Sparse readSparse(const std::string& path, bool keepSymmetric) {
  qvarray::Sparse A;
  try {
    A = qvarray::readMatrixMarket(path, keepSymmetric);
  } catch (const std::bad_alloc&) {
    failReading(path);
  }
  requireFiniteEntries(A, path);
  return A;
}

void failReading(const std::string& path) {
  try {
    throw;
  } catch (const qvarray::FileBadAlloc&) {
    throw;  // already names the file and line
  } catch (...) {
  }
  throw Failure(path + ": not enough memory to read the matrix");
}

void requireFiniteEntries(const qvarray::Sparse& A, const std::string& path, size_t firstRow) {
  const size_t* colptr = A.getColPtr();
  const size_t* row = A.getRow();
  const bool transposed = A.getSymm() == qvarray::SymmTransposed;  // stored (i, j) is (j, i)
  for (size_t j = 0; j < A.getN(); ++j)
    for (size_t k = colptr[j]; k < colptr[j + 1]; ++k)
      if (A.isReal() ? !std::isfinite(A.getDoubleVal()[k])
                     : !allFinite(A.getDcmplxVal() + k, 1))
        failNonFinite(path, firstRow + (transposed ? j : row[k]), transposed ? row[k] : j);
}

// ---- printing ----

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

void printHistory(const std::vector<double>& h, bool all) {
  std::printf("%8s  %s\n", "iter", "relative residual");
  const size_t every = all || h.size() <= 30 ? 1 : (h.size() + 24) / 25;
  for (size_t k = 0; k < h.size(); ++k)
    if (k % every == 0 || k + 1 == h.size()) std::printf("%8zu  %.6e\n", k, h[k]);
  if (every > 1) std::printf("(every %zu-th iteration shown; --history shows all)\n", every);
}

}  // namespace qvtool
