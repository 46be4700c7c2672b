// Operators: one table of (operator, a, b, value, code) rows, each checked on
// scalars, on arrays, and with either operand broadcast; complex rows the
// same on complex operands; the evaluation protocol and the error records.
#include <cmath>
#include <complex>
#include <limits>
#include <map>
#include <memory>

#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/smoothsteps.h"
#include "qvtest.h"

using namespace qvarray;
using cplx = std::complex<double>;
using Arr = Array<double, 1>;
using CArr = Array<cplx, 1>;

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();
const double Inf = std::numeric_limits<double>::infinity();

std::shared_ptr<BinFunObj> op(const std::string& name) {
  static const std::map<std::string, std::shared_ptr<BinFunObj>> ops = {
      {"+", std::make_shared<PlusFun>()},     {"-", std::make_shared<MinusFun>()},
      {"*", std::make_shared<MultFun>()},     {"/", std::make_shared<DivFun>()},
      {"^", std::make_shared<PowFun>()},      {"plussq", std::make_shared<PlusSqFun>()},
      {"realdot", std::make_shared<RealDotFun>()}, {"<", std::make_shared<LTFun>()},
      {">", std::make_shared<GTFun>()},       {"<=", std::make_shared<LEFun>()},
      {">=", std::make_shared<GEFun>()},      {"==", std::make_shared<EQFun>()},
      {"!=", std::make_shared<NEFun>()},      {"&&", std::make_shared<AndFun>()},
      {"||", std::make_shared<OrFun>()},      {"min", std::make_shared<MinFun>()},
      {"max", std::make_shared<MaxFun>()},    {"mod", std::make_shared<ModFun>()},
      {"atan2", std::make_shared<Atan2Fun>()}};
  return ops.at(name);
}

bool same(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

struct RealRow {
  const char* op;
  double a, b, value;
  unsigned code;
};

// Every rule and edge of the real operators.
const RealRow kRealRows[] = {
    {"+", 1.5, 2.25, 3.75, 0},     {"-", 1.5, 2.25, -0.75, 0},     {"*", -3, 0.5, -1.5, 0},
    {"/", 1, 4, 0.25, 0},          {"/", 1, 0, Inf, 2},            {"/", 0, 0, NaN, 2},
    {"/", -1, 0, -Inf, 2},         {"^", -8, 1.0 / 3, NaN, 2},     {"^", -8, 3, -512, 0},
    {"^", 0, -1, Inf, 4},          {"^", 0, 0, 1, 0},              {"^", NaN, 0, 1, 0},
    {"^", 3, 2, 9, 0},             {"^", -2.5, 1, -2.5, 0},        {"^", 2, 10, 1024, 0},
    {"^", -1, NaN, NaN, 2},        {"plussq", 3, -4, 25, 0},       {"realdot", 3, -4, -12, 0},
    {"<", 1, 2, 1, 0},             {"<", 2, 2, 0, 0},              {"<", NaN, 2, 0, 0},
    {">", 3, 2, 1, 0},             {">", 2, NaN, 0, 0},            {"<=", 2, 2, 1, 0},
    {"<=", NaN, NaN, 0, 0},        {">=", 1, 2, 0, 0},             {">=", 2, 2, 1, 0},
    {"==", 2, 2, 1, 0},            {"==", NaN, NaN, 0, 0},         {"!=", NaN, NaN, 1, 0},
    {"!=", 1, 1, 0, 0},            {"&&", 0, NaN, 0, 0},           {"&&", NaN, 1, 1, 0},
    {"&&", 2, -3, 1, 0},           {"||", NaN, 0, 1, 0},           {"||", 0, 0, 0, 0},
    {"||", 0, -0.0, 0, 0},         {"min", NaN, 3, 3, 0},          {"min", 3, NaN, NaN, 0},
    {"min", -1, 2, -1, 0},         {"max", NaN, 3, 3, 0},          {"max", 3, NaN, NaN, 0},
    {"max", -1, 2, 2, 0},          {"mod", 7, 3, 1, 0},            {"mod", -7, 3, 2, 0},
    {"mod", 7, -3, -2, 0},         {"mod", -7, -3, -1, 0},         {"mod", 5.5, 0, 5.5, 0},
    {"mod", Inf, 3, NaN, 2},       {"mod", NaN, 3, NaN, 0},        {"mod", 7.5, 2, 1.5, 0},
    {"atan2", 1, 1, M_PI / 4, 0},  {"atan2", 0, -1, M_PI, 0},
};

TEST(Operators, RealRulesOnScalarsArraysAndBroadcasts) {
  for (const RealRow& r : kRealRows) {
    SCOPED_TRACE(std::string(r.op) + " " + std::to_string(r.a) + " " + std::to_string(r.b));
    auto f = op(r.op);
    for (int which : {1, 2}) {  // scalars, result in either operand
      auto a = std::make_shared<double>(r.a), b = std::make_shared<double>(r.b);
      EXPECT_EQ((*f)(a, b, which), r.code);
      EXPECT_TRUE(same(which == 1 ? *a : *b, r.value)) << (which == 1 ? *a : *b);
    }
    // Arrays of 5 (the rule in every element), and each side broadcast.
    const std::size_t n = 5;
    auto aa = std::make_shared<Arr>(n), ba = std::make_shared<Arr>(n);
    aa->fill(r.a);
    ba->fill(r.b);
    EXPECT_EQ((*f)(aa, ba, n, 1), r.code);
    auto as = std::make_shared<double>(r.a), bs = std::make_shared<double>(r.b);
    auto bb = std::make_shared<Arr>(n), ab = std::make_shared<Arr>(n);
    bb->fill(r.b);
    ab->fill(r.a);
    EXPECT_EQ((*f)(as, bb, n, 2), r.code);
    EXPECT_EQ((*f)(ab, bs, n, 1), r.code);
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_TRUE(same((*aa)[i], r.value));
      EXPECT_TRUE(same((*bb)[i], r.value));
      EXPECT_TRUE(same((*ab)[i], r.value));
    }
  }
}

