// Classes written by the expression compiler: their layout and files, and,
// checked and run in the JVM (ClassCheck: ASM's CheckClassAdapter, javap -v,
// -Xverify:all), every Math-calling and domain-checked operation within 2 ulp
// of eval with the same status, round as Math.round, and a stack-carrying
// chain of continuations. The randomized differential test of whole
// programs is test_exprcomp_jvm.
#include <gtest/gtest.h>

#include <algorithm>
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

// sign: parsed texts are written out (operation 48 itself has no evaluation
// rule); eval and the class must both give the table's values, bit for bit.
TEST(ExprCompClass, SignThroughParseEvalAndClass) {
  ExprComp op48;
  op48.addInput(0);
  op48.addDef(1, C::OpSign, 0);
  op48.addOutput(1);
  std::vector<double> out;
  qvtest::expectThrowKey([&] { op48.eval({1.0}, out); }, "Internal_error_symbolic_processing");
  const double inf = std::numeric_limits<double>::infinity();
  const double rows[][2] = {{-3, -1}, {-0.0, 0}, {0, 0},     {2.5, 1}, {0x1p-1074, 1},
                            {-inf, -1}, {inf, 1}, {kNaN, kNaN}};
  ExprComp c;
  c.parse({"y = sign(x)", "z = sign(-x)"}, {"x"}, {"y", "z"});
  std::vector<unsigned char> bytes;
  c.compile("Sign", "work", bytes, false);
  qvtest::ClassCheck check(qvtest::scratchDir("qv_exprcomp_sign", testing::TempDir()));
  check.addClass("Sign", bytes);
  for (const auto& r : rows) {
    c.eval({r[0]}, out);
    EXPECT_TRUE(qvtest::sameBits(out.at(1), -r[1] + 0.0)) << r[0];  // +0 for either zero
    EXPECT_TRUE(qvtest::sameBits(out.at(0), r[1])) << r[0];
    check.addCall({r[0]});
  }
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  const auto runs = check.run();
  ASSERT_EQ(runs.size(), 1u) << "the JVM did not run";
  ASSERT_EQ(runs[0].verdict, "ok 1 2");
  for (size_t k = 0; k < std::size(rows); ++k) {
    c.eval({rows[k][0]}, out);
    ASSERT_EQ(runs[0].calls.at(k).out.size(), 2u) << runs[0].calls[k].failure;
    for (size_t o = 0; o < 2; ++o)
      EXPECT_TRUE(qvtest::sameBits(runs[0].calls[k].out[o], out[o])) << rows[k][0] << " output " << o;
  }
}

// abs is the sign bit cleared, payloads of NaNs kept: eval and the class
// against the mask, bit for bit; the class calls Math.abs (no branch).
TEST(ExprCompClass, AbsClearsTheSignBitOnly) {
  const uint64_t bits[] = {0x8000000000000000, 0, 0xc004000000000000, 0x8000000000000001,
                           0xfff0000000000000, 0xfff8000000000123, 0x7ff8000000000456};
  ExprComp c;
  c.parse({"y = abs(x)"}, {"x"}, {"y"});
  std::vector<unsigned char> bytes;
  c.compile("Abs", "work", bytes, false);
  const unsigned char absName[] = {1, 0, 3, 'a', 'b', 's'};  // the Utf8 pool entry "abs"
  EXPECT_NE(std::search(bytes.begin(), bytes.end(), std::begin(absName), std::end(absName)), bytes.end());
  qvtest::ClassCheck check(qvtest::scratchDir("qv_exprcomp_abs", testing::TempDir()));
  check.addClass("Abs", bytes);
  std::vector<double> out;
  for (uint64_t b : bits) {
    c.eval({std::bit_cast<double>(b)}, out);
    EXPECT_EQ(std::bit_cast<uint64_t>(out.at(0)), b & ~(uint64_t{1} << 63)) << std::hex << b;
    check.addCall({std::bit_cast<double>(b)});
  }
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  const auto runs = check.run();
  ASSERT_EQ(runs.size(), 1u) << "the JVM did not run";
  for (size_t k = 0; k < std::size(bits); ++k) {
    ASSERT_EQ(runs[0].calls.at(k).out.size(), 1u) << runs[0].verdict << runs[0].calls[k].failure;
    EXPECT_EQ(std::bit_cast<uint64_t>(runs[0].calls[k].out[0]), bits[k] & ~(uint64_t{1} << 63))
        << std::hex << bits[k];
  }
}

}  // namespace
