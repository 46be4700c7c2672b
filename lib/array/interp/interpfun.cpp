// InterpFun: batches of points handed to Interpolator::evaluate.
#include "qvarray/interp/interpfun.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "qvarray/expr/nodemaker.h"
#include "qvutil/errors.h"

namespace qvarray {

using Code = FunObj::FunOpCode;

InterpFun::InterpFun(std::string name, std::shared_ptr<const Interpolator> interp,
                     std::size_t fun, int deriv)
    : MultiFunObj(std::move(name), true, true), interp_(std::move(interp)), fun_(fun),
      deriv_(deriv) {
  QV_CHECK(interp_ && fun_ < interp_->functionCount() && deriv_ >= -1 &&
               deriv_ < interp_->dimension(),
           interpolator, Invalid_interpolation_argument,
           "InterpFun needs an interpolator, a function it holds and a derivative index from -1 to D-1.");
}

bool InterpFun::acceptsNArgs(int n) const { return n == interp_->dimension(); }
int InterpFun::getNArgs() const { return interp_->dimension(); }

Code InterpFun::evalPoints(const double* const* coords, const std::size_t* step, std::size_t n,
                           double* out) const {
  const int dim = interp_->dimension();
  // Broadcast scalar coordinates into full columns so evaluate sees n points.
  std::vector<std::vector<double>> cols(dim);
  std::vector<const double*> ptr(dim);
  for (int d = 0; d < dim; ++d) {
    if (step[d] == 1) {
      ptr[d] = coords[d];
    } else {
      cols[d].assign(n, coords[d][0]);
      ptr[d] = cols[d].data();
    }
  }
  try {
    interp_->evaluate(ptr.data(), n, out, fun_, deriv_);
  } catch (const qvbase::Exception&) {
    // Extrapolation refused: a code, never an exception, from an overload.
    return Failure2;
  }
  return Success;
}

Code InterpFun::operator()(const std::vector<RS>& args, std::size_t n) const {
  const int dim = interp_->dimension();
  if (n != static_cast<std::size_t>(dim)) return Failure1;
  std::vector<double> x(dim);
  for (int d = 0; d < dim; ++d) x[d] = *args[d];
  std::vector<const double*> c(dim);
  std::vector<std::size_t> step(dim, 1);
  for (int d = 0; d < dim; ++d) c[d] = &x[d];
  double r = 0;
  Code code = evalPoints(c.data(), step.data(), 1, &r);
  *args[0] = isFailure(code) ? std::numeric_limits<double>::quiet_NaN() : r;
  return code;
}

Code InterpFun::operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const {
  const int dim = interp_->dimension();
  if (m != static_cast<std::size_t>(dim)) return Failure1;
  std::vector<const double*> c(dim);
  std::vector<std::size_t> step(dim, 1);
  for (int d = 0; d < dim; ++d) c[d] = args[d]->data;
  std::vector<double> r(n);
  Code code = evalPoints(c.data(), step.data(), n, r.data());
  if (isFailure(code)) return code;
  for (std::size_t p = 0; p < n; ++p) args[0]->data[p] = r[p];
  return code;
}

// One and two arguments reach the unary and binary forms (the op nodes'
// dispatch); a scalar operand of an array call is broadcast (step 0).
Code InterpFun::operator()(const RS& x) const {
  if (interp_->dimension() != 1) return Failure1;
  const double* c[] = {x.get()};
  const std::size_t step[] = {1};
  double r = 0;
  Code code = evalPoints(c, step, 1, &r);
  *x = isFailure(code) ? std::numeric_limits<double>::quiet_NaN() : r;
  return code;
}
Code InterpFun::operator()(const RA& x, std::size_t n) const {
  if (interp_->dimension() != 1) return Failure1;
  const double* c[] = {x->data};
  const std::size_t step[] = {1};
  std::vector<double> r(n);
  Code code = evalPoints(c, step, n, r.data());
  if (!isFailure(code)) std::copy(r.begin(), r.end(), x->data);
  return code;
}
Code InterpFun::binary(const double* x, bool xArray, const double* y, bool yArray, std::size_t n,
                       double* out) const {
  if (interp_->dimension() != 2) return Failure1;
  const double* c[] = {x, y};
  const std::size_t step[] = {xArray ? 1u : 0u, yArray ? 1u : 0u};
  std::vector<double> r(n);
  Code code = evalPoints(c, step, n, r.data());
  if (!isFailure(code)) std::copy(r.begin(), r.end(), out);
  return code;
}
Code InterpFun::operator()(const RS& x, const RS& y, int which) const {
  double* out = which == 1 ? x.get() : y.get();
  Code code = binary(x.get(), false, y.get(), false, 1, out);
  if (isFailure(code)) *out = std::numeric_limits<double>::quiet_NaN();
  return code;
}
Code InterpFun::operator()(const RA& x, const RA& y, std::size_t n, int which) const {
  return binary(x->data, true, y->data, true, n, which == 1 ? x->data : y->data);
}
Code InterpFun::operator()(const RS& x, const RA& y, std::size_t n, int) const {
  return binary(x.get(), false, y->data, true, n, y->data);
}
Code InterpFun::operator()(const RA& x, const RS& y, std::size_t n, int) const {
  return binary(x->data, true, y.get(), false, n, x->data);
}

Code InterpFun::operator()(const std::vector<CS>&, std::size_t) const { return Failure1; }
Code InterpFun::operator()(const std::vector<CA>&, std::size_t, std::size_t) const {
  return Failure1;
}

EvalNodePtr InterpFun::diffRule(const NodeList& args, int argument, NodeMaker& maker) const {
  if (deriv_ >= 0 || argument < 0 || argument >= interp_->dimension()) return {};
  auto d = std::make_shared<InterpFun>(getName() + "_d" + std::to_string(argument), interp_, fun_,
                                       argument);
  return maker.makeOpNode(FunPtr(d), args);
}

std::shared_ptr<qvbase::ErrInfo> InterpFun::makeError(unsigned code) const {
  if (code & Failure2)
    return errorRecord(qvbase::ErrModule::interpolator,
                       qvbase::ErrKey::Point_outside_interpolation_data);
  return FunObj::makeError(code);
}

}  // namespace qvarray
