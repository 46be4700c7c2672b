// AlmostBandedLSQ: least squares min ‖A·x − b‖ for a tall A whose rows have
// a run of at most w consecutive band entries plus p dense border entries.
//
// The upper-triangular factor R of A = Q·R keeps the structure
//
//   R = [ Rb  Rc ]   Rb n×n upper triangular with bandwidth w,
//       [ 0   Rd ]   Rc n×p dense, Rd p×p upper triangular,
//
// so each new row is reduced into R by Givens rotations: against R's row k
// for every band column k it touches, then against Rd for the border. A row
// meeting an empty row of R takes its place. The rotated right-hand sides
// are kept alongside (Qᵀ·b); what a row leaves over once it is fully
// reduced is a residual component. Solving is back substitution.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "qvarray/bandmatrix.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Plane rotation (c, s) with c·a + s·b = r, −s·a + c·b = 0.
struct Rotation {
  double c, s;
  Rotation(double a, double b) {
    const double r = std::hypot(a, b);
    c = a / r;
    s = b / r;
  }
  // (u, v) ← (c·u + s·v, −s·u + c·v)
  void apply(double& u, double& v) const {
    const double t = c * u + s * v;
    v = c * v - s * u;
    u = t;
  }
};

}  // namespace

void AlmostBandedLSQ::resize(int n, int w, int p, int nrhs) {
  QV_CHECK(
      n >= 0 && w >= 1 && p >= 0 && nrhs >= 1, bandmatrix, Internal_numerical_error,
      "AlmostBandedLSQ: Sizes must not be negative, bandwidth and right-hand sides at least 1.");
  n_ = n;
  w_ = w;
  p_ = p;
  nrhs_ = nrhs;
  const auto nn = static_cast<size_t>(n), ww = static_cast<size_t>(w), pp = static_cast<size_t>(p);
  rb_.resize(ww, nn);
  rc_.resize(pp, nn);
  rd_.resize(pp, pp);
  qtb_.resize(static_cast<size_t>(nrhs), nn + pp);
  end_.resize(nn);
  dfill_.resize(pp);
  ssr_.resize(static_cast<size_t>(nrhs));
  work_.resize(ww + pp + static_cast<size_t>(nrhs));
  reset();
}

void AlmostBandedLSQ::reset() {
  rb_.fill(0.0);
  rc_.fill(0.0);
  rd_.fill(0.0);
  qtb_.fill(0.0);
  end_.fill(-1);
  dfill_.fill(0);
  ssr_.fill(0.0);
  rows_ = 0;
}

void AlmostBandedLSQ::addRow(int first, std::span<const double> band,
                             std::span<const double> border, std::span<const double> rhs,
                             double weight) {
  QV_CHECK(first >= 0 && band.size() <= static_cast<size_t>(w_) &&
               first + static_cast<long>(band.size()) <= n_,
           bandmatrix, Internal_numerical_error,
           "AlmostBandedLSQ addRow: The row does not fit the band.");
  QV_CHECK(border.empty() || border.size() == static_cast<size_t>(p_), bandmatrix,
           Internal_numerical_error,
           "AlmostBandedLSQ addRow: Length of the border part differs from the border size.");
  QV_CHECK(rhs.size() == static_cast<size_t>(nrhs_), bandmatrix, Internal_numerical_error,
           "AlmostBandedLSQ addRow: Number of right-hand sides differs.");
  const int w = w_, p = p_, m = nrhs_;
  // The working row: u[0..w) band values at columns k..k+w−1, v border, f rhs.
  double* u = work_.data;
  double* v = u + w;
  double* f = v + p;
  std::fill(u, u + w + p + m, 0.0);
  for (size_t j = 0; j < band.size(); ++j) u[j] = weight * band[j];
  for (size_t c = 0; c < border.size(); ++c) v[c] = weight * border[c];
  for (int r = 0; r < m; ++r) f[r] = weight * rhs[r];
  ++rows_;

  // Band part: eliminate column k with R's row k while the row has entries.
  int last = first + static_cast<int>(band.size()) - 1;  // last possibly non-zero column
  for (int k = first; k <= last; ++k) {
    if (u[0] != 0.0) {
      double* rk = &rb_(0, static_cast<size_t>(k));
      double* ck = p ? &rc_(0, static_cast<size_t>(k)) : nullptr;
      double* qk = &qtb_(0, static_cast<size_t>(k));
      if (end_[k] < 0) {  // empty row of R: the working row takes its place
        std::copy(u, u + w, rk);
        std::copy(v, v + p, ck);
        std::copy(f, f + m, qk);
        end_[k] = last;
        return;
      }
      const Rotation g(rk[0], u[0]);
      rk[0] = g.c * rk[0] + g.s * u[0];
      for (int j = 1; j < w; ++j) g.apply(rk[j], u[j]);
      for (int c = 0; c < p; ++c) g.apply(ck[c], v[c]);
      for (int r = 0; r < m; ++r) g.apply(qk[r], f[r]);
      last = std::max(last, end_[k]);
      end_[k] = last;
    }
    // Column k is now zero in the working row: shift its band window by one.
    std::copy(u + 1, u + w, u);
    u[w - 1] = 0.0;
  }

  // Border part: the same against the rows of Rd.
  for (int c = 0; c < p; ++c) {
    if (v[c] == 0.0) continue;
    const auto cc = static_cast<size_t>(c);
    double* qk = &qtb_(0, static_cast<size_t>(n_) + cc);
    if (!dfill_[c]) {
      for (int c2 = c; c2 < p; ++c2) rd_(cc, static_cast<size_t>(c2)) = v[c2];
      std::copy(f, f + m, qk);
      dfill_[c] = 1;
      return;
    }
    const Rotation g(rd_(cc, cc), v[c]);
    rd_(cc, cc) = g.c * rd_(cc, cc) + g.s * v[c];
    v[c] = 0.0;
    for (int c2 = c + 1; c2 < p; ++c2) g.apply(rd_(cc, static_cast<size_t>(c2)), v[c2]);
    for (int r = 0; r < m; ++r) g.apply(qk[r], f[r]);
  }

  // Fully reduced: what is left of the right-hand side is residual.
  for (int r = 0; r < m; ++r) ssr_[r] += f[r] * f[r];
}

