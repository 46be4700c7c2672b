// Classes written by the expression compiler: their layout and files, and,
// checked and run in the JVM (ClassCheck: ASM's CheckClassAdapter, javap -v,
// -Xverify:all), every Math-calling and domain-checked operation within 2 ulp
// of eval with the same status, round as Math.round, and a stack-carrying
// chain of continuations. The randomized differential test of whole
// programs is test_exprcomp_jvm.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <limits>

#include "jvm/classcheck.h"
#include "qvarray/expr/exprcomp.h"
#include "qvarray/expr/qvmath.h"
#include "qvtest.h"

namespace {

using qvarray::ExprComp;
using C = ExprComp;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

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

// The class around the program, without the JVM (sanitizer builds too).
TEST(ExprCompClass, ClassLayoutFilesAndRunLog) {
  std::vector<unsigned char> bytes;
  ExprComp::compile("S", "work", bytes, {"y = sqrt(x) * 2"}, {"x"}, {"y"}, true);
  const std::vector<unsigned char> head{0xCA, 0xFE, 0xBA, 0xBE, 0, 0, 0, 46};
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 8), head);
  const auto dir = qvtest::scratchDir("qv_exprcomp_file", testing::TempDir());
  std::filesystem::create_directories(dir);
  ExprComp::compile("S", "work", (dir / "S.class").string(), {"y = sqrt(x) * 2"}, {"x"}, {"y"}, true);
  EXPECT_EQ(std::filesystem::file_size(dir / "S.class"), bytes.size());
  std::filesystem::remove_all(dir);
  ExprComp c;
  c.parse({"y = x + 1"}, {"x"}, {"y"});
  qvtest::expectThrowKey([&] { c.compile("S", "work", "/nonexistent-dir/S.class", false); },
                         "Cannot_create_native_file");
  EXPECT_EQ(c.timings().at(c.timings().size() - 2).first, "createWork");
  EXPECT_EQ(c.timings().back().first, "compile");
}

// Every operation with the JVM's own Math functions, domain failures included.
TEST(ExprCompClass, TranscendentalAndDomainOperationsInTheJvm) {
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  const char* defs[] = {
      "y = acos(x)", "y = asin(x)", "y = atan(x)", "y = atan2(x, 0.5)", "y = cos(x)",
      "y = cosh(x)", "y = cot(x)",  "y = coth(x)", "y = csc(x)",  "y = csch(x)",
      "y = exp(x)",  "y = log(x)",  "y = log10(x)", "y = log2(x)", "y = sec(x)",
      "y = sech(x)", "y = sin(x)",  "y = sinh(x)", "y = tan(x)",  "y = tanh(x)",
      "y = x^0.75",  "y = sqrt(x)", "y = mod(x, -0.75)", "y = round(x)",
      "y = 1^x",     "y = (-1)^(x/0)"};
  const double xs[] = {0.3, -0.7, 1.0, 2.0, -1.5, kNaN, 0.49999999999999994, -0.0};
  auto dir = qvtest::scratchDir("qv_exprcomp_fun", testing::TempDir());
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
  // A chain whose every value goes straight into the next step, long enough
  // for continuations that carry the stack value.
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
  std::filesystem::remove_all(dir);
  ASSERT_EQ(runs.size(), comps.size() + 1) << "the JVM did not run";
  std::vector<double> want;
  chain.eval({0.25}, want);
  ASSERT_EQ(runs.back().calls.at(0).status, 0) << runs.back().verdict;
  EXPECT_EQ(runs.back().calls.at(0).out.at(0), want.at(0));
  for (size_t k = 0; k < comps.size(); ++k) {
    ASSERT_EQ(runs[k].verdict, "ok 1 1") << defs[k];
    for (size_t c = 0; c < std::size(xs); ++c) {
      std::vector<double> out;
      const int status = evalStatus(comps[k], {xs[c]}, out);
      const auto& jvm = runs[k].calls.at(c);
      ASSERT_EQ(jvm.status, status) << defs[k] << " at " << xs[c];
      if (status != 0) continue;
      const double want = std::string(defs[k]) == "y = round(x)" ? qvtest::javaRound(xs[c]) : out[0];
      if (std::isnan(want) || std::isinf(want) || want == 0)
        EXPECT_TRUE(qvtest::sameBits(jvm.out[0], want)) << defs[k] << " at " << xs[c];
      else
        EXPECT_NEAR(jvm.out[0], want, 4.5e-16 * std::fabs(want)) << defs[k] << " at " << xs[c];
    }
  }
}

// sign (written out by parse: operation 48 has no evaluation rule) and abs
// (the sign bit cleared, NaN payloads kept) in eval and in the class, bit for
// bit against formulas of their own.
TEST(ExprCompClass, SignAndAbsBitForBit) {
  ExprComp op48, c;
  op48.addInput(0);
  op48.addDef(1, C::OpSign, 0);
  op48.addOutput(1);
  std::vector<double> out;
  qvtest::expectThrowKey([&] { op48.eval({1.0}, out); }, "Internal_error_symbolic_processing");
  const uint64_t xs[] = {0x8000000000000000, 0, 0xc004000000000000, 0x8000000000000001, 1,
                         0xfff0000000000000, 0x7ff0000000000000, 0xfff8000000000123, 0x7ff8000000000456};
  c.parse({"s = sign(x)", "a = abs(x)"}, {"x"}, {"s", "a"});
  std::vector<unsigned char> bytes;
  c.compile("SignAbs", "work", bytes, false);
  qvtest::ClassCheck check(qvtest::scratchDir("qv_exprcomp_signabs", testing::TempDir()));
  check.addClass("SignAbs", bytes);
  auto bits = [](const std::vector<double>& v) {
    std::vector<uint64_t> b;
    for (double d : v) b.push_back(std::bit_cast<uint64_t>(d));
    return b;
  };
  std::vector<std::vector<uint64_t>> want;
  for (uint64_t b : xs) {
    const double x = std::bit_cast<double>(b);
    want.push_back({std::bit_cast<uint64_t>(x != x ? x : x > 0 ? 1.0 : x < 0 ? -1.0 : 0.0), b << 1 >> 1});
    c.eval({x}, out);
    EXPECT_EQ(bits(out), want.back()) << std::hex << b;
    check.addCall({x});
  }
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  const auto runs = check.run();
  ASSERT_EQ(runs.size(), 1u) << "the JVM did not run";
  for (size_t k = 0; k < std::size(xs); ++k)
    EXPECT_EQ(bits(runs[0].calls.at(k).out), want[k]) << runs[0].verdict << std::hex << xs[k];
}

}  // namespace
