// The class-file model: byte forms against the JVM's encodings, pool
// deduplication and its limit, the stack-height check, and hand-made classes
// checked and run in the JVM (ASM, javap, -Xverify:all) against C++.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "expr/classfile.h"
#include "jvm/classcheck.h"
#include "qvarray/expr/qvmath.h"
#include "qvutil/errors.h"

using qvarray::ExprComp;
using Method = ExprComp::Method;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

std::string keyOf(auto&& f) {
  try {
    f();
  } catch (const qvbase::Exception& e) {
    std::string s = e.key();
    for (const auto& d : e.details()) s += " " + d.second;
    return s;
  }
  return "";
}

TEST(ClassFile, LocalsTakeShortPlainAndWideForms) {
  ExprComp::ConstPool pool;
  struct Case {
    int slot;
    std::vector<unsigned char> load, store;
  } cases[] = {
      {0, {0x26}, {0x47}},
      {3, {0x29}, {0x4a}},
      {4, {0x18, 4}, {0x39, 4}},
      {255, {0x18, 255}, {0x39, 255}},
      {256, {0xc4, 0x18, 1, 0}, {0xc4, 0x39, 1, 0}},
      {65533, {0xc4, 0x18, 0xff, 0xfd}, {0xc4, 0x39, 0xff, 0xfd}},
  };
  for (const Case& c : cases) {
    Method m(pool, "f", "()V", qvarray::ACC_STATIC);
    m.dload(c.slot);
    EXPECT_EQ(m.code(), c.load) << c.slot;
    m.dstore(c.slot);
    EXPECT_EQ(std::vector<unsigned char>(m.code().begin() + c.load.size(), m.code().end()), c.store);
    EXPECT_EQ(m.maxLocals(), c.slot + 2);
    EXPECT_EQ(m.maxStack(), 2);
  }
}

TEST(ClassFile, PoolDeduplicatesEveryKind) {
  ExprComp::ConstPool p;
  int first[] = {p.addUtf8("x"),       p.addInteger(7),           p.addLong(7),
                 p.addDouble(7),       p.addDouble(-0.0),         p.addDouble(0.0),
                 p.addClass("A"),      p.addString("x"),          p.addNameAndType("f", "(D)D"),
                 p.addFieldref("A", "f", "D"), p.addMethodref("A", "f", "(D)D")};
  int next = p.nextIndex();
  int again[] = {p.addUtf8("x"),       p.addInteger(7),           p.addLong(7),
                 p.addDouble(7),       p.addDouble(-0.0),         p.addDouble(0.0),
                 p.addClass("A"),      p.addString("x"),          p.addNameAndType("f", "(D)D"),
                 p.addFieldref("A", "f", "D"), p.addMethodref("A", "f", "(D)D")};
  for (size_t i = 0; i < std::size(first); ++i) EXPECT_EQ(first[i], again[i]) << i;
  EXPECT_EQ(p.nextIndex(), next);
  EXPECT_NE(first[4], first[5]);          // -0.0 and 0.0 are two constants
  EXPECT_EQ(first[3] + 2, first[4]);      // a double takes two slots
  EXPECT_EQ(p.memberDescriptor(first[10]), "(D)D");
}

TEST(ClassFile, PoolStopsBeforeIndex65536) {
  ExprComp::ConstPool p;
  for (int i = 0; i < 32767; ++i) p.addDouble(i + 0.5);  // indices 1..65534
  EXPECT_EQ(p.nextIndex(), 65535);
  EXPECT_EQ(p.addDouble(0.5), 1);  // present: no new slot
  for (auto add : {+[](ExprComp::ConstPool& q) { q.addDouble(-1); },
                   +[](ExprComp::ConstPool& q) { q.addInteger(1); }})
    EXPECT_EQ(keyOf([&] { add(p); }), "Compilation failed: Too many different constants.");
  EXPECT_EQ(p.nextIndex(), 65535);
}

TEST(ClassFile, ErrorsOfTheBuilderAndTheFile) {
  ExprComp::ConstPool pool;
  Method m(pool, "f", "()V", qvarray::ACC_STATIC);
  m.dconst(pool, 2.5);
  EXPECT_EQ(keyOf([&] { m.finish(); }), "QUBRIX_assertion_failure stackHeight=2");
  EXPECT_EQ(keyOf([&] { m.dadd(); }).rfind("QUBRIX_assertion_failure stackHeight=2", 0), 0u);
  EXPECT_EQ(keyOf([] { ExprComp::FileBytecodeStream s("/nonexistent-dir/A.class"); }),
            "Cannot_create_native_file /nonexistent-dir/A.class");
}

