// ExprComp: the definitions as the caller adds them, parse of definition
// texts, in-process evaluation and the diagnostic listing of the program.
//
// parse splits "name = expression" at its first "=" itself (the expression
// host reads expressions, not assignments), sends the expression through the
// host to a syntax tree and turns every node into a definition: operators and
// the recognised function names become their operation numbers, numbers
// become constants, names the inputs or definitions of that name. Exponents
// 2, 3 and 4 written as literals become the integer powers (41 to 43); sign,
// which no operation number evaluates, is written out as the function
// object writes it (signChoiceOperands).
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <unordered_map>

#include "exprcomp_impl.h"
#include "qvarray/expr/exprtree.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

namespace {

using Node = ExprImpl::Node;

struct NamedOp {
  const char* name;
  int op;
  int arity;
};

// Function names of the definition language, with their operation numbers.
constexpr NamedOp kFunctions[] = {
    {"abs", ExprComp::OpAbs, 1},     {"acos", ExprComp::OpAcos, 1},
    {"asin", ExprComp::OpAsin, 1},   {"atan", ExprComp::OpAtan, 1},
    {"atan2", ExprComp::OpAtan2, 2}, {"ceil", ExprComp::OpCeil, 1},
    {"conj", ExprComp::OpConj, 1},   {"cos", ExprComp::OpCos, 1},
    {"cosh", ExprComp::OpCosh, 1},   {"cot", ExprComp::OpCot, 1},
    {"coth", ExprComp::OpCoth, 1},   {"csc", ExprComp::OpCsc, 1},
    {"csch", ExprComp::OpCsch, 1},   {"exp", ExprComp::OpExp, 1},
    {"fix", ExprComp::OpFix, 1},     {"floor", ExprComp::OpFloor, 1},
    {"identity", ExprComp::OpIdentity, 1}, {"imag", ExprComp::OpImag, 1},
    {"log", ExprComp::OpLog, 1},     {"log10", ExprComp::OpLog10, 1},
    {"log2", ExprComp::OpLog2, 1},   {"max", ExprComp::OpMax, 2},
    {"min", ExprComp::OpMin, 2},     {"mod", ExprComp::OpMod, 2},
    {"real", ExprComp::OpReal, 1},   {"round", ExprComp::OpRound, 1},
    {"sec", ExprComp::OpSec, 1},     {"sech", ExprComp::OpSech, 1},
    {"sign", ExprComp::OpSign, 1},   {"sin", ExprComp::OpSin, 1},
    {"sinh", ExprComp::OpSinh, 1},   {"sqrt", ExprComp::OpSqrt, 1},
    {"tan", ExprComp::OpTan, 1},     {"tanh", ExprComp::OpTanh, 1},
};

int operatorOp(int32_t code) {
  switch (code) {
    case ExprImpl::OpUPlus: return ExprComp::OpUPlus;
    case ExprImpl::OpUMinus: return ExprComp::OpUMinus;
    case ExprImpl::OpNot: return ExprComp::OpNot;
    case ExprImpl::OpPlus: return ExprComp::OpPlus;
    case ExprImpl::OpMinus: return ExprComp::OpMinus;
    case ExprImpl::OpTimes: return ExprComp::OpMult;
    case ExprImpl::OpDivide: return ExprComp::OpDiv;
    case ExprImpl::OpPower: return ExprComp::OpPow;
    case ExprImpl::OpEq: return ExprComp::OpEQ;
    case ExprImpl::OpNe: return ExprComp::OpNE;
    case ExprImpl::OpLe: return ExprComp::OpLE;
    case ExprImpl::OpGe: return ExprComp::OpGE;
    case ExprImpl::OpLt: return ExprComp::OpLT;
    case ExprImpl::OpGt: return ExprComp::OpGT;
    case ExprImpl::OpAnd: return ExprComp::OpAnd;
    case ExprImpl::OpOr: return ExprComp::OpOr;
    default: return 0;
  }
}

std::string trim(std::string_view s) {
  const size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string_view::npos) return {};
  return std::string(s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1));
}

