#include <gtest/gtest.h>
#include <omp.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "qvtest.h"
#include "qvutil/nestedlock.h"
#include "qvutil/numeric.h"
#include "qvutil/parallel.h"
#include "qvutil/prop.h"
#include "qvutil/runinfo.h"
#include "qvutil/stopwatch.h"

TEST(Numeric, NaNInfinityAndParseDoubleInAnyLocale) {
  EXPECT_TRUE(qvIsNaN(qvGetNaN()) && qvIsNaN(-qvGetNaN()));
  EXPECT_FALSE(qvIsNaN(qvGetInf()) || qvIsNaN(0.0));
  EXPECT_GT(qvGetInf(), 1e308);
  // A decimal comma locale must not change how numbers are read.
  const char* old = std::setlocale(LC_NUMERIC, nullptr);
  std::string saved = old ? old : "C";
  std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  EXPECT_EQ(qvutil::parseDouble("1.5"), 1.5);
  std::setlocale(LC_NUMERIC, saved.c_str());

  EXPECT_TRUE(qvutil::parseDouble("  -2.5e3 ") == -2500.0 && qvutil::parseDouble("+4") == 4.0);
  EXPECT_TRUE(qvutil::parseDouble("1e-400") == 0.0 && std::isinf(qvutil::parseDouble("inf")));
  EXPECT_TRUE(qvIsNaN(qvutil::parseDouble("nan")));
  for (const char* bad : {"", "  ", "1.5x", "1,5", "abc", "1 2", "++1", "0x10"})
    qvtest::expectThrowKey([&] { qvutil::parseDouble(bad); }, "Invalid_number", bad);
  qvtest::expectThrowKey([] { qvutil::parseDouble("1e400"); }, "Number_out_of_range");
}

// The prefix form reads as the C library's strtod does in the C locale.
TEST(Numeric, PrefixParseAgreesWithStrtod) {
  for (const char* text : {"1.5abc", "  -2e3x", "abc", "", "+.5", "1e", "1e+", "0x1p3", "0x", "0x.8",
                           "-0", "1e999", "-1e999", "1e-999", "4.9e-324", "inf", "-Infinity",
                           "nan", "--1", "+-1", "1,5", ".", "\t7"}) {
    const double want = std::strtod(text, nullptr), got = qvutil::parseDoublePrefix(text);
    EXPECT_TRUE(std::memcmp(&want, &got, sizeof got) == 0 || (want != want && got != got))
        << "'" << text << "': " << got << " vs " << want;
  }
}

TEST(Parallel, ThreadCountIsClampedAndBoundsOpenMPThreadNumbers) {
  const int maxT = MAXAVAILABLETHREADS;
  EXPECT_GE(maxT, 1);
  const int before = AVAILABLETHREADS();
  EXPECT_EQ(qvbase::Parallel::setAvailableThreads(0), 1);
  EXPECT_EQ(AVAILABLETHREADS(), 1);
  EXPECT_EQ(qvbase::Parallel::setAvailableThreads(maxT + 100), maxT);
  int highest = 0;
#pragma omp parallel num_threads(AVAILABLETHREADS()) reduction(max : highest)
  highest = omp_get_thread_num();
  EXPECT_LT(highest, maxT);
  qvbase::Parallel::setAvailableThreads(before);
}

// Phase 2 reads every part's phase-1 output: the same numbers whatever the
// team, and a part's exception reaches the caller after the team finished.
TEST(Parallel, TeamRunsThePhasesInTurnOnAnyTeamAndRethrows) {
  using qvbase::Parallel;
  const size_t grain = Parallel::minWorkPerThread();
  const int before = AVAILABLETHREADS();
  Parallel::setMinWorkPerThread(1);
  Parallel::setAdaptive(false);  // these steps are far too small to pay
  std::vector<std::vector<long>> results;
  for (int threads : {1, 2, MAXAVAILABLETHREADS}) {
    Parallel::setAvailableThreads(threads);
    const qvbase::Team team(5, 1000);
    EXPECT_EQ(team.threads(), std::min(threads, 5));
    std::vector<long> a(5, 0), b(5, 0);
    team.run([&](int p) { a[p] = p + 1; },
             [&](int p) { b[p] = p * std::accumulate(a.begin(), a.end(), 0L); });
    results.push_back(b);
    EXPECT_THROW(team.run([](int p) { if (p == 3) throw std::runtime_error("part 3"); }),
                 std::runtime_error);
  }
  for (const auto& b : results) EXPECT_EQ(b, (std::vector<long>{0, 15, 30, 45, 60}));
  Parallel::setAvailableThreads(before);
  Parallel::setMinWorkPerThread(grain);
  Parallel::setAdaptive(true);
}

