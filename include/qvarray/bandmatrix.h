#pragma once
// Band matrices in LAPACK band storage and the solvers built on them.
//
// BandMatrix (ZBandMatrix for complex elements): n×n with kl sub- and ku
// super-diagonals, held in the (2·kl + ku + 1)×n storage that band LU needs:
// element (i, j) lives at row kl + ku + i − j of column j; the first kl rows
// take the fill-in of the factorisation. factor() overwrites the storage with
// the LU factors (luBand); until the matrix is filled again (setZero, resize)
// element access and products raise.
//
// ExtSymBandMatrix: a real symmetric band matrix given by one triangle, held
// in the same extended storage so that it is factored by band LU whether or
// not it is definite.
//
// AlmostBandMatrix: a real band matrix bordered by p dense trailing rows and
// columns, solved by band LU of the band block and a dense p×p Schur
// complement for the border.
//
// AlmostBandedLSQ: least squares for an overdetermined real system whose rows
// each have a short run of consecutive band unknowns plus p dense border
// unknowns (spline fitting); rows are reduced one at a time by Givens
// rotations into band upper-triangular form.
//
// Errors (module "bandmatrix"): bad sizes or indices raise
// "Internal_numerical_error" with a sentence naming the operation, before
// anything is changed. Factorisations follow the LAPACK wrappers' flag word:
// bit value 1 raises "Error_in_LAPACK_call" / "Singular_matrix" on a singular
// matrix, bit value 2 raises on illegal arguments; without bit 1 a singular
// matrix gives INFO > 0 and solutions full of NaN.
#include <complex>
#include <span>

#include "qvarray/array.h"
#include "qvarray/export.h"
#include "qvarray/trans.h"

namespace qvarray {

template <class T>
class QVARRAY_API BasicBandMatrix {
 public:
  BasicBandMatrix() = default;
  /// n×n zero matrix with kl sub- and ku super-diagonals (all ≥ 0).
  BasicBandMatrix(int n, int kl, int ku) { resize(n, kl, ku); }
  /// New shape, all zeros, not factored. Bandwidths wider than the matrix
  /// are narrowed to n − 1.
  void resize(int n, int kl, int ku);

  int size() const { return n_; }
  int kl() const { return kl_; }
  int ku() const { return ku_; }
  /// True when (i, j) lies inside the band (indices not range-checked).
  bool inBand(int i, int j) const { return i - j <= kl_ && j - i <= ku_; }

  /// Element (i, j); zero outside the band.
  T get(int i, int j) const;
  /// Stores / adds v at (i, j), which must lie inside the band.
  void set(int i, int j, T v);
  void add(int i, int j, T v);
  /// Unchecked reference to an element inside the band.
  T& operator()(int i, int j) { return ab_(kl_ + ku_ + i - j, j); }
  T operator()(int i, int j) const { return ab_(kl_ + ku_ + i - j, j); }
  /// All elements zero, not factored.
  void setZero();

  /// y = op(A)·x (y resized to n).
  void mul(const Array<T, 1>& x, Array<T, 1>& y, Trans_t t = NoTrans) const;
  /// y += op(A)·x.
  void yPlusAMulx(Array<T, 1>& y, const Array<T, 1>& x, Trans_t t = NoTrans) const;

  /// Band LU in place (xGBTRF). Returns INFO (> 0: U(INFO−1, INFO−1) is zero).
  int factor(int flags = 3);
  bool isFactored() const { return factored_; }
  /// Solves A·x = b in place of b (factoring first when needed). A singular
  /// matrix without flags bit 1 fills b with NaN and returns INFO > 0.
  int solve(Array<T, 1>& b, int flags = 3);
  /// The same for the columns of B (n rows).
  int solve(Array<T, 2>& B, int flags = 3);

  /// The band storage ((2·kl + ku + 1)×n) and, once factored, the pivots.
  const Array<T, 2>& getArr() const { return ab_; }
  Array<T, 2>& getArr() { return ab_; }
  const Array<int, 1>& getPivots() const { return ipiv_; }

