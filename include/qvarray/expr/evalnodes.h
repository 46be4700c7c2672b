#pragma once
// Evaluation nodes: the immutable, shared trees that expressions evaluate
// through. Only NodeMaker makes nodes (constructors are private, identity
// number last); a node never changes after construction except the shared
// mark of a ProxyNode, which is atomic. Whatever one evaluator needs to keep
// between evaluations (a variable's resolved definition, a shared
// subexpression's derivatives) lives in that evaluator's shadows, kept by its
// ShadowHandler under the node's identity number and renewed when the
// evaluator's VersionKey changes.
//
// Derivatives are symbolic: OpNode::diff sums, over the arguments, the
// operator's partial derivative (NodeMaker::partialDerivative) times the
// argument's derivative, all built through NodeMaker so that they are folded
// and shared. Every operator node sits behind a ProxyNode, which memoises
// its derivatives in its shadow, so a subexpression used several times is
// differentiated once.
#include <atomic>
#include <complex>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qvarray/expr/evaltypes.h"
#include "qvarray/expr/funobj.h"
#include "qvarray/expr/valrep.h"
#include "qvarray/expr/valrepcache.h"
#include "qvarray/export.h"

namespace qvarray {

class NodeMaker;
class EvalTreeShadow;
using VarEvalPtr = std::shared_ptr<VarEvaluator>;
using IdSet = std::unordered_set<uint64_t>;
using NameSet = std::unordered_set<std::string>;

/// A node of an evaluation tree. Operations in slot order.
class QVARRAY_API EvalNode : public std::enable_shared_from_this<EvalNode> {
 public:
  virtual ~EvalNode();
  /// The value over the batch of points.
  virtual ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) = 0;
  virtual bool isZero() { return false; }
  virtual bool isUnit() { return false; }
  virtual bool isNUnit() { return false; }
  /// The value is the same at every point.
  virtual bool isScalar() { return false; }
  /// The scalar value; a NaN value when the node is not scalar.
  virtual ValRepPtr getScalar() { return ValRep::makeNaN(); }
  /// True, with the number, when the node is a real constant.
  virtual bool isRealScalar(double&) { return false; }
  virtual bool isString() { return false; }
  /// The derivative with respect to the variable `variable`.
  virtual EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) = 0;
  /// Dependence on names[i] as bit i at order 0.
  virtual DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                          ValRepCache& cache);
  virtual DepInfo jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                             ValRepCache& cache);
  virtual EvalNodePtr simplify(const VarEvalPtr& ev) = 0;
  /// Adds the names of the variables the node refers to; `ids` holds the
  /// nodes already visited.
  virtual void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) = 0;
  virtual std::string getVarName() { return {}; }
  virtual uint64_t getDeepID() { return id_; }
  /// Prints the node in the expression language; reals at round-trip precision.
  virtual void ostreamOperator(std::ostream& os) = 0;
  /// The compiler's definitions of the node's value; returns the number of
  /// the definition that holds it (`defs` and `counter` as in
  /// FunObj::createDefs). Operators, variables and proxies share one
  /// iterative walk; each other kind defines itself or refuses. A refusal
  /// leaves the definitions made before it in `comp`.
  virtual int createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                         const VarEvalPtr& ev);
  virtual void evalMethod(const VarEvalPtr& ev, const EvalNodePtr& node, EvalMethod& m) = 0;

  uint64_t getID() const { return id_; }
  /// The printed form as a string.
  std::string toString();

 protected:
  explicit EvalNode(uint64_t id) : id_(id) {}
  EvalNode(const EvalNode&) = default;
  /// For the destructor of a node that owns children: children that this
  /// node alone holds are destroyed from a worklist of the thread, not inside
  /// this destructor, so destroying a chain of any length takes constant
  /// stack. Children held elsewhere too are left to the members' destructors
  /// (their count just drops).
  static void releaseChildren(EvalNodePtr* children, size_t count) noexcept;

 private:
  uint64_t id_;
};

// ---------------------------------------------------------------- shadows

/// Per-evaluator state of one node, valid for the version key it recorded.
class QVARRAY_API NodeShadow {
 public:
  virtual ~NodeShadow();
  virtual std::shared_ptr<NodeShadow> clone() const = 0;
  /// No key recorded yet, or the recorded key differs from `key`.
  bool shouldUpdateCache(const VersionKey& key) const { return !key_ || *key_ != key; }

 protected:
  void recordKey(const VarEvaluator& ev);

 private:
  std::optional<VersionKey> key_;
};

/// A variable's resolved definition (empty: the evaluator supplies values).
class QVARRAY_API VarNodeShadow : public NodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
  void initCache(const VarEvalPtr& ev, const std::string& name);
  const EvalNodePtr& getDefinition() const { return definition_; }

 private:
  EvalNodePtr definition_;
};

