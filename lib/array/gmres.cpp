// Restarted, right-preconditioned GMRES on real or complex vectors.
#include "qvarray/gmres.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "qvarray/arrayutil.h"
#include "qvarray/blasruntime.h"
#include "qvutil/errors.h"
#include "qvutil/runinfo.h"

namespace qvarray {

namespace {

// The orthogonalisation and the updates of the basis and of x are
// memory-bound BLAS calls on a few hundred kB: a second BLAS thread gains
// little on them, and on a busy machine waiting for it costs up to ten times
// the work (measured). Below this many unknowns they run on one thread;
// above, the BLAS layer gives them the team only while it pays
// (BlasThreads). The operator and preconditioner keep whatever threading
// they use.
constexpr size_t kSerialBelow = 100000;

class KrylovBlasScope {
 public:
  explicit KrylovBlasScope(size_t n) {
    if (n < kSerialBelow) scope_.emplace();
  }

 private:
  std::optional<SerialBlasScope> scope_;
};

// r = b − A·x
template <class T>
void residual(const LinearOperator& A, const Array<T, 1>& b, const Array<T, 1>& x,
              Array<T, 1>& r) {
  A.apply(x, r);
  for (size_t i = 0; i < r.count; ++i) r.data[i] = b.data[i] - r.data[i];
}

template <class T>
bool isFinite(const T& v) {
  if constexpr (is_complex_v<T>) return std::isfinite(v.real()) && std::isfinite(v.imag());
  else return std::isfinite(v);
}

void raiseFailure(const GmresResult& res) {
  const qvbase::DetailPairs details{{"Iterations", std::to_string(res.iterations)},
                                    {"Relative_residual", std::to_string(res.relResidual)}};
  if (res.status == GmresStatus::Breakdown) QV_RAISE(gmres, GMRES_breakdown, details);
  QV_RAISE(gmres, GMRES_did_not_converge, details);
}

template <class T>
GmresResult solve(const LinearOperator& A, const Array<T, 1>& b, Array<T, 1>& x,
                  const GmresOptions& o) {
  const size_t n = A.size();
  QV_CHECK(b.count == n, gmres, Internal_numerical_error,
           "gmres: Length of b differs from the operator size.");
  QV_CHECK(!o.useInitialGuess || x.count == n, gmres, Internal_numerical_error,
           "gmres: Length of x differs from the operator size.");
  QV_CHECK(o.restart >= 1 && o.maxIter >= 0 && o.tol >= 0.0, gmres, Internal_numerical_error,
           "gmres: restart must be positive, maxIter and tol not negative.");
  QV_CHECK(!o.precond || o.precond->size() == n, gmres, Internal_numerical_error,
           "gmres: The preconditioner does not have the operator's size.");
  QV_CHECK(n <= static_cast<size_t>(std::numeric_limits<int>::max()), gmres,
           Internal_numerical_error, "gmres: Too many unknowns for the BLAS kernels.");
  if constexpr (!is_complex_v<T>) {
    QV_CHECK(A.isReal() && (!o.precond || o.precond->isReal()), gmres, Internal_numerical_error,
             "gmres: A complex operator needs complex vectors.");
  }
  if (!o.useInitialGuess) {
    x.resize(n);
    x.fill(T(0));
  }

  GmresResult res;
  const int ni = static_cast<int>(n);
  const double bnorm = norm(b.data, ni);
  if (bnorm == 0.0) {  // the solution is zero
    x.fill(T(0));
    res.status = GmresStatus::Converged;
    res.history.push_back(0.0);
    return res;
  }
  const double target = o.tol * bnorm;
  const int m = static_cast<int>(std::min<size_t>(static_cast<size_t>(o.restart), n));

  Array<T, 2> V(n, static_cast<size_t>(m) + 1);  // Krylov basis, one vector per column
  Array<T, 2> H(static_cast<size_t>(m) + 1, static_cast<size_t>(m));  // rotated Hessenberg = R
  Array<T, 1> h(static_cast<size_t>(m) + 1), g(static_cast<size_t>(m) + 1), s(static_cast<size_t>(m));
  Array<double, 1> c(static_cast<size_t>(m));
  Array<T, 1> r(n), v(n), w(n), z(n), y(static_cast<size_t>(m));

  if (o.useInitialGuess) residual(A, b, x, r);
  else copy(ni, b.data, r.data);
  double beta = norm(r.data, ni);
  res.relResidual = beta / bnorm;
  res.history.push_back(res.relResidual);
  if (beta <= target) {
    res.status = GmresStatus::Converged;
    return res;
  }
  if (!std::isfinite(beta)) {
    res.status = GmresStatus::Breakdown;
    if (o.raiseOnFailure) raiseFailure(res);
    return res;
  }

  while (true) {
    if (res.iterations >= o.maxIter) {
      res.status = GmresStatus::MaxIterations;
      break;
    }
    ++res.cycles;
    // v₀ = r/β, g = β·e₀
    for (size_t i = 0; i < n; ++i) V.data[i] = r.data[i] / beta;
    g.fill(T(0));
    g[0] = beta;

    int k = 0;              // columns of R in use
    bool invariant = false; // the Krylov space stopped growing
    bool nonFinite = false;
    while (k < m && res.iterations < o.maxIter) {
      if (o.runInfo && o.runInfo->isCancelled())
        qvbase::raiseCancel(qvbase::ErrModule::gmres, __LINE__);
      // w = A·M⁻¹·v_k
      copy(ni, V.data + static_cast<size_t>(k) * n, v.data);
      if (o.precond) {
        o.precond->apply(v, z);
        A.apply(z, w);
      } else {
        A.apply(v, w);
      }
      // h = Vᴴ·w, w ⊥ V and normalised, h[k+1] = ‖w‖ before normalisation.
      double hnext;
      {
        const KrylovBlasScope serial(n);
        hnext = gramSchmidt(V, k + 1, w, h);
      }
      nonFinite = !std::isfinite(hnext);
      for (int i = 0; i <= k && !nonFinite; ++i) nonFinite = !isFinite(h[i]);
      if (nonFinite) break;
      if (hnext > 0.0) copy(ni, w.data, V.data + static_cast<size_t>(k + 1) * n);
      else invariant = true;
      const double est = givensRot(h, k, c, s, g);
      ++res.iterations;
      if (std::abs(h[k]) == 0.0) {
        // A zero diagonal in R: this direction adds nothing (A·M⁻¹ is
        // singular on the Krylov space); solve with the columns before it.
        invariant = true;
        res.history.push_back(res.history.back());
        break;
      }
      copy(k + 1, h.data, H.data + static_cast<size_t>(k) * H.sizes[0]);
      ++k;
      res.history.push_back(est / bnorm);
      if (est <= target || invariant) break;
    }

    if (k > 0) {
      // y = R⁻¹·g, x += M⁻¹·V·y
      copy(k, g.data, y.data);
      triSolve(H, y, true, NoTrans, k);
      v.fill(T(0));
      {
        const KrylovBlasScope serial(n);
        yPlusAMulx(v, V, y, NoTrans, ni, k);
      }
      if (o.precond) o.precond->apply(v, z);
      const KrylovBlasScope serial(n);
      yPlusaMulx(x.data, T(1), o.precond ? z.data : v.data, ni);
    }
    residual(A, b, x, r);
    beta = norm(r.data, ni);
    res.relResidual = beta / bnorm;
    if (beta <= target) {
      res.status = GmresStatus::Converged;
      break;
    }
    if (nonFinite || invariant || !std::isfinite(beta)) {
      res.status = GmresStatus::Breakdown;
      break;
    }
  }
  if (res.status != GmresStatus::Converged && o.raiseOnFailure) raiseFailure(res);
  return res;
}

}  // namespace

GmresResult gmres(const LinearOperator& A, const Array<double, 1>& b, Array<double, 1>& x,
                  const GmresOptions& options) {
  return solve(A, b, x, options);
}

GmresResult gmres(const LinearOperator& A, const Array<std::complex<double>, 1>& b,
                  Array<std::complex<double>, 1>& x, const GmresOptions& options) {
  return solve(A, b, x, options);
}

GmresResult gmres(const LinearOperator& A, const Vector& b, Vector& x,
                  const GmresOptions& options) {
  const bool real = A.isReal() && b.isReal() && (!options.precond || options.precond->isReal()) &&
                    (!options.useInitialGuess || x.isReal());
  if (real) {
    if (!options.useInitialGuess) x.resize(A.size(), true);
    return solve(A, b.getdArr(), x.getdArr(), options);
  }
  if (options.useInitialGuess) x.makeComplex();
  else x.resize(A.size(), false);
  if (!b.isReal()) return solve(A, b.getzArr(), x.getzArr(), options);
  Vector bz = b;
  bz.makeComplex();
  return solve(A, bz.getzArr(), x.getzArr(), options);
}

}  // namespace qvarray
