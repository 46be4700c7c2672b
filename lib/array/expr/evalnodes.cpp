// Evaluation nodes: evaluation, derivatives, dependencies and printing of
// each node kind, and the shadows that hold their per-evaluator state.
#include <charconv>
#include <cmath>
#include <new>
#include <sstream>
#include <vector>

#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/evalflags.h"
#include "qvarray/expr/evalnodes.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/varevaluator.h"

namespace qvarray {

namespace {

// Shortest text that reads back to the same double.
void printReal(std::ostream& os, double v) {
  if (std::isnan(v)) {
    os << "NaN";
    return;
  }
  if (std::isinf(v)) {
    os << (v < 0 ? "(-1/0)" : "(1/0)");
    return;
  }
  char buf[32];
  auto res = std::to_chars(buf, buf + sizeof buf, v);
  std::string_view text(buf, static_cast<size_t>(res.ptr - buf));
  if (v < 0 || (v == 0 && std::signbit(v)))
    os << '(' << text << ')';
  else
    os << text;
}

// The argument printed as an operand: parenthesised unless it is a leaf.
void printOperand(std::ostream& os, const EvalNodePtr& n) {
  os << '(';
  n->ostreamOperator(os);
  os << ')';
}

NodeMaker& makerOf(const VarEvalPtr& ev) {
  QV_ASSERT(ev != nullptr, evalnodes);
  return ev->getNodeMaker();
}

template <class S>
S& shadowOf(const VarEvalPtr& ev, uint64_t id) {
  QV_ASSERT(ev != nullptr, evalnodes);
  return ev->getShadowHandler().getNodeShadow<S>(id);
}

}  // namespace

// ---------------------------------------------------------------- EvalNode

EvalNode::~EvalNode() = default;

namespace {
// Storage of the worklist below from the nothrow operator new: running out of
// memory while destroying is no error, the child is then destroyed in place.
template <class T>
struct NothrowAllocator {
  using value_type = T;
  NothrowAllocator() = default;
  template <class U>
  NothrowAllocator(const NothrowAllocator<U>&) {}
  T* allocate(size_t n) {
    if (void* p = ::operator new(n * sizeof(T), std::nothrow)) return static_cast<T*>(p);
    throw std::bad_alloc();
  }
  void deallocate(T* p, size_t) noexcept { ::operator delete(p); }
  bool operator==(const NothrowAllocator&) const { return true; }
};
using Worklist = std::vector<EvalNodePtr, NothrowAllocator<EvalNodePtr>>;

// The worklist of the outermost node destructor running on this thread, or
// null. A plain pointer: nothing to destroy at thread exit.
thread_local Worklist* tPending = nullptr;
}  // namespace

// The outermost destructor collects its children that nobody else holds and
// destroys them one after another; their destructors, finding the worklist,
// only add their own such children to it. So the stack depth stays that of
// one destructor however deep the tree. A child that cannot be queued (no
// memory) is left to its member's destructor.
void EvalNode::releaseChildren(EvalNodePtr* children, size_t count) noexcept {
  auto queue = [&](Worklist& list) {
    for (size_t i = 0; i < count; ++i) {
      if (children[i].use_count() != 1) continue;  // null, or held elsewhere
      try {
        list.push_back(std::move(children[i]));
      } catch (const std::bad_alloc&) {
        return;
      }
    }
  };
  if (tPending) {
    queue(*tPending);
    return;
  }
  Worklist pending;
  queue(pending);
  if (pending.empty()) return;
  tPending = &pending;
  while (!pending.empty()) {
    EvalNodePtr last = std::move(pending.back());
    pending.pop_back();
    last.reset();  // queues its own children
  }
  tPending = nullptr;
}

DepInfo EvalNode::depends(const std::vector<std::string>&, const VarEvalPtr&, ValRepCache&) {
  return {};
}
DepInfo EvalNode::jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                             ValRepCache& cache) {
  return depends(names, ev, cache);
}
std::string EvalNode::toString() {
  std::ostringstream os;
  ostreamOperator(os);
  return os.str();
}

// ---------------------------------------------------------------- shadows

NodeShadow::~NodeShadow() = default;
void NodeShadow::recordKey(const VarEvaluator& ev) { key_ = ev.getVersionKey(); }

