// Triplet assembly of llsparse<T>: hashed duplicate detection, counts,
// cumulative sum, scatter.
//
// Contract (see llsparse.h): the triplets need not be sorted; duplicates are
// summed in input order; within a column the rows keep the order of their
// first appearance; the inputs are not modified; cost is linear in the number
// of triplets, with a hash table of llsp_hashsize(nnzIn) slots that is
// released on return.
//
// The steps:
//  1. Hash pass. Key of triplet k: col·m + row. Its first slot is key mod H;
//     while the slot holds a different (row, col) the search moves on by the
//     fixed step H2 − (key mod H2) (double hashing; H2 = H − 2, or 285349621
//     for large tables), modulo H. Meeting the same pair, k takes the ordinal
//     within its column that the pair got at its first appearance; meeting an
//     empty slot, k claims it and takes the next ordinal of its column, whose
//     count is kept in colptr[col + 1].
//  2. Cumulative sum over colptr: counts become column starts.
//  3. Scatter: triplet k goes to position colptr[col] + ordinal; the first
//     appearance of a pair writes row and value, later ones add their value.
//
// How it is made fast, without changing what it computes:
//  - A slot keeps the key and the ordinal beside the triplet index, so a probe
//    reads one 16-byte slot and never the arrays of an earlier triplet (the
//    key identifies the pair whenever m·n ≤ 2^64; otherwise the pair is
//    compared too).
//  - Both passes look kAhead triplets ahead: the first slot of triplet
//    k + kAhead and its column counter (pass 1), its column start and target
//    position (pass 3) are computed then and prefetched.
//  - Division by the fixed H and H2 uses precomputed reciprocals (fastmod.h).
//  - The table is a zero-filled anonymous mapping (empty = tag 0) on huge
//    pages where the system offers them; the ordinal array carries a "first
//    appearance" bit so that the scatter needs no unfilled-row marker.
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "qvarray/llsparse.h"
#include "qvutil/exception.h"
#include "sparse/fastmod.h"