TEST(Operators, ComparisonsAndLogicGiveExactlyZeroOrOne) {
  for (const char* name : {"<", ">", "<=", ">=", "==", "!=", "&&", "||"})
    for (double a : {-2.0, 0.0, 1e-300, NaN, Inf})
      for (double b : {-2.0, 0.0, 3.0, NaN}) {
        auto x = std::make_shared<double>(a), y = std::make_shared<double>(b);
        (*op(name))(x, y, 1);
        EXPECT_TRUE(*x == 0.0 || *x == 1.0) << name;
        EXPECT_FALSE(std::signbit(*x));
      }
  UNotFun bang;
  for (auto [x, v] : std::initializer_list<std::pair<double, double>>{
           {NaN, 0.0}, {0.0, 1.0}, {-0.0, 1.0}, {2.0, 0.0}}) {
    auto s = std::make_shared<double>(x);
    EXPECT_EQ(bang(s), 0u);
    EXPECT_EQ(*s, v);
  }
}

// Complex operands: the real rows again with complex storage must agree, and
// the complex rules proper.
struct ComplexRow {
  const char* op;
  cplx a, b, value;
  unsigned code;
};
const ComplexRow kComplexRows[] = {
    {"+", {1, 2}, {3, -1}, {4, 1}, 0},
    {"*", {1, 2}, {3, -1}, {5, 5}, 0},
    {"/", {5, 5}, {3, -1}, {1, 2}, 0},
    {"/", {1, 1}, {0, 0}, {Inf, Inf}, 2},
    {"^", {-8, 0}, {1.0 / 3, 0}, {1, std::sqrt(3.0)}, 0},
    {"^", {1, 1}, {2, 0}, {0, 2}, 0},
    {"<", {1, 5}, {2, -5}, {1, 0}, 0},
    {"==", {1, 5}, {1, -5}, {0, 0}, 0},
    {"!=", {1, 5}, {1, -5}, {1, 0}, 0},
    {"&&", {0, 1}, {2, 0}, {1, 0}, 0},
    {"||", {0, 0}, {0, 0}, {0, 0}, 0},
    {"min", {1, 5}, {2, -5}, {1, 5}, 1},
    {"max", {1, 5}, {2, -5}, {2, -5}, 1},
    {"mod", {5, 3}, {2, 0}, {1, 1}, 0},
    {"mod", {-7, 0}, {3, 0}, {2, 0}, 0},
    {"realdot", {1, 2}, {3, 4}, {11, 0}, 0},
    {"plussq", {0, 1}, {1, 0}, {0, 0}, 0},
};

