// Sparse: the text output used by the stream operator.
#include <iomanip>
#include <ostream>
#include <utility>

#include "sparse/sparseimpl.h"

namespace qvarray {

namespace {

// Puts the stream into plain decimal notation (right-aligned, precision 6)
// for its lifetime and restores the caller's settings afterwards.
class PlainFormat {
 public:
  explicit PlainFormat(std::ostream& os)
      : os_(os), flags_(os.flags()), precision_(os.precision()), fill_(os.fill()) {
    os.flags(std::ios_base::dec | std::ios_base::right);
    os.precision(6);
    os.fill(' ');
    os.width(0);
  }
  ~PlainFormat() {
    os_.flags(flags_);
    os_.precision(precision_);
    os_.fill(fill_);
  }
  PlainFormat(const PlainFormat&) = delete;
  PlainFormat& operator=(const PlainFormat&) = delete;

 private:
  std::ostream& os_;
  std::ios_base::fmtflags flags_;
  std::streamsize precision_;
  char fill_;
};

void writeHeader(std::ostream& os, const Sparse& A) {
  size_t m = A.getM(), n = A.getN();
  if (A.getSymm() == SymmTransposed) std::swap(m, n);
  os << "Sparse " << m << "-by-" << n << " matrix. " << "Nnz = " << A.getNnz() << "." << '\n';
  if (A.getSymm() != SymmNone) os << "Symmetric." << '\n';
}

}  // namespace

void outputSparseHeader(std::ostream& os, const Sparse& A) {
  PlainFormat plain(os);
  writeHeader(os, A);
}

// "Sparse <m>-by-<n> matrix. Nnz = <nnz>." (m and n swapped when the storage
// holds the transpose), "Symmetric." for any symmetric mode, then a header
// and one line per stored entry in column order: row (width 7), column plus
// the first-column offset (width 7), value (width 20, precision 6).
void Sparse::outputImpl(std::ostream& os) const {
  PlainFormat plain(os);
  writeHeader(os, *this);
  os << "    Row    Col               Value" << '\n';
  visit([&os](const auto& s) {
    for (size_t j = 0; j < s.n; ++j)
      for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p)
        os << std::setw(7) << s.row[p] << std::setw(7) << j + s.firstColumn << std::setw(20)
           << s.value[p] << '\n';
  });
}

}  // namespace qvarray
