// Partial derivatives of the operators and elementary and special
// functions, built as nodes through the factory (so they fold and share with
// the expression): d f(a0, a1, ...) / d a_i.
//
// Comparisons, logical operators and the rounding functions (sign, floor,
// ceil, round, fix) have derivative zero: they are piecewise constant, and
// at their jumps the zero is taken as well. abs differentiates into sign, so
// its derivative at 0 is 0. min and max differentiate into comparisons
// (ties go to the first argument). mod(a, b) = a - b floor(a/b) takes the
// rounding functions' convention for its floor: d/da = 1, d/db = -floor(a/b),
// the jumps included. A smoothed step f(x, w) differentiates into its
// DiracPolyFun partner D_1: df/dx = D_1(x, w), df/dw = -(x/w) D_1(x, w).
//
// real, imag, conj and arg are not complex-differentiable; the chain rule
// multiplies a partial by the argument's derivative, so their partials are
// those of their restriction to real arguments (real, conj: 1; imag, arg: 0,
// arg's jump from pi to 0 at the origin taken as flat). realdot(a, b) =
// Re(a conj(b)) differentiates as a conj(b) would: conj(b) and conj(a); with
// real arguments that is exact, with complex ones the real part of the
// result is the derivative.
//
// random and randomnormal are pseudo-random: their values are a hash of
// the arguments, not a smooth function of them, and a random number is taken
// as independent of its seed: every partial derivative is zero (so the
// derivative of random(x) is 0, not an unexpanded derivative).
//
// Special functions: erf' = 2/sqrt(pi) exp(-x^2); gamma' = gamma(x) psi(0, x);
// psi(n, x) by x is psi(n + 1, x) and by its integer order zero. The Bessel
// functions by their argument: J'_nu = (J_{nu-1} - J_{nu+1})/2, the same for
// Y, I'_nu = (I_{nu-1} + I_{nu+1})/2, K'_nu = -(K_{nu-1} + K_{nu+1})/2. By
// their order they have no closed form: no partial. Functions without a rule
// here (the functions the factory does not know, and a DiracPolyFun, whose
// higher orders have no name of the language) give no partial either: the
// derivative of such a call stays an unexpanded derivative node.
#include <cmath>
#include <numbers>

#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/randomfuns.h"
#include "qvarray/expr/smoothsteps.h"
#include "qvarray/expr/sffuns.h"

