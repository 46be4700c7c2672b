// The compiler's passes, in the order runPasses calls them: crossRef (checks
// and the maps from numbers to definitions), topoSort (operands first),
// eliminateCommon (one computation per distinct operation, unused
// definitions dropped), topoSort again (what is left), allocateRegs (a
// register per value, reused after its last use), optimizeStack (values that
// go straight into the next step stay on the operand stack), createEval (the
// program). No pass recurses: a chain of 10^5 definitions needs no deep stack.
#include <algorithm>
#include <bit>

#include "exprcomp_impl.h"
#include "qvutil/errors.h"

namespace qvarray {

void ExprComp::Impl::runPasses() {
  if (compiled) return;
  timed("crossRef", [&] { crossRef(); });
  timed("topoSort", [&] { topoSort(); });
  timed("eliminateCommon", [&] { eliminateCommon(); });
  timed("topoSort", [&] { topoSort(); });
  timed("allocateRegs", [&] { allocateRegs(); });
  timed("optimizeStack", [&] { optimizeStack(); });
  timed("createEval", [&] { createEval(); });
  compiled = true;
}

int ExprComp::Impl::positionOf(int id) const {
  auto it = defAt.find(id);
  return it == defAt.end() ? -1 : alias[static_cast<size_t>(it->second)];
}

bool ExprComp::Impl::isStep(int p) const {
  const auto q = static_cast<size_t>(p);
  return live[q] && (work[q].op != kConstant || isOutput[q]);
}

// Every check comes before any result is kept: a failing crossRef leaves the
// compiler as it was.
void ExprComp::Impl::crossRef() {
  std::unordered_map<int, int> in;
  for (size_t k = 0; k < inputs.size(); ++k)
    if (!in.emplace(inputs[k], static_cast<int>(k)).second)
      QV_RAISE_TEXT(exprcomp, Duplicate_input, varName(inputs[k]));
  std::unordered_map<int, int> at;
  for (size_t p = 0; p < defs.size(); ++p)
    if (in.count(defs[p].id) || !at.emplace(defs[p].id, static_cast<int>(p)).second)
      QV_RAISE_TEXT(exprcomp, Duplicate_definition, varName(defs[p].id));

  std::vector<int> undefined;
  std::unordered_map<int, char> seen;
  for (const Def& d : defs)
    for (int a : d.args)
      if (!at.count(a) && !in.count(a) && seen.emplace(a, 1).second) undefined.push_back(a);
  if (!undefined.empty()) {
    std::string text;
    for (size_t i = 0; i < undefined.size() && i < 10; ++i)
      text += (i ? ", " : "") + varName(undefined[i]);
    if (undefined.size() > 10) text += " (" + std::to_string(undefined.size() - 10) + " more)";
    QV_RAISE_TEXT(exprcomp, Undefined_inputs, text);
  }
  for (size_t k = 0; k < outputs.size(); ++k)
    if (!at.count(outputs[k]) && !in.count(outputs[k]))
      QV_RAISE_TEXT(exprcomp, Output_lacks_definition, std::to_string(k + 1) + " lacks definition.");

  inputAt = std::move(in);
  defAt = std::move(at);
  work = defs;
  live.assign(work.size(), 1);
  alias.resize(work.size());
  for (size_t p = 0; p < work.size(); ++p) alias[p] = static_cast<int>(p);
}

// Depth-first post-order with an explicit stack of (position, next operand),
// started from every (live) definition in the order added, so a cycle
// anywhere is found and definitions given operands first keep their order.
// That order matters for speed: definitions written in their natural order
// interleave independent chains, which the processor overlaps; a post-order
// from the outputs would put each value next to its consumer and chain
// dependent calls back to back (a third slower in the JVM).
void ExprComp::Impl::topoSort() {
  enum : char { Unseen, Open, Done };
  std::vector<char> state(work.size(), Unseen);
  std::vector<int> roots;
  for (size_t p = 0; p < work.size(); ++p)
    if (live[p]) roots.push_back(static_cast<int>(p));
  order.clear();
  std::vector<std::pair<int, size_t>> stack;
  for (int root : roots) {
    if (state[static_cast<size_t>(root)] != Unseen) continue;
    state[static_cast<size_t>(root)] = Open;
    stack.emplace_back(root, 0);
    while (!stack.empty()) {
      auto& [p, next] = stack.back();
      const std::vector<int>& args = work[static_cast<size_t>(p)].args;
      if (next == args.size()) {
        state[static_cast<size_t>(p)] = Done;
        order.push_back(p);
        stack.pop_back();
        continue;
      }
      const int q = positionOf(args[next++]);
      if (q < 0) continue;  // an input
      if (state[static_cast<size_t>(q)] == Open)
        QV_RAISE_TEXT(exprcomp, Cyclic_dependency, std::to_string(work[static_cast<size_t>(q)].id));
      if (state[static_cast<size_t>(q)] == Unseen) {
        state[static_cast<size_t>(q)] = Open;
        stack.emplace_back(q, 0);
      }
    }
  }
}

// Two definitions are equal when they are the same operation on the same
// operands (after earlier merges), in the same order, or constants with the
// same bit pattern. Nothing else is matched (no commutation, no algebra), so
// every value stays bit for bit what the definitions say. Definitions that
// no output needs are dropped as well.
void ExprComp::Impl::eliminateCommon() {
  // Open addressing over positions, keyed by (op, operands) or (constant, bits).
  auto bitsOf = [](double v) { return std::bit_cast<uint64_t>(v); };
  auto hashOf = [&](const Def& d) {
    uint64_t h = 0x9E3779B97F4A7C15ull * static_cast<uint64_t>(d.op + 1);
    if (d.op == kConstant) h ^= bitsOf(d.value);
    for (int a : d.args) h = (h ^ static_cast<uint32_t>(a)) * 0x100000001B3ull;
    return h ^ (h >> 29);
  };
  auto same = [&](const Def& x, const Def& y) {
    return x.op == y.op && x.args == y.args && (x.op != kConstant || bitsOf(x.value) == bitsOf(y.value));
  };
  size_t cap = 16;
  while (cap < 2 * order.size()) cap *= 2;
  std::vector<int> table(cap, -1);
  for (int p : order) {
    Def& d = work[static_cast<size_t>(p)];
    for (int& a : d.args)
      if (int q = positionOf(a); q >= 0) a = work[static_cast<size_t>(q)].id;
    size_t i = hashOf(d) & (cap - 1);
    while (table[i] >= 0 && !same(work[static_cast<size_t>(table[i])], d)) i = (i + 1) & (cap - 1);
    if (table[i] < 0) {
      table[i] = p;
    } else {
      alias[static_cast<size_t>(p)] = table[i];
      live[static_cast<size_t>(p)] = 0;
    }
  }
  // Liveness: what the outputs need, operands before users in reverse order.
  std::vector<char> needed(work.size(), 0);
  isOutput.assign(work.size(), 0);
  for (int id : outputs)
    if (int p = positionOf(id); p >= 0) needed[static_cast<size_t>(p)] = isOutput[static_cast<size_t>(p)] = 1;
  for (auto it = order.rbegin(); it != order.rend(); ++it) {
    if (!needed[static_cast<size_t>(*it)] || !live[static_cast<size_t>(*it)]) continue;
    for (int a : work[static_cast<size_t>(*it)].args)
      if (int q = positionOf(a); q >= 0) needed[static_cast<size_t>(q)] = 1;
  }
  for (size_t p = 0; p < work.size(); ++p) live[p] = live[p] && needed[p];
}

// Linear scan over the order: an operand's register is free again after the
// step that reads it last (so a step may write the register of its own
// operand: operands are read before the result is written). Output values
// keep their registers to the end; the most recently freed register is taken
// first.
void ExprComp::Impl::allocateRegs() {
  std::vector<int> steps;
  for (int p : order)
    if (isStep(p)) steps.push_back(p);
  std::vector<int> lastUse(work.size(), -1);
  for (size_t i = 0; i < steps.size(); ++i)
    for (int a : work[static_cast<size_t>(steps[i])].args)
      if (int q = positionOf(a); q >= 0) lastUse[static_cast<size_t>(q)] = static_cast<int>(i);
  reg.assign(work.size(), -1);
  registers = 0;
  std::vector<int> freeRegs;
  for (size_t i = 0; i < steps.size(); ++i) {
    const Def& d = work[static_cast<size_t>(steps[i])];
    for (int a : d.args) {
      const int q = positionOf(a);
      if (q < 0 || lastUse[static_cast<size_t>(q)] != static_cast<int>(i) || isOutput[static_cast<size_t>(q)])
        continue;
      if (int r = reg[static_cast<size_t>(q)]; r >= 0) {
        freeRegs.push_back(r);
        lastUse[static_cast<size_t>(q)] = -1;  // an operand read twice is freed once
      }
    }
    int r;
    if (freeRegs.empty()) {
      r = registers++;
    } else {
      r = freeRegs.back();
      freeRegs.pop_back();
    }
    reg[static_cast<size_t>(steps[i])] = r;
  }
}

// A value stays on the operand stack when it is no output, is read exactly
// once, and that read is the first operand of the very next step: the
// emitter leaves it where the step put it instead of storing and loading it.
// Registers left without a value are then renumbered densely.
void ExprComp::Impl::optimizeStack() {
  std::vector<int> steps;
  for (int p : order)
    if (isStep(p)) steps.push_back(p);
  std::vector<int> reads(work.size(), 0);
  for (int p : steps)
    for (int a : work[static_cast<size_t>(p)].args)
      if (int q = positionOf(a); q >= 0) ++reads[static_cast<size_t>(q)];
  onStack.assign(work.size(), 0);
  for (size_t i = 0; i + 1 < steps.size(); ++i) {
    const auto p = static_cast<size_t>(steps[i]);
    const Def& next = work[static_cast<size_t>(steps[i + 1])];
    if (!isOutput[p] && reads[p] == 1 && !next.args.empty() &&
        positionOf(next.args[0]) == static_cast<int>(p))
      onStack[p] = 1;
  }
  std::vector<int> renumber(static_cast<size_t>(registers), -1);
  registers = 0;
  for (int p : steps) {
    auto& r = reg[static_cast<size_t>(p)];
    if (onStack[static_cast<size_t>(p)]) {
      r = -1;
    } else {
      int& n = renumber[static_cast<size_t>(r)];
      if (n < 0) n = registers++;
      r = n;
    }
  }
}

void ExprComp::Impl::createEval() {
  EvalProgram prog;
  prog.inputs = static_cast<int>(inputs.size());
  prog.registers = registers;
  std::unordered_map<uint64_t, int> constIndex;
  auto constant = [&](double v) {
    auto [it, fresh] = constIndex.emplace(std::bit_cast<uint64_t>(v), static_cast<int>(prog.constants.size()));
    if (fresh) prog.constants.push_back(v);
    return ProgramOperand{OperandSource::Constant, it->second};
  };
  auto operand = [&](int id) {
    if (auto it = inputAt.find(id); it != inputAt.end())
      return ProgramOperand{OperandSource::Input, it->second};
    const auto q = static_cast<size_t>(positionOf(id));
    if (work[q].op == kConstant && !isOutput[q]) return constant(work[q].value);
    if (onStack[q]) return ProgramOperand{OperandSource::Stack, 0};
    QV_ASSERT(reg[q] >= 0, exprcomp);
    return ProgramOperand{OperandSource::Register, reg[q]};
  };
  for (int p : order) {
    if (!isStep(p)) continue;
    const Def& d = work[static_cast<size_t>(p)];
    ProgramStep s{d.op, d.id, {}, onStack[static_cast<size_t>(p)] ? -1 : reg[static_cast<size_t>(p)]};
    if (d.op == kConstant) {
      s.op = OpTableConst;  // a constant that is an output: loaded into its register
      s.args.push_back(constant(d.value));
    } else {
      for (int a : d.args) s.args.push_back(operand(a));
    }
    prog.steps.push_back(std::move(s));
  }
  for (int id : outputs) prog.outputs.push_back(operand(id));
  program = std::move(prog);
}

}  // namespace qvarray
