// Classes written by the expression compiler, checked and run in the JVM
// (ClassCheck: ASM's CheckClassAdapter, javap -v, -Xverify:all). Oracles: a
// direct evaluation of random definition DAGs in definition order with the
// test's own operation table, in two modes that differ only in round
// (eval's floor(x + 0.5), the JVM's Math.round), bit for bit, statuses
// included; the JVM's transcendental functions within 2 ulp of eval's.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <limits>
#include <random>

#include "jvm/classcheck.h"
#include "qvarray/expr/exprcomp.h"
#include "qvarray/expr/qvmath.h"
#include "qvtest.h"

namespace {

using qvarray::ExprComp;
using C = ExprComp;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Math.round: floor(x + 1/2) taken exactly, NaN -> 0, saturated to the long
// range; then back to double.
double jvmRound(double x) {
  if (std::isnan(x)) return 0.0;
  if (x >= 0x1p63) return 0x1p63;
  if (x <= -0x1p63) return -0x1p63;
  const double f = std::floor(x);
  return (x - f >= 0.5 ? f + 1 : f) + 0.0;  // a long has no -0
}

int statusOf(const std::string& key) {
  if (key == "Log_of_negative") return C::LOG_OF_NEGATIVE;
  if (key == "Sqrt_of_negative") return C::SQRT_OF_NEGATIVE;
  if (key == "Real_argument_out_of_range") return C::OUT_OF_RANGE;
  if (key == "Power_of_negative") return C::POWER_OF_NEGATIVE;
  return 99;
}

// eval's status and outputs (status 0 on success).
int evalStatus(const ExprComp& c, const std::vector<double>& in, std::vector<double>& out) {
  try {
    c.eval(in, out);
    return 0;
  } catch (const qvbase::Exception& e) {
    return statusOf(e.key());
  }
}

bool sameBits(double a, double b) {
  return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b) || (std::isnan(a) && std::isnan(b));
}

// The operations whose JVM code must give eval's bits, by the test's table.
struct ExactOp {
  int op, arity;
  double (*f)(double, double, double, bool jvm);
};
double b(bool v) { return v ? 1.0 : 0.0; }
const ExactOp kExact[] = {
    {C::OpPlus, 2, [](double x, double y, double, bool) { return x + y; }},
    {C::OpMinus, 2, [](double x, double y, double, bool) { return x - y; }},
    {C::OpMult, 2, [](double x, double y, double, bool) { return x * y; }},
    {C::OpDiv, 2, [](double x, double y, double, bool) { return x / y; }},
    {C::OpMin, 2, [](double x, double y, double, bool) { return y >= x ? x : y; }},
    {C::OpMax, 2, [](double x, double y, double, bool) { return x >= y ? x : y; }},
    {C::OpEQ, 2, [](double x, double y, double, bool) { return b(x == y); }},
    {C::OpNE, 2, [](double x, double y, double, bool) { return b(x != y); }},
    {C::OpLT, 2, [](double x, double y, double, bool) { return b(x < y); }},
    {C::OpLE, 2, [](double x, double y, double, bool) { return b(x <= y); }},
    {C::OpGT, 2, [](double x, double y, double, bool) { return b(x > y); }},
    {C::OpGE, 2, [](double x, double y, double, bool) { return b(x >= y); }},
    {C::OpAnd, 2, [](double x, double y, double, bool) { return b(x != 0 && y != 0); }},
    {C::OpOr, 2, [](double x, double y, double, bool) { return b(x != 0 || y != 0); }},
    {C::OpNot, 1, [](double x, double, double, bool) { return b(x == 0); }},
    {C::OpChoice, 3, [](double x, double y, double z, bool) { return x != 0 ? y : z; }},
    {C::OpAbs, 1, [](double x, double, double, bool) { return std::fabs(x); }},
    {C::OpFloor, 1, [](double x, double, double, bool) { return std::floor(x); }},
    {C::OpCeil, 1, [](double x, double, double, bool) { return std::ceil(x); }},
    {C::OpFix, 1, [](double x, double, double, bool) { return std::trunc(x); }},
    {C::OpRound, 1,
     [](double x, double, double, bool jvm) { return jvm ? jvmRound(x) : std::floor(x + 0.5); }},
    {C::OpSq, 1, [](double x, double, double, bool) { return x * x; }},
    {C::OpCube, 1, [](double x, double, double, bool) { return (x * x) * x; }},
    {C::OpPow4, 1, [](double x, double, double, bool) { return ((x * x) * x) * x; }},
    {C::OpUMinus, 1, [](double x, double, double, bool) { return -x; }},
    {C::OpIdentity, 1, [](double x, double, double, bool) { return x; }},
    {C::OpImag, 1, [](double, double, double, bool) { return 0.0; }},
    {C::OpMod, 2, [](double x, double y, double, bool) { return qvmath::mod(x, y); }},
    {C::OpSqrt, 1, [](double x, double, double, bool) { return std::sqrt(x); }},
};

