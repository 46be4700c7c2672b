#pragma once
// The thread count that the libraries' OpenMP regions use, and the team that
// one parallel step of a kernel runs on.
//
// maxThreads() is fixed at start-up (the larger of OpenMP's maximum and the
// processor count) and bounds every thread count ever used, so per-thread
// slot arrays sized with MAXAVAILABLETHREADS are indexed safely by
// omp_get_thread_num(). availableThreads() is settable within 1..maxThreads();
// by default it is OpenMP's maximum, the processors this process may run on.
//
// Parts and teams. A parallel kernel cuts one step (a product, a sweep) into
// parts, as many as availableThreads(), each writing only its own outputs, and
// runs them on a Team of at most that many threads; thread t runs parts t,
// t + team, …, and with a team of one the calling thread runs them all in
// order, without a parallel region. The parts fix the result, so it never
// depends on the team. The team is smaller than the parts when
// - the step is small: a step of w units of work (about one stored entry or
//   vector element each) starts at most w / minWorkPerThread() threads;
// - threads come late (adaptive(), on by default). OpenMP threads spin while
//   they wait for the next region; on a machine whose cores are also taken by
//   other processes a spinning thread loses its core for a whole time slice,
//   and a step that needs it waits as long: milliseconds, against tens of
//   microseconds of work. So every step run on several threads compares its
//   duration with 3/4 of the time one thread would have taken (its calling
//   thread's share times the parts): a team must pay for the cores it takes
//   from the other processes, and a busy core also slows the calling thread's
//   share, which makes that estimate high. Steps of about the same size (a
//   factor of 4) share a balance of the time gained and lost; when it turns
//   negative they run
//   on the calling thread for a while: 20 ms at first or 16 times the loss of
//   the step that turned it, doubling while the losses go on, up to 2 s; then
//   the team is tried again.
// Calls into libraries that run their own teams (BLAS, LAPACK) are watched
// from outside by LibraryCall.
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "qvutil/export.h"

namespace qvbase {

class QVUTIL_API Parallel {
 public:
  static int availableThreads();
  static int maxThreads();
  /// Sets the thread count, clamped to 1..maxThreads(); returns the value set.
  static int setAvailableThreads(int n);

  /// Work units below which a step does not start another thread (default 4096).
  static size_t minWorkPerThread();
  /// Sets it (at least 1); returns the value set.
  static size_t setMinWorkPerThread(size_t units);

  /// Whether steps fall back to the calling thread while threads come late.
  static bool adaptive();
  /// Turns the fallback on or off (off: the team is limited by work only) and
  /// forgets what was measured so far.
  static void setAdaptive(bool on);

  /// Threads to start now for a step of `work` units cut into `parts` parts.
  static int teamFor(int parts, size_t work);
  /// Tells how a step of `work` units went on several threads: it took
  /// `wallSeconds`, and one thread would have taken about `serialSeconds`.
  static void recordStep(size_t work, double wallSeconds, double serialSeconds);

  /// Whether calls into libraries that run their own threads (BLAS, LAPACK)
  /// fall back to one thread while their team loses time (LibraryCall; on by
  /// default). Unlike the library's own kernels, such a library may round
  /// differently on another number of threads (OpenBLAS's dgemm does at some
  /// sizes), so its results may then differ in the last bits with the load
  /// of the machine; off, they use availableThreads() threads always.
  static bool adaptiveLibraryCalls();
  static void setAdaptiveLibraryCalls(bool on);

  /// Threads to let a library that runs its own threads (BLAS, LAPACK) use
  /// for a call of routine `key` (any address that names it for the life of
  /// the process) on `work` units: 1 or availableThreads() (see LibraryCall).
  static int callThreads(const void* key, double work);
  /// Tells that such a call took `seconds` on `threads` threads.
  static void recordCall(const void* key, double work, int threads, double seconds);
};

/// A call into a library that runs its own threads, which the kernels cannot
/// watch from inside: the calls of one routine and size class (a factor of 4
/// in work) keep the recent times per unit of work on one thread and on the
/// team (the mean of the last eight calls) and go the faster
/// way. The first call after a change of way is not counted (it pays for the
/// change); the slower way is tried again with a few calls in a row after 200
/// times what one call costs more that way (at least 10 ms, at most 2 s after
/// its last use). The first calls use the
/// team, the next ones one thread. threads() is what the caller lets the
/// library use; the destructor records the call's time.
class QVUTIL_API LibraryCall {
 public:
  LibraryCall(const void* key, double work);
  ~LibraryCall();
  LibraryCall(const LibraryCall&) = delete;
  LibraryCall& operator=(const LibraryCall&) = delete;
  int threads() const { return threads_; }

 private:
  const void* key_;
  double work_;
  int threads_;
  long long start_;
};

namespace detail {
struct PartCall {
  void (*run)(void* body, int part);
  void* body;
};
QVUTIL_API void runParts(int parts, int threads, size_t work, double extra, const PartCall* phases,
                         int count);
}  // namespace detail

/// One parallel step of a kernel: `parts` parts, `work` units, and the team
/// Parallel::teamFor chose for them when the step was made. `extra` is the
/// work of all parts together over the work of the kernel's serial form
/// (2 when the parts read the matrix twice), for the time one thread would
/// have taken.
class Team {
 public:
  Team(int parts, size_t work, double extra = 1.0)
      : parts_(parts), work_(work), extra_(extra), threads_(Parallel::teamFor(parts, work)) {}
  /// The threads run() will start; 1 means the calling thread only, and a
  /// kernel whose serial form gives the same result may run that instead.
  int threads() const { return threads_; }

  /// Runs phase(part) for every part in [0, parts) of each phase in turn; a
  /// phase starts when every part of the one before has finished. The parts
  /// of a phase must not write what other parts of it read or write. The
  /// first exception thrown by a part is rethrown once all threads have
  /// finished (the remaining parts are skipped).
  template <class... Phase>
  void run(Phase&&... phases) const {
    const detail::PartCall calls[] = {detail::PartCall{
        [](void* body, int part) { (*static_cast<std::remove_reference_t<Phase>*>(body))(part); },
        const_cast<void*>(static_cast<const void*>(std::addressof(phases)))}...};
    detail::runParts(parts_, threads_, work_, extra_, calls, static_cast<int>(sizeof...(Phase)));
  }

 private:
  int parts_;
  size_t work_;
  double extra_;
  int threads_;
};

/// Team(parts, work).run(phases…).
template <class... Phase>
void runParts(int parts, size_t work, Phase&&... phases) {
  Team(parts, work).run(std::forward<Phase>(phases)...);
}

}  // namespace qvbase

#define AVAILABLETHREADS() (::qvbase::Parallel::availableThreads())
#define MAXAVAILABLETHREADS (::qvbase::Parallel::maxThreads())
