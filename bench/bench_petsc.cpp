// Assembly of a distributed PETSc matrix from triplets, on one rank: the
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
//   (multi-rank figures: mpirun -np 2 ... runs the same program per rank)
#include <benchmark/benchmark.h>

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
};

const Input& input(size_t gridN) {
  static std::map<size_t, std::unique_ptr<Input>> cache;
  auto& slot = cache[gridN];
  if (slot) return *slot;
  slot = std::make_unique<Input>();
  Input& in = *slot;
  const Sparse S = qvarray::assemblePoisson({3, gridN});
  in.n = S.getN();
  for (size_t j = 0; j < in.n; ++j)
    for (size_t k = S.getColPtr()[j]; k < S.getColPtr()[j + 1]; ++k) {
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
  check(MatSetSizes(A, PETSC_DECIDE, PETSC_DECIDE, n, n));
  check(MatSetType(A, MATMPIAIJ));
  return owned;
}

// One rank: every column is in the diagonal block.
OwnedMat viaSetValues(const Input& in) {
  OwnedMat A = emptyMat(in);
  std::vector<PetscInt> count(in.n, 0), none(in.n, 0);
  for (PetscInt r : in.prow) ++count[r];
  check(MatMPIAIJSetPreallocation(A, 0, count.data(), 0, none.data()));
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
  for (size_t gridN : {47, 100})
    for (const char* impl : {"qvarray", "petsc_setvalues", "petsc_coo"})
      benchmark::RegisterBenchmark(
          ("assembly/n:" + std::to_string(gridN * gridN * gridN) + "/" + impl).c_str(),
          [gridN, impl](benchmark::State& s) { BM_Assembly(s, gridN, impl); })
          ->Unit(benchmark::kMillisecond);
}
const int kRegistered = (registerAll(), 0);

}  // namespace
