#pragma once
// ConstVarEvaluator: the evaluator of a fixed list of named constants, given
// as name and value texts alternately. It first knows the predefined
// constants, in this order:
//   pi = 3.141592653589793, eps = 2^-52, nan = NaN = not a number,
//   inf = Inf = positive infinity;
// a pair of the list with the same name replaces one of them (or an earlier
// pair). A constant's definition is its constant node, so expressions over
// the constants fold as they are built. Calls resolve to the built-in
// functions.
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "qvarray/expr/varevaluator.h"

namespace qvarray {

class QVARRAY_API ConstVarEvaluator : public VarEvaluator {
 public:
  /// `texts` holds name, value, name, value, ...; each value is read with
  /// qvutil::parseDouble ("Invalid_number", "Number_out_of_range"). An odd
  /// count raises "Name_value_pair_mismatch" (module "evalconst") with the
  /// unpaired name.
  ConstVarEvaluator(const std::vector<std::string>& texts, std::shared_ptr<NodeMaker> maker,
                    std::shared_ptr<ShadowHandler> shadows);
  /// A new factory and shadow handler of its own.
  explicit ConstVarEvaluator(const std::vector<std::string>& texts);

  /// The constant `name` as a scalar value; false for a call (arguments) or
  /// an unknown name.
  bool eval(const VarEvalPtr& self, const std::string& name, const NodeList& args, unsigned flags,
            ValRepPtr& result, ValRepCache& cache) override;
  /// The constant node of `name`; null for an unknown name.
  EvalNodePtr expand(const VarEvalPtr& self, const std::string& name) override;
  /// The built-in function `name`: "Unknown_function_name" when there is
  /// none, "Wrong_number_of_function_arguments" (with
  /// "Number_of_arguments_expected" for a fixed count) when it does not take
  /// nArgs arguments; module "evalconst", pair "Name".
  GenFunPtr getGenFun(const std::string& name, int nArgs) override;

  /// The value of `name`, when it is a constant here.
  bool getConstant(const std::string& name, double& value) const;
  size_t size() const { return values_.size(); }

 private:
  std::unordered_map<std::string, double> values_;
};

}  // namespace qvarray
