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
#include <any>
#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
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
  /// Builds through `maker` and keeps its shadows in `shadows` (both may be
  /// shared with other evaluators).
  VarEvaluator(std::shared_ptr<NodeMaker> maker, std::shared_ptr<ShadowHandler> shadows);
  /// Shares the factory, copies the shadows, the version key, the type
  /// selector and the operator-data cache.
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
  /// A tangential derivative (isTangential(variable)) is defined by no base
  /// evaluator: "Tangential_differentiation_not_allowed_in_this_context".
  virtual EvalNodePtr diff(const VarEvalPtr& self, const std::string& name,
                           const std::string& variable);
  /// The derivative of a call of the operator `name` (base: none, the
  /// engine keeps it as an unexpanded derivative; a tangential one raises as
  /// above).
  virtual EvalNodePtr diff(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                           const std::string& variable);
  /// Dependence of the undefined variable `name` (base: on names[i] when
  /// isSameVariable).
  virtual DepInfo depends(const VarEvalPtr& self, const std::string& name,
                          const std::vector<std::string>& names, ValRepCache& cache);
  virtual DepInfo jacDepends(const VarEvalPtr& self, const std::string& name,
                             const std::vector<std::string>& names, ValRepCache& cache);
  /// Dependence of a call of the operator `name` on `args` (base: the union
  /// of the arguments' records; GenOpNode asks this for both records).
  virtual DepInfo depends(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                          const std::vector<std::string>& names, ValRepCache& cache);
  /// The function object of a call of `name` with nArgs arguments (base:
  /// the built-in functions of the node factory, validated by checkGenFun).
  virtual GenFunPtr getGenFun(const std::string& name, int nArgs);
  /// Whether two names denote the same variable (base: text equality).
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

  // ------------------------------------------------------------ built-in
  // functions, call checking, compiler methods, operator-data cache

  /// Appends the built-in functions, fresh objects in their fixed order:
  /// sign exp sqrt arg [realdot abs real imag conj] log log10 log2 erf round
  /// ceil floor fix min max mod, the twelve trigonometric functions, atan2,
  /// the twelve hyperbolic ones, bessel besselj bessely besseli besselk,
  /// gamma psi random randomnormal, and the smoothed steps each followed by
  /// its derivative (qvsmhs qvdsmhs qvsmsign qvdsmsign qvc1hs qvdc1hs qvc2hs
  /// qvdc2hs). The bracketed five only when `withComplex`: 62 or 57 objects.
  static void getStdFuns(std::vector<FunPtr>& list, bool withComplex);

  /// A differentiation variable that asks for a tangential derivative:
  /// kTangentialPrefix followed by the variable's name ("@TAN$x").
  static constexpr const char* kTangentialPrefix = "@TAN$";
  static bool isTangential(const std::string& variable);

  /// The compiler's method for the variable `name` (base: a variable).
  virtual void evalMethod(const VarEvalPtr& self, const std::string& name, EvalMethod& m);
  /// The compiler's method for a call of the operator `name` (base: an
  /// operator call on `args`).
  virtual void opEvalMethod(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                            EvalMethod& m);
  /// Adds `name` and the variables its definition refers to; `ids` holds the
  /// nodes already visited.
  virtual void gatherBVars(const VarEvalPtr& self, const std::string& name, IdSet& ids,
                           NameSet& names);
  /// The type selector of the derived evaluator (the base keeps it only).
  virtual void setUType(std::size_t type) { uType_ = type; }
  std::size_t getUType() const { return uType_; }

  /// Data an evaluator keeps for an operator call, under the call's name
  /// (makeOpCacheName). Null when there is none.
  std::any* findOpCacheData(const std::string& name);
  /// Keeps `data` under `name`, replacing what was there.
  void addOpCacheData(const std::string& name, std::any data);
  void clearOpCacheData() { opCache_.clear(); }
  /// The name of a call: the operator name, then the argument nodes' deep
  /// identities in parentheses, "op(12,40)". "Internal_evaluator_error" when
  /// the operator name is empty or an argument node is missing.
  static std::string makeOpCacheName(const std::string& op, const NodeList& args);

 protected:
  /// Validates a call of `name` with nArgs arguments resolved to `fun`:
  /// "Unknown_function_or_operator" when there is no object, else, when it
  /// does not accept nArgs, "Wrong_number_of_function_arguments" (a
  /// function) or "Wrong_number_of_operator_arguments" (an operator) with
  /// "Number_of_arguments_expected" when the object has a fixed count.
  static void checkGenFun(const GenFunPtr& fun, const std::string& name, int nArgs);
  /// The pairs of a refused argument count: "Number_of_arguments_expected"
  /// (when `fun` takes a fixed count), then "Name".
  static qvbase::DetailPairs argCountPairs(const GenFunObj& fun, const std::string& name);

 private:
  std::size_t uType_ = 0;
  std::unordered_map<std::string, std::any> opCache_;
  // ------------------------------------------------------------ end

 private:
  std::shared_ptr<NodeMaker> maker_;
  std::shared_ptr<ShadowHandler> shadows_;
  VersionKey version_;
  std::shared_ptr<RecCount> recCount_;
};

}  // namespace qvarray
