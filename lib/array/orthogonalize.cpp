// Orthogonalisation kernels of the Krylov solvers: classical Gram–Schmidt
// with one reorthogonalisation pass, and the Givens update that keeps the
// Hessenberg matrix of GMRES in triangular form.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <complex>
#include <vector>

#include "backend/blas.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// A second pass runs when the first leaves less than this share of v's norm:
// the projections then cancelled much of v, and the rounding errors of
// cancellation leave components along Q that one more pass removes.
constexpr double kReorthogonalise = 0.7;

double conjugate(double v) { return v; }
dcomplex conjugate(dcomplex v) { return std::conj(v); }

// v −= Q·c with c = Qᴴ·v (classical Gram–Schmidt: every coefficient from the
// same v, so the pass is two matrix–vector products).
template <class T>
void projectOut(const T* Q, int ldq, int rows, int k, T* v, T* c) {
  blas::gemv(ConjTrans, rows, k, T(1), Q, ldq, v, 1, T(0), c, 1);
  blas::gemv(NoTrans, rows, k, T(-1), Q, ldq, c, 1, T(1), v, 1);
}

template <class T>
double gramSchmidtImpl(const Array<T, 2>& Q, int k, Array<T, 1>& v, Array<T, 1>& h) {
  QV_CHECK(k >= 0 && Q.sizes[1] >= static_cast<size_t>(k) && Q.sizes[0] == v.count &&
               h.count > static_cast<size_t>(k),
           arrayutil, Internal_numerical_error, "gramSchmidt: Size of Q, v or h does not match k.");
  const int rows = blas::toInt(v.count);
  const int ldq = blas::leadingDim(Q.sizes[0]);
  const double before = norm(v.data, rows);
  double after = before;
  if (k > 0) {
    // BLAS returns at once on an empty v without writing c: start from zero
    std::fill(h.data, h.data + k, T(0));
    projectOut(Q.data, ldq, rows, k, v.data, h.data);
    after = norm(v.data, rows);
    if (after < kReorthogonalise * before) {
      std::vector<T> c(static_cast<size_t>(k));
      projectOut(Q.data, ldq, rows, k, v.data, c.data());
      for (int j = 0; j < k; ++j) h[j] += c[j];
      after = norm(v.data, rows);
    }
  }
  h[k] = after;
  if (after != 0.0) {
    if (after >= DBL_MIN) {
      scale(v.data, 1.0 / after, rows);
    } else {
      // 1/after would overflow for a subnormal norm
      for (int i = 0; i < rows; ++i) v[i] /= after;
    }
  }
  return after;
}

// The rotation [c s; −conj(s) c] with real c that maps (f, g) to (r, 0), in
// the convention of LAPACK's xLARTG: g = 0 gives c = 1, s = 0, r = f; f = 0
// gives c = 0 and r = |g|; otherwise r has the phase of f.
void rotation(double f, double g, double& c, double& s, double& r) {
  if (g == 0.0) {
    c = 1.0;
    s = 0.0;
    r = f;
    return;
  }
  r = std::copysign(std::hypot(f, g), f);
  c = f / r;
  s = g / r;
}

void rotation(dcomplex f, dcomplex g, double& c, dcomplex& s, dcomplex& r) {
  if (g == 0.0) {
    c = 1.0;
    s = 0.0;
    r = f;
    return;
  }
  const double absG = std::abs(g);
  if (f == 0.0) {
    c = 0.0;
    s = std::conj(g) / absG;
    r = absG;
    return;
  }
  const double absF = std::abs(f);
  const double d = std::hypot(absF, absG);
  const dcomplex phase = f / absF;
  c = absF / d;
  s = phase * std::conj(g) / d;
  r = phase * d;
}

// (a, b) ← (c·a + s·b, −conj(s)·a + c·b)
template <class T>
void rotate(double c, T s, T& a, T& b) {
  const T t = c * a + s * b;
  b = c * b - conjugate(s) * a;
  a = t;
}

template <class T>
double givensRotImpl(Array<T, 1>& h, int k, Array<double, 1>& c, Array<T, 1>& s, Array<T, 1>& g) {
  const size_t uk = static_cast<size_t>(k);
  QV_CHECK(
      k >= 0 && h.count >= uk + 2 && g.count >= uk + 2 && c.count >= uk + 1 && s.count >= uk + 1,
      arrayutil, Internal_numerical_error,
      "givensRot: Size of h, c, s or g less than required by k.");
  for (int i = 0; i < k; ++i) rotate(c[i], s[i], h[i], h[i + 1]);
  T r;
  rotation(h[k], h[k + 1], c[k], s[k], r);
  h[k] = r;
  h[k + 1] = T(0);
  rotate(c[k], s[k], g[k], g[k + 1]);
  return std::abs(g[k + 1]);
}

}  // namespace

double gramSchmidt(const Array<double, 2>& Q, int k, Array<double, 1>& v, Array<double, 1>& h) {
  return gramSchmidtImpl(Q, k, v, h);
}

double gramSchmidt(const Array<dcomplex, 2>& Q, int k, Array<dcomplex, 1>& v,
                   Array<dcomplex, 1>& h) {
  return gramSchmidtImpl(Q, k, v, h);
}

double givensRot(Array<double, 1>& h, int k, Array<double, 1>& c, Array<double, 1>& s,
                 Array<double, 1>& g) {
  return givensRotImpl(h, k, c, s, g);
}

double givensRot(Array<dcomplex, 1>& h, int k, Array<double, 1>& c, Array<dcomplex, 1>& s,
                 Array<dcomplex, 1>& g) {
  return givensRotImpl(h, k, c, s, g);
}

}  // namespace qvarray
