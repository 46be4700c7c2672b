// SSE2 kernels (the x86-64 baseline).
#include <sleef.h>

#define QV_VW 2
#define QV_LOAD(p) _mm_loadu_pd(p)
#define QV_STORE(p, v) _mm_storeu_pd(p, v)
#define QV_SLEEF(fn) Sleef_##fn##d2_u10sse2
#define QV_SQRT(v) _mm_sqrt_pd(v)
#define QV_KERNELS kSse2Kernels
#define QV_ISA "sse2"
#include "vecmath_kernels.h"