class QVARRAY_API VarDiffNodeShadow : public VarNodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
};

class QVARRAY_API OpNodeShadow : public NodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
  void initCache(const VarEvaluator& ev) { recordKey(ev); }
};

/// The function object that the evaluator resolves for a general operator.
class QVARRAY_API GenOpNodeShadow : public NodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
  void initCache(const VarEvalPtr& ev, const std::string& name, int nArgs);
  const GenFunPtr& getFunction() const { return fun_; }

 private:
  GenFunPtr fun_;
};

/// Derivatives of a shared subexpression, by variable name.
class QVARRAY_API ProxyNodeShadow : public NodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
  void initCache(const VarEvaluator& ev);
  std::map<std::string, EvalNodePtr> derivatives;
};

/// The expanded derivative of a DiffNode.
class QVARRAY_API DiffNodeShadow : public NodeShadow {
 public:
  std::shared_ptr<NodeShadow> clone() const override;
  void initCache(const VarEvalPtr& ev, const EvalNodePtr& expr, const std::string& variable);
  const EvalNodePtr& getExpanded() const { return expanded_; }

 private:
  EvalNodePtr expanded_;
};

/// The shadows of one evaluator: node shadows and tree shadows, each table
/// keyed by identity number. Copying copies every shadow.
class QVARRAY_API ShadowHandler {
 public:
  ShadowHandler() = default;
  ShadowHandler(const ShadowHandler& other) { *this = other; }
  ShadowHandler& operator=(const ShadowHandler& other);
  /// The node's shadow of type S, made empty the first time.
  template <class S>
  S& getNodeShadow(uint64_t id) {
    auto& slot = nodes_[id];
    if (!slot) slot = std::make_shared<S>();
    return static_cast<S&>(*slot);
  }
  /// The shadow of the tree with identity number `id`, made empty the first time.
  EvalTreeShadow& getEvalTreeShadow(uint32_t id);
  void clear() {
    nodes_.clear();
    trees_.clear();
  }
  size_t size() const { return nodes_.size() + trees_.size(); }

 private:
  std::unordered_map<uint64_t, std::shared_ptr<NodeShadow>> nodes_;
  std::unordered_map<uint32_t, std::shared_ptr<NodeShadow>> trees_;
};

// ---------------------------------------------------------------- nodes

/// A constant value. Zero, one and minus one are the derived fixed nodes.
class QVARRAY_API ConstNode : public EvalNode {
 public:
  ValRepPtr eval(const VarEvalPtr&, ValRepCache&, unsigned) override { return value_; }
  bool isZero() override { return value_->isZero(); }
  bool isScalar() override { return value_->isScalar(); }
  ValRepPtr getScalar() override { return value_->isScalar() ? value_ : ValRep::makeNaN(); }
  bool isRealScalar(double& v) override;
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  EvalNodePtr simplify(const VarEvalPtr&) override { return shared_from_this(); }
  void gatherBVars(const VarEvalPtr&, IdSet&, NameSet&) override {}
  void ostreamOperator(std::ostream& os) override;
  /// A real constant; a complex or array value is refused.
  int createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                 const VarEvalPtr& ev) override;
  void evalMethod(const VarEvalPtr& ev, const EvalNodePtr& node, EvalMethod& m) override;
  const ValRepPtr& value() const { return value_; }

 protected:
  ConstNode(ValRepPtr value, uint64_t id) : EvalNode(id), value_(std::move(value)) {}
  friend class NodeMaker;

 private:
  ValRepPtr value_;
};

class QVARRAY_API ZeroNode : public ConstNode {
 public:
  bool isZero() override { return true; }
  void ostreamOperator(std::ostream& os) override { os << '0'; }
  void evalMethod(const VarEvalPtr&, const EvalNodePtr&, EvalMethod& m) override { m.setZero(); }

 private:
  explicit ZeroNode(uint64_t id) : ConstNode(ValRep::makeZero(), id) {}
  friend class NodeMaker;
};

class QVARRAY_API UnitNode : public ConstNode {
 public:
  bool isUnit() override { return true; }
  void ostreamOperator(std::ostream& os) override { os << '1'; }
  void evalMethod(const VarEvalPtr&, const EvalNodePtr&, EvalMethod& m) override { m.setUnit(); }

 private:
  explicit UnitNode(uint64_t id) : ConstNode(std::make_shared<ValRep>(1.0), id) {}
  friend class NodeMaker;
};

class QVARRAY_API NUnitNode : public ConstNode {
 public:
  bool isNUnit() override { return true; }
  void ostreamOperator(std::ostream& os) override { os << "(-1)"; }

