// Array overloads of the function objects side by side with a plain loop
// calling libm over the same arrays.
//
// Every benchmark is named <function>/<n>/<impl>, impl one of
//   qvarray  the function object's in-place array overload (on SLEEF's 1-ulp
//            vector functions for exp, log, sin, cos, tan, atan, pow); the
//            input is copied into the operand first, as the evaluation engine
//            would, so the library does a copy more than the peer
//   libm     for (i) out[i] = f(in[i]) with glibc's functions, compiled
//            -O3 -march=native without fast-math (the compiler keeps the calls)
// "plus" is the operator "+" against the loop x[i] += y[i].
//
// Check (once per function and length, before timing): the libm loop's
// values are within 2 ulps of the library's (each is within 1 ulp of the
// exact value; the mpmath comparison of the tests holds the library to its
// stated bounds); "plus" bit for bit. The diff column is in ulps.
#include <benchmark/benchmark.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "benchcheck.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/operators.h"

namespace {

using qvarray::Array;
using qvarray::FunObj;
using Vec = Array<double, 1>;
using qvbench::Agreements;

// The peer's loop: out[i] = f(in[i]) (or f(in[i], y[i])), f called directly.
using Loop = void (*)(const double* in, const double* y, double* out, int n);
#define QV_LIBM_LOOP(expr) \
  [](const double* in, const double* y, double* out, int n) { \
    (void)in, (void)y; \
    for (int i = 0; i < n; ++i) out[i] = expr; \
  }

struct Case {
  const char* name;
  std::shared_ptr<FunObj> f;
  Loop libm;
  bool binary;
  double lo, hi;  // argument range (of the base for pow)
};

const Case kCases[] = {
    {"exp", std::make_shared<qvarray::ExpFun>(), QV_LIBM_LOOP(std::exp(in[i])), false, -50, 50},
    {"log", std::make_shared<qvarray::LogFun>(), QV_LIBM_LOOP(std::log(in[i])), false, 1e-3, 1e6},
    {"sin", std::make_shared<qvarray::SinFun>(), QV_LIBM_LOOP(std::sin(in[i])), false, -100, 100},
    {"cos", std::make_shared<qvarray::CosFun>(), QV_LIBM_LOOP(std::cos(in[i])), false, -100, 100},
    {"tan", std::make_shared<qvarray::TanFun>(), QV_LIBM_LOOP(std::tan(in[i])), false, -1.5, 1.5},
    {"atan", std::make_shared<qvarray::AtanFun>(), QV_LIBM_LOOP(std::atan(in[i])), false, -20, 20},
    {"pow", std::make_shared<qvarray::PowFun>(), QV_LIBM_LOOP(std::pow(in[i], y[i])), true, 0.01,
     10},
    {"plus", std::make_shared<qvarray::PlusFun>(), QV_LIBM_LOOP(out[i] + y[i]), true, -1, 1},
};

struct Work {
  std::shared_ptr<Vec> in, y, out;
  explicit Work(const Case& c, int n)
      : in(std::make_shared<Vec>(n)), y(std::make_shared<Vec>(n)), out(std::make_shared<Vec>(n)) {
    std::mt19937_64 gen(7);
    std::uniform_real_distribution<double> x(c.lo, c.hi), e(-5, 5);
    for (int i = 0; i < n; ++i) (*in)[i] = x(gen), (*y)[i] = e(gen), (*out)[i] = (*in)[i];
  }
};

void runOurs(const Case& c, Work& w, int n) {
  if (std::string(c.name) == "plus") {
    (*c.f)(w.out, w.y, n, 1);
    return;
  }
  std::memcpy(w.out->data, w.in->data, n * sizeof(double));
  if (c.binary)
    (*c.f)(w.out, w.y, n, 1);
  else
    (*c.f)(w.out, n);
}

void runLibm(const Case& c, Work& w, int n) { c.libm(w.in->data, w.y->data, w.out->data, n); }

double maxUlps(const Vec& a, const Vec& b) {
  auto key = [](double x) {
    std::int64_t i = std::bit_cast<std::int64_t>(x);
    return i < 0 ? INT64_MIN - i : i;
  };
  double worst = 0;
  for (size_t i = 0; i < a.size(); ++i)
    worst = std::max(worst, static_cast<double>(std::abs(key(a[i]) - key(b[i]))));
  return worst;
}

Agreements check(const Case& c, int n) {
  Work ours(c, n), theirs(c, n);
  runOurs(c, ours, n);
  runLibm(c, theirs, n);
  const bool plus = std::string(c.name) == "plus";
  return {{"qvarray", {0, 0}}, {"libm", {maxUlps(*ours.out, *theirs.out), plus ? 0.0 : 2.0}}};
}

void registerAll() {
  for (const Case& c : kCases)
    for (int n : {10, 1000, 100000})
      for (const char* impl : {"qvarray", "libm"}) {
        const std::string name = std::string(c.name) + "/" + std::to_string(n) + "/" + impl;
        benchmark::RegisterBenchmark(name.c_str(), [&c, n, impl](benchmark::State& st) {
          const auto& agreements = qvbench::checked(
              std::string(c.name) + "/" + std::to_string(n), [&] { return check(c, n); });
          if (!qvbench::agrees(st, agreements, impl)) return;
          Work w(c, n);
          const bool ours = std::string(impl) == "qvarray";
          for (auto _ : st) {
            if (ours)
              runOurs(c, w, n);
            else
              runLibm(c, w, n);
            benchmark::DoNotOptimize(w.out->data);
            benchmark::ClobberMemory();
          }
          st.SetItemsProcessed(st.iterations() * n);
        });
      }
}

const int kRegistered = (registerAll(), 0);

}  // namespace
