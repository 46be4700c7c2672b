// qvtool: the library's command-line program, a dispatcher over subcommands.
//
// Everything from the first statement on runs inside one handler, so that
// whatever fails (start-up, argument parsing, the command itself, running out
// of memory anywhere) ends in one readable line on stderr and exit status 1,
// or 2 for a bad command line; qvtool never aborts on an error.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "qvarray/blasruntime.h"
#include "qvarray/init.h"
#include "qvutil/runinfo.h"
#include "toolutil.h"

namespace {

using qvtool::Command;

const Command* const kCommands[] = {
    &qvtool::solveCommand, &qvtool::bandCommand,   &qvtool::gmresCommand, &qvtool::poissonCommand,
    &qvtool::sparseCommand, &qvtool::nullCommand, &qvtool::spmvCommand,  &qvtool::blasCommand,
    &qvtool::psolveCommand,
    &qvtool::interpCommand,
    &qvtool::parseCommand, &qvtool::evalCommand,
    &qvtool::compileCommand, &qvtool::runClassCommand,
};

void usage(std::FILE* out) {
  std::fprintf(out, "usage: qvtool <command> [arguments]\n\ncommands:\n");
  for (const Command* c : kCommands) std::fprintf(out, "  %-7s %s\n", c->name, c->summary);
  std::fprintf(out, "\n'qvtool <command> --help' describes a command.\n");
}

bool isHelp(const char* a) { return !std::strcmp(a, "--help") || !std::strcmp(a, "-h"); }

}  // namespace

int main(int argc, char** argv) {
  const Command* command = nullptr;
  try {
    // The library logs quietly; qvtool shows what it logs.
    qvutil::RunLog::global().setSink(qvtool::printLogEntry);
    qvarray::relaunchWithFastBlas(argc, argv);
    qvarray::initializeArray();
    if (argc < 2) {
      usage(stderr);
      return 2;
    }
    const char* name = argv[1];
    if (isHelp(name) || !std::strcmp(name, "help")) {
      usage(stdout);
      return 0;
    }
    for (const Command* c : kCommands)
      if (!std::strcmp(name, c->name)) command = c;
    if (!command) {
      std::fprintf(stderr, "qvtool: unknown command '%s'\n\n", name);
      usage(stderr);
      return 2;
    }
    for (int k = 2; k < argc; ++k)
      if (isHelp(argv[k])) {
        std::printf("usage: %s\n\n%s", command->synopsis, command->help);
        return 0;
      }
    return command->run(argc - 1, argv + 1);
  } catch (const qvtool::UsageError& e) {
    return qvtool::reportUsageError(*command, e);
  } catch (...) {
    return qvtool::reportCurrentException();
  }
}