bool isName(const std::string& s) {
  if (s.empty() || !std::isalpha(static_cast<unsigned char>(s[0]))) return false;
  for (char c : s)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '.') return false;
  return true;
}

// Turns the syntax trees of definition texts into definitions of one
// ExprComp. Names share one number; every inner node gets a fresh number.
class DefBuilder {
 public:
  explicit DefBuilder(ExprComp& comp) : comp_(comp) {}

  int idOf(const std::string& name) {
    auto [it, fresh] = ids_.emplace(name, next_);
    if (fresh) {
      comp_.setName(next_, name);
      ++next_;
    }
    return it->second;
  }
  int fresh() { return next_++; }

  // Definitions of the node's value; `target` is the number to give the
  // node itself (a fresh one when negative). Returns the node's number.
  int build(const Node& node, int target, const std::string& text) {
    const std::string kind = node.kindName();
    if (kind == "Identifier") {
      const int id = idOf(static_cast<const ExprImpl::Identifier&>(node).name());
      if (target < 0) return id;
      comp_.addDef(target, ExprComp::OpIdentity, id);
      return target;
    }
    if (kind == "LiteralValue" && dynamic_cast<const ExprImpl::UnparsedNumber*>(&node)) {
      double v = 0;
      if (qvutil::scanDouble(static_cast<const ExprImpl::LiteralValue&>(node).text(), v) !=
          qvutil::NumberScan::Ok)
        QV_RAISE(exprcomp, Syntax_error_in_expression, qvbase::DetailPairs{{"Expression", text}});
      const int id = target < 0 ? fresh() : target;
      comp_.addDef(id, v);
      return id;
    }
    int op = 0;
    std::vector<int> args;
    if (kind == "Unary" || kind == "Binary") {
      op = operatorOp(node.code());
      if (op == ExprComp::OpPow) {
        if (int k = integerPower(*node.child(1)); k > 0) {
          const int base = build(*node.child(0), -1, text);
          const int id = target < 0 ? fresh() : target;
          comp_.addDef(id, k, base);
          return id;
        }
      }
    } else if (kind == "FuncCall") {
      const auto& call = static_cast<const ExprImpl::FuncCall&>(node);
      for (const NamedOp& f : kFunctions)
        if (call.name() == f.name) {
          if (static_cast<int>(node.childCount()) != f.arity)
            QV_RAISE(exprcomp, Syntax_error_in_expression,
                     qvbase::DetailPairs{{"Expression", text}, {"Name", call.name()}});
          op = f.op;
        }
      if (!op)
        QV_RAISE(exprcomp, Unimplemented_operator,
                 qvbase::DetailPairs{{"Name", call.name()}, {"Expression", text}});
    }
    if (!op)
      QV_RAISE(exprcomp, Unimplemented_operator,
               qvbase::DetailPairs{{"Name", kind}, {"Expression", text}});
    for (size_t i = 0; i < node.childCount(); ++i) args.push_back(build(*node.child(i), -1, text));
    if (op == ExprComp::OpSign) {  // no operation evaluates sign: written out
      args = signChoiceOperands(
          args[0],
          [&](double v) {
            const int c = fresh();
            comp_.addDef(c, v);
            return c;
          },
          [&](int o, const std::vector<int>& a) {
            const int d = fresh();
            comp_.addDef(d, o, a);
            return d;
          });
      op = ExprComp::OpChoice;
    }
    const int id = target < 0 ? fresh() : target;
    comp_.addDef(id, op, args);
    return id;
  }

