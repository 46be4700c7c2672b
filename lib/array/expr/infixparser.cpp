// Infix text to syntax tree: a lexer and a precedence-climbing parser.
//
// parseExpr(min) reads an operand, then every binary operator (and unit
// conversion "[ ]", a postfix operator of precedence 100) whose precedence is
// at least `min`; the right operand of an operator of precedence p is read
// with min = p + 1, which makes every operator left-associative. A unary
// operator reads its operand with min = max(70, the caller's min): looser
// than arithmetic (-a+b is -(a+b)), yet never taking more than the operator
// before it binds (a*-b+c is a*(-b)+c).
//
// Recursion: each level of parentheses, brackets or unary operators costs a
// bounded number of frames, and the nesting is counted against
// ExprImpl::kMaxDepth, as is the height of every node built.
#include "expr/infixparser.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "expr/exprsyntax.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using E = ExprImpl;
using NodePtr = E::NodePtr;
using NodeVec = E::NodeVec;

enum class Tok { End, Number, Name, String, Operator, LParen, RParen, LBracket, RBracket, Comma };

struct Token {
  Tok kind = Tok::End;
  int32_t op = 0;         // operator code (binary, or the unary one for "!")
  size_t pos = 0;         // offset of its first character
  std::string_view text;  // as written
};

class Lexer {
 public:
  explicit Lexer(const std::string& text) : text_(text) {}

  Token next() {
    while (pos_ < text_.size() && isBlank(text_[pos_])) ++pos_;
    Token t;
    t.pos = pos_;
    if (pos_ >= text_.size()) return t;
    const char c = text_[pos_];
    if (isDigit(c) || (c == '.' && pos_ + 1 < text_.size() && isDigit(text_[pos_ + 1]))) {
      t.kind = Tok::Number;
      number();
    } else if (isLetter(c)) {
      t.kind = Tok::Name;
      while (pos_ < text_.size() && isNameChar(text_[pos_])) ++pos_;
    } else if (c == '\'') {
      t.kind = Tok::String;
      contents_ = quoted();
    } else {
      t.kind = punctuation(t.op);
    }
    t.text = std::string_view(text_).substr(t.pos, pos_ - t.pos);
    return t;
  }

  /// The contents of the last string literal read.
  std::string& contents() { return contents_; }

 private:
  // digits [. digits] [e [+-] digits], or . digits [...]; the character after
  // it must not continue a name or a number.
  void number() {
    const size_t start = pos_;
    auto digits = [&] {
      while (pos_ < text_.size() && isDigit(text_[pos_])) ++pos_;
    };
    digits();
    if (pos_ < text_.size() && text_[pos_] == '.') ++pos_, digits();
    if (pos_ < text_.size() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
      ++pos_;
      if (pos_ < text_.size() && (text_[pos_] == '+' || text_[pos_] == '-')) ++pos_;
      if (pos_ >= text_.size() || !isDigit(text_[pos_])) syntaxError("invalid number", start, text_);
      digits();
    }
    if (pos_ < text_.size() && isNameChar(text_[pos_])) syntaxError("invalid number", start, text_);
  }

  // The contents of a literal in single quotes, '' standing for one quote.
  std::string quoted() {
    const size_t start = pos_++;
    std::string s;
    for (;;) {
      const size_t q = text_.find('\'', pos_);
      if (q == std::string::npos) syntaxError("string literal not closed", start, text_);
      s.append(text_, pos_, q - pos_);
      pos_ = q + 1;
      if (pos_ >= text_.size() || text_[pos_] != '\'') return s;
      s += '\'';
      ++pos_;
    }
  }

  Tok punctuation(int32_t& op) {
    const char c = text_[pos_];
    const char d = pos_ + 1 < text_.size() ? text_[pos_ + 1] : '\0';
    switch (c) {
      case '(': return ++pos_, Tok::LParen;
      case ')': return ++pos_, Tok::RParen;
      case '[': return ++pos_, Tok::LBracket;
      case ']': return ++pos_, Tok::RBracket;
      case ',': return ++pos_, Tok::Comma;
      default: break;
    }
    const char two[3] = {c, d, '\0'};
    if (d != '\0' && (op = prefixOperator(two)) != 0 && std::string_view(two) != "U+" &&
        std::string_view(two) != "U-") {
      pos_ += 2;
      return Tok::Operator;
    }
    const char one[2] = {c, '\0'};
    if ((op = prefixOperator(one)) != 0) {
      ++pos_;
      return Tok::Operator;
    }
    syntaxError("invalid character", pos_, text_);
  }

  const std::string& text_;
  size_t pos_ = 0;
  std::string contents_;
};

class InfixParser {
 public:
  explicit InfixParser(const std::string& text) : text_(text), lexer_(text) {}

  NodePtr run() {
    if (text_.size() > E::kMaxTextLength) syntaxError("expression too long", text_.size(), text_);
    advance();
    NodePtr root = list();
    if (tok_.kind != Tok::End) unexpected();
    return root;
  }

 private:
  // The functions on the recursive path (expr, primary, list) keep small
  // frames; what needs more room is out of line.

  void advance() { tok_ = lexer_.next(); }

  [[noreturn]] void unexpected() const {
    syntaxError(tok_.kind == Tok::End ? "unexpected end of expression" : "unexpected token", tok_.pos,
                text_);
  }

  void expect(Tok kind) {
    if (tok_.kind != kind) unexpected();
    advance();
  }

