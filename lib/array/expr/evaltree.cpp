// Evaluation trees: the first parse under the tree's lock, evaluation with
// its zero-root and request-mask rules and the annotation of NaN results,
// and the tree operations that forward to the root.
#include "qvarray/expr/evaltree.h"

#include <mutex>
#include <new>

#include "qvarray/expr/exprtree.h"
#include "qvarray/expr/nodemaker.h"
#include "qvarray/expr/varevaluator.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

std::mutex gIdLock;
uint32_t gIdCounter = 0;

qvbase::DetailPairs exprDetail(const std::string& text) { return {{"Expression", text}}; }

}  // namespace

uint32_t EvalTree::nextId() {
  std::lock_guard<std::mutex> guard(gIdLock);
  return ++gIdCounter;
}

// ---------------------------------------------------------------- construction

EvalTree::EvalTree(std::string expr, bool isVariable)
    : expr_(std::move(expr)), isVariable_(isVariable),
      lock_(std::make_shared<qvbase::NestedLock>()), id_(nextId()) {
  if (isVariable_) {
    status_ = kStatusVariable;
    names_.push_back(expr_);
  }
}

EvalTree::EvalTree(EvalNodePtr root) : EvalTree(std::move(root), std::string()) {
  expr_ = root_->toString();
}

EvalTree::EvalTree(EvalNodePtr root, std::string expr)
    : expr_(std::move(expr)), root_(std::move(root)),
      lock_(std::make_shared<qvbase::NestedLock>()), id_(nextId()) {
  QV_CHECK(root_ != nullptr, evaltree, Evaluation_internal_error, exprDetail(expr_));
  isConstant_ = dynamic_cast<const ConstNode*>(root_.get()) != nullptr;
  parsed_.store(true, std::memory_order_release);
}

EvalTree::EvalTree(const EvalTree& other)
    : expr_(other.expr_), status_(other.status_), names_(other.names_),
      isVariable_(other.isVariable_), lock_(std::make_shared<qvbase::NestedLock>()),
      id_(other.id_) {
  if (other.parsed_.load(std::memory_order_acquire)) {
    root_ = other.root_;
    isConstant_ = other.isConstant_;
    parsed_.store(true, std::memory_order_release);
  }
}

// Not safe against a concurrent parse of *this (an assignment replaces the
// tree; no other thread may use it meanwhile).
EvalTree& EvalTree::operator=(const EvalTree& other) {
  if (this == &other) return *this;
  const bool parsed = other.parsed_.load(std::memory_order_acquire);
  expr_ = other.expr_;
  status_ = other.status_;
  names_ = other.names_;
  isVariable_ = other.isVariable_;
  isConstant_ = parsed && other.isConstant_;
  root_ = parsed ? other.root_ : nullptr;
  id_ = other.id_;
  parsed_.store(parsed, std::memory_order_release);
  return *this;
}

EvalTree::~EvalTree() = default;

// ---------------------------------------------------------------- parse

void EvalTree::parse(const VarEvalPtr& ev) {
  if (parsed_.load(std::memory_order_acquire)) return;
  QV_CHECK(ev != nullptr, evaltree, Evaluation_internal_error, exprDetail(expr_));
  qvbase::LockHandler guard(*lock_);
  if (parsed_.load(std::memory_order_relaxed)) return;
  // Re-entry on this thread: the text needs itself to be parsed.
  QV_CHECK(!parsing_, evaltree, Evaluation_internal_error, exprDetail(expr_));
  parsing_ = true;
  struct Done {
    bool& flag;
    ~Done() { flag = false; }
  } done{parsing_};

  EvalNodePtr root;
  try {
    ExprImpl syntax(expr_);
    root = ev->getNodeMaker().fromSyntax(*syntax.root(), ev);
  } catch (const qvbase::Exception& e) {
    // Name resolution and node construction keep their own keys.
    if (e.key() != "Syntax_error_in_expression" && e.key() != "Empty_expression") throw;
    // The host's details (a position) follow the text.
    qvbase::DetailPairs details = exprDetail(expr_);
    for (const auto& d : e.details())
      if (d.first != "Expression") details.push_back(d);
    QV_RAISE(evaltree, Syntax_error_in_expression, std::move(details));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    QV_RAISE(evaltree, Evaluation_internal_error,
             qvbase::DetailPairs{{"Expression", expr_}, {"Reason", e.what()}});
  }
  QV_CHECK(root != nullptr, evaltree, Evaluation_internal_error, exprDetail(expr_));
  root_ = std::move(root);
  isConstant_ = dynamic_cast<const ConstNode*>(root_.get()) != nullptr;
  parsed_.store(true, std::memory_order_release);
}

EvalNodePtr EvalTree::getRoot(const VarEvalPtr& ev) {
  parse(ev);
  QV_CHECK(root_ != nullptr, evaltree, Evaluation_internal_error, exprDetail(expr_));
  return root_;
}

bool EvalTree::isConstant() const { return isParsed() && isConstant_; }

std::string EvalTree::getExpandedExpr() const { return isParsed() ? root_->toString() : expr_; }

// ---------------------------------------------------------------- evaluation

