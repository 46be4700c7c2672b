// Sparse: the text output used by the stream operator.
#include <iomanip>
#include <ostream>
#include <utility>

#include "sparse/sparseimpl.h"

namespace qvarray {

// "Sparse <m>-by-<n> matrix. Nnz = <nnz>." (m and n swapped when the storage
// holds the transpose), "Symmetric." for any symmetric mode, then a header
// and one line per stored entry in column order: row (width 7), column plus
// the first-column offset (width 7), value (width 20, precision 6). The
// stream's own format settings are restored afterwards.
void Sparse::outputImpl(std::ostream& os) const {
  visit([&os](const auto& s) {
    const std::ios_base::fmtflags flags = os.flags();
    const std::streamsize precision = os.precision();
    size_t m = s.m, n = s.n;
    if (s.symm == SymmTransposed) std::swap(m, n);
    os << "Sparse " << m << "-by-" << n << " matrix. " << "Nnz = " << s.nnz << "." << '\n';
    if (s.symm != SymmNone) os << "Symmetric." << '\n';
    os << "    Row    Col               Value" << '\n';
    os.unsetf(std::ios_base::floatfield | std::ios_base::adjustfield);
    os << std::right << std::setprecision(6);
    for (size_t j = 0; j < s.n; ++j)
      for (size_t p = s.colptr[j]; p < s.colptr[j + 1]; ++p)
        os << std::setw(7) << s.row[p] << std::setw(7) << j + s.firstColumn << std::setw(20)
           << s.value[p] << '\n';
    os.flags(flags);
    os.precision(precision);
  });
}

}  // namespace qvarray
