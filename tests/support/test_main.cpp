// main() of every test program: restart on OpenBLAS's fast kernels when the
// processor is not recognised, initialise the library, run the tests.
#include <gtest/gtest.h>

#include "qvarray/blasruntime.h"
#include "qvarray/init.h"

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
