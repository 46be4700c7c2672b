// AVX-512F kernels; this file is built with -mavx512f and runs only on
// processors that have it.
#include <sleef.h>

#define QV_VW 8
#define QV_LOAD(p) _mm512_loadu_pd(p)
#define QV_STORE(p, v) _mm512_storeu_pd(p, v)
#define QV_SLEEF(fn) Sleef_##fn##d8_u10avx512f
#define QV_SQRT(v) _mm512_mask_sqrt_pd(v, 0xFF, v)  // the unmasked form trips -Wmaybe-uninitialized in GCC 12
#define QV_KERNELS kAvx512Kernels
#define QV_ISA "avx512f"
#include "vecmath_kernels.h"
