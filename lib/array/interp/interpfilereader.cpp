// InterpFileReader: the two formats of interpolation data files (see
// interpfilereader.h). The whole file is read into memory and walked once,
// line by line; numbers go through the library's one parser.
#include "qvarray/interp/interpfilereader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numeric>

#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

using qvbase::DetailPairs;

namespace {

bool isSeparator(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == ',' || c == ';' || c == '\f' || c == '\v';
}

std::string quoted(std::string_view tok) {
  return "'" + std::string(tok.substr(0, 40)) + (tok.size() > 40 ? "...'" : "'");
}

// The lines of a text, their numbers, and the errors that name them.
class Lines {
 public:
  Lines(std::string_view text, const std::string& name) : text_(text), name_(name) {}

  /// Moves to the next line; false after the last.
  bool next() {
    if (pos_ >= text_.size()) return false;
    const size_t end = std::min(text_.find('\n', pos_), text_.size());
    line_ = text_.substr(pos_, end - pos_);
    pos_ = end + 1;
    ++number_;
    return true;
  }
  size_t number() const { return number_; }

  /// The line is the comment "% <word>", any case, blanks around.
  bool isMarker(std::string_view word) const {
    std::string_view s = line_;
    auto trim = [&] {
      while (!s.empty() && isSeparator(s.front())) s.remove_prefix(1);
      while (!s.empty() && isSeparator(s.back())) s.remove_suffix(1);
    };
    trim();
    if (s.empty() || s.front() != '%') return false;
    s.remove_prefix(1);
    trim();
    return s.size() == word.size() &&
           std::equal(s.begin(), s.end(), word.begin(), [](char a, char b) {
             return std::tolower(static_cast<unsigned char>(a)) == b;
           });
  }

  /// Appends the numbers of the line (before any '%') to `out`; returns how
  /// many there were.
  size_t numbers(std::vector<double>& out) const {
    std::string_view s = line_.substr(0, line_.find('%'));
    size_t count = 0;
    while (true) {
      while (!s.empty() && isSeparator(s.front())) s.remove_prefix(1);
      if (s.empty()) return count;
      size_t len = 0;
      while (len < s.size() && !isSeparator(s[len])) ++len;
      const std::string_view tok = s.substr(0, len);
      s.remove_prefix(len);
      double v = 0;
      const qvutil::NumberScan scan = qvutil::scanDouble(tok, v);
      if (scan == qvutil::NumberScan::Invalid) fail(quoted(tok) + " is not a number.");
      if (scan == qvutil::NumberScan::OutOfRange) fail("The number " + quoted(tok) + " is out of range.");
      if (!std::isfinite(v)) fail("The number " + quoted(tok) + " is not finite.");
      out.push_back(v);
      ++count;
    }
  }

  [[noreturn]] void fail(const std::string& sentence) const { failAt(number_, sentence); }
  [[noreturn]] void failAt(size_t line, const std::string& sentence) const {
    QV_RAISE(interputil, Invalid_interpolation_file,
             DetailPairs{{"", sentence}, {"File", name_}, {"Line", std::to_string(line)}});
  }

