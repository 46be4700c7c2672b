// Syntax trees: the prefix scanner, the printer, the built-in host's reader
// and simplification, the set algebra and the literal hash. Oracles: the
// printed forms given for the tree, round trips printer -> reader and
// prefix writer -> scanner over random trees, a test evaluator for the
// simplification, a per-element model of the set algebra, and hashes
// computed independently (Python) and stored here.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>

#include "qvarray/expr/exprhost.h"
#include "qvarray/expr/exprtree.h"
#include "nodetesting.h"
#include "qvtest.h"

namespace {

using qvarray::ExprImpl;
using qvarray::ExprTree;
using E = ExprImpl;
using NodePtr = E::NodePtr;
using qvtest::expectThrowKey;

std::string printPrefix(const std::string& prefix) {
  ExprImpl t;
  t.scanprefix(prefix);
  return t.toString();
}
std::string hostPrefix(const std::string& infix) { return ExprImpl::parseExprToPrefix(infix); }

// Installs a host for the scope of a test; the built-in one returns after.
struct HostScope {
  explicit HostScope(std::shared_ptr<const qvarray::ExprHost> h) { qvarray::setExprHost(std::move(h)); }
  ~HostScope() { qvarray::setExprHost(nullptr); }
};

// A host that counts its calls and answers through `answer`.
struct TestHost : qvarray::ExprHost {
  std::function<std::string(const std::string&)> answer;
  mutable int calls = 0;
  std::string parseExprToPrefix(const std::string& t) const override { return ++calls, answer(t); }
  std::string simp(const std::string& t) const override { return ++calls, answer(t); }
};

TEST(ExprTree, PrintsPrefixForms) {
  const std::pair<const char*, const char*> table[] = {
      {"- - a b c", "a-b-c"},
      {"- a - b c", "a-(b-c)"},
      {"* + a b c", "(a+b)*c"},
      {"U- ^ a b", "-a^b"},
      {"^ ^ a b c", "a^b^c"},
      {"^ a ^ b c", "a^(b^c)"},
      {"+ U- a b", "(-a)+b"},
      {"U- + a b", "-a+b"},
      {"U- U- a", "--a"},
      {"== ! a U- b", "!a==-b"},
      {"|| && a b && c d", "a&&b||c&&d"},
      {"&& || a b c", "(a||b)&&c"},
      {"\"\" 4 it's", "'it''s'"},
      {"\"\" 3 a b", "'a b'"},
      {"\"\" 0", "''"},
      {"\"\" 1 \xc3\xa9", "'\xc3\xa9'"},
      {"() f 2 x + a b", "f(x,a+b)"},
      {"() g 0", "g()"},
      {"(UNIT) + a b m", "(a+b)[m]"},
      {"(UNIT) ^ a 2 / m s", "a^2[m/s]"},
      {"* a (UNIT) b m", "a*b[m]"},
      {"(DIFF) (DIFF) u x y", "uyx"},
      {"(DIFF) + a b x", "d(a+b,x)"},
      {"(DIFF) (DIFF) * a b x y", "d(d(a*b,x),y)"},
      {", 3 a b c", "a , b , c"},
      {"(MAT) 2 1 2.5", "[1 , 2.5]"},
      {"+ (MAT) 1 a b", "([a])+b"},
      {"* , 2 a b c", "(a , b)*c"},
      {"a.b", "a.b"},
      {"1e-3", "1e-3"},
  };
  for (const auto& [prefix, infix] : table) EXPECT_EQ(printPrefix(prefix), infix) << prefix;
}

// The trees whose printed form reads back as another tree.
TEST(ExprTree, RoundTripExceptions) {
  const std::pair<const char*, const char*> table[] = {
      {"(DIFF) (DIFF) u x y", "uyx"},          // a derivative of a bare name
      {"() d 2 a x", "(DIFF) a x"},            // a call of d with a name second
      {"() f 1 , 2 a b", "() f 2 a b"},        // a list in a call
      {"(MAT) 2 , 2 a b c", "(MAT) 3 a b c"},  // a list in a vector
      {", 1 a", "a"},                          // a list of one element
      {"+ -1 a", "U- + 1 a"},                  // number tokens that are no numbers
  };
  for (const auto& [prefix, back] : table) EXPECT_EQ(hostPrefix(printPrefix(prefix)), back) << prefix;
}

TEST(ExprTree, ScannerErrors) {
  const char* table[] = {"",           "   ",          "+ a",         "U-",       "() f",
                         "() f x",     ", ",           ", 2 a",       "(MAT) 1",  "\"\" 5 abc",
                         "\"\" x",     "\"\" 1 ab",    "\"\" 2",      "a b",      "a$b",
                         "(DIFF) a 1", "(DIFF) a + b c", ", 99999999999999999999999 a", ", 2x a b",
                         "(UNIT) a"};
  for (const char* prefix : table) {
    SCOPED_TRACE(prefix);
    const auto e = expectThrowKey([&] { printPrefix(prefix); }, "Syntax_error_in_expression");
    EXPECT_EQ(e.detail("Expression").value_or(""), prefix);
  }
}

TEST(ExprTree, SharesLeavesOfOneClassAndText) {
  ExprImpl t;
  t.scanprefix("+ * x 1 * x \"\" 1 x");
  const auto& sum = static_cast<const E::Binary&>(*t.root());
  const auto& l = static_cast<const E::Binary&>(*sum.left());
  const auto& r = static_cast<const E::Binary&>(*sum.right());
  EXPECT_EQ(l.left(), r.left());    // the name x, twice
  EXPECT_NE(r.left(), r.right());   // name x and string 'x'
  EXPECT_EQ(std::string(r.right()->kindName()), "LiteralValue");
  EXPECT_EQ(t.toString(), "x*1+x*'x'");
}

TEST(ExprTree, KindsCodesAndChildAccess) {
  ExprImpl t("f(a[m], d(b*c, x), [1], 'q') , -a");
  const NodePtr& list = t.root();
  EXPECT_STREQ(list->kindName(), "List");
  const NodePtr& call = list->child(0);
  EXPECT_STREQ(call->kindName(), "FuncCall");
  EXPECT_EQ(call->child(0)->code(), E::kUnitConversionTag);
  EXPECT_EQ(call->child(1)->code(), E::kDerivativeTag);
  EXPECT_EQ(call->child(0)->child(0)->code(), E::kIdentifierTag);
  EXPECT_STREQ(call->child(2)->kindName(), "Vector");
  EXPECT_STREQ(call->child(3)->kindName(), "LiteralValue");
  EXPECT_EQ(static_cast<const E::LiteralValue&>(*call->child(3)).hash(), E::literalHash("q"));
  const NodePtr& neg = list->child(1);
  EXPECT_EQ(neg->code(), E::OpUMinus);
  EXPECT_EQ(neg->precedence(), 70);
  expectThrowKey([&] { neg->child(1); }, "QUBRIX_assertion_failure");
  expectThrowKey([&] { call->child(4); }, "QUBRIX_assertion_failure");
  expectThrowKey([&] { call->child(0)->child(0)->child(0); }, "QUBRIX_assertion_failure");
  const NodePtr& prod = call->child(1)->child(0);
  EXPECT_EQ(prod->precedence(), 90);
  expectThrowKey([&] { prod->child(2); }, "Internal_error_symbolic_processing");
  expectThrowKey([&] { (void)E::Binary(E::OpNot, prod, prod); }, "Internal_error_symbolic_processing");
}

TEST(ExprTree, LiteralHash) {
  // 32-bit FNV-1a over signed bytes, folded three times (computed in Python).
  const std::pair<const char*, uint32_t> table[] = {
      {"", 2174550213u},  {"a", 3840459245u},      {"x", 4260471078u},
      {"123", 1917462834u}, {"sin", 3771792055u},  {"foobar", 3206798002u},
      {"\xc3\xa9", 1019653743u}, {"a b", 280185528u}};
  for (const auto& [text, hash] : table) EXPECT_EQ(E::literalHash(text), hash) << text;
}

TEST(ExprTree, BuiltinHostReadings) {
  const std::pair<const char*, const char*> table[] = {
      {"-a+b", "U- + a b"},
      {"(-a)+b", "+ U- a b"},
      {"a*-b+c", "+ * a U- b c"},
      {"-x^2", "U- ^ x 2"},
      {"a-b-c", "- - a b c"},
      {"a^b^c", "^ ^ a b c"},
      {"a<b==c", "== < a b c"},
      {"!a&&b||c", "|| && ! a b c"},
      {"x[m]^2", "^ (UNIT) x m 2"},
      {"2*x[m/s]", "* 2 (UNIT) x / m s"},
      {"f(a, b)", "() f 2 a b"},
      {"f()", "() f 0"},
      {"d(x^2, x)", "(DIFF) ^ x 2 x"},
      {"d(x, 1)", "() d 2 x 1"},
      {"[a, b]", "(MAT) 2 a b"},
      {"[]", "(MAT) 0"},
      {"a, b , c", ", 3 a b c"},
      {"(a, b)*c", "* , 2 a b c"},
      {"'it''s'+''", "+ \"\" 4 it's \"\" 0"},
      {" 1.5e-3 + .5 - 1. + 2E+2", "+ - + 1.5e-3 .5 1. 2E+2"},
      {"a.b.c_1\t*\nb", "* a.b.c_1 b"},
  };
  for (const auto& [infix, prefix] : table) EXPECT_EQ(hostPrefix(infix), prefix) << infix;
}

TEST(ExprTree, BuiltinHostSyntaxErrors) {
  const std::pair<const char*, size_t> table[] = {
      {"a+", 2},    {"a+)", 2},  {"(a", 2},     {"'abc", 0},   {"a $ b", 2}, {"1e", 0},
      {"1.2.3", 0}, {"f(a,)", 4}, {"a=b", 1},   {"a b", 2},    {"[a", 2},   {"x[m", 3},
      {"12abc", 0}, {"a | b", 2}, {"\xc3\xa9", 0}, {"a,", 2}};
  for (const auto& [text, pos] : table) {
    SCOPED_TRACE(text);
    const auto e = expectThrowKey([&] { hostPrefix(text); }, "Syntax_error_in_expression");
    EXPECT_EQ(e.detail("Position").value_or(""), std::to_string(pos));
    EXPECT_EQ(e.detail("Expression").value_or(""), text);
  }
}

TEST(ExprTree, Limits) {
  const size_t deep = 100000;
  const std::string parens = std::string(deep, '(') + "a" + std::string(deep, ')');
  const std::string unary = std::string(deep, '-') + "a";
  std::string sum = "a";
  for (size_t k = 0; k < 5000; ++k) sum += "+a";
  std::string prefixChain;
  for (size_t k = 0; k < deep; ++k) prefixChain += "U- ";
  prefixChain += "a";
  const std::string longText(ExprImpl::kMaxPrefixLength + 1, '1');
  const std::string longInfix = "a+" + std::string(ExprImpl::kMaxTextLength, '1');
  for (const std::string& text : {parens, unary, sum, longInfix})
    expectThrowKey([&] { ExprImpl t(text); }, "Syntax_error_in_expression");
  for (const std::string& prefix : {prefixChain, longText})
    expectThrowKey([&] { printPrefix(prefix); }, "Syntax_error_in_expression");
  // At the limit: a tree of height kMaxDepth reads, prints and reads back.
  const std::string atLimit = std::string(E::kMaxDepth - 1, '-') + "a";
  ExprImpl t(atLimit);
  EXPECT_EQ(t.root()->height(), E::kMaxDepth);
  EXPECT_EQ(t.toString(), atLimit);
  EXPECT_EQ(printPrefix(t.toPrefix()), atLimit);
}

TEST(ExprTree, DepthLimitFitsAJavaThreadStack) {
  const size_t n = E::kMaxDepth - 1;
  std::string sum = "A";
  for (size_t k = 0; k < n; ++k) sum += "+A";
  const std::string texts[] = {std::string(n, '(') + "a" + std::string(n, ')'),
                               std::string(n - 1, '-') + "a+0", sum};
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const size_t stack = size_t(8) << 20;  // instrumented frames are larger
#else
  const size_t stack = size_t(1) << 19;  // half of a JVM thread's stack
#endif
  qvtest::onStack(stack, [&] {
    for (const std::string& text : texts) {
      ExprImpl t(text);
      const std::string printed = t.toString();
      ExprImpl(printed).toPrefix();
      t.simp();
    }
    qvarray::Array<int, 2> r, a(1, 1);
    ExprTree(sum).boolEval({"A"}, {a}, r);
    expectThrowKey([&] { ExprImpl("(" + texts[0] + ")"); }, "Syntax_error_in_expression");
  });
}

TEST(ExprTree, FastPathsAndHostFailures) {
  auto host = std::make_shared<TestHost>();
  host->answer = [](const std::string& t) { return qvarray::builtinExprHost()->parseExprToPrefix(t); };
  HostScope scope(host);
  EXPECT_STREQ(ExprImpl("123").root()->kindName(), "LiteralValue");
  EXPECT_STREQ(ExprImpl("a_1").root()->kindName(), "Identifier");
  EXPECT_EQ(host->calls, 0);
  EXPECT_STREQ(ExprImpl("a.b").root()->kindName(), "Identifier");
  EXPECT_STREQ(ExprImpl("1e3").root()->kindName(), "LiteralValue");
  EXPECT_EQ(host->calls, 2);
  expectThrowKey([] { ExprTree t(""); }, "Empty_expression");
  EXPECT_EQ(host->calls, 2);

  ExprTree tree("a+0");
  ExprTree shared = tree;  // copies share the tree
  host->answer = [](const std::string&) { return std::string(); };
  auto e = expectThrowKey([&] { ExprTree t("a+b"); }, "Syntax_error_in_expression");
  EXPECT_EQ(e.detail("Expression").value_or(""), "a+b");
  expectThrowKey([&] { tree.simp(); }, "Syntax_error_in_expression", "a+0");
  host->answer = [](const std::string&) -> std::string { throw std::runtime_error("no host"); };
  expectThrowKey([&] { tree.simp(); }, "Internal_error_callback", "no host");
  host->answer = [](const std::string&) -> std::string { throw 1; };
  expectThrowKey([&] { ExprTree t("a+b"); }, "Internal_error_callback");
  EXPECT_EQ(shared.toString(), "a+0");  // failures lose nothing
  host->answer = [](const std::string& t) { return qvarray::builtinExprHost()->simp(t); };
  tree.simp();
  EXPECT_EQ(shared.toString(), "a");
}

// ---- round trips over random trees ----

// Random trees of everything the printer writes unambiguously.
class TreeGen {
 public:
  explicit TreeGen(unsigned seed) : rng_(seed) {}

