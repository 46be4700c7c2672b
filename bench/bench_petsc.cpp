// Assembly of a distributed PETSc matrix from triplets, per rank: the
// library's triplet assembly followed by the bridge's conversion (exactly
// preallocated MatSetValues row by row) against PETSc's own two ways, per
// triplet MatSetValues (ADD_VALUES) after preallocating from the triplets'
// row counts, and its coordinate interface (MatSetPreallocationCOO +
// MatSetValuesCOO). All three start from the same triplets and end with an
// assembled MPIAIJ Mat, destroyed inside the timed loop.
//
// Inputs: the 7-point 3-D Poisson matrix (triplets in the order
// assemblePoisson makes them) with 10⁵ and 10⁶ unknowns. Before timing, each
// peer's Mat is compared with the library's by MatEqual (the same values:
// the triplets have no repeats, so no sum is reordered).
//
//   build/release/bench/bench_petsc --benchmark_min_time=0.5
//   mpirun -np 2 --allow-run-as-root build/release/bench/bench_petsc
// Each rank holds the triplets of its rows (balanced partition) and times its
// share; under mpirun every benchmark runs a fixed iteration count, so that
// the ranks' collective calls stay in step (do not interleave repetitions).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/petsc/petscbridge.h"
#include "qvarray/sparse/poissongrid.h"

namespace {

using qvarray::Sparse;
using namespace qvarray::petsc;

void ensurePetsc() {
  static Session session(nullptr, nullptr);
}

struct Input {
  std::vector<size_t> rows, cols;
  std::vector<double> vals;
  std::vector<PetscInt> prow, pcol;  // the same triplets in PETSc's index type
  size_t n = 0;
  size_t r0 = 0, r1 = 0;  // this rank's rows
};

const Input& input(size_t gridN) {
  static std::map<size_t, std::unique_ptr<Input>> cache;
  auto& slot = cache[gridN];
  if (slot) return *slot;
  slot = std::make_unique<Input>();
  Input& in = *slot;
  const Sparse S = qvarray::assemblePoisson({3, gridN});
  in.n = S.getN();
  const std::vector<size_t> part = balancedPartition(in.n, PetscGlobalSize);
  in.r0 = part[PetscGlobalRank];
  in.r1 = part[PetscGlobalRank + 1];
  for (size_t j = 0; j < in.n; ++j)
    for (size_t k = S.getColPtr()[j]; k < S.getColPtr()[j + 1]; ++k) {
      if (S.getRow()[k] < in.r0 || S.getRow()[k] >= in.r1) continue;
      in.rows.push_back(S.getRow()[k]);
      in.cols.push_back(j);
      in.vals.push_back(S.getDoubleVal()[k]);
    }
  in.prow.assign(in.rows.begin(), in.rows.end());
  in.pcol.assign(in.cols.begin(), in.cols.end());
  return in;
}

OwnedMat viaLibrary(const Input& in) {
  Sparse S;
  S.vectorTripletToSparse(in.rows, in.cols, in.vals, in.n, in.n);
  return toPetscMat(S, PETSC_COMM_WORLD);
}

OwnedMat emptyMat(const Input& in) {
  Mat A = nullptr;
  check(MatCreate(PETSC_COMM_WORLD, &A));
  OwnedMat owned(A);
  const PetscInt n = static_cast<PetscInt>(in.n);
  const PetscInt local = static_cast<PetscInt>(in.r1 - in.r0);
  check(MatSetSizes(A, local, local, n, n));
  check(MatSetType(A, MATMPIAIJ));
  return owned;
}

// Preallocated from the triplets' counts per row, inside and outside the
// rank's column range (square: the row range).
OwnedMat viaSetValues(const Input& in) {
  OwnedMat A = emptyMat(in);
  std::vector<PetscInt> dnz(in.r1 - in.r0, 0), onz(in.r1 - in.r0, 0);
  for (size_t k = 0; k < in.rows.size(); ++k)
    ++(in.cols[k] >= in.r0 && in.cols[k] < in.r1 ? dnz : onz)[in.rows[k] - in.r0];
  check(MatMPIAIJSetPreallocation(A, 0, dnz.data(), 0, onz.data()));
  for (size_t k = 0; k < in.vals.size(); ++k)
    check(MatSetValues(A, 1, &in.prow[k], 1, &in.pcol[k], &in.vals[k], ADD_VALUES));
  check(MatAssemblyBegin(A, MAT_FINAL_ASSEMBLY));
  check(MatAssemblyEnd(A, MAT_FINAL_ASSEMBLY));
  return A;
}

OwnedMat viaCoo(const Input& in) {
  OwnedMat A = emptyMat(in);
  // MatSetPreallocationCOO may reorder the index arrays it is given.
  std::vector<PetscInt> i(in.prow), j(in.pcol);
  check(MatSetPreallocationCOO(A, static_cast<PetscCount>(i.size()), i.data(), j.data()));
  check(MatSetValuesCOO(A, in.vals.data(), INSERT_VALUES));
  return A;
}

OwnedMat build(const std::string& impl, const Input& in) {
  if (impl == "qvarray") return viaLibrary(in);
  if (impl == "petsc_setvalues") return viaSetValues(in);
  return viaCoo(in);
}

void BM_Assembly(benchmark::State& state, size_t gridN, const std::string& impl) {
  ensurePetsc();
  const Input& in = input(gridN);
  const auto& agreements = qvbench::checked("assembly/n:" + std::to_string(in.n), [&] {
    const OwnedMat ours = viaLibrary(in);
    qvbench::Agreements a{{"qvarray", {0.0, 0.0}}};
    for (const char* peer : {"petsc_setvalues", "petsc_coo"}) {
      const OwnedMat theirs = build(peer, in);
      PetscBool eq = PETSC_FALSE;
      check(MatEqual(ours, theirs, &eq));
      a[peer] = {eq ? 0.0 : 1.0, 0.0};
    }
    return a;
  });
  if (!qvbench::agrees(state, agreements, impl)) return;
  for (auto _ : state) {
    OwnedMat A = build(impl, in);
    benchmark::DoNotOptimize(A.get());
  }
  state.counters["nnz"] = static_cast<double>(in.vals.size());
}

void registerAll() {
  // Registration precedes MPI's start: mpirun's environment tells the size.
  const char* ranks = std::getenv("OMPI_COMM_WORLD_SIZE");
  const bool multi = ranks && std::string(ranks) != "1";
  for (size_t gridN : {47, 100})
    for (const char* impl : {"qvarray", "petsc_setvalues", "petsc_coo"}) {
      auto* b = benchmark::RegisterBenchmark(
          ("assembly/n:" + std::to_string(gridN * gridN * gridN) + "/" + impl).c_str(),
          [gridN, impl](benchmark::State& s) { BM_Assembly(s, gridN, impl); });
      b->Unit(benchmark::kMillisecond);
      if (multi) b->Iterations(gridN < 100 ? 40 : 5);
    }
}
const int kRegistered = (registerAll(), 0);

}  // namespace
