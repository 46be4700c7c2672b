// Special functions per element on qvsf: a NaN from the library for
// arguments that are not NaN becomes code 2.
#include <cmath>

#include "qvarray/expr/sffuns.h"
#include "qvsf/qvsf.h"
#include "qvutil/numeric.h"

namespace qvarray {

using cplx = std::complex<double>;

namespace {

const double kNaN = ::qvGetNaN();

bool isNaN(cplx z) { return std::isnan(z.real()) || std::isnan(z.imag()); }

// Code 2 when the library gave NaN for arguments that are not NaN.
std::pair<unsigned, double> checked(double v, bool argsNaN) {
  return {std::isnan(v) && !argsNaN ? 2u : 0u, v};
}
std::pair<unsigned, cplx> checked(cplx v, bool argsNaN) {
  return {isNaN(v) && !argsNaN ? 2u : 0u, v};
}

const std::pair<unsigned, cplx> kFailed{2u, cplx(kNaN, kNaN)};

}  // namespace

std::pair<unsigned, double> ErfFun::evalElem(double x) const {
  if (std::isnan(x)) return {2u, x};
  return {0u, qvsf::qverf(x)};
}
std::pair<unsigned, cplx> ErfFun::evalElem(cplx z) const {
  if (z.imag() != 0.0) return {4u, cplx(kNaN, kNaN)};
  return evalElem(z.real());
}
std::shared_ptr<qvbase::ErrInfo> ErfFun::makeError(unsigned code) const {
  if (code & Failure1) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::nan);
  if (code & Failure2) return errorRecord(qvbase::ErrModule::evalfun_basic, qvbase::ErrKey::erf);
  return {};
}

std::pair<unsigned, double> GammaFun::evalElem(double x) const {
  return checked(qvsf::qvgamma(x), std::isnan(x));
}
std::pair<unsigned, cplx> GammaFun::evalElem(cplx z) const {
  if (z.imag() == 0.0) return evalElem(z.real());
  return checked(qvsf::qvgamma(z), isNaN(z));
}

std::pair<unsigned, double> PsiFun::evalElem(double order, double x) const {
  if (!(order >= 0.0 && order == std::floor(order) && order <= 1000.0)) return {2u, kNaN};
  return checked(qvsf::qvpsi(static_cast<int>(order), x), std::isnan(x));
}
std::pair<unsigned, cplx> PsiFun::evalElem(cplx order, cplx x) const {
  if (order.imag() != 0.0 || x.imag() != 0.0) return kFailed;
  return evalElem(order.real(), x.real());
}

BesselFun::BesselFun(std::string name) : BinFunObjNonVect(std::move(name)) {
  const std::string& n = getName();
  QV_CHECK(n == "bessel" || n == "besselj" || n == "bessely" || n == "besseli" || n == "besselk",
           evalfun_basic, QUBRIX_assertion_failure, qvbase::DetailPairs{{"Name", n}});
  kind_ = n == "bessely" ? Y : n == "besseli" ? I : n == "besselk" ? K : J;
}

std::pair<unsigned, double> BesselFun::evalElem(double nu, double x) const {
  double v = kind_ == J   ? qvsf::qvbesselj(nu, x)
             : kind_ == Y ? qvsf::qvbessely(nu, x)
             : kind_ == I ? qvsf::qvbesseli(nu, x)
                          : qvsf::qvbesselk(nu, x);
  return checked(v, std::isnan(nu) || std::isnan(x));
}

std::pair<unsigned, cplx> BesselFun::evalElem(cplx nu, cplx z) const {
  if (nu.imag() != 0.0) return kFailed;
  const double n = nu.real();
  cplx v = kind_ == J   ? qvsf::qvbesselj(n, z)
           : kind_ == Y ? qvsf::qvbessely(n, z)
           : kind_ == I ? qvsf::qvbesseli(n, z)
                        : qvsf::qvbesselk(n, z);
  return checked(v, std::isnan(n) || isNaN(z));
}

}  // namespace qvarray
