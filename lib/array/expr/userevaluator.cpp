// UserEvaluator: bound values, defined variables, user functions and
// declared time derivatives, for programs outside the host application.
//
// User functions. The body of f(x, y) is read once with its parameters
// renamed to internal names ("f..a1", "f..a2") so that they never meet a
// variable of the caller. A call is a general operator node: its value is
// the body evaluated in a fresh cache holding the argument values under the
// internal names. Its derivative is the chain rule over the arguments, with
// the partial derivative by argument k as the function "f..pk", plus the
// derivative of the body by the variable itself (a variable the body uses
// directly) as "f..v" + variable; both are built on demand from the body and
// read back by name, so a printed derivative parses again.
#include "qvarray/expr/userevaluator.h"

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <sstream>

#include "qvarray/expr/evalnodes.h"
#include "qvarray/expr/exprtree.h"
#include "qvarray/expr/nodemaker.h"

namespace qvarray {

struct UserEvaluator::Definition {
  std::string text;
  ExprImpl syntax;
  std::vector<std::string> refs;    // names in the text (variables and calls)
  std::vector<std::string> params;  // internal parameter names (functions only)
  bool function = false;
};

namespace {


void collectNames(const ExprImpl::Node& n, std::vector<std::string>& out) {
  if (const auto* id = dynamic_cast<const ExprImpl::Identifier*>(&n)) out.push_back(id->name());
  if (const auto* c = dynamic_cast<const ExprImpl::FuncCall*>(&n)) out.push_back(c->name());
  for (size_t i = 0; i < n.childCount(); ++i) collectNames(*n.child(i), out);
}

std::string paramName(const std::string& fun, size_t k) { return fun + "..a" + std::to_string(k + 1); }

// Renames the parameters in the prefix form: every identifier token but the
// name after a call marker "()".
std::string renameParams(const std::string& prefix, const std::string& fun,
                         const std::vector<std::string>& params) {
  std::istringstream in(prefix);
  std::string tok, out, prev;
  while (in >> tok) {
    if (tok == "\"\"")
      QV_RAISE(varevaluator, Invalid_variable_binding,
               qvbase::DetailPairs{{"Name", fun}, {"", "strings are not allowed in a function body"}});
    if (prev != "()")
      if (auto it = std::find(params.begin(), params.end(), tok); it != params.end())
        tok = paramName(fun, static_cast<size_t>(it - params.begin()));
    out += (out.empty() ? "" : " ") + tok;
    prev = tok;
  }
  return out;
}

bool isName(const std::string& s) {
  if (s.empty() || !std::isalpha(static_cast<unsigned char>(s[0]))) return false;
  return std::all_of(s.begin(), s.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
  });
}

}  // namespace

// ---------------------------------------------------------------- construction

std::shared_ptr<UserEvaluator> UserEvaluator::make(size_t nPoints, std::shared_ptr<NodeMaker> maker) {
  auto ev = std::make_shared<UserEvaluator>(nPoints, maker ? std::move(maker) : std::make_shared<NodeMaker>());
  ev->self_ = ev;
  return ev;
}

UserEvaluator::UserEvaluator(size_t nPoints, std::shared_ptr<NodeMaker> maker)
    : VarEvaluator(std::move(maker)), nPoints_(nPoints) {}

UserEvaluator::UserEvaluator(const UserEvaluator& other)
    : VarEvaluator(other), nPoints_(other.nPoints_), complex_(other.complex_), alloc_(other.alloc_),
      bound_(other.bound_),
      boundComplex_(other.boundComplex_), timeNames_(other.timeNames_), solNames_(other.solNames_),
      parNames_(other.parNames_), defs_(other.defs_), funObjs_(other.funObjs_), nesting_(other.nesting_) {}

std::shared_ptr<UserEvaluator> UserEvaluator::copy() const {
  auto ev = std::make_shared<UserEvaluator>(*this);
  ev->self_ = ev;
  return ev;
}

