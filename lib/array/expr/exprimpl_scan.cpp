// The prefix scanner: prefix text (the host's answer) to a syntax tree.
//
// One pass over the tokens with two stacks: the constructs still waiting for
// operands (each with the number it lacks) and the finished operands. A leaf
// or a construct without operands becomes an operand; an operand completes
// the construct on top of the stack when it was the last one missing, and the
// construct, built, becomes an operand in turn. The text must end exactly
// when the root is complete. No recursion, so a hostile text cannot exhaust
// the stack; node heights are checked as constructs are built.
//
// Leaves of equal class and text are one node: a table keyed by the text's
// literal hash finds the leaves made so far.
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "expr/exprsyntax.h"
#include "qvarray/expr/exprtree.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using Node = ExprImpl::Node;
using NodePtr = ExprImpl::NodePtr;
using NodeVec = ExprImpl::NodeVec;

enum class Construct { Unary, Binary, Call, Unit, Diff, List, Vector };

struct Pending {
  Construct kind;
  int32_t code;      // the operator code
  size_t missing;    // operands still to come
  size_t first;      // the place of its first operand on the operand stack
  std::string name;  // the function name of a call
};

// The leaf classes that the table tells apart.
enum class LeafClass { Identifier, Number, String };

struct SharedLeaf {
  LeafClass cls;
  const std::string* text;
  NodePtr node;
};

class PrefixScanner {
 public:
  explicit PrefixScanner(const std::string& text) : text_(text) {}

  NodePtr run() {
    if (text_.size() > ExprImpl::kMaxPrefixLength) fail("expression too long", text_.size());
    for (;;) {
      const std::string_view tok = token();
      if (tok.empty()) fail("expression ends too early", pos_);
      if (NodePtr n = operandOf(tok)) {
        if (NodePtr root = addOperand(std::move(n))) {
          skipBlanks();
          if (pos_ < text_.size()) fail("text after the end of the expression", pos_);
          return root;
        }
      }
    }
  }

 private:
  [[noreturn]] void fail(const char* why, size_t position) const {
    syntaxError(why, position, text_);
  }

  void skipBlanks() {
    while (pos_ < text_.size() && isBlank(text_[pos_])) ++pos_;
  }

  // The next token, empty at the end of the text.
  std::string_view token() {
    skipBlanks();
    tokStart_ = pos_;
    while (pos_ < text_.size() && !isBlank(text_[pos_])) ++pos_;
    return std::string_view(text_).substr(tokStart_, pos_ - tokStart_);
  }

  // The count after a token: decimal digits after optional blanks, followed by
  // a blank or the end. No count can exceed the characters left.
  size_t count() {
    skipBlanks();
    const size_t start = pos_;
    size_t n = 0;
    while (pos_ < text_.size() && isDigit(text_[pos_])) {
      n = n * 10 + static_cast<size_t>(text_[pos_] - '0');
      if (n > text_.size()) fail("count too large", start);
      ++pos_;
    }
    if (pos_ == start) fail("count missing", start);
    if (pos_ < text_.size() && !isBlank(text_[pos_])) fail("count malformed", start);
    return n;
  }

  // The n characters of a string literal after the separator that follows its
  // count (see exprtree.h: a character is one UTF-8 sequence).
  std::string stringContents(size_t n) {
    const size_t countAt = pos_;
    if (n == 0) return {};
    ++pos_;  // the separator, a blank (count() checked it)
    const size_t start = pos_;
    for (size_t k = 0; k < n; ++k) {
      if (pos_ >= text_.size()) fail("string literal cut short", countAt);
      ++pos_;
      while (pos_ < text_.size() && isUtf8Continuation(text_[pos_])) ++pos_;
    }
    if (pos_ < text_.size() && !isBlank(text_[pos_])) fail("string literal longer than its count", start);
    return text_.substr(start, pos_ - start);
  }

