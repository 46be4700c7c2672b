// Matrix kernels: products against naive loops, triangular solves by their
// residuals, transposes element by element.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kernel_oracles.h"
#include "qvarray/arrayutil.h"

using namespace kernel_oracles;
using qvarray::Array;
using qvarray::ConjTrans;
using qvarray::NoTrans;
using qvarray::Trans;
using qvtest::expectThrowKey;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";
constexpr const char* kIllegal = "Illegal_input_values_in_LAPACK_call";

template <class T>
class MatrixKernels : public ::testing::Test {};
using Scalars = ::testing::Types<double, cplx>;
TYPED_TEST_SUITE(MatrixKernels, Scalars);

// Element (i, j) of op(A), widened.
template <class T>
Wide<T> opElement(const Array<T, 2>& A, Trans_t t, size_t i, size_t j) {
  if (t == NoTrans) return wide(A(i, j));
  return t == Trans ? wide(A(j, i)) : conjw(wide(A(j, i)));
}

// The conjugate transpose, written out.
template <class T>
Array<T, 2> explicitAdjoint(const Array<T, 2>& A) {
  Array<T, 2> B(A.sizes[1], A.sizes[0]);
  for (size_t i = 0; i < A.sizes[0]; ++i)
    for (size_t j = 0; j < A.sizes[1]; ++j) B(j, i) = std::conj(A(i, j));
  return B;
}

}  // namespace

TYPED_TEST(MatrixKernels, MatrixVectorOnLeadingBlocks) {
  using T = TypeParam;
  qvtest::Rng rng;
  const auto A = randomArray<T, 2>(rng, 5, 4);
  for (Trans_t t : {NoTrans, Trans, ConjTrans}) {
    for (auto [m, n] : {std::pair{-1, -1}, {3, 2}, {5, 0}, {2, 4}}) {
      const size_t rows = m < 0 ? 5 : m, cols = n < 0 ? 4 : n;
      const size_t ylen = t == NoTrans ? rows : cols, xlen = t == NoTrans ? cols : rows;
      auto x = randomArray<T, 1>(rng, xlen + 1), y = randomArray<T, 1>(rng, ylen + 2);
      const auto y0 = y;
      qvarray::yPlusAMulx(y, A, x, t, m, n);
      for (size_t i = 0; i < ylen; ++i) {
        Wide<T> ref = wide(y0[i]);
        for (size_t j = 0; j < xlen; ++j) ref += opElement(A, t, i, j) * wide(x[j]);
        EXPECT_LT(relErr(y[i], ref), 1e-15) << t << " " << m << " " << n << " " << i;
      }
      for (size_t i = ylen; i < y.count; ++i) EXPECT_EQ(y[i], y0[i]);
    }
  }
}

TEST(MatrixKernels, LeadingRowsOnlyUpdateTheirPartOfY) {
  qvtest::Rng rng;
  const auto A = randomArray<double, 2>(rng, 3, 3);
  const auto x = randomArray<double, 1>(rng, 3);
  Array<double, 1> y(3);
  y.fill(7.0);
  qvarray::yPlusAMulx(y, A, x, NoTrans, 2);
  for (size_t i = 0; i < 2; ++i)
    EXPECT_NEAR(y[i], 7.0 + A(i, 0) * x[0] + A(i, 1) * x[1] + A(i, 2) * x[2], 1e-15);
  EXPECT_EQ(y[2], 7.0);
}

