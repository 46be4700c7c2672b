// qvtool gmres: restarted GMRES on a sparse MatrixMarket matrix, printing the
// residual history.
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "commands.h"
#include "qvarray/gmres.h"
#include "qvarray/matrixmarket.h"
#include "qvarray/sparse/sparse.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvutil/stopwatch.h"
#include "toolutil.h"

namespace {

using dcomplex = std::complex<double>;

void usage(std::FILE* out) {
  std::fprintf(out,
               "usage: qvtool gmres <matrix.mtx> [--restart m] [--tol t] [--maxit k] [--jacobi]\n"
               "  Solves A*x = b for b = A*(1, ..., 1) with restarted GMRES on the square\n"
               "  matrix of a MatrixMarket coordinate file and prints the relative\n"
               "  residual after every iteration. Defaults: restart 30, tol 1e-8,\n"
               "  maxit 1000.\n"
               "  --jacobi  precondition with the inverse of the diagonal\n");
}

// Jacobi preconditioner: y = diag(A)⁻¹·x (zero diagonal entries act as 1).
class JacobiOperator : public qvarray::LinearOperator {
 public:
  explicit JacobiOperator(const qvarray::Sparse& A) : inv_(A.getN(), 1.0), real_(A.isReal()) {
    const size_t* colptr = A.getColPtr();
    const size_t* row = A.getRow();
    const double* dv = A.getDoubleVal();
    const dcomplex* zv = A.getDcmplxVal();
    for (size_t j = 0; j < inv_.size(); ++j) {
      dcomplex d = 0.0;
      for (size_t k = colptr[j]; k < colptr[j + 1]; ++k)
        if (row[k] == j) d += real_ ? dcomplex(dv[k]) : zv[k];
      if (d != 0.0) inv_[j] = 1.0 / d;
    }
  }
  size_t size() const override { return inv_.size(); }
  bool isReal() const override { return real_; }

 protected:
  void applyReal(const qvarray::Array<double, 1>& x, qvarray::Array<double, 1>& y) const override {
    for (size_t i = 0; i < inv_.size(); ++i) y[i] = inv_[i].real() * x[i];
  }
  void applyComplex(const qvarray::Array<dcomplex, 1>& x,
                    qvarray::Array<dcomplex, 1>& y) const override {
    for (size_t i = 0; i < inv_.size(); ++i) y[i] = inv_[i] * x[i];
  }

 private:
  std::vector<dcomplex> inv_;
  bool real_;
};

bool parseNumber(const char* text, double& v) {
  char* end = nullptr;
  v = std::strtod(text, &end);
  return end != text && *end == '\0';
}

}  // namespace

int cmdGmres(int argc, char** argv) {
  const char* file = nullptr;
  qvarray::GmresOptions o;
  bool jacobi = false;
  for (int k = 1; k < argc; ++k) {
    const char* a = argv[k];
    double v = 0.0;
    if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h")) {
      usage(stdout);
      return 0;
    }
    if (!std::strcmp(a, "--jacobi")) {
      jacobi = true;
    } else if ((!std::strcmp(a, "--restart") || !std::strcmp(a, "--tol") || !std::strcmp(a, "--maxit")) &&
               k + 1 < argc && parseNumber(argv[k + 1], v)) {
      if (a[2] == 'r') o.restart = static_cast<int>(v);
      else if (a[2] == 't') o.tol = v;
      else o.maxIter = static_cast<int>(v);
      ++k;
    } else if (!file && a[0] != '-') {
      file = a;
    } else {
      usage(stderr);
      return 2;
    }
  }
  if (!file || o.restart < 1 || o.maxIter < 0 || !(o.tol >= 0.0)) {
    usage(stderr);
    return 2;
  }
  try {
    const qvarray::Sparse S = qvarray::readMatrixMarket(file);
    if (S.getM() != S.getN()) {
      std::fprintf(stderr, "qvtool: %s: the matrix is not square (%zu x %zu)\n", file, S.getM(),
                   S.getN());
      return 1;
    }
    const size_t n = S.getN();
    const qvarray::SparseOperator A(S);
    const JacobiOperator M(S);
    if (jacobi) o.precond = &M;
    std::printf("matrix: %s, n = %zu, %s, %zu entries\n", file, n, S.isReal() ? "real" : "complex",
                S.getNnz());
    std::printf("restart %d, tol %.1e, maxit %d, preconditioner: %s\n", o.restart, o.tol, o.maxIter,
                jacobi ? "Jacobi" : "none");

    Vector ones(n, 1.0), b, x;
    if (A.isReal()) {
      b = Vector(n);
      A.apply(ones.getdArr(), b.getdArr());
    } else {
      ones.makeComplex();
      b = Vector(n, dcomplex(0.0));
      A.apply(ones.getzArr(), b.getzArr());
    }
    qvutil::Stopwatch clock;
    const qvarray::GmresResult res = qvarray::gmres(A, b, x, o);
    const double seconds = clock.seconds();

    std::printf("%8s  %s\n", "iter", "relative residual");
    for (size_t k = 0; k < res.history.size(); ++k) std::printf("%8zu  %.6e\n", k, res.history[k]);
    const char* status = res.status == qvarray::GmresStatus::Converged       ? "converged"
                         : res.status == qvarray::GmresStatus::MaxIterations ? "iteration limit reached"
                                                                               : "breakdown";
    x -= ones;
    std::printf("%s after %d iterations (%d cycles) in %.3f ms, %.3f ms per iteration\n", status,
                res.iterations, res.cycles, seconds * 1e3,
                res.iterations ? seconds * 1e3 / res.iterations : 0.0);
    std::printf("true relative residual: %.3e, max error against x = (1, ..., 1): %.3e\n",
                res.relResidual, x.normInf());
    return res.converged() ? 0 : 1;
  } catch (const std::exception& e) {
    return qvtool::reportError(e);
  }
}