  // The operand that `tok` makes at once, or null for a construct (pushed).
  NodePtr operandOf(std::string_view tok) {
    if (const int32_t op = prefixOperator(tok)) {
      const bool unary = tok == "U+" || tok == "U-" || tok == "!";
      return push(unary ? Construct::Unary : Construct::Binary, op, unary ? 1 : 2);
    }
    if (tok == "()") {
      std::string name(token());
      if (name.empty()) fail("function name missing", pos_);
      const size_t n = count();
      if (n == 0) return std::make_shared<ExprImpl::FuncCall>(std::move(name), NodeVec{});
      push(Construct::Call, 0, n);
      pending_.back().name = std::move(name);
      return nullptr;
    }
    if (tok == "(UNIT)") return push(Construct::Unit, 0, 2);
    if (tok == "(DIFF)") return push(Construct::Diff, 0, 2);
    if (tok == "," || tok == "(MAT)") {
      const bool vector = tok != ",";
      const size_t n = count();
      if (n > 0) return push(vector ? Construct::Vector : Construct::List, 0, n);
      if (vector) return std::make_shared<ExprImpl::Vector>(NodeVec{});
      return std::make_shared<ExprImpl::List>(NodeVec{});
    }
    if (tok == "\"\"") return leaf(LeafClass::String, stringContents(count()));
    if (isLetter(static_cast<char>(tok[0] & 0x7f))) {
      if (!isNameText(tok)) fail("invalid name", tokStart_);
      return leaf(LeafClass::Identifier, std::string(tok));
    }
    return leaf(LeafClass::Number, std::string(tok));
  }

  // Pushes a construct waiting for `operands` operands; no operand yet (null).
  NodePtr push(Construct kind, int32_t code, size_t operands) {
    pending_.push_back({kind, code, operands, operands_.size(), {}});
    return nullptr;
  }

  // The shared leaf of class `cls` and text `text`.
  NodePtr leaf(LeafClass cls, std::string text) {
    const uint32_t h = ExprImpl::literalHash(text);
    const auto range = leaves_.equal_range(h);
    for (auto it = range.first; it != range.second; ++it)
      if (it->second.cls == cls && *it->second.text == text) return it->second.node;
    NodePtr node;
    const std::string* stored;
    if (cls == LeafClass::Identifier) {
      auto id = std::make_shared<ExprImpl::Identifier>(std::move(text));
      stored = &id->name();
      node = std::move(id);
    } else {
      std::shared_ptr<ExprImpl::LiteralValue> lit;
      if (cls == LeafClass::String) lit = std::make_shared<ExprImpl::StringLiteral>(std::move(text));
      else lit = std::make_shared<ExprImpl::UnparsedNumber>(std::move(text));
      stored = &lit->text();
      node = std::move(lit);
    }
    leaves_.emplace(h, SharedLeaf{cls, stored, node});
    return node;
  }

  // Adds a finished operand and builds every construct it completes. Returns
  // the root once the outermost construct is complete, else null.
  NodePtr addOperand(NodePtr n) {
    for (;;) {
      if (pending_.empty()) return n;
      operands_.push_back(std::move(n));
      Pending& p = pending_.back();
      if (--p.missing > 0) return nullptr;
      n = build(p);
      operands_.resize(p.first);
      pending_.pop_back();
    }
  }

  NodePtr build(Pending& p) {
    NodeVec args(std::make_move_iterator(operands_.begin() + static_cast<ptrdiff_t>(p.first)),
                 std::make_move_iterator(operands_.end()));
    uint32_t height = 0;
    for (const NodePtr& a : args) height = std::max(height, a->height());
    if (height >= ExprImpl::kMaxDepth) fail("expression nested too deeply", tokStart_);
    switch (p.kind) {
      case Construct::Unary: return std::make_shared<ExprImpl::Unary>(p.code, std::move(args[0]));
      case Construct::Binary:
        return std::make_shared<ExprImpl::Binary>(p.code, std::move(args[0]), std::move(args[1]));
      case Construct::Call: return std::make_shared<ExprImpl::FuncCall>(std::move(p.name), std::move(args));
      case Construct::Unit:
        return std::make_shared<ExprImpl::UnitConversion>(std::move(args[0]), std::move(args[1]));
      case Construct::Diff: {
        if (args[1]->code() != ExprImpl::kIdentifierTag)
          fail("derivative variable is not a name", tokStart_);
        const auto& var = static_cast<const ExprImpl::Identifier&>(*args[1]).name();
        return std::make_shared<ExprImpl::Derivative>(std::move(args[0]), var);
      }
      case Construct::List: return std::make_shared<ExprImpl::List>(std::move(args));
      case Construct::Vector: return std::make_shared<ExprImpl::Vector>(std::move(args));
    }
    return nullptr;
  }

  const std::string& text_;
  size_t pos_ = 0, tokStart_ = 0;
  std::vector<Pending> pending_;
  NodeVec operands_;
  std::unordered_multimap<uint32_t, SharedLeaf> leaves_;
};

}  // namespace

void ExprImpl::scanprefix(const std::string& prefix) { root_ = PrefixScanner(prefix).run(); }

}  // namespace qvarray