std::shared_ptr<UserEvaluator> UserEvaluator::self() {
  auto s = self_.lock();
  QV_ASSERT(s != nullptr, varevaluator);  // made by make() or copy()
  return s;
}

// ---------------------------------------------------------------- names

void UserEvaluator::checkNewName(const std::string& name, bool binding) const {
  QV_CHECK(isName(name), varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name}, {"", "not a name"}});
  const bool defined = defs_.count(name) != 0;
  const bool declared = timeNames_.count(name) != 0;
  const bool isBound = bound_.count(name) != 0;
  QV_CHECK(binding ? !defined : !(isBound || declared), varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name},
                               {"", binding ? "the name is defined by an expression"
                                            : "the name is bound or declared"}});
}

void UserEvaluator::setNPoints(size_t n) {
  if (n == nPoints_) return;
  for (auto it = bound_.begin(); it != bound_.end();)
    it = it->second->isScalar() ? std::next(it) : bound_.erase(it);
  boundComplex_.clear();
  nPoints_ = n;
  updateVersion();
}

void UserEvaluator::bind(const std::string& name, double v) {
  checkNewName(name, true);
  bound_[name] = std::make_shared<ValRep>(v);
  boundComplex_.erase(name);
}

void UserEvaluator::bind(const std::string& name, Complex v) {
  checkNewName(name, true);
  bound_[name] = std::make_shared<ValRep>(v);
  boundComplex_.erase(name);
}

void UserEvaluator::bind(const std::string& name, const Array<double, 1>& v) {
  checkNewName(name, true);
  QV_CHECK(v.size() == nPoints_, varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name}, {"Length", std::to_string(v.size())},
                               {"Points", std::to_string(nPoints_)}});
  auto r = std::make_shared<ValRep>(alloc_);
  r->reset(false, false, nPoints_);
  std::copy(v.data, v.data + nPoints_, r->addDArray().data);
  r->setEvaluated();
  bound_[name] = r;
  boundComplex_.erase(name);
}

void UserEvaluator::bind(const std::string& name, const Array<Complex, 1>& v) {
  checkNewName(name, true);
  QV_CHECK(v.size() == nPoints_, varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name}, {"Length", std::to_string(v.size())},
                               {"Points", std::to_string(nPoints_)}});
  auto r = std::make_shared<ValRep>(alloc_);
  r->reset(false, true, nPoints_);
  std::copy(v.data, v.data + nPoints_, r->addCArray().data);
  r->setEvaluated();
  bound_[name] = r;
  boundComplex_.erase(name);
}

void UserEvaluator::define(const std::string& name, const std::string& text) {
  checkNewName(name, false);
  auto d = std::make_shared<Definition>();
  d->text = text;
  d->syntax.constructor(text);  // syntax errors raise here, with the position
  collectNames(*d->syntax.root(), d->refs);
  defs_[name] = std::move(d);
  funObjs_.erase(name);
  derivedFuns_.clear();
  nesting_.clear();
  bodies_.clear();
  updateVersion();
}

void UserEvaluator::defineFunction(const std::string& name, const std::vector<std::string>& params,
                                   const std::string& text) {
  checkNewName(name, false);
  QV_CHECK(name.find("..") == std::string::npos, varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name}});
  for (const auto& p : params)
    QV_CHECK(isName(p), varevaluator, Invalid_variable_binding,
             qvbase::DetailPairs{{"Name", name}, {"Parameter", p}});
  auto d = std::make_shared<Definition>();
  d->text = text;
  d->function = true;
  ExprImpl plain(text);
  d->syntax.scanprefix(renameParams(plain.toPrefix(), name, params));
  collectNames(*d->syntax.root(), d->refs);
  for (size_t k = 0; k < params.size(); ++k) d->params.push_back(paramName(name, k));
  defs_[name] = std::move(d);
  funObjs_.erase(name);
  derivedFuns_.clear();
  nesting_.clear();
  bodies_.clear();
  updateVersion();
}

