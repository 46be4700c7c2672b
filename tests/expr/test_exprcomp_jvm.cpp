// Randomized differential test of the expression compiler: random definition
// sets (DAGs of the operations with shared subexpressions, repeated
// definitions, constants, sets long enough to split the work method) are
// compiled to classes, checked and run in one JVM, and compared with
// ExprComp::eval on the same inputs.
//
// What must agree, and how:
// - the status: eval's error key against the work method's status code;
// - every value computed from exact operations (arithmetic, comparisons,
//   floor, ceil, fix, mod, sqrt, choice, min, max): bit for bit, NaN as NaN;
// - values through the JVM's Math functions (exp, log, the trigonometric and
//   hyperbolic functions, pow): within a relative 1e-9. Those values only
//   flow on through products, quotients, negation and absolute value, so
//   that an ulp's difference cannot be amplified by cancellation or flip a
//   comparison;
// - round: eval computes floor(x + 0.5), the class Math.round(x). The two
//   differ exactly for x NaN, x = 0.49999999999999994, odd |x| between 2^52
//   and 2^53, and |x| > 2^63 (roundsDiffer below, checked against both
//   formulas by its own test). The class's round must equal Math.round's
//   value (javaRound), and an output that depends on a round whose operand
//   lies in that set is not compared; no domain-checked operation takes a
//   value after a round, so the statuses must agree.
//
// QV_EXPRCOMP_JVM_SETS sets the number of sets (default 200; 10000 for the
// full run).
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <set>

#include "jvm/classcheck.h"
#include "qvarray/expr/exprcomp.h"
#include "qvutil/exception.h"

using qvarray::ExprComp;