struct Trial {
  ExprComp comp;
  std::vector<std::vector<double>> inputs, evalOut, jvmOut;  // expected, per call
  std::vector<int> evalStatus, jvmStatus;  // expected
};

// Random DAGs over the exact operations; `big` forces continuation methods.
Trial randomTrial(std::mt19937& gen, bool big) {
  const double pool[] = {-2.5, -0.5, -0.0, 0.0, 0.5, 2.5, 3, 0.49999999999999994,
                         4503599627370497.0, 1e19, -7.25, kNaN, 1.5, -1};
  Trial t;
  const int nin = 1 + static_cast<int>(gen() % 4);
  const int ndef = big ? 2500 + static_cast<int>(gen() % 1500) : 1 + static_cast<int>(gen() % 80);
  for (int i = 0; i < nin; ++i) t.comp.addInput(i);
  std::vector<const ExactOp*> defOp;
  std::vector<std::vector<int>> defArgs;
  std::vector<double> consts;
  for (int d = 0; d < ndef; ++d) {
    const int id = nin + d;
    const int window = std::min(id, 12);  // mostly recent values: long chains, short lives
    auto pick = [&] { return gen() % 5 ? id - 1 - static_cast<int>(gen() % window) : static_cast<int>(gen() % id); };
    if (gen() % 10 == 0) {
      const double v = pool[gen() % std::size(pool)];
      t.comp.addDef(id, v);
      defOp.push_back(nullptr);
      defArgs.push_back({});
      consts.push_back(v);
      continue;
    }
    const ExactOp* op = &kExact[gen() % std::size(kExact)];
    std::vector<int> args;
    for (int k = 0; k < op->arity; ++k) args.push_back(pick());
    t.comp.addDef(id, op->op, args);
    defOp.push_back(op);
    defArgs.push_back(args);
    consts.push_back(0);
  }
  std::vector<int> outs;
  for (int k = 0; k < 1 + static_cast<int>(gen() % 4); ++k) {
    outs.push_back(nin + ndef - 1 - static_cast<int>(gen() % std::min(ndef, 20)));
    t.comp.addOutput(outs.back());
  }
  for (int call = 0; call < 4; ++call) {
    std::vector<double> in;
    for (int i = 0; i < nin; ++i) in.push_back(pool[gen() % std::size(pool)]);
    for (bool jvm : {false, true}) {
      std::vector<double> v = in;
      for (int d = 0; d < ndef; ++d) {
        const auto& a = defArgs[static_cast<size_t>(d)];
        const ExactOp* op = defOp[static_cast<size_t>(d)];
        v.push_back(!op ? consts[static_cast<size_t>(d)]
                        : op->f(v[static_cast<size_t>(a[0])], a.size() > 1 ? v[static_cast<size_t>(a[1])] : 0,
                                a.size() > 2 ? v[static_cast<size_t>(a[2])] : 0, jvm));
      }
      std::vector<double> o;
      for (int id : outs) o.push_back(v[static_cast<size_t>(id)]);
      (jvm ? t.jvmOut : t.evalOut).push_back(o);
      // A square root of a negative value that an output needs fails the
      // call (the two modes may differ: round feeds the argument).
      std::vector<char> need(v.size(), 0);
      for (int id : outs) need[static_cast<size_t>(id)] = 1;
      int status = 0;
      for (int d = ndef - 1; d >= 0; --d) {
        const auto& a = defArgs[static_cast<size_t>(d)];
        if (!need[static_cast<size_t>(nin + d)]) continue;
        for (int x : a) need[static_cast<size_t>(x)] = 1;
        const ExactOp* op = defOp[static_cast<size_t>(d)];
        if (op && op->op == C::OpSqrt && v[static_cast<size_t>(a[0])] < 0) status = C::SQRT_OF_NEGATIVE;
      }
      (jvm ? t.jvmStatus : t.evalStatus).push_back(status);
    }
    t.inputs.push_back(in);
  }
  return t;
}

