// The evaluator of named constants: the predefined ones, then the pairs of
// the list, read in full before any is kept.
#include "qvarray/expr/constvarevaluator.h"

#include "qvarray/expr/nodemaker.h"
#include "qvutil/numeric.h"

namespace qvarray {

ConstVarEvaluator::ConstVarEvaluator(const std::vector<std::string>& texts,
                                     std::shared_ptr<NodeMaker> maker,
                                     std::shared_ptr<ShadowHandler> shadows)
    : VarEvaluator(std::move(maker), std::move(shadows)) {
  QV_CHECK(texts.size() % 2 == 0, evalconst, Name_value_pair_mismatch,
           qvbase::DetailPairs{{"Name", texts.back()}});
  std::vector<double> read(texts.size() / 2);
  for (size_t i = 0; i < read.size(); ++i) read[i] = qvutil::parseDouble(texts[2 * i + 1]);

  values_ = {{"pi", 3.141592653589793}, {"eps", 2.220446049250313e-16},
             {"nan", qvGetNaN()},       {"NaN", qvGetNaN()},
             {"inf", qvGetInf()},       {"Inf", qvGetInf()}};
  for (size_t i = 0; i < read.size(); ++i) values_.insert_or_assign(texts[2 * i], read[i]);
}

ConstVarEvaluator::ConstVarEvaluator(const std::vector<std::string>& texts)
    : ConstVarEvaluator(texts, std::make_shared<NodeMaker>(), std::make_shared<ShadowHandler>()) {}

bool ConstVarEvaluator::getConstant(const std::string& name, double& value) const {
  auto it = values_.find(name);
  if (it == values_.end()) return false;
  value = it->second;
  return true;
}

bool ConstVarEvaluator::eval(const VarEvalPtr&, const std::string& name, const NodeList& args,
                             unsigned, ValRepPtr& result, ValRepCache&) {
  double v = 0.0;
  if (!args.empty() || !getConstant(name, v)) return false;
  result = std::make_shared<ValRep>(v);
  return true;
}

EvalNodePtr ConstVarEvaluator::expand(const VarEvalPtr&, const std::string& name) {
  double v = 0.0;
  return getConstant(name, v) ? getNodeMaker().makeConstNode(v) : nullptr;
}

GenFunPtr ConstVarEvaluator::getGenFun(const std::string& name, int nArgs) {
  FunPtr f = getNodeMaker().builtinFun(name);
  QV_CHECK(f != nullptr, evalconst, Unknown_function_name, qvbase::DetailPairs{{"Name", name}});
  if (!f->acceptsNArgs(nArgs))
    QV_RAISE(evalconst, Wrong_number_of_function_arguments, argCountPairs(*f, name));
  return f;
}

}  // namespace qvarray
