// The smoothed steps and their derivatives: one polynomial routine gives s(t)
// and every derivative of it.
#include <cmath>

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
