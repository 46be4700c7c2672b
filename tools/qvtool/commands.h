#pragma once
// Subcommands of qvtool, one source file each (cmd_<name>.cpp), listed in
// main.cpp's table.
//
// A subcommand's run function takes the arguments from its own name on
// (argv[0] is the name) and returns 0 when done. It reports nothing itself:
// a bad argument raises qvtool::UsageError (exit status 2), a failure any
// other exception (exit status 1); main() prints them. "--help" or "-h"
// anywhere among the arguments prints the help instead of running.

namespace qvtool {

struct Command {
  const char* name;
  int (*run)(int argc, char** argv);
  const char* summary;   ///< one line for the list of commands
  const char* synopsis;  ///< "qvtool gmres FILE.mtx [--tol t] ..."
  const char* help;      ///< what the command does, its options and defaults
};

extern const Command blasCommand;
extern const Command solveCommand;
extern const Command bandCommand;
extern const Command gmresCommand;
extern const Command poissonCommand;
extern const Command sparseCommand;
extern const Command nullCommand;
extern const Command spmvCommand;
extern const Command interpCommand;
extern const Command parseCommand;
extern const Command compileCommand;
extern const Command runClassCommand;
extern const Command evalCommand;
extern const Command psolveCommand;

}  // namespace qvtool