// work(in, out): out[0] = (in0 + in1) * in2 - in0 / in1, out[1] = modImpl(in0,
// in1), out[2] = Math.round(in0), out[3] = (in1 >= in0) ? in0 : in1 through a
// branch, out[4] = atan2(in0, in1), out[5] = the value kept in slot 65533 and
// slot 1000 (wide forms); returns -1 when in2 is NaN (Double.isNaN), else 0.
// The class's bytes once `m` is added.
std::vector<unsigned char> withMethod(ExprComp::ClassFile& cf, Method&& m) {
  cf.addMethod(std::move(m));
  std::vector<unsigned char> bytes;
  ExprComp::MemoryBytecodeStream s(bytes);
  cf.write(s);
  return bytes;
}

std::vector<unsigned char> demoClass(const std::string& name) {
  ExprComp::ClassFile cf(name);
  auto& pool = cf.pool();
  cf.addField(ExprComp::Field::intConstant(pool, "NARGIN", 3));
  cf.addField(ExprComp::Field::intConstant(pool, "NARGOUT", 6));
  cf.addDefaultConstructor();
  Method m(pool, "work", "([D[D)I", qvarray::ACC_PUBLIC | qvarray::ACC_STATIC);
  auto in = [&](int i) { m.aload(0); m.iconst(i); m.daload(); };
  auto out = [&](int i, auto value) { m.aload(1); m.iconst(i); value(); m.dastore(); };
  auto& fun = cf.functions();
  out(0, [&] { in(0); in(1); m.dadd(); in(2); m.dmul(); in(0); in(1); m.ddiv(); m.dsub(); });
  out(1, [&] { in(0); in(1); m.invokestatic(pool, fun.methodRef(fun.ModImpl)); });
  out(2, [&] { in(0); m.invokestatic(pool, fun.methodRef(fun.Round)); m.l2d(); });
  out(3, [&] {
    in(1); m.dstore(65533);
    in(0); m.dstore(1000);
    Method::Label takeB = m.newLabel(), done = m.newLabel();
    m.dload(65533); m.dload(1000); m.dcmpl(); m.iflt(takeB);  // b >= a (NaN: -1)
    m.dload(1000); m.goto_(done);
    m.bind(takeB); m.dload(65533);
    m.bind(done);
  });
  out(4, [&] { in(0); in(1); m.invokestatic(pool, fun.methodRef(fun.Atan2)); });
  out(5, [&] { m.dload(65533); m.dload(1000); m.dup2_x2(); m.pop2(); m.dsub(); });
  Method::Label ok = m.newLabel();
  in(2); m.invokestatic(pool, fun.methodRef(fun.IsNaN)); m.ifeq(ok);
  m.iconst(-1); m.ireturn();
  m.bind(ok); m.iconst(0); m.ireturn();
  m.finish();
  EXPECT_EQ(m.maxLocals(), 65535);
  return withMethod(cf, std::move(m));
}

std::vector<double> demoExpected(double a, double b, double c) {
  return {(a + b) * c - a / b, qvmath::mod(a, b), qvtest::javaRound(a), (b >= a) ? a : b,
          std::atan2(a, b), a - b};
}

// y = c0 + c1 + ... + c1199 + x*(c0 + c1 + ... + c1199): 1200 different
// constants, each loaded twice, one pool entry each.
std::vector<unsigned char> constantsClass(const std::string& name, int& entries) {
  ExprComp::ClassFile cf(name);
  auto& pool = cf.pool();
  cf.addField(ExprComp::Field::intConstant(pool, "NARGIN", 1));
  cf.addField(ExprComp::Field::intConstant(pool, "NARGOUT", 1));
  Method m(pool, "work", "([D[D)I", qvarray::ACC_PUBLIC | qvarray::ACC_STATIC);
  m.aload(1); m.iconst(0);
  int before = pool.nextIndex();
  for (int pass = 0; pass < 2; ++pass) {
    m.dconst(pool, 0.0);
    for (int i = 0; i < 1200; ++i) { m.dconst(pool, 1.0 / (i + 3)); m.dadd(); }
    if (pass == 1) { m.aload(0); m.iconst(0); m.daload(); m.dmul(); m.dadd(); }
  }
  entries = pool.nextIndex() - before;
  m.dastore();
  m.iconst(0); m.ireturn();
  m.finish();
  return withMethod(cf, std::move(m));
}

