// The hashed way of triplet assembly: hashed duplicate detection, counts,
// cumulative sum, scatter. Taken where the counting way (tripletassembly.cpp)
// would need more scratch memory: for complex values, and for matrices with
// many more rows than triplets.
//
// The steps:
//  1. Hash pass. A table of H = llsp_hashsize(N) slots. Key of triplet k:
//     col·m + row. Its first slot is key mod H; while the slot holds a
//     different (row, col) the search moves on by the fixed step
//     H2 − (key mod H2) (double hashing; H2 = H − 2, or 285349621 for large
//     tables), modulo H. Meeting the same pair, k takes the ordinal within its
//     column that the pair got at its first appearance; meeting an empty slot,
//     k claims it and takes the next ordinal of its column, whose count is
//     kept in colptr[col + 1].
//  2. Cumulative sum over colptr: counts become column starts.
//  3. Scatter: triplet k goes to position colptr[col] + ordinal; the first
//     appearance of a pair writes row and value, later ones add their value.
//
// How it is made fast, without changing what it computes:
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
//  - The ordinal array carries a "first appearance" bit, so the scatter needs
//    no unfilled-row marker, and the scatter's first-or-repeat choice is a
//    bit blend rather than an unpredictable branch.
#include <algorithm>
#include <bit>
#include <complex>
#include <cstdint>

#include "qvarray/sparse/llsparse.h"
#include "sparse/fastmod.h"
#include "sparse/tripletassembly.h"

namespace qvarray::tripletdetail {

namespace {

constexpr int kChainPrefetch = 6;  // slots of a probe sequence prefetched after a collision
constexpr std::uint64_t kLargeStepBase = 285349621;

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

// The table layout for N triplets of an m×n matrix.
struct Layout {
  bool wrap;       // m·n exceeds 2^64: keys of different pairs may coincide
  bool narrow;     // an ordinal and its flag fit 32 bits
  bool packed;     // 8-byte slots (PackedTable)
  unsigned ordBits;

  Layout(size_t N, size_t m, size_t n) {
    size_t mn;
    wrap = __builtin_mul_overflow(m, n, &mn);
    narrow = N < (size_t{1} << 31);
    // Packed slots when key + 1 (< 2^keyBits) and the largest ordinal
    // (< min(m, N)) fit one word together.
    const unsigned keyBits = wrap ? 64 : static_cast<unsigned>(std::bit_width(mn));
    ordBits = static_cast<unsigned>(std::bit_width(std::min(m, N) - 1));
    packed = !wrap && keyBits + ordBits <= 64;
  }
  size_t tableBytes(std::uint64_t H) const {
    return packed ? PackedTable::bytes(H) : WideTable::bytes(H);
  }
  size_t ordinalBytes(size_t N) const {
    return N * (narrow ? sizeof(std::uint32_t) : sizeof(std::uint64_t));
  }
};

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

size_t hashedScratchBytes(size_t N, size_t m, size_t n) {
  const Layout layout(N, m, n);
  return layout.tableBytes(llsp_hashsize(N)) + layout.ordinalBytes(N);
}

template <class T>
void assembleHashed(const size_t* rows, const size_t* cols, const T* values, size_t stride,
                    size_t N, size_t m, size_t n, size_t* colptr,
                    std::shared_ptr<Array<size_t, 1>>& rowArr, std::shared_ptr<Array<T, 1>>& valArr) {
  const std::uint64_t H = llsp_hashsize(N);
  const std::uint64_t H2 = H < 285349622 ? H - 2 : kLargeStepBase;
  const Layout layout(N, m, n);
  ScratchBlock table(layout.tableBytes(H), true);
  ScratchBlock ordinals(layout.ordinalBytes(N), false);

  // Pass 1.
  auto hash = [&](const auto& tab) {
    if (layout.narrow)
      hashPass(rows, cols, N, m, n, colptr, ordinals.as<std::uint32_t>(), tab, H, H2);
    else
      hashPass(rows, cols, N, m, n, colptr, ordinals.as<std::uint64_t>(), tab, H, H2);
  };
  if (layout.packed)
    hash(PackedTable{table.as<PackedTable::Slot>(), layout.ordBits,
                     (std::uint64_t{1} << layout.ordBits) - 1});
  else
    hash(WideTable{table.as<WideTable::Slot>(), layout.wrap, rows, cols});

  // Pass 2.
  for (size_t j = 0; j < n; ++j) colptr[j + 1] += colptr[j];
  const size_t count = colptr[n];

  // Pass 3.
  rowArr = std::make_shared<Array<size_t, 1>>(count);
  valArr = std::make_shared<Array<T, 1>>(count);
  adviseHugePages(rowArr->data, count * sizeof(size_t));
  adviseHugePages(valArr->data, count * sizeof(T));
  if constexpr (std::is_same_v<T, double>) valArr->fill(0.0);  // read by the blend below
  auto scatter = [&](const auto& out) {
    if (layout.narrow)
      scatterPass(rows, cols, values, stride, N, colptr, ordinals.as<std::uint32_t>(), out);
    else
      scatterPass(rows, cols, values, stride, N, colptr, ordinals.as<std::uint64_t>(), out);
  };
  scatter(DirectOut<T>{rowArr->data, valArr->data});
}

template void assembleHashed(const size_t*, const size_t*, const double*, size_t, size_t, size_t,
                             size_t, size_t*, std::shared_ptr<Array<size_t, 1>>&,
                             std::shared_ptr<Array<double, 1>>&);
template void assembleHashed(const size_t*, const size_t*, const std::complex<double>*, size_t,
                             size_t, size_t, size_t, size_t*, std::shared_ptr<Array<size_t, 1>>&,
                             std::shared_ptr<Array<std::complex<double>, 1>>&);

}  // namespace qvarray::tripletdetail
