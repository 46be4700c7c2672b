// Interpolation on a structured grid: cell search, per-axis weights, and the
// Hermite data of the cubic methods (storage and formulas in gridinterp.h).
#include "interp/gridinterp.h"

#include <algorithm>
#include <cmath>

#include "interp/hermiteslopes.h"
#include "qvutil/numeric.h"

namespace qvarray::interpdetail {

GridAxis::GridAxis(std::vector<double> nodes) : x(std::move(nodes)) {
  const size_t n = x.size();
  const double h = (x[n - 1] - x[0]) / static_cast<double>(n - 1);
  // Nodes within 1% of a spacing from the equally spaced ones: the computed
  // cell is then off by at most one, which cell() corrects.
  uniform = true;
  for (size_t i = 0; i < n && uniform; ++i)
    uniform = std::fabs(x[i] - (x[0] + static_cast<double>(i) * h)) <= 0.01 * h;
  invh = 1.0 / h;
}

size_t GridAxis::cell(double v) const {
  const size_t n = x.size();
  if (uniform) {
    // Clamped as a double first: an infinite or huge v must not overflow.
    const double r = std::clamp(std::floor((v - x[0]) * invh), 0.0, static_cast<double>(n - 2));
    size_t i = static_cast<size_t>(r);
    while (i > 0 && v < x[i]) --i;
    while (i + 2 < n && v >= x[i + 1]) ++i;
    return i;
  }
  // The first of x_1..x_{n-2} above v, or x_{n-1}: the cell ends there.
  return static_cast<size_t>(std::upper_bound(x.begin() + 1, x.end() - 1, v) - x.begin()) - 1;
}

GridInterp::GridInterp(std::vector<GridAxis> axes, const Array<double, 2>& values,
                       InterpMethod method, InterpExtrapolation extrapolation)
    : InterpImpl(static_cast<int>(axes.size()), values.size(1), method, extrapolation, true),
      axes_(std::move(axes)) {
  size_t stride = 1;
  for (int d = 0; d < dim; ++d) {
    stride_[d] = stride;
    stride *= axes_[d].size();
  }
  if (method == InterpMethod::CubicSpline || method == InterpMethod::PiecewiseCubic) {
    buildHermite(values);
  } else {
    // Node-major: the functions of a node side by side.
    const size_t N = values.size(0);
    coef_.resize(N * nfun);
    for (size_t f = 0; f < nfun; ++f)
      for (size_t k = 0; k < N; ++k) coef_[k * nfun + f] = values(k, f);
  }
  constexpr size_t kCachedBytes = size_t{1} << 25, kBlockNodes = 8;
  if (coef_.size() * sizeof(double) > kCachedBytes) {
    blocks_ = 1;
    for (int d = 0; d < dim; ++d) {
      const GridAxis& a = axes_[d];
      blockCount_[d] = std::max<size_t>(1, a.size() / kBlockNodes);
      blockScale_[d] = static_cast<double>(blockCount_[d]) / (a.x.back() - a.x.front());
      blocks_ *= blockCount_[d];
    }
  }
}

std::uint32_t GridInterp::key(const double* const* coords, size_t p) const {
  size_t k = 0;
  for (int d = dim; d-- > 0;) {
    const double v = coords[d][p];
    if (std::isnan(v)) return 0;
    const double r = std::clamp(std::floor((v - axes_[d].x.front()) * blockScale_[d]), 0.0,
                                static_cast<double>(blockCount_[d] - 1));
    k = k * blockCount_[d] + static_cast<size_t>(r);
  }
  return static_cast<std::uint32_t>(k);
}

// G[m] holds, function after function over the grid, the derivative of the
// data along the axes in m. Axis by axis, each G[m] built so far (m using
// only earlier axes) gives G[m | bit d] by the slope rule along axis d,
// applied to every grid line of that axis.
void GridInterp::buildHermite(const Array<double, 2>& values) {
  const size_t N = values.size(0), F = nfun;
  M_ = 1 << dim;
  std::vector<std::vector<double>> G(M_);
  G[0].assign(values.data, values.data + N * F);
  size_t longest = 0;
  for (const GridAxis& a : axes_) longest = std::max(longest, a.size());
  std::vector<double> y(longest), s(longest);
  for (int d = 0; d < dim; ++d) {
    const GridAxis& axis = axes_[d];
    const size_t nd = axis.size(), st = stride_[d], outer = N / (st * nd);
    const SplineSlopes spline(method == InterpMethod::CubicSpline ? axis.x
                                                                   : std::vector<double>());
    for (int m = 0; m < (1 << d); ++m) {
      const double* src = G[m].data();
      std::vector<double>& dst = G[m | (1 << d)];
      dst.resize(N * F);
      for (size_t f = 0; f < F; ++f)
        for (size_t hi = 0; hi < outer; ++hi)
          for (size_t lo = 0; lo < st; ++lo) {
            const size_t base = f * N + hi * st * nd + lo;
            for (size_t k = 0; k < nd; ++k) y[k] = src[base + k * st];
            if (method == InterpMethod::CubicSpline) spline(y.data(), s.data());
            else pchipSlopes(axis.x, y.data(), s.data());
            for (size_t k = 0; k < nd; ++k) dst[base + k * st] = s[k];
          }
    }
  }
  coef_.resize(N * F * M_);
  for (int m = 0; m < M_; ++m)
    for (size_t f = 0; f < F; ++f)
      for (size_t k = 0; k < N; ++k) coef_[(k * F + f) * M_ + m] = G[m][f * N + k];
}

namespace {

// The weights of one axis at coordinate v: the cell's first node i and
// w[c][b], the weight of the value (b = 0) or slope (b = 1) at node i + c.
// Beyond the ends: "const" freezes the end (zero derivative), "linear"
// continues with the end derivative.
template <bool Hermite>
size_t axisWeights(const GridAxis& a, double v, bool diff, InterpExtrapolation ex,
                   double w[2][2]) {
  const size_t i = a.cell(v);
  const double xl = a.x[i], xr = a.x[i + 1], h = xr - xl;
  double t = (v - xl) / h, beyond = 0;
  const bool outside = v < a.x.front() || v > a.x.back();
  if (outside) {
    t = v < xl ? 0.0 : 1.0;
    beyond = v - (v < xl ? xl : xr);
  }
  double val[2][2], der[2][2];
  if constexpr (Hermite) {
    const double t2 = t * t, t3 = t2 * t;
    val[0][0] = 2 * t3 - 3 * t2 + 1, val[0][1] = h * (t3 - 2 * t2 + t);
    val[1][0] = 3 * t2 - 2 * t3, val[1][1] = h * (t3 - t2);
    der[0][0] = 6 * (t2 - t) / h, der[0][1] = 3 * t2 - 4 * t + 1;
    der[1][0] = 6 * (t - t2) / h, der[1][1] = 3 * t2 - 2 * t;
  } else {
    val[0][0] = 1 - t, val[1][0] = t, der[0][0] = -1 / h, der[1][0] = 1 / h;
    val[0][1] = val[1][1] = der[0][1] = der[1][1] = 0;
  }
  const bool frozen = outside && ex != InterpExtrapolation::Linear;
  for (int c = 0; c < 2; ++c)
    for (int b = 0; b < 2; ++b) {
      if (diff) w[c][b] = frozen ? 0.0 : der[c][b];
      else w[c][b] = val[c][b] + (frozen ? 0.0 : beyond * der[c][b]);
    }
  return i;
}

}  // namespace

template <int D>
void GridInterp::evaluateDim(const double* const* coords, const size_t* order, size_t k0,
                             size_t k1, size_t n, double* out, size_t f0, size_t f1,
                             int deriv) const {
  constexpr int C = 1 << D;
  const int M = M_;
  const bool hermite = M > 1;
  for (size_t k = k0; k < k1; ++k) {
    const size_t p = order ? order[k] : k;
    double v[D];
    bool nan = false, outside = false;
    for (int d = 0; d < D; ++d) {
      v[d] = coords[d][p];
      nan |= std::isnan(v[d]);
      outside |= v[d] < axes_[d].x.front() || v[d] > axes_[d].x.back();
    }
    if (nan || (outside && extrapolation == InterpExtrapolation::NaN)) {
      for (size_t f = f0; f < f1; ++f) out[p + n * (f - f0)] = qvGetNaN();
      continue;
    }
    if (method == InterpMethod::Neighbor) {
      size_t node = 0;
      for (int d = 0; d < D; ++d) {
        const GridAxis& a = axes_[d];
        const size_t i = a.cell(v[d]);
        node += (i + ((v[d] - a.x[i]) > (a.x[i + 1] - v[d]))) * stride_[d];
      }
      for (size_t f = f0; f < f1; ++f)
        out[p + n * (f - f0)] = deriv >= 0 ? 0.0 : coef_[node * nfun + f];
      continue;
    }
    size_t i[D];
    double w[D][2][2];
    for (int d = 0; d < D; ++d)
      i[d] = hermite ? axisWeights<true>(axes_[d], v[d], d == deriv, extrapolation, w[d])
                     : axisWeights<false>(axes_[d], v[d], d == deriv, extrapolation, w[d]);
    size_t off[C];
    double W[C * C];
    for (int c = 0; c < C; ++c) {
      size_t node = 0;
      for (int d = 0; d < D; ++d) node += (i[d] + ((c >> d) & 1)) * stride_[d];
      off[c] = node * nfun * M;
      for (int m = 0; m < M; ++m) {
        double prod = 1;
        for (int d = 0; d < D; ++d) prod *= w[d][(c >> d) & 1][(m >> d) & 1];
        W[c * M + m] = prod;
      }
    }
    for (size_t f = f0; f < f1; ++f) {
      double acc = 0;
      for (int c = 0; c < C; ++c) {
        const double* b = coef_.data() + off[c] + f * M;
        for (int m = 0; m < M; ++m) acc += W[c * M + m] * b[m];
      }
      out[p + n * (f - f0)] = acc;
    }
  }
}

void GridInterp::evaluateRange(const double* const* coords, size_t p0, size_t p1, size_t n,
                               double* out, size_t f0, size_t f1, int deriv) const {
  evaluateOrdered(coords, nullptr, p0, p1, n, out, f0, f1, deriv);
}

void GridInterp::evaluateOrdered(const double* const* coords, const size_t* order, size_t k0,
                                 size_t k1, size_t n, double* out, size_t f0, size_t f1,
                                 int deriv) const {
  switch (dim) {
    case 1: return evaluateDim<1>(coords, order, k0, k1, n, out, f0, f1, deriv);
    case 2: return evaluateDim<2>(coords, order, k0, k1, n, out, f0, f1, deriv);
    default: return evaluateDim<3>(coords, order, k0, k1, n, out, f0, f1, deriv);
  }
}

size_t GridInterp::firstOutside(const double* const* coords, size_t n) const {
  for (size_t p = 0; p < n; ++p)
    for (int d = 0; d < dim; ++d)
      if (coords[d][p] < axes_[d].x.front() || coords[d][p] > axes_[d].x.back()) return p;
  return n;
}

size_t GridInterp::costPerPoint() const { return 8 * static_cast<size_t>(M_) << dim; }

}  // namespace qvarray::interpdetail
