// NodeMaker: identity numbers, hash-consing, the simplifications and folds of
// operator nodes, syntax trees to nodes. Partial derivatives are in
// nodediff.cpp.
#include "qvarray/expr/nodemaker.h"

#include <omp.h>

#include <bit>
#include <cmath>
#include <map>
#include <unordered_map>

#include "qvarray/expr/elemfuns.h"
#include "qvarray/expr/evaltree.h"
#include "qvarray/expr/operators.h"
#include "qvarray/expr/varevaluator.h"
#include "qvutil/numeric.h"
#include "qvutil/parallel.h"

namespace qvarray {

namespace {

std::mutex& idLock() {
  static std::mutex lock;
  return lock;
}
uint64_t idCounter = 0;  // guarded by idLock()

using Ids = std::vector<uint64_t>;

Ids idsOf(const NodeList& args) {
  Ids ids;
  ids.reserve(args.size());
  for (const auto& a : args) ids.push_back(a->getID());
  return ids;
}

struct IdsHash {
  size_t operator()(const std::pair<const void*, Ids>& k) const {
    size_t h = std::hash<const void*>()(k.first);
    for (uint64_t id : k.second) h = (h ^ std::hash<uint64_t>()(id)) * 0x9E3779B97F4A7C15ull;
    return h;
  }
};

bool isConstant(const EvalNodePtr& n) { return dynamic_cast<const ConstNode*>(n.get()) != nullptr; }

// The factory's one-argument operators that are also built-in functions.
constexpr NodeMaker::FunId kNamedOwn[] = {NodeMaker::Abs,  NodeMaker::Cos, NodeMaker::Exp,
                                          NodeMaker::Floor, NodeMaker::Log, NodeMaker::Sign,
                                          NodeMaker::Sin,  NodeMaker::Sqrt};

}  // namespace

// One thread's uniquing tables. Operator calls of one, two and more
// arguments share the key form (function object, operand identities).
struct NodeMaker::Tables {
  std::unordered_map<uint64_t, EvalNodePtr> realConst;  // keyed by bit pattern
  std::map<std::pair<uint64_t, uint64_t>, EvalNodePtr> complexConst;
  std::unordered_map<std::string, EvalNodePtr> vars;
  std::map<std::pair<std::string, uint64_t>, EvalNodePtr> varDiffs;
  std::unordered_map<std::pair<const void*, Ids>, EvalNodePtr, IdsHash> unOps, binOps, multiOps;
  std::map<std::pair<std::string, Ids>, EvalNodePtr> genOps;
  std::unordered_map<uint64_t, std::shared_ptr<EvalTree>> trees;  // by root identity
  std::map<std::pair<uint64_t, std::string>, std::shared_ptr<EvalTree>> namedTrees;

  size_t size() const {
    return realConst.size() + complexConst.size() + vars.size() + varDiffs.size() + unOps.size() +
           binOps.size() + multiOps.size() + genOps.size() + trees.size() + namedTrees.size();
  }
};

// The calling thread's tables; thread 0 (every host thread outside a
// parallel region, and each team's master) under the host lock.
class NodeMaker::TableAccess {
 public:
  explicit TableAccess(NodeMaker& m) {
    int t = omp_get_thread_num();
    QV_ASSERT(t >= 0 && static_cast<size_t>(t) < m.tables_.size(), nodemaker);
    if (t == 0) lock_ = std::unique_lock<std::mutex>(m.hostLock_);
    tables_ = m.tables_[static_cast<size_t>(t)].get();
  }
  Tables* operator->() const { return tables_; }