int AlmostBandedLSQ::solve(Array<double, 2>& X, double rcond, int flags) const {
  const int n = n_, w = w_, p = p_, m = nrhs_;
  // Dependence test on the diagonal of R.
  double dmax = 0.0;
  for (int k = 0; k < n; ++k) dmax = std::max(dmax, std::abs(rb_(0, static_cast<size_t>(k))));
  for (int c = 0; c < p; ++c) dmax = std::max(dmax, std::abs(rd_(static_cast<size_t>(c), static_cast<size_t>(c))));
  const double tol = rcond * dmax;
  auto dependent = [tol](double d) { return !(std::abs(d) > tol); };

  int deficient = 0;
  for (int k = 0; k < n; ++k) deficient += dependent(rb_(0, static_cast<size_t>(k)));
  for (int c = 0; c < p; ++c) deficient += dependent(rd_(static_cast<size_t>(c), static_cast<size_t>(c)));
  if (deficient > 0 && (flags & 1))
    QV_RAISE(bandmatrix, Rank_deficient_system, "Rank",
             static_cast<std::int64_t>(n + p - deficient));

  X.resize(static_cast<size_t>(n + p), static_cast<size_t>(m));
  for (int r = 0; r < m; ++r) {
    double* x = X.data + static_cast<size_t>(r) * static_cast<size_t>(n + p);
    // Border unknowns: Rd·x₂ = (Qᵀb)₂.
    for (int c = p - 1; c >= 0; --c) {
      const auto cc = static_cast<size_t>(c);
      const double d = rd_(cc, cc);
      if (dependent(d)) {
        x[n + c] = 0.0;
        continue;
      }
      double s = qtb_(static_cast<size_t>(r), static_cast<size_t>(n) + cc);
      for (int c2 = c + 1; c2 < p; ++c2) s -= rd_(cc, static_cast<size_t>(c2)) * x[n + c2];
      x[n + c] = s / d;
    }
    // Band unknowns: Rb·x₁ = (Qᵀb)₁ − Rc·x₂.
    for (int k = n - 1; k >= 0; --k) {
      const double* rk = &rb_(0, static_cast<size_t>(k));
      if (dependent(rk[0])) {
        x[k] = 0.0;
        continue;
      }
      double s = qtb_(static_cast<size_t>(r), static_cast<size_t>(k));
      const int jmax = std::min(w - 1, n - 1 - k);
      for (int j = 1; j <= jmax; ++j) s -= rk[j] * x[k + j];
      if (p) {
        const double* ck = &rc_(0, static_cast<size_t>(k));
        for (int c = 0; c < p; ++c) s -= ck[c] * x[n + c];
      }
      x[k] = s / rk[0];
    }
  }
  return deficient;
}

int AlmostBandedLSQ::solve(Array<double, 1>& x, double rcond, int flags) const {
  QV_CHECK(nrhs_ == 1, bandmatrix, Internal_numerical_error,
           "AlmostBandedLSQ solve: A vector holds only one right-hand side.");
  Array<double, 2> X;
  const int deficient = solve(X, rcond, flags);
  x.resize(X.count);
  std::copy(X.data, X.data + X.count, x.data);
  return deficient;
}

double AlmostBandedLSQ::residualNorm(int r) const {
  QV_CHECK(r >= 0 && r < nrhs_, bandmatrix, Internal_numerical_error,
           "AlmostBandedLSQ residualNorm: No such right-hand side.");
  return std::sqrt(ssr_[r]);
}

}  // namespace qvarray
