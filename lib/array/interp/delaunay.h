#pragma once
// The Delaunay triangulation (2-D) or tetrahedralisation (3-D) of scattered
// points, computed by Qhull (reentrant library, options "d Qbb Qc Qz Q12 Qt":
// Delaunay, scaled last coordinate, coplanar points kept out of the
// simplices, a point at infinity against cospherical input, triangulated
// output).
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvarray::interpdetail {

struct Triangulation {
  int dim = 0;
  /// Per simplex its D + 1 vertices (indices of the input points), and the
  /// D + 1 neighbouring simplices, neighbour k opposite vertex k, −1 where the
  /// face lies on the convex hull.
  std::vector<std::int32_t> vertices, neighbors;
  size_t count() const { return vertices.size() / static_cast<size_t>(dim + 1); }
};

/// The triangulation of the n points (row-major, point k at points + k·dim,
/// n < 2^31). "Triangulation_failed" with Qhull's message when it fails (the
/// points span no area or volume); std::bad_alloc when Qhull runs out of
/// memory.
Triangulation delaunay(const double* points, size_t n, int dim);

}  // namespace qvarray::interpdetail
