#pragma once
// DefsBuilder: the one walk that turns evaluation nodes into the compiler's
// definitions. Every createDefs of a node or a function object goes through
// it.
//
// The caller's state is (comp, defs, counter):
//   defs     definition number -> what it stands for: a variable's name (an
//            input, or a variable the evaluator defines by an expression), or
//            "#" + identity number for the value of a node;
//   counter  the next free definition number (each new definition takes it
//            and increments it).
// A node or variable met again, within one call or in a later call with the
// same defs and counter, reuses its definition. Definitions that stand for
// nothing (constants, the steps of a function object's own definitions) get
// numbers from the counter but no entry in defs.
//
// The walk over the nodes is iterative (an explicit stack): a chain of 10^5
// nested operators uses no deeper recursion than one operator. A function
// object's createDefs is called only once its operands are defined, so the
// builder it makes for them finds them at once. Builders nest: a builder made
// on a thread while another for the same comp and defs is running shares the
// running one's tables.
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "qvarray/expr/evalnodes.h"
#include "qvarray/expr/exprcomp.h"

namespace qvarray {

class DefsBuilder {
 public:
  DefsBuilder(ExprComp& comp, std::map<int, std::string>& defs, int& counter, const VarEvalPtr& ev);
  ~DefsBuilder();
  DefsBuilder(const DefsBuilder&) = delete;
  DefsBuilder& operator=(const DefsBuilder&) = delete;

  /// The definition number of the node's value (making the definitions of
  /// everything below it first).
  int valueOf(const EvalNodePtr& node);
  std::vector<int> valuesOf(const NodeList& nodes);
  /// A constant (one definition per value and run).
  int constant(double v);
  /// Operation `op` on the definitions `args` under a new number.
  int op(int op, const std::vector<int>& args);
  /// The input `name` (addInput and setName the first time).
  int input(const std::string& name);

  ExprComp& comp() { return *state_->comp; }
  /// The inputs this run added, in the order of addInput.
  const std::vector<std::string>& inputsAdded() const { return state_->inputs; }

 private:
  struct State {
    ExprComp* comp;
    std::map<int, std::string>* defs;
    int* counter;
    VarEvalPtr ev;
    std::unordered_map<uint64_t, int> byNode;       // identity number -> definition
    std::unordered_map<std::string, int> byName;    // variable name -> definition
    std::unordered_map<uint64_t, int> byConstant;   // bits of a constant -> definition
    std::vector<std::string> inputs;                // inputs added, in order
    State* outer;                                   // the builder state this one hides
  };
  int fresh() { return (*state_->counter)++; }
  /// The definition already made for `n` (a proxy resolved), or -1.
  int known(EvalNode* n);
  void rememberNode(EvalNode* n, int d);
  void rememberName(const std::string& name, int d);

  State* state_;
  bool owner_;
};

}  // namespace qvarray
