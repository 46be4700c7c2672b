// ValRep arithmetic: function objects applied to whole values.
//
// applyOp, in this order:
//   1. the function object's whole-value hook (evalValues) may answer;
//   2. the first NaN argument is the result (itself when the caller holds it
//      alone, else a clone), so that its error record travels with it;
//   3. likewise the first argument that was never filled (no parts, not zero);
//   4. a zero argument without a real scalar part becomes an explicit scalar 0;
//   5. the arguments are classified (structured, stored complex, nonscalar);
//      a structured value is split into its parts (a one-part argument goes
//      with every part of the other), and each part kind must be accepted by
//      the function object;
//   6. each part is computed by the typed overloads, into storage chosen as:
//        result kind   nonscalar when an argument is, complex storage when an
//                      argument is (real stays real), element count of the
//                      nonscalar argument;
//        in place      into an argument of exactly the result kind that the
//                      caller allows to be overwritten and holds alone (the
//                      value object and every part of it);
//        fresh         otherwise: a real array result is computed out of
//                      place by the function's evalInto, a complex one by the
//                      out-of-place overloads (a scalar is broadcast, nothing
//                      copied); when the
//                      function has no out-of-place form, the argument nearest
//                      the result kind (the array one) is copied into the fresh
//                      part, converted to complex if needed, and the in-place
//                      form writes there. A scalar argument is never made an array.
//   7. a failure bit in the codes makes the result NaN carrying makeError's record.
#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <type_traits>

#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/funobj.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/valrep.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using Complex = std::complex<double>;
using Ptr = ValRep::Ptr;
using RS = FunObj::RS;
using CS = FunObj::CS;
using RA = FunObj::RA;
using CA = FunObj::CA;

// One part of an argument, as the typed overloads take it.
struct Operand {
  bool array = false;
  bool complex = false;
  // The part's entry in its value's list (no reference counting on the way);
  // valid until that list grows.
  const RS* rs = nullptr;
  const CS* cs = nullptr;
  const RA* ra = nullptr;
  const CA* ca = nullptr;
};

Operand partOf(ValRep& v, size_t p) {
  Operand o;
  o.array = !v.isScalar();
  o.complex = v.isStoredAsComplex();
  const size_t i = v.getNEp() == 1 ? 0 : p;
  if (!o.array && !o.complex)
    o.rs = &v.dScalars()[i];
  else if (!o.array)
    o.cs = &v.cScalars()[i];
  else if (!o.complex)
    o.ra = &v.dArrays()[i];
  else
    o.ca = &v.cArrays()[i];
  return o;
}

template <class Fn>
unsigned withOperand(const Operand& o, Fn&& fn) {
  if (!o.array) return o.complex ? fn(*o.cs) : fn(*o.rs);
  return o.complex ? fn(*o.ca) : fn(*o.ra);
}

template <class P>
constexpr bool isArray = std::is_same_v<P, RA> || std::is_same_v<P, CA>;
template <class P>
constexpr bool isComplex = std::is_same_v<P, CS> || std::is_same_v<P, CA>;

// f(x, y, [n,] which): the in-place two-operand forms.
unsigned inPlace(const FunObj& f, const Operand& x, const Operand& y, size_t n, int which) {
  return withOperand(x, [&](const auto& xp) {
    return withOperand(y, [&](const auto& yp) -> unsigned {
      using X = std::decay_t<decltype(xp)>;
      using Y = std::decay_t<decltype(yp)>;
      if constexpr (isArray<X> || isArray<Y>)
        return f(xp, yp, n, which);
      else
        return f(xp, yp, which);
    });
  });
}

// f(x, y, n, w): the out-of-place array forms.
unsigned outOfPlace(const FunObj& f, const Operand& x, const Operand& y, size_t n,
                    const Operand& w) {
  return withOperand(x, [&](const auto& xp) {
    return withOperand(y, [&](const auto& yp) -> unsigned {
      using X = std::decay_t<decltype(xp)>;
      using Y = std::decay_t<decltype(yp)>;
      if constexpr (isArray<X> || isArray<Y>) {
        if constexpr (isComplex<X> || isComplex<Y>)
          return f(xp, yp, n, *w.ca);
        else
          return f(xp, yp, n, *w.ra);
      } else {
        return FunObj::Failure1;  // scalars are computed in place
      }
    });
  });
}