// The class around the program, without the JVM (sanitizer builds too).
TEST(ExprCompClass, ClassLayoutFilesAndRunLog) {
  std::vector<unsigned char> bytes;
  ExprComp::compile("S", "work", bytes, {"y = sqrt(x) * 2"}, {"x"}, {"y"}, true);
  const std::vector<unsigned char> head{0xCA, 0xFE, 0xBA, 0xBE, 0, 0, 0, 46};
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 8), head);
  const auto dir = std::filesystem::path(testing::TempDir()) / "qv_exprcomp_file";
  std::filesystem::create_directories(dir);
  ExprComp::compile("S", "work", (dir / "S.class").string(), {"y = sqrt(x) * 2"}, {"x"}, {"y"}, true);
  EXPECT_EQ(std::filesystem::file_size(dir / "S.class"), bytes.size());
  ExprComp c;
  c.parse({"y = x + 1"}, {"x"}, {"y"});
  qvtest::expectThrowKey([&] { c.compile("S", "work", "/nonexistent-dir/S.class", false); },
                         "Cannot_create_native_file");
  std::mt19937 gen(3);
  Trial t = randomTrial(gen, true);  // continuations
  t.comp.compile("B", "work", bytes, false);
  EXPECT_EQ(t.comp.timings().at(t.comp.timings().size() - 2).first, "createWork");
  EXPECT_EQ(t.comp.timings().back().first, "compile");
}

TEST(ExprCompClass, RandomProgramsInTheJvmMatchEvalAndTheDirectEvaluation) {
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  std::mt19937 gen(11);
  const int count = std::getenv("QV_FULL_RUN") ? 10000 : 60;
  auto dir = std::filesystem::path(testing::TempDir()) / "qv_exprcomp";
  qvtest::ClassCheck check(dir);
  std::vector<Trial> trials;
  for (int k = 0; k < count; ++k) {
    trials.push_back(randomTrial(gen, k % 20 == 7));
    Trial& t = trials.back();
    std::vector<unsigned char> bytes;
    t.comp.compile("R" + std::to_string(k), "work", bytes, k % 10 == 0);
    check.addClass("R" + std::to_string(k), bytes);
    for (const auto& in : t.inputs) check.addCall(in);
  }
  // A chain whose every value goes straight into the next step: the
  // continuations carry the stack value.
  ExprComp chain;
  chain.addInput(0);
  chain.addDef(1, 0.5);
  for (int i = 2; i < 6000; ++i) chain.addDef(i, i % 2 ? C::OpPlus : C::OpMinus, i - 1, i % 3 ? 1 : 0);
  chain.addOutput(5999);
  std::vector<unsigned char> bytes;
  chain.compile("Chain", "work", bytes, false);
  check.addClass("Chain", bytes);
  check.addCall({0.25});
  const auto runs = check.run();
  ASSERT_EQ(runs.size(), trials.size() + 1) << "the JVM did not run";
  std::vector<double> want;
  chain.eval({0.25}, want);
  ASSERT_EQ(runs.back().calls.at(0).status, 0) << runs.back().verdict;
  EXPECT_EQ(runs.back().calls.at(0).out.at(0), want.at(0));
  for (size_t k = 0; k < trials.size(); ++k) {
    Trial& t = trials[k];
    ASSERT_EQ(runs[k].verdict.rfind("ok", 0), 0u) << k << ": " << runs[k].verdict;
    ASSERT_EQ(runs[k].calls.size(), t.inputs.size());
    for (size_t c = 0; c < t.inputs.size(); ++c) {
      const auto& jvm = runs[k].calls[c];
      ASSERT_FALSE(jvm.failed) << jvm.failure;
      std::vector<double> out;
      ASSERT_EQ(evalStatus(t.comp, t.inputs[c], out), t.evalStatus[c]) << k << " " << c;
      ASSERT_EQ(jvm.status, t.jvmStatus[c]) << "trial " << k << " call " << c;
      ASSERT_EQ(jvm.out.size(), t.jvmOut[c].size());
      for (size_t i = 0; i < out.size() && t.evalStatus[c] == 0; ++i)
        EXPECT_TRUE(sameBits(out[i], t.evalOut[c][i])) << k << " " << c << " " << i;
      for (size_t i = 0; i < jvm.out.size() && t.jvmStatus[c] == 0; ++i)
        EXPECT_TRUE(sameBits(jvm.out[i], t.jvmOut[c][i]))
            << k << " " << c << " " << i << ": " << jvm.out[i] << " vs " << t.jvmOut[c][i];
    }
  }
}