TEST(MatrixKernels, ConjTransIsTheExplicitAdjoint) {
  qvtest::Rng rng;
  const auto A = randomArray<cplx, 2>(rng, 6, 4);
  const auto x = randomArray<cplx, 1>(rng, 6);
  Array<cplx, 1> y1(4), y2(4), y3(4);
  qvarray::yPlusAMulx(y1, A, x, ConjTrans);
  qvarray::yPlusAMulx(y2, explicitAdjoint(A), x, NoTrans);
  qvarray::yPlusAMulx(y3, A, x, Trans);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_LT(std::abs(y1[i] - y2[i]), 1e-15);
    EXPECT_GT(std::abs(y1[i] - y3[i]), 1e-3);  // the conjugation is not dropped
  }
  // on real data ConjTrans acts as Trans
  const auto R = randomArray<double, 2>(rng, 3, 2);
  const auto r = randomArray<double, 1>(rng, 3);
  Array<double, 1> u(2), w(2);
  u.fill(0.0);
  w.fill(0.0);
  qvarray::yPlusAMulx(u, R, r, ConjTrans);
  qvarray::yPlusAMulx(w, R, r, Trans);
  EXPECT_EQ(u[0], w[0]);
  EXPECT_EQ(u[1], w[1]);
}

TYPED_TEST(MatrixKernels, MatrixVectorChecks) {
  using T = TypeParam;
  Array<T, 2> A(3, 3);
  Array<T, 1> x3(3), y3(3), x2(2), y2(2);
  const char* sizeA = "yPlusAMulx: Size of A less than required by m and n.";
  const char* sizeXY = "yPlusAMulx: Size of x or y less than required by m and n.";
  expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x3, NoTrans, 4, 3); }, kNumErr, sizeA);
  expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x3, Trans, 3, 4); }, kNumErr, sizeA);
  expectThrowKey([&] { qvarray::yPlusAMulx(y2, A, x3, NoTrans); }, kNumErr, sizeXY);
  expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x2, NoTrans); }, kNumErr, sizeXY);
  // transposed: y needs n elements and x needs m
  expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x2, ConjTrans, 3, 2); }, kNumErr, sizeXY);
  qvarray::yPlusAMulx(y2, A, x3, Trans, 3, 2);
  y3.fill(T(1.0));
  expectThrowKey([&] { qvarray::yPlusAMulx(y3, A, x3, Trans_t(3)); }, kNumErr, kIllegal);
  for (const T& v : y3) EXPECT_EQ(v, T(1.0));
}

TYPED_TEST(MatrixKernels, TriangularSolveResiduals) {
  using T = TypeParam;
  qvtest::Rng rng;
  const size_t N = 6;
  auto A = randomArray<T, 2>(rng, N + 2, N + 1);  // the solve uses a leading block
  for (size_t i = 0; i < N; ++i) A(i, i) += T(4.0);
  for (bool upper : {true, false}) {
    // R: the triangle the solver must use, the rest of the block zero
    Array<T, 2> R(N, N);
    for (size_t j = 0; j < N; ++j)
      for (size_t i = 0; i < N; ++i) R(i, j) = (upper ? i <= j : i >= j) ? A(i, j) : T(0.0);
    for (Trans_t t : {NoTrans, Trans, ConjTrans}) {
      const auto b = randomArray<T, 1>(rng, N + 3);
      auto z = b;
      qvarray::triSolve(A, z, upper, t, int(N));
      for (size_t i = 0; i < N; ++i) {
        Wide<T> Rz = 0;
        for (size_t j = 0; j < N; ++j) Rz += opElement(R, t, i, j) * wide(z[j]);
        EXPECT_LT(relErr(b[i], Rz), 1e-14) << upper << " " << t << " " << i;
      }
      for (size_t i = N; i < z.count; ++i) EXPECT_EQ(z[i], b[i]);
    }
  }
  Array<T, 2> S(3, 3);
  S.fill(T(0.0));
  for (size_t i = 0; i < 3; ++i) S(i, i) = T(2.0);
  Array<T, 1> x(3);
  x.fill(T(1.0));
  qvarray::triSolve(S, x, true, NoTrans);  // n defaults to A.size1
  for (const T& v : x) EXPECT_EQ(v, T(0.5));

  const char* s = "triSolve: Size of A or x is less than n.";
  Array<T, 2> wide3x2(3, 2), tall2x3(2, 3);
  Array<T, 1> x2(2);
  expectThrowKey([&] { qvarray::triSolve(wide3x2, x, true, NoTrans, 3); }, kNumErr, s);
  expectThrowKey([&] { qvarray::triSolve(tall2x3, x, true, NoTrans, 3); }, kNumErr, s);
  expectThrowKey([&] { qvarray::triSolve(S, x2, false, Trans); }, kNumErr, s);
  expectThrowKey([&] { qvarray::triSolve(S, x, false, Trans_t(-1)); }, kNumErr, kIllegal);
}

