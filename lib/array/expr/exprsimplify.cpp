// Simplification of syntax trees: constant folding and neutral elements,
// children first.
#include "expr/exprsimplify.h"

#include <charconv>
#include <cmath>

#include "expr/exprsyntax.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

using E = ExprImpl;
using NodePtr = E::NodePtr;
using NodeVec = E::NodeVec;

// The value of a number literal in the grammar's form (no sign, "inf" or
// "nan"), when it is finite.
bool literalValue(const NodePtr& n, double& v) {
  const auto* num = dynamic_cast<const E::UnparsedNumber*>(n.get());
  if (!num || num->text().empty()) return false;
  const char c = num->text()[0];
  if (!isDigit(c) && c != '.') return false;
  return qvutil::scanDouble(num->text(), v) == qvutil::NumberScan::Ok && std::isfinite(v);
}

bool isLiteral(const NodePtr& n, double value) {
  double v;
  return literalValue(n, v) && v == value;
}

// The literal of a finite double: the shortest text that reads back to it.
NodePtr literalOf(double v) {
  char buf[32];
  const auto r = std::to_chars(buf, buf + sizeof buf, std::fabs(v));
  NodePtr num = std::make_shared<E::UnparsedNumber>(std::string(buf, r.ptr));
  if (std::signbit(v)) return std::make_shared<E::Unary>(E::OpUMinus, std::move(num));
  return num;
}

// a op b of two literals into `out`, when it folds exactly as evaluated.
bool fold(int32_t op, const NodePtr& a, const NodePtr& b, NodePtr& out) {
  double x, y, r;
  if (!literalValue(a, x) || !literalValue(b, y)) return false;
  switch (op) {
    case E::OpPlus: r = x + y; break;
    case E::OpMinus: r = x - y; break;
    case E::OpTimes: r = x * y; break;
    case E::OpDivide:
      if (y == 0) return false;
      r = x / y;
      break;
    default: return false;
  }
  if (!std::isfinite(r)) return false;
  out = literalOf(r);
  return true;
}

// The operand inside directly nested derivatives.
const E::Node& innermost(const E::Node& n) {
  const E::Node* p = &n;
  while (const auto* d = dynamic_cast<const E::Derivative*>(p)) p = d->expr().get();
  return *p;
}

// A list without brackets: inside another list or a call it prints without
// its boundary ("a, +(b, c)" would read back as "a, b, c"), so a rule that
// replaces a node by such an operand would change what the tree reads as.
bool bareList(const NodePtr& n) {
  return dynamic_cast<const E::List*>(n.get()) && !dynamic_cast<const E::Vector*>(n.get());
}

// b with its simplified operands l and r: folded, reduced, or rebuilt.
[[gnu::noinline]] NodePtr binaryOver(const E::Binary& b, const NodePtr& self, const NodePtr& l,
                                     const NodePtr& r) {
  NodePtr folded;
  if (fold(b.code(), l, r, folded)) return folded;
  if (bareList(l) || bareList(r)) {
    if (l == b.left() && r == b.right()) return self;
    return std::make_shared<E::Binary>(b.code(), l, r);
  }
  switch (b.code()) {
    case E::OpPlus:
      if (isLiteral(r, 0)) return l;
      if (isLiteral(l, 0)) return r;
      break;
    case E::OpMinus:
      if (isLiteral(r, 0)) return l;
      break;
    case E::OpTimes:
      if (isLiteral(r, 1)) return l;
      if (isLiteral(l, 1)) return r;
      break;
    case E::OpDivide:
      if (isLiteral(r, 1)) return l;
      break;
    default: break;
  }
  if (l == b.left() && r == b.right()) return self;
  return std::make_shared<E::Binary>(b.code(), l, r);
}

[[gnu::noinline]] NodePtr binary(const E::Binary& b, const NodePtr& self) {
  const NodePtr l = simplifyTree(b.left()), r = simplifyTree(b.right());
  return binaryOver(b, self, l, r);
}

// The simplified elements; `changed` tells whether any differs.
NodeVec all(const NodeVec& v, bool& changed) {
  NodeVec out;
  out.reserve(v.size());
  changed = false;
  for (const auto& n : v) {
    out.push_back(simplifyTree(n));
    changed |= out.back() != n;
  }
  return out;
}

// One function per kind, out of line, so that the recursion through
// simplifyTree keeps small frames.
// +x becomes x, except over a bare list.
[[gnu::noinline]] NodePtr unary(const E::Unary& u, const NodePtr& self) {
  NodePtr c = simplifyTree(u.operand());
  if (u.code() == E::OpUPlus && !bareList(c)) return c;
  return c == u.operand() ? self : std::make_shared<E::Unary>(u.code(), std::move(c));
}

[[gnu::noinline]] NodePtr unitConversion(const E::UnitConversion& uc, const NodePtr& self) {
  NodePtr c = simplifyTree(uc.expr());
  return c == uc.expr() ? self : std::make_shared<E::UnitConversion>(std::move(c), uc.unit());
}

// A derivative of a bare name prints as one name (u by x is "ux"); one whose
// operand becomes a bare name stays as it is, so that its printed form still
// reads back as a derivative.
[[gnu::noinline]] NodePtr derivative(const E::Derivative& d, const NodePtr& self) {
  NodePtr c = simplifyTree(d.expr());
  if (c == d.expr() || innermost(*c).code() == E::kIdentifierTag) return self;
  return std::make_shared<E::Derivative>(std::move(c), d.variable());
}

// A call d(a, b) whose b becomes a bare name would print as the derivative
// d(a, x): b stays as it is.
[[gnu::noinline]] NodePtr call(const E::FuncCall& f, const NodePtr& self) {
  bool changed = false;
  NodeVec args = all(f.args(), changed);
  if (f.name() == "d" && args.size() == 2 && args[1]->code() == E::kIdentifierTag) {
    args[1] = f.args()[1];
    changed = args[0] != f.args()[0];
  }
  return changed ? std::make_shared<E::FuncCall>(f.name(), std::move(args)) : self;
}

[[gnu::noinline]] NodePtr list(const E::List& l, const NodePtr& self) {
  bool changed = false;
  NodeVec elements = all(l.elements(), changed);
  if (!changed) return self;
  if (dynamic_cast<const E::Vector*>(&l)) return std::make_shared<E::Vector>(std::move(elements));
  return std::make_shared<E::List>(std::move(elements));
}

}  // namespace

NodePtr simplifyTree(const NodePtr& node) {
  const E::Node* n = node.get();
  if (const auto* b = dynamic_cast<const E::Binary*>(n)) return binary(*b, node);
  if (const auto* u = dynamic_cast<const E::Unary*>(n)) return unary(*u, node);
  if (const auto* uc = dynamic_cast<const E::UnitConversion*>(n)) return unitConversion(*uc, node);
  if (const auto* d = dynamic_cast<const E::Derivative*>(n)) return derivative(*d, node);
  if (const auto* f = dynamic_cast<const E::FuncCall*>(n)) return call(*f, node);
  if (const auto* l = dynamic_cast<const E::List*>(n)) return list(*l, node);
  return node;  // a leaf
}

}  // namespace qvarray
