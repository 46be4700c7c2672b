// The hooks through which function objects build, simplify, differentiate
// and print calls. They work on evaluation nodes; until a call site supplies
// those, each gives its neutral result: no node (the factory builds its
// generic call node), no simplification, no rule of its own. (Compiled
// definitions: createdefs.cpp.)
#include <ostream>

#include "qvarray/expr/funobj.h"

namespace qvarray {

EvalNodePtr UnFunObj::makeEvalNode(const GenFunPtr&, NodeMaker&, const NodeList&) const {
  return {};
}
EvalNodePtr BinFunObj::makeEvalNode(const GenFunPtr&, NodeMaker&, const NodeList&) const {
  return {};
}
EvalNodePtr MultiFunObj::makeEvalNode(const GenFunPtr&, NodeMaker&, const NodeList&) const {
  return {};
}

EvalNodePtr FunObj::diffRule(const NodeList&, int, NodeMaker&) const { return {}; }
EvalNodePtr GenAddFun::diffRule(const NodeList&, int, NodeMaker&) const { return {}; }
EvalNodePtr FunObj::simpRule(const FunPtr&, const NodeList&, NodeMaker&) const { return {}; }


// Calls print as name(a,b,...); a binary infix operator as (a)op(b). The
// arguments print through their nodes, which are not reachable from here
// yet: each stands as "#" and its position.
void FunObj::ostreamOperator(const NodeList& args, std::ostream& os) const {
  os << getName() << '(';
  for (std::size_t i = 0; i < args.size(); ++i) os << (i ? "," : "") << '#' << i;
  os << ')';
}
void BinFunObj::ostreamOperator(const NodeList& args, std::ostream& os) const {
  if (!isInfix() || args.size() != 2) return FunObj::ostreamOperator(args, os);
  os << "(#0)" << getName() << "(#1)";
}

}  // namespace qvarray
