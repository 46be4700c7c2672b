// Scattered data: point location in the Delaunay triangulation by a walk from
// a nearby simplex, and nearest data points from a k-d tree.
//
// Barycentric coordinates: simplex s with vertices v_0..v_D stores v_0 and
// T = [v_1 − v_0, ..., v_D − v_0]⁻¹; a point x has λ_{1..D} = T·(x − v_0) and
// λ_0 = 1 − Σλ_k, and the interpolant is Σ λ_k f(v_k) with gradient
// ∂f/∂x_d = Σ_{k≥1} T_{k−1,d} (f(v_k) − f(v_0)).
//
// The walk (visibility walk): from the start simplex, while some λ_k < −ε,
// step into the neighbour opposite the most negative λ_k. Each step crosses
// a face that separates the simplex from x; on a Delaunay triangulation the
// walk ends. A face on the hull with x beyond it means x lies outside the
// convex hull. The start is the simplex recorded in x's cell of a uniform
// grid of buckets over the points' bounding box (about one bucket per
// point; each bucket holds a simplex whose centroid lies in it), or the
// simplex found for the point before when that lay in the same bucket; a
// batch is evaluated bucket by bucket (interpimpl.h), so walks are a few
// steps long and run through cached memory. Degenerate (flat) simplices are
// stepped through, and a walk that runs too long falls back to a scan of all
// simplices.
#include "interp/scatteredinterp.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <nanoflann.hpp>

#include "interp/delaunay.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray::interpdetail {

namespace {

using qvbase::DetailPairs;

// Points row-major, point k at xyz[k*D].
template <int D>
std::vector<double> rowMajor(const Array<double, 2>& points) {
  const size_t n = points.size(0);
  std::vector<double> xyz(n * D);
  for (size_t k = 0; k < n; ++k)
    for (int d = 0; d < D; ++d) xyz[k * D + d] = points(k, d);
  return xyz;
}

template <int D>
void checkDistinct(const std::vector<double>& xyz) {
  const size_t n = xyz.size() / D;
  std::vector<size_t> order(n);
  std::iota(order.begin(), order.end(), size_t{0});
  auto less = [&](size_t a, size_t b) {
    return std::lexicographical_compare(&xyz[a * D], &xyz[a * D] + D, &xyz[b * D], &xyz[b * D] + D);
  };
  std::sort(order.begin(), order.end(), less);
  for (size_t k = 1; k < n; ++k)
    QV_CHECK(less(order[k - 1], order[k]), interpolator, Invalid_interpolation_data,
             DetailPairs{{"", "Two data points coincide."},
                         {"Point", std::to_string(std::min(order[k - 1], order[k]) + 1)},
                         {"Point", std::to_string(std::max(order[k - 1], order[k]) + 1)}});
}

// Values node-major: the functions of point k side by side.
std::vector<double> nodeMajor(const Array<double, 2>& values) {
  const size_t n = values.size(0), F = values.size(1);
  std::vector<double> v(n * F);
  for (size_t f = 0; f < F; ++f)
    for (size_t k = 0; k < n; ++k) v[k * F + f] = values(k, f);
  return v;
}

// The k-d tree of the data points (nanoflann over our row-major copy).
template <int D>
class NearestPoint {
 public:
  explicit NearestPoint(const std::vector<double>& xyz)
      : cloud_{&xyz}, tree_(D, cloud_, nanoflann::KDTreeSingleIndexAdaptorParams(16)) {}
  /// The data point nearest to x (ties: whichever the tree meets first).
  size_t operator()(const double* x) const {
    std::uint32_t k = 0;
    double dist2 = 0;
    tree_.knnSearch(x, 1, &k, &dist2);
    return k;
  }

 private:
  struct Cloud {
    const std::vector<double>* xyz;
    size_t kdtree_get_point_count() const { return xyz->size() / D; }
    double kdtree_get_pt(size_t k, size_t d) const { return (*xyz)[k * D + d]; }
    template <class Box>
    bool kdtree_get_bbox(Box&) const {
      return false;
    }
  };
  using Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, Cloud>,
                                                   Cloud, D, std::uint32_t>;
  Cloud cloud_;
  Tree tree_;
};

// The bounding box of the points and a uniform bucket grid over it.
template <int D>
struct BucketGrid {
  double lo[D], hi[D], scale[D];
  size_t n[D], stride[D], total = 1;

