// The expression compiler's passes and in-process evaluation. Oracles: the
// messages as composed texts, values known exactly or in closed form for
// every operation, a direct evaluation of random definition DAGs in
// definition order (no passes) compared bit for bit, and the listing's step
// count for shared subexpressions.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <set>

#include "qvarray/expr/exprcomp.h"
#include "qvtest.h"

namespace {

using qvarray::ExprComp;
using qvtest::expectThrowKey;
using C = ExprComp;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.141592653589793;

// y = op(x0, x1, x2) over inputs x0..x(n-1), evaluated.
double evalOp(int op, std::vector<double> args) {
  ExprComp c;
  std::vector<int> ids;
  for (size_t i = 0; i < args.size(); ++i) {
    c.addInput(static_cast<int>(i));
    ids.push_back(static_cast<int>(i));
  }
  c.addDef(100, op, ids);
  c.addOutput(100);
  std::vector<double> out;
  c.eval(args, out);
  return out.at(0);
}

size_t countLines(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

TEST(ExprComp, PassMessagesAreTheComposedTexts) {
  struct Row {
    const char* what;
    std::function<void(ExprComp&)> build;
    std::string key;
  };
  const std::vector<Row> rows = {
      {"input twice", [](ExprComp& c) { c.setName(1, "u"); c.addInput(1); c.addInput(1); },
       "Duplicate input: u"},
      {"defined twice", [](ExprComp& c) { c.setName(2, "w"); c.addDef(2, 1.0); c.addDef(2, 2.0); },
       "Duplicate definition of w"},
      {"input defined", [](ExprComp& c) { c.addInput(3); c.addDef(3, 1.0); },
       "Duplicate definition of def3"},
      {"eleven undefined",
       [](ExprComp& c) {
         std::vector<int> args;
         for (int i = 0; i < 11; ++i) {
           c.setName(10 + i, "v" + std::to_string(i));
           args.push_back(10 + i);
         }
         c.addDef(1, C::OpPlus, args);
       },
       "Undefined inputs: v0, v1, v2, v3, v4, v5, v6, v7, v8, v9 (1 more)"},
      {"output lacks", [](ExprComp& c) { c.addDef(1, 1.0); c.addOutput(1); c.addOutput(7); },
       "Output #2 lacks definition."},
  };
  for (const Row& r : rows) {
    ExprComp c;
    r.build(c);
    std::vector<double> out;
    expectThrowKey([&] { c.eval({}, out); }, r.key);
  }
  // a = b + 1 and b = a * 2: a cycle found by the sort, named by its number.
  ExprComp c;
  c.parse({"a = b + 1", "b = a * 2"}, {}, {"a"});
  std::vector<double> out;
  const auto e = expectThrowKey([&] { c.eval({}, out); }, "Cyclic dependency for definition #0");
  EXPECT_EQ(e.module(), "exprcomp");
}

TEST(ExprComp, ParseErrors) {
  struct Row {
    std::vector<std::string> defs;
    const char* key;
  };
  const Row rows[] = {
      {{"y = x +"}, "Syntax_error_in_expression"},
      {{"y x + 1"}, "Syntax_error_in_expression"},
      {{"y == x"}, "Syntax_error_in_expression"},
      {{"y = atan2(x)"}, "Syntax_error_in_expression"},
      {{"y = besselj(x)"}, "Unimplemented_operator"},
  };
  for (const Row& r : rows) {
    ExprComp c;
    const auto e = expectThrowKey([&] { c.parse(r.defs, {"x"}, {"y"}); }, r.key);
    if (std::string(r.key) == "Syntax_error_in_expression") {
      EXPECT_EQ(e.detail("Expression"), r.defs[0]);
    }
  }
}

TEST(ExprComp, EveryOperationAgainstKnownValues) {
  struct Row {
    int op;
    std::vector<double> args;
    double want;
  };
  const double e = std::exp(1.0);
  const Row rows[] = {
      {C::OpAbs, {-2.5}, 2.5}, {C::OpAcos, {0.5}, kPi / 3}, {C::OpAsin, {0.5}, kPi / 6},
      {C::OpAnd, {2, -1}, 1}, {C::OpAnd, {2, 0}, 0}, {C::OpAtan, {1}, kPi / 4},
      {C::OpAtan2, {1, -1}, 3 * kPi / 4}, {C::OpCeil, {-1.5}, -1}, {C::OpConj, {3}, 3},
      {C::OpCos, {kPi / 3}, 0.5}, {C::OpCosh, {1}, (e + 1 / e) / 2}, {C::OpCot, {kPi / 4}, 1},
      {C::OpCoth, {1}, (e * e + 1) / (e * e - 1)}, {C::OpCsc, {kPi / 6}, 2},
      {C::OpCsch, {1}, 2 / (e - 1 / e)}, {C::OpDiv, {1, 4}, 0.25}, {C::OpDiv2, {-3, 4}, -0.75},
      {C::OpEQ, {2, 2}, 1}, {C::OpEQ, {kNaN, kNaN}, 0}, {C::OpExp, {1}, e}, {C::OpFix, {-2.7}, -2},
      {C::OpFix, {2.7}, 2}, {C::OpFloor, {-2.5}, -3}, {C::OpGE, {2, 2}, 1}, {C::OpGE, {kNaN, 1}, 0},
      {C::OpGT, {2, 2}, 0}, {C::OpGT, {1, kNaN}, 0}, {C::OpIdentity, {-7}, -7},
      {C::OpChoice, {1, 5, 6}, 5}, {C::OpChoice, {0, 5, 6}, 6}, {C::OpImag, {4}, 0},
      {C::OpLE, {1, 2}, 1}, {C::OpLE, {kNaN, 2}, 0}, {C::OpLog, {e * e}, 2}, {C::OpLog, {0}, -HUGE_VAL},
      {C::OpLog10, {1000}, 3}, {C::OpLog2, {8}, 3}, {C::OpLT, {1, 2}, 1}, {C::OpLT, {1, kNaN}, 0},
      {C::OpMax, {1, 3}, 3}, {C::OpMax, {kNaN, 3}, 3}, {C::OpMin, {1, 3}, 1}, {C::OpMin, {kNaN, 3}, 3},
      {C::OpMinus, {1, 3}, -2}, {C::OpMod, {-1, 3}, 2}, {C::OpMod, {5, 0}, 5}, {C::OpNE, {1, 2}, 1},
      {C::OpNE, {kNaN, kNaN}, 1}, {C::OpNot, {0}, 1}, {C::OpNot, {-0.5}, 0}, {C::OpOr, {0, 0}, 0},
      {C::OpOr, {0, 3}, 1}, {C::OpPlus, {1, 2}, 3}, {C::OpPow, {2, 10}, 1024},
      {C::OpPow, {-8, 1.0 / 3}, kNaN}, {C::OpPow, {-8, kNaN}, kNaN}, {C::OpPow, {1, kNaN}, 1},
      {C::OpPow, {-1, -HUGE_VAL}, 1}, {C::OpSq, {-3}, 9}, {C::OpCube, {-3}, -27},
      {C::OpPow4, {3}, 81}, {C::OpReal, {2}, 2}, {C::OpRound, {-2.5}, -2}, {C::OpRound, {2.5}, 3},
      {C::OpRound, {0.49999999999999994}, 1}, {C::OpSec, {kPi / 3}, 2},
      {C::OpSech, {1}, 2 / (e + 1 / e)}, {C::OpSin, {kPi / 6}, 0.5}, {C::OpSinh, {1}, (e - 1 / e) / 2},
      {C::OpSqrt, {2.25}, 1.5}, {C::OpTan, {kPi / 4}, 1}, {C::OpTanh, {1}, (e * e - 1) / (e * e + 1)},
      {C::OpMult, {-2, 3}, -6}, {C::OpTableConst, {7}, 7}, {C::OpUMinus, {2}, -2}, {C::OpUPlus, {2}, 2},
  };
  std::set<int> covered;
  for (const Row& r : rows) {
    covered.insert(r.op);
    if (std::isnan(r.want)) {
      expectThrowKey([&] { evalOp(r.op, r.args); }, "Power_of_negative");
      continue;
    }
    const double got = evalOp(r.op, r.args);
    if (got != r.want) {
      EXPECT_NEAR(got, r.want, 4e-16 * std::max(1.0, std::fabs(r.want))) << r.op;
    }
  }
  EXPECT_EQ(covered.size(), 55u);  // every number from 1 to 56 but sign's (not evaluated)
  // Integer powers multiply from the left, as the generated code does.
  const double x = 1.0000001;
  EXPECT_EQ(evalOp(C::OpPow4, {x}), ((x * x) * x) * x);
}

TEST(ExprComp, DomainFailuresRaiseTheirKeys) {
  const std::pair<const char*, const char*> rows[] = {
      {"y = sqrt(x)", "Sqrt_of_negative"}, {"y = log(x)", "Log_of_negative"},
      {"y = log2(x)", "Log_of_negative"},   {"y = acos(x - 1)", "Real_argument_out_of_range"},
      {"y = asin(x)", "Real_argument_out_of_range"}, {"y = x^0.5", "Power_of_negative"},
  };
  for (const auto& [text, key] : rows) {
    ExprComp c;
    c.parse({text}, {"x"}, {"y"});
    std::vector<double> out{42};
    expectThrowKey([&] { c.eval({-2}, out); }, key);
    EXPECT_EQ(out, std::vector<double>{42}) << text;  // left as it was
  }
  ExprComp c;  // NaN passes the domain tests
  c.parse({"y = sqrt(x) + log(x) + asin(x)"}, {"x"}, {"y"});
  std::vector<double> out;
  c.eval({kNaN}, out);
  EXPECT_TRUE(std::isnan(out[0]));
}

TEST(ExprComp, CommonSubexpressionsAreComputedOnce) {
  ExprComp c;
  c.parse({"a = sin(x*y) * 2", "b = sin(x*y) + 2", "d = sin(y*x)", "unused = cos(x)"}, {"x", "y"},
          {"a", "b", "d"});
  std::vector<double> out;
  c.eval({0.5, 3.0}, out);
  const std::string list = c.dumpFlatList();
  EXPECT_EQ(countLines(list, "sin("), 2u) << list;  // y*x is another operation
  EXPECT_EQ(countLines(list, "cos("), 0u) << list;
  EXPECT_EQ(countLines(list, "mult("), 3u) << list;
  const double s = std::sin(0.5 * 3.0);
  EXPECT_EQ(out, (std::vector<double>{s * 2, s + 2, std::sin(3.0 * 0.5)}));
  std::vector<std::string> names;
  for (const auto& [name, seconds] : c.timings()) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"crossRef", "topoSort", "eliminateCommon", "topoSort",
                                             "allocateRegs", "optimizeStack", "createEval",
                                             "compile"}));
}

