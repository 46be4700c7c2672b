#pragma once
// The special functions of the expression language, per element, on the
// product's special-function library (qvsf). A NaN from the library for
// arguments that are not NaN (outside the domain, a pole) is code 2.
//
//   erf(x)             code 2 ("nan", evalfun_basic) for a NaN argument; a
//                      complex argument off the real axis is code 4 ("erf")
//   gamma(z)           poles (0, -1, -2, ...) are code 2; complex z off the
//                      real axis by qvsf's complex gamma
//   psi(k, x)          the polygamma function of order k = 0, 1, 2, ... (k = 0:
//                      digamma); an order that is not a non-negative integer is
//                      code 2
//   besselj(nu, z), bessely, besseli, besselk: order nu (real), argument real or
//                      complex; "bessel" is besselj. A real argument whose value
//                      is complex (J of x < 0 for non-integer nu, Y and K of
//                      x <= 0) is code 2 in a real evaluation; a complex
//                      evaluation gives the complex value. A complex order is
//                      code 2.
#include "qvarray/expr/funobj.h"

namespace qvarray {

/// Code 2 ("nan") for a NaN argument, code 4 ("erf") for a complex argument
/// off the real axis; module evalfun_basic.
class QVARRAY_API ErfFun : public UnFunObjNonVect {
 public:
  ErfFun() : UnFunObjNonVect("erf") {}
  using UnFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double x) const override;
  std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> x) const override;
  std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const override;
};

class QVARRAY_API GammaFun : public UnFunObjNonVect {
 public:
  GammaFun() : UnFunObjNonVect("gamma") {}
  using UnFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double x) const override;
  std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> x) const override;
};

class QVARRAY_API PsiFun : public BinFunObjNonVect {
 public:
  PsiFun() : BinFunObjNonVect("psi") {}
  using BinFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double order, double x) const override;
  std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> order,
                                                     std::complex<double> x) const override;
};

/// One class for the Bessel family, constructed with its name: "bessel" and
/// "besselj" (first kind), "bessely", "besseli", "besselk".
class QVARRAY_API BesselFun : public BinFunObjNonVect {
 public:
  enum Kind { J, Y, I, K };
  explicit BesselFun(std::string name);
  using BinFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double nu, double x) const override;
  std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> nu,
                                                     std::complex<double> z) const override;
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace qvarray
