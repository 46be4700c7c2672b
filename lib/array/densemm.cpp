// Dense MatrixMarket reading and writing.
#include "qvarray/densemm.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <istream>
#include <ostream>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;
using Info = MatrixMarketInfo;

std::string lower(std::string_view s) {
  std::string r(s);
  for (char& c : r)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return r;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }

// Splits a line into at most kMax blank-separated tokens; `count` is the
// number of tokens on the line even when more than kMax.
struct Tokens {
  static constexpr int kMax = 6;
  std::string_view tok[kMax];
  int count = 0;

  explicit Tokens(std::string_view line) {
    size_t i = 0;
    while (true) {
      while (i < line.size() && isBlank(line[i])) ++i;
      if (i == line.size()) break;
      const size_t start = i;
      while (i < line.size() && !isBlank(line[i])) ++i;
      if (count < kMax) tok[count] = line.substr(start, i - start);
      ++count;
    }
  }
};

std::string quote(std::string_view s) { return "'" + std::string(s) + "'"; }

// Reads lines and numbers them; every format error goes through fail().
class LineReader {
 public:
  LineReader(std::istream& in, const std::string& name) : in_(in), name_(name) {}

  // The next line, raw (for the header). False at the end of the input.
  bool nextRaw(std::string_view& line) {
    if (!std::getline(in_, buf_)) {
      if (in_.bad())
        QV_RAISE(densemm, Cannot_read_file,
                 qvbase::DetailPairs{{"File", name_}, {"Line", std::to_string(line_ + 1)}});
      return false;
    }
    ++line_;
    if (!buf_.empty() && buf_.back() == '\r') buf_.pop_back();
    line = buf_;
    return true;
  }

  // The next line that is neither blank nor a comment.
  bool nextData(std::string_view& line) {
    while (nextRaw(line)) {
      size_t i = 0;
      while (i < line.size() && isBlank(line[i])) ++i;
      if (i < line.size() && line[i] != '%') return true;
    }
    return false;
  }

  size_t line() const { return line_; }
  const std::string& name() const { return name_; }

  [[noreturn]] void fail(const std::string& sentence) const { failAt(line_, sentence); }

  [[noreturn]] void failAt(size_t line, const std::string& sentence) const {
    QV_RAISE(densemm, Invalid_MatrixMarket_file,
             qvbase::DetailPairs{{"File", name_}, {"Line", std::to_string(line)}, {"", sentence}});
  }

  // A non-negative integer (sizes, indices).
  size_t count(std::string_view tok, const char* what) const {
    size_t v = 0;
    const auto [p, ec] = std::from_chars(tok.data(), tok.data() + tok.size(), v);
    if (ec != std::errc() || p != tok.data() + tok.size())
      fail(std::string("Invalid ") + what + " " + quote(tok) + ".");
    return v;
  }

  double real(std::string_view tok) const {
    try {
      return qvutil::parseDouble(tok);
    } catch (const qvbase::Exception& e) {
      if (e.key() == "Number_out_of_range") fail("Number " + quote(tok) + " is out of range.");
      fail("Invalid number " + quote(tok) + ".");
    }
  }

  double integer(std::string_view tok) const {
    std::string_view t = tok;
    if (t.size() > 1 && t.front() == '+') t.remove_prefix(1);
    long long v = 0;
    const auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    if (ec != std::errc() || p != t.data() + t.size())
      fail("Invalid integer " + quote(tok) + ".");
    return static_cast<double>(v);
  }

 private:
  std::istream& in_;
  const std::string& name_;
  std::string buf_;
  size_t line_ = 0;
};

const char* fieldName(Info::Field f) {
  switch (f) {
    case Info::Field::Real: return "real";
    case Info::Field::Integer: return "integer";
    case Info::Field::Complex: return "complex";
    case Info::Field::Pattern: return "pattern";
  }
  return "";
}

