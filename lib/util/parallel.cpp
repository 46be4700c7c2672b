#include "qvutil/parallel.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <exception>
#include <mutex>

namespace qvbase {

namespace {

int initialMax() {
  static const int value = std::max({1, omp_get_max_threads(), omp_get_num_procs()});
  return value;
}

std::atomic<int>& current() {
  static std::atomic<int> value{std::max(1, omp_get_max_threads())};
  return value;
}

std::atomic<size_t> minWork{4096};
std::atomic<bool> adaptiveOn{true};
std::atomic<bool> adaptiveCalls{true};

std::int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// Times in nanoseconds. A size class may lose kCredit before it falls back,
// and starts again with that credit after each fall-back: the first step of
// a team whose threads have gone to sleep pays for waking them.
constexpr std::int64_t kCredit = 1'000'000;
constexpr std::int64_t kFirstFallback = 20'000'000;
constexpr std::int64_t kLastFallback = 2'000'000'000;
constexpr std::int64_t kPerLoss = 16;

// What the steps of one size class (work in [4^k, 4^(k+1))) gained and lost.
struct SizeClass {
  std::atomic<std::int64_t> balance{kCredit};  // gained − lost, capped at max(kCredit, 4·serial)
  std::atomic<std::int64_t> serialUntil{0};    // steps run on one thread until then
  std::atomic<std::int64_t> fallback{0};       // length of the last fall-back, 0 before the first
};

constexpr int kClasses = 16;
SizeClass classes[kClasses];

int classOf(size_t work) { return std::min(kClasses - 1, static_cast<int>(std::bit_width(work)) / 2); }

SizeClass& sizeClass(size_t work) { return classes[classOf(work)]; }

// Library calls: per routine and size class and per way (0 one thread, 1 the
// team), the last kSamples times per unit of work; a way's time is their
// mean: on a shared machine the calls held up by other processes belong to
// the cost of a way. The first call after a change of way is not counted: it pays
// for the change (OpenBLAS resizes its buffers, the team's threads wake up),
// which calls in a row do not. The slower way is tried again with a burst of
// kSamples + 1 calls once the time since its last use is kRetryFactor times
// what one call costs more that way (kMinRetry to kMaxRetry): about 2 % of the
// time goes to trying, and a change of the load is noticed within seconds.
constexpr int kSamples = 8;
constexpr int kFirstSamples = 3;  // before the first choice
constexpr double kRetryFactor = 200.0;
constexpr std::int64_t kMinRetry = 10'000'000;
constexpr std::int64_t kMaxRetry = 2'000'000'000;

struct Way {
  std::atomic<double> sample[kSamples] = {};  // 0: none yet
  std::atomic<unsigned> next{0};  // samples added
  std::atomic<std::int64_t> used{0};

