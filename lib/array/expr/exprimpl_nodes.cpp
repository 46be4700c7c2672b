// Nodes of the syntax tree: construction, child access, infix printing and
// the steps of the set algebra.
#include <algorithm>

#include "qvarray/expr/exprtree.h"
#include "qvutil/errors.h"

namespace qvarray {

using Node = ExprImpl::Node;
using NodePtr = ExprImpl::NodePtr;

// ---- operators ----

int32_t ExprImpl::binaryPrecedence(int32_t op) {
  switch (op) {
    case OpOr: return 40;
    case OpAnd: return 50;
    case OpEq: case OpNe: case OpLe: case OpGe: case OpLt: case OpGt: return 60;
    case OpPlus: case OpMinus: return 80;
    case OpTimes: case OpDivide: return 90;
    case OpPower: return 110;
    default: return 0;
  }
}

const char* ExprImpl::operatorSymbol(int32_t op) {
  switch (op) {
    case OpUPlus: case OpPlus: return "+";
    case OpUMinus: case OpMinus: return "-";
    case OpNot: return "!";
    case OpTimes: return "*";
    case OpDivide: return "/";
    case OpPower: return "^";
    case OpEq: return "==";
    case OpNe: return "!=";
    case OpLe: return "<=";
    case OpGe: return ">=";
    case OpLt: return "<";
    case OpGt: return ">";
    case OpAnd: return "&&";
    case OpOr: return "||";
    default: return nullptr;
  }
}

uint32_t ExprImpl::literalHash(std::string_view text) {
  // FNV-1a, 32 bits; a byte enters sign-extended, as a signed char.
  uint32_t h = 2166136261u;
  for (char c : text) {
    h ^= static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    h *= 16777619u;
  }
  uint32_t t = h;
  for (int k = 0; k < 3; ++k) t = (t >> 8) ^ h;
  return t;
}

// ---- Node ----

Node::~Node() = default;

uint32_t Node::heightOver(const NodeVec& children) {
  uint32_t h = 0;
  for (const NodePtr& c : children) {
    QV_ASSERT(c, exprimpl);
    h = std::max(h, c->height());
  }
  return h + 1;
}

uint32_t Node::heightOver(const NodePtr& child) {
  QV_ASSERT(child, exprimpl);
  return child->height() + 1;
}

uint32_t Node::heightOver(const NodePtr& left, const NodePtr& right) {
  QV_ASSERT(left && right, exprimpl);
  return std::max(left->height(), right->height()) + 1;
}

void Node::print(std::string& out, int32_t parentPrecedence) const {
  if (precedence_ >= parentPrecedence) return printBody(out);
  out += '(';
  printBody(out);
  out += ')';
}

void Node::boolEval(BoolEvalContext&, size_t) const {
  QV_RAISE(exprimpl, Unimplemented_operator, qvbase::DetailPairs{{"Name", kindName()}});
}

namespace {

// Appends the elements printed with precedence 0, separated by `sep`.
void printJoined(std::string& out, const ExprImpl::NodeVec& elements, const char* sep) {
  for (size_t k = 0; k < elements.size(); ++k) {
    if (k) out += sep;
    elements[k]->print(out, 0);
  }
}

}  // namespace

// ---- operators ----

ExprImpl::Unary::Unary(int32_t op, NodePtr operand)
    : Node(op, kPrecUnary, heightOver(operand)), operand_(std::move(operand)) {
  QV_ASSERT(op == OpUPlus || op == OpUMinus || op == OpNot, exprimpl);
}

const NodePtr& ExprImpl::Unary::child(size_t i) const {
  QV_ASSERT(i == 0, exprimpl);
  return operand_;
}

void ExprImpl::Unary::printBody(std::string& out) const {
  out += operatorSymbol(code());
  operand_->print(out, kPrecUnary);
}

ExprImpl::Binary::Binary(int32_t op, NodePtr left, NodePtr right)
    : Node(op, binaryPrecedence(op), heightOver(left, right)),
      left_(std::move(left)),
      right_(std::move(right)) {
  QV_CHECK(precedence() != 0, exprimpl, Internal_error_symbolic_processing);
}

const NodePtr& ExprImpl::Binary::child(size_t i) const {
  QV_CHECK(i < 2, exprimpl, Internal_error_symbolic_processing);
  return i == 0 ? left_ : right_;
}

void ExprImpl::Binary::printBody(std::string& out) const {
  left_->print(out, precedence());
  out += operatorSymbol(code());
  right_->print(out, precedence() + 1);
}

void ExprImpl::Binary::boolEval(BoolEvalContext& ctx, size_t depth) const {
  if (code() != OpPlus && code() != OpMinus && code() != OpTimes) Node::boolEval(ctx, depth);
  left_->boolEval(ctx, depth);
  right_->boolEval(ctx, depth + 1);
  int* a = ctx.stack[depth].data;
  const int* b = ctx.stack[depth + 1].data;
  const size_t n = ctx.stack[depth].count;
  switch (code()) {
    case OpPlus:
      for (size_t k = 0; k < n; ++k) a[k] = (a[k] != 0) | (b[k] != 0);
      break;
    case OpMinus:
      for (size_t k = 0; k < n; ++k) a[k] = (a[k] != 0) & (b[k] == 0);
      break;
    default:
      for (size_t k = 0; k < n; ++k) a[k] = (a[k] != 0) & (b[k] != 0);
  }
}

// ---- calls, units, derivatives ----

ExprImpl::FuncCall::FuncCall(std::string name, NodeVec args)
    : Node(0, kPrecLeaf, heightOver(args)), name_(std::move(name)), args_(std::move(args)) {}

const NodePtr& ExprImpl::FuncCall::child(size_t i) const {
  QV_ASSERT(i < args_.size(), exprimpl);
  return args_[i];
}

void ExprImpl::FuncCall::printBody(std::string& out) const {
  out += name_;
  out += '(';
  printJoined(out, args_, ",");
  out += ')';
}

ExprImpl::UnitConversion::UnitConversion(NodePtr expr, NodePtr unit)
    : Node(kUnitConversionTag, kPrecUnit, heightOver(expr, unit)),
      expr_(std::move(expr)),
      unit_(std::move(unit)) {}

const NodePtr& ExprImpl::UnitConversion::child(size_t i) const {
  QV_ASSERT(i < 2, exprimpl);
  return i == 0 ? expr_ : unit_;
}

void ExprImpl::UnitConversion::printBody(std::string& out) const {
  expr_->print(out, kPrecUnit);
  out += '[';
  unit_->print(out, 0);
  out += ']';
}

ExprImpl::Derivative::Derivative(NodePtr expr, std::string variable)
    : Node(kDerivativeTag, kPrecLeaf, heightOver(expr)),
      expr_(std::move(expr)),
      variable_(std::move(variable)) {}

const NodePtr& ExprImpl::Derivative::child(size_t i) const {
  QV_ASSERT(i == 0, exprimpl);
  return expr_;
}

void ExprImpl::Derivative::printBody(std::string& out) const {
  // Through directly nested derivatives to the innermost operand; a name
  // there prints with the variables appended, the outermost first.
  const Node* inner = expr_.get();
  while (inner->code() == kDerivativeTag) inner = static_cast<const Derivative*>(inner)->expr_.get();
  if (inner->code() != kIdentifierTag) {
    out += "d(";
    expr_->print(out, 0);
    out += ',';
    out += variable_;
    out += ')';
    return;
  }
  out += static_cast<const Identifier*>(inner)->name();
  for (const Node* d = this; d->code() == kDerivativeTag;) {
    const auto* der = static_cast<const Derivative*>(d);
    out += der->variable_;
    d = der->expr_.get();
  }
}

// ---- leaves ----

const NodePtr& ExprImpl::Leaf::child(size_t) const {
  QV_RAISE(exprimpl, QUBRIX_assertion_failure);
}

ExprImpl::Identifier::Identifier(std::string name)
    : Leaf(kIdentifierTag, kPrecLeaf, 1), name_(std::move(name)) {}

void ExprImpl::Identifier::printBody(std::string& out) const { out += name_; }

void ExprImpl::Identifier::boolEval(BoolEvalContext& ctx, size_t depth) const {
  const auto it = std::find(ctx.names.begin(), ctx.names.end(), name_);
  if (it == ctx.names.end())
    QV_RAISE(exprimpl, Unknown_variable_name, qvbase::DetailPairs{{"Name", name_}});
  ctx.stack[depth] = ctx.values[static_cast<size_t>(it - ctx.names.begin())];
}

ExprImpl::LiteralValue::LiteralValue(std::string text)
    : Leaf(0, kPrecLeaf, 1), text_(std::move(text)), hash_(literalHash(text_)) {}

void ExprImpl::LiteralValue::printBody(std::string& out) const { out += text_; }

void ExprImpl::StringLiteral::printBody(std::string& out) const {
  out += '\'';
  for (char c : text()) {
    out += c;
    if (c == '\'') out += '\'';
  }
  out += '\'';
}

// ---- lists ----

ExprImpl::List::List(NodeVec elements)
    : Node(0, kPrecList, heightOver(elements)), elements_(std::move(elements)) {}

const NodePtr& ExprImpl::List::child(size_t i) const {
  QV_ASSERT(i < elements_.size(), exprimpl);
  return elements_[i];
}

void ExprImpl::List::printBody(std::string& out) const { printJoined(out, elements_, " , "); }

void ExprImpl::Vector::printBody(std::string& out) const {
  out += '[';
  printJoined(out, elements(), " , ");
  out += ']';
}

}  // namespace qvarray
