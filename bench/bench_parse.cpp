// Reading expression texts: the library's reader (built-in host to prefix
// form, then the prefix scanner to a syntax tree) against muParser's compile
// step, on the 100 engineering formulas of bench/data/formulas.txt (the subset
// of the language that muParser reads too: no units, derivatives, strings or
// lists).
//
// Work per iteration: all 100 formulas read. qvarray: ExprImpl of the text
// (the formulas that are one name or number skip the host, as in use).
// muparser: SetExpr and the first Eval, which is when muParser compiles the
// text to its byte code (plus one evaluation of that byte code, a small part).
// Counter chars/s: characters of formula text read per second.
//
// Check (before timing): every formula's tree, evaluated by a small
// evaluator here with the variables that muParser is given, agrees with
// muParser's value within 1e-12 (relative to the largest value).
//
// Names: parse/formulas/<impl>, impl qvarray or muparser.
//
//   build/release/bench/bench_parse --benchmark_min_time=0.5
#include <benchmark/benchmark.h>
#include <muParser.h>

#include <cmath>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchcheck.h"
#include "qvarray/expr/exprtree.h"

namespace {

using qvarray::ExprImpl;
using E = ExprImpl;

struct Formulas {
  std::vector<std::string> texts;
  size_t chars = 0;
  std::map<std::string, double> vars;  // every name, with its value
};

void collectNames(const E::Node& n, std::map<std::string, double>& vars) {
  if (const auto* id = dynamic_cast<const E::Identifier*>(&n)) {
    // Values in [0.5, 1.5), different per name, fixed.
    vars.emplace(id->name(), 0.5 + (E::literalHash(id->name()) % 1000) / 1000.0);
    return;
  }
  for (size_t k = 0; k < n.childCount(); ++k) collectNames(*n.child(k), vars);
}

const Formulas& formulas() {
  static const Formulas f = [] {
    Formulas f;
    std::ifstream in(QV_BENCH_DATA "/formulas.txt");
    if (!in) throw std::runtime_error("cannot read " QV_BENCH_DATA "/formulas.txt");
    for (std::string line; std::getline(in, line);) {
      const size_t eq = line.find(" = ");
      if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
      f.texts.push_back(line.substr(eq + 3));
      f.chars += f.texts.back().size();
      collectNames(*ExprImpl(f.texts.back()).root(), f.vars);
    }
    return f;
  }();
  return f;
}

double call(const std::string& name, double x) {
  static const std::map<std::string, double (*)(double)> table = {
      {"sin", std::sin}, {"cos", std::cos},   {"tan", std::tan}, {"exp", std::exp},
      {"sqrt", std::sqrt}, {"tanh", std::tanh}, {"abs", std::fabs}};
  return table.at(name)(x);
}

// The value of a tree of the common subset.
double evaluate(const E::Node& n, const std::map<std::string, double>& vars) {
  if (const auto* id = dynamic_cast<const E::Identifier*>(&n)) return vars.at(id->name());
  if (const auto* num = dynamic_cast<const E::UnparsedNumber*>(&n)) return std::stod(num->text());
  if (const auto* f = dynamic_cast<const E::FuncCall*>(&n))
    return call(f->name(), evaluate(*f->args().at(0), vars));
  if (const auto* u = dynamic_cast<const E::Unary*>(&n)) {
    const double a = evaluate(*u->operand(), vars);
    return n.code() == E::OpUMinus ? -a : n.code() == E::OpNot ? (a == 0) : a;
  }
  const auto& b = dynamic_cast<const E::Binary&>(n);
  const double l = evaluate(*b.left(), vars), r = evaluate(*b.right(), vars);
  switch (n.code()) {
    case E::OpPlus: return l + r;
    case E::OpMinus: return l - r;
    case E::OpTimes: return l * r;
    case E::OpDivide: return l / r;
    case E::OpPower: return std::pow(l, r);
    case E::OpLt: return l < r;
    case E::OpGt: return l > r;
    case E::OpLe: return l <= r;
    case E::OpGe: return l >= r;
    case E::OpEq: return l == r;
    case E::OpNe: return l != r;
    case E::OpAnd: return l != 0 && r != 0;
    default: return l != 0 || r != 0;
  }
}

// A muParser parser that knows every variable of the formulas.
struct MuParser {
  std::map<std::string, double> vars = formulas().vars;
  mu::Parser p;
  MuParser() {
    for (auto& [name, value] : vars) p.DefineVar(name, &value);
  }
};

bool checked(benchmark::State& st, const char* impl) {
  const auto& agreements = qvbench::checked("parse/formulas", [] {
    const Formulas& f = formulas();
    MuParser mu;
    std::vector<double> ours, theirs;
    for (const std::string& text : f.texts) {
      ours.push_back(evaluate(*ExprImpl(text).root(), f.vars));
      mu.p.SetExpr(text);
      theirs.push_back(mu.p.Eval());
    }
    return qvbench::Agreements{
        {"qvarray", {0.0, 0.0}},
        {"muparser", {qvbench::relDiff(theirs.data(), ours.data(), ours.size()), 1e-12}}};
  });
  return qvbench::agrees(st, agreements, impl);
}

void rate(benchmark::State& st) {
  st.counters["chars/s"] = benchmark::Counter(static_cast<double>(formulas().chars),
                                              benchmark::Counter::kIsIterationInvariantRate);
}

void parseQvarray(benchmark::State& st) {
  if (!checked(st, "qvarray")) return;
  const Formulas& f = formulas();
  for (auto _ : st)
    for (const std::string& text : f.texts) {
      ExprImpl t(text);
      benchmark::DoNotOptimize(t.root().get());
    }
  rate(st);
}

void parseMuparser(benchmark::State& st) {
  if (!checked(st, "muparser")) return;
  const Formulas& f = formulas();
  MuParser mu;
  for (auto _ : st)
    for (const std::string& text : f.texts) {
      mu.p.SetExpr(text);
      benchmark::DoNotOptimize(mu.p.Eval());
    }
  rate(st);
}

const bool kRegistered = [] {
  benchmark::RegisterBenchmark("parse/formulas/qvarray", parseQvarray)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("parse/formulas/muparser", parseMuparser)->Unit(benchmark::kMicrosecond);
  return true;
}();

}  // namespace
