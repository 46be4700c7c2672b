// Band LU factorisation and solve in LAPACK band storage (xGBTRF, xGBTRS).
#include "backend/lapack.h"
#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"

namespace qvarray {

namespace {

using lapack::ld;
using lapack::toInt;

// Band storage: A(i, j) lives in AB(kl + ku + i − j, j), so AB needs n
// columns; its leading dimension AB.size0 must be at least 2·kl + ku + 1,
// which LAPACK checks itself (INFO = −6 for the factorisation).

/// Leading dimension of AB for LAPACK; an empty AB is fine only when there
/// is nothing to store.
template <class T>
int bandLd(const Array<T, 2>& AB, int n, int kl, int ku) {
  return ld(AB.sizes[0], n > 0 ? 2 * kl + ku + 1 : 0);
}

template <class T>
int luBandT(int n, int kl, int ku, Array<T, 2>& AB, Array<int, 1>& ipiv, int flags) {
  QV_ASSERT(n <= 0 || AB.sizes[1] >= static_cast<size_t>(n), arrayutil);
  // Grown when too short, never shrunk: callers reuse one pivot array for
  // factorisations of different orders.
  if (n > 0 && ipiv.count < static_cast<size_t>(n)) ipiv.resize(static_cast<size_t>(n));
  const int info = lapack::gbtrf(n, n, kl, ku, AB.data, bandLd(AB, n, kl, ku), ipiv.data);
  return lapack::checkInfo(info, flags, lapack::kSingular);
}

template <class T>
void backSubstBandT(int n, int kl, int ku, const Array<T, 2>& AB, const Array<int, 1>& ipiv, T* b,
                    size_t ldb, size_t nrhs) {
  QV_ASSERT(
      n <= 0 || (AB.sizes[1] >= static_cast<size_t>(n) && ipiv.count >= static_cast<size_t>(n)),
      arrayutil);
  lapack::gbtrs('N', n, kl, ku, toInt(nrhs), AB.data, bandLd(AB, n, kl, ku), ipiv.data, b,
                ld(ldb, n));
}

}  // namespace

int luBand(int n, int kl, int ku, Array<double, 2>& AB, Array<int, 1>& ipiv, int flags) {
  return luBandT(n, kl, ku, AB, ipiv, flags);
}
int luBand(int n, int kl, int ku, Array<dcomplex, 2>& AB, Array<int, 1>& ipiv, int flags) {
  return luBandT(n, kl, ku, AB, ipiv, flags);
}

void backSubstBand(int n, int kl, int ku, const Array<double, 2>& AB, const Array<int, 1>& ipiv,
                   Array<double, 1>& b) {
  backSubstBandT(n, kl, ku, AB, ipiv, b.data, b.count, 1);
}
void backSubstBand(int n, int kl, int ku, const Array<double, 2>& AB, const Array<int, 1>& ipiv,
                   Array<double, 2>& b) {
  backSubstBandT(n, kl, ku, AB, ipiv, b.data, b.sizes[0], b.sizes[1]);
}
void backSubstBand(int n, int kl, int ku, const Array<dcomplex, 2>& AB, const Array<int, 1>& ipiv,
                   Array<dcomplex, 1>& b) {
  backSubstBandT(n, kl, ku, AB, ipiv, b.data, b.count, 1);
}
void backSubstBand(int n, int kl, int ku, const Array<dcomplex, 2>& AB, const Array<int, 1>& ipiv,
                   Array<dcomplex, 2>& b) {
  backSubstBandT(n, kl, ku, AB, ipiv, b.data, b.sizes[0], b.sizes[1]);
}

}  // namespace qvarray
