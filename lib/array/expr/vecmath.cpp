// The choice of the kernels: the widest instruction set of this processor,
// fixed at first use for the whole process.
#include "vecmath.h"

namespace qvarray::vecmath {

namespace {
const Kernels& pick() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f")) return kAvx512Kernels;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return kAvx2Kernels;
  return kSse2Kernels;
}
}  // namespace

const Kernels& kernels() {
  static const Kernels& chosen = pick();
  return chosen;
}

}  // namespace qvarray::vecmath