  // Builds a node over children whose highest is `height` high.
  template <class T, class... Args>
  [[gnu::noinline]] NodePtr make(uint32_t height, size_t pos, Args&&... args) {
    if (height >= E::kMaxDepth) syntaxError("expression nested too deeply", pos, text_);
    return std::make_shared<T>(std::forward<Args>(args)...);
  }

  static uint32_t highest(const NodeVec& v) {
    uint32_t h = 0;
    for (const auto& n : v) h = std::max(h, n->height());
    return h;
  }

  // a , b , ...: a List when there is a comma, else the one expression.
  NodePtr list() {
    NodePtr first = expr(0);
    if (tok_.kind != Tok::Comma) return first;
    return listAfter(std::move(first));
  }

  [[gnu::noinline]] NodePtr listAfter(NodePtr first) {
    const size_t pos = tok_.pos;
    NodeVec elements{std::move(first)};
    while (tok_.kind == Tok::Comma) {
      advance();
      elements.push_back(expr(0));
    }
    return make<E::List>(highest(elements), pos, std::move(elements));
  }

  // Expressions separated by commas up to `close` (consumed); none when
  // `close` comes first.
  NodeVec sequence(Tok close) {
    NodeVec v;
    if (tok_.kind != close) {
      v.push_back(expr(0));
      while (tok_.kind == Tok::Comma) advance(), v.push_back(expr(0));
    }
    expect(close);
    return v;
  }

  bool atUnary() const {
    return tok_.kind == Tok::Operator &&
           (tok_.op == E::OpPlus || tok_.op == E::OpMinus || tok_.op == E::OpNot);
  }

  NodePtr expr(int32_t min) {
    if (++depth_ > E::kMaxDepth) syntaxError("expression nested too deeply", tok_.pos, text_);
    NodePtr lhs = atUnary() ? unary(min) : primary();
    for (;;) {
      const int32_t p = tok_.kind == Tok::Operator ? E::binaryPrecedence(tok_.op) : 0;
      if (p != 0 && p >= min) lhs = binary(std::move(lhs), p);
      else if (tok_.kind == Tok::LBracket && E::kPrecUnit >= min) lhs = unitConversion(std::move(lhs));
      else break;
    }
    --depth_;
    return lhs;
  }

  // A run of unary operators and their operand; the run is read in a loop,
  // not by recursion, and applied from the innermost out.
  [[gnu::noinline]] NodePtr unary(int32_t min) {
    std::vector<std::pair<size_t, int32_t>> run;  // position and code
    while (atUnary()) {
      const int32_t op = tok_.op;
      run.emplace_back(tok_.pos, op == E::OpPlus ? E::OpUPlus : op == E::OpMinus ? E::OpUMinus : E::OpNot);
      advance();
    }
    NodePtr n = expr(std::max(min, E::kPrecUnary));
    for (size_t k = run.size(); k-- > 0;) n = make<E::Unary>(n->height(), run[k].first, run[k].second, std::move(n));
    return n;
  }

  [[gnu::noinline]] NodePtr binary(NodePtr lhs, int32_t precedence) {
    const size_t pos = tok_.pos;
    const int32_t op = tok_.op;
    advance();
    NodePtr rhs = expr(precedence + 1);
    return make<E::Binary>(std::max(lhs->height(), rhs->height()), pos, op, std::move(lhs),
                           std::move(rhs));
  }

  [[gnu::noinline]] NodePtr unitConversion(NodePtr lhs) {
    const size_t pos = tok_.pos;
    advance();
    NodePtr unit = list();
    expect(Tok::RBracket);
    return make<E::UnitConversion>(std::max(lhs->height(), unit->height()), pos, std::move(lhs),
                                   std::move(unit));
  }

  NodePtr primary() {
    switch (tok_.kind) {
      case Tok::Number: return leaf<E::UnparsedNumber>(std::string(tok_.text));
      case Tok::String: return leaf<E::StringLiteral>(std::move(lexer_.contents()));
      case Tok::Name: return nameOrCall();
      case Tok::LParen: {
        advance();
        NodePtr inner = list();
        expect(Tok::RParen);
        return inner;
      }
      case Tok::LBracket: return vector();
      default: unexpected();
    }
  }

  template <class T>
  [[gnu::noinline]] NodePtr leaf(std::string text) {
    advance();
    return std::make_shared<T>(std::move(text));
  }

  [[gnu::noinline]] NodePtr nameOrCall() {
    const size_t pos = tok_.pos;
    std::string name(tok_.text);
    advance();
    if (tok_.kind != Tok::LParen) return std::make_shared<E::Identifier>(std::move(name));
    advance();
    NodeVec args = sequence(Tok::RParen);
    // d(expr, x): the derivative of expr by x.
    if (name == "d" && args.size() == 2 && args[1]->code() == E::kIdentifierTag) {
      std::string var = static_cast<const E::Identifier&>(*args[1]).name();
      return make<E::Derivative>(args[0]->height(), pos, std::move(args[0]), std::move(var));
    }
    return make<E::FuncCall>(highest(args), pos, std::move(name), std::move(args));
  }

  [[gnu::noinline]] NodePtr vector() {
    const size_t pos = tok_.pos;
    advance();
    NodeVec elements = sequence(Tok::RBracket);
    return make<E::Vector>(highest(elements), pos, std::move(elements));
  }

  const std::string& text_;
  Lexer lexer_;
  Token tok_;
  uint32_t depth_ = 0;
};

}  // namespace

NodePtr parseInfix(const std::string& text) { return InfixParser(text).run(); }

}  // namespace qvarray
