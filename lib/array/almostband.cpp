// AlmostBandMatrix: a band matrix bordered by dense trailing rows and columns,
//
//   A = [ B  C ]   B n×n band, C n×p, R p×n, D p×p,
//       [ R  D ]
//
// solved by block elimination: B = band LU, Y = B⁻¹·C, S = D − R·Y (dense
// LU), then for A·x = f:  z = B⁻¹·f₁,  x₂ = S⁻¹·(f₂ − R·z),  x₁ = z − Y·x₂.
// The cost is that of the band solve plus O(n·p) per right-hand side; the
// matrix is never densified.
#include <algorithm>

#include "qvarray/arrayutil.h"
#include "qvarray/bandmatrix.h"
#include "qvutil/errors.h"
#include "qvutil/numeric.h"

namespace qvarray {

void AlmostBandMatrix::resize(int n, int kl, int ku, int p) {
  QV_CHECK(n >= 0 && kl >= 0 && ku >= 0 && p >= 0, bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix: Sizes and bandwidths must not be negative.");
  band_.resize(n, kl, ku);
  const auto nn = static_cast<size_t>(n), pp = static_cast<size_t>(p);
  c_.resize(nn, pp);
  r_.resize(pp, nn);
  d_.resize(pp, pp);
  n_ = n;
  p_ = p;
  setZero();
}

void AlmostBandMatrix::setZero() {
  band_.setZero();
  c_.fill(0.0);
  r_.fill(0.0);
  d_.fill(0.0);
  y_ = Array<double, 2>();
  factored_ = false;
  info_ = 0;
}

void AlmostBandMatrix::checkIndex(int i, int j, const char* sentence) const {
  QV_CHECK(i >= 0 && j >= 0 && i < size() && j < size(), bandmatrix, Internal_numerical_error,
           sentence);
}

void AlmostBandMatrix::checkNotFactored() const {
  QV_CHECK(!factored_, bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix: The matrix holds its factors.");
}

double AlmostBandMatrix::get(int i, int j) const {
  checkIndex(i, j, "AlmostBandMatrix get: Index out of range.");
  checkNotFactored();
  if (i < n_ && j < n_) return band_.inBand(i, j) ? band_(i, j) : 0.0;
  if (i < n_) return c_(i, j - n_);
  if (j < n_) return r_(i - n_, j);
  return d_(i - n_, j - n_);
}

void AlmostBandMatrix::set(int i, int j, double v) {
  checkIndex(i, j, "AlmostBandMatrix set: Index out of range.");
  QV_CHECK(isStored(i, j), bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix set: Element outside the band and the border.");
  checkNotFactored();
  if (i < n_ && j < n_) band_(i, j) = v;
  else if (i < n_) c_(i, j - n_) = v;
  else if (j < n_) r_(i - n_, j) = v;
  else d_(i - n_, j - n_) = v;
}

void AlmostBandMatrix::add(int i, int j, double v) {
  checkIndex(i, j, "AlmostBandMatrix add: Index out of range.");
  QV_CHECK(isStored(i, j), bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix add: Element outside the band and the border.");
  checkNotFactored();
  if (i < n_ && j < n_) band_(i, j) += v;
  else if (i < n_) c_(i, j - n_) += v;
  else if (j < n_) r_(i - n_, j) += v;
  else d_(i - n_, j - n_) += v;
}

void AlmostBandMatrix::mul(const Array<double, 1>& x, Array<double, 1>& y) const {
  QV_CHECK(x.count == static_cast<size_t>(size()), bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix mul: Length of x differs from the matrix size.");
  QV_CHECK(&x != &y, bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix mul: x and y must be different arrays.");
  checkNotFactored();
  const auto n = static_cast<size_t>(n_), p = static_cast<size_t>(p_);
  Array<double, 1> x1(n), x2(p), y1(n), y2(p);
  std::copy(x.data, x.data + n, x1.data);
  std::copy(x.data + n, x.data + n + p, x2.data);
  y1.fill(0.0);
  y2.fill(0.0);
  band_.yPlusAMulx(y1, x1);
  if (p > 0) {
    if (n > 0) {
      qvarray::yPlusAMulx(y1, c_, x2, NoTrans);  // y₁ += C·x₂
      qvarray::yPlusAMulx(y2, r_, x1, NoTrans);  // y₂ = R·x₁
    }
    qvarray::yPlusAMulx(y2, d_, x2, NoTrans);    // y₂ += D·x₂
  }
  y.resize(n + p);
  std::copy(y1.data, y1.data + n, y.data);
  std::copy(y2.data, y2.data + p, y.data + n);
}

int AlmostBandMatrix::factor(int flags) {
  if (factored_) return info_;
  const int info = band_.factor(flags);
  factored_ = true;
  if (info > 0) {
    info_ = info;
    return info_;
  }
  if (p_ == 0) return info_ = 0;
  if (n_ > 0) {
    y_ = c_;
    band_.solve(y_, flags);                       // Y = B⁻¹·C
    matmatAMulB(r_, y_, -1.0, 1.0, d_);           // S = D − R·Y, in place of D
  }
  const int sinfo = lu(d_, sipiv_, flags);
  if (sinfo > 0) {
    info_ = n_ + sinfo;
    if (flags & RaiseOnFailure) QV_RAISE(bandmatrix, Error_in_LAPACK_call, "Singular_matrix");
    return info_;
  }
  return info_ = 0;
}

int AlmostBandMatrix::solve(Array<double, 2>& B, int flags) {
  QV_CHECK(B.sizes[0] == static_cast<size_t>(size()), bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix solve: Rows of B differ from the matrix size.");
  factor(flags);
  const auto n = static_cast<size_t>(n_), p = static_cast<size_t>(p_), k = B.sizes[1];
  if (info_ > 0) {
    if (flags & RaiseOnFailure) QV_RAISE(bandmatrix, Error_in_LAPACK_call, "Singular_matrix");
    B.fill(qvGetNaN());
    return info_;
  }
  if (B.count == 0) return 0;
  Array<double, 2> z(n, k), x2(p, k);
  const size_t N = n + p;
  for (size_t j = 0; j < k; ++j) {
    std::copy(B.data + j * N, B.data + j * N + n, z.data + j * n);
    std::copy(B.data + j * N + n, B.data + (j + 1) * N, x2.data + j * p);
  }
  if (n > 0) band_.solve(z, flags);           // z = B⁻¹·f₁
  if (p > 0) {
    if (n > 0) matmatAMulB(r_, z, -1.0, 1.0, x2);   // f₂ − R·z
    linsolvsolve(d_, sipiv_, x2);                    // x₂ = S⁻¹·(f₂ − R·z)
    if (n > 0) matmatAMulB(y_, x2, -1.0, 1.0, z);   // x₁ = z − Y·x₂
  }
  for (size_t j = 0; j < k; ++j) {
    std::copy(z.data + j * n, z.data + (j + 1) * n, B.data + j * N);
    std::copy(x2.data + j * p, x2.data + (j + 1) * p, B.data + j * N + n);
  }
  return 0;
}

int AlmostBandMatrix::solve(Array<double, 1>& b, int flags) {
  QV_CHECK(b.count == static_cast<size_t>(size()), bandmatrix, Internal_numerical_error,
           "AlmostBandMatrix solve: Length of b differs from the matrix size.");
  Array<double, 2> B(b.count, 1);
  std::copy(b.begin(), b.end(), B.data);
  const int info = solve(B, flags);
  std::copy(B.data, B.data + b.count, b.data);
  return info;
}

}  // namespace qvarray
