// The PETSc bridge, run by ctest under mpirun with 1 and 2 ranks: conversions
// round trip bit for bit and agree with the library's own product; symmetric
// and transposed storage give the Mat of their expansion; PETSc's GMRES+GAMG
// solves the library's Poisson system as its serial GMRES does; failures
// arrive as the library's exception.
#include <gtest/gtest.h>
#include <mpi.h>

#include <cmath>
#include <functional>

#include "qvarray/gmres.h"
#include "qvarray/petsc/petscbridge.h"
#include "qvarray/petsc/petscsolve.h"
#include "qvarray/sparse/poissongrid.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "qvtest.h"

namespace {

using namespace qvarray;
using namespace qvarray::petsc;

// PETSc and MPI for the whole program.
class PetscEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { session_ = std::make_unique<Session>(nullptr, nullptr); }
  void TearDown() override { session_.reset(); }

 private:
  std::unique_ptr<Session> session_;
};
const auto* const kEnv = ::testing::AddGlobalTestEnvironment(new PetscEnvironment);

int commSize() { return PetscGlobalSize; }
int commRank() { return PetscGlobalRank; }

// Triplets of a Sparse as stored, keeping those whose row passes `keep`.
struct Triplets {
  std::vector<size_t> rows, cols;
  std::vector<double> vals;
};
Triplets triplets(const Sparse& S, const std::function<bool(size_t, size_t)>& keep) {
  Triplets t;
  for (size_t j = 0; j < S.getN(); ++j)
    for (size_t k = S.getColPtr()[j]; k < S.getColPtr()[j + 1]; ++k)
      if (keep(S.getRow()[k], j)) {
        t.rows.push_back(S.getRow()[k]);
        t.cols.push_back(j);
        t.vals.push_back(S.getDoubleVal()[k]);
      }
  return t;
}
Sparse fromTriplets(const Triplets& t, size_t m, size_t n, Symm_t symm = SymmNone) {
  Sparse S;
  S.vectorTripletToSparse(t.rows, t.cols, t.vals, m, n);
  S.setSymm(symm);
  return S;
}

// A fixed-seed random m×n matrix with about `perRow` entries per row.
Sparse randomSparse(size_t m, size_t n, size_t perRow, unsigned seed) {
  qvtest::Rng rng(seed);
  Triplets t;
  for (size_t i = 0; i < m; ++i)
    for (size_t k = 0; k < perRow; ++k) {
      t.rows.push_back(i);
      t.cols.push_back(static_cast<size_t>((rng.real() + 1.0) * 0.5 * (n - 1) + 0.5));
      t.vals.push_back(rng.real());
    }
  return fromTriplets(t, m, n);
}

// The full vector from every rank's part.
std::vector<double> allGather(const Vector& local) {
  const int p = commSize();
  int n = static_cast<int>(local.size());
  std::vector<int> counts(p), displs(p, 0);
  MPI_Allgather(&n, 1, MPI_INT, counts.data(), 1, MPI_INT, PETSC_COMM_WORLD);
  for (int r = 1; r < p; ++r) displs[r] = displs[r - 1] + counts[r - 1];
  std::vector<double> all(displs[p - 1] + counts[p - 1]);
  MPI_Allgatherv(local.getdArr().data, n, MPI_DOUBLE, all.data(), counts.data(), displs.data(),
                 MPI_DOUBLE, PETSC_COMM_WORLD);
  return all;
}