 private:
  void checkIndex(int i, int j, const char* sentence) const;
  void checkNotFactored() const;
  /// Handles a singular factor for a solve: raise or fill with NaN.
  bool singularSolve(T* b, size_t count, int flags) const;

  int n_ = 0, kl_ = 0, ku_ = 0;
  Array<T, 2> ab_;
  Array<int, 1> ipiv_;
  bool factored_ = false;
  int info_ = 0;
};

using BandMatrix = BasicBandMatrix<double>;
using ZBandMatrix = BasicBandMatrix<std::complex<double>>;

extern template class BasicBandMatrix<double>;
extern template class BasicBandMatrix<std::complex<double>>;

class QVARRAY_API ExtSymBandMatrix {
 public:
  ExtSymBandMatrix() = default;
  /// n×n symmetric zero matrix with k off-diagonals on each side.
  ExtSymBandMatrix(int n, int k) : band_(n, k, k) {}
  void resize(int n, int k) { band_.resize(n, k, k); }

  int size() const { return band_.size(); }
  int bandwidth() const { return band_.kl(); }

  double get(int i, int j) const { return band_.get(i, j); }
  /// Stores / adds v at (i, j) and (j, i); |i − j| ≤ k.
  void set(int i, int j, double v);
  void add(int i, int j, double v);
  /// Loads the matrix from LAPACK symmetric band storage sb ((k + 1)×n):
  /// uplo 'U': sb(k + i − j, j) = A(i, j) for j − k ≤ i ≤ j;
  /// uplo 'L': sb(i − j, j) = A(i, j) for j ≤ i ≤ j + k.
  void setFromTriangle(char uplo, const Array<double, 2>& sb);
  void setZero() { band_.setZero(); }

  void mul(const Array<double, 1>& x, Array<double, 1>& y) const { band_.mul(x, y); }
  int factor(int flags = 3) { return band_.factor(flags); }
  bool isFactored() const { return band_.isFactored(); }
  int solve(Array<double, 1>& b, int flags = 3) { return band_.solve(b, flags); }
  int solve(Array<double, 2>& B, int flags = 3) { return band_.solve(B, flags); }

  /// The general band matrix holding both triangles.
  const BandMatrix& band() const { return band_; }

 private:
  BandMatrix band_;
};

class QVARRAY_API AlmostBandMatrix {
 public:
  AlmostBandMatrix() = default;
  /// (n + p)×(n + p) zero matrix whose leading n×n block is a band matrix
  /// (kl, ku) and whose last p rows and p columns are dense.
  AlmostBandMatrix(int n, int kl, int ku, int p) { resize(n, kl, ku, p); }
  void resize(int n, int kl, int ku, int p);

  int size() const { return n_ + p_; }
  int bandSize() const { return n_; }
  int border() const { return p_; }
  /// True when (i, j) can hold a non-zero: inside the band or in the border.
  bool isStored(int i, int j) const { return i >= n_ || j >= n_ || band_.inBand(i, j); }

  /// Element (i, j); zero where nothing is stored.
  double get(int i, int j) const;
  /// Stores / adds v at (i, j), which must satisfy isStored.
  void set(int i, int j, double v);
  void add(int i, int j, double v);
  void setZero();

  /// y = A·x (y resized to size()).
  void mul(const Array<double, 1>& x, Array<double, 1>& y) const;

  /// Band LU of the band block, then LU of the Schur complement
  /// D − R·B⁻¹·C of the border. Returns INFO: 1..n for a singular band block,
  /// n + 1..n + p for a singular complement. The band block must be
  /// non-singular on its own.
  int factor(int flags = 3);
  bool isFactored() const { return factored_; }
  /// Solves A·x = b in place of b (factoring first when needed).
  int solve(Array<double, 1>& b, int flags = 3);
  int solve(Array<double, 2>& B, int flags = 3);