unsigned unary(const FunObj& f, const Operand& x, size_t n) {
  return withOperand(x, [&](const auto& xp) -> unsigned {
    if constexpr (isArray<std::decay_t<decltype(xp)>>)
      return f(xp, n);
    else
      return f(xp);
  });
}

unsigned kindOf(const ValRep& v) {
  return (v.isStoredAsComplex() ? FunObj::StoredComplex : 0u) |
         (v.isScalar() ? 0u : FunObj::Nonscalar);
}

// Real array storage (the one-argument out-of-place form applies).
bool isRealArray(const ValRep& v) { return !v.isScalar() && !v.isStoredAsComplex(); }

bool neverFilled(const ValRep& v) { return v.getNEp() == 0 && !v.isZero() && !v.isNaN(); }

// The argument itself when the caller's pointer is its only owner, else a clone.
Ptr passOn(const Ptr& v) { return v.use_count() == 1 ? v : v->clone(); }

// The caller lets the operation write into v and nobody else can see it.
bool writable(const Ptr& v, bool overwrite) {
  return overwrite && v.use_count() == 1 && v->hasUniqueData() && !v->isZero();
}

// v, or (held in `holder`) an explicit scalar 0 when v is a zero without a
// real scalar part.
const Ptr& explicitZero(const Ptr& v, Ptr& holder) {
  if (!v->isZero() || !v->dScalars().empty()) return v;
  holder = std::make_shared<ValRep>(0.0);
  return holder;
}

Ptr failed(const FunObj& f, unsigned code) {
  Ptr r = ValRep::makeNaN();
  if (auto record = f.makeError(code)) r->setErrors(std::move(record));
  return r;
}

// Appends a fresh part of the result's kind to r holding a copy of operand x
// (converted to complex when r is, broadcast when x is a scalar and r is
// not), and returns it as an operand.
Operand freshCopy(ValRep& r, const Operand& x, size_t n) {
  Operand o;
  o.array = !r.isScalar();
  o.complex = r.isStoredAsComplex();
  if (!o.array) {
    if (o.complex) {
      r.addCScalar(x.complex ? **x.cs : Complex(**x.rs));
      o.cs = &r.cScalars().back();
    } else {
      r.addDScalar(**x.rs);
      o.rs = &r.dScalars().back();
    }
    return o;
  }
  if (!o.complex) {
    double* y = r.addDArray().data;
    if (x.array)
      std::memcpy(y, (*x.ra)->data, n * sizeof(double));
    else
      std::fill(y, y + n, **x.rs);
    o.ra = &r.dArrays().back();
  } else {
    Complex* y = r.addCArray().data;
    if (x.array && x.complex)
      std::memcpy(static_cast<void*>(y), (*x.ca)->data, n * sizeof(Complex));
    else if (x.array)
      for (size_t k = 0; k < n; ++k) y[k] = (*x.ra)->data[k];
    else
      std::fill(y, y + n, x.complex ? **x.cs : Complex(**x.rs));
    o.ca = &r.cArrays().back();
  }
  return o;
}

// An empty fresh part of r's kind (arrays only).
Operand freshArray(ValRep& r) {
  Operand o;
  o.array = true;
  o.complex = r.isStoredAsComplex();
  if (o.complex) {
    r.addCArray();
    o.ca = &r.cArrays().back();
  } else {
    r.addDArray();
    o.ra = &r.dArrays().back();
  }
  return o;
}

// Number of parts of the arguments together: equal counts, or one part
// going with each of the others.
size_t partsOf(const std::vector<const ValRep*>& args) {
  size_t parts = 1;
  for (const ValRep* v : args) {
    const size_t p = v->getNEp();
    if (p == 1) continue;
    QV_ASSERT(parts == 1 || parts == p, evalrep);
    parts = p;
  }
  return parts;
}

// Steps 2 and 3 of every applyOp (the caller's own pointers, so that their
// use counts are the caller's); the answer when one of them gives it.
Ptr shortCut(std::initializer_list<const Ptr*> args) {
  for (const Ptr* v : args)
    if ((*v)->isNaN()) return passOn(*v);
  for (const Ptr* v : args)
    if (neverFilled(**v)) return passOn(*v);
  return nullptr;
}

