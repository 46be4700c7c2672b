#pragma once
// The operators of the expression language and min, max, mod, plussq,
// realdot and the constant power, as function objects.
//
// Real semantics (a, b real):
//   "+" a+b   "-" a-b   "*" a*b   "/" a/b, stored in every case; code 2 when b == 0
//   "^" power rule: code 2 when a < 0 and b is not an integer, else code 4 when
//       a == 0 and b < 0; the value is stored in any case: b == 2 gives a*a,
//       b == 1 gives a, b == 0 gives 1 (also for a == 0), otherwise pow(a, b)
//   "plussq" a*a + b*b          "realdot" Re(a * conj(b))
//   "<" ">" "<=" ">=" "==" "!=" 1.0 or 0.0 exactly (NaN: false, "!=" true)
//   "&&" 0.0 if a == 0 or b == 0, else 1.0; "||" 0.0 if both are 0, else 1.0;
//   "!" 1.0 if a == 0, else 0.0 (NaN is not 0: "&&"(NaN, 1) = 1, "!"(NaN) = 0)
//   "min" (b >= a) ? a : b; "max" (a >= b) ? a : b: a NaN first operand yields
//       the second, a NaN second operand yields NaN
//   "mod" qvmath::mod (floor convention, mod(a, 0) = a)
//
// Complex operands (a result that needs a complex value goes into a complex
// operand; written into a real operand it keeps its real part):
//   arithmetic and "^" are complex arithmetic (std::complex; the same special
//   exponents 2, 1, 0; code 4 for 0 to an exponent of negative real part;
//   code 2 for "/" by complex 0);
//   "<" ">" "<=" ">=" compare the real parts, "==" "!=" the whole numbers;
//   "&&" "||" "!" test for the complex zero; all give 0.0 or 1.0;
//   "min" "max" compare the real parts and copy the whole chosen number;
//   "mod" is z - w*floor(z/w) with the floor of both parts (qvmath::mod);
//   "plussq" a*a + b*b, "realdot" Re(a)Re(b) + Im(a)Im(b).
// A complex result written from a mixed real/complex pair into the complex
// operand, and min/max of two complex operands, add the informational bit 1.
#include "qvarray/expr/funobj.h"

namespace qvarray {

/// Declares the 16 in-place two-operand overloads and the real out-of-place
/// form (evalInto).
#define QV_FUNOBJ_BINARY_OVERLOADS                                                  \
  using FunObj::operator();                                                          \
  FunOpCode operator()(const CA& x, const CA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const RA& x, const CA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const CA& x, const RA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const RA& x, const RA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const CS& x, const CA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const RS& x, const CA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const CS& x, const RA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const RS& x, const RA& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const CA& x, const CS& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const RA& x, const CS& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const CA& x, const RS& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const RA& x, const RS& y, std::size_t n, int which) const override; \
  FunOpCode operator()(const CS& x, const CS& y, int which) const override;         \
  FunOpCode operator()(const RS& x, const CS& y, int which) const override;         \
  FunOpCode operator()(const CS& x, const RS& y, int which) const override;         \
  FunOpCode operator()(const RS& x, const RS& y, int which) const override;         \
  bool evalInto(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy, \
                double* w, std::size_t n, unsigned& code) const override;

/// Declares the compiler's definitions of a call (FunObj::createDefs).
#define QV_FUNOBJ_CREATEDEFS                                                            \
  int createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs, \
                 int& counter, const std::shared_ptr<VarEvaluator>& ev) const override;

/// Declares the four one-argument overloads and the real out-of-place form.
#define QV_FUNOBJ_UNARY_OVERLOADS                                  \
  using FunObj::operator();                                         \
  FunOpCode operator()(const RS& x) const override;                 \
  FunOpCode operator()(const CS& x) const override;                 \
  FunOpCode operator()(const RA& x, std::size_t n) const override;  \
  FunOpCode operator()(const CA& x, std::size_t n) const override; \
  bool evalInto(const double* x, double* w, std::size_t n, unsigned& code) const override;

class QVARRAY_API PlusFun : public BinFunObj {
 public:
  PlusFun() : BinFunObj("+") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  // Out of place: W = X + Y.
  FunOpCode operator()(const CA& x, const CA& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const RA& x, const CA& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const CA& x, const RA& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const RA& x, const RA& y, std::size_t n, const RA& w) const override;
  FunOpCode operator()(const CS& x, const CA& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const RS& x, const CA& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const CS& x, const RA& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const RS& x, const RA& y, std::size_t n, const RA& w) const override;
  FunOpCode operator()(const CA& x, const CS& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const RA& x, const CS& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const CA& x, const RS& y, std::size_t n, const CA& w) const override;
  FunOpCode operator()(const RA& x, const RS& y, std::size_t n, const RA& w) const override;
  FunOpCode operator()(const CS& x, const CS& y, const CS& w) const override;
  FunOpCode operator()(const RS& x, const CS& y, const CS& w) const override;
  FunOpCode operator()(const CS& x, const RS& y, const CS& w) const override;
  FunOpCode operator()(const RS& x, const RS& y, const RS& w) const override;
  bool isInfix() const override { return true; }
  bool isCommutative() const override { return true; }
  bool hasSpecialOutputForm() const override { return true; }
};

