// In-process evaluation of the compiler's program: the semantics of every
// operation number, which generated class files reproduce.
//
// Deliberate rules: round(x) = floor(x + 0.5) (halves round upward, -2.5 gives
// -2); log2(x) = ln(x) * 1.4426950408889634; fix rounds toward zero; a NaN
// operand makes == yield 0, != yield 1 and every ordering 0; min and max are
// (b >= a) ? a : b and (a >= b) ? a : b like the function objects, so with a
// NaN operand either yields its second operand; x^2, x^3, x^4 multiply from
// the left ((x*x)*x)*x; mod is qvmath::mod. Domain failures give a status
// code, not a NaN: log of x < 0, sqrt of x < 0, acos/asin of |x| > 1, and a
// power of a negative base with an exponent that is no integer (NaN is none).
// Otherwise a NaN argument passes every domain test. pow follows C:
// 1^y = 1 for every y, (-1)^(+-inf) = 1.
#include <cmath>

#include "exprcomp_impl.h"
#include "qvarray/expr/qvmath.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// Arity of each operation number; 0 for numbers that are no operation, -1
// for any count of at least one.
constexpr int kArity[57] = {
    0,                                //  0
    1, 1, 2, 1, 1, 2, 1, 1, 1, 1,     //  1 abs .. 10 cosh
    1, 1, 1, 1, 2, 2, 2, 1, 1, 1,     // 11 cot .. 20 floor
    2, 2, 1, 3, 1, 2, 1, 1, 1, 2,     // 21 ge .. 30 lt
    2, 2, 2, 2, 2, 1, 1, 2, 2, 2,     // 31 max .. 40 pow
    1, 1, 1, 1, 1, 1, 1, 0, 1, 1,     // 41 sq .. 50 sinh (48 sign: not evaluated)
    1, 1, 1, 2, 1, 1};                // 51 sqrt .. 56 uplus

double truth(bool b) { return b ? 1.0 : 0.0; }

}  // namespace

double evalOperation(int op, const double* v, int nargs, int& status) {
  using C = ExprComp;
  if (op < 1 || op > 56 || kArity[op] == 0 || nargs != kArity[op])
    QV_RAISE(exprcomp, Internal_error_symbolic_processing, "Operation", std::int64_t{op});
  status = C::NO_ERROR;
  const double x = v[0];
  const double y = nargs > 1 ? v[1] : 0.0;
  switch (op) {
    case C::OpAbs: return std::fabs(x);
    case C::OpAcos:
    case C::OpAsin:
      if (std::fabs(x) > 1.0) {
        status = C::OUT_OF_RANGE;
        return 0.0;
      }
      return op == C::OpAcos ? std::acos(x) : std::asin(x);
    case C::OpAnd: return truth(x != 0.0 && y != 0.0);
    case C::OpAtan: return std::atan(x);
    case C::OpAtan2: return std::atan2(x, y);
    case C::OpCeil: return std::ceil(x);
    case C::OpConj:
    case C::OpIdentity:
    case C::OpReal:
    case C::OpUPlus:
    case C::OpTableConst: return x;
    case C::OpCos: return std::cos(x);
    case C::OpCosh: return std::cosh(x);
    case C::OpCot: return 1.0 / std::tan(x);
    case C::OpCoth: return 1.0 / std::tanh(x);
    case C::OpCsc: return 1.0 / std::sin(x);
    case C::OpCsch: return 1.0 / std::sinh(x);
    case C::OpSec: return 1.0 / std::cos(x);
    case C::OpSech: return 1.0 / std::cosh(x);
    case C::OpDiv:
    case C::OpDiv2: return x / y;
    case C::OpEQ: return truth(x == y);
    case C::OpNE: return truth(x != y);
    case C::OpGE: return truth(x >= y);
    case C::OpGT: return truth(x > y);
    case C::OpLE: return truth(x <= y);
    case C::OpLT: return truth(x < y);
    case C::OpExp: return std::exp(x);
    case C::OpFix: return x < 0.0 ? std::ceil(x) : std::floor(x);
    case C::OpFloor: return std::floor(x);
    case C::OpRound: return std::floor(x + 0.5);
    case C::OpChoice: return x != 0.0 ? y : v[2];
    case C::OpImag: return 0.0;
    case C::OpLog:
    case C::OpLog10:
    case C::OpLog2:
      if (x < 0.0) {
        status = C::LOG_OF_NEGATIVE;
        return 0.0;
      }
      if (op == C::OpLog10) return std::log10(x);
      return op == C::OpLog ? std::log(x) : std::log(x) * 1.4426950408889634;
    case C::OpMax: return (x >= y) ? x : y;
    case C::OpMin: return (y >= x) ? x : y;
    case C::OpMinus: return x - y;
    case C::OpPlus: return x + y;
    case C::OpMult: return x * y;
    case C::OpUMinus: return -x;
    case C::OpMod: return qvmath::mod(x, y);
    case C::OpNot: return truth(x == 0.0);
    case C::OpOr: return truth(x != 0.0 || y != 0.0);
    case C::OpPow:
      // The function library's rule: a negative base needs an integer
      // exponent (infinities are integers, NaN is none).
      if (x < 0.0 && !(std::floor(y) == y)) {
        status = C::POWER_OF_NEGATIVE;
        return 0.0;
      }
      return std::pow(x, y);
    case C::OpSq: return x * x;
    case C::OpCube: return x * x * x;
    case C::OpPow4: return x * x * x * x;
    case C::OpSin: return std::sin(x);
    case C::OpSinh: return std::sinh(x);
    case C::OpSqrt:
      if (x < 0.0) {
        status = C::SQRT_OF_NEGATIVE;
        return 0.0;
      }
      return std::sqrt(x);
    case C::OpTan: return std::tan(x);
    case C::OpTanh: return std::tanh(x);
    default: break;
  }
  QV_RAISE(exprcomp, Internal_error_symbolic_processing, "Operation", std::int64_t{op});
}

int evalProgram(const EvalProgram& p, const double* in, double* out) {
  std::vector<double> regs(static_cast<size_t>(p.registers));
  double top = 0.0;  // the value left on the operand stack by the step before
  auto read = [&](const ProgramOperand& a) {
    switch (a.source) {
      case OperandSource::Stack: return top;
      case OperandSource::Register: return regs[static_cast<size_t>(a.index)];
      case OperandSource::Input: return in[a.index];
      case OperandSource::Constant: return p.constants[static_cast<size_t>(a.index)];
    }
    return 0.0;
  };
  double args[8];
  std::vector<double> many;
  for (const ProgramStep& s : p.steps) {
    const int n = static_cast<int>(s.args.size());
    double* a = args;
    if (n > 8) {
      many.resize(static_cast<size_t>(n));
      a = many.data();
    }
    for (int i = 0; i < n; ++i) a[i] = read(s.args[static_cast<size_t>(i)]);
    int status = ExprComp::NO_ERROR;
    const double v = evalOperation(s.op, a, n, status);
    if (status != ExprComp::NO_ERROR) return status;
    if (s.dest < 0)
      top = v;
    else
      regs[static_cast<size_t>(s.dest)] = v;
  }
  for (size_t k = 0; k < p.outputs.size(); ++k) out[k] = read(p.outputs[k]);
  return ExprComp::NO_ERROR;
}

}  // namespace qvarray