// Header line "%%MatrixMarket matrix <format> <field> <symmetry>", then the
// size line. Leaves the reader on the size line.
Info readHeader(LineReader& r) {
  std::string_view line;
  if (!r.nextRaw(line))
    r.failAt(1, "The file is empty; expected a '%%MatrixMarket matrix ...' header.");
  const Tokens t(line);
  if (t.count == 0 || lower(t.tok[0]) != "%%matrixmarket")
    r.fail("The first line is not a '%%MatrixMarket matrix ...' header.");
  if (t.count < 5)
    r.fail("The header needs object, format, field and symmetry after '%%MatrixMarket'.");
  if (t.count > 5) r.fail("Unexpected " + quote(t.tok[5]) + " after the header's symmetry.");

  Info info;
  const std::string object = lower(t.tok[1]), format = lower(t.tok[2]),
                    field = lower(t.tok[3]), symmetry = lower(t.tok[4]);
  if (object != "matrix")
    r.fail("Object " + quote(t.tok[1]) + " is not supported; expected 'matrix'.");
  if (format == "array") info.format = Info::Format::Array;
  else if (format == "coordinate") info.format = Info::Format::Coordinate;
  else r.fail("Unknown format " + quote(t.tok[2]) + "; expected 'array' or 'coordinate'.");
  if (field == "real") info.field = Info::Field::Real;
  else if (field == "integer") info.field = Info::Field::Integer;
  else if (field == "complex") info.field = Info::Field::Complex;
  else if (field == "pattern") info.field = Info::Field::Pattern;
  else
    r.fail("Unknown field " + quote(t.tok[3]) +
           "; expected 'real', 'integer', 'complex' or 'pattern'.");
  if (symmetry == "general") info.symmetry = Info::Symmetry::General;
  else if (symmetry == "symmetric") info.symmetry = Info::Symmetry::Symmetric;
  else if (symmetry == "skew-symmetric") info.symmetry = Info::Symmetry::SkewSymmetric;
  else if (symmetry == "hermitian") info.symmetry = Info::Symmetry::Hermitian;
  else
    r.fail("Unknown symmetry " + quote(t.tok[4]) +
           "; expected 'general', 'symmetric', 'skew-symmetric' or 'hermitian'.");
  if (info.field == Info::Field::Pattern && info.format == Info::Format::Array)
    r.fail("The array format has no 'pattern' field.");
  if (info.symmetry == Info::Symmetry::Hermitian && info.field != Info::Field::Complex)
    r.fail(std::string("Hermitian symmetry needs the 'complex' field, not '") +
           fieldName(info.field) + "'.");
  if (info.symmetry == Info::Symmetry::SkewSymmetric && info.field == Info::Field::Pattern)
    r.fail("A 'pattern' matrix cannot be skew-symmetric.");

  const bool coord = info.format == Info::Format::Coordinate;
  if (!r.nextData(line))
    r.fail(coord ? "The file ends before the size line 'rows columns entries'."
                 : "The file ends before the size line 'rows columns'.");
  const Tokens s(line);
  if (s.count != (coord ? 3 : 2))
    r.fail(coord ? "The size line must hold three numbers: rows columns entries."
                 : "The size line must hold two numbers: rows columns.");
  info.rows = r.count(s.tok[0], "row count");
  info.cols = r.count(s.tok[1], "column count");
  if (info.symmetry != Info::Symmetry::General && info.rows != info.cols)
    r.fail("A " + std::to_string(info.rows) + " x " + std::to_string(info.cols) +
           " matrix cannot be stored as symmetric; the symmetries need a square matrix.");
  size_t dense = 0;
  if (__builtin_mul_overflow(info.rows, info.cols, &dense) ||
      dense > static_cast<size_t>(PTRDIFF_MAX) / sizeof(dcomplex))
    r.fail("A " + std::to_string(info.rows) + " x " + std::to_string(info.cols) +
           " matrix is too large for a dense array.");
  if (coord) {
    info.entries = r.count(s.tok[2], "entry count");
  } else {
    const size_t n = info.rows;
    switch (info.symmetry) {
      case Info::Symmetry::General: info.entries = dense; break;
      case Info::Symmetry::Symmetric:
      case Info::Symmetry::Hermitian: info.entries = n * (n + 1) / 2; break;
      case Info::Symmetry::SkewSymmetric: info.entries = n == 0 ? 0 : n * (n - 1) / 2; break;
    }
  }
  return info;
}

template <class T>
T mirror(const T& v, Info::Symmetry s) {
  if (s == Info::Symmetry::SkewSymmetric) return -v;
  if constexpr (std::is_same_v<T, dcomplex>) {
    if (s == Info::Symmetry::Hermitian) return std::conj(v);
  }
  return v;
}

// Value of one entry from its value tokens (none for pattern).
template <class T>
T entryValue(const LineReader& r, const Info& info, const std::string_view* tok) {
  switch (info.field) {
    case Info::Field::Pattern: return T(1.0);
    case Info::Field::Integer: return T(r.integer(tok[0]));
    case Info::Field::Real: return T(r.real(tok[0]));
    case Info::Field::Complex:
      if constexpr (std::is_same_v<T, dcomplex>) return T(r.real(tok[0]), r.real(tok[1]));
      break;
  }
  return T();
}