// Random DAGs with repeated definitions and constants, evaluated directly in
// definition order by the test and by the compiled program: equal bit for bit.
TEST(ExprComp, RandomDagsMatchADirectEvaluation) {
  std::mt19937 gen(7);
  const int ops[] = {C::OpPlus, C::OpMinus, C::OpMult, C::OpDiv, C::OpSq, C::OpUMinus, C::OpMin};
  for (int trial = 0; trial < 200; ++trial) {
    const int nin = 1 + static_cast<int>(gen() % 4), ndef = 1 + static_cast<int>(gen() % 60);
    ExprComp c;
    std::vector<double> val, in;
    for (int i = 0; i < nin; ++i) {
      c.addInput(i);
      in.push_back(std::ldexp(static_cast<double>(gen() % 1000) - 500, -7));
      val.push_back(in.back());
    }
    for (int d = 0; d < ndef; ++d) {
      const int id = nin + d, n = static_cast<int>(val.size());
      const int a = static_cast<int>(gen() % n), b = static_cast<int>(gen() % n);
      const int op = ops[gen() % 7];
      double v;
      if (gen() % 8 == 0) {
        v = static_cast<double>(gen() % 3);
        c.addDef(id, v);
      } else if (op == C::OpSq || op == C::OpUMinus) {
        c.addDef(id, op, a);
        v = op == C::OpSq ? val[a] * val[a] : -val[a];
      } else {
        c.addDef(id, op, a, b);
        const double x = val[a], y = val[b];
        v = op == C::OpPlus ? x + y : op == C::OpMinus ? x - y : op == C::OpMult ? x * y
            : op == C::OpDiv ? x / y : (y >= x ? x : y);
      }
      val.push_back(v);
    }
    std::vector<double> want;
    for (int k = 0; k < 3; ++k) {
      const int id = static_cast<int>(gen() % val.size());
      c.addOutput(id);
      want.push_back(val[id]);
    }
    std::vector<double> out;
    c.eval(in, out);
    for (size_t k = 0; k < want.size(); ++k)
      EXPECT_TRUE(std::bit_cast<uint64_t>(out[k]) == std::bit_cast<uint64_t>(want[k]) ||
                  (std::isnan(out[k]) && std::isnan(want[k])))
          << "trial " << trial << "\n" << c.dumpFlatList();
  }
}

