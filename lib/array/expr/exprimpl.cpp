// ExprImpl: text to tree (fast paths, host, scanner), the tree back to infix
// and prefix text, simplification through the host, and the set algebra.
#include <exception>
#include <new>

#include "expr/exprsyntax.h"
#include "qvarray/expr/exprhost.h"
#include "qvarray/expr/exprtree.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

// A bare number: decimal digits only. Characters are tested on their low 7
// bits, as the host's own reader does.
bool isBareNumber(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text)
    if (!isDigit(static_cast<char>(c & 0x7f))) return false;
  return true;
}

// A bare name: a letter, then letters, digits and "_" (no dots).
bool isBareName(const std::string& text) {
  if (text.empty() || !isLetter(static_cast<char>(text[0] & 0x7f))) return false;
  for (char c : text) {
    const char m = static_cast<char>(c & 0x7f);
    if (!isLetter(m) && !isDigit(m) && m != '_') return false;
  }
  return true;
}

// Calls the host. A host error that is no library exception becomes
// "Internal_error_callback"; an empty answer is a syntax error of `text`.
template <class Call>
std::string askHost(const std::string& text, Call call) {
  std::string answer;
  try {
    answer = call(*exprHost());
  } catch (const qvbase::Exception&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    QV_RAISE(exprimpl, Internal_error_callback, std::string(e.what()));
  } catch (...) {
    QV_RAISE(exprimpl, Internal_error_callback);
  }
  if (answer.empty())
    QV_RAISE(exprimpl, Syntax_error_in_expression, qvbase::DetailPairs{{"Expression", text}});
  return answer;
}

// The tokens of a node that come before its children: the operator token,
// with the name and count of a call, list or vector; a leaf's whole text.
[[gnu::noinline]] void writeHead(const ExprImpl::Node& node, std::string& out) {
  using E = ExprImpl;
  if (dynamic_cast<const E::Unary*>(&node)) {
    out += node.code() == E::OpUPlus ? "U+" : node.code() == E::OpUMinus ? "U-" : "!";
  } else if (dynamic_cast<const E::Binary*>(&node)) {
    out += E::operatorSymbol(node.code());
  } else if (const auto* f = dynamic_cast<const E::FuncCall*>(&node)) {
    out += "() " + f->name() + ' ' + std::to_string(f->args().size());
  } else if (dynamic_cast<const E::UnitConversion*>(&node)) {
    out += "(UNIT)";
  } else if (dynamic_cast<const E::Derivative*>(&node)) {
    out += "(DIFF)";
  } else if (const auto* l = dynamic_cast<const E::List*>(&node)) {
    out += dynamic_cast<const E::Vector*>(l) ? "(MAT) " : ", ";
    out += std::to_string(l->elements().size());
  } else if (const auto* s = dynamic_cast<const E::StringLiteral*>(&node)) {
    out += "\"\" " + std::to_string(utf8Length(s->text()));
    if (!s->text().empty()) out += ' ' + s->text();
  } else {
    node.printBody(out);  // a name or a number: its text
  }
}

// Head, children, and a derivative's variable after its expression. The
// recursion keeps a small frame: a tree may be ExprImpl::kMaxDepth high.
void writePrefix(const ExprImpl::Node& node, std::string& out) {
  writeHead(node, out);
  const size_t n = node.childCount();
  for (size_t k = 0; k < n; ++k) {
    out += ' ';
    writePrefix(*node.child(k), out);
  }
  if (node.code() == ExprImpl::kDerivativeTag) {
    out += ' ';
    out += static_cast<const ExprImpl::Derivative&>(node).variable();
  }
}

}  // namespace

void ExprImpl::constructor(const std::string& text) { scan(text); }

void ExprImpl::scan(const std::string& text) {
  if (isBareNumber(text)) root_ = std::make_shared<UnparsedNumber>(text);
  else if (isBareName(text)) root_ = std::make_shared<Identifier>(text);
  else scanprefix(parseExprToPrefix(text));
}

std::string ExprImpl::parseExprToPrefix(const std::string& text) {
  QV_CHECK(!text.empty(), exprimpl, Empty_expression);
  return askHost(text, [&](const ExprHost& h) { return h.parseExprToPrefix(text); });
}

std::string ExprImpl::toString() const {
  std::string out;
  if (root_) root_->print(out, 0);
  return out;
}

std::string ExprImpl::toPrefix(const Node& node) {
  std::string out;
  writePrefix(node, out);
  return out;
}

std::string ExprImpl::toPrefix() const { return root_ ? toPrefix(*root_) : std::string(); }

void ExprImpl::simp() {
  QV_ASSERT(root_, exprimpl);
  const std::string text = toString();
  scanprefix(askHost(text, [&](const ExprHost& h) { return h.simp(text); }));
}

void ExprImpl::boolEval(const std::vector<std::string>& names,
                        const std::vector<Array<int, 2>>& values, Array<int, 2>& result) const {
  QV_ASSERT(root_ && names.size() == values.size(), exprimpl);
  for (const auto& v : values)
    QV_ASSERT(v.sizes[0] == values[0].sizes[0] && v.sizes[1] == values[0].sizes[1], exprimpl);
  BoolEvalContext ctx{names, values, {}};
  ctx.stack.resize(root_->height() + 1);
  root_->boolEval(ctx, 0);
  result = std::move(ctx.stack[0]);
}

}  // namespace qvarray
