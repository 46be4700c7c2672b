#pragma once
// Function objects: every operator and built-in function of the expression
// language is a shared, immutable object that evaluates itself in place on
// real or complex scalars and arrays, and tells the evaluation engine how to
// build, simplify, differentiate, print and compile calls to it.
//
//   GenFunObj                 anything callable in an expression
//   └ FunObj                  named; typed evaluation overloads; node hooks
//     ├ UnFunObj              one argument      └ UnFunObjNonVect  (per element)
//     ├ BinFunObj             two arguments     └ BinFunObjNonVect (per element)
//     └ MultiFunObj           any number        └ GenAddFun        (flattened sums)
//
// Evaluation never throws for a domain failure: every overload returns a
// FunOpCode bit set, and the caller turns a code with a failure bit into an
// error record through the same object's makeError. An overload a class does
// not implement returns 2, so an unsupported combination reports itself.
//
// The virtual operations are declared in a fixed order (the object layout is
// shared with separately built modules): keep new virtuals at the end.
#include <complex>
#include <cstddef>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvutil/errinfo.h"
#include "qvutil/errors.h"

namespace qvarray {

class EvalNode;
class NodeMaker;
class ExprComp;
class VarEvaluator;
class ValRep;
class GenFunObj;
class FunObj;

using GenFunPtr = std::shared_ptr<const GenFunObj>;
using FunPtr = std::shared_ptr<const FunObj>;
using EvalNodePtr = std::shared_ptr<EvalNode>;
using NodeList = std::vector<EvalNodePtr>;
using ValRepPtr = std::shared_ptr<ValRep>;

/// Root of everything callable in an expression. Carries no data.
class QVARRAY_API GenFunObj {
 public:
  virtual const std::string& getName() const = 0;
  virtual bool acceptsNArgs(int n) const = 0;
  virtual int getNArgs() const = 0;
  /// The evaluation node of a call of `self` (this object) on `args`, built
  /// through the node factory.
  virtual EvalNodePtr makeEvalNode(const GenFunPtr& self, NodeMaker& maker,
                                   const NodeList& args) const = 0;
  virtual bool isFunction() const { return false; }
  virtual bool isOperator() const { return false; }
  /// The function object that stands for this operator in prefix
  /// (function-call) form; empty when there is none.
  virtual GenFunPtr getFunctionForm(int nArgs) const;
  virtual bool isBuiltin() const { return true; }
  virtual bool canRedefine() const { return false; }
  virtual bool isRedefinable() const { return true; }
  virtual ~GenFunObj();
};

/// A named callable with the full set of typed evaluation overloads.
///
/// Value shapes: RS / CS one real / complex scalar, RA / CA a real / complex
/// array of which the first n elements are used. One-argument forms write the
/// result over the argument. Two-operand in-place forms write into the first
/// operand when `which` == 1 and into the second otherwise; the caller picks
/// the operand with the result's shape (the array when the other is a scalar,
/// the complex one when the other is real); a complex result written into a
/// real operand keeps its real part. Out-of-place forms write into W, which
/// is complex when either operand is. Several-argument forms write into
/// args[0]: the scalar forms use the first n entries, the array forms n
/// elements of the first m entries (args holds at least one entry even when
/// m is 0).
class QVARRAY_API FunObj : public GenFunObj {
 public:
  using RS = std::shared_ptr<double>;
  using CS = std::shared_ptr<std::complex<double>>;
  using RA = std::shared_ptr<Array<double, 1>>;
  using CA = std::shared_ptr<Array<std::complex<double>, 1>>;

  /// Result of every evaluation call: a bit set.
  enum FunOpCode : unsigned {
    Success = 0,
    /// Not a failure: a complex result was written into a complex operand
    /// from a mixed real/complex pair, or min/max chose between two complex
    /// values by their real parts.
    Informational = 1,
    /// First kind of domain failure; also every unimplemented overload.
    Failure1 = 2,
    /// Second kind of domain failure.
    Failure2 = 4,
    /// Any of these bits is a failure.
    FailureMask = 0x3FE
  };

  explicit FunObj(std::string name) : name_(std::move(name)) {}

  const std::string& getName() const override { return name_; }
  bool isFunction() const override { return true; }
  bool isBuiltin() const override { return true; }

