// Conversions between the library's Sparse and dense vectors and PETSc's
// distributed Mat (MPIAIJ) and Vec. Each rank converts its own rows.
//
// Sparse -> Mat, on each rank, for its rows r0 <= i < r1 of A:
//   1. contract: real values, a partition of A's rows over the communicator,
//      sizes within PetscInt;
//   2. count: entries of S that land in each local row under S's symmetry
//      mode (stored, mirrored or both);
//   3. gather: their columns and values into local compressed rows;
//   4. merge: each row sorted by column, repeated columns summed (a
//      symmetric S that stores both (i,j) and (j,i));
//   5. preallocate: per row the count of columns inside the rank's column
//      range (diagonal block) and outside it;
//   6. write: MatSetValues row by row, assemble, and check that PETSc made no
//      mallocs.
// Passes 1-5 are local and may refuse on one rank only: the ranks agree on
// their outcome (agree) before the collective pass 6, so a refusal raises on
// every rank and none waits for the others.
#include <petscmat.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <limits>
#include <numeric>
#include <string>

#include "qvarray/petsc/petscbridge.h"
#include "qvutil/errors.h"

namespace qvarray::petsc {
namespace {

PetscInt toPetscIndex(size_t v) {
  QV_CHECK(v <= static_cast<size_t>(std::numeric_limits<PetscInt>::max()), petscbridge,
           Number_out_of_range, "PETSc index", static_cast<std::int64_t>(v));
  return static_cast<PetscInt>(v);
}

// The rank's row range from offsets, checked to split `rows` across the
// communicator's ranks.
void rowRange(std::span<const size_t> offsets, size_t rows, int size, int rank, size_t& r0,
              size_t& r1) {
  QV_CHECK(offsets.size() == static_cast<size_t>(size) + 1, petscbridge, Invalid_row_partition,
           "offsets", static_cast<std::int64_t>(offsets.size()));
  QV_CHECK(offsets.front() == 0 && offsets.back() == rows, petscbridge, Invalid_row_partition,
           "rows", static_cast<std::int64_t>(rows));
  QV_CHECK(std::is_sorted(offsets.begin(), offsets.end()), petscbridge, Invalid_row_partition,
           "offsets not ascending");
  r0 = offsets[rank];
  r1 = offsets[rank + 1];
}

// Local compressed rows of A: row i - r0 holds cols[ptr[i]..ptr[i+1]);
// dnz/onz: its entries in and outside the diagonal block's columns.
struct LocalRows {
  std::vector<PetscInt> ptr, cols;
  std::vector<PetscScalar> vals;
  std::vector<PetscInt> dnz, onz;
};

// Passes 2-4: the local rows of A = S, S + Sᵀ or Sᵀ.
LocalRows gatherLocalRows(const Sparse& S, size_t r0, size_t r1) {
  const size_t n = S.getN();
  const size_t* colPtr = S.getColPtr();
  const size_t* row = S.getRow();
  const double* val = S.getDoubleVal();
  const Symm_t symm = S.getSymm();
  const bool asStored = symm != SymmTransposed;  // S(i,j) -> A(i,j)
  const bool mirrored = symm != SymmNone;        // S(i,j) -> A(j,i)
  const size_t local = r1 - r0;
  auto mine = [&](size_t i) { return i >= r0 && i < r1; };

  LocalRows L;
  L.ptr.assign(local + 1, 0);
  for (size_t j = 0; j < n; ++j)
    for (size_t k = colPtr[j]; k < colPtr[j + 1]; ++k) {
      if (asStored && mine(row[k])) ++L.ptr[row[k] - r0 + 1];
      if (mirrored && mine(j)) ++L.ptr[j - r0 + 1];
    }
  std::partial_sum(L.ptr.begin(), L.ptr.end(), L.ptr.begin());
  L.cols.resize(L.ptr[local]);
  L.vals.resize(L.ptr[local]);
  std::vector<PetscInt> fill(L.ptr.begin(), L.ptr.end() - 1);
  for (size_t j = 0; j < n; ++j)
    for (size_t k = colPtr[j]; k < colPtr[j + 1]; ++k) {
      if (asStored && mine(row[k])) {
        const PetscInt at = fill[row[k] - r0]++;
        L.cols[at] = static_cast<PetscInt>(j);
        L.vals[at] = val[k];
      }
      if (mirrored && mine(j)) {
        const PetscInt at = fill[j - r0]++;
        L.cols[at] = static_cast<PetscInt>(row[k]);
        L.vals[at] = val[k];
      }
    }

  // Merge: sort each row by column (stable, so that sums of repeated columns
  // add in gather order), sum repeats, compact.
  std::vector<std::pair<PetscInt, PetscScalar>> buf;
  PetscInt out = 0;
  for (size_t i = 0; i < local; ++i) {
    buf.clear();
    for (PetscInt k = L.ptr[i]; k < L.ptr[i + 1]; ++k) buf.emplace_back(L.cols[k], L.vals[k]);
    std::stable_sort(buf.begin(), buf.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    L.ptr[i] = out;
    for (size_t k = 0; k < buf.size(); ++k) {
      if (k > 0 && buf[k].first == buf[k - 1].first) {
        L.vals[out - 1] += buf[k].second;
        continue;
      }
      L.cols[out] = buf[k].first;
      L.vals[out] = buf[k].second;
      ++out;
    }
  }
  L.ptr[local] = out;
  L.cols.resize(out);
  L.vals.resize(out);
  return L;
}

// Pass 5: the exact preallocation of L's rows, diagonal block columns c0..c1.
void countPreallocation(LocalRows& L, size_t c0, size_t c1) {
  const size_t local = L.ptr.size() - 1;
  L.dnz.assign(local, 0);
  L.onz.assign(local, 0);
  for (size_t i = 0; i < local; ++i)
    for (PetscInt k = L.ptr[i]; k < L.ptr[i + 1]; ++k) {
      const size_t c = static_cast<size_t>(L.cols[k]);
      ++(c >= c0 && c < c1 ? L.dnz[i] : L.onz[i]);
    }
}

// Pass 6, collective: a Mat with the rank's rows r0.. from L, preallocated,
// written, assembled. Everything local that may fail is done before.
OwnedMat assemble(MPI_Comm comm, const LocalRows& L, size_t r0, size_t c0, size_t c1, PetscInt gM,
                  PetscInt gN) {
  const size_t local = L.ptr.size() - 1;
  Mat A = nullptr;
  check(MatCreate(comm, &A));
  OwnedMat owned(A);
  check(MatSetSizes(A, static_cast<PetscInt>(local), static_cast<PetscInt>(c1 - c0), gM, gN));
  check(MatSetType(A, MATMPIAIJ));
  check(MatMPIAIJSetPreallocation(A, 0, L.dnz.data(), 0, L.onz.data()));
  check(MatSetOption(A, MAT_NEW_NONZERO_ALLOCATION_ERR, PETSC_TRUE));

  for (size_t i = 0; i < local; ++i) {
    const PetscInt gi = static_cast<PetscInt>(r0 + i);
    check(MatSetValues(A, 1, &gi, L.ptr[i + 1] - L.ptr[i], L.cols.data() + L.ptr[i],
                       L.vals.data() + L.ptr[i], INSERT_VALUES));
  }
  check(MatAssemblyBegin(A, MAT_FINAL_ASSEMBLY));
  check(MatAssemblyEnd(A, MAT_FINAL_ASSEMBLY));
  MatInfo info;
  check(MatGetInfo(A, MAT_LOCAL, &info));
  QV_ASSERT(info.mallocs == 0, petscbridge);
  return owned;
}

}  // namespace

OwnedMat toPetscMat(const Sparse& S, MPI_Comm comm, std::span<const size_t> rowOffsets) {
  int size = 1, rank = 0;
  MPI_Comm_size(comm, &size);
  MPI_Comm_rank(comm, &rank);
  LocalRows L;
  size_t r0 = 0, c0 = 0, c1 = 0;
  PetscInt gM = 0, gN = 0;
  agree(comm, [&] {
    // 1. contract
    QV_CHECK(S.isReal(), petscbridge, Complex_Sparse_not_supported_by_PETSc);
    const Symm_t symm = S.getSymm();
    const bool transposed = symm == SymmTransposed;
    const size_t M = transposed ? S.getN() : S.getM();
    const size_t N = transposed ? S.getM() : S.getN();
    gM = toPetscIndex(M);
    gN = toPetscIndex(N);
    toPetscIndex(symm == SymmNone || transposed ? S.getNnz() : 2 * S.getNnz());  // local entries
    const std::vector<size_t> balanced = balancedPartition(M, size);
    size_t r1 = 0;
    rowRange(rowOffsets.empty() ? std::span<const size_t>(balanced) : rowOffsets, M, size, rank,
             r0, r1);
    c0 = r0;
    c1 = r1;
    if (M != N) {
      const std::vector<size_t> cols = balancedPartition(N, size);
      c0 = cols[rank];
      c1 = cols[rank + 1];
    }
    // 2-5. local rows, preallocation
    L = gatherLocalRows(S, r0, r1);
    countPreallocation(L, c0, c1);
  });
  // 6.
  return assemble(comm, L, r0, c0, c1, gM, gN);
}

OwnedMat rowBlockToPetscMat(const Sparse& rows, MPI_Comm comm) {
  // 1. contract, agreed by every rank so that a refusal raises on all of them
  const Symm_t symm = rows.getSymm();
  const bool transposed = symm == SymmTransposed;
  const size_t local = transposed ? rows.getN() : rows.getM();
  const size_t N = transposed ? rows.getM() : rows.getN();
  unsigned long long mine[3] = {rows.isReal() ? 0ull : 1ull,
                                symm == SymmNone || transposed ? 0ull : 1ull, N};
  unsigned long long most[3], least[3];
  MPI_Allreduce(mine, most, 3, MPI_UNSIGNED_LONG_LONG, MPI_MAX, comm);
  MPI_Allreduce(mine, least, 3, MPI_UNSIGNED_LONG_LONG, MPI_MIN, comm);
  QV_CHECK(most[0] == 0, petscbridge, Complex_Sparse_not_supported_by_PETSc);
  QV_CHECK(most[1] == 0, petscbridge, Invalid_row_partition,
           "a block of rows is stored as it is or transposed, not symmetric");
  QV_CHECK(least[2] == most[2], petscbridge, Invalid_row_partition,
           "the ranks' blocks differ in their column count");
  unsigned long long count = local, before = 0, M = 0;
  MPI_Exscan(&count, &before, 1, MPI_UNSIGNED_LONG_LONG, MPI_SUM, comm);
  MPI_Allreduce(&count, &M, 1, MPI_UNSIGNED_LONG_LONG, MPI_SUM, comm);
  int size = 1, rank = 0;
  MPI_Comm_size(comm, &size);
  MPI_Comm_rank(comm, &rank);
  const size_t r0 = rank == 0 ? 0 : before;  // MPI_Exscan leaves rank 0's result undefined
  const PetscInt gM = toPetscIndex(M), gN = toPetscIndex(N);  // the same on every rank
  size_t c0 = r0, c1 = r0 + local;
  if (M != N) {
    const std::vector<size_t> cols = balancedPartition(N, size);
    c0 = cols[rank];
    c1 = cols[rank + 1];
  }

  // 2-5. the block's rows are all the rank's own (block row i is row r0 + i).
  LocalRows L;
  agree(comm, [&] {
    toPetscIndex(rows.getNnz());
    L = gatherLocalRows(rows, 0, local);
    countPreallocation(L, c0, c1);
  });
  // 6.
  return assemble(comm, L, r0, c0, c1, gM, gN);
}

Sparse fromPetscMat(Mat A) {
  PetscInt M = 0, N = 0, r0 = 0, r1 = 0;
  check(MatGetSize(A, &M, &N));
  check(MatGetOwnershipRange(A, &r0, &r1));
  std::vector<size_t> rows, cols;
  std::vector<double> vals;
  for (PetscInt i = r0; i < r1; ++i) {
    PetscInt nc = 0;
    const PetscInt* c = nullptr;
    const PetscScalar* v = nullptr;
    check(MatGetRow(A, i, &nc, &c, &v));
    for (PetscInt k = 0; k < nc; ++k) {
      rows.push_back(static_cast<size_t>(i));
      cols.push_back(static_cast<size_t>(c[k]));
      vals.push_back(v[k]);
    }
    check(MatRestoreRow(A, i, &nc, &c, &v));
  }
  Sparse S;
  S.vectorTripletToSparse(rows, cols, vals, static_cast<size_t>(M), static_cast<size_t>(N));
  S.format(FormSorted, false);
  return S;
}

namespace {

// `ok`: the caller's own check of its vector, agreed with the other ranks
// together with the length.
OwnedVec makeVec(Mat A, const double* local, size_t n, const std::function<void()>& ok = {}) {
  PetscInt r0 = 0, r1 = 0;
  check(MatGetOwnershipRange(A, &r0, &r1));
  MPI_Comm comm = MPI_COMM_NULL;
  check(PetscObjectGetComm(reinterpret_cast<PetscObject>(A), &comm));
  agree(comm, [&] {
    if (ok) ok();
    QV_CHECK(n == static_cast<size_t>(r1 - r0), petscbridge, Size_vector_sparse_matrix_disagree,
             "length", static_cast<std::int64_t>(n));
  });
  Vec v = nullptr;
  check(MatCreateVecs(A, nullptr, &v));
  OwnedVec owned(v);
  PetscScalar* x = nullptr;
  check(VecGetArray(v, &x));
  std::copy(local, local + n, x);
  check(VecRestoreArray(v, &x));
  return owned;
}

}  // namespace

OwnedVec toPetscVec(Mat A, const Vector& local) {
  const bool real = local.isReal();
  return makeVec(A, real ? local.getdArr().data : nullptr, local.size(), [real] {
    QV_CHECK(real, petscbridge, Complex_Sparse_not_supported_by_PETSc);
  });
}

OwnedVec toPetscVec(Mat A, const Array<double, 1>& local) {
  return makeVec(A, local.data, local.size());
}

Vector fromPetscVec(Vec v) {
  PetscInt n = 0;
  check(VecGetLocalSize(v, &n));
  Vector out(static_cast<size_t>(n));
  const PetscScalar* x = nullptr;
  check(VecGetArrayRead(v, &x));
  std::copy(x, x + n, out.getdArr().data);
  check(VecRestoreArrayRead(v, &x));
  return out;
}

}  // namespace qvarray::petsc
