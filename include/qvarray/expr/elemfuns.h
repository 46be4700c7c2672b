#pragma once
// The elementary functions of the expression language as function objects.
//
// Real evaluation stays real: an argument whose result would need a complex
// value (sqrt(-1), log(-1), acos(2)) stores NaN and returns code 2; the same
// function on a complex argument gives the complex value (principal branch,
// std::complex). exp, log, log10, log2, the trigonometric and hyperbolic
// functions and their inverses, atan2 and the power run on SLEEF's 1-ulp
// vector functions over real arrays; a real scalar goes through the same
// vector code, so its bits do not depend on how it was evaluated.
//
// Domain codes of real arguments (code 2; the failure key is "funeval" unless
// the class says otherwise):
//   sqrt x < 0 ("sqrt")            log, log10, log2 x <= 0 ("log"; log(0) stores -inf)
//   asin, acos |x| > 1             acsc, asec |x| < 1         acosh x < 1
//   atanh |x| > 1                  acoth |x| < 1              asech x < 0 or x > 1
// Complex log, log10, log2 of 0 give code 2 ("log"); no other complex code.
// log(0) is thus a failure wherever a function object evaluates it (nodes,
// constant folding), while the expression compiler's eval allows it (only
// arguments below 0 throw there): both kept as they are.
//
// Definitions: cot = 1/tan, csc = 1/sin, sec = 1/cos (and coth, csch, sech
// from tanh, sinh, cosh); acot(x) = atan(1/x), acsc = asin(1/x), asec =
// acos(1/x) (and acoth, acsch, asech from atanh, asinh, acosh). round(x) is
// floor(x + 0.5), fix rounds toward zero, sign gives -1, 0, 1 (z/|z| for
// complex z); rounding functions act on both parts of a complex number.
// arg, abs, real, imag are always real; arg of a negative real is pi.
#include "qvarray/expr/funobj.h"
#include "qvarray/expr/operators.h"

namespace qvarray {

#define QV_ELEMENTARY_FUNCTION(Class, name, ...)   \
  class QVARRAY_API Class : public UnFunObj {      \
   public:                                         \
    Class() : UnFunObj(name) {}                    \
    QV_FUNOBJ_UNARY_OVERLOADS                      \
    __VA_ARGS__                                    \
  };

#define QV_ALWAYS_REAL bool isAlwaysReal() const override { return true; }
#define QV_OWN_ERROR std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;
// A function with an operation number of the compiler (ExprComp::OpCode).
#define QV_COMPILED QV_FUNOBJ_CREATEDEFS

QV_ELEMENTARY_FUNCTION(SignFun, "sign", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(ExpFun, "exp", QV_COMPILED)
/// Code 2 ("sqrt", evalfun_basic): negative real argument.
QV_ELEMENTARY_FUNCTION(SqrtFun, "sqrt", QV_OWN_ERROR QV_COMPILED)
QV_ELEMENTARY_FUNCTION(ArgFun, "arg", QV_ALWAYS_REAL)
QV_ELEMENTARY_FUNCTION(AbsFun, "abs", QV_ALWAYS_REAL QV_COMPILED)
QV_ELEMENTARY_FUNCTION(RealFun, "real", QV_ALWAYS_REAL bool isLinear(int) const override { return true; } QV_COMPILED)
QV_ELEMENTARY_FUNCTION(ImagFun, "imag", QV_ALWAYS_REAL bool isLinear(int) const override { return true; } QV_COMPILED)
QV_ELEMENTARY_FUNCTION(ConjFun, "conj", bool isLinear(int) const override { return true; } QV_COMPILED)
/// Code 2 ("log", evalfun_basic): argument <= 0 (real) or 0 (complex).
QV_ELEMENTARY_FUNCTION(LogFun, "log", QV_OWN_ERROR QV_COMPILED)
QV_ELEMENTARY_FUNCTION(Log10Fun, "log10", QV_OWN_ERROR QV_COMPILED)
QV_ELEMENTARY_FUNCTION(Log2Fun, "log2", QV_OWN_ERROR QV_COMPILED)
QV_ELEMENTARY_FUNCTION(RoundFun, "round", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(CeilFun, "ceil", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(FloorFun, "floor", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(FixFun, "fix", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(AcosFun, "acos", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(AcotFun, "acot")
QV_ELEMENTARY_FUNCTION(AcscFun, "acsc")
QV_ELEMENTARY_FUNCTION(AsecFun, "asec")
QV_ELEMENTARY_FUNCTION(AsinFun, "asin", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(AtanFun, "atan", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(CosFun, "cos", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(CotFun, "cot", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(CscFun, "csc", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(SecFun, "sec", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(SinFun, "sin", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(TanFun, "tan", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(AcoshFun, "acosh")
QV_ELEMENTARY_FUNCTION(AcothFun, "acoth")
QV_ELEMENTARY_FUNCTION(AcschFun, "acsch")
QV_ELEMENTARY_FUNCTION(AsechFun, "asech")
QV_ELEMENTARY_FUNCTION(AsinhFun, "asinh")
QV_ELEMENTARY_FUNCTION(AtanhFun, "atanh")
QV_ELEMENTARY_FUNCTION(CoshFun, "cosh", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(CothFun, "coth", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(CschFun, "csch", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(SechFun, "sech", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(SinhFun, "sinh", QV_COMPILED)
QV_ELEMENTARY_FUNCTION(TanhFun, "tanh", QV_COMPILED)

#undef QV_ALWAYS_REAL
#undef QV_OWN_ERROR
#undef QV_COMPILED
#undef QV_ELEMENTARY_FUNCTION

/// atan2(y, x), the angle of the point (x, y). For complex operands
/// atan2(y, x) = -i log((x + i y) / sqrt(x^2 + y^2)), which is the real
/// atan2 when both are real.
class QVARRAY_API Atan2Fun : public BinFunObj {
 public:
  Atan2Fun() : BinFunObj("atan2") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
};

}  // namespace qvarray
