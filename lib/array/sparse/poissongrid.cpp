// The finite-difference Poisson problem on a structured grid.
#include "qvarray/sparse/poissongrid.h"

#include <cmath>
#include <cstdint>
#include <new>

#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Grid steps of the lexicographic numbering and the extent per direction.
struct Layout {
  size_t n, stride[3];
  int dim;
  explicit Layout(const PoissonGrid& g) : n(g.n), stride{1, g.n, g.n * g.n}, dim(g.dim) {}
  size_t coord(size_t p, int d) const { return p / stride[d] % n; }
};

// The grid's contract, checked before anything is allocated: 2 or 3
// dimensions, at least one point, and n^dim unknowns with their 2·dim + 1
// stencil entries of 24 bytes each (triplet row, column, value) countable.
void checkGrid(const PoissonGrid& g) {
  QV_CHECK(g.dim == 2 || g.dim == 3, poissongrid, Internal_numerical_error,
           "PoissonGrid: the dimension must be 2 or 3.");
  QV_CHECK(g.n > 0, poissongrid, Internal_numerical_error,
           "PoissonGrid: the grid has no points.");
  size_t limit = SIZE_MAX / 24 / (2 * static_cast<size_t>(g.dim) + 1);
  for (int d = 0; d < g.dim; ++d) {
    if (g.n > limit) throw std::bad_alloc();
    limit /= g.n;
  }
}

}  // namespace

Sparse assemblePoisson(const PoissonGrid& g, bool lowerHalf) {
  checkGrid(g);
  const Layout L(g);
  const size_t N = g.unknowns();
  std::vector<size_t> rows, cols;
  std::vector<double> vals;
  const size_t expected = N * (1 + 2 * static_cast<size_t>(g.dim));
  rows.reserve(expected);
  cols.reserve(expected);
  vals.reserve(expected);
  const double diag = 2.0 * g.dim * (lowerHalf ? 0.5 : 1.0);
  for (size_t p = 0; p < N; ++p) {
    rows.push_back(p);
    cols.push_back(p);
    vals.push_back(diag);
  }
  // Neighbour q of p in direction d: (row p, column q); the lower half keeps
  // the entries with p > q.
  for (int d = 0; d < g.dim; ++d)
    for (int side = -1; side <= 1; side += 2)
      for (size_t p = 0; p < N; ++p) {
        const size_t c = L.coord(p, d);
        if ((side < 0 && c == 0) || (side > 0 && c + 1 == g.n)) continue;
        const size_t q = side < 0 ? p - L.stride[d] : p + L.stride[d];
        if (lowerHalf && p < q) continue;
        rows.push_back(p);
        cols.push_back(q);
        vals.push_back(-1.0);
      }
  Sparse A;
  A.vectorTripletToSparse(rows, cols, vals, N, N);
  if (lowerHalf) A.setSymm(SymmSymmetric);
  return A;
}

void manufacturedSolution(const PoissonGrid& g, std::vector<double>& u, std::vector<double>& b) {
  checkGrid(g);
  const Layout L(g);
  const size_t N = g.unknowns();
  const double h = 1.0 / static_cast<double>(g.n + 1);
  u.assign(N, 0.0);
  b.assign(N, 0.0);
  for (size_t p = 0; p < N; ++p) {
    double v = 1.0, e = 0.0;
    for (int d = 0; d < g.dim; ++d) {
      const double t = h * static_cast<double>(L.coord(p, d) + 1);
      v *= t * (1.0 - t);
      e += t / static_cast<double>(d + 1);
    }
    u[p] = 16.0 * v * std::exp(e);
  }
  for (size_t p = 0; p < N; ++p) {
    double s = 2.0 * g.dim * u[p];
    for (int d = 0; d < g.dim; ++d) {
      const size_t c = L.coord(p, d);
      if (c > 0) s -= u[p - L.stride[d]];
      if (c + 1 < g.n) s -= u[p + L.stride[d]];
    }
    b[p] = s;
  }
}

}  // namespace qvarray
