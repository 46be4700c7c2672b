#pragma once
#include "qvarray/export.h"

namespace qvarray {

/// Module initialisation: initialises the companion utility library and checks
/// the BLAS kernels (a warning goes to qvutil::RunLog::global() when they are
/// slower than the processor allows). Runs once; call it before threads start.
QVARRAY_API void initializeArray();

}  // namespace qvarray
