#pragma once
// Subcommands of qvtool. Each takes the arguments from the subcommand's name
// on (argv[0] is the name) and returns the process exit code: 0 on success,
// 1 when the work failed, 2 for a usage error.

/// qvtool sparse FILE.mtx [--print] [--symmetric]
int cmdSparse(int argc, char** argv);
