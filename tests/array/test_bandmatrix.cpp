#include <gtest/gtest.h>

#include <cmath>

#include "qvarray/arrayutil.h"
#include "qvarray/bandmatrix.h"
#include "qvtest.h"

using qvarray::Array;
using dcomplex = std::complex<double>;

namespace {

// A random band matrix and the same matrix in dense storage. General band
// matrices are not diagonally dominant, so that pivoting matters; triangular
// ones are (random triangular matrices are badly conditioned).
template <class T>
void randomBand(int n, int kl, int ku, qvtest::Rng& rng, qvarray::BasicBandMatrix<T>& B,
                Array<T, 2>& dense) {
  B.resize(n, kl, ku);
  dense.resize(n, n);
  dense.fill(T(0));
  const double shift = (kl == 0 || ku == 0) ? kl + ku + 1.5 : 0.5;
  for (int j = 0; j < n; ++j)
    for (int i = std::max(0, j - ku); i <= std::min(n - 1, j + kl); ++i) {
      const T v = rng.value<T>() + (i == j ? T(shift) : T(0));
      B.set(i, j, v);
      dense(i, j) = v;
    }
}

template <class T>
Array<T, 2> randomRhs(size_t n, size_t k, qvtest::Rng& rng) {
  Array<T, 2> b(n, k);
  rng.fill(b);
  return b;
}

template <class T, int N>
double maxDiff(const Array<T, N>& a, const Array<T, N>& b) {
  EXPECT_EQ(a.count, b.count);
  double d = 0.0;
  for (size_t k = 0; k < a.count; ++k) d = std::max(d, std::abs(a.data[k] - b.data[k]));
  return d;
}

template <class T>
Array<T, 1> column(const Array<T, 2>& A, size_t j) {
  Array<T, 1> c(A.sizes[0]);
  std::copy(&A(0, j), &A(0, j) + A.sizes[0], c.data);
  return c;
}

}  // namespace

// ---------------------------------------------------------------------------
// BandMatrix

template <class T>
class BandSolve : public ::testing::Test {};
using Scalars = ::testing::Types<double, dcomplex>;
TYPED_TEST_SUITE(BandSolve, Scalars);

TYPED_TEST(BandSolve, AgreesWithDenseSolve) {
  using T = TypeParam;
  qvtest::Rng rng(17);
  const int shapes[][3] = {{40, 3, 2}, {40, 0, 4}, {40, 5, 0}, {1, 0, 0}, {12, 11, 11}, {30, 1, 1}};
  for (const auto& s : shapes) {
    qvarray::BasicBandMatrix<T> B;
    Array<T, 2> dense;
    randomBand(s[0], s[1], s[2], rng, B, dense);
    Array<T, 2> X = randomRhs<T>(s[0], 3, rng), Xd = X;
    Array<T, 1> x = column(X, 0), xd = x;
    EXPECT_EQ(B.solve(X, 3), 0);
    EXPECT_TRUE(B.isFactored());
    EXPECT_EQ(B.solve(x, 3), 0) << "second solve reuses the factors";
    Array<T, 2> LU = dense;
    qvarray::linsolv(LU, Xd, 3);
    LU = dense;
    qvarray::linsolv(LU, xd, 3);
    EXPECT_LT(maxDiff(X, Xd), 1e-10) << s[0] << " " << s[1] << " " << s[2];
    EXPECT_LT(maxDiff(x, xd), 1e-10);
  }
}

TYPED_TEST(BandSolve, MultiplyMatchesDenseProduct) {
  using T = TypeParam;
  qvtest::Rng rng(2);
  qvarray::BasicBandMatrix<T> B;
  Array<T, 2> dense;
  randomBand(25, 2, 4, rng, B, dense);
  for (Trans_t t : {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans}) {
    Array<T, 1> x = column(randomRhs<T>(25, 1, rng), 0), y, yd(25);
    B.mul(x, y, t);
    yd.fill(T(0));
    qvarray::yPlusAMulx(yd, dense, x, t);
    EXPECT_LT(maxDiff(y, yd), 1e-14) << t;
  }
  EXPECT_EQ(B.get(10, 3), T(0)) << "outside the band";
  EXPECT_EQ(B.get(3, 5), dense(3, 5));
}

