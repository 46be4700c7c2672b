#pragma once
// The one MatrixMarket reader: the header and size line (readHeader), then
// every stored value in file order (readEntries), checked against the rules of
// io/matrixmarket.h. What becomes of the values is the caller's business: the
// dense reader writes them into an array, the sparse reader into triplets.
#include <complex>
#include <cstddef>
#include <string>

#include "io/mmscanner.h"
#include "qvarray/io/matrixmarket.h"

namespace qvarray::mmio {

using dcomplex = std::complex<double>;
using Info = MatrixMarketInfo;

/// Reads the header line and the size line; leaves the scanner on the size
/// line. Sizes beyond kMaxDimension are refused here.
Info readHeader(Scanner& sc);

/// The keyword of a field or a symmetry as the header spells it.
const char* fieldName(Info::Field f);
const char* symmetryName(Info::Symmetry s);

/// The value a symmetric storage implies at (j, i) for the value v stored at
/// (i, j): v, −v (skew-symmetric) or conj(v) (hermitian).
inline dcomplex mirrored(const dcomplex& v, Info::Symmetry s) {
  if (s == Info::Symmetry::SkewSymmetric) return -v;
  if (s == Info::Symmetry::Hermitian) return std::conj(v);
  return v;
}

// "1 entry", "5 entries".
std::string plural(size_t n, const char* one, const char* many);
// "(i, j)".
std::string entryName(size_t i, size_t j);

/// Reads the values after the size line and hands each to sink(i, j, v): 0-based
/// position as stored (symmetric storages are not mirrored here), v the value
/// (imaginary part 0 for real fields, 1 for pattern). Raises at the first
/// fault, and when data follows the last value announced.
template <class Sink>
void readEntries(Scanner& sc, const Info& info, Sink&& sink) {
  const bool complexField = info.isComplex();
  const bool pattern = info.field == Info::Field::Pattern;
  const bool integer = info.field == Info::Field::Integer;
  const bool skew = info.symmetry == Info::Symmetry::SkewSymmetric;
  const bool hermitian = info.symmetry == Info::Symmetry::Hermitian;
  auto value = [&](const std::string_view* tok) {
    if (pattern) return dcomplex(1.0, 0.0);
    const double re = integer ? sc.integer(tok[0]) : sc.real(tok[0]);
    return dcomplex(re, complexField ? sc.real(tok[1]) : 0.0);
  };
  // The diagonal of a skew-symmetric matrix is zero, that of a hermitian one
  // real; i is 1-based.
  auto checkDiagonal = [&](size_t i, const dcomplex& v) {
    if (skew && v != 0.0)
      sc.fail("Diagonal entry " + entryName(i, i) +
              " is not zero; a skew-symmetric matrix has a zero diagonal.");
    if (hermitian && v.imag() != 0.0)
      sc.fail("Diagonal entry " + entryName(i, i) +
              " has an imaginary part; a hermitian matrix has a real diagonal.");
  };

  std::string_view line;
  if (info.format == Info::Format::Array) {
    const int width = complexField ? 2 : 1;
    const bool general = info.symmetry == Info::Symmetry::General;
    size_t read = 0;
    // Column by column; the symmetric storages hold rows j..n-1 (skew: j+1..n-1).
    // (No values, no columns to walk: a 0 x 2^40 matrix is read at once.)
    for (size_t j = 0; j < info.cols && read < info.entries; ++j) {
      for (size_t i = general ? 0 : (skew ? j + 1 : j); i < info.rows; ++i) {
        if (!sc.nextDataLine(line))
          sc.fail("The file ends after " + std::to_string(read) + " of the " +
                  plural(info.entries, "value", "values") + " announced.");
        const Tokens t(line);
        if (t.count != width)
          sc.fail(width == 1 ? "Expected one value on the line, found " +
                                   std::to_string(t.count) + "."
                             : "Expected two numbers (real and imaginary part), found " +
                                   std::to_string(t.count) + ".");
        const dcomplex v = value(t.tok);
        if (i == j) checkDiagonal(i + 1, v);
        sink(i, j, v);
        ++read;
      }
    }
  } else {
    const int width = pattern ? 2 : complexField ? 4 : 3;
    for (size_t k = 0; k < info.entries; ++k) {
      if (!sc.nextDataLine(line))
        sc.fail("The file ends after " + std::to_string(k) + " of the " +
                plural(info.entries, "entry", "entries") + " announced.");
      const Tokens t(line);
      if (t.count != width) {
        const char* shape = width == 2   ? "row column"
                            : width == 3 ? "row column value"
                                         : "row column real imaginary";
        sc.fail("Expected an entry '" + std::string(shape) + "', found " +
                plural(static_cast<size_t>(t.count), "number", "numbers") + ".");
      }
      const size_t i = sc.count(t.tok[0], "row index");
      const size_t j = sc.count(t.tok[1], "column index");
      if (i < 1 || i > info.rows)
        sc.fail("Row index " + std::to_string(i) + " is outside 1.." + std::to_string(info.rows) +
                ".");
      if (j < 1 || j > info.cols)
        sc.fail("Column index " + std::to_string(j) + " is outside 1.." +
                std::to_string(info.cols) + ".");
      const dcomplex v = value(t.tok + 2);
      if (i == j) checkDiagonal(i, v);
      sink(i - 1, j - 1, v);
    }
  }
  if (sc.nextDataLine(line))
    sc.fail("More data than the " +
            (info.format == Info::Format::Array ? plural(info.entries, "value", "values")
                                                : plural(info.entries, "entry", "entries")) +
            " announced.");
}

}  // namespace qvarray::mmio