 private:
  // The operation of x^k for a literal exponent k of 2, 3 or 4, else 0.
  static int integerPower(const Node& exponent) {
    const auto* n = dynamic_cast<const ExprImpl::UnparsedNumber*>(&exponent);
    if (!n) return 0;
    double v = 0;
    if (qvutil::scanDouble(n->text(), v) != qvutil::NumberScan::Ok) return 0;
    if (v == 2.0) return ExprComp::OpSq;
    if (v == 3.0) return ExprComp::OpCube;
    if (v == 4.0) return ExprComp::OpPow4;
    return 0;
  }

  ExprComp& comp_;
  std::unordered_map<std::string, int> ids_;
  int next_ = 0;
};

// Operation names of the listing, by number.
const char* opName(int op) {
  static const char* const kNames[57] = {
      "const", "abs",   "acos",  "and",   "asin",    "atan",  "atan2", "ceil",  "conj",
      "cos",   "cosh",  "cot",   "coth",  "csc",     "csch",  "div",   "div2",  "eq",
      "exp",   "fix",   "floor", "ge",    "gt",      "identity", "choice", "imag", "le",
      "log",   "log10", "log2",  "lt",    "max",     "min",   "minus", "mod",   "ne",
      "not",   "tableconst", "or", "plus", "pow",    "sq",    "cube",  "pow4",  "real",
      "round", "sec",   "sech",  "sign",  "sin",     "sinh",  "sqrt",  "tan",   "tanh",
      "mult",  "uminus", "uplus"};
  return op >= 0 && op <= 56 ? kNames[op] : "?";
}

std::string operandText(const EvalProgram& p, const ProgramOperand& a) {
  char buf[40];
  switch (a.source) {
    case OperandSource::Stack: return "stack";
    case OperandSource::Register: return "r" + std::to_string(a.index);
    case OperandSource::Input: return "in" + std::to_string(a.index);
    case OperandSource::Constant:
      std::snprintf(buf, sizeof buf, "%.17g", p.constants[static_cast<size_t>(a.index)]);
      return buf;
  }
  return "?";
}

}  // namespace

std::string ExprComp::Impl::varName(int id) const {
  auto it = names.find(id);
  return it != names.end() ? it->second : "def" + std::to_string(id);
}

void ExprComp::Impl::compileForEval() {
  if (compiled) return;
  timings.clear();
  timed("compile", [&] { runPasses(); });
}

ExprComp::ExprComp() : impl_(std::make_unique<Impl>()) {}
ExprComp::ExprComp(const ExprComp& other) : impl_(std::make_unique<Impl>(*other.impl_)) {}
ExprComp& ExprComp::operator=(const ExprComp& other) {
  if (this != &other) impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}
ExprComp::~ExprComp() = default;

void ExprComp::addInput(int id) {
  impl_->inputs.push_back(id);
  impl_->changed();
}
void ExprComp::addOutput(int id) {
  impl_->outputs.push_back(id);
  impl_->changed();
}
void ExprComp::setName(int id, const std::string& name) { impl_->names[id] = name; }
std::string ExprComp::getVarName(int id) const { return impl_->varName(id); }

void ExprComp::addDef(int id, double value) {
  impl_->defs.push_back({id, Impl::kConstant, value, {}});
  impl_->changed();
}
void ExprComp::addDef(int id, int op, int a) { addDef(id, op, std::vector<int>{a}); }
void ExprComp::addDef(int id, int op, int a, int b) { addDef(id, op, std::vector<int>{a, b}); }
void ExprComp::addDef(int id, int op, int a, int b, int c) {
  addDef(id, op, std::vector<int>{a, b, c});
}
void ExprComp::addDef(int id, int op, const std::vector<int>& args) {
  QV_CHECK(op != Impl::kConstant, exprcomp, Internal_error_symbolic_processing, "Operation",
           std::int64_t{op});
  impl_->defs.push_back({id, op, 0.0, args});
  impl_->changed();
}

