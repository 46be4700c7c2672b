// applyOp against a plain model: every combination of scalar/array,
// real/complex, unique/shared operands; a shared operand is never modified;
// the result's storage kind and where it lives; NaN, never-filled and zero
// operands; failure codes; structured values; several arguments; the
// built-in functions' out-of-place real forms against their in-place ones.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "qvarray/expr/arrayallocimpl.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/funobj.h"
#include "qvarray/expr/valrep.h"

using namespace qvarray;
using Complex = std::complex<double>;
using Ptr = ValRep::Ptr;

namespace {

template <class P>
constexpr bool isArrayPtr = std::is_same_v<P, FunObj::RA> || std::is_same_v<P, FunObj::CA>;

template <class P>
auto element(const P& p, size_t k) {
  if constexpr (isArrayPtr<P>)
    return (*p)[k];
  else
    return *p;
}

// A two-operand function from a per-element rule Op(x, y) -> (code, value):
// the in-place forms loop over the rule, and when asked it has the
// out-of-place forms too (their calls counted).
template <class Op>
class TestBin : public BinFunObjNonVect {
 public:
  TestBin(std::string name, bool outOfPlace) : BinFunObjNonVect(std::move(name)), oop_(outOfPlace) {}
  using BinFunObjNonVect::operator();
  std::pair<unsigned, double> evalElem(double x, double y) const override { return Op()(x, y); }
  std::pair<unsigned, Complex> evalElem(Complex x, Complex y) const override { return Op()(x, y); }

#define QV_TEST_OUT_OF_PLACE(X, Y, W) \
  FunOpCode operator()(const X& x, const Y& y, size_t n, const W& w) const override { return into(x, y, n, w); }
  QV_TEST_OUT_OF_PLACE(CA, CA, CA)
  QV_TEST_OUT_OF_PLACE(RA, CA, CA)
  QV_TEST_OUT_OF_PLACE(CA, RA, CA)
  QV_TEST_OUT_OF_PLACE(RA, RA, RA)
  QV_TEST_OUT_OF_PLACE(CS, CA, CA)
  QV_TEST_OUT_OF_PLACE(RS, CA, CA)
  QV_TEST_OUT_OF_PLACE(CS, RA, CA)
  QV_TEST_OUT_OF_PLACE(RS, RA, RA)
  QV_TEST_OUT_OF_PLACE(CA, CS, CA)
  QV_TEST_OUT_OF_PLACE(RA, CS, CA)
  QV_TEST_OUT_OF_PLACE(CA, RS, CA)
  QV_TEST_OUT_OF_PLACE(RA, RS, RA)
#undef QV_TEST_OUT_OF_PLACE

  mutable int outOfPlaceCalls = 0;

