#pragma once
// Interpolation on a structured grid of 1 to 3 axes (see interpolator.h).
//
// Storage: the values, or for the cubic methods the Hermite data, node by
// node: coef[(node·nfun + f)·M + m], node = i_0 + n_0·(i_1 + n_1·i_2), where
// M = 1 for "linear" and "neighbor" and M = 2^D for the cubic methods, m
// being the set of axes (bit d for axis d) the stored derivative is taken
// along: m = 0 the value, m = 1 ∂f/∂x_0, m = 3 ∂²f/∂x_0∂x_1, ... One cell
// of a point then reads 2^D blocks of nfun·M contiguous numbers.
//
// A point's value is Σ_corners Σ_m Π_d w_d[c_d][m_d] · coef, with per axis
// the weights of the cell's two nodes (c_d = 0, 1) on their value (m_d = 0)
// and slope (m_d = 1): 1 − t and t for "linear", the cubic Hermite basis
// h00, h·h10, h01, h·h11 at t = (x − x_i)/h for the cubic methods. A
// derivative along axis d takes the derivatives of axis d's weights.
#include <vector>

#include "interp/interpimpl.h"

namespace qvarray::interpdetail {

/// One axis: its nodes and a fast cell search.
struct GridAxis {
  std::vector<double> x;
  bool uniform = false;  // equal spacing (to rounding): the cell is computed
  double invh = 0;       // 1 / spacing when uniform

  explicit GridAxis(std::vector<double> nodes);
  size_t size() const { return x.size(); }
  /// The cell i (0 <= i <= n−2) whose interval [x_i, x_{i+1}] holds v, the
  /// first or last for v outside. v is not NaN.
  size_t cell(double v) const;
};

class GridInterp final : public InterpImpl {
 public:
  /// Axes and values checked by the caller.
  GridInterp(std::vector<GridAxis> axes, const Array<double, 2>& values, InterpMethod method,
             InterpExtrapolation extrapolation);

  void evaluateRange(const double* const* coords, size_t p0, size_t p1, size_t n, double* out,
                     size_t f0, size_t f1, int deriv) const override;
  void evaluateOrdered(const double* const* coords, const size_t* order, size_t k0, size_t k1,
                       size_t n, double* out, size_t f0, size_t f1, int deriv) const override;
  size_t firstOutside(const double* const* coords, size_t n) const override;
  size_t costPerPoint() const override;
  size_t keyCount() const override { return blocks_; }
  std::uint32_t key(const double* const* coords, size_t p) const override;

 private:
  // The points order[k] (k itself when order is null), k0 <= k < k1.
  template <int D>
  void evaluateDim(const double* const* coords, const size_t* order, size_t k0, size_t k1,
                   size_t n, double* out, size_t f0, size_t f1, int deriv) const;
  void buildHermite(const Array<double, 2>& values);

  std::vector<GridAxis> axes_;
  size_t stride_[3] = {0, 0, 0};  // node offset of one step along each axis
  int M_ = 1;                      // coefficients per node and function
  std::vector<double> coef_;
  // Data far beyond the caches (over 32 MB) are read block by block, about 8
  // nodes along each axis: the key of a point is its block. Below that the
  // sort costs more than it saves (measured on 10^6 points: it gains a
  // quarter on the 64 MB of a 100³ cubic spline, and loses a sixth on the
  // 8 MB of linear data).
  size_t blocks_ = 0;
  size_t blockCount_[3] = {1, 1, 1};
  double blockScale_[3] = {0, 0, 0};
};

}  // namespace qvarray::interpdetail