  BucketGrid(const std::vector<double>& xyz, size_t buckets) {
    const size_t np = xyz.size() / D;
    for (int d = 0; d < D; ++d) lo[d] = hi[d] = xyz[d];
    for (size_t k = 0; k < np; ++k)
      for (int d = 0; d < D; ++d)
        lo[d] = std::min(lo[d], xyz[k * D + d]), hi[d] = std::max(hi[d], xyz[k * D + d]);
    const size_t side = std::max<size_t>(
        1, static_cast<size_t>(std::pow(static_cast<double>(buckets), 1.0 / D)));
    for (int d = 0; d < D; ++d) {
      n[d] = side;
      stride[d] = total;
      total *= side;
      scale[d] = hi[d] > lo[d] ? static_cast<double>(side) / (hi[d] - lo[d]) : 0.0;
    }
  }
  bool inside(const double* x) const {
    for (int d = 0; d < D; ++d)
      if (x[d] < lo[d] || x[d] > hi[d]) return false;
    return true;
  }
  size_t bucket(const double* x) const {
    size_t b = 0;
    for (int d = 0; d < D; ++d) {
      const double r =
          std::clamp(std::floor((x[d] - lo[d]) * scale[d]), 0.0, static_cast<double>(n[d] - 1));
      b += static_cast<size_t>(r) * stride[d];
    }
    return b;
  }
};

template <int D>
class ScatteredLinear final : public InterpImpl {
 public:
  ScatteredLinear(std::vector<double> xyz, const Array<double, 2>& values,
                  InterpExtrapolation extrapolation)
      : InterpImpl(D, values.size(1), InterpMethod::Linear, extrapolation, false),
        xyz_(std::move(xyz)),
        values_(nodeMajor(values)),
        tri_(delaunay(xyz_.data(), xyz_.size() / D, D)),
        buckets_(xyz_, xyz_.size() / D) {
    QV_CHECK(tri_.count() > 0, interpolator, Triangulation_failed,
             "The points span no simplex.");
    buildTransforms();
    start_.assign(buckets_.total, 0);
    std::vector<char> filled(buckets_.total, 0);
    for (size_t s = 0; s < tri_.count(); ++s) {
      double c[D] = {};
      for (int k = 0; k <= D; ++k)
        for (int d = 0; d < D; ++d) c[d] += xyz_[tri_.vertices[s * (D + 1) + k] * D + d] / (D + 1);
      const size_t b = buckets_.bucket(c);
      start_[b] = static_cast<std::int32_t>(s), filled[b] = 1;
    }
    // Empty buckets take the simplex of the bucket before them (or after).
    std::int32_t last = -1;
    for (size_t b = 0; b < buckets_.total; ++b)
      if (filled[b]) last = start_[b];
      else if (last >= 0) start_[b] = last;
    if (extrapolation == InterpExtrapolation::Constant)
      nearest_ = std::make_unique<NearestPoint<D>>(xyz_);
  }

  void evaluateRange(const double* const* coords, size_t p0, size_t p1, size_t n, double* out,
                     size_t f0, size_t f1, int deriv) const override {
    run(coords, [](size_t k) { return k; }, p0, p1, n, out, f0, f1, deriv);
  }
  void evaluateOrdered(const double* const* coords, const size_t* order, size_t k0, size_t k1,
                       size_t n, double* out, size_t f0, size_t f1, int deriv) const override {
    run(coords, [order](size_t k) { return order[k]; }, k0, k1, n, out, f0, f1, deriv);
  }
  size_t keyCount() const override { return buckets_.total; }
  std::uint32_t key(const double* const* coords, size_t p) const override {
    return bucketOf(coords, p);
  }

  size_t firstOutside(const double* const* coords, size_t n) const override {
    for (size_t p = 0; p < n; ++p) {
      double x[D], lambda[D + 1];
      bool nan = false, outside = false;
      for (int d = 0; d < D; ++d) x[d] = coords[d][p], nan |= std::isnan(x[d]);
      if (!nan) locate(x, static_cast<size_t>(start_[buckets_.bucket(x)]), lambda, outside);
      if (outside) return p;
    }
    return n;
  }

  size_t costPerPoint() const override { return 64; }

 private:
  static constexpr int kStride = D + D * D;  // v_0, then T row by row

  std::uint32_t bucketOf(const double* const* coords, size_t p) const {
    double x[D];
    for (int d = 0; d < D; ++d) {
      x[d] = coords[d][p];
      if (std::isnan(x[d])) return 0;
    }
    return static_cast<std::uint32_t>(buckets_.bucket(x));
  }

