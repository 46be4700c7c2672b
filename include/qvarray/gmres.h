#pragma once
// Restarted GMRES for A·x = b, real or complex, on any LinearOperator.
//
// Each cycle builds an orthonormal Krylov basis of up to `restart` vectors
// (classical Gram–Schmidt with one re-orthogonalisation pass when needed,
// qvarray::gramSchmidt), keeps the Hessenberg matrix triangular by Givens
// rotations (qvarray::givensRot), which also give the residual norm after
// every step without forming x, and at the end of the cycle updates x and
// recomputes the true residual b − A·x. A preconditioner M⁻¹ is applied on
// the right (A·M⁻¹·u = b, x = M⁻¹·u), so the monitored residual is the true
// one, not a preconditioned one.
//
// The outcome is always reported: GmresResult::status says whether the
// relative residual ‖b − A·x‖/‖b‖ reached the tolerance, the iteration limit
// stopped the run, or the method broke down (the Krylov space became
// invariant without solving the system, e.g. for a singular A, or the
// numbers became non-finite). With raiseOnFailure the last two raise
// (module "gmres") "GMRES_did_not_converge" or "GMRES_breakdown", with the
// details ("Iterations", n) and ("Relative_residual", value).
//
// Cancellation: when runInfo is given it is polled once per iteration; a
// cancelled run raises qvbase::CancelException, leaving x at the start of the
// current cycle.
#include <complex>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/linearoperator.h"
#include "qvarray/matriximpl.h"

namespace qvutil {
class RunInfo;
}

namespace qvarray {

struct GmresOptions {
  double tol = 1e-8;                        ///< relative residual ‖b − A·x‖/‖b‖ to reach
  int restart = 30;                         ///< Krylov vectors per cycle (capped at n)
  int maxIter = 1000;                       ///< limit on inner iterations (operator applications)
  bool useInitialGuess = false;             ///< start from x as given instead of zero
  const LinearOperator* precond = nullptr;  ///< right preconditioner M⁻¹ ≈ A⁻¹, or none
  const qvutil::RunInfo* runInfo = nullptr; ///< cancellation, polled once per iteration
  bool raiseOnFailure = false;              ///< non-convergence and breakdown raise
};

enum class GmresStatus { Converged, MaxIterations, Breakdown };

struct GmresResult {
  GmresStatus status = GmresStatus::MaxIterations;
  int iterations = 0;          ///< inner iterations done (operator applications, initial residual excluded)
  int cycles = 0;              ///< cycles (restarts + 1) started
  double relResidual = 0.0;    ///< true ‖b − A·x‖/‖b‖ of the returned x
  /// Relative residual before the first iteration and after each one (the
  /// rotation estimate, which equals the true value in exact arithmetic).
  std::vector<double> history;
  bool converged() const { return status == GmresStatus::Converged; }
};

/// Solves A·x = b for real A and b; x is resized to n. A complex operator
/// raises "Internal_numerical_error" (use the complex or Vector form).
QVARRAY_API GmresResult gmres(const LinearOperator& A, const Array<double, 1>& b,
                              Array<double, 1>& x, const GmresOptions& options = {});
QVARRAY_API GmresResult gmres(const LinearOperator& A, const Array<std::complex<double>, 1>& b,
                              Array<std::complex<double>, 1>& x,
                              const GmresOptions& options = {});
/// The Vector form: solves in real arithmetic when A, b (and an initial x)
/// are real, in complex arithmetic otherwise (x becomes complex).
QVARRAY_API GmresResult gmres(const LinearOperator& A, const Vector& b, Vector& x,
                              const GmresOptions& options = {});

}  // namespace qvarray
