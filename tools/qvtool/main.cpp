// qvtool: the library's command-line program, a dispatcher over subcommands.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "qvarray/blasruntime.h"
#include "qvarray/init.h"

namespace {

struct Command {
  const char* name;
  int (*run)(int argc, char** argv);
  const char* help;
};

const Command kCommands[] = {
    {"solve", cmdSolve, "solve a dense linear system A*x = b read from MatrixMarket files"},
    {"band", cmdBand, "solve a banded system from a MatrixMarket coordinate file by band LU"},
    {"gmres", cmdGmres, "solve a sparse system from a MatrixMarket file by restarted GMRES"},
    {"poisson", cmdPoisson, "solve a 2-D or 3-D Poisson problem by GMRES with SSOR and by SOR"},
    {"sparse", cmdSparse, "read a sparse MatrixMarket file: size, Nnz, symmetry and assembly time"},
    {"null", cmdNull, "Poisson with Dirichlet and periodic constraints: elimination vs Lagrange"},
    {"spmv", cmdSpmv, "time repeated sparse matrix-vector products on a MatrixMarket file"},
    {"blas", cmdBlas, "show which OpenBLAS kernels this process runs on"},
};

void usage(std::FILE* out) {
  std::fprintf(out, "usage: qvtool <command> [arguments]\n\ncommands:\n");
  for (const Command& c : kCommands) std::fprintf(out, "  %-7s %s\n", c.name, c.help);
  std::fprintf(out, "\n'qvtool <command> --help' describes a command.\n");
}

}  // namespace

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  if (argc < 2) {
    usage(stderr);
    return 2;
  }
  const char* name = argv[1];
  if (!std::strcmp(name, "--help") || !std::strcmp(name, "-h") || !std::strcmp(name, "help")) {
    usage(stdout);
    return 0;
  }
  for (const Command& c : kCommands)
    if (!std::strcmp(name, c.name)) return c.run(argc - 1, argv + 1);
  std::fprintf(stderr, "qvtool: unknown command '%s'\n\n", name);
  usage(stderr);
  return 2;
}
