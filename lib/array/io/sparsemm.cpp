// Sparse matrices from and to MatrixMarket files: assembly of the triplets
// read by sparsemmread.cpp, and the coordinate writer.
#include <algorithm>
#include <fstream>
#include <ostream>
#include <vector>

#include "io/mmwriter.h"
#include "io/mmscanner.h"
#include "qvarray/io/sparsemm.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;
using Info = MatrixMarketInfo;

// The lower triangle of A = S + Sᵀ (or S + Sᴴ when hermitian) from the stored
// entries S, assembled so that contributions to one element are summed.
Sparse lowerTriangle(const Sparse& A, bool hermitian) {
  const size_t n = A.getN(), nnz = A.getNnz();
  const size_t* colptr = A.getColPtr();
  const size_t* row = A.getRow();
  std::vector<size_t> rows(nnz), cols(nnz);
  Sparse L;
  auto fill = [&](const auto* value, auto& values) {
    values.resize(nnz);
    for (size_t j = 0; j < n; ++j)
      for (size_t p = colptr[j]; p < colptr[j + 1]; ++p) {
        const size_t i = row[p];
        auto v = value[p];
        if (i == j) {
          if constexpr (std::is_same_v<decltype(v), dcomplex>)
            v = hermitian ? dcomplex(2 * v.real(), 0.0) : 2.0 * v;
          else
            v = 2 * v;
        } else if (i < j && hermitian) {
          if constexpr (std::is_same_v<decltype(v), dcomplex>) v = std::conj(v);
        }
        rows[p] = std::max(i, j);
        cols[p] = std::min(i, j);
        values[p] = v;
      }
    L.vectorTripletToSparse(rows, cols, values, A.getM(), n);
  };
  if (A.isReal()) {
    std::vector<double> values;
    fill(A.getDoubleVal(), values);
  } else {
    std::vector<dcomplex> values;
    fill(A.getDcmplxVal(), values);
  }
  return L;
}

void writeSparse(std::ostream& os, const std::string& name, const Sparse& A) {
  const Symm_t symm = A.getSymm();
  const bool symmetric = symm == SymmSymmetric || symm == SymmHermitian;
  const bool hermitian = symm == SymmHermitian && !A.isReal();
  const Sparse L = symmetric ? lowerTriangle(A, hermitian) : Sparse();
  const Sparse& W = symmetric ? L : A;
  const bool transpose = symm == SymmTransposed;

  mmio::Writer w(os, name);
  w.header(Info::Format::Coordinate, !A.isReal(),
           hermitian   ? Info::Symmetry::Hermitian
           : symmetric ? Info::Symmetry::Symmetric
                       : Info::Symmetry::General);
  w.sizes(transpose ? W.getN() : W.getM(), transpose ? W.getM() : W.getN(), W.getNnz());
  const size_t* colptr = W.getColPtr();
  const size_t* row = W.getRow();
  const double* dval = W.getDoubleVal();
  const dcomplex* zval = W.getDcmplxVal();
  for (size_t j = 0; j < W.getN(); ++j)
    for (size_t p = colptr[j]; p < colptr[j + 1]; ++p) {
      const size_t i = transpose ? j : row[p], k = transpose ? row[p] : j;
      if (dval) w.entry(i, k, dval[p]);
      else w.entry(i, k, zval[p]);
    }
  w.finish();
}

}  // namespace

void MatrixMarketTriplets::assemble(Sparse& A) const {
  try {
    if (isComplex)
      A.vectorTripletToSparse(rows, cols, complexValues, m, n);
    else
      A.vectorTripletToSparse(rows, cols, realValues, m, n);
  } catch (const std::bad_alloc&) {
    if (file.empty()) throw;
    throw FileBadAlloc(file, sizeLine);
  }
  if (symm != SymmNone) A.setSymm(symm);
}

Sparse readMatrixMarket(const std::string& path, bool keepSymmetric) {
  const MatrixMarketTriplets t = readMatrixMarketTriplets(path, keepSymmetric);
  Sparse A;
  t.assemble(A);
  return A;
}

void writeMatrixMarket(std::ostream& os, const Sparse& A) { writeSparse(os, "(stream)", A); }

void writeMatrixMarket(const std::string& path, const Sparse& A) {
  std::ofstream out = mmio::openForWriting(path);
  writeSparse(out, path, A);
  mmio::closeWritten(out, path);
}

}  // namespace qvarray
