#pragma once
// Smoothed steps: f(x, w) goes from `lo` (x <= -w/2) to `hi` (x >= w/2)
// through a polynomial of t = x/w + 1/2 over the width w centred at 0:
//
//   f(x, w) = lo + (hi - lo) s(t),  0 <= t <= 1
//
//   kind    s(t)                               continuous derivatives   names
//   C1      3t^2 - 2t^3                        first                    "qvc1hs"
//   C2      10t^3 - 15t^4 + 6t^5               first, second            "qvc2hs"
//   Smooth  35t^4 - 84t^5 + 70t^6 - 20t^7      first to third           "qvsmhs", "qvsmsign"
//
// ("qvsmsign" runs from -1 to 1, the others from 0 to 1.) Each TransPolyFun
// is paired with the DiracPolyFun of its exact derivative with respect to x,
//   D_k(x, w) = (hi - lo) s^(k)(t) / w^k  inside the width, 0 outside
// (order k = 1 for "qvdsmhs", "qvdsmsign", "qvdc1hs", "qvdc2hs"); both
// evaluate s and its derivatives by one polynomial routine. The derivative
// of D_k with respect to x is D_(k+1) (the same class with order k + 1); the
// partial derivatives with respect to the width are
//   df/dw = -(x/w) D_1,   dD_k/dw = -(x/w) D_(k+1) - (k/w) D_k.
// A width that is not positive (or NaN) gives code 2 and NaN; complex
// arguments are accepted when their imaginary parts are 0, otherwise code 2.
#include "qvarray/expr/funobj.h"

namespace qvarray {

enum class StepKind { C1, C2, Smooth };

/// The k-th derivative of the step polynomial s of `kind` at t (0 <= t <= 1).
QVARRAY_API double stepPolynomial(StepKind kind, int k, double t);

class QVARRAY_API TransPolyFun : public BinFunObjNonVect {
 public:
  TransPolyFun(std::string name, double lo, double hi, StepKind kind)
      : BinFunObjNonVect(std::move(name)), lo_(lo), hi_(hi), kind_(kind) {}
  using BinFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double x, double w) const override;
  std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> x,
                                                     std::complex<double> w) const override;
  /// The compiled step: the same operations in the same order, the cases
  /// chosen by comparisons (a width that is not positive gives NaN).
  int createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                 int& counter, const std::shared_ptr<VarEvaluator>& ev) const override;
  double lower() const { return lo_; }
  double upper() const { return hi_; }
  StepKind kind() const { return kind_; }

 private:
  double lo_, hi_;
  StepKind kind_;
};

class QVARRAY_API DiracPolyFun : public BinFunObjNonVect {
 public:
  DiracPolyFun(std::string name, double lo, double hi, StepKind kind, int order = 1)
      : BinFunObjNonVect(std::move(name)), lo_(lo), hi_(hi), kind_(kind), order_(order) {}
  using BinFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double x, double w) const override;
  std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> x,
                                                     std::complex<double> w) const override;
  /// The compiled derivative, as TransPolyFun's.
  int createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                 int& counter, const std::shared_ptr<VarEvaluator>& ev) const override;
  int order() const { return order_; }

 private:
  double lo_, hi_;
  StepKind kind_;
  int order_;
};

/// The built-in smoothed step or its derivative called `name` ("qvsmhs",
/// "qvdsmhs", "qvsmsign", "qvdsmsign", "qvc1hs", "qvdc1hs", "qvc2hs",
/// "qvdc2hs"); empty for any other name.
QVARRAY_API FunPtr makeSmoothStep(const std::string& name);

}  // namespace qvarray
