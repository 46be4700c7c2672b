// The damped Jacobi correction x ← x − ω'·D⁻¹·r, serial and split by columns.
#include <algorithm>

#include "qvutil/parallel.h"
#include "sparse/relaxkernels.h"

namespace qvarray::relax {

namespace {

// Columns [begin, end): x_i −= ω·r_i / d_i (r read by column index).
template <bool Herm, class TA, class TX, class TR>
void jacobiColumns(const View<TA>& A, TX* x, const TR* r, double omega, size_t begin,
                   size_t end) {
  const TA* val = A.val;
  const size_t* diag = A.diag;
  for (size_t i = begin; i < end; ++i) x[i] -= omega * r[i] / divisor<Herm>(val[diag[i]]);
}

}  // namespace

// The kernel takes a column range; end 0 stands for n.
template <class TA, class TX, class TR>
void serialJacobi(const View<TA>& A, TX* x, const TR* r, double omega, size_t begin, size_t end) {
  const double w = factorsFor(A.symm, omega).omega;
  if (end == 0) end = A.n;
  if (isComplex<TA> && A.symm == SymmHermitian)
    jacobiColumns<true>(A, x, r, w, begin, end);
  else
    jacobiColumns<false>(A, x, r, w, begin, end);
}

// Every column is independent: the blocks give the serial result exactly.
template <class TA, class TX, class TR>
int parallelJacobi(const View<TA>& A, TX* x, const TR* r, double omega, int blocks) {
  const size_t n = A.n;
  const auto nb = static_cast<size_t>(blocks);
  qvbase::runParts(blocks, n, [&](int part) {
    const size_t t = static_cast<size_t>(part);
    const size_t begin = n / nb * t + std::min(t, n % nb);
    const size_t end = begin + n / nb + (t < n % nb ? 1 : 0);
    if (begin < end) serialJacobi(A, x, r, omega, begin, end);
  });
  return blocks;
}

#define QV_RELAX_JACOBI(TA, TX, TR)                                                          \
  template void serialJacobi<TA, TX, TR>(const View<TA>&, TX*, const TR*, double, size_t,   \
                                         size_t);                                           \
  template int parallelJacobi<TA, TX, TR>(const View<TA>&, TX*, const TR*, double, int);
QV_RELAX_JACOBI(double, double, double)
QV_RELAX_JACOBI(double, dcomplex, double)
QV_RELAX_JACOBI(double, dcomplex, dcomplex)
QV_RELAX_JACOBI(dcomplex, dcomplex, double)
QV_RELAX_JACOBI(dcomplex, dcomplex, dcomplex)
#undef QV_RELAX_JACOBI

}  // namespace qvarray::relax
