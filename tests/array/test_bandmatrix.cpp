// Band, symmetric band, almost-band and almost-banded least-squares matrices
// against dense products and solves of the same matrices.
#include <gtest/gtest.h>

#include <cmath>

#include "densecheck.h"
#include "qvarray/arrayutil.h"
#include "qvarray/bandmatrix.h"

using namespace qvtest;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";

// A random band matrix, returned also in dense storage. General band matrices
// are not diagonally dominant, so that pivoting matters; triangular ones are
// (random triangular matrices are badly conditioned).
template <class T>
Array<T, 2> randomBand(int n, int kl, int ku, Rng& rng, qvarray::BasicBandMatrix<T>& B) {
  B.resize(n, kl, ku);
  Array<T, 2> dense = zeros<T>(n, n);
  const double shift = (kl == 0 || ku == 0) ? kl + ku + 1.5 : 0.5;
  for (int j = 0; j < n; ++j)
    for (int i = std::max(0, j - ku); i <= std::min(n - 1, j + kl); ++i) {
      dense(i, j) = rng.value<T>() + (i == j ? T(shift) : T(0));
      B.set(i, j, dense(i, j));
    }
  return dense;
}

template <class T, int N>
Array<T, N> denseSolve(Array<T, 2> A, Array<T, N> B) {
  if (A.count) qvarray::linsolv(A, B, qvarray::RaiseAll);
  return B;
}

template <class T>
Array<T, 1> denseProduct(const Array<T, 2>& A, const Array<T, 1>& x, Trans_t t) {
  Array<T, 1> y(x.count);
  y.fill(T(0));
  if (A.count) qvarray::yPlusAMulx(y, A, x, t);
  return y;
}

template <class T>
class BandSolve : public ::testing::Test {};
TYPED_TEST_SUITE(BandSolve, ScalarTypes);

}  // namespace

TYPED_TEST(BandSolve, AgreesWithDenseProductAndSolve) {
  using T = TypeParam;
  Rng rng(17);
  const int shapes[][3] = {{40, 3, 2},   {40, 0, 4}, {40, 5, 0}, {1, 0, 0},
                           {12, 11, 11}, {30, 1, 1}, {25, 2, 4}};
  for (const auto& s : shapes) {
    qvarray::BasicBandMatrix<T> B;
    const Array<T, 2> dense = randomBand(s[0], s[1], s[2], rng, B);
    for (int i = 0; i < s[0]; ++i)  // outside the band: zero
      for (int j = 0; j < s[0]; ++j) ASSERT_EQ(B.get(i, j), dense(i, j)) << i << " " << j;
    Array<T, 2> X = randomMatrix<T>(s[0], 3, rng);
    Array<T, 1> x = column(X, 0), y;
    for (Trans_t t : {qvarray::NoTrans, qvarray::Trans, qvarray::ConjTrans}) {
      B.mul(x, y, t);
      EXPECT_LT(relDiff(y, denseProduct(dense, x, t)), 1e-14) << t;
    }
    const Array<T, 2> Xd = denseSolve(dense, X);
    const Array<T, 1> xd = denseSolve(dense, x);
    EXPECT_EQ(B.solve(X, 3), 0);
    EXPECT_TRUE(B.isFactored());
    EXPECT_EQ(B.solve(x, 3), 0) << "second solve reuses the factors";
    EXPECT_LT(relDiff(X, Xd), 1e-10) << s[0] << " " << s[1] << " " << s[2];
    EXPECT_LT(relDiff(x, xd), 1e-10);
  }
}

TEST(BandMatrix, ErrorsFollowTheConventions) {
  BandMatrix B(5, 1, 1);
  for (int i = 0; i < 5; ++i) B.set(i, i, 1.0);
  Array<double, 1> shortB(4), b(5);
  expectThrowsAll(
      kNumErr,
      {{[&] { B.set(0, 3, 1.0); }, "BandMatrix set: Element outside the band."},
       {[&] { B.set(5, 5, 1.0); }, "BandMatrix set: Index out of range."},
       {[&] { B.solve(shortB); }, "BandMatrix solve: Length of b differs from the matrix size."},
       {[&] { BandMatrix(3, -1, 0); }, "BandMatrix: Size and bandwidths must not be negative."}});
  EXPECT_FALSE(B.isFactored()) << "a failed check changes nothing";
  // Singular: zero third column. INFO names the zero pivot.
  B.set(2, 2, 0.0);
  BandMatrix C = B, D = B;
  b.fill(1.0);
  EXPECT_EQ(C.solve(b, 0), 3);
  for (double v : b) EXPECT_TRUE(std::isnan(v));
  expectThrowKey([&] { C.solve(b, 1); }, "Error_in_LAPACK_call", "Singular_matrix");
  expectThrowKey([&] { D.factor(1); }, "Error_in_LAPACK_call", "Singular_matrix");
  expectThrowKey([&] { C.set(0, 0, 2.0); }, kNumErr,
                 "BandMatrix: The matrix holds its LU factors.");
  C.setZero();
  EXPECT_FALSE(C.isFactored());
}

