#pragma once
// The PETSc bridge (library qvarray_petsc): a Sparse into a distributed MPIAIJ
// Mat and back, dense vectors into Vec and back, and PETSc's error codes into
// the library's exception.
//
// Distribution: the rows of the matrix are split across the ranks of the
// communicator by a row partition, offsets[r] .. offsets[r + 1] for rank r
// (offsets[0] = 0, ascending, offsets.back() = number of rows). Every
// conversion is collective and purely local: each rank converts its own
// rows, nothing is gathered to one rank.
//
// Errors (module "petscbridge"): "PETSc_error" with PETSc's error text when a
// PETSc call fails; "Complex_Sparse_not_supported_by_PETSc" for complex values
// (this PETSc build is real); "Invalid_row_partition" for offsets that do not
// split the rows across the communicator; "Size_vector_sparse_matrix_disagree"
// for a vector whose length is not the rank's row count; "Number_out_of_range"
// for sizes beyond PETSc's index type. Checks come before any PETSc object is
// made.
#include <petscmat.h>

#include <functional>
#include <source_location>
#include <span>
#include <utility>
#include <vector>

#include "qvarray/export.h"
#include "qvarray/matriximpl.h"
#include "qvarray/sparse/sparse.h"

namespace qvarray::petsc {

/// PETSc's error code `code` as the library's exception: "PETSc_error" with
/// PETSc's generic message and the failing call's own message. Returns when
/// code is 0. The one translation of PETSc's errors.
QVARRAY_API void check(PetscErrorCode code,
                       std::source_location where = std::source_location::current());

/// Initialises PETSc (and MPI) when not yet done and makes PETSc return its
/// errors instead of printing them; finalises what it initialised. One per
/// program, around all use of the bridge.
class QVARRAY_API Session {
 public:
  Session(int* argc, char*** argv);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

 private:
  bool owned_ = false;
};

/// A Mat or Vec owned by the caller: destroyed with the handle.
template <class T, PetscErrorCode (*Destroy)(T*)>
class Owned {
 public:
  Owned() = default;
  explicit Owned(T obj) : obj_(obj) {}
  Owned(Owned&& o) noexcept : obj_(o.obj_) { o.obj_ = nullptr; }
  Owned& operator=(Owned&& o) noexcept {
    std::swap(obj_, o.obj_);
    return *this;
  }
  ~Owned() {
    if (obj_) Destroy(&obj_);
  }
  T get() const { return obj_; }
  operator T() const { return obj_; }

 private:
  T obj_ = nullptr;
};
using OwnedMat = Owned<Mat, MatDestroy>;
using OwnedVec = Owned<Vec, VecDestroy>;

/// Runs `local`, the rank's own preparation for a collective step, then
/// agrees across `comm` before anyone goes on: when `local` raised on some
/// rank, every rank raises — that rank its own error, the others
/// "Failed_on_another_rank" with the lowest failing rank — so no rank waits
/// in a collective call that another has left. The bridge's conversions and
/// kspSolve check their input this way. Collective.
QVARRAY_API void agree(MPI_Comm comm, const std::function<void()>& local);

/// The balanced partition of m rows over `ranks` ranks: the first m % ranks
/// ranks get one row more.
QVARRAY_API std::vector<size_t> balancedPartition(size_t m, int ranks);

/// The distributed matrix A that the Sparse S represents under its symmetry
/// mode (sparsemodes.h): A = S, S + Sᵀ (also for SymmHermitian: real values),
/// or Sᵀ. S has A's global dimensions and holds, on each rank, at least every
/// stored entry that lands in the rank's rows of A: its rows (SymmNone), its
/// rows and columns (symmetric modes), its stored columns (SymmTransposed);
/// other entries are ignored. Rows follow `rowOffsets` (empty: balanced);
/// the column layout is the row layout for a square A, else balanced.
/// Preallocation is exact: assembly makes no mallocs (checked). Collective.
QVARRAY_API OwnedMat toPetscMat(const Sparse& S, MPI_Comm comm,
                                std::span<const size_t> rowOffsets = {});

/// The distributed matrix A whose rows on this rank are the block `rows`:
/// block row i is row r0 + i of A, r0 counting the rows of the lower ranks,
/// so the ranks' row counts are the partition. The block is A's rows as
/// stored (SymmNone, local × N) or transposed (SymmTransposed, stored
/// N × local); every rank gives the same N. The transposed form is the one
/// for large N: its column pointers count the local rows, where the stored
/// form's count all N columns. Columns are laid out as toPetscMat's.
/// Refusals (complex, symmetric, column counts that differ) raise on every
/// rank alike. Collective.
QVARRAY_API OwnedMat rowBlockToPetscMat(const Sparse& rows, MPI_Comm comm);

/// The rank's rows of the distributed A as a SymmNone Sparse with A's global
/// dimensions (other rows empty), rows ascending within each column.
QVARRAY_API Sparse fromPetscMat(Mat A);

/// A Vec of A's row layout from this rank's part of a vector (length = the
/// rank's row count of A).
QVARRAY_API OwnedVec toPetscVec(Mat A, const Vector& local);
QVARRAY_API OwnedVec toPetscVec(Mat A, const Array<double, 1>& local);
/// This rank's part of a Vec.
QVARRAY_API Vector fromPetscVec(Vec v);

}  // namespace qvarray::petsc