  NodePtr top() {
    if (pick(4) > 0) return tree(5);
    return list(2 + pick(2), 4);
  }

 private:
  size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }
  template <class T, size_t N>
  const T& any(const T (&a)[N]) { return a[pick(N)]; }

  NodePtr leaf() {
    static const char* names[] = {"x", "y", "a_1", "b.c", "d", "U", "e"};
    static const char* numbers[] = {"0", "1", "2.5", ".5", "1e-3", "12", "1.", "3E+2", "0.1"};
    static const char* strings[] = {"", "it's", "a b", "''", "\xc3\xa9t\xc3\xa9", "(MAT) 2"};
    switch (pick(3)) {
      case 0: return std::make_shared<E::Identifier>(any(names));
      case 1: return std::make_shared<E::UnparsedNumber>(any(numbers));
      default: return std::make_shared<E::StringLiteral>(any(strings));
    }
  }

  E::NodeVec elements(size_t n, int depth) {
    E::NodeVec v;
    for (size_t k = 0; k < n; ++k) v.push_back(tree(depth - 1));
    return v;
  }

  NodePtr list(size_t n, int depth) { return std::make_shared<E::List>(elements(n, depth)); }

  NodePtr tree(int depth) {
    static const int32_t unary[] = {E::OpUPlus, E::OpUMinus, E::OpNot};
    static const int32_t binary[] = {E::OpPlus, E::OpMinus, E::OpTimes, E::OpDivide, E::OpPower,
                                     E::OpEq,   E::OpNe,    E::OpLe,    E::OpGe,     E::OpLt,
                                     E::OpGt,   E::OpAnd,   E::OpOr};
    if (depth <= 0 || pick(4) == 0) return leaf();
    switch (pick(7)) {
      case 0: return std::make_shared<E::Unary>(any(unary), tree(depth - 1));
      case 1:
      case 2: return std::make_shared<E::Binary>(any(binary), tree(depth - 1), tree(depth - 1));
      case 3: {
        static const char* names[] = {"f", "sin", "g2", "a.b"};
        return std::make_shared<E::FuncCall>(any(names), elements(pick(4), depth));
      }
      case 4: return std::make_shared<E::UnitConversion>(tree(depth - 1), pick(3) ? tree(1) : list(2, 2));
      case 5: {
        // Never of a bare name: that prints as a name.
        NodePtr op = std::make_shared<E::Binary>(any(binary), tree(depth - 2), tree(depth - 2));
        if (pick(2)) op = std::make_shared<E::Derivative>(op, "t");
        return std::make_shared<E::Derivative>(op, "x");
      }
      default: return std::make_shared<E::Vector>(elements(pick(4), depth));
    }
  }

