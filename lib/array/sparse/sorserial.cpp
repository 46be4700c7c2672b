// Serial SOR sweeps and updates over the whole matrix (see relaxkernels.h for
// the sides of the diagonal each kind reads and writes).
#include "sparse/relaxkernels.h"

namespace qvarray::relax {

// One sweep: (D/ω + L)·δ = −r forward, (D/ω + U)·δ = −r backward; r ← δ, x += δ.
template <class TA, class TX, class TR>
void serialSweep(const View<TA>& A, TX* x, TR* r, double omega, bool backward) {
  const Factors f = factorsFor(A.symm, omega);
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      sweepColumns<G, S, H, decltype(bw)::value>(A, x, r, f.omega, 0, A.n);
    });
  });
}

// x_i ← c'·d_i·x_i + Σ over one side of column i (F with the flag, else B).
template <class TA, class TV>
void serialUpdate(const View<TA>& A, TV* x, double omega, bool flag) {
  const Factors f = factorsFor(A.symm, omega);
  withKind<TA>(A.symm, [&](auto, auto, auto h) {
    withBool(flag, [&](auto fl) {
      constexpr bool H = decltype(h)::value;
      passColumns<true, false, H, decltype(fl)::value>(A, x, f.c, 0, A.n);
    });
  });
}

// One sweep on y, then y ← r + A·δ: fused for mode 0, a second in-place pass
// over the other side of the diagonal for the gathering kinds.
template <class TA, class TX, class TR>
void serialSweepUpdate(const View<TA>& A, TX* x, TR* y, double omega, bool backward) {
  const Factors f = factorsFor(A.symm, omega);
  withKind<TA>(A.symm, [&](auto g, auto s, auto h) {
    withBool(backward, [&](auto bw) {
      constexpr bool G = decltype(g)::value, S = decltype(s)::value, H = decltype(h)::value;
      constexpr bool B = decltype(bw)::value;
      if constexpr (!G) {
        sweepResidualGeneral<B>(A, x, y, f.omega, 0, A.n);
      } else {
        sweepColumns<G, S, H, B>(A, x, y, f.omega, 0, A.n);
        passColumns<G, S, H, !B>(A, y, f.c, 0, A.n);
      }
    });
  });
}

#define QV_RELAX_SWEEPS(TA, TX, TR)                                                        \
  template void serialSweep<TA, TX, TR>(const View<TA>&, TX*, TR*, double, bool);          \
  template void serialSweepUpdate<TA, TX, TR>(const View<TA>&, TX*, TR*, double, bool);
QV_RELAX_SWEEPS(double, double, double)
QV_RELAX_SWEEPS(double, dcomplex, double)
QV_RELAX_SWEEPS(double, dcomplex, dcomplex)
QV_RELAX_SWEEPS(dcomplex, dcomplex, dcomplex)
#undef QV_RELAX_SWEEPS

template void serialUpdate<double, double>(const View<double>&, double*, double, bool);
template void serialUpdate<double, dcomplex>(const View<double>&, dcomplex*, double, bool);
template void serialUpdate<dcomplex, dcomplex>(const View<dcomplex>&, dcomplex*, double, bool);

}  // namespace qvarray::relax