 private:
  std::string_view text_, line_;
  const std::string& name_;
  size_t pos_ = 0, number_ = 0;
};

std::string count(size_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// Whether the text opens with "% Grid" before its first data line.
bool isGridFile(std::string_view text, const std::string& name) {
  Lines lines(text, name);
  std::vector<double> scratch;
  while (lines.next()) {
    if (lines.isMarker("grid")) return true;
    if (lines.numbers(scratch)) return false;
  }
  return false;
}

// Spreadsheet format: rows of D coordinates and F values.
InterpData readColumns(std::string_view text, const std::string& name, int dim) {
  Lines lines(text, name);
  std::vector<double> nums;
  std::vector<size_t> lineOf;
  size_t cols = 0;
  while (lines.next()) {
    const size_t k = lines.numbers(nums);
    if (k == 0) continue;
    if (cols == 0) {
      cols = k;
      const size_t D = dim ? static_cast<size_t>(dim) : cols - 1;
      if (cols < 2 || cols <= D)
        lines.fail("A data line holds " + count(D, "coordinate", "coordinates") +
                   " and at least one value; found " + count(cols, "number.", "numbers."));
      if (D > 3)
        lines.fail("A data line holds 1 to 3 coordinates; found " + count(cols, "number", "numbers") +
                   " (give the number of coordinates).");
    } else if (k != cols) {
      lines.fail("Expected " + count(cols, "number", "numbers") + " on the line, as on line " +
                 std::to_string(lineOf.front()) + "; found " + std::to_string(k) + ".");
    }
    lineOf.push_back(lines.number());
  }
  if (lineOf.empty()) lines.failAt(std::max<size_t>(lines.number(), 1), "The file holds no data.");
  const size_t rows = lineOf.size(), D = dim ? static_cast<size_t>(dim) : cols - 1, F = cols - D;
  auto coord = [&](size_t r, size_t d) { return nums[r * cols + d]; };

  // Repeated points, found next to each other in lexicographic order.
  std::vector<size_t> order(rows);
  std::iota(order.begin(), order.end(), size_t{0});
  auto less = [&](size_t a, size_t b) {
    for (size_t d = 0; d < D; ++d)
      if (coord(a, d) != coord(b, d)) return coord(a, d) < coord(b, d);
    return false;
  };
  std::sort(order.begin(), order.end(), less);
  for (size_t k = 1; k < rows; ++k)
    if (!less(order[k - 1], order[k])) {
      const size_t a = std::min(order[k - 1], order[k]), b = std::max(order[k - 1], order[k]);
      lines.failAt(lineOf[b], "The point repeats the point of line " + std::to_string(lineOf[a]) + ".");
    }

  InterpData data;
  data.dim = static_cast<int>(D);
  data.values.resize(rows, F);
  // The distinct values of each coordinate; with distinct points, their
  // product equals the rows exactly when every combination is present.
  size_t product = 1;
  for (size_t d = 0; d < D; ++d) {
    std::vector<double> axis(rows);
    for (size_t r = 0; r < rows; ++r) axis[r] = coord(r, d);
    std::sort(axis.begin(), axis.end());
    axis.erase(std::unique(axis.begin(), axis.end()), axis.end());
    if (__builtin_mul_overflow(product, axis.size(), &product)) product = 0;
    data.axes.push_back(std::move(axis));
  }
  data.grid = product == rows;
  if (data.grid) {
    for (size_t r = 0; r < rows; ++r) {
      size_t node = 0, stride = 1;
      for (size_t d = 0; d < D; ++d) {
        const std::vector<double>& a = data.axes[d];
        node += static_cast<size_t>(std::lower_bound(a.begin(), a.end(), coord(r, d)) - a.begin()) * stride;
        stride *= a.size();
      }
      for (size_t f = 0; f < F; ++f) data.values(node, f) = nums[r * cols + D + f];
    }
    return data;
  }
  data.axes.clear();
  data.points.resize(rows, D);
  for (size_t r = 0; r < rows; ++r) {
    for (size_t d = 0; d < D; ++d) data.points(r, d) = coord(r, d);
    for (size_t f = 0; f < F; ++f) data.values(r, f) = nums[r * cols + D + f];
  }
  return data;
}

// Grid format: "% Grid", the axes, then "% Data" sections.
InterpData readGrid(std::string_view text, const std::string& name, int dim) {
  Lines lines(text, name);
  enum { Before, Axes, Values } part = Before;
  InterpData data;
  data.grid = true;
  std::vector<std::vector<double>> functions;
  size_t nodes = 1, gridLine = 0;
  std::vector<double> nums;
  while (lines.next()) {
    if (lines.isMarker("grid")) {
      if (part != Before) lines.fail("A second '% Grid' line.");
      part = Axes, gridLine = lines.number();
      continue;
    }
    if (lines.isMarker("data")) {
      if (data.axes.empty()) lines.fail("'% Data' before any grid line.");
      if (part == Axes && dim && data.axes.size() != static_cast<size_t>(dim))
        lines.failAt(gridLine, "The grid has " + count(data.axes.size(), "axis", "axes") +
                                   "; expected " + std::to_string(dim) + ".");
      part = Values;
      functions.emplace_back();
      continue;
    }
    nums.clear();
    if (!lines.numbers(nums)) continue;
    if (part == Axes) {
      if (data.axes.size() == 3) lines.fail("A grid has at most 3 axes.");
      if (nums.size() < 2) lines.fail("A grid axis needs at least 2 coordinates.");
      for (size_t i = 1; i < nums.size(); ++i)
        if (!(nums[i] > nums[i - 1]))
          lines.fail("Grid coordinates must be strictly increasing (coordinate " +
                     std::to_string(i + 1) + ").");
      if (__builtin_mul_overflow(nodes, nums.size(), &nodes)) lines.fail("The grid has too many nodes.");
      data.axes.push_back(nums);
    } else {
      std::vector<double>& f = functions.back();
      if (f.size() + nums.size() > nodes)
        lines.fail("More values than the " + count(nodes, "grid node", "grid nodes") + ".");
      f.insert(f.end(), nums.begin(), nums.end());
    }
  }
  const size_t last = std::max<size_t>(lines.number(), 1);
  if (functions.empty()) lines.failAt(last, "The file has no '% Data' section.");
  for (size_t k = 0; k < functions.size(); ++k)
    if (functions[k].size() != nodes)
      lines.failAt(last, "Function " + std::to_string(k + 1) + " has " + std::to_string(functions[k].size()) +
                             " of the " + count(nodes, "value", "values") + " of the grid.");
  data.dim = static_cast<int>(data.axes.size());
  data.values.resize(nodes, functions.size());
  for (size_t k = 0; k < functions.size(); ++k)
    std::copy(functions[k].begin(), functions[k].end(), data.values.data + k * nodes);
  return data;
}

}  // namespace

Interpolator InterpData::interpolator(InterpMethod method, InterpExtrapolation extrapolation) const {
  if (grid) return Interpolator::onGrid(axes, values, method, extrapolation);
  return Interpolator::scattered(points, values, method, extrapolation);
}

InterpFileReader::InterpFileReader(int dim) : dim_(dim) {
  QV_CHECK(dim >= 0 && dim <= 3, interputil, Invalid_interpolation_argument,
           DetailPairs{{"Dimension", std::to_string(dim)}});
}

InterpData InterpFileReader::parse(std::string_view text, const std::string& name) const {
  return isGridFile(text, name) ? readGrid(text, name, dim_) : readColumns(text, name, dim_);
}

InterpData InterpFileReader::read(const std::string& path) const {
  std::ifstream in(path, std::ios::binary);
  QV_CHECK(in, interputil, Cannot_open_file,
           DetailPairs{{"File", path}, {"Reason", std::strerror(errno)}});
  std::string text;
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  in.seekg(0, std::ios::beg);
  if (size > 0) {
    text.resize(static_cast<size_t>(size));
    in.read(text.data(), size);
  }
  QV_CHECK(size >= 0 && (size == 0 || in.gcount() == size), interputil, Cannot_read_file,
           DetailPairs{{"File", path}});
  return parse(text, path);
}

}  // namespace qvarray
