// main() of every test program: restart on OpenBLAS's fast kernels when the
// processor is not recognised, initialise the library, run the tests.
//
// When QV_RAISED_KEYS_DIR is set (ctest sets it), every error key the library
// raises during the run is written to a file there, named after the program;
// the check_error_keys test then finds any registered key no test provokes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "keyrecorder.h"
#include "qvarray/blasruntime.h"
#include "qvarray/init.h"

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  ::testing::InitGoogleTest(&argc, argv);
  const char* keysDir = std::getenv("QV_RAISED_KEYS_DIR");
  if (keysDir) qvtest::keys::listen();
  const int status = RUN_ALL_TESTS();
  if (keysDir) {
    const std::string program = std::filesystem::path(argv[0]).filename().string();
    qvtest::keys::write(std::string(keysDir) + "/" + program + "." + std::to_string(getpid()) + ".keys");
  }
  return status;
}