namespace {

using qvtest::javaRound;
using qvtest::sameBits;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

// The inputs where floor(x + 0.5) and Math.round disagree, as documented.
bool roundsDiffer(double x) {
  double a = std::fabs(x);
  return std::isnan(x) || x == 0.49999999999999994 ||
         (a > 0x1p52 && a < 0x1p53 && std::fmod(a, 2.0) == 1.0) || a > 0x1p63;
}

TEST(ExprCompJvm, RoundDifferenceIsExactlyTheDocumentedSet) {
  std::vector<double> xs = {kNaN, kInf, -kInf, 0.49999999999999994, -0.49999999999999994, 0.5,
                            -0.5, -2.5, 2.5, -0.0, 1e-300, -1e-300, 0x1p52, 0x1p52 + 1,
                            -(0x1p52 + 1), 0x1p53 - 1, 0x1p53, 0x1p53 + 2, 0x1p63, -0x1p63,
                            0x1p63 * (1 + 0x1p-52), -0x1p63 * (1 + 0x1p-52), 0x1p51 + 0.5,
                            0x1p52 - 0.5, 4.5, -4.5};
  std::mt19937_64 rng(7);
  for (int i = 0; i < 20000; ++i) {
    double x = std::ldexp(std::uniform_real_distribution<double>(-1, 1)(rng),
                          std::uniform_int_distribution<int>(-3, 66)(rng));
    xs.push_back(i % 2 ? x : std::nearbyint(x * 2) / 2);
  }
  for (double x : xs) EXPECT_EQ(!sameBits(javaRound(x), std::floor(x + 0.5)), roundsDiffer(x)) << x;
}

// The operations and how their results may be compared and used.
enum class Kind { Exact, Inexact, Round };
struct Op {
  int op, arity;
  Kind kind;
  bool takesInexact;  // continuous without cancellation: products, quotients, sign
};
const Op kOps[] = {
    {ExprComp::OpAbs, 1, Kind::Exact, true},      {ExprComp::OpAcos, 1, Kind::Inexact, false},
    {ExprComp::OpAnd, 2, Kind::Exact, false},     {ExprComp::OpAsin, 1, Kind::Inexact, false},
    {ExprComp::OpAtan, 1, Kind::Inexact, false},  {ExprComp::OpAtan2, 2, Kind::Inexact, false},
    {ExprComp::OpCeil, 1, Kind::Exact, false},    {ExprComp::OpConj, 1, Kind::Exact, true},
    {ExprComp::OpCos, 1, Kind::Inexact, false},   {ExprComp::OpCosh, 1, Kind::Inexact, false},
    {ExprComp::OpCot, 1, Kind::Inexact, false},   {ExprComp::OpCoth, 1, Kind::Inexact, false},
    {ExprComp::OpCsc, 1, Kind::Inexact, false},   {ExprComp::OpCsch, 1, Kind::Inexact, false},
    {ExprComp::OpDiv, 2, Kind::Exact, true},      {ExprComp::OpDiv2, 2, Kind::Exact, true},
    {ExprComp::OpEQ, 2, Kind::Exact, false},      {ExprComp::OpExp, 1, Kind::Inexact, false},
    {ExprComp::OpFix, 1, Kind::Exact, false},     {ExprComp::OpFloor, 1, Kind::Exact, false},
    {ExprComp::OpGE, 2, Kind::Exact, false},      {ExprComp::OpGT, 2, Kind::Exact, false},
    {ExprComp::OpIdentity, 1, Kind::Exact, true}, {ExprComp::OpChoice, 3, Kind::Exact, false},
    {ExprComp::OpImag, 1, Kind::Exact, true},     {ExprComp::OpLE, 2, Kind::Exact, false},
    {ExprComp::OpLog, 1, Kind::Inexact, false},   {ExprComp::OpLog10, 1, Kind::Inexact, false},
    {ExprComp::OpLog2, 1, Kind::Inexact, false},  {ExprComp::OpLT, 2, Kind::Exact, false},
    {ExprComp::OpMax, 2, Kind::Exact, true},      {ExprComp::OpMin, 2, Kind::Exact, true},
    {ExprComp::OpMinus, 2, Kind::Exact, false},   {ExprComp::OpMod, 2, Kind::Exact, false},
    {ExprComp::OpNE, 2, Kind::Exact, false},      {ExprComp::OpNot, 1, Kind::Exact, false},
    {ExprComp::OpOr, 2, Kind::Exact, false},      {ExprComp::OpPlus, 2, Kind::Exact, false},
    {ExprComp::OpPow, 2, Kind::Inexact, false},   {ExprComp::OpSq, 1, Kind::Exact, true},
    {ExprComp::OpCube, 1, Kind::Exact, true},     {ExprComp::OpPow4, 1, Kind::Exact, true},
    {ExprComp::OpReal, 1, Kind::Exact, true},     {ExprComp::OpRound, 1, Kind::Round, false},
    {ExprComp::OpSec, 1, Kind::Inexact, false},   {ExprComp::OpSech, 1, Kind::Inexact, false},
    {ExprComp::OpSin, 1, Kind::Inexact, false},   {ExprComp::OpSinh, 1, Kind::Inexact, false},
    {ExprComp::OpSqrt, 1, Kind::Exact, false},    {ExprComp::OpTan, 1, Kind::Inexact, false},
    {ExprComp::OpTanh, 1, Kind::Inexact, false},  {ExprComp::OpMult, 2, Kind::Exact, true},
    {ExprComp::OpUMinus, 1, Kind::Exact, true},   {ExprComp::OpUPlus, 1, Kind::Exact, true},
};

// Values where the semantics have edges.
const double kSpecial[] = {0.0, -0.0, 1.0, -1.0, 0.5, -2.5, 2.5, 0.49999999999999994, 1e-3,
                           0x1p52 + 1, -(0x1p52 + 3), 1e19, -1e19, 1e300, kNaN, kInf, -kInf};

// One random set: definitions, and for the comparison the value's kind,
// the rounds it depends on, where it is output.
struct Value {
  int id;
  bool input = false, inexact = false;
  uint64_t rounds = 0;  // bit r: depends on round number r
  int roundOperand = -1;  // for a round: index of its operand's Value
};

struct RandomSet {
  ExprComp comp;
  std::vector<Value> values;
  std::vector<int> outputs;     // indices into values
  std::vector<int> roundIndex;  // values[roundIndex[r]] is round number r
  int inputs = 0;
};

// Whether `v` may be an operand of `op`: a value through the JVM's Math only
// of an operation that takes inexact operands; a value after a round (which
// may differ) of no domain-checked operation, so that statuses agree.
bool usable(const Value& v, const Op& op) {
  const bool domain = op.op == ExprComp::OpAcos || op.op == ExprComp::OpAsin ||
                      op.op == ExprComp::OpLog || op.op == ExprComp::OpLog10 ||
                      op.op == ExprComp::OpLog2 || op.op == ExprComp::OpSqrt ||
                      op.op == ExprComp::OpPow;
  return (!v.inexact || op.takesInexact) && !(v.rounds && domain);
}

void makeSet(std::mt19937_64& rng, RandomSet& s, int defs) {
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  auto chance = [&](double p) { return std::uniform_real_distribution<double>()(rng) < p; };
  auto add = [&](Value v) {
    v.id = 7 * static_cast<int>(s.values.size()) + 3;  // numbers need not be dense
    s.values.push_back(v);
    return static_cast<int>(s.values.size()) - 1;
  };
  s.inputs = 1 + pick(4);
  for (int i = 0; i < s.inputs; ++i) {
    int k = add({.id = 0, .input = true});
    s.comp.addInput(s.values[k].id);
  }
  for (int i = pick(4); i > 0; --i) {
    double c = chance(0.5) ? kSpecial[pick(std::size(kSpecial))] : std::round(pick(2000) - 1000.0) / 8;
    s.comp.addDef(s.values[add({})].id, c);
  }
  struct Made {
    int op;
    std::vector<int> args;
  };
  std::vector<Made> made;
  while (static_cast<int>(made.size()) < defs) {
    Made m;
    const Op* op;
    if (!made.empty() && chance(0.08)) {  // a repeated definition: one computation
      m = made[static_cast<size_t>(pick(static_cast<int>(made.size())))];
      op = &*std::find_if(std::begin(kOps), std::end(kOps), [&](const Op& o) { return o.op == m.op; });
    } else {
      op = &kOps[pick(std::size(kOps))];
      if (op->kind == Kind::Round && s.roundIndex.size() >= 64) continue;
      const int n = static_cast<int>(s.values.size());
      for (int a = 0; a < op->arity; ++a) {
        int k = 0;
        for (int tries = 0; tries < 20; ++tries) {
          k = chance(0.6) ? n - 1 - pick(std::min(n, 6)) : pick(n);  // deep or shared
          if (usable(s.values[k], *op)) break;
        }
        if (!usable(s.values[k], *op)) k = pick(s.inputs);  // inputs are always usable
        m.args.push_back(k);
      }
      m.op = op->op;
    }
    Value v;
    for (int k : m.args) {
      v.inexact |= s.values[k].inexact;
      v.rounds |= s.values[k].rounds;
    }
    v.inexact |= op->kind == Kind::Inexact;
    if (op->kind == Kind::Round) {
      v.rounds |= uint64_t{1} << s.roundIndex.size();
      v.roundOperand = m.args[0];
    }
    int k = add(v);
    if (op->kind == Kind::Round) s.roundIndex.push_back(k);
    std::vector<int> ids;
    for (int a : m.args) ids.push_back(s.values[a].id);
    if (ids.size() == 1) s.comp.addDef(s.values[k].id, m.op, ids[0]);
    else if (ids.size() == 2) s.comp.addDef(s.values[k].id, m.op, ids[0], ids[1]);
    else s.comp.addDef(s.values[k].id, m.op, ids);
    made.push_back(m);
  }
  // Outputs: the last definition, a few others, every round and its operand.
  std::set<int> out = {static_cast<int>(s.values.size()) - 1};
  // A long set outputs many values, so that little of it is dead code.
  for (int i = pick(4) + defs / 40; i > 0; --i)
    out.insert(s.inputs + pick(static_cast<int>(s.values.size()) - s.inputs));
  for (int r : s.roundIndex) {
    out.insert(r);
    if (!s.values[s.values[r].roundOperand].input) out.insert(s.values[r].roundOperand);
  }
  for (int k : out) {
    s.outputs.push_back(k);
    s.comp.addOutput(s.values[k].id);
  }
}

int statusOfKey(const std::string& key) {
  static const std::map<std::string, int> codes = {
      {"Log_of_negative", ExprComp::LOG_OF_NEGATIVE},
      {"Sqrt_of_negative", ExprComp::SQRT_OF_NEGATIVE},
      {"Real_argument_out_of_range", ExprComp::OUT_OF_RANGE},
      {"Power_of_negative", ExprComp::POWER_OF_NEGATIVE}};
  auto it = codes.find(key);
  return it == codes.end() ? 1 : it->second;  // 1: no status the class can return
}

TEST(ExprCompJvm, RandomDefinitionSetsAgreeWithEval) {
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  int count = 200, only = -1;
  if (const char* env = std::getenv("QV_EXPRCOMP_JVM_SETS")) count = std::atoi(env);
  // QV_EXPRCOMP_JVM_ONLY=k: set k alone (the same set as in a full run).
  if (const char* env = std::getenv("QV_EXPRCOMP_JVM_ONLY")) only = std::atoi(env);
  std::mt19937_64 rng(20261124);
  qvtest::ClassCheck check(qvtest::scratchDir("qv_exprcomp_jvm", testing::TempDir()));
  struct Call {
    std::vector<double> in, out;
    int status = 0;
  };
  std::vector<std::unique_ptr<RandomSet>> sets;
  std::vector<std::string> names;
  std::vector<std::vector<Call>> calls;
  int split = 0;
  for (int k = 0; k < count; ++k) {
    auto s = std::make_unique<RandomSet>();
    int defs = k % 25 == 7 ? 1500 + static_cast<int>(rng() % 1500) : 3 + static_cast<int>(rng() % 40);
    makeSet(rng, *s, defs);
    std::vector<Call> setCalls(4);
    for (Call& call : setCalls)
      for (int i = 0; i < s->inputs; ++i)
        call.in.push_back(rng() % 4 == 0 ? kSpecial[rng() % std::size(kSpecial)]
                          : rng() % 3 == 0
                              ? std::round(std::uniform_real_distribution<double>(-8, 8)(rng) * 2) / 2
                              : std::uniform_real_distribution<double>(-8, 8)(rng));
    if (only >= 0 && k != only) continue;
    std::vector<unsigned char> bytes;
    const std::string name = "R" + std::to_string(k);
    ASSERT_NO_THROW(s->comp.compile(name, "work", bytes, false)) << name;
    static const std::string cont = "([D[D[D)I";
    split += std::search(bytes.begin(), bytes.end(), cont.begin(), cont.end()) != bytes.end();
    check.addClass(name, bytes);
    for (Call& call : setCalls) {
      try {
        s->comp.eval(call.in, call.out);
      } catch (const qvbase::Exception& e) {
        call.status = statusOfKey(e.key());
      }
      check.addCall(call.in);
    }
    calls.push_back(std::move(setCalls));
    names.push_back(name);
    sets.push_back(std::move(s));
  }
  auto runs = check.run();
  ASSERT_EQ(runs.size(), sets.size()) << "the JVM did not run";
  size_t compared = 0, skipped = 0, statuses = 0;
  int shown = 0;
  for (size_t k = 0; k < sets.size(); ++k) {
    const RandomSet& s = *sets[k];
    const std::string& name = names[k];
    ASSERT_EQ(runs[k].verdict.rfind("ok", 0), 0u) << name << ": " << runs[k].verdict;
    ASSERT_EQ(runs[k].calls.size(), calls[k].size()) << name;
    for (size_t c = 0; c < calls[k].size(); ++c) {
      const Call& want = calls[k][c];
      const auto& got = runs[k].calls[c];
      ASSERT_FALSE(got.failed) << name << ": " << got.failure;
      // The program of the first few sets that disagree, for diagnosis.
      auto program = [&] { return ++shown <= 3 ? "\n" + s.comp.dumpFlatList() : std::string(); };
      if (got.status != want.status) {
        ADD_FAILURE() << name << " call " << c << ": status " << got.status << " (JVM) vs "
                      << want.status << " (eval)" << program();
        continue;
      }
      if (want.status != 0) {
        ++statuses;
        continue;
      }
      ASSERT_EQ(got.out.size(), s.outputs.size()) << name;
      std::map<int, int> where;  // value index -> output position
      for (size_t o = 0; o < s.outputs.size(); ++o) where[s.outputs[o]] = static_cast<int>(o);
      auto jvmValue = [&](int v) {
        return s.values[v].input ? want.in[static_cast<size_t>(v)] : got.out[static_cast<size_t>(where.at(v))];
      };
      // Rounds whose operand makes the two formulas differ; the class must
      // give Math.round's value there.
      uint64_t diverged = 0;
      for (size_t r = 0; r < s.roundIndex.size(); ++r) {
        const int v = s.roundIndex[r];
        const double x = jvmValue(s.values[v].roundOperand);
        if (!roundsDiffer(x)) continue;
        diverged |= uint64_t{1} << r;
        EXPECT_TRUE(sameBits(jvmValue(v), javaRound(x))) << name << " round of " << x;
      }
      for (size_t o = 0; o < s.outputs.size(); ++o) {
        const Value& v = s.values[static_cast<size_t>(s.outputs[o])];
        if (v.rounds & diverged) {
          ++skipped;
          continue;
        }
        ++compared;
        const double a = got.out[o], b = want.out[o];
        if (v.inexact && std::isfinite(a) && std::isfinite(b))
          EXPECT_LE(std::fabs(a - b), 1e-9 * std::max(std::fabs(a), std::fabs(b)) + 1e-300)
              << name << " output " << o << " call " << c;
        else
          EXPECT_TRUE(sameBits(a, b)) << name << " output " << o << " call " << c << ": " << a
                                      << " (JVM) vs " << b << " (eval)" << program();
      }
    }
  }
  std::printf("%d sets (%d with split methods), %zu outputs compared, %zu past a differing round, "
              "%zu calls with a status\n", count, split, compared, skipped, statuses);
  if (count >= 25 && only < 0) {
    EXPECT_GT(split, 0);
  }
}

}  // namespace

