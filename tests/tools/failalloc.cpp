// failalloc: a preloaded library (LD_PRELOAD) that makes allocations fail on
// purpose, to check that a program fails cleanly when memory runs out.
//
// It replaces every form of operator new and counts the calls made after
// main() starts (static initialisation is not counted):
//   QV_FAILALLOC=N       the N-th allocation fails (N >= 1); 0 only counts
//   QV_FAILALLOC_FROM=1  with QV_FAILALLOC: the N-th and every later one fail
//   QV_FAILALLOC_LOG=F   appends to file F "failed N" at the first failure
//                        of a throwing form, "declined N" at the first of a
//                        nothrow form, and "count C" when main() returns
// A failure is what the allocator does when memory is exhausted: the
// throwing forms raise std::bad_alloc, the nothrow forms return null (whose
// callers may well carry on: std::stable_sort then sorts in place). The
// count is per process image: a program that re-executes itself starts again
// from zero (the environment carries the settings).
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> gArmed{false};
std::atomic<long> gCount{0};
long gFailAt = 0;      // 0: never
bool gFailFrom = false;
const char* gLog = nullptr;

// Appends one line to the log with plain system calls (no allocation).
void logLine(const char* what, long n) {
  if (!gLog) return;
  char line[64];
  const int len = std::snprintf(line, sizeof line, "%s %ld\n", what, n);
  const int fd = open(gLog, O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (fd < 0) return;
  if (write(fd, line, static_cast<size_t>(len)) < 0) {
  }
  close(fd);
}

std::atomic<bool> gLoggedThrowing{false}, gLoggedNothrow{false};

// True when this allocation is to fail; the first failure of each kind is
// logged.
bool failNow(bool nothrow) {
  if (!gArmed.load(std::memory_order_relaxed)) return false;
  const long n = gCount.fetch_add(1, std::memory_order_relaxed) + 1;
  if (gFailAt <= 0 || n < gFailAt || (n > gFailAt && !gFailFrom)) return false;
  if (!(nothrow ? gLoggedNothrow : gLoggedThrowing).exchange(true))
    logLine(nothrow ? "declined" : "failed", n);
  return true;
}

void* allocate(std::size_t size, bool nothrow = false) {
  if (failNow(nothrow)) return nullptr;
  return std::malloc(size ? size : 1);
}

void* allocateAligned(std::size_t size, std::align_val_t align, bool nothrow = false) {
  if (failNow(nothrow)) return nullptr;
  const auto a = static_cast<std::size_t>(align);
  return std::aligned_alloc(a, (size + a - 1) / a * a);
}

void* orThrow(void* p) {
  if (!p) throw std::bad_alloc();
  return p;
}

using MainFn = int (*)(int, char**, char**);
MainFn gMain = nullptr;

int countedMain(int argc, char** argv, char** envp) {
  if (const char* n = std::getenv("QV_FAILALLOC")) gFailAt = std::atol(n);
  gFailFrom = std::getenv("QV_FAILALLOC_FROM") != nullptr;
  gLog = std::getenv("QV_FAILALLOC_LOG");
  gArmed.store(true);
  const int status = gMain(argc, argv, envp);
  gArmed.store(false);  // what runs after main() is not the program's own code
  logLine("count", gCount.load());
  return status;
}

}  // namespace

// The C library starts the program through __libc_start_main; wrapping it
// lets the shim arm itself exactly when main() begins.
extern "C" int __libc_start_main(MainFn main, int argc, char** argv, void (*init)(),
                                 void (*fini)(), void (*rtldFini)(), void* stackEnd) {
  using Start = int (*)(MainFn, int, char**, void (*)(), void (*)(), void (*)(), void*);
  const auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
  gMain = main;
  return start(countedMain, argc, argv, init, fini, rtldFini, stackEnd);
}

void* operator new(std::size_t size) { return orThrow(allocate(size)); }
void* operator new[](std::size_t size) { return orThrow(allocate(size)); }
void* operator new(std::size_t size, std::align_val_t a) { return orThrow(allocateAligned(size, a)); }
void* operator new[](std::size_t size, std::align_val_t a) {
  return orThrow(allocateAligned(size, a));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, true); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, true);
}
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocateAligned(size, a, true);
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return allocateAligned(size, a, true);
}

// Memory from the forms above comes from malloc / aligned_alloc.
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
  std::free(p);
}
