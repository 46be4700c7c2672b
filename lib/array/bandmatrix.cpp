// BandMatrix / ZBandMatrix and ExtSymBandMatrix: band storage, products and
// band LU solves.
#include "qvarray/bandmatrix.h"

#include <algorithm>
#include <string>

#include "qvarray/arrayutil.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

template <class T>
void BasicBandMatrix<T>::resize(int n, int kl, int ku) {
  QV_CHECK(n >= 0 && kl >= 0 && ku >= 0, bandmatrix, Internal_numerical_error,
           "BandMatrix: Size and bandwidths must not be negative.");
  // A band wider than the matrix holds nothing more; keep the storage small.
  kl = std::min(kl, std::max(n - 1, 0));
  ku = std::min(ku, std::max(n - 1, 0));
  ab_.resize(static_cast<size_t>(2 * kl + ku + 1), static_cast<size_t>(n));
  n_ = n;
  kl_ = kl;
  ku_ = ku;
  setZero();
}

template <class T>
void BasicBandMatrix<T>::setZero() {
  ab_.fill(T(0));
  factored_ = false;
  info_ = 0;
}

template <class T>
void BasicBandMatrix<T>::checkIndex(int i, int j, const char* sentence) const {
  QV_CHECK(i >= 0 && j >= 0 && i < n_ && j < n_, bandmatrix, Internal_numerical_error, sentence);
}

template <class T>
void BasicBandMatrix<T>::checkNotFactored() const {
  QV_CHECK(!factored_, bandmatrix, Internal_numerical_error,
           "BandMatrix: The matrix holds its LU factors.");
}

template <class T>
T BasicBandMatrix<T>::get(int i, int j) const {
  checkIndex(i, j, "BandMatrix get: Index out of range.");
  checkNotFactored();
  return inBand(i, j) ? (*this)(i, j) : T(0);
}

template <class T>
void BasicBandMatrix<T>::set(int i, int j, T v) {
  checkIndex(i, j, "BandMatrix set: Index out of range.");
  QV_CHECK(inBand(i, j), bandmatrix, Internal_numerical_error,
           "BandMatrix set: Element outside the band.");
  checkNotFactored();
  (*this)(i, j) = v;
}

template <class T>
void BasicBandMatrix<T>::add(int i, int j, T v) {
  checkIndex(i, j, "BandMatrix add: Index out of range.");
  QV_CHECK(inBand(i, j), bandmatrix, Internal_numerical_error,
           "BandMatrix add: Element outside the band.");
  checkNotFactored();
  (*this)(i, j) += v;
}

template <class T>
void BasicBandMatrix<T>::mul(const Array<T, 1>& x, Array<T, 1>& y, Trans_t t) const {
  QV_CHECK(x.count == static_cast<size_t>(n_), bandmatrix, Internal_numerical_error,
           "BandMatrix mul: Length of x differs from the matrix size.");
  QV_CHECK(&x != &y, bandmatrix, Internal_numerical_error,
           "BandMatrix mul: x and y must be different arrays.");
  checkNotFactored();
  y.resize(static_cast<size_t>(n_));
  y.fill(T(0));
  yPlusAMulx(y, x, t);
}

template <class T>
void BasicBandMatrix<T>::yPlusAMulx(Array<T, 1>& y, const Array<T, 1>& x, Trans_t t) const {
  QV_CHECK(x.count == static_cast<size_t>(n_) && y.count == static_cast<size_t>(n_), bandmatrix,
           Internal_numerical_error,
           "BandMatrix yPlusAMulx: Length of x or y differs from the matrix size.");
  checkNotFactored();
  const int d = kl_ + ku_;  // storage row of the diagonal
  const size_t lda = ab_.sizes[0];
  if (t == NoTrans) {
    // y += A·x column by column: column j of A is a contiguous run of ab_.
    for (int j = 0; j < n_; ++j) {
      const T xj = x.data[j];
      const int i0 = std::max(0, j - ku_), i1 = std::min(n_ - 1, j + kl_);
      const T* col = ab_.data + j * lda + (d - j);
      for (int i = i0; i <= i1; ++i) y.data[i] += col[i] * xj;
    }
    return;
  }
  // y += op(A)·x as dot products down the columns of A.
  const bool conjugate = t == ConjTrans && is_complex_v<T>;
  for (int j = 0; j < n_; ++j) {
    const int i0 = std::max(0, j - ku_), i1 = std::min(n_ - 1, j + kl_);
    const T* col = ab_.data + j * lda + (d - j);
    T s(0);
    if constexpr (is_complex_v<T>) {
      if (conjugate) {
        for (int i = i0; i <= i1; ++i) s += std::conj(col[i]) * x.data[i];
      } else {
        for (int i = i0; i <= i1; ++i) s += col[i] * x.data[i];
      }
    } else {
      for (int i = i0; i <= i1; ++i) s += col[i] * x.data[i];
    }
    y.data[j] += s;
  }
}

