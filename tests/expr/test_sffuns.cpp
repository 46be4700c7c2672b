// Special-function objects: their codes, their error keys, "bessel" as
// besselj, and the complex forms agreeing with the real ones on the real axis
// (the functions' accuracy is qvsf's own test).
#include <cmath>
#include <complex>

#include "qvarray/expr/sffuns.h"
#include "qvtest.h"

using namespace qvarray;
using cplx = std::complex<double>;

namespace {

TEST(SfFuns, CodesAndErrorKeys) {
  ErfFun erf;
  EXPECT_EQ(erf.evalElem(NAN).first, 2u);
  EXPECT_EQ(erf.evalElem(cplx(0.5, 0.1)).first, 4u);
  EXPECT_EQ(erf.evalElem(cplx(0.5)).second, cplx(erf.evalElem(0.5).second));
  EXPECT_NEAR(erf.evalElem(0.5).second, 0.5204998778130465, 1e-16);
  qvtest::expectThrowKey([&] { erf.raiseError(2); }, "nan");
  qvtest::expectThrowKey([&] { erf.raiseError(4); }, "erf");
  EXPECT_EQ(GammaFun().evalElem(-2.0).first, 2u);
  EXPECT_NEAR(GammaFun().evalElem(4.5).second, 11.631728396567448, 1e-14);
  // Gamma(1 + i) = i Gamma(i): the recurrence checks the complex form.
  cplx g1 = GammaFun().evalElem(cplx(1, 1)).second, gi = GammaFun().evalElem(cplx(0, 1)).second;
  EXPECT_LE(std::abs(g1 - cplx(0, 1) * gi), 1e-14 * std::abs(g1));
  PsiFun psi;
  EXPECT_EQ(psi.evalElem(-1.0, 2.0).first, 2u);
  EXPECT_EQ(psi.evalElem(0.5, 2.0).first, 2u);
  EXPECT_NEAR(psi.evalElem(0.0, 1.0).second, -0.5772156649015329, 1e-15);
  EXPECT_NEAR(psi.evalElem(1.0, 1.0).second, M_PI * M_PI / 6, 1e-14);
}

TEST(SfFuns, BesselFamily) {
  BesselFun bessel("bessel"), j("besselj"), y("bessely"), i("besseli"), k("besselk");
  EXPECT_EQ(bessel.kind(), BesselFun::J);
  EXPECT_EQ(bessel.evalElem(1.5, 2.0).second, j.evalElem(1.5, 2.0).second);
  EXPECT_NEAR(j.evalElem(0.0, 1.0).second, 0.7651976865579666, 1e-15);
  // Real evaluation of a complex value fails; the complex one gives it.
  EXPECT_EQ(j.evalElem(0.5, -1.0).first, 2u);
  EXPECT_EQ(y.evalElem(0.0, -1.0).first, 2u);
  EXPECT_EQ(j.evalElem(cplx(0.5), cplx(-1.0)).first, 0u);
  EXPECT_EQ(j.evalElem(cplx(0.5, 1), cplx(1.0)).first, 2u);  // complex order
  for (const BesselFun* f : {&j, &y, &i, &k})
    for (double x : {0.3, 2.0, 17.0}) {
      double r = f->evalElem(1.25, x).second;
      cplx c = f->evalElem(cplx(1.25), cplx(x)).second;
      EXPECT_NEAR(c.real(), r, 1e-12 * std::abs(r)) << f->getName() << " " << x;
      EXPECT_LE(std::abs(c.imag()), 1e-12 * std::abs(r));
    }
  qvtest::expectThrowKey([] { BesselFun("besselh"); }, "QUBRIX_assertion_failure");
}

}  // namespace