std::string entryName(size_t i, size_t j) {
  return "(" + std::to_string(i) + ", " + std::to_string(j) + ")";
}

// "1 entry", "5 entries".
std::string plural(size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// Rules on the diagonal of the symmetric storages, checked as the value is
// read; i is 1-based.
template <class T>
void checkDiagonal(const LineReader& r, const Info& info, size_t i, const T& v) {
  if (info.symmetry == Info::Symmetry::SkewSymmetric && v != T(0.0))
    r.fail("Diagonal entry " + entryName(i, i) +
           " is not zero; a skew-symmetric matrix has a zero diagonal.");
  if constexpr (std::is_same_v<T, dcomplex>) {
    if (info.symmetry == Info::Symmetry::Hermitian && v.imag() != 0.0)
      r.fail("Diagonal entry " + entryName(i, i) +
             " has an imaginary part; a hermitian matrix has a real diagonal.");
  }
}

template <class T>
void readArrayValues(LineReader& r, const Info& info, Array<T, 2>& A) {
  const int width = info.isComplex() ? 2 : 1;
  const bool general = info.symmetry == Info::Symmetry::General;
  const bool skew = info.symmetry == Info::Symmetry::SkewSymmetric;
  const size_t sizeLine = r.line();
  size_t read = 0;
  std::string_view line;
  // Column by column; the symmetric storages hold rows j..n-1 (skew: j+1..n-1).
  for (size_t j = 0; j < info.cols; ++j) {
    const size_t first = general ? 0 : (skew ? j + 1 : j);
    for (size_t i = first; i < info.rows; ++i) {
      if (!r.nextData(line))
        r.failAt(std::max(r.line(), sizeLine),
                 "The file ends after " + std::to_string(read) + " of the " +
                     plural(info.entries, "value", "values") + " announced.");
      const Tokens t(line);
      if (t.count != width)
        r.fail(width == 1 ? "Expected one value on the line, found " + std::to_string(t.count) + "."
                          : "Expected two numbers (real and imaginary part), found " +
                                std::to_string(t.count) + ".");
      const T v = entryValue<T>(r, info, t.tok);
      if (i == j) checkDiagonal(r, info, i + 1, v);
      A(i, j) = v;
      if (i != j && !general) A(j, i) = mirror(v, info.symmetry);
      ++read;
    }
  }
}

template <class T>
void readCoordinateEntries(LineReader& r, const Info& info, Array<T, 2>& A) {
  const int width = info.field == Info::Field::Pattern ? 2 : info.isComplex() ? 4 : 3;
  const bool general = info.symmetry == Info::Symmetry::General;
  std::string_view line;
  for (size_t k = 0; k < info.entries; ++k) {
    if (!r.nextData(line))
      r.fail("The file ends after " + std::to_string(k) + " of the " +
             plural(info.entries, "entry", "entries") + " announced.");
    const Tokens t(line);
    if (t.count != width) {
      const char* shape = width == 2   ? "row column"
                          : width == 3 ? "row column value"
                                       : "row column real imaginary";
      r.fail("Expected an entry '" + std::string(shape) + "', found " +
             plural(static_cast<size_t>(t.count), "number", "numbers") + ".");
    }
    const size_t i = r.count(t.tok[0], "row index");
    const size_t j = r.count(t.tok[1], "column index");
    if (i < 1 || i > info.rows)
      r.fail("Row index " + std::to_string(i) + " is outside 1.." + std::to_string(info.rows) + ".");
    if (j < 1 || j > info.cols)
      r.fail("Column index " + std::to_string(j) + " is outside 1.." + std::to_string(info.cols) +
             ".");
    if (!general && i < j)
      r.fail("Entry " + entryName(i, j) +
             " lies above the diagonal; symmetric storage holds the lower triangle only.");
    const T v = entryValue<T>(r, info, t.tok + 2);
    if (i == j) checkDiagonal(r, info, i, v);
    A(i - 1, j - 1) += v;
    if (i != j && !general) A(j - 1, i - 1) += mirror(v, info.symmetry);
  }
}

template <class T>
Info readAny(std::istream& in, const std::string& name, Array<T, 2>& A) {
  LineReader r(in, name);
  const Info info = readHeader(r);
  if constexpr (std::is_same_v<T, double>) {
    if (info.isComplex())
      QV_RAISE(densemm, Complex_MatrixMarket_file_for_real_array,
               qvbase::DetailPairs{{"File", name},
                                   {"Line", "1"},
                                   {"",
                                    "The file holds a complex matrix; read it into a "
                                    "complex array."}});
  }
  // Read into a fresh array so that A is untouched when the file is bad.
  Array<T, 2> M(info.rows, info.cols);
  M.fill(T(0.0));
  if (info.format == Info::Format::Array) readArrayValues(r, info, M);
  else readCoordinateEntries(r, info, M);
  std::string_view line;
  if (r.nextData(line))
    r.fail("More data than the " +
           (info.format == Info::Format::Array ? plural(info.entries, "value", "values")
                                                : plural(info.entries, "entry", "entries")) +
           " announced.");
  A.swap(M);
  return info;
}

[[noreturn]] void openError(qvbase::ErrKey key, int line, const std::string& path,
                            const std::string& reason) {
  qvbase::raise(qvbase::ErrModule::densemm, line, key,
                qvbase::DetailPairs{{"File", path}, {"Reason", reason}});
}

std::ifstream openForReading(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec))
    openError(qvbase::ErrKey::Cannot_open_file, __LINE__, path, "Is a directory");
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in)
    openError(qvbase::ErrKey::Cannot_open_file, __LINE__, path,
              errno ? std::strerror(errno) : "cannot be opened");
  return in;
}

