// The parallel paths on an idle and on a busy machine, each against its own
// one-thread run in the same benchmark.
//
//   busy/<path>/<idle|busy>   t1_us, t2_us: medians of one call with 1 and
//                             with 2 threads; ratio = t2_us / t1_us
//
// "busy" starts one busy-loop process per online processor (fork, spin) before
// the first measurement and kills them after the last, so that every core is
// shared with a process that never sleeps, as in a product whose host keeps
// the machine loaded. The 1- and 2-thread batches alternate (each about
// 20 ms of calls, their order swapped every round), so that a drift of the
// shared machine falls on both; the reported time is the 2-thread median.
//
// Paths (sparse: the library's Poisson model matrices; "small" is the
// 2-D grid n = 100, 10⁴ unknowns and 5·10⁴ entries; "large" the 3-D grid
// n = 113, 1.44·10⁶ unknowns and 1.0·10⁷ entries):
//   product/*         y += A·x (mode 0: the row-compressed gather)
//   productT/*        y += Aᵀ·x (mode 0: the column gather)
//   symmetric/*       y += A·x in symmetric storage (mode 1)
//   sor/*             SORIt forward sweep (r restored before each call)
//   sorupdate/*       SORItUpdater forward sweep (qvtool's SOR iteration)
//   updater/*         SORUpdater (x ← (c·D + U)·x)
//   jacobi/*          JacobiIts
//   gmres/small, gmres/medium (2-D n = 300)   one GMRES(30) iteration with
//                     the symmetric SOR preconditioner (qvtool poisson)
//   dense/gemm400, dense/lu500, dense/gemv2000   the dense layer's threaded
//                     BLAS/LAPACK calls; 1 thread is SerialBlasScope
//   stream/large      not a library path: the large matrix's values and row
//                     indices read once (a sum, in one plain OpenMP region of
//                     AVAILABLETHREADS() equal parts), the bytes a 10⁷-entry
//                     product streams: what the memory gives one and two
//                     threads, the ceiling of the products' speed-up
// Before timing, every path checks that its 2-thread result equals the
// 1-thread one bit for bit (the sweeps and GMRES, whose 2-thread ordering is
// another sweep: that two 2-thread runs agree bit for bit); the dense calls
// to 1e-12, relative: OpenBLAS rounds differently on 2 threads at some sizes.
#include <benchmark/benchmark.h>
#include <omp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "qvarray/sparse/poissongrid.h"
#include "qvarray/arrayutil.h"
#include "qvarray/blasruntime.h"
#include "qvarray/gmres.h"
#include "qvarray/sparse/sparseoperator.h"
#include "qvarray/sparse/sparseproducts.h"
#include "qvarray/sparse/sparserelax.h"
#include "qvutil/parallel.h"
#include "qvarray/sparse/ssorpreconditioner.h"
#include "benchthreads.h"

namespace {

using qvbench::Threads;
using qvarray::Array;
using qvarray::Sparse;
using qvarray::Vector;
using Clock = std::chrono::steady_clock;

// ---- the busy machine ----------------------------------------------------------------

// One spinning child process per online processor while alive.
class BusyMachine {
 public:
  explicit BusyMachine(bool on) {
    if (!on) return;
    const long procs = std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
    for (long k = 0; k < procs; ++k) {
      const pid_t pid = fork();
      if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive the benchmark
        for (;;) asm volatile("" ::: "memory");
      }
      if (pid < 0) throw std::runtime_error("fork failed");
      children_.push_back(pid);
    }
    usleep(50000);  // let them settle on the cores
  }
  ~BusyMachine() {
    for (pid_t pid : children_) kill(pid, SIGKILL);
    for (pid_t pid : children_) waitpid(pid, nullptr, 0);
  }
  BusyMachine(const BusyMachine&) = delete;
  BusyMachine& operator=(const BusyMachine&) = delete;

 private:
  std::vector<pid_t> children_;
};

// ---- the paths -------------------------------------------------------------------------

// A path: run() makes one call; result() copies what the call computed, for
// the check of the 2-thread result against the 1-thread one.
struct Path {
  std::function<void()> reset;  // to the state before the first call
  std::function<void()> run;
  std::function<std::vector<double>()> result;
  double tolerance = 0.0;  // relative, max norm
};

