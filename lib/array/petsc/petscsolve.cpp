// The KSP façade: one KSP per solve, its options from a private database.
#include "qvarray/petsc/petscsolve.h"

#include <petscksp.h>

#include <string>

namespace qvarray::petsc {
namespace {

// Destroys what a solve made, also when a PETSc call raised.
struct SolveObjects {
  PetscOptions options = nullptr;
  KSP ksp = nullptr;
  ~SolveObjects() {
    if (ksp) KSPDestroy(&ksp);
    if (options) PetscOptionsDestroy(&options);
  }
};

}  // namespace

KspResult kspSolve(Mat A, const Vector& b, std::string_view options) {
  OwnedVec rhs = toPetscVec(A, b);
  Vec x = nullptr;
  check(VecDuplicate(rhs, &x));
  OwnedVec solution(x);
  check(VecSet(x, 0.0));

  SolveObjects s;
  MPI_Comm comm = MPI_COMM_NULL;
  check(PetscObjectGetComm(reinterpret_cast<PetscObject>(A), &comm));
  check(PetscOptionsCreate(&s.options));
  const std::string text(options);
  check(PetscOptionsInsertString(s.options, text.c_str()));
  check(KSPCreate(comm, &s.ksp));
  // Set before the PC is made: KSPGetPC hands the KSP's database to its PC.
  check(PetscObjectSetOptions(reinterpret_cast<PetscObject>(s.ksp), s.options));
  check(KSPSetOperators(s.ksp, A, A));
  check(KSPSetResidualHistory(s.ksp, nullptr, PETSC_DECIDE, PETSC_TRUE));
  check(KSPSetFromOptions(s.ksp));
  check(KSPSolve(s.ksp, rhs, x));

  KspResult r;
  PetscInt its = 0;
  check(KSPGetIterationNumber(s.ksp, &its));
  KSPConvergedReason reason;
  check(KSPGetConvergedReason(s.ksp, &reason));
  const PetscReal* hist = nullptr;
  PetscInt nh = 0;
  check(KSPGetResidualHistory(s.ksp, &hist, &nh));
  r.iterations = static_cast<int>(its);
  r.residuals.assign(hist, hist + nh);
  r.reason = static_cast<int>(reason);
  r.converged = reason > 0;
  r.x = fromPetscVec(x);
  PetscInt left = 0;
  char **names = nullptr, **values = nullptr;
  check(PetscOptionsLeftGet(s.options, &left, &names, &values));
  for (PetscInt i = 0; i < left; ++i) r.unusedOptions.push_back(std::string("-") + names[i]);
  check(PetscOptionsLeftRestore(s.options, &left, &names, &values));
  return r;
}

}  // namespace qvarray::petsc
