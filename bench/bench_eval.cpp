// Formulas evaluated over many points: the library's nodes side by side with
// muParser's bulk mode and an exact hand-written fused loop; numexpr and
// numpy are timed by bench/eval_numexpr.py, which drives this program on the
// same points (QV_EVAL_DATA) and merges the rows.
//
// Formulas (x uniform in [-2, 2], y uniform in [0.5, 2.5]: every value finite):
//   sincos     sin(x)^2+cos(x)^2
//   polyexp    x*y+3*x^2-exp(-x/y)
//   hypotstep  sqrt(x^2+y^2)*(x>0)
//   rational   (x+1)*(x-1)/(x*x+1)
//
// Names: <formula>/<n>/threads:<t>/<impl>, n = 1000 or 1000000, t = 1 or 2.
//   qvarray   one EvalTree per formula (parsed once, on its first
//             evaluation); per block of kBlock points a UserEvaluator binds
//             x (and y, for the formulas that use it) as arrays of the
//             block's values, and tree.eval runs with a reset cache; the
//             result is copied out. 2 threads: one evaluator (a copy of the
//             first), cache and pool (ParaArrayAllocator) per thread over the
//             shared trees, the blocks split in two parts run by a
//             qvbase::Team, which stays on the calling thread while a second
//             thread would come late (10^3 points: one block, one thread).
//   fused     one loop with the C library's functions (std::sin, ...), the
//             two threads of an OpenMP loop; compiled -O3 -march=native.
//   muparser  SetExpr once, then Eval(results, n) over all points (its bulk
//             mode, an OpenMP loop of its own, limited to t threads).
// Times: 1 thread by CPU time, 2 threads by wall-clock time. Counter
// per_point: seconds per point.
//
// Check (once per formula and n, before timing): every implementation against
// the fused loop, max |a - b| / max |fused| within 1e-14 (the library's SLEEF
// functions are within 1 ulp, as glibc's); the library's 2-thread result
// against its 1-thread one bit for bit; with QV_EVAL_DATA, numexpr's and
// numpy's results (files written by the driver) against the fused loop too,
// reported on the qvarray rows as counters diff_numexpr and diff_numpy.
#include <benchmark/benchmark.h>
#include <muParser.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/expr/arrayallocator.h"
#include "qvarray/expr/evaltree.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/userevaluator.h"
#include "qvarray/expr/valrepcache.h"
#include "qvutil/parallel.h"

namespace {

using namespace qvarray;

// Points per block: the pool's block size. Large enough that the per-node
// costs (a value object, a pooled array, a virtual call) are spread thin,
// small enough that a block's few live temporaries (32 KiB each) stay in
// the second-level cache. Measured here: 4096 is 10-35 % faster than 1024 at
// 10^6 points (1024: 2.7, 4.2, 3.9, 2.7 ns per point; 4096: 2.8, 3.0, 2.4,
// 1.8) and on a par with 2048.
constexpr size_t kBlock = 4096;
constexpr size_t kMaxPoints = 1000000;
constexpr double kTol = 1e-14;

struct Formula {
  const char* name;
  const char* text;
  void (*fused)(const double* x, const double* y, double* r, size_t n);
};

void sincos(const double* x, const double*, double* r, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    const double s = std::sin(x[i]), c = std::cos(x[i]);
    r[i] = s * s + c * c;
  }
}
void polyexp(const double* x, const double* y, double* r, size_t n) {
  for (size_t i = 0; i < n; ++i) r[i] = x[i] * y[i] + 3 * x[i] * x[i] - std::exp(-x[i] / y[i]);
}
void hypotstep(const double* x, const double* y, double* r, size_t n) {
  for (size_t i = 0; i < n; ++i) r[i] = std::sqrt(x[i] * x[i] + y[i] * y[i]) * (x[i] > 0 ? 1.0 : 0.0);
}
void rational(const double* x, const double*, double* r, size_t n) {
  for (size_t i = 0; i < n; ++i) r[i] = (x[i] + 1) * (x[i] - 1) / (x[i] * x[i] + 1);
}

const Formula kFormulas[] = {{"sincos", "sin(x)^2+cos(x)^2", sincos},
                             {"polyexp", "x*y+3*x^2-exp(-x/y)", polyexp},
                             {"hypotstep", "sqrt(x^2+y^2)*(x>0)", hypotstep},
                             {"rational", "(x+1)*(x-1)/(x*x+1)", rational}};

const char* dataDir() { return std::getenv("QV_EVAL_DATA"); }

