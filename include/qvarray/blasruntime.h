#pragma once
// Which OpenBLAS kernels this process runs on, and how to get the fast ones.
//
// OpenBLAS picks its kernels once, when it is loaded, from the processor it
// recognises or from the environment variable OPENBLAS_CORETYPE. On a
// processor it does not recognise it falls back to much older kernels (matrix
// products several times slower). The library compares the core OpenBLAS
// chose with the widest one this processor supports; initializeArray() warns
// through the global run log when they differ, and relaunchWithFastBlas()
// lets a stand-alone program (never the library, never a host) restart itself
// on the right kernels.
#include <optional>
#include <string>

#include "qvarray/export.h"
#include "qvutil/parallel.h"

namespace qvarray {

struct BlasRuntime {
  std::string coreName;       ///< kernels OpenBLAS runs on, e.g. "Haswell"
  std::string preferredCore;  ///< widest kernels this processor supports, e.g. "SkylakeX"
  bool slowKernels = false;   ///< coreName is narrower than preferredCore
  std::string config;         ///< OpenBLAS build configuration
};

/// Describes the BLAS of this process.
QVARRAY_API BlasRuntime blasRuntime();

/// When OpenBLAS runs slower kernels than this processor supports (because it
/// does not recognise the processor, or OPENBLAS_CORETYPE names an older
/// core), sets OPENBLAS_CORETYPE to the preferred core and re-executes the
/// program (/proc/self/exe, same arguments); it does not return then. Returns
/// normally when nothing needs doing, after one relaunch already happened, or
/// when re-execution fails. Call it first thing in main(), before threads start.
///
/// Replacing the running process is a decision only the program's own main()
/// may take: it is meant for qvtool, the test programs and the benchmarks. The
/// library never calls it, and a host that loads the library (a JVM, another
/// product's program) must not either; such a host gets the warning of
/// initializeArray() in the global run log instead and sets OPENBLAS_CORETYPE
/// in its own start-up environment.
QVARRAY_API void relaunchWithFastBlas(int argc, char** argv);

/// Runs BLAS/LAPACK calls made by this thread on one thread while alive. Small
/// factorisations and solves are slower with a second BLAS thread.
class QVARRAY_API SerialBlasScope {
 public:
  SerialBlasScope();
  ~SerialBlasScope();
  SerialBlasScope(const SerialBlasScope&) = delete;
  SerialBlasScope& operator=(const SerialBlasScope&) = delete;

 private:
  int saved_;
};

/// Lets the BLAS/LAPACK calls this thread makes while alive use their team
/// only when that pays now, and records how long they took. A team of BLAS
/// threads meets at every step of a routine; on a machine whose cores are
/// busy with other processes it waits for a descheduled thread each time and
/// can take several times as long as one thread (measured: bench_busy).
/// qvbase::LibraryCall decides from the recent times of routine `key` (an
/// address naming it) at this size, `work` units proportional to its cost.
/// Calls made where BLAS already runs on one thread (inside SerialBlasScope or
/// a parallel region) are left alone and not recorded.
class QVARRAY_API BlasThreads {
 public:
  BlasThreads(const void* key, double work);
  BlasThreads(const BlasThreads&) = delete;
  BlasThreads& operator=(const BlasThreads&) = delete;

 private:
  std::optional<qvbase::LibraryCall> call_;
  std::optional<SerialBlasScope> serial_;  // destroyed first: the call's time includes it
};

}  // namespace qvarray
