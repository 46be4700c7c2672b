#pragma once
// The core of the complex-argument Bessel functions: the modified Bessel
// functions I_nu(z) and K_nu(z) of a non-negative order in the closed right
// half-plane. Every other cylinder function reduces to this pair
// (besselcomplex.cpp):
//
//   J_nu(z)  = e^{i nu pi/2} I_nu(-iz)              Im z >= 0
//   H1_nu(z) = -(2i/pi) e^{-i nu pi/2} K_nu(-iz)     Im z >= 0
//
// Method, by region of |z| (nu >= 0, Re z >= 0, z != 0; see besselik.cpp):
//   |z| <= 2        I_nu: power series.  K_mu, K_mu+1 (|mu| <= 1/2): Temme's
//                   series; K_nu by forward recurrence.
//   2 < |z| < R     K_mu, K_mu+1: Steed's continued fraction (Temme's CF2);
//                   K_nu by forward recurrence. I_nu from the continued
//                   fraction for I_nu+1/I_nu and the Wronskian
//                   I_nu K_nu+1 + I_nu+1 K_nu = 1/z.
//   |z| >= R        Hankel's asymptotic expansions of K_nu and I_nu, with
//                   R = max(25, nu^2/4) so that the smallest term is
//                   below double precision.
#include <complex>

namespace qvsf::detail {

struct BesselIK {
  std::complex<double> i;  // I_nu(z)
  std::complex<double> k;  // K_nu(z)
};

// Which of the pair a caller needs; the other may be left NaN. Near 0 each
// has its own series; elsewhere I needs K (the Wronskian) but not conversely.
enum class Want { I, K, Both };

// I_nu(z) and K_nu(z) for nu >= 0, Re z >= 0, z != 0 and finite.
BesselIK besselIK(double nu, std::complex<double> z, Want want = Want::Both);

}  // namespace qvsf::detail