void UserEvaluator::defineFunction(const std::string& name, GenFunPtr fun) {
  checkNewName(name, false);
  QV_CHECK(fun != nullptr && name.find("..") == std::string::npos, varevaluator,
           Invalid_variable_binding, qvbase::DetailPairs{{"Name", name}});
  defs_.erase(name);
  funObjs_[name] = std::move(fun);
  derivedFuns_.clear();
  nesting_.clear();
  bodies_.clear();
  updateVersion();
}

void UserEvaluator::declare(const std::string& name, int maxOrder, bool parameter) {
  QV_CHECK(maxOrder >= 0 && maxOrder < 15, varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name}, {"Order", std::to_string(maxOrder)}});
  std::vector<std::string>& list = parameter ? parNames_ : solNames_;
  std::string n = name;
  for (int k = 0; k <= maxOrder; ++k, n += 't') checkNewName(n, false);
  QV_CHECK(list.size() < 32, varevaluator, Invalid_variable_binding,
           qvbase::DetailPairs{{"Name", name}, {"", "at most 32 components"}});
  n = name;
  for (int k = 0; k <= maxOrder; ++k, n += 't')
    timeNames_[n] = TimeName{parameter, static_cast<int>(list.size()), k, name};
  list.push_back(name);
  updateVersion();
}

void UserEvaluator::addSolution(const std::string& name, int maxOrder) { declare(name, maxOrder, false); }
void UserEvaluator::addParameter(const std::string& name, int maxOrder) { declare(name, maxOrder, true); }

// Depth-first over the definitions from `name`, with an explicit stack so
// that a chain of 10000 definitions does not recurse. Each step enters the
// evaluator's recursion guard as evaluating the definition would; a name met
// again on the current path is a circle, walked round until the guard
// refuses, so that circles and deep chains give the guard's one error. The
// depth of a checked name is kept and spares walking it again unless the
// depth from here would reach the limit.
void UserEvaluator::checkDefinitions(const std::string& name) {
  if (!defs_.count(name)) return;
  RecCount& counter = getRecCount();
  if (auto done = nesting_.find(name);
      done != nesting_.end() && counter.getRecDepth() + done->second < RecLimCheck::kLimit)
    return;
  struct Frame {
    std::string name;
    const std::vector<std::string>* refs;
    size_t next;
    int depth;
  };
  std::vector<Frame> path;
  std::unordered_map<std::string, size_t> onPath;  // name -> its frame
  std::deque<RecLimCheck> guards;  // guards are neither copied nor moved
  // Guards must be dropped innermost first, also when an error leaves.
  auto unwind = [&] {
    while (!guards.empty()) guards.pop_back();
  };
  auto enter = [&](const std::string& n) {
    guards.emplace_back();
    initRecLimCheck(guards.back(), n);
    if (!guards.back().isError()) return;
    try {
      guards.back().throwError(guards.back().chain());
    } catch (...) {
      unwind();
      throw;
    }
  };
  enter(name);
  onPath.emplace(name, 0);
  path.push_back({name, &defs_.at(name)->refs, 0, 1});
  while (!path.empty()) {
    Frame& f = path.back();
    if (f.next == f.refs->size()) {
      nesting_[f.name] = f.depth;
      const int d = f.depth;
      onPath.erase(f.name);
      path.pop_back();
      guards.pop_back();
      if (!path.empty()) path.back().depth = std::max(path.back().depth, d + 1);
      continue;
    }
    const std::string r = (*f.refs)[f.next++];
    auto def = defs_.find(r);
    if (def == defs_.end()) continue;
    if (auto done = nesting_.find(r);
        done != nesting_.end() && counter.getRecDepth() + done->second < RecLimCheck::kLimit) {
      f.depth = std::max(f.depth, done->second + 1);
      continue;
    }
    if (auto on = onPath.find(r); on != onPath.end()) {
      // Round the circle until the guard refuses (at the latest at its limit).
      const size_t first = on->second;
      for (size_t k = first;; k = k + 1 < path.size() ? k + 1 : first) enter(path[k].name);
    }
    enter(r);
    onPath.emplace(r, path.size());
    path.push_back({r, &def->second->refs, 0, 1});
  }
}

