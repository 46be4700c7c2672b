// The bridge's groundwork: the one translation of PETSc's error codes, the
// PETSc session, the balanced row partition.
#include "qvarray/petsc/petscbridge.h"

#include <string>

#include "qvutil/errors.h"

namespace qvarray::petsc {

void check(PetscErrorCode code, std::source_location where) {
  if (code == 0) return;
  // The generic text of the code, and the message of the call that failed
  // first (PETSc keeps it until the next error).
  const char* generic = nullptr;
  char* specific = nullptr;
  PetscErrorMessage(code, &generic, &specific);
  qvbase::raise(qvbase::ErrModule::petscbridge, static_cast<int>(where.line()),
                qvbase::ErrKey::PETSc_error, std::string(generic ? generic : "unknown error"),
                std::string(specific ? specific : ""));
}

Session::Session(int* argc, char*** argv) {
  PetscBool ready = PETSC_FALSE;
  check(PetscInitialized(&ready));
  if (!ready) {
    check(PetscInitialize(argc, argv, nullptr, nullptr));
    owned_ = true;
  }
  // Errors come back as codes (and then as exceptions), not as printed
  // tracebacks.
  check(PetscPushErrorHandler(PetscReturnErrorHandler, nullptr));
}

Session::~Session() {
  PetscPopErrorHandler();
  if (owned_) PetscFinalize();
}

std::vector<size_t> balancedPartition(size_t m, int ranks) {
  QV_CHECK(ranks > 0, petscbridge, Invalid_row_partition, "ranks", ranks);
  const size_t p = static_cast<size_t>(ranks);
  std::vector<size_t> offsets(p + 1, 0);
  for (size_t r = 0; r < p; ++r) offsets[r + 1] = offsets[r] + m / p + (r < m % p ? 1 : 0);
  return offsets;
}

}  // namespace qvarray::petsc