// Each rank assembles only its own rows; the Mat's local rows come back
// bit for bit, and MatMult agrees with the library's product on the rows.
TEST(PetscBridge, RoundTripOfLocalRows) {
  struct Case {
    const char* name;
    Sparse G;
    int firstRankRows;  // on 2 ranks, rank 0's row count (-1: balanced)
  };
  const Case cases[] = {
      {"poisson 2d", assemblePoisson({2, 7}), -1},
      {"random 13x9", randomSparse(13, 9, 3, 7), -1},
      {"random 20x20, uneven", randomSparse(20, 20, 4, 11), 3},
      {"random 6x6, rank 0 empty", randomSparse(6, 6, 2, 13), 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const size_t M = c.G.getM(), N = c.G.getN();
    std::vector<size_t> offsets = balancedPartition(M, commSize());
    if (c.firstRankRows >= 0 && commSize() == 2) offsets[1] = c.firstRankRows;
    const size_t r0 = offsets[commRank()], r1 = offsets[commRank() + 1];
    const auto own = [&](size_t i, size_t) { return i >= r0 && i < r1; };
    const Sparse local = fromTriplets(triplets(c.G, own), M, N);

    const OwnedMat A = toPetscMat(local, PETSC_COMM_WORLD, offsets);
    Sparse back = fromPetscMat(A);
    EXPECT_TRUE(back.isEqual(local, 0.0, NoTrans));

    // The same rows as a block of their own, as stored and transposed: the same Mat.
    Triplets t = triplets(c.G, own), tt = t;
    for (size_t& i : t.rows) i -= r0;
    std::swap(tt.rows, tt.cols);
    for (size_t& i : tt.cols) i -= r0;
    for (const Sparse& block : {fromTriplets(t, r1 - r0, N), fromTriplets(tt, N, r1 - r0, SymmTransposed)}) {
      PetscBool same = PETSC_FALSE;
      check(MatEqual(A, rowBlockToPetscMat(block, PETSC_COMM_WORLD), &same));
      EXPECT_TRUE(same) << block.getSymm();
    }

    // y = A·x through PETSc against the library's product, for the local rows.
    qvtest::Rng rng(3);
    Vector xs(N);
    for (size_t j = 0; j < N; ++j) xs.set(j, rng.real());
    const Vector yLib = AMulx(c.G, xs, NoTrans);
    Vec xv = nullptr, yv = nullptr;
    check(MatCreateVecs(A, &xv, &yv));
    const OwnedVec x(xv), y(yv);
    PetscInt c0 = 0, c1 = 0;
    check(VecGetOwnershipRange(x, &c0, &c1));
    for (PetscInt j = c0; j < c1; ++j) check(VecSetValue(x, j, xs.d(j), INSERT_VALUES));
    check(VecAssemblyBegin(x) || VecAssemblyEnd(x) || MatMult(A, x, y));
    const Vector yP = fromPetscVec(y);
    for (size_t i = r0; i < r1; ++i) EXPECT_NEAR(yP.d(i - r0), yLib.d(i), 1e-14) << i;

    // Vector -> Vec -> Vector is exact.
    const Vector again = fromPetscVec(toPetscVec(A, yP));
    for (size_t i = 0; i < yP.size(); ++i) EXPECT_EQ(again.d(i), yP.d(i));
  }
}

// Symmetric and transposed storage give the Mat of their expansion,
// expanded here through triplets.
TEST(PetscBridge, StorageModesGiveTheExpandedMat) {
  const Sparse lower = assemblePoisson({3, 4}, true);
  const Sparse general = randomSparse(11, 11, 3, 5);
  const Sparse wide = randomSparse(7, 12, 3, 9);
  auto all = [](size_t, size_t) { return true; };
  auto mirror = [&](const Sparse& S, bool keepStored) {
    Triplets t = triplets(S, all), m;
    m.rows = t.cols;
    m.cols = t.rows;
    m.vals = t.vals;
    if (keepStored) {
      m.rows.insert(m.rows.end(), t.rows.begin(), t.rows.end());
      m.cols.insert(m.cols.end(), t.cols.begin(), t.cols.end());
      m.vals.insert(m.vals.end(), t.vals.begin(), t.vals.end());
    }
    return fromTriplets(m, keepStored ? S.getM() : S.getN(), keepStored ? S.getN() : S.getM());
  };
  struct Case {
    const char* name;
    Sparse stored, expanded;
  };
  const Case cases[] = {
      {"poisson 3d lower half", fromTriplets(triplets(lower, all), lower.getM(), lower.getN(),
                                             SymmSymmetric),
       assemblePoisson({3, 4}, false)},
      {"general S + S^T", fromTriplets(triplets(general, all), 11, 11, SymmSymmetric),
       mirror(general, true)},
      {"hermitian on real values", fromTriplets(triplets(general, all), 11, 11, SymmHermitian),
       mirror(general, true)},
      {"transposed 7x12", fromTriplets(triplets(wide, all), 7, 12, SymmTransposed),
       mirror(wide, false)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PetscBool eq = PETSC_FALSE;
    check(MatEqual(toPetscMat(c.stored, PETSC_COMM_WORLD),
                   toPetscMat(c.expanded, PETSC_COMM_WORLD), &eq));
    EXPECT_TRUE(eq);
  }
}

// PETSc's GMRES with algebraic multigrid and the library's serial GMRES with
// SSOR both solve the Poisson system; each meets its residual, checked with
// the library's product, and the two solutions agree to the tolerance times
// the condition number.
TEST(PetscBridge, PoissonSolveAgreesWithLibraryGmres) {
  const PoissonGrid g{2, 24};
  const Sparse S = assemblePoisson(g);
  std::vector<double> u, bv;
  manufacturedSolution(g, u, bv);
  const Vector b(bv);
  const double tol = 1e-10;

  Sparse sorted = S;
  sorted.setForm(FormSorted);
  const SparseOperator op(sorted);
  const SsorPreconditioner ssor(sorted, 1.5);
  GmresOptions opts;
  opts.tol = tol;
  opts.precond = &ssor;
  Vector xLib;
  ASSERT_EQ(gmres(op, b, xLib, opts).status, GmresStatus::Converged);

  const std::vector<size_t> offsets = balancedPartition(g.unknowns(), commSize());
  const size_t r0 = offsets[commRank()], r1 = offsets[commRank() + 1];
  const OwnedMat A = toPetscMat(S, PETSC_COMM_WORLD);
  Vector bLocal(r1 - r0);
  for (size_t i = r0; i < r1; ++i) bLocal.set(i - r0, bv[i]);
  const KspResult r = kspSolve(
      A, bLocal, "-ksp_type gmres -pc_type gamg -ksp_pc_side right -ksp_rtol 1e-10 -ksp_rtoll 1");
  ASSERT_TRUE(r.converged) << r.reason;
  EXPECT_EQ(r.unusedOptions, std::vector<std::string>{"-ksp_rtoll"});  // misspelt: never read
  EXPECT_EQ(r.residuals.size(), static_cast<size_t>(r.iterations) + 1);
  EXPECT_LE(r.residuals.back(), tol * r.residuals.front());

  const Vector xP(allGather(r.x));
  Vector res = AMulx(S, xP, NoTrans);
  double rn = 0.0, bn = 0.0, dn = 0.0, xn = 0.0;
  for (size_t i = 0; i < bv.size(); ++i) {
    rn += (res.d(i) - bv[i]) * (res.d(i) - bv[i]);
    bn += bv[i] * bv[i];
    dn += (xP.d(i) - xLib.d(i)) * (xP.d(i) - xLib.d(i));
    xn += xLib.d(i) * xLib.d(i);
  }
  EXPECT_LE(std::sqrt(rn / bn), 1.01 * tol);
  const double h = 1.0 / static_cast<double>(g.n + 1);
  const double kappa = 4.0 / (M_PI * M_PI * h * h) * (1.0 + h * h);
  EXPECT_LE(std::sqrt(dn / xn), 2.0 * kappa * tol);
}

TEST(PetscBridge, ErrorsArriveAsLibraryExceptions) {
  const Sparse S = assemblePoisson({2, 4});
  Sparse Z = S;
  Z.real2complex();
  const OwnedMat A = toPetscMat(S, PETSC_COMM_WORLD);
  const std::vector<size_t> wrongSum = {0, S.getM() + 1};
  const std::vector<size_t> wrongCount(commSize() + 2, 0);
  qvtest::expectThrowsAll("Complex_Sparse_not_supported_by_PETSc",
                          {{[&] { toPetscMat(Z, PETSC_COMM_WORLD); }, ""},
                           {[&] { toPetscVec(A, Vector(1, std::complex<double>(1.0, 1.0))); }, ""}});
  qvtest::expectThrowsAll("Invalid_row_partition",
                          {{[&] { toPetscMat(S, PETSC_COMM_WORLD, wrongCount); },
                            std::to_string(wrongCount.size())},
                           {[&] { balancedPartition(4, 0); }, "0"},
                           {[&] { rowBlockToPetscMat(Sparse(S).setSymm(SymmSymmetric), PETSC_COMM_WORLD); },
                            "a block of rows is stored as it is or transposed, not symmetric"}});
  if (commSize() == 1)
    qvtest::expectThrowKey([&] { toPetscMat(S, PETSC_COMM_WORLD, wrongSum); },
                           "Invalid_row_partition", "16");
  qvtest::expectThrowKey([&] { toPetscVec(A, Vector(S.getM() + 5)); },
                         "Size_vector_sparse_matrix_disagree", "21");
  // A refusal on one rank only raises on every rank: no rank is left waiting
  // in the collective calls that follow.
  if (commSize() == 2) {
    const size_t mine = S.getM() / 2 + static_cast<size_t>(commRank());  // rank 1: one too many
    if (commRank() == 1)
      qvtest::expectThrowKey([&] { toPetscVec(A, Vector(mine)); },
                             "Size_vector_sparse_matrix_disagree", "9");
    else
      qvtest::expectThrowKey([&] { toPetscVec(A, Vector(mine)); }, "Failed_on_another_rank", "1");
  }
  // PETSc's own failures, with PETSc's text: unknown names reach the KSP and
  // its preconditioner through the solve's options.
  for (const char* name : {"-ksp_type no_such_method", "-pc_type no_such_method"}) {
    const qvbase::Exception e = qvtest::expectThrowKey(
        [&] { kspSolve(A, Vector(S.getM() / commSize()), name); }, "PETSc_error");
    EXPECT_NE(std::string(e.what()).find("no_such_method"), std::string::npos) << e.what();
  }
}

}  // namespace
