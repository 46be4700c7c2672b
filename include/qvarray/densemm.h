#pragma once
// Dense MatrixMarket files: reading a matrix into Array<double,2> or
// Array<std::complex<double>,2>, and writing one in array format.
//
// Reading accepts both formats of the MatrixMarket exchange format:
// - "array": the values column by column, one entry per line; for symmetric,
//   skew-symmetric and hermitian matrices only the lower triangle (skew:
//   strictly lower) column by column.
// - "coordinate": a size line "rows columns entries" followed by entries
//   "i j value" with 1-based indices. Positions not listed are zero;
//   repeated positions are summed. Symmetric storage lists only the lower
//   triangle (entries above the diagonal are an error), skew-symmetric only
//   the strictly lower one.
// Fields "real", "integer" and "pattern" (coordinate only, value 1) read as
// real numbers, "complex" as two numbers per entry. Symmetric storage is
// expanded to the full matrix: A(j,i) = A(i,j) (symmetric), −A(i,j)
// (skew-symmetric) or conj(A(i,j)) (hermitian, whose diagonal must be real).
// Keywords of the header are case-insensitive; blank lines and lines starting
// with '%' are skipped everywhere after the header. Numbers are read and
// written independently of the process's locale.
//
// Errors are qvbase::Exception of module "densemm", each naming the file
// through the detail ("File", path):
// - "Cannot_open_file" / "Cannot_write_file": the file cannot be opened or
//   written; details ("File", path) and ("Reason", the system's reason).
// - "Cannot_read_file": reading failed midway; ("File", path), ("Line", n).
// - "Invalid_MatrixMarket_file": the text breaks the format; details
//   ("File", path), ("Line", n) with n the 1-based line at fault, and a
//   sentence saying what is wrong, e.g. "Row index 7 is outside 1..5.".
// - "Complex_MatrixMarket_file_for_real_array": a complex file was read into
//   a real array; details ("File", path), ("Line", 1) and a sentence.
// Nothing is changed in the destination array when reading fails.
#include <complex>
#include <cstddef>
#include <iosfwd>
#include <string>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

/// What the header and size line of a MatrixMarket file declare.
struct MatrixMarketInfo {
  enum class Format { Array, Coordinate };
  enum class Field { Real, Integer, Complex, Pattern };
  enum class Symmetry { General, Symmetric, SkewSymmetric, Hermitian };

  Format format = Format::Array;
  Field field = Field::Real;
  Symmetry symmetry = Symmetry::General;
  size_t rows = 0;
  size_t cols = 0;
  /// Entries stored in the file: the size line's count (coordinate) or the
  /// number of values the array format holds for this symmetry.
  size_t entries = 0;

  bool isComplex() const { return field == Field::Complex; }
};

/// Reads only the header and the size line of the file at `path`.
QVARRAY_API MatrixMarketInfo readMatrixMarketInfo(const std::string& path);

/// Reads the matrix in the file at `path` into A (resized to its shape).
/// The real form refuses complex files; the complex form takes every field.
QVARRAY_API MatrixMarketInfo readMatrixMarket(const std::string& path, Array<double, 2>& A);
QVARRAY_API MatrixMarketInfo readMatrixMarket(const std::string& path,
                                              Array<std::complex<double>, 2>& A);

/// As above, reading from a stream; `name` stands for the file in errors.
QVARRAY_API MatrixMarketInfo readMatrixMarket(std::istream& in, const std::string& name,
                                              Array<double, 2>& A);
QVARRAY_API MatrixMarketInfo readMatrixMarket(std::istream& in, const std::string& name,
                                              Array<std::complex<double>, 2>& A);

/// Writes A as a general matrix in array format, values in shortest
/// round-trip form (reading the file back gives A bit for bit). Each line of
/// `comment` becomes a '%' comment line after the header.
QVARRAY_API void writeMatrixMarket(const std::string& path, const Array<double, 2>& A,
                                   const std::string& comment = std::string());
QVARRAY_API void writeMatrixMarket(const std::string& path,
                                   const Array<std::complex<double>, 2>& A,
                                   const std::string& comment = std::string());
QVARRAY_API void writeMatrixMarket(std::ostream& out, const Array<double, 2>& A,
                                   const std::string& comment = std::string());
QVARRAY_API void writeMatrixMarket(std::ostream& out, const Array<std::complex<double>, 2>& A,
                                   const std::string& comment = std::string());

}  // namespace qvarray