  // The points at(k0..k1): a walk starts from the simplex of the point
  // before when that lay in the same bucket, else from the bucket's simplex.
  template <class At>
  void run(const double* const* coords, At at, size_t k0, size_t k1, size_t n, double* out,
           size_t f0, size_t f1, int deriv) const {
    size_t lastBucket = SIZE_MAX, last = 0;
    for (size_t k = k0; k < k1; ++k) {
      const size_t p = at(k);
      double x[D];
      bool nan = false;
      for (int d = 0; d < D; ++d) x[d] = coords[d][p], nan |= std::isnan(x[d]);
      double lambda[D + 1];
      bool outside = false;
      size_t s = 0;
      if (!nan) {
        const size_t b = buckets_.bucket(x);
        s = locate(x, b == lastBucket ? last : static_cast<size_t>(start_[b]), lambda, outside);
        lastBucket = b, last = s;
      }
      for (size_t f = f0; f < f1; ++f)
        out[p + n * (f - f0)] = value(s, x, lambda, outside, nan, f, deriv);
    }
  }
  static constexpr double kTol = 1e-12;

  void buildTransforms() {
    const size_t ns = tri_.count();
    transform_.resize(ns * kStride);
    for (size_t s = 0; s < ns; ++s) {
      const std::int32_t* v = &tri_.vertices[s * (D + 1)];
      double* t = &transform_[s * kStride];
      const double* v0 = &xyz_[v[0] * D];
      double A[D][D];  // column k: v_{k+1} − v_0
      double scale = 0;
      for (int k = 0; k < D; ++k)
        for (int d = 0; d < D; ++d) {
          A[d][k] = xyz_[v[k + 1] * D + d] - v0[d];
          scale = std::max(scale, std::fabs(A[d][k]));
        }
      for (int d = 0; d < D; ++d) t[d] = v0[d];
      double* T = t + D;
      if (!invert(A, T, scale)) std::fill(T, T + D * D, qvGetNaN());
    }
  }

  // T = A⁻¹ by the adjugate; false when A is singular to working precision.
  static bool invert(const double (&A)[D][D], double* T, double scale) {
    if constexpr (D == 2) {
      const double det = A[0][0] * A[1][1] - A[0][1] * A[1][0];
      if (!(std::fabs(det) > 1e-13 * scale * scale)) return false;
      T[0] = A[1][1] / det, T[1] = -A[0][1] / det;
      T[2] = -A[1][0] / det, T[3] = A[0][0] / det;
    } else {
      double C[3][3];  // cofactors
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
          const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
          C[i][j] = A[i1][j1] * A[i2][j2] - A[i1][j2] * A[i2][j1];
        }
      const double det = A[0][0] * C[0][0] + A[0][1] * C[0][1] + A[0][2] * C[0][2];
      if (!(std::fabs(det) > 1e-13 * scale * scale * scale)) return false;
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) T[i * 3 + j] = C[j][i] / det;
    }
    return true;
  }

  // λ of x in simplex s; false when s is degenerate.
  bool barycentric(size_t s, const double* x, double* lambda) const {
    const double* t = &transform_[s * kStride];
    const double* T = t + D;
    if (std::isnan(T[0])) return false;
    double sum = 0;
    for (int k = 0; k < D; ++k) {
      double l = 0;
      for (int d = 0; d < D; ++d) l += T[k * D + d] * (x[d] - t[d]);
      lambda[k + 1] = l, sum += l;
    }
    lambda[0] = 1 - sum;
    return true;
  }

  // The simplex holding x (outside = false), or the hull simplex the walk
  // left through (outside = true); lambda: x's coordinates in it.
  size_t locate(const double* x, size_t s, double* lambda, bool& outside) const {
    const size_t ns = tri_.count();
    const size_t maxSteps = 64 + 4 * static_cast<size_t>(std::sqrt(static_cast<double>(ns)));
    for (size_t step = 0; step < maxSteps; ++step) {
      const std::int32_t* nb = &tri_.neighbors[s * (D + 1)];
      if (!barycentric(s, x, lambda)) {  // flat: step through any neighbour
        const std::int32_t next = *std::max_element(nb, nb + D + 1);
        if (next < 0) break;
        s = static_cast<size_t>(nb[step % (D + 1)] >= 0 ? nb[step % (D + 1)] : next);
        continue;
      }
      const int k = static_cast<int>(std::min_element(lambda, lambda + D + 1) - lambda);
      if (lambda[k] >= -kTol) return outside = false, s;
      if (nb[k] < 0) return outside = true, s;
      s = static_cast<size_t>(nb[k]);
    }
    return scan(x, lambda, outside);
  }

  // The walk's fallback: the simplex holding x, else the one whose smallest
  // coordinate is the least negative, taken as the hull simplex.
  size_t scan(const double* x, double* lambda, bool& outside) const {
    size_t best = 0;
    double bestMin = -qvGetInf();
    double l[D + 1];
    for (size_t s = 0; s < tri_.count(); ++s) {
      if (!barycentric(s, x, l)) continue;
      const double m = *std::min_element(l, l + D + 1);
      if (m > bestMin) bestMin = m, best = s, std::copy(l, l + D + 1, lambda);
    }
    outside = bestMin < -kTol;
    return best;
  }

  double value(size_t s, const double* x, const double* lambda, bool outside, bool nan, size_t f,
               int deriv) const {
    if (nan || (outside && extrapolation == InterpExtrapolation::NaN)) return qvGetNaN();
    if (outside && extrapolation == InterpExtrapolation::Constant)
      return deriv >= 0 ? 0.0 : values_[(*nearest_)(x)*nfun + f];
    const std::int32_t* v = &tri_.vertices[s * (D + 1)];
    if (deriv >= 0) {
      const double* T = &transform_[s * kStride + D];
      const double f0 = values_[v[0] * nfun + f];
      double g = 0;
      for (int k = 0; k < D; ++k) g += T[k * D + deriv] * (values_[v[k + 1] * nfun + f] - f0);
      return g;
    }
    double sum = 0;
    for (int k = 0; k <= D; ++k) sum += lambda[k] * values_[v[k] * nfun + f];
    return sum;
  }

  std::vector<double> xyz_;
  std::vector<double> values_;
  Triangulation tri_;
  BucketGrid<D> buckets_;
  std::vector<double> transform_;
  std::vector<std::int32_t> start_;
  std::unique_ptr<NearestPoint<D>> nearest_;
};

