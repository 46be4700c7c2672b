// The expression compiler's compile time: a random definition set (see
// randomdefs.h; with repeated definitions for eliminateCommon) of 10^2, 10^4
// and 10^5 definitions over 4 inputs, handed to a fresh ExprComp and
// compiled to a class in memory (every pass, the class bytes).
//
// Names: compile/<defs>/qvarray, counter per_def (time per definition).
// bench/exprcomp_jvm.py, which runs this program for bench/summary.py, prints
// the growth exponent: the slope of log(median) over log(defs) from 10^2 to
// 10^5 (1 for linear growth). It also times the compiled classes in the JVM
// against javac's classes of the same sets (bench/jvm/ClassSpeed.java).
// ExprComp::eval against the evaluation engine on the same definitions is
// bench_createdefs.
//
// Check (once per size, before timing): the compiled program's in-process
// evaluation (ExprComp::eval) gives, at one point, the bits of a plain loop
// over the definitions (any NaN for a NaN).
#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "randomdefs.h"

namespace {

using qvarray::ExprComp;

// The set's outputs by a plain loop in definition order.
std::vector<double> direct(const qvbench::RandomDefs& s, const std::vector<double>& in) {
  std::vector<double> v(in);
  v.resize(static_cast<size_t>(s.inputs) + s.defs.size());
  for (const auto& d : s.defs) {
    const double a = d.args.empty() ? 0.0 : v[static_cast<size_t>(d.args[0])];
    const double b = d.args.size() > 1 ? v[static_cast<size_t>(d.args[1])] : 0.0;
    double r = d.value;
    switch (d.op) {
      case ExprComp::OpPlus: r = a + b; break;
      case ExprComp::OpMinus: r = a - b; break;
      case ExprComp::OpMult: r = a * b; break;
      case ExprComp::OpDiv: r = a / b; break;
      case ExprComp::OpSin: r = std::sin(a); break;
      case ExprComp::OpCos: r = std::cos(a); break;
      case ExprComp::OpSqrt: r = std::sqrt(a); break;
      case ExprComp::OpSq: r = a * a; break;
      case ExprComp::OpAbs: r = std::fabs(a); break;
    }
    v[static_cast<size_t>(d.id)] = r;
  }
  std::vector<double> out;
  for (int o : s.outputs) out.push_back(v[static_cast<size_t>(o)]);
  return out;
}

const qvbench::RandomDefs& set(int n) {
  static std::map<int, qvbench::RandomDefs> sets;
  auto it = sets.find(n);
  if (it == sets.end()) it = sets.emplace(n, qvbench::randomDefs(n, 4, 18, true)).first;
  return it->second;
}

qvbench::Agreements check(int n) {
  const auto& s = set(n);
  const std::vector<double> in{0.75, 1.25, -0.5, 2.0};
  ExprComp comp;
  qvbench::addTo(comp, s);
  std::vector<unsigned char> bytes;
  comp.compile("Bench", "work", bytes, false);
  std::vector<double> out;
  comp.eval(in, out);
  const std::vector<double> ref = direct(s, in);
  qvbench::Agreements a;
  // Long random chains reach NaN; whose payload survives a NaN + NaN
  // depends on the operand order, which the compiler may change.
  double diff = out.size() == ref.size() && !bytes.empty() ? 0.0 : 1.0;
  for (size_t i = 0; diff == 0.0 && i < ref.size(); ++i)
    if (!(std::isnan(out[i]) && std::isnan(ref[i])))
      diff = qvbench::bitDiff(&out[i], &ref[i], 1);
  a["qvarray"] = {diff, 0.0};
  return a;
}

void BM_compile(benchmark::State& st, int n) {
  if (!qvbench::agrees(st, qvbench::checked("compile/" + std::to_string(n), [&] { return check(n); }),
                       "qvarray"))
    return;
  const auto& s = set(n);
  ExprComp fresh;
  qvbench::addTo(fresh, s);
  std::vector<unsigned char> bytes;
  for (auto _ : st) {
    st.PauseTiming();
    ExprComp comp(fresh);
    st.ResumeTiming();
    comp.compile("Bench", "work", bytes, false);
    benchmark::DoNotOptimize(bytes.data());
  }
  st.counters["per_def"] = benchmark::Counter(
      n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  st.counters["outputs"] = static_cast<double>(s.outputs.size());
}

const bool kRegistered = [] {
  for (int n : {100, 10000, 100000})
    benchmark::RegisterBenchmark(("compile/" + std::to_string(n) + "/qvarray").c_str(), BM_compile, n)
        ->Unit(benchmark::kMicrosecond);
  return true;
}();

}  // namespace