TEST(BandMatrix, ErrorsFollowTheConventions) {
  BandMatrix B(5, 1, 1);
  for (int i = 0; i < 5; ++i) B.set(i, i, 1.0);
  qvtest::expectThrowKey([&] { B.set(0, 3, 1.0); }, "Internal_numerical_error",
                         "BandMatrix set: Element outside the band.");
  qvtest::expectThrowKey([&] { B.set(5, 5, 1.0); }, "Internal_numerical_error",
                         "BandMatrix set: Index out of range.");
  Array<double, 1> shortB(4);
  qvtest::expectThrowKey([&] { B.solve(shortB); }, "Internal_numerical_error",
                         "BandMatrix solve: Length of b differs from the matrix size.");
  EXPECT_FALSE(B.isFactored()) << "a failed check changes nothing";
  qvtest::expectThrowKey([&] { BandMatrix(3, -1, 0); }, "Internal_numerical_error",
                         "BandMatrix: Size and bandwidths must not be negative.");

  // Singular: zero third column.
  B.set(2, 2, 0.0);
  BandMatrix C = B;
  Array<double, 1> b(5);
  b.fill(1.0);
  EXPECT_EQ(C.solve(b, 0), 3) << "INFO names the zero pivot";
  for (double v : b) EXPECT_TRUE(std::isnan(v));
  qvtest::expectThrowKey([&] { C.solve(b, 1); }, "Error_in_LAPACK_call", "Singular_matrix");
  qvtest::expectThrowKey([&] { BandMatrix D = B; D.factor(1); }, "Error_in_LAPACK_call",
                         "Singular_matrix");
  qvtest::expectThrowKey([&] { C.set(0, 0, 2.0); }, "Internal_numerical_error",
                         "BandMatrix: The matrix holds its LU factors.");
  C.setZero();
  EXPECT_FALSE(C.isFactored());
}

// ---------------------------------------------------------------------------
// ExtSymBandMatrix

TEST(ExtSymBandMatrix, IndefiniteSystemAgreesWithDenseSolve) {
  qvtest::Rng rng(9);
  const int n = 30, k = 3;
  ExtSymBandMatrix S(n, k);
  Array<double, 2> dense(n, n);
  dense.fill(0.0);
  for (int j = 0; j < n; ++j)
    for (int i = j; i <= std::min(n - 1, j + k); ++i) {
      // Diagonal of alternating sign: symmetric, far from definite.
      const double v = i == j ? (j % 2 ? -3.0 : 3.0) : rng.real();
      S.set(i, j, v);
      dense(i, j) = dense(j, i) = v;
    }
  EXPECT_EQ(S.get(2, 5), S.get(5, 2));
  Array<double, 1> b = column(randomRhs<double>(n, 1, rng), 0), bd = b;
  EXPECT_EQ(S.solve(b), 0);
  qvarray::linsolv(dense, bd, 3);
  EXPECT_LT(maxDiff(b, bd), 1e-11);

  qvtest::expectThrowKey([&] { ExtSymBandMatrix(5, 1).set(0, 2, 1.0); }, "Internal_numerical_error",
                         "ExtSymBandMatrix set: Element outside the band.");
}

TEST(ExtSymBandMatrix, EitherTriangleGivesTheSameMatrix) {
  qvtest::Rng rng(12);
  const int n = 8, k = 2;
  Array<double, 2> up(k + 1, n), lo(k + 1, n);
  up.fill(0.0);
  lo.fill(0.0);
  for (int j = 0; j < n; ++j)
    for (int i = std::max(0, j - k); i <= j; ++i) {
      const double v = rng.real();
      up(k + i - j, j) = v;  // A(i, j), i ≤ j
      lo(j - i, i) = v;      // A(j, i), the same element seen from the lower triangle
    }
  ExtSymBandMatrix U(n, k), L(n, k);
  U.setFromTriangle('U', up);
  L.setFromTriangle('L', lo);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      EXPECT_EQ(U.get(i, j), L.get(i, j));
      EXPECT_EQ(U.get(i, j), U.get(j, i));
    }
}

// ---------------------------------------------------------------------------
// AlmostBandMatrix

