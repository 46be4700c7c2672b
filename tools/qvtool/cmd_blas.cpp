// qvtool blas: which OpenBLAS kernels this process runs on.
#include <cstdio>

#include "commands.h"
#include "qvarray/blasruntime.h"

int cmdBlas(int /*argc*/, char** /*argv*/) {
  const auto rt = qvarray::blasRuntime();
  std::printf("kernels: %s\npreferred: %s\nconfig: %s\n", rt.coreName.c_str(),
              rt.preferredCore.c_str(), rt.config.c_str());
  return 0;
}