template <class T>
int BasicBandMatrix<T>::factor(int flags) {
  if (factored_) return info_;
  info_ = n_ > 0 ? luBand(n_, kl_, ku_, ab_, ipiv_, flags) : 0;
  factored_ = true;
  return info_;
}

template <class T>
bool BasicBandMatrix<T>::singularSolve(T* b, size_t count, int flags) const {
  if (info_ <= 0) return false;
  if (flags & RaiseOnFailure) QV_RAISE(bandmatrix, Error_in_LAPACK_call, "Singular_matrix");
  std::fill(b, b + count, T(qvGetNaN()));
  return true;
}

template <class T>
int BasicBandMatrix<T>::solve(Array<T, 1>& b, int flags) {
  QV_CHECK(b.count == static_cast<size_t>(n_), bandmatrix, Internal_numerical_error,
           "BandMatrix solve: Length of b differs from the matrix size.");
  factor(flags);
  if (n_ == 0 || singularSolve(b.data, b.count, flags)) return info_;
  backSubstBand(n_, kl_, ku_, ab_, ipiv_, b);
  return info_;
}

template <class T>
int BasicBandMatrix<T>::solve(Array<T, 2>& B, int flags) {
  QV_CHECK(B.sizes[0] == static_cast<size_t>(n_), bandmatrix, Internal_numerical_error,
           "BandMatrix solve: Rows of B differ from the matrix size.");
  factor(flags);
  if (n_ == 0 || B.count == 0 || singularSolve(B.data, B.count, flags)) return info_;
  backSubstBand(n_, kl_, ku_, ab_, ipiv_, B);
  return info_;
}

template class BasicBandMatrix<double>;
template class BasicBandMatrix<std::complex<double>>;

// ---------------------------------------------------------------------------
// ExtSymBandMatrix

void ExtSymBandMatrix::set(int i, int j, double v) {
  QV_CHECK(i >= 0 && j >= 0 && i < size() && j < size(), bandmatrix, Internal_numerical_error,
           "ExtSymBandMatrix set: Index out of range.");
  QV_CHECK(band_.inBand(i, j), bandmatrix, Internal_numerical_error,
           "ExtSymBandMatrix set: Element outside the band.");
  band_.set(i, j, v);
  band_.set(j, i, v);
}

void ExtSymBandMatrix::add(int i, int j, double v) {
  QV_CHECK(i >= 0 && j >= 0 && i < size() && j < size(), bandmatrix, Internal_numerical_error,
           "ExtSymBandMatrix add: Index out of range.");
  QV_CHECK(band_.inBand(i, j), bandmatrix, Internal_numerical_error,
           "ExtSymBandMatrix add: Element outside the band.");
  band_.add(i, j, v);
  if (i != j) band_.add(j, i, v);
}

void ExtSymBandMatrix::setFromTriangle(char uplo, const Array<double, 2>& sb) {
  const int n = size(), k = bandwidth();
  QV_CHECK(uplo == 'U' || uplo == 'L' || uplo == 'u' || uplo == 'l', bandmatrix,
           Internal_numerical_error, "ExtSymBandMatrix setFromTriangle: uplo must be 'U' or 'L'.");
  QV_CHECK(sb.sizes[0] >= static_cast<size_t>(k + 1) && sb.sizes[1] == static_cast<size_t>(n),
           bandmatrix, Internal_numerical_error,
           "ExtSymBandMatrix setFromTriangle: sb must be (k + 1)×n.");
  band_.setZero();
  const bool upper = uplo == 'U' || uplo == 'u';
  for (int j = 0; j < n; ++j) {
    if (upper) {
      for (int i = std::max(0, j - k); i <= j; ++i) {
        const double v = sb(static_cast<size_t>(k + i - j), static_cast<size_t>(j));
        band_(i, j) = v;
        band_(j, i) = v;
      }
    } else {
      for (int i = j; i <= std::min(n - 1, j + k); ++i) {
        const double v = sb(static_cast<size_t>(i - j), static_cast<size_t>(j));
        band_(i, j) = v;
        band_(j, i) = v;
      }
    }
  }
}

}  // namespace qvarray
