// qvtool parse: an expression text through the library's reader, shown as
// the prefix form and as the infix text printed back from the tree.
#include <cstring>
#include <iostream>
#include <string>

#include "commands.h"
#include "qvarray/expr/exprtree.h"
#include "toolutil.h"

namespace {

int run(int argc, char** argv) {
  // Expression texts may start with "-" ("-a+b"), so every argument but the
  // one option is the text.
  const char* text = nullptr;
  bool simplify = false;
  for (int k = 1; k < argc; ++k) {
    if (!std::strcmp(argv[k], "--simp")) simplify = true;
    else if (!text) text = argv[k];
    else throw qvtool::UsageError(std::string("unexpected argument '") + argv[k] + "'");
  }
  if (!text) throw qvtool::UsageError("no expression given");

  qvarray::ExprImpl tree(text);
  std::cout << "prefix: " << tree.toPrefix() << "\ninfix:  " << tree.toString() << "\n";
  if (simplify) {
    tree.simp();
    std::cout << "simplified prefix: " << tree.toPrefix()
              << "\nsimplified infix:  " << tree.toString() << "\n";
  }
  return 0;
}

}  // namespace

namespace qvtool {

const Command parseCommand{
    "parse", run, "an expression text as prefix form and printed back",
    "qvtool parse TEXT [--simp]",
    "Reads the expression TEXT with the library's expression reader (the built-in\n"
    "host) and prints its prefix form and the infix text printed back from the\n"
    "tree; with --simp, also the simplified tree (constant folding, neutral\n"
    "elements). A text that does not read gives the error with its position\n"
    "(a character offset from 0).\n"
    "\n"
    "Precedences, loosest first: lists \",\", \"||\", \"&&\", comparisons\n"
    "(== != < > <= >=), unary + - !, + -, * /, unit conversion x[unit], ^.\n"
    "Unary operators bind looser than arithmetic: -a+b means -(a+b), and -x^2\n"
    "means -(x^2); write (-a)+b for the other reading. Every binary operator\n"
    "is left-associative: a-b-c is (a-b)-c and a^b^c is (a^b)^c.\n"
    "Atoms: numbers (12, 1.5, .5, 1e-3), names (a_1, a.b), strings in single\n"
    "quotes ('it''s'), calls f(a,b), derivatives d(expr,x), vectors [a,b].\n"};

}  // namespace qvtool