const Sparse& poisson(int dim, size_t n, bool symmetric = false) {
  static std::map<std::tuple<int, size_t, bool>, std::unique_ptr<Sparse>> cache;
  auto& slot = cache[{dim, n, symmetric}];
  if (!slot) {
    slot = std::make_unique<Sparse>(qvarray::assemblePoisson({dim, n}, symmetric));
    slot->setForm(qvarray::FormSorted);
  }
  return *slot;
}

const Sparse& small(bool symmetric = false) { return poisson(2, 100, symmetric); }
const Sparse& large(bool symmetric = false) { return poisson(3, 113, symmetric); }

std::vector<double> random(size_t n, unsigned seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> v(n);
  for (double& e : v) e = u(gen);
  return v;
}

std::vector<double> values(const Vector& v) {
  return std::vector<double>(v.getdArr().data, v.getdArr().data + v.size());
}

// y = A·x (or Aᵀ·x) into a fresh zero y each call.
Path product(const Sparse& A, qvarray::Trans_t t) {
  auto x = std::make_shared<Vector>(random(A.getN(), 1));
  auto y = std::make_shared<Vector>(A.getN());
  Path p;
  p.reset = [y] { y->setZero(); };
  p.run = [&A, x, y, t] {
    y->setZero();
    qvarray::yPlusAMulx(*y, A, *x, t);
  };
  p.result = [y] { return values(*y); };
  return p;
}

// Sweep on a restored r: a sweep overwrites r with its correction, and
// repeated sweeps would drive r towards subnormal numbers.
Path sweep(const Sparse& A) {
  const size_t n = A.getN();
  auto r0 = std::make_shared<std::vector<double>>(random(n, 2));
  auto x = std::make_shared<Vector>(n), r = std::make_shared<Vector>(*r0);
  Path p;
  p.reset = [x] { x->setZero(); };
  p.run = [&A, x, r, r0] {
    std::copy(r0->begin(), r0->end(), r->getdArr().data);
    qvarray::SORIt(A, *x, *r, 1.5, false);
  };
  p.result = [x] { return values(*x); };
  p.tolerance = -1.0;  // the 2-block ordering is another sweep: checked for repeatability
  return p;
}

// SOR iterations x ← x + δ with y kept the residual A·x − b.
Path sweepUpdate(const Sparse& A) {
  const size_t n = A.getN();
  auto b = std::make_shared<Vector>(random(n, 3));
  auto x = std::make_shared<Vector>(n), y = std::make_shared<Vector>(n);
  Path p;
  p.reset = [x, y, b] {
    x->setZero();
    *y = *b;
    *y *= -1.0;
  };
  p.run = [&A, x, y] { qvarray::SORItUpdater(A, *x, *y, 1.5, false); };
  p.result = [x] { return values(*x); };
  p.tolerance = -1.0;
  return p;
}

Path updater(const Sparse& A) {
  const size_t n = A.getN();
  auto x0 = std::make_shared<Vector>(random(n, 4));
  auto x = std::make_shared<Vector>(*x0);
  Path p;
  p.reset = [x, x0] { *x = *x0; };
  // x restored before each call: repeated updates grow it geometrically.
  p.run = [&A, x, x0] {
    std::copy(x0->getdArr().data, x0->getdArr().data + x0->size(), x->getdArr().data);
    qvarray::SORUpdater(A, *x, 1.5, true);
  };
  p.result = [x] { return values(*x); };
  return p;
}

Path jacobi(const Sparse& A) {
  const size_t n = A.getN();
  auto x = std::make_shared<Vector>(n), r = std::make_shared<Vector>(random(n, 5));
  Path p;
  p.reset = [x] { x->setZero(); };
  p.run = [&A, x, r] { qvarray::JacobiIts(A, *x, *r, 0.8); };
  p.result = [x] { return values(*x); };
  return p;
}

// One GMRES(30) iteration with the symmetric SOR preconditioner: a solve of
// fixed length (30 iterations, no convergence test reached), timed per
// iteration by the caller dividing by 30.
constexpr int kGmresIterations = 30;

Path gmres(size_t n) {
  const Sparse& A = poisson(2, n);
  auto b = std::make_shared<Vector>(random(A.getN(), 6));
  auto op = std::make_shared<qvarray::SparseOperator>(A);
  auto pre = std::make_shared<qvarray::SsorPreconditioner>(A, 1.5);
  auto x = std::make_shared<Vector>();
  Path p;
  p.reset = [] {};
  p.run = [=] {
    qvarray::GmresOptions o;
    o.tol = 1e-300;
    o.maxIter = kGmresIterations;
    o.precond = pre.get();
    qvarray::gmres(*op, *b, *x, o);
  };
  p.result = [x] { return values(*x); };
  p.tolerance = -1.0;  // another preconditioner on 2 threads (the sweep's ordering)
  return p;
}

