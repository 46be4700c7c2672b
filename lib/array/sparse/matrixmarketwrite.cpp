// Writing sparse matrices as MatrixMarket coordinate files.
#include <charconv>
#include <fstream>
#include <ostream>
#include <vector>

#include "qvarray/matrixmarket.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using dcomplex = std::complex<double>;

// Collects the text in a buffer and hands it to the stream in large pieces.
class TextOut {
 public:
  explicit TextOut(std::ostream& os) : os_(os) { buf_.reserve(kChunk + 128); }
  ~TextOut() { flush(); }

  void text(std::string_view s) { buf_.append(s); }
  void number(size_t v) {
    char tmp[24];
    const auto r = std::to_chars(tmp, tmp + sizeof tmp, v);
    buf_.append(tmp, r.ptr);
  }
  // Shortest form that reads back to the same double ("inf", "nan" included).
  void number(double v) {
    char tmp[40];
    const auto r = std::to_chars(tmp, tmp + sizeof tmp, v);
    buf_.append(tmp, r.ptr);
  }
  void endLine() {
    buf_.push_back('\n');
    if (buf_.size() >= kChunk) flush();
  }
  void flush() {
    os_.write(buf_.data(), static_cast<std::streamsize>(buf_.size()));
    buf_.clear();
  }

 private:
  static constexpr size_t kChunk = size_t{1} << 20;
  std::ostream& os_;
  std::string buf_;
};

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

void writeEntries(TextOut& out, const Sparse& A, bool transpose) {
  const size_t n = A.getN();
  const size_t* colptr = A.getColPtr();
  const size_t* row = A.getRow();
  const double* dval = A.getDoubleVal();
  const dcomplex* zval = A.getDcmplxVal();
  for (size_t j = 0; j < n; ++j)
    for (size_t p = colptr[j]; p < colptr[j + 1]; ++p) {
      out.number((transpose ? j : row[p]) + 1);
      out.text(" ");
      out.number((transpose ? row[p] : j) + 1);
      out.text(" ");
      if (dval) {
        out.number(dval[p]);
      } else {
        out.number(zval[p].real());
        out.text(" ");
        out.number(zval[p].imag());
      }
      out.endLine();
    }
}

}  // namespace

void writeMatrixMarket(std::ostream& os, const Sparse& A) {
  const Symm_t symm = A.getSymm();
  const bool symmetric = symm == SymmSymmetric || symm == SymmHermitian;
  const bool hermitian = symm == SymmHermitian && !A.isReal();
  const Sparse L = symmetric ? lowerTriangle(A, hermitian) : Sparse();
  const Sparse& W = symmetric ? L : A;
  const bool transpose = symm == SymmTransposed;

  TextOut out(os);
  out.text("%%MatrixMarket matrix coordinate ");
  out.text(A.isReal() ? "real " : "complex ");
  out.text(hermitian ? "hermitian" : symmetric ? "symmetric" : "general");
  out.endLine();
  out.number(transpose ? W.getN() : W.getM());
  out.text(" ");
  out.number(transpose ? W.getM() : W.getN());
  out.text(" ");
  out.number(W.getNnz());
  out.endLine();
  writeEntries(out, W, transpose);
}

void writeMatrixMarket(const std::string& path, const Sparse& A) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) QV_RAISE(matrixmarket, Cannot_write_file, qvbase::DetailPairs{{"File", path}});
  writeMatrixMarket(file, A);
  file.flush();
  if (!file) QV_RAISE(matrixmarket, Cannot_write_file, qvbase::DetailPairs{{"File", path}});
}

}  // namespace qvarray
