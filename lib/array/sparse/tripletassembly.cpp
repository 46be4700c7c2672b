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
// How it is made fast, without changing what it computes (the same probe
// sequences, the same table contents, the same result bit for bit):
//  - A slot keeps the key and the ordinal together (beside the triplet index
//    in the wide layout), so a probe reads one slot and never the arrays of
//    an earlier triplet. When key + 1 and the largest possible ordinal fit one
//    64-bit word, slots are 8 bytes instead of 16.
//  - Pass 1 is a software pipeline: 2·kAhead triplets ahead the key and first
//    slot are computed and the slot and the column counter prefetched; kAhead
//    triplets ahead the first slot is looked at and, if another key holds it,
//    the next kChainPrefetch slots of its probe sequence are prefetched too.
//    (The probe step correlates with the first slot, so collisions tend to go
//    on for several slots.) Pass 3 prefetches column starts and targets the
//    same way.
//  - Division by the fixed H and H2 uses precomputed reciprocals (fastmod.h).
//  - Scratch memory below 32 MiB comes from the heap, where it is reused from
//    call to call; larger blocks are mappings on huge pages, faulted in up
//    front in order rather than at random during the passes.
//  - The ordinal array carries a "first appearance" bit, so the scatter needs
//    no unfilled-row marker, and the scatter's first-or-repeat choice is a
//    bit blend rather than an unpredictable branch.
#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "qvarray/sparse/llsparse.h"
#include "qvutil/errors.h"
#include "sparse/fastmod.h"

namespace qvarray {

namespace {

constexpr size_t kAhead = 64;  // look-ahead distance in triplets (a power of 2)
constexpr int kChainPrefetch = 6;  // slots of a probe sequence prefetched after a collision
constexpr std::uint64_t kLargeStepBase = 285349621;

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
void adviseHugePages(void* p, size_t bytes) {
  constexpr std::uintptr_t kHuge = std::uintptr_t{2} << 20;
  if (bytes < ScratchBlock::kLarge) return;  // smaller blocks come from the heap
  const std::uintptr_t b = (reinterpret_cast<std::uintptr_t>(p) + kHuge - 1) & ~(kHuge - 1);
  const std::uintptr_t e = (reinterpret_cast<std::uintptr_t>(p) + bytes) & ~(kHuge - 1);
  if (e > b) madvise(reinterpret_cast<void*>(b), e - b, MADV_HUGEPAGE);
}

// The hash table's slot layouts. A probe compares a slot with the triplet's
// token, a form of its key prepared once per triplet.
//
// 16-byte slots, for any sizes: the key, the ordinal and the index + 1 of
// the triplet that claimed the slot (0 = empty). When m·n exceeds 2^64 keys
// can coincide for different pairs, and a key match is confirmed on the
// pairs of the input.
struct WideTable {
  struct Slot {
    std::uint64_t key;
    std::uint32_t ordinal;
    std::uint32_t tag;
  };
  static_assert(sizeof(Slot) == 16);

  Slot* slots;
  bool wrap;
  const size_t* rows;
  const size_t* cols;

  static size_t bytes(std::uint64_t H) { return H * sizeof(Slot); }
  static std::uint64_t token(std::uint64_t key) { return key; }
  static std::uint64_t keyOf(std::uint64_t token) { return token; }
  static bool empty(const Slot& s) { return s.tag == 0; }
  static bool sameKey(const Slot& s, std::uint64_t token) { return s.key == token; }
  bool holds(const Slot& s, std::uint64_t token, size_t k) const {
    if (s.key != token) return false;
    if (!wrap) return true;
    const size_t e = s.tag - 1;
    return rows[e] == rows[k] && cols[e] == cols[k];
  }
  static std::uint64_t ordinal(const Slot& s) { return s.ordinal; }
  static Slot make(std::uint64_t token, std::uint64_t ord, size_t k) {
    return Slot{token, static_cast<std::uint32_t>(ord), static_cast<std::uint32_t>(k + 1)};
  }
};

// 8-byte slots holding ((key + 1) << shift) | ordinal (0 = empty), used when
// the keys are unique (m·n ≤ 2^64) and key + 1 and the largest possible
// ordinal fit 64 bits together: half the memory of the wide slots. The token
// is (key + 1) << shift, so that a comparison is a mask and a compare.
struct PackedTable {
  using Slot = std::uint64_t;

  Slot* slots;
  unsigned shift;
  std::uint64_t mask;  // the ordinal bits