Path gemm(size_t n) {
  auto A = std::make_shared<Array<double, 2>>(n, n), B = std::make_shared<Array<double, 2>>(n, n);
  auto C = std::make_shared<Array<double, 2>>(n, n);
  const auto a = random(n * n, 7), bb = random(n * n, 8);
  std::copy(a.begin(), a.end(), A->data);
  std::copy(bb.begin(), bb.end(), B->data);
  Path p;
  p.reset = [] {};
  p.run = [=] { qvarray::matmatAMulB(*A, *B, 1.0, 0.0, *C); };
  p.result = [C] { return std::vector<double>(C->data, C->data + C->count); };
  p.tolerance = 1e-12;  // OpenBLAS rounds differently on 2 threads at some sizes
  return p;
}

Path lu(size_t n) {
  auto A0 = std::make_shared<Array<double, 2>>(n, n);
  const auto a = random(n * n, 9);
  std::copy(a.begin(), a.end(), A0->data);
  for (size_t i = 0; i < n; ++i) A0->data[i * n + i] += static_cast<double>(n);
  auto A = std::make_shared<Array<double, 2>>(n, n);
  auto ipiv = std::make_shared<Array<int, 1>>(n);
  Path p;
  p.reset = [] {};
  p.run = [=] {
    std::copy(A0->data, A0->data + A0->count, A->data);
    qvarray::lu(*A, *ipiv, 1);
  };
  p.result = [A] { return std::vector<double>(A->data, A->data + A->count); };
  p.tolerance = 1e-12;
  return p;
}

Path gemv(size_t n) {
  auto A = std::make_shared<Array<double, 2>>(n, n);
  const auto a = random(n * n, 10);
  std::copy(a.begin(), a.end(), A->data);
  auto x = std::make_shared<Array<double, 1>>(n), y = std::make_shared<Array<double, 1>>(n);
  const auto xv = random(n, 11);
  std::copy(xv.begin(), xv.end(), x->data);
  Path p;
  p.reset = [] {};
  p.run = [=] {
    y->fill(0.0);
    qvarray::yPlusAMulx(*y, *A, *x, qvarray::NoTrans);
  };
  p.result = [y] { return std::vector<double>(y->data, y->data + y->count); };
  p.tolerance = 1e-12;
  return p;
}

// Σ value·row over the stored entries, in AVAILABLETHREADS() parts summed in
// part order (bits fixed by the thread count).
Path stream(const Sparse& A) {
  auto sum = std::make_shared<double>(0.0);
  Path p;
  p.reset = [] {};
  p.run = [&A, sum] {
    const double* v = A.getDoubleVal();
    const size_t* row = A.getRow();
    const size_t nnz = A.getNnz();
    const int parts = AVAILABLETHREADS();
    std::vector<double> partial(static_cast<size_t>(parts), 0.0);
#pragma omp parallel for num_threads(parts) schedule(static, 1)
    for (int t = 0; t < parts; ++t) {
      const size_t k0 = nnz * static_cast<size_t>(t) / static_cast<size_t>(parts);
      const size_t k1 = nnz * static_cast<size_t>(t + 1) / static_cast<size_t>(parts);
      double s = 0.0;
#pragma omp simd reduction(+ : s)
      for (size_t k = k0; k < k1; ++k) s += v[k] * static_cast<double>(row[k]);
      partial[static_cast<size_t>(t)] = s;
    }
    *sum = std::accumulate(partial.begin(), partial.end(), 0.0);
  };
  p.result = [sum] { return std::vector<double>{*sum}; };
  p.tolerance = 1e-12;  // another summation order on 2 threads
  return p;
}

// ---- measurement ------------------------------------------------------------------------

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t k = v.size() / 2;
  return v.size() % 2 ? v[k] : 0.5 * (v[k - 1] + v[k]);
}