namespace {

void randomAlmostBand(int n, int kl, int ku, int p, qvtest::Rng& rng, AlmostBandMatrix& A,
                      Array<double, 2>& dense) {
  A.resize(n, kl, ku, p);
  const int N = n + p;
  dense.resize(N, N);
  dense.fill(0.0);
  for (int j = 0; j < N; ++j)
    for (int i = 0; i < N; ++i)
      if (A.isStored(i, j)) {
        const double v = rng.real() + (i == j ? 3.0 : 0.0);
        A.set(i, j, v);
        dense(i, j) = v;
      }
}

}  // namespace

TEST(AlmostBandMatrix, AgreesWithDenseSolve) {
  qvtest::Rng rng(33);
  const int shapes[][4] = {{50, 2, 3, 0}, {50, 2, 3, 1}, {50, 1, 1, 3}, {0, 0, 0, 2}, {6, 5, 5, 2}};
  for (const auto& s : shapes) {
    AlmostBandMatrix A;
    Array<double, 2> dense;
    randomAlmostBand(s[0], s[1], s[2], s[3], rng, A, dense);
    const int N = A.size();
    Array<double, 1> x = column(randomRhs<double>(N, 1, rng), 0), y;
    A.mul(x, y);
    Array<double, 1> yd(N);
    yd.fill(0.0);
    if (N) qvarray::yPlusAMulx(yd, dense, x, qvarray::NoTrans);
    EXPECT_LT(maxDiff(y, yd), 1e-13);

    Array<double, 2> B = randomRhs<double>(N, 2, rng), Bd = B;
    EXPECT_EQ(A.solve(B), 0);
    if (N) qvarray::linsolv(dense, Bd, 3);
    EXPECT_LT(maxDiff(B, Bd), 1e-11) << s[0] << " " << s[3];
  }
}

TEST(AlmostBandMatrix, PeriodicTridiagonalThroughTheBorder) {
  // The cyclic tridiagonal system of periodic splines: the wrap-around
  // couplings make the last unknown a border row and column.
  const int N = 20, n = N - 1;
  AlmostBandMatrix A(n, 1, 1, 1);
  Array<double, 2> dense(N, N);
  dense.fill(0.0);
  for (int i = 0; i < N; ++i) {
    const int prev = (i + N - 1) % N, next = (i + 1) % N;
    for (auto [j, v] : {std::pair{prev, 1.0}, {i, 4.0}, {next, 1.0}}) {
      A.add(i, j, v);
      dense(i, j) += v;
    }
  }
  qvtest::Rng rng(1);
  Array<double, 1> b = column(randomRhs<double>(N, 1, rng), 0), bd = b;
  A.solve(b, 3);
  qvarray::linsolv(dense, bd, 3);
  EXPECT_LT(maxDiff(b, bd), 1e-13);
  qvtest::expectThrowKey([&] { AlmostBandMatrix(5, 1, 1, 1).set(0, 3, 1.0); },
                         "Internal_numerical_error",
                         "AlmostBandMatrix set: Element outside the band and the border.");
}

TEST(AlmostBandMatrix, SingularComplementIsReported) {
  // Band block the identity, border making the whole matrix singular:
  // last row = sum of the first two rows.
  AlmostBandMatrix A(3, 0, 0, 1);
  for (int i = 0; i < 3; ++i) A.set(i, i, 1.0);
  A.set(0, 3, 1.0);
  A.set(1, 3, 2.0);
  A.set(3, 0, 1.0);
  A.set(3, 1, 1.0);
  A.set(3, 3, 3.0);
  AlmostBandMatrix B = A;
  Array<double, 1> b(4);
  b.fill(1.0);
  EXPECT_EQ(A.solve(b, 0), 4);
  EXPECT_TRUE(std::isnan(b[0]));
  qvtest::expectThrowKey([&] { B.factor(1); }, "Error_in_LAPACK_call", "Singular_matrix");
}

// ---------------------------------------------------------------------------
// AlmostBandedLSQ

