// Reading MatrixMarket coordinate files into triplets and matrices.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <sstream>

#include "qvarray/matrixmarket.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string lower(std::string_view s) {
  std::string t(s);
  for (char& c : t) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return t;
}

// Walks the text line by line and the current line token by token; every
// fault is reported with the file name and the line number.
class Scanner {
 public:
  Scanner(std::string_view text, const std::string& name) : text_(text), name_(name) {}

  /// Moves to the next line; false at the end of the text.
  bool nextLine() {
    if (next_ >= text_.size()) return false;
    size_t end = text_.find('\n', next_);
    if (end == std::string_view::npos) end = text_.size();
    cur_ = text_.data() + next_;
    end_ = text_.data() + end;
    next_ = end + 1;
    ++lineNo_;
    return true;
  }

  /// True when the current line holds nothing but blanks.
  bool lineIsBlank() {
    skipBlanks();
    return cur_ == end_;
  }
  bool lineIsComment() {
    skipBlanks();
    return cur_ != end_ && *cur_ == '%';
  }
  std::string_view rawLine() const { return {cur_, static_cast<size_t>(end_ - cur_)}; }

  std::string_view token() {
    skipBlanks();
    const char* b = cur_;
    while (cur_ != end_ && !isBlank(*cur_)) ++cur_;
    return {b, static_cast<size_t>(cur_ - b)};
  }

  size_t index(const char* what) {
    const std::string_view t = token();
    size_t v = 0;
    const auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    if (t.empty() || ec != std::errc() || p != t.data() + t.size())
      fail(std::string("Invalid ") + what + " '" + std::string(t) + "'.");
    return v;
  }

  double real(bool integer) {
    std::string_view t = token();
    if (t.size() > 1 && t[0] == '+' && t[1] != '-' && t[1] != '+') t.remove_prefix(1);
    const char* b = t.data();
    const char* e = b + t.size();
    if (integer) {
      long long v = 0;
      const auto [p, ec] = std::from_chars(b, e, v);
      if (t.empty() || ec != std::errc() || p != e)
        fail("Invalid integer value '" + std::string(t) + "'.");
      return static_cast<double>(v);
    }
    double v = 0;
    const auto [p, ec] = std::from_chars(b, e, v);
    if (t.empty() || p != e || (ec != std::errc() && ec != std::errc::result_out_of_range))
      fail("Invalid value '" + std::string(t) + "'.");
    if (ec == std::errc::result_out_of_range) {
      // Too small to represent reads as a signed zero; too large is an error.
      const size_t x = t.find_first_of("eE");
      if (x == std::string_view::npos || x + 1 >= t.size() || t[x + 1] != '-')
        fail("Value out of range '" + std::string(t) + "'.");
      v = t[0] == '-' ? -0.0 : 0.0;
    }
    return v;
  }

  void expectLineEnd() {
    if (!lineIsBlank()) fail("Unexpected text '" + std::string(rawLine()) + "'.");
  }

  [[noreturn]] void fail(const std::string& sentence) const {
    QV_RAISE(
        matrixmarket, Invalid_MatrixMarket_file,
        qvbase::DetailPairs{{"", sentence}, {"File", name_}, {"Line", std::to_string(lineNo_)}});
  }

  size_t textSize() const { return text_.size(); }

 private:
  void skipBlanks() {
    while (cur_ != end_ && isBlank(*cur_)) ++cur_;
  }

  std::string_view text_;
  const std::string& name_;
  size_t next_ = 0;
  const char* cur_ = nullptr;
  const char* end_ = nullptr;
  size_t lineNo_ = 0;
};

// Moves to the next line that is neither blank nor a comment.
bool nextDataLine(Scanner& sc) {
  while (sc.nextLine())
    if (!sc.lineIsBlank() && !sc.lineIsComment()) return true;
  return false;
}

}  // namespace

