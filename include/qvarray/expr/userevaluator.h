#pragma once
// UserEvaluator: a ready variable evaluator for programs outside the host
// application. It knows
//   bound variables     a number (every point) or an array over the batch of
//                       evaluation points, real or complex: bind()
//   defined variables   a name defined by an expression text: define(); the
//                       engine expands it through expand() and memoises its
//                       value in the value cache for the evaluation
//   user functions      f(x, y) defined by an expression text in its
//                       parameters: defineFunction()
//   function objects    a name for a function object of the program's own,
//                       such as an InterpFun over a table: defineFunction(name,
//                       fun). A call evaluates the object over the batch, its
//                       derivatives come from the object's diffRule (and a
//                       printed derivative, naming the objects diffRule made,
//                       reads back), and its dependency records are those of
//                       its arguments.
//   solution components and parameters, with time-derivative orders:
//                       addSolution("u", 2) declares "u", "ut", "utt" (the
//                       name with k letters "t" appended is the k-th time
//                       derivative); addParameter("p", 1) declares "p", "pt".
//                       They are bound like any variable; d(u, t) is ut.
//
// Dependency records (depends, jacDepends, DepInfo): for the list `names`,
// bit i stands for names[i]. The k-th time derivative of a component or
// parameter named names[i] sets bit i at order k of the solution or parameter
// masks; any other variable named names[i] sets bit i at order 0 of the
// solution masks. A defined variable answers through its definition.
//
// Rules for names, checked before anything changes:
//   - a definition (variable or function) is read when it is given; a syntax
//     error raises "Syntax_error_in_expression" with the position;
//   - one name is one kind of thing: binding a defined name, defining a bound
//     name or a declared time derivative raises "Invalid_variable_binding";
//   - a bound array must have the evaluator's number of points;
//   - definitions that refer to each other in a circle, and chains of
//     definitions nested RecLimCheck::kLimit (10000) deep, are caught by the
//     evaluator's recursion guard (labelled "circvar") when one of them is
//     first expanded: the walk over the definitions enters the guard as the
//     evaluation would, so it raises "Recursion_limit_exceeded" (module
//     "evaltree") with ("message", "circvar"), the name, the depth and the
//     chain of names ("a -> b -> a"), before anything is evaluated and
//     without the evaluation's stack depth. A chain 9999 deep evaluates.
//
// Errors and NaN results of evaluation:
//   - a name that is neither bound nor defined nor declared raises
//     "Unknown_variable_name" (module "evalnodes") with ("Name", name) and
//     ("message", "vareval");
//   - a real evaluation that meets a complex bound value raises
//     "Complex_number_in_real_expression" with ("Name", name) and
//     ("message", "varcmplx"); a complex evaluation (setComplex(true)) reads
//     every bound value as complex, so sqrt(-1) is i;
//   - a soft failure (log(-1) in a real evaluation) is a NaN value with its
//     error record. The evaluate* calls pass kEvalAnnotate, so the record
//     also carries ("message", "expreval") and ("exprs", text) for the whole
//     formula (EvalTree::eval), and, when the failure arose in a defined
//     variable, ("message", "vareval"), ("Name", name), ("defexpr",
//     definition) (VarNode::eval);
//   - a call of an unknown function raises "Unknown_function_or_operator"
//     when the formula is read (VarEvaluator::getGenFun); a call of a user
//     function (or of one of its partial derivatives) with the wrong number
//     of arguments raises "Wrong_number_of_function_arguments" then, with
//     ("Number_of_arguments_expected", count) and ("Name", name).
//
// User functions are general operators that this evaluator answers: their
// derivatives follow the chain rule through the partial derivatives "f..pk"
// (by the k-th argument) and "f..vNAME" (by a variable NAME the body uses
// itself), which a printed derivative names and which read back. The
// dependency record of a call is the union of its arguments' records and of
// what the body depends on besides its parameters (f(x) := x*p depends on p).
//
// Threads: an evaluator serves one thread at a time. For parallel evaluation
// give every thread its own copy (copy(): the node factory is shared, the
// definitions, bindings and shadows are copied, the recursion counter is
// fresh) and rebind the thread's block of points; one EvalTree may be
// evaluated by all copies at once (it is parsed once, under its lock).
#include <complex>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/expr/evalflags.h"
#include "qvarray/expr/evaltree.h"
#include "qvarray/expr/varevaluator.h"
#include "qvarray/export.h"

namespace qvarray {

class QVARRAY_API UserEvaluator : public VarEvaluator {
 public:
  using Complex = std::complex<double>;

  /// An evaluator over nPoints evaluation points (held by shared pointer:
  /// the engine hands it on to itself).
  static std::shared_ptr<UserEvaluator> make(size_t nPoints,
                                             std::shared_ptr<NodeMaker> maker = nullptr);
  /// A copy for another thread (shared definitions and factory, own shadows).
  std::shared_ptr<UserEvaluator> copy() const;
  /// For make() and copy(), which also give the evaluator its own pointer;
  /// an evaluator made otherwise cannot answer the formula calls below.
  UserEvaluator(size_t nPoints, std::shared_ptr<NodeMaker> maker);
  UserEvaluator(const UserEvaluator& other);