template <class T>
Info readPath(const std::string& path, Array<T, 2>& A) {
  std::ifstream in = openForReading(path);
  return readAny(in, path, A);
}

// Appends v in shortest round-trip form, independent of the locale.
void appendNumber(std::string& out, double v) {
  char buf[32];
  const auto res = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, res.ptr);
}

template <class T>
void writeAny(std::ostream& out, const std::string& name, const Array<T, 2>& A,
              const std::string& comment) {
  constexpr bool cplx = std::is_same_v<T, dcomplex>;
  std::string text = cplx ? "%%MatrixMarket matrix array complex general\n"
                          : "%%MatrixMarket matrix array real general\n";
  size_t pos = 0;
  while (pos < comment.size()) {
    size_t end = comment.find('\n', pos);
    if (end == std::string::npos) end = comment.size();
    text += "% ";
    text.append(comment, pos, end - pos);
    text += '\n';
    pos = end + 1;
  }
  text += std::to_string(A.sizes[0]) + " " + std::to_string(A.sizes[1]) + "\n";
  // Column-major storage is exactly the array format's order.
  for (size_t k = 0; k < A.count; ++k) {
    if constexpr (cplx) {
      appendNumber(text, A.data[k].real());
      text += ' ';
      appendNumber(text, A.data[k].imag());
    } else {
      appendNumber(text, A.data[k]);
    }
    text += '\n';
    if (text.size() >= (1u << 16)) {
      out.write(text.data(), static_cast<std::streamsize>(text.size()));
      text.clear();
    }
  }
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  out.flush();
  if (!out) openError(qvbase::ErrKey::Cannot_write_file, __LINE__, name, "write failed");
}

template <class T>
void writePath(const std::string& path, const Array<T, 2>& A, const std::string& comment) {
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out)
    openError(qvbase::ErrKey::Cannot_write_file, __LINE__, path,
              errno ? std::strerror(errno) : "cannot be opened");
  writeAny(out, path, A, comment);
  out.close();
  if (!out) openError(qvbase::ErrKey::Cannot_write_file, __LINE__, path, "write failed");
}

}  // namespace

MatrixMarketInfo readMatrixMarketInfo(const std::string& path) {
  std::ifstream in = openForReading(path);
  LineReader r(in, path);
  return readHeader(r);
}

MatrixMarketInfo readMatrixMarket(const std::string& path, Array<double, 2>& A) {
  return readPath(path, A);
}
MatrixMarketInfo readMatrixMarket(const std::string& path, Array<dcomplex, 2>& A) {
  return readPath(path, A);
}
MatrixMarketInfo readMatrixMarket(std::istream& in, const std::string& name, Array<double, 2>& A) {
  return readAny(in, name, A);
}
MatrixMarketInfo readMatrixMarket(std::istream& in, const std::string& name,
                                  Array<dcomplex, 2>& A) {
  return readAny(in, name, A);
}

void writeMatrixMarket(const std::string& path, const Array<double, 2>& A,
                       const std::string& comment) {
  writePath(path, A, comment);
}
void writeMatrixMarket(const std::string& path, const Array<dcomplex, 2>& A,
                       const std::string& comment) {
  writePath(path, A, comment);
}
void writeMatrixMarket(std::ostream& out, const Array<double, 2>& A, const std::string& comment) {
  writeAny(out, "(stream)", A, comment);
}
void writeMatrixMarket(std::ostream& out, const Array<dcomplex, 2>& A,
                       const std::string& comment) {
  writeAny(out, "(stream)", A, comment);
}

}  // namespace qvarray
