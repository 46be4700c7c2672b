// qvtool: the library's command-line program.
#include <cstdio>
#include <cstring>

#include "qvarray/blasruntime.h"
#include "qvarray/init.h"

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  if (argc >= 2 && std::strcmp(argv[1], "blas") == 0) {
    const auto rt = qvarray::blasRuntime();
    std::printf("kernels: %s\npreferred: %s\nconfig: %s\n", rt.coreName.c_str(),
                rt.preferredCore.c_str(), rt.config.c_str());
    return 0;
  }
  std::fprintf(stderr, "usage: qvtool blas\n");
  return 2;
}