// All texts are read before anything is added: a syntax error leaves the
// compiler as it was.
void ExprComp::parse(const std::vector<std::string>& definitions,
                     const std::vector<std::string>& inputs, const std::vector<std::string>& outputs) {
  ExprComp scratch;
  DefBuilder b(scratch);
  for (const std::string& name : inputs) scratch.addInput(b.idOf(trim(name)));
  std::vector<std::pair<int, ExprImpl>> trees;
  for (const std::string& text : definitions) {
    const size_t eq = text.find('=');
    const std::string name = eq == std::string::npos ? "" : trim(text.substr(0, eq));
    if (!isName(name) || (eq + 1 < text.size() && text[eq + 1] == '='))
      QV_RAISE(exprcomp, Syntax_error_in_expression, qvbase::DetailPairs{{"Expression", text}});
    ExprImpl tree;
    try {
      tree.constructor(text.substr(eq + 1));
    } catch (const qvbase::Exception&) {
      QV_RAISE(exprcomp, Syntax_error_in_expression, qvbase::DetailPairs{{"Expression", text}});
    }
    trees.emplace_back(b.idOf(name), std::move(tree));
  }
  for (size_t i = 0; i < trees.size(); ++i) b.build(*trees[i].second.root(), trees[i].first, definitions[i]);
  for (const std::string& name : outputs) scratch.addOutput(b.idOf(trim(name)));

  // Numbers of this parse follow those already in use.
  int base = 0;
  for (const auto& d : impl_->defs) base = std::max(base, d.id + 1);
  for (int id : impl_->inputs) base = std::max(base, id + 1);
  for (int id : impl_->outputs) base = std::max(base, id + 1);
  for (const auto& [id, name] : impl_->names) base = std::max(base, id + 1);
  Impl& s = *scratch.impl_;
  for (int id : s.inputs) impl_->inputs.push_back(base + id);
  for (int id : s.outputs) impl_->outputs.push_back(base + id);
  for (const auto& [id, name] : s.names) impl_->names[base + id] = name;
  for (Impl::Def d : s.defs) {
    d.id += base;
    for (int& a : d.args) a += base;
    impl_->defs.push_back(std::move(d));
  }
  impl_->changed();
}

void ExprComp::eval(const std::vector<double>& in, std::vector<double>& out) const {
  Impl& m = *impl_;
  m.compileForEval();
  QV_CHECK(in.size() == m.inputs.size(), exprcomp, QUBRIX_assertion_failure, "Inputs",
           static_cast<std::int64_t>(in.size()));
  std::vector<double> result(m.program.outputs.size());
  switch (evalProgram(m.program, in.data(), result.data())) {
    case NO_ERROR: break;
    case LOG_OF_NEGATIVE: QV_RAISE(exprcomp, Log_of_negative);
    case SQRT_OF_NEGATIVE: QV_RAISE(exprcomp, Sqrt_of_negative);
    case OUT_OF_RANGE: QV_RAISE(exprcomp, Real_argument_out_of_range);
    case POWER_OF_NEGATIVE: QV_RAISE(exprcomp, Power_of_negative);
    default: QV_RAISE(exprcomp, Internal_error_symbolic_processing);
  }
  out = std::move(result);
}

const std::vector<std::pair<std::string, double>>& ExprComp::timings() const {
  return impl_->timings;
}

std::string ExprComp::dumpFlatList() const {
  impl_->compileForEval();
  const EvalProgram& p = impl_->program;
  std::string s;
  for (const ProgramStep& st : p.steps) {
    s += st.dest < 0 ? "stack" : "r" + std::to_string(st.dest);
    s += " = ";
    s += opName(st.op);
    s += '(';
    for (size_t i = 0; i < st.args.size(); ++i) s += (i ? ", " : "") + operandText(p, st.args[i]);
    s += ")  # " + impl_->varName(st.id) + "\n";
  }
  for (size_t k = 0; k < p.outputs.size(); ++k)
    s += "out" + std::to_string(k) + " = " + operandText(p, p.outputs[k]) + "\n";
  return s;
}

}  // namespace qvarray