bool near(cplx a, cplx b) {
  auto close = [](double x, double y) {
    return (std::isnan(x) && std::isnan(y)) || x == y || std::abs(x - y) <= 1e-15 * std::abs(y);
  };
  return close(a.real(), b.real()) && close(a.imag(), b.imag());
}

TEST(Operators, ComplexRulesOnScalarsAndArrays) {
  for (const ComplexRow& r : kComplexRows) {
    SCOPED_TRACE(r.op);
    auto f = op(r.op);
    auto a = std::make_shared<cplx>(r.a), b = std::make_shared<cplx>(r.b);
    EXPECT_EQ((*f)(a, b, 2), r.code);
    EXPECT_TRUE(near(*b, r.value)) << *b;
    const std::size_t n = 3;
    auto aa = std::make_shared<CArr>(n), bb = std::make_shared<CArr>(n);
    aa->fill(r.a);
    bb->fill(r.b);
    auto as = std::make_shared<cplx>(r.a);
    EXPECT_EQ((*f)(aa, bb, n, 1), r.code);
    EXPECT_EQ((*f)(as, bb, n, 2), r.code);
    for (std::size_t i = 0; i < n; ++i) {
      EXPECT_TRUE(near((*aa)[i], r.value));
      EXPECT_TRUE(near((*bb)[i], r.value));
    }
  }
  // Every real row on complex storage gives the real result (bit 1 aside).
  for (const RealRow& r : kRealRows) {
    auto a = std::make_shared<cplx>(r.a), b = std::make_shared<cplx>(r.b);
    unsigned code = (*op(r.op))(a, b, 1);
    SCOPED_TRACE(r.op);
    if (std::string(r.op) == "^") continue;
    EXPECT_EQ(code & ~1u, r.code);
    if (!std::isnan(r.value) && r.code == 0) {
      EXPECT_EQ(*a, cplx(r.value));
    }
  }
}

TEST(Operators, MixedOperandsWriteIntoTheChosenOne) {
  MultFun mult;
  auto r = std::make_shared<double>(2.0);
  auto c = std::make_shared<cplx>(1.0, 3.0);
  EXPECT_EQ(mult(r, c, 2), 1u);  // complex product into the complex operand
  EXPECT_EQ(*c, cplx(2, 6));
  EXPECT_EQ(mult(r, c, 1), 0u);  // into the real one: its real part
  EXPECT_EQ(*r, 4.0);
  // min of a real and a complex: real parts compared, the real one gets imag 0.
  auto ra = std::make_shared<Arr>(2);
  (*ra)[0] = -1;
  (*ra)[1] = 7;
  auto cs = std::make_shared<cplx>(2.0, 5.0);
  auto ca = std::make_shared<CArr>(2);
  MinFun mn;
  PlusFun plus;
  EXPECT_EQ(plus(ra, cs, 2, ca), 1u);  // out of place: W = X + Y
  EXPECT_EQ((*ca)[0], cplx(1, 5));
  EXPECT_EQ(mn(ra, ca, 2, 2), 1u);
  EXPECT_EQ((*ca)[0], cplx(-1, 0));
  EXPECT_EQ((*ca)[1], cplx(7, 0));
  // Zero to an exponent of negative real part.
  auto zero = std::make_shared<cplx>(0.0), e = std::make_shared<cplx>(-1.0, 0.5);
  EXPECT_EQ(PowFun()(zero, e, 1), 4u);
}

// A per-element function: a failing scalar becomes NaN, an array keeps the
// returned values and reports the largest code.
struct Probe : BinFunObjNonVect {
  Probe() : BinFunObjNonVect("probe") {}
  using BinFunObjNonVect::evalElem;
  std::pair<unsigned, double> evalElem(double x, double y) const override {
    return {x < 0 ? (x < -1 ? 4u : 2u) : 0u, x + y};
  }
};

TEST(FunObj, PerElementPathsDiffer) {
  Probe f;
  auto a = std::make_shared<double>(-0.5), b = std::make_shared<double>(1.0);
  EXPECT_EQ(f(a, b, 1), 2u);
  EXPECT_TRUE(std::isnan(*a));
  auto arr = std::make_shared<Arr>(3);
  (*arr)[0] = -0.5;
  (*arr)[1] = -2;
  (*arr)[2] = 3;
  EXPECT_EQ(f(arr, b, 3, 1), 4u);  // the largest code, not the OR
  EXPECT_EQ((*arr)[0], 0.5);
  EXPECT_EQ((*arr)[1], -1.0);
  EXPECT_EQ((*arr)[2], 4.0);
  EXPECT_EQ(f(arr, b, 0, 1), 0u);
  // Complex: not implemented by Probe.
  auto c = std::make_shared<cplx>(1.0);
  EXPECT_EQ(f(c, b, 1), 2u);
}