 private:
  void checkIndex(int i, int j, const char* sentence) const;
  void checkNotFactored() const;

  int n_ = 0, p_ = 0;
  BandMatrix band_;
  Array<double, 2> c_;   // n×p, rows 0..n−1 of the border columns
  Array<double, 2> r_;   // p×n, border rows in columns 0..n−1
  Array<double, 2> d_;   // p×p corner; after factor, the LU of the Schur complement
  Array<double, 2> y_;   // n×p, B⁻¹·C after factor
  Array<int, 1> sipiv_;  // pivots of the Schur complement
  bool factored_ = false;
  int info_ = 0;
};

class QVARRAY_API AlmostBandedLSQ {
 public:
  AlmostBandedLSQ() = default;
  /// Least squares in n band unknowns plus p border unknowns. Each row has at
  /// most w consecutive non-zeros among the band unknowns; nrhs right-hand
  /// sides are solved together.
  AlmostBandedLSQ(int n, int w, int p = 0, int nrhs = 1) { resize(n, w, p, nrhs); }
  /// New shape; forgets all rows.
  void resize(int n, int w, int p = 0, int nrhs = 1);
  /// Forgets all rows, keeping the shape.
  void reset();

  int bandSize() const { return n_; }
  int bandwidth() const { return w_; }
  int border() const { return p_; }
  int unknowns() const { return n_ + p_; }
  /// Number of rows added since the last reset.
  long rows() const { return rows_; }

  /// Adds the equation weight·(Σ band[j]·x[first + j] + Σ border[c]·x[n + c])
  /// = weight·rhs[r] for each right-hand side r. band has at most w values and
  /// first + band.size() ≤ n; border has p values (or none, meaning zeros);
  /// rhs has nrhs values. Cost O(w·(w + p + nrhs)) when rows come in
  /// non-decreasing order of first (more otherwise, since fill-in then
  /// travels further).
  void addRow(int first, std::span<const double> band, std::span<const double> border,
              std::span<const double> rhs, double weight = 1.0);

  /// Back-substitutes the reduced system into X ((n + p)×nrhs). Unknowns whose
  /// diagonal in the triangular factor is at most rcond·(largest diagonal) are
  /// dependent: they are set to zero (a basic solution). Returns the number of
  /// dependent unknowns (0: full rank); with flags bit 1 a rank deficiency
  /// raises "Rank_deficient_system" with detail ("Rank", rank). The rows stay
  /// reduced, so more rows may be added and solve called again.
  int solve(Array<double, 2>& X, double rcond = 1e-13, int flags = 0) const;
  /// The same for a single right-hand side (x resized to n + p).
  int solve(Array<double, 1>& x, double rcond = 1e-13, int flags = 0) const;

  /// ‖A·x − b‖ of the least-squares solution for right-hand side r, from the
  /// parts of b that the rotations left outside the triangle (full rank).
  double residualNorm(int r = 0) const;

 private:
  int n_ = 0, w_ = 0, p_ = 0, nrhs_ = 0;
  long rows_ = 0;
  Array<double, 2> rb_;   // w×n: rb_(j, k) = R(k, k + j)
  Array<double, 2> rc_;   // p×n: rc_(c, k) = R(k, n + c)
  Array<double, 2> rd_;   // p×p: rd_(c, c2) = R(n + c, n + c2), upper
  Array<double, 2> qtb_;  // nrhs×(n + p): rotated right-hand sides
  Array<int, 1> end_;     // last possibly non-zero band column of R's row k; −1: empty row
  Array<int, 1> dfill_;   // border row c of R in use (1) or empty (0)
  Array<double, 1> ssr_;  // per right-hand side: sum of squared residual parts
  Array<double, 1> work_; // the row being reduced: w band, p border, nrhs values
};

}  // namespace qvarray

using qvarray::AlmostBandedLSQ;
using qvarray::AlmostBandMatrix;
using qvarray::BandMatrix;
using qvarray::ExtSymBandMatrix;
using qvarray::ZBandMatrix;