namespace qvarray {

namespace {

constexpr const char* kModule = "sparse";
constexpr size_t kAhead = 16;  // look-ahead distance in triplets (a power of 2)
constexpr std::uint64_t kLargeStepBase = 285349621;

// Zero-filled scratch memory released on scope exit. Large blocks are
// anonymous mappings aligned to 2 MiB and advised to use huge pages: the
// table is probed at random, and small pages would make nearly every probe a
// TLB miss.
class ScratchBlock {
 public:
  explicit ScratchBlock(size_t bytes) {
    if (bytes == 0) return;
    if (bytes < kLarge) {
      ptr_ = std::calloc(bytes, 1);
      if (!ptr_) throw std::bad_alloc();
      return;
    }
    mapped_ = bytes + kHuge;
    void* p = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    base_ = p;
    ptr_ = reinterpret_cast<void*>((reinterpret_cast<std::uintptr_t>(p) + kHuge - 1) &
                                   ~std::uintptr_t{kHuge - 1});
    madvise(ptr_, bytes, MADV_HUGEPAGE);  // advisory; failure is harmless
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
  static constexpr size_t kLarge = size_t{4} << 20;
  static constexpr size_t kHuge = size_t{2} << 20;
  void* ptr_ = nullptr;
  void* base_ = nullptr;
  size_t mapped_ = 0;
};

struct Slot {
  std::uint64_t key;      // col·m + row (mod 2^64) of the pair held here
  std::uint32_t ordinal;  // the pair's position within its column
  std::uint32_t tag;      // index + 1 of the triplet that claimed the slot; 0 = empty
};
static_assert(sizeof(Slot) == 16);

[[noreturn]] void throwIndexOutOfRange() {
  QV_THROW(kModule, "Internal_error_sparse", "Triplet index out of range.");
}

// Pass 1. Fills ord[k] (with the first-appearance bit `first`) and the column
// counts count[col + 1]. Wrap: keys may coincide for different pairs (m·n
// exceeds 2^64), so a key match is confirmed on the pairs.
template <bool Wrap, class Ord>
void hashPass(const size_t* rows, const size_t* cols, size_t nnzIn, size_t m, size_t n,
              size_t* count, Ord* ord, Slot* table, std::uint64_t H, std::uint64_t H2) {
  const detail::FastDivisor modH(H), modH2(H2);
  const Ord first = Ord(1) << (8 * sizeof(Ord) - 1);
  std::uint64_t aheadKey[kAhead];
  std::uint64_t aheadSlot[kAhead];

  // Computes key and first slot of triplet kk and prefetches what its probe
  // will touch. Every triplet passes here before it is probed.
  auto lookAhead = [&](size_t kk) {
    const size_t r = rows[kk], c = cols[kk];
    if (r >= m || c >= n) throwIndexOutOfRange();
    const std::uint64_t key = std::uint64_t(c) * m + r;
    const std::uint64_t s = modH.remainder(key);
    aheadKey[kk % kAhead] = key;
    aheadSlot[kk % kAhead] = s;
    __builtin_prefetch(table + s, 1, 1);
    __builtin_prefetch(count + c + 1, 1, 1);
  };
  auto samePair = [&](const Slot* slot, std::uint64_t key, size_t k) {
    if constexpr (Wrap) {
      const size_t e = slot->tag - 1;
      return slot->key == key && rows[e] == rows[k] && cols[e] == cols[k];
    } else {
      return slot->key == key;
    }
  };

  const size_t warm = std::min(kAhead, nnzIn);
  for (size_t kk = 0; kk < warm; ++kk) lookAhead(kk);
  for (size_t k = 0; k < nnzIn; ++k) {
    const std::uint64_t key = aheadKey[k % kAhead];
    std::uint64_t s = aheadSlot[k % kAhead];
    if (k + kAhead < nnzIn) lookAhead(k + kAhead);
    Slot* slot = table + s;
    if (slot->tag != 0 && !samePair(slot, key, k)) {
      const std::uint64_t step = H2 - modH2.remainder(key);  // 1 … H2, never a multiple of H
      do {
        s += step;
        if (s >= H) s -= H;
        slot = table + s;
      } while (slot->tag != 0 && !samePair(slot, key, k));
    }
    if (slot->tag == 0) {
      const size_t o = count[cols[k] + 1]++;
      slot->key = key;
      slot->ordinal = static_cast<std::uint32_t>(o);
      slot->tag = static_cast<std::uint32_t>(k + 1);
      ord[k] = static_cast<Ord>(o) | first;
    } else {
      ord[k] = slot->ordinal;
    }
  }
}

// Pass 3. colptr holds column starts; row and value have nnz entries.
template <class T, class Ord>
void scatterPass(const size_t* rows, const size_t* cols, const T* values, size_t valueStride,
                 size_t nnzIn, const size_t* colptr, const Ord* ord, size_t* row, T* value) {
  const Ord first = Ord(1) << (8 * sizeof(Ord) - 1);
  size_t aheadPos[kAhead];
  auto lookAhead = [&](size_t kk) {
    const size_t p = colptr[cols[kk]] + static_cast<size_t>(ord[kk] & ~first);
    aheadPos[kk % kAhead] = p;
    __builtin_prefetch(value + p, 1, 1);
    __builtin_prefetch(row + p, 1, 1);
  };
  const size_t warm = std::min(kAhead, nnzIn);
  for (size_t kk = 0; kk < warm; ++kk) lookAhead(kk);
  for (size_t k = 0; k < nnzIn; ++k) {
    const size_t p = aheadPos[k % kAhead];
    if (k + 2 * kAhead < nnzIn) __builtin_prefetch(colptr + cols[k + 2 * kAhead], 0, 1);
    if (k + kAhead < nnzIn) lookAhead(k + kAhead);
    const T v = values[k * valueStride];
    if (ord[k] & first) {
      row[p] = rows[k];
      value[p] = v;
    } else {
      value[p] += v;
    }
  }
}

}  // namespace

template <class T>
void llsparse<T>::assembleTriplets(const size_t* rows, const size_t* cols, const T* values,
                                   size_t nnzIn, size_t mIn, size_t nIn, bool oneValue) {
  if (nnzIn > kMaxHashSize) QV_THROW(kModule, "Size_input_vector_too_large");
  Array<size_t, 1> cp(nIn + 1);
  cp.fill(0);
  const bool empty = mIn == 0 || nIn == 0 || nnzIn == 0;
  size_t count = 0;
  std::shared_ptr<Array<size_t, 1>> rowArr;
  std::shared_ptr<Array<T, 1>> valArr;

  if (!empty) {
    const std::uint64_t H = llsp_hashsize(nnzIn);
    const std::uint64_t H2 = H < 285349622 ? H - 2 : kLargeStepBase;
    size_t mn;
    const bool wrap = __builtin_mul_overflow(mIn, nIn, &mn);
    const bool narrow = nnzIn < (size_t{1} << 31);  // ordinal and its flag fit 32 bits
    ScratchBlock table(H * sizeof(Slot));
    ScratchBlock ordinals(nnzIn * (narrow ? sizeof(std::uint32_t) : sizeof(std::uint64_t)));
    Slot* slots = table.as<Slot>();

    if (narrow) {
      auto* ord = ordinals.as<std::uint32_t>();
      if (wrap)
        hashPass<true>(rows, cols, nnzIn, mIn, nIn, cp.data, ord, slots, H, H2);
      else
        hashPass<false>(rows, cols, nnzIn, mIn, nIn, cp.data, ord, slots, H, H2);
    } else {
      auto* ord = ordinals.as<std::uint64_t>();
      if (wrap)
        hashPass<true>(rows, cols, nnzIn, mIn, nIn, cp.data, ord, slots, H, H2);
      else
        hashPass<false>(rows, cols, nnzIn, mIn, nIn, cp.data, ord, slots, H, H2);
    }

    for (size_t j = 0; j < nIn; ++j) cp[j + 1] += cp[j];
    count = cp[nIn];

    rowArr = std::make_shared<Array<size_t, 1>>(count);
    valArr = std::make_shared<Array<T, 1>>(count);
    const size_t stride = oneValue ? 0 : 1;
    if (narrow)
      scatterPass(rows, cols, values, stride, nnzIn, cp.data, ordinals.as<std::uint32_t>(),
                  rowArr->data, valArr->data);
    else
      scatterPass(rows, cols, values, stride, nnzIn, cp.data, ordinals.as<std::uint64_t>(),
                  rowArr->data, valArr->data);
  }

  // Commit: nothing above touched *this.
  rowData = std::move(rowArr);
  valueData = std::move(valArr);
  row = rowData ? rowData->data : nullptr;
  value = valueData ? valueData->data : nullptr;
  colptr = std::move(cp);
  m = mIn;
  n = nIn;
  nnz = count;
  nzmax = count;
  form = FormUnordered;
  diag = Array<size_t, 1>();
  newVersion();
}

template void llsparse<double>::assembleTriplets(const size_t*, const size_t*, const double*,
                                                 size_t, size_t, size_t, bool);
template void llsparse<std::complex<double>>::assembleTriplets(const size_t*, const size_t*,
                                                               const std::complex<double>*,
                                                               size_t, size_t, size_t, bool);

}  // namespace qvarray
