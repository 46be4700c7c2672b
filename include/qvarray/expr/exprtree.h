#pragma once
// Syntax trees of expressions: ExprImpl (the tree with its scanner, printer,
// simplification and set algebra) and ExprTree, the handle that shares one.
//
// Text becomes a tree in two steps. A bare number ("123") or a bare name
// ("a_1") becomes a single leaf at once; any other text goes to the expression
// host (exprhost.h), which answers with the prefix (Polish) form, and
// scanprefix turns that into nodes. The prefix form is a sequence of tokens
// separated by white space:
//   U+ U- !                 unary operator, then its operand
//   + - * / ^ == != <= >= < > && ||
//                           binary operator, then left and right operand
//   () NAME N               call of function NAME with N arguments
//   (UNIT)                  unit conversion: expression, then unit
//   (DIFF)                  derivative: expression, then variable name
//   , N                     list of N elements
//   (MAT) N                 vector of N elements
//   "" N TEXT               string literal: after one blank, the next N
//                           characters taken verbatim (blanks included); a
//                           character is a UTF-8 sequence: a byte that is not
//                           a continuation byte (10xxxxxx) with the
//                           continuation bytes after it. For the modified
//                           UTF-8 that JNI gives, N is Java's String.length().
//   NAME                    a letter, then letters, digits, "_", ".": Identifier
//                           (each byte tested on its low 7 bits, as scan
//                           tests bare names)
//   anything else           a number, kept as written: UnparsedNumber
// Example: "a*(b+c)" is "* a + b c", "f(x, 'it''s')" is "() f 2 x \"\" 4 it's".
//
// Printing writes infix text that the built-in host reads back to the same
// tree, with the exceptions that the printed form itself makes ambiguous: a
// derivative of a bare name prints as one name (u by x, then by y: "uyx"); a
// call of a function "d" with two arguments, the second a name, reads back as
// a derivative; a list of fewer than two elements, or one inside a call,
// vector or list, loses its boundaries; and a number token that the grammar
// does not read as a number ("-1", "#") reads back differently or not at all.
//
// Operator precedences (the printer's, and the built-in host's): || 40,
// && 50, comparisons 60, unary + - ! 70, + - 80, * / 90, unit conversion 100,
// ^ 110, leaves 1000. Unary operators bind looser than arithmetic:
// -a+b means -(a+b).
//
// Limits: an infix text longer than kMaxTextLength characters, a prefix text
// longer than kMaxPrefixLength, a tree higher than kMaxDepth levels and
// parentheses nested deeper than that raise "Syntax_error_in_expression":
// every walk over a tree (printing, set algebra, node construction) recurses,
// and the depth limit keeps that recursion within a thread's stack.
//
// Trees are immutable once built; nodes may hang under several parents (the
// scanner shares leaves of equal class and text) and may be shared between
// threads for reading.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API ExprImpl {
 public:
  class Node;
  using NodePtr = std::shared_ptr<const Node>;
  using NodeVec = std::vector<NodePtr>;

  /// Infix texts of more characters are refused by the built-in host;
  /// prefix texts of more than kMaxPrefixLength by the scanner. The prefix
  /// form of an infix text is at most about three times as long.
  static constexpr size_t kMaxTextLength = 250000;
  static constexpr size_t kMaxPrefixLength = 999999;
  /// Trees higher than this are refused (a leaf has height 1). Reading,
  /// printing, simplifying and destroying a tree this high takes less than
  /// half of the 1 MiB stack that a JVM gives its threads.
  static constexpr uint32_t kMaxDepth = 2000;

  /// Kind tags, in the code field of nodes that are no operator.
  static constexpr int32_t kIdentifierTag = 569824042;
  static constexpr int32_t kDerivativeTag = 2055292644;
  static constexpr int32_t kUnitConversionTag = 2043624117;

  /// Operator codes, fixed by the prefix token.
  enum OpCode : int32_t {
    OpUPlus = 1250798639,
    OpUMinus = 1417307588,
    OpNot = 2025645107,
    OpPlus = 779081604,
    OpMinus = 816735700,
    OpTimes = 2118132267,
    OpDivide = 1146092811,
    OpPower = 375823921,
    OpEq = 2043117492,
    OpNe = 1426630410,
    OpLe = 1383174081,
    OpGe = 105223813,
    OpLt = 1132531332,
    OpGt = 1066747623,
    OpAnd = 492073188,
    OpOr = 1978786330,
  };

  /// Precedences of the printer.
  static constexpr int32_t kPrecList = 30;
  static constexpr int32_t kPrecUnary = 70;
  static constexpr int32_t kPrecUnit = 100;
  static constexpr int32_t kPrecLeaf = 1000;

  /// Scratch of boolEval: one flag array per depth.
  struct BoolEvalContext {
    const std::vector<std::string>& names;
    const std::vector<Array<int, 2>>& values;
    std::vector<Array<int, 2>> stack;
  };

  /// A node of the tree: its code (operator code or kind tag) and printing
  /// precedence, and the height of its subtree.
  class QVARRAY_API Node {
   public:
    Node(int32_t code, int32_t precedence, uint32_t height)
        : code_(code), precedence_(precedence), height_(height) {}
    virtual ~Node();
    /// "Unary", "Binary", "FuncCall", "UnitConversion", "Derivative",
    /// "Identifier", "LiteralValue", "List" or "Vector".
    virtual const char* kindName() const = 0;
    /// Child i (0-based); an index out of range raises (see the classes).
    virtual const NodePtr& child(size_t i) const = 0;
    /// Writes the value of this node over the flag arrays into ctx.stack[depth]
    /// (see ExprImpl::boolEval). Raises "Unimplemented_operator" unless
    /// overridden.
    virtual void boolEval(BoolEvalContext& ctx, size_t depth) const;
    /// Appends the infix text, in parentheses when this node's precedence is
    /// lower than `parentPrecedence`.
    void print(std::string& out, int32_t parentPrecedence) const;
    /// Appends the infix text without enclosing parentheses.
    virtual void printBody(std::string& out) const = 0;
    /// Number of children.
    virtual size_t childCount() const { return 0; }

    int32_t code() const { return code_; }
    int32_t precedence() const { return precedence_; }
    uint32_t height() const { return height_; }

   protected:
    /// 1 + the largest height among the children (1 for none); a child must
    /// not be null.
    static uint32_t heightOver(const NodeVec& children);
    static uint32_t heightOver(const NodePtr& child);
    static uint32_t heightOver(const NodePtr& left, const NodePtr& right);

   private:
    int32_t code_;
    int32_t precedence_;
    uint32_t height_;
  };

  /// "U+", "U-" or "!" applied to one operand. Precedence 70.
  class QVARRAY_API Unary : public Node {
   public:
    /// `op` is OpUPlus, OpUMinus or OpNot ("QUBRIX_assertion_failure" else).
    Unary(int32_t op, NodePtr operand);
    const char* kindName() const override { return "Unary"; }
    /// Only index 0 ("QUBRIX_assertion_failure" else).
    const NodePtr& child(size_t i) const override;
    size_t childCount() const override { return 1; }
    void printBody(std::string& out) const override;
    const NodePtr& operand() const { return operand_; }

   private:
    NodePtr operand_;
  };

  /// A binary operator; precedence by operator.
  class QVARRAY_API Binary : public Node {
   public:
    /// `op` is a binary operator code ("Internal_error_symbolic_processing" else).
    Binary(int32_t op, NodePtr left, NodePtr right);
    const char* kindName() const override { return "Binary"; }
    /// Index 0 or 1 ("Internal_error_symbolic_processing" else).
    const NodePtr& child(size_t i) const override;
    size_t childCount() const override { return 2; }
    /// "+": a OR b, "-": a AND NOT b, "*": a AND b.
    void boolEval(BoolEvalContext& ctx, size_t depth) const override;
    void printBody(std::string& out) const override;
    const NodePtr& left() const { return left_; }
    const NodePtr& right() const { return right_; }

   private:
    NodePtr left_, right_;
  };

  /// A call name(arguments...). Never printed in parentheses.
  class QVARRAY_API FuncCall : public Node {
   public:
    FuncCall(std::string name, NodeVec args);
    const char* kindName() const override { return "FuncCall"; }
    /// 0 to count-1 ("QUBRIX_assertion_failure" else).
    const NodePtr& child(size_t i) const override;
    size_t childCount() const override { return args_.size(); }
    void printBody(std::string& out) const override;
    const std::string& name() const { return name_; }
    const NodeVec& args() const { return args_; }

   private:
    std::string name_;
    NodeVec args_;
  };

  /// expression[unit]. Precedence 100.
  class QVARRAY_API UnitConversion : public Node {
   public:
    UnitConversion(NodePtr expr, NodePtr unit);
    const char* kindName() const override { return "UnitConversion"; }
    const NodePtr& child(size_t i) const override;
    size_t childCount() const override { return 2; }
    void printBody(std::string& out) const override;
    const NodePtr& expr() const { return expr_; }
    const NodePtr& unit() const { return unit_; }

   private:
    NodePtr expr_, unit_;
  };

  /// The derivative of an expression by a variable. Never printed in
  /// parentheses. Printed "d(expr,x)", or as one name when the innermost of
  /// directly nested derivatives is a name: u by x, then by y, is "uyx".
  class QVARRAY_API Derivative : public Node {
   public:
    Derivative(NodePtr expr, std::string variable);
    const char* kindName() const override { return "Derivative"; }
    const NodePtr& child(size_t i) const override;
    size_t childCount() const override { return 1; }
    void printBody(std::string& out) const override;
    const NodePtr& expr() const { return expr_; }
    const std::string& variable() const { return variable_; }

   private:
    NodePtr expr_;
    std::string variable_;
  };

  /// Leaves have no children: child() raises "QUBRIX_assertion_failure".
  class QVARRAY_API Leaf : public Node {
   public:
    using Node::Node;
    const NodePtr& child(size_t i) const override;
  };

  /// A name.
  class QVARRAY_API Identifier : public Leaf {
   public:
    explicit Identifier(std::string name);
    const char* kindName() const override { return "Identifier"; }
    /// Copies the flag array of the name.
    void boolEval(BoolEvalContext& ctx, size_t depth) const override;
    void printBody(std::string& out) const override;
    const std::string& name() const { return name_; }

   private:
    std::string name_;
  };

  /// A literal: its text and the text's hash (literalHash).
  class QVARRAY_API LiteralValue : public Leaf {
   public:
    explicit LiteralValue(std::string text);
    const char* kindName() const override { return "LiteralValue"; }
    void printBody(std::string& out) const override;
    const std::string& text() const { return text_; }
    uint32_t hash() const { return hash_; }

   private:
    std::string text_;
    uint32_t hash_;
  };

  /// A string literal; text() is its contents. Printed in single quotes with
  /// every quote doubled.
  class QVARRAY_API StringLiteral : public LiteralValue {
   public:
    using LiteralValue::LiteralValue;
    void printBody(std::string& out) const override;
  };

  /// A number as written (not converted).
  class QVARRAY_API UnparsedNumber : public LiteralValue {
   public:
    using LiteralValue::LiteralValue;
  };

  /// Elements separated by " , ". Precedence 30.
  class QVARRAY_API List : public Node {
   public:
    explicit List(NodeVec elements);
    const char* kindName() const override { return "List"; }
    /// 0 to count-1 ("QUBRIX_assertion_failure" else).
    const NodePtr& child(size_t i) const override;
    size_t childCount() const override { return elements_.size(); }
    void printBody(std::string& out) const override;
    const NodeVec& elements() const { return elements_; }

   private:
    NodeVec elements_;
  };

  /// "[" elements "]". Precedence 30.
  class QVARRAY_API Vector : public List {
   public:
    using List::List;
    const char* kindName() const override { return "Vector"; }
    void printBody(std::string& out) const override;
  };

  /// The 32-bit FNV-1a hash of `text` (bytes as signed characters), folded
  /// three times as t = (t >> 8) ^ h from t = h.
  static uint32_t literalHash(std::string_view text);
  /// The precedence of a binary operator code, or 0 for any other code.
  static int32_t binaryPrecedence(int32_t op);
  /// The printed symbol (and prefix token) of an operator code ("+", "U-"
  /// prints "-"), or null for any other code.
  static const char* operatorSymbol(int32_t op);

  ExprImpl() = default;
  /// constructor(text).
  explicit ExprImpl(const std::string& text) { constructor(text); }

  /// Builds the tree of `text` by scan.
  void constructor(const std::string& text);
  /// A bare number or name becomes a leaf; any other text goes to the host:
  /// scanprefix(parseExprToPrefix(text)).
  void scan(const std::string& text);
  /// Builds the tree of a prefix text (tokens above). Raises
  /// "Syntax_error_in_expression" with ("Expression", prefix) for a text that
  /// ends early, has tokens left over, a malformed token or count, or a
  /// string literal cut short.
  void scanprefix(const std::string& prefix);
  /// The current host's prefix form of `text`. Raises "Empty_expression" for
  /// an empty text and "Syntax_error_in_expression" with ("Expression", text)
  /// for an empty answer.
  static std::string parseExprToPrefix(const std::string& text);

  /// Infix text of the tree (the root printed with parent precedence 0).
  std::string toString() const;
  /// Prefix text of the tree: scanprefix of it builds the same tree.
  std::string toPrefix() const;
  static std::string toPrefix(const Node& node);

  /// Replaces the tree by the host's simplification of toString().
  void simp();

  /// Set algebra over 2-D flag arrays of equal shape: a name stands for the
  /// array of the same name in `names`/`values`; "+" is union, "-" difference,
  /// "*" intersection (elements 1 or 0). Raises "Unknown_variable_name" with
  /// ("Name", name) for a name not given, "Unimplemented_operator" with
  /// ("Name", kind name) for any other node or operator; `result` is written
  /// only on success.
  void boolEval(const std::vector<std::string>& names, const std::vector<Array<int, 2>>& values,
                Array<int, 2>& result) const;

  /// The root (null before a text was scanned).
  const NodePtr& root() const { return root_; }
  void setRoot(NodePtr root) { root_ = std::move(root); }

 private:
  NodePtr root_;
};

/// The exported handle of a syntax tree. Copies share the same ExprImpl.
class QVARRAY_API ExprTree {
 public:
  ExprTree() : impl_(std::make_shared<ExprImpl>()) {}
  explicit ExprTree(const std::string& text) : ExprTree() { constructor(text); }

  void constructor(const std::string& text) { impl_->constructor(text); }
  std::string toString() const { return impl_->toString(); }
  void simp() { impl_->simp(); }
  void boolEval(const std::vector<std::string>& names, const std::vector<Array<int, 2>>& values,
                Array<int, 2>& result) const {
    impl_->boolEval(names, values, result);
  }
  static std::string parseExprToPrefix(const std::string& text) {
    return ExprImpl::parseExprToPrefix(text);
  }
  const std::shared_ptr<ExprImpl>& getImpl() const { return impl_; }

 private:
  std::shared_ptr<ExprImpl> impl_;
};

}  // namespace qvarray
