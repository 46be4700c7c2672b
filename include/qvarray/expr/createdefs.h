#pragma once
// Compiling an expression set built with the evaluation engine: the values of
// evaluation nodes become the compiler's definitions (each node kind and
// function object contributes through its createDefs), named outputs of an
// ExprComp whose inputs are the variables the nodes read.
//
//   auto ev = std::make_shared<VarEvaluator>();
//   NodeMaker& mk = ev->getNodeMaker();
//   EvalNodePtr f = mk.fromSyntax(*ExprImpl("sin(x)*y + x^2").root(), ev);
//   ExprComp comp;
//   NodeDefs d = createNodeDefs(comp, {"f"}, {f}, {"x", "y"}, ev);
//   std::vector<double> out;
//   comp.eval({0.5, 2.0}, out);            // inputs in the order d.inputs
//
// A variable becomes an input unless the evaluator defines it by an
// expression (VarEvaluator::expand), whose definitions are then made in its
// place; a variable listed in `inputs` is always an input. A node used in
// several places, within one output or across outputs, is defined once.
// Refused, with the node's or function's name: complex constants
// ("Definition set may not contain complex variables."), array constants
// ("Cannot create definitions from an array constant"), general operators
// ("Cannot create definitions from GenOpNode::" + name), dependency tests
// ("Cannot create definitions from DepNode", "... UDepNode", "... JacDepNode",
// "... JacUDepNode"), derivatives that do not expand, and functions without a
// compiled form ("Cannot create definitions from function " + name: arg, erf,
// the inverse co-functions and inverse hyperbolic functions, the Bessel,
// gamma, psi and random functions, interpolation functions).
//
// The compiled operations follow the engine's own: arithmetic, comparisons,
// logic, min, max, mod, rounding, sign, the smoothed steps and the powers
// with exponent 0, 1, 2 give the same bits; functions the engine evaluates
// with its vector library (exp, log, trigonometric, pow) agree to the
// rounding of the two implementations (within a few ulps).
#include <map>
#include <string>
#include <vector>

#include "qvarray/expr/evalnodes.h"
#include "qvarray/expr/exprcomp.h"
#include "qvarray/export.h"

namespace qvarray {

/// What createNodeDefs made.
struct NodeDefs {
  /// The inputs added, in position order: those listed first, then the
  /// variables met that nothing defines, in the order met.
  std::vector<std::string> inputs;
  /// The outputs' definition numbers, in position order.
  std::vector<int> outputs;
  /// The definitions that stand for a variable or a node (see
  /// FunObj::createDefs) and the next free number: pass them to further
  /// createDefs calls to extend the same set.
  std::map<int, std::string> defs;
  int counter = 0;
};

/// Makes in `comp` the definitions of the values of `outputs` (named
/// `outputNames`, each output a definition of its own), with the variables
/// listed in `inputs` as the first inputs. Definition numbers start at 0, so
/// `comp` should hold no definitions yet. On a refusal `comp` is unchanged.
QVARRAY_API NodeDefs createNodeDefs(ExprComp& comp, const std::vector<std::string>& outputNames,
                                    const NodeList& outputs, const std::vector<std::string>& inputs,
                                    const VarEvalPtr& ev);

}  // namespace qvarray