  void add(double perUnit) {
    const unsigned k = next.fetch_add(1, std::memory_order_relaxed) % kSamples;
    sample[k].store(perUnit, std::memory_order_relaxed);
    used.store(nowNs(), std::memory_order_relaxed);
  }
  // Seconds per unit, 0 while unmeasured.
  int count() const { return static_cast<int>(std::min(next.load(std::memory_order_relaxed), unsigned(kSamples))); }
  double time() const {
    double sum = 0.0;
    for (const auto& v : sample) sum += v.load(std::memory_order_relaxed);
    return count() ? sum / count() : 0.0;
  }
  void clear() {
    for (auto& v : sample) v.store(0.0, std::memory_order_relaxed);
    next.store(0, std::memory_order_relaxed);
    used.store(0, std::memory_order_relaxed);
  }
};

struct CallRecord {
  std::atomic<std::uintptr_t> tag{0};  // routine address | (size class + 1) << 56
  Way way[2];
  std::atomic<int> lastWay{-1};  // way of the last call
  std::atomic<int> burst{0};     // calls of a retry still to make, the way in the sign: + team
};

constexpr size_t kCallRecords = 256;
CallRecord callRecords[kCallRecords];

// The record of a routine and size class (a factor of 4 in work, up to
// 2^64), made on first use; null when the table is full (then calls go as the
// library decides, unrecorded).
CallRecord* callRecord(const void* key, double work) {
  const auto size = static_cast<std::uint64_t>(std::min(work, 1.8e19));
  const std::uintptr_t tag = (reinterpret_cast<std::uintptr_t>(key) & ((std::uintptr_t(1) << 56) - 1)) |
                             (std::uintptr_t(std::bit_width(size) / 2 + 1) << 56);
  const size_t home = static_cast<size_t>((tag * 0x9E3779B97F4A7C15ull) >> 56);
  for (size_t k = 0; k < kCallRecords; ++k) {
    CallRecord& r = callRecords[(home + k) % kCallRecords];
    std::uintptr_t seen = r.tag.load(std::memory_order_acquire);
    if (seen == 0 && r.tag.compare_exchange_strong(seen, tag, std::memory_order_acq_rel)) return &r;
    if (seen == tag) return &r;
  }
  return nullptr;
}

}  // namespace

int Parallel::maxThreads() { return initialMax(); }

int Parallel::availableThreads() {
  return std::min(current().load(std::memory_order_relaxed), initialMax());
}

int Parallel::setAvailableThreads(int n) {
  n = std::clamp(n, 1, initialMax());
  current().store(n, std::memory_order_relaxed);
  return n;
}

size_t Parallel::minWorkPerThread() { return minWork.load(std::memory_order_relaxed); }

size_t Parallel::setMinWorkPerThread(size_t units) {
  units = std::max<size_t>(units, 1);
  minWork.store(units, std::memory_order_relaxed);
  return units;
}

bool Parallel::adaptive() { return adaptiveOn.load(std::memory_order_relaxed); }

void Parallel::setAdaptive(bool on) {
  for (SizeClass& c : classes) {
    c.balance.store(kCredit, std::memory_order_relaxed);
    c.serialUntil.store(0, std::memory_order_relaxed);
    c.fallback.store(0, std::memory_order_relaxed);
  }
  for (CallRecord& r : callRecords) {
    r.way[0].clear();
    r.way[1].clear();
    r.lastWay.store(-1, std::memory_order_relaxed);
    r.burst.store(0, std::memory_order_relaxed);
  }
  adaptiveOn.store(on, std::memory_order_relaxed);
}

int Parallel::teamFor(int parts, size_t work) {
  const size_t byWork = std::max<size_t>(1, work / minWorkPerThread());
  const int team = static_cast<int>(
      std::min<size_t>(std::min(parts, availableThreads()), byWork));
  if (team < 2) return 1;
  if (adaptive() &&
      nowNs() < sizeClass(work).serialUntil.load(std::memory_order_relaxed))
    return 1;
  return team;
}

// Several threads may record at once: the updates are single loads and
// stores, and a lost update only shifts a fall-back by one step.
void Parallel::recordStep(size_t work, double wallSeconds, double serialSeconds) {
  if (!adaptive()) return;
  SizeClass& c = sizeClass(work);
  const auto wall = static_cast<std::int64_t>(wallSeconds * 1e9);
  const auto serial = static_cast<std::int64_t>(serialSeconds * 1e9);
  const std::int64_t cap = std::max(kCredit, 4 * serial);
  const std::int64_t loss = wall - serial * 3 / 4;  // a team must save a quarter
  const std::int64_t balance = std::min(cap, c.balance.load(std::memory_order_relaxed) - loss);
  if (balance >= 0) {
    c.balance.store(balance, std::memory_order_relaxed);
    return;
  }
  // Lost more than gained: one thread for a while, twice as long as last time
  // when this loss comes soon after the last fall-back ended, and at least
  // kPerLoss times this step's loss, so that trying the team again costs a
  // small share of the time even when a late thread costs whole time slices.
  const std::int64_t now = nowNs();
  const std::int64_t last = c.fallback.load(std::memory_order_relaxed);
  const bool sameSpell =
      last > 0 && now - c.serialUntil.load(std::memory_order_relaxed) < 2 * last;
  const std::int64_t length = std::min(
      kLastFallback, std::max(sameSpell ? 2 * last : kFirstFallback, kPerLoss * loss));
  c.fallback.store(length, std::memory_order_relaxed);
  c.serialUntil.store(now + length, std::memory_order_relaxed);
  c.balance.store(kCredit, std::memory_order_relaxed);
}

bool Parallel::adaptiveLibraryCalls() { return adaptiveCalls.load(std::memory_order_relaxed); }

void Parallel::setAdaptiveLibraryCalls(bool on) { adaptiveCalls.store(on, std::memory_order_relaxed); }

int Parallel::callThreads(const void* key, double work) {
  const int team = availableThreads();
  if (team < 2 || !adaptive() || !adaptiveLibraryCalls()) return team;
  CallRecord* r = callRecord(key, work);
  if (!r) return team;
  if (r->way[1].count() < kFirstSamples) return team;
  if (r->way[0].count() < kFirstSamples) return 1;
  const double one = r->way[0].time(), many = r->way[1].time();
  const int burst = r->burst.load(std::memory_order_relaxed);
  if (burst != 0) {
    r->burst.store(burst > 0 ? burst - 1 : burst + 1, std::memory_order_relaxed);
    return burst > 0 ? team : 1;
  }
  const int best = many < one ? 1 : 0;
  const double extra = std::abs(many - one) * work * 1e9;
  const auto wait = static_cast<std::int64_t>(
      std::clamp(kRetryFactor * extra, double(kMinRetry), double(kMaxRetry)));
  if (nowNs() - r->way[1 - best].used.load(std::memory_order_relaxed) <= wait)
    return best == 1 ? team : 1;
  r->way[1 - best].used.store(nowNs(), std::memory_order_relaxed);  // one retry at a time
  r->burst.store(best == 1 ? -kSamples : kSamples, std::memory_order_relaxed);
  return best == 1 ? 1 : team;
}

void Parallel::recordCall(const void* key, double work, int threads, double seconds) {
  if (!adaptive() || !adaptiveLibraryCalls() || work <= 0.0) return;
  CallRecord* r = callRecord(key, work);
  if (!r) return;
  const int way = threads > 1 ? 1 : 0;
  if (r->lastWay.exchange(way, std::memory_order_relaxed) != way) return;  // paid for the change
  r->way[way].add(seconds / work);
}

LibraryCall::LibraryCall(const void* key, double work)
    : key_(key), work_(work), threads_(Parallel::callThreads(key, work)), start_(nowNs()) {}

LibraryCall::~LibraryCall() {
  Parallel::recordCall(key_, work_, threads_, static_cast<double>(nowNs() - start_) * 1e-9);
}

namespace detail {

void runParts(int parts, int team, size_t work, double extra, const PartCall* phases,
              int count) {
  if (parts <= 0 || count <= 0) return;
  if (team <= 1) {
    for (int k = 0; k < count; ++k)
      for (int part = 0; part < parts; ++part) phases[k].run(phases[k].body, part);
    return;
  }
  std::exception_ptr failure;
  std::atomic<bool> failed{false};
  std::mutex failureLock;
  std::int64_t own = 0;  // time thread 0 spent in its parts
  int threads = 1;
  const std::int64_t start = nowNs();
#pragma omp parallel num_threads(team)
  {
    const int t = omp_get_thread_num(), size = omp_get_num_threads();
    for (int k = 0; k < count; ++k) {
      const std::int64_t begin = t == 0 ? nowNs() : 0;
      if (!failed.load(std::memory_order_relaxed)) {
        try {
          for (int part = t; part < parts; part += size) phases[k].run(phases[k].body, part);
        } catch (...) {
          std::lock_guard<std::mutex> guard(failureLock);
          if (!failure) failure = std::current_exception();
          failed.store(true, std::memory_order_relaxed);
        }
      }
      if (t == 0) {
        own += nowNs() - begin;
        threads = size;
      }
      if (k + 1 < count) {
#pragma omp barrier
      }
    }
  }
  const std::int64_t wall = nowNs() - start;
  if (failure) std::rethrow_exception(failure);
  if (threads > 1) {
    const int ownParts = (parts + threads - 1) / threads;
    Parallel::recordStep(work, static_cast<double>(wall) * 1e-9,
                         static_cast<double>(own) * 1e-9 * parts / ownParts / extra);
  }
}

}  // namespace detail

}  // namespace qvbase
