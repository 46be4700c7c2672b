// The special-function library against 30-digit mpmath references
// (tests/data/sf, written by tests/sf/make_reference.py) and
// against identities that need no reference.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <fstream>
#include <map>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "qvsf/qvsf.h"
#include "qvutil/numeric.h"

using namespace qvsf;
using cplx = std::complex<double>;

namespace {

std::vector<std::vector<std::string>> readRows(const std::string& file) {
  std::ifstream in(std::string(QV_MATRIX_DIR) + "/sf/" + file);
  EXPECT_TRUE(in.good()) << file;
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    rows.emplace_back();
    for (std::string w; words >> w;) rows.back().push_back(w);
  }
  return rows;
}

double num(const std::string& s) { return qvutil::parseDouble(s); }

}  // namespace

// Relative error per function and region. Near a zero of J or Y only the error
// relative to the envelope min(|H1|, |H2|) is meaningful (on the real axis
// |H1| = |H2| = sqrt(J^2 + Y^2)); for I, near the imaginary axis, the envelope
// is (2/pi)|K|. K and the Hankel functions: plain relative error.
TEST(SpecialComplex, BesselAgreesWithMpmathPerRegion) {
  const char* names[] = {"J", "Y", "I", "K", "H1", "H2"};
  const double bound = 2e-14;
  std::map<std::string, std::map<std::string, double>> worst;
  for (const auto& r : readRows("bessel_complex.txt")) {
    ASSERT_EQ(r.size(), 16u);
    const double nu = num(r[1]);
    const cplx z(num(r[2]), num(r[3]));
    cplx ref[6], got[6] = {qvbesselj(nu, z), qvbessely(nu, z),    qvbesseli(nu, z),
                           qvbesselk(nu, z), qvbesselh(1, nu, z), qvbesselh(2, nu, z)};
    for (int f = 0; f < 6; ++f) ref[f] = {num(r[4 + 2 * f]), num(r[5 + 2 * f])};
    const double envJY = std::min(std::abs(ref[4]), std::abs(ref[5]));
    const double envI = 2.0 / std::numbers::pi * std::abs(ref[3]);
    for (int f = 0; f < 6; ++f) {
      const double scale = std::max(std::abs(ref[f]), f < 2 ? envJY : f == 2 ? envI : 0.0);
      const double err = std::abs(got[f] - ref[f]) / scale;
      double& w = worst[names[f]][r[0]];
      w = std::max(w, err);
      EXPECT_LE(err, bound) << names[f] << " nu=" << nu << " z=" << z << " got " << got[f]
                            << " want " << ref[f];
    }
  }
  for (const auto& [f, regions] : worst)
    for (const auto& [region, err] : regions)
      std::printf("  %-2s %-6s max relative error %.2e\n", f.c_str(), region.c_str(), err);
}

TEST(SpecialReal, AgreesWithMpmath) {
  for (const auto& r : readRows("sf_real.txt")) {
    const std::string& f = r[0];
    const double order = num(r[1]), x = num(r[2]), want = num(r[3]);
    const double got = f == "J"       ? qvbesselj(order, x)
                       : f == "Y"     ? qvbessely(order, x)
                       : f == "I"     ? qvbesseli(order, x)
                       : f == "K"     ? qvbesselk(order, x)
                       : f == "gamma" ? qvgamma(x)
                       : f == "psi"   ? qvpsi(int(order), x)
                                      : qverf(x);
    EXPECT_LE(std::abs(got - want), 1e-13 * std::abs(want))
        << f << "(" << order << ", " << x << ")";
  }
}

// Identities at points that cover every region and both half-planes, with
// orders of both signs: Wronskians, the three-term recurrence, H1 = J + iY,
// and the complex forms on the positive real axis against the real forms.
TEST(SpecialComplex, IdentitiesWithoutReference) {
  const double orders[] = {0.0, 0.5, 1.0, 2.3, -0.7, -3.0, 7.5, -12.25, 18.0};
  const cplx points[] = {{0.3, 0.1}, {1.5, -1.0}, {-1.2, 0.4},   {3.0, 4.0},    {-8.0, -2.0},
                         {0.0, 6.0}, {12.0, 0.5}, {-20.0, 15.0}, {35.0, -10.0}, {0.0, -40.0}};
  const double tol = 1e-12;
  for (double nu : orders)
    for (cplx z : points) {
      const cplx j = qvbesselj(nu, z), j1 = qvbesselj(nu + 1, z), jm = qvbesselj(nu - 1, z);
      const cplx y = qvbessely(nu, z), y1 = qvbessely(nu + 1, z);
      const cplx i = qvbesseli(nu, z), i1 = qvbesseli(nu + 1, z);
      const cplx k = qvbesselk(nu, z), k1 = qvbesselk(nu + 1, z);
      // J_nu+1 Y_nu - J_nu Y_nu+1 = 2/(pi z);  I_nu K_nu+1 + I_nu+1 K_nu = 1/z
      const double sJY = std::abs(j1 * y) + std::abs(j * y1),
                   sIK = std::abs(i * k1) + std::abs(i1 * k);
      EXPECT_LE(std::abs(j1 * y - j * y1 - 2.0 / (std::numbers::pi * z)), tol * sJY)
          << nu << " " << z;
      EXPECT_LE(std::abs(i * k1 + i1 * k - 1.0 / z), tol * sIK) << nu << " " << z;
      // J_nu-1 + J_nu+1 = (2 nu / z) J_nu
      EXPECT_LE(std::abs(jm + j1 - 2.0 * nu / z * j), tol * (std::abs(jm) + std::abs(j1)))
          << nu << z;
      // H1,2 = J +- iY, relative to |J| + |Y|: one of them is exponentially small
      const double sH = std::abs(j) + std::abs(y);
      EXPECT_LE(std::abs(qvbesselh(1, nu, z) - (j + cplx(0, 1) * y)), tol * sH) << nu << z;
      EXPECT_LE(std::abs(qvbesselh(2, nu, z) - (j - cplx(0, 1) * y)), tol * sH) << nu << z;
    }
  for (double nu : orders)
    for (double x : {0.05, 1.0, 2.5, 9.0, 30.0, 120.0}) {
      const cplx c[] = {qvbesselj(nu, cplx(x)), qvbessely(nu, cplx(x)), qvbesseli(nu, cplx(x)),
                        qvbesselk(nu, cplx(x))};
      const double r[] = {qvbesselj(nu, x), qvbessely(nu, x), qvbesseli(nu, x), qvbesselk(nu, x)};
      // J and Y relative to their envelope, as in the reference test.
      const double env = std::hypot(r[0], r[1]);
      for (int f = 0; f < 4; ++f) {
        EXPECT_EQ(c[f].imag(), 0.0);
        EXPECT_LE(std::abs(c[f].real() - r[f]), tol * (f < 2 ? env : std::abs(r[f])))
            << f << " " << nu << " " << x;
      }
    }
}

