#pragma once
// Reading and writing sparse matrices in the MatrixMarket coordinate format,
// the common exchange format of sparse matrix tools.
//
// Reading accepts the fields real, integer, complex and pattern and the
// symmetries general, symmetric, skew-symmetric and hermitian (keywords in
// any case), 64-bit sizes and indices, numbers in the C locale whatever the
// process locale ("inf" and "nan" included), '%' comment lines and blank
// lines. Entries go through triplet assembly: duplicates are summed and rows
// keep file order within each column. Pattern entries have the value 1. A
// file that stores one triangle is expanded to the full matrix (mode
// SymmNone), unless keepSymmetric asks for the symmetric storage of
// sparsemodes.h: symmetric files then give SymmSymmetric and Hermitian files
// SymmHermitian, with the stored triangle turned to the lower one and the
// diagonal halved (skew-symmetric files are always expanded).
//
// Writing emits "real" or "complex" values, "general" for modes SymmNone and
// SymmTransposed (the represented matrix is written), "symmetric" or
// "hermitian" with the lower triangle of A for the symmetric modes. Numbers
// are written in the shortest form that reads back to the same bits, so a
// matrix read, written and read again is identical bit for bit.
//
// Errors (module "matrixmarket"): "Cannot_open_file" and "Cannot_write_file"
// with the detail ("File", path); "Invalid_MatrixMarket_file" with a sentence
// naming the fault and the details ("File", path), ("Line", line number).
#include <complex>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "qvarray/export.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

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

  /// Assembles the triplets into A (triplet assembly, then the mode).
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
