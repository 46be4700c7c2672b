// qvtool compile: definitions "name = expression" from a file, compiled by
// ExprComp into a JVM class file.
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "qvarray/expr/exprcomp.h"
#include "toolutil.h"

namespace {

std::vector<std::string> names(const char* list) {
  std::vector<std::string> v;
  std::stringstream s(list);
  for (std::string n; std::getline(s, n, ',');)
    if (!n.empty()) v.push_back(n);
  return v;
}

int run(int argc, char** argv) {
  std::string path, className, method = "work", output;
  std::vector<std::string> inputs, outputs;
  bool withMain = false;
  qvtool::Arguments args(argc, argv);
  while (args.next()) {
    if (args.is("--class")) className = args.value();
    else if (args.is("--method")) method = args.value();
    else if (args.is("--inputs")) inputs = names(args.value());
    else if (args.is("--outputs")) outputs = names(args.value());
    else if (args.is("--main")) withMain = true;
    else if (args.is("-o")) output = args.value();
    else args.positional(path);
  }
  qvtool::Arguments::require(path, "definition file");
  qvtool::Arguments::require(className, "--class");
  if (outputs.empty()) throw qvtool::UsageError("no --outputs given");
  if (output.empty()) output = className + ".class";

  std::ifstream in(path);
  if (!in) throw qvtool::Failure(path + ": cannot be read");
  std::vector<std::string> defs;
  for (std::string line; std::getline(in, line);) {
    size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    defs.push_back(line);
  }
  qvarray::ExprComp::compile(className, method, output, defs, inputs, outputs, withMain);
  std::cout << "wrote " << output << " (" << defs.size() << " definitions, " << inputs.size()
            << " inputs, " << outputs.size() << " outputs)\n";
  return 0;
}

}  // namespace

namespace qvtool {

const Command compileCommand{
    "compile", run, "definitions compiled into a JVM class file",
    "qvtool compile DEFS.txt --class NAME --inputs a,b --outputs y[,z] [--method work] [--main]\n"
    "       [-o NAME.class]",
    "Reads definitions \"name = expression\", one a line (blank lines and lines\n"
    "starting with # are skipped), and compiles them with the expression compiler\n"
    "into the class NAME, written to NAME.class or the file given by -o. The class\n"
    "has the static work method \"([D[D)I\" (default name work): inputs in the\n"
    "order of --inputs, outputs in the order of --outputs, the status (0, or a\n"
    "negative code for a domain failure) as its result; the static fields NARGIN\n"
    "and NARGOUT; with --main, a main method as well. Run it with\n"
    "qvtool run-class NAME.class VALUES...\n"};

}  // namespace qvtool