 private:
  template <class X, class Y, class W>
  FunOpCode into(const X& x, const Y& y, size_t n, const W& w) const {
    if (!oop_) return Failure1;
    ++outOfPlaceCalls;
    unsigned code = 0;
    for (size_t k = 0; k < n; ++k) {
      const auto [c, v] = Op()(element(x, k), element(y, k));
      code |= c;
      (*w)[k] = v;
    }
    return static_cast<FunOpCode>(code);
  }
  bool oop_;
};

struct Mul {
  template <class X, class Y>
  std::pair<unsigned, decltype(X() * Y())> operator()(X x, Y y) const {
    return {0u, x * y};
  }
};
struct Div {  // code 2 on a zero divisor, as the language's division
  template <class X, class Y>
  std::pair<unsigned, decltype(X() / Y())> operator()(X x, Y y) const {
    return {y == Y(0) ? 2u : 0u, x / y};
  }
};

// sqrt: fails on a negative real number, not on a complex one.
struct TestSqrt : UnFunObjNonVect {
  TestSqrt() : UnFunObjNonVect("sqrt") {}
  std::pair<unsigned, double> evalElem(double x) const override { return {x < 0 ? 2u : 0u, std::sqrt(x)}; }
  std::pair<unsigned, Complex> evalElem(Complex x) const override { return {0u, std::sqrt(x)}; }
};

// The four unstructured kinds, as model values (number k of part 0).
struct Kind {
  bool scalar, complex;
};
constexpr Kind kKinds[] = {{true, false}, {true, true}, {false, false}, {false, true}};
constexpr uint64_t kN = 5;

Complex modelAt(const Kind& kind, int seed, size_t k) {
  const double re = seed + 0.5 * (kind.scalar ? 0 : k) + 1.0;
  return {re, kind.complex ? 0.25 * seed - 0.5 : 0.0};
}

Ptr make(const Kind& kind, int seed, const ValRep::AllocPtr& alloc) {
  auto v = std::make_shared<ValRep>(alloc);
  v->reset(kind.scalar, kind.complex, kN);
  if (kind.scalar && kind.complex)
    v->addCScalar(modelAt(kind, seed, 0));
  else if (kind.scalar)
    v->addDScalar(modelAt(kind, seed, 0).real());
  else if (kind.complex) {
    Complex* y = v->addCArray().data;
    for (size_t k = 0; k < kN; ++k) y[k] = modelAt(kind, seed, k);
  } else {
    double* y = v->addDArray().data;
    for (size_t k = 0; k < kN; ++k) y[k] = modelAt(kind, seed, k).real();
  }
  return v;
}

std::vector<Complex> numbers(const ValRep& v) {
  Array<Complex, 1> out;
  v.copyToArray(out);
  return {out.begin(), out.end()};
}

}  // namespace

// 4 × 4 kinds × (overwrite allowed or not) × (operands also held elsewhere or
// not) × (out-of-place form or not).
TEST(ApplyOp, KindsStorageAndSharing) {
  auto alloc = std::make_shared<SerialArrayAllocator>(8, 100000);
  for (bool oop : {false, true}) {
    const TestBin<Mul> mul("*", oop);
    for (const Kind& ka : kKinds)
      for (const Kind& kb : kKinds)
        for (bool overwrite : {false, true})
          for (bool shared : {false, true}) {
            SCOPED_TRACE(::testing::Message() << ka.scalar << ka.complex << kb.scalar << kb.complex
                                              << overwrite << shared << oop);
            Ptr a = make(ka, 1, alloc), b = make(kb, 2, alloc);
            const Ptr heldA = shared ? a : nullptr, heldB = shared ? b : nullptr;
            const std::vector<Complex> a0 = numbers(*a), b0 = numbers(*b);
            const ValRep* pa = a.get();
            const ValRep* pb = b.get();
            const Ptr r = ValRep::applyOp(mul, a, b, overwrite);
            const bool scalar = ka.scalar && kb.scalar;
            const bool complex = ka.complex || kb.complex;
            EXPECT_EQ(r->isScalar(), scalar);
            EXPECT_EQ(r->isStoredAsComplex(), complex);
            const std::vector<Complex> got = numbers(*r);
            for (size_t k = 0; k < kN; ++k)
              EXPECT_EQ(got[k], modelAt(ka, 1, k) * modelAt(kb, 2, k)) << k;
            // Reuse only of an operand of the result's kind, held alone, with leave.
            const bool reusable = overwrite && !shared;
            const bool aFits = ka.scalar == scalar && ka.complex == complex;
            const bool bFits = kb.scalar == scalar && kb.complex == complex;
            const ValRep* expectIn = reusable && aFits ? pa : reusable && bFits ? pb : nullptr;
            if (expectIn) {
              EXPECT_EQ(r.get(), expectIn);
            } else {
              EXPECT_TRUE(r.get() != pa && r.get() != pb);
            }
            if (r.get() != pa) {
              EXPECT_EQ(numbers(*a), a0);
            }
            if (r.get() != pb) {
              EXPECT_EQ(numbers(*b), b0);
            }
            // Out of place when the function has the form and storage is fresh.
            EXPECT_EQ(mul.outOfPlaceCalls > 0, oop && !scalar && !expectIn);
            mul.outOfPlaceCalls = 0;
          }
  }
}

