// qvtool eval: a formula evaluated by the library's ready evaluator at the
// points given on the command line, or its derivative, or its dependencies.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <complex>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "qvarray/expr/userevaluator.h"
#include "qvutil/numeric.h"
#include "toolutil.h"

namespace {

using Complex = std::complex<double>;

// The shortest text that reads back to the same double.
std::string roundTrip(double v) {
  char buf[32];
  auto res = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, res.ptr);
}

std::string roundTrip(Complex z) {
  return roundTrip(z.real()) + (std::signbit(z.imag()) ? "-" : "+") + roundTrip(std::fabs(z.imag())) + "i";
}

double number(std::string_view text, const std::string& arg) {
  double v = 0;
  if (qvutil::scanDouble(text, v) != qvutil::NumberScan::Ok || !std::isfinite(v))
    throw qvtool::UsageError("'" + arg + "': '" + std::string(text) + "' is not a finite number");
  return v;
}

// NAME=v, NAME=a:step:b (a, a+step, ... up to b within a rounding) or
// NAME=v1,v2,...: the values of one variable.
struct Binding {
  std::string name;
  std::vector<double> values;
  bool list = false;
};

Binding parseBinding(const std::string& arg) {
  const size_t eq = arg.find('=');
  Binding b{arg.substr(0, eq), {}, false};
  std::string_view rest = std::string_view(arg).substr(eq + 1);
  if (std::count(rest.begin(), rest.end(), ':') == 2) {
    const size_t c1 = rest.find(':'), c2 = rest.rfind(':');
    const double a = number(rest.substr(0, c1), arg), step = number(rest.substr(c1 + 1, c2 - c1 - 1), arg),
                 last = number(rest.substr(c2 + 1), arg);
    if (!(step > 0) || last < a) throw qvtool::UsageError("'" + arg + "': a range needs a <= b and a step > 0");
    const double n = std::floor((last - a) / step * (1 + 1e-12) + 1e-9);
    if (n > 1e7) throw qvtool::UsageError("'" + arg + "': more than 10000000 points");
    for (double k = 0; k <= n; ++k) b.values.push_back(a + k * step);
    b.list = true;
    return b;
  }
  b.list = rest.find(',') != std::string_view::npos;
  while (true) {
    const size_t comma = rest.find(',');
    b.values.push_back(number(rest.substr(0, comma), arg));
    if (comma == std::string_view::npos) return b;
    rest.remove_prefix(comma + 1);
  }
}

// "u" or "u:2": a solution component with its highest time-derivative order.
void declare(qvarray::UserEvaluator& ev, std::string_view decl, bool parameter) {
  const size_t colon = decl.find(':');
  int order = 0;
  if (colon != std::string_view::npos) {
    std::string_view o = decl.substr(colon + 1);
    if (std::from_chars(o.data(), o.data() + o.size(), order).ptr != o.data() + o.size() || order < 0 || order > 14)
      throw qvtool::UsageError("'" + std::string(decl) + "': the order must be 0 to 14");
  }
  std::string name(decl.substr(0, colon));
  parameter ? ev.addParameter(name, order) : ev.addSolution(name, order);
}