std::vector<double> load(const std::string& name) {
  std::ifstream in(std::string(dataDir()) + "/" + name + ".f64", std::ios::binary | std::ios::ate);
  if (!in) return {};
  std::vector<double> v(static_cast<size_t>(in.tellg()) / sizeof(double));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(v.data()), static_cast<std::streamsize>(v.size() * sizeof(double)));
  return v;
}

// The driver's points, or the same ranges from a generator of our own.
struct Points {
  std::vector<double> x, y;
  Points() {
    if (dataDir()) {
      x = load("x");
      y = load("y");
    }
    if (x.size() < kMaxPoints || y.size() < kMaxPoints) {
      std::mt19937_64 gen(2026);
      std::uniform_real_distribution<double> ux(-2.0, 2.0), uy(0.5, 2.5);
      x.resize(kMaxPoints);
      y.resize(kMaxPoints);
      for (size_t i = 0; i < kMaxPoints; ++i) x[i] = ux(gen), y[i] = uy(gen);
    }
  }
};
const Points& points() {
  static const Points p;
  return p;
}

// One thread's evaluator (a UserEvaluator over a block of points), its
// cache, and the block's x and y as arrays to bind.
struct Worker {
  std::shared_ptr<UserEvaluator> ev;
  ValRepCache cache;
  Array<double, 1> bx, by;
  Worker(std::shared_ptr<UserEvaluator> e, const ValRep::AllocPtr& alloc)
      : ev(std::move(e)), cache(alloc), bx(ev->getNPoints()), by(ev->getNPoints()) {
    ev->setAllocator(alloc);
  }
  // r[0, n) = the tree's values at the points [0, n) of x and y (y bound
  // only for the formulas that use it).
  void run(EvalTree& tree, bool useY, const double* x, const double* y, double* r, size_t n) {
    for (size_t b = 0; b < n; b += kBlock) {
      const size_t len = std::min(kBlock, n - b);
      if (len != ev->getNPoints()) {
        ev->setNPoints(len);
        bx.resize(len);
        by.resize(len);
      }
      std::memcpy(bx.data, x + b, len * sizeof(double));
      ev->bind("x", bx);
      if (useY) {
        std::memcpy(by.data, y + b, len * sizeof(double));
        ev->bind("y", by);
      }
      cache.reset();
      ValRepPtr v = tree.eval(ev, cache, ev->evalFlags());
      if (v->isNaN()) v->throwError();
      v->copyToArray(r + b, 0, len);
    }
  }
};

struct Engine {
  std::shared_ptr<NodeMaker> maker = std::make_shared<NodeMaker>();
  std::shared_ptr<SerialArrayAllocator> serialPool =
      std::make_shared<SerialArrayAllocator>(static_cast<int>(kBlock), 5000000);
  std::shared_ptr<ParaArrayAllocator> paraPool =
      std::make_shared<ParaArrayAllocator>(static_cast<int>(kBlock), 5000000);
  Worker serial{UserEvaluator::make(kBlock, maker), serialPool};
  std::vector<std::unique_ptr<Worker>> perThread;
  std::map<std::string, std::shared_ptr<EvalTree>> trees;
  Engine() {
    for (int t = 0; t < qvbase::Parallel::maxThreads(); ++t)
      perThread.push_back(std::make_unique<Worker>(serial.ev->copy(), paraPool));
  }
  EvalTree& tree(const Formula& f) {
    auto& t = trees[f.name];
    if (!t) t = std::make_shared<EvalTree>(f.text);
    return *t;
  }
  void eval(const Formula& f, const double* x, const double* y, double* r, size_t n, int threads) {
    EvalTree& t = tree(f);
    const bool useY = std::strchr(f.text, 'y') != nullptr;
    if (threads == 1) return serial.run(t, useY, x, y, r, n);
    // Parts of whole blocks (the last part takes the rest).
    const size_t blocks = (n + kBlock - 1) / kBlock;
    const size_t per = std::max<size_t>(1, (blocks + threads - 1) / threads) * kBlock;
    const int parts = static_cast<int>(std::min<size_t>(threads, (n + per - 1) / per));
    qvbase::Team(parts, n * 16).run([&](int p) {
      const size_t b = static_cast<size_t>(p) * per, len = std::min(per, n - b);
      perThread[static_cast<size_t>(omp_get_thread_num())]->run(t, useY, x + b, y + b, r + b, len);
    });
  }
};
Engine& engine() {
  static Engine e;
  return e;
}

