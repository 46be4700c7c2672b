#pragma once
// MatrixMarket files: what every reader of the library accepts, the header
// description that dense and sparse reading share, and the allocation failure
// that names the place in the file. The dense entry points are in
// io/densemm.h, the sparse ones in io/sparsemm.h; both read through one
// scanner and write through one writer.
//
// The format. A header line "%%MatrixMarket matrix <format> <field>
// <symmetry>" (keywords in any case), then a size line, then the values;
// blank lines and lines starting with '%' are skipped after the header, lines
// may end in CR LF.
// - Format "array": size line "rows columns", then the values column by
//   column, one a line; symmetric and hermitian matrices store the lower
//   triangle (skew-symmetric: the strictly lower one) column by column.
// - Format "coordinate": size line "rows columns entries", then entries
//   "i j value" with 1-based indices. Positions not listed are zero; a
//   position listed again is summed. A symmetric storage may list an
//   off-diagonal element from either triangle: (i, j) stands for both (i, j)
//   and (j, i).
// - Fields "real" and "integer" hold one number per value (integers are
//   digits with an optional sign), "complex" two (real and imaginary part),
//   "pattern" none (coordinate only; the value is 1).
// - Symmetries "general", "symmetric", "skew-symmetric" (mirror −a, zero
//   diagonal; not with "pattern") and "hermitian" (mirror conj(a), real
//   diagonal). Hermitian symmetry needs the "complex" field: for real
//   values it would only say "symmetric", and a real or integer file that
//   claims it is refused as malformed rather than guessed at. The symmetries
//   need a square matrix.
// - Numbers are read by qvutil::scanDouble in the C locale whatever the
//   process's locale ("inf" and "nan" included); a magnitude below the
//   smallest double reads as zero, one above the largest is an error.
// - Sizes and indices are unsigned 64-bit decimals. Rows and columns beyond
//   kMaxDimension (array.h) cannot be stored and are refused.
//
// Errors are qvbase::Exception of module "matrixmarket" (the dense reader's
// own checks: "densemm"), each naming the file through ("File", path):
// - "Invalid_MatrixMarket_file": the text breaks the format; details: a
//   sentence saying what is wrong (first), ("File", path), ("Line", n) with n
//   the 1-based line at fault.
// - "Cannot_open_file" / "Cannot_write_file": ("File", path), ("Reason", the
//   system's reason). "Cannot_read_file": reading failed midway; ("File",
//   path), ("Line", n).
// Memory the file asks for and the machine does not give is the standard
// allocation failure, as FileBadAlloc below: a std::bad_alloc whose what()
// names the file and the line that asked for it.
#include <cstddef>
#include <new>
#include <string>

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
  /// Values stored in the file: the size line's count (coordinate) or the
  /// number of values the array format holds for this symmetry.
  size_t entries = 0;
  /// The 1-based line of the size line.
  size_t sizeLine = 0;

  bool isComplex() const { return field == Field::Complex; }
};

/// Reads only the header and the size line of the file at `path`.
QVARRAY_API MatrixMarketInfo readMatrixMarketInfo(const std::string& path);

/// The standard allocation failure (a std::bad_alloc, "bad allocation"),
/// raised while reading a file: it names the file and the line whose sizes
/// asked for the memory, and why when the reader refused on its own.
class QVARRAY_API FileBadAlloc : public std::bad_alloc {
 public:
  FileBadAlloc(std::string file, size_t line, std::string reason = std::string());

  const std::string& file() const { return file_; }
  size_t line() const { return line_; }
  /// Why the memory was refused; empty when the allocator refused it.
  const std::string& reason() const { return reason_; }
  /// "bad allocation[: reason]; File = path; Line = n".
  const char* what() const noexcept override;

 private:
  std::string file_;
  size_t line_;
  std::string reason_;
  std::string what_;
};

}  // namespace qvarray
