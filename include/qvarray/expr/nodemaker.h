#pragma once
// NodeMaker: the one factory of evaluation nodes. It numbers every node from
// a process-wide counter, shares structurally equal nodes (hash-consing per
// thread), keeps one instance of each built-in operator and of the constants
// 0, 1 and -1, and simplifies and folds while building.
//
// makeOpNode(FunId, a, b) applies, in order: canonical operand order of plus
// and times (by identity number), the identities of 0, 1 and -1 (0*x is the
// zero node even where x is NaN or infinite), x*x -> x^2, integer powers
// -2..4 -> constant-power operators, real folding of comparisons and
// arithmetic (never 1/0), general folding through the function object (a
// NaN or failure result means no fold), then uniquing: operator nodes are
// entered as ProxyNodes and a second request returns the same proxy marked
// shared. One-argument operators: unary plus vanishes, real folding (never
// log of x <= 0 nor sqrt of x < 0), general folding, uniquing.
//
// Threads. Uniquing tables are chosen by OpenMP thread number. Thread 0's
// tables (also used by every host thread outside a parallel region) are
// guarded by a lock, so several host threads may share one maker; the tables
// of threads 1.. of a team are lock-free. Nodes built on different team
// threads are different nodes. The identity counter is shared by all makers.
#include <complex>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "qvarray/expr/evalnodes.h"
#include "qvarray/expr/exprtree.h"
#include "qvarray/export.h"

namespace qvarray {

class EvalTree;

class QVARRAY_API NodeMaker {
 public:
  /// The factory's operators (values fixed; 0 unused).
  enum FunId : int {
    Abs = 1, And, Cos, EQ, Exp, Floor, GE, GT, LE, Log, LT, Minus, NE, Not, Or, Plus, PlusSq,
    Pow, PowM2, PowM1, Pow2, Pow3, Pow4, Divide, Sign, Sin, Sqrt, Times, UMinus, UPlus
  };

  NodeMaker();
  /// Shares the operators and constant nodes; fresh (empty) tables.
  NodeMaker(const NodeMaker& other);
  ~NodeMaker();

  EvalNodePtr makeConstNode(double v);
  EvalNodePtr makeConstNode(std::complex<double> v);
  EvalNodePtr makeConstNode(const ValRepPtr& v);
  /// The text read as a double (unreadable: 0.0).
  EvalNodePtr makeConstNode(const std::string& text);
  EvalNodePtr makeVarNode(const std::string& name);
  /// The derivative `expr` of variable `name` by `variable`, as a variable.
  EvalNodePtr makeVarDiffNode(const EvalNodePtr& expr, const std::string& name,
                              const std::string& variable);
  EvalNodePtr makeOpNode(FunId id, const EvalNodePtr& a);
  EvalNodePtr makeOpNode(FunId id, const EvalNodePtr& a, const EvalNodePtr& b);
  EvalNodePtr makeOpNode(FunId id, const NodeList& args);
  EvalNodePtr makeOpNode(const FunPtr& f, const EvalNodePtr& a);
  EvalNodePtr makeOpNode(const FunPtr& f, const EvalNodePtr& a, const EvalNodePtr& b);
  EvalNodePtr makeOpNode(const FunPtr& f, const NodeList& args);
  EvalNodePtr makeGenOpNode(const std::string& name, const NodeList& args);
  EvalNodePtr makeProxyNode(const EvalNodePtr& node);
  /// Raises "Can_only_diff_wrt_variables" unless `variable` is a variable node.
  EvalNodePtr makeDiffNode(const EvalNodePtr& expr, const EvalNodePtr& variable, unsigned kind);
  /// Raise "Can_only_test_dependency_wrt_variables" unless `variable` is a variable node.
  EvalNodePtr makeDepNode(const EvalNodePtr& expr, const EvalNodePtr& variable);
  EvalNodePtr makeDepNode(const EvalNodePtr& expr, const std::string& name);
  EvalNodePtr makeUDepNode(const EvalNodePtr& expr);
  EvalNodePtr makeJacDepNode(const EvalNodePtr& expr, const EvalNodePtr& variable);
  EvalNodePtr makeJacDepNode(const EvalNodePtr& expr, const std::string& name);
  EvalNodePtr makeJacUDepNode(const EvalNodePtr& expr);

  /// The evaluation tree of `root` (one per root and thread), parsed; its
  /// text is the root printed.
  std::shared_ptr<EvalTree> makeTree(const EvalNodePtr& root);
  /// The evaluation tree of `root` standing for the text `text` (one per
  /// root, text and thread).
  std::shared_ptr<EvalTree> makeNamedTree(const EvalNodePtr& root, const std::string& text);

  /// The nodes of a syntax tree: operators through makeOpNode; calls
  /// resolved by ev's getGenFun (which raises for an unknown name or a wrong
  /// count), built by the function object's makeEvalNode, else as operator
  /// nodes of a FunObj, else as general operators; without an evaluator,
  /// calls of unknown names, and calls without arguments, are general
  /// operators. d(expr, x) expanded. Raises "Evaluation_internal_error" for
  /// lists, vectors, strings and unit conversions.
  EvalNodePtr fromSyntax(const ExprImpl::Node& node, const VarEvalPtr& ev);

  /// The partial derivative of a call of `f` on `args` by argument i: the
  /// function object's own rule, else the factory's table; null when
  /// neither has one.
  EvalNodePtr partialDerivative(const FunObj& f, const NodeList& args, int i);
  /// The built-in function object of `name` (one shared instance each, from
  /// VarEvaluator::getStdFuns with the complex-valued functions, plus
  /// "plussq"); null when there is none.
  FunPtr builtinFun(const std::string& name) const;
  /// The same, null also when it does not take nArgs arguments.
  FunPtr builtinFun(const std::string& name, int nArgs) const;

  /// Empties every uniquing table (operators and constant nodes stay).
  void reset();

  const EvalNodePtr& zero() const { return zero_; }
  const EvalNodePtr& unit() const { return unit_; }
  const EvalNodePtr& nunit() const { return nunit_; }
  /// Nodes the tables hold (for tests and benchmarks).
  size_t tableSize();

  /// The next identity number of the process-wide counter.
  static uint64_t nextId();

 private:
  struct Tables;
  class TableAccess;
  /// The shared operator of `id` taking n arguments; "Evaluation_internal_error" else.
  const FunPtr& idToFun(FunId id, int n) const;
  EvalNodePtr unique(const FunPtr& f, const NodeList& args);
  EvalNodePtr fold(const FunObj& f, const NodeList& args);
  EvalNodePtr partialTable(const FunObj& f, const NodeList& args, int i);

  std::shared_ptr<const std::vector<FunPtr>> funs_;  // by FunId
  std::shared_ptr<const std::vector<std::pair<std::string, FunPtr>>> named_;
  EvalNodePtr zero_, unit_, nunit_;
  std::vector<std::unique_ptr<Tables>> tables_;  // by thread number
  std::mutex hostLock_;                          // guards tables_[0]
};

}  // namespace qvarray