// 10^5 definitions in one chain, added last to first: no pass recurses.
TEST(ExprComp, LongChainCompilesWithoutDeepRecursion) {
  const int n = 100000;
  ExprComp c;
  c.addInput(0);
  c.addDef(n + 1, 0.5);
  for (int i = n; i >= 1; --i) c.addDef(i, C::OpPlus, i - 1, n + 1);
  c.addOutput(n);
  std::vector<double> out;
  c.eval({1.0}, out);
  EXPECT_EQ(out[0], 1.0 + 0.5 * n);
  std::vector<unsigned char> bytes;
  c.compile("Chain", "work", bytes, false);  // about 70 continuation methods
  // Every value but the output goes straight into the next step.
  EXPECT_EQ(countLines(c.dumpFlatList(), "stack = plus(stack, 0.5)"), static_cast<size_t>(n) - 2);
}

// Outputs stay live to the end: 33 000 of them exceed the JVM's local slots.
// The class is refused with its own message; eval still answers.
TEST(ExprComp, TooManyLiveValuesForTheClass) {
  const int n = 33000;
  ExprComp c;
  c.addInput(1);
  for (int i = 2; i <= n + 1; ++i) {  // value i is i·x
    c.addDef(i, C::OpPlus, i - 1, 1);
    c.addOutput(i);
  }
  std::vector<unsigned char> bytes;
  expectThrowKey([&] { c.compile("Live", "work", bytes, false); },
                 "Compilation failed: Too many values live at once.");
  EXPECT_TRUE(bytes.empty());
  std::vector<double> out;
  c.eval({3.0}, out);
  EXPECT_EQ(out.size(), static_cast<size_t>(n));
  EXPECT_EQ(out.back(), 3.0 * (n + 1));
}

}  // namespace
