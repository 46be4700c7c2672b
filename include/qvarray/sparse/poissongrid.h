#pragma once
// The finite-difference Poisson problem on a structured grid: the model
// problem of the relaxation steps and of GMRES with a relaxation
// preconditioner (qvtool's poisson subcommand, the tests and benchmarks).
//
// −Δu = f on the unit square (dim 2) or cube (dim 3), u = 0 on the boundary,
// n interior points per direction, h = 1/(n + 1); the 5- or 7-point stencil
// multiplied by h²: 2·dim on the diagonal and −1 for each neighbour inside
// the grid. Unknowns are numbered lexicographically, x fastest.
//
// Errors (module "poissongrid"): "Internal_numerical_error" when dim is not
// 2 or 3 or n is 0; std::bad_alloc when the n^dim unknowns and their
// stencils cannot be held (also when their count overflows).
#include <cstddef>
#include <vector>

#include "qvarray/export.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray {

struct PoissonGrid {
  int dim = 2;   ///< 2 or 3
  size_t n = 0;  ///< interior points per direction
  size_t unknowns() const { return dim == 2 ? n * n : n * n * n; }
};

/// Assembles the matrix through triplets, one stencil direction after the
/// other (diagonal, then −x, +x, −y, …), so that the rows within a column
/// come in no particular order. With `lowerHalf` the result is symmetric
/// storage (mode 1): the lower triangle with half the diagonal.
QVARRAY_API Sparse assemblePoisson(const PoissonGrid& g, bool lowerHalf = false);

/// A smooth grid function u (not a discrete eigenfunction) and b = A·u,
/// computed from the stencil on the grid, independently of the matrix: the
/// exact discrete solution of A·x = b is u.
QVARRAY_API void manufacturedSolution(const PoissonGrid& g, std::vector<double>& u,
                                      std::vector<double>& b);

}  // namespace qvarray
