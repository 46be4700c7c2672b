// qvtool blas: which OpenBLAS kernels this process runs on.
#include <cstdio>

#include "commands.h"
#include "qvarray/blasruntime.h"
#include "toolutil.h"

namespace {

int run(int argc, char** argv) {
  qvtool::Arguments args(argc, argv);
  if (args.next()) args.unexpected();
  const auto rt = qvarray::blasRuntime();
  std::printf("kernels: %s\npreferred: %s\nconfig: %s\n", rt.coreName.c_str(),
              rt.preferredCore.c_str(), rt.config.c_str());
  return 0;
}

}  // namespace

const qvtool::Command qvtool::blasCommand = {
    "blas", run, "show which OpenBLAS kernels this process runs on", "qvtool blas",
    "Prints the OpenBLAS kernels this process runs on, the widest kernels the\n"
    "processor supports and OpenBLAS's build configuration.\n"};