std::shared_ptr<NodeShadow> VarNodeShadow::clone() const { return std::make_shared<VarNodeShadow>(*this); }
void VarNodeShadow::initCache(const VarEvalPtr& ev, const std::string& name) {
  definition_ = ev->expand(ev, name);
  recordKey(*ev);
}
std::shared_ptr<NodeShadow> VarDiffNodeShadow::clone() const {
  return std::make_shared<VarDiffNodeShadow>(*this);
}
std::shared_ptr<NodeShadow> OpNodeShadow::clone() const { return std::make_shared<OpNodeShadow>(*this); }
std::shared_ptr<NodeShadow> GenOpNodeShadow::clone() const {
  return std::make_shared<GenOpNodeShadow>(*this);
}
void GenOpNodeShadow::initCache(const VarEvalPtr& ev, const std::string& name, int nArgs) {
  fun_ = ev->getGenFun(name, nArgs);
  recordKey(*ev);
}
std::shared_ptr<NodeShadow> ProxyNodeShadow::clone() const {
  return std::make_shared<ProxyNodeShadow>(*this);
}
void ProxyNodeShadow::initCache(const VarEvaluator& ev) {
  derivatives.clear();
  recordKey(ev);
}
std::shared_ptr<NodeShadow> DiffNodeShadow::clone() const {
  return std::make_shared<DiffNodeShadow>(*this);
}
void DiffNodeShadow::initCache(const VarEvalPtr& ev, const EvalNodePtr& expr,
                               const std::string& variable) {
  expanded_ = expr->diff(variable, ev);
  recordKey(*ev);
}

ShadowHandler& ShadowHandler::operator=(const ShadowHandler& other) {
  if (this == &other) return *this;
  std::unordered_map<uint64_t, std::shared_ptr<NodeShadow>> copy;
  for (const auto& [id, s] : other.nodes_) copy.emplace(id, s->clone());
  std::unordered_map<uint32_t, std::shared_ptr<NodeShadow>> trees;
  for (const auto& [id, s] : other.trees_) trees.emplace(id, s->clone());
  nodes_.swap(copy);
  trees_.swap(trees);
  return *this;
}

// ---------------------------------------------------------------- constants

bool ConstNode::isRealScalar(double& v) {
  if (value_->isNaN() || !value_->isScalar() || value_->checkComplex()) return false;
  v = value_->isZero() ? 0.0 : value_->getDouble();
  return true;
}

EvalNodePtr ConstNode::diff(const std::string&, const VarEvalPtr& ev) { return makerOf(ev).zero(); }

void ConstNode::ostreamOperator(std::ostream& os) {
  if (value_->isNaN()) {
    os << "NaN";
  } else if (!value_->isScalar()) {
    os << value_->toString();
  } else if (value_->checkComplex()) {
    std::complex<double> z = value_->getComplex();
    os << '(';
    printReal(os, z.real());
    os << "+(";
    printReal(os, z.imag());
    os << ")*i)";
  } else {
    printReal(os, value_->isZero() ? 0.0 : value_->getDouble());
  }
}

void ConstNode::evalMethod(const VarEvalPtr&, const EvalNodePtr&, EvalMethod& m) {
  if (value_->checkComplex())
    m.setConstant(value_->getComplex());
  else
    m.setConstant(value_->isZero() ? 0.0 : value_->getDouble());
}

// ---------------------------------------------------------------- variables

EvalNodePtr VarNode::definition(const VarEvalPtr& ev) {
  auto& s = shadowOf<VarNodeShadow>(ev, getID());
  if (s.shouldUpdateCache(ev->getVersionKey())) s.initCache(ev, name_);
  return s.getDefinition();
}

// Nested definitions recurse through VarNode::eval, evalDefinition and the
// definition's nodes (typically ProxyNode::eval and OpNode::eval), so those
// frames bound how deep a thread's stack lets definitions nest: the rare
// paths with bulky temporaries (errors, shared values, many arguments) are
// kept out of line. About 480 bytes per level in a release build: 10000
// levels fit a worker's stack (8 MiB unless OMP_STACKSIZE says less).
namespace {

[[noreturn, gnu::noinline, gnu::cold]] void raiseUnknownVariable(const std::string& name) {
  QV_RAISE(evalnodes, Unknown_variable_name, qvbase::DetailPairs{{"Name", name}, {"message", "vareval"}});
}

// A copy of a defined variable's NaN value (the value may be shared) whose
// record names the variable and its definition.
[[gnu::noinline, gnu::cold]] ValRepPtr annotateVarFailure(const ValRep& v, const std::string& name,
                                                          const EvalNodePtr& def) {
  ValRepPtr r = v.clone();
  auto& e = r->getErrors();
  if (!e) e = std::make_shared<qvbase::ErrInfo>(qvbase::errorName(qvbase::ErrModule::evalnodes));
  e->add("message", "vareval");
  e->add("Name", name);
  e->add("defexpr", def->toString());
  return r;
}

[[noreturn, gnu::noinline, gnu::cold]] void raiseRecursion(const RecLimCheck& check) {
  check.throwError(check.chain());
}

}  // namespace