// ---------------------------------------------------------------- formulas

ValRepPtr UserEvaluator::evaluate(const EvalTreePtr& tree) {
  ValRepCache cache(alloc_);
  return tree->eval(self(), cache, evalFlags());
}

ValRepPtr UserEvaluator::evaluate(const std::string& text) {
  return evaluate(std::make_shared<EvalTree>(text));
}

Array<double, 1> UserEvaluator::toArray(const ValRep& v) const {
  Array<double, 1> out(nPoints_);
  if (v.isZero()) {
    std::fill(out.data, out.data + nPoints_, 0.0);
  } else if (v.isScalar()) {
    std::fill(out.data, out.data + nPoints_, v.getDouble());  // NaN raises here
  } else {
    QV_CHECK(!v.checkComplex(), evalrep, Complex_number_in_real_expression);
    v.copyToArray(out.data, 0, nPoints_);
  }
  return out;
}

Array<UserEvaluator::Complex, 1> UserEvaluator::toComplexArray(const ValRep& v) const {
  Array<Complex, 1> out(nPoints_);
  if (v.isZero())
    std::fill(out.data, out.data + nPoints_, Complex(0.0));
  else if (v.isScalar())
    std::fill(out.data, out.data + nPoints_, v.getComplex());
  else
    v.copyToArray(out.data, 0, nPoints_);
  return out;
}

Array<double, 1> UserEvaluator::values(const std::string& text) { return toArray(*evaluate(text)); }

Array<UserEvaluator::Complex, 1> UserEvaluator::complexValues(const std::string& text) {
  return toComplexArray(*evaluate(text));
}

EvalTreePtr UserEvaluator::derivative(const std::string& text, const std::string& variable) {
  return std::make_shared<EvalTree>(text)->diff(variable, self());
}

DepInfo UserEvaluator::dependencies(const std::string& text, bool jacobian) {
  std::vector<std::string> names = solNames_;
  names.insert(names.end(), parNames_.begin(), parNames_.end());
  ValRepCache cache(alloc_);
  EvalTree tree(text);
  DepInfo raw = jacobian ? tree.jacDepends(names, self(), cache) : tree.depends(names, self(), cache);
  if (raw.isFailed()) return raw;
  // Parameters answered at their position in `names`: move them to their own index.
  DepInfo d;
  for (int k = 0; k < 16; ++k) {
    for (size_t i = 0; i < solNames_.size(); ++i)
      if (raw.getSolDep(static_cast<int>(i), k)) d.setSolDep(static_cast<int>(i), k);
    for (size_t j = 0; j < parNames_.size(); ++j)
      if (raw.getParDep(static_cast<int>(solNames_.size() + j), k)) d.setParDep(static_cast<int>(j), k);
  }
  if (raw.isIncomplete()) d.setIncomplete();
  if (raw.isIncompleteJac()) d.setIncompleteJac();
  return d;
}

// ---------------------------------------------------------------- the engine's questions

