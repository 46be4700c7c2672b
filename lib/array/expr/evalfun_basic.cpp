// The one-argument functions and operators: each is a Spec (which vector
// kernel or scalar function gives the real value, which arguments are outside
// the real domain, the complex function) and one pair of loops evaluates
// every Spec, over a scalar as over an array.
#include <cmath>
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

// What a function is, as static members (SpecBase gives the defaults):
//   kernel    the vector kernel of the real value (Fn::count: none, use real)
//   real      the real value when there is no kernel
//   domain    the code of a real argument (after 1/x when recipIn)
//   complex   the complex value; cdomain the code of a complex argument
//   recipIn   the kernel is applied to 1/x; recipOut the value is 1/kernel(x)
struct SpecBase {
  static constexpr Fn kernel = Fn::count;
  static double real(double x) { return x; }
  static unsigned domain(double) { return 0; }
  static unsigned cdomain(cplx) { return 0; }
  static constexpr bool recipIn = false;
  static constexpr bool recipOut = false;
};

template <class S>
unsigned realEval(double* a, std::size_t n) {
  unsigned code = 0;
  if constexpr (S::recipIn) {
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) a[i] = 1.0 / a[i];
  }
#pragma omp simd reduction(max : code)
  for (std::size_t i = 0; i < n; ++i) code = std::max(code, S::domain(a[i]));
  if constexpr (S::kernel != Fn::count) {
    vecmath::apply(S::kernel, a, a, n);
  } else {
#pragma omp simd
    for (std::size_t i = 0; i < n; ++i) a[i] = S::real(a[i]);
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

unsigned outsideUnit(double u) { return std::fabs(u) > 1.0 ? 2 : 0; }
unsigned belowOne(double u) { return u < 1.0 ? 2 : 0; }
unsigned negative(double x) { return x < 0.0 ? 2 : 0; }
unsigned notPositive(double x) { return x <= 0.0 ? 2 : 0; }
unsigned complexZero(cplx z) { return z == 0.0 ? 2 : 0; }
constexpr double kInvLn2 = 1.0 / std::numbers::ln2;

struct SignSpec : SpecBase {
  static double real(double x) { return qvmath::sign(x); }
  static cplx complex(cplx z) { return qvmath::sign(z); }
};
struct ExpSpec : SpecBase {
  static constexpr Fn kernel = Fn::exp;
  static cplx complex(cplx z) { return std::exp(z); }
};
struct SqrtSpec : SpecBase {
  static double real(double x) { return std::sqrt(x); }
  static unsigned domain(double u) { return negative(u); }
  static cplx complex(cplx z) { return std::sqrt(z); }
};
struct ArgSpec : SpecBase {
  static double real(double x) { return x < 0.0 ? std::numbers::pi : (x == x ? 0.0 : x); }
  static cplx complex(cplx z) { return cplx(std::arg(z)); }
};
struct AbsSpec : SpecBase {
  static double real(double x) { return std::fabs(x); }
  static cplx complex(cplx z) { return cplx(std::abs(z)); }
};
struct RealSpec : SpecBase {
  static double real(double x) { return x; }
  static cplx complex(cplx z) { return cplx(z.real()); }
};
struct ImagSpec : SpecBase {
  static double real(double) { return 0.0; }
  static cplx complex(cplx z) { return cplx(z.imag()); }
};
struct ConjSpec : SpecBase {
  static double real(double x) { return x; }
  static cplx complex(cplx z) { return std::conj(z); }
};
struct LogSpec : SpecBase {
  static constexpr Fn kernel = Fn::log;
  static unsigned domain(double u) { return notPositive(u); }
  static cplx complex(cplx z) { return std::log(z); }
  static unsigned cdomain(cplx z) { return complexZero(z); }
};
struct Log10Spec : SpecBase {
  static constexpr Fn kernel = Fn::log10;
  static unsigned domain(double u) { return notPositive(u); }
  static cplx complex(cplx z) { return std::log10(z); }
  static unsigned cdomain(cplx z) { return complexZero(z); }
};
struct Log2Spec : SpecBase {
  static constexpr Fn kernel = Fn::log2;
  static unsigned domain(double u) { return notPositive(u); }
  static cplx complex(cplx z) { return std::log(z) * kInvLn2; }
  static unsigned cdomain(cplx z) { return complexZero(z); }
};
struct RoundSpec : SpecBase {
  static double real(double x) { return qvmath::round(x); }
  static cplx complex(cplx z) { return qvmath::round(z); }
};
struct CeilSpec : SpecBase {
  static double real(double x) { return std::ceil(x); }
  static cplx complex(cplx z) { return qvmath::ceil(z); }
};
struct FloorSpec : SpecBase {
  static double real(double x) { return std::floor(x); }
  static cplx complex(cplx z) { return qvmath::floor(z); }
};
struct FixSpec : SpecBase {
  static double real(double x) { return qvmath::fix(x); }
  static cplx complex(cplx z) { return qvmath::fix(z); }
};
struct AcosSpec : SpecBase {
  static constexpr Fn kernel = Fn::acos;
  static unsigned domain(double u) { return outsideUnit(u); }
  static cplx complex(cplx z) { return std::acos(z); }
};
struct AcotSpec : SpecBase {
  static constexpr Fn kernel = Fn::atan;
  static cplx complex(cplx z) { return std::atan(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AcscSpec : SpecBase {
  static constexpr Fn kernel = Fn::asin;
  static unsigned domain(double u) { return outsideUnit(u); }
  static cplx complex(cplx z) { return std::asin(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AsecSpec : SpecBase {
  static constexpr Fn kernel = Fn::acos;
  static unsigned domain(double u) { return outsideUnit(u); }
  static cplx complex(cplx z) { return std::acos(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AsinSpec : SpecBase {
  static constexpr Fn kernel = Fn::asin;
  static unsigned domain(double u) { return outsideUnit(u); }
  static cplx complex(cplx z) { return std::asin(z); }
};
struct AtanSpec : SpecBase {
  static constexpr Fn kernel = Fn::atan;
  static cplx complex(cplx z) { return std::atan(z); }
};
struct CosSpec : SpecBase {
  static constexpr Fn kernel = Fn::cos;
  static cplx complex(cplx z) { return std::cos(z); }
};
struct CotSpec : SpecBase {
  static constexpr Fn kernel = Fn::tan;
  static cplx complex(cplx z) { return 1.0 / std::tan(z); }
  static constexpr bool recipOut = true;
};
struct CscSpec : SpecBase {
  static constexpr Fn kernel = Fn::sin;
  static cplx complex(cplx z) { return 1.0 / std::sin(z); }
  static constexpr bool recipOut = true;
};
struct SecSpec : SpecBase {
  static constexpr Fn kernel = Fn::cos;
  static cplx complex(cplx z) { return 1.0 / std::cos(z); }
  static constexpr bool recipOut = true;
};
struct SinSpec : SpecBase {
  static constexpr Fn kernel = Fn::sin;
  static cplx complex(cplx z) { return std::sin(z); }
};
struct TanSpec : SpecBase {
  static constexpr Fn kernel = Fn::tan;
  static cplx complex(cplx z) { return std::tan(z); }
};
struct AcoshSpec : SpecBase {
  static constexpr Fn kernel = Fn::acosh;
  static unsigned domain(double u) { return belowOne(u); }
  static cplx complex(cplx z) { return std::acosh(z); }
};
struct AcothSpec : SpecBase {
  static constexpr Fn kernel = Fn::atanh;
  static unsigned domain(double u) { return outsideUnit(u); }
  static cplx complex(cplx z) { return std::atanh(1.0 / z); }
  static constexpr bool recipIn = true;
};
struct AcschSpec : SpecBase {
  static constexpr Fn kernel = Fn::asinh;
  static cplx complex(cplx z) { return std::asinh(1.0 / z); }
  static constexpr bool recipIn = true;
};
// asech(x) = acosh(1/x) = log1p((1 - x + sqrt((1 - x)(1 + x))) / x): without
// the rounding of 1/x, which acosh amplifies near 1 (18 ulps by the kernel).
struct AsechSpec : SpecBase {
  static double real(double x) {
    const double d = 1.0 - x;
    return x < 0.0 ? std::sqrt(x) : std::log1p((d + std::sqrt(d * (1.0 + x))) / x);
  }
  static unsigned domain(double x) { return x < 0.0 || x > 1.0 ? 2 : 0; }
  static cplx complex(cplx z) { return std::acosh(1.0 / z); }
};
struct AsinhSpec : SpecBase {
  static constexpr Fn kernel = Fn::asinh;
  static cplx complex(cplx z) { return std::asinh(z); }
};
struct AtanhSpec : SpecBase {
  static constexpr Fn kernel = Fn::atanh;
  static unsigned domain(double u) { return outsideUnit(u); }
  static cplx complex(cplx z) { return std::atanh(z); }
};
struct CoshSpec : SpecBase {
  static constexpr Fn kernel = Fn::cosh;
  static cplx complex(cplx z) { return std::cosh(z); }
};
struct CothSpec : SpecBase {
  static constexpr Fn kernel = Fn::tanh;
  static cplx complex(cplx z) { return 1.0 / std::tanh(z); }
  static constexpr bool recipOut = true;
};
struct CschSpec : SpecBase {
  static constexpr Fn kernel = Fn::sinh;
  static cplx complex(cplx z) { return 1.0 / std::sinh(z); }
  static constexpr bool recipOut = true;
};
struct SechSpec : SpecBase {
  static constexpr Fn kernel = Fn::cosh;
  static cplx complex(cplx z) { return 1.0 / std::cosh(z); }
  static constexpr bool recipOut = true;
};
struct SinhSpec : SpecBase {
  static constexpr Fn kernel = Fn::sinh;
  static cplx complex(cplx z) { return std::sinh(z); }
};
struct TanhSpec : SpecBase {
  static constexpr Fn kernel = Fn::tanh;
  static cplx complex(cplx z) { return std::tanh(z); }
};
// The unary operators.
struct UPlusSpec : SpecBase {
  static double real(double x) { return x; }
  static cplx complex(cplx z) { return z; }
};
struct UMinusSpec : SpecBase {
  static double real(double x) { return -x; }
  static cplx complex(cplx z) { return -z; }
};
struct UNotSpec : SpecBase {
  static double real(double x) { return x == 0.0 ? 1.0 : 0.0; }
  static cplx complex(cplx z) { return cplx(z == 0.0 ? 1.0 : 0.0); }
};

}  // namespace

#define QV_UNARY_DEFINE(Class, spec)                                         \
  Code Class::operator()(const RS& x) const {                                \
    return evalfun::toCode(realEval<spec>(x.get(), 1));                      \
  }                                                                          \
  Code Class::operator()(const CS& x) const {                                \
    return evalfun::toCode(complexEval<spec>(x.get(), 1));                   \
  }                                                                          \
  Code Class::operator()(const RA& x, std::size_t n) const {                 \
    return evalfun::toCode(realEval<spec>(x->data, n));                      \
  }                                                                          \
  Code Class::operator()(const CA& x, std::size_t n) const {                 \
    return evalfun::toCode(complexEval<spec>(x->data, n));                   \
  }

QV_UNARY_DEFINE(SignFun, SignSpec)
QV_UNARY_DEFINE(ExpFun, ExpSpec)
QV_UNARY_DEFINE(SqrtFun, SqrtSpec)
QV_UNARY_DEFINE(ArgFun, ArgSpec)
QV_UNARY_DEFINE(AbsFun, AbsSpec)
QV_UNARY_DEFINE(RealFun, RealSpec)
QV_UNARY_DEFINE(ImagFun, ImagSpec)
QV_UNARY_DEFINE(ConjFun, ConjSpec)
QV_UNARY_DEFINE(LogFun, LogSpec)
QV_UNARY_DEFINE(Log10Fun, Log10Spec)
QV_UNARY_DEFINE(Log2Fun, Log2Spec)
QV_UNARY_DEFINE(RoundFun, RoundSpec)
QV_UNARY_DEFINE(CeilFun, CeilSpec)
QV_UNARY_DEFINE(FloorFun, FloorSpec)
QV_UNARY_DEFINE(FixFun, FixSpec)
QV_UNARY_DEFINE(AcosFun, AcosSpec)
QV_UNARY_DEFINE(AcotFun, AcotSpec)
QV_UNARY_DEFINE(AcscFun, AcscSpec)
QV_UNARY_DEFINE(AsecFun, AsecSpec)
QV_UNARY_DEFINE(AsinFun, AsinSpec)
QV_UNARY_DEFINE(AtanFun, AtanSpec)
QV_UNARY_DEFINE(CosFun, CosSpec)
QV_UNARY_DEFINE(CotFun, CotSpec)
QV_UNARY_DEFINE(CscFun, CscSpec)
QV_UNARY_DEFINE(SecFun, SecSpec)
QV_UNARY_DEFINE(SinFun, SinSpec)
QV_UNARY_DEFINE(TanFun, TanSpec)
QV_UNARY_DEFINE(AcoshFun, AcoshSpec)
QV_UNARY_DEFINE(AcothFun, AcothSpec)
QV_UNARY_DEFINE(AcschFun, AcschSpec)
QV_UNARY_DEFINE(AsechFun, AsechSpec)
QV_UNARY_DEFINE(AsinhFun, AsinhSpec)
QV_UNARY_DEFINE(AtanhFun, AtanhSpec)
QV_UNARY_DEFINE(CoshFun, CoshSpec)
QV_UNARY_DEFINE(CothFun, CothSpec)
QV_UNARY_DEFINE(CschFun, CschSpec)
QV_UNARY_DEFINE(SechFun, SechSpec)
QV_UNARY_DEFINE(SinhFun, SinhSpec)
QV_UNARY_DEFINE(TanhFun, TanhSpec)
QV_UNARY_DEFINE(UPlusFun, UPlusSpec)
QV_UNARY_DEFINE(UMinusFun, UMinusSpec)
QV_UNARY_DEFINE(UNotFun, UNotSpec)
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