// The definition's value under the evaluator's recursion guard.
ValRepPtr VarNode::evalDefinition(const EvalNodePtr& def, const VarEvalPtr& ev, ValRepCache& cache,
                                  unsigned flags) {
  RecLimCheck check;
  ev->initRecLimCheck(check, name_);
  if (check.isError()) raiseRecursion(check);
  return def->eval(ev, cache, flags);
}

// A name that is neither defined nor known to the evaluator raises with
// ("message", "vareval"). A defined variable whose value is a soft failure
// passes on a NaN value; under the annotation flag (4) a copy of it carries
// ("message", "vareval"), the name and ("defexpr", the definition), so that
// the record shows the chain of definitions the failure came through.
ValRepPtr VarNode::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  auto [found, value] = cache.getVar(name_, flags);
  if (found && value) return value;
  ValRepPtr r;
  if (EvalNodePtr def = definition(ev)) {
    r = evalDefinition(def, ev, cache, flags);
    if (r->isNaN() && (flags & kEvalAnnotate)) r = annotateVarFailure(*r, name_, def);
  } else if (!ev->eval(ev, name_, {}, flags, r, cache) || !r) {
    raiseUnknownVariable(name_);
  }
  cache.setVar(name_, flags, r);
  return r;
}

EvalNodePtr VarNode::diff(const std::string& variable, const VarEvalPtr& ev) {
  if (EvalNodePtr def = definition(ev)) return def->diff(variable, ev);
  return ev->diff(ev, name_, variable);
}

DepInfo VarNode::depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                         ValRepCache& cache) {
  if (EvalNodePtr def = definition(ev)) return def->depends(names, ev, cache);
  return ev->depends(ev, name_, names, cache);
}

DepInfo VarNode::jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                            ValRepCache& cache) {
  if (EvalNodePtr def = definition(ev)) return def->jacDepends(names, ev, cache);
  return ev->jacDepends(ev, name_, names, cache);
}

EvalNodePtr VarNode::simplify(const VarEvalPtr& ev) {
  if (EvalNodePtr def = definition(ev)) return def->simplify(ev);
  return shared_from_this();
}

void VarNode::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  names.insert(name_);
  EvalNodePtr def = definition(ev);
  if (def && ids.insert(def->getID()).second) def->gatherBVars(ev, ids, names);
}

ValRepPtr VarDiffNode::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  auto [found, value] = cache.getVar(name_, flags);
  if (found && value) return value;
  ValRepPtr r = expr_->eval(ev, cache, flags);
  cache.setVar(name_, flags, r);
  return r;
}

EvalNodePtr VarDiffNode::diff(const std::string& variable, const VarEvalPtr& ev) {
  return expr_->diff(variable, ev);
}

DepInfo VarDiffNode::depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                             ValRepCache& cache) {
  return expr_->depends(names, ev, cache);
}

void VarDiffNode::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  names.insert(name_);
  if (ids.insert(expr_->getID()).second) expr_->gatherBVars(ev, ids, names);
}

// ---------------------------------------------------------------- operators

ValRepPtr OpNode::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  // Argument values are held here alone when they are fresh, so applyOp may
  // write the result over one of them; cached values are shared and kept.
  if (args_.size() == 1) return ValRep::applyOp(*fun_, args_[0]->eval(ev, cache, flags), true);
  if (args_.size() == 2) {
    ValRepPtr a = args_[0]->eval(ev, cache, flags);
    ValRepPtr b = args_[1]->eval(ev, cache, flags);
    return ValRep::applyOp(*fun_, a, b, true);
  }
  return evalList(ev, cache, flags);
}

ValRepPtr OpNode::evalList(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  std::vector<ValRepPtr> values;
  values.reserve(args_.size());
  for (const auto& a : args_) values.push_back(a->eval(ev, cache, flags));
  return ValRep::applyOp(*fun_, values, true);
}

