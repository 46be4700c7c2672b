// What a host that loads the library sees: initializeArray() called from
// several threads at once does its work once, and the global run log writes
// nowhere until the host gives it a sink. Its own program (no test_main), so
// that the first call of initializeArray() happens here; ctest runs it with
// OPENBLAS_CORETYPE set to an old core, so that initialisation has a warning
// to log.
#include <gtest/gtest.h>

#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qvarray/blasruntime.h"
#include "qvarray/init.h"
#include "qvutil/runinfo.h"

namespace {

TEST(HostLoad, ConcurrentInitialisationRunsOnceAndWritesNothing) {
  qvutil::RunLog& log = qvutil::RunLog::global();
  ASSERT_TRUE(log.entries().empty()) << "initializeArray ran before this test";
  constexpr int kThreads = 8;
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  testing::internal::CaptureStderr();
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&] {
      start.arrive_and_wait();
      qvarray::initializeArray();
    });
  for (auto& t : threads) t.join();
  qvarray::initializeArray();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  const size_t expected = qvarray::blasRuntime().slowKernels ? 1 : 0;
  EXPECT_EQ(log.warnings().size(), expected);
  if (expected) {
    EXPECT_NE(log.warnings()[0].find("OPENBLAS_CORETYPE="), std::string::npos);
  }
}

TEST(HostLoad, SinkSeesEveryEntryInOrderAndMayFail) {
  qvutil::RunLog log;
  std::vector<std::string> seen;
  log.setSink([&](const qvutil::RunLog::Entry& e) {
    seen.push_back((e.warning ? "W:" : "M:") + e.text);
    if (e.text == "bad") throw std::runtime_error("sink failed");
  });
  constexpr int kThreads = 4, kEach = 250;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&log, t] {
      for (int k = 0; k < kEach; ++k)
        if (t % 2) log.addWarning(std::to_string(k));
        else log.addMessage(std::to_string(k));
    });
  for (auto& t : threads) t.join();
  log.addMessage("bad");
  log.setSink(nullptr);
  log.addMessage("unseen");
  const auto entries = log.entries();
  ASSERT_EQ(entries.size(), size_t{kThreads * kEach + 2});
  ASSERT_EQ(seen.size(), entries.size() - 1);
  for (size_t i = 0; i < seen.size(); ++i)
    EXPECT_EQ(seen[i], (entries[i].warning ? "W:" : "M:") + entries[i].text);
  EXPECT_EQ(entries.back().text, "unseen");
}

}  // namespace