// Outside means outside the points' bounding box; "const" and "linear" both
// give the nearest point there.
template <int D>
class ScatteredNeighbor final : public InterpImpl {
 public:
  ScatteredNeighbor(std::vector<double> xyz, const Array<double, 2>& values,
                    InterpExtrapolation extrapolation)
      : InterpImpl(D, values.size(1), InterpMethod::Neighbor, extrapolation, false),
        xyz_(std::move(xyz)),
        values_(nodeMajor(values)),
        box_(xyz_, xyz_.size() / D),
        nearest_(xyz_) {}

  void evaluateRange(const double* const* coords, size_t p0, size_t p1, size_t n, double* out,
                     size_t f0, size_t f1, int deriv) const override {
    for (size_t p = p0; p < p1; ++p) {
      double x[D];
      bool nan = false;
      for (int d = 0; d < D; ++d) x[d] = coords[d][p], nan |= std::isnan(x[d]);
      const bool blank = nan || (extrapolation == InterpExtrapolation::NaN && !box_.inside(x));
      const size_t k = blank || deriv >= 0 ? 0 : nearest_(x);
      for (size_t f = f0; f < f1; ++f)
        out[p + n * (f - f0)] = blank ? qvGetNaN() : deriv >= 0 ? 0.0 : values_[k * nfun + f];
    }
  }

  size_t firstOutside(const double* const* coords, size_t n) const override {
    for (size_t p = 0; p < n; ++p) {
      double x[D];
      for (int d = 0; d < D; ++d) x[d] = std::isnan(coords[d][p]) ? box_.lo[d] : coords[d][p];
      if (!box_.inside(x)) return p;
    }
    return n;
  }

  size_t costPerPoint() const override { return 128; }
  size_t keyCount() const override { return box_.total; }
  std::uint32_t key(const double* const* coords, size_t p) const override {
    double x[D];
    for (int d = 0; d < D; ++d) {
      x[d] = coords[d][p];
      if (std::isnan(x[d])) return 0;
    }
    return static_cast<std::uint32_t>(box_.bucket(x));
  }

 private:
  std::vector<double> xyz_;
  std::vector<double> values_;
  BucketGrid<D> box_;
  NearestPoint<D> nearest_;
};

template <template <int> class Impl>
std::shared_ptr<const InterpImpl> make(const Array<double, 2>& points,
                                       const Array<double, 2>& values,
                                       InterpExtrapolation extrapolation) {
  if (points.size(1) == 2) {
    std::vector<double> xyz = rowMajor<2>(points);
    checkDistinct<2>(xyz);
    return std::make_shared<const Impl<2>>(std::move(xyz), values, extrapolation);
  }
  std::vector<double> xyz = rowMajor<3>(points);
  checkDistinct<3>(xyz);
  return std::make_shared<const Impl<3>>(std::move(xyz), values, extrapolation);
}

}  // namespace

std::shared_ptr<const InterpImpl> makeScatteredLinear(const Array<double, 2>& points,
                                                      const Array<double, 2>& values,
                                                      InterpExtrapolation extrapolation) {
  return make<ScatteredLinear>(points, values, extrapolation);
}

std::shared_ptr<const InterpImpl> makeScatteredNeighbor(const Array<double, 2>& points,
                                                        const Array<double, 2>& values,
                                                        InterpExtrapolation extrapolation) {
  return make<ScatteredNeighbor>(points, values, extrapolation);
}

}  // namespace qvarray::interpdetail
