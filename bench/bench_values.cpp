// a*b + c over real values of n points through ValRep::applyOp, side by side
// with plain loops over the same arrays.
//
// Names: abc/<n>/<impl>
//   qvarray  t = applyOp(*, a, b) (a, b kept by the caller: fresh storage),
//            r = applyOp(+, t, c) (t held alone: computed in place), r dropped,
//            its block back in the pool; values drawn from a pool whose block
//            size is n, warmed by one evaluation before timing
//   fused    r[i] = a[i]*b[i] + c[i], one loop (the compiler may fuse the
//            multiply-add)
//   loops    t[i] = a[i]*b[i]; t[i] += c[i], two loops: the passes applyOp makes
//            when the product has no out-of-place form (it then copies a first)
// Counters: per_point, the time per point; array_allocs, the array-storage allocations per
// evaluation inside the timed loop (aligned operator new, which only Array
// storage uses): 0 with warm pools. The small value objects are not counted.
//
// Check (once per n, before timing): the loops give the library's bits; the
// fused loop agrees within 2^-52 of the largest result (one rounding less).
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <string>

#include "benchcheck.h"
#include "qvarray/expr/arrayallocator.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/valrep.h"

namespace {
std::atomic<long> gArrayAllocs{0};
}  // namespace

// Array storage is the only user of the aligned forms.
void* operator new(std::size_t bytes, std::align_val_t align) {
  gArrayAllocs.fetch_add(1, std::memory_order_relaxed);
  void* p = std::aligned_alloc(
      static_cast<std::size_t>(align),
      (bytes + static_cast<std::size_t>(align) - 1) & ~(static_cast<std::size_t>(align) - 1));
  if (!p) throw std::bad_alloc();
  return p;
}
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }

namespace {

using qvarray::ValRep;
using Ptr = ValRep::Ptr;

const qvarray::MultFun kMul;
const qvarray::PlusFun kPlus;

struct Inputs {
  std::shared_ptr<qvarray::SerialArrayAllocator> alloc;
  Ptr a, b, c;
  size_t n;
  explicit Inputs(size_t len) : n(len) {
    alloc = std::make_shared<qvarray::SerialArrayAllocator>(static_cast<int>(len), 5000000);
    std::mt19937_64 gen(7);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    for (Ptr* v : {&a, &b, &c}) {
      *v = std::make_shared<ValRep>(alloc);
      (*v)->reset(false, false, len);
      double* x = (*v)->addDArray().data;
      for (size_t i = 0; i < len; ++i) x[i] = dist(gen);
    }
  }
  const double* x(const Ptr& v) const { return v->getDoubleIterator(0); }
};

Ptr evalLibrary(const Inputs& in) {
  return ValRep::applyOp(kPlus, ValRep::applyOp(kMul, in.a, in.b, false), in.c, true);
}

void fused(const double* a, const double* b, const double* c, double* r, size_t n) {
  for (size_t i = 0; i < n; ++i) r[i] = a[i] * b[i] + c[i];
}

void loops(const double* a, const double* b, const double* c, double* t, size_t n) {
  for (size_t i = 0; i < n; ++i) t[i] = a[i] * b[i];
  for (size_t i = 0; i < n; ++i) t[i] += c[i];
}

qvbench::Agreements check(size_t n) {
  Inputs in(n);
  const Ptr r = evalLibrary(in);
  const double* ours = r->getDoubleIterator(0);
  std::vector<double> f(n), l(n);
  fused(in.x(in.a), in.x(in.b), in.x(in.c), f.data(), n);
  loops(in.x(in.a), in.x(in.b), in.x(in.c), l.data(), n);
  qvbench::Agreements out;
  out["qvarray"] = {0.0, 0.0};
  out["loops"] = {qvbench::bitDiff(ours, l.data(), n), 0.0};
  out["fused"] = {qvbench::relDiff(ours, f.data(), n), 0x1p-52};
  return out;
}

void setCounters(benchmark::State& st, size_t n, long allocs) {
  st.counters["per_point"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                     benchmark::Counter::kInvert);
  st.counters["array_allocs"] =
      benchmark::Counter(static_cast<double>(allocs) / static_cast<double>(st.iterations()));
}

void BM_abc(benchmark::State& st, size_t n, const std::string& impl) {
  const auto& agreements = qvbench::checked("abc/" + std::to_string(n), [n] { return check(n); });
  if (!qvbench::agrees(st, agreements, impl)) return;
  const long made = gArrayAllocs.load();
  Inputs in(n);
  if (gArrayAllocs.load() - made < 3) {  // the counter must see the inputs' arrays
    st.SkipWithError("array allocations are not counted");
    return;
  }
  std::vector<double> out(n);
  evalLibrary(in);  // warms the pool
  const long before = gArrayAllocs.load();
  if (impl == "qvarray") {
    for (auto _ : st) benchmark::DoNotOptimize(evalLibrary(in).get());
  } else if (impl == "fused") {
    for (auto _ : st) {
      fused(in.x(in.a), in.x(in.b), in.x(in.c), out.data(), n);
      benchmark::ClobberMemory();
    }
  } else {
    for (auto _ : st) {
      loops(in.x(in.a), in.x(in.b), in.x(in.c), out.data(), n);
      benchmark::ClobberMemory();
    }
  }
  setCounters(st, n, gArrayAllocs.load() - before);
}

const bool kRegistered = [] {
  for (size_t n : {10, 1000, 100000})
    for (const char* impl : {"qvarray", "fused", "loops"})
      benchmark::RegisterBenchmark(("abc/" + std::to_string(n) + "/" + impl).c_str(), BM_abc, n,
                                   std::string(impl));
  return true;
}();

}  // namespace
