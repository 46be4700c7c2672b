// qvtool's spmv subcommand, run in process.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "commands.h"
#include "producttest.h"

namespace {

struct Outcome {
  int code;
  std::string out;
};

Outcome run(std::vector<std::string> args) {
  producttest::Threads keep(AVAILABLETHREADS());  // --threads changes the process setting
  std::vector<char*> argv;
  args.insert(args.begin(), "spmv");
  for (auto& a : args) argv.push_back(a.data());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int code = cmdSpmv(static_cast<int>(argv.size()), argv.data());
  Outcome r{code, testing::internal::GetCapturedStdout()};
  testing::internal::GetCapturedStderr();
  return r;
}

const std::string kDir = QV_MATRIX_DIR;

TEST(QvtoolSpmv, ReportsTimeAndBandwidth) {
  const Outcome r = run({kDir + "/c.mtx", "--reps", "3", "--threads", "1"});
  EXPECT_EQ(r.code, 0);
  EXPECT_TRUE(std::regex_search(
      r.out, std::regex("^Sparse 3-by-3 matrix\\. Nnz = 7\\.\n"
                        "Product: y \\+= A\\*x, complex, 1 thread, serial kernel\n"
                        "First product: [0-9.e+-]+ s\n"
                        "Products: 3\n"
                        "Time per product: [0-9.e+-]+ s \\(median; fastest [0-9.e+-]+ s\\)\n"
                        "Time per non-zero: [0-9.e+-]+ ns\n"
                        "Effective bandwidth: [0-9.e+-]+ GB/s\n$")))
      << r.out;
}

TEST(QvtoolSpmv, TransposedSymmetricAndParallel) {
  const Outcome r = run({"--trans", "--symmetric", kDir + "/bcsstk13.mtx", "--reps", "2", "--threads", "2"});
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.out.find("Symmetric.\nProduct: y += A^T*x, real"), std::string::npos) << r.out;
  if (producttest::Threads::available(2)) {
    EXPECT_NE(r.out.find("2 threads, parallel kernel"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("(parallel data: "), std::string::npos) << r.out;
  }
}

TEST(QvtoolSpmv, Failures) {
  EXPECT_EQ(run({}).code, 2);
  EXPECT_EQ(run({"--bogus", kDir + "/c.mtx"}).code, 2);
  EXPECT_EQ(run({kDir + "/c.mtx", "--threads", "0"}).code, 2);
  EXPECT_EQ(run({kDir + "/c.mtx", "--reps"}).code, 2);
  EXPECT_EQ(run({kDir + "/no-such-file.mtx"}).code, 1);
  EXPECT_EQ(run({"--help"}).code, 0);
}

}  // namespace