// Four ints added as two doubles: right in height, wrong in type; the
// harness must refuse it.
std::vector<unsigned char> brokenClass(const std::string& name) {
  ExprComp::ClassFile cf(name);
  Method m(cf.pool(), "work", "([D[D)I", qvarray::ACC_PUBLIC | qvarray::ACC_STATIC);
  for (int i = 0; i < 4; ++i) m.iconst(i);
  m.dadd(); m.pop2(); m.iconst(0); m.ireturn();
  m.finish();
  return withMethod(cf, std::move(m));
}

TEST(ClassFile, HandMadeClassesRunInTheJvm) {
  std::vector<unsigned char> demo = demoClass("Demo");
  ASSERT_GE(demo.size(), 8u);
  EXPECT_EQ(std::vector<unsigned char>(demo.begin(), demo.begin() + 8),
            (std::vector<unsigned char>{0xCA, 0xFE, 0xBA, 0xBE, 0, 0, 0, 0x2E}));
  int entries = 0;
  std::vector<unsigned char> consts = constantsClass("Consts", entries);
  EXPECT_EQ(entries, 2400);  // 1200 doubles, two slots each, once
  // The same bytes through a file.
  {
    qvtest::ClassCheck scratch(qvtest::scratchDir("qv_classfile_copy", testing::TempDir()));
    auto copy = scratch.dir() / "Copy.class";
    ExprComp::FileBytecodeStream f(copy.string());
    f.write(demo.data(), demo.size());
    f.close();
    EXPECT_EQ(std::filesystem::file_size(copy), demo.size());
  }
  if (!qvtest::ClassCheck::available()) GTEST_SKIP() << "no JVM in this build";

  const double inputs[][3] = {
      {7.5, -2, 3},     {-7.5, 2, 0.25},   {0.49999999999999994, 1, 1}, {-2.5, 0, 1},
      {kNaN, 1, 2},     {1, kNaN, kNaN},   {kInf, 3, 1},                {1e300, -1e-300, -0.0},
      {-0.0, kInf, 2},  {4503599627370497.0, 3, 1}, {1e19, -1e19, 5},  {-1e-20, 1, 7}};
  qvtest::ClassCheck check(qvtest::scratchDir("qv_classfile", testing::TempDir()));
  check.addClass("Demo", demo);
  for (const auto& x : inputs) check.addCall({x[0], x[1], x[2]});
  check.addClass("Consts", consts);
  for (double x : {0.0, 1.0, -3.25}) check.addCall({x});
  check.addClass("Broken", brokenClass("Broken"));
  auto runs = check.run();
  ASSERT_EQ(runs.size(), 3u) << "the JVM did not run";
  EXPECT_EQ(runs[2].verdict.rfind("FAIL asm:", 0), 0u) << runs[2].verdict;
  EXPECT_EQ(runs[0].verdict, "ok 3 6");
  EXPECT_EQ(runs[1].verdict, "ok 1 1");
  ASSERT_EQ(runs[0].calls.size(), std::size(inputs));
  for (size_t k = 0; k < std::size(inputs); ++k) {
    const auto& c = runs[0].calls[k];
    auto want = demoExpected(inputs[k][0], inputs[k][1], inputs[k][2]);
    ASSERT_FALSE(c.failed) << c.failure;
    EXPECT_EQ(c.status, std::isnan(inputs[k][2]) ? -1 : 0) << k;
    for (size_t i = 0; i < want.size(); ++i) {
      // atan2 is the JVM's own: within 2 ulp; the rest bit for bit.
      if (i == 4 && std::isfinite(want[i]))
        EXPECT_NEAR(c.out[i], want[i], 4e-16 * std::fabs(want[i])) << k;
      else if (std::isnan(want[i]))
        EXPECT_TRUE(std::isnan(c.out[i])) << k << " " << i;
      else
        EXPECT_EQ(std::bit_cast<uint64_t>(c.out[i]), std::bit_cast<uint64_t>(want[i]))
            << k << " " << i << ": " << c.out[i] << " vs " << want[i];
    }
  }
  double sum = 0;
  for (int i = 0; i < 1200; ++i) sum += 1.0 / (i + 3);
  ASSERT_EQ(runs[1].calls.size(), 3u);
  for (int k = 0; k < 3; ++k) {
    double x = k == 0 ? 0.0 : k == 1 ? 1.0 : -3.25;
    EXPECT_EQ(runs[1].calls[k].out.at(0), sum + x * sum);
  }
}

}  // namespace