namespace qvarray {

EvalNodePtr NodeMaker::partialDerivative(const FunObj& f, const NodeList& args, int i) {
  if (EvalNodePtr r = f.diffRule(args, i, *this)) return r;
  return partialTable(f, args, i);
}

EvalNodePtr NodeMaker::partialTable(const FunObj& f, const NodeList& args, int i) {
  const std::string& name = f.getName();
  if (dynamic_cast<const RandomFun*>(&f)) return zero_;  // randomnormal too
  if (args.empty()) return nullptr;
  const EvalNodePtr& a = args[0];
  auto C = [this](double v) { return makeConstNode(v); };
  auto op1 = [this](FunId id, const EvalNodePtr& x) { return makeOpNode(id, x); };
  auto op2 = [this](FunId id, const EvalNodePtr& x, const EvalNodePtr& y) {
    return makeOpNode(id, x, y);
  };
  auto fn = [this](const char* fname, const EvalNodePtr& x) {
    FunPtr g = builtinFun(fname, 1);
    QV_ASSERT(g != nullptr, nodemaker);
    return makeOpNode(g, x);
  };

  if (args.size() == 2) {
    const EvalNodePtr& b = args[1];
    if (name == "+") return unit_;
    if (name == "-") return i == 0 ? unit_ : nunit_;
    if (name == "*") return i == 0 ? b : a;
    if (name == "/") return i == 0 ? op1(PowM1, b) : op1(UMinus, op2(Times, a, op1(PowM2, b)));
    if (name == "^")  // b a^(b-1); a^b log a
      return i == 0 ? op2(Times, b, op2(Pow, a, op2(Minus, b, unit_)))
                    : op2(Times, op2(Pow, a, b), op1(Log, a));
    if (dynamic_cast<const TransPolyFun*>(&f)) {
      EvalNodePtr d1 = makeOpNode(builtinFun("qvd" + name.substr(2), 2), a, b);
      return i == 0 ? d1 : op1(UMinus, op2(Times, op2(Divide, a, b), d1));
    }
    if (name == "plussq") return op2(Times, C(2.0), args[i]);
    if (name == "atan2") {  // atan2(y, x): x/(x^2+y^2), -y/(x^2+y^2)
      EvalNodePtr den = op2(Plus, op1(Pow2, a), op1(Pow2, b));
      return i == 0 ? op2(Divide, b, den) : op1(UMinus, op2(Divide, a, den));
    }
    if (name == "mod") return i == 0 ? unit_ : op1(UMinus, op1(Floor, op2(Divide, a, b)));
    if (name == "realdot") return fn("conj", args[1 - i]);
    if (name == "psi") {  // psi(n, x): order n, argument x
      if (i == 0) return zero_;
      return makeOpNode(builtinFun("psi", 2), op2(Plus, a, unit_), b);
    }
    if (const auto* bf = dynamic_cast<const BesselFun*>(&f)) {  // order a, argument b
      if (i == 0) return nullptr;
      FunPtr g = builtinFun(name, 2);
      QV_ASSERT(g != nullptr, nodemaker);
      EvalNodePtr lo = makeOpNode(g, op2(Minus, a, unit_), b);
      EvalNodePtr hi = makeOpNode(g, op2(Plus, a, unit_), b);
      switch (bf->kind()) {
        case BesselFun::I: return op2(Times, C(0.5), op2(Plus, lo, hi));
        case BesselFun::K: return op2(Times, C(-0.5), op2(Plus, lo, hi));
        default: return op2(Times, C(0.5), op2(Minus, lo, hi));
      }
    }
    if (name == "min") return i == 0 ? op2(LE, a, b) : op2(GT, a, b);
    if (name == "max") return i == 0 ? op2(GE, a, b) : op2(LT, a, b);
    if (name == "<" || name == ">" || name == "<=" || name == ">=" || name == "==" ||
        name == "!=" || name == "&&" || name == "||")
      return zero_;
    return nullptr;
  }
  if (args.size() != 1) return nullptr;

  if (const auto* cp = dynamic_cast<const ConstPowFun*>(&f)) {  // p a^(p-1)
    double p = cp->getExponent();
    if (p == 2.0) return op2(Times, C(2.0), a);
    return op2(Times, C(p), op2(Pow, a, C(p - 1.0)));
  }
  if (name == "U-") return nunit_;
  if (name == "U+") return unit_;
  if (name == "!" || name == "sign" || name == "floor" || name == "ceil" || name == "round" ||
      name == "fix")
    return zero_;
  if (name == "abs") return op1(Sign, a);
  if (name == "exp") return op1(Exp, a);
  if (name == "log") return op1(PowM1, a);
  if (name == "log10") return op2(Times, C(1.0 / std::numbers::ln10), op1(PowM1, a));
  if (name == "log2") return op2(Times, C(1.0 / std::numbers::ln2), op1(PowM1, a));
  if (name == "real" || name == "conj") return unit_;
  if (name == "imag" || name == "arg") return zero_;
  if (name == "erf")
    return op2(Times, C(2.0 * std::numbers::inv_sqrtpi), op1(Exp, op1(UMinus, op1(Pow2, a))));
  if (name == "gamma")
    return op2(Times, fn("gamma", a), makeOpNode(builtinFun("psi", 2), zero_, a));
  if (name == "sqrt") return op2(Times, C(0.5), op1(PowM1, op1(Sqrt, a)));

  EvalNodePtr a2 = nullptr;
  auto sq = [&]() { return a2 ? a2 : (a2 = op1(Pow2, a)); };
  if (name == "sin") return op1(Cos, a);
  if (name == "cos") return op1(UMinus, op1(Sin, a));
  if (name == "tan") return op2(Plus, unit_, op1(Pow2, fn("tan", a)));
  if (name == "cot") return op1(UMinus, op2(Plus, unit_, op1(Pow2, fn("cot", a))));
  if (name == "sec") return op2(Times, fn("sec", a), fn("tan", a));
  if (name == "csc") return op1(UMinus, op2(Times, fn("csc", a), fn("cot", a)));
  if (name == "asin") return op1(PowM1, op1(Sqrt, op2(Minus, unit_, sq())));
  if (name == "acos") return op1(UMinus, op1(PowM1, op1(Sqrt, op2(Minus, unit_, sq()))));
  if (name == "atan") return op1(PowM1, op2(Plus, unit_, sq()));
  if (name == "acot") return op1(UMinus, op1(PowM1, op2(Plus, unit_, sq())));
  // asec(x) = acos(1/x), acsc(x) = asin(1/x): +-1/(x^2 sqrt(1 - x^-2)).
  if (name == "asec" || name == "acsc") {
    EvalNodePtr r = op1(PowM1, op2(Times, sq(), op1(Sqrt, op2(Minus, unit_, op1(PowM2, a)))));
    return name == "asec" ? r : op1(UMinus, r);
  }
  if (name == "sinh") return fn("cosh", a);
  if (name == "cosh") return fn("sinh", a);
  if (name == "tanh") return op2(Minus, unit_, op1(Pow2, fn("tanh", a)));
  if (name == "coth") return op2(Minus, unit_, op1(Pow2, fn("coth", a)));
  if (name == "sech") return op1(UMinus, op2(Times, fn("sech", a), fn("tanh", a)));
  if (name == "csch") return op1(UMinus, op2(Times, fn("csch", a), fn("coth", a)));
  if (name == "asinh") return op1(PowM1, op1(Sqrt, op2(Plus, sq(), unit_)));
  if (name == "acosh") return op1(PowM1, op1(Sqrt, op2(Minus, sq(), unit_)));
  if (name == "atanh" || name == "acoth") return op1(PowM1, op2(Minus, unit_, sq()));
  // asech(x) = acosh(1/x): -1/(x^2 sqrt(x^-2 - 1)); acsch(x) = asinh(1/x):
  // -1/(x^2 sqrt(1 + x^-2)).
  if (name == "asech")
    return op1(UMinus, op1(PowM1, op2(Times, sq(), op1(Sqrt, op2(Minus, op1(PowM2, a), unit_)))));
  if (name == "acsch")
    return op1(UMinus, op1(PowM1, op2(Times, sq(), op1(Sqrt, op2(Plus, unit_, op1(PowM2, a))))));
  return nullptr;
}

}  // namespace qvarray