MatrixMarketTriplets parseMatrixMarket(std::string_view text, const std::string& name,
                                       bool keepSymmetric) {
  Scanner sc(text, name);
  MatrixMarketTriplets t;

  // Banner: %%MatrixMarket matrix coordinate <field> <symmetry>
  if (!sc.nextLine() || lower(sc.token()) != "%%matrixmarket") sc.fail("Missing %%MatrixMarket banner.");
  const std::string object = lower(sc.token());
  const std::string format = lower(sc.token());
  t.field = lower(sc.token());
  t.symmetry = lower(sc.token());
  sc.expectLineEnd();
  if (object != "matrix") sc.fail("Unsupported object '" + object + "'.");
  if (format != "coordinate") sc.fail("Unsupported format '" + format + "'; only coordinate is read.");
  if (t.field != "real" && t.field != "integer" && t.field != "complex" && t.field != "pattern")
    sc.fail("Unsupported field '" + t.field + "'.");
  if (t.symmetry != "general" && t.symmetry != "symmetric" && t.symmetry != "skew-symmetric" &&
      t.symmetry != "hermitian")
    sc.fail("Unsupported symmetry '" + t.symmetry + "'.");
  if (t.field == "pattern" && (t.symmetry == "skew-symmetric" || t.symmetry == "hermitian"))
    sc.fail("A pattern file cannot be " + t.symmetry + ".");

  // Size line.
  if (!nextDataLine(sc)) sc.fail("Missing size line.");
  t.m = sc.index("row count");
  t.n = sc.index("column count");
  const size_t nnz = sc.index("entry count");
  sc.expectLineEnd();

  const bool isPattern = t.field == "pattern";
  const bool isInteger = t.field == "integer";
  t.isComplex = t.field == "complex";
  const bool general = t.symmetry == "general";
  const bool skew = t.symmetry == "skew-symmetric";
  const bool hermitian = t.symmetry == "hermitian" && t.isComplex;
  // Symmetric storage keeps the lower triangle with half the diagonal.
  const bool keep = keepSymmetric && !general && !skew;
  if (keep) t.symm = hermitian ? SymmHermitian : SymmSymmetric;
  const bool oneValue = isPattern && !keep;  // one value 1 serves every entry

  // Reserve no more than the text can hold (each entry needs 4 characters).
  const size_t expect = std::min(nnz, sc.textSize() / 4 + 1) * (general || keep ? 1 : 2);
  t.rows.reserve(expect);
  t.cols.reserve(expect);
  if (t.isComplex)
    t.complexValues.reserve(expect);
  else if (!oneValue)
    t.realValues.reserve(expect);
  if (oneValue) t.realValues.assign(1, 1.0);

  auto push = [&](size_t i, size_t j, dcomplex v) {
    t.rows.push_back(i);
    t.cols.push_back(j);
    if (t.isComplex)
      t.complexValues.push_back(v);
    else if (!oneValue)
      t.realValues.push_back(v.real());
  };

  for (size_t k = 0; k < nnz; ++k) {
    if (!nextDataLine(sc))
      sc.fail("The file ends after " + std::to_string(k) + " of " + std::to_string(nnz) +
              " entries.");
    const size_t i = sc.index("row index");
    const size_t j = sc.index("column index");
    if (i < 1 || i > t.m) sc.fail("Row index " + std::to_string(i) + " out of range.");
    if (j < 1 || j > t.n) sc.fail("Column index " + std::to_string(j) + " out of range.");
    dcomplex v(1.0, 0.0);
    if (!isPattern) {
      const double re = sc.real(isInteger);
      const double im = t.isComplex ? sc.real(false) : 0.0;
      v = dcomplex(re, im);
    }
    sc.expectLineEnd();
    const size_t r = i - 1, c = j - 1;
    if (general) {
      push(r, c, v);
    } else if (r == c) {
      if (skew) sc.fail("Diagonal entry in a skew-symmetric file.");
      if (hermitian && v.imag() != 0) sc.fail("Non-real diagonal entry in a Hermitian file.");
      push(r, c, keep ? v * 0.5 : v);
    } else if (keep) {
      // The stored triangle becomes the lower one.
      if (r > c)
        push(r, c, v);
      else
        push(c, r, hermitian ? std::conj(v) : v);
    } else {
      push(r, c, v);
      push(c, r, skew ? -v : hermitian ? std::conj(v) : v);
    }
  }
  if (nextDataLine(sc)) sc.fail("More entries than the size line announces.");
  return t;
}

void MatrixMarketTriplets::assemble(Sparse& A) const {
  if (isComplex)
    A.vectorTripletToSparse(rows, cols, complexValues, m, n);
  else
    A.vectorTripletToSparse(rows, cols, realValues, m, n);
  if (symm != SymmNone) A.setSymm(symm);
}

MatrixMarketTriplets readMatrixMarketTriplets(const std::string& path, bool keepSymmetric) {
  std::ifstream in(path, std::ios::binary);
  if (!in) QV_RAISE(matrixmarket, Cannot_open_file, qvbase::DetailPairs{{"File", path}});
  std::string text;
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  in.seekg(0, std::ios::beg);
  if (size > 0) {
    text.resize(static_cast<size_t>(size));
    in.read(text.data(), size);
  }
  if (!in) QV_RAISE(matrixmarket, Cannot_open_file, qvbase::DetailPairs{{"File", path}});
  return parseMatrixMarket(text, path, keepSymmetric);
}

Sparse readMatrixMarket(const std::string& path, bool keepSymmetric) {
  const MatrixMarketTriplets t = readMatrixMarketTriplets(path, keepSymmetric);
  Sparse A;
  t.assemble(A);
  return A;
}

}  // namespace qvarray
