// The one-argument functions and operators: each is a Rule (which vector
// kernel or scalar function gives the real value, which arguments are outside
// the real domain, the complex function) and one pair of loops evaluates
// every Rule, over a scalar as over an array.
#include <cmath>
#include <limits>
#include <numbers>

#include "evalfun_elementwise.h"
#include "powrule.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/qvmath.h"
#include "vecmath.h"

namespace qvarray {

using evalfun::cplx;
using Code = FunObj::FunOpCode;

namespace {

using vecmath::Fn;

// What a function is, as static members (RuleBase gives the defaults):
//   kernel    the vector kernel of the real value (Fn::count: none, use real)
//   real      the real value when there is no kernel
//   lo, hi    the real domain: an argument (after 1/x when recipIn) below lo
//             or above hi is code 2 (NaN is inside)
//   complex   the complex value; cdomain the code of a complex argument
//   recipIn   the kernel is applied to 1/x; recipOut the value is 1/kernel(x)
struct RuleBase {
  static constexpr Fn kernel = Fn::count;
  static double real(double x) { return x; }
  static constexpr double lo = -std::numeric_limits<double>::infinity();
  static constexpr double hi = std::numeric_limits<double>::infinity();
  static unsigned cdomain(cplx) { return 0; }
  static constexpr bool recipIn = false;
  static constexpr bool recipOut = false;
};

// a[i] = f(x[i]), i < n; a may be x.
template <class S>
unsigned realEval(const double* x, double* a, std::size_t n) {
  unsigned code = 0;
  if constexpr (S::recipIn) {
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) a[i] = 1.0 / x[i];
    x = a;
  }
  if constexpr (S::lo != RuleBase::lo || S::hi != RuleBase::hi)
    code = vecmath::kernels().outside(x, n, S::lo, S::hi) ? 2 : 0;
  if constexpr (S::kernel != Fn::count) {
    vecmath::apply(S::kernel, x, a, n);
  } else {
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) a[i] = S::real(x[i]);
  }
  if constexpr (S::recipOut) {
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) a[i] = 1.0 / a[i];
  }
  return code;
}

template <class S>
unsigned complexEval(cplx* a, std::size_t n) {
  unsigned code = 0;
  for (std::size_t i = 0; i < n; ++i) {
    code = std::max(code, S::cdomain(a[i]));
    a[i] = S::complex(a[i]);
  }
  return code;
}

unsigned complexZero(cplx z) { return z == 0.0 ? 2 : 0; }
constexpr double kTiniest = std::numeric_limits<double>::denorm_min();
constexpr double kInvLn2 = 1.0 / std::numbers::ln2;