  std::mt19937 rng_;
};

TEST(ExprTree, RoundTripsOverRandomTrees) {
  TreeGen gen(2024);
  for (int k = 0; k < 3000; ++k) {
    const NodePtr t = gen.top();
    const std::string prefix = ExprImpl::toPrefix(*t);
    ExprImpl viaPrefix, viaInfix;
    viaPrefix.scanprefix(prefix);
    ASSERT_EQ(viaPrefix.toPrefix(), prefix);
    viaInfix.setRoot(t);
    const std::string infix = viaInfix.toString();
    ASSERT_EQ(viaPrefix.toString(), infix);
    ASSERT_EQ(hostPrefix(infix), prefix) << infix;
    // Simplification: a fixed point after one step.
    viaInfix.simp();
    const std::string once = viaInfix.toPrefix();
    viaInfix.simp();
    ASSERT_EQ(viaInfix.toPrefix(), once) << infix;
  }
}

// ---- simplification keeps values ----

// A test evaluator of + - * / ^ and unary signs over numbers and x, y.
double evaluate(const E::Node& n, double x, double y) {
  if (const auto* b = dynamic_cast<const E::Binary*>(&n)) {
    const double l = evaluate(*b->left(), x, y), r = evaluate(*b->right(), x, y);
    switch (n.code()) {
      case E::OpPlus: return l + r;
      case E::OpMinus: return l - r;
      case E::OpTimes: return l * r;
      case E::OpDivide: return l / r;
      default: return std::pow(l, r);
    }
  }
  if (const auto* u = dynamic_cast<const E::Unary*>(&n))
    return n.code() == E::OpUMinus ? -evaluate(*u->operand(), x, y) : evaluate(*u->operand(), x, y);
  if (const auto* id = dynamic_cast<const E::Identifier*>(&n)) return id->name() == "x" ? x : y;
  return std::strtod(static_cast<const E::LiteralValue&>(n).text().c_str(), nullptr);
}