void declareList(qvarray::UserEvaluator& ev, std::string_view list, bool parameter) {
  while (!list.empty()) {
    const size_t comma = list.find(',');
    declare(ev, list.substr(0, comma), parameter);
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
}

// The orders k at which `get(i, k)` holds, as "0 1", or "none".
template <class Get>
std::string orders(Get get, int i) {
  std::string s;
  for (int k = 0; k < 16; ++k)
    if (get(i, k)) s += (s.empty() ? "" : " ") + std::to_string(k);
  return s.empty() ? "none" : s;
}

// A NaN result: its error record, pair by pair.
[[noreturn]] void failNaN(const qvarray::ValRep& v) {
  std::string msg = "the formula has no value (NaN)";
  if (v.hasErrors()) {
    const auto& e = *const_cast<qvarray::ValRep&>(v).getErrors();
    for (const auto& [name, value] : e.pairs()) msg += "; " + (name.empty() ? value : name + " = " + value);
  }
  throw qvtool::Failure(msg);
}

int run(int argc, char** argv) {
  const char* text = nullptr;
  std::string diff, deps, params;
  bool showText = false, complex = false;
  std::vector<Binding> bindings;
  std::vector<std::pair<std::string, std::string>> defs;
  // Expression texts may start with "-": options are matched first, and
  // NAME=... arguments are bindings.
  for (int k = 1; k < argc; ++k) {
    std::string a = argv[k];
    auto value = [&]() -> std::string {
      if (k + 1 >= argc) throw qvtool::UsageError(a + " needs a value");
      return argv[++k];
    };
    if (a == "--diff") diff = value();
    else if (a == "--text") showText = true;
    else if (a == "--deps") deps = value();
    else if (a == "--params") params = value();
    else if (a == "--complex") complex = true;
    else if (a == "--def") {
      std::string d = value();
      const size_t eq = d.find('=');
      if (eq == std::string::npos) throw qvtool::UsageError("--def: '" + d + "' is not NAME=TEXT");
      defs.emplace_back(d.substr(0, eq), d.substr(eq + 1));
    } else if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
      throw qvtool::UsageError("unknown option '" + a + "'");
    } else if (!text) {
      text = argv[k];
    } else if (a.find('=') != std::string::npos && a.find('=') > 0) {
      bindings.push_back(parseBinding(a));
    } else {
      throw qvtool::UsageError("unexpected argument '" + a + "'");
    }
  }
  if (!text) throw qvtool::UsageError("no formula given");
  if (showText && diff.empty()) throw qvtool::UsageError("--text needs --diff");

  size_t n = 1;
  for (const Binding& b : bindings)
    if (b.list) {
      if (n != 1 && b.values.size() != n)
        throw qvtool::UsageError("'" + b.name + "': " + std::to_string(b.values.size()) +
                                 " values, other variables have " + std::to_string(n));
      n = b.values.size();
    }
  auto ev = qvarray::UserEvaluator::make(n);
  ev->setComplex(complex);
  declareList(*ev, deps, false);
  declareList(*ev, params, true);
  for (const Binding& b : bindings) {
    if (b.list) {
      Array<double, 1> v(n);
      std::copy(b.values.begin(), b.values.end(), v.data);
      ev->bind(b.name, v);
    } else {
      ev->bind(b.name, b.values[0]);
    }
  }
  for (const auto& [name, def] : defs) ev->define(name, def);

  if (!deps.empty() || !params.empty()) {
    const qvarray::DepInfo d = ev->dependencies(text), j = ev->dependencies(text, true);
    auto line = [&](const std::string& name, const qvarray::DepInfo& x, const qvarray::DepInfo& y, int i, bool par) {
      auto get = [&](const qvarray::DepInfo& r) {
        return [&r, par](int c, int k) { return par ? r.getParDep(c, k) : r.getSolDep(c, k); };
      };
      std::cout << name << ": orders " << orders(get(x), i) << "; nonlinear in orders " << orders(get(y), i) << "\n";
    };
    for (size_t i = 0; i < ev->solutionNames().size(); ++i) line(ev->solutionNames()[i], d, j, int(i), false);
    for (size_t i = 0; i < ev->parameterNames().size(); ++i) line(ev->parameterNames()[i], d, j, int(i), true);
    return 0;
  }

  qvarray::EvalTreePtr tree = std::make_shared<qvarray::EvalTree>(text);
  if (!diff.empty()) tree = ev->derivative(text, diff);
  if (showText) {
    std::cout << tree->getExpandedExpr() << "\n";
    return 0;
  }
  const qvarray::ValRepPtr v = ev->evaluate(tree);
  if (v->isNaN()) failNaN(*v);
  // One line per point: the listed variables' values, then the value.
  for (size_t p = 0; p < n; ++p) {
    std::string head;
    for (const Binding& b : bindings)
      if (b.list) head += (head.empty() ? "" : ", ") + b.name + " = " + roundTrip(b.values[p]);
    if (!head.empty()) std::cout << head << ":  ";
    if (v->isStoredAsComplex() && v->checkComplex())
      std::cout << roundTrip(ev->toComplexArray(*v).data[p]) << "\n";
    else
      std::cout << roundTrip(ev->toArray(*v).data[p]) << "\n";
  }
  return 0;
}

}  // namespace

namespace qvtool {

const Command evalCommand{
    "eval", run, "a formula's values, derivative or dependencies at given points",
    "qvtool eval FORMULA [NAME=VALUES ...] [--def NAME=TEXT] [--diff VAR [--text]]\n"
    "                    [--complex] [--deps U[:ORDER],... [--params P[:ORDER],...]]",
    "Evaluates FORMULA with the library's ready evaluator and prints one line per\n"
    "point: the values of the listed variables, then the formula's value, each at\n"
    "round-trip precision (the shortest text that reads back to the same double).\n"
    "\n"
    "NAME=VALUES binds a variable: NAME=2 is one value for every point,\n"
    "NAME=0:0.1:1 the points 0, 0.1, ..., 1 (a range a:step:b), NAME=1,2,5 a\n"
    "list. All ranges and lists must have the same length: the number of points.\n"
    "  --def NAME=TEXT   defines the variable NAME by the expression TEXT\n"
    "                    (repeatable; definitions may use each other, not in a\n"
    "                    circle)\n"
    "  --diff VAR        the derivative with respect to VAR instead of the value\n"
    "  --text            with --diff: print the derivative's text, not its values\n"
    "  --complex         complex evaluation (sqrt(-1) is i); values print as a+bi\n"
    "  --deps LIST       declares solution components (u:2 declares u, ut, utt:\n"
    "                    each appended t is one time derivative; d(u,t) is ut)\n"
    "                    and prints, for each, the time-derivative orders the\n"
    "                    formula depends on and those it depends on nonlinearly\n"
    "  --params LIST     the same for parameters\n"
    "\n"
    "Errors show the key and its details: a formula that does not read gives the\n"
    "position (a character offset from 0) and the text; a formula without a\n"
    "value (log of a negative number) gives the error record of the failure.\n"
    "See 'qvtool parse --help' for the syntax.\n"};

}  // namespace qvtool