// Every operation with the JVM's own Math functions, domain failures included.
TEST(ExprCompClass, TranscendentalAndDomainOperationsInTheJvm) {
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  const char* defs[] = {
      "y = acos(x)", "y = asin(x)", "y = atan(x)", "y = atan2(x, 0.5)", "y = cos(x)",
      "y = cosh(x)", "y = cot(x)",  "y = coth(x)", "y = csc(x)",  "y = csch(x)",
      "y = exp(x)",  "y = log(x)",  "y = log10(x)", "y = log2(x)", "y = sec(x)",
      "y = sech(x)", "y = sin(x)",  "y = sinh(x)", "y = tan(x)",  "y = tanh(x)",
      "y = x^0.75",  "y = sqrt(x)", "y = mod(x, -0.75)", "y = round(x)"};
  const double xs[] = {0.3, -0.7, 1.0, 2.0, -1.5, kNaN, 0.49999999999999994, -0.0};
  auto dir = std::filesystem::path(testing::TempDir()) / "qv_exprcomp_fun";
  qvtest::ClassCheck check(dir);
  std::vector<ExprComp> comps;
  for (size_t k = 0; k < std::size(defs); ++k) {
    comps.emplace_back();
    comps.back().parse({defs[k]}, {"x"}, {"y"});
    std::vector<unsigned char> bytes;
    comps.back().compile("F" + std::to_string(k), "work", bytes, false);
    check.addClass("F" + std::to_string(k), bytes);
    for (double x : xs) check.addCall({x});
  }
  const auto runs = check.run();
  ASSERT_EQ(runs.size(), comps.size()) << "the JVM did not run";
  for (size_t k = 0; k < comps.size(); ++k) {
    ASSERT_EQ(runs[k].verdict, "ok 1 1") << defs[k];
    for (size_t c = 0; c < std::size(xs); ++c) {
      std::vector<double> out;
      const int status = evalStatus(comps[k], {xs[c]}, out);
      const auto& jvm = runs[k].calls.at(c);
      ASSERT_EQ(jvm.status, status) << defs[k] << " at " << xs[c];
      if (status != 0) continue;
      const double want = std::string(defs[k]) == "y = round(x)" ? jvmRound(xs[c]) : out[0];
      if (std::isnan(want) || std::isinf(want) || want == 0)
        EXPECT_TRUE(sameBits(jvm.out[0], want)) << defs[k] << " at " << xs[c];
      else
        EXPECT_NEAR(jvm.out[0], want, 4.5e-16 * std::fabs(want)) << defs[k] << " at " << xs[c];
    }
  }
}

}  // namespace
