// Functions written per element (UnFunObjNonVect, BinFunObjNonVect) and the
// generalised sum. A failing scalar becomes NaN; an array keeps every value
// the element function returned and reports the largest code met (the array
// path deliberately does not substitute NaN).
#include "evalfun_elementwise.h"
#include "qvutil/numeric.h"

namespace qvarray {

using evalfun::cplx;
using Code = FunObj::FunOpCode;

namespace {
const cplx kCNaN(::qvGetNaN(), ::qvGetNaN());
}

std::pair<unsigned, cplx> UnFunObjNonVect::evalElem(cplx) const { return {Failure1, kCNaN}; }

Code UnFunObjNonVect::operator()(const RS& x) const {
  auto [c, v] = evalElem(*x);
  *x = c == 0 ? v : ::qvGetNaN();
  return evalfun::toCode(c);
}
Code UnFunObjNonVect::operator()(const CS& x) const {
  auto [c, v] = evalElem(*x);
  *x = c == 0 ? v : kCNaN;
  return evalfun::toCode(c);
}
Code UnFunObjNonVect::operator()(const RA& x, std::size_t n) const {
  unsigned code = 0;
  double* a = x->data;
  for (std::size_t i = 0; i < n; ++i) {
    auto [c, v] = evalElem(a[i]);
    a[i] = v;
    code = std::max(code, c);
  }
  return evalfun::toCode(code);
}
Code UnFunObjNonVect::operator()(const CA& x, std::size_t n) const {
  unsigned code = 0;
  cplx* a = x->data;
  for (std::size_t i = 0; i < n; ++i) {
    auto [c, v] = evalElem(a[i]);
    a[i] = v;
    code = std::max(code, c);
  }
  return evalfun::toCode(code);
}

std::pair<unsigned, cplx> BinFunObjNonVect::evalElem(cplx, cplx) const {
  return {Failure1, kCNaN};
}

namespace {
// The element function in the computing type of the operand pair.
struct Elem {
  const BinFunObjNonVect& f;
  template <class T> auto operator()(T a, T b) const { return f.evalElem(a, b); }
};
// Scalar pair: a failure stores NaN.
template <class X, class Y>
Code scalarPair(const BinFunObjNonVect& f, const X& x, const Y& y, int which) {
  Code c = evalfun::zipInto(x, y, 1, which, Elem{f});
  if (c != 0) {
    if (which == 1)
      evalfun::put(*x, kCNaN);
    else
      evalfun::put(*y, kCNaN);
  }
  return c;
}
}  // namespace

#define QV_NONVECT_ARRAY(X, Y)                                                          \
  Code BinFunObjNonVect::operator()(const X& x, const Y& y, std::size_t n, int which) \
      const {                                                                           \
    return evalfun::zipInto(x, y, n, which, Elem{*this});                               \
  }
QV_NONVECT_ARRAY(CA, CA)
QV_NONVECT_ARRAY(RA, CA)
QV_NONVECT_ARRAY(CA, RA)
QV_NONVECT_ARRAY(RA, RA)
QV_NONVECT_ARRAY(CS, CA)
QV_NONVECT_ARRAY(RS, CA)
QV_NONVECT_ARRAY(CS, RA)
QV_NONVECT_ARRAY(RS, RA)
QV_NONVECT_ARRAY(CA, CS)
QV_NONVECT_ARRAY(RA, CS)
QV_NONVECT_ARRAY(CA, RS)
QV_NONVECT_ARRAY(RA, RS)
#undef QV_NONVECT_ARRAY

Code BinFunObjNonVect::operator()(const CS& x, const CS& y, int which) const {
  return scalarPair(*this, x, y, which);
}
Code BinFunObjNonVect::operator()(const RS& x, const CS& y, int which) const {
  return scalarPair(*this, x, y, which);
}
Code BinFunObjNonVect::operator()(const CS& x, const RS& y, int which) const {
  return scalarPair(*this, x, y, which);
}
Code BinFunObjNonVect::operator()(const RS& x, const RS& y, int which) const {
  return scalarPair(*this, x, y, which);
}

// Generalised sum: args[0] = args[0] + ... + args[m-1].
Code GenAddFun::operator()(const std::vector<RS>& args, std::size_t n) const {
  for (std::size_t k = 1; k < n; ++k) *args[0] += *args[k];
  return Success;
}
Code GenAddFun::operator()(const std::vector<CS>& args, std::size_t n) const {
  for (std::size_t k = 1; k < n; ++k) *args[0] += *args[k];
  return Success;
}
Code GenAddFun::operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const {
  double* out = args[0]->data;
  for (std::size_t k = 1; k < m; ++k) {
    const double* in = args[k]->data;
    for (std::size_t i = 0; i < n; ++i) out[i] += in[i];
  }
  return Success;
}
Code GenAddFun::operator()(const std::vector<CA>& args, std::size_t n, std::size_t m) const {
  cplx* out = args[0]->data;
  for (std::size_t k = 1; k < m; ++k) {
    const cplx* in = args[k]->data;
    for (std::size_t i = 0; i < n; ++i) out[i] += in[i];
  }
  return Success;
}

}  // namespace qvarray
