#include "mmtriplets.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "qvutil/numeric.h"

namespace qvtool {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
  return s;
}

[[noreturn]] void bad(const std::string& path, size_t line, const std::string& what) {
  throw std::runtime_error(path + ":" + std::to_string(line) + ": " + what);
}

}  // namespace

Triplets readTriplets(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error(path + ": cannot open the file");
  std::string line;
  size_t lineNo = 1;
  if (!std::getline(in, line)) bad(path, lineNo, "empty file");
  std::istringstream header(line);
  std::string banner, object, format, field, symmetry;
  header >> banner >> object >> format >> field >> symmetry;
  if (banner != "%%MatrixMarket" || lower(object) != "matrix")
    bad(path, lineNo, "not a MatrixMarket matrix file");
  if (lower(format) != "coordinate")
    bad(path, lineNo, "only the coordinate format holds a sparse matrix");
  field = lower(field);
  symmetry = lower(symmetry);
  if (field != "real" && field != "integer" && field != "complex" && field != "pattern")
    bad(path, lineNo, "unknown field '" + field + "'");
  if (symmetry != "general" && symmetry != "symmetric" && symmetry != "skew-symmetric" &&
      symmetry != "hermitian")
    bad(path, lineNo, "unknown symmetry '" + symmetry + "'");

  Triplets t;
  t.complex = field == "complex";
  size_t entries = 0;
  bool sized = false;
  size_t read = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    const auto p = line.find_first_not_of(" \t\r");
    if (p == std::string::npos || line[p] == '%') continue;
    std::istringstream fields(line);
    if (!sized) {
      if (!(fields >> t.rows >> t.cols >> entries)) bad(path, lineNo, "bad size line");
      if (t.rows > static_cast<size_t>(std::numeric_limits<int>::max()) ||
          t.cols > static_cast<size_t>(std::numeric_limits<int>::max()))
        bad(path, lineNo, "matrix too large");
      sized = true;
      t.row.reserve(entries);
      t.col.reserve(entries);
      t.value.reserve(entries);
      continue;
    }
    long i = 0, j = 0;
    std::string re, im;
    if (!(fields >> i >> j)) bad(path, lineNo, "bad entry");
    if (field != "pattern" && !(fields >> re)) bad(path, lineNo, "missing value");
    if (t.complex && !(fields >> im)) bad(path, lineNo, "missing imaginary part");
    if (i < 1 || j < 1 || static_cast<size_t>(i) > t.rows || static_cast<size_t>(j) > t.cols)
      bad(path, lineNo, "index outside the matrix");
    std::complex<double> v = 1.0;
    try {
      if (field != "pattern") v = {qvutil::parseDouble(re), t.complex ? qvutil::parseDouble(im) : 0.0};
    } catch (const std::exception&) {
      bad(path, lineNo, "bad number");
    }
    const int r = static_cast<int>(i - 1), c = static_cast<int>(j - 1);
    t.row.push_back(r);
    t.col.push_back(c);
    t.value.push_back(v);
    if (r != c && symmetry != "general") {
      t.row.push_back(c);
      t.col.push_back(r);
      t.value.push_back(symmetry == "symmetric" ? v : symmetry == "hermitian" ? std::conj(v) : -v);
    }
    ++read;
  }
  if (!sized) bad(path, lineNo, "no size line");
  if (read != entries)
    bad(path, lineNo, "expected " + std::to_string(entries) + " entries, found " + std::to_string(read));
  return t;
}

}  // namespace qvtool