// Many values live across the splits: y_i = a*i + b for i = 1..n, every one
// an output (written at the end, so all are carried through every
// continuation).
TEST(ExprCompJvm, ManyLiveValuesCrossTheSplits) {
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  qvtest::ClassCheck check(qvtest::scratchDir("qv_exprcomp_live", testing::TempDir()));
  const int sizes[] = {300, 500, 700, 900};
  std::vector<std::vector<double>> want;
  for (int n : sizes) {
    ExprComp c;
    c.addInput(1);
    c.addInput(2);
    for (int i = 1; i <= n; ++i) {
      c.addDef(10 * i, double(i));
      c.addDef(10 * i + 1, ExprComp::OpMult, 1, 10 * i);
      c.addDef(10 * i + 2, ExprComp::OpPlus, 10 * i + 1, 2);
      c.addOutput(10 * i + 2);
    }
    std::vector<unsigned char> bytes;
    c.compile("Live" + std::to_string(n), "work", bytes, false);
    check.addClass("Live" + std::to_string(n), bytes);
    check.addCall({2.0, 0.5});
    want.emplace_back();
    c.eval({2.0, 0.5}, want.back());
  }
  auto runs = check.run();
  ASSERT_EQ(runs.size(), std::size(sizes)) << "the JVM did not run";
  for (size_t k = 0; k < runs.size(); ++k) {
    ASSERT_EQ(runs[k].calls.size(), 1u) << runs[k].verdict;
    const auto& got = runs[k].calls[0];
    ASSERT_EQ(got.out.size(), want[k].size()) << got.failure;
    int wrong = 0;
    for (size_t i = 0; i < want[k].size(); ++i) wrong += got.out[i] != want[k][i];
    EXPECT_EQ(wrong, 0) << sizes[k] << " outputs";
  }
}