TEST(ExtSymBandMatrix, IndefiniteSystemAndEitherTriangle) {
  Rng rng(9);
  const int n = 30, k = 3;
  ExtSymBandMatrix S(n, k);
  Array<double, 2> dense = zeros<double>(n, n);
  for (int j = 0; j < n; ++j)
    for (int i = j; i <= std::min(n - 1, j + k); ++i) {
      // Diagonal of alternating sign: symmetric, far from definite.
      dense(i, j) = dense(j, i) = i == j ? (j % 2 ? -3.0 : 3.0) : rng.real();
      S.set(i, j, dense(i, j));
    }
  EXPECT_EQ(S.get(2, 5), S.get(5, 2));
  Array<double, 1> b = randomVector<double>(n, rng);
  const Array<double, 1> bd = denseSolve(dense, b);
  EXPECT_EQ(S.solve(b), 0);
  EXPECT_LT(relDiff(b, bd), 1e-11);
  expectThrowKey([&] { ExtSymBandMatrix(5, 1).set(0, 2, 1.0); }, kNumErr,
                 "ExtSymBandMatrix set: Element outside the band.");
  // The same band given as the upper triangle (A(i, j) at (k + i − j, j)) or
  // the lower one (at (j − i, i)).
  const int m = 8, w = 2;
  Array<double, 2> up = zeros<double>(w + 1, m), lo = zeros<double>(w + 1, m);
  for (int j = 0; j < m; ++j)
    for (int i = std::max(0, j - w); i <= j; ++i) up(w + i - j, j) = lo(j - i, i) = rng.real();
  ExtSymBandMatrix U(m, w), L(m, w);
  U.setFromTriangle('U', up);
  L.setFromTriangle('L', lo);
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < m; ++j)
      EXPECT_TRUE(U.get(i, j) == L.get(i, j) && U.get(i, j) == U.get(j, i));
}

TEST(AlmostBandMatrix, AgreesWithDenseProductAndSolve) {
  Rng rng(33);
  const int shapes[][4] = {{50, 2, 3, 0}, {50, 2, 3, 1}, {50, 1, 1, 3}, {0, 0, 0, 2}, {6, 5, 5, 2}};
  for (const auto& s : shapes) {
    AlmostBandMatrix A(s[0], s[1], s[2], s[3]);
    const int N = A.size();
    Array<double, 2> dense = zeros<double>(N, N);
    for (int j = 0; j < N; ++j)
      for (int i = 0; i < N; ++i)
        if (A.isStored(i, j)) A.set(i, j, dense(i, j) = rng.real() + (i == j ? 3.0 : 0.0));
    const Array<double, 1> x = randomVector<double>(N, rng);
    Array<double, 1> y;
    A.mul(x, y);
    EXPECT_LT(relDiff(y, denseProduct(dense, x, qvarray::NoTrans)), 1e-13);
    Array<double, 2> B = randomMatrix<double>(N, 2, rng);
    const Array<double, 2> Bd = denseSolve(dense, B);
    EXPECT_EQ(A.solve(B), 0);
    EXPECT_LT(relDiff(B, Bd), 1e-11) << s[0] << " " << s[3];
  }
}

TEST(AlmostBandMatrix, PeriodicTridiagonalAndSingularComplement) {
  // The cyclic tridiagonal system of periodic splines: the wrap-around
  // couplings make the last unknown a border row and column.
  const int N = 20;
  AlmostBandMatrix A(N - 1, 1, 1, 1);
  Array<double, 2> dense = zeros<double>(N, N);
  for (int i = 0; i < N; ++i)
    for (auto [j, v] : {std::pair{(i + N - 1) % N, 1.0}, {i, 4.0}, {(i + 1) % N, 1.0}}) {
      A.add(i, j, v);
      dense(i, j) += v;
    }
  Rng rng(1);
  Array<double, 1> b = randomVector<double>(N, rng);
  const Array<double, 1> bd = denseSolve(dense, b);
  A.solve(b, 3);
  EXPECT_LT(relDiff(b, bd), 1e-13);
  expectThrowKey([&] { AlmostBandMatrix(5, 1, 1, 1).set(0, 3, 1.0); }, kNumErr,
                 "AlmostBandMatrix set: Element outside the band and the border.");

  // Band block the identity, border making the whole matrix singular:
  // last row = sum of the first two rows.
  AlmostBandMatrix S(3, 0, 0, 1);
  for (int i = 0; i < 3; ++i) S.set(i, i, 1.0);
  for (auto [i, j, v] : {std::tuple{0, 3, 1.0}, {1, 3, 2.0}, {3, 0, 1.0}, {3, 1, 1.0}, {3, 3, 3.0}})
    S.set(i, j, v);
  AlmostBandMatrix S2 = S;
  Array<double, 1> c(4);
  c.fill(1.0);
  EXPECT_EQ(S.solve(c, 0), 4);
  EXPECT_TRUE(std::isnan(c[0]));
  expectThrowKey([&] { S2.factor(1); }, "Error_in_LAPACK_call", "Singular_matrix");
}