TEST(ApplyOp, NaNNeverFilledAndZeroOperands) {
  auto alloc = std::make_shared<SerialArrayAllocator>(8, 100000);
  const TestBin<Mul> mul("*", false);
  Ptr x = make(kKinds[2], 1, alloc);
  Ptr nan1 = ValRep::makeNaN(), nan2 = ValRep::makeNaN();
  nan1->getErrors()->add("message", "first");
  // The first NaN wins, as itself when the caller holds it alone.
  Ptr r = ValRep::applyOp(mul, x, nan1, true);
  EXPECT_EQ(r, nan1);
  const Ptr keep = nan2;
  r = ValRep::applyOp(mul, nan2, nan1, true);
  EXPECT_NE(r, nan2);
  EXPECT_TRUE(r->isNaN());
  EXPECT_FALSE(r->hasErrors());
  // Never filled.
  Ptr empty = std::make_shared<ValRep>(alloc);
  EXPECT_EQ(ValRep::applyOp(mul, x, empty, false), empty);
  // A data-less zero becomes an explicit 0.
  r = ValRep::applyOp(mul, ValRep::makeZero(), x, false);
  EXPECT_FALSE(r->isScalar());
  EXPECT_EQ(numbers(*r), std::vector<Complex>(kN, 0.0));
}

TEST(ApplyOp, FailureCodesBecomeErrorRecords) {
  auto alloc = std::make_shared<SerialArrayAllocator>(8, 100000);
  const TestBin<Div> div("/", false);
  Ptr x = make(kKinds[2], 1, alloc);
  Ptr zero = std::make_shared<ValRep>(0.0);
  Ptr r = ValRep::applyOp(div, x, zero, false);
  EXPECT_TRUE(r->isNaN());
  ASSERT_TRUE(r->hasErrors());
  EXPECT_EQ(*r->getErrors()->find("message"), "funeval");
  EXPECT_EQ(*r->getErrors()->find("fun"), "/");
  // sqrt: real stays real and fails on a negative number; complex does not.
  const TestSqrt sqrtFun;
  EXPECT_TRUE(ValRep::applyOp(sqrtFun, std::make_shared<ValRep>(-4.0), true)->isNaN());
  r = ValRep::applyOp(sqrtFun, std::make_shared<ValRep>(Complex(-4.0, 0.0)), true);
  EXPECT_EQ(r->getComplex(), Complex(0.0, 2.0));
  // In place on a value held alone; a copy of a shared one.
  Ptr y = make(kKinds[2], 3, alloc);
  const ValRep* py = y.get();
  EXPECT_EQ(ValRep::applyOp(sqrtFun, y, true).get(), py);
  Ptr z = make(kKinds[2], 3, alloc);
  const Ptr held = z;
  r = ValRep::applyOp(sqrtFun, z, true);
  EXPECT_NE(r, z);
  EXPECT_EQ(r->getDouble(), std::sqrt(z->getDouble()));
}

TEST(ApplyOp, StructuredValuesGoPartByPart) {
  auto alloc = std::make_shared<SerialArrayAllocator>(8, 100000);
  const TestBin<Mul> mul("*", false);
  Ptr s = std::make_shared<ValRep>(alloc);
  s->reset(false, false, 2);
  double* p0 = s->addDArray().data;
  double* p1 = s->addDArray().data;
  p0[0] = 1, p0[1] = 2, p1[0] = 3, p1[1] = 4;
  const Ptr r = ValRep::applyOp(mul, s, std::make_shared<ValRep>(Complex(0, 1)), false);
  EXPECT_EQ(r->getNEp(), 2u);
  EXPECT_EQ(r->toString(), "[(0+1*i), (0+2*i); (0+3*i), (0+4*i)]");
}