bool UserEvaluator::eval(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                         unsigned flags, ValRepPtr& result, ValRepCache& cache) {
  if (!args.empty()) {
    const FunBody* f = funBody(self, name);
    if (!f || f->params.size() != args.size()) return false;
    // Arguments in the caller's cache (outside the call's guard: f(f(x))
    // is no recursion), the body in a cache of its own.
    ValRepCache inner(cache.getAllocator());
    for (size_t k = 0; k < args.size(); ++k) {
      ValRepPtr a = args[k]->eval(self, cache, flags);
      if (a->isNaN()) {
        result = a;
        return true;
      }
      inner.setVar(f->params[k], flags, a);
    }
    RecLimCheck check;
    initRecLimCheck(check, name);
    if (check.isError()) check.throwError(check.chain());
    result = f->body->eval(self, inner, flags);
    return true;
  }
  auto it = bound_.find(name);
  if (it == bound_.end()) return false;
  const ValRepPtr& v = it->second;
  if (!(flags & kEvalComplex)) {
    QV_CHECK(!v->isStoredAsComplex() || !v->checkComplex(), varevaluator,
             Complex_number_in_real_expression,
             qvbase::DetailPairs{{"Name", name}, {"message", "varcmplx"}});
    result = v;
    return true;
  }
  if (v->isStoredAsComplex()) {
    result = v;
    return true;
  }
  ValRepPtr& c = boundComplex_[name];
  if (!c) {
    c = v->cloneCast(alloc_, v->isScalar(), true, v->isScalar() ? 1 : nPoints_);
    c->setComplex(true);
  }
  result = c;
  return true;
}

EvalNodePtr UserEvaluator::expand(const VarEvalPtr& self, const std::string& name) {
  auto it = defs_.find(name);
  if (it == defs_.end() || it->second->function) return nullptr;
  checkDefinitions(name);
  return getNodeMaker().fromSyntax(*it->second->syntax.root(), self);
}

// Time derivatives: d(u, t) of a declared u is ut (zero past the declared order).
EvalNodePtr UserEvaluator::diff(const VarEvalPtr& self, const std::string& name,
                                const std::string& variable) {
  if (variable == "t")
    if (auto it = timeNames_.find(name); it != timeNames_.end())
      return timeNames_.count(name + "t") ? getNodeMaker().makeVarNode(name + "t") : getNodeMaker().zero();
  return VarEvaluator::diff(self, name, variable);
}

EvalNodePtr UserEvaluator::diff(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                                const std::string& variable) {
  const FunBody* f = funBody(self, name);
  if (!f || f->params.size() != args.size()) return nullptr;
  NodeMaker& mk = getNodeMaker();
  EvalNodePtr sum = mk.zero();
  for (size_t k = 0; k < args.size(); ++k) {
    EvalNodePtr da = args[k]->diff(variable, self);
    if (da->isZero()) continue;
    EvalNodePtr p = mk.makeGenOpNode(name + "..p" + std::to_string(k + 1), args);
    sum = mk.makeOpNode(NodeMaker::Plus, sum, mk.makeOpNode(NodeMaker::Times, p, da));
  }
  // The body's own use of the variable.
  if (!f->body->diff(variable, self)->isZero())
    sum = mk.makeOpNode(NodeMaker::Plus, sum, mk.makeGenOpNode(name + "..v" + variable, args));
  return sum;
}

DepInfo UserEvaluator::depends(const VarEvalPtr& self, const std::string& name,
                               const std::vector<std::string>& names, ValRepCache& cache) {
  auto it = timeNames_.find(name);
  if (it == timeNames_.end()) return VarEvaluator::depends(self, name, names, cache);
  const TimeName& t = it->second;
  DepInfo d;
  for (size_t i = 0; i < names.size(); ++i)
    if (names[i] == t.base) t.parameter ? d.setParDep(static_cast<int>(i), t.order)
                                        : d.setSolDep(static_cast<int>(i), t.order);
  return d;
}

// A call: the arguments' records, and the body's own (its parameters are
// names of no caller, so they add nothing).
DepInfo UserEvaluator::depends(const VarEvalPtr& self, const std::string& name, const NodeList& args,
                               const std::vector<std::string>& names, ValRepCache& cache) {
  DepInfo d = VarEvaluator::depends(self, name, args, names, cache);
  if (const FunBody* f = funBody(self, name); f && f->params.size() == args.size()) {
    ValRepCache inner(cache.getAllocator());
    d |= f->body->depends(names, self, inner);
  }
  return d;
}

