// FFTPlan execution side by side with FFTW's own plan of the same transform,
// executed directly (fftw_execute) on the same arrays.
//
// Names: fft/<kind>/<sizes>/<impl>, impl one of
//   qvarray  FFTPlan::execute on Arrays (checks sizes, picks the plan variant)
//   fftw     fftw_execute of a plan made for these very arrays
// Both plans are made with FFTW_ESTIMATE, so FFTW picks the same algorithm;
// the check (once per case, before timing) asks for the same bits.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <random>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/jni/fftplan.h"

namespace {

using dcomplex = std::complex<double>;
using Sizes = std::vector<size_t>;

struct Case {
  bool real;  // real to complex, else complex to complex
  Sizes sizes;
};

size_t countOf(const Sizes& s) {
  size_t n = 1;
  for (size_t d : s) n *= d;
  return n;
}

std::string nameOf(const Case& c) {
  std::string s = c.real ? "r2c/" : "c2c/";
  for (size_t k = 0; k < c.sizes.size(); ++k) {
    if (k) s += 'x';
    s += std::to_string(c.sizes[k]);
  }
  return s;
}

// Input and output of one case, filled with fixed random numbers.
struct Data {
  Array<double, 1> x;    // real input
  Array<dcomplex, 1> z;  // complex input
  Array<dcomplex, 1> out;
  Data(const Case& c, size_t outCount) : x(countOf(c.sizes)), z(countOf(c.sizes)), out(outCount) {
    std::mt19937_64 gen(7);
    std::normal_distribution<double> g;
    for (size_t k = 0; k < x.count; ++k) {
      x.data[k] = g(gen);
      z.data[k] = dcomplex(g(gen), g(gen));
    }
  }
};

FFTPlan ourPlan(const Case& c) {
  return FFTPlan(c.real ? FFTPlan::Kind::RealToComplex : FFTPlan::Kind::Complex,
                 FFTPlan::Direction::Forward, c.sizes);
}

// FFTW's plan for d's arrays: sizes reversed into FFTW's row-major order.
fftw_plan fftwPlan(const Case& c, Data& d) {
  int dims[3];
  const int rank = static_cast<int>(c.sizes.size());
  for (int k = 0; k < rank; ++k) dims[k] = static_cast<int>(c.sizes[rank - 1 - k]);
  auto* out = reinterpret_cast<fftw_complex*>(d.out.data);
  return c.real ? fftw_plan_dft_r2c(rank, dims, d.x.data, out, FFTW_ESTIMATE)
                : fftw_plan_dft(rank, dims, reinterpret_cast<fftw_complex*>(d.z.data), out,
                                FFTW_FORWARD, FFTW_ESTIMATE);
}

void runOurs(const FFTPlan& plan, const Case& c, Data& d) {
  if (c.real)
    plan.execute(d.x.data, d.out.data);
  else
    plan.execute(d.z.data, d.out.data);
}

bool checked(benchmark::State& st, const Case& c, const char* impl) {
  const auto& agreements = qvbench::checked(nameOf(c), [&c] {
    const FFTPlan plan = ourPlan(c);
    Data ours(c, plan.outputCount()), theirs(c, plan.outputCount());
    runOurs(plan, c, ours);
    fftw_plan p = fftwPlan(c, theirs);
    fftw_execute(p);
    fftw_destroy_plan(p);
    return qvbench::Agreements{
        {"qvarray", {0.0, 0.0}},
        {"fftw", {qvbench::bitDiff(reinterpret_cast<const double*>(theirs.out.data),
                                   reinterpret_cast<const double*>(ours.out.data),
                                   2 * ours.out.count),
                  0.0}}};
  });
  return qvbench::agrees(st, agreements, impl);
}

void fftQvarray(benchmark::State& st, Case c) {
  if (!checked(st, c, "qvarray")) return;
  const FFTPlan plan = ourPlan(c);
  Data d(c, plan.outputCount());
  for (auto _ : st) {
    runOurs(plan, c, d);
    benchmark::DoNotOptimize(d.out.data);
  }
}

void fftFftw(benchmark::State& st, Case c) {
  if (!checked(st, c, "fftw")) return;
  Data d(c, ourPlan(c).outputCount());
  fftw_plan p = fftwPlan(c, d);
  for (auto _ : st) {
    fftw_execute(p);
    benchmark::DoNotOptimize(d.out.data);
  }
  fftw_destroy_plan(p);
}

const bool kRegistered = [] {
  const std::vector<Case> cases = {{false, {64}},      {false, {1024}},   {false, {65536}},
                                   {false, {1000}},    {false, {256, 256}}, {false, {32, 32, 32}},
                                   {true, {1024}},     {true, {65536}},   {true, {256, 256}}};
  for (const Case& c : cases) {
    const std::string k = "fft/" + nameOf(c) + "/";
    benchmark::RegisterBenchmark((k + "qvarray").c_str(), fftQvarray, c);
    benchmark::RegisterBenchmark((k + "fftw").c_str(), fftFftw, c);
  }
  return true;
}();

}  // namespace
