#pragma once
// VarEvaluator: how evaluation nodes resolve the names an expression does not
// define. The host application derives from it to supply its variables; the
// base class supplies none (its eval declines, its names have no
// definition) and knows the built-in functions through its NodeMaker.
//
// An evaluator owns the node factory it builds through, the shadows of the
// nodes it evaluates and a version key: updateVersion() makes every shadow
// stale, so that definitions are resolved again. It serves one thread at a
// time; the engine passes the evaluator's own shared pointer into each query
// so that a derived evaluator can hand itself on.
#include <memory>
#include <string>
#include <vector>

#include "qvarray/expr/evalnodes.h"
#include "qvarray/expr/evalrec.h"
#include "qvarray/expr/evaltypes.h"
#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API VarEvaluator {
 public:
  /// A new factory of its own.
  VarEvaluator();
  /// Builds through `maker` (shared with other evaluators).
  explicit VarEvaluator(std::shared_ptr<NodeMaker> maker);
  /// Shares the factory, copies the shadows and the version key.
  VarEvaluator(const VarEvaluator& other);
  virtual ~VarEvaluator();

  /// Evaluates the variable (no args) or user function `name` into `result`;
  /// false when the name is not known here (the base knows none).
  virtual bool eval(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                    unsigned flags, ValRepPtr& result, ValRepCache& cache);
  /// The node that defines `name`, if an expression defines it (base: none).
  virtual EvalNodePtr expand(const VarEvalPtr& self, const std::string& name);
  /// The derivative of the variable `name` with respect to `variable` when
  /// `name` has no definition (base: one for the same variable, else zero).
  virtual EvalNodePtr diff(const VarEvalPtr& self, const std::string& name,
                           const std::string& variable);
  /// The derivative of a call of the operator `name` (base: none, the
  /// engine keeps it as an unexpanded derivative).
  virtual EvalNodePtr diff(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                           const std::string& variable);
  /// Dependence of the undefined variable `name` (base: on names[i] when
  /// isSameVariable).
  virtual DepInfo depends(const VarEvalPtr& self, const std::string& name,
                          const std::vector<std::string>& names, ValRepCache& cache);
  virtual DepInfo jacDepends(const VarEvalPtr& self, const std::string& name,
                             const std::vector<std::string>& names, ValRepCache& cache);
  /// The function object of a call of `name` with nArgs arguments (base:
  /// the built-in functions); null when unknown.
  virtual GenFunPtr getGenFun(const std::string& name, int nArgs);
  virtual bool isSameVariable(const std::string& a, const std::string& b) { return a == b; }

  /// Makes every shadow of this evaluator stale.
  void updateVersion() { version_.update(); }
  const VersionKey& getVersionKey() const { return version_; }
  NodeMaker& getNodeMaker() { return *maker_; }
  const std::shared_ptr<NodeMaker>& getNodeMakerPtr() const { return maker_; }
  ShadowHandler& getShadowHandler() { return *shadows_; }

  // ---- recursion guard and tree shadows
  /// Prepares `check` for the evaluation of `name`: labelled "circvar" and
  /// entered in this evaluator's recursion counter. VarNode::eval guards
  /// every variable it evaluates through a definition (expand); an eval
  /// override that evaluates further expressions for a name should guard
  /// that evaluation the same way.
  virtual void initRecLimCheck(RecLimCheck& check, const std::string& name);
  /// The recursion counter: a SerialRecCount unless set. An evaluator whose
  /// evaluations start OpenMP teams that evaluate through it (one evaluator
  /// shared by a team) needs setRecCount(std::make_shared<ParaRecCount>()).
  RecCount& getRecCount() { return *recCount_; }
  void setRecCount(std::shared_ptr<RecCount> counter);
  /// The shadow of the tree with identity number `treeId`.
  EvalTreeShadow& getEvalTreeShadow(uint32_t treeId);

 private:
  std::shared_ptr<NodeMaker> maker_;
  std::shared_ptr<ShadowHandler> shadows_;
  VersionKey version_;
  std::shared_ptr<RecCount> recCount_;
};

}  // namespace qvarray
