// The hash-size rule and the reciprocal division used by triplet assembly.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "qvarray/llsparse.h"
#include "sparse/fastmod.h"

namespace {

const std::vector<std::uint64_t> kTable = {
    2ULL, 3ULL, 5ULL, 7ULL, 11ULL, 13ULL,
    17ULL, 19ULL, 23ULL, 29ULL, 37ULL, 41ULL,
    43ULL, 47ULL, 53ULL, 59ULL, 61ULL, 67ULL,
    79ULL, 83ULL, 89ULL, 101ULL, 109ULL, 127ULL,
    131ULL, 149ULL, 157ULL, 173ULL, 191ULL, 211ULL,
    233ULL, 257ULL, 281ULL, 307ULL, 337ULL, 373ULL,
    409ULL, 449ULL, 491ULL, 541ULL, 599ULL, 659ULL,
    719ULL, 797ULL, 877ULL, 967ULL, 1061ULL, 1163ULL,
    1277ULL, 1409ULL, 1543ULL, 1697ULL, 1867ULL, 2053ULL,
    2267ULL, 2503ULL, 2729ULL, 3001ULL, 3301ULL, 3631ULL,
    4001ULL, 4397ULL, 4831ULL, 5323ULL, 5849ULL, 6449ULL,
    7079ULL, 7789ULL, 8563ULL, 9413ULL, 10357ULL, 11393ULL,
    12539ULL, 13789ULL, 15161ULL, 16691ULL, 18353ULL, 20177ULL,
    22229ULL, 24419ULL, 26861ULL, 29567ULL, 32497ULL, 35747ULL,
    39323ULL, 43261ULL, 47581ULL, 52361ULL, 57571ULL, 63331ULL,
    69661ULL, 76631ULL, 84299ULL, 92717ULL, 101987ULL, 112181ULL,
    123397ULL, 135743ULL, 149323ULL, 164249ULL, 180667ULL, 198733ULL,
    218611ULL, 240473ULL, 264527ULL, 290963ULL, 320063ULL, 352069ULL,
    387281ULL, 426007ULL, 468599ULL, 515477ULL, 567011ULL, 623717ULL,
    686087ULL, 754703ULL, 830153ULL, 913177ULL, 1004477ULL, 1104937ULL,
    1215421ULL, 1336961ULL, 1470659ULL, 1617727ULL, 1779497ULL, 1957441ULL,
    2153201ULL, 2368511ULL, 2605363ULL, 2865899ULL, 3152489ULL, 3467729ULL,
    3814501ULL, 4195949ULL, 4615549ULL, 5077097ULL, 5584807ULL, 6143287ULL,
    6757627ULL, 7433381ULL, 8176709ULL, 8994383ULL, 9893831ULL, 10883221ULL,
    11971517ULL, 13168669ULL, 14485567ULL, 15934097ULL, 17527567ULL, 19280281ULL,
    21208349ULL, 23329127ULL, 25662037ULL, 28228229ULL, 31051039ULL, 34156163ULL,
    37571767ULL, 41328961ULL, 45461827ULL, 50008009ULL, 55008799ULL, 60509741ULL,
    66560647ULL, 73216711ULL, 80538379ULL, 88592239ULL, 97451441ULL, 107196589ULL,
    117916241ULL, 129707863ULL, 142678663ULL, 156946523ULL, 172641181ULL, 189905279ULL,
    208895809ULL, 229785419ULL, 252763949ULL, 278040337ULL, 305844359ULL, 336428783ULL,
    370071671ULL, 407078843ULL, 447786721ULL, 492565393ULL, 541821919ULL, 596004113ULL,
    655604539ULL, 721164979ULL, 793281481ULL, 872609641ULL, 959870591ULL, 1055857637ULL,
    1161443441ULL, 1277587747ULL, 1405346561ULL, 1545881167ULL, 1700469307ULL, 1870516213ULL,
    2057567843ULL, 2263324639ULL, 2489657081ULL, 2738622787ULL, 3012485081ULL, 3313733573ULL,
    3645106919ULL, 4009617631ULL,
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

TEST(HashSize, DocumentedValues) {
  EXPECT_EQ(qvarray::llsp_hashsize(0), 0u);
  EXPECT_EQ(qvarray::llsp_hashsize(1), 3u);
  EXPECT_EQ(qvarray::llsp_hashsize(2), 3u);  // the entry 2 is never returned
  EXPECT_EQ(qvarray::llsp_hashsize(3), 5u);
  EXPECT_EQ(qvarray::llsp_hashsize(7), 11u);
  EXPECT_EQ(qvarray::llsp_hashsize(100), 149u);
  EXPECT_EQ(qvarray::llsp_hashsize(1000), 1543u);
  EXPECT_EQ(qvarray::llsp_hashsize(2551574843ULL), 3645106919ULL);
  for (std::uint64_t n : {2551574844ULL, 2551574845ULL, 2806732328ULL, 2806732329ULL,
                          4009617631ULL, 1ULL << 40, ~0ULL})
    EXPECT_EQ(qvarray::llsp_hashsize(n), 4009617631ULL) << n;
}

TEST(HashSize, EveryTableBoundaryAgreesWithLinearSearch) {
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
  std::vector<std::uint64_t> divisors = {1, 2, 3, 285349621ULL, (1ULL << 32) + 15,
                                         (1ULL << 62) + 1};
  for (size_t k = 1; k < kTable.size(); ++k) {
    divisors.push_back(kTable[k]);
    divisors.push_back(kTable[k] - 2);
  }
  std::mt19937_64 g(11);
  for (const std::uint64_t d : divisors) {
    const qvarray::detail::FastDivisor f(d);
    std::vector<std::uint64_t> keys = {0, 1, d - 1, d, d + 1, ~0ULL, ~0ULL - 1, ~0ULL - d,
                                       ~0ULL / d * d, ~0ULL / d * d - 1, 1ULL << 63};
    for (int r = 0; r < 2000; ++r) {
      const std::uint64_t q = g() / d;  // keys next to multiples of d
      keys.push_back(q * d);
      keys.push_back(q * d - 1);
      keys.push_back(q * d + d - 1);
      keys.push_back(g());
      keys.push_back(g() >> (g() % 64));
    }
    for (const std::uint64_t a : keys) {
      ASSERT_EQ(f.quotient(a), a / d) << a << " / " << d;
      ASSERT_EQ(f.remainder(a), a % d) << a << " mod " << d;
    }
  }
}

}  // namespace