 private:
  explicit NUnitNode(uint64_t id) : ConstNode(std::make_shared<ValRep>(-1.0), id) {}
  friend class NodeMaker;
};

/// A named variable, valued by the evaluator (through the cache) or by the
/// definition the evaluator resolves for it.
class QVARRAY_API VarNode : public EvalNode {
 public:
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                  ValRepCache& cache) override;
  DepInfo jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                     ValRepCache& cache) override;
  EvalNodePtr simplify(const VarEvalPtr& ev) override;
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  std::string getVarName() override { return name_; }
  void ostreamOperator(std::ostream& os) override { os << name_; }
  void evalMethod(const VarEvalPtr&, const EvalNodePtr&, EvalMethod& m) override {
    m.setVariable(name_);
  }

 protected:
  VarNode(std::string name, uint64_t id) : EvalNode(id), name_(std::move(name)) {}
  /// The definition the evaluator resolves for the name (empty: none).
  EvalNodePtr definition(const VarEvalPtr& ev);
  /// The definition's value, under the evaluator's recursion guard.
  ValRepPtr evalDefinition(const EvalNodePtr& def, const VarEvalPtr& ev, ValRepCache& cache,
                           unsigned flags);
  friend class NodeMaker;

  std::string name_;
};

/// The derivative of a variable as a variable of its own, named
/// variable + "@VDN$" + differentiation variable; `expr` is that derivative.
class QVARRAY_API VarDiffNode : public VarNode {
 public:
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  bool isZero() override { return expr_->isZero(); }
  bool isScalar() override { return expr_->isScalar(); }
  ValRepPtr getScalar() override { return expr_->getScalar(); }
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                  ValRepCache& cache) override;
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  const EvalNodePtr& expression() const { return expr_; }
  ~VarDiffNode() override { releaseChildren(&expr_, 1); }

 private:
  VarDiffNode(std::string name, EvalNodePtr expr, uint64_t id)
      : VarNode(std::move(name), id), expr_(std::move(expr)) {}
  friend class NodeMaker;
  EvalNodePtr expr_;
};

/// A call of a function object on argument nodes.
class QVARRAY_API OpNode : public EvalNode {
 public:
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                  ValRepCache& cache) override;
  DepInfo jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                     ValRepCache& cache) override;
  EvalNodePtr simplify(const VarEvalPtr& ev) override;
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  void ostreamOperator(std::ostream& os) override;
  void evalMethod(const VarEvalPtr&, const EvalNodePtr&, EvalMethod& m) override {
    m.setFunction(fun_, args_);
  }
  const FunPtr& function() const { return fun_; }
  const NodeList& args() const { return args_; }
  ~OpNode() override { releaseChildren(args_.data(), args_.size()); }

 private:
  OpNode(FunPtr fun, NodeList args, uint64_t id)
      : EvalNode(id), fun_(std::move(fun)), args_(std::move(args)) {}
  /// Three or more arguments (out of line: eval's frame stays small).
  [[gnu::noinline]] ValRepPtr evalList(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags);
  friend class NodeMaker;
  FunPtr fun_;
  NodeList args_;
};

/// An operator the evaluator resolves by name at evaluation time.
class QVARRAY_API GenOpNode : public EvalNode {
 public:
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                  ValRepCache& cache) override;
  EvalNodePtr simplify(const VarEvalPtr&) override { return shared_from_this(); }
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  void ostreamOperator(std::ostream& os) override;
  void evalMethod(const VarEvalPtr&, const EvalNodePtr&, EvalMethod& m) override {
    m.setOperator(name_, args_);
  }
  /// Refused: the evaluator resolves the operator only when evaluating.
  int createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                 const VarEvalPtr& ev) override;
  /// The call's cache name: the operator name and the arguments' identities.
  std::string cacheName();
  ~GenOpNode() override { releaseChildren(args_.data(), args_.size()); }

 private:
  GenOpNode(std::string name, NodeList args, uint64_t id)
      : EvalNode(id), name_(std::move(name)), args_(std::move(args)) {}
  friend class NodeMaker;
  std::string name_;
  NodeList args_;
};