  static size_t bytes(std::uint64_t H) { return H * sizeof(Slot); }
  std::uint64_t token(std::uint64_t key) const { return (key + 1) << shift; }
  std::uint64_t keyOf(std::uint64_t token) const { return (token >> shift) - 1; }
  static bool empty(Slot s) { return s == 0; }
  bool sameKey(Slot s, std::uint64_t token) const { return (s & ~mask) == token; }
  bool holds(Slot s, std::uint64_t token, size_t) const { return sameKey(s, token); }
  std::uint64_t ordinal(Slot s) const { return s & mask; }
  static Slot make(std::uint64_t token, std::uint64_t ord, size_t) { return token | ord; }
};

// Prefetch of the cache line at p. An asm statement rather than the
// compiler's builtin, which GCC drops in some loops here (prefetches whose
// address depends on a value loaded from the look-ahead ring).
inline void prefetch(const void* p) {
#if defined(__x86_64__)
  asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(p)));
#else
  __builtin_prefetch(p, 1, 3);
#endif
}

[[noreturn]] void throwIndexOutOfRange() {
  QV_RAISE(sparse, Internal_error_sparse, "Triplet index out of range.");
}

// Pass 1. Fills ord[k] (with the first-appearance bit `first`) and the column
// counts count[col + 1].
//
// A three-stage pipeline over the triplets (see the top of the file). The
// look at the first slot kAhead triplets ahead is only a hint for the
// prefetches: triplets in between may still claim that slot, which the probe
// itself handles as usual.
template <class Table, class Ord>
void hashPass(const size_t* rows, const size_t* cols, size_t nnzIn, size_t m, size_t n,
              size_t* count, Ord* ord, const Table tab, std::uint64_t H, std::uint64_t H2) {
  const Table table = tab;  // a local copy: its fields cannot alias the stores below
  const detail::FastDivisor modH(H), modH2(H2);
  const Ord first = Ord(1) << (8 * sizeof(Ord) - 1);
  constexpr size_t kRing = 2 * kAhead;
  std::uint64_t ringToken[kRing];
  std::uint64_t ringSlot[kRing];
  auto* const slots = table.slots;

  // Every triplet passes here before it is probed.
  auto stageKey = [&](size_t kk) {
    const size_t r = rows[kk], c = cols[kk];
    if ((r >= m) | (c >= n)) throwIndexOutOfRange();
    const std::uint64_t key = std::uint64_t(c) * m + r;
    const std::uint64_t s = modH.remainder(key);
    ringToken[kk % kRing] = table.token(key);
    ringSlot[kk % kRing] = s;
    prefetch(slots + s);
    prefetch(count + c + 1);
  };
  auto stageSlot = [&](size_t kk) {
    const std::uint64_t token = ringToken[kk % kRing];
    std::uint64_t s = ringSlot[kk % kRing];
    if (Table::empty(slots[s]) || table.sameKey(slots[s], token)) return;
    const std::uint64_t step = H2 - modH2.remainder(table.keyOf(token));
    for (int d = 0; d < kChainPrefetch; ++d) {
      s += step;
      if (s >= H) s -= H;
      prefetch(slots + s);
    }
  };

  for (size_t kk = 0; kk < std::min(kRing, nnzIn); ++kk) stageKey(kk);
  for (size_t kk = 0; kk < std::min(kAhead, nnzIn); ++kk) stageSlot(kk);
  for (size_t k = 0; k < nnzIn; ++k) {
    const std::uint64_t token = ringToken[k % kRing];
    std::uint64_t s = ringSlot[k % kRing];
    if (k + kRing < nnzIn) stageKey(k + kRing);
    if (k + kAhead < nnzIn) stageSlot(k + kAhead);
    if (!Table::empty(slots[s]) && !table.holds(slots[s], token, k)) {
      // 1 … H2, never a multiple of the prime H: the sequence visits every slot.
      const std::uint64_t step = H2 - modH2.remainder(table.keyOf(token));
      do {
        s += step;
        if (s >= H) s -= H;
      } while (!Table::empty(slots[s]) && !table.holds(slots[s], token, k));
    }
    if (Table::empty(slots[s])) {
      const size_t o = count[cols[k] + 1]++;
      slots[s] = table.make(token, o, k);
      ord[k] = static_cast<Ord>(o) | first;
    } else {
      ord[k] = static_cast<Ord>(table.ordinal(slots[s]));
    }
  }
}

// a when c, else b, bit for bit and without a branch (the compiler turns
// a plain conditional around a floating-point addition into a jump).
inline double select(bool c, double a, double b) {
  const std::uint64_t mask = std::uint64_t{0} - c;
  return std::bit_cast<double>((std::bit_cast<std::uint64_t>(a) & mask) |
                               (std::bit_cast<std::uint64_t>(b) & ~mask));
}
inline std::complex<double> select(bool c, const std::complex<double>& a,
                                   const std::complex<double>& b) {
  return {select(c, a.real(), b.real()), select(c, a.imag(), b.imag())};
}

// The scatter target: the output arrays.
template <class T>
struct DirectOut {
  size_t* row;
  T* value;
  void prefetchAt(size_t p) const {
    prefetch(row + p);
    prefetch(value + p);
  }
  // A first appearance writes row and value, a repeat adds its value (in
  // input order). Written without a branch: the two alternate at random. A
  // repeat has the same row, so the row is simply written again.
  void put(size_t p, size_t r, const T& v, bool fresh) const {
    row[p] = r;
    value[p] = select(fresh, v, value[p] + v);
  }
};

