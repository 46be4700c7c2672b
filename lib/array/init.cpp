#include "qvarray/init.h"

#include "qvarray/blasruntime.h"
#include "qvutil/numeric.h"
#include "qvutil/runinfo.h"

namespace qvarray {

namespace {

bool initializeOnce() {
  qvutil::initializeUtil();
  const BlasRuntime r = blasRuntime();
  if (r.slowKernels)
    qvutil::RunLog::global().addWarning(
        "OpenBLAS runs its '" + r.coreName + "' kernels although this processor supports '" +
        r.preferredCore + "'; dense matrix products run several times slower. Set " +
        "OPENBLAS_CORETYPE=" + r.preferredCore +
        " in the environment before the program starts, or call "
        "qvarray::relaunchWithFastBlas(argc, argv) first thing in main().");
  return true;
}

}  // namespace

void initializeArray() {
  // A function-local static is initialised exactly once even when several
  // threads arrive together; the others wait. An exception leaves it
  // uninitialised, so the next call runs initializeOnce again.
  [[maybe_unused]] static const bool done = initializeOnce();
}

}  // namespace qvarray