class QVARRAY_API MinusFun : public BinFunObj {
 public:
  MinusFun() : BinFunObj("-") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isInfix() const override { return true; }
  bool hasSpecialOutputForm() const override { return true; }
};

class QVARRAY_API MultFun : public BinFunObj {
 public:
  MultFun() : BinFunObj("*") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isInfix() const override { return true; }
  bool isCommutative() const override { return true; }
  bool hasSpecialOutputForm() const override { return true; }
};

/// Code 2 ("div", evalfun_binary): division by zero; the quotient is stored.
class QVARRAY_API DivFun : public BinFunObj {
 public:
  DivFun() : BinFunObj("/") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isInfix() const override { return true; }
  std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;
};

/// Code 2 ("pow"): negative base, non-integer exponent; code 4 ("pow_zero"):
/// zero to a negative power; module evalfun_binary.
class QVARRAY_API PowFun : public BinFunObj {
 public:
  PowFun() : BinFunObj("^") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isInfix() const override { return true; }
  /// A real base to a non-integer exponent may need a complex result.
  bool isRealIfReal() const override { return false; }
  std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;
};

class QVARRAY_API PlusSqFun : public BinFunObj {
 public:
  PlusSqFun() : BinFunObj("plussq") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isCommutative() const override { return true; }
};

class QVARRAY_API RealDotFun : public BinFunObj {
 public:
  RealDotFun() : BinFunObj("realdot") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isCommutative() const override { return true; }
  bool isRealIfReal() const override { return true; }
  bool isAlwaysReal() const override { return true; }
};

/// The comparison and logical operators: always real, exactly 0.0 or 1.0.
#define QV_FUNOBJ_COMPARISON(Class, symbol, commutative)                 \
  class QVARRAY_API Class : public BinFunObj {                           \
   public:                                                               \
    Class() : BinFunObj(symbol) {}                                       \
    QV_FUNOBJ_BINARY_OVERLOADS                                           \
    QV_FUNOBJ_CREATEDEFS                                                 \
    bool isInfix() const override { return true; }                       \
    bool isAlwaysReal() const override { return true; }                  \
    bool isCommutative() const override { return commutative; }          \
  };
QV_FUNOBJ_COMPARISON(LTFun, "<", false)
QV_FUNOBJ_COMPARISON(GTFun, ">", false)
QV_FUNOBJ_COMPARISON(LEFun, "<=", false)
QV_FUNOBJ_COMPARISON(GEFun, ">=", false)
QV_FUNOBJ_COMPARISON(EQFun, "==", true)
QV_FUNOBJ_COMPARISON(NEFun, "!=", true)
QV_FUNOBJ_COMPARISON(AndFun, "&&", true)
QV_FUNOBJ_COMPARISON(OrFun, "||", true)
#undef QV_FUNOBJ_COMPARISON

class QVARRAY_API MinFun : public BinFunObj {
 public:
  MinFun() : BinFunObj("min") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isCommutative() const override { return true; }
};

class QVARRAY_API MaxFun : public BinFunObj {
 public:
  MaxFun() : BinFunObj("max") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isCommutative() const override { return true; }
};

/// Code 2 ("impl", evalfun_basic): no finite result for finite-or-infinite
/// operands that are not NaN (an infinite dividend).
class QVARRAY_API ModFun : public BinFunObj {
 public:
  ModFun() : BinFunObj("mod") {}
  QV_FUNOBJ_BINARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;
};

class QVARRAY_API UNotFun : public UnFunObj {
 public:
  UNotFun() : UnFunObj("!") {}
  QV_FUNOBJ_UNARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  bool isAlwaysReal() const override { return true; }
};

class QVARRAY_API UPlusFun : public UnFunObj {
 public:
  UPlusFun() : UnFunObj("U+") {}
  QV_FUNOBJ_UNARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
};

class QVARRAY_API UMinusFun : public UnFunObj {
 public:
  UMinusFun() : UnFunObj("U-") {}
  QV_FUNOBJ_UNARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
};

/// x ^ p for a fixed exponent p, with the codes and special exponents of
/// PowFun (same values, bit for bit); module evalfun_basic.
class QVARRAY_API ConstPowFun : public UnFunObj {
 public:
  explicit ConstPowFun(double exponent) : UnFunObj("^"), exponent_(exponent) {}
  QV_FUNOBJ_UNARY_OVERLOADS
  QV_FUNOBJ_CREATEDEFS
  double getExponent() const { return exponent_; }
  bool isRealIfReal() const override { return false; }
  std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;

 private:
  double exponent_;
};

}  // namespace qvarray