// With warm pools, repeated evaluation checks out no new array.
TEST(ApplyOp, WarmPoolsAllocateNothing) {
  auto alloc = std::make_shared<SerialArrayAllocator>(16, 100000);
  const TestBin<Mul> mul("*", false);
  const Ptr a = make(kKinds[2], 1, alloc), b = make(kKinds[3], 2, alloc);
  const double* first = nullptr;
  for (int i = 0; i < 3; ++i) {
    const Ptr r = ValRep::applyOp(mul, ValRep::applyOp(mul, a, b, false), a, true);
    if (!first) first = reinterpret_cast<const double*>(r->getComplexIterator(0));
    EXPECT_EQ(reinterpret_cast<const double*>(r->getComplexIterator(0)), first);
  }
  EXPECT_EQ(alloc->pool().freeBlocks(true), 1u);
}

// The shortcuts with the language's operators, and a sum of several values,
// against the model's arithmetic.
TEST(ApplyOp, ShortcutsAndSeveralArguments) {
  auto alloc = std::make_shared<SerialArrayAllocator>(8, 100000);
  const Ptr a = make(kKinds[2], 1, alloc), z = make(kKinds[1], 2, alloc);
  struct Row {
    const char* name;
    Ptr result;
    std::function<Complex(size_t)> model;
  };
  const Row rows[] = {
      {"plus", ValRep::plus(a, z, false),
       [&](size_t k) { return modelAt(kKinds[2], 1, k) + modelAt(kKinds[1], 2, 0); }},
      {"minus", ValRep::minus(a, 2.0, false),
       [&](size_t k) { return modelAt(kKinds[2], 1, k) - 2.0; }},
      {"times", ValRep::times(z, a, false),
       [&](size_t k) { return modelAt(kKinds[1], 2, 0) * modelAt(kKinds[2], 1, k); }},
      {"divide", ValRep::divide(a, 4.0, false),
       [&](size_t k) { return modelAt(kKinds[2], 1, k) / 4.0; }},
      {"uminus", ValRep::uminus(z, false), [&](size_t) { return -modelAt(kKinds[1], 2, 0); }},
      {"sqrt", ValRep::sqrt(a, false),
       [&](size_t k) { return std::sqrt(modelAt(kKinds[2], 1, k)); }},
      {"sum", ValRep::applyOp(GenAddFun("sum"), {a, z, a}, false),
       [&](size_t k) {
         return modelAt(kKinds[2], 1, k) + modelAt(kKinds[1], 2, 0) + modelAt(kKinds[2], 1, k);
       }},
  };
  for (const Row& row : rows) {
    const std::vector<Complex> got = numbers(*row.result);
    for (size_t k = 0; k < got.size(); ++k) EXPECT_EQ(got[k], row.model(k)) << row.name << k;
  }
  EXPECT_EQ(numbers(*a), numbers(*make(kKinds[2], 1, alloc)));  // never written
  // Failures carry the operator's own record.
  const Ptr q = ValRep::divide(a, 0.0, false);
  EXPECT_EQ(*q->getErrors()->find("message"), "div");
  const Ptr s = ValRep::sqrt(std::make_shared<ValRep>(-1.0), true);
  EXPECT_EQ(*s->getErrors()->find("message"), "sqrt");
}