// The 2-thread result against the 1-thread one, the team forced (whatever
// the size and the load); a negative tolerance asks for two 2-thread runs to
// agree bit for bit (a different but repeatable result). Leaves the thread
// policy in its default state, with nothing measured yet.
void check(Path& p) {
  using qvbase::Parallel;
  auto runWith = [&](int threads, int calls) {
    Threads t(threads);
    p.reset();
    for (int k = 0; k < calls; ++k) p.run();
    return p.result();
  };
  const size_t grain = Parallel::minWorkPerThread();
  Parallel::setMinWorkPerThread(1);
  Parallel::setAdaptive(false);
  const auto one = runWith(1, 3), two = runWith(2, 3), again = runWith(2, 3);
  Parallel::setMinWorkPerThread(grain);
  Parallel::setAdaptive(true);
  if (two != again) throw std::runtime_error("2-thread results not repeatable");
  if (p.tolerance < 0.0) return;
  double scale = 0.0, diff = 0.0;
  for (size_t i = 0; i < one.size(); ++i) {
    scale = std::max(scale, std::abs(one[i]));
    diff = std::max(diff, std::abs(one[i] - two[i]));
  }
  if (diff > p.tolerance * scale) throw std::runtime_error("2-thread result differs");
}

// Seconds per call of a batch of `calls` calls on `threads` threads.
double timeBatch(Path& p, int threads, int calls) {
  Threads t(threads);
  const auto start = Clock::now();
  for (int k = 0; k < calls; ++k) p.run();
  return std::chrono::duration<double>(Clock::now() - start).count() / calls;
}

void runPath(benchmark::State& state, const std::function<Path()>& make, bool busy, double per) {
  if (MAXAVAILABLETHREADS < 2) {
    state.SkipWithError("one processor only");
    return;
  }
  Path p = make();
  try {
    check(p);
  } catch (const std::exception& e) {
    state.SkipWithError(e.what());
    return;
  }
  p.reset();
  const BusyMachine machine(busy);
  double once = timeBatch(p, 1, 1);  // the fastest of a few calls: not a preempted one
  for (int k = 0; k < 4; ++k) once = std::min(once, timeBatch(p, 1, 1));
  const int calls = std::max(1, static_cast<int>(0.02 / once));
  std::vector<double> t1, t2;
  bool oneFirst = true;
  for (auto _ : state) {
    if (oneFirst) t1.push_back(timeBatch(p, 1, calls));
    t2.push_back(timeBatch(p, 2, calls));
    if (!oneFirst) t1.push_back(timeBatch(p, 1, calls));
    oneFirst = !oneFirst;
    state.SetIterationTime(t2.back() / per);
  }
  const double m1 = median(t1) / per, m2 = median(t2) / per;
  state.counters["t1_us"] = m1 * 1e6;
  state.counters["t2_us"] = m2 * 1e6;
  state.counters["ratio"] = m2 / m1;
}

void registerPath(const std::string& name, std::function<Path()> make, double per = 1.0) {
  for (bool busy : {false, true})
    benchmark::RegisterBenchmark(("busy/" + name + (busy ? "/busy" : "/idle")).c_str(),
                                 [make, busy, per](benchmark::State& s) {
                                   runPath(s, make, busy, per);
                                 })
        ->UseManualTime()
        ->Iterations(15)
        ->Unit(benchmark::kMicrosecond);
}

const bool registered = [] {
  using qvarray::NoTrans;
  using qvarray::Trans;
  registerPath("product/small", [] { return product(small(), NoTrans); });
  registerPath("product/large", [] { return product(large(), NoTrans); });
  registerPath("productT/small", [] { return product(small(), Trans); });
  registerPath("productT/large", [] { return product(large(), Trans); });
  registerPath("symmetric/small", [] { return product(small(true), NoTrans); });
  registerPath("symmetric/large", [] { return product(large(true), NoTrans); });
  registerPath("sor/small", [] { return sweep(small()); });
  registerPath("sor/large", [] { return sweep(large()); });
  registerPath("sorupdate/small", [] { return sweepUpdate(small()); });
  registerPath("sorupdate/large", [] { return sweepUpdate(large()); });
  registerPath("updater/small", [] { return updater(small()); });
  registerPath("updater/large", [] { return updater(large()); });
  registerPath("jacobi/small", [] { return jacobi(small()); });
  registerPath("jacobi/large", [] { return jacobi(large()); });
  registerPath("gmres/small", [] { return gmres(100); }, kGmresIterations);
  registerPath("gmres/medium", [] { return gmres(300); }, kGmresIterations);
  registerPath("dense/gemm400", [] { return gemm(400); });
  registerPath("dense/lu500", [] { return lu(500); });
  registerPath("dense/gemv2000", [] { return gemv(2000); });
  registerPath("stream/large", [] { return stream(large()); });
  return true;
}();

}  // namespace
