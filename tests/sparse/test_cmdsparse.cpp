// qvtool's sparse subcommand, run in process.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands.h"

namespace {

struct Outcome {
  int code;
  std::string out;
};

Outcome run(std::vector<std::string> args) {
  std::vector<char*> argv;
  args.insert(args.begin(), "sparse");
  for (auto& a : args) argv.push_back(a.data());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int code = cmdSparse(static_cast<int>(argv.size()), argv.data());
  Outcome r{code, testing::internal::GetCapturedStdout()};
  testing::internal::GetCapturedStderr();
  return r;
}

const std::string kFile = std::string(QV_MATRIX_DIR) + "/c.mtx";

TEST(QvtoolSparse, HeaderEntriesAndTimes) {
  const Outcome r = run({kFile});
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out.rfind("Sparse 3-by-3 matrix. Nnz = 7.\nRead time: ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("\nAssembly time: "), std::string::npos);
  const Outcome s = run({"--symmetric", kFile});
  EXPECT_EQ(s.out.rfind("Sparse 3-by-3 matrix. Nnz = 5.\nSymmetric.\nRead time: ", 0), 0u) << s.out;
  const Outcome p = run({kFile, "--print"});
  EXPECT_EQ(p.code, 0);
  EXPECT_EQ(p.out.rfind("Sparse 3-by-3 matrix. Nnz = 7.\n"
                        "    Row    Col               Value\n"
                        "      0      0               (1,0)\n"
                        "      2      0              (2,-1)\n"
                        "      1      1               (1,0)\n"
                        "      2      1               (3,0)\n"
                        "      0      2               (2,1)\n"
                        "      1      2              (3,-0)\n"  // the conjugate of 3 + 0i
                        "      2      2              (42,0)\n"
                        "Read time: ",
                        0),
            0u)
      << p.out;
}

TEST(QvtoolSparse, Failures) {
  EXPECT_EQ(run({}).code, 2);
  EXPECT_EQ(run({"--bogus", kFile}).code, 2);
  EXPECT_EQ(run({kFile, kFile}).code, 2);
  EXPECT_EQ(run({"/nonexistent.mtx"}).code, 1);
}

}  // namespace
