// The two-operand operators: arithmetic, power, comparisons, logic, min, max,
// mod, plussq and realdot. Each is a rule on one pair of elements, in the real
// and the complex computing type; one loop (evalfun::zipInto) applies it to
// every operand shape, broadcasting a scalar over an array.
#include <cmath>

#include "evalfun_elementwise.h"
#include "powrule.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/qvmath.h"

namespace qvarray {

using evalfun::cplx;
using Code = FunObj::FunOpCode;

namespace {

using R = std::pair<unsigned, double>;
using C = std::pair<unsigned, cplx>;

// Rules. `complexResult`: a complex pair gives a complex value, so a mixed
// pair written into its complex operand is flagged informational (bit 1);
// `flagComplexPair`: a pair of complex operands is flagged too (min, max).
struct Arith {
  static constexpr bool complexResult = true, flagComplexPair = false;
};
struct Plus : Arith {
  R operator()(double a, double b) const { return {0, a + b}; }
  C operator()(cplx a, cplx b) const { return {0, a + b}; }
};
struct Minus : Arith {
  R operator()(double a, double b) const { return {0, a - b}; }
  C operator()(cplx a, cplx b) const { return {0, a - b}; }
};
struct Mult : Arith {
  R operator()(double a, double b) const { return {0, a * b}; }
  C operator()(cplx a, cplx b) const { return {0, a * b}; }
};
struct Div : Arith {
  R operator()(double a, double b) const { return {b == 0.0 ? 2u : 0u, a / b}; }
  C operator()(cplx a, cplx b) const { return {b == 0.0 ? 2u : 0u, a / b}; }
};
struct Pow : Arith {
  // Real pairs go through evalfun::powArray (vector pow); this is the
  // complex rule only.
  C operator()(cplx a, cplx b) const { return evalfun::powComplex(a, b); }
};
struct PlusSq : Arith {
  R operator()(double a, double b) const { return {0, a * a + b * b}; }
  C operator()(cplx a, cplx b) const { return {0, a * a + b * b}; }
};
struct RealDot {
  static constexpr bool complexResult = false, flagComplexPair = false;
  R operator()(double a, double b) const { return {0, a * b}; }
  R operator()(cplx a, cplx b) const { return {0, a.real() * b.real() + a.imag() * b.imag()}; }
};
struct Min {
  static constexpr bool complexResult = true, flagComplexPair = true;
  R operator()(double a, double b) const { return {0, (b >= a) ? a : b}; }
  C operator()(cplx a, cplx b) const { return {0, (b.real() >= a.real()) ? a : b}; }
};
struct Max {
  static constexpr bool complexResult = true, flagComplexPair = true;
  R operator()(double a, double b) const { return {0, (a >= b) ? a : b}; }
  C operator()(cplx a, cplx b) const { return {0, (a.real() >= b.real()) ? a : b}; }
};
bool isNaN(cplx z) { return std::isnan(z.real()) || std::isnan(z.imag()); }
struct Mod : Arith {
  R operator()(double a, double b) const {
    double v = qvmath::mod(a, b);
    return {std::isnan(v) && !std::isnan(a) && !std::isnan(b) ? 2u : 0u, v};
  }
  C operator()(cplx a, cplx b) const {
    cplx v = qvmath::mod(a, b);
    return {isNaN(v) && !isNaN(a) && !isNaN(b) ? 2u : 0u, v};
  }
};

// atan2(y, x) of complex operands: -i log((x + i y) / sqrt(x^2 + y^2)); the
// real atan2 (the vector kernel) when both are real.
struct Atan2 : Arith {
  C operator()(cplx y, cplx x) const {
    if (y.imag() == 0.0 && x.imag() == 0.0) return {0, vecmath::atan2(y.real(), x.real())};
    const cplx i(0.0, 1.0);
    return {0, -i * std::log((x + i * y) / std::sqrt(x * x + y * y))};
  }
};

// Comparisons and logic: exactly 0.0 or 1.0; complex orderings by real parts.
struct Truth {
  static constexpr bool complexResult = false, flagComplexPair = false;
};
#define QV_TRUTH_RULE(Name, realTest, complexTest)                                   \
  struct Name : Truth {                                                              \
    R operator()(double a, double b) const { return {0, (realTest) ? 1.0 : 0.0}; }   \
    R operator()(cplx a, cplx b) const { return {0, (complexTest) ? 1.0 : 0.0}; }    \
  };
QV_TRUTH_RULE(Lt, a < b, a.real() < b.real())
QV_TRUTH_RULE(Gt, a > b, a.real() > b.real())
QV_TRUTH_RULE(Le, a <= b, a.real() <= b.real())
QV_TRUTH_RULE(Ge, a >= b, a.real() >= b.real())
QV_TRUTH_RULE(Eq, a == b, a == b)
QV_TRUTH_RULE(Ne, a != b, a != b)
QV_TRUTH_RULE(And, !(a == 0.0 || b == 0.0), !(a == 0.0 || b == 0.0))
QV_TRUTH_RULE(Or, !(a == 0.0 && b == 0.0), !(a == 0.0 && b == 0.0))
#undef QV_TRUTH_RULE

template <class Rule, class X, class Y>
Code binary(const X& x, const Y& y, std::size_t n, int which) {
  using namespace evalfun;
  unsigned code = zipInto(x, y, n, which, Rule{});
  constexpr bool mixed = isComplex<X> != isComplex<Y>;
  const bool intoComplex = which == 1 ? isComplex<X> : isComplex<Y>;
  if constexpr (Rule::complexResult && mixed)
    if (intoComplex) code |= FunObj::Informational;
  if constexpr (Rule::flagComplexPair && isComplex<X> && isComplex<Y>)
    code |= FunObj::Informational;
  return toCode(code);
}

// Real operands out of place: w[i] = rule(x[i*sx], y[i*sy]).
template <class Rule>
unsigned zipOut(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy, double* w,
                std::size_t n) {
  unsigned code = 0;
#pragma omp simd reduction(max : code)
  for (std::size_t i = 0; i < n; ++i) {
    auto [c, v] = Rule{}(x[i * sx], y[i * sy]);
    w[i] = v;
    code = std::max(code, c);
  }
  return code;
}

// A scalar pair evaluated in place: the same loop over one element.
#define QV_BINARY_DEFINE(Class, Rule)                                                       \
  Code Class::operator()(const CA& x, const CA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RA& x, const CA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CA& x, const RA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CS& x, const CA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RS& x, const CA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CS& x, const RA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CA& x, const CS& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RA& x, const CS& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CA& x, const RS& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CS& x, const CS& y, int w) const {                           \
    return binary<Rule>(x, y, 1, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RS& x, const CS& y, int w) const {                           \
    return binary<Rule>(x, y, 1, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const CS& x, const RS& y, int w) const {                           \
    return binary<Rule>(x, y, 1, w);                                                        \
  }

// The four real forms, by the rule (all but the power).
#define QV_BINARY_DEFINE_REAL(Class, Rule)                                                  \
  Code Class::operator()(const RA& x, const RA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RS& x, const RA& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RA& x, const RS& y, std::size_t n, int w) const {            \
    return binary<Rule>(x, y, n, w);                                                        \
  }                                                                                          \
  Code Class::operator()(const RS& x, const RS& y, int w) const {                           \
    return binary<Rule>(x, y, 1, w);                                                        \
  }                                                                                          \
  bool Class::evalInto(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy, \
                       double* w, std::size_t n, unsigned& code) const {                    \
    code = zipOut<Rule>(x, sx, y, sy, w, n);                                                \
    return true;                                                                             \
  }

}  // namespace

#define QV_BINARY_DEFINE_ALL(Class, Rule) \
  QV_BINARY_DEFINE(Class, Rule)           \
  QV_BINARY_DEFINE_REAL(Class, Rule)

QV_BINARY_DEFINE(PlusFun, Plus)
QV_BINARY_DEFINE(MinusFun, Minus)
QV_BINARY_DEFINE(MultFun, Mult)
QV_BINARY_DEFINE(DivFun, Div)
QV_BINARY_DEFINE_ALL(PlusSqFun, PlusSq)
QV_BINARY_DEFINE_ALL(RealDotFun, RealDot)
QV_BINARY_DEFINE_ALL(LTFun, Lt)
QV_BINARY_DEFINE_ALL(GTFun, Gt)
QV_BINARY_DEFINE_ALL(LEFun, Le)
QV_BINARY_DEFINE_ALL(GEFun, Ge)
QV_BINARY_DEFINE_ALL(EQFun, Eq)
QV_BINARY_DEFINE_ALL(NEFun, Ne)
QV_BINARY_DEFINE_ALL(AndFun, And)
QV_BINARY_DEFINE_ALL(OrFun, Or)
QV_BINARY_DEFINE_ALL(MinFun, Min)
QV_BINARY_DEFINE_ALL(MaxFun, Max)
QV_BINARY_DEFINE_ALL(ModFun, Mod)
QV_BINARY_DEFINE(PowFun, Pow)
QV_BINARY_DEFINE(Atan2Fun, Atan2)

// Real arithmetic: the vector kernels of the widest instruction set (the
// generic loop would run at the x86-64 baseline's width); the division's
// code comes from the divisors before they may be overwritten.
namespace {
template <class X, class Y>
Code arith(vecmath::Binary kernel, bool division, const X& x, const Y& y, std::size_t n,
           int which) {
  using namespace evalfun;
  QV_ASSERT(n <= 1 || (which == 1 ? isArray<X> : isArray<Y>), evalfun_binary);
  const double* a = Shape<X>::at(x);
  const double* b = Shape<Y>::at(y);
  unsigned code = 0;
  if (division) {
    bool zero = false;
    const std::size_t m = isArray<Y> ? n : (n ? 1 : 0);
    for (std::size_t i = 0; i < m; ++i) zero |= b[i] == 0.0;
    code = zero ? 2u : 0u;
  }
  kernel(a, Shape<X>::step, b, Shape<Y>::step, which == 1 ? Shape<X>::at(x) : Shape<Y>::at(y), n);
  return toCode(code);
}
}  // namespace

#define QV_ARITH_DEFINE(Class, kernel, division)                                    \
  Code Class::operator()(const RA& x, const RA& y, std::size_t n, int w) const {    \
    return arith(vecmath::kernels().kernel, division, x, y, n, w);                  \
  }                                                                                  \
  Code Class::operator()(const RS& x, const RA& y, std::size_t n, int w) const {    \
    return arith(vecmath::kernels().kernel, division, x, y, n, w);                  \
  }                                                                                  \
  Code Class::operator()(const RA& x, const RS& y, std::size_t n, int w) const {    \
    return arith(vecmath::kernels().kernel, division, x, y, n, w);                  \
  }                                                                                  \
  Code Class::operator()(const RS& x, const RS& y, int w) const {                   \
    return arith(vecmath::kernels().kernel, division, x, y, 1, w);                  \
  }
QV_ARITH_DEFINE(PlusFun, add, false)
QV_ARITH_DEFINE(MinusFun, sub, false)
QV_ARITH_DEFINE(MultFun, mul, false)
QV_ARITH_DEFINE(DivFun, div, true)
#undef QV_ARITH_DEFINE

// Out of place, by the same kernels; the quotient's code from the divisors.
#define QV_ARITH_INTO(Class, kernel, division)                                          \
  bool Class::evalInto(const double* x, std::ptrdiff_t sx, const double* y,             \
                       std::ptrdiff_t sy, double* w, std::size_t n, unsigned& code) const { \
    code = 0;                                                                            \
    if (division) {                                                                      \
      bool zero = false;                                                                 \
      const std::size_t m = sy ? n : (n ? 1 : 0);                                        \
      for (std::size_t i = 0; i < m; ++i) zero |= y[i] == 0.0;                           \
      code = zero ? 2u : 0u;                                                             \
    }                                                                                    \
    vecmath::kernels().kernel(x, sx, y, sy, w, n);                                       \
    return true;                                                                         \
  }
QV_ARITH_INTO(PlusFun, add, false)
QV_ARITH_INTO(MinusFun, sub, false)
QV_ARITH_INTO(MultFun, mul, false)
QV_ARITH_INTO(DivFun, div, true)
#undef QV_ARITH_INTO

bool PowFun::evalInto(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy,
                      double* w, std::size_t n, unsigned& code) const {
  code = evalfun::powArray(x, sx, y, sy, w, n);
  return true;
}
bool Atan2Fun::evalInto(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy,
                        double* w, std::size_t n, unsigned& code) const {
  vecmath::kernels().atan2(x, sx, y, sy, w, n);
  code = 0;
  return true;
}

// The real power: the vector pow with the rule's special exponents and codes.
Code PowFun::operator()(const RA& x, const RA& y, std::size_t n, int w) const {
  return evalfun::toCode(evalfun::powArray(x->data, 1, y->data, 1, (w == 1 ? x : y)->data, n));
}
Code PowFun::operator()(const RS& x, const RA& y, std::size_t n, int w) const {
  QV_ASSERT(w != 1 || n <= 1, evalfun_binary);
  double* out = w == 1 ? x.get() : y->data;
  return evalfun::toCode(evalfun::powArray(x.get(), 0, y->data, 1, out, n));
}
Code PowFun::operator()(const RA& x, const RS& y, std::size_t n, int w) const {
  QV_ASSERT(w == 1 || n <= 1, evalfun_binary);
  double* out = w == 1 ? x->data : y.get();
  return evalfun::toCode(evalfun::powArray(x->data, 1, y.get(), 0, out, n));
}
Code PowFun::operator()(const RS& x, const RS& y, int w) const {
  return evalfun::toCode(evalfun::powArray(x.get(), 0, y.get(), 0, (w == 1 ? x : y).get(), 1));
}

// The real atan2: the vector kernel.
Code Atan2Fun::operator()(const RA& x, const RA& y, std::size_t n, int w) const {
  vecmath::kernels().atan2(x->data, 1, y->data, 1, (w == 1 ? x : y)->data, n);
  return Success;
}
Code Atan2Fun::operator()(const RS& x, const RA& y, std::size_t n, int w) const {
  QV_ASSERT(w != 1 || n <= 1, evalfun_binary);
  vecmath::kernels().atan2(x.get(), 0, y->data, 1, w == 1 ? x.get() : y->data, n);
  return Success;
}
Code Atan2Fun::operator()(const RA& x, const RS& y, std::size_t n, int w) const {
  QV_ASSERT(w == 1 || n <= 1, evalfun_binary);
  vecmath::kernels().atan2(x->data, 1, y.get(), 0, w == 1 ? x->data : y.get(), n);
  return Success;
}
Code Atan2Fun::operator()(const RS& x, const RS& y, int w) const {
  vecmath::kernels().atan2(x.get(), 0, y.get(), 0, (w == 1 ? x : y).get(), 1);
  return Success;
}

// Out of place: W = X + Y.
namespace {
template <class X, class Y, class W>
Code plusInto(const X& x, const Y& y, std::size_t n, const W& w) {
  using namespace evalfun;
  auto* a = Shape<X>::at(x);
  auto* b = Shape<Y>::at(y);
  auto* c = Shape<W>::at(w);
  for (std::size_t i = 0; i < n; ++i) c[i] = a[i * Shape<X>::step] + b[i * Shape<Y>::step];
  return toCode(isComplex<X> != isComplex<Y> ? FunObj::Informational : 0u);
}
}  // namespace

#define QV_PLUS_INTO(X, Y, W)                                                          \
  Code PlusFun::operator()(const X& x, const Y& y, std::size_t n, const W& w) const {  \
    return plusInto(x, y, n, w);                                                       \
  }
QV_PLUS_INTO(CA, CA, CA)
QV_PLUS_INTO(RA, CA, CA)
QV_PLUS_INTO(CA, RA, CA)
QV_PLUS_INTO(RA, RA, RA)
QV_PLUS_INTO(CS, CA, CA)
QV_PLUS_INTO(RS, CA, CA)
QV_PLUS_INTO(CS, RA, CA)
QV_PLUS_INTO(RS, RA, RA)
QV_PLUS_INTO(CA, CS, CA)
QV_PLUS_INTO(RA, CS, CA)
QV_PLUS_INTO(CA, RS, CA)
QV_PLUS_INTO(RA, RS, RA)
#undef QV_PLUS_INTO
Code PlusFun::operator()(const CS& x, const CS& y, const CS& w) const { return plusInto(x, y, 1, w); }
Code PlusFun::operator()(const RS& x, const CS& y, const CS& w) const { return plusInto(x, y, 1, w); }
Code PlusFun::operator()(const CS& x, const RS& y, const CS& w) const { return plusInto(x, y, 1, w); }
Code PlusFun::operator()(const RS& x, const RS& y, const RS& w) const { return plusInto(x, y, 1, w); }

std::shared_ptr<qvbase::ErrInfo> DivFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_binary, qvbase::ErrKey::div);
  return {};
}

std::shared_ptr<qvbase::ErrInfo> PowFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_binary, qvbase::ErrKey::pow);
  if (code & Failure2)
    return errorRecord(qvbase::ErrModule::evalfun_binary, qvbase::ErrKey::pow_zero);
  return {};
}

std::shared_ptr<qvbase::ErrInfo> ModFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::impl);
  return {};
}

}  // namespace qvarray