void setResultFlags(ValRep& r, const FunObj& f, bool anyComplex) {
  r.setComplex(!f.isAlwaysReal() && (anyComplex || !f.isRealIfReal()));
  r.setEvaluated();
}

}  // namespace

ValRep::Ptr ValRep::applyOp(const FunObj& f, const Ptr& a0, bool overwrite) {
  if (Ptr r = f.evalValues({a0}, overwrite)) return r;
  if (Ptr r = shortCut({&a0})) return r;
  Ptr za;
  const Ptr& a = explicitZero(a0, za);
  if (!f.acceptsValKind(kindOf(*a))) return failed(f, FunObj::Failure1);
  const size_t n = a->isScalar() ? 1 : static_cast<size_t>(a->getNEl());
  const size_t parts = a->getNEp();
  const bool inPlaceAll = f.mayWriteIntoArg() && writable(a, overwrite);
  Ptr r = a;
  if (!inPlaceAll) {
    r = std::make_shared<ValRep>(a->getAllocator());
    r->reset(a->isScalar(), a->isStoredAsComplex(), a->getNEl());
  }
  unsigned code = 0;
  bool realInto = !inPlaceAll && isRealArray(*a);
  for (size_t p = 0; p < parts; ++p) {
    const Operand x = partOf(*a, p);
    if (realInto) {
      unsigned c = 0;
      if (f.evalInto((*x.ra)->data, freshArray(*r).ra->get()->data, n, c)) {
        code |= c;
        continue;
      }
      QV_ASSERT(p == 0, evalrep);  // a function has the form for every part or for none
      realInto = false;
      r->reset(a->isScalar(), a->isStoredAsComplex(), a->getNEl());
    }
    const Operand target = inPlaceAll ? x : freshCopy(*r, x, n);
    code |= unary(f, target, n);
  }
  if (FunObj::isFailure(code)) return failed(f, code);
  setResultFlags(*r, f, a->isComplex());
  return r;
}

ValRep::Ptr ValRep::applyOp(const FunObj& f, const Ptr& a0, const Ptr& b0, bool overwrite) {
  if (Ptr r = f.evalValues({a0, b0}, overwrite)) return r;
  if (Ptr r = shortCut({&a0, &b0})) return r;
  Ptr za, zb;
  const Ptr& a = explicitZero(a0, za);
  const Ptr& b = explicitZero(b0, zb);
  if (!f.acceptsValKind(kindOf(*a)) || !f.acceptsValKind(kindOf(*b)))
    return failed(f, FunObj::Failure1);

  const bool scalar = a->isScalar() && b->isScalar();
  const bool complex = a->isStoredAsComplex() || b->isStoredAsComplex();
  if (!a->isScalar() && !b->isScalar()) QV_ASSERT(a->getNEl() == b->getNEl(), evalrep);
  const uint64_t nEl = scalar          ? std::max(a->getNEl(), b->getNEl())
                       : a->isScalar() ? b->getNEl()
                                       : a->getNEl();
  const size_t n = scalar ? 1 : static_cast<size_t>(nEl);
  const size_t parts = partsOf({a.get(), b.get()});
  auto ofResultKind = [&](const Ptr& v) {
    return v->isScalar() == scalar && v->isStoredAsComplex() == complex && v->getNEp() == parts;
  };

  // In place: the whole result goes into a or b.
  int which = 0;
  if (f.mayWriteIntoArg()) {
    if (ofResultKind(a) && writable(a, overwrite))
      which = 1;
    else if (ofResultKind(b) && writable(b, overwrite))
      which = 2;
  }
  Ptr r = which == 1 ? a : which == 2 ? b : nullptr;
  if (!r) {
    r = std::make_shared<ValRep>(a->getAllocator() ? a->getAllocator() : b->getAllocator());
    r->reset(scalar, complex, nEl);
  }
  // Fresh parts copy the argument nearest the result kind.
  const bool copyA = a->isStoredAsComplex() == complex && a->isScalar() == scalar;
  const bool copyB = b->isStoredAsComplex() == complex && b->isScalar() == scalar;
  const int copied = copyA ? 1 : copyB ? 2 : a->isScalar() == scalar ? 1 : 2;

  unsigned code = 0;
  bool tryOutOfPlace = !which && !scalar;
  bool realInto = tryOutOfPlace && !complex;
  for (size_t p = 0; p < parts; ++p) {
    const Operand x = partOf(*a, p);
    const Operand y = partOf(*b, p);
    if (which) {
      code |= inPlace(f, x, y, n, which);
      continue;
    }
    if (realInto) {
      unsigned c = 0;
      const double* px = x.array ? (*x.ra)->data : x.rs->get();
      const double* py = y.array ? (*y.ra)->data : y.rs->get();
      if (f.evalInto(px, x.array ? 1 : 0, py, y.array ? 1 : 0, freshArray(*r).ra->get()->data, n, c)) {
        code |= c;
        continue;
      }
      QV_ASSERT(p == 0, evalrep);  // a function has the form for every part or for none
      realInto = false;
      r->reset(scalar, complex, nEl);
    }
    if (tryOutOfPlace) {
      const unsigned c = outOfPlace(f, x, y, n, freshArray(*r));
      // A failure on the first part may mean that f has no out-of-place
      // form: that part and the rest then go in place. Later failures are
      // the function's own.
      if (!FunObj::isFailure(c) || p > 0) {
        code |= c;
        continue;
      }
      tryOutOfPlace = false;
      r->reset(scalar, complex, nEl);
    }
    const Operand t = freshCopy(*r, copied == 1 ? x : y, n);
    code |= inPlace(f, copied == 1 ? t : x, copied == 2 ? t : y, n, copied);
  }
  if (FunObj::isFailure(code)) return failed(f, code);
  setResultFlags(*r, f, a->isComplex() || b->isComplex());
  return r;
}

