// The base variable evaluator: no variables of its own, the built-in
// functions of its node factory.
#include "qvarray/expr/varevaluator.h"

#include "qvarray/expr/evaltree.h"
#include "qvarray/expr/nodemaker.h"

namespace qvarray {

VarEvaluator::VarEvaluator() : VarEvaluator(std::make_shared<NodeMaker>()) {}

VarEvaluator::VarEvaluator(std::shared_ptr<NodeMaker> maker)
    : maker_(std::move(maker)), shadows_(std::make_shared<ShadowHandler>()),
      recCount_(std::make_shared<SerialRecCount>()) {
  QV_ASSERT(maker_ != nullptr, varevaluator);
}

VarEvaluator::VarEvaluator(const VarEvaluator& other)
    : maker_(other.maker_), shadows_(std::make_shared<ShadowHandler>(*other.shadows_)),
      version_(other.version_), recCount_(other.recCount_->clone()) {}

VarEvaluator::~VarEvaluator() = default;

bool VarEvaluator::eval(const VarEvalPtr&, const std::string&, const NodeList&, unsigned, ValRepPtr&,
                        ValRepCache&) {
  return false;
}

EvalNodePtr VarEvaluator::expand(const VarEvalPtr&, const std::string&) { return nullptr; }

EvalNodePtr VarEvaluator::diff(const VarEvalPtr&, const std::string& name, const std::string& variable) {
  return isSameVariable(name, variable) ? maker_->unit() : maker_->zero();
}

EvalNodePtr VarEvaluator::diff(const VarEvalPtr&, const std::string&, const NodeList&, const std::string&) {
  return nullptr;
}

DepInfo VarEvaluator::depends(const VarEvalPtr&, const std::string& name,
                              const std::vector<std::string>& names, ValRepCache&) {
  DepInfo d;
  for (size_t i = 0; i < names.size(); ++i)
    if (isSameVariable(name, names[i])) d.setSolDep(static_cast<int>(i), 0);
  return d;
}

// A variable's Jacobian (its derivative, 1 or 0) depends on nothing.
DepInfo VarEvaluator::jacDepends(const VarEvalPtr&, const std::string&, const std::vector<std::string>&,
                                 ValRepCache&) {
  return {};
}

GenFunPtr VarEvaluator::getGenFun(const std::string& name, int nArgs) {
  return maker_->builtinFun(name, nArgs);
}

// ---------------------------------------------------------------- recursion guard, tree shadows

void VarEvaluator::initRecLimCheck(RecLimCheck& check, const std::string& name) {
  check.setLabel("circvar");
  check.init(*recCount_, name);
}

void VarEvaluator::setRecCount(std::shared_ptr<RecCount> counter) {
  QV_ASSERT(counter != nullptr, varevaluator);
  recCount_ = std::move(counter);
}

EvalTreeShadow& VarEvaluator::getEvalTreeShadow(uint32_t treeId) {
  return shadows_->getEvalTreeShadow(treeId);
}

}  // namespace qvarray
