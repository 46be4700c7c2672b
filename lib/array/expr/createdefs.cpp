// Compiled definitions from evaluation nodes: the builder's walk, the
// createDefs of each node kind and the shared routine of the function
// objects, and the entry point that compiles an expression set.
#include "qvarray/expr/createdefs.h"

#include <bit>
#include <charconv>

#include "defsbuilder.h"
#include "qvarray/expr/varevaluator.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

// The running builder state of this thread (nested builders share it).
thread_local void* tCurrent = nullptr;

// A proxy stands for its target: both share one definition.
EvalNode* resolve(EvalNode* n) {
  while (auto* p = dynamic_cast<ProxyNode*>(n)) n = p->target().get();
  return n;
}

}  // namespace

// ---------------------------------------------------------------- the builder

DefsBuilder::DefsBuilder(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                         const VarEvalPtr& ev) {
  auto* running = static_cast<State*>(tCurrent);
  if (running && running->comp == &comp && running->defs == &defs && running->counter == &counter) {
    state_ = running;
    owner_ = false;
    return;
  }
  // A new run: the tables start from what defs records.
  state_ = new State{&comp, &defs, &counter, ev, {}, {}, {}, {}, running};
  owner_ = true;
  for (const auto& [number, what] : defs) {
    uint64_t id = 0;
    const char* end = what.data() + what.size();
    if (!what.empty() && what[0] == '#' && std::from_chars(what.data() + 1, end, id).ptr == end)
      state_->byNode[id] = number;
    else
      state_->byName[what] = number;
  }
  tCurrent = state_;
}

DefsBuilder::~DefsBuilder() {
  if (!owner_) return;
  tCurrent = state_->outer;
  delete state_;
}

// By identity first (a proxy answers with its target's identity), so that a
// node met again costs one lookup; a variable is known by its name, and
// remembered by the identity of each of its nodes once met.
int DefsBuilder::known(EvalNode* n) {
  uint64_t id = n->getDeepID();
  if (auto it = state_->byNode.find(id); it != state_->byNode.end()) return it->second;
  if (dynamic_cast<VarNode*>(resolve(n)) == nullptr) return -1;
  auto it = state_->byName.find(n->getVarName());
  if (it == state_->byName.end()) return -1;
  state_->byNode.emplace(id, it->second);
  return it->second;
}

// A node whose value is another definition's (x^1 is x) leaves that
// definition's entry as it is.
void DefsBuilder::rememberNode(EvalNode* n, int d) {
  state_->byNode[n->getID()] = d;
  state_->defs->try_emplace(d, "#" + std::to_string(n->getID()));
}

void DefsBuilder::rememberName(const std::string& name, int d) {
  state_->byName[name] = d;
  (*state_->defs)[d] = name;
}

int DefsBuilder::constant(double v) {
  auto [it, added] = state_->byConstant.try_emplace(std::bit_cast<uint64_t>(v), 0);
  if (added) {
    it->second = fresh();
    comp().addDef(it->second, v);
  }
  return it->second;
}

int DefsBuilder::op(int op, const std::vector<int>& args) {
  QV_ASSERT(!args.empty(), evalnodes);
  int d = fresh();
  switch (args.size()) {
    case 1: comp().addDef(d, op, args[0]); break;
    case 2: comp().addDef(d, op, args[0], args[1]); break;
    case 3: comp().addDef(d, op, args[0], args[1], args[2]); break;
    default: comp().addDef(d, op, args);
  }
  return d;
}

int DefsBuilder::input(const std::string& name) {
  if (auto it = state_->byName.find(name); it != state_->byName.end()) return it->second;
  int d = fresh();
  comp().addInput(d);
  comp().setName(d, name);
  rememberName(name, d);
  state_->inputs.push_back(name);
  return d;
}

std::vector<int> DefsBuilder::valuesOf(const NodeList& nodes) {
  std::vector<int> out;
  out.reserve(nodes.size());
  for (const auto& n : nodes) out.push_back(valueOf(n));
  return out;
}