ValRep::Ptr ValRep::applyOp(const FunObj& f, const std::vector<Ptr>& args0, bool overwrite) {
  if (!f.isMulti()) {
    QV_ASSERT(args0.size() == 1 || args0.size() == 2, evalrep);
    return args0.size() == 1 ? applyOp(f, args0[0], overwrite)
                             : applyOp(f, args0[0], args0[1], overwrite);
  }
  if (Ptr r = f.evalValues(args0, overwrite)) return r;
  for (const Ptr& v : args0)
    if (v->isNaN()) return passOn(v);
  for (const Ptr& v : args0)
    if (neverFilled(*v)) return passOn(v);
  QV_ASSERT(!args0.empty(), evalrep);
  std::vector<Ptr> args;
  std::vector<const ValRep*> raw;
  bool scalar = true, complex = false, anyComplex = false;
  uint64_t nEl = 1;
  AllocPtr alloc;
  for (const Ptr& v0 : args0) {
    Ptr zero;
    args.push_back(explicitZero(v0, zero));
    const ValRep& v = *args.back();
    if (!f.acceptsValKind(kindOf(v))) return failed(f, FunObj::Failure1);
    raw.push_back(&v);
    if (!v.isScalar()) {
      if (!scalar) QV_ASSERT(v.getNEl() == nEl, evalrep);
      scalar = false;
      nEl = v.getNEl();
    }
    complex = complex || v.isStoredAsComplex();
    anyComplex = anyComplex || v.isComplex();
    if (!alloc) alloc = v.getAllocator();
  }
  // Several-argument forms take one kind: every argument is made of the
  // result's kind; they write into the first entry, always a fresh part.
  if (!alloc && !scalar) alloc = std::make_shared<SerialArrayAllocator>(0, kEnginePoolBudget);
  const size_t parts = partsOf(raw);
  const size_t n = scalar ? 1 : static_cast<size_t>(nEl);
  auto r = std::make_shared<ValRep>(alloc);
  r->reset(scalar, complex, nEl);
  ValRep scratch(alloc);  // converted copies of the other arguments
  scratch.reset(scalar, complex, nEl);
  // Operands point into the lists: no list may grow under them.
  const size_t room = parts * args.size();
  scratch.dScalars().reserve(room);
  scratch.cScalars().reserve(room);
  scratch.reserveDArray(room);
  scratch.reserveCArray(room);
  unsigned code = 0;
  for (size_t p = 0; p < parts; ++p) {
    std::vector<Operand> ops;
    for (size_t i = 0; i < args.size(); ++i) {
      const Operand x = partOf(*args[i], p);
      if (i == 0)
        ops.push_back(freshCopy(*r, x, n));
      else if (x.array == !scalar && x.complex == complex)
        ops.push_back(x);
      else
        ops.push_back(freshCopy(scratch, x, n));
    }
    if (scalar && !complex) {
      std::vector<RS> v;
      for (const Operand& o : ops) v.push_back(*o.rs);
      code |= f(v, ops.size());
    } else if (scalar) {
      std::vector<CS> v;
      for (const Operand& o : ops) v.push_back(*o.cs);
      code |= f(v, ops.size());
    } else if (!complex) {
      std::vector<RA> v;
      for (const Operand& o : ops) v.push_back(*o.ra);
      code |= f(v, n, ops.size());
    } else {
      std::vector<CA> v;
      for (const Operand& o : ops) v.push_back(*o.ca);
      code |= f(v, n, ops.size());
    }
  }
  if (FunObj::isFailure(code)) return failed(f, code);
  setResultFlags(*r, f, anyComplex);
  return r;
}

