#pragma once
// The private side of ExprComp: the definitions as added, the results of the
// passes, and the evaluation program that eval interprets and the class
// emitter translates.
//
// The program is straight-line code. Each step computes one value by an
// operation number from its operands; an operand is on the operand stack (the
// value of the step just before), in a register, an input (its position in
// the input array) or a constant (its index in the constant table). A step's
// value goes to its register, or stays on the stack when the next step takes
// it as its first operand (optimizeStack). After the last step the outputs
// are copied from their operands.
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qvarray/expr/exprcomp.h"
#include "qvutil/stopwatch.h"

namespace qvarray {

/// Where an operand of a step comes from.
enum class OperandSource : uint8_t { Stack, Register, Input, Constant };

struct ProgramOperand {
  OperandSource source;
  int index;  // register, input position or constant index; 0 for Stack
  bool operator==(const ProgramOperand&) const = default;
};

struct ProgramStep {
  int op;                             // operation number (ExprComp::OpCode)
  int id;                             // the definition it computes
  std::vector<ProgramOperand> args;   // in operand order
  int dest;                           // register, or -1: left on the stack
};

struct EvalProgram {
  std::vector<ProgramStep> steps;
  std::vector<ProgramOperand> outputs;  // never Stack
  std::vector<double> constants;        // distinct by bit pattern
  int inputs = 0;
  int registers = 0;
};

struct ExprComp::Impl {
  /// A definition as added: a constant (op 0) or an operation.
  struct Def {
    int id;
    int op;
    double value;
    std::vector<int> args;
  };
  static constexpr int kConstant = 0;

  // What the caller added.
  std::vector<Def> defs;  // in the order added
  std::vector<int> inputs, outputs;
  std::unordered_map<int, std::string> names;

  // Results of the passes (positions are indices into work, the copy of
  // defs that the passes rewrite).
  std::vector<Def> work;
  std::vector<char> live;                // position -> computed (eliminateCommon)
  std::vector<int> alias;                // position -> the position computing it
  std::unordered_map<int, int> defAt;    // id -> position (crossRef)
  std::unordered_map<int, int> inputAt;  // id -> input position (crossRef)
  std::vector<int> order;                // positions, operands first (topoSort)
  std::vector<int> reg;                  // position -> register, -1 for none (allocateRegs)
  int registers = 0;
  std::vector<char> onStack;             // position -> value left on the stack (optimizeStack)
  EvalProgram program;                   // createEval
  bool compiled = false;
  std::vector<std::pair<std::string, double>> timings;

  std::string varName(int id) const;
  /// Runs the passes up to createEval (once, until the definitions change).
  void runPasses();
  /// runPasses under the "compile" timer, with a fresh run log.
  void compileForEval();
  void crossRef();
  void topoSort();
  void eliminateCommon();
  void allocateRegs();
  void optimizeStack();
  void createEval();
  /// Class emission: the work method "<methodName>" and its continuations.
  void createWork(ClassFile& cf, const std::string& methodName);
  static Method createMain(ConstPool& pool, int workMethodRef, int nargout, int nargin);
  /// Runs the passes and assembles the class (fields, "<init>", work
  /// methods, main when asked) under the "compile" timer.
  void compileToClass(ClassFile& cf, const std::string& methodName, bool withMain);
  /// Position of the definition `id` after merging, or -1 for an input.
  int positionOf(int id) const;
  /// Whether the definition at `p` is a step of the program (a live
  /// operation, or a live constant that is an output).
  bool isStep(int p) const;
  std::vector<char> isOutput;            // position -> some output reads it
  /// Runs `pass` and appends its time to `timings` under `name`.
  template <class F>
  void timed(const char* name, F&& pass);
  void changed() {
    compiled = false;
    program = {};
  }
};

template <class F>
void ExprComp::Impl::timed(const char* name, F&& pass) {
  qvutil::Stopwatch watch;
  pass();
  timings.emplace_back(name, watch.seconds());
}

/// Interprets `program` on `in` (one value per input) into `out` (one per
/// output); returns the status code of the first failing step (then `out` is
/// unchanged) or ExprComp::NO_ERROR. An unknown operation number raises
/// "Internal_error_symbolic_processing".
int evalProgram(const EvalProgram& program, const double* in, double* out);

/// The value of operation `op` on `args` (its status in `status`): the one
/// definition of every operation's semantics.
double evalOperation(int op, const double* args, int nargs, int& status);

/// sign(x) written out in other operations, as qvmath::sign computes it:
/// x != x ? x : (x > 0) - (x < 0), NaN for NaN and +0 for either zero (no
/// operation number evaluates sign itself). `constant(v)` and `op(op, args)`
/// each add one definition and return its number. Returns the operands of
/// the final choice (OpChoice), which the caller defines under its number.
template <class Constant, class Op>
std::vector<int> signChoiceOperands(int x, Constant&& constant, Op&& op) {
  const int zero = constant(0.0);
  const int above = op(ExprComp::OpGT, std::vector<int>{x, zero});
  const int below = op(ExprComp::OpLT, std::vector<int>{x, zero});
  const int s = op(ExprComp::OpMinus, std::vector<int>{above, below});
  return {op(ExprComp::OpNE, std::vector<int>{x, x}), x, s};
}

}  // namespace qvarray