/// Stands for another node so that one subtree can appear in several places
/// with one cached value. The factory marks it shared when a second request
/// meets it (markAsShared, atomic: other threads may hold the proxy).
/// Derivatives go through the shadow, where they are memoised.
class QVARRAY_API ProxyNode : public EvalNode {
 public:
  /// A proxy marked shared keeps its value in the cache for the evaluation.
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  bool isZero() override { return node_->isZero(); }
  bool isUnit() override { return node_->isUnit(); }
  bool isNUnit() override { return node_->isNUnit(); }
  bool isScalar() override { return node_->isScalar(); }
  ValRepPtr getScalar() override { return node_->getScalar(); }
  bool isRealScalar(double& v) override { return node_->isRealScalar(v); }
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  DepInfo depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                  ValRepCache& cache) override {
    return node_->depends(names, ev, cache);
  }
  DepInfo jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                     ValRepCache& cache) override {
    return node_->jacDepends(names, ev, cache);
  }
  EvalNodePtr simplify(const VarEvalPtr& ev) override { return node_->simplify(ev); }
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  std::string getVarName() override { return node_->getVarName(); }
  uint64_t getDeepID() override { return node_->getDeepID(); }
  void ostreamOperator(std::ostream& os) override { node_->ostreamOperator(os); }
  int createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                 const VarEvalPtr& ev) override {
    return node_->createDefs(comp, defs, counter, ev);
  }
  void evalMethod(const VarEvalPtr& ev, const EvalNodePtr& node, EvalMethod& m) override {
    node_->evalMethod(ev, node, m);
  }
  void markAsShared() { direct_.store(false, std::memory_order_relaxed); }
  bool isShared() const { return !direct_.load(std::memory_order_relaxed); }
  const EvalNodePtr& target() const { return node_; }
  ~ProxyNode() override { releaseChildren(&node_, 1); }

 private:
  ProxyNode(EvalNodePtr node, uint64_t id) : EvalNode(id), node_(std::move(node)) {}
  /// The cached path of a shared proxy (out of line: eval's frame stays small).
  [[gnu::noinline]] ValRepPtr evalShared(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags);
  friend class NodeMaker;
  EvalNodePtr node_;
  std::atomic<bool> direct_{true};
};

/// An unexpanded derivative; evaluates its expansion (kept in its shadow).
class QVARRAY_API DiffNode : public EvalNode {
 public:
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  EvalNodePtr simplify(const VarEvalPtr& ev) override;
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  void ostreamOperator(std::ostream& os) override;
  /// The definitions of the expanded derivative; refused when it does not expand.
  int createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                 const VarEvalPtr& ev) override;
  void evalMethod(const VarEvalPtr&, const EvalNodePtr& node, EvalMethod& m) override {
    m.setUnexpandable(node);
  }
  ~DiffNode() override { releaseChildren(&expr_, 1); }

 private:
  DiffNode(EvalNodePtr expr, std::string variable, unsigned kind, uint64_t id)
      : EvalNode(id), expr_(std::move(expr)), variable_(std::move(variable)), kind_(kind) {}
  EvalNodePtr expansion(const VarEvalPtr& ev);
  friend class NodeMaker;
  EvalNodePtr expr_;
  std::string variable_;
  unsigned kind_;
};

/// Dependency tests: 1.0 where the expression depends on the variable (on
/// any variable for the U forms; nonlinearly for the Jac forms), else 0.0.
class QVARRAY_API DepNodeBase : public EvalNode {
 public:
  ValRepPtr eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) override;
  EvalNodePtr diff(const std::string& variable, const VarEvalPtr& ev) override;
  EvalNodePtr simplify(const VarEvalPtr&) override { return shared_from_this(); }
  void gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) override;
  void ostreamOperator(std::ostream& os) override;
  /// Refused.
  int createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                 const VarEvalPtr& ev) override;
  void evalMethod(const VarEvalPtr&, const EvalNodePtr& node, EvalMethod& m) override {
    m.setUnexpandable(node);
  }
  ~DepNodeBase() override { releaseChildren(&expr_, 1); }

 protected:
  DepNodeBase(const char* fname, bool jac, EvalNodePtr expr, std::string variable, uint64_t id)
      : EvalNode(id), fname_(fname), jac_(jac), expr_(std::move(expr)), variable_(std::move(variable)) {}

 private:
  const char* fname_;
  bool jac_;
  EvalNodePtr expr_;
  std::string variable_;
};

class QVARRAY_API DepNode : public DepNodeBase {
  DepNode(EvalNodePtr e, std::string v, uint64_t id) : DepNodeBase("depends", false, std::move(e), std::move(v), id) {}
  friend class NodeMaker;
};
class QVARRAY_API JacDepNode : public DepNodeBase {
  JacDepNode(EvalNodePtr e, std::string v, uint64_t id) : DepNodeBase("jacdepends", true, std::move(e), std::move(v), id) {}
  friend class NodeMaker;
};
class QVARRAY_API UDepNode : public DepNodeBase {
  UDepNode(EvalNodePtr e, uint64_t id) : DepNodeBase("depends", false, std::move(e), {}, id) {}
  friend class NodeMaker;
};
class QVARRAY_API JacUDepNode : public DepNodeBase {
  JacUDepNode(EvalNodePtr e, uint64_t id) : DepNodeBase("isnonlinear", true, std::move(e), {}, id) {}
  friend class NodeMaker;
};

}  // namespace qvarray
