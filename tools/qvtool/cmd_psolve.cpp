// qvtool psolve: the distributed solve through the PETSc bridge.
//
// The command's body lives in the module qvtool_psolve.so, which links PETSc
// and MPI; qvtool itself links neither, so that it runs where PETSc is absent
// and starts MPI only when psolve is asked for. The module is looked for
// beside the executable (the build tree) and then in the library folder of an
// installation (<prefix>/bin/qvtool finds <prefix>/<libdir>/qvtool/).
#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "commands.h"
#include "toolutil.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kModule = "qvtool_psolve.so";
constexpr const char* kEntry = "qvtool_psolve_run";

// The module's path, empty when no candidate exists.
fs::path findModule() {
  std::error_code ec;
  const fs::path dir = fs::read_symlink("/proc/self/exe", ec).parent_path();
  if (ec) return {};
  for (const fs::path& p : {dir / kModule, dir / ".." / QV_TOOL_MODULE_DIR / kModule})
    if (fs::exists(p, ec)) return p;
  return {};
}

int run(int argc, char** argv) {
  const fs::path path = findModule();
  if (path.empty()) throw qvtool::UsageError("needs the PETSc bridge, which this build does not have");
  // Global symbols: MPI's plug-ins, loaded later, resolve against libmpi.
  // The module stays loaded: MPI does not support being unloaded.
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (!module) throw qvtool::Failure(std::string("cannot load the PETSc bridge: ") + dlerror());
  auto* entry = reinterpret_cast<int (*)(int, char**)>(dlsym(module, kEntry));
  if (!entry) throw qvtool::Failure(path.string() + ": no entry point " + kEntry);
  return entry(argc, argv);
}

}  // namespace

const qvtool::Command qvtool::psolveCommand = {
    "psolve", run, "solve a sparse system across MPI ranks with PETSc's KSP",
    "qvtool psolve A.mtx b.mtx [--read root|each] [--out x.mtx] [PETSc options]",
    "Solves A*x = b for the square matrix A and the right-hand side b of two\n"
    "MatrixMarket files with PETSc's Krylov solvers, its rows split evenly across\n"
    "the ranks: run it as 'mpirun -np N qvtool psolve ...' (or alone, as one rank).\n"
    "Prints the rank count, the iterations, PETSc's convergence reason, the\n"
    "relative residual ||b - A*x|| / ||b|| computed after the solve, and the times\n"
    "of reading, assembly and solve (the slowest rank's).\n"
    "  --read root   rank 0 reads the files and sends each rank its rows (default)\n"
    "  --read each   every rank reads the files and keeps its own rows\n"
    "  --out x.mtx   write the solution (gathered on rank 0)\n"
    "Every argument after the two files that starts with '-', with its value, is\n"
    "a PETSc option (-ksp_type, -pc_type, -ksp_rtol, -ksp_max_it, ...). They\n"
    "follow the defaults, and override them:\n"
    "  -ksp_type gmres -ksp_pc_side right -pc_type gamg -ksp_rtol 1e-8\n"
    "(right preconditioning: the tolerance bounds the true residual).\n"
    "Needs qvtool's PETSc module, built when PETSc and MPI are found.\n"};
