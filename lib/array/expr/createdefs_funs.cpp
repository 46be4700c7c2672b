// The compiler's definitions of the operators and elementary functions: each
// one with an operation number hands it to the shared routine; the constant
// power, sign, plussq, realdot and the flattened sum write out their own
// evaluation, operation for operation, so that compiled code computes what
// the function object computes.
#include "defsbuilder.h"
#include "exprcomp_impl.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/operators.h"

namespace qvarray {

#define QV_DEFS_OP(Class, op)                                                                \
  int Class::createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs, \
                        int& counter, const std::shared_ptr<VarEvaluator>& ev) const {         \
    return createDefsRec(ExprComp::op, args, comp, defs, counter, ev);                         \
  }

QV_DEFS_OP(PlusFun, OpPlus)
QV_DEFS_OP(MinusFun, OpMinus)
QV_DEFS_OP(MultFun, OpMult)
QV_DEFS_OP(DivFun, OpDiv)
QV_DEFS_OP(PowFun, OpPow)
QV_DEFS_OP(LTFun, OpLT)
QV_DEFS_OP(GTFun, OpGT)
QV_DEFS_OP(LEFun, OpLE)
QV_DEFS_OP(GEFun, OpGE)
QV_DEFS_OP(EQFun, OpEQ)
QV_DEFS_OP(NEFun, OpNE)
QV_DEFS_OP(AndFun, OpAnd)
QV_DEFS_OP(OrFun, OpOr)
QV_DEFS_OP(UNotFun, OpNot)
QV_DEFS_OP(UPlusFun, OpUPlus)
QV_DEFS_OP(UMinusFun, OpUMinus)
QV_DEFS_OP(MinFun, OpMin)
QV_DEFS_OP(MaxFun, OpMax)
QV_DEFS_OP(ModFun, OpMod)
QV_DEFS_OP(Atan2Fun, OpAtan2)
QV_DEFS_OP(ExpFun, OpExp)
QV_DEFS_OP(SqrtFun, OpSqrt)
QV_DEFS_OP(AbsFun, OpAbs)
QV_DEFS_OP(RealFun, OpReal)
QV_DEFS_OP(ImagFun, OpImag)
QV_DEFS_OP(ConjFun, OpConj)
QV_DEFS_OP(LogFun, OpLog)
QV_DEFS_OP(Log10Fun, OpLog10)
QV_DEFS_OP(Log2Fun, OpLog2)
QV_DEFS_OP(RoundFun, OpRound)
QV_DEFS_OP(CeilFun, OpCeil)
QV_DEFS_OP(FloorFun, OpFloor)
QV_DEFS_OP(FixFun, OpFix)
QV_DEFS_OP(AcosFun, OpAcos)
QV_DEFS_OP(AsinFun, OpAsin)
QV_DEFS_OP(AtanFun, OpAtan)
QV_DEFS_OP(CosFun, OpCos)
QV_DEFS_OP(CotFun, OpCot)
QV_DEFS_OP(CscFun, OpCsc)
QV_DEFS_OP(SecFun, OpSec)
QV_DEFS_OP(SinFun, OpSin)
QV_DEFS_OP(TanFun, OpTan)
QV_DEFS_OP(CoshFun, OpCosh)
QV_DEFS_OP(CothFun, OpCoth)
QV_DEFS_OP(CschFun, OpCsch)
QV_DEFS_OP(SechFun, OpSech)
QV_DEFS_OP(SinhFun, OpSinh)
QV_DEFS_OP(TanhFun, OpTanh)

#undef QV_DEFS_OP

// The power rule's special exponents as the function object computes them:
// 2 is a*a (the square, 41), 1 the operand itself, 0 the constant 1; every
// other exponent the power (40) with the exponent as a constant, as "^" is
// compiled. (The engine computes x^3 and x^4 with the power function, not by
// repeated multiplication, so the cube and fourth power are not used here.)
int ConstPowFun::createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                            int& counter, const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  int x = b.valueOf(args.at(0));
  if (exponent_ == 2.0) return b.op(ExprComp::OpSq, {x});
  if (exponent_ == 1.0) return x;
  if (exponent_ == 0.0) return b.constant(1.0);
  return b.op(ExprComp::OpPow, {x, b.constant(exponent_)});
}

// The compiler evaluates no operation 48 (sign): sign is written out as
// qvmath::sign computes it (signChoiceOperands).
int SignFun::createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                        int& counter, const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  const std::vector<int> choice = signChoiceOperands(
      b.valueOf(args.at(0)), [&](double v) { return b.constant(v); },
      [&](int op, const std::vector<int>& a) { return b.op(op, a); });
  return b.op(ExprComp::OpChoice, choice);
}

// a*a + b*b.
int PlusSqFun::createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                          int& counter, const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  std::vector<int> v = b.valuesOf(args);
  return b.op(ExprComp::OpPlus, {b.op(ExprComp::OpSq, {v.at(0)}), b.op(ExprComp::OpSq, {v.at(1)})});
}

// On reals the inner product is the product.
int RealDotFun::createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                           int& counter, const std::shared_ptr<VarEvaluator>& ev) const {
  return createDefsRec(ExprComp::OpMult, args, comp, defs, counter, ev);
}

int GenAddFun::createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                          int& counter, const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  std::vector<int> v = b.valuesOf(args);
  if (v.empty()) return b.constant(0.0);
  int sum = v[0];
  for (size_t k = 1; k < v.size(); ++k) sum = b.op(ExprComp::OpPlus, {sum, v[k]});
  return sum;
}

}  // namespace qvarray