TYPED_TEST(MatrixKernels, MatrixProductAgainstLoops) {
  using T = TypeParam;
  qvtest::Rng rng;
  const auto A = randomArray<T, 2>(rng, 7, 5), B = randomArray<T, 2>(rng, 5, 3);
  const auto C0 = randomArray<T, 2>(rng, 7, 3);
  const T alpha = rng.value<T>(), beta = rng.value<T>();
  auto C = C0;
  qvarray::matmatAMulB(A, B, alpha, beta, C);
  for (size_t i = 0; i < 7; ++i)
    for (size_t j = 0; j < 3; ++j) {
      Wide<T> ab = 0;
      for (size_t k = 0; k < 5; ++k) ab += wide(A(i, k)) * wide(B(k, j));
      EXPECT_LT(relErr(C(i, j), wide(alpha) * ab + wide(beta) * wide(C0(i, j))), 1e-15);
    }

  // beta = 0: C takes the product's shape and its old contents are never read
  Array<T, 2> D(2, 2);
  D.fill(T(std::numeric_limits<double>::quiet_NaN()));
  qvarray::matmatAMulB(A, B, T(1.0), T(0.0), D);
  ASSERT_EQ(D.sizes[0], 7u);
  ASSERT_EQ(D.sizes[1], 3u);
  auto E = C0;
  qvarray::matmatAMulB(A, B, T(1.0), T(0.0), E);
  for (size_t k = 0; k < E.count; ++k) EXPECT_EQ(D[k], E[k]);

  // the product may overwrite one of its factors
  auto S = randomArray<T, 2>(rng, 4, 4);
  const auto S0 = S;
  Array<T, 2> SS;
  qvarray::matmatAMulB(S0, S0, T(1.0), T(0.0), SS);
  qvarray::matmatAMulB(S, S, T(1.0), T(0.0), S);
  for (size_t k = 0; k < S.count; ++k) EXPECT_EQ(S[k], SS[k]);

  // an empty inner dimension leaves beta·C
  Array<T, 2> A0(3, 0), B0(0, 2);
  auto F = randomArray<T, 2>(rng, 3, 2);
  const auto F0 = F;
  qvarray::matmatAMulB(A0, B0, T(1.0), T(2.0), F);
  for (size_t k = 0; k < F.count; ++k) EXPECT_EQ(F[k], T(2.0) * F0[k]);

  Array<T, 2> wrong(7, 2);
  expectThrowKey([&] { qvarray::matmatAMulB(A, A, T(1.0), T(0.0), wrong); }, kNumErr,
                 "matmatAMulB: Inner sizes of A and B differ.");
  expectThrowKey([&] { qvarray::matmatAMulB(A, B, T(1.0), T(1.0), wrong); }, kNumErr,
                 "matmatAMulB: Size of C does not match A and B.");
}

TYPED_TEST(MatrixKernels, AdjointAcrossTiles) {
  using T = TypeParam;
  qvtest::Rng rng;
  const auto A = randomArray<T, 2>(rng, 37, 70);
  Array<T, 2> B(5, 5);
  qvarray::adjoint(A, B);
  ASSERT_EQ(B.sizes[0], 70u);
  ASSERT_EQ(B.sizes[1], 37u);
  EXPECT_EQ(B.strides[1], 70u);
  for (size_t i = 0; i < 37; ++i)
    for (size_t j = 0; j < 70; ++j) ASSERT_EQ(B(j, i), std::conj(A(i, j)));
  auto C = A;
  qvarray::adjoint(C, C);
  for (size_t k = 0; k < B.count; ++k) ASSERT_EQ(C[k], B[k]);
  qvarray::adjoint(C, C);
  for (size_t k = 0; k < A.count; ++k) ASSERT_EQ(C[k], A[k]);
}