// Depth-first over the nodes with an explicit stack. An item stays on the
// stack until its node is defined: an operator waits for its operands, a
// variable with a definition for that definition. A variable's number is
// reserved (and remembered) before its definition is walked, so a variable
// whose definition uses itself ends the walk and becomes a definition cycle,
// which the compiler's ordering pass reports.
int DefsBuilder::valueOf(const EvalNodePtr& root) {
  struct Item {
    EvalNodePtr hold;  // keeps a definition the evaluator made alive
    EvalNode* node;
    int alias;         // a variable's reserved number: becomes identity(node)
  };
  std::vector<Item> stack{{root, resolve(root.get()), -1}};
  const VarEvalPtr& ev = state_->ev;
  while (!stack.empty()) {
    EvalNode* n = stack.back().node;
    int d = known(n);
    if (d < 0) {
      if (auto* opn = dynamic_cast<OpNode*>(n)) {
        size_t before = stack.size();
        for (auto a = opn->args().rbegin(); a != opn->args().rend(); ++a)
          if (known(a->get()) < 0) stack.push_back({nullptr, resolve(a->get()), -1});
        if (stack.size() != before) continue;
        d = opn->function()->createDefs(opn->args(), comp(), *state_->defs, *state_->counter, ev);
        rememberNode(n, d);
      } else if (auto* var = dynamic_cast<VarNode*>(n)) {
        EvalNodePtr def;
        if (auto* vd = dynamic_cast<VarDiffNode*>(var))
          def = vd->expression();
        else if (ev)
          def = ev->expand(ev, var->getVarName());
        if (!def) {
          d = input(var->getVarName());
        } else {
          int reserved = fresh();
          comp().setName(reserved, var->getVarName());
          rememberName(var->getVarName(), reserved);
          EvalNode* dn = resolve(def.get());
          stack.back() = {std::move(def), dn, reserved};
          continue;
        }
      } else {
        // Every other kind is a leaf here: a constant, a refusal, or a node
        // that hands over to a builder of its own (an expanded derivative).
        d = n->createDefs(comp(), *state_->defs, *state_->counter, ev);
        rememberNode(n, d);
      }
    }
    if (stack.back().alias >= 0) comp().addDef(stack.back().alias, ExprComp::OpIdentity, d);
    stack.pop_back();
  }
  return known(root.get());
}

// ---------------------------------------------------------------- node kinds

// Operators, variables and proxies go through the walk; a kind that has no
// createDefs of its own is refused by its printed form.
int EvalNode::createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                         const VarEvalPtr& ev) {
  EvalNode* n = resolve(this);
  if (dynamic_cast<OpNode*>(n) == nullptr && dynamic_cast<VarNode*>(n) == nullptr)
    QV_RAISE_TEXT(evalnodes, No_definitions_from, toString());
  return DefsBuilder(comp, defs, counter, ev).valueOf(shared_from_this());
}

int ConstNode::createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                          const VarEvalPtr& ev) {
  if (value_->checkComplex()) QV_RAISE(evalnodes, Complex_definition_set);
  if (!value_->isScalar()) QV_RAISE_TEXT(evalnodes, No_definitions_from, "an array constant");
  double v = ::qvGetNaN();
  if (!value_->isNaN()) v = value_->isZero() ? 0.0 : value_->getDouble();
  return DefsBuilder(comp, defs, counter, ev).constant(v);
}

int GenOpNode::createDefs(ExprComp&, std::map<int, std::string>&, int&, const VarEvalPtr&) {
  QV_RAISE_TEXT(evalnodes, No_definitions_from, "GenOpNode::" + name_);
}

int DiffNode::createDefs(ExprComp& comp, std::map<int, std::string>& defs, int& counter,
                         const VarEvalPtr& ev) {
  EvalNodePtr e = ev ? expansion(ev) : nullptr;
  if (!e) QV_RAISE_TEXT(evalnodes, No_definitions_from, "DiffNode");
  return DefsBuilder(comp, defs, counter, ev).valueOf(e);
}

int DepNodeBase::createDefs(ExprComp&, std::map<int, std::string>&, int&, const VarEvalPtr&) {
  const char* kind = jac_ ? (variable_.empty() ? "JacUDepNode" : "JacDepNode")
                          : (variable_.empty() ? "UDepNode" : "DepNode");
  QV_RAISE_TEXT(evalnodes, No_definitions_from, kind);
}

// ---------------------------------------------------------------- function objects

int FunObj::createDefs(const NodeList&, ExprComp&, std::map<int, std::string>&, int&,
                       const std::shared_ptr<VarEvaluator>&) const {
  QV_RAISE_TEXT(evalfun, No_definitions_from, "function " + getName());
}

int FunObj::createDefsRec(int op, const NodeList& args, ExprComp& comp,
                          std::map<int, std::string>& defs, int& counter,
                          const std::shared_ptr<VarEvaluator>& ev) const {
  DefsBuilder b(comp, defs, counter, ev);
  return b.op(op, b.valuesOf(args));
}

// ---------------------------------------------------------------- expression sets

NodeDefs createNodeDefs(ExprComp& comp, const std::vector<std::string>& outputNames,
                        const NodeList& outputs, const std::vector<std::string>& inputs,
                        const VarEvalPtr& ev) {
  QV_CHECK(outputNames.size() == outputs.size(), evalnodes, Evaluation_internal_error,
           "One name per output.");
  // Built on a copy, so that a refusal leaves the caller's compiler as it was.
  ExprComp work(comp);
  NodeDefs r;
  DefsBuilder b(work, r.defs, r.counter, ev);
  for (const auto& name : inputs) b.input(name);
  for (size_t k = 0; k < outputs.size(); ++k) {
    // A definition of its own, so that an output may be an input or another
    // output's value.
    int d = b.op(ExprComp::OpIdentity, {b.valueOf(outputs[k])});
    work.setName(d, outputNames[k]);
    work.addOutput(d);
    r.outputs.push_back(d);
  }
  r.inputs = b.inputsAdded();
  comp = work;
  return r;
}

}  // namespace qvarray
