// SOR sweeps and updates restricted to listed columns: the steps of the full
// kernels on the principal submatrix A(J, J). Entries whose row is not the
// diagonal row of a listed column are skipped, so unknowns outside J are
// neither read nor written. Each entry's row is looked up in the list (by
// subtraction for a contiguous list, by bisection otherwise).
#include <algorithm>

#include "sparse/relaxkernels.h"

namespace qvarray::relax {

size_t ColumnList::ordinalOfRow(size_t k) const {
  constexpr size_t npos = static_cast<size_t>(-1);
  const size_t c = k - firstColumn;  // wraps to a huge value for rows before the first column
  if (contiguous) {
    const size_t t = c - cols[0];
    return t < count ? t : npos;
  }
  const size_t* p = std::lower_bound(cols, cols + count, c);
  return p != cols + count && *p == c ? static_cast<size_t>(p - cols) : npos;
}

namespace {

constexpr size_t npos = static_cast<size_t>(-1);

// s + Σ over the listed rows of [b, e) of mirror(a)·v[i3(row)] (or i2).
template <bool Herm, bool UseI2, class TA, class TV>
TV listGather(const View<TA>& A, const ColumnList& J, const TV* v, size_t b, size_t e, TV s) {
  for (size_t p = b; p < e; ++p) {
    const size_t o = J.ordinalOfRow(A.row[p]);
    if (o != npos) s += mirror<Herm>(A.val[p]) * v[UseI2 ? J.i2(o) : J.i3(o)];
  }
  return s;
}

template <class TA, class TV>
void listScatter(const View<TA>& A, const ColumnList& J, TV* v, size_t b, size_t e, TV delta) {
  for (size_t p = b; p < e; ++p) {
    const size_t o = J.ordinalOfRow(A.row[p]);
    if (o != npos) v[J.i3(o)] += delta * A.val[p];
  }
}

template <bool Gather, bool Scatter, bool Herm, bool Backward, class TA, class TX, class TR>
void listSweepKind(const View<TA>& A, const ColumnList& J, TX* x, TR* r, double omega) {
  for (size_t k = 0; k < J.count; ++k) {
    const size_t t = Backward ? J.count - 1 - k : k;
    const size_t i = J.cols[t];
    const size_t cs = A.colptr[i], ce = A.colptr[i + 1], dp = A.diag[i];
    TR& ri = r[J.i3(t)];
    TR s = ri;
    if constexpr (Gather)
      s = Backward ? listGather<Herm, false>(A, J, r, dp + 1, ce, s)
                   : listGather<Herm, false>(A, J, r, cs, dp, s);
    const TR delta = -(s / divisor<Herm>(A.val[dp])) * omega;
    ri = delta;
    x[J.i2(t)] += delta;
    if constexpr (Scatter) {
      if (Backward)
        listScatter(A, J, r, cs, dp, delta);
      else
        listScatter(A, J, r, dp + 1, ce, delta);
    }
  }
}

// The in-place pass of passColumns on the list: gathers read at i2 (the
// updater's sources; equal to i3 for the residual), results go to i3.
template <bool Gather, bool Scatter, bool Herm, bool FlagF, bool ReadI2, class TA, class TV>
void listPass(const View<TA>& A, const ColumnList& J, TV* v, double c) {
  for (size_t k = 0; k < J.count; ++k) {
    const size_t t = FlagF ? k : J.count - 1 - k;
    const size_t i = J.cols[t];
    const size_t cs = A.colptr[i], ce = A.colptr[i + 1], dp = A.diag[i];
    const TV old = v[ReadI2 ? J.i2(t) : J.i3(t)];
    TV w = c * divisor<Herm>(A.val[dp]) * old;
    if constexpr (Gather)
      w = FlagF ? listGather<Herm, ReadI2>(A, J, v, dp + 1, ce, w)
                : listGather<Herm, ReadI2>(A, J, v, cs, dp, w);
    if constexpr (Scatter) {
      if (FlagF)
        listScatter(A, J, v, cs, dp, old);
      else
        listScatter(A, J, v, dp + 1, ce, old);
    }
    v[J.i3(t)] = w;
  }
}

}  // namespace

template <class TA, class TX, class TR>
void listSweep(const View<TA>& A, const ColumnList& J, TX* x, TR* r, double omega,
               bool backward) {
  const double w = factorsFor(A.symm, omega).omega;
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      listSweepKind<G, S, H, decltype(bw)::value>(A, J, x, r, w);
    });
  });
}

template <class TA, class TV>
void listUpdate(const View<TA>& A, const ColumnList& J, TV* x, double omega, bool flag) {
  const double c = factorsFor(A.symm, omega).c;
  withKind<TA>(A.symm, [&](auto, auto, auto h) {
    withBool(flag, [&](auto fl) {
      listPass<true, false, decltype(h)::value, decltype(fl)::value, true>(A, J, x, c);
    });
  });
}

template <class TA, class TX, class TR>
void listSweepUpdate(const View<TA>& A, const ColumnList& J, TX* x, TR* y, double omega,
                     bool backward) {
  const Factors f = factorsFor(A.symm, omega);
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      constexpr bool B = decltype(bw)::value;
      listSweepKind<G, S, H, B>(A, J, x, y, f.omega);
      listPass<G, S, H, !B, false>(A, J, y, f.c);
    });
  });
}

#define QV_RELAX_LIST_SWEEPS(TA, TX, TR)                                                    \
  template void listSweep<TA, TX, TR>(const View<TA>&, const ColumnList&, TX*, TR*, double, \
                                      bool);                                               \
  template void listSweepUpdate<TA, TX, TR>(const View<TA>&, const ColumnList&, TX*, TR*,   \
                                            double, bool);
QV_RELAX_LIST_SWEEPS(double, double, double)
QV_RELAX_LIST_SWEEPS(double, dcomplex, double)
QV_RELAX_LIST_SWEEPS(double, dcomplex, dcomplex)
QV_RELAX_LIST_SWEEPS(dcomplex, dcomplex, dcomplex)
#undef QV_RELAX_LIST_SWEEPS

template void listUpdate<double, double>(const View<double>&, const ColumnList&, double*, double,
                                         bool);
template void listUpdate<double, dcomplex>(const View<double>&, const ColumnList&, dcomplex*,
                                           double, bool);
template void listUpdate<dcomplex, dcomplex>(const View<dcomplex>&, const ColumnList&, dcomplex*,
                                             double, bool);

}  // namespace qvarray::relax
