// Level-1 kernels for short runs, and the check that the BLAS stand-ins
// reproduce the BLAS of this process.
//
// This file is compiled with -ffp-contract=off: a product followed by a sum
// stays two roundings unless a fused multiply-add is written out.
#include "shortruns.h"

#include <immintrin.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "backend/blas.h"

namespace qvarray::detail {

namespace {

using V8 = double __attribute__((vector_size(64)));
using V4 = double __attribute__((vector_size(32)));
using V2 = double __attribute__((vector_size(16)));

}  // namespace

// Σ x[i]²: element i goes to partial sum i mod 8 (the last, partial block
// through a zero-padded copy, which adds +0 to the missing lanes), and the
// eight partial sums are added pairwise, ((s0+s4) + (s2+s6)) + ((s1+s5) +
// (s3+s7)). Eight lanes are one AVX-512 register, two AVX2 registers or four
// SSE2 registers: the same operations in every clone.
[[gnu::target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")]]
double sumOfSquares(const double* x, int n) {
  V8 s = {};
  int i = 0;
  for (; i + 8 <= n; i += 8) {
    V8 v;
    std::memcpy(&v, x + i, sizeof v);
    s += v * v;
  }
  V8 t = {};
  switch (n - i) {
    case 7: t[6] = x[i + 6]; [[fallthrough]];
    case 6: t[5] = x[i + 5]; [[fallthrough]];
    case 5: t[4] = x[i + 4]; [[fallthrough]];
    case 4: t[3] = x[i + 3]; [[fallthrough]];
    case 3: t[2] = x[i + 2]; [[fallthrough]];
    case 2: t[1] = x[i + 1]; [[fallthrough]];
    case 1: t[0] = x[i]; break;
    default: break;
  }
  s += t * t;
  const V4 h =
      __builtin_shufflevector(s, s, 0, 1, 2, 3) + __builtin_shufflevector(s, s, 4, 5, 6, 7);
  const V2 g = __builtin_shufflevector(h, h, 0, 1) + __builtin_shufflevector(h, h, 2, 3);
  return g[0] + g[1];
}

[[gnu::target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")]]
void scaleShort(double* x, double a, int n) {
#pragma omp simd
  for (int i = 0; i < n; ++i) x[i] *= a;
}

// The order of operations of OpenBLAS's ddot for AVX-512 processors (its
// SkylakeX kernel, single-threaded as it is up to 10000 elements). The first
// m = n − n mod 16 elements are summed in blocks, the rest one by one:
//   1. while 32 elements of the blocks remain: eight-lane partial sums
//      p_k[l] += x[i+8k+l]·y[i+8k+l] (k = 0..3, fused); then each p_k is
//      folded to four lanes, q_k[l] = p_k[l] + p_k[l+4] (zero without step 1);
//   2. a remaining block of 16: q_k[l] += x[i+4k+l]·y[i+4k+l] (fused);
//   3. s[l] = ((q_0[l] + q_1[l]) + q_2[l]) + q_3[l],
//      d = (s[0] + s[2]) + (s[1] + s[3])  (d = +0 when m = 0);
//   4. d += x[i]·y[i] (fused) for i = m..n−1.
[[gnu::target("avx512f,fma")]]
double dotShort(const double* x, const double* y, int n) {
  const int blocked = n & ~15;
  int i = 0;
  double d = 0.0;
  if (blocked > 0) {
    __m256d q0 = {}, q1 = {}, q2 = {}, q3 = {};
    if (blocked >= 32) {
      __m512d p0 = {}, p1 = {}, p2 = {}, p3 = {};
      for (; i + 32 <= blocked; i += 32) {
        p0 = _mm512_fmadd_pd(_mm512_loadu_pd(x + i), _mm512_loadu_pd(y + i), p0);
        p1 = _mm512_fmadd_pd(_mm512_loadu_pd(x + i + 8), _mm512_loadu_pd(y + i + 8), p1);
        p2 = _mm512_fmadd_pd(_mm512_loadu_pd(x + i + 16), _mm512_loadu_pd(y + i + 16), p2);
        p3 = _mm512_fmadd_pd(_mm512_loadu_pd(x + i + 24), _mm512_loadu_pd(y + i + 24), p3);
      }
      q0 = __builtin_shufflevector(p0, p0, 0, 1, 2, 3) +
           __builtin_shufflevector(p0, p0, 4, 5, 6, 7);
      q1 = __builtin_shufflevector(p1, p1, 0, 1, 2, 3) +
           __builtin_shufflevector(p1, p1, 4, 5, 6, 7);
      q2 = __builtin_shufflevector(p2, p2, 0, 1, 2, 3) +
           __builtin_shufflevector(p2, p2, 4, 5, 6, 7);
      q3 = __builtin_shufflevector(p3, p3, 0, 1, 2, 3) +
           __builtin_shufflevector(p3, p3, 4, 5, 6, 7);
    }
    for (; i < blocked; i += 16) {
      q0 = _mm256_fmadd_pd(_mm256_loadu_pd(x + i), _mm256_loadu_pd(y + i), q0);
      q1 = _mm256_fmadd_pd(_mm256_loadu_pd(x + i + 4), _mm256_loadu_pd(y + i + 4), q1);
      q2 = _mm256_fmadd_pd(_mm256_loadu_pd(x + i + 8), _mm256_loadu_pd(y + i + 8), q2);
      q3 = _mm256_fmadd_pd(_mm256_loadu_pd(x + i + 12), _mm256_loadu_pd(y + i + 12), q3);
    }
    const __m256d s = ((q0 + q1) + q2) + q3;
    d = (s[0] + s[2]) + (s[1] + s[3]);
  }
  for (; i < n; ++i) d = std::fma(x[i], y[i], d);
  return d;
}

// daxpy: one fused multiply-add per element, y[i] = a·x[i] + y[i]; a zero
// factor leaves y as it is (BLAS returns before reading x, so NaNs in x do not
// reach y). Four registers per step, then one, then a half, then elements.
[[gnu::target("avx512f,fma")]]
void axpyShort(double* y, double a, const double* x, int n) {
  if (a == 0.0) return;
  const __m512d va = _mm512_set1_pd(a);
  int i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m512d y0 = _mm512_fmadd_pd(va, _mm512_loadu_pd(x + i), _mm512_loadu_pd(y + i));
    const __m512d y1 = _mm512_fmadd_pd(va, _mm512_loadu_pd(x + i + 8), _mm512_loadu_pd(y + i + 8));
    const __m512d y2 =
        _mm512_fmadd_pd(va, _mm512_loadu_pd(x + i + 16), _mm512_loadu_pd(y + i + 16));
    const __m512d y3 =
        _mm512_fmadd_pd(va, _mm512_loadu_pd(x + i + 24), _mm512_loadu_pd(y + i + 24));
    _mm512_storeu_pd(y + i, y0);
    _mm512_storeu_pd(y + i + 8, y1);
    _mm512_storeu_pd(y + i + 16, y2);
    _mm512_storeu_pd(y + i + 24, y3);
  }
  for (; i + 8 <= n; i += 8)
    _mm512_storeu_pd(y + i, _mm512_fmadd_pd(va, _mm512_loadu_pd(x + i), _mm512_loadu_pd(y + i)));
  if (i + 4 <= n) {
    const __m256d r =
        _mm256_fmadd_pd(_mm256_set1_pd(a), _mm256_loadu_pd(x + i), _mm256_loadu_pd(y + i));
    _mm256_storeu_pd(y + i, r);
    i += 4;
  }
  for (; i < n; ++i) y[i] = std::fma(a, x[i], y[i]);
}

namespace {

// Probe values a·2^e with a in [−1, 1) and e in [−20, 20]: sums of their
// products change in the last bits whenever the order of the additions does.
struct ProbeRng {
  std::uint64_t state;
  double next() {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    const double a = static_cast<double>(state >> 11) * 0x1p-52 - 1.0;
    return std::ldexp(a, static_cast<int>((state >> 3) % 41) - 20);
  }
};

bool sameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// Every run length up to 64 (all block and tail shapes of ddot's order) and a
// few longer ones up to kStandInRun, on four random runs; the last with a zero
// factor and a NaN in x. The stand-ins must give BLAS's bits each time.
bool probeRuns() {
  ProbeRng rng{12345};
  std::vector<double> runs(4 * static_cast<size_t>(kStandInRun));
  double* x = runs.data();
  double* y = x + kStandInRun;
  double* ours = y + kStandInRun;
  double* theirs = ours + kStandInRun;
  double a = 0.0;
  const auto agree = [&](int n) {
    const size_t bytes = sizeof(double) * static_cast<size_t>(n);
    if (!sameBits(dotShort(x, y, n), blas::dot(n, x, 1, y, 1))) return false;
    std::memcpy(ours, y, bytes);
    std::memcpy(theirs, y, bytes);
    axpyShort(ours, a, x, n);
    blas::axpy(n, a, x, 1, theirs, 1);
    if (std::memcmp(ours, theirs, bytes) != 0) return false;
    if (a == 0.0) return true;  // dscal writes zeros for a zero factor
    scaleShort(ours, a, n);
    blas::scal(n, a, theirs, 1);
    return std::memcmp(ours, theirs, bytes) == 0;
  };
  for (int trial = 0; trial < 4; ++trial) {
    for (int i = 0; i < kStandInRun; ++i) x[i] = rng.next(), y[i] = rng.next();
    a = trial == 3 ? 0.0 : rng.next();
    if (trial == 3) x[0] = std::nan("");
    for (int n = 1; n <= 64; ++n)
      if (!agree(n)) return false;
    for (int n : {100, 127, 256, 1000, 1023, kStandInRun})
      if (!agree(n)) return false;
  }
  return true;
}

}  // namespace

std::atomic<unsigned char> blasAgreement{0};

bool probeBlas() {
  const bool agree =
      __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("fma") && probeRuns();
  blasAgreement.store(agree ? 2 : 1, std::memory_order_relaxed);
  return agree;
}

}  // namespace qvarray::detail