TEST(ExprTree, SimplificationKeepsValues) {
  std::mt19937 rng(7);
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  const char* leaves[] = {"x", "y", "0", "1", "2", "0.1", "3", "1e308", "0.5", "7"};
  const char* ops[] = {"+", "-", "*", "/", "^"};
  std::function<std::string(int)> gen = [&](int d) -> std::string {
    if (d == 0 || pick(3) == 0) return leaves[pick(10)];
    if (pick(6) == 0) return std::string(pick(2) ? "-" : "+") + "(" + gen(d - 1) + ")";
    return "(" + gen(d - 1) + ")" + ops[pick(5)] + "(" + gen(d - 1) + ")";
  };
  const double points[][2] = {{0.3, -2}, {0, 1}, {-0.0, 5}, {1e300, 3}, {NAN, 1}};
  int changed = 0;
  for (int k = 0; k < 2000; ++k) {
    ExprImpl t(gen(5));
    const std::string before = t.toString();
    ExprImpl s = t;
    s.simp();
    changed += s.toString() != before;
    for (const auto& p : points) {
      const double a = evaluate(*t.root(), p[0], p[1]), b = evaluate(*s.root(), p[0], p[1]);
      ASSERT_TRUE(a == b || (std::isnan(a) && std::isnan(b))) << before << " -> " << s.toString();
    }
  }
  EXPECT_GT(changed, 200);
  const std::pair<const char*, const char*> table[] = {
      {"0.1+0.2", "0.30000000000000004"}, {"1-3", "-2"},      {"x*1+0", "x"},
      {"(2*3)*x/1", "6*x"},               {"1/0", "1/0"},     {"1e308*10", "1e308*10"},
      {"+x-0", "x"},                      {"f(2*2,y^1)", "f(4,y^1)"}, {"(1+1)[m*1]", "2[m*1]"},
      {"d(x*1,+y)", "d(x,+y)"},           {"d(1+x*1,y+0)", "d(1+x,y+0)"}};
  for (const auto& [text, simplified] : table) {
    ExprImpl t(text);
    t.simp();
    EXPECT_EQ(t.toString(), simplified);
  }
}

