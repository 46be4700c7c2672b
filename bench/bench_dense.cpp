// Dense kernels side by side with a direct call of the BLAS/LAPACK routine
// each one wraps, and with Eigen's own kernels (no BLAS back end).
//
// Every benchmark is named <kernel>/<n>/<impl>, impl one of
//   qvarray       the library's function (Array form)
//   direct        the BLAS or LAPACK routine that the library calls, called directly
//   eigen         the same operation through Eigen on the same storage
//   eigen_stable  (norm) Eigen's stableNorm, overflow-safe like the library's
//                 norm above 50 elements; plain "eigen" (norm(), an unscaled
//                 sum) only up to 50 elements, where the library's norm is the
//                 plain sum too
//   loop          (norm, scale) a plain vectorised loop, compiled like the
//                 peers: where it stops beating the direct call is where a
//                 threshold belongs
//
// Checks (once per kernel and length, before timing): the direct call gives
// the library's bits for dot, yPlusaMulx, scale, copy and linsolv (the library
// promises BLAS's result); Eigen and the loops agree to rounding: a dot
// product within n·ε·Σ|x·y|, a norm within n·ε relatively, an axpy within one
// rounding per element, products and copies bit for bit, a solve of the
// diagonally dominant systems within 1e-12.
#include <benchmark/benchmark.h>
#include <cblas.h>

#include <Eigen/Dense>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/arrayutil.h"

extern "C" void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv,
                       double* b, const int* ldb, int* info);

