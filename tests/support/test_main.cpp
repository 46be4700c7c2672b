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
#include <fstream>
#include <mutex>
#include <set>
#include <string>

#include "qvarray/blasruntime.h"
#include "qvarray/init.h"
#include "qvutil/errors.h"

namespace {

std::mutex gKeysMutex;
std::set<std::string> gKeys;

void recordKey(const qvbase::Exception& e) noexcept {
  try {
    std::lock_guard<std::mutex> lock(gKeysMutex);
    gKeys.insert(e.key());
  } catch (...) {
  }
}

void writeKeys(const char* dir, const std::string& program) {
  // Written even when empty: the file also says that this program ran.
  std::lock_guard<std::mutex> lock(gKeysMutex);
  std::ofstream out(std::filesystem::path(dir) /
                    (program + "." + std::to_string(getpid()) + ".keys"));
  for (const std::string& k : gKeys) out << k << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  qvarray::relaunchWithFastBlas(argc, argv);
  qvarray::initializeArray();
  ::testing::InitGoogleTest(&argc, argv);
  const char* keysDir = std::getenv("QV_RAISED_KEYS_DIR");
  if (keysDir) qvbase::setErrorListener(recordKey);
  const int status = RUN_ALL_TESTS();
  if (keysDir) writeKeys(keysDir, std::filesystem::path(argv[0]).filename().string());
  return status;
}