  // Several arguments.
  virtual FunOpCode operator()(const std::vector<RS>& args, std::size_t n) const;
  virtual FunOpCode operator()(const std::vector<CS>& args, std::size_t n) const;
  virtual FunOpCode operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const;
  virtual FunOpCode operator()(const std::vector<CA>& args, std::size_t n, std::size_t m) const;

  // Two operands out of place, arrays.
  virtual FunOpCode operator()(const CA& x, const CA& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const RA& x, const CA& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const CA& x, const RA& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const RA& x, const RA& y, std::size_t n, const RA& w) const;
  virtual FunOpCode operator()(const CS& x, const CA& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const RS& x, const CA& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const CS& x, const RA& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const RS& x, const RA& y, std::size_t n, const RA& w) const;
  virtual FunOpCode operator()(const CA& x, const CS& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const RA& x, const CS& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const CA& x, const RS& y, std::size_t n, const CA& w) const;
  virtual FunOpCode operator()(const RA& x, const RS& y, std::size_t n, const RA& w) const;
  // Two operands out of place, scalars.
  virtual FunOpCode operator()(const CS& x, const CS& y, const CS& w) const;
  virtual FunOpCode operator()(const RS& x, const CS& y, const CS& w) const;
  virtual FunOpCode operator()(const CS& x, const RS& y, const CS& w) const;
  virtual FunOpCode operator()(const RS& x, const RS& y, const RS& w) const;

  // Two operands in place, arrays.
  virtual FunOpCode operator()(const CA& x, const CA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const RA& x, const CA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const CA& x, const RA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const RA& x, const RA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const CS& x, const CA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const RS& x, const CA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const CS& x, const RA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const RS& x, const RA& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const CA& x, const CS& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const RA& x, const CS& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const CA& x, const RS& y, std::size_t n, int which) const;
  virtual FunOpCode operator()(const RA& x, const RS& y, std::size_t n, int which) const;
  // Two operands in place, scalars.
  virtual FunOpCode operator()(const CS& x, const CS& y, int which) const;
  virtual FunOpCode operator()(const RS& x, const CS& y, int which) const;
  virtual FunOpCode operator()(const CS& x, const RS& y, int which) const;
  virtual FunOpCode operator()(const RS& x, const RS& y, int which) const;

  // One argument, in place.
  virtual FunOpCode operator()(const RS& x) const;
  virtual FunOpCode operator()(const CS& x) const;
  virtual FunOpCode operator()(const RA& x, std::size_t n) const;
  virtual FunOpCode operator()(const CA& x, std::size_t n) const;

  /// The result is real whatever the arguments.
  virtual bool isAlwaysReal() const { return false; }
  virtual bool isLinear(int argument) const;
  virtual bool isMulti() const { return false; }

  /// Partial derivative of a call on `args` with respect to argument
  /// `argument`, as a node built by the node factory (the factory applies
  /// the chain rule). Empty: no rule.
  virtual EvalNodePtr diffRule(const NodeList& args, int argument, NodeMaker& maker) const;
  /// A replacement node for a call of `self` on `args`, or empty to keep
  /// the call as it is.
  virtual EvalNodePtr simpRule(const FunPtr& self, const NodeList& args, NodeMaker& maker) const;
  /// The error record of a code: module, "message" = key, "fun" = name;
  /// empty when the code holds no failure bit. The default reports any
  /// failure bit as "funeval" from "evalfun". A class with its own
  /// makeError reads only its own bits, bit 2 first; code 2 from one of its
  /// unimplemented overloads (an out-of-place form, or a form of the other
  /// arity, which the engine never calls on it) therefore reads as that
  /// class's first failure ("div", "pow", "sqrt", "log", "nan", "impl").
  virtual std::shared_ptr<qvbase::ErrInfo> makeError(unsigned code) const;
  /// Prints a call on `args` in the expression language.
  virtual void ostreamOperator(const NodeList& args, std::ostream& os) const;

  virtual bool isInfix() const { return false; }
  /// Real arguments give a real result.
  virtual bool isRealIfReal() const { return true; }
  virtual bool isCommutative() const { return false; }
  virtual bool hasSpecialOutputForm() const { return false; }
  virtual bool minimizeCalls() const { return false; }

