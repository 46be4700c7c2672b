// The smoothed steps and their derivatives: one polynomial routine gives s(t)
// and every derivative of it.
#include <cmath>

#include "defsbuilder.h"
#include "qvarray/expr/smoothsteps.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

// Coefficients of s(t) = sum c[j] t^j, j = 0..7.
constexpr double kCoef[3][8] = {
    {0, 0, 3, -2, 0, 0, 0, 0},          // C1
    {0, 0, 0, 10, -15, 6, 0, 0},        // C2
    {0, 0, 0, 0, 35, -84, 70, -20},     // Smooth
};

// x and w on the real axis, or code 2.
bool realPair(std::complex<double> x, std::complex<double> w, double& xr, double& wr) {
  xr = x.real();
  wr = w.real();
  return x.imag() == 0.0 && w.imag() == 0.0;
}

const std::pair<unsigned, double> kFailed{2u, ::qvGetNaN()};

}  // namespace

double stepPolynomial(StepKind kind, int k, double t) {
  // Horner on the k-th derivative: c[j] j!/(j-k)! t^(j-k).
  const double* c = kCoef[static_cast<int>(kind)];
  double v = 0.0;
  for (int j = 7; j >= k; --j) {
    double f = c[j];
    for (int i = 0; i < k; ++i) f *= j - i;
    v = v * t + f;
  }
  return v;
}

std::pair<unsigned, double> TransPolyFun::evalElem(double x, double w) const {
  if (!(w > 0.0)) return kFailed;
  double t = x / w + 0.5;
  if (t <= 0.0) return {0, lo_};
  if (t >= 1.0) return {0, hi_};
  if (std::isnan(t)) return {0, t};
  return {0, lo_ + (hi_ - lo_) * stepPolynomial(kind_, 0, t)};
}

std::pair<unsigned, std::complex<double>> TransPolyFun::evalElem(std::complex<double> x,
                                                                 std::complex<double> w) const {
  double xr, wr;
  if (!realPair(x, w, xr, wr)) return kFailed;
  return evalElem(xr, wr);
}

std::pair<unsigned, double> DiracPolyFun::evalElem(double x, double w) const {
  if (!(w > 0.0)) return kFailed;
  double t = x / w + 0.5;
  if (t <= 0.0 || t >= 1.0) return {0, 0.0};
  if (std::isnan(t)) return {0, t};
  return {0, (hi_ - lo_) * stepPolynomial(kind_, order_, t) / std::pow(w, order_)};
}

std::pair<unsigned, std::complex<double>> DiracPolyFun::evalElem(std::complex<double> x,
                                                                 std::complex<double> w) const {
  double xr, wr;
  if (!realPair(x, w, xr, wr)) return kFailed;
  return evalElem(xr, wr);
}

// ---------------------------------------------------------------- compiled form

namespace {

// stepPolynomial's Horner loop as definitions, operation for operation.
// While the running value is 0 the steps 0*t + 0 are skipped, and the first
// non-zero coefficient c gives 0*t + c = c (t is finite wherever the value is
// used); later zero coefficients skip "+ 0", which changes nothing since v*t
// is never -0 here (v*t is zero only when v is +0, for t > 0).
int stepPolynomialDefs(DefsBuilder& b, StepKind kind, int k, int t) {
  const double* c = kCoef[static_cast<int>(kind)];
  int v = -1;
  for (int j = 7; j >= k; --j) {
    double f = c[j];
    for (int i = 0; i < k; ++i) f *= j - i;
    if (v < 0) {
      if (f != 0.0 || j == k) v = b.constant(f);
      continue;
    }
    v = b.op(ExprComp::OpMult, {v, t});
    if (f != 0.0) v = b.op(ExprComp::OpPlus, {v, b.constant(f)});
  }
  return v;
}

// w > 0 ? inside : NaN, with t = x/w + 0.5.
struct StepFrame {
  DefsBuilder& b;
  int x, w, t;
  StepFrame(DefsBuilder& builder, const NodeList& args) : b(builder) {
    std::vector<int> v = b.valuesOf(args);
    x = v.at(0);
    w = v.at(1);
    t = b.op(ExprComp::OpPlus, {b.op(ExprComp::OpDiv, {x, w}), b.constant(0.5)});
  }
  int widthChecked(int inside) {
    int ok = b.op(ExprComp::OpGT, {w, b.constant(0.0)});
    return b.op(ExprComp::OpChoice, {ok, inside, b.constant(::qvGetNaN())});
  }
};

}  // namespace

int TransPolyFun::createDefs(const NodeList& args, ExprComp& comp,
                             std::map<int, std::string>& defs, int& counter,
                             const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  StepFrame f(b, args);
  int s = stepPolynomialDefs(b, kind_, 0, f.t);
  int inside = b.op(ExprComp::OpPlus, {b.constant(lo_), b.op(ExprComp::OpMult, {b.constant(hi_ - lo_), s})});
  int upper = b.op(ExprComp::OpChoice,
                   {b.op(ExprComp::OpGE, {f.t, b.constant(1.0)}), b.constant(hi_), inside});
  int value = b.op(ExprComp::OpChoice,
                   {b.op(ExprComp::OpLE, {f.t, b.constant(0.0)}), b.constant(lo_), upper});
  return f.widthChecked(value);
}

// (hi - lo) s^(k)(t) / w^k; w^1 is w exactly, higher orders the power.
int DiracPolyFun::createDefs(const NodeList& args, ExprComp& comp,
                             std::map<int, std::string>& defs, int& counter,
                             const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  StepFrame f(b, args);
  int s = stepPolynomialDefs(b, kind_, order_, f.t);
  int scale = order_ == 1 ? f.w : b.op(ExprComp::OpPow, {f.w, b.constant(order_)});
  int inside = b.op(ExprComp::OpDiv, {b.op(ExprComp::OpMult, {b.constant(hi_ - lo_), s}), scale});
  int outside = b.op(ExprComp::OpOr, {b.op(ExprComp::OpLE, {f.t, b.constant(0.0)}),
                                      b.op(ExprComp::OpGE, {f.t, b.constant(1.0)})});
  return f.widthChecked(b.op(ExprComp::OpChoice, {outside, b.constant(0.0), inside}));
}

FunPtr makeSmoothStep(const std::string& name) {
  struct Entry {
    const char* step;
    const char* dirac;
    double lo, hi;
    StepKind kind;
  };
  static const Entry kSteps[] = {{"qvsmhs", "qvdsmhs", 0, 1, StepKind::Smooth},
                                 {"qvsmsign", "qvdsmsign", -1, 1, StepKind::Smooth},
                                 {"qvc1hs", "qvdc1hs", 0, 1, StepKind::C1},
                                 {"qvc2hs", "qvdc2hs", 0, 1, StepKind::C2}};
  for (const Entry& e : kSteps) {
    if (name == e.step) return std::make_shared<TransPolyFun>(name, e.lo, e.hi, e.kind);
    if (name == e.dirac) return std::make_shared<DiracPolyFun>(name, e.lo, e.hi, e.kind);
  }
  return {};
}

}  // namespace qvarray
