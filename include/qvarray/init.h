#pragma once
#include "qvarray/export.h"

namespace qvarray {

/// Module initialisation: initialises the companion utility library and checks
/// the BLAS kernels (a warning goes to qvutil::RunLog::global() when they are
/// slower than the processor allows). The work is done once per process; the
/// function may be called any number of times, from any thread, also from
/// several threads at once (a JVM host calls it from whichever Java thread
/// loads the library). Callers that arrive while another thread initialises
/// wait for it to finish. If initialisation throws (std::bad_alloc), the
/// exception reaches that caller and the next call tries again.
QVARRAY_API void initializeArray();

}  // namespace qvarray
