// Matrix kernels: products against naive loops, triangular solves by their
// residuals, transposes element by element.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "densecheck.h"
#include "qvarray/arrayutil.h"

using namespace qvtest;
using qvarray::ConjTrans;
using qvarray::NoTrans;
using qvarray::Trans;

namespace {

constexpr const char* kNumErr = "Internal_numerical_error";
constexpr const char* kIllegal = "Illegal_input_values_in_LAPACK_call";

template <class T>
class MatrixKernels : public ::testing::Test {};
TYPED_TEST_SUITE(MatrixKernels, ScalarTypes);

// Element (i, j) of op(A), widened; on real data ConjTrans acts as Trans.
template <class T>
Wide<T> opElement(const Array<T, 2>& A, Trans_t t, size_t i, size_t j) {
  if (t == NoTrans) return wide(A(i, j));
  return t == Trans ? wide(A(j, i)) : conjOf(wide(A(j, i)));
}

}  // namespace

TYPED_TEST(MatrixKernels, MatrixVectorOnLeadingBlocks) {
  using T = TypeParam;
  Rng rng;
  const auto A = randomMatrix<T>(5, 4, rng);
  for (Trans_t t : {NoTrans, Trans, ConjTrans}) {
    for (auto [m, n] : {std::pair{-1, -1}, {3, 2}, {5, 0}, {2, 4}, {2, -1}}) {
      const size_t rows = m < 0 ? 5 : m, cols = n < 0 ? 4 : n;
      const size_t ylen = t == NoTrans ? rows : cols, xlen = t == NoTrans ? cols : rows;
      const auto x = randomVector<T>(xlen + 1, rng), y0 = randomVector<T>(ylen + 2, rng);
      auto y = y0;
      qvarray::yPlusAMulx(y, A, x, t, m, n);
      for (size_t i = 0; i < ylen; ++i) {
        Wide<T> ref = wide(y0[i]);
        for (size_t j = 0; j < xlen; ++j) ref += opElement(A, t, i, j) * wide(x[j]);
        EXPECT_LT(relErr(y[i], ref), 1e-15) << t << " " << m << " " << n << " " << i;
      }
      for (size_t i = ylen; i < y.count; ++i) EXPECT_EQ(y[i], y0[i]);
    }
  }
  // Size checks; transposed, y needs n elements and x needs m. An illegal
  // selector is refused before anything changes.
  Array<T, 2> B(3, 3);
  Array<T, 1> x3(3), y3(3), x2(2), y2(2);
  const char* sizeA = "yPlusAMulx: Size of A less than required by m and n.";
  const char* sizeXY = "yPlusAMulx: Size of x or y less than required by m and n.";
  y3.fill(T(1.0));
  expectThrowsAll(kNumErr, {{[&] { qvarray::yPlusAMulx(y3, B, x3, NoTrans, 4, 3); }, sizeA},
                            {[&] { qvarray::yPlusAMulx(y3, B, x3, Trans, 3, 4); }, sizeA},
                            {[&] { qvarray::yPlusAMulx(y2, B, x3, NoTrans); }, sizeXY},
                            {[&] { qvarray::yPlusAMulx(y3, B, x2, NoTrans); }, sizeXY},
                            {[&] { qvarray::yPlusAMulx(y3, B, x2, ConjTrans, 3, 2); }, sizeXY},
                            {[&] { qvarray::yPlusAMulx(y3, B, x3, Trans_t(3)); }, kIllegal}});
  for (const T& v : y3) EXPECT_EQ(v, T(1.0));
  qvarray::yPlusAMulx(y2, B, x3, Trans, 3, 2);
}