// User functions (and their partial derivatives "f..pk", "f..vNAME") are
// general operators that eval answers: no function object. Their calls are
// checked here, when the formula is read. Other names are function objects:
// the ones named by defineFunction, the built-ins, or a partial of a named one.
GenFunPtr UserEvaluator::getGenFun(const std::string& name, int nArgs) {
  const std::string fun = name.substr(0, name.find(".."));
  auto it = defs_.find(fun);
  if (it != defs_.end() && it->second->function) {
    const size_t n = it->second->params.size();
    QV_CHECK(static_cast<size_t>(nArgs) == n, varevaluator, Wrong_number_of_function_arguments,
             qvbase::DetailPairs{{"Number_of_arguments_expected", std::to_string(n)}, {"Name", name}});
    return nullptr;
  }
  if (fun.size() != name.size()) return nullptr;
  GenFunPtr f;
  if (auto it = funObjs_.find(name); it != funObjs_.end())
    f = it->second;
  else if (!(f = getNodeMaker().builtinFun(name)))
    f = derivedFunObj(name);
  checkGenFun(f, name, nArgs);
  return f;
}

// The derivative of a call of a named function object is a call of the object
// its diffRule builds ("k_d0" for an InterpFun "k"), printed under that
// object's name. Finding it here among the partials of the named objects lets
// a printed derivative read back; it is kept under its name until the
// functions change.
GenFunPtr UserEvaluator::derivedFunObj(const std::string& name) {
  if (auto it = derivedFuns_.find(name); it != derivedFuns_.end()) return it->second;
  NodeMaker& mk = getNodeMaker();
  for (const auto& [base, g] : funObjs_) {
    auto f = std::dynamic_pointer_cast<const FunObj>(g);
    const int n = g->getNArgs();
    if (!f || n <= 0) continue;
    NodeList args;
    for (int k = 0; k < n; ++k) args.push_back(mk.makeVarNode("x" + std::to_string(k)));
    for (int k = 0; k < n; ++k) {
      EvalNodePtr d = f->diffRule(args, k, mk);
      while (auto* proxy = dynamic_cast<const ProxyNode*>(d.get())) d = proxy->target();
      auto* op = dynamic_cast<const OpNode*>(d.get());
      if (op && op->function()->getName() == name) return derivedFuns_[name] = op->function();
    }
  }
  return nullptr;
}

// "f" is the body read from the definition; "f..pk" the derivative of the
// body of what precedes the last ".." by its k-th parameter; "f..vNAME" by
// the variable NAME.
const UserEvaluator::FunBody* UserEvaluator::funBody(const VarEvalPtr& self, const std::string& name) {
  if (auto it = bodies_.find(name); it != bodies_.end()) return &it->second;
  const size_t cut = name.rfind("..");
  FunBody b;
  if (cut == std::string::npos) {
    auto it = defs_.find(name);
    if (it == defs_.end() || !it->second->function) return nullptr;
    checkDefinitions(name);
    b.params = it->second->params;
    b.body = getNodeMaker().fromSyntax(*it->second->syntax.root(), self);
  } else {
    const FunBody* base = funBody(self, name.substr(0, cut));
    const std::string what = name.substr(cut + 2);
    if (!base || what.size() < 2) return nullptr;
    std::string variable = what.substr(1);
    if (what[0] == 'p') {
      size_t k = 0;
      for (char c : variable) k = std::isdigit(static_cast<unsigned char>(c)) ? 10 * k + size_t(c - '0') : 0;
      if (k == 0 || k > base->params.size()) return nullptr;
      variable = base->params[k - 1];
    } else if (what[0] != 'v') {
      return nullptr;
    }
    b.params = base->params;
    b.body = base->body->diff(variable, self);
  }
  return &bodies_.emplace(name, std::move(b)).first->second;
}

}  // namespace qvarray
