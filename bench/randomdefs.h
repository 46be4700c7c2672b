#pragma once
// Random definition sets for the compiler's benchmarks: a fixed-seed random
// DAG over a few inputs of + - * / sin cos sqrt(abs) sq abs and constants,
// each operand drawn mostly from the last few values (long chains) and
// sometimes from anywhere before (shared subexpressions). With `duplicates`,
// about one definition in twenty repeats an earlier one exactly, for the
// compiler's common-subexpression pass; without, no two operations are the
// same, so that a hand-written version of the set does the same work.
// The outputs are the definitions no other one uses.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "qvarray/expr/exprcomp.h"

namespace qvbench {

struct RandomDefs {
  struct Def {
    int id;
    int op;  // ExprComp::OpCode; 0 for a constant
    std::vector<int> args;
    double value = 0.0;
  };
  int inputs = 0;          // ids 0 .. inputs-1
  std::vector<Def> defs;   // ids inputs, inputs+1, ...: operands come first
  std::vector<int> outputs;
};

inline RandomDefs randomDefs(int n, int inputs, uint64_t seed, bool duplicates) {
  using C = qvarray::ExprComp;
  static const int kOps[] = {C::OpPlus, C::OpMinus, C::OpMult, C::OpDiv, C::OpSin,
                             C::OpCos,  C::OpSqrt,  C::OpSq,   C::OpAbs, C::OpSin};
  std::mt19937_64 gen(seed);
  auto uniform = [&](int k) { return static_cast<int>(gen() % static_cast<uint64_t>(k)); };
  RandomDefs s;
  s.inputs = inputs;
  std::set<std::pair<int, std::vector<int>>> seen;
  std::vector<char> used(static_cast<size_t>(inputs + n), 0);
  auto next = [&] { return inputs + static_cast<int>(s.defs.size()); };
  // Definitions in order of creation; head: the oldest one perhaps unused.
  // Drawing the oldest unused value often keeps the outputs (and the values
  // live at the end) few.
  std::vector<int> order;
  size_t head = 0;
  auto operand = [&] {
    const int have = next(), r = uniform(10);
    while (head < order.size() && used[static_cast<size_t>(order[head])]) ++head;
    if (r < 4 && head < order.size()) return order[head];
    if (r < 8) return have - 1 - uniform(std::min(have, 8));
    return have - 1 - uniform(std::min(have, 2000));
  };
  auto add = [&](int op, std::vector<int> args) {
    for (int a : args) used[static_cast<size_t>(a)] = 1;
    seen.insert({op, args});
    order.push_back(next());
    s.defs.push_back({next(), op, std::move(args)});
  };
  while (next() < inputs + n) {
    if (uniform(20) == 0) {
      order.push_back(next());
      s.defs.push_back({next(), 0, {}, 0.5 + std::ldexp(static_cast<double>(gen() >> 11), -53)});
      continue;
    }
    if (duplicates && uniform(20) == 0 && !seen.empty()) {
      auto it = seen.begin();
      std::advance(it, uniform(static_cast<int>(std::min<size_t>(seen.size(), 64))));
      add(it->first, it->second);
      continue;
    }
    int op = kOps[uniform(10)];
    const bool binary = op == C::OpPlus || op == C::OpMinus || op == C::OpMult || op == C::OpDiv;
    std::vector<int> args = binary ? std::vector<int>{operand(), operand()} : std::vector<int>{operand()};
    if (seen.count({op, args}) || (binary && args[0] == args[1])) continue;  // draw again
    if (op == C::OpSqrt) {                 // sqrt(abs(a)): no domain failure
      if (next() + 1 >= inputs + n || seen.count({C::OpAbs, args})) continue;
      add(C::OpAbs, args);
      args = {next() - 1};
    }
    add(op, std::move(args));
  }
  for (const auto& d : s.defs)
    if (!used[static_cast<size_t>(d.id)] && d.op != 0) s.outputs.push_back(d.id);
  return s;
}

inline void addTo(qvarray::ExprComp& comp, const RandomDefs& s) {
  for (int i = 0; i < s.inputs; ++i) comp.addInput(i);
  for (const auto& d : s.defs) {
    if (d.op == 0) comp.addDef(d.id, d.value);
    else comp.addDef(d.id, d.op, d.args);
  }
  for (int o : s.outputs) comp.addOutput(o);
}

/// The order of the operations in the compiler's program (its
/// dumpFlatList, whose steps name their definitions "defN").
inline std::vector<int> programOrder(const qvarray::ExprComp& comp) {
  std::vector<int> order;
  const std::string dump = comp.dumpFlatList();
  for (size_t at = dump.find("# def"); at != std::string::npos; at = dump.find("# def", at + 1))
    order.push_back(std::atoi(dump.c_str() + at + 5));
  return order;
}

/// The set as a Java class with the work method's signature, one local per
/// definition, written as a Java programmer would (Math.sin, Math.abs, a
/// status return for sqrt of a negative number as the compiled class has).
/// The constants come first, then the operations in `order` (definition
/// numbers; empty: definition order).
inline std::string javaSource(const RandomDefs& s, const std::string& className,
                              const std::vector<int>& order = {}) {
  using C = qvarray::ExprComp;
  std::string j = "public final class " + className +
                  " {\n  public static int work(double[] in, double[] out) {\n";
  auto v = [](int id) { return "v" + std::to_string(id); };
  for (int i = 0; i < s.inputs; ++i) j += "    double " + v(i) + " = in[" + std::to_string(i) + "];\n";
  std::vector<const RandomDefs::Def*> seq;
  for (const auto& d : s.defs)
    if (d.op == 0 || order.empty()) seq.push_back(&d);
  for (int id : order) seq.push_back(&s.defs[static_cast<size_t>(id - s.inputs)]);
  for (const RandomDefs::Def* dp : seq) {
    const RandomDefs::Def& d = *dp;
    std::string a = d.args.empty() ? "" : v(d.args[0]);
    std::string b = d.args.size() > 1 ? v(d.args[1]) : "";
    std::string e;
    char lit[40];
    switch (d.op) {
      case 0: std::snprintf(lit, sizeof lit, "%a", d.value); e = lit; break;
      case C::OpPlus: e = a + " + " + b; break;
      case C::OpMinus: e = a + " - " + b; break;
      case C::OpMult: e = a + " * " + b; break;
      case C::OpDiv: e = a + " / " + b; break;
      case C::OpSin: e = "Math.sin(" + a + ")"; break;
      case C::OpCos: e = "Math.cos(" + a + ")"; break;
      case C::OpSq: e = a + " * " + a; break;
      case C::OpAbs: e = "Math.abs(" + a + ")"; break;
      case C::OpSqrt:
        j += "    if (" + a + " < 0) return " + std::to_string(C::SQRT_OF_NEGATIVE) + ";\n";
        e = "Math.sqrt(" + a + ")";
        break;
    }
    j += "    double " + v(d.id) + " = " + e + ";\n";
  }
  for (size_t k = 0; k < s.outputs.size(); ++k)
    j += "    out[" + std::to_string(k) + "] = " + v(s.outputs[k]) + ";\n";
  return j + "    return 0;\n  }\n}\n";
}

}  // namespace qvbench