// The chain rule: the sum over the arguments of the partial derivative times
// the argument's derivative. An operator without a rule stays an unexpanded
// derivative.
EvalNodePtr OpNode::diff(const std::string& variable, const VarEvalPtr& ev) {
  NodeMaker& mk = makerOf(ev);
  EvalNodePtr sum = mk.zero();
  for (size_t i = 0; i < args_.size(); ++i) {
    EvalNodePtr da = args_[i]->diff(variable, ev);
    if (da->isZero()) continue;
    EvalNodePtr p = mk.partialDerivative(*fun_, args_, static_cast<int>(i));
    if (!p) return mk.makeDiffNode(shared_from_this(), mk.makeVarNode(variable), 0);
    sum = mk.makeOpNode(NodeMaker::Plus, sum, mk.makeOpNode(NodeMaker::Times, p, da));
  }
  return sum;
}

DepInfo OpNode::depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                        ValRepCache& cache) {
  DepInfo d;
  for (const auto& a : args_) d |= a->depends(names, ev, cache);
  return d;
}

// Nonlinear dependence: an argument the call is linear in contributes only
// its own nonlinear dependence. Sums and differences are linear in both
// operands, a product in a factor whose partner is constant, a quotient in
// its dividend over a constant divisor.
DepInfo OpNode::jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                           ValRepCache& cache) {
  const std::string& name = fun_->getName();
  auto linearIn = [&](size_t i) {
    if (fun_->isLinear(static_cast<int>(i))) return true;
    if (name == "+" || name == "-" || name == "U-" || name == "U+") return true;
    if (args_.size() != 2) return false;
    if (name == "*") return args_[1 - i]->isScalar();
    return name == "/" && i == 0 && args_[1]->isScalar();
  };
  DepInfo d;
  for (size_t i = 0; i < args_.size(); ++i)
    d |= linearIn(i) ? args_[i]->jacDepends(names, ev, cache) : args_[i]->depends(names, ev, cache);
  return d;
}

EvalNodePtr OpNode::simplify(const VarEvalPtr& ev) {
  NodeList args;
  args.reserve(args_.size());
  for (const auto& a : args_) args.push_back(a->simplify(ev));
  return makerOf(ev).makeOpNode(fun_, args);
}

void OpNode::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  for (const auto& a : args_)
    if (ids.insert(a->getID()).second) a->gatherBVars(ev, ids, names);
}

// Infix operators print as (a)op(b), unary ones as op(a), constant powers as
// (a)^(p), calls as name(a,b,...).
void OpNode::ostreamOperator(std::ostream& os) {
  const std::string& name = fun_->getName();
  if (const auto* cp = dynamic_cast<const ConstPowFun*>(fun_.get())) {
    printOperand(os, args_[0]);
    os << "^(";
    printReal(os, cp->getExponent());
    os << ')';
  } else if (args_.size() == 1 && (name == "U-" || name == "U+" || name == "!")) {
    os << (name == "!" ? "!" : name.substr(1));
    printOperand(os, args_[0]);
  } else if (args_.size() == 2 && fun_->isInfix()) {
    printOperand(os, args_[0]);
    os << name;
    printOperand(os, args_[1]);
  } else {
    os << name << '(';
    for (size_t i = 0; i < args_.size(); ++i) {
      if (i) os << ',';
      args_[i]->ostreamOperator(os);
    }
    os << ')';
  }
}

std::string GenOpNode::cacheName() { return VarEvaluator::makeOpCacheName(name_, args_); }

ValRepPtr GenOpNode::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  std::string key = cacheName();
  if (flags & kEvalNames) cache.setBVar(key);
  if (flags & kEvalAnnotate) {
    auto [found, value] = cache.getVar(key, flags);
    if (found && value) return value;
  }
  ValRepPtr r;
  if (!ev->eval(ev, name_, args_, flags, r, cache) || !r) r = ValRep::makeNaN();
  if (flags & kEvalAnnotate) cache.setVar(key, flags, r);
  return r;
}

EvalNodePtr GenOpNode::diff(const std::string& variable, const VarEvalPtr& ev) {
  if (EvalNodePtr d = ev->diff(ev, name_, args_, variable)) return d;
  NodeMaker& mk = makerOf(ev);
  return mk.makeDiffNode(shared_from_this(), mk.makeVarNode(variable), 0);
}

DepInfo GenOpNode::depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                           ValRepCache& cache) {
  QV_ASSERT(ev != nullptr, evalnodes);
  return ev->depends(ev, name_, args_, names, cache);
}

