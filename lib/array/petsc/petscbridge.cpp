// The bridge's groundwork: the one translation of PETSc's error codes, the
// PETSc session, the balanced row partition.
#include "qvarray/petsc/petscbridge.h"

#include <climits>
#include <exception>
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

void agree(MPI_Comm comm, const std::function<void()>& local) {
  std::exception_ptr error;
  try {
    local();
  } catch (...) {
    error = std::current_exception();
  }
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  int mine = error ? rank : INT_MAX, first = INT_MAX;
  MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, comm);
  if (error) std::rethrow_exception(error);
  QV_CHECK(first == INT_MAX, petscbridge, Failed_on_another_rank, "rank", first);
}

std::vector<size_t> balancedPartition(size_t m, int ranks) {
  QV_CHECK(ranks > 0, petscbridge, Invalid_row_partition, "ranks", ranks);
  const size_t p = static_cast<size_t>(ranks);
  std::vector<size_t> offsets(p + 1, 0);
  for (size_t r = 0; r < p; ++r) offsets[r + 1] = offsets[r] + m / p + (r < m % p ? 1 : 0);
  return offsets;
}

}  // namespace qvarray::petsc