namespace {

// An overdetermined spline-like system: m rows, each with w consecutive band
// entries starting at a non-decreasing column, plus p dense border entries.
struct LsqProblem {
  Array<double, 2> A, b;  // dense copies
  std::vector<int> first;
};

LsqProblem makeLsq(int m, int n, int w, int p, int nrhs, qvtest::Rng& rng) {
  LsqProblem P;
  P.A.resize(m, n + p);
  P.A.fill(0.0);
  P.b.resize(m, nrhs);
  rng.fill(P.b);
  for (int i = 0; i < m; ++i) {
    const int f = static_cast<int>(static_cast<long>(i) * (n - w + 1) / m);
    P.first.push_back(f);
    for (int j = 0; j < w; ++j) P.A(i, f + j) = 0.5 + 0.5 * rng.real();
    for (int c = 0; c < p; ++c) P.A(i, n + c) = rng.real();
  }
  return P;
}

void addRows(AlmostBandedLSQ& L, const LsqProblem& P, int n, int w, int p,
             const std::vector<int>& order) {
  for (int i : order) {
    std::vector<double> band(w), border(p), rhs(P.b.sizes[1]);
    for (int j = 0; j < w; ++j) band[j] = P.A(i, P.first[i] + j);
    for (int c = 0; c < p; ++c) border[c] = P.A(i, n + c);
    for (size_t r = 0; r < rhs.size(); ++r) rhs[r] = P.b(i, r);
    L.addRow(P.first[i], band, border, rhs);
  }
}

}  // namespace

TEST(AlmostBandedLSQ, AgreesWithDenseLeastSquaresAndResidualIsOrthogonal) {
  qvtest::Rng rng(44);
  const int shapes[][4] = {{200, 30, 4, 0}, {200, 30, 4, 2}, {60, 10, 1, 1}, {80, 12, 12, 3}};
  for (const auto& s : shapes) {
    const int m = s[0], n = s[1], w = s[2], p = s[3], nrhs = 2;
    const LsqProblem P = makeLsq(m, n, w, p, nrhs, rng);
    std::vector<int> order(m);
    for (int i = 0; i < m; ++i) order[i] = i;
    AlmostBandedLSQ L(n, w, p, nrhs);
    addRows(L, P, n, w, p, order);
    EXPECT_EQ(L.rows(), m);
    Array<double, 2> X;
    EXPECT_EQ(L.solve(X), 0);

    Array<double, 2> Xd;
    qvarray::leastSquares(P.A, P.b, Xd, 1e-14, 3);
    EXPECT_LT(maxDiff(X, Xd), 1e-10) << m << " " << n << " " << w << " " << p;

    // Residual r = b − A·x is orthogonal to every column of A, and its norm is
    // what the rotations left over.
    Array<double, 2> R = P.b;
    qvarray::matmatAMulB(P.A, X, -1.0, 1.0, R);
    for (int r = 0; r < nrhs; ++r) {
      const Array<double, 1> rr = column(R, r);
      for (int j = 0; j < n + p; ++j) EXPECT_NEAR(qvarray::dot(column(P.A, j), rr), 0.0, 1e-11);
      EXPECT_NEAR(L.residualNorm(r), qvarray::norm(rr), 1e-11);
    }

    // Rows in any order give the same solution (fill-in just travels further).
    std::vector<int> reversed(order.rbegin(), order.rend());
    AlmostBandedLSQ L2(n, w, p, nrhs);
    addRows(L2, P, n, w, p, reversed);
    Array<double, 2> X2;
    L2.solve(X2);
    EXPECT_LT(maxDiff(X2, Xd), 1e-10);
  }
}

TEST(AlmostBandedLSQ, RankDeficiencyIsReported) {
  qvtest::Rng rng(5);
  const int n = 10, w = 2;
  AlmostBandedLSQ L(n, w);
  // Rows touch columns 0..7 only (columns 8 and 9 never appear).
  for (int i = 0; i < 40; ++i) {
    const int f = i % 7;
    const double band[2] = {1.0 + rng.real() * 0.5, 1.0 + rng.real() * 0.5};
    const double rhs[1] = {rng.real()};
    L.addRow(f, band, {}, rhs);
  }
  Array<double, 1> x;
  EXPECT_EQ(L.solve(x), 2);
  EXPECT_EQ(x[8], 0.0);
  EXPECT_EQ(x[9], 0.0);
  const auto e = qvtest::expectThrowKey([&] { L.solve(x, 1e-13, 1); }, "Rank_deficient_system");
  EXPECT_EQ(e.detail("Rank"), "8");

  qvtest::expectThrowKey([&] { L.addRow(9, std::vector<double>{1.0, 1.0}, {}, std::vector<double>{0.0}); },
                         "Internal_numerical_error",
                         "AlmostBandedLSQ addRow: The row does not fit the band.");
  EXPECT_EQ(L.rows(), 40) << "a rejected row is not counted";
}
