#include "qvarray/init.h"

#include "qvarray/blasruntime.h"
#include "qvutil/numeric.h"
#include "qvutil/runinfo.h"

namespace qvarray {

void initializeArray() {
  static bool done = false;  // not atomic: called once before threads start
  if (done) return;
  done = true;
  qvutil::initializeUtil();
  const BlasRuntime r = blasRuntime();
  if (r.slowKernels)
    qvutil::RunLog::global().addWarning(
        "OpenBLAS runs its '" + r.coreName + "' kernels although this processor supports '" +
        r.preferredCore + "'; dense matrix products run several times slower. Set " +
        "OPENBLAS_CORETYPE=" + r.preferredCore +
        " in the environment before the program starts, or call "
        "qvarray::relaunchWithFastBlas(argc, argv) first thing in main().");
}

}  // namespace qvarray