// Pass 3. colptr holds column starts. Triplet k goes to position
// colptr[col] + ordinal; the column start and the target of the triplet
// kAhead ahead are looked up and prefetched in turn.
template <class Out, class T, class Ord>
void scatterPass(const size_t* rows, const size_t* cols, const T* values, size_t valueStride,
                 size_t nnzIn, const size_t* colptr, const Ord* ord, const Out& out) {
  const Ord first = Ord(1) << (8 * sizeof(Ord) - 1);
  size_t aheadPos[kAhead];
  auto lookAhead = [&](size_t kk) {
    const size_t p = colptr[cols[kk]] + static_cast<size_t>(ord[kk] & ~first);
    aheadPos[kk % kAhead] = p;
    out.prefetchAt(p);
  };
  for (size_t kk = 0; kk < std::min(kAhead, nnzIn); ++kk) lookAhead(kk);
  for (size_t k = 0; k < nnzIn; ++k) {
    const size_t p = aheadPos[k % kAhead];
    if (k + 2 * kAhead < nnzIn) prefetch(colptr + cols[k + 2 * kAhead]);
    if (k + kAhead < nnzIn) lookAhead(k + kAhead);
    out.put(p, rows[k], values[k * valueStride], (ord[k] & first) != 0);
  }
}

}  // namespace

template <class T>
void llsparse<T>::assembleTriplets(const size_t* rows, const size_t* cols, const T* values,
                                   size_t nnzIn, size_t mIn, size_t nIn, bool oneValue) {
  if (nnzIn > kMaxHashSize) QV_RAISE(sparse, Size_input_vector_too_large);
  Array<size_t, 1> cp(nIn + 1);
  cp.fill(0);
  size_t count = 0;
  std::shared_ptr<Array<size_t, 1>> rowArr;
  std::shared_ptr<Array<T, 1>> valArr;

  if (mIn != 0 && nIn != 0 && nnzIn != 0) {
    const std::uint64_t H = llsp_hashsize(nnzIn);
    const std::uint64_t H2 = H < 285349622 ? H - 2 : kLargeStepBase;
    size_t mn;
    const bool wrap = __builtin_mul_overflow(mIn, nIn, &mn);
    const bool narrow = nnzIn < (size_t{1} << 31);  // an ordinal and its flag fit 32 bits
    // Packed slots when key + 1 (< 2^keyBits) and the largest ordinal
    // (< min(m, nnzIn)) fit one word together.
    const unsigned keyBits = wrap ? 64 : static_cast<unsigned>(std::bit_width(mn));
    const unsigned ordBits =
        static_cast<unsigned>(std::bit_width(std::min<size_t>(mIn, nnzIn) - 1));
    const bool packed = !wrap && keyBits + ordBits <= 64;
    ScratchBlock table(packed ? PackedTable::bytes(H) : WideTable::bytes(H), true);
    ScratchBlock ordinals(nnzIn * (narrow ? sizeof(std::uint32_t) : sizeof(std::uint64_t)),
                          false);

    // Pass 1.
    auto hash = [&](const auto& tab) {
      if (narrow)
        hashPass(rows, cols, nnzIn, mIn, nIn, cp.data, ordinals.as<std::uint32_t>(), tab, H, H2);
      else
        hashPass(rows, cols, nnzIn, mIn, nIn, cp.data, ordinals.as<std::uint64_t>(), tab, H, H2);
    };
    if (packed)
      hash(PackedTable{table.as<PackedTable::Slot>(), ordBits,
                       (std::uint64_t{1} << ordBits) - 1});
    else
      hash(WideTable{table.as<WideTable::Slot>(), wrap, rows, cols});

    // Pass 2.
    for (size_t j = 0; j < nIn; ++j) cp[j + 1] += cp[j];
    count = cp[nIn];

    // Pass 3.
    rowArr = std::make_shared<Array<size_t, 1>>(count);
    valArr = std::make_shared<Array<T, 1>>(count);
    adviseHugePages(rowArr->data, count * sizeof(size_t));
    adviseHugePages(valArr->data, count * sizeof(T));
    if constexpr (std::is_same_v<T, double>) valArr->fill(0.0);  // read by the blend below
    const size_t stride = oneValue ? 0 : 1;
    auto scatter = [&](const auto& out) {
      if (narrow)
        scatterPass(rows, cols, values, stride, nnzIn, cp.data, ordinals.as<std::uint32_t>(), out);
      else
        scatterPass(rows, cols, values, stride, nnzIn, cp.data, ordinals.as<std::uint64_t>(), out);
    };
    scatter(DirectOut<T>{rowArr->data, valArr->data});
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
