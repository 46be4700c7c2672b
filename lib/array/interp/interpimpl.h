#pragma once
// The evaluators behind Interpolator: one per kind of data (grid, scattered
// linear, scattered nearest neighbour), immutable after construction.
#include <cstddef>
#include <cstdint>

#include "qvarray/interp/interpolator.h"

namespace qvarray {

class InterpImpl {
 public:
  InterpImpl(int dim, size_t nfun, InterpMethod method, InterpExtrapolation extrapolation,
             bool grid)
      : dim(dim), nfun(nfun), method(method), extrapolation(extrapolation), grid(grid) {}
  virtual ~InterpImpl() = default;

  /// Points p0 <= p < p1 of a batch of n: out[p + n*(f - f0)] is function f
  /// (f0 <= f < f1), or its derivative along coordinate `deriv` (-1: value),
  /// at (coords[0][p], ..., coords[dim-1][p]). Points outside the data are
  /// extrapolated; "error" is the caller's business (firstOutside). Never
  /// throws and never allocates: it runs inside parallel regions.
  virtual void evaluateRange(const double* const* coords, size_t p0, size_t p1, size_t n,
                             double* out, size_t f0, size_t f1, int deriv) const = 0;
  /// Data that profit from evaluating nearby points together (scattered
  /// data: walks and tree searches start where the last one ended, in memory
  /// that is still cached) give each point a key, < keyCount(), equal keys
  /// for points close to each other (a cell of a bucket grid), and evaluate
  /// points in the order of their keys; 0 keys: input order.
  virtual size_t keyCount() const { return 0; }
  virtual std::uint32_t key(const double* const* coords, size_t p) const {
    (void)coords, (void)p;
    return 0;
  }
  /// As evaluateRange, for the points order[k0..k1).
  virtual void evaluateOrdered(const double* const* coords, const size_t* order, size_t k0,
                               size_t k1, size_t n, double* out, size_t f0, size_t f1,
                               int deriv) const {
    for (size_t k = k0; k < k1; ++k)
      evaluateRange(coords, order[k], order[k] + 1, n, out, f0, f1, deriv);
  }
  /// The first of the n points that lies outside the data (a point with a
  /// NaN coordinate does not), or n.
  virtual size_t firstOutside(const double* const* coords, size_t n) const = 0;
  /// Rough work per point and function, in units of a multiply-add, which
  /// decides when a batch goes parallel.
  virtual size_t costPerPoint() const = 0;

  const int dim;
  const size_t nfun;
  const InterpMethod method;
  const InterpExtrapolation extrapolation;
  const bool grid;
};

}  // namespace qvarray