TEST(FunObj, ProtocolAndBaseResults) {
  MinusFun minus;
  SinFun sine;
  auto x = std::make_shared<Arr>(2), y = std::make_shared<Arr>(2), w = std::make_shared<Arr>(2);
  EXPECT_EQ(minus(x, y, 2, w), 2u);  // out of place: only "+" has it
  auto s = std::make_shared<double>(1.0);
  EXPECT_EQ(minus(s), 2u);           // one-argument form of a two-argument function
  EXPECT_EQ(sine(s, s, 1), 2u);
  EXPECT_EQ(*minus.makeError(2)->find("message"), "funeval");
  EXPECT_FALSE(sine.acceptsNArgs(2));
  EXPECT_TRUE(minus.acceptsNArgs(2));
  EXPECT_EQ(sine.getNArgs(), 1);
  EXPECT_EQ(minus.getNArgs(), 2);
  EXPECT_EQ(OrFun().getName(), "||");
  EXPECT_EQ(UMinusFun().getName(), "U-");
  EXPECT_TRUE(PlusFun().isCommutative() && PlusFun().isInfix());
  EXPECT_TRUE(LTFun().isAlwaysReal() && !LTFun().isCommutative());
  EXPECT_FALSE(PowFun().isRealIfReal());
  EXPECT_TRUE(sine.isFunction() && sine.isBuiltin() && sine.isRedefinable());
  EXPECT_FALSE(sine.canRedefine() || sine.isOperator() || sine.getFunctionForm(1));
  GenAddFun sum("sum");
  std::vector<FunObj::RA> parts = {x, y, w};
  x->fill(1);
  y->fill(2);
  w->fill(4);
  EXPECT_EQ(sum(parts, 2, 3), 0u);
  EXPECT_EQ((*x)[1], 7.0);
}

// Error records and their keys: module, "message", "fun"; raised once each.
struct ErrorRow {
  std::shared_ptr<FunObj> f;
  unsigned code;
  const char* module;
  const char* key;
};

TEST(FunObj, ErrorRecordsAndKeys) {
  const ErrorRow rows[] = {
      {std::make_shared<SinFun>(), 2, "evalfun", "funeval"},
      {std::make_shared<SinFun>(), 0x200, "evalfun", "funeval"},
      {std::make_shared<DivFun>(), 2, "evalfun_binary", "div"},
      {std::make_shared<PowFun>(), 2, "evalfun_binary", "pow"},
      {std::make_shared<PowFun>(), 4, "evalfun_binary", "pow_zero"},
      {std::make_shared<PowFun>(), 6, "evalfun_binary", "pow"},
      {std::make_shared<ConstPowFun>(0.5), 2, "evalfun_basic", "pow"},
      {std::make_shared<ConstPowFun>(-1), 4, "evalfun_basic", "pow_zero"},
      {std::make_shared<SqrtFun>(), 2, "evalfun_basic", "sqrt"},
      {std::make_shared<LogFun>(), 2, "evalfun_basic", "log"},
      {std::make_shared<Log10Fun>(), 2, "evalfun_basic", "log"},
      {std::make_shared<Log2Fun>(), 2, "evalfun_basic", "log"},
      {std::make_shared<ModFun>(), 2, "evalfun_basic", "impl"},
  };
  for (const ErrorRow& r : rows) {
    auto info = r.f->makeError(r.code);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->module(), r.module);
    EXPECT_EQ(*info->find("message"), r.key);
    EXPECT_EQ(*info->find("fun"), r.f->getName());
    qvbase::Exception e = qvtest::expectThrowKey([&] { r.f->raiseError(r.code); }, r.key);
    EXPECT_EQ(e.module(), r.module);
    EXPECT_EQ(*e.detail("fun"), r.f->getName());
  }
  // Own bits only: DivFun has no bit 4; no failure bit, no record.
  EXPECT_FALSE(DivFun().makeError(4));
  EXPECT_FALSE(PowFun().makeError(1));
  EXPECT_FALSE(SinFun().makeError(0));
  SinFun().raiseError(1);  // nothing to raise
}

}  // namespace