TEST(AlmostBandedLSQ, AgreesWithDenseLeastSquaresAndResidualIsOrthogonal) {
  // Overdetermined spline-like systems: m rows, each with w consecutive band
  // entries starting at a non-decreasing column, plus p dense border entries.
  Rng rng(44);
  const int shapes[][4] = {{200, 30, 4, 0}, {200, 30, 4, 2}, {60, 10, 1, 1}, {80, 12, 12, 3}};
  for (const auto& s : shapes) {
    const int m = s[0], n = s[1], w = s[2], p = s[3], nrhs = 2;
    Array<double, 2> A = zeros<double>(m, n + p), X, X2, Xd;
    const Array<double, 2> b = randomMatrix<double>(m, nrhs, rng);
    std::vector<int> first(m);
    for (int i = 0; i < m; ++i) {
      first[i] = static_cast<int>(static_cast<long>(i) * (n - w + 1) / m);
      for (int j = 0; j < w; ++j) A(i, first[i] + j) = 0.5 + 0.5 * rng.real();
      for (int c = 0; c < p; ++c) A(i, n + c) = rng.real();
    }
    AlmostBandedLSQ L(n, w, p, nrhs), L2(n, w, p, nrhs);  // L2: rows in reverse order
    for (int k = 0; k < m; ++k)
      for (AlmostBandedLSQ* to : {&L, &L2}) {
        const int i = to == &L ? k : m - 1 - k;
        std::vector<double> band(w), border(p), rhs(nrhs);
        for (int j = 0; j < w; ++j) band[j] = A(i, first[i] + j);
        for (int c = 0; c < p; ++c) border[c] = A(i, n + c);
        for (int r = 0; r < nrhs; ++r) rhs[r] = b(i, r);
        to->addRow(first[i], band, border, rhs);
      }
    EXPECT_EQ(L.rows(), m);
    EXPECT_EQ(L.solve(X), 0);
    L2.solve(X2);  // any order: fill-in just travels further
    qvarray::leastSquares(A, b, Xd, 1e-14, 3);
    EXPECT_LT(relDiff(X, Xd), 1e-10) << m << " " << n << " " << w << " " << p;
    EXPECT_LT(relDiff(X2, Xd), 1e-10);
    // The residual r = b − A·x is orthogonal to every column of A, and its norm
    // is what the rotations left over.
    const Array<double, 2> R = minus(b, mul(A, X));
    EXPECT_LT(normF(mul(adj(A), R)), 1e-11);
    for (int r = 0; r < nrhs; ++r) EXPECT_NEAR(L.residualNorm(r), normF(column(R, r)), 1e-11);
  }
}

TEST(AlmostBandedLSQ, RankDeficiencyIsReported) {
  Rng rng(5);
  AlmostBandedLSQ L(10, 2);
  for (int i = 0; i < 40; ++i) {  // rows touch columns 0..7 only
    const double band[2] = {1.0 + rng.real() * 0.5, 1.0 + rng.real() * 0.5}, rhs[1] = {rng.real()};
    L.addRow(i % 7, band, {}, rhs);
  }
  Array<double, 1> x;
  EXPECT_EQ(L.solve(x), 2);
  EXPECT_TRUE(x[8] == 0.0 && x[9] == 0.0);
  const auto e = expectThrowKey([&] { L.solve(x, 1e-13, 1); }, "Rank_deficient_system");
  EXPECT_EQ(e.detail("Rank"), "8");
  expectThrowKey(
      [&] {
        L.addRow(9, std::vector<double>{1.0, 1.0}, {}, std::vector<double>{0.0});
      },
      kNumErr, "AlmostBandedLSQ addRow: The row does not fit the band.");
  EXPECT_EQ(L.rows(), 40) << "a rejected row is not counted";
}
