// qvtool's spmv subcommand, run in process.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "producttest.h"

namespace {

// The exit code and standard output of `qvtool spmv args…`.
std::pair<int, std::string> run(std::vector<std::string> args) {
  producttest::Threads keep(AVAILABLETHREADS());  // --threads changes the process setting
  args.insert(args.begin(), "spmv");
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int code = cmdSpmv(static_cast<int>(argv.size()), argv.data());
  testing::internal::GetCapturedStderr();
  return {code, testing::internal::GetCapturedStdout()};
}

const std::string kDir = QV_MATRIX_DIR;

TEST(QvtoolSpmv, ReportsTimeAndBandwidth) {
  const auto [code, out] = run({kDir + "/c.mtx", "--reps", "3", "--threads", "1"});
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(std::regex_search(
      out, std::regex("^Sparse 3-by-3 matrix\\. Nnz = 7\\.\n"
                        "Product: y \\+= A\\*x, complex, 1 thread, serial kernel\n"
                        "First product: [0-9.e+-]+ s\n"
                        "Products: 3\n"
                        "Time per product: [0-9.e+-]+ s \\(median; fastest [0-9.e+-]+ s\\)\n"
                        "Time per non-zero: [0-9.e+-]+ ns\n"
                        "Effective bandwidth: [0-9.e+-]+ GB/s\n$")))
      << out;
}

TEST(QvtoolSpmv, TransposedSymmetricAndParallel) {
  const auto [code, out] = run({"--trans", "--symmetric", kDir + "/bcsstk13.mtx", "--reps", "2", "--threads", "2"});
  EXPECT_EQ(code, 0);
  EXPECT_NE(out.find("Symmetric.\nProduct: y += A^T*x, real"), std::string::npos) << out;
  const bool parallel = out.find("2 threads, parallel kernel") != out.npos && out.find("(parallel data: ") != out.npos;
  EXPECT_TRUE(parallel || !producttest::Threads::available(2)) << out;
}

TEST(QvtoolSpmv, Failures) {
  EXPECT_EQ(run({}).first, 2);
  EXPECT_EQ(run({"--bogus", kDir + "/c.mtx"}).first, 2);
  EXPECT_EQ(run({kDir + "/c.mtx", "--threads", "0"}).first, 2);
  EXPECT_EQ(run({kDir + "/c.mtx", "--reps"}).first, 2);
  EXPECT_EQ(run({kDir + "/no-such-file.mtx"}).first, 1);
  EXPECT_EQ(run({"--help"}).first, 0);
}

}  // namespace