void ValRep::applyOpPost(const FunObj& f, const Ptr& result) {
  if (result->isNaN() || neverFilled(*result)) return;
  if (result->isZero() && result->dScalars().empty()) {
    result->reset(true, false, result->getNEl());
    result->addDScalar(0.0);
  }
  result->uniquify();
  const size_t n = result->isScalar() ? 1 : static_cast<size_t>(result->getNEl());
  unsigned code = 0;
  for (size_t p = 0; p < result->getNEp(); ++p) code |= unary(f, partOf(*result, p), n);
  if (FunObj::isFailure(code)) {
    result->setNaN();
    if (auto record = f.makeError(code)) result->setErrors(std::move(record));
    return;
  }
  setResultFlags(*result, f, result->isComplex());
}

ValRep::Ptr ValRep::evalUnary(const FunObj& f, const Ptr& a, bool overwrite) {
  Ptr r = applyOp(f, a, overwrite);
  r->setEvaluated();
  return r;
}

ValRep::Ptr ValRep::evalBinary(const FunObj& f, const Ptr& a, const Ptr& b, bool overwrite) {
  Ptr r = applyOp(f, a, b, overwrite);
  r->setEvaluated();
  return r;
}

// ---- shortcuts ---------------------------------------------------------------

namespace {

const PlusFun kPlus;
const MinusFun kMinus;
const MultFun kTimes;
const DivFun kDivide;
const UMinusFun kUMinus;
const SqrtFun kSqrt;

Ptr constant(double c) { return std::make_shared<ValRep>(c); }

}  // namespace

ValRep::Ptr ValRep::plus(const Ptr& a, const Ptr& b, bool overwrite) {
  return applyOp(kPlus, a, b, overwrite);
}
ValRep::Ptr ValRep::plus(const Ptr& a, double c, bool overwrite) {
  return applyOp(kPlus, a, constant(c), overwrite);
}
ValRep::Ptr ValRep::minus(const Ptr& a, const Ptr& b, bool overwrite) {
  return applyOp(kMinus, a, b, overwrite);
}
ValRep::Ptr ValRep::minus(const Ptr& a, double c, bool overwrite) {
  return applyOp(kMinus, a, constant(c), overwrite);
}
ValRep::Ptr ValRep::times(const Ptr& a, const Ptr& b, bool overwrite) {
  return applyOp(kTimes, a, b, overwrite);
}
ValRep::Ptr ValRep::times(const Ptr& a, double c, bool overwrite) {
  return applyOp(kTimes, a, constant(c), overwrite);
}
ValRep::Ptr ValRep::divide(const Ptr& a, const Ptr& b, bool overwrite) {
  return applyOp(kDivide, a, b, overwrite);
}
ValRep::Ptr ValRep::divide(const Ptr& a, double c, bool overwrite) {
  return applyOp(kDivide, a, constant(c), overwrite);
}
ValRep::Ptr ValRep::uminus(const Ptr& a, bool overwrite) { return applyOp(kUMinus, a, overwrite); }
ValRep::Ptr ValRep::sqrt(const Ptr& a, bool overwrite) { return applyOp(kSqrt, a, overwrite); }

}  // namespace qvarray
