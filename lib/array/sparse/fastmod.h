#pragma once
// Division of 64-bit numbers by a fixed divisor through a precomputed
// reciprocal (Granlund & Montgomery, "Division by invariant integers using
// multiplication", PLDI 1994, the unsigned case with an N+1-bit multiplier).
//
// For a divisor 1 ≤ d < 2^63 let l = ⌈log2 d⌉ and
//   m' = ⌊2^64·(2^l − d)/d⌋ + 1   (< 2^64),
// then for every 64-bit a:
//   t = ⌊m'·a / 2^64⌋,  ⌊a/d⌋ = (t + ((a − t) >> min(l,1))) >> max(l−1,0).
// This is exact for all a < 2^64 (their Theorem 4.2 with N = 64), so it holds
// for every hash key, whatever m·n is. Costs two multiplications instead of a
// hardware division.
#include <cstdint>

namespace qvarray::detail {

class FastDivisor {
 public:
  FastDivisor() = default;
  explicit FastDivisor(std::uint64_t d) : d_(d) {
    unsigned l = 0;
    while (l < 64 && (std::uint64_t{1} << l) < d) ++l;  // ⌈log2 d⌉
    const std::uint64_t excess = (std::uint64_t{1} << l) - d;  // 2^l − d < d
    magic_ = static_cast<std::uint64_t>((static_cast<unsigned __int128>(excess) << 64) / d) + 1;
    shift1_ = l < 1 ? l : 1;
    shift2_ = l > 1 ? l - 1 : 0;
  }

  std::uint64_t divisor() const { return d_; }

  std::uint64_t quotient(std::uint64_t a) const {
    const auto t =
        static_cast<std::uint64_t>((static_cast<unsigned __int128>(magic_) * a) >> 64);
    return (t + ((a - t) >> shift1_)) >> shift2_;
  }

  std::uint64_t remainder(std::uint64_t a) const { return a - quotient(a) * d_; }

 private:
  std::uint64_t d_ = 1;
  std::uint64_t magic_ = 1;
  unsigned shift1_ = 0;
  unsigned shift2_ = 0;
};

}  // namespace qvarray::detail