// ---- set algebra ----

TEST(ExprTree, BoolEval) {
  qvtest::Rng rng(3);
  std::vector<qvarray::Array<int, 2>> v(3, qvarray::Array<int, 2>(4, 5));
  for (auto& a : v)
    for (auto& x : a) x = rng.real() > 0 ? 1 : 0;
  v[2][0] = 7;  // any non-zero flag is set
  const std::vector<std::string> names{"A", "B", "C"};
  const std::pair<const char*, std::function<int(int, int, int)>> table[] = {
      {"A-B", [](int a, int b, int) { return a && !b; }},
      {"A+B*C", [](int a, int b, int c) { return a || (b && c); }},
      {"(A+B)-C", [](int a, int b, int c) { return (a || b) && !c; }},
      {"C", [](int, int, int c) { return c; }},
  };
  for (const auto& [text, model] : table) {
    qvarray::Array<int, 2> r;
    ExprTree(text).boolEval(names, v, r);
    ASSERT_EQ(r.sizes[0], 4u);
    for (size_t k = 0; k < r.count; ++k) EXPECT_EQ(r[k], model(v[0][k], v[1][k], v[2][k])) << text;
  }
  qvarray::Array<int, 2> kept(1, 1);
  kept[0] = 42;
  expectThrowKey([&] { ExprTree("A+D").boolEval(names, v, kept); }, "Unknown_variable_name", "D");
  const std::pair<const char*, const char*> unimplemented[] = {
      {"A/B", "Binary"}, {"-A", "Unary"}, {"f(A)", "FuncCall"}, {"1", "LiteralValue"}, {"A,B", "List"}};
  for (const auto& [text, kind] : unimplemented)
    expectThrowKey([&] { ExprTree(text).boolEval(names, v, kept); }, "Unimplemented_operator", kind);
  EXPECT_EQ(kept[0], 42);
}

}  // namespace