void GenOpNode::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  for (const auto& a : args_)
    if (ids.insert(a->getID()).second) a->gatherBVars(ev, ids, names);
}

void GenOpNode::ostreamOperator(std::ostream& os) {
  os << name_ << '(';
  for (size_t i = 0; i < args_.size(); ++i) {
    if (i) os << ',';
    args_[i]->ostreamOperator(os);
  }
  os << ')';
}

// ---------------------------------------------------------------- proxies

// A subexpression is differentiated once per evaluator and version: its
// derivatives are kept in the proxy's shadow. Every proxy keeps them, not
// only those marked shared: a node the caller uses twice (g in g^2 + g) is
// shared without a second request to the factory.
EvalNodePtr ProxyNode::diff(const std::string& variable, const VarEvalPtr& ev) {
  auto& s = shadowOf<ProxyNodeShadow>(ev, getID());
  if (s.shouldUpdateCache(ev->getVersionKey())) s.initCache(*ev);
  if (auto it = s.derivatives.find(variable); it != s.derivatives.end()) return it->second;
  EvalNodePtr d = node_->diff(variable, ev);
  s.derivatives.emplace(variable, d);
  return d;
}

ValRepPtr ProxyNode::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  if (!isShared()) return node_->eval(ev, cache, flags);
  return evalShared(ev, cache, flags);
}

ValRepPtr ProxyNode::evalShared(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  const std::string key = "@PN$" + std::to_string(getID());
  auto [found, value] = cache.getVar(key, flags);
  if (found && value) return value;
  ValRepPtr r = node_->eval(ev, cache, flags);
  cache.setVar(key, flags, r);
  return r;
}

void ProxyNode::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  if (ids.insert(node_->getID()).second) node_->gatherBVars(ev, ids, names);
}

// ---------------------------------------------------------------- derivatives

EvalNodePtr DiffNode::expansion(const VarEvalPtr& ev) {
  auto& s = shadowOf<DiffNodeShadow>(ev, getID());
  if (s.shouldUpdateCache(ev->getVersionKey())) s.initCache(ev, expr_, variable_);
  const EvalNodePtr& e = s.getExpanded();
  // An expression without a derivative rule expands into a derivative again.
  return dynamic_cast<const DiffNode*>(e.get()) ? nullptr : e;
}

ValRepPtr DiffNode::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  EvalNodePtr e = expansion(ev);
  return e ? e->eval(ev, cache, flags) : ValRep::makeNaN();
}

EvalNodePtr DiffNode::diff(const std::string& variable, const VarEvalPtr& ev) {
  if (EvalNodePtr e = expansion(ev)) return e->diff(variable, ev);
  NodeMaker& mk = makerOf(ev);
  return mk.makeDiffNode(shared_from_this(), mk.makeVarNode(variable), kind_);
}

EvalNodePtr DiffNode::simplify(const VarEvalPtr& ev) {
  EvalNodePtr e = expansion(ev);
  return e ? e->simplify(ev) : shared_from_this();
}

void DiffNode::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  if (ids.insert(expr_->getID()).second) expr_->gatherBVars(ev, ids, names);
}

// Every kind prints as the language's derivative operator d(expr, variable).
void DiffNode::ostreamOperator(std::ostream& os) {
  os << "d(";
  expr_->ostreamOperator(os);
  os << ',' << variable_ << ')';
}

// ---------------------------------------------------------------- dependency tests

ValRepPtr DepNodeBase::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned) {
  std::vector<std::string> names;
  if (variable_.empty()) {
    IdSet ids;
    NameSet all;
    expr_->gatherBVars(ev, ids, all);
    names.assign(all.begin(), all.end());
  } else {
    names.push_back(variable_);
  }
  if (names.empty()) return std::make_shared<ValRep>(0.0);
  DepInfo d = jac_ ? expr_->jacDepends(names, ev, cache) : expr_->depends(names, ev, cache);
  return std::make_shared<ValRep>(d.isSolDepAll() ? 1.0 : 0.0);
}

EvalNodePtr DepNodeBase::diff(const std::string&, const VarEvalPtr& ev) { return makerOf(ev).zero(); }

void DepNodeBase::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  if (ids.insert(expr_->getID()).second) expr_->gatherBVars(ev, ids, names);
}

void DepNodeBase::ostreamOperator(std::ostream& os) {
  os << fname_ << '(';
  expr_->ostreamOperator(os);
  if (!variable_.empty()) os << ',' << variable_;
  os << ')';
}

}  // namespace qvarray