TYPED_TEST(MatrixKernels, TriangularSolveResiduals) {
  using T = TypeParam;
  Rng rng;
  const size_t N = 6;
  auto A = randomMatrix<T>(N + 2, N + 1, rng);  // the solve uses a leading block
  for (size_t i = 0; i < N; ++i) A(i, i) += T(4.0);
  for (bool upper : {true, false}) {
    // R: the triangle the solver must use, the rest of the block zero
    Array<T, 2> R(N, N);
    for (size_t j = 0; j < N; ++j)
      for (size_t i = 0; i < N; ++i) R(i, j) = (upper ? i <= j : i >= j) ? A(i, j) : T(0.0);
    for (Trans_t t : {NoTrans, Trans, ConjTrans}) {
      const auto b = randomVector<T>(N + 3, rng);
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
  Array<T, 2> S = identity<T>(3);
  for (size_t i = 0; i < 3; ++i) S(i, i) = T(2.0);
  Array<T, 1> x(3);
  x.fill(T(1.0));
  qvarray::triSolve(S, x, true, NoTrans);  // n defaults to A.size1
  for (const T& v : x) EXPECT_EQ(v, T(0.5));

  const char* s = "triSolve: Size of A or x is less than n.";
  Array<T, 2> wide3x2(3, 2), tall2x3(2, 3);
  Array<T, 1> x2(2);
  expectThrowsAll(kNumErr, {{[&] { qvarray::triSolve(wide3x2, x, true, NoTrans, 3); }, s},
                            {[&] { qvarray::triSolve(tall2x3, x, true, NoTrans, 3); }, s},
                            {[&] { qvarray::triSolve(S, x2, false, Trans); }, s},
                            {[&] { qvarray::triSolve(S, x, false, Trans_t(-1)); }, kIllegal}});
}

TYPED_TEST(MatrixKernels, MatrixProductAgainstLoops) {
  using T = TypeParam;
  Rng rng;
  const auto A = randomMatrix<T>(7, 5, rng), B = randomMatrix<T>(5, 3, rng);
  const auto C0 = randomMatrix<T>(7, 3, rng);
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
  Array<T, 2> D(2, 2), E = C0;
  D.fill(T(std::numeric_limits<double>::quiet_NaN()));
  qvarray::matmatAMulB(A, B, T(1.0), T(0.0), D);
  qvarray::matmatAMulB(A, B, T(1.0), T(0.0), E);
  ASSERT_TRUE(D.sizes[0] == 7 && D.sizes[1] == 3);
  EXPECT_EQ(normF(minus(D, E)), 0.0);
  // the product may overwrite one of its factors
  auto S = randomMatrix<T>(4, 4, rng);
  Array<T, 2> SS;
  qvarray::matmatAMulB(S, S, T(1.0), T(0.0), SS);
  qvarray::matmatAMulB(S, S, T(1.0), T(0.0), S);
  EXPECT_EQ(normF(minus(S, SS)), 0.0);
  // an empty inner dimension leaves beta·C
  Array<T, 2> A0(3, 0), B0(0, 2), F = randomMatrix<T>(3, 2, rng), F2 = F;
  qvarray::matmatAMulB(A0, B0, T(1.0), T(2.0), F);
  for (auto& v : F2) v *= T(2.0);
  EXPECT_EQ(normF(minus(F, F2)), 0.0);

  Array<T, 2> wrong(7, 2);
  expectThrowsAll(kNumErr, {{[&] { qvarray::matmatAMulB(A, A, T(1.0), T(0.0), wrong); },
                             "matmatAMulB: Inner sizes of A and B differ."},
                            {[&] { qvarray::matmatAMulB(A, B, T(1.0), T(1.0), wrong); },
                             "matmatAMulB: Size of C does not match A and B."}});
}

TYPED_TEST(MatrixKernels, AdjointAcrossTiles) {
  using T = TypeParam;
  Rng rng;
  const auto A = randomMatrix<T>(37, 70, rng);
  Array<T, 2> B(5, 5);
  qvarray::adjoint(A, B);
  ASSERT_TRUE(B.sizes[0] == 70 && B.sizes[1] == 37 && B.strides[1] == 70);
  EXPECT_EQ(normF(minus(B, adj(A))), 0.0);
  auto C = A;
  qvarray::adjoint(C, C);
  EXPECT_EQ(normF(minus(C, B)), 0.0);
  qvarray::adjoint(C, C);
  EXPECT_EQ(normF(minus(C, A)), 0.0);
}
