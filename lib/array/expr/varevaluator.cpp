// The base variable evaluator: no variables of its own, the built-in
// functions of its node factory.
#include "qvarray/expr/varevaluator.h"

#include "qvarray/expr/evaltree.h"
#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/randomfuns.h"
#include "qvarray/expr/sffuns.h"
#include "qvarray/expr/smoothsteps.h"

namespace qvarray {

VarEvaluator::VarEvaluator() : VarEvaluator(std::make_shared<NodeMaker>()) {}

VarEvaluator::VarEvaluator(std::shared_ptr<NodeMaker> maker)
    : VarEvaluator(std::move(maker), std::make_shared<ShadowHandler>()) {}

VarEvaluator::VarEvaluator(std::shared_ptr<NodeMaker> maker, std::shared_ptr<ShadowHandler> shadows)
    : maker_(std::move(maker)), shadows_(std::move(shadows)),
      recCount_(std::make_shared<SerialRecCount>()) {
  QV_ASSERT(maker_ != nullptr && shadows_ != nullptr, varevaluator);
}

VarEvaluator::VarEvaluator(const VarEvaluator& other)
    : uType_(other.uType_), opCache_(other.opCache_), maker_(other.maker_),
      shadows_(std::make_shared<ShadowHandler>(*other.shadows_)), version_(other.version_),
      recCount_(other.recCount_->clone()) {}

VarEvaluator::~VarEvaluator() = default;

bool VarEvaluator::eval(const VarEvalPtr&, const std::string&, const NodeList&, unsigned, ValRepPtr&,
                        ValRepCache&) {
  return false;
}

EvalNodePtr VarEvaluator::expand(const VarEvalPtr&, const std::string&) { return nullptr; }

EvalNodePtr VarEvaluator::diff(const VarEvalPtr&, const std::string& name, const std::string& variable) {
  QV_CHECK(!isTangential(variable), varevaluator, Tangential_differentiation_not_allowed_in_this_context,
           qvbase::DetailPairs{{"Name", name}, {"Variable", variable}});
  return isSameVariable(name, variable) ? maker_->unit() : maker_->zero();
}

EvalNodePtr VarEvaluator::diff(const VarEvalPtr&, const std::string& name, const NodeList&,
                               const std::string& variable) {
  QV_CHECK(!isTangential(variable), varevaluator, Tangential_differentiation_not_allowed_in_this_context,
           qvbase::DetailPairs{{"Name", name}, {"Variable", variable}});
  return nullptr;
}

DepInfo VarEvaluator::depends(const VarEvalPtr&, const std::string& name,
                              const std::vector<std::string>& names, ValRepCache&) {
  DepInfo d;
  for (size_t i = 0; i < names.size(); ++i)
    if (isSameVariable(name, names[i])) d.setSolDep(static_cast<int>(i), 0);
  return d;
}

DepInfo VarEvaluator::depends(const VarEvalPtr& self, const std::string&, const NodeList& args,
                              const std::vector<std::string>& names, ValRepCache& cache) {
  DepInfo d;
  for (const auto& a : args) d |= a->depends(names, self, cache);
  return d;
}

// A variable's Jacobian (its derivative, 1 or 0) depends on nothing.
DepInfo VarEvaluator::jacDepends(const VarEvalPtr&, const std::string&, const std::vector<std::string>&,
                                 ValRepCache&) {
  return {};
}

GenFunPtr VarEvaluator::getGenFun(const std::string& name, int nArgs) {
  GenFunPtr f = maker_->builtinFun(name);
  checkGenFun(f, name, nArgs);
  return f;
}

// ---------------------------------------------------------------- built-in
// functions, call checking, compiler methods, operator-data cache

void VarEvaluator::getStdFuns(std::vector<FunPtr>& list, bool withComplex) {
  auto add = [&list](FunPtr f) { list.push_back(std::move(f)); };
  add(std::make_shared<SignFun>());
  add(std::make_shared<ExpFun>());
  add(std::make_shared<SqrtFun>());
  add(std::make_shared<ArgFun>());
  if (withComplex) {
    add(std::make_shared<RealDotFun>());
    add(std::make_shared<AbsFun>());
    add(std::make_shared<RealFun>());
    add(std::make_shared<ImagFun>());
    add(std::make_shared<ConjFun>());
  }
  add(std::make_shared<LogFun>());
  add(std::make_shared<Log10Fun>());
  add(std::make_shared<Log2Fun>());
  add(std::make_shared<ErfFun>());
  add(std::make_shared<RoundFun>());
  add(std::make_shared<CeilFun>());
  add(std::make_shared<FloorFun>());
  add(std::make_shared<FixFun>());
  add(std::make_shared<MinFun>());
  add(std::make_shared<MaxFun>());
  add(std::make_shared<ModFun>());
  add(std::make_shared<AcosFun>());
  add(std::make_shared<AcotFun>());
  add(std::make_shared<AcscFun>());
  add(std::make_shared<AsecFun>());
  add(std::make_shared<AsinFun>());
  add(std::make_shared<AtanFun>());
  add(std::make_shared<CosFun>());
  add(std::make_shared<CotFun>());
  add(std::make_shared<CscFun>());
  add(std::make_shared<SecFun>());
  add(std::make_shared<SinFun>());
  add(std::make_shared<TanFun>());
  add(std::make_shared<Atan2Fun>());
  add(std::make_shared<AcoshFun>());
  add(std::make_shared<AcothFun>());
  add(std::make_shared<AcschFun>());
  add(std::make_shared<AsechFun>());
  add(std::make_shared<AsinhFun>());
  add(std::make_shared<AtanhFun>());
  add(std::make_shared<CoshFun>());
  add(std::make_shared<CothFun>());
  add(std::make_shared<CschFun>());
  add(std::make_shared<SechFun>());
  add(std::make_shared<SinhFun>());
  add(std::make_shared<TanhFun>());
  for (const char* kind : {"bessel", "besselj", "bessely", "besseli", "besselk"})
    add(std::make_shared<BesselFun>(kind));
  add(std::make_shared<GammaFun>());
  add(std::make_shared<PsiFun>());
  add(std::make_shared<RandomFun>());
  add(std::make_shared<RandomNormalFun>());
  for (const char* step :
       {"qvsmhs", "qvdsmhs", "qvsmsign", "qvdsmsign", "qvc1hs", "qvdc1hs", "qvc2hs", "qvdc2hs"})
    add(makeSmoothStep(step));
}

void VarEvaluator::checkGenFun(const GenFunPtr& fun, const std::string& name, int nArgs) {
  QV_CHECK(fun != nullptr, varevaluator, Unknown_function_or_operator,
           qvbase::DetailPairs{{"Name", name}});
  if (fun->acceptsNArgs(nArgs)) return;
  if (fun->isFunction())
    QV_RAISE(varevaluator, Wrong_number_of_function_arguments, argCountPairs(*fun, name));
  QV_RAISE(varevaluator, Wrong_number_of_operator_arguments, argCountPairs(*fun, name));
}

qvbase::DetailPairs VarEvaluator::argCountPairs(const GenFunObj& fun, const std::string& name) {
  qvbase::DetailPairs pairs;
  if (fun.getNArgs() > 0) pairs.emplace_back("Number_of_arguments_expected", std::to_string(fun.getNArgs()));
  pairs.emplace_back("Name", name);
  return pairs;
}

bool VarEvaluator::isTangential(const std::string& variable) {
  return variable.starts_with(kTangentialPrefix);
}

void VarEvaluator::evalMethod(const VarEvalPtr&, const std::string& name, EvalMethod& m) {
  m.setVariable(name);
}

void VarEvaluator::opEvalMethod(const VarEvalPtr&, const std::string& name, const NodeList& args,
                                EvalMethod& m) {
  m.setOperator(name, args);
}

void VarEvaluator::gatherBVars(const VarEvalPtr& self, const std::string& name, IdSet& ids,
                               NameSet& names) {
  names.insert(name);
  EvalNodePtr def = expand(self, name);
  if (def && ids.insert(def->getID()).second) def->gatherBVars(self, ids, names);
}

std::any* VarEvaluator::findOpCacheData(const std::string& name) {
  auto it = opCache_.find(name);
  return it == opCache_.end() ? nullptr : &it->second;
}

void VarEvaluator::addOpCacheData(const std::string& name, std::any data) {
  opCache_.insert_or_assign(name, std::move(data));
}

std::string VarEvaluator::makeOpCacheName(const std::string& op, const NodeList& args) {
  QV_CHECK(!op.empty(), varevaluator, Internal_evaluator_error, qvbase::DetailPairs{{"Name", op}});
  std::string s = op + "(";
  for (size_t i = 0; i < args.size(); ++i) {
    QV_CHECK(args[i] != nullptr, varevaluator, Internal_evaluator_error,
             qvbase::DetailPairs{{"Name", op}, {"Argument", std::to_string(i)}});
    s += (i ? "," : "") + std::to_string(args[i]->getDeepID());
  }
  return s + ")";
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