// The team follows the work and what earlier steps and calls of the same
// size lost; other sizes and routines keep theirs.
TEST(Parallel, TeamsShrinkForSmallStepsAndAfterLosses) {
  using qvbase::Parallel;
  if (MAXAVAILABLETHREADS < 2) GTEST_SKIP() << "one processor";
  const int before = AVAILABLETHREADS();
  Parallel::setAvailableThreads(2);
  Parallel::setAdaptive(true);
  const size_t g = Parallel::minWorkPerThread(), big = 64 * g;
  EXPECT_EQ(Parallel::teamFor(2, 2 * g - 1), 1);
  EXPECT_EQ(Parallel::teamFor(2, 2 * g), 2);
  EXPECT_EQ(Parallel::teamFor(1, big), 1);
  Parallel::recordStep(big, 0.008, 0.010);  // lost 0.5 ms of the 2.5 ms due: within the credit
  EXPECT_EQ(Parallel::teamFor(2, big), 2);
  Parallel::recordStep(big, 0.020, 0.010);  // lost 10 ms
  EXPECT_EQ(Parallel::teamFor(2, big), 1);
  EXPECT_EQ(Parallel::teamFor(2, 16 * big), 2);

  // Library calls: three counted calls on the team, then three on one
  // thread; the first call after a change of way is not counted.
  static const char gemm = 0, lu = 0;
  std::vector<int> ways;
  for (int k = 0; k < 9; ++k) {
    const int threads = Parallel::callThreads(&gemm, 1e6);
    Parallel::recordCall(&gemm, 1e6, threads, threads > 1 ? 0.004 : 0.001);
    ways.push_back(threads);
  }
  EXPECT_EQ(ways, (std::vector<int>{2, 2, 2, 2, 1, 1, 1, 1, 1}));  // then the faster way
  EXPECT_EQ(Parallel::callThreads(&lu, 1e6), 2);
  EXPECT_EQ(Parallel::callThreads(&gemm, 1e8), 2);
  Parallel::setAdaptiveLibraryCalls(false);  // reproducible BLAS bits
  EXPECT_EQ(Parallel::callThreads(&gemm, 1e6), 2);
  EXPECT_EQ(Parallel::teamFor(2, big), 1);
  Parallel::setAdaptiveLibraryCalls(true);

  Parallel::setAdaptive(false);
  EXPECT_EQ(Parallel::teamFor(2, big), 2);
  EXPECT_EQ(Parallel::callThreads(&gemm, 1e6), 2);
  Parallel::setAdaptive(true);
  Parallel::setAvailableThreads(before);
}

TEST(NestedLock, IsReentrantAndExcludesOtherThreads) {
  qvbase::NestedLock lock;
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 2000; ++i) {
      qvbase::LockHandler outer(lock);
      qvbase::LockHandler inner(lock);  // the same thread again
      ++counter;
    }
  };
  std::thread t1(work), t2(work);
  t1.join();
  t2.join();
  EXPECT_EQ(counter, 4000);
}

TEST(RunLogAndStopwatch, WarningsAreSeparatedAndAStoppedWatchStands) {
  qvutil::RunLog log;
  log.addMessage("started");
  log.addWarning("slow");
  ASSERT_EQ(log.entries().size(), 2u);
  EXPECT_FALSE(log.entries()[0].warning);
  EXPECT_EQ(log.warnings(), std::vector<std::string>{"slow"});
  qvutil::Stopwatch w;
  w.stop();
  const double t = w.seconds();
  EXPECT_GE(t, 0.0);
  EXPECT_EQ(w.seconds(), t);
}

namespace {
struct PositiveCheck : qvbase::Check {
  bool parse(std::any& v) const override {
    auto* d = std::any_cast<double>(&v);
    return d && *d > 0;
  }
  void typeDescr(std::string& s) const override { s = "A positive number."; }
};
}  // namespace

TEST(Prop, RefusedValuesKeepTheOldOne) {
  qvbase::Prop p;
  p.define("tol", std::make_shared<PositiveCheck>(), 1e-6);
  p.set("tol", 1e-8);
  EXPECT_EQ(p.getAs<double>("tol"), 1e-8);
  auto e = qvtest::expectThrowKey([&] { p.set("tol", -1.0); }, "Invalid_property_value", "tol");
  EXPECT_EQ(e.detailText(1), "A positive number.");
  qvtest::expectThrowKey([&] { p.set("tol", std::string("x")); }, "Invalid_property_value", "tol");
  qvtest::expectThrowKey([&] { p.set("maxit", 3.0); }, "Unknown_property", "maxit");
  EXPECT_EQ(p.getAs<double>("tol"), 1e-8);
}
