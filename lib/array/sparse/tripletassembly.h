#pragma once
// What the two ways of triplet assembly share (tripletassembly.cpp, the
// counting way and the choice between the ways; triplethashed.cpp, the hashed
// way): scratch memory, prefetching and the range error.
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "qvarray/array.h"
#include "qvutil/errors.h"

namespace qvarray::tripletdetail {

inline constexpr size_t kAhead = 64;  // look-ahead distance in triplets (a power of 2)

[[noreturn]] inline void throwIndexOutOfRange() {
  QV_RAISE(sparse, Internal_error_sparse, "Triplet index out of range.");
}

// Scratch memory released on scope exit, zero-filled on request (mapped
// blocks always are). Large blocks are anonymous mappings aligned to 2 MiB on
// huge pages: they are accessed at random, and small pages would make nearly
// every access a TLB miss and every first touch a page fault.
class ScratchBlock {
 public:
  /// Blocks from this size on are mapped; smaller ones come from the heap,
  /// where they are usually reused from call to call without page faults.
  static constexpr size_t kLarge = size_t{32} << 20;

  ScratchBlock(size_t bytes, bool zeroed) {
    if (bytes == 0) return;
    if (bytes < kLarge) {
      ptr_ = zeroed ? std::calloc(bytes, 1) : std::malloc(bytes);
      if (!ptr_) throw std::bad_alloc();
      return;
    }
    mapped_ = bytes + kHuge;
    void* p = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    base_ = p;
    ptr_ = reinterpret_cast<void*>((reinterpret_cast<std::uintptr_t>(p) + kHuge - 1) &
                                   ~std::uintptr_t{kHuge - 1});
    // Advice only; failures are harmless. Faulting the pages in up front, in
    // order, is much cheaper than faulting them at random during the passes.
    madvise(ptr_, bytes, MADV_HUGEPAGE);
    madvise(ptr_, bytes, MADV_POPULATE_WRITE);
  }
  ~ScratchBlock() {
    if (base_)
      munmap(base_, mapped_);
    else
      std::free(ptr_);
  }
  ScratchBlock(const ScratchBlock&) = delete;
  ScratchBlock& operator=(const ScratchBlock&) = delete;

  template <class U>
  U* as() const {
    return static_cast<U*>(ptr_);
  }

 private:
  static constexpr size_t kHuge = size_t{2} << 20;
  void* ptr_ = nullptr;
  void* base_ = nullptr;
  size_t mapped_ = 0;
};

// Asks for huge pages on the 2 MiB-aligned part of a fresh block that is
// about to be written at random (advice only: contents are not affected).
inline void adviseHugePages(void* p, size_t bytes) {
  constexpr std::uintptr_t kHuge = std::uintptr_t{2} << 20;
  if (bytes < ScratchBlock::kLarge) return;  // smaller blocks come from the heap
  const std::uintptr_t b = (reinterpret_cast<std::uintptr_t>(p) + kHuge - 1) & ~(kHuge - 1);
  const std::uintptr_t e = (reinterpret_cast<std::uintptr_t>(p) + bytes) & ~(kHuge - 1);
  if (e > b) madvise(reinterpret_cast<void*>(b), e - b, MADV_HUGEPAGE);
}

// Prefetch of the cache line at p. An asm statement rather than the
// compiler's builtin, which GCC drops in some loops here (prefetches whose
// address depends on a value loaded from a look-ahead ring).
inline void prefetch(const void* p) {
#if defined(__x86_64__)
  asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(p)));
#else
  __builtin_prefetch(p, 1, 3);
#endif
}

/// Scratch bytes the hashed way takes for N triplets of an m×n matrix.
size_t hashedScratchBytes(size_t N, size_t m, size_t n);

/// The hashed way, for N ≥ 1 triplets of an m×n matrix, m, n ≥ 1: colptr
/// (n + 1 zeros on entry) becomes the column starts; rowArr and valArr
/// receive arrays of exactly colptr[n] entries. Triplet k has the value
/// values[k·stride].
template <class T>
void assembleHashed(const size_t* rows, const size_t* cols, const T* values, size_t stride,
                    size_t N, size_t m, size_t n, size_t* colptr,
                    std::shared_ptr<Array<size_t, 1>>& rowArr, std::shared_ptr<Array<T, 1>>& valArr);

}  // namespace qvarray::tripletdetail
