#pragma once
// Division of 64-bit numbers by a fixed divisor through a precomputed
// reciprocal (Granlund & Montgomery, "Division by invariant integers using
// multiplication", PLDI 1994, the unsigned case with an N+1-bit multiplier).
//
// For a divisor 2 ≤ d < 2^63 let l = ⌈log2 d⌉ ≥ 1 and
//   m' = ⌊2^64·(2^l − d)/d⌋ + 1   (< 2^64),
// then for every 64-bit a:
//   t = ⌊m'·a / 2^64⌋,  ⌊a/d⌋ = (t + ((a − t) >> 1)) >> (l − 1).
// This is exact for all a < 2^64 (their Theorem 4.2 with N = 64), so it holds
// for every hash key, whatever m·n is. d = 1 is handled by a mask on the
// remainder. Costs two multiplications instead of a hardware division.
#include <cstdint>

namespace qvarray::detail {

class FastDivisor {
 public:
  FastDivisor() = default;
  explicit FastDivisor(std::uint64_t d) : d_(d), mask_(d == 1 ? 0 : ~std::uint64_t{0}) {
    if (d < 2) return;
    unsigned l = 1;
    while ((std::uint64_t{1} << l) < d) ++l;  // ⌈log2 d⌉
    const std::uint64_t excess = (std::uint64_t{1} << l) - d;  // 2^l − d < d
    magic_ = static_cast<std::uint64_t>((static_cast<unsigned __int128>(excess) << 64) / d) + 1;
    shift_ = l - 1;
  }

  std::uint64_t divisor() const { return d_; }

  std::uint64_t quotient(std::uint64_t a) const { return d_ == 1 ? a : rawQuotient(a); }

  std::uint64_t remainder(std::uint64_t a) const { return (a - rawQuotient(a) * d_) & mask_; }

 private:
  // ⌊a/d⌋ for d ≥ 2 (meaningless for d = 1, where the mask clears it).
  std::uint64_t rawQuotient(std::uint64_t a) const {
    const auto t =
        static_cast<std::uint64_t>((static_cast<unsigned __int128>(magic_) * a) >> 64);
    return (t + ((a - t) >> 1)) >> shift_;
  }

  std::uint64_t d_ = 1;
  std::uint64_t mask_ = 0;
  std::uint64_t magic_ = 0;
  unsigned shift_ = 0;
};

}  // namespace qvarray::detail