  /// The compiler's definitions of a call on `args`; returns the number of
  /// the definition that holds its value. `defs` maps each definition number
  /// that stands for something to what: a variable's name (an input, or a
  /// variable its evaluator defines) or "#" + a node's identity number;
  /// `counter` is the next free definition number. Pass the same pair to
  /// every call for one compiled set: a node or variable met again reuses its
  /// definition. Operators and functions with an operation number
  /// (ExprComp::OpCode) define it on their operands; the constant power,
  /// sign, plussq, realdot and the smoothed steps write out their own
  /// evaluation; every other function refuses ("Cannot create definitions
  /// from function " + name).
  virtual int createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                         int& counter, const std::shared_ptr<VarEvaluator>& ev) const;

  // Hooks of the value layer (after the slots above).

  /// Storage kinds of whole values, as bits.
  enum ValKind : unsigned { Structured = 1, StoredComplex = 2, Nonscalar = 4 };
  /// Whole-value evaluation: offered the argument values before any typed
  /// overload; a non-empty result is the answer. By default it declines.
  virtual ValRepPtr evalValues(const std::vector<ValRepPtr>& args, bool mayOverwrite) const;
  /// Whether the typed overloads evaluate an argument of storage kind
  /// `kind` (ValKind bits). By default the four unstructured kinds; the
  /// value layer splits a structured value into its parts.
  virtual bool acceptsValKind(unsigned kind) const;
  /// Whether the result may be written into an argument's storage (the
  /// in-place overloads); otherwise the value layer provides fresh storage.
  virtual bool mayWriteIntoArg() const { return true; }
  /// Real arrays out of place, for the value layer: w[i] = f(x[i]) for
  /// i < n, w distinct from x. False (nothing written) when the function has
  /// no such form: the value layer then copies the argument into fresh
  /// storage and calls the in-place overload. Otherwise `code` is what the
  /// in-place overload would return.
  virtual bool evalInto(const double* x, double* w, std::size_t n, unsigned& code) const;
  /// The same for two operands: w[i] = f(x[i*sx], y[i*sy]) with strides 0
  /// (a broadcast scalar) or 1.
  virtual bool evalInto(const double* x, std::ptrdiff_t sx, const double* y, std::ptrdiff_t sy,
                        double* w, std::size_t n, unsigned& code) const;

  /// Raises the error that makeError(code) describes (the one way the
  /// engine turns a code into an exception); does nothing for a code
  /// without a failure bit.
  void raiseError(unsigned code) const;

  /// The one test for a failure bit.
  static bool isFailure(unsigned code) { return (code & FailureMask) != 0; }

 protected:
  /// The record makeError returns: module, "message" = key, "fun" = name.
  std::shared_ptr<qvbase::ErrInfo> errorRecord(qvbase::ErrModule module, qvbase::ErrKey key) const;
  /// The compiler's definitions of operation number `op` on `args`: those
  /// of the operands first (walked iteratively, shared nodes once), then the
  /// operation's.
  int createDefsRec(int op, const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                    int& counter, const std::shared_ptr<VarEvaluator>& ev) const;

 private:
  std::string name_;
};

/// Functions and operators of exactly one argument.
class QVARRAY_API UnFunObj : public FunObj {
 public:
  using FunObj::FunObj;
  using FunObj::operator();
  bool acceptsNArgs(int n) const override { return n == 1; }
  int getNArgs() const override { return 1; }
  EvalNodePtr makeEvalNode(const GenFunPtr& self, NodeMaker& maker,
                           const NodeList& args) const override;
  FunOpCode operator()(const RS& x) const override = 0;
  FunOpCode operator()(const CS& x) const override = 0;
  FunOpCode operator()(const RA& x, std::size_t n) const override = 0;
  FunOpCode operator()(const CA& x, std::size_t n) const override = 0;
};

/// Functions and operators of exactly two arguments.
class QVARRAY_API BinFunObj : public FunObj {
 public:
  using FunObj::FunObj;
  using FunObj::operator();
  bool acceptsNArgs(int n) const override { return n == 2; }
  int getNArgs() const override { return 2; }
  EvalNodePtr makeEvalNode(const GenFunPtr& self, NodeMaker& maker,
                           const NodeList& args) const override;
  void ostreamOperator(const NodeList& args, std::ostream& os) const override;
};