// The built-in functions' out-of-place real forms (what applyOp uses for an
// operand it may not overwrite) against their in-place overloads: the same
// bits and codes, operands untouched, for arrays and broadcast scalars.
// Operands cover negatives, zeros, NaN and infinities (domain failures).
TEST(ApplyOp, OutOfPlaceRealFormsGiveTheInPlaceBits) {
  const size_t n = 37;  // not a multiple of any vector width
  auto array = [n](unsigned seed) {
    auto a = std::make_shared<Array<double, 1>>(n);
    for (size_t k = 0; k < n; ++k) (*a)[k] = std::sin(1.7 * double(k + seed)) * 3.0;
    (*a)[3] = 0.0, (*a)[5] = -0.0, (*a)[7] = NAN, (*a)[11] = INFINITY, (*a)[13] = -2.0;
    return a;
  };
  auto same = [n](const double* a, const double* b) {
    for (size_t k = 0; k < n; ++k)
      if (std::memcmp(&a[k], &b[k], sizeof(double)) != 0) return false;
    return true;
  };
  const std::shared_ptr<const FunObj> unary[] = {
      std::make_shared<SqrtFun>(),         std::make_shared<SinFun>(),  std::make_shared<ExpFun>(),
      std::make_shared<LogFun>(),          std::make_shared<AcscFun>(), std::make_shared<CotFun>(),
      std::make_shared<UMinusFun>(),       std::make_shared<AbsFun>(),  std::make_shared<ConstPowFun>(2.0),
      std::make_shared<ConstPowFun>(-1.0), std::make_shared<ConstPowFun>(0.0)};
  for (const auto& f : unary) {
    const auto x = array(1), inPlace = std::make_shared<Array<double, 1>>(*x);
    Array<double, 1> w(n);
    unsigned code = 0;
    ASSERT_TRUE(f->evalInto(x->data, w.data, n, code)) << f->getName();
    EXPECT_EQ(code, unsigned((*f)(inPlace, n))) << f->getName();
    EXPECT_TRUE(same(w.data, inPlace->data)) << f->getName();
    EXPECT_TRUE(same(x->data, array(1)->data)) << f->getName();
  }
  const std::shared_ptr<const FunObj> binary[] = {
      std::make_shared<PlusFun>(), std::make_shared<MinusFun>(),   std::make_shared<MultFun>(),
      std::make_shared<DivFun>(),  std::make_shared<PowFun>(),     std::make_shared<GTFun>(),
      std::make_shared<EQFun>(),   std::make_shared<AndFun>(),     std::make_shared<MinFun>(),
      std::make_shared<ModFun>(),  std::make_shared<Atan2Fun>(),   std::make_shared<PlusSqFun>()};
  for (const auto& f : binary)
    for (int shape = 0; shape < 3; ++shape) {  // array-array, scalar-array, array-scalar
      const auto x = array(1), y = array(2);
      auto s = std::make_shared<double>(shape == 1 ? (*x)[0] : (*y)[0]);
      const auto ix = std::make_shared<Array<double, 1>>(*x), iy = std::make_shared<Array<double, 1>>(*y);
      Array<double, 1> w(n);
      unsigned code = 0, want = 0;
      bool done = false;
      if (shape == 0) {
        done = f->evalInto(x->data, 1, y->data, 1, w.data, n, code);
        want = (*f)(ix, iy, n, 1);
      } else if (shape == 1) {
        done = f->evalInto(s.get(), 0, y->data, 1, w.data, n, code);
        want = (*f)(std::make_shared<double>(*s), iy, n, 2);
      } else {
        done = f->evalInto(x->data, 1, s.get(), 0, w.data, n, code);
        want = (*f)(ix, std::make_shared<double>(*s), n, 1);
      }
      ASSERT_TRUE(done) << f->getName();
      EXPECT_EQ(code, want) << f->getName() << " shape " << shape;
      EXPECT_TRUE(same(w.data, (shape == 1 ? iy : ix)->data)) << f->getName() << " shape " << shape;
      EXPECT_TRUE(same(x->data, array(1)->data) && same(y->data, array(2)->data)) << f->getName();
    }
  // A function without the form declines; applyOp then copies (see above).
  unsigned code = 0;
  double v = 1.0, w = 0.0;
  EXPECT_FALSE(TestSqrt().evalInto(&v, &w, 1, code));
}
