#pragma once
// qvtool psolve's reading: a linear system from two MatrixMarket files, split
// by rows across the ranks of a communicator, and the agreement of the ranks
// on a step that may fail on some of them.
#include <mpi.h>

#include <climits>
#include <exception>
#include <string>
#include <vector>

#include "qvarray/sparse/sparse.h"
#include "toolutil.h"

namespace qvtool::psolve {

/// Raised on the ranks that leave the reporting of a failure to another
/// rank, with the exit status that rank's report ends in.
struct PeerFailure {
  int status = 1;
};

/// Runs step() on every rank of comm, then agrees on its outcome: when it
/// failed on some rank, the lowest such rank rethrows its exception (qvtool
/// reports it once) and the others raise PeerFailure with the status of that
/// report (2 for a UsageError, else 1), so that every rank exits alike.
/// Collective.
template <class Step>
void together(MPI_Comm comm, Step&& step) {
  std::exception_ptr error;
  int status = 0;
  try {
    step();
  } catch (const UsageError&) {
    error = std::current_exception();
    status = 2;
  } catch (...) {
    error = std::current_exception();
    status = 1;
  }
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  // (failing rank, its status) pairs; MINLOC picks the lowest rank.
  struct {
    int rank, status;
  } mine{error ? rank : INT_MAX, status}, first{};
  MPI_Allreduce(&mine, &first, 1, MPI_2INT, MPI_MINLOC, comm);
  if (first.rank == INT_MAX) return;
  if (first.rank == rank) std::rethrow_exception(error);
  throw PeerFailure{first.status};
}

/// Who reads the files: rank 0, which sends each rank its rows, or every
/// rank, which keeps its own rows.
enum class ReadMode { Root, Each };

/// This rank's part of A·x = b.
struct LocalSystem {
  size_t n = 0;                 ///< A is n×n
  std::vector<size_t> offsets;  ///< rows offsets[r] .. offsets[r+1] on rank r (balanced)
  qvarray::Sparse A;            ///< this rank's rows of A, a block stored transposed (n × rows)
  qvarray::Vector b;            ///< this rank's rows of b
};

/// Reads A (a square matrix, its symmetric storage expanded) and b (one
/// column) through the library's MatrixMarket reader and gives each rank its
/// rows. Failures (unreadable files, non-finite entries, mismatched sizes)
/// are reported by together(). Collective.
LocalSystem readLocalSystem(const std::string& aPath, const std::string& bPath, ReadMode mode,
                            MPI_Comm comm);

/// The whole vector on rank 0 from every rank's rows (other ranks: empty).
/// Collective.
std::vector<double> gatherOnRoot(const qvarray::Vector& local, MPI_Comm comm);

}  // namespace qvtool::psolve