/// Functions of a variable number of arguments.
class QVARRAY_API MultiFunObj : public FunObj {
 public:
  using FunObj::operator();
  /// Any number of arguments unless a function says otherwise (-1: any).
  bool acceptsNArgs(int n) const override { return n >= 0; }
  int getNArgs() const override { return -1; }
  EvalNodePtr makeEvalNode(const GenFunPtr& self, NodeMaker& maker,
                           const NodeList& args) const override;
  bool isAlwaysReal() const override { return alwaysReal_; }
  bool isMulti() const override { return true; }
  bool isRealIfReal() const override { return realIfReal_; }

 protected:
  MultiFunObj(std::string name, bool alwaysReal, bool realIfReal)
      : FunObj(std::move(name)), alwaysReal_(alwaysReal), realIfReal_(realIfReal) {}

 private:
  bool alwaysReal_;
  bool realIfReal_;
};

/// A one-argument function written per element: evalElem returns (code,
/// value); the overloads loop over it. A failing scalar becomes NaN; an array
/// keeps every returned value and reports the largest code met.
class QVARRAY_API UnFunObjNonVect : public UnFunObj {
 public:
  using UnFunObj::UnFunObj;
  using UnFunObj::operator();
  FunOpCode operator()(const RS& x) const override;
  FunOpCode operator()(const CS& x) const override;
  FunOpCode operator()(const RA& x, std::size_t n) const override;
  FunOpCode operator()(const CA& x, std::size_t n) const override;

  virtual std::pair<unsigned, double> evalElem(double x) const = 0;
  /// Complex arguments; the base returns code 2 (not implemented).
  virtual std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> x) const;
};

/// A two-argument function written per element, as UnFunObjNonVect; a scalar
/// operand is broadcast over an array one.
class QVARRAY_API BinFunObjNonVect : public BinFunObj {
 public:
  using BinFunObj::BinFunObj;
  using BinFunObj::operator();
  FunOpCode operator()(const CA& x, const CA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RA& x, const CA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const CA& x, const RA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RA& x, const RA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const CS& x, const CA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RS& x, const CA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const CS& x, const RA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RS& x, const RA& y, std::size_t n, int which) const override;
  FunOpCode operator()(const CA& x, const CS& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RA& x, const CS& y, std::size_t n, int which) const override;
  FunOpCode operator()(const CA& x, const RS& y, std::size_t n, int which) const override;
  FunOpCode operator()(const RA& x, const RS& y, std::size_t n, int which) const override;
  FunOpCode operator()(const CS& x, const CS& y, int which) const override;
  FunOpCode operator()(const RS& x, const CS& y, int which) const override;
  FunOpCode operator()(const CS& x, const RS& y, int which) const override;
  FunOpCode operator()(const RS& x, const RS& y, int which) const override;

  virtual std::pair<unsigned, double> evalElem(double x, double y) const = 0;
  /// Complex arguments; the base returns code 2 (not implemented).
  virtual std::pair<unsigned, std::complex<double>> evalElem(std::complex<double> x,
                                                             std::complex<double> y) const;
};

/// Generalised sum of several operands (the node factory's flattened sums).
class QVARRAY_API GenAddFun : public MultiFunObj {
 public:
  explicit GenAddFun(std::string name) : MultiFunObj(std::move(name), false, true) {}
  using MultiFunObj::operator();
  FunOpCode operator()(const std::vector<RS>& args, std::size_t n) const override;
  FunOpCode operator()(const std::vector<CS>& args, std::size_t n) const override;
  FunOpCode operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const override;
  FunOpCode operator()(const std::vector<CA>& args, std::size_t n, std::size_t m) const override;
  EvalNodePtr diffRule(const NodeList& args, int argument, NodeMaker& maker) const override;
  /// The sum in its evaluation order: ((a0 + a1) + a2) + ...
  int createDefs(const NodeList& args, ExprComp& comp, std::map<int, std::string>& defs,
                 int& counter, const std::shared_ptr<VarEvaluator>& ev) const override;
};

}  // namespace qvarray
