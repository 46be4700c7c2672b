// Bessel J on the real axis: the library's complex-argument code (given
// x + 0i) side by side with the real-argument implementations, 1000 points
// per case, report only (the complex code is not meant to replace them).
//
// Names: besselj/nu:<order>/x:<range>/<impl>, impl one of
//   qvarray        qvbesselj(nu, complex x), the complex-argument algorithm
//   cyl_bessel_j   libstdc++'s std::cyl_bessel_j
//   boost          qvbesselj(nu, x), the real form (Boost.Math)
//
// Checks (once per case, before timing): every peer within 1e-10 of the
// library's values, relative to the largest |J| of the case.
#include <benchmark/benchmark.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvsf/qvsf.h"

namespace {

constexpr int kPoints = 1000;

std::vector<double> grid(double lo, double hi) {
  std::vector<double> x(kPoints);
  for (int i = 0; i < kPoints; ++i) x[i] = lo + (hi - lo) * (i + 0.5) / kPoints;
  return x;
}

using Eval = double (*)(double nu, double x);
double viaComplex(double nu, double x) {
  return qvsf::qvbesselj(nu, std::complex<double>(x)).real();
}
double viaStd(double nu, double x) { return std::cyl_bessel_j(nu, x); }
double viaBoost(double nu, double x) { return qvsf::qvbesselj(nu, x); }

void evalAll(Eval f, double nu, const std::vector<double>& x, std::vector<double>& out) {
  for (size_t i = 0; i < x.size(); ++i) out[i] = f(nu, x[i]);
}

void besselj(benchmark::State& st, const char* impl, Eval f, double nu, double lo, double hi) {
  const std::vector<double> x = grid(lo, hi);
  std::vector<double> out(x.size());
  const std::string config = "nu" + std::to_string(nu) + "x" + std::to_string(lo);
  const auto& agreements = qvbench::checked(config, [&] {
    std::vector<double> ours(x.size()), peer(x.size());
    evalAll(viaComplex, nu, x, ours);
    qvbench::Agreements a{{"qvarray", {0.0, 0.0}}};
    evalAll(viaStd, nu, x, peer);
    a["cyl_bessel_j"] = {qvbench::relDiff(peer.data(), ours.data(), x.size()), 1e-10};
    evalAll(viaBoost, nu, x, peer);
    a["boost"] = {qvbench::relDiff(peer.data(), ours.data(), x.size()), 1e-10};
    return a;
  });
  if (!qvbench::agrees(st, agreements, impl)) return;
  for (auto _ : st) {
    evalAll(f, nu, x, out);
    benchmark::DoNotOptimize(out.data());
  }
  st.SetItemsProcessed(st.iterations() * kPoints);
}

struct Case {
  const char* name;
  double nu, lo, hi;
};

const bool registered = [] {
  const Case cases[] = {{"nu:0/x:0-2", 0.0, 0.0, 2.0},     {"nu:0/x:2-50", 0.0, 2.0, 50.0},
                        {"nu:2.5/x:0-2", 2.5, 0.0, 2.0},   {"nu:2.5/x:2-50", 2.5, 2.0, 50.0},
                        {"nu:15/x:2-50", 15.0, 2.0, 50.0}, {"nu:0/x:50-200", 0.0, 50.0, 200.0}};
  const std::pair<const char*, Eval> impls[] = {
      {"qvarray", viaComplex}, {"cyl_bessel_j", viaStd}, {"boost", viaBoost}};
  for (const Case& c : cases)
    for (const auto& [impl, f] : impls)
      benchmark::RegisterBenchmark((std::string("besselj/") + c.name + "/" + impl).c_str(), besselj,
                                   impl, f, c.nu, c.lo, c.hi);
  return true;
}();

}  // namespace
