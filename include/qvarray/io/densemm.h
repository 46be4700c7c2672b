#pragma once
// Dense MatrixMarket files: reading a matrix of either format into
// Array<double,2> or Array<std::complex<double>,2>, and writing one in the
// array format. The format and the errors are described in io/matrixmarket.h.
//
// Reading expands the symmetric storages to the full matrix: A(j,i) = A(i,j)
// (symmetric), −A(i,j) (skew-symmetric) or conj(A(i,j)) (hermitian). Fields
// "real", "integer" and "pattern" read as real numbers, "complex" as complex
// ones. Errors of the dense reader itself (module "densemm"):
// - "Complex_MatrixMarket_file_for_real_array": a complex file was read into
//   a real array; details: a sentence, ("File", path), ("Line", 1).
// - "Invalid_MatrixMarket_file" with "A m x n matrix is too large for a dense
//   array.": m·n overflows a 64-bit count. Fewer elements that no allocation
//   can hold are a FileBadAlloc naming the size line.
// Nothing is changed in the destination array when reading fails.
#include <complex>
#include <iosfwd>
#include <string>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/io/matrixmarket.h"

namespace qvarray {

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