void fusedLoop(const Formula& f, const double* x, const double* y, double* r, size_t n, int threads) {
  if (threads == 1) return f.fused(x, y, r, n);
#pragma omp parallel num_threads(threads)
  {
    const size_t t = static_cast<size_t>(omp_get_thread_num()), nt = static_cast<size_t>(omp_get_num_threads());
    const size_t b = n * t / nt, e = n * (t + 1) / nt;
    f.fused(x + b, y + b, r + b, e - b);
  }
}

struct MuBulk {
  mu::Parser p;
  MuBulk(const Formula& f, const Points& pts) {
    p.DefineVar("x", const_cast<double*>(pts.x.data()));
    p.DefineVar("y", const_cast<double*>(pts.y.data()));
    p.SetExpr(f.text);
  }
  void eval(double* r, size_t n, int threads) {
    omp_set_num_threads(threads);
    p.Eval(r, static_cast<int>(n));
  }
};

void run(const Formula& f, const std::string& impl, double* r, size_t n, int threads) {
  const Points& pts = points();
  if (impl == "qvarray") {
    engine().eval(f, pts.x.data(), pts.y.data(), r, n, threads);
  } else if (impl == "fused") {
    fusedLoop(f, pts.x.data(), pts.y.data(), r, n, threads);
  } else {
    static std::map<std::string, std::unique_ptr<MuBulk>> parsers;
    auto& mu = parsers[f.name];
    if (!mu) mu = std::make_unique<MuBulk>(f, pts);
    mu->eval(r, n, threads);
  }
}

qvbench::Agreements check(const Formula& f, size_t n) {
  std::vector<double> ref(n), ours(n), other(n);
  run(f, "fused", ref.data(), n, 1);
  run(f, "qvarray", ours.data(), n, 1);
  qvbench::Agreements a;
  a["qvarray"] = {qvbench::relDiff(ours.data(), ref.data(), n), kTol};
  run(f, "qvarray", other.data(), n, 2);
  a["qvarray2"] = {qvbench::bitDiff(other.data(), ours.data(), n), 0.0};
  for (const char* impl : {"fused", "muparser"})
    for (int t : {1, 2}) {
      run(f, impl, other.data(), n, t);
      a[impl + std::to_string(t)] = {qvbench::relDiff(other.data(), ref.data(), n), kTol};
    }
  if (dataDir())
    for (const char* peer : {"numexpr", "numpy"}) {
      const std::vector<double> theirs = load(std::string(peer) + "_" + f.name);
      if (theirs.size() >= n) a[peer] = {qvbench::relDiff(theirs.data(), ref.data(), n), kTol};
    }
  return a;
}

void BM_eval(benchmark::State& st, const Formula& f, size_t n, int threads, const std::string& impl) {
  const auto& agreements =
      qvbench::checked(std::string(f.name) + "/" + std::to_string(n), [&] { return check(f, n); });
  const std::string self = impl == "qvarray" ? (threads == 1 ? "qvarray" : "qvarray2")
                                             : impl + std::to_string(threads);
  if (!qvbench::agrees(st, agreements, self)) return;
  if (impl == "qvarray") {
    for (const char* peer : {"numexpr", "numpy"}) {
      auto it = agreements.find(peer);
      if (it == agreements.end()) continue;
      st.counters[std::string("diff_") + peer] = it->second.diff;
      if (!(it->second.diff <= it->second.tol)) {
        st.SkipWithError((std::string(peer) + "'s result disagrees with the fused loop").c_str());
        return;
      }
    }
  }
  // Each thread count is what the implementation may use; the library's own
  // team size also follows availableThreads().
  qvbase::Parallel::setAvailableThreads(threads);
  std::vector<double> r(n);
  run(f, impl, r.data(), n, threads);  // warms pools and caches
  for (auto _ : st) {
    run(f, impl, r.data(), n, threads);
    benchmark::ClobberMemory();
  }
  st.counters["per_point"] = benchmark::Counter(
      static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

const bool kRegistered = [] {
  for (const Formula& f : kFormulas)
    for (size_t n : {size_t{1000}, kMaxPoints})
      for (int t : {1, 2})
        for (const char* impl : {"qvarray", "fused", "muparser"}) {
          const std::string name = std::string(f.name) + "/" + std::to_string(n) + "/threads:" +
                                   std::to_string(t) + "/" + impl;
          auto* b = benchmark::RegisterBenchmark(name.c_str(), BM_eval, f, n, t, std::string(impl));
          b->Unit(n < 10000 ? benchmark::kMicrosecond : benchmark::kMillisecond);
          if (t > 1) b->UseRealTime();
        }
  return true;
}();

}  // namespace
