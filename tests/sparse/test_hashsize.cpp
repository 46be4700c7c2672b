// The hash-size rule and the reciprocal division used by triplet assembly.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "qvarray/sparse/llsparse.h"
#include "sparse/fastmod.h"

namespace {

const std::vector<std::uint64_t> kTable = {
    2, 3, 5, 7, 11, 13, 17, 19, 23, 29, 37, 41, 43, 47, 53, 59, 61, 67, 79, 83, 89, 101, 109, 127, 131, 149,
    157, 173, 191, 211, 233, 257, 281, 307, 337, 373, 409, 449, 491, 541, 599, 659, 719, 797, 877, 967, 1061,
    1163, 1277, 1409, 1543, 1697, 1867, 2053, 2267, 2503, 2729, 3001, 3301, 3631, 4001, 4397, 4831, 5323,
    5849, 6449, 7079, 7789, 8563, 9413, 10357, 11393, 12539, 13789, 15161, 16691, 18353, 20177, 22229, 24419,
    26861, 29567, 32497, 35747, 39323, 43261, 47581, 52361, 57571, 63331, 69661, 76631, 84299, 92717, 101987,
    112181, 123397, 135743, 149323, 164249, 180667, 198733, 218611, 240473, 264527, 290963, 320063, 352069,
    387281, 426007, 468599, 515477, 567011, 623717, 686087, 754703, 830153, 913177, 1004477, 1104937, 1215421,
    1336961, 1470659, 1617727, 1779497, 1957441, 2153201, 2368511, 2605363, 2865899, 3152489, 3467729,
    3814501, 4195949, 4615549, 5077097, 5584807, 6143287, 6757627, 7433381, 8176709, 8994383, 9893831,
    10883221, 11971517, 13168669, 14485567, 15934097, 17527567, 19280281, 21208349, 23329127, 25662037,
    28228229, 31051039, 34156163, 37571767, 41328961, 45461827, 50008009, 55008799, 60509741, 66560647,
    73216711, 80538379, 88592239, 97451441, 107196589, 117916241, 129707863, 142678663, 156946523, 172641181,
    189905279, 208895809, 229785419, 252763949, 278040337, 305844359, 336428783, 370071671, 407078843,
    447786721, 492565393, 541821919, 596004113, 655604539, 721164979, 793281481, 872609641, 959870591,
    1055857637, 1161443441, 1277587747, 1405346561, 1545881167, 1700469307, 1870516213, 2057567843,
    2263324639, 2489657081, 2738622787, 3012485081, 3313733573, 3645106919, 4009617631,
};

// Independent model of the rule: a linear search over the entries 1…205.
std::uint64_t modelHashSize(std::uint64_t n) {
  if (n == 0) return 0;
  const double scaled = static_cast<double>(n) * 1.4285714285714286;
  if (scaled >= 18446744073709551616.0) return kTable.back();
  const auto target = static_cast<std::uint64_t>(scaled);
  for (size_t k = 1; k < kTable.size(); ++k)
    if (kTable[k] >= target) return kTable[k];
  return kTable.back();
}

TEST(HashSize, DocumentedValuesAndEveryTableBoundary) {
  // n → size; the entry 2 is never returned; everything from 2551574844 on
  // gets the last entry.
  const std::pair<std::uint64_t, std::uint64_t> documented[] = {
      {0, 0}, {1, 3}, {2, 3}, {3, 5}, {7, 11}, {100, 149}, {1000, 1543}, {2551574843, 3645106919},
      {2551574844, 4009617631}, {2551574845, 4009617631}, {2806732328, 4009617631},
      {2806732329, 4009617631}, {4009617631, 4009617631}, {1ULL << 40, 4009617631}, {~0ULL, 4009617631}};
  for (const auto& [n, size] : documented) EXPECT_EQ(qvarray::llsp_hashsize(n), size) << n;

  ASSERT_EQ(kTable.size(), 206u);
  for (size_t k = 1; k < kTable.size(); ++k) {
    // n whose target ⌊n / 0.7⌋ lies around this entry.
    const auto centre = static_cast<std::uint64_t>(static_cast<double>(kTable[k]) * 0.7);
    for (std::uint64_t n = centre > 3 ? centre - 3 : 1; n <= centre + 3; ++n)
      ASSERT_EQ(qvarray::llsp_hashsize(n), modelHashSize(n)) << n;
  }
  std::mt19937_64 g(3);
  for (int k = 0; k < 100000; ++k) {
    const std::uint64_t n = g() >> (g() % 64);
    ASSERT_EQ(qvarray::llsp_hashsize(n), modelHashSize(n)) << n;
  }
}

TEST(HashSize, ReciprocalDivisionIsExactForAllKeys) {
  std::vector<std::uint64_t> divisors = {1, 2, 3, 285349621ULL, (1ULL << 32) + 15, (1ULL << 62) + 1};
  for (size_t k = 1; k < kTable.size(); ++k) divisors.insert(divisors.end(), {kTable[k], kTable[k] - 2});
  std::mt19937_64 g(11);
  for (const std::uint64_t d : divisors) {
    const qvarray::detail::FastDivisor f(d);
    std::vector<std::uint64_t> keys = {0, 1, d - 1, d, d + 1, ~0ULL, ~0ULL - 1, ~0ULL - d,
                                       ~0ULL / d * d, ~0ULL / d * d - 1, 1ULL << 63};
    for (int r = 0; r < 2000; ++r) {
      const std::uint64_t q = g() / d;  // keys next to multiples of d
      keys.insert(keys.end(), {q * d, q * d - 1, q * d + d - 1, g(), g() >> (g() % 64)});
    }
    for (const std::uint64_t a : keys) {
      ASSERT_EQ(f.quotient(a), a / d) << a << " / " << d;
      ASSERT_EQ(f.remainder(a), a % d) << a << " mod " << d;
    }
  }
}

}  // namespace