namespace {

using Vec = Array<double, 1>;
using EigenMap = Eigen::Map<Eigen::VectorXd>;
using EigenConstMap = Eigen::Map<const Eigen::VectorXd>;
using EigenArray = Eigen::Map<Eigen::ArrayXd>;
using qvbench::Agreements;

constexpr std::initializer_list<int> kVectorSizes = {10, 50, 51, 1000, 100000};
constexpr std::initializer_list<int> kSolveSizes = {8, 64, 512};
constexpr double kEps = std::numeric_limits<double>::epsilon();

constexpr double kA = 1e-9;  // axpy factor, small so that y stays bounded however long the run
constexpr double kS = -1.0;  // scale factor: keeps x bounded; BLAS has no shortcut for it

Vec randomVector(size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  Vec v(n);
  for (double& x : v) x = dist(gen);
  return v;
}

// The operands of one vector kernel: inputs x, y, outputs y (axpy, copy), x
// (scale), z (times, plus) or the scalar s (dot, norm).
struct Work {
  int n;
  Vec x, y, z;
  double s = 0.0;
  explicit Work(int len)
      : n(len), x(randomVector(len, 1)), y(randomVector(len, 2)), z(randomVector(len, 3)) {}
  EigenMap ex() { return EigenMap(x.data, n); }
  EigenMap ey() { return EigenMap(y.data, n); }
  EigenMap ez() { return EigenMap(z.data, n); }
};

using Op = std::function<void(Work&)>;

// One kernel: the output its implementations write, and how close each must
// come to the library's output.
struct Kernel {
  const char* name;
  enum Output { Scalar, X, Y, Z } output;
  // Stated tolerance for impl at length n (0: the same bits).
  std::function<double(const std::string& impl, int n)> tol;
  // The scale a difference is measured against (0: the largest output element).
  std::function<double(Work&)> scale = [](Work&) { return 0.0; };
  std::vector<std::pair<std::string, Op>> impls = {};  // the library's first
};

/// An implementation of a kernel: a name and an operation on Work, kept in
/// its own type so that the timed loop calls it directly.
template <class F>
struct Impl {
  const char* name;
  F op;
};
template <class F>
Impl<F> impl(const char* name, F op) {
  return {name, op};
}

std::vector<double> outputOf(const Kernel& k, Work& w) {
  switch (k.output) {
    case Kernel::Scalar: return {w.s};
    case Kernel::X: return {w.x.begin(), w.x.end()};
    case Kernel::Y: return {w.y.begin(), w.y.end()};
    case Kernel::Z: return {w.z.begin(), w.z.end()};
  }
  return {};
}

// Each implementation once on fresh operands, compared with the library's.
Agreements checkKernel(const Kernel& k, int n) {
  Work ref(n);
  k.impls.front().second(ref);
  const std::vector<double> ours = outputOf(k, ref);
  Agreements result;
  for (const auto& [name, op] : k.impls) {
    Work w(n);
    op(w);
    const std::vector<double> theirs = outputOf(k, w);
    const double tol = k.tol(name, n);
    Work fresh(n);
    result[name] = {tol == 0.0 ? qvbench::bitDiff(ours.data(), theirs.data(), ours.size())
                               : qvbench::relDiff(ours.data(), theirs.data(), ours.size(),
                                                  k.scale(fresh)),
                    tol};
  }
  return result;
}

// The plain norm() of Eigen is an unscaled sum, equal work to the library's
// norm only where that is the plain sum too.
bool equalWork(const Kernel& k, const char* impl, int n) {
  return !(std::string(k.name) == "norm" && std::string(impl) == "eigen" && n > 50);
}

template <class F>
void registerImpl(const std::shared_ptr<const Kernel>& k, const Impl<F>& im, int n) {
  if (!equalWork(*k, im.name, n)) return;
  const std::string name = std::string(k->name) + "/" + std::to_string(n) + "/" + im.name;
  benchmark::RegisterBenchmark(name.c_str(), [k, im, n](benchmark::State& st) {
    const std::string config = std::string(k->name) + "/" + std::to_string(n);
    const auto& agreements = qvbench::checked(config, [&] { return checkKernel(*k, n); });
    if (!qvbench::agrees(st, agreements, im.name)) return;
    Work w(n);
    for (auto _ : st) {
      im.op(w);
      benchmark::DoNotOptimize(w.s);
      benchmark::DoNotOptimize(w.x.data);
      benchmark::ClobberMemory();
    }
    st.SetItemsProcessed(st.iterations() * n);
  });
}

template <class... F>
void addKernel(Kernel k, const Impl<F>&... impls) {
  (k.impls.emplace_back(impls.name, impls.op), ...);
  const auto shared = std::make_shared<const Kernel>(std::move(k));
  for (int n : kVectorSizes) (registerImpl(shared, impls, n), ...);
}

// Σ|x_i·y_i| of the operands: the scale of a dot product's rounding error.
double absDot(Work& w) {
  double s = 0.0;
  for (int i = 0; i < w.n; ++i) s += std::abs(w.x[i] * w.y[i]);
  return s;
}

void addVectorKernels() {
  const auto bits = [](const std::string&, int) { return 0.0; };
  addKernel({"dot", Kernel::Scalar,
             [](const std::string& impl, int n) { return impl == "direct" ? 0.0 : kEps * n; },
             absDot},
            impl("qvarray", [](Work& w) { w.s = qvarray::dot(w.x, w.y); }),
            impl("direct", [](Work& w) { w.s = cblas_ddot(w.n, w.x.data, 1, w.y.data, 1); }),
            impl("eigen", [](Work& w) { w.s = w.ex().dot(w.ey()); }));
  addKernel({"yPlusaMulx", Kernel::Y,
             [](const std::string& impl, int) { return impl == "direct" ? 0.0 : kEps; }},
            impl("qvarray", [](Work& w) { qvarray::yPlusaMulx(w.y, kA, w.x); }),
            impl("direct", [](Work& w) { cblas_daxpy(w.n, kA, w.x.data, 1, w.y.data, 1); }),
            impl("eigen", [](Work& w) { w.ey() += kA * w.ex(); }));
  addKernel({"norm", Kernel::Scalar, [](const std::string&, int n) { return kEps * std::max(4, n); }},
            impl("qvarray", [](Work& w) { w.s = qvarray::norm(w.x); }),
            impl("direct", [](Work& w) { w.s = cblas_dnrm2(w.n, w.x.data, 1); }),
            impl("eigen", [](Work& w) { w.s = w.ex().norm(); }),
            impl("eigen_stable", [](Work& w) { w.s = w.ex().stableNorm(); }),
            impl("loop", [](Work& w) {
              double s = 0.0;
#pragma omp simd reduction(+ : s)
              for (int i = 0; i < w.n; ++i) s += w.x[i] * w.x[i];
              w.s = std::sqrt(s);
            }));
  addKernel({"scale", Kernel::X, bits},
            impl("qvarray", [](Work& w) { qvarray::scale(w.x, kS); }),
            impl("direct", [](Work& w) { cblas_dscal(w.n, kS, w.x.data, 1); }),
            impl("eigen", [](Work& w) { w.ex() *= kS; }),
            impl("loop", [](Work& w) {
              for (int i = 0; i < w.n; ++i) w.x[i] *= kS;
            }));
  addKernel({"copy", Kernel::Y, bits},
            impl("qvarray", [](Work& w) { qvarray::copy(w.x, w.y); }),
            impl("direct", [](Work& w) { cblas_dcopy(w.n, w.x.data, 1, w.y.data, 1); }),
            impl("eigen", [](Work& w) { w.ey() = w.ex(); }));
  addKernel({"times", Kernel::Z, bits},
            impl("qvarray", [](Work& w) { qvarray::times(w.n, w.x.data, w.y.data, w.z.data); }),
            impl("eigen", [](Work& w) { w.ez().array() = w.ex().array() * w.ey().array(); }));
  addKernel({"plus", Kernel::Z, bits},
            impl("qvarray", [](Work& w) { qvarray::plus(w.n, w.x.data, kA, w.z.data); }),
            impl("eigen", [](Work& w) { w.ez().array() = w.ex().array() + kA; }));
}

// ------------------------------------------------ linsolv: A·x = b, LU with pivoting
// Each form restores A and b from a copy every iteration (the solve
// overwrites them); the copy is the same for all three forms.

// A random matrix made diagonally dominant, so that every solve is well posed.
Array<double, 2> randomSystem(size_t n) {
  Vec v = randomVector(n * n, 11);
  Array<double, 2> A(n, n);
  std::copy(v.begin(), v.end(), A.data);
  for (size_t i = 0; i < n; ++i) A(i, i) += static_cast<double>(n);
  return A;
}

struct Solve {
  int n;
  Array<double, 2> A0, A;
  Vec b0, b;
  std::vector<int> ipiv;
  Eigen::PartialPivLU<Eigen::MatrixXd> lu;
  Eigen::VectorXd x;
  explicit Solve(int len)
      : n(len), A0(randomSystem(len)), A(A0), b0(randomVector(len, 3)), b(b0), ipiv(len),
        lu(len), x(len) {}
  void qvarray() {
    A = A0;
    b = b0;
    qvarray::linsolv(A, b, qvarray::RaiseAll);
  }
  void direct() {
    A = A0;
    b = b0;
    const int nrhs = 1;
    int info = 0;
    dgesv_(&n, &nrhs, A.data, &n, ipiv.data(), b.data, &n, &info);
  }
  void eigen() {
    lu.compute(Eigen::Map<const Eigen::MatrixXd>(A0.data, n, n));  // copies A, then factorises
    x = lu.solve(EigenConstMap(b0.data, n));
    std::copy(x.data(), x.data() + n, b.data);
  }
};

void timeSolve(benchmark::State& st, void (Solve::*form)(), const std::string& impl, int n) {
  const auto& agreements = qvbench::checked("linsolv/" + std::to_string(n), [n] {
    Solve ours(n), direct(n), eigen(n);
    ours.qvarray();
    direct.direct();
    eigen.eigen();
    return Agreements{{"qvarray", {0.0, 0.0}},
                      {"direct", {qvbench::bitDiff(ours.b.data, direct.b.data, n), 0.0}},
                      {"eigen", {qvbench::relDiff(ours.b.data, eigen.b.data, n), 1e-12}}};
  });
  if (!qvbench::agrees(st, agreements, impl)) return;
  Solve s(n);
  for (auto _ : st) {
    (s.*form)();
    benchmark::DoNotOptimize(s.b.data);
    benchmark::ClobberMemory();
  }
  st.SetItemsProcessed(st.iterations() * n);
}

// Registered at start-up, kernel by kernel, so that related rows sit together.
const bool kRegistered = [] {
  addVectorKernels();
  const std::pair<const char*, void (Solve::*)()> forms[] = {
      {"qvarray", &Solve::qvarray}, {"direct", &Solve::direct}, {"eigen", &Solve::eigen}};
  for (int n : kSolveSizes)
    for (const auto& [impl, form] : forms) {
      const std::string name = "linsolv/" + std::to_string(n) + "/" + impl;
      benchmark::RegisterBenchmark(name.c_str(), timeSolve, form, std::string(impl), n);
    }
  return true;
}();

}  // namespace
