#pragma once
// A small façade over PETSc's KSP: solve A·x = b for a distributed A with the
// Krylov method and preconditioner the caller names in PETSc's own options
// ("-ksp_type gmres -pc_type gamg -ksp_rtol 1e-10", any KSP/PC option).
//
// The options go into a private options database of this solve: they do not
// leak into PETSc's global one or into later solves. PETSc failures raise
// "PETSc_error" (module "petscbridge") with PETSc's text; an unconverged solve
// is not an error: `converged` and PETSc's reason tell it. PETSc passes over
// options it does not know; the result lists those the solve never read.
#include <string>
#include <string_view>
#include <vector>

#include "qvarray/petsc/petscbridge.h"

namespace qvarray::petsc {

struct KspResult {
  Vector x;                        ///< this rank's part of the solution
  int iterations = 0;              ///< Krylov iterations done
  std::vector<double> residuals;   ///< residual norm before each iteration and at the end
  bool converged = false;          ///< PETSc's reason > 0
  int reason = 0;                  ///< KSPConvergedReason
  std::vector<std::string> unusedOptions;  ///< options the solve never read ("-ksp_rtoll"): misspelt or inapplicable
};

/// Solves A·x = b from x = 0 (b: this rank's part, A's row layout). Collective.
QVARRAY_API KspResult kspSolve(Mat A, const Vector& b, std::string_view options);

}  // namespace qvarray::petsc