  // ------------------------------------------------------------ names
  size_t getNPoints() const { return nPoints_; }
  /// Changes the number of points; drops every bound array.
  void setNPoints(size_t n);
  void bind(const std::string& name, double v);
  void bind(const std::string& name, Complex v);
  void bind(const std::string& name, const Array<double, 1>& v);
  void bind(const std::string& name, const Array<Complex, 1>& v);
  /// `name` is the value of the expression `text`.
  void define(const std::string& name, const std::string& text);
  /// name(params...) is the value of `text` in the parameters.
  void defineFunction(const std::string& name, const std::vector<std::string>& params,
                      const std::string& text);
  /// name(args...) calls `fun` (for example an InterpFun: k(T) interpolates a
  /// table). The name is then a function name only; defining it again, by
  /// text or object, replaces the earlier function.
  void defineFunction(const std::string& name, GenFunPtr fun);
  /// Declares a solution component (index: order of declaration) and its time
  /// derivatives up to maxOrder.
  void addSolution(const std::string& name, int maxOrder = 0);
  void addParameter(const std::string& name, int maxOrder = 0);
  /// The pool of scratch arrays for bound arrays and evaluations (default
  /// none: plain arrays). A ParaArrayAllocator may serve the copies of an
  /// OpenMP team; each host thread needs a pool of its own.
  void setAllocator(ValRep::AllocPtr alloc) { alloc_ = std::move(alloc); }
  const ValRep::AllocPtr& getAllocator() const { return alloc_; }
  /// Complex evaluation: bound values are read as complex.
  void setComplex(bool complex) { complex_ = complex; }
  bool isComplexEval() const { return complex_; }
  /// The flag word of an evaluate* call.
  unsigned evalFlags() const { return kEvalAnnotate | (complex_ ? kEvalComplex : 0u); }
  /// Declared components and parameters, in declaration order.
  const std::vector<std::string>& solutionNames() const { return solNames_; }
  const std::vector<std::string>& parameterNames() const { return parNames_; }

  // ------------------------------------------------------------ formulas
  /// The value of `text` over the points, in a fresh cache; a NaN value
  /// carries its annotated error record. Syntax errors raise with the
  /// position.
  ValRepPtr evaluate(const std::string& text);
  /// The value of a tree (which this evaluator or any copy may parse).
  ValRepPtr evaluate(const EvalTreePtr& tree);
  /// The values at the points; a NaN result raises "Unexpected_NaN" with
  /// its error record.
  Array<double, 1> values(const std::string& text);
  Array<Complex, 1> complexValues(const std::string& text);
  /// The derivative of `text` with respect to `variable`; its text is
  /// getExpandedExpr().
  EvalTreePtr derivative(const std::string& text, const std::string& variable);
  /// Dependence on the declared components and parameters: bit i of the
  /// solution masks is solutionNames()[i], of the parameter masks
  /// parameterNames()[i].
  DepInfo dependencies(const std::string& text, bool jacobian = false);
  /// The value as an array over the points (scalars repeated, zero as 0).
  Array<double, 1> toArray(const ValRep& v) const;
  Array<Complex, 1> toComplexArray(const ValRep& v) const;

  // ------------------------------------------------------------ the engine's questions
  bool eval(const VarEvalPtr& self, const std::string& name, const NodeList& args, unsigned flags,
            ValRepPtr& result, ValRepCache& cache) override;
  EvalNodePtr expand(const VarEvalPtr& self, const std::string& name) override;
  EvalNodePtr diff(const VarEvalPtr& self, const std::string& name,
                   const std::string& variable) override;
  EvalNodePtr diff(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                   const std::string& variable) override;
  DepInfo depends(const VarEvalPtr& self, const std::string& name,
                  const std::vector<std::string>& names, ValRepCache& cache) override;
  DepInfo depends(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                  const std::vector<std::string>& names, ValRepCache& cache) override;
  GenFunPtr getGenFun(const std::string& name, int nArgs) override;

 private:
  /// A declared time derivative: component or parameter, index, order.
  struct TimeName {
    bool parameter;
    int index;
    int order;
    std::string base;
  };
  /// A definition: its text, its syntax tree (parameters renamed to their
  /// internal names for a function) and the defined names it refers to.
  struct Definition;
  /// A user function or one of its partial derivatives, with its body built.
  struct FunBody {
    std::vector<std::string> params;  // internal names of the parameters
    EvalNodePtr body;
  };

  void checkNewName(const std::string& name, bool binding) const;
  void declare(const std::string& name, int maxOrder, bool parameter);
  /// Walks the definitions from `name` on under the recursion guard.
  void checkDefinitions(const std::string& name);
  /// The body of a user function or of a partial derivative of one; null
  /// when `name` names neither.
  const FunBody* funBody(const VarEvalPtr& self, const std::string& name);
  std::shared_ptr<UserEvaluator> self();
  /// A partial derivative of a named function object, by its printed name.
  GenFunPtr derivedFunObj(const std::string& name);

  size_t nPoints_;
  bool complex_ = false;
  ValRep::AllocPtr alloc_;
  std::map<std::string, ValRepPtr> bound_;
  std::map<std::string, ValRepPtr> boundComplex_;  // complex copies of real bindings
  std::map<std::string, TimeName> timeNames_;
  std::vector<std::string> solNames_, parNames_;
  std::map<std::string, std::shared_ptr<const Definition>> defs_;
  std::map<std::string, GenFunPtr> funObjs_;  // defineFunction(name, fun)
  std::map<std::string, GenFunPtr> derivedFuns_;  // their partials met by name (derivedFunObj)
  std::map<std::string, int> nesting_;     // checked definitions: their nesting depth
  std::map<std::string, FunBody> bodies_;  // built by this evaluator
  std::weak_ptr<UserEvaluator> self_;
};

}  // namespace qvarray
