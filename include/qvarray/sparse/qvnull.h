#pragma once
// qvNull: null-space, range and complement bases of a sparse constraint
// matrix, for constraint elimination.
//
// Constraints B·u = r (B m×n, usually m ≪ n with few unknowns per row) are
// eliminated by writing u = N·v + u₀ with B·N = 0 and B·u₀ = r; a system
// K·u = f then becomes Nᴴ·K·N·v = Nᴴ·(f − K·u₀) (qvnullreduce.h forms it).
//
// Blocks. Constraints that share an unknown are coupled; the connected blocks
// of constraints (and the unknowns each one touches) are independent problems,
// and every block is treated on its own: by a dense SVD of its rows
// restricted to its unknowns (never B as a whole) or by sparse elimination.
// Unknowns that no constraint touches keep a unit column e_j of N. Stored
// zeros of B are ignored.
//
// Methods (option "nullfun"):
// - "orth": per block the SVD B_b = U·Σ·Vᴴ; singular values above
//   rankTol·σ_max(block) count. N's columns are the right singular vectors of
//   the zero singular values, so Nᴴ·N = I, and u₀ is the minimum-norm solution.
//   Non-convergence raises "Constraint_elimination_failed_in_SVD" (details
//   ("Block", b), ("Rows", rows of the block)).
// - "sparse": per block Gauss–Jordan elimination; each independent
//   constraint gets a pivot unknown that it expresses through the remaining
//   ("free") unknowns, u_p = g_p + Σ c_pj·u_j. N has for each free unknown j
//   the column e_j + Σ_p c_pj·e_p, so a constraint u_a = u_b gives entries 1
//   and 1. u₀ is zero on the free unknowns. Pivots are chosen among the
//   entries within pivotTol of the row's largest, preferring the unknown that
//   the fewest remaining constraints and expressions use (little fill).
//   A reduced row whose entries are all below rankTol times the magnitudes
//   that cancelled in it is redundant.
// - "auto": "sparse" for every block, except that a block in which the
//   elimination meets a redundant constraint or coefficient growth above
//   kNullGrowthLimit is redone by "orth" (when its dense matrix has at most
//   kNullAutoDenseLimit entries): rank decisions there are the SVD's.
//
// Redundancy and consistency. The rank r is part of the result; redundant
// constraints appear as the columns of leftNull (combinations z with
// Bᴴ·z = 0). particular(r) raises "Inconsistent_constraints" when such a
// combination does not cancel on r: |zᴴ·r| > consistencyTol·Σ|z_i|·|r_i|.
//
// Errors (module "qvnull"): "Constraint_elimination_failed_in_SVD",
// "Inconsistent_constraints" (details ("Row", a constraint of the redundant
// combination), ("Relative_residual", text)), "Size_vector_sparse_matrix_disagree"
// (particular with r of the wrong length), "Invalid_property_value" (unknown
// "nullfun" text or a tolerance out of range), "Non_finite_constraint_coefficients"
// (a NaN or infinite value in B; details ("Row", i), ("Column", j) as stored),
// "Internal_error_sparse" (a partial matrix, one with row or column offsets).
// All are raised before any output is written.
#include <cstddef>
#include <string>

#include "qvarray/export.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparse.h"

namespace qvbase {
class Prop;
}

namespace qvarray {

/// The method of qvNull (option "nullfun": "auto", "orth", "sparse").
enum class NullFun { Auto, Orth, Sparse };

/// Above this coefficient magnitude in a block's expressions, "auto" redoes
/// the block by the SVD.
inline constexpr double kNullGrowthLimit = 1e6;
/// "auto" densifies a block for the SVD only up to this many entries.
inline constexpr size_t kNullAutoDenseLimit = 4000000;

struct NullOptions {
  NullFun nullfun = NullFun::Auto;
  /// Relative rank tolerance (singular values, eliminated rows).
  double rankTol = 1e-10;
  /// Relative tolerance of the consistency check of redundant constraints.
  double consistencyTol = 1e-8;
  /// Threshold pivoting of the sparse method: candidates are the entries of
  /// at least pivotTol times the row's largest (0 < pivotTol ≤ 1).
  double pivotTol = 0.1;
};

/// The text of a method: "auto", "orth" or "sparse".
QVARRAY_API const char* nullFunName(NullFun f);
/// Parses "auto", "orth" or "sparse" (any case); other texts raise
/// "Invalid_property_value" with details "nullfun" and the accepted values.
QVARRAY_API NullFun parseNullFun(const std::string& text);

/// Declares the properties "nullfun" (text, default "auto"; the value is
/// normalised to lower case), "nullranktol", "nullconsistencytol" and
/// "nullpivottol" (non-negative numbers, pivot tolerance in (0, 1]) with the
/// defaults of NullOptions.
QVARRAY_API void defineNullProps(qvbase::Prop& props);
/// The options held by properties declared with defineNullProps.
QVARRAY_API NullOptions nullOptions(const qvbase::Prop& props);

/// What qvNull computes for an m×n constraint matrix B of rank r. Every basis
/// has B's value type (real or complex). Columns of N follow the unknowns:
/// the column of a free or unconstrained unknown j comes where j comes, the
/// null columns of an SVD block where its first unknown comes.
struct QVARRAY_API NullSpace {
  size_t m = 0, n = 0;
  size_t rank = 0;
  /// n × (n − r): basis of null(B), B·N = 0.
  Sparse N;
  /// n × r: basis of a complement of null(B) that holds every u₀
  /// ([N, complement] is invertible): the range of Bᴴ for SVD blocks, unit
  /// columns at the pivot unknowns for eliminated blocks.
  Sparse complement;
  /// n × r: basis of range(Bᴴ) (right singular vectors, or the conjugated
  /// independent rows of B).
  Sparse rangeBt;
  /// m × r: basis of range(B), the complement of leftNull in the constraint
  /// space (left singular vectors, or the columns of B at the pivots).
  Sparse rangeB;
  /// m × (m − r): basis of null(Bᴴ); each column is a redundant combination
  /// of constraints.
  Sparse leftNull;
  /// n × m: u₀ = P·r is the particular solution for a consistent r.
  Sparse P;
  /// Constraint blocks, and how many of them were done by the SVD.
  size_t blocks = 0;
  size_t svdBlocks = 0;
  /// Consistency tolerance used by particular().
  double consistencyTol = 1e-8;

  /// True when every block was done by the SVD: then Nᴴ·N = I.
  bool isOrthonormal() const { return svdBlocks == blocks; }
  /// u₀ with B·u₀ = r (complex when B or r is). Raises
  /// "Inconsistent_constraints" when r violates a redundancy of B and
  /// "Size_vector_sparse_matrix_disagree" unless r has m elements.
  Vector particular(const Vector& r) const;
};

/// Computes the bases of B (see the file comment). B may be real or complex
/// and in any symmetry mode (the represented matrix is used).
QVARRAY_API NullSpace qvNull(const Sparse& B, const NullOptions& options = {});

}  // namespace qvarray