// Powers where C's pow and Java's Math.pow are defined differently (base ±1
// with an infinite or NaN exponent), and their neighbours: the class must
// give eval's status and value.
TEST(ExprCompJvm, PowerAtTheEdges) {
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";
  const double cases[][2] = {{1, kInf}, {1, -kInf}, {-1, kInf}, {-1, -kInf}, {1, kNaN},
                             {kNaN, 0},  {-8, 1.0 / 3}, {0, -1},  {-kInf, 0.5}, {2, 0.5}};
  ExprComp c;
  c.addInput(1);
  c.addInput(2);
  c.addDef(3, ExprComp::OpPow, 1, 2);
  c.addOutput(3);
  std::vector<unsigned char> bytes;
  c.compile("Pow", "work", bytes, false);
  qvtest::ClassCheck check(qvtest::scratchDir("qv_exprcomp_pow", testing::TempDir()));
  check.addClass("Pow", bytes);
  for (const auto& x : cases) check.addCall({x[0], x[1]});
  auto runs = check.run();
  ASSERT_EQ(runs.size(), 1u) << "the JVM did not run";
  ASSERT_EQ(runs[0].calls.size(), std::size(cases));
  for (size_t k = 0; k < std::size(cases); ++k) {
    std::vector<double> want;
    int status = 0;
    try {
      c.eval({cases[k][0], cases[k][1]}, want);
    } catch (const qvbase::Exception& e) {
      status = statusOfKey(e.key());
    }
    const auto& got = runs[0].calls[k];
    EXPECT_EQ(got.status, status) << "pow(" << cases[k][0] << ", " << cases[k][1] << ")";
    if (status == 0 && got.status == 0) {
      EXPECT_TRUE(sameBits(got.out.at(0), want.at(0)))
          << "pow(" << cases[k][0] << ", " << cases[k][1] << "): " << got.out[0] << " vs " << want[0];
    }
  }
}
