// random and randomnormal: a hash of the arguments at each point, turned into
// a uniform or a normal number.
#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "evalfun_elementwise.h"
#include "qvarray/expr/randomfuns.h"

namespace qvarray {

using evalfun::cplx;
using Code = FunObj::FunOpCode;

namespace {

// splitmix64's finaliser: every input bit reaches every output bit.
std::uint64_t mix(std::uint64_t z) {
  z += 0x9e3779b97f4a7c15ULL;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

// Equal numbers, equal bits: -0 as 0, one NaN.
std::uint64_t bitsOf(double x) {
  if (x == 0.0) return 0;
  if (x != x) return 0x7ff8000000000000ULL;
  return std::bit_cast<std::uint64_t>(x);
}

struct Hash {
  std::uint64_t h;
  explicit Hash(std::size_t count) : h(mix(count)) {}
  void add(double x) { h = mix(h ^ bitsOf(x)); }
  void add(cplx z) {
    add(z.real());
    if (z.imag() != 0.0) add(z.imag());
  }
};

double unit(std::uint64_t h) { return static_cast<double>(h >> 11) * 0x1.0p-53; }

}  // namespace

double RandomFun::fromHash(std::uint64_t h) const { return unit(h); }

double RandomNormalFun::fromHash(std::uint64_t h) const {
  // Box-Muller: u1 in (0, 1] keeps the logarithm finite.
  std::uint64_t h2 = mix(h);
  double u1 = static_cast<double>((h >> 11) + 1) * 0x1.0p-53;
  double u2 = unit(h2);
  return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * std::numbers::pi * u2);
}

Code RandomFun::operator()(const std::vector<RS>& args, std::size_t n) const {
  Hash h(n);
  for (std::size_t k = 0; k < n; ++k) h.add(*args[k]);
  *args[0] = fromHash(h.h);
  return Success;
}
Code RandomFun::operator()(const std::vector<CS>& args, std::size_t n) const {
  Hash h(n);
  for (std::size_t k = 0; k < n; ++k) h.add(*args[k]);
  *args[0] = fromHash(h.h);
  return Success;
}
Code RandomFun::operator()(const std::vector<RA>& args, std::size_t n, std::size_t m) const {
  for (std::size_t i = 0; i < n; ++i) {
    Hash h(m);
    for (std::size_t k = 0; k < m; ++k) h.add(args[k]->data[i]);
    args[0]->data[i] = fromHash(h.h);
  }
  return Success;
}
Code RandomFun::operator()(const std::vector<CA>& args, std::size_t n, std::size_t m) const {
  for (std::size_t i = 0; i < n; ++i) {
    Hash h(m);
    for (std::size_t k = 0; k < m; ++k) h.add(args[k]->data[i]);
    args[0]->data[i] = fromHash(h.h);
  }
  return Success;
}

}  // namespace qvarray
