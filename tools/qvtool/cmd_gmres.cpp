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
#include "mmtriplets.h"
#include "qvarray/gmres.h"
#include "qvutil/stopwatch.h"

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

// The matrix in compressed rows, as an operator y = A·x.
class CsrOperator : public qvarray::LinearOperator {
 public:
  explicit CsrOperator(const qvtool::Triplets& t) : n_(t.rows), start_(t.rows + 1, 0) {
    for (int r : t.row) ++start_[r + 1];
    for (size_t i = 0; i < n_; ++i) start_[i + 1] += start_[i];
    col_.resize(t.value.size());
    val_.resize(t.value.size());
    std::vector<size_t> next(start_.begin(), start_.end() - 1);
    for (size_t e = 0; e < t.value.size(); ++e) {
      const size_t k = next[t.row[e]]++;
      col_[k] = t.col[e];
      val_[k] = t.value[e];
    }
    real_ = !t.complex;
  }
  size_t size() const override { return n_; }
  bool isReal() const override { return real_; }
  dcomplex diagonal(size_t i) const {
    dcomplex d = 0.0;
    for (size_t k = start_[i]; k < start_[i + 1]; ++k)
      if (static_cast<size_t>(col_[k]) == i) d += val_[k];
    return d;
  }

 protected:
  void applyReal(const qvarray::Array<double, 1>& x, qvarray::Array<double, 1>& y) const override {
    for (size_t i = 0; i < n_; ++i) {
      double s = 0.0;
      for (size_t k = start_[i]; k < start_[i + 1]; ++k) s += val_[k].real() * x[col_[k]];
      y[i] = s;
    }
  }
  void applyComplex(const qvarray::Array<dcomplex, 1>& x,
                    qvarray::Array<dcomplex, 1>& y) const override {
    for (size_t i = 0; i < n_; ++i) {
      dcomplex s = 0.0;
      for (size_t k = start_[i]; k < start_[i + 1]; ++k) s += val_[k] * x[col_[k]];
      y[i] = s;
    }
  }

 private:
  size_t n_;
  std::vector<size_t> start_;
  std::vector<int> col_;
  std::vector<dcomplex> val_;
  bool real_ = true;
};

// Jacobi preconditioner: y = diag(A)⁻¹·x (zero diagonal entries act as 1).
class JacobiOperator : public qvarray::LinearOperator {
 public:
  explicit JacobiOperator(const CsrOperator& A) : inv_(A.size()), real_(A.isReal()) {
    for (size_t i = 0; i < inv_.size(); ++i) {
      const dcomplex d = A.diagonal(i);
      inv_[i] = d == 0.0 ? 1.0 : 1.0 / d;
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
    const qvtool::Triplets t = qvtool::readTriplets(file);
    if (t.rows != t.cols) {
      std::fprintf(stderr, "qvtool: %s: the matrix is not square (%zu x %zu)\n", file, t.rows, t.cols);
      return 1;
    }
    const CsrOperator A(t);
    const JacobiOperator M(A);
    if (jacobi) o.precond = &M;
    std::printf("matrix: %s, n = %zu, %s, %zu entries\n", file, t.rows,
                t.complex ? "complex" : "real", t.value.size());
    std::printf("restart %d, tol %.1e, maxit %d, preconditioner: %s\n", o.restart, o.tol, o.maxIter,
                jacobi ? "Jacobi" : "none");

    Vector ones(t.rows, 1.0), b, x;
    if (A.isReal()) {
      b = Vector(t.rows);
      A.apply(ones.getdArr(), b.getdArr());
    } else {
      ones.makeComplex();
      b = Vector(t.rows, dcomplex(0.0));
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
    std::fprintf(stderr, "qvtool: %s\n", e.what());
    return 1;
  }
}