// Gamma within 1e-13 up to |z| = 30; erf within (|z|^2 + 25) 2e-16, its
// conditioning (e^{-z^2}); polygamma within 2e-14.
TEST(SpecialComplex, GammaErfPsiAgreeWithMpmath) {
  double worstGamma = 0.0, worstErf = 0.0, worstPsi = 0.0;
  for (const auto& r : readRows("sf_complex.txt")) {
    const cplx z(num(r[1]), num(r[2])), want(num(r[3]), num(r[4]));
    if (r[0] == "gamma") {
      worstGamma = std::max(worstGamma, std::abs(qvgamma(z) - want) / std::abs(want));
    } else if (r[0].starts_with("psi")) {
      const int n = r[0][3] - '0';
      worstPsi = std::max(worstPsi, std::abs(qvpsi(n, z) - want) / std::abs(want));
    } else {
      const double err = std::abs(qverf(z) - want) / std::abs(want);
      worstErf = std::max(worstErf, err / (std::norm(z) + 25.0));
      EXPECT_LE(err, 2e-16 * (std::norm(z) + 25.0)) << z;
    }
  }
  std::printf("  complex gamma max relative error %.2e; psi %.2e; erf %.2e (|z|^2 + 25)\n",
              worstGamma, worstPsi, worstErf);
  EXPECT_LE(worstGamma, 1e-13);
  EXPECT_LE(worstPsi, 2e-14);
  EXPECT_EQ(qvgamma(cplx(4.5, 0.0)), cplx(qvgamma(4.5)));
  EXPECT_EQ(qverf(cplx(0.7, 0.0)), cplx(qverf(0.7)));
  EXPECT_EQ(qvpsi(2, cplx(3.5, 0.0)), cplx(qvpsi(2, 3.5)));
  EXPECT_TRUE(std::isnan(qvgamma(cplx(-2.0, 0.0)).real()));
}

// Outside the domain: NaN, never an exception.
TEST(SpecialDomain, NaNOutsideTheDomain) {
  const cplx zero(0.0);
  for (double v :
       {qvbesselj(0.5, -1.0), qvbesseli(-0.5, -2.0), qvbessely(1.0, 0.0), qvbessely(0.0, -1.0),
        qvbesselk(2.0, 0.0), qvbesselk(0.5, -3.0), qvbesselj(-0.5, 0.0), qvgamma(0.0),
        qvgamma(-3.0), qvpsi(-1, 2.0), qvpsi(0, -2.0), qvpsi(3, 0.0), qvbesselj(std::nan(""), 1.0)})
    EXPECT_TRUE(std::isnan(v)) << v;
  for (cplx v : {qvbessely(0.0, zero), qvbesselk(1.0, zero), qvbesselh(1, 0.5, zero),
                 qvbesselh(3, 0.5, cplx(1.0)), qvbesselj(-0.5, zero), qvbesseli(-1.5, zero),
                 qvbesselj(1.0, cplx(INFINITY, 0.0)), qvbesselj(1500.0, cplx(1.0))})
    EXPECT_TRUE(std::isnan(v.real()) && std::isnan(v.imag()));
  // Defined values at zero and on the negative real axis.
  EXPECT_EQ(qvbesselj(0.0, zero), cplx(1.0));
  EXPECT_EQ(qvbesseli(-2.0, zero), cplx(0.0));
  EXPECT_EQ(qvbesselj(3.0, -2.0), -qvbesselj(3.0, 2.0));
  // The negative real axis is seen from above whatever the sign of the zero.
  EXPECT_EQ(qvbesselj(0.5, cplx(-2.0, -0.0)), qvbesselj(0.5, cplx(-2.0, 0.0)));
}