ValRepPtr EvalTree::eval(const VarEvalPtr& ev, ValRepCache& cache, unsigned flags) {
  const EvalNodePtr root = getRoot(ev);
  if (root->isZero()) return ValRep::makeZero();
  if (!(flags & kEvalRequested)) return ValRep::makeNaN();
  ValRepPtr r = root->eval(ev, cache, flags);
  QV_CHECK(r != nullptr, evaltree, Evaluation_internal_error, exprDetail(expr_));
  if (r->isNaN() && (flags & kEvalAnnotate)) {
    // The value may be a cache's or a constant node's: annotate a copy, with
    // a record of its own. A NaN value holds no parts, so the copy is cheap.
    auto copy = std::make_shared<ValRep>();
    copy->reset(*r, false);
    auto record = r->hasErrors() ? std::make_shared<qvbase::ErrInfo>(*r->getErrors())
                                 : std::make_shared<qvbase::ErrInfo>("evaltree");
    record->add("file", "evaltree");
    record->add("line", std::to_string(__LINE__));
    record->add("message", "expreval");
    record->add("exprs", expr_);
    copy->setErrors(std::move(record));
    r = std::move(copy);
  }
  return r;
}

// ---------------------------------------------------------------- operations on the root

EvalTreePtr EvalTree::diff(const std::string& variable, const VarEvalPtr& ev) {
  const EvalNodePtr root = getRoot(ev);
  EvalTreeShadow& s = ev->getEvalTreeShadow(id_);
  if (s.shouldUpdateCache(ev->getVersionKey())) s.initCache(*ev);
  s.root = root;
  if (auto it = s.derivatives.find(variable); it != s.derivatives.end()) return it->second;
  EvalTreePtr d = ev->getNodeMaker().makeNamedTree(root->diff(variable, ev),
                                                   "d(" + expr_ + "," + variable + ")");
  s.derivatives.emplace(variable, d);
  return d;
}

EvalTreePtr EvalTree::diffStatic(const EvalTreePtr& tree, const std::string& variable,
                                 const VarEvalPtr& ev) {
  QV_CHECK(tree != nullptr, evaltree, Evaluation_internal_error);
  return tree->diff(variable, ev);
}

DepInfo EvalTree::depends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                          ValRepCache& cache) {
  return getRoot(ev)->depends(names, ev, cache);
}

DepInfo EvalTree::jacDepends(const std::vector<std::string>& names, const VarEvalPtr& ev,
                             ValRepCache& cache) {
  return getRoot(ev)->jacDepends(names, ev, cache);
}

EvalTreePtr EvalTree::simplify(const VarEvalPtr& ev) {
  return std::make_shared<EvalTree>(getRoot(ev)->simplify(ev), "simplify(" + expr_ + ")");
}

void EvalTree::gatherBVars(const VarEvalPtr& ev, IdSet& ids, NameSet& names) {
  const EvalNodePtr root = getRoot(ev);
  if (ids.insert(root->getID()).second) root->gatherBVars(ev, ids, names);
}

// sum_i d(expr)/d(names[i]) * increments[i], built through the factory so that
// zero derivatives drop out.
EvalTreePtr EvalTree::linearize(const VarEvalPtr& ev, const std::vector<std::string>& names,
                                const std::vector<std::string>& increments) {
  QV_CHECK(names.size() == increments.size(), evaltree, Evaluation_internal_error,
           exprDetail(expr_));
  const EvalNodePtr root = getRoot(ev);
  NodeMaker& mk = ev->getNodeMaker();
  EvalNodePtr sum = mk.zero();
  for (size_t i = 0; i < names.size(); ++i) {
    EvalNodePtr d = diff(names[i], ev)->getRoot(ev);
    sum = mk.makeOpNode(NodeMaker::Plus, sum,
                        mk.makeOpNode(NodeMaker::Times, d, mk.makeVarNode(increments[i])));
  }
  return std::make_shared<EvalTree>(sum);
}

// ---------------------------------------------------------------- combinators

namespace {

EvalTreePtr combine(NodeMaker::FunId id, const EvalTreePtr& a, const EvalTreePtr& b,
                    const VarEvalPtr& ev, const char* op) {
  QV_CHECK(a != nullptr && b != nullptr && ev != nullptr, evaltree, Evaluation_internal_error);
  EvalNodePtr root = ev->getNodeMaker().makeOpNode(id, a->getRoot(ev), b->getRoot(ev));
  return std::make_shared<EvalTree>(root, "(" + a->getExpr() + ")" + op + "(" + b->getExpr() + ")");
}

}  // namespace

EvalTreePtr EvalTree::plus(const EvalTreePtr& a, const EvalTreePtr& b, const VarEvalPtr& ev) {
  return combine(NodeMaker::Plus, a, b, ev, "+");
}
EvalTreePtr EvalTree::minus(const EvalTreePtr& a, const EvalTreePtr& b, const VarEvalPtr& ev) {
  return combine(NodeMaker::Minus, a, b, ev, "-");
}
EvalTreePtr EvalTree::times(const EvalTreePtr& a, const EvalTreePtr& b, const VarEvalPtr& ev) {
  return combine(NodeMaker::Times, a, b, ev, "*");
}
EvalTreePtr EvalTree::uminus(const EvalTreePtr& a, const VarEvalPtr& ev) {
  QV_CHECK(a != nullptr && ev != nullptr, evaltree, Evaluation_internal_error);
  EvalNodePtr root = ev->getNodeMaker().makeOpNode(NodeMaker::UMinus, a->getRoot(ev));
  return std::make_shared<EvalTree>(root, "-(" + a->getExpr() + ")");
}

// ---------------------------------------------------------------- shadows

std::shared_ptr<NodeShadow> EvalTreeShadow::clone() const {
  return std::make_shared<EvalTreeShadow>(*this);
}

void EvalTreeShadow::initCache(const VarEvaluator& ev) {
  derivatives.clear();
  root.reset();
  recordKey(ev);
}

EvalTreeShadow& ShadowHandler::getEvalTreeShadow(uint32_t id) {
  auto& slot = trees_[id];
  if (!slot) slot = std::make_shared<EvalTreeShadow>();
  return static_cast<EvalTreeShadow&>(*slot);
}

}  // namespace qvarray