 private:
  std::unique_lock<std::mutex> lock_;
  Tables* tables_;
};

uint64_t NodeMaker::nextId() {
  std::lock_guard<std::mutex> guard(idLock());
  return ++idCounter;
}

NodeMaker::NodeMaker() {
  // The shared operators, in their fixed order of creation.
  auto funs = std::make_shared<std::vector<FunPtr>>(31);
  auto& f = *funs;
  f[UMinus] = std::make_shared<UMinusFun>();
  f[UPlus] = std::make_shared<UPlusFun>();
  f[Not] = std::make_shared<UNotFun>();
  f[PowM2] = std::make_shared<ConstPowFun>(-2.0);
  f[PowM1] = std::make_shared<ConstPowFun>(-1.0);
  f[Pow2] = std::make_shared<ConstPowFun>(2.0);
  f[Pow3] = std::make_shared<ConstPowFun>(3.0);
  f[Pow4] = std::make_shared<ConstPowFun>(4.0);
  f[Log] = std::make_shared<LogFun>();
  f[Exp] = std::make_shared<ExpFun>();
  f[Sqrt] = std::make_shared<SqrtFun>();
  f[Cos] = std::make_shared<CosFun>();
  f[Sin] = std::make_shared<SinFun>();
  f[Sign] = std::make_shared<SignFun>();
  f[Abs] = std::make_shared<AbsFun>();
  f[Floor] = std::make_shared<FloorFun>();
  f[Plus] = std::make_shared<PlusFun>();
  f[PlusSq] = std::make_shared<PlusSqFun>();
  f[Minus] = std::make_shared<MinusFun>();
  f[Times] = std::make_shared<MultFun>();
  f[Divide] = std::make_shared<DivFun>();
  f[Pow] = std::make_shared<PowFun>();
  f[LT] = std::make_shared<LTFun>();
  f[GT] = std::make_shared<GTFun>();
  f[LE] = std::make_shared<LEFun>();
  f[GE] = std::make_shared<GEFun>();
  f[EQ] = std::make_shared<EQFun>();
  f[NE] = std::make_shared<NEFun>();
  f[And] = std::make_shared<AndFun>();
  f[Or] = std::make_shared<OrFun>();

  // Built-in functions by name: the evaluators' table (VarEvaluator::
  // getStdFuns, the complex-valued ones included), where the factory's own
  // operator object stands for the functions it has one of, so that a call
  // by name and a call by FunId share nodes; then "plussq", the one operator
  // of the factory that is also called by name.
  auto named = std::make_shared<std::vector<std::pair<std::string, FunPtr>>>();
  std::vector<FunPtr> table;
  VarEvaluator::getStdFuns(table, true);
  for (FunPtr& p : table) {
    for (FunId id : kNamedOwn)
      if (f[id]->getName() == p->getName()) p = f[id];
    named->emplace_back(p->getName(), p);
  }
  named->emplace_back(f[PlusSq]->getName(), f[PlusSq]);
  funs_ = std::move(funs);
  named_ = std::move(named);

  zero_.reset(new ZeroNode(nextId()));
  unit_.reset(new UnitNode(nextId()));
  nunit_.reset(new NUnitNode(nextId()));
  tables_.resize(static_cast<size_t>(MAXAVAILABLETHREADS));
  for (auto& t : tables_) t = std::make_unique<Tables>();
}

NodeMaker::NodeMaker(const NodeMaker& other)
    : funs_(other.funs_), named_(other.named_), zero_(other.zero_), unit_(other.unit_),
      nunit_(other.nunit_) {
  tables_.resize(other.tables_.size());
  for (auto& t : tables_) t = std::make_unique<Tables>();
}

NodeMaker::~NodeMaker() = default;

void NodeMaker::reset() {
  std::lock_guard<std::mutex> guard(hostLock_);
  for (auto& t : tables_) t = std::make_unique<Tables>();
}

size_t NodeMaker::tableSize() {
  std::lock_guard<std::mutex> guard(hostLock_);
  size_t n = 0;
  for (const auto& t : tables_) n += t->size();
  return n;
}

const FunPtr& NodeMaker::idToFun(FunId id, int n) const {
  static constexpr bool kUnary[31] = {false, true,  false, true,  false, true,  true,  false,
                                      false, false, true,  false, false, false, true,  false,
                                      false, false, false, true,  true,  true,  true,  true,
                                      false, true,  true,  true,  false, true,  true};
  if (id < 1 || id > 30 || (n != 1 && n != 2) || kUnary[id] != (n == 1))
    QV_RAISE(nodemaker, Evaluation_internal_error,
             qvbase::DetailPairs{{"FunId", std::to_string(int(id))}, {"Arguments", std::to_string(n)}});
  return (*funs_)[id];
}

FunPtr NodeMaker::builtinFun(const std::string& name) const {
  for (const auto& [n, f] : *named_)
    if (n == name) return f;
  return nullptr;
}

FunPtr NodeMaker::builtinFun(const std::string& name, int nArgs) const {
  FunPtr f = builtinFun(name);
  return f && f->acceptsNArgs(nArgs) ? f : nullptr;
}

// ---------------------------------------------------------------- constants

EvalNodePtr NodeMaker::makeConstNode(double v) {
  if (v == 0.0) return zero_;
  if (v == 1.0) return unit_;
  if (v == -1.0) return nunit_;
  uint64_t key = std::bit_cast<uint64_t>(v);
  {
    TableAccess t(*this);
    if (auto it = t->realConst.find(key); it != t->realConst.end()) return it->second;
  }
  EvalNodePtr node(new ConstNode(std::make_shared<ValRep>(v), nextId()));
  TableAccess t(*this);
  return t->realConst.try_emplace(key, node).first->second;
}

// A complex number with a zero imaginary part is the real constant.
EvalNodePtr NodeMaker::makeConstNode(std::complex<double> v) {
  if (v.imag() == 0.0) return makeConstNode(v.real());
  std::pair<uint64_t, uint64_t> key{std::bit_cast<uint64_t>(v.real()), std::bit_cast<uint64_t>(v.imag())};
  {
    TableAccess t(*this);
    if (auto it = t->complexConst.find(key); it != t->complexConst.end()) return it->second;
  }
  EvalNodePtr node(new ConstNode(std::make_shared<ValRep>(v), nextId()));
  TableAccess t(*this);
  return t->complexConst.try_emplace(key, node).first->second;
}

// A scalar value is keyed by its number; any other value gets a node of its own.
EvalNodePtr NodeMaker::makeConstNode(const ValRepPtr& v) {
  QV_ASSERT(v != nullptr, nodemaker);
  if (v->isZero()) return zero_;
  if (v->isScalar() && !v->isStructured() && !v->isNaN())
    return v->checkComplex() ? makeConstNode(v->getComplex()) : makeConstNode(v->getDouble());
  return EvalNodePtr(new ConstNode(v, nextId()));
}

EvalNodePtr NodeMaker::makeConstNode(const std::string& text) {
  return makeConstNode(qvutil::parseDoublePrefix(text));
}

// ---------------------------------------------------------------- trees

std::shared_ptr<EvalTree> NodeMaker::makeTree(const EvalNodePtr& root) {
  QV_ASSERT(root != nullptr, nodemaker);
  {
    TableAccess t(*this);
    if (auto it = t->trees.find(root->getID()); it != t->trees.end()) return it->second;
  }
  auto tree = std::make_shared<EvalTree>(root);  // prints the root: outside the lock
  TableAccess t(*this);
  return t->trees.try_emplace(root->getID(), tree).first->second;
}

std::shared_ptr<EvalTree> NodeMaker::makeNamedTree(const EvalNodePtr& root, const std::string& text) {
  QV_ASSERT(root != nullptr, nodemaker);
  std::pair<uint64_t, std::string> key{root->getID(), text};
  {
    TableAccess t(*this);
    if (auto it = t->namedTrees.find(key); it != t->namedTrees.end()) return it->second;
  }
  auto tree = std::make_shared<EvalTree>(root, text);
  TableAccess t(*this);
  return t->namedTrees.try_emplace(std::move(key), tree).first->second;
}

// ---------------------------------------------------------------- variables

EvalNodePtr NodeMaker::makeVarNode(const std::string& name) {
  {
    TableAccess t(*this);
    if (auto it = t->vars.find(name); it != t->vars.end()) return it->second;
  }
  EvalNodePtr node(new VarNode(name, nextId()));
  TableAccess t(*this);
  return t->vars.try_emplace(name, node).first->second;
}

EvalNodePtr NodeMaker::makeVarDiffNode(const EvalNodePtr& expr, const std::string& name,
                                       const std::string& variable) {
  QV_ASSERT(expr != nullptr, nodemaker);
  std::pair<std::string, uint64_t> key{name + "@VDN$" + variable, expr->getID()};
  {
    TableAccess t(*this);
    if (auto it = t->varDiffs.find(key); it != t->varDiffs.end()) return it->second;
  }
  EvalNodePtr node(new VarDiffNode(key.first, expr, nextId()));
  TableAccess t(*this);
  return t->varDiffs.try_emplace(key, node).first->second;
}

// ---------------------------------------------------------------- operators

EvalNodePtr NodeMaker::makeProxyNode(const EvalNodePtr& node) {
  QV_ASSERT(node != nullptr, nodemaker);
  return EvalNodePtr(new ProxyNode(node, nextId()));
}

// Find-or-insert of the call (f, args) as a proxy; a hit marks it shared.
EvalNodePtr NodeMaker::unique(const FunPtr& f, const NodeList& args) {
  std::pair<const void*, Ids> key{f.get(), idsOf(args)};
  auto table = [&](TableAccess& t) -> auto& {
    return args.size() == 1 ? t->unOps : args.size() == 2 ? t->binOps : t->multiOps;
  };
  {
    TableAccess t(*this);
    auto& m = table(t);
    if (auto it = m.find(key); it != m.end()) {
      static_cast<ProxyNode&>(*it->second).markAsShared();
      return it->second;
    }
  }
  EvalNodePtr proxy = makeProxyNode(EvalNodePtr(new OpNode(f, args, nextId())));
  TableAccess t(*this);
  auto [it, inserted] = table(t).try_emplace(std::move(key), proxy);
  if (!inserted) static_cast<ProxyNode&>(*it->second).markAsShared();
  return it->second;
}

// The call evaluated on constant operands, when that gives a finite number of
// the operands' kind: a failure (NaN), an infinity from finite operands or a
// complex value from real ones is left to evaluation, which reports it.
EvalNodePtr NodeMaker::fold(const FunObj& f, const NodeList& args) {
  bool anyComplex = false;
  std::vector<ValRepPtr> values;
  for (const auto& a : args) {
    if (!isConstant(a)) return nullptr;
    const ValRepPtr& v = static_cast<const ConstNode&>(*a).value();
    if (v->isNaN() || !v->isScalar() || v->isStructured()) return nullptr;
    std::complex<double> z = v->isZero() ? 0.0 : v->getComplex();
    if (!std::isfinite(z.real()) || !std::isfinite(z.imag())) return nullptr;
    anyComplex |= v->checkComplex();
    values.push_back(v);
  }
  ValRepPtr r = values.size() == 1   ? ValRep::applyOp(f, values[0], false)
                : values.size() == 2 ? ValRep::applyOp(f, values[0], values[1], false)
                                     : ValRep::applyOp(f, values, false);
  if (!r || r->isNaN() || r->hasErrors() || !r->isScalar() || r->isStructured()) return nullptr;
  if (r->isZero()) return zero_;
  std::complex<double> z = r->getComplex();
  if (!std::isfinite(z.real()) || !std::isfinite(z.imag())) return nullptr;
  if (r->checkComplex() && !anyComplex) return nullptr;
  return makeConstNode(r->checkComplex() ? z : std::complex<double>(z.real(), 0.0));
}

EvalNodePtr NodeMaker::makeOpNode(const FunPtr& f, const NodeList& args) {
  QV_ASSERT(f != nullptr && !args.empty(), nodemaker);
  if (EvalNodePtr r = f->simpRule(f, args, *this)) return r;
  if (EvalNodePtr r = fold(*f, args)) return r;
  return unique(f, args);
}
EvalNodePtr NodeMaker::makeOpNode(const FunPtr& f, const EvalNodePtr& a) {
  return makeOpNode(f, NodeList{a});
}
EvalNodePtr NodeMaker::makeOpNode(const FunPtr& f, const EvalNodePtr& a, const EvalNodePtr& b) {
  return makeOpNode(f, NodeList{a, b});
}

EvalNodePtr NodeMaker::makeOpNode(FunId id, const NodeList& args) {
  if (args.size() == 1) return makeOpNode(id, args[0]);
  if (args.size() == 2) return makeOpNode(id, args[0], args[1]);
  QV_RAISE(nodemaker, Evaluation_internal_error,
           qvbase::DetailPairs{{"FunId", std::to_string(int(id))},
                               {"Arguments", std::to_string(args.size())}});
}

EvalNodePtr NodeMaker::makeOpNode(FunId id, const EvalNodePtr& a, const EvalNodePtr& b) {
  const FunPtr& f = idToFun(id, 2);
  // 1. Canonical order, so that a+b and b+a meet in one table entry.
  if ((id == Plus || id == Times) && b->getID() < a->getID()) return makeOpNode(id, b, a);
  // 2.-4. Identities of 0, 1 and -1; x*x is x^2.
  if (id == Plus) {
    if (a->isZero()) return b;
    if (b->isZero()) return a;
  } else if (id == Minus) {
    if (a->isZero()) return makeOpNode(UMinus, b);
    if (b->isZero()) return a;
  } else if (id == Times) {
    if (a->isZero()) return a;
    if (a->isUnit()) return b;
    if (a->isNUnit()) return makeOpNode(UMinus, b);
    if (b->isZero()) return b;
    if (b->isUnit()) return a;
    if (b->isNUnit()) return makeOpNode(UMinus, a);
    if (a == b) return makeOpNode(Pow2, a);
  }
  double x = 0.0, y = 0.0;
  const bool ra = a->isRealScalar(x) && !std::isnan(x);
  const bool rb = b->isRealScalar(y) && !std::isnan(y);
  // 5. Small integer powers become constant-power operators.
  if (id == Pow && rb && y == std::trunc(y)) {
    if (y == -2.0) return makeOpNode(PowM2, a);
    if (y == -1.0) return makeOpNode(PowM1, a);
    if (y == 2.0) return ra ? makeConstNode(x * x) : makeOpNode(Pow2, a);
    if (y == 3.0) return makeOpNode(Pow3, a);
    if (y == 4.0) return makeOpNode(Pow4, a);
  }
  // 6. Real folding; a zero divisor is left to evaluation.
  if (ra && rb) {
    switch (id) {
      case GE: return makeConstNode(x >= y ? 1.0 : 0.0);
      case GT: return makeConstNode(x > y ? 1.0 : 0.0);
      case LE: return makeConstNode(x <= y ? 1.0 : 0.0);
      case LT: return makeConstNode(x < y ? 1.0 : 0.0);
      case Minus: return makeConstNode(x - y);
      case Plus: return makeConstNode(x + y);
      case Times: return makeConstNode(x * y);
      case Divide:
        if (y == 0.0) return unique(f, {a, b});
        return makeConstNode(x / y);
      default: break;
    }
  }
  if (id == Divide && rb && y == 0.0) return unique(f, {a, b});
  // 7. General folding; 8. uniquing.
  if (EvalNodePtr r = fold(*f, {a, b})) return r;
  return unique(f, {a, b});
}

EvalNodePtr NodeMaker::makeOpNode(FunId id, const EvalNodePtr& a) {
  const FunPtr& f = idToFun(id, 1);
  if (id == UPlus) return a;
  double v = 0.0;
  if (a->isRealScalar(v) && !std::isnan(v)) {
    switch (id) {
      case Abs: return makeConstNode(std::fabs(v));
      case UMinus: return makeConstNode(-v);
      case Pow2: return makeConstNode(v * v);
      case Pow3: return makeConstNode(v * v * v);
      case Pow4: return makeConstNode(v * v * v * v);
      // Deliberately not folded: the failure or complex value arises at evaluation.
      case Log:
        if (v <= 0.0) return unique(f, {a});
        break;
      case Sqrt:
        if (v < 0.0) return unique(f, {a});
        break;
      default: break;
    }
  }
  if (EvalNodePtr r = fold(*f, {a})) return r;
  return unique(f, {a});
}

EvalNodePtr NodeMaker::makeGenOpNode(const std::string& name, const NodeList& args) {
  std::pair<std::string, Ids> key{name, idsOf(args)};
  {
    TableAccess t(*this);
    if (auto it = t->genOps.find(key); it != t->genOps.end()) {
      static_cast<ProxyNode&>(*it->second).markAsShared();
      return it->second;
    }
  }
  EvalNodePtr proxy = makeProxyNode(EvalNodePtr(new GenOpNode(name, args, nextId())));
  TableAccess t(*this);
  auto [it, inserted] = t->genOps.try_emplace(std::move(key), proxy);
  if (!inserted) static_cast<ProxyNode&>(*it->second).markAsShared();
  return it->second;
}

// ---------------------------------------------------------------- derivative and dependency nodes

namespace {
bool isVariable(const EvalNodePtr& n) { return dynamic_cast<const VarNode*>(n.get()) != nullptr; }
}  // namespace

EvalNodePtr NodeMaker::makeDiffNode(const EvalNodePtr& expr, const EvalNodePtr& variable,
                                    unsigned kind) {
  QV_CHECK(variable && isVariable(variable), nodemaker, Can_only_diff_wrt_variables);
  return EvalNodePtr(new DiffNode(expr, variable->getVarName(), kind, nextId()));
}
EvalNodePtr NodeMaker::makeDepNode(const EvalNodePtr& expr, const EvalNodePtr& variable) {
  QV_CHECK(variable && isVariable(variable), nodemaker, Can_only_test_dependency_wrt_variables);
  return makeDepNode(expr, variable->getVarName());
}
EvalNodePtr NodeMaker::makeDepNode(const EvalNodePtr& expr, const std::string& name) {
  return EvalNodePtr(new DepNode(expr, name, nextId()));
}
EvalNodePtr NodeMaker::makeUDepNode(const EvalNodePtr& expr) {
  return EvalNodePtr(new UDepNode(expr, nextId()));
}
EvalNodePtr NodeMaker::makeJacDepNode(const EvalNodePtr& expr, const EvalNodePtr& variable) {
  QV_CHECK(variable && isVariable(variable), nodemaker, Can_only_test_dependency_wrt_variables);
  return makeJacDepNode(expr, variable->getVarName());
}
EvalNodePtr NodeMaker::makeJacDepNode(const EvalNodePtr& expr, const std::string& name) {
  return EvalNodePtr(new JacDepNode(expr, name, nextId()));
}
EvalNodePtr NodeMaker::makeJacUDepNode(const EvalNodePtr& expr) {
  return EvalNodePtr(new JacUDepNode(expr, nextId()));
}

// ---------------------------------------------------------------- syntax trees

EvalNodePtr NodeMaker::fromSyntax(const ExprImpl::Node& node, const VarEvalPtr& ev) {
  using E = ExprImpl;
  if (const auto* u = dynamic_cast<const E::Unary*>(&node)) {
    EvalNodePtr a = fromSyntax(*u->operand(), ev);
    switch (u->code()) {
      case E::OpUMinus: return makeOpNode(UMinus, a);
      case E::OpUPlus: return makeOpNode(UPlus, a);
      case E::OpNot: return makeOpNode(Not, a);
      default: break;
    }
  } else if (const auto* b = dynamic_cast<const E::Binary*>(&node)) {
    static const std::map<int32_t, FunId> kBinary = {
        {E::OpPlus, Plus}, {E::OpMinus, Minus}, {E::OpTimes, Times}, {E::OpDivide, Divide},
        {E::OpPower, Pow},  {E::OpEq, EQ},       {E::OpNe, NE},       {E::OpLe, LE},
        {E::OpGe, GE},      {E::OpLt, LT},       {E::OpGt, GT},       {E::OpAnd, And},
        {E::OpOr, Or}};
    if (auto it = kBinary.find(b->code()); it != kBinary.end())
      return makeOpNode(it->second, fromSyntax(*b->left(), ev), fromSyntax(*b->right(), ev));
  } else if (const auto* c = dynamic_cast<const E::FuncCall*>(&node)) {
    NodeList args;
    for (const auto& a : c->args()) args.push_back(fromSyntax(*a, ev));
    // The evaluator resolves and checks the call; without one, an unknown
    // call stays a general operator. A call without arguments is left to
    // the evaluator at evaluation time as well.
    GenFunPtr g = ev ? ev->getGenFun(c->name(), int(args.size())) : builtinFun(c->name(), int(args.size()));
    if (!g || args.empty()) return makeGenOpNode(c->name(), args);
    if (EvalNodePtr r = g->makeEvalNode(g, *this, args)) return r;
    auto f = std::dynamic_pointer_cast<const FunObj>(g);
    if (!f) return makeGenOpNode(c->name(), args);
    // The factory's own operators fold and simplify by their FunId.
    for (FunId id : kNamedOwn)
      if (f == (*funs_)[id] && args.size() == 1) return makeOpNode(id, args[0]);
    return makeOpNode(f, args);
  } else if (const auto* d = dynamic_cast<const E::Derivative*>(&node)) {
    EvalNodePtr e = fromSyntax(*d->expr(), ev);
    return ev ? e->diff(d->variable(), ev) : makeDiffNode(e, makeVarNode(d->variable()), 0);
  } else if (const auto* id = dynamic_cast<const E::Identifier*>(&node)) {
    return makeVarNode(id->name());
  } else if (const auto* n = dynamic_cast<const E::UnparsedNumber*>(&node)) {
    return makeConstNode(qvutil::parseDouble(n->text()));
  }
  QV_RAISE(nodemaker, Evaluation_internal_error, qvbase::DetailPairs{{"Name", node.kindName()}});
}

}  // namespace qvarray
