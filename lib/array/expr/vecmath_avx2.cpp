// AVX2 + FMA kernels; this file is built with -mavx2 -mfma and runs only on
// processors that have both.
#include <sleef.h>

#define QV_VW 4
#define QV_LOAD(p) _mm256_loadu_pd(p)
#define QV_STORE(p, v) _mm256_storeu_pd(p, v)
#define QV_SLEEF(fn) Sleef_##fn##d4_u10avx2
#define QV_SQRT(v) _mm256_sqrt_pd(v)
#define QV_KERNELS kAvx2Kernels
#define QV_ISA "avx2"
#include "vecmath_kernels.h"
