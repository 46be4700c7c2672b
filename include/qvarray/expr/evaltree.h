#pragma once
// EvalTree: an expression as the rest of the system holds it. The text is
// parsed on first use (syntax tree through the expression host, then
// NodeMaker::fromSyntax with the evaluator that resolves names) into a root
// EvalNode; after that the tree never changes and is shared by all threads.
//
// The first parse runs under the tree's nested lock (the same thread may
// re-enter, e.g. when resolving a name parses another tree that needs this
// one) and is published through an atomic parsed flag: stored with release
// order after the root, loaded with acquire order before the root is read,
// so a thread that sees the flag sees the root. A tree that is asked for its
// root while its own parse is under way on the same thread (a definition that
// needs itself) raises "Evaluation_internal_error".
//
// Identity numbers come from one process-wide counter behind a std::mutex;
// every constructed tree gets a new number, copies keep their source's.
//
// Per-evaluator state of a tree (its derivatives and gathered names) lives in
// an EvalTreeShadow kept by the evaluator's ShadowHandler under the tree's
// number and renewed when the evaluator's version key changes.
//
// Errors (module "evaltree"): "Syntax_error_in_expression" with
// ("Expression", text) and the host's further details for a text that does
// not parse (an empty text too); errors of name resolution keep their keys;
// "Evaluation_internal_error" for an unexpected failure of the parse or an
// operation on a tree that has no root.
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qvarray/expr/evalflags.h"
#include "qvarray/expr/evalnodes.h"
#include "qvarray/export.h"
#include "qvutil/nestedlock.h"

namespace qvarray {

class EvalTree;
using EvalTreePtr = std::shared_ptr<EvalTree>;

class QVARRAY_API EvalTree {
 public:
  /// Status of a tree made from text or a node; of one made as a bare name.
  static constexpr int kStatusMade = 0;
  static constexpr int kStatusVariable = 5;

  /// Unparsed. `isVariable`: the text is one variable name (status 5, the
  /// list of names holds it).
  explicit EvalTree(std::string expr, bool isVariable = false);
  /// Parsed, with `root`; the text is the root printed.
  explicit EvalTree(EvalNodePtr root);
  /// Parsed, with `root` standing for the text `expr`.
  EvalTree(EvalNodePtr root, std::string expr);
  /// Keep the source's identity number; the root is shared once parsed.
  EvalTree(const EvalTree& other);
  EvalTree& operator=(const EvalTree& other);
  ~EvalTree();

  /// The value over the batch of points, in this order: parse if needed
  /// (no root: "Evaluation_internal_error"); a zero root gives a zero value
  /// whatever the flags; without kEvalNames and kEvalAnnotate (flag mask 5)
  /// a NaN value; else the root's value. A NaN result under kEvalAnnotate
  /// gains ("file", "evaltree"), ("line", ...), ("message", "expreval") and
  /// ("exprs", text) in its error record; a value that a cache or another
  /// holder shares is copied first, so only the returned value carries them.
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags);
  /// The root, parsed with `ev` on first use.
  EvalNodePtr getRoot(const VarEvalPtr& ev);

  /// The derivative by `variable` (a parsed tree with the text
  /// "d(" + text + "," + variable + ")"), memoised in ev's shadow of this tree.
  EvalTreePtr diff(const std::string& variable, const VarEvalPtr& ev);
  /// tree->diff(variable, ev) (null tree: "Evaluation_internal_error").
  static EvalTreePtr diffStatic(const EvalTreePtr& tree, const std::string& variable,
                                const VarEvalPtr& ev);
  /// The root's dependence on names[i] (bit i at order 0, see DepInfo).
  DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev, ValRepCache& cache);
  /// The root's nonlinear (Jacobian) dependence on names[i].
  DepInfo jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                     ValRepCache& cache);
  /// A new tree of the simplified root, with the text "simplify(" + text + ")".
  EvalTreePtr simplify(const VarEvalPtr& ev);
  /// Adds the names the root refers to (through definitions) into `names`;
  /// `ids` holds the nodes already visited.
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names);
  /// The linearisation at the current point applied to increments: the tree
  /// of  sum_i d(expr)/d(names[i]) * increments[i],  the increments being
  /// variable names (e.g. "du"). Nodes have no linearisation of their own:
  /// the tree builds it from their derivatives. Lists of unequal length
  /// raise "Evaluation_internal_error".
  EvalTreePtr linearize(const VarEvalPtr& ev, const std::vector<std::string>& names,
                        const std::vector<std::string>& increments);

  /// The text the tree was made from.
  const std::string& getExpr() const { return expr_; }
  /// The root printed (definitions not expanded into it); the text while
  /// the tree is unparsed.
  std::string getExpandedExpr() const;

  /// Trees whose root NodeMaker builds from the operands' roots (parsed with
  /// `ev`); the text is "(a)+(b)", "(a)-(b)", "(a)*(b)", "-(a)".
  static EvalTreePtr plus(const EvalTreePtr& a, const EvalTreePtr& b, const VarEvalPtr& ev);
  static EvalTreePtr minus(const EvalTreePtr& a, const EvalTreePtr& b, const VarEvalPtr& ev);
  static EvalTreePtr times(const EvalTreePtr& a, const EvalTreePtr& b, const VarEvalPtr& ev);
  static EvalTreePtr uminus(const EvalTreePtr& a, const VarEvalPtr& ev);

  /// The root is a constant node (false while unparsed).
  bool isConstant() const;
  bool isVariable() const { return isVariable_; }
  bool isParsed() const { return parsed_.load(std::memory_order_acquire); }
  uint32_t getID() const { return id_; }
  int getStatus() const { return status_; }
  /// For a tree made as a bare name: that name; else empty.
  const std::vector<std::string>& getNames() const { return names_; }

 private:
  /// Parses once, under the lock.
  void parse(const VarEvalPtr& ev);
  static uint32_t nextId();

  std::string expr_;
  int status_ = kStatusMade;
  std::vector<std::string> names_;
  bool isVariable_ = false;
  bool isConstant_ = false;
  std::atomic<bool> parsed_{false};
  EvalNodePtr root_;
  std::shared_ptr<qvbase::NestedLock> lock_;
  uint32_t id_;
  bool parsing_ = false;  // the parse is under way (read under the lock)
};

/// Per-evaluator state of one tree: the derivative trees by variable and the
/// names gathered, valid for the version key recorded by initCache.
class QVARRAY_API EvalTreeShadow : public NodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
  /// Records ev's current version key and clears the contents.
  void initCache(const VarEvaluator& ev);
  std::map<std::string, EvalTreePtr> derivatives;
  /// The root this evaluator resolved (set with the derivatives).
  EvalNodePtr root;
};

}  // namespace qvarray
