#pragma once
// Sparse MatrixMarket files: reading either format into triplets and
// matrices, and writing a matrix in the coordinate format. The format and the
// errors are described in io/matrixmarket.h.
//
// Reading keeps 64-bit sizes and indices. Entries go through triplet
// assembly: duplicates are summed and rows keep file order within each
// column. Values of an array-format file that are zero are not stored. A file
// that stores one triangle is expanded to the full matrix (mode SymmNone),
// unless keepSymmetric asks for the symmetric storage of sparsemodes.h:
// symmetric files then give SymmSymmetric and Hermitian files SymmHermitian,
// with the stored triangle turned to the lower one and the diagonal halved
// (skew-symmetric files are always expanded).
//
// Column pointers cost 8 bytes per column, with entries or without. The
// reader stores a matrix only when the file's values justify its columns:
// more than kSpareColumns columns beyond the number of values the file holds
// are refused as a FileBadAlloc naming the size line, before anything is
// allocated (a 3 x 2147483648 matrix with one entry would need 16 GiB of
// column pointers).
//
// Writing emits "real" or "complex" values, "general" for modes SymmNone and
// SymmTransposed (the represented matrix is written), "symmetric" or
// "hermitian" with the lower triangle of A for the symmetric modes. Numbers
// are written in the shortest form that reads back to the same bits, so a
// matrix read, written and read again is identical bit for bit.
#include <complex>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "qvarray/export.h"
#include "qvarray/io/matrixmarket.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

/// Columns a sparse file may declare beyond the number of values it holds.
inline constexpr size_t kSpareColumns = size_t{1} << 24;

/// The entries of a MatrixMarket file as 0-based triplets, ready for
/// assembly into an m×n matrix of symmetry mode `symm`.
struct QVARRAY_API MatrixMarketTriplets {
  size_t m = 0;
  size_t n = 0;
  bool isComplex = false;
  std::string field;     ///< "real", "integer", "complex" or "pattern"
  std::string symmetry;  ///< "general", "symmetric", "skew-symmetric" or "hermitian"
  Symm_t symm = SymmNone;
  std::vector<size_t> rows;
  std::vector<size_t> cols;
  std::vector<double> realValues;                   ///< when !isComplex; {1} for pattern
  std::vector<std::complex<double>> complexValues;  ///< when isComplex
  std::string file;     ///< the file read, for errors of the assembly
  size_t sizeLine = 0;  ///< its size line

  /// Assembles the triplets into A (triplet assembly, then the mode). A
  /// failed allocation is a FileBadAlloc naming `file` and `sizeLine`; A is
  /// then unchanged.
  void assemble(Sparse& A) const;
};

/// Parses MatrixMarket text; `name` stands for the file in errors.
QVARRAY_API MatrixMarketTriplets parseMatrixMarket(std::string_view text, const std::string& name,
                                                   bool keepSymmetric = false);
/// Reads the file at `path` into triplets.
QVARRAY_API MatrixMarketTriplets readMatrixMarketTriplets(const std::string& path,
                                                          bool keepSymmetric = false);
/// Reads the file at `path` into a matrix.
QVARRAY_API Sparse readMatrixMarket(const std::string& path, bool keepSymmetric = false);

/// Writes A in MatrixMarket coordinate format.
QVARRAY_API void writeMatrixMarket(std::ostream& os, const Sparse& A);
QVARRAY_API void writeMatrixMarket(const std::string& path, const Sparse& A);

}  // namespace qvarray