struct SignRule : RuleBase {
  static double real(double x) { return qvmath::sign(x); }
  static cplx complex(cplx z) { return qvmath::sign(z); }
};
struct ExpRule : RuleBase {
  static constexpr Fn kernel = Fn::exp;
  static cplx complex(cplx z) { return std::exp(z); }
};
struct SqrtRule : RuleBase {
  static constexpr Fn kernel = Fn::sqrt;
  static constexpr double lo = 0.0;
  static cplx complex(cplx z) { return std::sqrt(z); }
};
struct ArgRule : RuleBase {
  static double real(double x) { return x < 0.0 ? std::numbers::pi : (x == x ? 0.0 : x); }
  static cplx complex(cplx z) { return cplx(std::arg(z)); }
};
struct AbsRule : RuleBase {
  static double real(double x) { return std::fabs(x); }
  static cplx complex(cplx z) { return cplx(std::abs(z)); }
};
struct RealRule : RuleBase {
  static double real(double x) { return x; }
  static cplx complex(cplx z) { return cplx(z.real()); }
};
struct ImagRule : RuleBase {
  static double real(double) { return 0.0; }
  static cplx complex(cplx z) { return cplx(z.imag()); }
};
struct ConjRule : RuleBase {
  static double real(double x) { return x; }
  static cplx complex(cplx z) { return std::conj(z); }
};
struct LogRule : RuleBase {
  static constexpr Fn kernel = Fn::log;
  static constexpr double lo = kTiniest;  // x <= 0 fails
  static cplx complex(cplx z) { return std::log(z); }
  static unsigned cdomain(cplx z) { return complexZero(z); }
};
struct Log10Rule : RuleBase {
  static constexpr Fn kernel = Fn::log10;
  static constexpr double lo = kTiniest;  // x <= 0 fails
  static cplx complex(cplx z) { return std::log10(z); }
  static unsigned cdomain(cplx z) { return complexZero(z); }
};
struct Log2Rule : RuleBase {
  static constexpr Fn kernel = Fn::log2;
  static constexpr double lo = kTiniest;  // x <= 0 fails
  static cplx complex(cplx z) { return std::log(z) * kInvLn2; }
  static unsigned cdomain(cplx z) { return complexZero(z); }
};
struct RoundRule : RuleBase {
  static double real(double x) { return qvmath::round(x); }
  static cplx complex(cplx z) { return qvmath::round(z); }
};
struct CeilRule : RuleBase {
  static double real(double x) { return std::ceil(x); }
  static cplx complex(cplx z) { return qvmath::ceil(z); }
};
struct FloorRule : RuleBase {
  static double real(double x) { return std::floor(x); }
  static cplx complex(cplx z) { return qvmath::floor(z); }
};
struct FixRule : RuleBase {
  static double real(double x) { return qvmath::fix(x); }
  static cplx complex(cplx z) { return qvmath::fix(z); }
};
struct AcosRule : RuleBase {
  static constexpr Fn kernel = Fn::acos;
  static constexpr double lo = -1.0, hi = 1.0;
  static cplx complex(cplx z) { return std::acos(z); }
};
struct AcotRule : RuleBase {
  static constexpr Fn kernel = Fn::atan;
  static cplx complex(cplx z) { return std::atan(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AcscRule : RuleBase {
  static constexpr Fn kernel = Fn::asin;
  static constexpr double lo = -1.0, hi = 1.0;
  static cplx complex(cplx z) { return std::asin(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AsecRule : RuleBase {
  static constexpr Fn kernel = Fn::acos;
  static constexpr double lo = -1.0, hi = 1.0;
  static cplx complex(cplx z) { return std::acos(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AsinRule : RuleBase {
  static constexpr Fn kernel = Fn::asin;
  static constexpr double lo = -1.0, hi = 1.0;
  static cplx complex(cplx z) { return std::asin(z); }
};
struct AtanRule : RuleBase {
  static constexpr Fn kernel = Fn::atan;
  static cplx complex(cplx z) { return std::atan(z); }
};
struct CosRule : RuleBase {
  static constexpr Fn kernel = Fn::cos;
  static cplx complex(cplx z) { return std::cos(z); }
};
struct CotRule : RuleBase {
  static constexpr Fn kernel = Fn::tan;
  static cplx complex(cplx z) { return 1.0 / std::tan(z); }
  static constexpr bool recipOut = true;
};
struct CscRule : RuleBase {
  static constexpr Fn kernel = Fn::sin;
  static cplx complex(cplx z) { return 1.0 / std::sin(z); }
  static constexpr bool recipOut = true;
};
struct SecRule : RuleBase {
  static constexpr Fn kernel = Fn::cos;
  static cplx complex(cplx z) { return 1.0 / std::cos(z); }
  static constexpr bool recipOut = true;
};
struct SinRule : RuleBase {
  static constexpr Fn kernel = Fn::sin;
  static cplx complex(cplx z) { return std::sin(z); }
};
struct TanRule : RuleBase {
  static constexpr Fn kernel = Fn::tan;
  static cplx complex(cplx z) { return std::tan(z); }
};
struct AcoshRule : RuleBase {
  static constexpr Fn kernel = Fn::acosh;
  static constexpr double lo = 1.0;
  static cplx complex(cplx z) { return std::acosh(z); }
};
struct AcothRule : RuleBase {
  static constexpr Fn kernel = Fn::atanh;
  static constexpr double lo = -1.0, hi = 1.0;
  static cplx complex(cplx z) { return std::atanh(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AcschRule : RuleBase {
  static constexpr Fn kernel = Fn::asinh;
  static cplx complex(cplx z) { return std::asinh(1.0 / z); }
  static constexpr bool recipIn = true;
};
// asech(x) = acosh(1/x) = log1p((1 - x + sqrt((1 - x)(1 + x))) / x): without
// the rounding of 1/x, which acosh amplifies near 1 (18 ulps by the kernel).
struct AsechRule : RuleBase {
  static double real(double x) {
    const double d = 1.0 - x;
    return x < 0.0 ? std::sqrt(x) : std::log1p((d + std::sqrt(d * (1.0 + x))) / x);
  }
  static constexpr double lo = 0.0, hi = 1.0;
  static cplx complex(cplx z) { return std::acosh(1.0 / z); }
};
struct AsinhRule : RuleBase {
  static constexpr Fn kernel = Fn::asinh;
  static cplx complex(cplx z) { return std::asinh(z); }
};
struct AtanhRule : RuleBase {
  static constexpr Fn kernel = Fn::atanh;
  static constexpr double lo = -1.0, hi = 1.0;
  static cplx complex(cplx z) { return std::atanh(z); }
};
struct CoshRule : RuleBase {
  static constexpr Fn kernel = Fn::cosh;
  static cplx complex(cplx z) { return std::cosh(z); }
};
struct CothRule : RuleBase {
  static constexpr Fn kernel = Fn::tanh;
  static cplx complex(cplx z) { return 1.0 / std::tanh(z); }
  static constexpr bool recipOut = true;
};
struct CschRule : RuleBase {
  static constexpr Fn kernel = Fn::sinh;
  static cplx complex(cplx z) { return 1.0 / std::sinh(z); }
  static constexpr bool recipOut = true;
};
struct SechRule : RuleBase {
  static constexpr Fn kernel = Fn::cosh;
  static cplx complex(cplx z) { return 1.0 / std::cosh(z); }
  static constexpr bool recipOut = true;
};
struct SinhRule : RuleBase {
  static constexpr Fn kernel = Fn::sinh;
  static cplx complex(cplx z) { return std::sinh(z); }
};
struct TanhRule : RuleBase {
  static constexpr Fn kernel = Fn::tanh;
  static cplx complex(cplx z) { return std::tanh(z); }
};
// The unary operators.
struct UPlusRule : RuleBase {
  static double real(double x) { return x; }
  static cplx complex(cplx z) { return z; }
};
struct UMinusRule : RuleBase {
  static double real(double x) { return -x; }
  static cplx complex(cplx z) { return -z; }
};
struct UNotRule : RuleBase {
  static double real(double x) { return x == 0.0 ? 1.0 : 0.0; }
  static cplx complex(cplx z) { return cplx(z == 0.0 ? 1.0 : 0.0); }
};

}  // namespace

#define QV_UNARY_DEFINE(Class, rule)                                         \
  Code Class::operator()(const RS& x) const {                                \
    return evalfun::toCode(realEval<rule>(x.get(), x.get(), 1));             \
  }                                                                          \
  Code Class::operator()(const CS& x) const {                                \
    return evalfun::toCode(complexEval<rule>(x.get(), 1));                   \
  }                                                                          \
  Code Class::operator()(const RA& x, std::size_t n) const {                 \
    return evalfun::toCode(realEval<rule>(x->data, x->data, n));             \
  }                                                                          \
  Code Class::operator()(const CA& x, std::size_t n) const {                 \
    return evalfun::toCode(complexEval<rule>(x->data, n));                   \
  }                                                                          \
  bool Class::evalInto(const double* x, double* w, std::size_t n, unsigned& code) const { \
    code = realEval<rule>(x, w, n);                                          \
    return true;                                                             \
  }

QV_UNARY_DEFINE(SignFun, SignRule)
QV_UNARY_DEFINE(ExpFun, ExpRule)
QV_UNARY_DEFINE(SqrtFun, SqrtRule)
QV_UNARY_DEFINE(ArgFun, ArgRule)
QV_UNARY_DEFINE(AbsFun, AbsRule)
QV_UNARY_DEFINE(RealFun, RealRule)
QV_UNARY_DEFINE(ImagFun, ImagRule)
QV_UNARY_DEFINE(ConjFun, ConjRule)
QV_UNARY_DEFINE(LogFun, LogRule)
QV_UNARY_DEFINE(Log10Fun, Log10Rule)
QV_UNARY_DEFINE(Log2Fun, Log2Rule)
QV_UNARY_DEFINE(RoundFun, RoundRule)
QV_UNARY_DEFINE(CeilFun, CeilRule)
QV_UNARY_DEFINE(FloorFun, FloorRule)
QV_UNARY_DEFINE(FixFun, FixRule)
QV_UNARY_DEFINE(AcosFun, AcosRule)
QV_UNARY_DEFINE(AcotFun, AcotRule)
QV_UNARY_DEFINE(AcscFun, AcscRule)
QV_UNARY_DEFINE(AsecFun, AsecRule)
QV_UNARY_DEFINE(AsinFun, AsinRule)
QV_UNARY_DEFINE(AtanFun, AtanRule)
QV_UNARY_DEFINE(CosFun, CosRule)
QV_UNARY_DEFINE(CotFun, CotRule)
QV_UNARY_DEFINE(CscFun, CscRule)
QV_UNARY_DEFINE(SecFun, SecRule)
QV_UNARY_DEFINE(SinFun, SinRule)
QV_UNARY_DEFINE(TanFun, TanRule)
QV_UNARY_DEFINE(AcoshFun, AcoshRule)
QV_UNARY_DEFINE(AcothFun, AcothRule)
QV_UNARY_DEFINE(AcschFun, AcschRule)
QV_UNARY_DEFINE(AsechFun, AsechRule)
QV_UNARY_DEFINE(AsinhFun, AsinhRule)
QV_UNARY_DEFINE(AtanhFun, AtanhRule)
QV_UNARY_DEFINE(CoshFun, CoshRule)
QV_UNARY_DEFINE(CothFun, CothRule)
QV_UNARY_DEFINE(CschFun, CschRule)
QV_UNARY_DEFINE(SechFun, SechRule)
QV_UNARY_DEFINE(SinhFun, SinhRule)
QV_UNARY_DEFINE(TanhFun, TanhRule)
QV_UNARY_DEFINE(UPlusFun, UPlusRule)
QV_UNARY_DEFINE(UMinusFun, UMinusRule)
QV_UNARY_DEFINE(UNotFun, UNotRule)
#undef QV_UNARY_DEFINE

// The constant power: PowFun's rule with the exponent broadcast.
Code ConstPowFun::operator()(const RS& x) const {
  return evalfun::toCode(evalfun::powArray(x.get(), 0, &exponent_, 0, x.get(), 1));
}
Code ConstPowFun::operator()(const CS& x) const {
  auto [c, v] = evalfun::powComplex(*x, exponent_);
  *x = v;
  return evalfun::toCode(c);
}
Code ConstPowFun::operator()(const RA& x, std::size_t n) const {
  return evalfun::toCode(evalfun::powArray(x->data, 1, &exponent_, 0, x->data, n));
}
bool ConstPowFun::evalInto(const double* x, double* w, std::size_t n, unsigned& code) const {
  code = evalfun::powArray(x, 1, &exponent_, 0, w, n);
  return true;
}
Code ConstPowFun::operator()(const CA& x, std::size_t n) const {
  unsigned code = 0;
  for (std::size_t i = 0; i < n; ++i) {
    auto [c, v] = evalfun::powComplex(x->data[i], exponent_);
    x->data[i] = v;
    code = std::max(code, c);
  }
  return evalfun::toCode(code);
}

std::shared_ptr<qvbase::ErrInfo> ConstPowFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::pow);
  if (code & Failure2) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::pow_zero);
  return {};
}
std::shared_ptr<qvbase::ErrInfo> SqrtFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::sqrt);
  return {};
}
std::shared_ptr<qvbase::ErrInfo> LogFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::log);
  return {};
}
std::shared_ptr<qvbase::ErrInfo> Log10Fun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::log);
  return {};
}
std::shared_ptr<qvbase::ErrInfo> Log2Fun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::log);
  return {};
}

}  // namespace qvarray
